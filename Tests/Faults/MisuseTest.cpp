#include "ClientComms/ClientMsgHandler.h"

#include "Faults/OpenHandler.h"
#include "RySocketIO/CSocketThread.h"
#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

// Calls in an order that makes no sense, twice and too late, and ends without a stop.
namespace
{

using Faults::c_szLoopback;
using Faults::Loopback;
using Support::tBytes;

constexpr int c_nLives = 200; // of a handler under traffic

class CCountingHandler : public CClientMsgHandler
{
public:
    CCountingHandler() : CClientMsgHandler(false), nApplied(0), nSendAlls(0) {}
    ~CCountingHandler() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg&) override
    {
        ++nApplied;
        return 0;
    }

    bool SendAll() override
    {
        ++nSendAlls;
        return CClientMsgHandler::SendAll();
    }

    bool Open(unsigned int unPort = 0) { return InitialiseClient(unPort, c_szLoopback, nullptr, nullptr); }

    int nApplied;
    std::atomic<int> nSendAlls;
};

tBytes UpdateDatagram()
{
    tBytes update = Support::UpdateHeader(enMCUpdateRotary, 8);
    Support::AppendArray(update, {1, 2, 3, 4});
    return Support::Datagram(0, 1, 1, 1, update);
}

class CPeer
{
public:
    CPeer() : m_nSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    ~CPeer() { close(m_nSocket); }
    CPeer(const CPeer&) = delete;
    CPeer& operator=(const CPeer&) = delete;

    // A port of which nobody else gets a share.
    unsigned int Occupy()
    {
        sockaddr_in address = Loopback(0);
        socklen_t unSize = sizeof address;
        bind(m_nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        getsockname(m_nSocket, reinterpret_cast<sockaddr*>(&address), &unSize);
        return ntohs(address.sin_port);
    }

    void Send(unsigned int unPort, const tBytes& datagram)
    {
        const sockaddr_in address = Loopback(unPort);
        sendto(m_nSocket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }

private:
    const int m_nSocket;
};

// Sends updates and rubbish to a port for as long as it lives.
class CTraffic
{
public:
    CTraffic() : m_unPort(0), m_bEnd(false), m_Thread([this] { Run(); }) {}
    ~CTraffic()
    {
        m_bEnd = true;
        m_Thread.join();
    }

    void Aim(unsigned int unPort) { m_unPort = unPort; }

private:
    void Run()
    {
        CPeer peer;
        const tBytes update = UpdateDatagram();
        const tBytes fragment = Support::Datagram(0, 2, 1, 3, {1, 2, 3});
        while (!m_bEnd)
        {
            const unsigned int unPort = m_unPort;
            if (unPort != 0)
            {
                peer.Send(unPort, update);
                peer.Send(unPort, fragment);
                peer.Send(unPort, {1, 2, 3});
            }
            std::this_thread::yield();
        }
    }

    std::atomic<unsigned int> m_unPort;
    std::atomic<bool> m_bEnd;
    std::thread m_Thread;
};

template <class Condition>
bool Becomes(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > end)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

int EntriesOf(const char* szFolder)
{
    int nEntries = 0;
    DIR* pFolder = opendir(szFolder);
    while (readdir(pFolder) != nullptr)
    {
        ++nEntries;
    }
    closedir(pFolder);
    return nEntries;
}

} // namespace

TEST(Misuse, AHandlerThatWasNeverOpenedAnswers)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    RySocketIO::CIPString sender("x");
    EXPECT_FALSE(pHandler->SendAll());
    EXPECT_EQ(6, pHandler->UpdateBMA());
    EXPECT_EQ(1, pHandler->GetMCTimeouts());
    EXPECT_EQ(-1.0f, pHandler->GetSurfUpdatePeriod());
    EXPECT_EQ(-1.0f, pHandler->GetRotsUpdatePeriod());
    EXPECT_EQ(0u, pHandler->GetUpdateSequence());
    EXPECT_EQ(0u, pHandler->GetUpdateId());
    EXPECT_EQ(0u, pHandler->GetLocalPort());
    EXPECT_EQ(0, pHandler->GetReceiveBufferSize());
    EXPECT_FALSE(pHandler->GetLastSender(sender));
    EXPECT_STREQ("", sender.Text());
    EXPECT_FALSE(pHandler->AddToGroup("225.0.0.1"));
    EXPECT_FALSE(pHandler->Send(c_szLoopback, 9, "x", 1));
    pHandler->StopPPCSender();
    pHandler->ClearReceiveErrors();
    pHandler->ClearPPCBuffer();
    pHandler->ResetRemoteAddresses();
    pHandler->Shutdown();
    pHandler->Shutdown();
    EXPECT_TRUE(pHandler->Open()) << "and is opened afterwards";
}

