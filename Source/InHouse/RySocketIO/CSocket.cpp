#include "RySocketIO/CSocket.h"

#include "RySocketIO/CUtility.h"
#include "RySocketIO/ClientCall.h"
#include "RySocketIO/Descriptor.h"
#include "RySocketIO/StoppableThread.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>

namespace RySocketIO
{

namespace
{

constexpr int c_nReceiveBuffer = 4 << 20;
constexpr std::size_t c_unMaxDatagram = 65536; // more than UDP can carry
constexpr timespec c_ErrorPause = {0, 10 * 1000 * 1000};
constexpr int c_nFailuresAtOnce = 2; // before the pause
constexpr std::chrono::milliseconds c_LongestSend(100);
constexpr std::chrono::milliseconds c_SendPause(5); // when the system says that there is room and yet has none
constexpr int c_nLongestPoll = CStopEvent::c_LongestWait.tv_nsec / 1000000;

typedef std::chrono::steady_clock tClock;

bool IsGiven(const char* szAddress)
{
    return szAddress != nullptr && szAddress[0] != '\0';
}

bool ParseAddress(const char* szAddress, in_addr& address)
{
    address.s_addr = htonl(INADDR_ANY);
    return !IsGiven(szAddress) || inet_pton(AF_INET, szAddress, &address) == 1;
}

bool MakeDestination(const in_addr& address, unsigned int unPort, sockaddr_in& destination)
{
    destination = sockaddr_in();
    destination.sin_family = AF_INET;
    destination.sin_addr = address;
    destination.sin_port = htons(static_cast<std::uint16_t>(unPort));
    return unPort <= 65535;
}

template <class Value>
bool SetOption(int nSocket, int nLevel, int nOption, const Value& value)
{
    return setsockopt(nSocket, nLevel, nOption, &value, sizeof value) == 0;
}

// In force first, which needs a privilege; else as much as the system lets anyone have. Returns what it is.
int AskForReceiveBuffer(int nSocket)
{
    if (!SetOption(nSocket, SOL_SOCKET, SO_RCVBUFFORCE, c_nReceiveBuffer))
    {
        SetOption(nSocket, SOL_SOCKET, SO_RCVBUF, c_nReceiveBuffer);
    }
    int nGranted = 0;
    socklen_t nSize = sizeof nGranted;
    getsockopt(nSocket, SOL_SOCKET, SO_RCVBUF, &nGranted, &nSize);
    return nGranted;
}

} // namespace

class __attribute__((visibility("hidden"))) CSocket::CReceiver
{
public:
    explicit CReceiver(CSocket& owner)
        : m_Owner(owner), m_nSocket(-1), m_Interface(), m_nBufferSize(0), m_bUseSenderInfo(false), m_unDatagrams(0), m_unBytes(0),
          m_unTruncated(0), m_unKernelDrops(0), m_unErrors(0), m_LastSender(), m_LastSenderText("0.0.0.0")
    {
    }

    ~CReceiver()
    {
        Stop();
        Close();
    }

    bool Open(unsigned int unPort, const char* szLocalAddress, const char* szInterfaceAddress);
    bool Join(const char* szGroup);
    bool Send(const char* szAddress, unsigned int unPort, const char* pData, long lLength) const;
    void Stop() { m_Thread.Stop(); }
    unsigned int LocalPort() const;

    void SetUseSenderInfo(bool bUse) { m_bUseSenderInfo = bUse; }
    int BufferSize() const { return m_nBufferSize; }
    stSocketStatistics Statistics() const
    {
        return {m_unDatagrams, m_unBytes, m_unTruncated, m_unKernelDrops, m_unErrors, m_nBufferSize};
    }

private:
    void Close()
    {
        if (m_nSocket >= 0)
        {
            close(m_nSocket);
        }
        m_nSocket = -1;
    }

    bool Configure(unsigned int unPort, const char* szLocalAddress, const char* szInterfaceAddress);
    void Run();
    bool ReceiveOne();
    void Deliver(char* pData, long lLength, const sockaddr_in& sender);
    void CountKernelDrops(msghdr& message);

    CSocket& m_Owner;
    int m_nSocket;
    in_addr m_Interface;
    int m_nBufferSize;
    std::atomic<bool> m_bUseSenderInfo;
    std::atomic<std::uint32_t> m_unDatagrams;
    std::atomic<std::uint32_t> m_unBytes;
    std::atomic<std::uint32_t> m_unTruncated;
    std::atomic<std::uint32_t> m_unKernelDrops;
    std::atomic<std::uint32_t> m_unErrors;
    CStoppableThread m_Thread;

