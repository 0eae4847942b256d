// Sockets that do what the library's do, a step at a time, so that one can tell which step the system refuses.
#pragma once

#include "Network/Options.h"
#include "Terminal/Common.h"

#include <string>

struct stHeard
{
    std::string strBytes;
    std::string strSender; // "10.0.0.5:41234"
};

// Each step answers with an errno, 0 when it is done.
class CProbe
{
public:
    CProbe();
    ~CProbe();
    CProbe(const CProbe&) = delete;
    CProbe& operator=(const CProbe&) = delete;

    // Beside others, as the library binds. 0: a port that the system picks and that nobody here has.
    int Bind(unsigned int unPort);
    int ChooseInterface(const std::string& strAddress);
    int Join(const std::string& strGroup);

    // The three of them, as a client does.
    int Listen(const stMulticastLink& link, unsigned int unPort);

    int Send(const std::string& strGroup, unsigned int unPort, const std::string& strBytes);

    // ETIMEDOUT when nothing came by then.
    int Receive(tSteadyClock::time_point until, stHeard& heard);

    unsigned int GetPort() const;
    int GetOption(int nLevel, int nOption) const; // -1 where the system doesn't tell

private:
    int Answer(int nResult) const;

    const int m_nSocket;
    const int m_nOpenError;
    std::string m_strInterface;
};

struct stRoundTrip
{
    bool bTried; // else there was nothing to listen with
    int nError;  // ETIMEDOUT when what was sent didn't come back
    unsigned int unPort;
    double dSeconds;
};

// Sends a datagram to the link's group, on a port that is not the link's, and waits for it.
stRoundTrip TryRoundTrip(const stMulticastLink& link, double dTimeout);
