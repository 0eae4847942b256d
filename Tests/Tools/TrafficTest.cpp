#include "Network/Traffic.h"
#include "Network/Capture.h"

#include "Support/Bytes.h"
#include "Support/Network.h"
#include "Support/ScratchFile.h"
#include "Support/SystemCalls.h"
#include "Terminal/Common.h"

#include "LogicalControls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace
{

using Support::tBytes;

const stEndpoint c_Changes = {0xe100002d, 7050};
constexpr double c_dPatience = 5; // seconds; nothing takes as long

// Live traffic of a group of its own and of the clients' changes, and who sends both.
class LiveTraffic : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!Support::IsOwnNetwork())
        {
            GTEST_SKIP() << "not in a network namespace of its own";
        }
        m_pTurn = std::make_unique<Support::CNetworkTurn>();
        ASSERT_TRUE(m_pTurn->Has());
        ASSERT_TRUE(m_Sender.InitialiseLocalSockets(0, "127.0.0.1", nullptr, 1));
        m_Link.unPort = m_Sender.GetLocalPort(); // which nobody else has
        m_Group = MakeEndpoint(m_Link.strGroup, m_Link.unPort);
        ASSERT_EQ("", m_Traffic.Open(m_Link));
    }

    void Send(const stEndpoint& group, const tBytes& bytes)
    {
        EXPECT_TRUE(m_Sender.Send(group.AddressText().c_str(), group.usPort, reinterpret_cast<const char*>(bytes.data()),
                                  static_cast<long>(bytes.size())));
    }

    // Of this test's own sender.
    bool Receive(stDatagram& datagram, double dSeconds = c_dPatience)
    {
        const tSteadyClock::time_point start = tSteadyClock::now();
        while (m_Traffic.Next(datagram, std::max(dSeconds - SecondsSince(start), 0.0)))
        {
            if (datagram.source == stEndpoint({0x7f000001, static_cast<unsigned short>(m_Link.unPort)}))
            {
                return true;
            }
        }
        return false;
    }

    // How many get lost when nobody takes any of so many large datagrams before all are sent. Then small ones, each of another
    // length, until the one that was sent last comes: it brings the kernel's count.
    std::uint32_t Lost(const stEndpoint& group, std::uint32_t unLarge)
    {
        for (std::uint32_t unDatagram = 0; unDatagram < unLarge; ++unDatagram)
        {
            Send(group, tBytes(65000));
        }
        std::uint32_t unCame = 0;
        for (std::uint32_t unSmall = 1; unSmall <= 100; ++unSmall)
        {
            Send(group, tBytes(unSmall));
            for (stDatagram datagram; Receive(datagram, 0.01);)
            {
                EXPECT_EQ(group, datagram.destination);
                ++unCame;
                if (datagram.bytes.size() == unSmall)
                {
                    return unLarge + unSmall - unCame;
                }
            }
        }
        ADD_FAILURE() << "nothing comes through";
        return 0;
    }

    std::uint32_t TooMany() const { return 2 * static_cast<std::uint32_t>(m_Traffic.GetReceiveBufferSize()) / 65000 + 10; }

    std::unique_ptr<Support::CNetworkTurn> m_pTurn; // the clients' group is the same for all
    RySocketIO::CSocket m_Sender{RySocketIO::enConnectionUDP, false, false};
    stMulticastLink m_Link = {"239.1.1.5", 0, "127.0.0.1"};
    stEndpoint m_Group;
    CLiveTraffic m_Traffic;
};

// What the reader of a recording is told.
stTrafficLoss Recorded(const stTrafficLoss& loss)
{
    const Support::CScratchFile file;
    CCaptureWriter writer;
    CCaptureFile capture;
    stDatagram datagram;
    const std::uint32_t aunCheckWords[c_nMessageTypes] = {};
    EXPECT_EQ("", writer.Open(file.Name()));
    EXPECT_EQ("", writer.Finish(aunCheckWords, loss.unKernel));
    EXPECT_EQ("", capture.Open(file.Name()));
    EXPECT_FALSE(capture.Next(datagram, 0));
    return capture.GetLoss();
}

} // namespace

TEST_F(LiveTraffic, GivesEachDatagramWholeWithItsAddresses)
{
    stDatagram datagram;
    EXPECT_FALSE(Receive(datagram, 0));
    for (const std::size_t unSize : {3u, 65507u, 0u, 1u})
    {
        Send(m_Group, tBytes(unSize, 'a'));
        ASSERT_TRUE(Receive(datagram)) << unSize;
        EXPECT_EQ(tBytes(unSize, 'a'), datagram.bytes);
        EXPECT_EQ(m_Group, datagram.destination);
    }
    EXPECT_EQ(0u, m_Traffic.GetLoss().unKernel);
    EXPECT_EQ(0u, m_Traffic.GetLoss().unSize);
    EXPECT_FALSE(m_Traffic.IsOver());
    EXPECT_EQ("", m_Traffic.GetError());
}

// Kernels begin to look at the time a little after they were asked to.
TEST_F(LiveTraffic, TheTimeOfADatagramIsThatOfItsArrival)
{
    bool bTold = false;
    for (int nTry = 0; nTry < 100 && !bTold; ++nTry)
    {
        const std::int64_t nBefore = TimeNow();
        Send(m_Group, {'a'});
        const std::int64_t nAfter = TimeNow();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        stDatagram datagram;
        ASSERT_TRUE(Receive(datagram));
        EXPECT_LE(nBefore, datagram.nTime);
        bTold = datagram.nTime < nAfter + 5000;
    }
    EXPECT_TRUE(bTold);
}

