#include "LogicalControls/ConsoleBitmapArray.h"

#include "LogicalControls/ScopeMask.h"
#include "Support/Blocks.h"
#include "Support/Records.h"
#include "Support/SystemCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{

using Support::c_nBehind;
using Support::FlagRecord;
using Support::tBytes;
typedef std::vector<stPPCWithSI> tRecords;
typedef std::vector<tBytes> tBlocks; // by message type, each with what lies behind it

// What an image holds, the flags first.
enum enKinds : int
{
    enStore,
    enRecall,
    enGlobal,
    enSafe,
    enValues,
    enSI,
    enKindCount
};
typedef std::vector<tBlocks> tState; // by kind

constexpr const char* c_aszKinds[] = {"Store", "Recall", "Global", "Safe", "Values", "SI"};
constexpr std::size_t c_aunCounts[] = {3151, 65300, 138696, 14856, 2765, 673, 15898};
constexpr std::size_t c_aunWidths[] = {13, 4, 0, 4, 4, 4, 1}; // of values; a switch is a bit
constexpr std::size_t c_aunMoving[] = {1, 2, 3, 4, 0, 5};
constexpr std::size_t c_aunWithSI[] = {enRotary, enFader};

tagenPPCMessageType Type(std::size_t unType)
{
    return static_cast<tagenPPCMessageType>(unType);
}

tagenVirtualPathType Path(int nPathType)
{
    return static_cast<tagenVirtualPathType>(nPathType);
}

template <class Call>
void ForEachParameter(std::size_t unType, Call call)
{
    for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
    {
        const int nParams = canMaxParams[nPathType * 7 + static_cast<int>(unType)];
        for (int nNumber = 0; nNumber < canMaxPaths[nPathType] * nParams; ++nNumber)
        {
            call(Path(nPathType), nNumber / nParams, nNumber % nParams);
        }
    }
}

// The tags are not in the order of the scopes.
CBMAContainer::stBlockRef Cursor(CBMAContainer& image, int nKind, std::size_t unType, int nPathType = 0, int nPath = 0)
{
    CBMAContainer::stBlockRef cursor;
    const auto place = [&](auto tag) { EXPECT_TRUE(image.SetBlockPosition(Type(unType), Path(nPathType), nPath, 0, cursor, tag)); };
    nKind == enStore    ? place(Int2Type<2>())
    : nKind == enRecall ? place(Int2Type<1>())
    : nKind == enGlobal ? place(Int2Type<3>())
    : nKind == enSafe   ? place(Int2Type<4>())
                        : place(Int2Type<0>());
    return cursor;
}

unsigned char* Memory(CBMAContainer& image, int nKind, std::size_t unType)
{
    return static_cast<unsigned char*>(Cursor(image, nKind, unType).pMemory);
}

unsigned char* Memory(CCBMAContainerScopeMask& mask, std::size_t unType)
{
    void* pMemory = nullptr;
    long lBytes = 0;
    mask.GetMessageMemory(Type(unType), pMemory, lBytes);
    return static_cast<unsigned char*>(pMemory);
}

std::size_t Size(int nKind, std::size_t unType)
{
    const bool bBits = nKind != enValues || unType == enSwitch;
    return (bBits ? c_aunCounts[unType] / 8 + 1 : c_aunCounts[unType] * c_aunWidths[unType]) + c_nBehind;
}

tBlocks Flags(CCBMAContainerScopeMask& mask)
{
    tBlocks flags;
    for (std::size_t unType = 0; unType < 7; ++unType)
    {
        flags.emplace_back(Memory(mask, unType), Memory(mask, unType) + Size(enStore, unType));
    }
    return flags;
}

