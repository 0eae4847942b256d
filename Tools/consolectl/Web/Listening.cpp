#include "Web/Listening.h"

#include "Terminal/Common.h"

#include <boost/asio/ip/tcp.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ip = boost::asio::ip;

namespace
{

constexpr int c_nFirstHandedOver = 3;

bool Is(const char* szVariable, const std::string& strText)
{
    const char* const szValue = std::getenv(szVariable);
    return szValue != nullptr && szValue == strText;
}

// None of what is no address.
std::optional<ip::address> Parse(const std::string& strAddress)
{
    boost::system::error_code error;
    const ip::address address = ip::make_address(strAddress, error);
    return error ? std::nullopt : std::make_optional(address);
}

} // namespace

stHandedOver TakeHandedOver()
{
    if (std::getenv("LISTEN_FDS") == nullptr || !Is("LISTEN_PID", std::to_string(::getpid())))
    {
        return {};
    }
    if (!Is("LISTEN_FDS", "1"))
    {
        return {-1, "", "LISTEN_FDS: one socket is taken, no more and no less"};
    }
    ip::tcp::endpoint endpoint;
    socklen_t nSize = static_cast<socklen_t>(endpoint.capacity());
    if (::getsockname(c_nFirstHandedOver, endpoint.data(), &nSize) != 0)
    {
        return {-1, "", Format("LISTEN_FDS: no socket was handed over: %s", std::strerror(errno))};
    }
    int nListening = 0;
    nSize = sizeof nListening;
    ::getsockopt(c_nFirstHandedOver, SOL_SOCKET, SO_ACCEPTCONN, &nListening, &nSize);
    const int nFamily = endpoint.data()->sa_family;
    if (nListening == 0 || (nFamily != AF_INET && nFamily != AF_INET6))
    {
        return {-1, "", "LISTEN_FDS: what was handed over is no TCP socket that listens"};
    }
    ::fcntl(c_nFirstHandedOver, F_SETFD, FD_CLOEXEC);
    return {c_nFirstHandedOver, endpoint.address().to_string(), ""};
}

std::string CheckAddress(const std::string& strText)
{
    const std::optional<ip::address> address = Parse(strText);
    const bool bMany = address && (address->is_multicast() || *address == ip::address_v4::broadcast());
    return address && !bMany ? std::string() : "\"" + Printable(strText) + "\" is no address" + (bMany ? " of one machine" : "");
}

bool IsLoopback(const std::string& strAddress)
{
    const std::optional<ip::address> address = Parse(strAddress);
    return address && address->is_loopback();
}

bool IsAnyAddress(const std::string& strAddress)
{
    const std::optional<ip::address> address = Parse(strAddress);
    return address && address->is_unspecified();
}
