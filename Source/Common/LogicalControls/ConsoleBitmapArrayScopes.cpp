// The scope flags of an image: one by one, in blocks, as lists, and at work in shows.
#include "LogicalControls/BlockPosition.h"
#include "LogicalControls/ConsoleBitmapArray.h"
#include "LogicalControls/ScopeMask.h"

#include <cstdio>
#include <memory>
#include <new>

namespace
{

constexpr int c_nSafeOverride = 230; // the globals' switch that lets an export go past the safe flags

// Calls visit with each family's array of every message type that shows move, in order: all but meters.
template <class Visitor, class... Families>
void VisitMovedArrays(Visitor visit, Families&... families)
{
    visit(families.rotaries...);
    visit(families.switches...);
    visit(families.integers...);
    visit(families.faders...);
    visit(families.strings...);
    visit(families.others...);
}

// Moves what both masks name; for values and for flags.
template <class Family>
void MoveMasked(const Family& from, Family& to, const stParameterFlags& maskA, const stParameterFlags& maskB)
{
    VisitMovedArrays([](const auto& source, auto& destination, const auto& a, const auto& b) { destination.Import(source, a, b); },
                     from, to, maskA, maskB);
}

void CopyFlags(const stParameterFlags& from, stParameterFlags& to)
{
    VisitMovedArrays([](const auto& source, auto& destination) { destination = source; }, from, to);
}

} // namespace

void CBMAContainer::SetPPCStoreScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue)
{
    SetScopeFlag(enStoreScope, enType, enPathType, nPath, nParam, nValue);
}

void CBMAContainer::SetPPCRecallScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                      int nValue)
{
    SetScopeFlag(enRecallScope, enType, enPathType, nPath, nParam, nValue);
}

void CBMAContainer::SetPPCGlobalScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                      int nValue)
{
    SetScopeFlag(enGlobalScope, enType, enPathType, nPath, nParam, nValue);
}

void CBMAContainer::SetPPCSafeScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue)
{
    SetScopeFlag(enSafeScope, enType, enPathType, nPath, nParam, nValue);
}

void CBMAContainer::GetPPCStoreScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                     int& nValue) const
{
    GetScopeFlag(enStoreScope, enType, enPathType, nPath, nParam, nValue);
}

void CBMAContainer::GetPPCRecallScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                      int& nValue) const
{
    GetScopeFlag(enRecallScope, enType, enPathType, nPath, nParam, nValue);
}

void CBMAContainer::GetPPCGlobalScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                      int& nValue) const
{
    GetScopeFlag(enGlobalScope, enType, enPathType, nPath, nParam, nValue);
}

void CBMAContainer::GetPPCSafeScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                    int& nValue) const
{
    GetScopeFlag(enSafeScope, enType, enPathType, nPath, nParam, nValue);
}

void CBMAContainer::BlockWriteStoreScope(stPPCWithSI* pRecords, int nCount)
{
    BlockWriteScope(enStoreScope, pRecords, nCount);
}

void CBMAContainer::BlockWriteRecallScope(stPPCWithSI* pRecords, int nCount)
{
    BlockWriteScope(enRecallScope, pRecords, nCount);
}

void CBMAContainer::BlockWriteGlobalScope(stPPCWithSI* pRecords, int nCount)
{
    BlockWriteScope(enGlobalScope, pRecords, nCount);
}

void CBMAContainer::BlockWriteSafeScope(stPPCWithSI* pRecords, int nCount)
{
    BlockWriteScope(enSafeScope, pRecords, nCount);
}

void CBMAContainer::DumpStoreScopeParams(const tPPCPacket* pList, int nPath) const
{
    DumpScopeParams(enStoreScope, "[CBMAContainer::DumpStoreScopeParams] START", pList, nPath);
}

void CBMAContainer::DumpRecallScopeParams(const tPPCPacket* pList, int nPath) const
{
    DumpScopeParams(enRecallScope, "[CBMAContainer::DumpRecallScopeParams] START", pList, nPath);
}

void CBMAContainer::DumpGlobalScopeParams(const tPPCPacket* pList, int nPath) const
{
    DumpScopeParams(enGlobalScope, "[CBMAContainer::DumpGlobalScopeParams] START", pList, nPath);
}

void CBMAContainer::DumpSafeScopeParams(const tPPCPacket* pList, int nPath) const
{
    DumpScopeParams(enSafeScope, "[CBMAContainer::DumpSafeScopeParams] START", pList, nPath);
}

void CBMAContainer::ImportGlobalParameters(const CBMAContainer& source)
{
    MoveValues(source, *this, m_aScopeFlags[enGlobalScope], m_aScopeFlags[enSafeScope]);
}

void CBMAContainer::ExportGlobalParameters(CBMAContainer& destination) const
{
    MoveValues(*this, destination, m_aScopeFlags[enGlobalScope], m_aScopeFlags[enSafeScope]);
}