tState State(CBMAContainer& image)
{
    tState state(enKindCount, tBlocks(7));
    for (std::size_t unType = 0; unType < 7; ++unType)
    {
        for (int nKind = 0; nKind < enSI; ++nKind)
        {
            const unsigned char* pBlock = Memory(image, nKind, unType);
            state[static_cast<std::size_t>(nKind)][unType].assign(pBlock, pBlock + Size(nKind, unType));
        }
    }
    for (const std::size_t unType : c_aunWithSI)
    {
        ForEachParameter(unType,
                         [&](tagenVirtualPathType enPathType, int nPath, int nParam)
                         {
                             float fValue = -1;
                             unsigned char acValue[sizeof fValue];
                             image.GetPPCSI(Type(unType), enPathType, nPath, nParam, fValue);
                             std::memcpy(acValue, &fValue, sizeof fValue);
                             state[enSI][unType].insert(state[enSI][unType].end(), acValue, acValue + sizeof fValue);
                         });
    }
    return state;
}

void ExpectSame(const tState& expected, const tState& actual)
{
    for (std::size_t unKind = 0; unKind < enKindCount; ++unKind)
    {
        for (std::size_t unType = 0; unType < 7; ++unType)
        {
            EXPECT_TRUE(expected[unKind][unType] == actual[unKind][unType]) << c_aszKinds[unKind] << " of type " << unType;
        }
    }
}

// Values, flags and what lies behind them. Floats are made of bytes that make numbers.
void Scramble(std::mt19937& random, CBMAContainer& image)
{
    for (std::size_t unType = 0; unType < 7; ++unType)
    {
        for (int nKind = 0; nKind < enSI; ++nKind)
        {
            const bool bFloats = nKind == enValues && (unType == enRotary || unType == enFader);
            std::generate_n(Memory(image, nKind, unType), Size(nKind, unType),
                            [&] { return static_cast<unsigned char>(random() & (bFloats ? 0x3f : 0xff)); });
        }
    }
    for (const std::size_t unType : c_aunWithSI)
    {
        ForEachParameter(unType, [&](tagenVirtualPathType enPathType, int nPath, int nParam)
                         { image.SetPPCSI(Type(unType), enPathType, nPath, nParam, static_cast<float>(random()), false); });
    }
}

// Its flags, that is; the bits behind them are clear.
void Scramble(std::mt19937& random, CCBMAContainerScopeMask& mask)
{
    for (std::size_t unType = 0; unType < 7; ++unType)
    {
        ForEachParameter(unType, [&](tagenVirtualPathType enPathType, int nPath, int nParam)
                         { mask.SetFlag(Type(unType), enPathType, nPath, nParam, static_cast<int>(random() & 1)); });
    }
}

// Moves every element whose bits are set in both masks; one of width 0 is a bit.
void Move(const tBytes& from, tBytes& to, const tBytes& a, const tBytes& b, std::size_t unCount, std::size_t unWidth)
{
    for (std::size_t unIndex = 0; unIndex < unCount; ++unIndex)
    {
        const std::size_t unByte = unIndex / 8;
        const int nMask = a[unByte] & b[unByte] & 1 << unIndex % 8;
        if (nMask != 0 && unWidth == 0)
        {
            to[unByte] = static_cast<unsigned char>((to[unByte] & ~nMask) | (from[unByte] & nMask));
        }
        const std::ptrdiff_t nAt = static_cast<std::ptrdiff_t>(unIndex * unWidth);
        std::copy_n(from.begin() + nAt, nMask != 0 ? unWidth : 0, to.begin() + nAt);
    }
}

std::vector<int> ReadPlaces(const CBMAContainer& image)
{
    std::vector<int> places;
    for (int nCursor = 0; nCursor < 3; ++nCursor)
    {
        const CBMAContainer::stBlockRef& cursor = image.GetReadBlocks()[nCursor];
        places.insert(places.end(), {cursor.nMessageType, cursor.nPathType, cursor.nPath, cursor.nParameter});
    }
    return places;
}

// The safe-override switch.
void SetOverride(CBMAContainer& image, int nValue)
{
    image.SetPPC(enSwitch, enGlobals, 0, 230, nValue, false, false);
}

