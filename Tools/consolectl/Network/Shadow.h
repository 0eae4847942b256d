// An image that follows traffic, and what changed in it.
#pragma once

#include "Images/Address.h"
#include "Network/Options.h"
#include "Network/StateFollower.h"
#include "Network/Traffic.h"

#include "LogicalControls.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

// A parameter that has another value than before.
struct stImageChange
{
    std::int64_t nTime;
    stAddress address;
    stValue before;
    stValue after;
    stEndpoint sender;         // of the update that brought it
    std::uint32_t unMessageId; // of that update
    stEndpoint client;         // who had asked for it; nobody: the MC itself
};

// What a client asks the MC for.
struct stClientChange
{
    std::int64_t nTime;
    stAddress address;
    stValue value;
    stEndpoint client;
    std::uint32_t unMessageId;
    int nDatagramType;
    int nRecord; // its place in the datagram, from 0
};

// Takes traffic the way a client does, through the library's own receive path, on the thread that calls. What the first block of a
// type brings is no change.
class CShadow
{
public:
    explicit CShadow(const stMulticastLink& updates);

    // What this datagram brought; both last until the next call.
    void Take(stDatagram& datagram);
    const std::vector<stImageChange>& GetChanges() const { return m_Changes; }
    const std::vector<stClientChange>& GetRequests() const { return m_Requests; }

    CBMAContainer& Image() { return *m_pImage; }
    const CStateFollower& Follower() const { return *m_pFollower; }
    bool IsWhole() const { return m_pFollower->GetTypesReceived() == c_unWholeImage; }

    // Who sent the last update; and as text, empty for nobody.
    const stEndpoint& GetMC() const { return m_MC; }
    std::string SenderText() const { return m_MC == stEndpoint() ? std::string() : m_MC.AddressText(); }

private:
    struct stRequest
    {
        stValue value;
        stEndpoint client;
        std::int64_t nTime;
    };

    void TakeUpdate(stDatagram& datagram);
    void LetOrderLapse(const stDatagram& datagram);
    void TakeRequests(const stDatagram& datagram);
    void FindChanges(const stDatagram& datagram, unsigned int unTypesBefore);
    stEndpoint TakeClientOf(const stAddress& address, const stValue& value, std::int64_t nTime);

    const stEndpoint m_Updates;
    const stEndpoint m_ChangesGroup;
    const std::unique_ptr<CBMAContainer> m_pImage;
    const std::unique_ptr<CBMAContainer> m_pBefore;
    const std::unique_ptr<CStateFollower> m_pFollower;
    const std::unique_ptr<CMsgHandlerBase> m_pRequestHandler;
    std::vector<unsigned char> m_RequestBuffer;
    std::vector<stImageChange> m_Changes;
    std::vector<stClientChange> m_Requests;
    std::map<std::pair<int, int>, std::deque<stRequest>> m_Pending; // by type and number; not yet seen in an update
    stEndpoint m_MC;
    std::uint32_t m_unUpdateId = 0; // of the last update that was applied, the time of its datagram, and when it was applied
    std::int64_t m_nUpdateTime = 0;
    tSteadyClock::time_point m_TookUpdate = {};
};
