#include "Web/Server.h"

#include "Terminal/Common.h"
#include "Web/Live.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <chrono>
#include <list>
#include <optional>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
typedef asio::ip::tcp tTcp;
typedef beast::error_code tError;

namespace
{

constexpr char c_szLivePath[] = "/live";
constexpr std::size_t c_unMostAsking = 64;
constexpr std::size_t c_unMostPages = 64;
constexpr std::size_t c_unMostHeader = 8192;
constexpr std::chrono::seconds c_RequestTime(10);
constexpr std::chrono::milliseconds c_AfterFailure(200); // when there is no descriptor for a connection
constexpr std::chrono::milliseconds c_LongestPoll(5);    // whoever asks, the console's datagrams wait no longer

typedef http::response<http::string_body> tResponse;

std::string TextOf(beast::string_view text)
{
    return std::string(text.data(), text.size());
}

// "127.0.0.1:8060" as "127.0.0.1", "[::1]:8060" as "[::1]".
std::string WithoutPort(const std::string& strHost)
{
    const std::size_t unColon = strHost.rfind(':');
    const bool bPort = unColon != std::string::npos && strHost.find(']', unColon) == std::string::npos;
    return strHost.substr(0, bPort ? unColon : std::string::npos);
}

// As a browser writes it.
std::string HostName(asio::ip::address address)
{
    if (address.is_v6() && address.to_v6().is_v4_mapped())
    {
        address = asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
    }
    return address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
}

} // namespace

struct CWebServer::stState
{
    // A connection that asks, one request after another. A request that has a body is the last.
    class CConnection : public std::enable_shared_from_this<CConnection>
    {
    public:
        CConnection(stState& state, tTcp::socket&& socket, const tTcp::endpoint& own)
            : m_State(state), m_strHost(HostName(own.address())), m_Stream(std::move(socket))
        {
            m_State.asking.push_back(this);
        }
        ~CConnection() { m_State.asking.remove(this); }
        CConnection(const CConnection&) = delete;
        CConnection& operator=(const CConnection&) = delete;

        void Read()
        {
            m_Parser.emplace();
            m_Parser->header_limit(c_unMostHeader);
            m_Stream.expires_after(c_RequestTime);
            http::async_read_header(m_Stream, m_Buffer, *m_Parser,
                                    [pSelf = shared_from_this()](tError error, std::size_t)
                                    {
                                        if (!error)
                                        {
                                            pSelf->Answer(pSelf->m_Parser->get());
                                        }
                                    });
        }

        // Makes room for others.
        void Drop()
        {
            m_State.asking.remove(this);
            m_Stream.close();
        }

    private:
        void Answer(const tRequest& request)
        {
            m_Response = m_State.AnswerTo(request, m_strHost);
            if (m_Response.result() == http::status::switching_protocols)
            {
                m_Stream.expires_never();
                std::make_shared<CLive>(m_State.live, m_State.makeBrowser, std::move(m_Stream))->Accept(request);
                return;
            }
            m_Response.keep_alive(request.keep_alive() && m_Parser->is_done());
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
        const std::string m_strHost; // that it has come to
        beast::tcp_stream m_Stream;
        beast::flat_buffer m_Buffer;
        std::optional<http::request_parser<http::empty_body>> m_Parser;
        tResponse m_Response;
    };

    // Throws what the system says.
    void Listen(const tTcp::endpoint& endpoint, int nSocket)
    {
        if (nSocket >= 0)
        {
            acceptor.assign(endpoint.protocol(), nSocket);
            return;
        }
        acceptor.open(endpoint.protocol());
        acceptor.set_option(asio::socket_base::reuse_address(true));
        acceptor.bind(endpoint);
        acceptor.listen(asio::socket_base::max_listen_connections);
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
                if (error)
                {
                    AcceptLater();
                    return;
                }
                Take(std::move(socket));
                Accept();
            });
    }

    void AcceptLater()
    {
        again.expires_after(c_AfterFailure);
        again.async_wait([this](tError error) { error ? void() : Accept(); });
    }

    // Of those that ask the oldest has to go when there are too many: so a page is let in whoever else holds connections.
    void Take(tTcp::socket&& socket)
    {
        tError error;
        const tTcp::endpoint own = socket.local_endpoint(error);
        if (asking.size() >= c_unMostAsking)
        {
            asking.front()->Drop();
        }
        if (!error)
        {
            std::make_shared<CConnection>(*this, std::move(socket), own)->Read();
        }
    }

    tResponse AnswerTo(const tRequest& request, const std::string& strOwn) const
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
        const std::string strHost = TextOf(request[http::field::host]);
        const std::string strName = WithoutPort(strHost);
        if (request.count(http::field::host) != 1 || (strName != "localhost" && strName != strOwn))
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
            if (request.count(http::field::origin) != 1 || strOrigin != "http://" + strHost)
            {
                return answer(http::status::forbidden, "text/plain", "not from this page\n");
            }
            return live.size() < c_unMostPages ? answer(http::status::switching_protocols, "", "")
                                               : answer(http::status::service_unavailable, "text/plain", "too many pages\n");
        }
        const auto file = std::find_if(files.begin(), files.end(), [&](const stWebFile& one) { return one.strPath == strTarget; });
        return file == files.end() ? answer(http::status::not_found, "text/plain", "there is nothing here\n")
                                   : answer(http::status::ok, file->szType, file->strBytes);
    }

    std::vector<stWebFile> files;
    tMakeBrowser makeBrowser;
    unsigned int unPort = 0;
    std::list<CConnection*> asking; // the oldest first
    asio::io_context context{1};
    asio::steady_timer again{context};
    tTcp::acceptor acceptor{context};
    CLive::tAll live;
};

CWebServer::CWebServer(std::vector<stWebFile> files, tMakeBrowser makeBrowser) : m_pState(std::make_unique<stState>())
{
    m_pState->files = std::move(files);
    m_pState->makeBrowser = std::move(makeBrowser);
}

CWebServer::~CWebServer() = default;

std::string CWebServer::Open(const std::string& strAddress, unsigned int unPort, int nSocket)
{
    stState& state = *m_pState;
    try
    {
        state.Listen({asio::ip::make_address(strAddress), static_cast<unsigned short>(unPort)}, nSocket);
    }
    catch (const boost::system::system_error& failed)
    {
        return Format("%s port %u can't be listened to: %s", strAddress.c_str(), unPort, failed.code().message().c_str());
    }
    state.unPort = state.acceptor.local_endpoint().port();
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
    const CLive::tAll live = m_pState->live;
    for (const auto& pLive : live)
    {
        pLive->Send();
    }
}

int CWebServer::CountBrowsers() const
{
    return static_cast<int>(m_pState->live.size());
}
