#include "Network/Interface.h"

#include "Terminal/Common.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr unsigned short c_usAnyPort = 9; // discard: nothing is sent

// Through bytes: the two kinds of address are not related.
sockaddr_in InternetAddress(const sockaddr* pAddress)
{
    sockaddr_in address = {};
    std::memcpy(&address, pAddress, sizeof address);
    return address;
}

std::string AddressOf(const sockaddr_in& address)
{
    char acText[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, acText, sizeof acText);
    return acText;
}

} // namespace

std::string stInterface::WhyNot() const
{
    return !bUp                        ? "it is down"
           : !bCarrier                 ? "it has no carrier: is the cable in?"
           : strAddress.empty()        ? "it has no IPv4 address"
           : !bMulticast && !bLoopback ? "it doesn't do multicast"
                                       : "";
}

std::string stInterface::Repair() const
{
    const std::string strQuoted = ShellWord(strName);
    return !bUp                        ? "ip link set " + strQuoted + " up"
           : !bCarrier                 ? ""
           : strAddress.empty()        ? "ip address add ADDRESS/24 dev " + strQuoted
           : !bMulticast && !bLoopback ? "ip link set " + strQuoted + " multicast on"
                                       : "";
}

std::vector<stInterface> ListInterfaces()
{
    std::vector<stInterface> interfaces;
    ifaddrs* pFirst = nullptr;
    if (getifaddrs(&pFirst) != 0)
    {
        return interfaces;
    }
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> guard(pFirst, freeifaddrs);
    const auto add = [&](const ifaddrs& entry, const std::string& strAddress)
    {
        const auto has = [&entry](unsigned int unFlag) { return (entry.ifa_flags & unFlag) != 0; };
        interfaces.push_back({entry.ifa_name, strAddress, has(IFF_UP), has(IFF_RUNNING), has(IFF_MULTICAST), has(IFF_LOOPBACK)});
    };
    for (const ifaddrs* pEntry = pFirst; pEntry != nullptr; pEntry = pEntry->ifa_next)
    {
        if (pEntry->ifa_addr != nullptr && pEntry->ifa_addr->sa_family == AF_INET)
        {
            add(*pEntry, AddressOf(InternetAddress(pEntry->ifa_addr)));
        }
    }
    for (const ifaddrs* pEntry = pFirst; pEntry != nullptr; pEntry = pEntry->ifa_next)
    {
        const auto isIt = [pEntry](const stInterface& interface) { return interface.strName == pEntry->ifa_name; };
        if (std::none_of(interfaces.begin(), interfaces.end(), isIt))
        {
            add(*pEntry, "");
        }
    }
    return interfaces;
}

std::string InterfacesText(const std::vector<stInterface>& interfaces)
{
    std::string strText;
    for (const stInterface& interface : interfaces)
    {
        strText += (strText.empty() ? "" : ", ") + interface.strName + " (" +
                   (interface.strAddress.empty() ? "no IPv4 address" : interface.strAddress) + ")";
    }
    return strText.empty() ? "none" : strText;
}

std::string InterfaceOf(const std::string& strAddress)
{
    for (const stInterface& interface : ListInterfaces())
    {
        if (interface.strAddress == strAddress)
        {
            return interface.strName;
        }
    }
    return "of no name";
}

std::string FindInterface(const std::string& strNameOrAddress)
{
    const std::vector<stInterface> interfaces = ListInterfaces();
    for (const stInterface& interface : interfaces)
    {
        if (interface.strName == strNameOrAddress || (interface.strAddress == strNameOrAddress && !strNameOrAddress.empty()))
        {
            if (interface.strAddress.empty())
            {
                const std::string strRepair = interface.Repair();
                throw stWrongUse("--interface",
                                 strNameOrAddress + " has no IPv4 address" + (strRepair.empty() ? "" : "; try: " + strRepair));
            }
            return interface.strAddress;
        }
    }
    in_addr address = {};
    if (interfaces.empty() && inet_pton(AF_INET, strNameOrAddress.c_str(), &address) == 1)
    {
        return strNameOrAddress; // nobody can tell: opening it will
    }
    throw stWrongUse("--interface", "there is no \"" + strNameOrAddress + "\" here; there are " + InterfacesText(interfaces));
}

// Connecting a datagram socket sends nothing: it asks the system for the route.
std::string RouteTo(const std::string& strGroup, int& nError)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(c_usAnyPort);
    inet_pton(AF_INET, strGroup.c_str(), &address.sin_addr);
    const int nSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    socklen_t nLength = sizeof address;
    std::string strAddress;
    if (nSocket >= 0 && connect(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(nSocket, reinterpret_cast<sockaddr*>(&address), &nLength) == 0)
    {
        strAddress = AddressOf(address);
    }
    else
    {
        nError = errno;
    }
    if (nSocket >= 0)
    {
        close(nSocket);
    }
    return strAddress;
}

std::string ChoiceText(const std::string& strChosenAddress, const std::string& strGroup)
{
    int nError = 0;
    const std::string strAddress = strChosenAddress.empty() ? RouteTo(strGroup, nError) : strChosenAddress;
    return strAddress.empty() ? Format("no interface: the system has no route to the group (%s)", std::strerror(nError))
                              : Format("interface %s (%s), %s", InterfaceOf(strAddress).c_str(), strAddress.c_str(),
                                       strChosenAddress.empty() ? "where the system routes the group" : "as --interface says");
}
