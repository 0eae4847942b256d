#include "RySocketIO/CSocket.h"

#include "ClientComms/ClientMsgHandler.h"
#include "RySocketIO/CIPString.h"
#include "RySocketIO/CSocketThread.h"
#include "RySocketIO/StopEvent.h"
#include "Support/Interruptions.h"
#include "Support/Network.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <limits>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace
{

using RySocketIO::CIPString;
using RySocketIO::CSocket;
using RySocketIO::CSocketThread;
using Support::KernelHas;
using Support::MostReceiveBuffer;
typedef std::vector<std::string> tTexts;

// Events of another thread, in order.
class CEvents
{
public:
    void Note(const std::string& strEvent)
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        m_Events.push_back(strEvent);
        m_Threads.push_back(std::this_thread::get_id());
        m_Changed.notify_all();
    }

    // The events once there are unCount of them; fewer when that takes a minute.
    tTexts WaitFor(std::size_t unCount)
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Changed.wait_for(lock, std::chrono::seconds(60), [this, unCount] { return m_Events.size() >= unCount; });
        return m_Events;
    }

    std::vector<std::thread::id> Threads()
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Threads;
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    tTexts m_Events;
    std::vector<std::thread::id> m_Threads;
};

class CNotingSocket : public CSocket
{
public:
    CNotingSocket() : CSocket(RySocketIO::enConnectionUDP, false, false) {}
    ~CNotingSocket() override { StopReceiving(); }

    void OnReceivedData(char* pData, long lLength) override
    {
        m_Received.Note(std::string(pData, static_cast<std::size_t>(lLength)));
    }

    void OnReceivedData(char* pData, long lLength, const CIPString& sender) override
    {
        m_Received.Note(std::string(sender.Text()) + "|" + std::string(pData, static_cast<std::size_t>(lLength)));
    }

    void OnConnected() override { m_Life.Note("connected"); }
    void OnTerminated() override { m_Life.Note("terminated"); }

    bool Open() { return InitialiseLocalSockets(0, "127.0.0.1", nullptr, 1); }

    CEvents m_Received;
    CEvents m_Life;
};

bool SendText(CSocket& from, const CSocket& to, const std::string& strText)
{
    return from.Send("127.0.0.1", to.GetLocalPort(), strText.data(), static_cast<long>(strText.size()));
}

TEST(Socket, AsksForFourMebibytes)
{
    CNotingSocket socket;
    ASSERT_TRUE(socket.Open());
    EXPECT_GE(socket.GetReceiveBufferSize(), MostReceiveBuffer());
    EXPECT_EQ(socket.GetReceiveBufferSize(), socket.GetSocketStatistics().nReceiveBuffer);
}

// Says where it wants its datagrams, and where they came.
class CRoomySocket : public CNotingSocket
{
public:
    CRoomySocket(bool bRoom, long lRoom) : m_bRoom(bRoom), m_lRoom(lRoom), m_acRoom() {}
    ~CRoomySocket() override { StopReceiving(); }

    char* ReceiveRoom(long& lSize) override
    {
        lSize = m_lRoom;
        if (m_lRoom == LONG_MIN)
        {
            throw std::string("no room");
        }
        return m_bRoom ? m_acRoom : nullptr;
    }

    using CNotingSocket::OnReceivedData;
    void OnReceivedData(char* pData, long lLength) override
    {
        const char* const szWhere = pData == m_acRoom ? "room|" : pData != nullptr ? "own|" : "nowhere|";
        m_Received.Note(szWhere + std::string(pData, static_cast<std::size_t>(lLength)));
    }

private:
    const bool m_bRoom;
    const long m_lRoom;
    char m_acRoom[8];
};

