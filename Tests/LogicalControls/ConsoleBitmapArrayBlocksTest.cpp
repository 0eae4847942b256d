#include "LogicalControls/ConsoleBitmapArray.h"

#include "LogicalControls/BlockPosition.h"
#include "Support/Bytes.h"
#include "Support/TakeMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace
{

using Support::TakeMemory;
using Support::tBytes;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

typedef std::vector<stPPCWithSI> tRecords;
typedef CBMAContainer::stBlockRef tCursor;

constexpr int c_nNoScope = -1; // the scopeless forms
constexpr int c_anForms[] = {c_nNoScope, 0, 1, 2, 3};
constexpr int c_anWidths[] = {13, 4, 0, 4, 4, 4, 1}; // of the elements; 0: a bit

// ---- Records ------------------------------------------------------------------------------------------------------------------

// Full of rubbish but for its address.
stPPCWithSI Record(int nType, int nPathType, int nPath, int nParam)
{
    stPPCWithSI record;
    std::memset(static_cast<void*>(&record), 0xa5, sizeof record);
    record.enMessageType = static_cast<tagenPPCMessageType>(nType);
    record.enPathType = static_cast<tagenVirtualPathType>(nPathType);
    record.nPath = nPath;
    record.nParameter = nParam;
    return record;
}

// Every parameter in flat order.
tRecords Everything()
{
    tRecords records;
    for (int nRow = 0; nRow < c_nMessageTypes * c_nPathTypes; ++nRow)
    {
        const int nType = nRow / c_nPathTypes;
        const int nPathType = nRow % c_nPathTypes;
        const int nParams = canMaxParams[nPathType * c_nMessageTypes + nType];
        for (int nAt = 0; nAt < canMaxPaths[nPathType] * nParams; ++nAt)
        {
            records.push_back(Record(nType, nPathType, nAt / nParams, nAt % nParams));
        }
    }
    return records;
}

template <typename T>
stPPCWithSI WithValue(stPPCWithSI record, const T& value)
{
    std::memcpy(record.value.acBytes, &value, sizeof value);
    return record;
}

bool HasSI(const stPPCWithSI& record)
{
    return record.enMessageType == enRotary || record.enMessageType == enFader;
}

int FlagOf(int nNumber, int nScope)
{
    return static_cast<int>(static_cast<unsigned int>(nNumber) * 2654435761u >> (16 + nScope) & 1u);
}

// What a number stands for: a value of its own where the type is wide enough, an SI float, a flag of the scope.
stPPCWithSI Numbered(stPPCWithSI record, int nNumber, int nScope)
{
    record.fSI = HasSI(record) ? static_cast<float>(-nNumber) : record.fSI;
    record.nScope = nScope == c_nNoScope ? record.nScope : FlagOf(nNumber, nScope);
    switch (record.enMessageType)
    {
    case enString:
        return WithValue(record, RyGConsoleString(std::to_string(nNumber)));
    case enRotary:
    case enFader:
        return WithValue(record, static_cast<float>(nNumber) * 0.5f);
    case enSwitch:
        return WithValue(record, FlagOf(nNumber, 9));
    case enMeter:
        return WithValue(record, static_cast<unsigned char>(nNumber % 255 + 1));
    default:
        return WithValue(record, nNumber * 8191);
    }
}

tRecords EverythingNumbered(int nScope)
{
    tRecords records = Everything();
    int nNumber = 0;
    for (stPPCWithSI& record : records)
    {
        record = Numbered(record, nNumber++, nScope);
    }
    return records;
}

tRecords Part(const tRecords& records, std::size_t unFirst, std::size_t unCount)
{
    const auto first = records.begin() + static_cast<long>(std::min(unFirst, records.size()));
    return tRecords(first, first + std::min(static_cast<long>(unCount), static_cast<long>(records.end() - first)));
}

// The first record in which two lists differ in any byte; -1: none.
long Difference(const tRecords& one, const tRecords& other)
{
    const auto same = [](const stPPCWithSI& a, const stPPCWithSI& b) { return std::memcmp(&a, &b, sizeof a) == 0; };
    const auto at = std::mismatch(one.begin(), one.end(), other.begin(), other.end(), same);
    return at.first == one.end() && at.second == other.end() ? -1 : at.first - one.begin();
}

// These name no parameter; some of them would be a neighbour's bit.
tRecords BadAddresses()
{
    tRecords bad;
    for (const int nType : {INT_MIN, -1, 7, INT_MAX})
    {
        bad.insert(bad.end(), {Record(nType, 0, 0, 0), Record(nType, 1, 5, 0), Record(nType, -1, -1, -1), Record(nType, 51, 0, 0)});
    }
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        for (const int nWrong : {INT_MIN, -1, 577, INT_MAX})
        {
            bad.insert(bad.end(), {Record(nType, nWrong, 0, 0), Record(nType, 1, nWrong, 0), Record(nType, 1, 5, nWrong)});
        }
        const int nParams = canMaxParams[c_nMessageTypes + nType];
        bad.insert(bad.end(), {Record(nType, 51, 0, 0), Record(nType, 1, 144, 0), Record(nType, 1, 5, nParams),
                               Record(nType, 1, -1, nParams), Record(nType, 50, 2, -1), Record(nType, 0, 1, 0)});
    }
    return bad;
}

