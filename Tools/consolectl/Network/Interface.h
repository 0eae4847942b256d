// The machine's network interfaces, and which of them multicast takes.
#pragma once

#include <string>
#include <vector>

// An interface by one of its addresses: with several it is there several times, with none once.
struct stInterface
{
    std::string strName;
    std::string strAddress; // IPv4; empty for none
    bool bUp;
    bool bCarrier; // a cable, or what stands for one
    bool bMulticast;
    bool bLoopback;

    // Empty when it can carry multicast, or the reason why not.
    std::string WhyNot() const;

    // The command that changes this; empty where none does. What only a person knows is in capitals.
    std::string Repair() const;
};

// Empty where the system doesn't tell.
std::vector<stInterface> ListInterfaces();

// "lo (127.0.0.1), eth0 (no IPv4 address)".
std::string InterfacesText(const std::vector<stInterface>& interfaces);

// The address of the interface that a name or an address stands for. Throws stWrongUse with what there is.
std::string FindInterface(const std::string& strNameOrAddress);

// The name of the interface that has an address, "of no name" when there is none.
std::string InterfaceOf(const std::string& strAddress);

// The address that the system sends from to a group when nothing else is said. Empty when it can't, and then the errno why.
std::string RouteTo(const std::string& strGroup, int& nError);

// "interface lo (127.0.0.1), where the system routes the group", of the address that was chosen, or of none.
std::string ChoiceText(const std::string& strChosenAddress, const std::string& strGroup);
