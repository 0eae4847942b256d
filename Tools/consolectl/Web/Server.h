// HTTP and WebSocket for the live page. The page itself is part of the program: no file is served.
#pragma once

#include "Web/Browser.h"

#include <memory>
#include <string>
#include <vector>

// Something that is served as it is.
struct stWebFile
{
    std::string strPath; // "/page.js"
    const char* szType;  // "text/javascript"
    std::string strBytes;
};

// Everything happens on the thread that calls, within Poll. A browser that doesn't take what it is sent is sent nothing more until
// it does, and costs nothing meanwhile; one that is silent altogether is dropped. At most 64 pages are open, and 64 connections ask
// for something: one more takes the place of the oldest.
//
// Who may speak to it: a request has to name its host by the address that it has come to, or as "localhost", and a connection for
// values has to come from a page of that host and port. So no page of another site can, whatever name it gives this machine; and
// a port that somebody forwards leads here all the same.
class CWebServer
{
public:
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
