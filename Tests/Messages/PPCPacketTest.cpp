#include "Messages/PPCPacket.h"

#include "Support/Records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

using Support::Append;
using Support::AppendBig;
using Support::c_szFloatRecord;
using Support::c_szIntRecord;
using Support::c_szStringRecord;
using Support::Hex;
using Support::SerialisedRecord;
using Support::tBytes;
using testing::ElementsAre;

namespace
{

template <typename T>
tBytes BytesOf(const T& object)
{
    static_assert(std::is_trivially_copyable<T>::value, "copied byte by byte");
    tBytes bytes(sizeof object);
    std::memcpy(bytes.data(), &object, sizeof object);
    return bytes;
}

// The bytes in a heap block of exactly their size, so that a read past the end is seen; optionally at an odd address.
class CExactCopy
{
public:
    explicit CExactCopy(const tBytes& bytes, std::size_t unOffset = 0)
        : m_pBlock(new unsigned char[bytes.size() + unOffset]), m_unOffset(unOffset), m_lLength(static_cast<long>(bytes.size()))
    {
        std::copy(bytes.begin(), bytes.end(), m_pBlock.get() + unOffset);
    }

    const unsigned char* Data() const { return m_pBlock.get() + m_unOffset; }
    long Length() const { return m_lLength; }

private:
    std::unique_ptr<unsigned char[]> m_pBlock;
    std::size_t m_unOffset;
    long m_lLength;
};

struct stWalk
{
    std::vector<int> types;
    bool bGood;
};

stWalk Walk(const tBytes& stream, std::size_t unOffset = 0)
{
    const CExactCopy copy(stream, unOffset);
    CPPCStreamReader reader(copy.Data(), copy.Length());
    stWalk walk = {{}, false};
    while (reader.Next())
    {
        walk.types.push_back(reader.Header().nMessageType);
    }
    walk.bGood = reader.IsGood();
    return walk;
}

// A float, a string and an int record: 29, 38 and 29 bytes.
tBytes ThreeRecords()
{
    return Hex(std::string(c_szFloatRecord) + c_szStringRecord + c_szIntRecord);
}

tPPCPacket SomePacket()
{
    tPPCPacket packet;
    packet.enMessageType = enFader;
    packet.enPathType = enMicInput;
    packet.nPath = 5;
    return packet;
}

template <typename T>
std::ptrdiff_t OffsetIn(const T& object, const void* pMember)
{
    return static_cast<const unsigned char*>(pMember) - reinterpret_cast<const unsigned char*>(&object);
}

} // namespace

// ---- In memory ----------------------------------------------------------------------------------------------------------------

TEST(PPCPacket, IsTenWordsInTheMachinesOwnOrder)
{
    tPPCPacket packet;
    packet.enMessageType = enOther;
    packet.enPathType = enAuk;
    packet.nPath = -3;
    packet.nParameter = 0x01020304;
    packet.value.nValue = -4;
    packet.nScope = 1;
    std::int32_t anWords[10];
    ASSERT_EQ(sizeof packet, sizeof anWords);
    std::memcpy(anWords, &packet, sizeof anWords);
    EXPECT_THAT(anWords, ElementsAre(5, 50, -3, 0x01020304, -4, 0, 0, 0, 1, 0));
}

TEST(PPCPacket, AFreshOneIsZero)
{
    EXPECT_EQ(BytesOf(tPPCPacket()), tBytes(40));
    EXPECT_EQ(BytesOf(stPPCWithSI()), tBytes(48));
}

TEST(PPCPacket, ArraysHaveNoGapsAndTheSIFollowsThePacket)
{
    const tPPCPacket aPackets[2];
    const stPPCWithSI aRecords[3];
    EXPECT_EQ(OffsetIn(aPackets, &aPackets[1]), 40);
    EXPECT_EQ(OffsetIn(aRecords, &aRecords[1]), 48);
    EXPECT_EQ(OffsetIn(aRecords, &aRecords[2].enMessageType), 96);
    EXPECT_EQ(OffsetIn(aRecords, &aRecords[2].fSI), 96 + 40);
    EXPECT_EQ(OffsetIn(aRecords, &aRecords[2].nPad), 96 + 44);
}

