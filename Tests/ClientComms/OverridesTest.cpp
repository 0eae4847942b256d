#include "ClientComms/ClientMsgHandler.h"

#include "RySocketIO/CSocketThread.h"
#include "RySocketIO/CUtility.h"
#include "Support/Bytes.h"
#include "Support/DebugLog.h"
#include "Support/InChild.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// What a client's own code may do where the library calls it.
namespace
{

using RySocketIO::CIPString;
using Support::tBytes;

const char* const c_szLoopback = "127.0.0.1";

tBytes Update(std::uint32_t unMarker = 1)
{
    return Support::Datagram(0, 7, 1, 1, Support::UpdateHeader(1, 0, unMarker));
}

class COverriding : public CClientMsgHandler
{
public:
    COverriding() : CClientMsgHandler(false) {}
    ~COverriding() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg&) override
    {
        ++m_nApplied;
        if (m_Process)
        {
            m_Process(*this);
        }
        return 0;
    }

    void OnReceivedData(char* pData, long lLength, const CIPString& sender) override
    {
        CClientMsgHandler::OnReceivedData(pData, lLength, sender);
        ++m_nReceived;
        if (m_Received)
        {
            m_Received(*this);
        }
    }

    bool SendAll() override
    {
        ++m_nSendAlls;
        if (m_Sending)
        {
            m_Sending(*this);
        }
        return CClientMsgHandler::SendAll();
    }

    void Deliver(tBytes datagram)
    {
        OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()), CIPString(c_szLoopback));
    }

    bool Open() { return InitialiseClient(0, c_szLoopback, nullptr, nullptr); }

    bool SendToItself(const tBytes& datagram)
    {
        return Send(c_szLoopback, GetLocalPort(), reinterpret_cast<const char*>(datagram.data()),
                    static_cast<long>(datagram.size()));
    }

    std::function<void(COverriding&)> m_Process, m_Received, m_Sending;
    int m_nApplied = 0;
    std::atomic<int> m_nReceived{0};
    std::atomic<int> m_nSendAlls{0};
};

std::unique_ptr<COverriding> Handler()
{
    return std::make_unique<COverriding>();
}

bool Becomes(const std::function<bool()>& condition)
{
    for (int nTry = 0; nTry < 10000 && !condition(); ++nTry)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}

void Throw(COverriding&)
{
    throw std::runtime_error("an override's");
}

// Calls a function for each line of the log.
class CLineSink
{
public:
    explicit CLineSink(std::function<void()> onLine) : m_OnLine(std::move(onLine)) { RySocketIO::CUtility::SetDebugSink(&m_Sink); }
    ~CLineSink() { RySocketIO::CUtility::SetDebugSink(nullptr); }
    CLineSink(const CLineSink&) = delete;
    CLineSink& operator=(const CLineSink&) = delete;

private:
    static void Write(void* pThis, const char*) { static_cast<CLineSink*>(pThis)->m_OnLine(); }

    std::function<void()> m_OnLine;
    const RySocketIO::stDebugSink m_Sink = {&Write, this};
};

} // namespace

TEST(Overrides, MayAskForAnotherRoundWhichIsNone)
{
    const auto pHandler = Handler();
    int nInner = -1;
    pHandler->m_Process = [&](COverriding& handler) { nInner = handler.UpdateBMA(); };
    pHandler->Deliver(Update());
    pHandler->Deliver(Update());
    Support::CDebugLog log;
    EXPECT_EQ(0, pHandler->UpdateBMA());
    const std::vector<std::string> lines = log.Take();
    EXPECT_EQ(2, std::count(lines.begin(), lines.end(), "CClientMsgHandler::UpdateBMA - called within ProcessMCUpdate, ignoring"));
    EXPECT_EQ(7, nInner);
    EXPECT_EQ(2, pHandler->m_nApplied);
}

TEST(Overrides, MayClearErrorsWhichTheyThenAre)
{
    const auto pHandler = Handler();
    pHandler->m_Process = [](COverriding& handler) { handler.ClearReceiveErrors(); };
    testing::internal::CaptureStdout();
    pHandler->Deliver(Update());
    pHandler->Deliver(Update(2)); // an error in the second cache
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(0, pHandler->UpdateBMA());
    EXPECT_EQ(7, pHandler->UpdateBMA());
    pHandler->Deliver(Update());
    pHandler->Deliver(Update());
    EXPECT_EQ(0, pHandler->UpdateBMA());
    EXPECT_EQ(3, pHandler->m_nApplied);
}

