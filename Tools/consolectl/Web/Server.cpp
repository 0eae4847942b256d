#include "Web/Server.h"

#include "Network/Interface.h"
#include "Terminal/Common.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
typedef asio::ip::tcp tTcp;
typedef beast::error_code tError;

namespace
{

constexpr char c_szLivePath[] = "/live";
constexpr std::size_t c_unMostConnections = 64;
constexpr std::size_t c_unMostHeader = 8192;
constexpr std::size_t c_unMostText = 4096; // of a page
constexpr std::chrono::seconds c_RequestTime(10);
constexpr std::chrono::seconds c_SilentTime(20);
constexpr std::chrono::milliseconds c_LongestPoll(5); // whoever asks, the console's datagrams wait no longer

typedef http::request<http::empty_body> tRequest;
typedef http::response<http::string_body> tResponse;

std::string TextOf(beast::string_view text)
{
    return std::string(text.data(), text.size());
}

// "localhost:8060" as "localhost", and empty when the port is another one. A port that is the scheme's own is not written.
std::string NameOfHost(const std::string& strHost, unsigned int unPort)
{
    const std::size_t unColon = strHost.rfind(':');
    const bool bPort = unColon != std::string::npos && strHost.find(']', unColon) == std::string::npos;
    const std::string strPort = bPort ? strHost.substr(unColon + 1) : "80";
    return strPort == std::to_string(unPort) ? strHost.substr(0, bPort ? unColon : std::string::npos) : std::string();
}

} // namespace

std::string CheckAddress(const std::string& strText)
{
    tError error;
    asio::ip::make_address(strText, error);
    return error ? "\"" + Printable(strText) + "\" is no address" : std::string();
}

bool IsLoopback(const std::string& strAddress)
{
    tError error;
    const asio::ip::address address = asio::ip::make_address(strAddress, error);
    return !error && address.is_loopback();
}

bool IsAnyAddress(const std::string& strAddress)
{
    tError error;
    const asio::ip::address address = asio::ip::make_address(strAddress, error);
    return !error && address.is_unspecified();
}

struct CWebServer::stState
{
    // A page that is open. It lives as long as something is under way for it.
    class CLive : public std::enable_shared_from_this<CLive>
    {
    public:
        CLive(stState& state, beast::tcp_stream&& stream) : m_State(state), m_Socket(std::move(stream)) {}

        void Accept(const tRequest& request)
        {
            websocket::stream_base::timeout timeout = {};
            timeout.handshake_timeout = c_RequestTime;
            timeout.idle_timeout = c_SilentTime;
            timeout.keep_alive_pings = true;
            m_Socket.set_option(timeout);
            m_Socket.read_message_max(c_unMostText);
            m_Socket.async_accept(request,
                                  [pSelf = shared_from_this()](tError error)
                                  {
                                      if (!error)
                                      {
                                          pSelf->m_pBrowser = pSelf->m_State.makeBrowser();
                                          pSelf->m_State.live.insert(pSelf);
                                          pSelf->Read();
                                      }
                                  });
        }

        void Send()
        {
            m_pFrame = m_bSending || m_bClosing ? m_pFrame : m_pBrowser->NextFrame();
            if (m_bSending || m_bClosing || m_pFrame == nullptr)
            {
                return;
            }
            m_bSending = true;
            m_Socket.binary(m_pFrame->front() != '{');
            m_Socket.async_write(asio::buffer(*m_pFrame),
                                 [pSelf = shared_from_this()](tError error, std::size_t)
                                 {
                                     pSelf->m_bSending = false;
                                     if (error)
                                     {
                                         pSelf->m_State.live.erase(pSelf);
                                         return;
                                     }
                                     pSelf->Send(); // beside a text there may be values
                                 });
        }

    private:
        void Read()
        {
            m_Socket.async_read(m_Buffer,
                                [pSelf = shared_from_this()](tError error, std::size_t)
                                {
                                    if (error)
                                    {
                                        pSelf->m_State.live.erase(pSelf);
                                        return;
                                    }
                                    const std::string strText = beast::buffers_to_string(pSelf->m_Buffer.data());
                                    pSelf->m_Buffer.clear();
                                    if (pSelf->m_Socket.got_text() && pSelf->m_pBrowser->OnText(strText))
                                    {
                                        pSelf->Read();
                                        return;
                                    }
                                    pSelf->Close();
                                });
        }

