#include "Network/Options.h"

#include "Network/Interface.h"
#include "Terminal/Command.h"
#include "Terminal/Common.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace
{

// As it is written: some C libraries read leading zeros, too.
bool IsAddress(const std::string& strText, in_addr& address)
{
    char acText[INET_ADDRSTRLEN];
    return inet_pton(AF_INET, strText.c_str(), &address) == 1 && inet_ntop(AF_INET, &address, acText, sizeof acText) != nullptr &&
           strText == acText;
}

} // namespace

std::string CheckGroup(const std::string& strText)
{
    in_addr address = {};
    const bool bGroup = IsAddress(strText, address) && IN_MULTICAST(ntohl(address.s_addr));
    return bGroup ? std::string() : strText + " is not a multicast group (224.0.0.0 to 239.255.255.255)";
}

void AddGroupOptions(CCommand& command, stMulticastLink& link, const std::string& strWhat)
{
    command.Option("--group", link.strGroup, "Multicast group of " + strWhat).Type("GROUP").Check(CheckGroup);
    command.Option("--port", link.unPort, "UDP port of " + strWhat).Within(1, 65535);
}

void AddInterfaceOption(CCommand& command, stMulticastLink& link)
{
    command
        .Option(
            "--interface", [&link](const std::string& strName) { link.strInterface = FindInterface(strName); },
            "Name or IPv4 address of the network interface; default: where the system routes the group")
        .Type("NAME|ADDRESS");
}

void AddLinkOptions(CCommand& command, stMulticastLink& link)
{
    AddGroupOptions(command, link, "the MC's updates");
    AddInterfaceOption(command, link);
}

std::string LinkText(const stMulticastLink& link)
{
    return Format("%s:%u, %s", link.strGroup.c_str(), link.unPort, ChoiceText(link.strInterface, link.strGroup).c_str());
}

void CheckSimpleSender(const char* szOption, const stMulticastLink& link)
{
    int nError = 0;
    const std::string strRouted = RouteTo(c_szPPCGroup, nError);
    if (!link.strInterface.empty() && InterfaceOf(link.strInterface) != InterfaceOf(strRouted))
    {
        throw stWrongUse(szOption, Format("such changes go where the system routes %s, and that is %s, not %s", c_szPPCGroup,
                                          strRouted.empty() ? "nowhere" : InterfaceOf(strRouted).c_str(),
                                          InterfaceOf(link.strInterface).c_str()));
    }
}

std::string OwnAddress(const stMulticastLink& link)
{
    int nError = 0;
    return link.strInterface.empty() ? RouteTo(link.strGroup, nError) : link.strInterface;
}

void Describe(const stMulticastLink& link, int nReceiveBuffer, const char* szFor)
{
    static std::string s_strSaid;
    const std::string strText =
        Format("%supdates on %s, receive buffer %s bytes", szFor, LinkText(link).c_str(), Grouped(nReceiveBuffer).c_str());
    if (s_strSaid != strText)
    {
        Line("%s", strText.c_str());
        s_strSaid = strText;
    }
}
