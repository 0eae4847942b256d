// A follower that knows how each message type fares.
#pragma once

#include "Terminal/Common.h"

#include "LogicalControls.h"

#include <atomic>
#include <cstdint>
#include <string>

enum enTypeState
{
    enTypeWaiting,  // nothing of it has come
    enTypePartial,  // updates that carry it begin, and don't come whole
    enTypeComplete, // it came within the last second
    enTypeStale     // it came, but not within the last second
};

// As CImageFollower, by the same threads. States may be asked for on any.
class CStateFollower : public CImageFollower
{
public:
    explicit CStateFollower(CBMAContainer& image);
    ~CStateFollower() override;

    using CImageFollower::OnReceivedData;

    void OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender) override;
    int ProcessMCUpdate(const CMCUpdateMsg& update) override;

    enTypeState GetState(tagenPPCMessageType enType) const;

    // Seconds since it came; below 0: it never did.
    double GetAge(tagenPPCMessageType enType) const;

    // How many updates brought it.
    std::uint32_t GetCount(tagenPPCMessageType enType) const { return m_aunCount[enType]; }

    // "all complete", or which types are not: "waiting: Rotary String; stale: Fader 3.1 s".
    std::string StatesText() const;

private:
    std::uint32_t Now() const;

    const tSteadyClock::time_point m_Start;
    std::atomic<std::uint32_t> m_aunBegun[c_nMessageTypes]; // milliseconds since the start, from 1; 0: never
    std::atomic<std::uint32_t> m_aunCame[c_nMessageTypes];
    std::atomic<std::uint32_t> m_aunCount[c_nMessageTypes];
};

const char* TypeStateText(enTypeState enState);

// A line for every counter that moved, and for every sender.
void PrintStatistics(const CImageFollower& follower);
