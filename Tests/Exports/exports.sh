#!/usr/bin/env bash
# What the shared library exports is what exported_symbols.txt lists: nothing has gone, nothing has crept in.
#   exports.sh LIBRARY [--update]      with --update the list is made anew, to be read before it is committed
# The array family is one line whatever it is instantiated for: that all of its instances are there ExportsTest.cpp proves.
set -u
list=$(dirname "$0")/exported_symbols.txt

exported()
{
    nm -DC --defined-only "$1" | cut -d' ' -f3- | grep -vE '^(typeinfo|vtable|VTT|guard variable)|^([^(]* )?std::' |
        sed -E 's/CParameterArray<[^<>]*>/CParameterArray<>/g' | LC_ALL=C sort -u
}

if [ "${2-}" = --update ]; then
    exported "$1" >"$list"
    exit
fi
if ! difference=$(diff "$list" <(exported "$1")); then
    echo "FAILED: the exports differ from the list (<: gone, >: new):"
    echo "$difference"
    exit 1
fi

# The console's processes link these.
failed=0
for name in CMaxPathParameterArray:: CParameterArray\<\>:: CBMAContainer:: CCBMAContainerScopeMask:: CPPCStreamReader:: CRawPPCMsg:: CMCUpdateMsg:: \
    CMsgHandlerBase:: CClientMsgHandler:: CRawPPCQueue:: CPPCSender:: SimpleUDPPPCSender:: \
    RouterDiagnostics::operator\<\< XMLDiagnostics::int2String XMLDiagnostics::float2String XMLDiagnostics::string2Int \
    XMLDiagnostics::string2Float VORNXMLWriter:: diagnostics_xml_reader:: CDiagnosticsSocketSender:: \
    CCritSec:: CMutex:: CRWMutex:: CSema:: AssertFailStdErrBase:: AssertFailStdErrAbort:: AssertDoNothing:: InfoOnFail:: \
    AssertFailStdErrHalt:: DemangledSynNameResourceGuard:: GetBackTrace\<AssertDoNothing\> GetBackTrace\<AssertFailStdErrAbort\> \
    GBMalloc GBFree LogMprotect MemPool::CMemPoolBase:: \
    canMaxPaths canMaxParams canCommonParamTypesTable caCommonParamTypeToMessageType pvDefaultParameterValues \
    CBMAContainer::m_anScopeMasks XMLDiagnosticsParametersDSP::strName; do
    grep -qF "$name" "$list" || { echo "FAILED: no $name is exported"; failed=1; }
done
[ "$(grep -c 'Parameters::enPPCStringMessage::caDefaults$' "$list")" = 51 ] || { echo "FAILED: not 51 caDefaults"; failed=1; }
[ $failed = 0 ] && echo passed
exit $failed
