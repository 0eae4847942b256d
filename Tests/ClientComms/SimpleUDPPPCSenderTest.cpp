#include "ClientComms/SimpleUDPPPCSender.h"

#include "Runtime/Clock.h"
#include "Support/Blocks.h"
#include "Support/Bytes.h"
#include "Support/InChild.h"
#include "Support/SystemCalls.h"
#include "Support/SystemLibrary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>
#include <vector>

namespace
{

using Support::CSocketRecorder;
using Support::Hex;
using Support::tBytes;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int c_nFirst = CSocketRecorder::nFirstSocket;

// Stops the clock, at a number of seconds and a fraction of the next one.
class CStoppedClock
{
public:
    explicit CStoppedClock(std::int64_t llSeconds)
    {
        s_llNow = llSeconds * 1000000 + 999999;
        CClock::SetSource(&CStoppedClock::Now);
    }
    ~CStoppedClock() { CClock::SetSource(nullptr); }

private:
    static std::int64_t Now() { return s_llNow; }
    static std::int64_t s_llNow;
};

std::int64_t CStoppedClock::s_llNow = 0;

tBytes Part(const tBytes& bytes, int nOffset, int nLength)
{
    return tBytes(bytes.begin() + nOffset, bytes.begin() + nOffset + nLength);
}

// The number that the next descriptor to be opened gets.
int NextDescriptor()
{
    const int nNext = open("/dev/null", O_RDONLY);
    close(nNext);
    return nNext;
}

// An open sender whose datagrams are caught.
class SimpleSender : public testing::Test
{
protected:
    SimpleSender() : m_Clock(0x12345678) { m_Sender.InitComms(); }

    template <typename T>
    tBytes Sent(tagenPPCMessageType enType, int nPathType, int nPath, int nParam, T value, bool bFlag)
    {
        m_Recorder.sent.clear();
        m_Sender.SendPPCMessage(enType, nPathType, nPath, nParam, value, bFlag);
        return m_Recorder.sent.size() == 1 ? m_Recorder.sent[0].bytes : tBytes();
    }

    CStoppedClock m_Clock;
    CSocketRecorder m_Recorder;
    SimpleUDPPPCSender m_Sender;
};

// With the three standard descriptors alone.
TEST(SimpleSenderSocket, LeavesTheStandardDescriptorsOpenWhenThereIsNoneForIt)
{
    const int nResult = Support::InChild(
        []
        {
            for (int nStandard = 0; nStandard < 3; ++nStandard)
            {
                if (fcntl(nStandard, F_GETFD) == -1 && open("/dev/null", O_RDWR) != nStandard)
                {
                    return 1;
                }
            }
            const rlimit three = {3, 3};
            setrlimit(RLIMIT_NOFILE, &three);
            {
                SimpleUDPPPCSender sender;
                if (!sender.InitComms() || !sender.IsOpen())
                {
                    return 2;
                }
                sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
                if (sender.LastSendSucceeded())
                {
                    return 3;
                }
                sender.DeInitComms();
            }
            return fcntl(0, F_GETFD) != -1 && fcntl(1, F_GETFD) != -1 && fcntl(2, F_GETFD) != -1 ? 0 : 4;
        });
    EXPECT_EQ(0, nResult);
}

// The number of the closed socket, now a file's.
TEST(SimpleSenderSocket, LeavesTheFileAloneThatGotItsNumber)
{
    const int nFirst = open("/dev/null", O_RDONLY);
    close(nFirst);
    SimpleUDPPPCSender sender;
    ASSERT_TRUE(sender.InitComms());
    sender.DeInitComms();
    std::FILE* const pFile = std::tmpfile();
    ASSERT_EQ(nFirst, fileno(pFile));
    sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    EXPECT_FALSE(sender.LastSendSucceeded());
    sender.DeInitComms();
    struct stat status = {};
    EXPECT_EQ(0, fstat(nFirst, &status));
    EXPECT_EQ(0, status.st_size);
    ASSERT_TRUE(sender.InitComms());
    sender.DeInitComms();
    EXPECT_EQ(1, std::fputs("x", pFile) >= 0 && std::fflush(pFile) == 0);
    std::fclose(pFile);
}

TEST(SimpleSenderSocket, SendsNoByteOfOldMemory)
{
    const Support::CDirtyMemory dirty;
    const CStoppedClock stopped(0x12345678);
    Support::CSocketRecorder recorder;
    const auto pSender = std::make_unique<SimpleUDPPPCSender>();
    ASSERT_TRUE(pSender->InitComms());
    pSender->SendPPCMessage(enString, 1, 3, 1, RyGConsoleString("Vox"), true);
    ASSERT_EQ(1u, recorder.sent.size());
    EXPECT_EQ(Hex("00000003 12345678 00000001 00000001 00000026"
                  "00000001 00 00000000 00000001 00000003 00000001 0000000d 566f7800000000000000000000"),
              recorder.sent[0].bytes);
    EXPECT_EQ(tBytes(8), tBytes(recorder.sent[0].destination.sin_zero, recorder.sent[0].destination.sin_zero + 8));
}

} // namespace

