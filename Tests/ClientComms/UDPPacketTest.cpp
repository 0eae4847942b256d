#include "ClientComms/UDPPacket.h"

#include "ClientComms/ImageSync.h"
#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using Support::Append;
using Support::Hex;
using Support::tBytes;

namespace
{

struct stFragment
{
    long lSize;
    tBytes bytes; // header and payload
};

// Fragment nNumber of a message that lies in a heap block of exactly its size.
stFragment Fragment(enDatagramType enType, std::uint32_t unId, const tBytes& message, int nNumber)
{
    const std::unique_ptr<unsigned char[]> pMessage(new unsigned char[message.size()]);
    std::copy(message.begin(), message.end(), pMessage.get());
    const auto pPacket = std::make_unique<UDP_PACKET>();
    std::memset(pPacket.get(), 0xee, sizeof *pPacket);
    const long lSize = MakeFragment(enType, unId, pMessage.get(), static_cast<long>(message.size()), nNumber, *pPacket);
    tBytes bytes(sizeof *pPacket);
    std::memcpy(bytes.data(), pPacket.get(), bytes.size());
    bytes.resize(static_cast<std::size_t>(std::max(lSize, 0L)));
    return {lSize, bytes};
}

// Bytes that differ from one fragment to the next at every place.
tBytes Pattern(std::size_t unLength)
{
    tBytes bytes(unLength);
    for (std::size_t unByte = 0; unByte < unLength; ++unByte)
    {
        bytes[unByte] = static_cast<unsigned char>(unByte * 7 + unByte / 251);
    }
    return bytes;
}

// The update as it travels, of an image in which every block's bytes differ.
tBytes UpdateMessage(MCUpdateType enType)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        void* pMemory = nullptr;
        long lBytes = 0;
        pImage->GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pMemory, lBytes);
        const tBytes pattern = Pattern(static_cast<std::size_t>(lBytes));
        std::memcpy(pMemory, pattern.data(), pattern.size());
    }
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    EXPECT_TRUE(BuildMCUpdate(*pImage, enType, *pMessage));
    tBytes bytes(static_cast<std::size_t>(pMessage->GetTotalSize()));
    unsigned char* pBytes = bytes.data();
    *pMessage >> &pBytes;
    return bytes;
}

// Every fragment has the header written out here and the next part of the message, and none is missing.
void ExpectFragments(const tBytes& message, std::uint32_t unId, const std::vector<std::string>& headers)
{
    const int nCount = static_cast<int>(headers.size());
    EXPECT_EQ(CountFragments(static_cast<long>(message.size())), nCount);
    tBytes joined;
    for (int nNumber = 1; nNumber <= nCount; ++nNumber)
    {
        const stFragment fragment = Fragment(enDatagramMCUpdate, unId, message, nNumber);
        ASSERT_GE(fragment.lSize, 20);
        EXPECT_EQ(tBytes(fragment.bytes.begin(), fragment.bytes.begin() + 20), Hex(headers[static_cast<std::size_t>(nNumber - 1)]));
        joined.insert(joined.end(), fragment.bytes.begin() + 20, fragment.bytes.end());
    }
    EXPECT_TRUE(joined == message);
    EXPECT_EQ(Fragment(enDatagramMCUpdate, unId, message, nCount + 1).lSize, 0);
}

} // namespace

TEST(UDPPacket, IsAHeaderOfTwentyBytesAndAPayloadOf64980)
{
    EXPECT_EQ(sizeof(UDP_PACKET_HEADER), 20u);
    EXPECT_EQ(sizeof(UDP_PACKET), 65000u);
    EXPECT_EQ(c_nDatagramHeader, 20);
    EXPECT_EQ(c_nMaxPayload, 64980);
    EXPECT_EQ(c_nMaxDatagram, 65000);
    EXPECT_EQ(c_nMaxFragments, 5);
    EXPECT_EQ(c_nDatagramTypeLimit, 90);
}

TEST(UDPPacket, FieldsOfTheHeaderAreBigEndian)
{
    UDP_PACKET_HEADER header;
    header.nType = 0x01020304;
    header.unMessageId = 0xfffefdfc;
    header.unPacketNumber = 0x11121314;
    header.unTotal = 0x80000000;
    header.unPayloadLength = 0x21222324;
    tBytes bytes(sizeof header);
    std::memcpy(bytes.data(), &header, sizeof header);
    EXPECT_EQ(bytes, Hex("01020304 fffefdfc 11121314 80000000 21222324"));
}

TEST(UDPPacket, FieldsReadAsNumbersAtAnyAddress)
{
    tBytes bytes = Hex("00 ffffffff 80000001 00000002 00000003 0000fdd4");
    UDP_PACKET_HEADER header;
    std::memcpy(&header, bytes.data() + 1, sizeof header);
    EXPECT_EQ(header.nType, -1);
    EXPECT_EQ(header.unMessageId, 0x80000001u);
    EXPECT_EQ(header.unPacketNumber, 2u);
    EXPECT_EQ(header.unTotal, 3u);
    EXPECT_EQ(header.unPayloadLength, 64980u);
}

TEST(UDPPacket, DatagramTypesAreTheseNumbers)
{
    EXPECT_EQ(enDatagramMCUpdate, 0);
    EXPECT_EQ(enDatagramPPC, 1);
    EXPECT_EQ(enDatagramPPCFlagged, 3);
}

TEST(CountFragments, OfAMessageThatFitsIsOneToFive)
{
    EXPECT_EQ(CountFragments(0), 1);
    EXPECT_EQ(CountFragments(1), 1);
    for (int nCount = 1; nCount <= 5; ++nCount)
    {
        EXPECT_EQ(CountFragments(64980L * nCount), nCount);
        EXPECT_EQ(CountFragments(64980L * (nCount - 1) + 1), nCount);
    }
}

