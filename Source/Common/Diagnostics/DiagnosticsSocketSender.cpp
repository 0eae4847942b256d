#include "Diagnostics/DiagnosticsSocketSender.h"

#include <cstdio>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr unsigned char c_ucHops = 1;

} // namespace

CDiagnosticsSocketSender::CDiagnosticsSocketSender()
    : m_nSocket(0), m_Destination(), m_szGroup(nullptr), m_unPort(0), m_bLastSendSucceeded(false)
{
}

CDiagnosticsSocketSender::~CDiagnosticsSocketSender()
{
    close(m_nSocket); // descriptor 0 if there was never a socket: that is meant
    m_nSocket = -1;
}

bool CDiagnosticsSocketSender::EstablishMulticastTransmitter(const char* szGroup, unsigned short unPort)
{
    m_szGroup = szGroup;
    m_unPort = unPort;
    m_nSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (m_nSocket < 0)
    {
        std::puts("socket() failed");
        return false;
    }
    if (setsockopt(m_nSocket, IPPROTO_IP, IP_MULTICAST_TTL, &c_ucHops, sizeof c_ucHops) < 0)
    {
        std::puts("setsockopt() failed");
        return false;
    }
    m_Destination = sockaddr_in();
    m_Destination.sin_family = AF_INET;
    m_Destination.sin_addr.s_addr = szGroup != nullptr ? inet_addr(szGroup) : INADDR_NONE;
    m_Destination.sin_port = htons(unPort);
    return true;
}

void CDiagnosticsSocketSender::Send(const char* pData, unsigned int unLength)
{
    const ssize_t nSent =
        sendto(m_nSocket, pData, unLength, 0, reinterpret_cast<const sockaddr*>(&m_Destination), sizeof m_Destination);
    m_bLastSendSucceeded = nSent >= 0 && static_cast<std::size_t>(nSent) == unLength;
    if (!m_bLastSendSucceeded)
    {
        std::puts("sendto() sent incorrect number of bytes");
    }
}
