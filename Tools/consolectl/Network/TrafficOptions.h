// Which traffic a subcommand looks at.
#pragma once

#include "Network/Traffic.h"
#include "Terminal/Arguments.h"

#include <memory>
#include <string>

// Where to take it from: the network, or a capture file when one is named.
struct stTrafficOptions
{
    stMulticastLink link;
    std::string strCapture;
};
void AddTrafficOptions(CCommand& command, stTrafficOptions& options);

// Says what was chosen. Null when that failed, which it says too.
std::unique_ptr<CTraffic> OpenTraffic(const stTrafficOptions& options);

// Hands each datagram to take, until there are no more, or lCame, which take counts up, or the time has reached its limit.
template <class Take>
void TakeAll(CTraffic& traffic, const stLimits& limits, const long& lCame, Take take)
{
    constexpr double c_dLongestWait = 0.2;
    const tSteadyClock::time_point start = tSteadyClock::now();
    for (stDatagram datagram; !limits.Reached(lCame, start) && !traffic.IsOver();)
    {
        if (traffic.Next(datagram, limits.TimeLeft(start, c_dLongestWait)))
        {
            take(datagram);
        }
    }
}

// The exit status afterwards. A capture that ended has given all it had; one that was broken off is a failure.
int TrafficStatus(const CTraffic& traffic, const stLimits& limits, long lCame, const std::string& strWhat);
