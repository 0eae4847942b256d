// A browser's connection for values: the WebSocket of a page that is open.
#pragma once

#include "Web/Browser.h"

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <memory>
#include <set>

typedef boost::beast::http::request<boost::beast::http::empty_body> tRequest;

// It lives as long as something is under way for it, and is one of all from the moment in which both sides have agreed. All happens
// on the thread that runs the stream's context.
class CLive : public std::enable_shared_from_this<CLive>
{
public:
    typedef std::set<std::shared_ptr<CLive>> tAll;

    // Both outlive it.
    CLive(tAll& all, const tMakeBrowser& makeBrowser, boost::beast::tcp_stream&& stream);

    // Agrees to a request for it.
    void Accept(const tRequest& request);

    // What the browser has for its page now; nothing while something is under way to it.
    void Send();

private:
    void Read();
    void Close();

    tAll& m_All;
    const tMakeBrowser& m_MakeBrowser;
    boost::beast::websocket::stream<boost::beast::tcp_stream> m_Socket;
    boost::beast::flat_buffer m_Buffer;
    std::unique_ptr<IBrowser> m_pBrowser;
    tFrame m_pFrame; // which is being sent
    bool m_bClosing = false;
};
