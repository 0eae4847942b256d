#include "Network/Capture.h"

#include "Support/Bytes.h"
#include "Support/ScratchFile.h"
#include "Support/SystemCalls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace
{

using Support::Append;
using Support::CScratchFile;
using Support::tBytes;

const stEndpoint c_MC = {0x0a000001, 40000};
const stEndpoint c_Group = {0xe100002e, 7060};

stDatagram MakeDatagram(std::int64_t nTime, const std::string& strText)
{
    return {nTime, c_MC, c_Group, {strText.begin(), strText.end()}};
}

struct stRead
{
    std::string strError;
    stTrafficLoss loss;
    std::vector<std::string> texts;
    bool bEnd = false;
    stCaptureEnd end;
};

stRead ReadAll(const CScratchFile& file)
{
    stRead read;
    CCaptureFile capture;
    read.strError = capture.Open(file.Name());
    for (stDatagram datagram; read.strError.empty() && capture.Next(datagram, 0);)
    {
        EXPECT_EQ(c_Group, datagram.destination);
        read.texts.emplace_back(datagram.bytes.begin(), datagram.bytes.end());
    }
    read.strError += capture.GetError();
    read.loss = capture.GetLoss();
    read.bEnd = capture.GetEnd() != nullptr;
    read.end = read.bEnd ? *capture.GetEnd() : stCaptureEnd();
    return read;
}

// A capture of big-endian numbers, on a link of this type.
tBytes BigEndianCapture(std::uint32_t unLinkType, const std::vector<tBytes>& packets)
{
    tBytes capture = {0xa1, 0xb2, 0xc3, 0xd4, 0, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0};
    Support::AppendBig(capture, unLinkType);
    for (const tBytes& packet : packets)
    {
        const unsigned char ucSize = static_cast<unsigned char>(packet.size());
        Append(capture, {0, 0, 0, 7, 0, 0, 0, 5, 0, 0, 0, ucSize, 0, 0, 0, ucSize});
        Append(capture, packet);
    }
    return capture;
}

// 10.0.0.1:40000 to 225.0.0.46:7060; the words of the IP header that tell of fragments are the caller's.
tBytes Packet(unsigned char ucFlags, unsigned char ucOffset, const tBytes& data)
{
    tBytes packet = {
        0x45, 0, 0, static_cast<unsigned char>(20 + data.size()), 0x12, 0x34, ucFlags, ucOffset, 1, 17, 0, 0, 10, 0, 0, 1, 225,
        0,    0, 46};
    Append(packet, data);
    return packet;
}

const tBytes c_UDPHeaderOfThree = {0x9c, 0x40, 0x1b, 0x94, 0, 11, 0, 0};

tBytes Whole()
{
    tBytes data = c_UDPHeaderOfThree;
    Append(data, {'a', 'b', 'c'});
    return Packet(0, 0, data);
}

tBytes Framed(tBytes frame, const tBytes& packet)
{
    Append(frame, packet);
    return frame;
}

} // namespace

TEST(Capture, WhatWasWrittenIsReadWithItsTimesAndAddresses)
{
    const CScratchFile file;
    CCaptureWriter writer;
    ASSERT_EQ("", writer.Open(file.Name()));
    EXPECT_EQ("", writer.Write(MakeDatagram(1234567890123456, "one")));
    EXPECT_EQ("", writer.Write(MakeDatagram(1234567890123457, std::string(65507, 'x'))));
    EXPECT_EQ("", writer.Flush());

    CCaptureFile capture;
    stDatagram datagram;
    ASSERT_EQ("", capture.Open(file.Name()));
    ASSERT_TRUE(capture.Next(datagram, 0));
    EXPECT_EQ(1234567890123456, datagram.nTime);
    EXPECT_EQ(c_MC, datagram.source);
    EXPECT_EQ(c_Group, datagram.destination);
    EXPECT_EQ(tBytes({'o', 'n', 'e'}), datagram.bytes);
    ASSERT_TRUE(capture.Next(datagram, 0));
    EXPECT_EQ(1234567890123457, datagram.nTime);
    EXPECT_EQ(65507u, datagram.bytes.size());
    EXPECT_FALSE(capture.Next(datagram, 0));
    EXPECT_TRUE(capture.IsOver());
    EXPECT_EQ("", capture.GetError());
    EXPECT_EQ(nullptr, capture.GetEnd());
}