TEST(Socket, ReceivesIntoTheRoomThatItIsGivenAndWhatIsLongerIntoItsOwn)
{
    CRoomySocket socket(true, 8);
    ASSERT_TRUE(socket.Open());
    const std::string strLong(65507, 'x');
    for (const std::string& strText :
         {std::string("short"), std::string("eight by"), std::string("nine byte"), strLong, std::string()})
    {
        ASSERT_TRUE(SendText(socket, socket, strText));
    }
    EXPECT_EQ((tTexts{"room|short", "room|eight by", "own|nine byte", "own|" + strLong, "room|"}), socket.m_Received.WaitFor(5));
    EXPECT_EQ(0u, socket.GetSocketStatistics().unTruncated);
}

TEST(Socket, ReceivesIntoItsOwnMemoryWhenItIsGivenNone)
{
    const struct
    {
        bool bRoom;
        long lRoom;
    } cases[] = {{false, 8}, {false, LONG_MAX}, {true, 0}, {true, -1}, {true, LONG_MIN}};
    for (const auto& c : cases)
    {
        CRoomySocket socket(c.bRoom, c.lRoom);
        ASSERT_TRUE(socket.Open());
        ASSERT_TRUE(SendText(socket, socket, "text"));
        ASSERT_TRUE(SendText(socket, socket, ""));
        EXPECT_EQ((tTexts{"own|text", "own|"}), socket.m_Received.WaitFor(2)) << c.bRoom << " " << c.lRoom;
    }
}

TEST(Socket, AnUnopenedOneHasNothingAndCanDoNothing)
{
    CNotingSocket socket;
    EXPECT_EQ(0u, socket.GetLocalPort());
    EXPECT_EQ(0, socket.GetReceiveBufferSize());
    EXPECT_EQ(0u, socket.GetSocketStatistics().unKernelDrops);
    EXPECT_EQ(0u, socket.GetSocketStatistics().unTruncated);
    EXPECT_FALSE(socket.Send("127.0.0.1", 9, "x", 1));
    EXPECT_FALSE(socket.AddToGroup(nullptr));
    socket.StopReceiving();
    EXPECT_EQ(tTexts(), socket.m_Life.WaitFor(0));
}

TEST(Socket, OpensOnAPortOfTheSystemsChoiceOnce)
{
    CNotingSocket socket;
    EXPECT_TRUE(socket.Open());
    const unsigned int unPort = socket.GetLocalPort();
    EXPECT_GT(unPort, 0u);
    EXPECT_LT(unPort, 65536u);
    EXPECT_GT(socket.GetReceiveBufferSize(), 0);
    EXPECT_FALSE(socket.Open());
    EXPECT_EQ(unPort, socket.GetLocalPort());
}

TEST(Socket, AnImpossibleAddressIsRefusedAndAGoodOneStillOpens)
{
    CNotingSocket socket;
    for (const char* szAddress : {"nowhere", "300.0.0.1", "127.0.0", "127.0.0.1 "})
    {
        EXPECT_FALSE(socket.InitialiseLocalSockets(0, szAddress, nullptr, 1)) << szAddress;
        EXPECT_EQ(0u, socket.GetLocalPort());
    }
    EXPECT_FALSE(socket.InitialiseLocalSockets(0, "127.0.0.1", "nowhere", 1));
    EXPECT_FALSE(socket.InitialiseLocalSockets(65536, "127.0.0.1", nullptr, 1));
    EXPECT_TRUE(socket.Open());
}

TEST(Socket, JoinsNothingThatIsNotAGroup)
{
    CNotingSocket socket;
    ASSERT_TRUE(socket.Open());
    for (const char* szGroup : {static_cast<const char*>(nullptr), "", "nowhere", "127.0.0.1", "239.0.0"})
    {
        EXPECT_FALSE(socket.AddToGroup(szGroup));
    }
}