// Two images full of different things, both sending what is written one by one. No operation between them sends, moves a cursor
// or changes the image that it reads.
class ScopedExchange : public testing::Test
{
protected:
    ScopedExchange()
    {
        for (CBMAContainer* const pImage : {&m_Source, &m_Target})
        {
            pImage->SetUseSimplePPCSender(true);
            pImage->InitSimplePPCSenderComms();
            EXPECT_TRUE(pImage->SetReadBlocks(enFader, enMicInput, 5, 1));
        }
        Fill(0);
    }

    ~ScopedExchange() override
    {
        EXPECT_TRUE(m_Recorder.sent.empty());
        EXPECT_THAT(ReadPlaces(m_Source), testing::ElementsAre(4, 1, 5, 1, 4, 1, 5, 1, 4, 1, 5, 1));
        EXPECT_EQ(ReadPlaces(m_Source), ReadPlaces(m_Target));
    }

    void Fill(int nOverride)
    {
        Scramble(m_Random, m_Source);
        Scramble(m_Random, m_Target);
        Scramble(m_Random, m_Mask);
        SetOverride(m_Source, nOverride);
        SetOverride(m_Target, 1 - nOverride); // not asked
        m_Recorder.sent.clear();
        m_Before = State(m_Source);
        m_Expected = State(m_Target);
        m_MaskBefore = Flags(m_Mask);
    }

    // Whole arrays of flags: every byte that holds one.
    void CopyFlags(std::size_t unScope)
    {
        for (const std::size_t unType : c_aunMoving)
        {
            std::copy_n(m_Before[unScope][unType].begin(), (c_aunCounts[unType] + 7) / 8, m_Expected[unScope][unType].begin());
        }
    }

    void MoveFlags(std::size_t unScope)
    {
        for (const std::size_t unType : c_aunMoving)
        {
            Move(m_Before[unScope][unType], m_Expected[unScope][unType], m_MaskBefore[unType], m_MaskBefore[unType],
                 c_aunCounts[unType], 0);
        }
    }

    void MoveValues(const tBlocks& a, const tBlocks& b)
    {
        for (const std::size_t unType : c_aunMoving)
        {
            Move(m_Before[enValues][unType], m_Expected[enValues][unType], a[unType], b[unType], c_aunCounts[unType],
                 c_aunWidths[unType]);
            Move(m_Before[enSI][unType], m_Expected[enSI][unType], a[unType], b[unType], m_Before[enSI][unType].size() / 4, 4);
        }
    }

    // With each choice of flags to copy, and the switch off and on.
    template <class Call>
    void ForEachCopy(Call call)
    {
        for (int nCase = 0; nCase < 8; ++nCase)
        {
            SCOPED_TRACE(nCase);
            const bool bStore = (nCase & 1) != 0;
            const bool bRecall = (nCase & 2) != 0;
            Fill(nCase / 4);
            if (bStore)
            {
                CopyFlags(enStore);
            }
            if (bRecall)
            {
                CopyFlags(enRecall);
            }
            call(bStore, bRecall, nCase / 4);
            ExpectDone();
        }
    }

    void ExpectDone()
    {
        ExpectSame(m_Expected, State(m_Target));
        ExpectSame(m_Before, State(m_Source));
        EXPECT_TRUE(m_MaskBefore == Flags(m_Mask));
    }

    std::mt19937 m_Random{41};
    Support::CSocketRecorder m_Recorder;
    const std::unique_ptr<CBMAContainer> m_pSource = std::make_unique<CBMAContainer>();
    const std::unique_ptr<CBMAContainer> m_pTarget = std::make_unique<CBMAContainer>();
    CBMAContainer& m_Source = *m_pSource;
    CBMAContainer& m_Target = *m_pTarget;
    CCBMAContainerScopeMask m_Mask;
    tBlocks m_MaskBefore;
    tState m_Before;   // of the source
    tState m_Expected; // of the target
};