// ---- An image, parameter by parameter -----------------------------------------------------------------------------------------

template <class Visitor>
void WithValueType(const stPPCWithSI& record, Visitor visit)
{
    switch (record.enMessageType)
    {
    case enString:
        return visit(RyGConsoleString());
    case enRotary:
    case enFader:
        return visit(0.0f);
    case enMeter:
        return visit(static_cast<unsigned char>(0));
    default:
        return visit(0);
    }
}

constexpr struct
{
    decltype(&CBMAContainer::SetPPCStoreScope) pSet;
    decltype(&CBMAContainer::GetPPCStoreScope) pGet;
} c_aScopes[] = {{&CBMAContainer::SetPPCStoreScope, &CBMAContainer::GetPPCStoreScope},
                 {&CBMAContainer::SetPPCRecallScope, &CBMAContainer::GetPPCRecallScope},
                 {&CBMAContainer::SetPPCGlobalScope, &CBMAContainer::GetPPCGlobalScope},
                 {&CBMAContainer::SetPPCSafeScope, &CBMAContainer::GetPPCSafeScope}};

void SetFlag(CBMAContainer& image, int nScope, const stPPCWithSI& at, int nValue)
{
    const auto pSet = c_aScopes[nScope].pSet;
    (image.*pSet)(at.enMessageType, at.enPathType, at.nPath, at.nParameter, nValue);
}

int GetFlag(const CBMAContainer& image, int nScope, const stPPCWithSI& at)
{
    int nValue = 77;
    const auto pGet = c_aScopes[nScope].pGet;
    (image.*pGet)(at.enMessageType, at.enPathType, at.nPath, at.nParameter, nValue);
    return nValue;
}

// The record's value, SI float and, if asked for, flag of the scope. The global flag, that a single write clears, is kept.
void Set(CBMAContainer& image, const stPPCWithSI& r, int nScope = c_nNoScope)
{
    const int nGlobal = GetFlag(image, 2, r);
    const auto set = [&](auto value)
    {
        std::memcpy(static_cast<void*>(&value), r.value.acBytes, sizeof value);
        image.SetPPC(r.enMessageType, r.enPathType, r.nPath, r.nParameter, value, false, false);
    };
    WithValueType(r, set);
    SetFlag(image, 2, r, nGlobal);
    if (HasSI(r))
    {
        image.SetPPCSI(r.enMessageType, r.enPathType, r.nPath, r.nParameter, r.fSI, false);
    }
    if (nScope != c_nNoScope)
    {
        SetFlag(image, nScope, r, r.nScope);
    }
}

stPPCWithSI Get(const CBMAContainer& image, stPPCWithSI r, int nScope)
{
    const auto get = [&](auto value)
    {
        image.GetPPC(r.enMessageType, r.enPathType, r.nPath, r.nParameter, value);
        r = WithValue(r, value);
    };
    WithValueType(r, get);
    image.GetPPCSI(r.enMessageType, r.enPathType, r.nPath, r.nParameter, r.fSI);
    r.nScope = nScope == c_nNoScope ? r.nScope : GetFlag(image, nScope, r);
    return r;
}

tRecords Held(const CBMAContainer& image, int nScope)
{
    tRecords records = Everything();
    std::transform(records.begin(), records.end(), records.begin(), [&](const auto& r) { return Get(image, r, nScope); });
    return records;
}

void ExpectSame(const CBMAContainer& one, const CBMAContainer& other)
{
    for (int nScope = 0; nScope < 4; ++nScope)
    {
        EXPECT_EQ(-1, Difference(Held(one, nScope), Held(other, nScope))) << "scope " << nScope;
    }
}

// ---- Block operations, with a scope or without --------------------------------------------------------------------------------

bool Place(CBMAContainer& image, const stPPCWithSI& at)
{
    return image.SetReadBlock(at.enMessageType, at.enPathType, at.nPath, at.nParameter);
}

bool PlaceThree(CBMAContainer& image, const stPPCWithSI& at)
{
    return image.SetReadBlocks(at.enMessageType, at.enPathType, at.nPath, at.nParameter);
}

// The next records; those behind must stay rubbish. Any scope word but 0 means set: it becomes 1.
tRecords Read(CBMAContainer& image, int nCount, int nScope)
{
    const tRecords junk(static_cast<std::size_t>(nCount) + 1, Record(-1, -1, -1, -1));
    tRecords records = junk;
    const int nRead = nScope == c_nNoScope ? image.BlockReadScopelessPPC(records.data(), nCount)
                                           : image.BlockReadPPC(records.data(), nCount, nScope);
    const std::size_t unRead = static_cast<std::size_t>(nRead);
    EXPECT_EQ(-1, Difference(Part(junk, unRead, junk.size()), Part(records, unRead, junk.size())));
    records.resize(unRead);
    for (stPPCWithSI& record : records)
    {
        record.nScope = nScope != c_nNoScope && record.nScope != 0 ? 1 : record.nScope;
    }
    return records;
}

// Everything from the cursor on; only the last chunk may be short.
tRecords ReadAll(CBMAContainer& image, int nChunk, int nScope)
{
    tRecords all;
    tRecords chunk = Read(image, nChunk, nScope);
    for (; !chunk.empty() && all.size() <= std::size_t{c_nParameters}; chunk = Read(image, nChunk, nScope))
    {
        EXPECT_EQ(0u, all.size() % static_cast<std::size_t>(nChunk));
        all.insert(all.end(), chunk.begin(), chunk.end());
    }
    return all;
}