TEST(PPCPacket, AValueTakesItsOwnBytesAndLeavesTheRest)
{
    const auto after = [](void (*pSet)(uPPCValue&))
    {
        uPPCValue value;
        std::memset(value.acBytes, 0xee, sizeof value.acBytes);
        pSet(value);
        return static_cast<int>(std::count(std::begin(value.acBytes), std::end(value.acBytes), 0xee));
    };
    EXPECT_EQ(sizeof(uPPCValue), 16u);
    EXPECT_EQ(after([](uPPCValue& value) { value.strValue = RyGConsoleString("twelve chars"); }), 3);
    EXPECT_EQ(after([](uPPCValue& value) { value.fValue = 1.5f; }), 12);
    EXPECT_EQ(after([](uPPCValue& value) { value.nValue = 1; }), 12);
    EXPECT_EQ(after([](uPPCValue& value) { value.ucValue = 1; }), 15);
}

TEST(PPCPacket, AMeterIsTheFirstByteAndAStringTheFirstThirteen)
{
    uPPCValue value;
    value.ucValue = 200;
    EXPECT_EQ(BytesOf(value), Hex("c8000000 00000000 00000000 00000000"));
    value.strValue = RyGConsoleString("Vox");
    EXPECT_EQ(BytesOf(value), Hex("566f7800 00000000 00000000 00000000"));
}

TEST(IsContiguous, IgnoresParameterValueAndScope)
{
    tPPCPacket first = SomePacket();
    tPPCPacket second = SomePacket();
    second.nParameter = 99;
    second.value.fValue = 2.0f;
    second.nScope = 1;
    second.nReserved = 1;
    EXPECT_TRUE(first.IsContiguous(second));
    EXPECT_TRUE(second.IsContiguous(first));
    EXPECT_TRUE(first.IsContiguous(first));
}

TEST(IsContiguous, ComparesPathPathTypeAndMessageTypeAsWholeWords)
{
    for (int nBit = 0; nBit < 32; ++nBit)
    {
        const int nFlip = static_cast<int>(1u << nBit);
        tPPCPacket first = SomePacket();
        tPPCPacket otherPath = SomePacket();
        tPPCPacket otherPathType = SomePacket();
        tPPCPacket otherType = SomePacket();
        otherPath.nPath ^= nFlip;
        otherPathType.enPathType = static_cast<tagenVirtualPathType>(otherPathType.enPathType ^ nFlip);
        otherType.enMessageType = static_cast<tagenPPCMessageType>(otherType.enMessageType ^ nFlip);
        EXPECT_FALSE(first.IsContiguous(otherPath)) << nBit;
        EXPECT_FALSE(first.IsContiguous(otherPathType)) << nBit;
        EXPECT_FALSE(first.IsContiguous(otherType)) << nBit;
    }
}

TEST(IsContiguous, TakesARecordWithSIAsThePacketItStartsWith)
{
    stPPCWithSI aRecords[2];
    aRecords[1].fSI = 3.0f;
    aRecords[1].nPad = 1;
    EXPECT_TRUE(aRecords[1].IsContiguous(aRecords[0]));
    aRecords[1].nPath = 1;
    EXPECT_FALSE(aRecords[1].IsContiguous(aRecords[0]));
}

// ---- On the wire --------------------------------------------------------------------------------------------------------------

TEST(PPCRecord, OfAFloatIsItsFourBytesBehindTheHeader)
{
    EXPECT_EQ(BytesOf(stPPCRecord<float>(enRotary, 2, 3, 4, -0.75f)), Hex(c_szFloatRecord));
    EXPECT_EQ(BytesOf(stPPCRecord<float>(enFader, 0x01020304, -1, INT_MIN, 1.0f)),
              Hex("00000001 00 00000004 01020304 ffffffff 80000000 00000004 3f800000"));
}

TEST(PPCRecord, OfAnIntASwitchAndAMeterIsABigEndianInt)
{
    EXPECT_EQ(BytesOf(stPPCRecord<int>(enInteger, 50, 1, 68, -2)), Hex(c_szIntRecord));
    EXPECT_EQ(BytesOf(stPPCRecord<int>(enSwitch, 1, 2, 3, 1)),
              Hex("00000001 00 00000002 00000001 00000002 00000003 00000004 00000001"));
    EXPECT_EQ(BytesOf(stPPCRecord<int>(enMeter, 1, 2, 3, 0xfe)),
              Hex("00000001 00 00000006 00000001 00000002 00000003 00000004 000000fe"));
}

