// What a test finds that needs the network: a namespace of its own, where multicast goes nowhere else, and what this kernel can do.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace Support
{

inline bool IsOwnNetwork()
{
    return std::getenv("LOGICALCONTROLS_OWN_NETWORK") != nullptr;
}

inline bool KernelHas(int nLevel, int nOption, int nValue)
{
    const int nProbe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool bHas = setsockopt(nProbe, nLevel, nOption, &nValue, sizeof nValue) == 0;
    close(nProbe);
    return bHas;
}

// What the system grants to who asks for 4 MiB: twice as much, of which it keeps a half for itself.
inline int MostReceiveBuffer()
{
    int nMost = 0;
    std::ifstream("/proc/sys/net/core/rmem_max") >> nMost;
    return 2 * std::min(nMost, 4 << 20);
}

// While one lives, no other process of this network has one: it holds a port that only one can have.
class CNetworkTurn
{
public:
    CNetworkTurn() : m_nSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_bHas(false)
    {
        sockaddr_in port = {};
        port.sin_family = AF_INET;
        port.sin_port = htons(7049);
        port.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        for (int nTry = 0; nTry < 3000 && !m_bHas; ++nTry)
        {
            m_bHas = bind(m_nSocket, reinterpret_cast<const sockaddr*>(&port), sizeof port) == 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(m_bHas ? 0 : 10));
        }
    }
    ~CNetworkTurn() { close(m_nSocket); }
    CNetworkTurn(const CNetworkTurn&) = delete;
    CNetworkTurn& operator=(const CNetworkTurn&) = delete;

    bool Has() const { return m_bHas; } // false when it was not to be had for half a minute

private:
    const int m_nSocket;
    bool m_bHas;
};

} // namespace Support
