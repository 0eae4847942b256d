#include "Datagrams.h"

#include "LogicalControls.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

CPlainSocket::CPlainSocket(enBindings enBinding) : m_nSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_in any = LoopbackAddress(0);
    if (m_nSocket < 0 || (enBinding == enBound && bind(m_nSocket, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0))
    {
        throw std::string("no socket can be had");
    }
    const int nBuffer = 4 << 20;
    if (setsockopt(m_nSocket, SOL_SOCKET, SO_RCVBUFFORCE, &nBuffer, sizeof nBuffer) != 0)
    {
        setsockopt(m_nSocket, SOL_SOCKET, SO_RCVBUF, &nBuffer, sizeof nBuffer);
    }
    const timeval longest = {1, 0};
    setsockopt(m_nSocket, SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
}

CPlainSocket::~CPlainSocket()
{
    close(m_nSocket);
}

unsigned int CPlainSocket::Port() const
{
    sockaddr_in bound = {};
    socklen_t nSize = sizeof bound;
    getsockname(m_nSocket, reinterpret_cast<sockaddr*>(&bound), &nSize);
    return ntohs(bound.sin_port);
}

sockaddr_in LoopbackAddress(unsigned int unPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(unPort));
    return address;
}

CFragments::CFragments(const unsigned char* pMessage, long lBytes)
    : m_pBytes(new unsigned char[sizeof(UDP_PACKET) * 5]), m_nCount(CountFragments(lBytes)), m_aunSizes()
{
    for (int nFragment = 0; nFragment < m_nCount; ++nFragment)
    {
        UDP_PACKET& packet = *reinterpret_cast<UDP_PACKET*>(m_pBytes + sizeof(UDP_PACKET) * static_cast<std::size_t>(nFragment));
        m_aunSizes[nFragment] =
            static_cast<std::size_t>(MakeFragment(enDatagramMCUpdate, 1, pMessage, lBytes, nFragment + 1, packet));
    }
}

CFragments::~CFragments()
{
    delete[] m_pBytes;
}

const unsigned char* CFragments::At(int nFragment) const
{
    return m_pBytes + sizeof(UDP_PACKET) * static_cast<std::size_t>(nFragment);
}

void CFragments::SetId(std::uint32_t unId)
{
    for (int nFragment = 0; nFragment < m_nCount; ++nFragment)
    {
        const boost::endian::big_uint32_t unWire(unId);
        std::memcpy(m_pBytes + sizeof(UDP_PACKET) * static_cast<std::size_t>(nFragment) + 4, &unWire, sizeof unWire);
    }
}

void CFragments::SendTo(int nSocket, const sockaddr_in& destination) const
{
    for (int nFragment = 0; nFragment < m_nCount; ++nFragment)
    {
        sendto(nSocket, At(nFragment), Size(nFragment), 0, reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
    }
}
