// Preloaded, it makes the system one that grants less. LESSER=buffer: receive buffers of 208 KiB, as many systems have them;
// LESSER=loop: multicast that doesn't come back to its own machine; LESSER=limit: a file that grows beyond its limit kills, whoever
// ignores that.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace
{

constexpr int c_nMostBuffer = 212992;

bool Is(const char* szLess)
{
    const char* const szAsked = std::getenv("LESSER");
    return szAsked != nullptr && std::strstr(szAsked, szLess) != nullptr;
}

template <class Function>
Function* Real(const char* szName)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, szName));
}

} // namespace

extern "C"
{

    sighandler_t signal(int nSignal, sighandler_t pHandler)
    {
        static const auto pReal = Real<sighandler_t(int, sighandler_t)>("signal");
        return pReal(nSignal, nSignal == SIGXFSZ && Is("limit") ? SIG_DFL : pHandler);
    }

    int setsockopt(int nSocket, int nLevel, int nOption, const void* pValue, socklen_t unSize)
    {
        static const auto pReal = Real<int(int, int, int, const void*, socklen_t)>("setsockopt");
        if (nLevel != SOL_SOCKET || (nOption != SO_RCVBUF && nOption != SO_RCVBUFFORCE) || !Is("buffer"))
        {
            return pReal(nSocket, nLevel, nOption, pValue, unSize);
        }
        if (nOption == SO_RCVBUFFORCE)
        {
            errno = EPERM;
            return -1;
        }
        const int nGranted = std::min(*static_cast<const int*>(pValue), c_nMostBuffer);
        return pReal(nSocket, nLevel, nOption, &nGranted, sizeof nGranted);
    }

    int socket(int nDomain, int nType, int nProtocol)
    {
        static const auto pReal = Real<int(int, int, int)>("socket");
        const int nSocket = pReal(nDomain, nType, nProtocol);
        const int nOff = 0;
        if (nSocket >= 0 && nDomain == AF_INET && Is("loop"))
        {
            setsockopt(nSocket, IPPROTO_IP, IP_MULTICAST_LOOP, &nOff, sizeof nOff);
        }
        return nSocket;
    }

} // extern "C"