// As the usual packet tools take it.
TEST(Capture, WhatIsWrittenIsAPacketWithAGoodHeaderSum)
{
    const CScratchFile file;
    CCaptureWriter writer;
    ASSERT_EQ("", writer.Open(file.Name()));
    EXPECT_EQ("", writer.Write(MakeDatagram(1, "abc")));
    EXPECT_EQ("", writer.Write({2, {0xfffed8f0, 65535}, {0xe0ffffff, 65535}, tBytes(65507, 0xff)}));
    EXPECT_EQ("", writer.Flush());
    const tBytes written = file.Read();
    constexpr std::ptrdiff_t c_nFirst = 24 + 16;
    constexpr std::ptrdiff_t c_nSecond = c_nFirst + 28 + 3 + 16;
    ASSERT_EQ(c_nSecond + 65535u, written.size());
    EXPECT_EQ(Support::Hex("45 00 001f 0000 0000 01 11 ce9f 0a000001 e100002e 9c40 1b94 000b 0000 616263"),
              tBytes(written.begin() + c_nFirst, written.begin() + c_nFirst + 31));
    EXPECT_EQ(Support::Hex("45 00 ffff 0000 0000 01 11 fffe fffed8f0 e0ffffff ffff ffff ffeb 0000 ff"),
              tBytes(written.begin() + c_nSecond, written.begin() + c_nSecond + 29));
}

TEST(Capture, TheEndOfARecordingIsToldAndNoDatagram)
{
    const CScratchFile file;
    CCaptureWriter writer;
    ASSERT_EQ("", writer.Open(file.Name()));
    EXPECT_EQ("", writer.Write(MakeDatagram(1, "one")));
    const std::uint32_t aunCheckWords[c_nMessageTypes] = {1, 2, 3, 4, 5, 6, 0xffffffff};
    EXPECT_EQ("", writer.Finish(aunCheckWords, 7));

    const stRead read = ReadAll(file);
    EXPECT_EQ("", read.strError);
    EXPECT_EQ(std::vector<std::string>({"one"}), read.texts);
    ASSERT_TRUE(read.bEnd);
    EXPECT_EQ(1, read.end.lDatagrams);
    EXPECT_EQ(7u, read.end.unDropped);
    EXPECT_EQ(7u, read.loss.unKernel);
    EXPECT_EQ(0u, read.loss.unSize);
    EXPECT_TRUE(std::equal(std::begin(aunCheckWords), std::end(aunCheckWords), read.end.aunCheckWords));
}

// As older recordings have it.
TEST(Capture, TheEndIsATextToThisMachinesDiscardPort)
{
    const CScratchFile file;
    const std::string strEnd = "consolectl: end of recording, datagrams 1, dropped 7, check words 1 2 3 4 5 6 ffffffff";
    for (const auto& [end, bIsIt] : {std::pair<stEndpoint, bool>{{0x7f000001, 9}, true}, {{0xe100002e, 7060}, false}})
    {
        std::remove(file.Name().c_str());
        CCaptureWriter writer;
        ASSERT_EQ("", writer.Open(file.Name()));
        EXPECT_EQ("", writer.Write({1, {0x7f000001, 0}, end, {strEnd.begin(), strEnd.end()}}));
        EXPECT_EQ("", writer.Flush());
        const stRead read = ReadAll(file);
        EXPECT_EQ(bIsIt, read.bEnd);
        EXPECT_EQ(bIsIt ? 7u : 0u, read.loss.unKernel);
        EXPECT_EQ(std::vector<std::string>(bIsIt ? 0 : 1, strEnd), read.texts);
    }
    std::remove(file.Name().c_str());
    CCaptureWriter writer;
    ASSERT_EQ("", writer.Open(file.Name()));
    EXPECT_EQ("", writer.Write(MakeDatagram(1, "one")));
    const std::uint32_t aunCheckWords[c_nMessageTypes] = {1, 2, 3, 4, 5, 6, 0xffffffff};
    EXPECT_EQ("", writer.Finish(aunCheckWords, 7));
    const tBytes written = file.Read();
    EXPECT_EQ(strEnd, std::string(written.end() - static_cast<std::ptrdiff_t>(strEnd.size()), written.end()));
    const std::ptrdiff_t nHeaders = static_cast<std::ptrdiff_t>(strEnd.size()) + 16; // addresses and ports, length and sum
    EXPECT_EQ(Support::Hex("7f000001 7f000001 0000 0009"), tBytes(written.end() - nHeaders, written.end() - nHeaders + 12));
}

