#include "Network/Probe.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

sockaddr_in InternetAddress(const std::string& strAddress, unsigned int unPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(unPort));
    inet_pton(AF_INET, strAddress.empty() ? "0.0.0.0" : strAddress.c_str(), &address.sin_addr);
    return address;
}

std::string AddressText(const sockaddr_in& address)
{
    char acText[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, acText, sizeof acText);
    return Format("%s:%u", acText, static_cast<unsigned int>(ntohs(address.sin_port)));
}

template <class Value>
int SetOption(int nSocket, int nLevel, int nOption, const Value& value)
{
    return setsockopt(nSocket, nLevel, nOption, &value, sizeof value);
}

stRoundTrip SendAndReceive(CProbe& mouth, CProbe& ear, const std::string& strGroup, double dTimeout)
{
    const tSteadyClock::time_point start = tSteadyClock::now();
    const auto until = start + Duration(dTimeout);
    const std::string strBytes =
        Format("consolectl doctor %ld %lld", static_cast<long>(getpid()), static_cast<long long>(start.time_since_epoch().count()));
    int nError = mouth.Send(strGroup, ear.GetPort(), strBytes);
    if (nError != 0)
    {
        return {true, nError, ear.GetPort(), 0};
    }
    for (stHeard heard; nError == 0 && heard.strBytes != strBytes;)
    {
        nError = ear.Receive(until, heard);
    }
    return {true, nError, ear.GetPort(), SecondsSince(start)};
}

} // namespace

CProbe::CProbe() : m_nSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP)), m_nOpenError(m_nSocket < 0 ? errno : 0) {}

CProbe::~CProbe()
{
    if (m_nSocket >= 0)
    {
        close(m_nSocket);
    }
}

int CProbe::Answer(int nResult) const
{
    return m_nOpenError != 0 ? m_nOpenError : nResult < 0 ? errno : 0;
}

int CProbe::Bind(unsigned int unPort)
{
    const int nBeside = unPort != 0 ? 1 : 0;
    const int nOff = 0;
    SetOption(m_nSocket, SOL_SOCKET, SO_REUSEADDR, nBeside);
    SetOption(m_nSocket, IPPROTO_IP, IP_MULTICAST_ALL, nOff); // a comfort that a system may lack
    const sockaddr_in address = InternetAddress("", unPort);
    return Answer(bind(m_nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

int CProbe::ChooseInterface(const std::string& strAddress)
{
    m_strInterface = strAddress;
    return strAddress.empty() ? 0
                              : Answer(SetOption(m_nSocket, IPPROTO_IP, IP_MULTICAST_IF, InternetAddress(strAddress, 0).sin_addr));
}

int CProbe::Join(const std::string& strGroup)
{
    ip_mreq request = {};
    request.imr_multiaddr = InternetAddress(strGroup, 0).sin_addr;
    request.imr_interface = InternetAddress(m_strInterface, 0).sin_addr;
    return Answer(SetOption(m_nSocket, IPPROTO_IP, IP_ADD_MEMBERSHIP, request));
}

int CProbe::Listen(const stMulticastLink& link, unsigned int unPort)
{
    const int nChoiceError = ChooseInterface(link.strInterface);
    const int nBindError = nChoiceError != 0 ? nChoiceError : Bind(unPort);
    return nBindError != 0 ? nBindError : Join(link.strGroup);
}

int CProbe::Send(const std::string& strGroup, unsigned int unPort, const std::string& strBytes)
{
    const sockaddr_in to = InternetAddress(strGroup, unPort);
    return Answer(
        sendto(m_nSocket, strBytes.data(), strBytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0 ? -1 : 0);
}

int CProbe::Receive(tSteadyClock::time_point until, stHeard& heard)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - tSteadyClock::now()).count();
    pollfd entry = {m_nSocket, POLLIN, 0};
    const int nReady = left <= 0 ? 0 : poll(&entry, 1, static_cast<int>(left));
    if (nReady <= 0)
    {
        return nReady < 0 ? Answer(nReady) : ETIMEDOUT;
    }
    char acBytes[2048];
    sockaddr_in sender = {};
    socklen_t nSize = sizeof sender;
    const ssize_t nLength =
        recvfrom(m_nSocket, acBytes, sizeof acBytes, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &nSize);
    heard = {std::string(acBytes, static_cast<std::size_t>(std::max<ssize_t>(nLength, 0))), AddressText(sender)};
    return Answer(nLength < 0 ? -1 : 0);
}

unsigned int CProbe::GetPort() const
{
    sockaddr_in bound = {};
    socklen_t nSize = sizeof bound;
    getsockname(m_nSocket, reinterpret_cast<sockaddr*>(&bound), &nSize);
    return ntohs(bound.sin_port);
}

int CProbe::GetOption(int nLevel, int nOption) const
{
    int nValue = 0;
    socklen_t nSize = sizeof nValue;
    return getsockopt(m_nSocket, nLevel, nOption, &nValue, &nSize) == 0 ? nValue : -1;
}

stRoundTrip TryRoundTrip(const stMulticastLink& link, double dTimeout)
{
    // The link's port is taken by this, or by who keeps it from this: the system picks another, and nobody else gets the datagram.
    CProbe taken;
    taken.Bind(link.unPort);
    CProbe ear;
    CProbe mouth;
    const int nEarError = ear.Listen(link, 0);
    const int nMouthError = mouth.ChooseInterface(link.strInterface);
    return nEarError != 0 || nMouthError != 0 ? stRoundTrip{false, nEarError != 0 ? nEarError : nMouthError, 0, 0}
                                              : SendAndReceive(mouth, ear, link.strGroup, dTimeout);
}
