#include "Network/KernelFiles.h"

#include "Terminal/Common.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>

#include <arpa/inet.h>
#include <net/route.h>
#include <netinet/in.h>

namespace
{

// False where there is no such file.
template <class Take>
bool ForEachLine(const std::string& strFile, Take take)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pFile(std::fopen(strFile.c_str(), "r"), std::fclose);
    char acLine[512];
    while (pFile != nullptr && std::fgets(acLine, sizeof acLine, pFile.get()) != nullptr)
    {
        take(acLine);
    }
    return pFile != nullptr;
}

// These files show addresses as the machine reads the four bytes: a number that is compared as it is, whatever its byte order.
unsigned int AsNumber(const std::string& strAddress)
{
    in_addr address = {};
    inet_pton(AF_INET, strAddress.c_str(), &address);
    return address.s_addr;
}

int CountBits(unsigned int unMask)
{
    int nBits = 0;
    for (; unMask != 0; unMask &= unMask - 1)
    {
        ++nBits;
    }
    return nBits;
}

std::string PrefixText(unsigned int unAddress, int nBits)
{
    in_addr address = {};
    address.s_addr = unAddress;
    char acText[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, acText, sizeof acText);
    return Format("%s/%d", acText, nBits);
}

// "socket:[12345]", as a process's descriptors are shown; each with what it dropped.
std::map<std::string, unsigned long> SocketsOnPort(unsigned int unPort)
{
    std::map<std::string, unsigned long> sockets;
    for (const char* szFile : {"/proc/net/udp", "/proc/net/udp6"}) // one for both kinds of address holds the port, too
    {
        ForEachLine(szFile,
                    [&](const char* szLine)
                    {
                        unsigned int unFound = 0;
                        unsigned long ulInode = 0;
                        unsigned long ulDropped = 0;
                        if (std::sscanf(szLine, "%*s %*[^:]:%x %*s %*s %*s %*s %*s %*s %*s %lu %*s %*s %lu", &unFound, &ulInode,
                                        &ulDropped) >= 2 &&
                            unFound == unPort)
                        {
                            sockets[Format("socket:[%lu]", ulInode)] = ulDropped;
                        }
                    });
    }
    return sockets;
}

// What those of them dropped that a process has; none: it has none.
std::optional<unsigned long> DroppedBy(const std::filesystem::path& process, const std::map<std::string, unsigned long>& sockets)
{
    std::optional<unsigned long> dropped;
    std::error_code error;
    for (std::filesystem::directory_iterator file(process / "fd", error), end; !error && file != end; file.increment(error))
    {
        std::error_code gone; // a descriptor that was closed meanwhile
        const auto socket = sockets.find(std::filesystem::read_symlink(file->path(), gone).string());
        dropped = socket == sockets.end() ? dropped : dropped.value_or(0) + socket->second;
    }
    return dropped;
}

std::string ProcessName(const std::filesystem::path& process)
{
    std::string strName;
    ForEachLine(process / "comm", [&](const std::string& strLine) { strName = strLine.substr(0, strLine.find('\n')); });
    return strName;
}

} // namespace

std::optional<long> ReadSetting(const std::string& strPath)
{
    std::optional<long> value;
    ForEachLine("/proc/sys/" + strPath, [&](const char* szLine) { value = std::strtol(szLine, nullptr, 10); });
    return value;
}

std::string SettingCommand(const std::string& strPath, long lValue)
{
    std::string strName = strPath;
    for (char& c : strName)
    {
        c = c == '/' ? '.' : c == '.' ? '/' : c;
    }
    return Format("sysctl -w %s=%ld", ShellWord(strName).c_str(), lValue);
}

std::optional<std::vector<stMembership>> ListMemberships(const std::string& strGroup)
{
    std::vector<stMembership> memberships;
    std::string strInterface;
    const auto take = [&](const char* szLine)
    {
        char acName[64] = "";
        unsigned int unGroup = 0;
        int nSockets = 0;
        if (szLine[0] != '\t' && std::sscanf(szLine, "%*s %63s", acName) == 1)
        {
            strInterface = acName;
            strInterface.erase(std::min(strInterface.find(':'), strInterface.size())); // which follows a long name at once
        }
        else if (std::sscanf(szLine, " %x %d", &unGroup, &nSockets) == 2 && unGroup == AsNumber(strGroup))
        {
            memberships.push_back({strInterface, nSockets});
        }
    };
    return ForEachLine("/proc/net/igmp", take) ? std::optional(memberships) : std::nullopt;
}

std::optional<stRoute> FindRoute(const std::string& strAddress)
{
    std::optional<stRoute> best;
    ForEachLine("/proc/net/route",
                [&](const char* szLine)
                {
                    char acInterface[64] = "";
                    unsigned int unTo = 0;
                    unsigned int unFlags = 0;
                    unsigned int unMask = 0;
                    if (std::sscanf(szLine, "%63s %x %*x %x %*d %*d %*d %x", acInterface, &unTo, &unFlags, &unMask) == 4 &&
                        (AsNumber(strAddress) & unMask) == unTo && (!best.has_value() || CountBits(unMask) > best->nBits))
                    {
                        const bool bRefuses = (unFlags & RTF_REJECT) != 0 || acInterface == std::string("*");
                        best = {PrefixText(unTo, CountBits(unMask)), CountBits(unMask), acInterface, bRefuses};
                    }
                });
    return best;
}

std::vector<stProcess> FindHolders(unsigned int unPort)
{
    std::vector<stProcess> holders;
    const std::map<std::string, unsigned long> sockets = SocketsOnPort(unPort);
    std::error_code error;
    std::filesystem::directory_iterator process("/proc", error);
    for (const std::filesystem::directory_iterator end; !sockets.empty() && !error && process != end; process.increment(error))
    {
        const std::string strId = process->path().filename();
        const bool bProcess = strId.find_first_not_of("0123456789") == std::string::npos;
        const std::optional<unsigned long> dropped = bProcess ? DroppedBy(process->path(), sockets) : std::nullopt;
        if (dropped.has_value())
        {
            holders.push_back({std::atoi(strId.c_str()), ProcessName(process->path()), *dropped});
        }
    }
    return holders;
}
