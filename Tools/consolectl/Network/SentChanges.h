// Changes on their way to the MC, and back in its updates.
#pragma once

#include "Images/Address.h"
#include "Terminal/Common.h"

#include "LogicalControls.h"

#include <string>
#include <vector>

// So many changes are queued and sent at once: nine datagrams full.
constexpr std::size_t c_unChangesAtOnce = 20000;
bool QueueChange(CClientMsgHandler& handler, const stChange& change);

// Of several changes of one parameter the last counts; what the image shows already is not sent. All three that it is given must
// outlive it; the image is the one that the handler's updates go to.
class CSentChanges
{
public:
    CSentChanges(const std::vector<stChange>& changes, CBMAContainer& image, CClientMsgHandler& handler, bool bDirect);

    // What is not back.
    void Send();
    long CountLeft() const { return static_cast<long>(m_Left.size()); }

    // After an update.
    void LeaveOutWhatIsBack();

    // Sends once more what has not come back for a while; says how many changes that were.
    long SendAgain();

    // "2 of 5 changes never came back from the MC; the first: MicInput/3/Fader/0".
    std::string LeftText() const;

private:
    const long m_lAll;
    CBMAContainer& m_Image;
    CClientMsgHandler& m_Handler;
    const bool m_bDirect; // a datagram a change, instead of the queue
    std::vector<const stChange*> m_Left;
    tSteadyClock::time_point m_Sent = {};
};
