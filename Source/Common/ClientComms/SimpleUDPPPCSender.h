// Sends single parameter changes at once.
#pragma once

#include "LogicalControls/ParameterModel.h"
#include "Runtime/Export.h"
#include "RyGConsoleString.h"

#include <netinet/in.h>

// Multicasts each parameter change as a datagram of its own, carrying one serialised record, to group 225.0.0.45, port 7050:
// no queue, no thread, no fragments, and no allocation. A short fixed list of parameters is never sent this way.
//
// The sender owns its socket. It takes no lock and sends on the caller's thread; whoever owns it serialises access. Failures are
// silent: IsOpen tells whether InitComms went well, LastSendSucceeded how the last send ended.
class LOGICALCONTROLS_EXPORT SimpleUDPPPCSender
{
public:
    SimpleUDPPPCSender();
    virtual ~SimpleUDPPPCSender();
    SimpleUDPPPCSender(const SimpleUDPPPCSender&) = delete;
    SimpleUDPPPCSender& operator=(const SimpleUDPPPCSender&) = delete;

    // Opens the socket. The system's defaults for multicast hold: one hop, looped back to this machine.
    bool InitComms();

    // Closes the socket. IsOpen keeps its value, and what is sent afterwards fails.
    void DeInitComms();

    // An IPv4 address and port to send to: null stands for any address, a name is looked up. False when that found nothing.
    bool ConstructDestinationAddr(const char* szHost, unsigned int unPort, sockaddr_in& address);

    // Sends one change: T is float, int or RyGConsoleString. The flag picks the datagram type, 3 when set and 1 when not.
    template <typename T>
    void SendPPCMessage(tagenPPCMessageType enType, int nPathType, int nPath, int nParameter, T value, bool bFlag);

    // True for a parameter that is never sent this way.
    bool _FilterPacket(tagenPPCMessageType enType, int nPathType, int nParameter);

    bool IsOpen() const { return m_bOpen; }
    bool LastSendSucceeded() const { return m_bLastSendSucceeded; }

private:
    int m_nSocket; // 0 until InitComms; ours to close only then
    sockaddr_in m_Destination;
    bool m_bOpen;
    bool m_bLastSendSucceeded;
    bool m_bOwnsSocket;
};

extern template void SimpleUDPPPCSender::SendPPCMessage(tagenPPCMessageType, int, int, int, float, bool);
extern template void SimpleUDPPPCSender::SendPPCMessage(tagenPPCMessageType, int, int, int, int, bool);
extern template void SimpleUDPPPCSender::SendPPCMessage(tagenPPCMessageType, int, int, int, RyGConsoleString, bool);