int Write(CBMAContainer& image, tRecords records, int nScope)
{
    const tRecords before = records;
    const int nCount = static_cast<int>(records.size());
    const int nWritten = nScope == c_nNoScope ? image.BlockWriteScopelessPPC(records.data(), nCount)
                                              : image.BlockWritePPC(records.data(), nCount, nScope);
    EXPECT_EQ(-1, Difference(before, records));
    return nWritten;
}

template <int k>
bool SetPosition(CBMAContainer& image, const stPPCWithSI& at, tCursor& cursor)
{
    return image.SetBlockPosition(at.enMessageType, at.enPathType, at.nPath, at.nParameter, cursor, Int2Type<k>());
}

constexpr int c_nTags = 5;
constexpr bool (*c_apSetPosition[c_nTags])(CBMAContainer&, const stPPCWithSI&, tCursor&) = {
    SetPosition<0>, SetPosition<1>, SetPosition<2>, SetPosition<3>, SetPosition<4>};
constexpr int c_anScopeOfTag[c_nTags] = {c_nNoScope, 1, 0, 2, 3};

// ---- Cursors ------------------------------------------------------------------------------------------------------------------

typedef std::vector<std::intptr_t> tWords;

tWords Words(const tCursor& c)
{
    return {c.nMessageType,
            c.nPathType,
            c.nPath,
            c.nParameter,
            c.lCount,
            static_cast<std::intptr_t>(c.nBaseIndex),
            reinterpret_cast<std::intptr_t>(c.pMemory)};
}

std::vector<tWords> ReadCursors(const CBMAContainer& image)
{
    const tCursor* pCursors = image.GetReadBlocks();
    EXPECT_EQ(pCursors, &image.GetReadBlock());
    return {Words(pCursors[0]), Words(pCursors[1]), Words(pCursors[2])};
}

const tWords c_Fresh = {-1, -1, 0, 0, 0, 0, 0};

std::vector<int> Address(const stPPCWithSI& r)
{
    return {r.enMessageType, r.enPathType, r.nPath, r.nParameter};
}

std::vector<int> Position(const tCursor& cursor)
{
    stPPCWithSI at = Record(77, 77, 77, 77);
    CBMAContainer::GetBlockPosition(cursor, at.enMessageType, at.enPathType, at.nPath, at.nParameter);
    return Address(at);
}

// The bytes, or the bit, that a cursor stands on.
tBytes Element(const tCursor& cursor, int nWidth)
{
    const unsigned char* pBlock = static_cast<const unsigned char*>(cursor.pMemory);
    const long lElement = static_cast<long>(cursor.nBaseIndex) + cursor.nParameter;
    return nWidth == 0 ? tBytes(1, static_cast<unsigned char>(pBlock[lElement / 8] >> lElement % 8 & 1))
                       : tBytes(pBlock + lElement * nWidth, pBlock + (lElement + 1) * nWidth);
}

// Everything that a placed cursor says, of the parameter with this number.
void ExpectStandsOn(const tCursor& cursor, const stPPCWithSI& at, int nNumber)
{
    EXPECT_EQ(Address(at), Position(cursor));
    EXPECT_THAT((std::vector<int>{cursor.nMessageType, cursor.nPathType, cursor.nPath, cursor.nParameter}),
                testing::ElementsAreArray(Address(at)));
    EXPECT_EQ(canMaxParams[at.enPathType * c_nMessageTypes + at.enMessageType], cursor.lCount);
    const int* pnCounts = canParameterCounts;
    EXPECT_EQ(nNumber - at.nParameter - std::accumulate(pnCounts, pnCounts + at.enMessageType, 0), cursor.nBaseIndex);
}

// What lies where the cursors of all five families stand.
void ExpectElements(CBMAContainer& image, const stPPCWithSI& at, int nNumber, const std::vector<tBytes>& expected)
{
    for (std::size_t unTag = 0; unTag < c_nTags; ++unTag)
    {
        tCursor cursor;
        EXPECT_TRUE(c_apSetPosition[unTag](image, at, cursor));
        ExpectStandsOn(cursor, at, nNumber);
        EXPECT_EQ(expected[unTag], Element(cursor, unTag == 0 ? c_anWidths[at.enMessageType] : 0)) << nNumber << " " << unTag;
    }
}

// ---- Images -------------------------------------------------------------------------------------------------------------------

class BlockTransfer : public testing::Test
{
protected:
    const std::unique_ptr<CBMAContainer> m_pImage = std::make_unique<CBMAContainer>();
    CBMAContainer& m_Image = *m_pImage;
    const tRecords m_All = Everything();
};

// Every parameter has its number.
class NumberedImage : public BlockTransfer
{
protected:
    NumberedImage()
    {
        for (std::size_t unAt = 0; unAt < m_All.size(); ++unAt)
        {
            Set(m_Image, Numbered(m_All[unAt], static_cast<int>(unAt), c_nNoScope));
            for (int nScope = 0; nScope < 4; ++nScope)
            {
                SetFlag(m_Image, nScope, m_All[unAt], FlagOf(static_cast<int>(unAt), nScope));
            }
        }
    }