TEST(Socket, DeliversEveryDatagramWholeAndInOrderOnOneThread)
{
    CNotingSocket receiver, sender;
    ASSERT_TRUE(receiver.Open() && sender.Open());
    tTexts expected;
    for (const std::size_t unSize : {1u, 2u, 20u, 1473u, 9001u, 65000u, 65001u, 65507u, 0u, 3u})
    {
        expected.emplace_back(unSize, static_cast<char>('a' + expected.size()));
        ASSERT_TRUE(SendText(sender, receiver, expected.back())) << unSize;
        ASSERT_EQ(expected, receiver.m_Received.WaitFor(expected.size())) << unSize;
    }
    for (const std::thread::id id : receiver.m_Received.Threads())
    {
        EXPECT_EQ(receiver.m_Life.Threads().at(0), id);
    }
    const RySocketIO::stSocketStatistics statistics = receiver.GetSocketStatistics();
    EXPECT_EQ(10u, statistics.unDatagrams);
    EXPECT_EQ(1u + 2 + 20 + 1473 + 9001 + 65000 + 65001 + 65507 + 0 + 3, statistics.unBytes);
    EXPECT_EQ(0u, statistics.unTruncated);
    EXPECT_EQ(0u, statistics.unKernelDrops);
    EXPECT_EQ(0u, statistics.unErrors);
    EXPECT_EQ(receiver.GetReceiveBufferSize(), statistics.nReceiveBuffer);
    EXPECT_EQ(tTexts(), sender.m_Received.WaitFor(0));
}

// Takes no further datagram until it is released.
class CStuckSocket : public CSocket
{
public:
    CStuckSocket() : CSocket(RySocketIO::enConnectionUDP, false, false) {}
    ~CStuckSocket() override
    {
        m_Gate.unlock();
        StopReceiving();
    }

    void OnReceivedData(char*, long lLength) override
    {
        const std::lock_guard<std::mutex> guard(m_Gate);
        m_Received.Note(std::to_string(lLength));
    }

    std::mutex m_Gate;
    CEvents m_Received;
};

TEST(Socket, CountsWhatTheKernelDropsWhenTheReceiverIsSlow)
{
    CNotingSocket sender;
    CStuckSocket receiver;
    receiver.m_Gate.lock();
    ASSERT_TRUE(sender.Open() && receiver.InitialiseLocalSockets(0, "127.0.0.1", nullptr, 1));
    const std::string strLarge(65000, 'x');
    const unsigned int unSent = static_cast<unsigned int>(2 * receiver.GetReceiveBufferSize() / 65000) + 10;
    for (unsigned int unDatagram = 0; unDatagram < unSent; ++unDatagram)
    {
        ASSERT_TRUE(SendText(sender, receiver, strLarge));
    }
    receiver.m_Gate.unlock();
    while (receiver.m_Received.WaitFor(1).back() != "1") // until a small one gets through
    {
        ASSERT_TRUE(SendText(sender, receiver, "x"));
        std::this_thread::yield();
    }
    receiver.m_Gate.lock();
    const tTexts received = receiver.m_Received.WaitFor(1);
    const std::size_t unTaken = static_cast<std::size_t>(std::count(received.begin(), received.end(), "65000"));
    EXPECT_LT(unTaken, unSent);
    const std::uint32_t unDropped = receiver.GetSocketStatistics().unKernelDrops;
    if (!KernelHas(SOL_SOCKET, SO_RXQ_OVFL, 1))
    {
        GTEST_SKIP() << "this system does not tell what its kernel drops";
    }
    EXPECT_GE(unDropped, unSent - unTaken);
}

TEST(Socket, TellsTheSenderWhenAskedTo)
{
    CNotingSocket receiver, sender;
    receiver.SetUseSenderInfo(true);
    ASSERT_TRUE(receiver.Open() && sender.Open());
    ASSERT_TRUE(SendText(sender, receiver, "hello"));
    EXPECT_EQ(tTexts{"127.0.0.1|hello"}, receiver.m_Received.WaitFor(1));
    receiver.SetUseSenderInfo(false);
    ASSERT_TRUE(SendText(sender, receiver, "again"));
    EXPECT_EQ((tTexts{"127.0.0.1|hello", "again"}), receiver.m_Received.WaitFor(2));
}