typedef void (CBMAContainer::*tBlockWrite)(stPPCWithSI*, int);
typedef void (CBMAContainer::*tDump)(const tPPCPacket*, int) const;
typedef void (CBMAContainer::*tSetScope)(tagenPPCMessageType, tagenVirtualPathType, int, int, int);
constexpr tBlockWrite c_apBlockWrite[] = {&CBMAContainer::BlockWriteStoreScope, &CBMAContainer::BlockWriteRecallScope,
                                          &CBMAContainer::BlockWriteGlobalScope, &CBMAContainer::BlockWriteSafeScope};
constexpr tDump c_apDump[] = {&CBMAContainer::DumpStoreScopeParams, &CBMAContainer::DumpRecallScopeParams,
                              &CBMAContainer::DumpGlobalScopeParams, &CBMAContainer::DumpSafeScopeParams};
constexpr tSetScope c_apSetScope[] = {&CBMAContainer::SetPPCStoreScope, &CBMAContainer::SetPPCRecallScope,
                                      &CBMAContainer::SetPPCGlobalScope, &CBMAContainer::SetPPCSafeScope};

// One scope's flags of an image. Each test runs for all four.
class ScopeFlags : public testing::TestWithParam<int>
{
protected:
    void Write(stPPCWithSI* pRecords, int nCount)
    {
        const tBlockWrite pBlockWrite = c_apBlockWrite[GetParam()];
        (m_Image.*pBlockWrite)(pRecords, nCount);
    }

    // The flags must be those of a mask that was written alike, and nothing else may change.
    void ExpectWrites(tRecords records)
    {
        m_Mask.BlockWrite(records.data(), static_cast<int>(records.size()));
        Write(records.data(), static_cast<int>(records.size()));
        m_Expected[static_cast<std::size_t>(GetParam())] = Flags(m_Mask);
        ExpectSame(m_Expected, State(m_Image));
    }

    int FlagByte(std::size_t unType, int nByte) { return Memory(m_Image, GetParam(), unType)[nByte]; }

    void SetFlag(int nScope, int nType, int nPathType, int nPath, int nParam, int nValue = 1)
    {
        const tSetScope pSet = c_apSetScope[nScope];
        (m_Image.*pSet)(static_cast<tagenPPCMessageType>(nType), Path(nPathType), nPath, nParam, nValue);
    }

    std::string Dump(const tPPCPacket* pList, int nPath)
    {
        const tDump pDump = c_apDump[GetParam()];
        testing::internal::CaptureStdout();
        (m_Image.*pDump)(pList, nPath);
        return testing::internal::GetCapturedStdout();
    }

    // All four end in the store's name: that is how they look.
    static std::string Listing(const std::string& strLines)
    {
        return std::string("[CBMAContainer::Dump") + c_aszKinds[GetParam()] + "ScopeParams] START\n" + strLines +
               "[CBMAContainer::DumpStoreScopeParams] END\n\n";
    }

    const std::unique_ptr<CBMAContainer> m_pImage = std::make_unique<CBMAContainer>();
    CBMAContainer& m_Image = *m_pImage;
    CCBMAContainerScopeMask m_Mask;
    tState m_Expected = State(m_Image);
};

INSTANTIATE_TEST_SUITE_P(Of, ScopeFlags, testing::Values(enStore, enRecall, enGlobal, enSafe),
                         [](const auto& scope) { return std::string(c_aszKinds[scope.param]); });

} // namespace

// ---- Block writes of one scope ------------------------------------------------------------------------------------------------

TEST_P(ScopeFlags, HaveATagOfTheirOwn)
{
    for (int nType = 0; nType < 7; ++nType)
    {
        SetFlag(GetParam(), nType, 1, 1, 0);
        for (int nKind = 0; nKind <= enValues; ++nKind)
        {
            const CBMAContainer::stBlockRef cursor = Cursor(m_Image, nKind, static_cast<std::size_t>(nType), 1, 1);
            const int nByte = static_cast<const unsigned char*>(cursor.pMemory)[cursor.nBaseIndex / 8];
            EXPECT_EQ(nKind == GetParam(), nByte >> cursor.nBaseIndex % 8 & 1) << nType << " " << nKind;
            EXPECT_EQ(canMaxParams[7 + nType], cursor.lCount);
        }
    }
}

