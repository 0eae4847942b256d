// The checks that open sockets, as a client does.
#include "Network/Checks.h"

#include "Network/KernelFiles.h"
#include "Network/Probe.h"
#include "Network/Report.h"
#include "Terminal/Common.h"

#include "LogicalControls.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include <netinet/in.h>
#include <sys/socket.h>

namespace
{

constexpr int c_nBufferAsked = 4 << 20;  // by the library's sockets
constexpr int c_nBufferEnough = 2000000; // in force: 0.13 s of an MC's updates, by which a receive thread may be late
constexpr char c_szBufferSetting[] = "net/core/rmem_max";
constexpr char c_szMembershipsSetting[] = "net/ipv4/igmp_max_memberships";
constexpr long c_lUsualMemberships = 20;
constexpr char c_szPrivilegedSetting[] = "net/ipv4/ip_unprivileged_port_start";
constexpr char c_szLookAtFirewall[] = "nft list ruleset; iptables -L -n -v; ip xfrm policy";

// Why nothing can be joined or sent, when that was said already.
std::string WhyNotTried(const stExamined& examined)
{
    const stInterface* const pChosen = examined.Chosen();
    return examined.strAddress.empty()           ? "not tried: there is no interface for it"
           : pChosen != nullptr && !pChosen->bUp ? "not tried: " + pChosen->strName + " is down"
                                                 : "";
}

stFinding HeldPort(enVerdict enIs, unsigned int unPort, const std::string& strMeans)
{
    const std::vector<stProcess> holders = FindHolders(unPort);
    std::string strHolders;
    for (const stProcess& holder : holders)
    {
        strHolders += Format("%s%s (process %d)", strHolders.empty() ? "" : ", ", holder.strName.c_str(), holder.nId);
    }
    return {enIs, std::to_string(unPort),
            strMeans + ": held, and not shared, by " + (strHolders.empty() ? "a process that is not shown here" : strHolders),
            holders.size() == 1 ? Format("kill %d", holders[0].nId) : Format("ss -ulnp 'sport = :%u'", unPort)};
}

stFinding PortFinding(unsigned int unPort, const std::string& strMeans, enVerdict enWhenNot)
{
    CProbe probe;
    const int nError = probe.Bind(unPort);
    if (nError == EADDRINUSE)
    {
        return HeldPort(enWhenNot, unPort, strMeans);
    }
    return {nError == 0 ? enVerdictOk : enWhenNot, std::to_string(unPort),
            nError == 0 ? "can be had" : strMeans + ": " + std::strerror(nError),
            nError == EACCES ? SettingCommand(c_szPrivilegedSetting, static_cast<long>(unPort)) : ""};
}

stFinding JoinError(const stExamined& examined, int nError)
{
    if (nError != ENOBUFS)
    {
        return {enVerdictFailed, examined.link.strGroup, std::string("can't be joined: ") + std::strerror(nError), ""};
    }
    const std::optional<long> most = ReadSetting(c_szMembershipsSetting);
    return {enVerdictFailed, examined.link.strGroup,
            "can't be joined: a socket may be in no more groups" +
                (most.has_value() ? Format(" (net.ipv4.igmp_max_memberships is %ld)", *most) : ""),
            SettingCommand(c_szMembershipsSetting, c_lUsualMemberships)};
}

// What the system shows after a socket has joined.
stFinding JoinedFinding(const stExamined& examined)
{
    const std::string& strGroup = examined.link.strGroup;
    const std::optional<std::vector<stMembership>> memberships = ListMemberships(strGroup);
    if (!memberships.has_value() || memberships->empty())
    {
        return {enVerdictNote, strGroup, "joined; who else has is not known here", ""};
    }
    const stInterface* const pChosen = examined.Chosen();
    const auto isThere = [=](const stMembership& it) { return pChosen == nullptr || it.strInterface == pChosen->strName; };
    const auto there = std::find_if(memberships->begin(), memberships->end(), isThere);
    if (there == memberships->end())
    {
        return {enVerdictWarning, strGroup, "joined, but on " + memberships->front().strInterface + ", not on " + pChosen->strName,
                ""};
    }
    return {enVerdictOk, strGroup,
            Format("joined on %s; other sockets here that have: %d", there->strInterface.c_str(), there->nSockets - 1), ""};
}

} // namespace

tFindings CheckPorts(const stExamined& examined)
{
    tFindings findings = {PortFinding(examined.link.unPort, "no client here hears updates", enVerdictFailed)};
    const struct
    {
        unsigned int unPort;
        const char* szMeans;
    } aOthers[] = {
        {c_unPPCPort, "no MC here hears changes"},
        {c_unReportPort, "no reports can be listened to"},
    };
    for (const auto& other : aOthers)
    {
        if (other.unPort != examined.link.unPort)
        {
            findings.push_back(PortFinding(other.unPort, other.szMeans, enVerdictWarning));
        }
    }
    return findings;
}