        void Close()
        {
            m_bClosing = true;
            m_Socket.async_close(websocket::close_code::policy_error,
                                 [pSelf = shared_from_this()](tError) { pSelf->m_State.live.erase(pSelf); });
        }

        stState& m_State;
        websocket::stream<beast::tcp_stream> m_Socket;
        beast::flat_buffer m_Buffer;
        std::unique_ptr<IBrowser> m_pBrowser;
        tFrame m_pFrame; // which is being sent
        bool m_bSending = false;
        bool m_bClosing = false;
    };

    // A connection that asks, one request after another.
    class CConnection : public std::enable_shared_from_this<CConnection>
    {
    public:
        CConnection(stState& state, tTcp::socket&& socket) : m_State(state), m_Stream(std::move(socket))
        {
            ++m_State.unConnections;
        }
        ~CConnection() { --m_State.unConnections; }
        CConnection(const CConnection&) = delete;
        CConnection& operator=(const CConnection&) = delete;

        void Read()
        {
            m_Parser.emplace();
            m_Parser->header_limit(c_unMostHeader);
            m_Parser->body_limit(0);
            m_Stream.expires_after(c_RequestTime);
            http::async_read(m_Stream, m_Buffer, *m_Parser,
                             [pSelf = shared_from_this()](tError error, std::size_t)
                             {
                                 if (!error)
                                 {
                                     pSelf->Answer(pSelf->m_Parser->release());
                                 }
                             });
        }

    private:
        void Answer(const tRequest& request)
        {
            m_Response = m_State.AnswerTo(request);
            if (m_Response.result() == http::status::switching_protocols)
            {
                m_Stream.expires_never();
                std::make_shared<CLive>(m_State, std::move(m_Stream))->Accept(request);
                return;
            }
            m_Response.keep_alive(request.keep_alive());
            m_Response.prepare_payload();
            if (request.method() == http::verb::head)
            {
                m_Response.body().clear();
            }
            http::async_write(m_Stream, m_Response,
                              [pSelf = shared_from_this()](tError error, std::size_t)
                              {
                                  if (!error && pSelf->m_Response.keep_alive())
                                  {
                                      pSelf->Read();
                                  }
                              });
        }

        stState& m_State;
        beast::tcp_stream m_Stream;
        beast::flat_buffer m_Buffer;
        std::optional<http::request_parser<http::empty_body>> m_Parser;
        tResponse m_Response;
    };

    bool IsOurs(const std::string& strName) const
    {
        return strName == "localhost" || std::find(names.begin(), names.end(), strName) != names.end();
    }

    void Listen(const tTcp::endpoint& endpoint, int nSocket, tError& error)
    {
        if (nSocket >= 0)
        {
            acceptor.assign(endpoint.protocol(), nSocket, error);
            return;
        }
        acceptor.open(endpoint.protocol(), error);
        error ? error : acceptor.set_option(asio::socket_base::reuse_address(true), error);
        error ? error : acceptor.bind(endpoint, error);
        error ? error : acceptor.listen(asio::socket_base::max_listen_connections, error);
    }

    void Accept()
    {
        acceptor.async_accept(
            [this](tError error, tTcp::socket socket)
            {
                if (error == asio::error::operation_aborted)
                {
                    return;
                }
                if (!error && unConnections + live.size() < c_unMostConnections)
                {
                    std::make_shared<CConnection>(*this, std::move(socket))->Read();
                }
                Accept();
            });
    }

