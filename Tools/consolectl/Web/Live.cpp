#include "Web/Live.h"

#include <chrono>

namespace websocket = boost::beast::websocket;
typedef boost::beast::error_code tError;

namespace
{

constexpr std::size_t c_unMostText = 4096; // of a page
constexpr std::chrono::seconds c_HandshakeTime(10);
constexpr std::chrono::seconds c_SilentTime(20);

} // namespace

CLive::CLive(tAll& all, const tMakeBrowser& makeBrowser, boost::beast::tcp_stream&& stream)
    : m_All(all), m_MakeBrowser(makeBrowser), m_Socket(std::move(stream))
{
}

void CLive::Accept(const tRequest& request)
{
    websocket::stream_base::timeout timeout = {};
    timeout.handshake_timeout = c_HandshakeTime;
    timeout.idle_timeout = c_SilentTime;
    timeout.keep_alive_pings = true;
    m_Socket.set_option(timeout);
    m_Socket.read_message_max(c_unMostText);
    m_Socket.async_accept(request,
                          [pSelf = shared_from_this()](tError error)
                          {
                              if (!error)
                              {
                                  pSelf->m_pBrowser = pSelf->m_MakeBrowser();
                                  pSelf->m_All.insert(pSelf);
                                  pSelf->Read();
                              }
                          });
}

void CLive::Send()
{
    if (m_pFrame != nullptr || m_bClosing)
    {
        return;
    }
    m_pFrame = m_pBrowser->NextFrame();
    if (m_pFrame == nullptr)
    {
        return;
    }
    m_Socket.binary(m_pFrame->front() != '{');
    m_Socket.async_write(boost::asio::buffer(*m_pFrame),
                         [pSelf = shared_from_this()](tError error, std::size_t)
                         {
                             pSelf->m_pFrame = nullptr;
                             if (error)
                             {
                                 pSelf->m_All.erase(pSelf);
                                 return;
                             }
                             pSelf->Send(); // beside a text there may be values
                         });
}

void CLive::Read()
{
    m_Socket.async_read(m_Buffer,
                        [pSelf = shared_from_this()](tError error, std::size_t)
                        {
                            if (error)
                            {
                                pSelf->m_All.erase(pSelf);
                                return;
                            }
                            const std::string strText = boost::beast::buffers_to_string(pSelf->m_Buffer.data());
                            pSelf->m_Buffer.clear();
                            if (pSelf->m_Socket.got_text() && pSelf->m_pBrowser->OnText(strText))
                            {
                                pSelf->Read();
                                return;
                            }
                            pSelf->Close();
                        });
}

void CLive::Close()
{
    m_bClosing = true;
    m_Socket.async_close(websocket::close_code::policy_error, [pSelf = shared_from_this()](tError) { pSelf->m_All.erase(pSelf); });
}