TEST(PPCRecord, OfAStringCarriesThirteenBytes)
{
    EXPECT_EQ(BytesOf(stPPCRecord<RyGConsoleString>(enString, 1, 143, 1, RyGConsoleString("Kick In"))), Hex(c_szStringRecord));
}

TEST(PPCStreamReader, ReadsEachRecordsHeaderAndValue)
{
    const CExactCopy stream(ThreeRecords());
    CPPCStreamReader reader(stream.Data(), stream.Length());
    ASSERT_TRUE(reader.Next());
    EXPECT_EQ(reader.Header().unMarker, 1u);
    EXPECT_EQ(reader.Header().ucFlag, 0);
    EXPECT_EQ(reader.Header().nMessageType, 1);
    EXPECT_EQ(reader.Header().nPathType, 2);
    EXPECT_EQ(reader.Header().nPath, 3);
    EXPECT_EQ(reader.Header().nParameter, 4);
    EXPECT_EQ(reader.Header().nValueLength, 4);
    EXPECT_EQ(reader.Value(), stream.Data() + 25);
    ASSERT_TRUE(reader.Next());
    EXPECT_EQ(reader.Header().nValueLength, 13);
    EXPECT_EQ(reader.Value(), stream.Data() + 29 + 25);
    ASSERT_TRUE(reader.Next());
    EXPECT_EQ(reader.Value(), stream.Data() + 29 + 38 + 25);
    EXPECT_FALSE(reader.Next());
    EXPECT_TRUE(reader.IsGood());
    EXPECT_FALSE(reader.Next());
}

TEST(PPCStreamReader, GivesAddressesAndValues)
{
    const CExactCopy stream(ThreeRecords());
    CPPCStreamReader reader(stream.Data(), stream.Length());
    float fValue = 0;
    RyGConsoleString strValue;
    int nValue = 0;
    EXPECT_TRUE(reader.Next() && reader.GetValue(fValue));
    EXPECT_TRUE(reader.Next() && reader.GetValue(strValue));
    EXPECT_TRUE(reader.Next() && reader.GetValue(nValue));
    EXPECT_EQ(fValue, -0.75f);
    EXPECT_EQ(strValue, RyGConsoleString("Kick In"));
    EXPECT_EQ(nValue, -2);
    const stPPCAddress address = reader.Address();
    EXPECT_EQ(address.enType, enInteger);
    EXPECT_EQ(address.enPathType, enAuk);
    EXPECT_EQ(address.nPath, 1);
    EXPECT_EQ(address.nParam, 68);
}

TEST(PPCStreamReader, ReadsWhereverTheStreamLies)
{
    for (std::size_t unOffset = 0; unOffset < 8; ++unOffset)
    {
        const stWalk walk = Walk(ThreeRecords(), unOffset);
        EXPECT_THAT(walk.types, ElementsAre(1, 0, 3)) << unOffset;
        EXPECT_TRUE(walk.bGood) << unOffset;
    }
}

TEST(PPCStreamReader, AnEmptyStreamIsGood)
{
    CPPCStreamReader none(nullptr, 0);
    EXPECT_FALSE(none.Next());
    EXPECT_TRUE(none.IsGood());
    EXPECT_TRUE(Walk(tBytes()).bGood);
}

TEST(PPCStreamReader, FindsNothingInANegativeLengthOrNoBytes)
{
    const CExactCopy stream(ThreeRecords());
    for (const long lLength : {-1L, -25L, LONG_MIN})
    {
        CPPCStreamReader reader(stream.Data(), lLength);
        EXPECT_FALSE(reader.Next()) << lLength;
    }
    CPPCStreamReader none(nullptr, 100);
    EXPECT_FALSE(none.Next());
}

TEST(PPCStreamReader, EveryCutIsSeenAndOnlyWholeRecordsAreGiven)
{
    const tBytes stream = ThreeRecords();
    ASSERT_EQ(stream.size(), 96u);
    for (std::size_t unCut = 0; unCut <= stream.size(); ++unCut)
    {
        const stWalk walk = Walk(tBytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(unCut)));
        EXPECT_EQ(walk.types.size(), unCut < 29 ? 0u : unCut < 67 ? 1u : unCut < 96 ? 2u : 3u) << unCut;
        EXPECT_EQ(walk.bGood, unCut == 0 || unCut == 29 || unCut == 67 || unCut == 96) << unCut;
    }
}

