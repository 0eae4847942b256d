// HTTP and WebSocket for the live page. The page itself is part of the program: no file is served.
#pragma once

#include "Web/Frames.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

// One browser, as the page's owner knows it.
class IBrowser
{
public:
    virtual ~IBrowser() = default;

    // What the page says, a line of JSON. False: nonsense, and the end of this connection.
    virtual bool OnText(const std::string& strText) = 0;

    // What is to go to the page next; none: nothing for now. Asked for only when what went before has left.
    virtual tFrame NextFrame() = 0;
};

// Something that is served as it is.
struct stWebFile
{
    std::string strPath; // "/page.js"
    const char* szType;  // "text/javascript"
    std::string strBytes;
};

// Everything happens on the thread that calls, within Poll. A browser that doesn't take what it is sent is sent nothing more until
// it does, and costs nothing meanwhile; one that is silent altogether is dropped.
//
// Who may speak to it: a request has to name this server as its host, by an address of this machine or as "localhost", and a
// connection for values has to come from a page of that host. So no page of another site can, whatever name it gives this machine.
class CWebServer
{
public:
    typedef std::function<std::unique_ptr<IBrowser>()> tMakeBrowser;

    CWebServer(std::vector<stWebFile> files, tMakeBrowser makeBrowser);
    ~CWebServer();
    CWebServer(const CWebServer&) = delete;
    CWebServer& operator=(const CWebServer&) = delete;

    // Empty, or why it can't listen there. Port 0: the system's choice. With a socket that listens already, that one is taken.
    std::string Open(const std::string& strAddress, unsigned int unPort, int nSocket = -1);
    unsigned int GetPort() const;

    // What has come since, and what can go out.
    void Poll();

    // Asks each browser that has taken its last message for the next.
    void Send();

    int CountBrowsers() const;

private:
    struct stState;
    const std::unique_ptr<stState> m_pState;
};

// A socket that listens already, as the system hands it to a service: whoever starts this program opens it where browsers come
// from, and this program may be elsewhere.
struct stHandedOver
{
    int nSocket = -1; // none
    std::string strAddress;
    std::string strError; // what was handed over is no such socket
};
stHandedOver TakeHandedOver();

// Empty, or why the text is none that can be listened to.
std::string CheckAddress(const std::string& strText);

// Whether only this machine reaches an address that is listened to.
bool IsLoopback(const std::string& strAddress);

// Whether it stands for all addresses of this machine.
bool IsAnyAddress(const std::string& strAddress);