void CBMAContainer::ImportScopedParameters(const CBMAContainer& source, bool bStore, bool bRecall)
{
    source.CopyScopes(*this, bStore, bRecall);
    MoveValues(source, *this, m_aScopeFlags[enRecallScope], m_aScopeFlags[enSafeScope]);
}

void CBMAContainer::ExportScopedParameters(CBMAContainer& destination, bool bStore, bool bRecall,
                                           const CCBMAContainerScopeMask* pMask) const
{
    int nSafeOverride = 0;
    GetPPC(enSwitch, enGlobals, 0, c_nSafeOverride, nSafeOverride);
    CopyScopes(destination, bStore, bRecall);
    const stParameterFlags& store = m_aScopeFlags[enStoreScope];
    const stParameterFlags& safe = m_aScopeFlags[enSafeScope];
    if (pMask != nullptr)
    {
        MoveValues(*this, destination, pMask->m_Flags, safe);
    }
    else
    {
        MoveValues(*this, destination, store, nSafeOverride == 0 ? safe : store);
    }
}

void CBMAContainer::ExportStoreScope(CBMAContainer& destination, const CCBMAContainerScopeMask* pMask) const
{
    ExportScope(enStoreScope, destination, pMask);
}

void CBMAContainer::ExportRecallScope(CBMAContainer& destination, const CCBMAContainerScopeMask* pMask) const
{
    ExportScope(enRecallScope, destination, pMask);
}

void CBMAContainer::SetScopeFlag(enScopes enScope, tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath,
                                 int nParam, int nValue)
{
    VisitArray(m_aScopeFlags[enScope], enType, [&](auto& flags) { flags.SetPPC(enPathType, nPath, nParam, nValue); });
}

void CBMAContainer::GetScopeFlag(enScopes enScope, tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath,
                                 int nParam, int& nValue) const
{
    VisitArray(m_aScopeFlags[enScope], enType, [&](const auto& flags) { flags.GetPPC(enPathType, nPath, nParam, nValue); });
}

void CBMAContainer::BlockWriteScope(enScopes enScope, stPPCWithSI* pRecords, int nCount)
{
    WriteFlags(m_aScopeFlags[enScope], pRecords, nCount, m_aCursors[enScopeWriteCursor]);
}

void CBMAContainer::DumpScopeParams(enScopes enScope, const char* szStart, const tPPCPacket* pList, int nPath) const
{
    std::puts(szStart);
    for (; pList != nullptr && pList->enMessageType != -1 && pList->enPathType != -1; ++pList)
    {
        int nFlag = 0;
        GetScopeFlag(enScope, pList->enMessageType, pList->enPathType, nPath, pList->nParameter, nFlag);
        std::printf(" -> msg type (%d), path type (%2d), path (%3d), parameter (%3d), value (%3d)\n",
                    static_cast<int>(pList->enMessageType), static_cast<int>(pList->enPathType), nPath, pList->nParameter, nFlag);
    }
    std::puts("[CBMAContainer::DumpStoreScopeParams] END\n"); // of all four dumps: that is meant
}

void CBMAContainer::MoveValues(const CBMAContainer& from, CBMAContainer& to, const stParameterFlags& maskA,
                               const stParameterFlags& maskB)
{
    MoveMasked(from.m_Values, to.m_Values, maskA, maskB);
    to.m_RotarySI.Import(from.m_RotarySI, maskA.rotaries, maskB.rotaries);
    to.m_FaderSI.Import(from.m_FaderSI, maskA.faders, maskB.faders);
}

void CBMAContainer::CopyScopes(CBMAContainer& destination, bool bStore, bool bRecall) const
{
    if (bStore)
    {
        CopyFlags(m_aScopeFlags[enStoreScope], destination.m_aScopeFlags[enStoreScope]);
    }
    if (bRecall)
    {
        CopyFlags(m_aScopeFlags[enRecallScope], destination.m_aScopeFlags[enRecallScope]);
    }
}

void CBMAContainer::ExportScope(enScopes enScope, CBMAContainer& destination, const CCBMAContainerScopeMask* pMask) const
{
    if (pMask != nullptr)
    {
        // And nothing behind the last flag, whatever the given mask has there. On the heap, as it is too large for a small stack;
        // without memory nothing moves, as without memory for its flags.
        const std::unique_ptr<CCBMAContainerScopeMask> pEvery(new (std::nothrow) CCBMAContainerScopeMask);
        if (pEvery != nullptr)
        {
            pEvery->BlockAssign(1);
            MoveMasked(m_aScopeFlags[enScope], destination.m_aScopeFlags[enScope], pMask->m_Flags, pEvery->m_Flags);
        }
    }
    else
    {
        CopyFlags(m_aScopeFlags[enScope], destination.m_aScopeFlags[enScope]);
    }
}