tFindings CheckMembership(const stExamined& examined)
{
    const std::string strWhyNot = WhyNotTried(examined);
    if (!strWhyNot.empty())
    {
        return {{enVerdictNote, examined.link.strGroup, strWhyNot, ""}};
    }
    CProbe probe;
    const int nError = probe.Listen(examined.link, 0);
    return {nError != 0 ? JoinError(examined, nError) : JoinedFinding(examined)};
}

tFindings CheckReceiveBuffer(const stExamined&)
{
    RySocketIO::CSocket socket(RySocketIO::enConnectionUDP, false, false);
    if (!socket.InitialiseLocalSockets(0, nullptr, nullptr, 1))
    {
        return {{enVerdictNote, "receive", "not known here: no socket can be had", ""}};
    }
    const int nInForce = socket.GetReceiveBufferSize();
    const std::string strText =
        Format("%s bytes asked for, %s in force", Grouped(c_nBufferAsked).c_str(), Grouped(nInForce).c_str());
    return {nInForce < c_nBufferEnough ? stFinding{enVerdictWarning, "receive", strText + ": a busy client loses updates",
                                                   SettingCommand(c_szBufferSetting, c_nBufferAsked)}
                                       : stFinding{enVerdictOk, "receive", strText, ""}};
}

tFindings CheckHops(const stExamined&)
{
    const int nHops = CProbe().GetOption(IPPROTO_IP, IP_MULTICAST_TTL);
    return {nHops < 0    ? stFinding{enVerdictNote, "multicast", "not known here", ""}
            : nHops == 1 ? stFinding{enVerdictOk, "multicast", "1: no router passes it on; MC and clients are in one network", ""}
                         : stFinding{enVerdictOk, "multicast", Counted(nHops, "hops"), ""}};
}

tFindings CheckLoop(const stExamined&)
{
    const int nLoop = CProbe().GetOption(IPPROTO_IP, IP_MULTICAST_LOOP);
    return {nLoop < 0 ? stFinding{enVerdictNote, "multicast", "not known here", ""}
            : nLoop == 0
                ? stFinding{enVerdictWarning, "multicast", "off: an MC and a client on this machine don't hear each other", ""}
                : stFinding{enVerdictOk, "multicast", "on: an MC and a client on this machine hear each other", ""}};
}

tFindings CheckRoundTrip(const stExamined& examined)
{
    const std::string& strGroup = examined.link.strGroup;
    const std::string strWhyNot = WhyNotTried(examined);
    const stRoundTrip trip = strWhyNot.empty() ? TryRoundTrip(examined.link, examined.dTimeout) : stRoundTrip{};
    if (!trip.bTried)
    {
        return {{enVerdictNote, strGroup, strWhyNot.empty() ? "not tried: the group can't be joined" : strWhyNot, ""}};
    }
    const std::string strDatagram = Format("a datagram to port %u ", trip.unPort);
    if (trip.nError == 0)
    {
        return {{enVerdictOk, strGroup, strDatagram + Format("came back after %.2f ms", trip.dSeconds * 1000), ""}};
    }
    if (trip.nError == ETIMEDOUT)
    {
        return {{enVerdictFailed, strGroup,
                 strDatagram + Format("left and didn't come back within %g s: a firewall, or no loop", examined.dTimeout),
                 c_szLookAtFirewall}};
    }
    const bool bForbidden = trip.nError == EPERM || trip.nError == EACCES;
    return {{enVerdictFailed, strGroup,
             strDatagram + "isn't sent: " + (bForbidden ? "a firewall forbids it" : std::strerror(trip.nError)),
             bForbidden ? c_szLookAtFirewall : ""}};
}

tFindings CheckMc(const stExamined& examined)
{
    const std::string strSubject = Format("%s:%u", examined.link.strGroup.c_str(), examined.link.unPort);
    CProbe ear;
    if (!WhyNotTried(examined).empty() || ear.Listen(examined.link, examined.link.unPort) != 0)
    {
        return {{enVerdictNote, strSubject, "not listened to: a client can't hear it", ""}};
    }
    std::map<std::string, long> senders;
    const auto until = tSteadyClock::now() + Duration(examined.dTimeout);
    for (stHeard heard; ear.Receive(until, heard) == 0;)
    {
        ++senders[heard.strSender];
    }
    std::string strSenders;
    for (const auto& sender : senders)
    {
        strSenders +=
            (strSenders.empty() ? "" : ", ") + Format("%s (%s)", sender.first.c_str(), Counted(sender.second, "datagrams").c_str());
    }
    return {senders.empty()
                ? stFinding{enVerdictNote, strSubject,
                            Format("nothing heard within %g s: is there an MC, on this group and port?", examined.dTimeout),
                            "consolectl stats --timeout 3"}
            : senders.size() == 1
                ? stFinding{enVerdictOk, strSubject, "heard from " + strSenders, ""}
                : stFinding{enVerdictWarning, strSubject, "several MCs share it, and meet in every client: " + strSenders,
                            "consolectl stats --timeout 3"}};
}
