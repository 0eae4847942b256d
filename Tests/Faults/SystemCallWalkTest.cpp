#include "Faults/EachFault.h"

#include "Faults/OpenHandler.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <string>

// Handlers that open while calls of the system fail.
namespace
{

using namespace Faults;

struct stOpening
{
    const char* szCall;
    enCalls enCall;
    int nOption;
    int nOtherOption;
    bool bOpens;  // all the same
    bool bPort;   // and the port is known
    bool bBuffer; // and the size of the buffer
    tErrors errors;
};

const tErrors c_OptionErrors = {EBADF, EDOM, EFAULT, EINVAL, EISCONN, ENOBUFS, ENOMEM, ENOPROTOOPT, ENOTSOCK, EPERM};

const stOpening c_aOpenings[] = {
    {"socket",
     enSocket,
     -1,
     -1,
     false,
     false,
     false,
     {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT}},
    {"setsockopt, whatever for", enSetOption, -1, -1, false, false, false, c_OptionErrors},
    {"setsockopt SO_REUSEADDR", enSetOption, SO_REUSEADDR, -1, false, false, false, c_OptionErrors},
    {"setsockopt of the buffer", enSetOption, SO_RCVBUF, SO_RCVBUFFORCE, true, true, true, c_OptionErrors},
    {"setsockopt SO_RXQ_OVFL", enSetOption, SO_RXQ_OVFL, -1, true, true, true, c_OptionErrors},
    {"setsockopt IP_MULTICAST_ALL", enSetOption, IP_MULTICAST_ALL, -1, true, true, true, c_OptionErrors},
    {"getsockopt", enGetOption, -1, -1, true, true, false, {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}},
    {"bind", enBind, -1, -1, false, false, false, {EACCES, EADDRINUSE, EADDRNOTAVAIL, EBADF, EFAULT, EINVAL, ENOMEM, ENOTSOCK}},
    {"getsockname", enGetName, -1, -1, true, false, true, {EBADF, EFAULT, EINVAL, ENOBUFS, ENOTSOCK}},
    {"eventfd", enEvent, -1, -1, false, false, false, {EINVAL, EMFILE, ENFILE, ENODEV, ENOMEM}},
    {"start of a thread", enStartThread, -1, -1, false, false, false, {EAGAIN, EINVAL, EPERM}},
    {"pthread_sigmask", enSignalMask, -1, -1, true, true, true, {EFAULT, EINVAL}},
    {"close", enClose, -1, -1, true, true, true, {EBADF, EDQUOT, EINTR, EIO, ENOSPC}},
    {"inet_pton", enParseAddress, -1, -1, false, false, false, {EAFNOSUPPORT}},
    {"gettimeofday", enTimeOfDay, -1, -1, true, true, true, {EFAULT, EINVAL}},
    {"pthread_mutex_init", enMutexInit, -1, -1, true, true, true, {EAGAIN, ENOMEM, EPERM}},
    {"pthread_mutexattr_init", enMutexAttributeInit, -1, -1, true, true, true, {ENOMEM}},
    {"pthread_mutex_destroy", enMutexDestroy, -1, -1, true, true, true, {EBUSY, EINVAL}},
};

// Whether this thread takes the signals that it took at first; from now on it does.
bool SignalsAreAsEver()
{
    static const sigset_t s_Ever = []
    {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        return mask;
    }();
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, &s_Ever, &now);
    bool bSame = true;
    for (const int nSignal : {SIGALRM, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2})
    {
        bSame = bSame && sigismember(&now, nSignal) == sigismember(&s_Ever, nSignal);
    }
    return bSame;
}

void Open(const stOpening& row, int nError, int nTimes)
{
    SCOPED_TRACE(std::string(row.szCall) + ": " + NameOf(nError, nTimes));
    ASSERT_TRUE(SignalsAreAsEver());
    const int nDescriptors = OpenDescriptors();
    const int nBadCloses = BadCloses();
    bool bOpened = false;
    unsigned int unPort = 0;
    int nBuffer = 0;
    int nStruck = 0;
    const bool bInTime = EndsInTime(
        [&]
        {
            const CFault fault(row.enCall, nError, nTimes, row.nOption, row.nOtherOption);
            auto pHandler = std::make_unique<CCountingHandler>();
            bOpened = pHandler->Open();
            unPort = pHandler->GetLocalPort();
            nBuffer = pHandler->GetReceiveBufferSize();
            pHandler->UpdateBMA();
            pHandler.reset();
            nStruck = CFault::Struck();
        });
    EXPECT_TRUE(bInTime);
    EXPECT_LT(0, nStruck);
    EXPECT_EQ(row.bOpens, bOpened);
    EXPECT_EQ(row.bPort, unPort != 0);
    EXPECT_TRUE(!row.bOpens || row.bBuffer == (nBuffer != 0));
    EXPECT_TRUE(SignalsAreAsEver());
    EXPECT_EQ(nDescriptors, OpenDescriptors());
    EXPECT_EQ(nBadCloses, BadCloses());
    const auto pNext = std::make_unique<CCountingHandler>();
    EXPECT_TRUE(pNext->Open());
    EXPECT_NE(0u, pNext->GetLocalPort());
}

} // namespace

TEST(SystemCallWalk, AHandlerThatCanNotOpenSaysSoAndTheNextOneOpens)
{
    for (const stOpening& row : c_aOpenings)
    {
        for (const int nError : row.errors)
        {
            Open(row, nError, 1);
            Open(row, nError, INT_MAX);
        }
    }
}

TEST(SystemCallWalk, AnInterfaceThatCanNotBeChosenIsARefusal)
{
    for (const int nError : c_OptionErrors)
    {
        const auto pHandler = std::make_unique<CCountingHandler>();
        const CFault fault(enSetOption, nError, INT_MAX, IP_MULTICAST_IF);
        EXPECT_FALSE(pHandler->InitialiseClient(0, c_szLoopback, nullptr, c_szLoopback));
        EXPECT_EQ(1, CFault::Struck());
        EXPECT_EQ(0u, pHandler->GetLocalPort());
    }
}

TEST(SystemCallWalk, AGroupThatCanNotBeJoinedLeavesThePort)
{
    for (const int nError : {EADDRINUSE, EADDRNOTAVAIL, ENOBUFS, ENODEV, ENOMEM, EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK})
    {
        SCOPED_TRACE(std::strerror(nError));
        const auto pHandler = std::make_unique<CCountingHandler>();
        {
            const CFault fault(enSetOption, nError, INT_MAX, IP_ADD_MEMBERSHIP);
            EXPECT_TRUE(pHandler->InitialiseClient(0, c_szLoopback, "225.0.0.1", nullptr));
            EXPECT_EQ(1, CFault::Struck());
            EXPECT_FALSE(pHandler->AddToGroup("225.0.0.1"));
        }
        EXPECT_NE(0u, pHandler->GetLocalPort());
        EXPECT_TRUE(pHandler->AddToGroup("225.0.0.1"));
    }
}
