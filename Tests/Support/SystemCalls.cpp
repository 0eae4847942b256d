#include "Support/SystemCalls.h"

#include <netdb.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace
{

constexpr int c_nUnlimited = -1;

thread_local Support::CSocketRecorder* g_pRecorder = nullptr;
thread_local int g_anAllowed[Support::CFailingCall::enCallCount] = {c_nUnlimited, c_nUnlimited, c_nUnlimited};
thread_local std::size_t g_unLastMalloc = 0;

bool MayCall(Support::CFailingCall::enCalls enCall)
{
    int& nAllowed = g_anAllowed[enCall];
    if (nAllowed > 0)
    {
        --nAllowed;
        return true;
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

CFailingCall::CFailingCall(enCalls enCall, int nAllowed) : m_enCall(enCall)
{
    g_anAllowed[m_enCall] = nAllowed;
}

CFailingCall::~CFailingCall()
{
    g_anAllowed[m_enCall] = c_nUnlimited;
}

std::size_t LastMallocSize()
{
    return g_unLastMalloc;
}

} // namespace Support

// The linker sends the library's calls here and keeps the real ones as __real_...
extern "C"
{

    void* __real_malloc(std::size_t);
    int __real_socket(int, int, int);
    ssize_t __real_sendto(int, const void*, std::size_t, int, const sockaddr*, socklen_t);
    int __real_close(int);
    int __real_pthread_mutex_init(pthread_mutex_t*, const pthread_mutexattr_t*);
    int __real_sem_init(sem_t*, int, unsigned int);

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
        return static_cast<ssize_t>(unLength);
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
        static hostent s_Host = {nullptr, nullptr, AF_INET, sizeof s_acAddress, s_apAddresses};
        return std::strcmp(szName, "localhost") == 0 ? &s_Host : nullptr;
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

} // extern "C"