TEST(Socket, MaySendToItself)
{
    CNotingSocket socket;
    ASSERT_TRUE(socket.Open());
    ASSERT_TRUE(SendText(socket, socket, "me"));
    EXPECT_EQ(tTexts{"me"}, socket.m_Received.WaitFor(1));
}

TEST(Socket, OfNoDerivedClassReceivesAndCountsAndDoesNothing)
{
    CNotingSocket sender;
    CSocket receiver(RySocketIO::enConnectionUDP, false, false);
    ASSERT_TRUE(sender.Open());
    ASSERT_TRUE(receiver.InitialiseLocalSockets(0, "127.0.0.1", nullptr, 1));
    const auto awaitDatagrams = [&](std::uint32_t unDatagrams)
    {
        for (int nTry = 0; nTry < 2000 && receiver.GetSocketStatistics().unDatagrams < unDatagrams; ++nTry)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return receiver.GetSocketStatistics().unDatagrams;
    };
    ASSERT_TRUE(SendText(sender, receiver, "one"));
    EXPECT_EQ(1u, awaitDatagrams(1));
    receiver.SetUseSenderInfo(true);
    ASSERT_TRUE(SendText(sender, receiver, "two!"));
    EXPECT_EQ(2u, awaitDatagrams(2));
    EXPECT_EQ(7u, receiver.GetSocketStatistics().unBytes);
}

TEST(Socket, RefusesWhatCannotBeSent)
{
    CNotingSocket socket;
    ASSERT_TRUE(socket.Open());
    const std::string strLarge(65508, 'x');
    EXPECT_FALSE(SendText(socket, socket, strLarge));
    EXPECT_FALSE(socket.Send("nowhere", socket.GetLocalPort(), "x", 1));
    EXPECT_FALSE(socket.Send("127.0.0.1", 65536, "x", 1));
    EXPECT_FALSE(socket.Send("", socket.GetLocalPort(), "x", 1));
    EXPECT_FALSE(socket.Send(nullptr, socket.GetLocalPort(), "x", 1));
    EXPECT_FALSE(socket.Send("127.0.0.1", socket.GetLocalPort(), "x", -1));
    EXPECT_FALSE(socket.Send("127.0.0.1", socket.GetLocalPort(), nullptr, 1));
    EXPECT_TRUE(SendText(socket, socket, "x"));
    EXPECT_EQ(tTexts{"x"}, socket.m_Received.WaitFor(1));
}

TEST(Socket, ItsThreadTellsItsStartAndItsEnd)
{
    CNotingSocket socket;
    ASSERT_TRUE(socket.Open());
    EXPECT_EQ(tTexts{"connected"}, socket.m_Life.WaitFor(1));
    socket.StopReceiving();
    socket.StopReceiving();
    EXPECT_EQ((tTexts{"connected", "terminated"}), socket.m_Life.WaitFor(2));
    EXPECT_EQ(socket.m_Life.Threads().at(0), socket.m_Life.Threads().at(1));
    EXPECT_NE(std::this_thread::get_id(), socket.m_Life.Threads().at(0));
}

TEST(Socket, NothingIsDeliveredAfterItStoppedReceiving)
{
    CNotingSocket receiver, sender;
    ASSERT_TRUE(receiver.Open() && sender.Open());
    const unsigned int unPort = receiver.GetLocalPort();
    receiver.StopReceiving();
    sender.Send("127.0.0.1", unPort, "late", 4);
    EXPECT_EQ(tTexts(), receiver.m_Received.WaitFor(0));
    EXPECT_EQ((tTexts{"connected", "terminated"}), receiver.m_Life.WaitFor(2));
}

TEST(Socket, ManyComeAndGoUnderTraffic)
{
    CNotingSocket sender;
    ASSERT_TRUE(sender.Open());
    for (int n = 0; n < 200; ++n)
    {
        CNotingSocket receiver;
        ASSERT_TRUE(receiver.Open());
        ASSERT_TRUE(SendText(sender, receiver, "one"));
        ASSERT_TRUE(SendText(sender, receiver, "two"));
        if (n % 2 == 0)
        {
            ASSERT_EQ((tTexts{"one", "two"}), receiver.m_Received.WaitFor(2));
        }
    }
}