TEST_P(ScopeFlags, AreWrittenByTheIntegerValueOfEachRecord)
{
    ExpectWrites({FlagRecord(2, 1, 0, 0), FlagRecord(2, 1, 0, 7, 5), FlagRecord(2, 1, 0, 3, INT_MIN), FlagRecord(2, 1, 0, 9, 256),
                  FlagRecord(2, 1, 1, 0), FlagRecord(0, 1, 0, 1), FlagRecord(1, 1, 143, 279), FlagRecord(3, 50, 1, 68),
                  FlagRecord(4, 50, 1, 0), FlagRecord(5, 50, 1, 0), FlagRecord(6, 50, 1, 63)});
    EXPECT_EQ(0x89, FlagByte(enSwitch, 31));
    EXPECT_EQ(0x02, FlagByte(enMeter, 1987));
    ExpectWrites({FlagRecord(2, 1, 0, 7, 0), FlagRecord(2, 1, 0, 9, 0), FlagRecord(6, 50, 1, 63, 0), FlagRecord(2, 1, 0, 9, 0)});
    EXPECT_EQ(0x09, FlagByte(enSwitch, 31));
    EXPECT_EQ(0x00, FlagByte(enMeter, 1987));
}

TEST_P(ScopeFlags, AreAllWrittenThroughRecords)
{
    for (const int nValue : {1, 0})
    {
        tRecords records;
        for (int nType = 0; nType < 7; ++nType)
        {
            ForEachParameter(static_cast<std::size_t>(nType), [&](tagenVirtualPathType enPathType, int nPath, int nParam)
                             { records.push_back(FlagRecord(nType, enPathType, nPath, nParam, nValue)); });
        }
        ExpectWrites(records);
        EXPECT_EQ(nValue * 0xff, FlagByte(enRotary, 8161));
    }
}

TEST_P(ScopeFlags, PathTypesFrom51OnUseTheLastPosition)
{
    ExpectWrites({FlagRecord(2, 1, 0, 0), FlagRecord(2, 51, 0, 1), FlagRecord(2, 51, 0, 2), FlagRecord(3, INT_MAX, 9, 3)});
    EXPECT_EQ(0x0f, FlagByte(enSwitch, 31));
}

TEST_P(ScopeFlags, AreUntouchedWithoutAPosition)
{
    for (const int nPathType : {51, INT_MAX, -1, INT_MIN})
    {
        ExpectWrites(
            {FlagRecord(2, nPathType, 0, 0), FlagRecord(2, nPathType, 0, 1), FlagRecord(7, 1, 0, 0), FlagRecord(-1, 1, 0, 0)});
    }
    EXPECT_EQ(0x00, FlagByte(enSwitch, 0));
}

TEST_P(ScopeFlags, AreUntouchedWithoutRecords)
{
    stPPCWithSI record = FlagRecord(2, 1, 0, 0);
    for (const int nCount : {INT_MIN, -1, 0})
    {
        Write(&record, nCount);
        Write(nullptr, nCount);
    }
    Write(nullptr, 1);
    Write(nullptr, INT_MAX);
    ExpectSame(m_Expected, State(m_Image));
}

TEST_P(ScopeFlags, KeepToTheirBlockWhateverTheRecords)
{
    static const int aanCoordinates[][10] = {{INT_MIN, -1, 0, 1, 2, 3, 4, 5, 6, 7},
                                             {INT_MIN, -1, 0, 1, 7, 25, 50, 51, 52, INT_MAX},
                                             {INT_MIN, -(1 << 26), -1, 0, 1, 2, 143, 144, 1 << 26, INT_MAX},
                                             {INT_MIN, -(1 << 16), -9, 0, 1, 7, 63, 575, 1 << 16, INT_MAX}};
    std::mt19937 random(42);
    const auto any = [&](int nCoordinate) { return aanCoordinates[nCoordinate][random() % 10]; };
    tRecords records = {FlagRecord(2, 1, 0, 0)};
    while (records.size() < 20000)
    {
        const int nValue = static_cast<int>(random() % 2);
        records.insert(records.end(), 1 + random() % 2, FlagRecord(any(0), any(1), any(2), any(3), nValue));
        records.back().nParameter = any(3);
    }
    ExpectWrites(records);
}