    // All of it in chunks into records, and from there into an empty image.
    void ExpectTransfer(int nChunk, int nScope)
    {
        SCOPED_TRACE(testing::Message() << nChunk << " at once, scope " << nScope);
        const tRecords expected = EverythingNumbered(nScope);
        EXPECT_TRUE(Place(m_Image, m_All[0]));
        const tRecords read = ReadAll(m_Image, nChunk, nScope);
        EXPECT_EQ(-1, Difference(expected, read));
        const auto pOther = std::make_unique<CBMAContainer>();
        const std::size_t unChunk = static_cast<std::size_t>(nChunk);
        for (std::size_t unAt = 0; unAt < read.size(); unAt += unChunk)
        {
            const tRecords chunk = Part(read, unAt, unChunk);
            EXPECT_EQ(static_cast<int>(chunk.size()), Write(*pOther, chunk, nScope));
        }
        EXPECT_EQ(-1, Difference(expected, Held(*pOther, nScope)));
    }
};

// The flags of an image are its own: an explicit instantiation may name them all the same.
typedef stParameterFlags (CBMAContainer::*tScopeFlags)[4];
stParameterFlags* ScopeFlags(CBMAContainer& image);

template <tScopeFlags pMember>
struct stOpenScopeFlags
{
    friend stParameterFlags* ScopeFlags(CBMAContainer& image) { return image.*pMember; }
};

template struct stOpenScopeFlags<&CBMAContainer::m_aScopeFlags>;

void TakeMemoryOfScope(CBMAContainer& image, int nScope)
{
    stParameterFlags& flags = ScopeFlags(image)[nScope];
    TakeMemory(flags.rotaries);
    TakeMemory(flags.switches);
    TakeMemory(flags.integers);
    TakeMemory(flags.faders);
    TakeMemory(flags.strings);
    TakeMemory(flags.meters);
    TakeMemory(flags.others);
}

} // namespace

// ---- Whole images -------------------------------------------------------------------------------------------------------------

TEST_F(NumberedImage, GoesThroughRecordsInChunksOfAnySize)
{
    ASSERT_THAT(m_All, SizeIs(241339));
    ExpectTransfer(1, 0);
    ExpectTransfer(7, 1);
    ExpectTransfer(100, 2);
    ExpectTransfer(1000, 3);
    ExpectTransfer(241339, c_nNoScope);
    ExpectTransfer(300000, 0);
}

TEST_F(NumberedImage, GoesOverWithAllItsScopesOneByOne)
{
    const auto pOther = std::make_unique<CBMAContainer>();
    for (const int nScope : c_anForms)
    {
        EXPECT_TRUE(Place(m_Image, m_All[0]));
        EXPECT_EQ(c_nParameters, Write(*pOther, ReadAll(m_Image, 1000, nScope), nScope));
    }
    ExpectSame(m_Image, *pOther);
}

TEST_F(NumberedImage, IsWrittenInAnyOrder)
{
    tRecords records = EverythingNumbered(3);
    for (std::size_t unAt = 0; unAt + 700 < records.size(); unAt += 350) // within paths, mostly
    {
        std::reverse(records.begin() + static_cast<long>(unAt), records.begin() + static_cast<long>(unAt) + 700);
    }
    const auto pReversed = std::make_unique<CBMAContainer>();
    EXPECT_EQ(c_nParameters, Write(*pReversed, records, 3));
    EXPECT_EQ(-1, Difference(EverythingNumbered(3), Held(*pReversed, 3)));

    std::shuffle(records.begin(), records.end(), std::mt19937(70411));
    const auto pShuffled = std::make_unique<CBMAContainer>();
    EXPECT_EQ(c_nParameters, Write(*pShuffled, records, 3));
    EXPECT_EQ(-1, Difference(EverythingNumbered(3), Held(*pShuffled, 3)));
}

// ---- Reading ------------------------------------------------------------------------------------------------------------------

TEST_F(NumberedImage, IsReadFromTheStartByAFreshCursor)
{
    for (const int nScope : c_anForms)
    {
        const auto pCopy = std::make_unique<CBMAContainer>(m_Image);
        EXPECT_EQ(-1, Difference(Part(EverythingNumbered(nScope), 0, 80), Read(*pCopy, 80, nScope)));
        EXPECT_EQ(-1, Difference(Part(EverythingNumbered(nScope), 80, 9), Read(*pCopy, 9, nScope)));
    }
}

TEST_F(NumberedImage, IsReadFromAnyParameterOn)
{
    const tRecords expected = EverythingNumbered(1);
    for (std::size_t unAt = 0; unAt < m_All.size(); unAt += 211)
    {
        EXPECT_TRUE(Place(m_Image, m_All[unAt]));
        ASSERT_EQ(-1, Difference(Part(expected, unAt, 300), Read(m_Image, 300, 1))) << unAt;
        EXPECT_TRUE(PlaceThree(m_Image, m_All[unAt]));
        ASSERT_EQ(-1, Difference(Part(expected, unAt, 3), Read(m_Image, 3, 1))) << unAt;
    }
}