bool AllSignalsBlocked()
{
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return sigismember(&blocked, SIGINT) == 1 && sigismember(&blocked, SIGTERM) == 1 && sigismember(&blocked, SIGALRM) == 1 &&
           sigismember(&blocked, SIGUSR1) == 1;
}

class CNotingThread : public CSocketThread
{
public:
    ~CNotingThread() override { Stop(); }

    CEvents m_Events;
    std::atomic<bool> m_bSignalsBlocked{false};

protected:
    void ThreadStarted() override
    {
        m_bSignalsBlocked = AllSignalsBlocked();
        m_Events.Note("started");
    }
    void Do() override { m_Events.Note("do"); }
};

// However long it would wait.
TEST(StopEvent, OnceSetItKeepsNobodyWaiting)
{
    RySocketIO::CStopEvent event;
    EXPECT_FALSE(event.Wait({0, 0}));
    event.Set();
    for (const timespec& time : {timespec{0, 0}, timespec{0, 500000000}, timespec{0, 500000001}, timespec{0, 999999999},
                                 timespec{1, 0}, timespec{3600, 0}, timespec{std::numeric_limits<time_t>::max(), 0}})
    {
        EXPECT_TRUE(event.Wait(time));
    }
    EXPECT_TRUE(event.Reset());
    EXPECT_FALSE(event.IsSet());
    EXPECT_FALSE(event.Wait({0, 1000}));
}

TEST(SocketThread, DoesItsRoundsAndNoMore)
{
    CNotingThread thread;
    thread.SetIterationDelay(0, 1);
    ASSERT_TRUE(thread.Start(3));
    EXPECT_EQ((tTexts{"started", "do", "do", "do"}), thread.m_Events.WaitFor(4));
    thread.Stop();
    EXPECT_EQ(4u, thread.m_Events.WaitFor(0).size());
    for (const std::thread::id id : thread.m_Events.Threads())
    {
        EXPECT_NE(std::this_thread::get_id(), id);
        EXPECT_EQ(thread.m_Events.Threads()[0], id);
    }
}

TEST(SocketThread, MayStartAgainWhenItEndedByItself)
{
    CNotingThread thread;
    ASSERT_TRUE(thread.Start(1));
    while (thread.IsRunning())
    {
        std::this_thread::yield();
    }
    ASSERT_TRUE(thread.Start(1));
    EXPECT_EQ((tTexts{"started", "do", "started", "do"}), thread.m_Events.WaitFor(4));
}

TEST(SocketThread, LeavesSignalsToTheApplication)
{
    CNotingThread thread;
    const bool bBefore = AllSignalsBlocked();
    ASSERT_TRUE(thread.Start(1));
    thread.m_Events.WaitFor(1);
    EXPECT_TRUE(thread.m_bSignalsBlocked);
    EXPECT_EQ(bBefore, AllSignalsBlocked());
}

TEST(SocketThread, GoesOnUntilItIsStoppedAndMayStartAgain)
{
    CNotingThread thread;
    thread.SetIterationDelay(0, 1);
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_FALSE(thread.Stop());
    for (int nTime = 0; nTime < 2; ++nTime)
    {
        const std::size_t unBefore = thread.m_Events.WaitFor(0).size();
        ASSERT_TRUE(thread.Start(-1));
        EXPECT_TRUE(thread.IsRunning());
        EXPECT_FALSE(thread.Start(-1));
        EXPECT_GE(thread.m_Events.WaitFor(unBefore + 50).size(), unBefore + 50);
        EXPECT_TRUE(thread.Stop());
        EXPECT_FALSE(thread.IsRunning());
        EXPECT_FALSE(thread.Stop());
        EXPECT_EQ("started", thread.m_Events.WaitFor(0)[unBefore]);
    }
}