// ---- The datagram -------------------------------------------------------------------------------------------------------------

TEST_F(SimpleSender, SendsAFloatAs49Bytes)
{
    EXPECT_EQ(Hex("00 00 00 01  12 34 56 78  00 00 00 01  00 00 00 01  00 00 00 1d"
                  "00 00 00 01  00  00 00 00 01  00 00 00 07  00 00 00 8f  00 00 01 17  00 00 00 04"
                  "bf c0 00 00"),
              Sent(enRotary, 7, 143, 279, -1.5f, false));
}

TEST_F(SimpleSender, SendsAnIntAs49Bytes)
{
    EXPECT_EQ(Hex("00 00 00 03  12 34 56 78  00 00 00 01  00 00 00 01  00 00 00 1d"
                  "00 00 00 01  00  00 00 00 05  00 00 00 32  00 00 00 01  00 00 00 00  00 00 00 04"
                  "ff fe fd fc"),
              Sent(enOther, 50, 1, 0, -66052, true));
}

TEST_F(SimpleSender, SendsAStringAs58Bytes)
{
    EXPECT_EQ(Hex("00 00 00 01  12 34 56 78  00 00 00 01  00 00 00 01  00 00 00 26"
                  "00 00 00 01  00  00 00 00 00  00 00 00 01  00 00 00 02  00 00 00 01  00 00 00 0d"
                  "4c 65 61 64 20 56 6f 78 00 00 00 00 00"),
              Sent(enString, 1, 2, 1, RyGConsoleString("Lead Vox"), false));
}

TEST_F(SimpleSender, SendsAllThirteenBytesOfAString)
{
    RyGConsoleString strValue;
    std::memcpy(static_cast<void*>(&strValue),
                "\xff"
                "23456\0"
                "890ab\x80",
                13);

    EXPECT_EQ(Hex("ff 32 33 34 35 36 00 38 39 30 61 62 80"), Part(Sent(enString, 1, 2, 1, strValue, true), 45, 13));
}

TEST_F(SimpleSender, SendsEveryFloatAsItsBigEndianBits)
{
    EXPECT_EQ(Hex("80 00 00 00"), Part(Sent(enFader, 1, 0, 0, -0.0f, false), 45, 4));
    EXPECT_EQ(Hex("00 00 00 01"), Part(Sent(enFader, 1, 0, 0, 1.40129846e-45f, false), 45, 4));
    EXPECT_EQ(Hex("3d 57 94 36"), Part(Sent(enFader, 1, 0, 0, 0.05263158f, false), 45, 4));
    EXPECT_EQ(Hex("c2 c8 00 00"), Part(Sent(enFader, 1, 0, 0, -100.0f, false), 45, 4));
}

TEST_F(SimpleSender, SendsEveryIntBigEndian)
{
    EXPECT_EQ(Hex("80 00 00 00"), Part(Sent(enInteger, 1, 0, 0, INT_MIN, false), 45, 4));
    EXPECT_EQ(Hex("7f ff ff ff"), Part(Sent(enInteger, 1, 0, 0, INT_MAX, false), 45, 4));
    EXPECT_EQ(Hex("00 00 00 00"), Part(Sent(enInteger, 1, 0, 0, 0, false), 45, 4));
}