TEST_F(NumberedImage, IsAtItsEndUntilTheCursorIsPlacedAnew)
{
    for (const int nLeft : {1, 4, 10, 100})
    {
        const stPPCWithSI& at = m_All[static_cast<std::size_t>(c_nParameters - nLeft)];
        EXPECT_TRUE(Place(m_Image, at));
        EXPECT_THAT(Read(m_Image, 10, 0), SizeIs(std::min(nLeft, 10)));
        EXPECT_THAT(Read(m_Image, 90, 0), SizeIs(std::max(nLeft - 10, 0)));
        for (const int nScope : c_anForms)
        {
            EXPECT_THAT(Read(m_Image, 1, nScope), IsEmpty());
            EXPECT_FALSE(Place(m_Image, Record(enMeter, 50, 2, 0)));
            EXPECT_THAT(Read(m_Image, 1000, nScope), IsEmpty());
            EXPECT_EQ(7, m_Image.GetReadBlock().nMessageType);
        }
    }
}

TEST_F(NumberedImage, ShowsWhatComesNext)
{
    std::size_t unAt = 0;
    EXPECT_TRUE(Place(m_Image, m_All[0]));
    while (unAt < m_All.size())
    {
        ASSERT_EQ(Address(m_All[unAt]), Position(m_Image.GetReadBlock())) << unAt;
        unAt += Read(m_Image, unAt < 5000 ? 1 : 37, c_nNoScope).size();
    }
    EXPECT_EQ(7, m_Image.GetReadBlock().nMessageType);
}

TEST_F(NumberedImage, IsNotReadWithoutRecordsOrAScope)
{
    EXPECT_TRUE(PlaceThree(m_Image, Record(enFader, 1, 3, 1)));
    const std::vector<tWords> before = ReadCursors(m_Image);
    stPPCWithSI record = Record(1, 2, 3, 4);
    for (const int nScope : {INT_MIN, -1, 4, 5, INT_MAX})
    {
        EXPECT_EQ(0, m_Image.BlockReadPPC(&record, 1, nScope)) << nScope;
    }
    for (const int nCount : {INT_MIN, -1, 0, 1, INT_MAX})
    {
        stPPCWithSI* pRecord = nCount > 0 ? nullptr : &record;
        EXPECT_EQ(0, m_Image.BlockReadPPC(pRecord, nCount, 0)) << nCount;
        EXPECT_EQ(0, m_Image.BlockReadScopelessPPC(pRecord, nCount)) << nCount;
        EXPECT_EQ(0, m_Image.BlockReadPPC(nullptr, nCount, 0)) << nCount;
    }
    EXPECT_EQ(-1, Difference({Record(1, 2, 3, 4)}, {record}));
    EXPECT_EQ(before, ReadCursors(m_Image));
}

TEST_F(BlockTransfer, TakesEveryByteOfAValue)
{
    const tRecords records = {Record(enString, 1, 9, 1),
                              Record(enInteger, 1, 9, 22),
                              Record(enOther, 50, 1, 0),
                              Record(enRotary, 1, 9, 279),
                              WithValue(Record(enFader, 1, 9, 1), -0.0f),
                              Record(enMeter, 1, 9, 8)};
    EXPECT_EQ(6, Write(m_Image, records, c_nNoScope));
    for (const stPPCWithSI& record : records)
    {
        EXPECT_TRUE(Place(m_Image, record));
        EXPECT_EQ(-1, Difference({record}, {Get(m_Image, record, c_nNoScope)})) << record.enMessageType;
        EXPECT_EQ(-1, Difference({record}, Read(m_Image, 1, c_nNoScope))) << record.enMessageType;
    }
}

// ---- Writing ------------------------------------------------------------------------------------------------------------------

TEST_F(BlockTransfer, AnyNumberButZeroSetsASwitchAndAFlag)
{
    stPPCWithSI record = Record(enSwitch, 1, 3, 575);
    for (const int nValue : {5, 0, -1, 0, 0x100, 0, INT_MIN, 0, INT_MAX, 0})
    {
        for (int nScope = 0; nScope < 4; ++nScope)
        {
            record.nScope = nValue;
            EXPECT_EQ(1, Write(m_Image, {WithValue(record, nValue)}, nScope));
            record.nScope = nValue != 0 ? 1 : 0;
            EXPECT_EQ(-1, Difference({WithValue(record, record.nScope)}, {Get(m_Image, record, nScope)})) << nValue;
        }
    }
    ExpectSame(*std::make_unique<CBMAContainer>(), m_Image);
}

TEST_F(NumberedImage, KeepsAllThatAWriteDoesNotName)
{
    const auto pExpected = std::make_unique<CBMAContainer>(m_Image);
    for (const int nScope : c_anForms)
    {
        tRecords records;
        for (std::size_t unAt = static_cast<std::size_t>(nScope + 1); unAt < m_All.size(); unAt += 509)
        {
            records.push_back(Numbered(m_All[unAt], c_nParameters - static_cast<int>(unAt), nScope));
            Set(*pExpected, records.back(), nScope);
        }
        EXPECT_EQ(static_cast<int>(records.size()), Write(m_Image, records, nScope));
    }
    ExpectSame(*pExpected, m_Image);
}

