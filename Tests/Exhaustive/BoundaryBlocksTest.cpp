#include "LogicalControls/ConsoleBitmapArray.h"

#include "ClientComms/MsgHandlerBase.h"
#include "Exhaustive/Boundary.h"
#include "Exhaustive/ConsoleModel.h"
#include "Exhaustive/ImageAccess.h"
#include "LogicalControls/ScopeMask.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace Exhaustive;

typedef CBMAContainer::stBlockRef tCursor;

// A record that says one thing by its value and the other by its scope word.
stPPCWithSI FlagRecord(const stAddress& at, int nValue)
{
    stPPCWithSI record = Record(at, {}, 0, nValue == 0);
    record.value.nValue = nValue;
    return record;
}

// The flag that a record names behind a record of first's path: its own, or, with a path type above the last, one of first's path.
std::int64_t FlagBehind(const stAddress& first, const stAddress& at)
{
    return at.nPathType < c_nGroups ? FlatIndex(at) : FlatIndex({first.nType, first.nPathType, first.nPath, at.nParam});
}

void WriteFlagBehind(tBlock (&flags)[c_nTypes], const stAddress& first, const stAddress& at, int nFlag)
{
    const std::int64_t nIndex = FlagBehind(first, at);
    if (nIndex >= 0)
    {
        flags[at.nPathType < c_nGroups ? at.nType : first.nType][static_cast<std::size_t>(nIndex)] =
            static_cast<unsigned char>(nFlag);
    }
}

const stAddress c_Good = {enIntegers, 1, 70, 3};
const stAddress c_Nowhere = {-1, -1, 0, 0};

void TryScopeRecords(stTried& tried, const stAddress& at)
{
    for (int nScope = 0; nScope < c_nScopes; ++nScope)
    {
        const int nFlag = static_cast<int>(tried.unNumber >> nScope) & 1;
        stPPCWithSI alone = FlagRecord(at, nFlag * INT_MIN);
        BlockWriteScope(tried.image, nScope, &alone, 1);
        WriteFlagBehind(tried.model.aFlags[nScope], c_Nowhere, at, nFlag);

        stPPCWithSI aBehind[] = {FlagRecord(c_Good, !nFlag), FlagRecord(at, nFlag)};
        BlockWriteScope(tried.image, nScope, aBehind, 2);
        WriteFlagBehind(tried.model.aFlags[nScope], c_Good, c_Good, !nFlag);
        WriteFlagBehind(tried.model.aFlags[nScope], c_Good, at, nFlag);
    }
}

// A mask, and what it should hold; compared once all is done.
void TryMask(stTried& tried, const stAddress& at)
{
    static CCBMAContainerScopeMask s_Mask;
    static tBlock s_aFlags[c_nTypes];
    const int nFlag = static_cast<int>(tried.unNumber) & 1;
    for (int nType = 0; nType < c_nTypes; ++nType)
    {
        s_aFlags[nType].resize(static_cast<std::size_t>(CountOf(nType)));
    }
    stPPCWithSI aRecords[] = {FlagRecord(at, !nFlag), FlagRecord(c_Good, nFlag), FlagRecord(at, nFlag)};
    tried.tally.Check(s_Mask.BlockWrite(aRecords, 3) == 1, "result", at);
    WriteFlagBehind(s_aFlags, c_Nowhere, at, !nFlag);
    WriteFlagBehind(s_aFlags, c_Good, c_Good, nFlag);
    WriteFlagBehind(s_aFlags, c_Good, at, nFlag);

    s_Mask.SetFlag(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, nFlag);
    WriteFlagBehind(s_aFlags, c_Nowhere, at, nFlag);
    int nRead = 77;
    s_Mask.GetFlag(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, nRead);
    tried.tally.Check(nRead == (FlatIndex(at) >= 0 ? nFlag : 77), "flag", at);

    const stAddress& last = Boundary().back();
    if (std::memcmp(&at, &last, sizeof at) == 0)
    {
        tried.tally.Check(Difference(s_Mask, s_aFlags).empty(), "mask", at);
    }
}