// ---- Listings -----------------------------------------------------------------------------------------------------------------

TEST_P(ScopeFlags, AreListedOfTheArgumentsPath)
{
    for (int nScope = 0; nScope < 4; ++nScope)
    {
        SetFlag(nScope, 2, 1, 7, 575, nScope == GetParam());
        SetFlag(nScope, 6, 10, 7, 0, nScope != GetParam());
        SetFlag(nScope, 1, 1, 9, 3);
    }
    const tPPCPacket aList[] = {FlagRecord(2, 1, 0, 575), FlagRecord(6, 10, 8, 0), FlagRecord(1, 1, 9, 3), FlagRecord(-1, 0, 0, 0)};
    EXPECT_EQ(Listing(" -> msg type (2), path type ( 1), path (  7), parameter (575), value (  1)\n"
                      " -> msg type (6), path type (10), path (  7), parameter (  0), value (  0)\n"
                      " -> msg type (1), path type ( 1), path (  7), parameter (  3), value (  0)\n"),
              Dump(aList, 7));
}

TEST_P(ScopeFlags, AreListedUpToAMessageTypeOrPathTypeOfMinusOne)
{
    for (const tPPCPacket& end : {FlagRecord(-1, 1, 0, 0), FlagRecord(2, -1, 0, 0)})
    {
        const tPPCPacket aList[] = {FlagRecord(0, 1, -1, 0), FlagRecord(3, 0, 0, -1), FlagRecord(3, 49, 0, 94), end,
                                    FlagRecord(2, 1, 0, 0),  FlagRecord(-1, -1, 0, 0)};
        EXPECT_EQ(Listing(" -> msg type (0), path type ( 1), path (  0), parameter (  0), value (  0)\n"
                          " -> msg type (3), path type ( 0), path (  0), parameter ( -1), value (  0)\n"
                          " -> msg type (3), path type (49), path (  0), parameter ( 94), value (  0)\n"),
                  Dump(aList, 0));
        EXPECT_EQ(Listing(""), Dump(aList + 3, 0));
    }
    EXPECT_EQ(Listing(""), Dump(nullptr, 0));
}

TEST_P(ScopeFlags, AreListedAsZeroWhereThereAreNone)
{
    SetFlag(GetParam(), 2, 1, 0, 0);
    const tPPCPacket aList[] = {FlagRecord(2, 1, 0, 0), FlagRecord(7, 1, 0, 0),        FlagRecord(2, 51, 0, 0),
                                FlagRecord(2, 1, 0, 0), FlagRecord(-2, -2, 0, 138696), FlagRecord(2, 1, 0, -9),
                                FlagRecord(2, 1, 0, 0), FlagRecord(-1, -1, 0, 0)};
    SetFlag(GetParam(), 2, 0, 0, 239); // 9 before it
    EXPECT_EQ(Listing(" -> msg type (2), path type ( 1), path (  0), parameter (  0), value (  1)\n"
                      " -> msg type (7), path type ( 1), path (  0), parameter (  0), value (  0)\n"
                      " -> msg type (2), path type (51), path (  0), parameter (  0), value (  0)\n"
                      " -> msg type (2), path type ( 1), path (  0), parameter (  0), value (  1)\n"
                      " -> msg type (-2), path type (-2), path (  0), parameter (138696), value (  0)\n"
                      " -> msg type (2), path type ( 1), path (  0), parameter ( -9), value (  1)\n"
                      " -> msg type (2), path type ( 1), path (  0), parameter (  0), value (  1)\n"),
              Dump(aList, 0));
    EXPECT_EQ(Listing(" -> msg type (2), path type ( 1), path (2147483647), parameter (  0), value (  0)\n"),
              Dump(aList + 6, INT_MAX));
    EXPECT_EQ(Listing(" -> msg type (2), path type ( 1), path (-2147483648), parameter (  0), value (  0)\n"),
              Dump(aList + 6, INT_MIN));
}