    tResponse AnswerTo(const tRequest& request) const
    {
        const auto answer = [&](http::status status, const char* szType, const std::string& strBody)
        {
            tResponse response(status, request.version());
            response.set(http::field::content_type, szType);
            response.set(http::field::cache_control, "no-store");
            response.set("Content-Security-Policy", "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'");
            response.set("X-Content-Type-Options", "nosniff");
            response.set("Cross-Origin-Resource-Policy", "same-origin");
            response.body() = strBody;
            return response;
        };
        const std::string strHost = NameOfHost(TextOf(request[http::field::host]), unPort);
        if (!IsOurs(strHost))
        {
            return answer(http::status::misdirected_request, "text/plain", "this is another host\n");
        }
        if (request.method() != http::verb::get && request.method() != http::verb::head)
        {
            return answer(http::status::method_not_allowed, "text/plain", "only GET and HEAD\n");
        }
        const std::string strTarget = TextOf(request.target());
        if (strTarget == c_szLivePath && websocket::is_upgrade(request))
        {
            const std::string strOrigin = TextOf(request[http::field::origin]);
            const bool bOwnPage = strOrigin == "http://" + TextOf(request[http::field::host]);
            return bOwnPage ? answer(http::status::switching_protocols, "", "")
                            : answer(http::status::forbidden, "text/plain", "not from this page\n");
        }
        const auto file = std::find_if(files.begin(), files.end(), [&](const stWebFile& one) { return one.strPath == strTarget; });
        return file == files.end() ? answer(http::status::not_found, "text/plain", "there is nothing here\n")
                                   : answer(http::status::ok, file->szType, file->strBytes);
    }

    std::vector<stWebFile> files;
    tMakeBrowser makeBrowser;
    std::vector<std::string> names; // by which a browser may call this machine
    unsigned int unPort = 0;
    std::size_t unConnections = 0;
    asio::io_context context{1};
    tTcp::acceptor acceptor{context};
    std::set<std::shared_ptr<CLive>> live;
};

CWebServer::CWebServer(std::vector<stWebFile> files, tMakeBrowser makeBrowser) : m_pState(std::make_unique<stState>())
{
    m_pState->files = std::move(files);
    m_pState->makeBrowser = std::move(makeBrowser);
}

CWebServer::~CWebServer() = default;

stHandedOver TakeHandedOver()
{
    const auto is = [](const char* szName, const std::string& strText)
    {
        const char* const szValue = std::getenv(szName);
        return szValue != nullptr && szValue == strText;
    };
    constexpr int c_nFirst = 3;
    if (!is("LISTEN_FDS", "1") || !is("LISTEN_PID", std::to_string(::getpid())))
    {
        return {};
    }
    tTcp::endpoint endpoint;
    socklen_t nSize = static_cast<socklen_t>(endpoint.capacity());
    if (::getsockname(c_nFirst, endpoint.data(), &nSize) != 0)
    {
        return {-1, "", Format("LISTEN_FDS: no socket was handed over: %s", std::strerror(errno))};
    }
    ::fcntl(c_nFirst, F_SETFD, FD_CLOEXEC);
    return {c_nFirst, endpoint.address().to_string(), ""};
}

std::string CWebServer::Open(const std::string& strAddress, unsigned int unPort, int nSocket)
{
    stState& state = *m_pState;
    tError error;
    const asio::ip::address address = asio::ip::make_address(strAddress, error);
    if (error)
    {
        return CheckAddress(strAddress);
    }
    const tTcp::endpoint endpoint(address, static_cast<unsigned short>(unPort));
    state.Listen(endpoint, nSocket, error);
    if (error)
    {
        return Format("%s port %u can't be listened to: %s", strAddress.c_str(), unPort, error.message().c_str());
    }
    state.unPort = state.acceptor.local_endpoint().port();
    const auto name = [](const asio::ip::address& one) { return one.is_v6() ? "[" + one.to_string() + "]" : one.to_string(); };
    state.names = {name(address)};
    for (const stInterface& one : ListInterfaces())
    {
        if (address.is_unspecified() || IsLoopback(one.strAddress))
        {
            state.names.push_back(one.strAddress);
        }
    }
    state.Accept();
    return std::string();
}

unsigned int CWebServer::GetPort() const
{
    return m_pState->unPort;
}

void CWebServer::Poll()
{
    const auto end = tSteadyClock::now() + c_LongestPoll;
    m_pState->context.restart();
    while (m_pState->context.poll_one() > 0 && tSteadyClock::now() < end)
    {
    }
}

void CWebServer::Send()
{
    const std::vector<std::shared_ptr<stState::CLive>> live(m_pState->live.begin(), m_pState->live.end());
    for (const auto& pLive : live)
    {
        pLive->Send();
    }
}

int CWebServer::CountBrowsers() const
{
    return static_cast<int>(m_pState->live.size());
}