TEST(Capture, WhatIsWrittenIsInTheFileATenthOfASecondLater)
{
    const CScratchFile file;
    Support::CSteadyTime time;
    CCaptureWriter writer;
    ASSERT_EQ("", writer.Open(file.Name()));
    constexpr std::size_t c_unPacket = 16 + 28 + 3;
    for (const auto& [nPassed, unPackets] : {std::pair<int, std::size_t>{0, 0}, {99, 0}, {1, 3}, {0, 3}, {100, 5}})
    {
        time.Pass(std::chrono::milliseconds(nPassed));
        EXPECT_EQ("", writer.Write(MakeDatagram(1, "abc")));
        EXPECT_EQ(24 + unPackets * c_unPacket, file.Read().size());
    }
    EXPECT_EQ(5, writer.GetDatagrams());
}

TEST(Capture, TellsHowMuchOfItHasBeenRead)
{
    const CScratchFile file;
    file.Write(BigEndianCapture(12, {Whole(), Whole()}));
    CCaptureFile capture;
    stDatagram datagram;
    EXPECT_EQ(0, capture.GetPosition());
    ASSERT_EQ("", capture.Open(file.Name()));
    constexpr long c_lPacket = 16 + 28 + 3;
    EXPECT_EQ(24 + 2 * c_lPacket, capture.GetSize());
    for (const long lRead : {0L, 1L, 2L})
    {
        EXPECT_EQ(24 + lRead * c_lPacket, capture.GetPosition());
        EXPECT_EQ(lRead < 2, capture.Next(datagram, 0));
    }
}

TEST(Capture, WhatIsLongerThanAnyDatagramIsNotWritten)
{
    const CScratchFile file;
    CCaptureWriter writer;
    ASSERT_EQ("", writer.Open(file.Name()));
    EXPECT_EQ("a datagram is too long to be recorded", writer.Write(MakeDatagram(1, std::string(65508, 'x'))));
    EXPECT_EQ("", writer.Flush());
    EXPECT_EQ(24u, file.Read().size());
}

TEST(Capture, AFileThatIsThereIsNotWrittenTo)
{
    const CScratchFile file;
    file.Write({'m', 'i', 'n', 'e'});
    CCaptureWriter writer;
    EXPECT_EQ(file.Name() + ": " + std::strerror(EEXIST), writer.Open(file.Name()));
    EXPECT_EQ(tBytes({'m', 'i', 'n', 'e'}), file.Read());
}

TEST(Capture, OneThatWasBrokenOffAnywhereGivesWhatIsWholeAndSaysSo)
{
    const CScratchFile file;
    {
        CCaptureWriter writer;
        ASSERT_EQ("", writer.Open(file.Name()));
        EXPECT_EQ("", writer.Write(MakeDatagram(1, "one")));
        EXPECT_EQ("", writer.Write(MakeDatagram(2, "two")));
        const std::uint32_t aunCheckWords[c_nMessageTypes] = {};
        EXPECT_EQ("", writer.Finish(aunCheckWords, 7));
    }
    const tBytes whole = file.Read();
    constexpr std::size_t c_unFileHeader = 24;
    constexpr std::size_t c_unPacket = 16 + 28 + 3;
    for (std::size_t unLength = 0; unLength < whole.size(); ++unLength)
    {
        file.Write(tBytes(whole.begin(), whole.begin() + static_cast<long>(unLength)));
        const stRead read = ReadAll(file);
        const std::size_t unPackets =
            unLength < c_unFileHeader ? 0 : std::min<std::size_t>((unLength - c_unFileHeader) / c_unPacket, 2);
        EXPECT_EQ(unPackets, read.texts.size()) << unLength;
        const bool bBetweenPackets =
            unLength == c_unFileHeader || unLength == c_unFileHeader + c_unPacket || unLength == c_unFileHeader + 2 * c_unPacket;
        EXPECT_EQ(bBetweenPackets, read.strError.empty()) << unLength;
        EXPECT_FALSE(read.bEnd) << unLength;
    }
}

TEST(Capture, NoFlippedBitIsMoreThanAnotherCapture)
{
    const CScratchFile file;
    const tBytes good = BigEndianCapture(12, {Whole(), Packet(0x20, 0, c_UDPHeaderOfThree), Packet(0, 1, {'a', 'b', 'c'})});
    for (std::size_t unBit = 0; unBit < good.size() * 8; ++unBit)
    {
        tBytes bad = good;
        bad[unBit / 8] = static_cast<unsigned char>(bad[unBit / 8] ^ 1u << unBit % 8);
        file.Write(bad);
        CCaptureFile capture;
        int nDatagrams = 0;
        if (capture.Open(file.Name()).empty())
        {
            for (stDatagram datagram; capture.Next(datagram, 0);)
            {
                ++nDatagrams;
            }
        }
        EXPECT_LE(nDatagrams, 3) << unBit;
    }
}

