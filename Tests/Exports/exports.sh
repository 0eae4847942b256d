#!/usr/bin/env bash
# What the shared library exports is what exported_symbols.txt lists: nothing has gone, nothing has crept in. And what programs were
# compiled with, sizes, offsets and numbers, is as abi.xml has it: where that changes, LOGICALCONTROLS_ABI counts up.
#   exports.sh LIBRARY [--update]      with --update both are made anew, to be read before they are committed
# The array family is one line whatever it is instantiated for: that all of its instances are there ExportsTest.cpp proves.
set -u
here=$(cd "$(dirname "$0")" && pwd)
list=$here/exported_symbols.txt
abi=(--suppressions "$here/abi.suppressions" --exported-interfaces-only --drop-private-types)
headers=$here/../../Source/Common in_house=$here/../../Source/InHouse

exported()
{
    nm -DC --defined-only "$1" | cut -d' ' -f3- | grep -vE '^(typeinfo|vtable|VTT|guard variable)|^([^(]* )?std::' |
        sed -E 's/CParameterArray<[^<>]*>/CParameterArray<>/g' | LC_ALL=C sort -u
}

if [ "${2-}" = --update ]; then
    exported "$1" >"$list"
    abidw "${abi[@]}" --headers-dir "$headers" --headers-dir "$in_house" --no-show-locs --no-corpus-path --no-comp-dir-path --no-parameter-names \
        --type-id-style hash --no-elf-needed --drop-undefined-syms "$1" | sed "s#$(cd "$here/../.." && pwd)/##g" >"$here/abi.xml"
    exit
fi
if ! difference=$(diff "$list" <(exported "$1")); then
    echo "FAILED: the exports differ from the list (<: gone, >: new):"
    echo "$difference"
    exit 1
fi
if ! difference=$(abidiff "${abi[@]}" --headers-dir2 "$headers" --headers-dir2 "$in_house" "$here/abi.xml" "$1"); then
    echo "FAILED: programs that are compiled would find another library:"
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
