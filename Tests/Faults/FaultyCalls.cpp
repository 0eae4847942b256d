#include "Faults/FaultyCalls.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <thread>

// The real calls. The linker sends the program's here and keeps these as __real_...
#define CALLS(CALL)                                                                                                                \
    CALL(int, socket, enSocket, (int a, int b, int c), (a, b, c))                                                                  \
    CALL(int, getsockopt, enGetOption, (int a, int b, int c, void* d, socklen_t* e), (a, b, c, d, e))                              \
    CALL(int, bind, enBind, (int a, const sockaddr* b, socklen_t c), (a, b, c))                                                    \
    CALL(int, getsockname, enGetName, (int a, sockaddr* b, socklen_t* c), (a, b, c))                                               \
    CALL(int, poll, enPoll, (pollfd * a, nfds_t b, int c), (a, b, c))                                                              \
    CALL(int, ppoll, enPPoll, (pollfd * a, nfds_t b, const timespec* c, const sigset_t* d), (a, b, c, d))                          \
    CALL(ssize_t, read, enRead, (int a, void* b, std::size_t c), (a, b, c))                                                        \
    CALL(ssize_t, write, enWrite, (int a, const void* b, std::size_t c), (a, b, c))                                                \
    CALL(int, inet_pton, enParseAddress, (int a, const char* b, void* c), (a, b, c))                                               \
    CALL(int, sem_init, enSemaphoreInit, (sem_t * a, int b, unsigned int c), (a, b, c))                                            \
    CALL(int, sem_wait, enSemaphoreWait, (sem_t * a), (a))                                                                         \
    CALL(int, sem_post, enSemaphorePost, (sem_t * a), (a))                                                                         \
    CALL(int, mprotect, enProtect, (void* a, std::size_t b, int c), (a, b, c))                                                     \
    CALL(long, sysconf, enSystemValue, (int a), (a))                                                                               \
    CALL(int, nanosleep, enSleep, (const timespec* a, timespec* b), (a, b))

// Those that return their error.
#define CODE_CALLS(CALL)                                                                                                           \
    CALL(pthread_mutex_init, enMutexInit, (pthread_mutex_t * a, const pthread_mutexattr_t* b), (a, b))                             \
    CALL(pthread_mutexattr_init, enMutexAttributeInit, (pthread_mutexattr_t * a), (a))                                             \
    CALL(pthread_mutexattr_settype, enMutexAttributeType, (pthread_mutexattr_t * a, int b), (a, b))                                \
    CALL(pthread_mutex_destroy, enMutexDestroy, (pthread_mutex_t * a), (a))                                                        \
    CALL(pthread_rwlock_init, enReadersInit, (pthread_rwlock_t * a, const pthread_rwlockattr_t* b), (a, b))                        \
    CALL(pthread_rwlockattr_init, enReadersAttributeInit, (pthread_rwlockattr_t * a), (a))                                         \
    CALL(pthread_rwlock_rdlock, enReadersRead, (pthread_rwlock_t * a), (a))                                                        \
    CALL(pthread_rwlock_wrlock, enReadersWrite, (pthread_rwlock_t * a), (a))                                                       \
    CALL(pthread_rwlock_unlock, enReadersUnlock, (pthread_rwlock_t * a), (a))

namespace
{

using Faults::enCalls;

constexpr std::chrono::seconds c_Patience(2);
constexpr int c_nEvents = 64;

std::atomic<int> g_nCall{-1};
std::atomic<int> g_nError{0};
std::atomic<int> g_nLeft{0};
std::atomic<int> g_anOptions[2];
std::atomic<int> g_nStruck{0};
std::atomic<int> g_anCalls[Faults::enCallCount];
std::atomic<int> g_nBadCloses{0};
std::atomic<int> g_anEvents[c_nEvents];                   // descriptors, plus 1
thread_local const pthread_mutex_t* g_pRefused = nullptr; // the last that this thread did not get
std::atomic<int> g_nBadUnlocks{0};

// The error that this call has to answer, 0 for none.
int ErrorOf(enCalls enCall)
{
    ++g_anCalls[enCall];
    if (g_nCall != enCall || g_nLeft-- <= 0)
    {
        return 0;
    }
    ++g_nStruck;
    return g_nError;
}

bool Strikes(enCalls enCall)
{
    const int nError = ErrorOf(enCall);
    errno = nError != 0 ? nError : errno;
    return nError != 0;
}

void Lift()
{
    g_nCall = -1;
}

} // namespace