TEST(Capture, TheNetworksFragmentsAreJoinedWhateverTheirOrder)
{
    const CScratchFile file;
    const tBytes first = Packet(0x20, 0, c_UDPHeaderOfThree);
    const tBytes last = Packet(0, 1, {'a', 'b', 'c'});
    for (const std::vector<tBytes>& packets : {std::vector<tBytes>{first, last}, {last, first}, {first, Whole(), last}})
    {
        file.Write(BigEndianCapture(12, packets));
        EXPECT_EQ(std::vector<std::string>(packets.size() - 1, "abc"), ReadAll(file).texts);
    }
    // One that comes twice is none that is missing.
    for (const std::vector<tBytes>& packets : {std::vector<tBytes>{first, first}, {last, last}, {first, first, first}})
    {
        file.Write(BigEndianCapture(12, packets));
        EXPECT_EQ(std::vector<std::string>(), ReadAll(file).texts);
    }
    file.Write(BigEndianCapture(12, {first, last, last}));
    EXPECT_EQ(std::vector<std::string>({"abc"}), ReadAll(file).texts);
    EXPECT_EQ(0u, ReadAll(file).loss.unSize);
}

TEST(Capture, FragmentsAreJoinedWithTheirOwnAndNoneMayLack)
{
    const CScratchFile file;
    const tBytes header = {0x9c, 0x40, 0x1b, 0x94, 0, 19, 0, 0};
    const tBytes first = Packet(0x20, 0, header);
    const tBytes middle = Packet(0x20, 1, {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'});
    const tBytes last = Packet(0, 2, {'i', 'j', 'k'});
    file.Write(BigEndianCapture(12, {first, last}));
    EXPECT_EQ(std::vector<std::string>(), ReadAll(file).texts);
    file.Write(BigEndianCapture(12, {first, last, middle}));
    EXPECT_EQ(std::vector<std::string>({"abcdefghijk"}), ReadAll(file).texts);

    for (const std::size_t unPlace : {4u, 5u, 12u, 15u, 16u, 19u}) // of the datagram's number, its source and its destination
    {
        tBytes others = Packet(0, 2, {'I', 'J', 'K'});
        others[unPlace] = static_cast<unsigned char>(others[unPlace] ^ 1);
        file.Write(BigEndianCapture(12, {first, middle, others, last}));
        EXPECT_EQ(std::vector<std::string>({"abcdefghijk"}), ReadAll(file).texts) << unPlace;
    }
    file.Write(BigEndianCapture(12, {first, middle, Packet(0x1f, 0xff, tBytes(8)), last})); // beyond the longest
    EXPECT_EQ(std::vector<std::string>({"abcdefghijk"}), ReadAll(file).texts);
}

TEST(Capture, MassesThatAreNeverWholeKeepNothingElseOut)
{
    const CScratchFile file;
    std::vector<tBytes> packets;
    for (int nId = 0; nId < 100; ++nId)
    {
        packets.push_back(Packet(0x20, 0, c_UDPHeaderOfThree));
        packets.back()[5] = static_cast<unsigned char>(nId);
        packets.back()[12] = 200; // from a higher address
    }
    packets.push_back(Packet(0x20, 0, c_UDPHeaderOfThree));
    packets.push_back(Packet(0, 1, {'a', 'b', 'c'}));
    file.Write(BigEndianCapture(12, packets));
    const stRead read = ReadAll(file);
    EXPECT_EQ(std::vector<std::string>({"abc"}), read.texts);
    EXPECT_EQ(37u, read.loss.unSize); // 64 at a time are waited for
}

TEST(Capture, FramesOfEachKindOfLinkAreReadAndWhatIsNoIPIsPassedOver)
{
    const tBytes ethernet(12, 7);
    const tBytes cooked(14, 7);
    const CScratchFile file;
    for (const auto& [unLinkType, packet] : {std::pair<std::uint32_t, tBytes>{1, Framed(Framed(ethernet, {8, 0}), Whole())},
                                             {113, Framed(Framed(cooked, {8, 0}), Whole())},
                                             {276, Framed(Framed({8, 0}, tBytes(18, 7)), Whole())},
                                             {0, Framed({0, 0, 0, 2}, Whole())},
                                             {101, Whole()}})
    {
        file.Write(BigEndianCapture(unLinkType, {packet}));
        EXPECT_EQ(std::vector<std::string>({"abc"}), ReadAll(file).texts) << unLinkType;
    }
    const tBytes tag = {0x81, 0, 0, 7};
    const tBytes outerTag = {0x88, 0xa8, 0, 8};
    const tBytes oldTag = {0x91, 0, 0, 8};
    const tBytes tagged = Framed(Framed(Framed(Framed(ethernet, oldTag), outerTag), tag), {8, 0});
    file.Write(BigEndianCapture(1, {Framed(tagged, Whole())}));
    EXPECT_EQ(std::vector<std::string>({"abc"}), ReadAll(file).texts);
    for (std::size_t unLength = 0; unLength < tagged.size(); ++unLength)
    {
        file.Write(BigEndianCapture(1, {tBytes(tagged.begin(), tagged.begin() + static_cast<std::ptrdiff_t>(unLength))}));
        EXPECT_EQ(std::vector<std::string>(), ReadAll(file).texts) << unLength;
    }
    file.Write(BigEndianCapture(1, {Framed(Framed(ethernet, {0x86, 0xdd}), Whole())}));
    EXPECT_EQ(std::vector<std::string>(), ReadAll(file).texts);
    file.Write(BigEndianCapture(105, {Whole()}));
    EXPECT_NE(std::string::npos, ReadAll(file).strError.find("on a link of type 105, which isn't read"));
}

TEST(Capture, LengthsThatLieAreNotBelieved)
{
    const CScratchFile file;
    for (const std::size_t unPlace : {std::size_t(3), std::size_t(20 + 5)}) // of the packet, and of its UDP part
    {
        tBytes packet = Whole();
        packet[unPlace] = 0xff;
        file.Write(BigEndianCapture(12, {packet, Whole()}));
        EXPECT_EQ(std::vector<std::string>({"abc"}), ReadAll(file).texts) << unPlace;
        EXPECT_EQ(unPlace == 3 ? 0u : 1u, ReadAll(file).loss.unSize) << unPlace;
    }
    tBytes packet = Whole();
    packet[0] = 0x4f; // a header longer than the packet
    file.Write(BigEndianCapture(12, {packet}));
    EXPECT_EQ(std::vector<std::string>(), ReadAll(file).texts);

    tBytes padded = Whole();
    Append(padded, tBytes(9));
    file.Write(BigEndianCapture(12, {padded}));
    EXPECT_EQ(std::vector<std::string>({"abc"}), ReadAll(file).texts);
    padded[20 + 5] += 1; // of the UDP part, into the padding
    file.Write(BigEndianCapture(12, {padded}));
    EXPECT_EQ(std::vector<std::string>(), ReadAll(file).texts);
}

TEST(Capture, WhatIsNoUDPOverIPv4IsPassedOver)
{
    const CScratchFile file;
    for (const auto& [unPlace, ucByte] : {std::pair<std::size_t, unsigned char>{0, 0x65}, {0, 0x44}, {9, 6}, {9, 16}})
    {
        tBytes packet = Whole();
        packet[unPlace] = ucByte;
        file.Write(BigEndianCapture(12, {packet, Packet(0, 0, {1, 2, 3}), Packet(0, 0, {}), Whole()}));
        EXPECT_EQ(std::vector<std::string>({"abc"}), ReadAll(file).texts) << unPlace;
        EXPECT_EQ(0u, ReadAll(file).loss.unSize) << unPlace;
    }
}

TEST(Capture, PacketsThatWereCutShortAreCounted)
{
    const CScratchFile file;
    for (const auto& [unLinkType, whole] :
         {std::pair<std::uint32_t, tBytes>{12, Whole()}, {1, Framed(Framed(tBytes(12, 7), {8, 0}), Whole())}})
    {
        for (std::size_t unLeft = 0; unLeft <= whole.size(); ++unLeft)
        {
            const tBytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(unLeft));
            tBytes capture = BigEndianCapture(unLinkType, {cut, whole});
            capture[24 + 15] = static_cast<unsigned char>(whole.size()); // what there was of the first on the network
            file.Write(capture);
            const stRead read = ReadAll(file);
            const bool bCut = unLeft < whole.size();
            EXPECT_EQ(std::vector<std::string>(bCut ? 1 : 2, "abc"), read.texts) << unLeft;
            EXPECT_EQ(bCut ? 1u : 0u, read.loss.unSize) << unLeft;
            EXPECT_EQ(0u, read.loss.unKernel) << unLeft;
        }
    }
}

TEST(Capture, WhatIsNoCaptureIsRefused)
{
    const CScratchFile file;
    EXPECT_EQ(file.Name() + ": there is no such file", ReadAll(file).strError);
    CCaptureFile folder;
    EXPECT_EQ("/: not a file", folder.Open("/"));
    file.Write({'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd'});
    EXPECT_NE(std::string::npos, ReadAll(file).strError.find("no capture file"));
}