TEST_F(LiveTraffic, WhatComesToThePortForAnotherGroupStaysAway)
{
    const stEndpoint other = MakeEndpoint("239.1.1.6", m_Link.unPort);
    CLiveTraffic otherTraffic; // whose group the machine hears from now on
    ASSERT_EQ("", otherTraffic.Open({"239.1.1.6", m_Link.unPort, "127.0.0.1"}));
    Send(other, {'a'});
    Send(m_Group, {'b'});
    stDatagram datagram;
    ASSERT_TRUE(Receive(datagram));
    EXPECT_EQ(tBytes({'b'}), datagram.bytes);
    EXPECT_FALSE(Receive(datagram, 0));
}

TEST_F(LiveTraffic, WaitsNoLongerThanItIsTold)
{
    stDatagram datagram;
    const tSteadyClock::time_point start = tSteadyClock::now();
    EXPECT_FALSE(Receive(datagram, 0.05));
    EXPECT_LE(0.05, SecondsSince(start));
    EXPECT_GT(c_dPatience, SecondsSince(start));
}

TEST_F(LiveTraffic, AsksForFourMebibytes)
{
    EXPECT_GE(m_Traffic.GetReceiveBufferSize(), Support::MostReceiveBuffer());
    EXPECT_EQ(0, CLiveTraffic().GetReceiveBufferSize());
}

TEST_F(LiveTraffic, WhatComesWhileItWaitsEndsTheWait)
{
    std::thread later(
        [this]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            Send(m_Group, {'a'});
        });
    stDatagram datagram;
    const tSteadyClock::time_point start = tSteadyClock::now();
    EXPECT_TRUE(m_Traffic.Next(datagram, c_dPatience));
    EXPECT_GT(c_dPatience, SecondsSince(start));
    later.join();
}

TEST_F(LiveTraffic, SaysWhyItCannotListen)
{
    const auto errorOf = [](const stMulticastLink& link) { return CLiveTraffic().Open(link); };
    EXPECT_EQ(std::string("group 239.1.1.5 can't be joined (") + std::strerror(ENODEV) +
                  "): is there an interface with a multicast route?",
              errorOf({"239.1.1.5", m_Link.unPort, "203.0.113.1"}));
    EXPECT_EQ(Format("203.0.113.1:%u can't be had: %s", m_Link.unPort, std::strerror(EADDRNOTAVAIL)),
              errorOf({"203.0.113.1", m_Link.unPort, ""}));
    Support::CSocketRecorder recorder;
    recorder.bFailSocket = true;
    EXPECT_EQ(std::string("no socket can be had: ") + std::strerror(EMFILE), errorOf(m_Link));
}

TEST_F(LiveTraffic, ClosesWhatItOpened)
{
    const auto nextDescriptor = []
    {
        const int nSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        close(nSocket);
        return nSocket;
    };
    const int nNext = nextDescriptor();
    {
        CLiveTraffic traffic;
        EXPECT_EQ("", traffic.Open(m_Link));
        EXPECT_NE(nNext, nextDescriptor());
    }
    EXPECT_EQ(nNext, nextDescriptor());
}

TEST_F(LiveTraffic, CountsWhatTheKernelDropsOfEitherGroupAndARecordingKeepsIt)
{
    const bool bTold = Support::KernelHas(SOL_SOCKET, SO_RXQ_OVFL, 1);
    std::uint32_t unLost = 0;
    for (const stEndpoint& group : {m_Group, c_Changes, m_Group})
    {
        const std::uint32_t unMore = Lost(group, TooMany());
        EXPECT_GT(unMore, 0u);
        unLost += unMore;
        EXPECT_EQ(bTold ? unLost : 0, m_Traffic.GetLoss().unKernel);
        EXPECT_EQ(0u, Lost(group, 0));
        EXPECT_EQ(bTold ? unLost : 0, m_Traffic.GetLoss().unKernel);
    }
    if (!bTold)
    {
        GTEST_SKIP() << "this system does not tell what its kernel drops";
    }
    EXPECT_EQ(unLost, Recorded(m_Traffic.GetLoss()).unKernel);
    EXPECT_EQ(0u, Recorded(m_Traffic.GetLoss()).unSize);
}

TEST_F(LiveTraffic, ServesBothGroupsInTurn)
{
    for (int nDatagram = 0; nDatagram < 3; ++nDatagram)
    {
        Send(m_Group, {'u'});
        Send(c_Changes, {'c'});
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // all have come
    std::string strOrder;
    for (stDatagram datagram; strOrder.size() < 6 && Receive(datagram);)
    {
        strOrder += static_cast<char>(datagram.bytes.at(0));
    }
    EXPECT_EQ("ucucuc", strOrder);
}

TEST(Endpoint, IsReadAndWrittenAsText)
{
    EXPECT_EQ(0xe100002eu, MakeEndpoint("225.0.0.46", 7060).unAddress);
    EXPECT_EQ(7060, MakeEndpoint("225.0.0.46", 7060).usPort);
    EXPECT_EQ(0u, MakeEndpoint("nowhere", 7060).unAddress);
    EXPECT_EQ("225.0.0.46", stEndpoint({0xe100002e, 7060}).AddressText());
    EXPECT_EQ("255.1.2.3:65535", stEndpoint({0xff010203, 65535}).Text());
    EXPECT_FALSE(stEndpoint({1, 2}) == stEndpoint({1, 3}));
    EXPECT_FALSE(stEndpoint({1, 2}) == stEndpoint({2, 2}));
    EXPECT_TRUE(stEndpoint({1, 2}) == stEndpoint({1, 2}));
}
