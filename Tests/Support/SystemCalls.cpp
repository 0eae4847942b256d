#include "Support/SystemCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace
{

constexpr int c_nUnlimited = -1;

thread_local Support::CSocketRecorder* g_pRecorder = nullptr;
thread_local int g_anAllowed[] = {c_nUnlimited, c_nUnlimited, c_nUnlimited, c_nUnlimited};
thread_local int g_anFailures[Support::CFailingCall::enCallCount] = {};
thread_local const std::vector<Support::stFrame>* g_pFrames = nullptr;
thread_local Support::CRedirectedFile* g_pRedirected = nullptr;
thread_local Support::CSteadyTime* g_pTime = nullptr;
thread_local std::size_t g_unLastMalloc = 0;

static_assert(sizeof g_anAllowed / sizeof(int) == Support::CFailingCall::enCallCount, "one for each call");

bool MayCall(Support::CFailingCall::enCalls enCall)
{
    int& nAllowed = g_anAllowed[enCall];
    if (nAllowed > 0)
    {
        --nAllowed;
        return true;
    }
    if (nAllowed == 0 && --g_anFailures[enCall] == 0)
    {
        nAllowed = c_nUnlimited;
        return false;
    }
    return nAllowed == c_nUnlimited;
}

} // namespace

namespace Support
{

CSocketRecorder::CSocketRecorder()
{
    g_pRecorder = this;
}

CSocketRecorder::~CSocketRecorder()
{
    g_pRecorder = nullptr;
}

CFailingCall::CFailingCall(enCalls enCall, int nAllowed, int nFailures) : m_enCall(enCall)
{
    g_anFailures[m_enCall] = nFailures;
    g_anAllowed[m_enCall] = nAllowed;
}

CFailingCall::~CFailingCall()
{
    g_anAllowed[m_enCall] = c_nUnlimited;
}

CStack::CStack(const std::vector<stFrame>& frames) : m_Frames(frames)
{
    g_pFrames = &m_Frames;
}

CStack::~CStack()
{
    g_pFrames = nullptr;
}

CRedirectedFile::CRedirectedFile(const std::string& strNewFile) : strTo(strNewFile)
{
    g_pRedirected = this;
}

CRedirectedFile::~CRedirectedFile()
{
    g_pRedirected = nullptr;
}

CSteadyTime::CSteadyTime() : m_Now(std::chrono::steady_clock::now())
{
    g_pTime = this;
}

CSteadyTime::~CSteadyTime()
{
    g_pTime = nullptr;
}

std::size_t LastMallocSize()
{
    return g_unLastMalloc;
}

} // namespace Support