// The receive thread waits for the cache that is being applied.
TEST(Overrides, MayShutTheHandlerDown)
{
    const auto pHandler = Handler();
    ASSERT_TRUE(pHandler->Open());
    ASSERT_TRUE(pHandler->StartPPCSender(1));
    std::atomic<bool> bShut(false);
    pHandler->m_Process = [&](COverriding& handler)
    {
        if (bShut)
        {
            return;
        }
        const int nReceived = handler.m_nReceived;
        handler.SendToItself(Update());
        handler.SendToItself(Update());
        EXPECT_TRUE(Becomes([&] { return handler.m_nReceived > nReceived; }));
        handler.Shutdown();
        bShut = true;
    };
    ASSERT_TRUE(pHandler->SendToItself(Update()));
    EXPECT_TRUE(Becomes(
        [&]
        {
            pHandler->UpdateBMA();
            return bShut.load();
        }));
    const int nReceived = pHandler->m_nReceived;
    pHandler->SendToItself(Update());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(nReceived, pHandler->m_nReceived) << "nobody receives any more";
}

TEST(Overrides, ThatThrowOnTheReceiveThreadLoseThatDatagramOnly)
{
    const auto pHandler = Handler();
    pHandler->m_Received = Throw;
    ASSERT_TRUE(pHandler->Open());
    for (int nDatagram = 1; nDatagram <= 3; ++nDatagram)
    {
        ASSERT_TRUE(pHandler->SendToItself(Update()));
        EXPECT_TRUE(Becomes([&] { return pHandler->m_nReceived == nDatagram; }));
    }
}

TEST(Overrides, ThatThrowOnTheSenderThreadAreCalledAgain)
{
    const auto pHandler = Handler();
    pHandler->m_Sending = Throw;
    ASSERT_TRUE(pHandler->StartPPCSender(1));
    EXPECT_TRUE(Becomes([&] { return pHandler->m_nSendAlls >= 3; }));
}

TEST(Overrides, MayStopTheThreadThatTheyAreOn)
{
    const auto pHandler = Handler();
    const auto stop = [](COverriding& handler) { handler.Shutdown(); };
    pHandler->m_Received = stop;
    ASSERT_TRUE(pHandler->Open());
    ASSERT_TRUE(pHandler->SendToItself(Update()));
    EXPECT_TRUE(Becomes([&] { return pHandler->m_nReceived == 1; }));

    const auto pSending = Handler();
    pSending->m_Sending = stop;
    ASSERT_TRUE(pSending->StartPPCSender(1));
    EXPECT_TRUE(Becomes([&] { return pSending->m_nSendAlls >= 1; }));
}

TEST(Overrides, MayBeStoppedFromSeveralThreadsAtOnce)
{
    for (int nRound = 0; nRound < 20; ++nRound)
    {
        const auto pHandler = Handler();
        ASSERT_TRUE(pHandler->Open());
        ASSERT_TRUE(pHandler->StartPPCSender(1));
        std::thread other([&] { pHandler->Shutdown(); });
        pHandler->Shutdown();
        other.join();
    }
}

TEST(Overrides, MayEndTheirThread)
{
    const auto pHandler = Handler();
    pHandler->m_Process = [](COverriding&) { pthread_exit(nullptr); };
    pHandler->Deliver(Update());
    std::thread([&] { pHandler->UpdateBMA(); }).join();
    pHandler->m_Process = nullptr;
    EXPECT_EQ(1u, pHandler->GetStatistics().aunCount[enCountThrown]);
    EXPECT_NE(0, pHandler->UpdateBMA());
    EXPECT_EQ(1, pHandler->m_nApplied);
    pHandler->Deliver(Update());
    EXPECT_EQ(0, pHandler->UpdateBMA());
    EXPECT_EQ(2, pHandler->m_nApplied);
    EXPECT_EQ(1u, pHandler->GetStatistics().aunCount[enCountApplied]);
}

// Both caches are full, so that the next update would go where the override looks at one.
TEST(Overrides, MayReceiveWhichIsRefusedThen)
{
    const auto pHandler = Handler();
    tBytes update = Support::UpdateHeader(1, 0);
    pHandler->m_Process = [&](COverriding& handler)
    {
        handler.Deliver(Update());
        handler.ReceivedMCData(update.data(), static_cast<long>(update.size()));
    };
    pHandler->Deliver(Update());
    pHandler->Deliver(Update());
    Support::CDebugLog log;
    EXPECT_EQ(0, pHandler->UpdateBMA());
    const std::vector<std::string> lines = log.Take();
    EXPECT_EQ(
        2, std::count(lines.begin(), lines.end(), "CClientMsgHandler::OnReceivedData - called within ProcessMCUpdate, ignoring"));
    EXPECT_EQ(
        2, std::count(lines.begin(), lines.end(), "CClientMsgHandler::ReceivedMCData - called within ProcessMCUpdate, ignoring"));
    pHandler->m_Process = nullptr;
    const stReceiveStatistics statistics = pHandler->GetStatistics();
    EXPECT_EQ(4u, statistics.aunCount[enCountDatagrams]);
    EXPECT_EQ(2u, statistics.aunCount[enRejectedLock]);
    EXPECT_EQ(4u, statistics.aunCount[enCountUpdates]);
    EXPECT_EQ(2u, statistics.aunCount[enDecodeErrorLock]);
    EXPECT_EQ(2u, statistics.aunCount[enCountApplied]);
    pHandler->Deliver(Update());
    EXPECT_EQ(0, pHandler->UpdateBMA());
    EXPECT_EQ(3, pHandler->m_nApplied);
}