void TryBlockWrite(stTried& tried, const stAddress& at)
{
    for (int nScope = -2; nScope <= c_nScopes; ++nScope) // no scope, the scopeless form, the scopes, no scope
    {
        const bool bWritten = Exists(at) && nScope != -2 && nScope != c_nScopes;
        const tValue value = Numbered(at.nType, tried.unNumber + static_cast<unsigned int>(nScope));
        const float fSI = static_cast<float>(nScope);
        const int nFlag = static_cast<int>(tried.unNumber) & 1;
        stPPCWithSI record = Record(at, value, fSI, nFlag * 512);
        const int nWritten =
            nScope == -1 ? tried.image.BlockWriteScopelessPPC(&record, 1) : tried.image.BlockWritePPC(&record, 1, nScope);
        tried.tally.Check(nWritten == bWritten, "count", at);
        if (!bWritten)
        {
            continue;
        }
        tried.model.aValues[at.nType][At(at)] = value;
        if (HasSI(at.nType))
        {
            tried.model.aSI[at.nType][At(at)] = fSI;
        }
        if (nScope >= 0)
        {
            tried.model.aFlags[nScope][at.nType][At(at)] = static_cast<unsigned char>(nFlag);
        }
    }
}

bool StandsAt(const tCursor& cursor, const stAddress& at)
{
    tagenPPCMessageType enType;
    tagenVirtualPathType enPathType;
    int nPath = 0;
    int nParam = 0;
    CBMAContainer::GetBlockPosition(cursor, enType, enPathType, nPath, nParam);
    return enType == at.nType && enPathType == at.nPathType && nPath == at.nPath && nParam == at.nParam;
}

void TryPosition(stTried& tried, const stAddress& at)
{
    for (int nTag = 0; nTag <= 4; ++nTag)
    {
        tCursor cursor;
        tried.tally.Check(SetBlockPosition(tried.image, nTag, c_Good, cursor), "good position", c_Good);
        tried.tally.Check(SetBlockPosition(tried.image, nTag, at, cursor) == Exists(at), "position", at);
        tried.tally.Check(StandsAt(cursor, at.nPathType < c_nGroups ? at : c_Good), "cursor", at);
        const bool bMemory = at.nPathType >= c_nGroups || (at.nPathType >= 0 && IsType(at.nType));
        tried.tally.Check((cursor.pMemory != nullptr) == bMemory, "memory", at);
    }
}

void TryReadFrom(stTried& tried, const stAddress& at)
{
    const auto placed = [&](const tCursor& cursor) { return StandsAt(cursor, Exists(at) ? at : c_Good); };
    const auto place = [&](const stAddress& to)
    { return tried.image.SetReadBlocks(TypeOf(to), PathTypeOf(to), to.nPath, to.nParam); };
    tried.tally.Check(place(c_Good) && place(at) == Exists(at), "read cursors", at);
    const tCursor* pCursors = tried.image.GetReadBlocks();
    tried.tally.Check(placed(pCursors[0]) && placed(pCursors[1]) && placed(pCursors[2]), "cursors", at);
    const bool bPlaced = tried.image.SetReadBlock(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam);
    tried.tally.Check(bPlaced == Exists(at) && placed(tried.image.GetReadBlock()), "read cursor", at);

    const stAddress& from = Exists(at) ? at : c_Good;
    stPPCWithSI record;
    tried.tally.Check(tried.image.BlockReadPPC(&record, 1, 4) == 0 && tried.image.BlockReadPPC(&record, 1, -1) == 0, "scope", at);
    tried.tally.Check(tried.image.BlockReadPPC(&record, 1, enGlobal) == 1, "count", at);
    const float fSI = HasSI(from.nType) ? tried.model.aSI[from.nType][At(from)] : 0;
    const int nFlag = tried.model.aFlags[enGlobal][from.nType][At(from)];
    const stPPCWithSI expected = Record(from, tried.model.aValues[from.nType][At(from)], fSI, nFlag);
    tried.tally.Check(std::memcmp(&record, &expected, sizeof record) == 0, "record", at);
}