TEST_F(SimpleSender, SendsTheAddressAsItIsEvenIfNoParameterHasIt)
{
    EXPECT_EQ(Hex("ff ff ff ff  80 00 00 00  ff ff ff fe  7f ff ff ff"),
              Part(Sent(static_cast<tagenPPCMessageType>(-1), INT_MIN, -2, INT_MAX, 0, false), 25, 16));
}

TEST_F(SimpleSender, FlagPicksDatagramType3OverType1ForEveryValueType)
{
    EXPECT_EQ(Hex("00 00 00 03"), Part(Sent(enRotary, 1, 0, 0, 1.0f, true), 0, 4));
    EXPECT_EQ(Hex("00 00 00 01"), Part(Sent(enRotary, 1, 0, 0, 1.0f, false), 0, 4));
    EXPECT_EQ(Hex("00 00 00 03"), Part(Sent(enInteger, 1, 0, 0, 1, true), 0, 4));
    EXPECT_EQ(Hex("00 00 00 01"), Part(Sent(enInteger, 1, 0, 0, 1, false), 0, 4));
    EXPECT_EQ(Hex("00 00 00 03"), Part(Sent(enString, 1, 0, 0, RyGConsoleString(), true), 0, 4));
    EXPECT_EQ(Hex("00 00 00 01"), Part(Sent(enString, 1, 0, 0, RyGConsoleString(), false), 0, 4));
}

TEST_F(SimpleSender, MessageIdIsTheSecondOfEachSend)
{
    EXPECT_EQ(Hex("12 34 56 78"), Part(Sent(enFader, 1, 0, 0, 1.0f, false), 4, 4));
    const CStoppedClock later(0x80000001); // past 2038
    EXPECT_EQ(Hex("80 00 00 01"), Part(Sent(enFader, 1, 0, 0, 1.0f, false), 4, 4));
}

TEST_F(SimpleSender, SendsToTheGroupWithoutFlagsOnItsOwnSocket)
{
    Sent(enFader, 1, 0, 0, 1.0f, false);

    ASSERT_EQ(1u, m_Recorder.sent.size());
    const Support::stSentDatagram& sent = m_Recorder.sent[0];
    EXPECT_EQ(c_nFirst, sent.nSocket);
    EXPECT_EQ(0, sent.nFlags);
    EXPECT_EQ(AF_INET, sent.destination.sin_family);
    EXPECT_EQ(7050, ntohs(sent.destination.sin_port));
    EXPECT_EQ(0xe100002du, ntohl(sent.destination.sin_addr.s_addr)); // 225.0.0.45
}

TEST_F(SimpleSender, SendsEachChangeAsADatagramOfItsOwnInOrder)
{
    for (int nValue = 0; nValue < 3; ++nValue)
    {
        m_Sender.SendPPCMessage(enInteger, 1, 0, 0, nValue, false);
    }
    ASSERT_EQ(3u, m_Recorder.sent.size());
    for (unsigned char ucValue = 0; ucValue < 3; ++ucValue)
    {
        EXPECT_EQ((tBytes{0, 0, 0, ucValue}), Part(m_Recorder.sent[ucValue].bytes, 45, 4));
    }
}

// ---- The result of a send -----------------------------------------------------------------------------------------------------

TEST_F(SimpleSender, LastSendFlagFollowsEverySend)
{
    EXPECT_FALSE(m_Sender.LastSendSucceeded());
    m_Sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    EXPECT_TRUE(m_Sender.LastSendSucceeded());
    m_Recorder.bFailSend = true;
    m_Sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    EXPECT_FALSE(m_Sender.LastSendSucceeded());
    m_Recorder.bFailSend = false;
    m_Sender.SendPPCMessage(enString, 1, 0, 0, RyGConsoleString("x"), false);
    EXPECT_TRUE(m_Sender.LastSendSucceeded());
}

TEST_F(SimpleSender, FilteredChangeIsNotSentAndKeepsTheLastSendFlag)
{
    m_Sender.SendPPCMessage(enInteger, 1, 0, 0, 1, false);
    m_Recorder.bFailSend = true;
    m_Sender.SendPPCMessage(enInteger, 35, 0, 0, 1, true);
    EXPECT_TRUE(m_Sender.LastSendSucceeded());

    m_Sender.SendPPCMessage(enInteger, 1, 0, 0, 1, false);
    m_Recorder.bFailSend = false;
    m_Sender.SendPPCMessage(enInteger, 35, 0, 0, 1, true);
    EXPECT_FALSE(m_Sender.LastSendSucceeded());
    EXPECT_EQ(1u, m_Recorder.sent.size());
}

