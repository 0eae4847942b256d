#include "ClientComms/ClientMsgHandler.h"

#include "Faults/EachFault.h"
#include "Faults/OpenHandler.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <memory>
#include <string>

// Receiving and sending while calls of the system fail.
namespace
{

using namespace Faults;

constexpr int c_nTriesOfASend = 30;  // each 5 ms, for 100 ms
constexpr double c_dMostCalls = 500; // a second, of a call that fails for ever

// ---- Receiving ----------------------------------------------------------------------------------------------------------------

struct stReceiving
{
    const char* szCall;
    enCalls enCall;
    tErrors errors;
};

const stReceiving c_aReceivings[] = {
    {"recvmsg", enReceive, {EAGAIN, EBADF, ECONNREFUSED, EFAULT, EINTR, EINVAL, ENOBUFS, ENOMEM, ENOTCONN, ENOTSOCK, EIO}},
    {"poll", enPoll, {EFAULT, EINTR, EINVAL, ENOMEM}},
};

bool Applies(CCountingHandler& handler, int nUpdates)
{
    return Becomes(
        [&]
        {
            handler.UpdateBMA();
            return handler.nApplied >= nUpdates;
        });
}

void ReceiveDespite(const stReceiving& row, int nError, int nTimes)
{
    SCOPED_TRACE(std::string(row.szCall) + ": " + NameOf(nError, nTimes));
    const auto pHandler = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pHandler->Open());
    CPeer peer(pHandler->GetLocalPort());
    {
        const CFault fault(row.enCall, nError, nTimes);
        peer.SendUpdate(); // wakes the thread
        EXPECT_TRUE(Becomes([] { return CFault::Struck() > 0; }));
        if (nTimes == INT_MAX)
        {
            EXPECT_GT(c_dMostCalls, CallsASecond(row.enCall));
        }
    }
    peer.SendUpdate();
    EXPECT_TRUE(Applies(*pHandler, 2));
    EXPECT_EQ(2, pHandler->nApplied);
    const bool bCounts = nError != EAGAIN && nError != EINTR; // those two are no errors
    const std::uint32_t unErrors = pHandler->GetSocketStatistics().unErrors;
    EXPECT_TRUE(bCounts ? unErrors > 0 && (nTimes != 1 || unErrors == 1) : unErrors == 0) << unErrors;
    EXPECT_TRUE(EndsInTime([&] { pHandler->Shutdown(); }));
}

// The thread ends while its calls still fail.
void StopDespite(const stReceiving& row, int nError)
{
    SCOPED_TRACE(std::string(row.szCall) + ": " + NameOf(nError, INT_MAX));
    const auto pHandler = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pHandler->Open());
    CPeer peer(pHandler->GetLocalPort());
    const CFault fault(row.enCall, nError);
    peer.SendUpdate();
    EXPECT_TRUE(Becomes([] { return CFault::Struck() > 0; }));
    EXPECT_TRUE(EndsInTime([&] { pHandler->Shutdown(); }));
}

// ---- Sending ------------------------------------------------------------------------------------------------------------------

struct stSending
{
    const char* szCall;
    enCalls enCall;
    bool bSends; // all the same, when it fails once
    tErrors errors;
};

const stSending c_aSendings[] = {
    {"sendto",
     enSend,
     false,
     {EACCES, EALREADY, EBADF, ECONNREFUSED, ECONNRESET, EDESTADDRREQ, EFAULT, EINVAL, EISCONN, EMSGSIZE, ENOBUFS, ENOMEM, ENOTCONN,
      ENOTSOCK, EOPNOTSUPP, EPIPE, EPERM, ENETUNREACH, EHOSTUNREACH}},
    {"sendto", enSend, true, {EAGAIN, EINTR}},
    {"poll", enPoll, true, {EFAULT, EINTR, EINVAL, ENOMEM}},
    {"inet_pton", enParseAddress, false, {EAFNOSUPPORT}},
    {"gettimeofday", enTimeOfDay, true, {EFAULT, EINVAL}},
};