// The list of each dump is the one record, whose own path is not looked at; a message type or path type of -1 ends it.
void TryDump(stTried& tried, const stAddress& at)
{
    static const char* const s_aszNames[c_nScopes] = {"Store", "Recall", "Global", "Safe"};
    static constexpr decltype(&CBMAContainer::DumpStoreScopeParams) s_apDump[c_nScopes] = {
        &CBMAContainer::DumpStoreScopeParams, &CBMAContainer::DumpRecallScopeParams, &CBMAContainer::DumpGlobalScopeParams,
        &CBMAContainer::DumpSafeScopeParams};
    const int nScope = static_cast<int>(tried.unNumber % c_nScopes);
    tPPCPacket aList[2] = {Record(at, {}), Record(c_Nowhere, {})};
    aList[0].nPath = 99;
    (tried.image.*s_apDump[nScope])(aList, at.nPath);
    char acLine[200] = "";
    if (at.nType != -1 && at.nPathType != -1)
    {
        const int nFlag = FlatIndex(at) >= 0 ? tried.model.aFlags[nScope][at.nType][At(at)] : 0;
        std::snprintf(acLine, sizeof acLine, " -> msg type (%d), path type (%2d), path (%3d), parameter (%3d), value (%3d)\n",
                      at.nType, at.nPathType, at.nPath, at.nParam, nFlag);
    }
    tried.strDumped += std::string("[CBMAContainer::Dump") + s_aszNames[nScope] + "ScopeParams] START\n" + acLine +
                       "[CBMAContainer::DumpStoreScopeParams] END\n\n";
}

template <typename Value>
bool Queues(CMsgHandlerBase& handler, const stAddress& at, const Value& value)
{
    const bool bQueued = handler.QueuePPC(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, value);
    const bool bWaits = handler.GetPPCBufferSize() == 1;
    handler.ClearPPCBuffer();
    return bQueued && bWaits;
}

void TryQueue(stTried& tried, const stAddress& at)
{
    static const std::unique_ptr<CMsgHandlerBase> s_pHandler = std::make_unique<CMsgHandlerBase>();
    const bool bFloat = HasSI(at.nType);
    const bool bString = at.nType == enStrings;
    tried.tally.Check(Queues(*s_pHandler, at, 1.0f) == (Exists(at) && bFloat), "queued float", at);
    tried.tally.Check(Queues(*s_pHandler, at, RyGConsoleString("x")) == (Exists(at) && bString), "queued string", at);
    tried.tally.Check(Queues(*s_pHandler, at, 1) == (Exists(at) && !bFloat && !bString), "queued int", at);
    tried.tally.Check(s_pHandler->GetPPCBufferSize() == 0, "nothing left", at);
}

const stOperation c_aOperations[] = {{"BlockWriteScope", &TryScopeRecords},
                                     {"Mask", &TryMask},
                                     {"BlockWritePPC", &TryBlockWrite},
                                     {"SetBlockPosition", &TryPosition},
                                     {"BlockReadPPC", &TryReadFrom},
                                     {"Dumps", &TryDump},
                                     {"QueuePPC", &TryQueue}};

class BlockAddressAtALimit : public testing::TestWithParam<stOperation>
{
};

INSTANTIATE_TEST_SUITE_P(Of, BlockAddressAtALimit, testing::ValuesIn(c_aOperations), NameOf);

} // namespace

TEST_P(BlockAddressAtALimit, TouchesNothingElseAndIsReportedAsStated)
{
    TryBoundary(GetParam());
}
