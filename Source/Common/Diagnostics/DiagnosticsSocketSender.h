// Multicasts diagnostics reports.
#pragma once

#include "Runtime/Export.h"

#include <netinet/in.h>

// Sends a finished report as one datagram to an IPv4 multicast group; it goes one hop, so it never leaves the network segment. The
// system chooses the interface, and loops reports back to this machine. No receiving, no fragments, no second try. Failures are
// one line on standard output, and the object stays usable. Not for two threads at once.
//
// The group's text is the caller's and is not copied: only EstablishMulticastTransmitter reads it. Two things to know, both meant:
// a second EstablishMulticastTransmitter opens a new socket and leaves the earlier one open, and a sender that was never
// established closes descriptor 0 when it is destroyed.
class LOGICALCONTROLS_EXPORT CDiagnosticsSocketSender
{
public:
    CDiagnosticsSocketSender();
    virtual ~CDiagnosticsSocketSender();
    CDiagnosticsSocketSender(const CDiagnosticsSocketSender&) = delete;
    CDiagnosticsSocketSender& operator=(const CDiagnosticsSocketSender&) = delete;

    // Opens the socket. False, after "socket() failed" or "setsockopt() failed", when that could not be done. The group is not
    // checked: what is no address, null too, becomes 255.255.255.255.
    bool EstablishMulticastTransmitter(const char* szGroup, unsigned short unPort);

    // One datagram of so many bytes; "sendto() sent incorrect number of bytes" when the system did not take it whole.
    void Send(const char* pData, unsigned int unLength);

    // How the last Send ended; false before the first.
    bool LastSendSucceeded() const { return m_bLastSendSucceeded; }

private:
    int m_nSocket;
    sockaddr_in m_Destination;
    const char* m_szGroup;
    unsigned short m_unPort;
    bool m_bLastSendSucceeded;
};