void SendDespite(const stSending& row, int nError, int nTimes)
{
    SCOPED_TRACE(std::string(row.szCall) + ": " + NameOf(nError, nTimes));
    CPeer peer;
    const auto pHandler = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pHandler->Open());
    pHandler->SetRemoteAddress(c_szLoopback, 0, peer.Port());
    ASSERT_TRUE(pHandler->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f));
    bool bSent = false;
    int nStruck = 0;
    int nCalls = 0;
    const bool bInTime = EndsInTime(
        [&]
        {
            const int nBefore = CallsOf(row.enCall);
            const CFault fault(row.enCall, nError, nTimes);
            bSent = pHandler->SendAll();
            nStruck = CFault::Struck();
            nCalls = CallsOf(row.enCall) - nBefore;
        });
    EXPECT_TRUE(bInTime);
    EXPECT_LT(0, nStruck);
    EXPECT_GT(c_dMostCalls, nCalls);
    const bool bGivesUp = row.enCall == enSend && nTimes == INT_MAX;
    EXPECT_EQ(row.bSends && !bGivesUp, bSent);
    EXPECT_EQ(0, pHandler->GetPPCBufferSize()) << "a datagram is sent once";
    ASSERT_TRUE(pHandler->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f));
    EXPECT_TRUE(pHandler->SendAll());
    EXPECT_TRUE(Becomes([&, nTaken = 0]() mutable { return (nTaken += peer.Take()) == (bSent ? 2 : 1); }));
}

} // namespace

TEST(TrafficCallWalk, EachDatagramIsReceivedWhateverRecvmsgAndPollAnswerMeanwhile)
{
    const int nDescriptors = OpenDescriptors();
    for (const stReceiving& row : c_aReceivings)
    {
        for (const int nError : row.errors)
        {
            ReceiveDespite(row, nError, 1);
            ReceiveDespite(row, nError, INT_MAX);
        }
    }
    EXPECT_EQ(nDescriptors, OpenDescriptors());
}

TEST(TrafficCallWalk, AReceiveThreadEndsWhileItsCallsFail)
{
    for (const stReceiving& row : c_aReceivings)
    {
        for (const int nError : row.errors)
        {
            StopDespite(row, nError);
        }
    }
}

TEST(TrafficCallWalk, ASenderThatIsToEndDoesNotTryEachAddressInVain)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    for (int nPort = 1; nPort <= 5; ++nPort)
    {
        pHandler->SetRemoteAddress(c_szLoopback, 0, nPort);
    }
    ASSERT_TRUE(pHandler->Open());
    ASSERT_TRUE(pHandler->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f));
    const CFault fault(enSend, EAGAIN);
    ASSERT_TRUE(pHandler->StartPPCSender(1));
    ASSERT_TRUE(Becomes([] { return CFault::Struck() > 0; }));
    const int nBefore = CFault::Struck();
    EXPECT_TRUE(EndsInTime([&] { pHandler->StopPPCSender(); }));
    EXPECT_GT(c_nTriesOfASend, CFault::Struck() - nBefore);
}

TEST(TrafficCallWalk, DatagramsThatWereCutOrEmptyAreDropped)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pHandler->Open());
    CPeer peer(pHandler->GetLocalPort());
    for (const int nAnswer : {c_nTruncated, c_nEmpty})
    {
        const CFault fault(enReceive, nAnswer, 1);
        peer.SendUpdate();
        EXPECT_TRUE(Becomes([] { return CFault::Struck() == 1; }));
    }
    peer.SendUpdate();
    EXPECT_TRUE(Applies(*pHandler, 1));
    EXPECT_EQ(1, pHandler->nApplied);
    EXPECT_EQ(1u, pHandler->GetSocketStatistics().unTruncated);
}

TEST(TrafficCallWalk, AnUnprintableSenderIsStillAnUpdate)
{
    const auto pHandler = std::make_unique<CCountingHandler>();
    ASSERT_TRUE(pHandler->Open());
    CPeer peer(pHandler->GetLocalPort());
    for (const int nError : {EAFNOSUPPORT, ENOSPC})
    {
        const CFault fault(enPrintAddress, nError);
        peer.SendUpdate();
        EXPECT_TRUE(Applies(*pHandler, 1));
    }
}

TEST(TrafficCallWalk, WhatCanNotBeSentIsGoneAndTheNextIsSent)
{
    const int nDescriptors = OpenDescriptors();
    for (const stSending& row : c_aSendings)
    {
        for (const int nError : row.errors)
        {
            SendDespite(row, nError, 1);
            SendDespite(row, nError, INT_MAX);
        }
    }
    EXPECT_EQ(nDescriptors, OpenDescriptors());
}