TEST_P(ScopeFlags, AreListedInDecimalAfterADumpOfAMask)
{
    testing::internal::CaptureStdout();
    m_Mask.DumpMasks();
    testing::internal::GetCapturedStdout();
    const tPPCPacket aList[] = {FlagRecord(3, 49, 0, 94), FlagRecord(-1, 0, 0, 0)};
    EXPECT_EQ(Listing(" -> msg type (3), path type (49), path ( 17), parameter ( 94), value (  0)\n"), Dump(aList, 17));
    std::cout << std::dec;
}

// ---- Values between images ----------------------------------------------------------------------------------------------------

TEST_F(ScopedExchange, ImportsGlobalsWhereGlobalAndSafeAreSetHere)
{
    MoveValues(m_Expected[enGlobal], m_Expected[enSafe]);
    m_Target.ImportGlobalParameters(m_Source);
    ExpectDone();
}

TEST_F(ScopedExchange, ExportsGlobalsWhereGlobalAndSafeAreSetHere)
{
    MoveValues(m_Before[enGlobal], m_Before[enSafe]);
    m_Source.ExportGlobalParameters(m_Target);
    ExpectDone();
}

TEST_F(ScopedExchange, ImportsScopedWhereRecallAndSafeAreSetHereOnceFlagsAreCopied)
{
    ForEachCopy(
        [this](bool bStore, bool bRecall, int)
        {
            MoveValues(m_Expected[enRecall], m_Expected[enSafe]);
            m_Target.ImportScopedParameters(m_Source, bStore, bRecall);
        });
}

TEST_F(ScopedExchange, ExportsScopedWhereTheMaskAndSafeAreSetWhateverTheSwitch)
{
    ForEachCopy(
        [this](bool bStore, bool bRecall, int)
        {
            MoveValues(m_MaskBefore, m_Before[enSafe]);
            m_Source.ExportScopedParameters(m_Target, bStore, bRecall, &m_Mask);
        });
}

TEST_F(ScopedExchange, ExportsScopedWhereStoreAndUnlessOverriddenSafeAreSet)
{
    ForEachCopy(
        [this](bool bStore, bool bRecall, int nOverride)
        {
            MoveValues(m_Before[enStore], m_Before[nOverride == 0 ? enSafe : enStore]);
            m_Source.ExportScopedParameters(m_Target, bStore, bRecall, nullptr);
        });
}

TEST_F(ScopedExchange, ExportsNothingWithoutStoreFlags)
{
    for (const int nOverride : {0, 1})
    {
        Fill(nOverride);
        for (std::size_t unType = 0; unType < 7; ++unType)
        {
            std::fill_n(Memory(m_Source, enStore, unType), Size(enStore, unType), static_cast<unsigned char>(0));
        }
        m_Before = State(m_Source);
        m_Source.ExportScopedParameters(m_Target, false, false, nullptr);
        ExpectDone();
    }
}

TEST_F(ScopedExchange, WithItselfChangesNothing)
{
    for (const int nOverride : {0, 1})
    {
        Fill(nOverride);
        m_Source.ImportGlobalParameters(m_Source);
        m_Source.ExportGlobalParameters(m_Source);
        m_Source.ImportScopedParameters(m_Source, true, true);
        m_Source.ExportScopedParameters(m_Source, true, true, nullptr);
        m_Source.ExportScopedParameters(m_Source, true, true, &m_Mask);
        m_Source.ExportStoreScope(m_Source, nullptr);
        m_Source.ExportRecallScope(m_Source, &m_Mask);
        ExpectDone();
    }
}