TEST(Misuse, ChangesQueuedBeforeOpeningAreTakenOutAndNotSent)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    pHandler->SetRemoteAddress(c_szLoopback, 0, 9);
    EXPECT_TRUE(pHandler->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f));
    EXPECT_FALSE(pHandler->SendAll());
    EXPECT_EQ(0, pHandler->GetPPCBufferSize());
}

TEST(Misuse, ASecondInitialiseClientIsRefusedAndTheFirstGoesOn)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pHandler->Open());
    const unsigned int unPort = pHandler->GetLocalPort();
    EXPECT_FALSE(pHandler->Open());
    EXPECT_FALSE(pHandler->Open(unPort + 1));
    EXPECT_EQ(unPort, pHandler->GetLocalPort());
    CPeer peer;
    peer.Send(unPort, UpdateDatagram());
    EXPECT_TRUE(Becomes([&] { return pHandler->UpdateBMA() == 0; }));
    EXPECT_EQ(1, pHandler->nApplied);
}

TEST(Misuse, ASecondInitialiseClientMayJoinAnotherGroupOnTheFirstPort)
{
    if (std::getenv("LOGICALCONTROLS_OWN_NETWORK") == nullptr)
    {
        GTEST_SKIP() << "not in a network namespace of its own";
    }
    const auto pHandler = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pHandler->Open());
    const unsigned int unPort = pHandler->GetLocalPort();
    EXPECT_TRUE(pHandler->InitialiseClient(unPort + 1, nullptr, "225.0.0.46", nullptr));
    EXPECT_EQ(unPort, pHandler->GetLocalPort());
}

TEST(Misuse, ABusyPortIsRefusedAndTakenWhenItIsFree)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    auto pPeer = std::make_unique<CPeer>();
    const unsigned int unPort = pPeer->Occupy();
    ASSERT_NE(0u, unPort);
    for (int nTry = 0; nTry < 10; ++nTry)
    {
        EXPECT_FALSE(pHandler->Open(unPort));
        EXPECT_EQ(0u, pHandler->GetLocalPort());
    }
    pPeer.reset();
    EXPECT_TRUE(pHandler->Open(unPort));
    EXPECT_EQ(unPort, pHandler->GetLocalPort());
}

TEST(Misuse, APortThatCanNotBeIsRefused)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    EXPECT_FALSE(pHandler->InitialiseClient(65536, c_szLoopback, nullptr, nullptr));
    EXPECT_FALSE(pHandler->InitialiseClient(4000000000u, c_szLoopback, nullptr, nullptr));
    EXPECT_FALSE(pHandler->InitialiseClient(0, "203.0.113.1", nullptr, nullptr)) << "not of this machine";
    EXPECT_FALSE(pHandler->InitialiseClient(0, "x", "y", "z"));
    EXPECT_TRUE(pHandler->Open());
}

TEST(Misuse, TwoHandlersOfOnePortShareItAndOneEndsWithoutTheOther)
{
    auto pFirst = std::make_unique<CCountingHandler>();
    auto pSecond = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pFirst->Open());
    const unsigned int unPort = pFirst->GetLocalPort();
    ASSERT_TRUE(pSecond->Open(unPort));
    CPeer peer;
    peer.Send(unPort, UpdateDatagram());
    const auto applied = [&] { return pFirst->UpdateBMA() * pSecond->UpdateBMA() == 0; };
    EXPECT_TRUE(Becomes(applied));
    EXPECT_EQ(1, pFirst->nApplied + pSecond->nApplied) << "a datagram for this machine alone goes to one of them";
    pSecond.reset();
    peer.Send(unPort, UpdateDatagram());
    EXPECT_TRUE(Becomes([&] { return pFirst->UpdateBMA() == 0; }));
}

