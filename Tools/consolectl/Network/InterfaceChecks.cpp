// The checks of interfaces and of the routes to them.
#include "Network/Checks.h"

#include "Network/KernelFiles.h"
#include "Terminal/Common.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

namespace
{

constexpr char c_szAllGroups[] = "224.0.0.0/4";
constexpr int c_nAllGroupsBits = 4;

// How likely an interface is the one that should carry multicast.
int Promise(const stInterface& interface)
{
    return interface.bLoopback                                                        ? 1
           : interface.WhyNot().empty()                                               ? 3
           : interface.bMulticast && (interface.bUp || !interface.strAddress.empty()) ? 2
                                                                                      : 0;
}

const stInterface* BestInterface(const stExamined& examined)
{
    const auto isWorse = [](const stInterface& one, const stInterface& other) { return Promise(one) < Promise(other); };
    const auto best = std::max_element(examined.interfaces.begin(), examined.interfaces.end(), isWorse);
    return examined.Chosen() != nullptr ? examined.Chosen() : best != examined.interfaces.end() ? &*best : nullptr;
}

// Routes a group there, in place of the route that decides about it now; all groups, when that one isn't about groups alone.
std::string RouteCommand(const stInterface* pInterface, const std::string& strGroup)
{
    if (pInterface == nullptr)
    {
        return std::string();
    }
    const std::string strRepair = pInterface->Repair();
    const std::optional<stRoute> route = FindRoute(strGroup);
    return (strRepair.empty() ? "" : strRepair + " && ") + "ip route replace " +
           (route.has_value() && route->nBits >= c_nAllGroupsBits ? route->strPrefix : c_szAllGroups) + " dev " +
           ShellWord(pInterface->strName) + (pInterface->bLoopback ? " src 127.0.0.1" : "");
}

struct stNoWay
{
    std::string strWhy;
    std::string strCommand;
};

stNoWay NoWayTo(const stExamined& examined, const std::string& strGroup, int nError)
{
    static const struct
    {
        int nError;
        const char* szText;
    } aRefusals[] = {
        {EHOSTUNREACH, "makes it unreachable"},
        {EACCES, "prohibits it"},
        {EPERM, "forbids it"},
        {EINVAL, "swallows it (blackhole)"},
    };
    const auto isIt = [=](const auto& refusal) { return refusal.nError == nError; };
    const auto pRefusal = std::find_if(std::begin(aRefusals), std::end(aRefusals), isIt);
    const std::string strCommand = RouteCommand(BestInterface(examined), strGroup);
    if (pRefusal == std::end(aRefusals))
    {
        return {nError == ENETUNREACH ? "there is no route to it" : std::strerror(nError), strCommand};
    }
    const std::optional<stRoute> route = FindRoute(strGroup);
    const bool bFound = route.has_value() && route->bRefuses;
    return {(bFound ? "the route to " + route->strPrefix : std::string("a rule or a policy")) + " " + pRefusal->szText,
            bFound ? strCommand : "ip rule; ip route show table all; ip xfrm policy"};
}

std::string NameOf(const stExamined& examined, const std::string& strAddress)
{
    for (const stInterface& interface : examined.interfaces)
    {
        if (interface.strAddress == strAddress)
        {
            return interface.strName;
        }
    }
    return std::string();
}

// The interface without an address that a group is routed to. The system lends it the address of another.
const stInterface* RoutedWithoutAddress(const std::vector<stInterface>& interfaces, const std::string& strGroup)
{
    const std::optional<stRoute> route = FindRoute(strGroup);
    const auto isIt = [&](const stInterface& interface)
    { return route.has_value() && interface.strName == route->strInterface && interface.strAddress.empty(); };
    const auto routed = std::find_if(interfaces.begin(), interfaces.end(), isIt);
    return routed != interfaces.end() ? &*routed : nullptr;
}

std::string AddressOfRoute(const std::vector<stInterface>& interfaces, const std::string& strGroup)
{
    int nError = 0;
    return RoutedWithoutAddress(interfaces, strGroup) == nullptr ? RouteTo(strGroup, nError) : std::string();
}

stFinding LeavingThrough(const stExamined& examined, const std::string& strGroup, const std::string& strWhat,
                         const std::string& strAddress)
{
    const std::string strName = NameOf(examined, strAddress);
    const std::string strFinding = strWhat + " leave through " + (strName.empty() ? strAddress : strName + " (" + strAddress + ")");
    const stInterface* const pChosen = examined.Chosen();
    return pChosen == nullptr || pChosen->strName == strName
               ? stFinding{enVerdictOk, strGroup, strFinding, ""}
               : stFinding{enVerdictWarning, strGroup, strFinding + ", not through " + pChosen->strName + " as the rest",
                           RouteCommand(pChosen, strGroup)};
}

// Where the system sends a group when no interface is named.
stFinding RouteFinding(const stExamined& examined, const std::string& strGroup, const std::string& strWhat,
                       enVerdict enWithoutRoute)
{
    const stInterface* const pLacking = RoutedWithoutAddress(examined.interfaces, strGroup);
    if (pLacking != nullptr)
    {
        return {enWithoutRoute, strGroup, strWhat + " are routed to " + pLacking->strName + ", which has no IPv4 address",
                pLacking->Repair()};
    }
    int nError = 0;
    const std::string strAddress = RouteTo(strGroup, nError);
    if (!strAddress.empty())
    {
        return LeavingThrough(examined, strGroup, strWhat, strAddress);
    }
    const stNoWay noWay = NoWayTo(examined, strGroup, nError);
    return {enWithoutRoute, strGroup, strWhat + " go nowhere: " + noWay.strWhy, noWay.strCommand};
}

stFinding InterfaceFinding(const stExamined& examined, const stInterface& interface)
{
    const std::string strWhyNot = interface.WhyNot();
    const bool bChosen = &interface == examined.Chosen();
    if (!strWhyNot.empty())
    {
        // What says that it doesn't do multicast may do it nevertheless.
        const bool bCant = !interface.bUp || !interface.bCarrier || interface.strAddress.empty();
        return {!bChosen ? enVerdictNotUsed
                : bCant  ? enVerdictFailed
                         : enVerdictWarning,
                interface.strName, strWhyNot, interface.Repair()};
    }
    if (!bChosen)
    {
        return {enVerdictNotUsed, interface.strName, interface.strAddress + " could carry multicast and is not chosen", ""};
    }
    return {enVerdictOk, interface.strName,
            interface.strAddress + " carries multicast: " +
                (examined.link.strInterface.empty() ? "the system routes " + examined.link.strGroup + " there"
                                                    : "--interface names it") +
                (interface.bLoopback ? "; nothing leaves this machine" : ""),
            ""};
}

std::string CommandWith(const stMulticastLink& link, const std::string& strInterface)
{
    const stMulticastLink usual;
    return "consolectl doctor" + (link.strGroup != usual.strGroup ? " --group " + link.strGroup : "") +
           (link.unPort != usual.unPort ? Format(" --port %u", link.unPort) : "") + " --interface " + ShellWord(strInterface);
}

} // namespace

