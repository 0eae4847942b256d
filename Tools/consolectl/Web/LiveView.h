// A console as the live page shows it.
#pragma once

#include "Images/Address.h"
#include "Network/Activity.h"
#include "Network/Traffic.h"
#include "Web/Browser.h"

#include <functional>
#include <string>
#include <vector>

// Shows that a page can lay over the picture.
class IShows
{
public:
    virtual ~IShows() = default;

    virtual const std::vector<std::string>& GetNames() = 0;

    // One of them beside the MC, or why there is none; false: not yet, it was asked for too often.
    virtual bool Compare(const std::string& strName, const CBMAContainer& live, tFrame& pFrame, std::string& strError) = 0;
};

// What there is to see.
struct stSeen
{
    stMulticastLink link;
    std::string strLink;      // in words
    std::string strToken;     // when there is one, only those pages may change anything that know it
    IShows* pShows = nullptr; // which have to stay; null: none
};

// What every page is shown, made once for all of them. Pages get values frame by frame, and twice a second how the link is. Belongs
// to one thread.
class CLiveView
{
public:
    // Changes of pages go to send.
    CLiveView(stSeen seen, std::function<void(const stChange&)> send);

    void Take(stDatagram& datagram);

    // A frame ends, and a second, when one is over.
    void Next(const stTrafficLoss& loss, int nBrowsers);

    std::unique_ptr<IBrowser> MakeBrowser();

    CActivity& Activity() { return m_Activity; }

private:
    class CPage;

    double LongestGap() const; // seconds
    tFrame MakeHealth(const stTrafficLoss& loss, int nBrowsers);

    const stSeen m_Seen;
    const std::function<void(const stChange&)> m_Send;
    CActivity m_Activity;
    CFrames m_Frames;
    tFrame m_pHealth;
    std::uint32_t m_unHealth = 0; // how many there were
    tSteadyClock::time_point m_NextHealth = {};
    tSteadyClock::time_point m_LastUpdate = {};
    std::uint32_t m_unApplied = 0;
    double m_dLongestGap = 0; // seconds between updates, since health was told
};