namespace
{

int MicGain(const CBMAContainer& image, int nPath)
{
    int nValue = -1;
    image.GetPPC(enInteger, enMicInput, nPath, 3, nValue);
    return nValue;
}

// An image with a value on two paths; its global, safe and store flags are set on the first, all but safe on the second.
std::unique_ptr<CBMAContainer> Show()
{
    auto pShow = std::make_unique<CBMAContainer>();
    for (const int nPath : {0, 1})
    {
        pShow->SetPPC(enInteger, enMicInput, nPath, 3, 70 + nPath, false, false);
        pShow->SetPPCGlobalScope(enInteger, enMicInput, nPath, 3, 1);
        pShow->SetPPCStoreScope(enInteger, enMicInput, nPath, 3, 1);
    }
    pShow->SetPPCSafeScope(enInteger, enMicInput, 0, 3, 1);
    return pShow;
}

} // namespace

TEST(ScopedExchangeOfOneValue, ClearSafeFlagProtectsItUnlessOverridden)
{
    const auto pShow = Show();
    const auto pLive = std::make_unique<CBMAContainer>();
    pShow->ExportScopedParameters(*pLive, false, false, nullptr);
    EXPECT_EQ(70, MicGain(*pLive, 0));
    EXPECT_EQ(0, MicGain(*pLive, 1));
    SetOverride(*pShow, 1);
    pShow->ExportScopedParameters(*pLive, false, false, nullptr);
    EXPECT_EQ(71, MicGain(*pLive, 1));
}

TEST(ScopedExchangeOfOneValue, GlobalExchangeLeavesItOutOnceItWasWritten)
{
    const auto pShow = Show();
    const auto pLive = std::make_unique<CBMAContainer>();
    pShow->SetPPC(enInteger, enMicInput, 0, 3, 99, false, false);
    pShow->ExportGlobalParameters(*pLive);
    EXPECT_EQ(0, MicGain(*pLive, 0));
    pShow->SetPPCGlobalScope(enInteger, enMicInput, 0, 3, 1);
    pShow->ExportGlobalParameters(*pLive);
    EXPECT_EQ(99, MicGain(*pLive, 0));
}

// ---- Flags between images -----------------------------------------------------------------------------------------------------

TEST_F(ScopedExchange, ExportsAllStoreOrRecallFlagsWithoutAMask)
{
    CopyFlags(enStore);
    m_Source.ExportStoreScope(m_Target, nullptr);
    ExpectDone();
    CopyFlags(enRecall);
    m_Source.ExportRecallScope(m_Target, nullptr);
    ExpectDone();
}

TEST_F(ScopedExchange, ExportsTheStoreOrRecallFlagsThatTheMaskNames)
{
    MoveFlags(enStore);
    m_Source.ExportStoreScope(m_Target, &m_Mask);
    ExpectDone();
    MoveFlags(enRecall);
    m_Source.ExportRecallScope(m_Target, &m_Mask);
    ExpectDone();
}

TEST_F(ScopedExchange, ExportsNoFlagsWithAnEmptyMaskAndAllWithAFullOne)
{
    for (const int nFull : {0, 1})
    {
        m_Mask.BlockAssign(nFull);
        m_MaskBefore = Flags(m_Mask);
        MoveFlags(enStore);
        MoveFlags(enRecall);
        m_Source.ExportStoreScope(m_Target, &m_Mask);
        m_Source.ExportRecallScope(m_Target, &m_Mask);
        ExpectDone();
    }
}

TEST_F(ScopedExchange, BitsBehindTheLastFlagStayWhateverTheMaskHasThere)
{
    for (std::size_t unType = 0; unType < 7; ++unType)
    {
        std::fill_n(Memory(m_Mask, unType), Size(enStore, unType), static_cast<unsigned char>(0xff));
    }
    m_MaskBefore = Flags(m_Mask);
    MoveFlags(enStore);
    m_Source.ExportStoreScope(m_Target, &m_Mask);
    ExpectDone();
}