TEST_F(BlockTransfer, PassesOverRecordsThatNameNoParameter)
{
    const auto pExpected = std::make_unique<CBMAContainer>();
    for (const int nScope : c_anForms)
    {
        tRecords records;
        int nGood = 0;
        for (const stPPCWithSI& bad : BadAddresses())
        {
            const bool bType = bad.enMessageType >= 0 && bad.enMessageType < c_nMessageTypes;
            const stPPCWithSI good = Record(bType ? bad.enMessageType : nGood % 7, 1, 4 + nGood % 2, 0);
            records.insert(records.end(), {bad, Numbered(good, ++nGood + nScope, nScope), bad, bad});
            Set(*pExpected, records[records.size() - 3], nScope);
        }
        EXPECT_EQ(nGood, Write(m_Image, records, nScope));
        EXPECT_EQ(0, Write(m_Image, BadAddresses(), nScope));
    }
    ExpectSame(*pExpected, m_Image);
}

TEST_F(BlockTransfer, WritesNothingWithoutRecordsOrAScope)
{
    stPPCWithSI record = Numbered(Record(enRotary, 1, 0, 0), 9, c_nNoScope);
    for (const int nScope : {INT_MIN, -1, 4, 5, INT_MAX})
    {
        EXPECT_EQ(0, m_Image.BlockWritePPC(&record, 1, nScope)) << nScope;
    }
    for (const int nCount : {INT_MIN, -1, 0, 1, INT_MAX})
    {
        stPPCWithSI* pRecord = nCount > 0 ? nullptr : &record;
        EXPECT_EQ(0, m_Image.BlockWritePPC(pRecord, nCount, 0)) << nCount;
        EXPECT_EQ(0, m_Image.BlockWriteScopelessPPC(pRecord, nCount)) << nCount;
        EXPECT_EQ(0, m_Image.BlockWritePPC(nullptr, nCount, 0)) << nCount;
    }
    ExpectSame(*std::make_unique<CBMAContainer>(), m_Image);
}

TEST_F(BlockTransfer, ClearsNoGlobalFlagAndSendsNothing)
{
    Support::CSocketRecorder recorder;
    m_Image.SetUseSimplePPCSender(true);
    m_Image.InitSimplePPCSenderComms();
    std::for_each(m_All.begin(), m_All.end(), [&](const stPPCWithSI& r) { SetFlag(m_Image, 2, r, 1); });
    for (const int nScope : {c_nNoScope, 0, 1, 3})
    {
        EXPECT_EQ(c_nParameters, Write(m_Image, EverythingNumbered(nScope), nScope));
    }
    EXPECT_TRUE(std::all_of(m_All.begin(), m_All.end(), [&](const stPPCWithSI& r) { return GetFlag(m_Image, 2, r) == 1; }));
    EXPECT_THAT(ReadAll(m_Image, 1000, 0), SizeIs(c_nParameters));
    EXPECT_THAT(recorder.sent, IsEmpty());
    m_Image.SetPPC(enRotary, enMicInput, 0, 0, 1.0f, false, false);
    EXPECT_THAT(recorder.sent, SizeIs(1));
    m_Image.DeInitSimplePPCSenderComms();
}

// ---- Cursors ------------------------------------------------------------------------------------------------------------------

TEST_F(BlockTransfer, CursorsAreFreshAtFirst)
{
    EXPECT_EQ(c_Fresh, Words(tCursor()));
    EXPECT_THAT(ReadCursors(m_Image), ElementsAre(c_Fresh, c_Fresh, c_Fresh));
    EXPECT_THAT(Position(tCursor()), ElementsAre(-1, -1, 0, 0));
}

TEST_F(NumberedImage, CopiesHaveFreshCursors)
{
    EXPECT_TRUE(PlaceThree(m_Image, Record(enFader, 1, 3, 1)));
    const std::vector<tWords> before = ReadCursors(m_Image);
    const auto pCopy = std::make_unique<CBMAContainer>(m_Image);
    const auto pAssigned = std::make_unique<CBMAContainer>();
    EXPECT_TRUE(PlaceThree(*pAssigned, Record(enMeter, 50, 1, 63)));
    *pAssigned = m_Image;
    for (CBMAContainer* pImage : {pCopy.get(), pAssigned.get()})
    {
        EXPECT_THAT(ReadCursors(*pImage), ElementsAre(c_Fresh, c_Fresh, c_Fresh));
        EXPECT_EQ(-1, Difference(Part(EverythingNumbered(0), 0, 5), Read(*pImage, 5, 0)));
    }
    const CBMAContainer& itself = m_Image;
    m_Image = itself;
    EXPECT_EQ(before, ReadCursors(m_Image));
}

TEST_F(NumberedImage, ReadCursorDoesNotMoveByOtherOperations)
{
    EXPECT_TRUE(PlaceThree(m_Image, Record(enFader, 1, 3, 1)));
    const std::vector<tWords> before = ReadCursors(m_Image);
    tCursor cursor;
    tRecords records = Part(EverythingNumbered(0), 200000, 3000);
    for (const int nScope : c_anForms)
    {
        EXPECT_EQ(3000, Write(m_Image, records, nScope));
        EXPECT_EQ(0, Write(m_Image, BadAddresses(), nScope));
        EXPECT_TRUE(c_apSetPosition[nScope + 1](m_Image, m_All[77], cursor));
    }
    m_Image.BlockWriteStoreScope(records.data(), 3000);
    m_Image.BlockWriteSafeScope(records.data(), 3000);
    EXPECT_EQ(before, ReadCursors(m_Image));
    EXPECT_EQ(Address(Record(enFader, 1, 3, 1)), Address(Read(m_Image, 1, 0).at(0)));
}