TEST(SocketThread, KeepsAtLeastTheDelayFromRoundToRound)
{
    CNotingThread thread;
    thread.SetIterationDelay(0, 20000);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(thread.Start(4));
    EXPECT_EQ(5u, thread.m_Events.WaitFor(5).size());
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(59)); // three delays
}

TEST(SocketThread, StopsWithoutWaitingOutTheDelay)
{
    CNotingThread thread;
    thread.SetIterationDelay(3600, 0);
    ASSERT_TRUE(thread.Start(-1));
    EXPECT_EQ((tTexts{"started", "do"}), thread.m_Events.WaitFor(2));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(thread.Stop());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
    EXPECT_EQ((tTexts{"started", "do"}), thread.m_Events.WaitFor(0));
}

static_assert(std::is_trivially_copyable<CIPString>::value, "copied without allocating");

TEST(IPString, HoldsAtMost47Characters)
{
    EXPECT_STREQ("192.168.1.20", CIPString("192.168.1.20").Text());
    EXPECT_EQ(std::string(47, '1'), CIPString(std::string(47, '1').c_str()).Text());
    EXPECT_EQ(std::string(47, '1'), CIPString(std::string(48, '1').c_str()).Text());
    EXPECT_EQ(std::string(47, '1'), CIPString(std::string(5000, '1').c_str()).Text());
}

TEST(IPString, NullAndNothingAreEmpty)
{
    EXPECT_STREQ("", CIPString().Text());
    EXPECT_STREQ("", CIPString(nullptr).Text());
    EXPECT_TRUE(CIPString() == CIPString(""));
}

TEST(IPString, IsEqualByItsText)
{
    CIPString address("10.0.0.1");
    EXPECT_TRUE(address == CIPString("10.0.0.1"));
    EXPECT_FALSE(address != CIPString("10.0.0.1"));
    EXPECT_TRUE(address != CIPString("10.0.0.10"));
    EXPECT_FALSE(address == CIPString("10.0.0.2"));
    const CIPString copy(address);
    address = CIPString("10.0.0.200");
    EXPECT_STREQ("10.0.0.1", copy.Text());
    EXPECT_STREQ("10.0.0.200", address.Text());
}

// A whole rotary image, and twenty of them.
TEST(Socket, LosesNothingOfABurstThatItsBufferHoldsThoughTheReceiverIsStuck)
{
    constexpr int c_nCostOfOne = 67000; // what the kernel counts for a datagram of 65,000 bytes
    const std::string strFull(65000, 'x');
    for (const int nBurst : {5, 100})
    {
        CNotingSocket sender;
        CStuckSocket receiver;
        receiver.m_Gate.lock();
        ASSERT_TRUE(sender.Open() && receiver.InitialiseLocalSockets(0, "127.0.0.1", nullptr, 1));
        if (MostReceiveBuffer() < nBurst * c_nCostOfOne)
        {
            GTEST_SKIP() << "this system grants " << receiver.GetReceiveBufferSize() << " bytes, too few for " << nBurst;
        }
        for (int nDatagram = 0; nDatagram < nBurst; ++nDatagram)
        {
            ASSERT_TRUE(SendText(sender, receiver, strFull));
        }
        receiver.m_Gate.unlock();
        ASSERT_TRUE(SendText(sender, receiver, "end")); // brings the count of losses
        tTexts expected(static_cast<std::size_t>(nBurst), "65000");
        expected.push_back("3");
        EXPECT_EQ(expected, receiver.m_Received.WaitFor(expected.size()));
        const RySocketIO::stSocketStatistics statistics = receiver.GetSocketStatistics();
        EXPECT_EQ(static_cast<std::uint32_t>(nBurst) + 1, statistics.unDatagrams);
        EXPECT_EQ(0u, statistics.unKernelDrops);
        receiver.m_Gate.lock(); // which its end unlocks
    }
}