extern "C"
{

#define WRAP(result, name, call, parameters, arguments)                                                                            \
    result __real_##name parameters;                                                                                               \
    result __wrap_##name parameters                                                                                                \
    {                                                                                                                              \
        return Strikes(Faults::call) ? static_cast<result>(-1) : __real_##name arguments;                                          \
    }
    CALLS(WRAP)
#undef WRAP

#define WRAP(name, call, parameters, arguments)                                                                                    \
    int __real_##name parameters;                                                                                                  \
    int __wrap_##name parameters                                                                                                   \
    {                                                                                                                              \
        const int nError = ErrorOf(Faults::call);                                                                                  \
        return nError != 0 ? nError : __real_##name arguments;                                                                     \
    }
    CODE_CALLS(WRAP)
#undef WRAP

    int __real_pthread_sigmask(int, const sigset_t*, sigset_t*);
    int __real_pthread_mutex_lock(pthread_mutex_t*);
    int __real_pthread_mutex_trylock(pthread_mutex_t*);
    int __real_pthread_mutex_unlock(pthread_mutex_t*);
    int __real_setsockopt(int, int, int, const void*, socklen_t);
    ssize_t __real_recvmsg(int, msghdr*, int);
    ssize_t __real_sendto(int, const void*, std::size_t, int, const sockaddr*, socklen_t);
    int __real_close(int);
    int __real_eventfd(unsigned int, int);
    int __real_gettimeofday(timeval*, void*);
    hostent* __real_gethostbyname(const char*);
    const char* __real_inet_ntop(int, const void*, char*, socklen_t);
    void __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(void*, void*, void (*)());

    // What it leaves behind when it fails is not a mask to go back to.
    int __wrap_pthread_sigmask(int nHow, const sigset_t* pNew, sigset_t* pOld)
    {
        const int nError = ErrorOf(Faults::enSignalMask);
        if (nError != 0 && pOld != nullptr)
        {
            sigfillset(pOld);
        }
        return nError != 0 ? nError : __real_pthread_sigmask(nHow, pNew, pOld);
    }

    int __wrap_pthread_mutex_lock(pthread_mutex_t* pMutex)
    {
        const int nError = ErrorOf(Faults::enMutexLock);
        g_pRefused = nError != 0 ? pMutex : nullptr;
        return nError != 0 ? nError : __real_pthread_mutex_lock(pMutex);
    }

    int __wrap_pthread_mutex_trylock(pthread_mutex_t* pMutex)
    {
        const int nError = ErrorOf(Faults::enMutexTryLock);
        return nError != 0 ? nError : __real_pthread_mutex_trylock(pMutex);
    }

    // One that was refused must not be unlocked; if it is, nothing is done but to say so.
    int __wrap_pthread_mutex_unlock(pthread_mutex_t* pMutex)
    {
        const int nError = ErrorOf(Faults::enMutexUnlock);
        if (pMutex == g_pRefused)
        {
            g_pRefused = nullptr;
            ++g_nBadUnlocks;
            return EPERM;
        }
        const int nResult = __real_pthread_mutex_unlock(pMutex);
        return nError != 0 ? nError : nResult;
    }

    // A group is never joined for real.
    int __wrap_setsockopt(int nSocket, int nLevel, int nName, const void* pValue, socklen_t unSize)
    {
        const bool bMeant = g_anOptions[0] == -1 || g_anOptions[0] == nName || g_anOptions[1] == nName;
        if (bMeant && Strikes(Faults::enSetOption))
        {
            return -1;
        }
        const bool bJoins = nLevel == IPPROTO_IP && nName == IP_ADD_MEMBERSHIP;
        return bJoins ? 0 : __real_setsockopt(nSocket, nLevel, nName, pValue, unSize);
    }

    ssize_t __wrap_recvmsg(int nSocket, msghdr* pMessage, int nFlags)
    {
        if (g_nError >= 0 && Strikes(Faults::enReceive))
        {
            return -1;
        }
        const ssize_t nLength = __real_recvmsg(nSocket, pMessage, nFlags);
        const int nAnswer = g_nError < 0 && nLength >= 0 ? ErrorOf(Faults::enReceive) : 0; // needs a datagram that came
        if (nAnswer == Faults::c_nTruncated)
        {
            pMessage->msg_flags |= MSG_TRUNC;
        }
        return nAnswer == Faults::c_nEmpty ? 0 : nLength;
    }

    // Nothing that is meant for a network leaves.
    ssize_t __wrap_sendto(int nSocket, const void* pData, std::size_t unLength, int nFlags, const sockaddr* pAddress,
                          socklen_t unSize)
    {
        if (Strikes(Faults::enSend))
        {
            return -1;
        }
        sockaddr_in destination = {};
        std::memcpy(&destination, pAddress, sizeof destination);
        return IN_MULTICAST(ntohl(destination.sin_addr.s_addr)) ? static_cast<ssize_t>(unLength)
                                                                : __real_sendto(nSocket, pData, unLength, nFlags, pAddress, unSize);
    }

    // One that fails has closed all the same, as the system's own.
    int __wrap_close(int nDescriptor)
    {
        const int nError = ErrorOf(Faults::enClose);
        for (std::atomic<int>& nEvent : g_anEvents)
        {
            int nExpected = nDescriptor + 1;
            nEvent.compare_exchange_strong(nExpected, 0);
        }
        const int nResult = __real_close(nDescriptor);
        g_nBadCloses += nResult != 0 && nDescriptor >= 0 ? 1 : 0;
        errno = nError != 0 ? nError : errno;
        return nError != 0 ? -1 : nResult;
    }

    int __wrap_eventfd(unsigned int unValue, int nFlags)
    {
        if (Strikes(Faults::enEvent))
        {
            return -1;
        }
        const int nDescriptor = __real_eventfd(unValue, nFlags);
        for (std::atomic<int>& nEvent : g_anEvents)
        {
            int nExpected = 0;
            if (nEvent.compare_exchange_strong(nExpected, nDescriptor + 1))
            {
                break;
            }
        }
        return nDescriptor;
    }

    int __wrap_gettimeofday(timeval* pTime, void* pZone)
    {
        return Strikes(Faults::enTimeOfDay) ? -1 : __real_gettimeofday(pTime, pZone);
    }

    hostent* __wrap_gethostbyname(const char*)
    {
        static unsigned char s_acAddress[] = {127, 0, 0, 1};
        static char* s_apAddresses[] = {reinterpret_cast<char*>(s_acAddress), nullptr};
        static hostent s_Host = {nullptr, nullptr, AF_INET, sizeof s_acAddress, s_apAddresses};
        const int nError = ErrorOf(Faults::enHostByName);
        h_errno = nError;
        return nError != 0 ? nullptr : &s_Host;
    }

    const char* __wrap_inet_ntop(int nFamily, const void* pAddress, char* acText, socklen_t unSize)
    {
        return Strikes(Faults::enPrintAddress) ? nullptr : __real_inet_ntop(nFamily, pAddress, acText, unSize);
    }

    int __real_open(const char*, int, ...);
    int __real_fcntl(int, int, ...);

    // The library opens to read, which takes no mode, and gives fcntl an int.
    int __wrap_open(const char* szFile, int nFlags, ...)
    {
        return Strikes(Faults::enOpen) ? -1 : __real_open(szFile, nFlags);
    }

    int __wrap_fcntl(int nDescriptor, int nCommand, ...)
    {
        va_list arguments;
        va_start(arguments, nCommand);
        const int nArgument = va_arg(arguments, int);
        va_end(arguments);
        return Strikes(Faults::enDescriptorControl) ? -1 : __real_fcntl(nDescriptor, nCommand, nArgument);
    }

    // Never reaches the system.
    int __wrap_kill(pid_t, int)
    {
        return Strikes(Faults::enKill) ? -1 : 0;
    }

    // What std::thread starts its threads with; pthread_create lies behind it.
    void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(void* pThread, void* pState,
                                                                                                      void (*pDepend)())
    {
        const int nError = ErrorOf(Faults::enStartThread);
        if (nError != 0)
        {
            throw std::system_error(nError, std::generic_category());
        }
        __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(pThread, pState, pDepend);
    }

} // extern "C"

