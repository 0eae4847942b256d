// What the system tells about its network in files under /proc. A system may lack any of them.
#pragma once

#include <optional>
#include <string>
#include <vector>

// A number that sysctl would show. The name is a path, "net/core/rmem_max": an interface's may have dots.
std::optional<long> ReadSetting(const std::string& strPath);

// "sysctl -w net.core.rmem_max=4194304".
std::string SettingCommand(const std::string& strPath, long lValue);

struct stMembership
{
    std::string strInterface;
    int nSockets;
};

// On which interfaces a group is joined. None where the system doesn't tell.
std::optional<std::vector<stMembership>> ListMemberships(const std::string& strGroup);

struct stRoute
{
    std::string strPrefix; // "224.0.0.0/4"
    int nBits;
    std::string strInterface; // "*" for none
    bool bRefuses;            // it leads nowhere
};

// The route of the main table that decides about an address.
std::optional<stRoute> FindRoute(const std::string& strAddress);

struct stProcess
{
    int nId;
    std::string strName;
    unsigned long ulDropped; // datagrams that its sockets on the port had no room for
};

// Who has a socket on this UDP port, as far as one may know.
std::vector<stProcess> FindHolders(unsigned int unPort);