    // Of the receive thread alone.
    in_addr m_LastSender;
    CIPString m_LastSenderText;
    char m_acDatagram[c_unMaxDatagram];
};

bool CSocket::CReceiver::Open(unsigned int unPort, const char* szLocalAddress, const char* szInterfaceAddress)
{
    if (m_nSocket >= 0)
    {
        return false;
    }
    m_nSocket = AboveStandard(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_UDP));
    if (m_nSocket < 0 || !Configure(unPort, szLocalAddress, szInterfaceAddress) || !m_Thread.Start([this] { Run(); }))
    {
        CUtility::Debug("CSocket::InitialiseLocalSockets - port %u, address %s, interface %s: %s", unPort,
                        IsGiven(szLocalAddress) ? szLocalAddress : "any", IsGiven(szInterfaceAddress) ? szInterfaceAddress : "any",
                        std::strerror(errno));
        Close();
        return false;
    }
    return true;
}

bool CSocket::CReceiver::Configure(unsigned int unPort, const char* szLocalAddress, const char* szInterfaceAddress)
{
    errno = EINVAL;
    in_addr local;
    sockaddr_in bound;
    if (!ParseAddress(szLocalAddress, local) || !ParseAddress(szInterfaceAddress, m_Interface) ||
        !MakeDestination(local, unPort, bound))
    {
        return false;
    }
    const int nOn = 1;
    const int nOff = 0;
    if (!SetOption(m_nSocket, SOL_SOCKET, SO_REUSEADDR, nOn))
    {
        return false;
    }
    m_nBufferSize = AskForReceiveBuffer(m_nSocket);
    // Both are comforts that a system may lack: the drop counter, and hearing only the groups that this socket joined.
    SetOption(m_nSocket, SOL_SOCKET, SO_RXQ_OVFL, nOn);
    SetOption(m_nSocket, IPPROTO_IP, IP_MULTICAST_ALL, nOff);
    if (IsGiven(szInterfaceAddress) && !SetOption(m_nSocket, IPPROTO_IP, IP_MULTICAST_IF, m_Interface))
    {
        return false;
    }
    return bind(m_nSocket, reinterpret_cast<const sockaddr*>(&bound), sizeof bound) == 0;
}

bool CSocket::CReceiver::Join(const char* szGroup)
{
    ip_mreq request = {};
    request.imr_interface = m_Interface;
    return m_nSocket >= 0 && IsGiven(szGroup) && ParseAddress(szGroup, request.imr_multiaddr) &&
           SetOption(m_nSocket, IPPROTO_IP, IP_ADD_MEMBERSHIP, request);
}

bool CSocket::CReceiver::Send(const char* szAddress, unsigned int unPort, const char* pData, long lLength) const
{
    in_addr address;
    sockaddr_in destination;
    if (m_nSocket < 0 || lLength < 0 || (pData == nullptr && lLength > 0) || !IsGiven(szAddress) ||
        !ParseAddress(szAddress, address) || !MakeDestination(address, unPort, destination))
    {
        return false;
    }
    // The socket does not block for its receiver; a sender waits for room as a blocking one would, but not for ever.
    const tClock::time_point end = tClock::now() + c_LongestSend;
    for (int nTry = 0;; ++nTry)
    {
        const std::int64_t nLeft = std::chrono::duration_cast<std::chrono::milliseconds>(end - tClock::now()).count();
        pollfd entry = {m_nSocket, POLLOUT, 0};
        poll(&entry, 1, static_cast<int>(std::max<std::int64_t>(nLeft, 0)));
        const ssize_t nSent = sendto(m_nSocket, pData, static_cast<std::size_t>(lLength), 0,
                                     reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
        const bool bMayGo = nSent < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK);
        if (!bMayGo || nLeft <= 0)
        {
            return nSent == lLength;
        }
        if (nTry >= c_nFailuresAtOnce)
        {
            std::this_thread::sleep_for(c_SendPause);
        }
    }
}

unsigned int CSocket::CReceiver::LocalPort() const
{
    sockaddr_in bound = {};
    socklen_t nSize = sizeof bound;
    if (m_nSocket < 0 || getsockname(m_nSocket, reinterpret_cast<sockaddr*>(&bound), &nSize) != 0)
    {
        return 0;
    }
    return ntohs(bound.sin_port);
}

void CSocket::CReceiver::Run()
{
    const CStopEvent& stop = m_Thread.StopEvent();
    CallOverride("CSocket", [this] { m_Owner.OnConnected(); });
    pollfd aEntries[] = {{m_nSocket, POLLIN, 0}, {stop.Descriptor(), POLLIN, 0}};
    int nFailures = 0; // in a row
    while (!stop.IsSet())
    {
        const int nReady = poll(aEntries, 2, c_nLongestPoll);
        m_unErrors += nReady < 0 && errno != EINTR ? 1 : 0;
        bool bFailed = nReady < 0;
        if (nReady > 0 && aEntries[0].revents != 0)
        {
            bFailed = !ReceiveOne();
            while (!bFailed && !stop.IsSet() && ReceiveOne())
            {
                // what else waits
            }
        }
        nFailures = bFailed ? nFailures + 1 : 0;
        if (nFailures > c_nFailuresAtOnce)
        {
            stop.Wait(c_ErrorPause);
        }
    }
    CallOverride("CSocket", [this] { m_Owner.OnTerminated(); });
}

