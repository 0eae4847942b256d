// The options that several subcommands take.
#pragma once

#include <string>

class CCommand;

// Where something is multicast: at first, where the MC's updates are.
struct stMulticastLink
{
    std::string strGroup = "225.0.0.46";
    unsigned int unPort = 7060;
    std::string strInterface; // empty: the system's choice
};

// Where clients send their changes.
constexpr char c_szPPCGroup[] = "225.0.0.45";
constexpr unsigned int c_unPPCPort = 7050;

// --group and --port of what strWhat names, --interface, and all three for the MC's updates.
void AddGroupOptions(CCommand& command, stMulticastLink& link, const std::string& strWhat);
void AddInterfaceOption(CCommand& command, stMulticastLink& link);
void AddLinkOptions(CCommand& command, stMulticastLink& link);

// Empty, or why the text is no multicast group.
std::string CheckGroup(const std::string& strText);

// "225.0.0.46:7060, interface 127.0.0.1".
std::string LinkText(const stMulticastLink& link);

// The simple sender goes where the system routes changes, whatever interface was chosen: throws when that is another one.
void CheckSimpleSender(const char* szOption, const stMulticastLink& link);

// This machine's address there; empty when it has none.
std::string OwnAddress(const stMulticastLink& link);

// Says what was chosen, for "MC: " or nobody; once, however often a client is opened there.
void Describe(const stMulticastLink& link, int nReceiveBuffer, const char* szFor = "");
