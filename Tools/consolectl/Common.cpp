#include "Common.h"

#include <csignal>
#include <cstdio>
#include <ctime>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

namespace
{

volatile std::sig_atomic_t g_nStop = 0;

std::string FormatList(const char* szFormat, va_list arguments)
{
    char acText[1024];
    const int nLength = std::vsnprintf(acText, sizeof acText, szFormat, arguments);
    return std::string(acText, nLength < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(nLength), sizeof acText - 1));
}

bool IsAddress(const std::string& strText, in_addr& address)
{
    return inet_pton(AF_INET, strText.c_str(), &address) == 1;
}

std::string CheckGroup(const std::string& strText)
{
    in_addr address = {};
    const bool bGroup = IsAddress(strText, address) && IN_MULTICAST(ntohl(address.s_addr));
    return bGroup ? std::string() : strText + " is not a multicast group (224.0.0.0 to 239.255.255.255)";
}

std::string CheckInterface(const std::string& strText)
{
    in_addr address = {};
    return IsAddress(strText, address) ? std::string() : strText + " is not an IPv4 address of an interface";
}

} // namespace

void AddLinkOptions(CLI::App& command, stUpdateLink& link)
{
    command.add_option("--group", link.strGroup, "Multicast group of the MC's updates")
        ->check(CLI::Validator(CheckGroup, "GROUP"))
        ->capture_default_str();
    command.add_option("--port", link.unPort, "UDP port of the MC's updates")->check(CLI::Range(1, 65535))->capture_default_str();
    command.add_option("--interface", link.strInterface, "IPv4 address of the network interface; default: the system's choice")
        ->check(CLI::Validator(CheckInterface, "ADDRESS"));
}

CLI::Validator Between(double dLow, double dHigh)
{
    return CLI::Validator(
        [dLow, dHigh](std::string& strText)
        {
            double dValue = 0;
            const bool bInside = CLI::detail::lexical_cast(strText, dValue) && dValue >= dLow && dValue <= dHigh;
            return bInside ? std::string() : Format("Value %s not in range %g to %g", strText.c_str(), dLow, dHigh);
        },
        Format("NUMBER in [%g - %g]", dLow, dHigh));
}

std::string Describe(const stUpdateLink& link, int nReceiveBuffer)
{
    return Format("updates on %s:%u, interface %s, receive buffer %s bytes", link.strGroup.c_str(), link.unPort,
                  link.strInterface.empty() ? "as the system routes multicast" : link.strInterface.c_str(),
                  Grouped(nReceiveBuffer).c_str());
}

void CatchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { g_nStop = 1; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool StopRequested()
{
    return g_nStop != 0;
}

double SecondsSince(tSteadyClock::time_point start)
{
    return std::chrono::duration<double>(tSteadyClock::now() - start).count();
}

void SleepUntil(tSteadyClock::time_point time)
{
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(time - tSteadyClock::now()).count();
    if (left > 0)
    {
        const timespec sleep = {static_cast<std::time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
        nanosleep(&sleep, nullptr);
    }
}

std::string Styled(enTextStyle enStyle, const std::string& strText)
{
    static const char* const caCodes[] = {"", "\033[32m", "\033[31m", "\033[1m", "\033[2m"};
    return IsTerminal() && enStyle != enPlain ? caCodes[enStyle] + strText + "\033[0m" : strText;
}

bool IsTerminal()
{
    static const bool bTerminal = isatty(STDOUT_FILENO) != 0;
    return bTerminal;
}

std::string Format(const char* szFormat, ...)
{
    va_list arguments;
    va_start(arguments, szFormat);
    std::string strText = FormatList(szFormat, arguments);
    va_end(arguments);
    return strText;
}

void Line(const char* szFormat, ...)
{
    va_list arguments;
    va_start(arguments, szFormat);
    std::printf("%s%s\n", IsTerminal() ? "\r\033[K" : "", FormatList(szFormat, arguments).c_str());
    va_end(arguments);
    std::fflush(stdout);
}

std::string Grouped(long lNumber)
{
    std::string strText = std::to_string(lNumber);
    for (std::size_t unPlace = strText.size(); unPlace > 3 && strText[unPlace - 4] != '-';)
    {
        unPlace -= 3;
        strText.insert(unPlace, ",");
    }
    return strText;
}

int Fail(const std::string& strText)
{
    std::fprintf(stderr, "consolectl: %s\n", strText.c_str());
    return enExitFailed;
}
