// A console as the live page shows it.
#pragma once

#include "Images/Address.h"
#include "Network/Activity.h"
#include "Network/Traffic.h"
#include "Web/Frames.h"
#include "Web/Server.h"

#include <functional>
#include <string>
#include <vector>

// What every page is shown, made once for all of them. Pages get values frame by frame, and twice a second how the link is. Belongs
// to one thread.
class CLiveView
{
public:
    // Changes of pages go to send. With a token only those pages may change anything that know it.
    CLiveView(const stMulticastLink& link, std::string strToken, std::function<void(const stChange&)> send);

    void Take(stDatagram& datagram);

    // A frame ends, and a second, when one is over.
    void Next(const stTrafficLoss& loss, int nBrowsers);

    std::unique_ptr<IBrowser> MakeBrowser();

    CActivity& Activity() { return m_Activity; }

private:
    class CPage;

    tFrame MakeHealth(const stTrafficLoss& loss, int nBrowsers);

    const stMulticastLink m_Link;
    const std::string m_strToken;
    const std::function<void(const stChange&)> m_Send;
    CActivity m_Activity;
    CFrames m_Frames;
    tFrame m_pHealth;
    std::uint32_t m_unHealth = 0; // how many there were
    tSteadyClock::time_point m_NextHealth = {};
};