// False when the system refused in a way that may repeat at once.
bool CSocket::CReceiver::ReceiveOne()
{
    // What is longer than the room goes on in the own memory, at the place that it has in a whole datagram.
    long lRoom = 0;
    char* pRoom = nullptr;
    CallOverride("CSocket", [&] { pRoom = m_Owner.ReceiveRoom(lRoom); });
    const std::size_t unRoom = pRoom != nullptr ? static_cast<std::size_t>(std::clamp(lRoom, 0L, long(sizeof m_acDatagram))) : 0;
    sockaddr_in sender = {};
    iovec aVectors[] = {{pRoom, unRoom}, {m_acDatagram + unRoom, sizeof m_acDatagram - unRoom}};
    alignas(cmsghdr) char acControl[CMSG_SPACE(sizeof(std::uint32_t))];
    msghdr message = {};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = aVectors;
    message.msg_iovlen = 2;
    message.msg_control = acControl;
    message.msg_controllen = sizeof acControl;
    const ssize_t nLength = recvmsg(m_nSocket, &message, 0);
    if (nLength < 0)
    {
        m_unErrors += errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK ? 0 : 1;
        return false;
    }
    CountKernelDrops(message);
    if ((message.msg_flags & MSG_TRUNC) != 0)
    {
        ++m_unTruncated;
        return true;
    }
    ++m_unDatagrams;
    m_unBytes += static_cast<std::uint32_t>(nLength);
    const bool bInRoom = unRoom > 0 && static_cast<std::size_t>(nLength) <= unRoom;
    if (unRoom > 0 && !bInRoom)
    {
        std::memcpy(m_acDatagram, pRoom, unRoom);
    }
    Deliver(bInRoom ? pRoom : m_acDatagram, nLength, sender);
    return true;
}

void CSocket::CReceiver::Deliver(char* pData, long lLength, const sockaddr_in& sender)
{
    if (!m_bUseSenderInfo)
    {
        CallOverride("CSocket", [=] { m_Owner.OnReceivedData(pData, lLength); });
        return;
    }
    if (sender.sin_addr.s_addr != m_LastSender.s_addr)
    {
        char acText[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &sender.sin_addr, acText, sizeof acText);
        m_LastSender = sender.sin_addr;
        m_LastSenderText = CIPString(acText);
    }
    CallOverride("CSocket", [=] { m_Owner.OnReceivedData(pData, lLength, m_LastSenderText); });
}

void CSocket::CReceiver::CountKernelDrops(msghdr& message)
{
    for (cmsghdr* pControl = CMSG_FIRSTHDR(&message); pControl != nullptr; pControl = CMSG_NXTHDR(&message, pControl))
    {
        if (pControl->cmsg_level == SOL_SOCKET && pControl->cmsg_type == SO_RXQ_OVFL)
        {
            std::uint32_t unDrops = 0;
            std::memcpy(&unDrops, CMSG_DATA(pControl), sizeof unDrops);
            m_unKernelDrops = unDrops;
        }
    }
}

CSocket::CSocket(int, bool, bool) : m_pReceiver(new CReceiver(*this)) {}

CSocket::~CSocket() = default;

bool CSocket::InitialiseLocalSockets(unsigned int unPort, const char* szLocalAddress, const char* szInterfaceAddress, int)
{
    return m_pReceiver->Open(unPort, szLocalAddress, szInterfaceAddress);
}

bool CSocket::AddToGroup(const char* szGroup)
{
    return m_pReceiver->Join(szGroup);
}

bool CSocket::Send(const char* szAddress, unsigned int unPort, const char* pData, long lLength)
{
    return m_pReceiver->Send(szAddress, unPort, pData, lLength);
}

void CSocket::SetUseSenderInfo(bool bUse)
{
    m_pReceiver->SetUseSenderInfo(bUse);
}

void CSocket::StopReceiving()
{
    m_pReceiver->Stop();
}

unsigned int CSocket::GetLocalPort() const
{
    return m_pReceiver->LocalPort();
}

int CSocket::GetReceiveBufferSize() const
{
    return m_pReceiver->BufferSize();
}

stSocketStatistics CSocket::GetSocketStatistics() const
{
    return m_pReceiver->Statistics();
}

char* CSocket::ReceiveRoom(long&)
{
    return nullptr;
}

void CSocket::OnReceivedData(char*, long) {}

void CSocket::OnReceivedData(char*, long, const CIPString&) {}

void CSocket::OnConnected() {}

void CSocket::OnTerminated() {}

} // namespace RySocketIO