TEST(CountFragments, OfANegativeOrTooLongMessageIsNone)
{
    for (const long lLength : {-1L, -64980L, LONG_MIN, 324901L, 408620L, 0x7fffffffL, LONG_MAX})
    {
        EXPECT_EQ(CountFragments(lLength), 0) << lLength;
    }
}

TEST(MakeFragment, OfAnEmptyMessageIsAHeader)
{
    const stFragment fragment = Fragment(enDatagramMCUpdate, 7, tBytes(), 1);
    EXPECT_EQ(fragment.lSize, 20);
    EXPECT_EQ(fragment.bytes, Hex("00000000 00000007 00000001 00000001 00000000"));
    const auto pPacket = std::make_unique<UDP_PACKET>();
    EXPECT_EQ(MakeFragment(enDatagramMCUpdate, 7, nullptr, 0, 1, *pPacket), 20);
}

TEST(MakeFragment, OfASmallMessageIsOneDatagram)
{
    EXPECT_EQ(Fragment(enDatagramPPC, 0xffffffff, Hex("0102fe"), 1).bytes,
              Hex("00000001 ffffffff 00000001 00000001 00000003 0102fe"));
    EXPECT_EQ(Fragment(enDatagramPPCFlagged, 0x80000000, Hex("aa"), 1).bytes,
              Hex("00000003 80000000 00000001 00000001 00000001 aa"));
}

TEST(MakeFragment, FillsADatagramBeforeItStartsTheNext)
{
    const tBytes message = Pattern(64981);
    tBytes expected = Hex("00000000 00000009 00000001 00000002 0000fdd4");
    Append(expected, tBytes(message.begin(), message.end() - 1));
    const stFragment first = Fragment(enDatagramMCUpdate, 9, message, 1);
    EXPECT_EQ(first.lSize, 65000);
    EXPECT_TRUE(first.bytes == expected);
    tBytes last = Hex("00000000 00000009 00000002 00000002 00000001");
    last.push_back(message.back());
    EXPECT_EQ(Fragment(enDatagramMCUpdate, 9, message, 2).bytes, last);
}

TEST(MakeFragment, MakesNoneThatDoesNotExist)
{
    for (const int nNumber : {0, -1, 2, 5, 6, INT_MIN, INT_MAX})
    {
        EXPECT_EQ(Fragment(enDatagramMCUpdate, 1, Pattern(64980), nNumber).lSize, 0) << nNumber;
    }
    for (int nNumber = 1; nNumber <= 6; ++nNumber)
    {
        EXPECT_EQ(Fragment(enDatagramMCUpdate, 1, Pattern(324901), nNumber).lSize, 0) << nNumber;
    }
    const tBytes message = Pattern(10);
    const auto pPacket = std::make_unique<UDP_PACKET>();
    EXPECT_EQ(MakeFragment(enDatagramMCUpdate, 1, message.data(), -1, 1, *pPacket), 0);
    EXPECT_EQ(MakeFragment(enDatagramMCUpdate, 1, message.data(), LONG_MIN, 1, *pPacket), 0);
}

TEST(MakeFragment, CutsASurfaceUpdateIntoTwo)
{
    const tBytes message = UpdateMessage(enMCUpdateSurface);
    ASSERT_EQ(message.size(), 106449u);
    EXPECT_EQ(tBytes(message.begin(), message.begin() + 21), Hex("00000001 00 00000000 00000001 00019fc0 000043ba"));
    ExpectFragments(message, 0x5f3759df,
                    {"00000000 5f3759df 00000001 00000002 0000fdd4", "00000000 5f3759df 00000002 00000002 0000a1fd"});
}

TEST(MakeFragment, CutsARotaryUpdateIntoFive)
{
    const tBytes message = UpdateMessage(enMCUpdateRotary);
    ASSERT_EQ(message.size(), 302188u);
    EXPECT_EQ(tBytes(message.begin(), message.begin() + 21), Hex("00000001 00 00000000 00000002 00049c5b 0000a003"));
    ExpectFragments(message, 0xfffffffe,
                    {"00000000 fffffffe 00000001 00000005 0000fdd4", "00000000 fffffffe 00000002 00000005 0000fdd4",
                     "00000000 fffffffe 00000003 00000005 0000fdd4", "00000000 fffffffe 00000004 00000005 0000fdd4",
                     "00000000 fffffffe 00000005 00000005 0000a51c"});
}

TEST(MakeFragment, RefusesAMessageThatIsNotThereHoweverShort)
{
    const auto pPacket = std::make_unique<UDP_PACKET>();
    EXPECT_EQ(MakeFragment(enDatagramMCUpdate, 7, nullptr, 1, 1, *pPacket), 0);
}

TEST(MakeFragment, OfAMessageRightBehindThePacketIsItsOwnPart)
{
    const std::size_t unMessage = 64981;
    std::vector<UDP_PACKET> packets(3); // the first is filled, the message begins where its payload ends
    const tBytes message = Pattern(unMessage);
    unsigned char* pMessage = reinterpret_cast<unsigned char*>(packets.data()) + sizeof(UDP_PACKET);
    std::memcpy(pMessage, message.data(), unMessage);
    std::memset(&packets[0], 0xee, sizeof packets[0]);
    EXPECT_EQ(MakeFragment(enDatagramMCUpdate, 7, pMessage, static_cast<long>(unMessage), 2, packets[0]), 21);
    EXPECT_EQ(packets[0].acPayload[0], message.back());
}