TEST(PPCStreamReader, AValueLengthOfNothingOrLessEndsTheWalkThoughRecordsRemain)
{
    for (const std::uint32_t unLength : {0u, 0xffffffffu, 0xffffffe7u, 0xffffffe8u, 0x80000000u})
    {
        tBytes stream = Hex(c_szFloatRecord);
        Append(stream, SerialisedRecord(5, unLength, Hex("00000001")));
        Append(stream, ThreeRecords());
        const stWalk walk = Walk(stream);
        EXPECT_THAT(walk.types, ElementsAre(1)) << unLength;
        EXPECT_FALSE(walk.bGood) << unLength;
    }
}

TEST(PPCStreamReader, AValueLengthPastTheEndIsBad)
{
    for (const std::uint32_t unLength : {5u, 0xffffu, 0x7fffffe6u, 0x7fffffe7u, 0x7fffffffu})
    {
        const stWalk walk = Walk(SerialisedRecord(5, unLength, Hex("00000001")));
        EXPECT_TRUE(walk.types.empty()) << unLength;
        EXPECT_FALSE(walk.bGood) << unLength;
    }
}

TEST(PPCStreamReader, DoesNotLookAtMarkerOrFlag)
{
    tBytes stream = SerialisedRecord(3, 4, Hex("00000001"), 0);
    stream[4] = 0xff;
    Append(stream, SerialisedRecord(5, 4, Hex("00000002"), 0xdeadbeef));
    const stWalk walk = Walk(stream);
    EXPECT_THAT(walk.types, ElementsAre(3, 5));
    EXPECT_TRUE(walk.bGood);
}

TEST(PPCStreamReader, GivesCoordinatesThatNameNoParameter)
{
    const CExactCopy stream(Hex("00000000 00 ffffffff 80000000 7fffffff fffffffe 00000001 2a"));
    CPPCStreamReader reader(stream.Data(), stream.Length());
    ASSERT_TRUE(reader.Next());
    EXPECT_EQ(static_cast<int>(reader.Address().enType), -1);
    EXPECT_EQ(static_cast<int>(reader.Address().enPathType), INT_MIN);
    EXPECT_EQ(reader.Address().nPath, INT_MAX);
    EXPECT_EQ(reader.Address().nParam, -2);
}

TEST(PPCStreamReader, RefusesAValueThatIsTooShortAndLeavesTheResult)
{
    for (std::uint32_t unLength = 1; unLength <= 14; ++unLength)
    {
        const CExactCopy stream(SerialisedRecord(1, unLength, tBytes(unLength, 0x41)));
        CPPCStreamReader reader(stream.Data(), stream.Length());
        float fValue = 2.0f;
        int nValue = 3;
        RyGConsoleString strValue("as it was");
        ASSERT_TRUE(reader.Next());
        EXPECT_EQ(reader.GetValue(fValue), unLength >= 4);
        EXPECT_EQ(reader.GetValue(nValue), unLength >= 4);
        EXPECT_EQ(reader.GetValue(strValue), unLength >= 13);
        EXPECT_EQ(fValue, unLength >= 4 ? 12.078431f : 2.0f);
        EXPECT_EQ(nValue, unLength >= 4 ? 0x41414141 : 3);
        EXPECT_EQ(strValue.Text(), unLength >= 13 ? "AAAAAAAAAAAAA" : "as it was");
    }
}

TEST(PPCStreamReader, HasNoValueBeforeTheFirstRecordNorAfterTheLastNorAfterABadOne)
{
    const auto hasNone = [](const CPPCStreamReader& reader)
    {
        int nValue = 3;
        EXPECT_FALSE(reader.GetValue(nValue));
        EXPECT_EQ(nValue, 3);
    };
    for (const char* szRest : {"", "00"})
    {
        const CExactCopy stream(Hex(c_szIntRecord + std::string(szRest)));
        CPPCStreamReader reader(stream.Data(), stream.Length());
        hasNone(reader);
        EXPECT_TRUE(reader.Next());
        for (int nTry = 0; nTry < 2; ++nTry)
        {
            EXPECT_FALSE(reader.Next());
            hasNone(reader);
        }
    }
}