stExamined::stExamined(const stMulticastLink& multicastLink, const std::string& strSchemaFile, double dLongest)
    : link(multicastLink), strSchema(strSchemaFile), dTimeout(dLongest), interfaces(ListInterfaces()),
      strAddress(link.strInterface.empty() ? AddressOfRoute(interfaces, link.strGroup) : link.strInterface)
{
}

const stInterface* stExamined::Chosen() const
{
    const auto isIt = [this](const stInterface& interface) { return interface.strAddress == strAddress; };
    const auto chosen = std::find_if(interfaces.begin(), interfaces.end(), isIt);
    return strAddress.empty() || chosen == interfaces.end() ? nullptr : &*chosen;
}

tFindings CheckInterfaces(const stExamined& examined)
{
    tFindings findings;
    for (const stInterface& interface : examined.interfaces)
    {
        findings.push_back(InterfaceFinding(examined, interface));
    }
    return findings.empty() ? tFindings{{enVerdictNote, "all", "not known here: the system lists no interfaces", ""}} : findings;
}

// Only when nobody chose, and there was a choice.
tFindings CheckChoice(const stExamined& examined)
{
    const stInterface* const pChosen = examined.Chosen();
    std::set<std::string> others;
    for (const stInterface& interface : examined.interfaces)
    {
        if (pChosen != nullptr && !interface.bLoopback && interface.WhyNot().empty() && interface.strName != pChosen->strName)
        {
            others.insert(interface.strName);
        }
    }
    if (others.empty() || !examined.link.strInterface.empty())
    {
        return {};
    }
    std::string strOthers;
    for (const std::string& strOther : others)
    {
        strOthers += (strOthers.empty() ? "" : ", ") + strOther;
    }
    return {{enVerdictWarning, pChosen->strName,
             "taken because the system routes " + examined.link.strGroup + " there; --interface names another: " + strOthers,
             CommandWith(examined.link, *others.begin())}};
}

// A client sends what it queues through the interface that is named, and single changes where the system routes them.
tFindings CheckRoutes(const stExamined& examined)
{
    const bool bNamed = !examined.link.strInterface.empty();
    tFindings findings = {
        bNamed ? stFinding{enVerdictOk, examined.link.strGroup, "not asked for: --interface names where updates go", ""}
               : RouteFinding(examined, examined.link.strGroup, "the MC's updates", enVerdictFailed)};
    if (examined.link.strGroup != c_szPPCGroup)
    {
        findings.push_back(RouteFinding(examined, c_szPPCGroup, bNamed ? "changes sent one by one" : "changes",
                                        bNamed ? enVerdictWarning : enVerdictFailed));
    }
    return findings;
}

tFindings CheckReversePath(const stExamined& examined)
{
    constexpr long c_lStrict = 1;
    constexpr long c_lLoose = 2;
    const stInterface* const pChosen = examined.Chosen();
    if (pChosen == nullptr || pChosen->bLoopback)
    {
        return {};
    }
    const auto path = [](const std::string& strName) { return "net/ipv4/conf/" + strName + "/rp_filter"; };
    const std::optional<long> ofAll = ReadSetting(path("all"));
    const std::optional<long> own = ReadSetting(path(pChosen->strName));
    if (!ofAll.has_value() || !own.has_value())
    {
        return {{enVerdictNote, pChosen->strName, "not known here: the system doesn't show rp_filter", ""}};
    }
    const long lFilter = std::max(*ofAll, *own); // the system takes the greater
    if (lFilter == c_lStrict)
    {
        return {
            {enVerdictWarning, pChosen->strName,
             "the reverse-path filter is strict: updates are dropped whose sender isn't routed back through " + pChosen->strName,
             SettingCommand(path(pChosen->strName), c_lLoose)}};
    }
    return {{enVerdictOk, pChosen->strName, lFilter == 0 ? "no reverse-path filter" : "the reverse-path filter is loose", ""}};
}