// The linker sends the library's calls here and keeps the real ones as __real_...
std::chrono::steady_clock::time_point RealSteadyNow() __asm__("__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point SteadyNow() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

std::chrono::steady_clock::time_point SteadyNow()
{
    return g_pTime != nullptr ? g_pTime->Now() : RealSteadyNow();
}

extern "C"
{

    void* __real_malloc(std::size_t);
    int __real_socket(int, int, int);
    ssize_t __real_sendto(int, const void*, std::size_t, int, const sockaddr*, socklen_t);
    int __real_close(int);
    int __real_pthread_mutex_init(pthread_mutex_t*, const pthread_mutexattr_t*);
    int __real_sem_init(sem_t*, int, unsigned int);
    int __real_setsockopt(int, int, int, const void*, socklen_t);
    int __real_backtrace(void**, int);
    int __real_dladdr(const void*, Dl_info*);
    pid_t __real_getpid();
    int __real_open(const char*, int, ...);
    int __real_nanosleep(const timespec*, timespec*);

    void* __wrap_malloc(std::size_t unSize)
    {
        g_unLastMalloc = unSize;
        return MayCall(Support::CFailingCall::enMalloc) ? __real_malloc(unSize) : nullptr;
    }

    int __wrap_socket(int nDomain, int nType, int nProtocol)
    {
        if (g_pRecorder == nullptr)
        {
            return __real_socket(nDomain, nType, nProtocol);
        }
        if (g_pRecorder->bFailSocket)
        {
            errno = EMFILE;
            return -1;
        }
        const int nSocket = Support::CSocketRecorder::nFirstSocket + static_cast<int>(g_pRecorder->opened.size());
        g_pRecorder->opened.push_back(nSocket);
        return nSocket;
    }

    ssize_t __wrap_sendto(int nSocket, const void* pData, std::size_t unLength, int nFlags, const sockaddr* pAddress,
                          socklen_t unSize)
    {
        if (g_pRecorder == nullptr)
        {
            return __real_sendto(nSocket, pData, unLength, nFlags, pAddress, unSize);
        }
        if (g_pRecorder->bFailSend)
        {
            errno = ENETUNREACH;
            return -1;
        }
        Support::stSentDatagram sent = {nSocket, {}, nFlags, {}};
        std::memcpy(&sent.destination, pAddress, sizeof sent.destination);
        const unsigned char* pBytes = static_cast<const unsigned char*>(pData);
        sent.bytes.assign(pBytes, pBytes + unLength);
        g_pRecorder->sent.push_back(sent);
        const bool bCut = g_pRecorder->lSentAtMost >= 0;
        return static_cast<ssize_t>(bCut ? std::min(unLength, static_cast<std::size_t>(g_pRecorder->lSentAtMost)) : unLength);
    }

    int __wrap_close(int nDescriptor)
    {
        if (g_pRecorder == nullptr)
        {
            return __real_close(nDescriptor);
        }
        g_pRecorder->closed.push_back(nDescriptor);
        return 0;
    }

    // No name is ever looked up: one is known, whatever this machine's own tables say.
    hostent* __wrap_gethostbyname(const char* szName)
    {
        static unsigned char s_acAddress[] = {127, 0, 0, 1};
        static char* s_apAddresses[] = {reinterpret_cast<char*>(s_acAddress), nullptr};
        static char* s_apNone[] = {nullptr};
        static const struct
        {
            const char* szName;
            hostent host;
        } s_aHosts[] = {{"localhost", {nullptr, nullptr, AF_INET, sizeof s_acAddress, s_apAddresses}},
                        {"host.of-another-family", {nullptr, nullptr, AF_INET6, 16, s_apAddresses}},
                        {"host.without-addresses", {nullptr, nullptr, AF_INET, sizeof s_acAddress, s_apNone}}};
        const auto pFound = std::find_if(std::begin(s_aHosts), std::end(s_aHosts),
                                         [szName](const auto& each) { return std::strcmp(szName, each.szName) == 0; });
        static hostent s_Host;
        return pFound != std::end(s_aHosts) ? &(s_Host = pFound->host) : nullptr;
    }

    int __wrap_pthread_mutex_init(pthread_mutex_t* pMutex, const pthread_mutexattr_t* pAttribute)
    {
        return MayCall(Support::CFailingCall::enMutexInit) ? __real_pthread_mutex_init(pMutex, pAttribute) : ENOMEM;
    }

    int __wrap_sem_init(sem_t* pSemaphore, int nShared, unsigned int unValue)
    {
        if (!MayCall(Support::CFailingCall::enSemInit))
        {
            errno = EINVAL;
            return -1;
        }
        return __real_sem_init(pSemaphore, nShared, unValue);
    }

    int __wrap_setsockopt(int nSocket, int nLevel, int nName, const void* pValue, socklen_t unSize)
    {
        if (g_pRecorder == nullptr)
        {
            return __real_setsockopt(nSocket, nLevel, nName, pValue, unSize);
        }
        if (g_pRecorder->bFailOption)
        {
            errno = ENOPROTOOPT;
            return -1;
        }
        const unsigned char* pBytes = static_cast<const unsigned char*>(pValue);
        g_pRecorder->options.push_back({nSocket, nLevel, nName, {pBytes, pBytes + unSize}});
        return 0;
    }

    // The made-up addresses are those of the frames themselves.
    int __wrap_backtrace(void** ppFrames, int nRoom)
    {
        if (g_pFrames == nullptr)
        {
            return __real_backtrace(ppFrames, nRoom);
        }
        const int nFrames = std::min(nRoom, static_cast<int>(g_pFrames->size()));
        for (int nFrame = 0; nFrame < nFrames; ++nFrame)
        {
            ppFrames[nFrame] = const_cast<Support::stFrame*>(&(*g_pFrames)[static_cast<std::size_t>(nFrame)]);
        }
        return nFrames;
    }

    int __wrap_dladdr(const void* pAddress, Dl_info* pInfo)
    {
        if (g_pFrames == nullptr)
        {
            return __real_dladdr(pAddress, pInfo);
        }
        const Support::stFrame& frame = *static_cast<const Support::stFrame*>(pAddress);
        *pInfo = Dl_info();
        pInfo->dli_fname = frame.szObject;
        pInfo->dli_sname = frame.szSymbol;
        return frame.bKnown ? 1 : 0;
    }

    pid_t __wrap_getpid()
    {
        return MayCall(Support::CFailingCall::enGetPid) ? __real_getpid() : -1;
    }

    int __wrap_nanosleep(const timespec* pTime, timespec* pLeft)
    {
        if (g_pTime == nullptr)
        {
            return __real_nanosleep(pTime, pLeft);
        }
        g_pTime->Pass(std::chrono::seconds(pTime->tv_sec) + std::chrono::nanoseconds(pTime->tv_nsec));
        return 0;
    }

    int __wrap_open(const char* szFile, int nFlags, ...)
    {
        va_list arguments;
        va_start(arguments, nFlags);
        const int nMode = (nFlags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
        va_end(arguments);
        if (g_pRedirected == nullptr)
        {
            return __real_open(szFile, nFlags, nMode);
        }
        g_pRedirected->asked.push_back(szFile);
        return __real_open(g_pRedirected->strTo.c_str(), nFlags, nMode);
    }

} // extern "C"