TEST(Misuse, ASenderIsStartedOnceAndStoppedAsOftenAsOneLikes)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pHandler->Open());
    pHandler->StopPPCSender();
    EXPECT_TRUE(pHandler->StartPPCSender(1));
    EXPECT_FALSE(pHandler->StartPPCSender(1));
    EXPECT_TRUE(Becomes([&] { return pHandler->nSendAlls > 1; }));
    pHandler->StopPPCSender();
    pHandler->StopPPCSender();
    const int nSendAlls = pHandler->nSendAlls;
    EXPECT_FALSE(pHandler->StartPPCSender(1)) << "once only";
    EXPECT_TRUE(pHandler->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f));
    EXPECT_EQ(1, pHandler->GetPPCBufferSize()) << "what is queued stays queued";
    EXPECT_EQ(nSendAlls, pHandler->nSendAlls);
}

TEST(Misuse, AHandlerThatWasShutDownAnswers)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pHandler->Open());
    const unsigned int unPort = pHandler->GetLocalPort();
    ASSERT_TRUE(pHandler->StartPPCSender(1));
    pHandler->Shutdown();
    pHandler->Shutdown();
    CPeer peer;
    peer.Send(unPort, UpdateDatagram());
    EXPECT_EQ(6, pHandler->UpdateBMA());
    EXPECT_EQ(0, pHandler->nApplied) << "nobody receives any more";
    EXPECT_FALSE(pHandler->Open());
    EXPECT_FALSE(pHandler->StartPPCSender(1));
    pHandler->SetRemoteAddress(c_szLoopback, 0, 9);
    EXPECT_TRUE(pHandler->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f));
    EXPECT_TRUE(pHandler->SendAll()) << "the socket is there until the handler ends";
    tBytes datagram = UpdateDatagram();
    pHandler->OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()), c_szLoopback);
    EXPECT_EQ(0, pHandler->UpdateBMA());
}

TEST(Misuse, AThreadIsStartedStoppedAndStartedAgain)
{
    RySocketIO::CSocketThread thread;
    EXPECT_FALSE(thread.Stop());
    for (int nRound = 0; nRound < 3; ++nRound)
    {
        EXPECT_TRUE(thread.Start(-1));
        EXPECT_FALSE(thread.Start(-1));
        EXPECT_TRUE(thread.IsRunning());
        EXPECT_TRUE(thread.Stop());
        EXPECT_FALSE(thread.Stop());
        EXPECT_FALSE(thread.IsRunning());
    }
    EXPECT_TRUE(thread.Start(0)) << "no iteration at all";
    EXPECT_TRUE(Becomes([&] { return !thread.IsRunning(); }));
}

// Neither thread is stopped before the end, and datagrams keep coming. Every other handler has nobody derived from it who would
// stop them.
TEST(Misuse, HandlersEndUnderTraffic)
{
    const int nDescriptors = EntriesOf("/proc/self/fd");
    const int nThreads = EntriesOf("/proc/self/task");
    std::uint32_t unReceived = 0;
    {
        CTraffic traffic;
        for (int nLife = 0; nLife < c_nLives; ++nLife)
        {
            const std::unique_ptr<CClientMsgHandler> pHandler(nLife % 2 == 0 ? new CClientMsgHandler(false) : new CCountingHandler);
            ASSERT_TRUE(pHandler->InitialiseClient(0, c_szLoopback, nullptr, nullptr));
            pHandler->SetRemoteAddress(c_szLoopback, 0, -1);
            traffic.Aim(pHandler->GetLocalPort());
            ASSERT_TRUE(pHandler->StartPPCSender(0));
            ASSERT_TRUE(pHandler->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f));
            ASSERT_TRUE(Becomes([&] { return pHandler->UpdateBMA() == 0; }));
            unReceived += pHandler->GetSocketStatistics().unDatagrams;
            ASSERT_TRUE(pHandler->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f)); // that may be on its way
        }
    }
    EXPECT_LE(static_cast<std::uint32_t>(c_nLives), unReceived);
    EXPECT_EQ(nDescriptors, EntriesOf("/proc/self/fd"));
    EXPECT_TRUE(Becomes([&] { return EntriesOf("/proc/self/task") == nThreads; }));
}
