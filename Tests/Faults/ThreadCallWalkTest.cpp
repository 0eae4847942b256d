#include "RySocketIO/CSocketThread.h"

#include "ClientComms/ClientMsgHandler.h"
#include "Faults/EachFault.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <memory>

// Threads that start, wait and stop while calls of the system fail.
namespace
{

using namespace Faults;

constexpr double c_dMostCalls = 500; // a second, of a call that fails for ever

const tErrors c_WaitErrors = {EFAULT, EINTR, EINVAL, ENOMEM};
const tErrors c_WriteErrors = {EAGAIN, EBADF, EDESTADDRREQ, EDQUOT, EFAULT, EFBIG, EINTR, EINVAL, EIO, ENOSPC, EPERM, EPIPE};
const tErrors c_ReadErrors = {EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO, EISDIR};

class CCountingThread : public RySocketIO::CSocketThread
{
public:
    CCountingThread() : nDone(0) { SetIterationDelay(0, 1000); }
    ~CCountingThread() override { Stop(); }
    void Do() override { ++nDone; }

    std::atomic<int> nDone;
};

std::unique_ptr<CCountingThread> Thread()
{
    return std::make_unique<CCountingThread>();
}

std::unique_ptr<CClientMsgHandler> Handler()
{
    return std::make_unique<CClientMsgHandler>(false);
}

std::unique_ptr<CClientMsgHandler> OpenHandler()
{
    auto pHandler = Handler();
    EXPECT_TRUE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
    return pHandler;
}

std::unique_ptr<CCountingThread> StoppedThread()
{
    auto pThread = Thread();
    EXPECT_TRUE(pThread->Start(-1));
    EXPECT_TRUE(pThread->Stop());
    return pThread;
}

// Stops a thread that runs.
void ExpectToStop(CCountingThread& thread)
{
    bool bStopped = false;
    EXPECT_TRUE(EndsInTime([&] { bStopped = thread.Stop(); }));
    EXPECT_TRUE(bStopped);
    EXPECT_FALSE(thread.IsRunning());
}

} // namespace

TEST(ThreadCallWalk, AThreadThatCanNotStartSaysSoAndStartsWhenItCan)
{
    WithEach(enStartThread, {EAGAIN, EINVAL, EPERM}, Thread,
             [](CCountingThread& thread, int nTimes)
             {
                 EXPECT_FALSE(thread.Start(-1));
                 EXPECT_FALSE(thread.IsRunning());
                 EXPECT_FALSE(thread.Stop());
                 EXPECT_EQ(nTimes == 1, thread.Start(-1));
                 EXPECT_TRUE(nTimes != 1 || Becomes([&] { return thread.nDone > 1; }));
             });
}

TEST(ThreadCallWalk, ASenderThatCanNotStartSaysSo)
{
    const auto start = [](CClientMsgHandler& handler, int)
    {
        EXPECT_FALSE(handler.StartPPCSender(1));
        handler.StopPPCSender();
    };
    WithEach(enStartThread, {EAGAIN, EINVAL, EPERM}, Handler, start);
    WithEach(enEvent, {EINVAL, EMFILE, ENFILE, ENODEV, ENOMEM}, Handler, start);
}

TEST(ThreadCallWalk, WhatWasMadeWhenThereWereNoDescriptorsWorksWhenThereAre)
{
    std::unique_ptr<CClientMsgHandler> pHandler;
    std::unique_ptr<CCountingThread> pThread;
    {
        const CFault fault(enEvent, EMFILE);
        pHandler = Handler();
        pThread = Thread();
        EXPECT_FALSE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
        EXPECT_FALSE(pThread->Start(-1));
        EXPECT_LT(0, CFault::Struck());
    }
    EXPECT_TRUE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
    EXPECT_TRUE(pThread->Start(-1));
}

TEST(ThreadCallWalk, AThreadKeepsItsPeriodAndStopsWhileItsWaitFails)
{
    WithEach(enPPoll, c_WaitErrors, Thread,
             [](CCountingThread& thread, int nTimes)
             {
                 thread.SetIterationDelay(0, 50000);
                 ASSERT_TRUE(thread.Start(-1));
                 EXPECT_TRUE(Becomes([] { return CFault::Struck() > 0; }));
                 if (nTimes == INT_MAX)
                 {
                     EXPECT_GT(c_dMostCalls, CallsASecond(enPPoll));
                 }
                 ExpectToStop(thread);
             });
}

TEST(ThreadCallWalk, AThreadStopsAlthoughItCanNotBeWoken)
{
    WithEach(enWrite, c_WriteErrors, Thread,
             [](CCountingThread& thread, int)
             {
                 ASSERT_TRUE(thread.Start(-1));
                 ExpectToStop(thread);
             });
}

TEST(ThreadCallWalk, AHandlerStopsAlthoughItsThreadCanNotBeWoken)
{
    WithEach(enWrite, c_WriteErrors, OpenHandler,
             [](CClientMsgHandler& handler, int) { EXPECT_TRUE(EndsInTime([&] { handler.Shutdown(); })); });
}

// One that could not be told that it is to go on may say that it does not start; one that says it does goes on.
TEST(ThreadCallWalk, AThreadThatIsStartedAgainRuns)
{
    WithEach(enRead, c_ReadErrors, StoppedThread,
             [](CCountingThread& thread, int)
             {
                 const bool bStarted = thread.Start(-1);
                 EXPECT_TRUE(Becomes([&] { return !thread.IsRunning() || thread.nDone > 5; }));
                 EXPECT_EQ(bStarted, thread.IsRunning());
             });
    const auto pThread = StoppedThread();
    const CFault fault(enRead, EINTR, 1);
    EXPECT_TRUE(pThread->Start(-1));
}