TEST_F(BlockTransfer, ReadCursorsStandOnValueRecallAndStore)
{
    for (std::size_t unAt = 0; unAt < m_All.size(); unAt += 97)
    {
        EXPECT_TRUE(PlaceThree(m_Image, m_All[unAt]));
        const std::vector<tWords> cursors = ReadCursors(m_Image);
        for (std::size_t unTag = 0; unTag < 3; ++unTag)
        {
            tCursor cursor;
            EXPECT_TRUE(c_apSetPosition[unTag](m_Image, m_All[unAt], cursor));
            ASSERT_EQ(Words(cursor), cursors[unTag]) << unAt << " " << unTag;
        }
        ExpectStandsOn(m_Image.GetReadBlock(), m_All[unAt], static_cast<int>(unAt));
    }
}

TEST_F(BlockTransfer, ReadCursorIsPlacedAlone)
{
    EXPECT_TRUE(Place(m_Image, Record(enMeter, 50, 1, 63)));
    tCursor cursor;
    EXPECT_TRUE(SetPosition<0>(m_Image, Record(enMeter, 50, 1, 63), cursor));
    EXPECT_THAT(ReadCursors(m_Image), ElementsAre(Words(cursor), c_Fresh, c_Fresh));
}

TEST_F(NumberedImage, RefusedAddressLeavesTheReadCursors)
{
    const auto refuse = [this]
    {
        const std::vector<tWords> before = ReadCursors(m_Image);
        for (const stPPCWithSI& bad : BadAddresses())
        {
            EXPECT_FALSE(Place(m_Image, bad)) << testing::PrintToString(Address(bad));
            EXPECT_FALSE(PlaceThree(m_Image, bad)) << testing::PrintToString(Address(bad));
            ASSERT_EQ(before, ReadCursors(m_Image)) << testing::PrintToString(Address(bad));
        }
    };
    refuse();
    EXPECT_EQ(-1, Difference(Part(EverythingNumbered(0), 0, 3), Read(m_Image, 3, 0)));
    EXPECT_TRUE(PlaceThree(m_Image, m_All[150000]));
    refuse();
    EXPECT_EQ(-1, Difference(Part(EverythingNumbered(0), 150000, 400), Read(m_Image, 400, 0)));
    refuse();
    EXPECT_EQ(-1, Difference(Part(EverythingNumbered(0), 150400, 400), Read(m_Image, 400, 0)));
}

TEST_F(BlockTransfer, PositionIsWhereTheParametersOwnElementOrBitLies)
{
    for (std::size_t unAt = 0; unAt < m_All.size(); unAt += 1013)
    {
        const stPPCWithSI& at = m_All[unAt];
        const bool bSwitch = at.enMessageType == enSwitch;
        std::vector<tBytes> expected(c_nTags, tBytes(1, 0));
        expected[0].resize(bSwitch ? 1 : static_cast<std::size_t>(c_anWidths[at.enMessageType]));
        ExpectElements(m_Image, at, static_cast<int>(unAt), expected);
        Set(m_Image, bSwitch ? WithValue(at, 1) : at);
        expected[0].assign(expected[0].size(), bSwitch ? 1 : 0xa5);
        for (std::size_t unTag = 1; unTag < c_nTags; ++unTag)
        {
            ExpectElements(m_Image, at, static_cast<int>(unAt), expected);
            SetFlag(m_Image, c_anScopeOfTag[unTag], at, 1);
            expected[unTag] = {1};
        }
        ExpectElements(m_Image, at, static_cast<int>(unAt), expected);
    }
}

TEST_F(BlockTransfer, PathTypeThatDoesNotExistLeavesACursor)
{
    for (const auto& setPosition : c_apSetPosition)
    {
        tCursor cursor;
        EXPECT_TRUE(setPosition(m_Image, Record(enFader, 1, 3, 1), cursor));
        const tWords before = Words(cursor);
        for (const int nType : {0, 1, 2, 3, 4, 5, 6, 7, -1})
        {
            EXPECT_FALSE(setPosition(m_Image, Record(nType, 51, 0, 0), cursor));
            EXPECT_FALSE(setPosition(m_Image, Record(nType, INT_MAX, 3, 1), cursor));
            EXPECT_EQ(before, Words(cursor)) << nType;
        }
    }
}

TEST_F(BlockTransfer, MessageTypeThatDoesNotExistHasNoMemory)
{
    for (const auto& setPosition : c_apSetPosition)
    {
        for (const int nType : {INT_MIN, -1, 7, INT_MAX})
        {
            tCursor cursor;
            EXPECT_TRUE(setPosition(m_Image, Record(enFader, 1, 3, 1), cursor));
            EXPECT_FALSE(setPosition(m_Image, Record(nType, 1, 3, 1), cursor));
            EXPECT_EQ(nullptr, cursor.pMemory) << nType;
        }
    }
}

TEST_F(BlockTransfer, PositionOfNoParameterIsRefused)
{
    for (const stPPCWithSI& bad : BadAddresses())
    {
        tCursor cursor;
        EXPECT_FALSE(std::any_of(std::begin(c_apSetPosition), std::end(c_apSetPosition),
                                 [&](const auto& setPosition) { return setPosition(m_Image, bad, cursor); }))
            << testing::PrintToString(Address(bad));
    }
    EXPECT_THAT(ReadCursors(m_Image), ElementsAre(c_Fresh, c_Fresh, c_Fresh));
}

