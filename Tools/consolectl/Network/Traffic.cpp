#include "Network/Traffic.h"

#include "Terminal/Common.h"

#include "LogicalControls.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{

constexpr std::size_t c_unLongestDatagram = 65507;
constexpr int c_nReceiveBuffer = 4 << 20;

sockaddr_in SocketAddress(const stEndpoint& endpoint)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.usPort);
    address.sin_addr.s_addr = htonl(endpoint.unAddress);
    return address;
}

template <typename T>
bool SetOption(int nSocket, int nLevel, int nOption, const T& value)
{
    return setsockopt(nSocket, nLevel, nOption, &value, sizeof value) == 0;
}

// What the kernel says beside a datagram: when it came, and how many it dropped so far. Where it says nothing both stay.
void ReadControl(msghdr& message, std::int64_t& nTime, std::uint32_t& unDropped)
{
    for (cmsghdr* pControl = CMSG_FIRSTHDR(&message); pControl != nullptr; pControl = CMSG_NXTHDR(&message, pControl))
    {
        timeval time = {};
        if (pControl->cmsg_level == SOL_SOCKET && pControl->cmsg_type == SCM_TIMESTAMP &&
            pControl->cmsg_len == CMSG_LEN(sizeof time))
        {
            std::memcpy(&time, CMSG_DATA(pControl), sizeof time);
            nTime = static_cast<std::int64_t>(time.tv_sec) * 1000000 + time.tv_usec;
        }
#ifdef SO_RXQ_OVFL
        else if (pControl->cmsg_level == SOL_SOCKET && pControl->cmsg_type == SO_RXQ_OVFL)
        {
            std::memcpy(&unDropped, CMSG_DATA(pControl), sizeof unDropped);
        }
#endif
    }
}

} // namespace

std::string stEndpoint::AddressText() const
{
    return Format("%u.%u.%u.%u", unAddress >> 24, unAddress >> 16 & 0xff, unAddress >> 8 & 0xff, unAddress & 0xff);
}

std::string stEndpoint::Text() const
{
    return AddressText() + ":" + std::to_string(usPort);
}

const char* KindOf(const stDatagram& datagram)
{
    UDP_PACKET_HEADER header;
    if (datagram.bytes.size() < sizeof header)
    {
        return "no header";
    }
    std::memcpy(&header, datagram.bytes.data(), sizeof header);
    return header.nType == enDatagramMCUpdate                                      ? "updates"
           : header.nType == enDatagramPPC || header.nType == enDatagramPPCFlagged ? "changes"
                                                                                   : "others";
}

stEndpoint MakeEndpoint(const std::string& strAddress, unsigned int unPort)
{
    in_addr address = {};
    inet_pton(AF_INET, strAddress.c_str(), &address);
    return {ntohl(address.s_addr), static_cast<unsigned short>(unPort)};
}

bool operator==(const stEndpoint& a, const stEndpoint& b)
{
    return a.unAddress == b.unAddress && a.usPort == b.usPort;
}

CLiveTraffic::CLiveTraffic() : m_Room(c_unLongestDatagram + 1) {}

CLiveTraffic::~CLiveTraffic()
{
    for (const stSocket& open : m_Sockets)
    {
        close(open.nSocket);
    }
}

std::string CLiveTraffic::Open(const stMulticastLink& updates)
{
    const std::string strError = Listen(updates.strGroup, updates.unPort, updates.strInterface);
    return strError.empty() ? Listen(c_szPPCGroup, c_unPPCPort, updates.strInterface) : strError;
}