namespace Faults
{

CFault::CFault(enCalls enCall, int nError, int nTimes, int nOption, int nOtherOption)
{
    g_nStruck = 0;
    g_nError = nError;
    g_nLeft = nTimes;
    g_anOptions[0] = nOption;
    g_anOptions[1] = nOtherOption;
    g_nCall = enCall;
}

CFault::~CFault()
{
    Lift();
    g_pRefused = nullptr;
    g_anOptions[0] = -1;
}

int CFault::Struck()
{
    return g_nStruck;
}

int CallsOf(enCalls enCall)
{
    return g_anCalls[enCall];
}

int BadCloses()
{
    return g_nBadCloses;
}

int BadUnlocks()
{
    return g_nBadUnlocks;
}

int OpenDescriptors()
{
    int nOpen = 0;
    DIR* pFolder = opendir("/proc/self/fd");
    while (readdir(pFolder) != nullptr)
    {
        ++nOpen;
    }
    closedir(pFolder);
    return nOpen;
}

bool EndsInTime(const std::function<void()>& action)
{
    std::atomic<bool> bDone{false};
    std::atomic<bool> bLate{false};
    std::thread watch(
        [&]
        {
            const auto end = std::chrono::steady_clock::now() + c_Patience;
            while (!bDone)
            {
                std::this_thread::sleep_for(std::chrono::microseconds(200));
                if (std::chrono::steady_clock::now() < end)
                {
                    continue;
                }
                bLate = true;
                Lift();
                const std::uint64_t unOne = 1;
                for (const std::atomic<int>& nEvent : g_anEvents)
                {
                    static_cast<void>(nEvent == 0 || __real_write(nEvent - 1, &unOne, sizeof unOne) < 0);
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        });
    action();
    bDone = true;
    watch.join();
    return !bLate;
}

bool Becomes(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
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

double CallsASecond(enCalls enCall)
{
    const auto start = std::chrono::steady_clock::now();
    const int nBefore = CallsOf(enCall);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const int nCalls = CallsOf(enCall) - nBefore;
    return nCalls / std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace Faults