// ---- Without memory -----------------------------------------------------------------------------------------------------------

TEST_F(NumberedImage, GoesThroughRecordsWithoutFlags)
{
    const tRecords expected = EverythingNumbered(c_nNoScope);
    const auto pOther = std::make_unique<CBMAContainer>();
    for (int nScope = 0; nScope < 4; ++nScope)
    {
        TakeMemoryOfScope(m_Image, nScope);
        TakeMemoryOfScope(*pOther, nScope);
        EXPECT_TRUE(Place(m_Image, m_All[0]));
        tRecords read = ReadAll(m_Image, 1000, nScope);
        EXPECT_EQ(c_nParameters, Write(*pOther, read, nScope));
        std::for_each(read.begin(), read.end(), [](stPPCWithSI& r) { r.nScope = Record(0, 0, 0, 0).nScope; });
        EXPECT_EQ(-1, Difference(expected, read));
        EXPECT_EQ(-1, Difference(expected, Held(*pOther, c_nNoScope)));
    }
}

TEST_F(BlockTransfer, PositionWithoutABlockHasNoMemory)
{
    TakeMemory(*static_cast<CParameterArray<int, enSwitch, true>*>(m_Image.GetCParamArray(enSwitch)));
    for (int nTag = 0; nTag < c_nTags; ++nTag)
    {
        nTag > 0 ? TakeMemoryOfScope(m_Image, c_anScopeOfTag[nTag]) : void();
        tCursor cursor;
        c_apSetPosition[nTag](m_Image, Record(enSwitch, 1, 3, 1), cursor);
        EXPECT_EQ(nullptr, cursor.pMemory) << nTag;
    }
    PlaceThree(m_Image, Record(enSwitch, 1, 3, 1));
    EXPECT_EQ(nullptr, m_Image.GetReadBlocks()[2].pMemory);
}

TEST_F(NumberedImage, GoesThroughRecordsWithoutSwitches)
{
    const auto others = [](tRecords records)
    {
        const auto isSwitch = [](const stPPCWithSI& r) { return r.enMessageType == enSwitch; };
        records.erase(std::remove_if(records.begin(), records.end(), isSwitch), records.end());
        return records;
    };
    TakeMemory(*static_cast<CParameterArray<int, enSwitch, true>*>(m_Image.GetCParamArray(enSwitch)));
    const tRecords read = ReadAll(m_Image, 1000, 1);
    EXPECT_THAT(read, SizeIs(c_nParameters));
    EXPECT_EQ(-1, Difference(others(EverythingNumbered(1)), others(read)));
    Write(m_Image, EverythingNumbered(0), 1);
    EXPECT_EQ(-1, Difference(others(EverythingNumbered(0)), others(Held(m_Image, 1))));
}

TEST_F(BlockTransfer, ReadingNothingMovesNoFreshCursor)
{
    stPPCWithSI record;
    EXPECT_EQ(0, m_Image.BlockReadPPC(&record, 0, 0));
    EXPECT_EQ(0, m_Image.BlockReadScopelessPPC(nullptr, 1));
    EXPECT_THAT(ReadCursors(m_Image), ElementsAre(c_Fresh, c_Fresh, c_Fresh));
}

TEST_F(NumberedImage, EndsWithACursorThatStandsNowhere)
{
    EXPECT_TRUE(Place(m_Image, m_All.back()));
    EXPECT_THAT(Read(m_Image, 1, 0), SizeIs(1));
    EXPECT_EQ((tWords{7, -1, 0, 0, 0, 0, 0}), Words(m_Image.GetReadBlock()));
}

TEST_F(BlockTransfer, ABlockThatIsNotThereHasTheCheckWordZero)
{
    TakeMemory(*static_cast<CParameterArray<int, enSwitch, true>*>(m_Image.GetCParamArray(enSwitch)));
    m_Image.UpdateXors();
    EXPECT_EQ(0u, m_Image.GetXorVal(enSwitch));
}

TEST(BlockPosition, BitsThatAreNotThereTakeNothingAndReadAsZero)
{
    WriteBit(nullptr, 5, true);
    EXPECT_EQ(0, ReadBit(nullptr, 5));
}

// The switch that lets an export go past the safe flags is not there either.
TEST_F(BlockTransfer, WithoutSwitchesAnExportHeedsTheSafeFlags)
{
    const auto pOther = std::make_unique<CBMAContainer>();
    TakeMemory(*static_cast<CParameterArray<int, enSwitch, true>*>(m_Image.GetCParamArray(enSwitch)));
    for (const int nParam : {0, 1})
    {
        m_Image.SetPPC(enFader, enMicInput, 3, nParam, 0.5f, false, false);
        m_Image.SetPPCStoreScope(enFader, enMicInput, 3, nParam, 1);
        m_Image.SetPPCSafeScope(enFader, enMicInput, 3, nParam, nParam);
    }
    m_Image.ExportScopedParameters(*pOther, false, false, nullptr);
    float afValues[2] = {};
    pOther->GetPPC(enFader, enMicInput, 3, 0, afValues[0]);
    pOther->GetPPC(enFader, enMicInput, 3, 1, afValues[1]);
    EXPECT_THAT(afValues, ElementsAre(0.0f, 0.5f));
}