// Bound to the group, so that what comes to the port for another one stays away.
std::string CLiveTraffic::Listen(const std::string& strGroup, unsigned int unPort, const std::string& strInterface)
{
    const int nSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (nSocket < 0)
    {
        return std::string("no socket can be had: ") + std::strerror(errno);
    }
    const stEndpoint group = MakeEndpoint(strGroup, unPort);
    m_Sockets.push_back({nSocket, group, 0});
    SetOption(nSocket, SOL_SOCKET, SO_REUSEADDR, 1);
    SetOption(nSocket, SOL_SOCKET, SO_RCVBUF, c_nReceiveBuffer);
#ifdef IP_MULTICAST_ALL
    SetOption(nSocket, IPPROTO_IP, IP_MULTICAST_ALL, 0); // what others of this machine joined, on other interfaces, stays away
#endif
    SetOption(nSocket, SOL_SOCKET, SO_TIMESTAMP, 1);
#ifdef SO_RXQ_OVFL
    SetOption(nSocket, SOL_SOCKET, SO_RXQ_OVFL, 1);
#endif
    const sockaddr_in address = SocketAddress(group);
    if (bind(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    {
        return Format("%s:%u can't be had: %s", strGroup.c_str(), unPort, std::strerror(errno));
    }
    ip_mreq membership = {};
    membership.imr_multiaddr = address.sin_addr;
    membership.imr_interface = SocketAddress(MakeEndpoint(strInterface, 0)).sin_addr;
    if (!SetOption(nSocket, IPPROTO_IP, IP_ADD_MEMBERSHIP, membership))
    {
        return Format("group %s can't be joined (%s): is there an interface with a multicast route?", strGroup.c_str(),
                      std::strerror(errno));
    }
    return std::string();
}

bool CLiveTraffic::Next(stDatagram& datagram, double dSeconds)
{
    for (int nTry = 0; nTry < 2; ++nTry)
    {
        for (std::size_t unSocket = 0; unSocket < m_Sockets.size(); ++unSocket)
        {
            if (Receive(m_Sockets[(m_unNext + unSocket) % m_Sockets.size()], datagram))
            {
                m_unNext = (m_unNext + unSocket + 1) % m_Sockets.size();
                return true;
            }
        }
        std::vector<pollfd> waits;
        for (const stSocket& open : m_Sockets)
        {
            waits.push_back({open.nSocket, POLLIN, 0});
        }
        if (nTry == 0 && (StopRequested() || poll(waits.data(), waits.size(), static_cast<int>(std::ceil(dSeconds * 1000))) <= 0))
        {
            return false;
        }
    }
    return false;
}

bool CLiveTraffic::Receive(stSocket& from, stDatagram& datagram)
{
    alignas(cmsghdr) unsigned char aucControl[256];
    sockaddr_in source = {};
    iovec room = {m_Room.data(), m_Room.size()};
    msghdr message = {};
    message.msg_name = &source;
    message.msg_namelen = sizeof source;
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = aucControl;
    message.msg_controllen = sizeof aucControl;
    const ssize_t nLength = recvmsg(from.nSocket, &message, 0);
    if (nLength < 0)
    {
        return false;
    }
    if ((message.msg_flags & MSG_TRUNC) != 0)
    {
        ++m_unTooLong;
        return false;
    }
    datagram.nTime = TimeNow();
    ReadControl(message, datagram.nTime, from.unDropped);
    datagram.source = {ntohl(source.sin_addr.s_addr), ntohs(source.sin_port)};
    datagram.destination = from.group;
    datagram.bytes.assign(m_Room.begin(), m_Room.begin() + nLength);
    datagram.lNumber = ++m_lCame;
    return true;
}

bool CLiveTraffic::IsOver() const
{
    return StopRequested();
}

stTrafficLoss CLiveTraffic::GetLoss() const
{
    stTrafficLoss loss;
    for (const stSocket& open : m_Sockets)
    {
        loss.unKernel += open.unDropped;
    }
    loss.unSize = m_unTooLong;
    return loss;
}

int CLiveTraffic::GetReceiveBufferSize() const
{
    int nSize = 0;
    socklen_t nLength = sizeof nSize;
    return !m_Sockets.empty() && getsockopt(m_Sockets[0].nSocket, SOL_SOCKET, SO_RCVBUF, &nSize, &nLength) == 0 ? nSize : 0;
}