TEST(Overrides, ALogThatEndsItsThreadKeepsNoQueueInHand)
{
    const auto pHandler = Handler();
    ASSERT_TRUE(pHandler->Open());
    pHandler->StopReceiving(); // which writes to the log as well
    pHandler->SetRemoteAddress(c_szLoopback, 0, static_cast<int>(pHandler->GetLocalPort()));
    for (int nLine = 0; nLine < 8; ++nLine)
    {
        ASSERT_TRUE(pHandler->QueuePPC(enInteger, enMicInput, 1, 2, nLine));
        std::atomic<int> nLines(0);
        std::atomic<std::thread::id> sending{std::thread::id()};
        const CLineSink sink(
            [&]
            {
                if (sending.load() == std::this_thread::get_id() && nLines++ == nLine)
                {
                    pthread_exit(nullptr);
                }
            });
        std::thread(
            [&]
            {
                sending = std::this_thread::get_id();
                pHandler->SendAll();
            })
            .join();
    }
    pHandler->ClearPPCBuffer();
    ASSERT_TRUE(pHandler->QueuePPC(enInteger, enMicInput, 1, 2, 3));
    EXPECT_TRUE(pHandler->SendAll());
    EXPECT_EQ(0, pHandler->GetPPCBufferSize());
}

TEST(Overrides, ALogThatCanNotWriteIsNone)
{
    const RySocketIO::stDebugSink sink = {nullptr, nullptr};
    RySocketIO::CUtility::SetDebugSink(&sink);
    RySocketIO::CUtility::Debug("%d", 1);
    RySocketIO::CUtility::SetDebugSink(nullptr);
}

// Bad updates are told on standard output. When that takes no more, who applies updates doesn't wait for it.
TEST(Overrides, AnOutputThatNobodyReadsStopsOnlyTheThreadThatPrints)
{
    const auto run = []
    {
        int aPipe[2];
        if (pipe2(aPipe, O_CLOEXEC) != 0 || dup2(aPipe[1], STDOUT_FILENO) < 0)
        {
            return 2;
        }
        setvbuf(stdout, nullptr, _IONBF, 0);
        alarm(20); // ends a process that hangs
        COverriding* const pHandler = new COverriding;
        std::atomic<int> nDelivered(0);
        std::thread receiver(
            [&]
            {
                for (;; ++nDelivered)
                {
                    pHandler->Deliver(Update(2));
                }
            });
        for (int nLast = -1; nDelivered != nLast || nDelivered == 0;)
        {
            nLast = nDelivered;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        pHandler->ClearReceiveErrors();
        const int nResult = pHandler->UpdateBMA();
        syscall(SYS_exit_group, nResult == 6 ? 0 : 1); // nothing that would flush standard output first
        return 1;
    };
    EXPECT_EQ(0, Support::InChild(run));
}

// A program without standard streams: what is printed goes into none of the library's descriptors.
TEST(Overrides, TheNumbersOfTheStandardStreamsStayFree)
{
    const auto run = []
    {
        for (const int nStream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        {
            close(nStream);
        }
        const auto pHandler = Handler();
        const bool bRuns = pHandler->Open() && pHandler->StartPPCSender(1);
        int nTaken = 0;
        for (const int nStream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        {
            struct stat status = {};
            nTaken += fstat(nStream, &status) == 0 ? 1 : 0;
        }
        pHandler->Shutdown();
        return bRuns ? nTaken : 9;
    };
    EXPECT_EQ(0, Support::InChild(run));
}

TEST(Overrides, AnEndlessDelayIsOne)
{
    class CThread : public RySocketIO::CSocketThread
    {
    public:
        ~CThread() override { Stop(); }
        void Do() override { ++nDone; }
        std::atomic<int> nDone{0};
    };
    for (const long lMicroseconds : {0L, LONG_MAX})
    {
        CThread thread;
        thread.SetIterationDelay(LONG_MAX, lMicroseconds);
        ASSERT_TRUE(thread.Start(-1));
        EXPECT_TRUE(Becomes([&] { return thread.nDone > 0; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_TRUE(thread.Stop());
        EXPECT_EQ(1, thread.nDone);
    }
    CThread thread;
    thread.SetIterationDelay(LONG_MIN, LONG_MIN);
    ASSERT_TRUE(thread.Start(5));
    EXPECT_TRUE(Becomes([&] { return thread.nDone == 5; }));
}