// Two receivers on one port, each of a group of its own.
TEST(Socket, HearsOnlyTheGroupThatItJoined)
{
    if (!Support::IsOwnNetwork())
    {
        GTEST_SKIP() << "not in a network namespace of its own";
    }
    if (!KernelHas(IPPROTO_IP, IP_MULTICAST_ALL, 0))
    {
        GTEST_SKIP() << "this system hands a socket every group of its port";
    }
    CNotingSocket sender, first, second;
    ASSERT_TRUE(sender.InitialiseLocalSockets(0, nullptr, "127.0.0.1", 1));
    ASSERT_TRUE(first.InitialiseLocalSockets(0, nullptr, "127.0.0.1", 1) && first.AddToGroup("239.1.1.1"));
    const unsigned int unPort = first.GetLocalPort();
    ASSERT_TRUE(second.InitialiseLocalSockets(unPort, nullptr, "127.0.0.1", 1) && second.AddToGroup("239.1.1.2"));
    const auto send = [&](const char* szGroup, const char* szText) { return sender.Send(szGroup, unPort, szText, 3); };
    ASSERT_TRUE(send("239.1.1.1", "one") && send("239.1.1.2", "two") && send("239.1.1.3", "thr"));
    ASSERT_TRUE(send("239.1.1.1", "end") && send("239.1.1.2", "end"));
    EXPECT_EQ((tTexts{"one", "end"}), first.m_Received.WaitFor(2));
    EXPECT_EQ((tTexts{"two", "end"}), second.m_Received.WaitFor(2));
}

// Tells whether signals can reach its thread.
class CUninterruptedSocket : public CNotingSocket
{
public:
    ~CUninterruptedSocket() override { StopReceiving(); }

    void OnConnected() override { m_Blocked.Note(AllSignalsBlocked() ? "all blocked" : "some let through"); }

    CEvents m_Blocked;
};

TEST(Socket, SignalsNeitherReachItsThreadNorLoseOrRepeatADatagram)
{
    CUninterruptedSocket receiver;
    CNotingSocket sender;
    ASSERT_TRUE(receiver.Open() && sender.Open());
    EXPECT_EQ(tTexts{"all blocked"}, receiver.m_Blocked.WaitFor(1));
    EXPECT_FALSE(AllSignalsBlocked());
    const Support::CInterruptions interruptions;
    tTexts expected;
    for (int n = 0; n < 100000 && (n < 500 || interruptions.Count() < 20); ++n)
    {
        expected.push_back(std::to_string(n));
        ASSERT_TRUE(SendText(sender, receiver, expected.back()));
        if (n % 50 == 0)
        {
            ASSERT_EQ(expected.size(), receiver.m_Received.WaitFor(expected.size()).size());
        }
    }
    EXPECT_EQ(expected, receiver.m_Received.WaitFor(expected.size()));
    EXPECT_GE(interruptions.Count(), 20);
}

// Whatever the library opens.
std::set<int> OpenDescriptors()
{
    std::set<int> open;
    for (int nDescriptor = 0; nDescriptor < 256; ++nDescriptor)
    {
        if (fcntl(nDescriptor, F_GETFD) != -1)
        {
            open.insert(nDescriptor);
        }
    }
    return open;
}

TEST(Socket, ItAndItsThreadsLeaveNoDescriptorToChildren)
{
    const std::set<int> before = OpenDescriptors();
    {
        const auto pHandler = std::make_unique<CClientMsgHandler>(false);
        ASSERT_TRUE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr) && pHandler->StartPPCSender(1));
        int nOwn = 0;
        for (const int nDescriptor : OpenDescriptors())
        {
            const bool bOwn = before.count(nDescriptor) == 0;
            nOwn += bOwn ? 1 : 0;
            EXPECT_TRUE(!bOwn || (fcntl(nDescriptor, F_GETFD) & FD_CLOEXEC) != 0) << nDescriptor;
        }
        EXPECT_EQ(3, nOwn); // the socket, and what ends each of the two threads
    }
    EXPECT_EQ(before, OpenDescriptors());
}

} // namespace