TEST_F(SimpleSender, FilterHoldsForEveryPathAndEveryValueType)
{
    for (const int nPath : {INT_MIN, -1, 0, 1, 3, INT_MAX})
    {
        m_Sender.SendPPCMessage(enInteger, 39, nPath, 41, 1, false);
        m_Sender.SendPPCMessage(enInteger, 39, nPath, 41, 1.0f, false);
        m_Sender.SendPPCMessage(enInteger, 39, nPath, 41, RyGConsoleString("x"), false);
    }
    EXPECT_THAT(m_Recorder.sent, IsEmpty());
}

TEST(SimpleSenderClosed, SendsNothingBeforeInitComms)
{
    CSocketRecorder recorder;
    SimpleUDPPPCSender sender;

    sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    EXPECT_FALSE(sender.IsOpen());
    EXPECT_FALSE(sender.LastSendSucceeded());
    EXPECT_THAT(recorder.sent, IsEmpty());
    EXPECT_THAT(recorder.opened, IsEmpty());
}

TEST(SimpleSenderClosed, FailuresPrintNothing)
{
    CSocketRecorder recorder;
    recorder.bFailSocket = recorder.bFailSend = true;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    SimpleUDPPPCSender sender;
    sender.InitComms();
    sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    sockaddr_in address;
    sender.ConstructDestinationAddr("nowhere.invalid", 1, address);

    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

// ---- The socket ---------------------------------------------------------------------------------------------------------------

TEST(SimpleSenderSocket, InitCommsOpensOneAndDeInitCommsClosesItButLeavesTheFlag)
{
    CSocketRecorder recorder;
    SimpleUDPPPCSender sender;
    EXPECT_TRUE(sender.InitComms());
    EXPECT_TRUE(sender.IsOpen());
    EXPECT_THAT(recorder.opened, ElementsAre(c_nFirst));
    EXPECT_THAT(recorder.closed, IsEmpty());

    sender.DeInitComms();
    EXPECT_TRUE(sender.IsOpen());
    EXPECT_THAT(recorder.closed, ElementsAre(c_nFirst));
}

TEST(SimpleSenderSocket, FailedSocketIsNotNoticedUntilTheFirstSend)
{
    CSocketRecorder recorder;
    recorder.bFailSocket = recorder.bFailSend = true;
    SimpleUDPPPCSender sender;
    EXPECT_TRUE(sender.InitComms());
    EXPECT_TRUE(sender.IsOpen());
    sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    EXPECT_FALSE(sender.LastSendSucceeded());
}

TEST(SimpleSenderSocket, NeverClosesStandardInput)
{
    CSocketRecorder recorder;
    {
        SimpleUDPPPCSender neverOpened;
        neverOpened.DeInitComms();
        recorder.bFailSocket = true;
        SimpleUDPPPCSender failed;
        failed.InitComms();
        failed.DeInitComms();
    }
    EXPECT_THAT(recorder.closed, testing::Not(testing::Contains(0)));
}

TEST(SimpleSenderSocket, ClosesEachSocketExactlyOnce)
{
    CSocketRecorder recorder;
    {
        SimpleUDPPPCSender sender;
        sender.InitComms();
        sender.InitComms(); // gives up the first
        sender.DeInitComms();
        sender.DeInitComms();
        sender.InitComms(); // left to the destructor
    }
    EXPECT_THAT(recorder.opened, ElementsAre(c_nFirst, c_nFirst + 1, c_nFirst + 2));
    EXPECT_THAT(recorder.closed, ElementsAre(c_nFirst, c_nFirst + 1, c_nFirst + 2));
}

TEST(SimpleSenderSocket, NumberOfAClosedSocketIsNeverUsedAgain)
{
    CSocketRecorder recorder;
    SimpleUDPPPCSender sender;
    sender.InitComms();
    sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    sender.DeInitComms();
    recorder.sent.clear();

    sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    for (const Support::stSentDatagram& sent : recorder.sent)
    {
        EXPECT_EQ(-1, sent.nSocket);
    }
}

TEST(SimpleSenderSocket, SendAfterDeInitCommsFails)
{
    CSocketRecorder recorder;
    SimpleUDPPPCSender sender;
    sender.InitComms();
    sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    EXPECT_TRUE(sender.LastSendSucceeded());
    sender.DeInitComms();
    recorder.bFailSend = true; // as the system does for a closed socket
    sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    EXPECT_FALSE(sender.LastSendSucceeded());
}

TEST(SimpleSenderSocket, IsAUdpSocketWithTheSystemsMulticastDefaults)
{
    const int nSocket = NextDescriptor();
    SimpleUDPPPCSender sender;
    ASSERT_TRUE(sender.InitComms());

    int nType = 0;
    unsigned char ucTTL = 0;
    unsigned char ucLoop = 0;
    socklen_t unSize = sizeof nType;
    EXPECT_EQ(0, getsockopt(nSocket, SOL_SOCKET, SO_TYPE, &nType, &unSize));
    EXPECT_EQ(SOCK_DGRAM, nType);
    EXPECT_NE(0, fcntl(nSocket, F_GETFD) & FD_CLOEXEC); // not for children
    unSize = sizeof ucTTL;
    if (getsockopt(nSocket, IPPROTO_IP, IP_MULTICAST_TTL, &ucTTL, &unSize) == 0) // an emulator may not offer it
    {
        unSize = sizeof ucLoop;
        EXPECT_EQ(0, getsockopt(nSocket, IPPROTO_IP, IP_MULTICAST_LOOP, &ucLoop, &unSize));
        EXPECT_EQ(1, ucTTL);
        EXPECT_EQ(1, ucLoop);
    }
    sender.DeInitComms();
    EXPECT_EQ(-1, fcntl(nSocket, F_GETFD));
    sender.SendPPCMessage(enFader, 1, 0, 0, 1.0f, false);
    EXPECT_FALSE(sender.LastSendSucceeded());
}

TEST(SimpleSenderSocket, TenThousandInitsUseOneDescriptor)
{
    SimpleUDPPPCSender sender;
    sender.InitComms();
    const int nNext = NextDescriptor();
    for (int nRound = 0; nRound < 10000; ++nRound)
    {
        sender.InitComms();
    }
    EXPECT_EQ(nNext, NextDescriptor());
}

TEST(SimpleSenderSocket, IsOwnedByOneSenderThatCanBeDerivedFrom)
{
    EXPECT_TRUE(std::has_virtual_destructor<SimpleUDPPPCSender>::value);
    EXPECT_FALSE(std::is_copy_constructible<SimpleUDPPPCSender>::value);
    EXPECT_FALSE(std::is_copy_assignable<SimpleUDPPPCSender>::value);
}

// ---- The destination ----------------------------------------------------------------------------------------------------------

TEST(SimpleSenderDestination, IsFoundOrNot)
{
    static const struct
    {
        const char* szHost;
        unsigned int unPort;
        bool bFound;
        std::uint32_t unAddress;
        unsigned int unExpectedPort;
    } aCases[] = {{"225.0.0.45", 7050, true, 0xe100002d, 7050},
                  {"127.0.0.1", 0, true, 0x7f000001, 0},
                  {"0.0.0.0", 65535, true, 0, 65535},
                  {"127.1", 65536 + 7050, Support::ReadsShortAddresses(), 0x7f000001, 7050},
                  {nullptr, 7051, true, 0, 7051},
                  {"localhost", 7050, true, 0x7f000001, 7050},
                  {"255.255.255.255", 7050, false, 0, 0}, // reads as no address, and no host has that name
                  {"nowhere.invalid", 7050, false, 0, 0},
                  {"host.of-another-family", 7050, false, 0, 0},
                  {"host.without-addresses", 7050, false, 0, 0},
                  {"", 7050, false, 0, 0}};
    for (const auto& c : aCases)
    {
        SCOPED_TRACE(c.szHost != nullptr ? c.szHost : "null");
        SimpleUDPPPCSender sender;
        sockaddr_in address;
        std::memset(&address, 0xff, sizeof address);
        ASSERT_EQ(c.bFound, sender.ConstructDestinationAddr(c.szHost, c.unPort, address));
        EXPECT_EQ(AF_INET, address.sin_family);
        if (c.bFound)
        {
            EXPECT_EQ(c.unAddress, ntohl(address.sin_addr.s_addr));
            EXPECT_EQ(c.unExpectedPort, ntohs(address.sin_port));
            EXPECT_EQ(tBytes(sizeof address.sin_zero), tBytes(address.sin_zero, address.sin_zero + sizeof address.sin_zero));
        }
    }
}

// ---- The filter ---------------------------------------------------------------------------------------------------------------

TEST(SimpleSenderFilter, HoldsBackExactlyTheListedParameters)
{
    static const struct
    {
        int nType;
        int nPathType;
        int nFirst;
        int nLast;
    } aHeldBack[] = {{2, 0, 5, 6},     {2, 0, 228, 228},          {3, 0, 0, 58},
                     {3, 0, 126, 126}, {3, 14, 32, 32},           {3, 39, 28, 28},
                     {3, 39, 41, 41},  {3, 35, INT_MIN, INT_MAX}, {3, 37, INT_MIN, INT_MAX}};
    std::vector<int> params = {INT_MIN, INT_MAX, 65536, 65536 + 32};
    for (int nParam = -2; nParam < 600; ++nParam)
    {
        params.push_back(nParam);
    }
    SimpleUDPPPCSender sender;
    for (const int nType : {INT_MIN, -1, 0, 1, 2, 3, 4, 5, 6, 7, 258, 259, INT_MAX})
    {
        for (int nPathType = -2; nPathType < 53; ++nPathType)
        {
            for (const int nParam : params)
            {
                bool bHeldBack = false;
                for (const auto& range : aHeldBack)
                {
                    bHeldBack |=
                        nType == range.nType && nPathType == range.nPathType && nParam >= range.nFirst && nParam <= range.nLast;
                }
                ASSERT_EQ(bHeldBack, sender._FilterPacket(static_cast<tagenPPCMessageType>(nType), nPathType, nParam))
                    << nType << " " << nPathType << " " << nParam;
            }
        }
    }
}

TEST(SimpleSenderFilter, EdgesAndTheirNeighbours)
{
    static const struct
    {
        tagenPPCMessageType enType;
        int nPathType;
        int nParam;
        bool bHeldBack;
    } aCases[] = {
        {enSwitch, 0, 4, false},    {enSwitch, 0, 5, true},     {enSwitch, 0, 6, true},          {enSwitch, 0, 7, false},
        {enSwitch, 0, 227, false},  {enSwitch, 0, 228, true},   {enSwitch, 0, 229, false},       {enSwitch, 1, 5, false},
        {enInteger, 0, -1, false},  {enInteger, 0, 0, true},    {enInteger, 0, 1, true},         {enInteger, 0, 57, true},
        {enInteger, 0, 58, true},   {enInteger, 0, 59, false},  {enInteger, 0, 125, false},      {enInteger, 0, 126, true},
        {enInteger, 0, 127, false}, {enInteger, -1, 5, false},  {enInteger, 1, 5, false},        {enInteger, 14, 31, false},
        {enInteger, 14, 32, true},  {enInteger, 14, 33, false}, {enInteger, 13, 32, false},      {enInteger, 15, 32, false},
        {enInteger, 34, 0, false},  {enInteger, 35, 0, true},   {enInteger, 35, 56, true},       {enInteger, 36, 0, false},
        {enInteger, 37, 0, true},   {enInteger, 37, 11, true},  {enInteger, 38, 28, false},      {enInteger, 39, 27, false},
        {enInteger, 39, 28, true},  {enInteger, 39, 29, false}, {enInteger, 39, 40, false},      {enInteger, 39, 41, true},
        {enInteger, 39, 42, false}, {enInteger, 40, 28, false}, {enInteger, INT_MAX, 28, false}, {enOther, 35, 0, false},
        {enRotary, 0, 5, false},    {enFader, 37, 0, false},    {enString, 0, 5, false},         {enMeter, 35, 0, false}};
    SimpleUDPPPCSender sender;
    for (const auto& c : aCases)
    {
        EXPECT_EQ(c.bHeldBack, sender._FilterPacket(c.enType, c.nPathType, c.nParam))
            << c.enType << " " << c.nPathType << " " << c.nParam;
    }
}
