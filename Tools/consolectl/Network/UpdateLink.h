// The simulated MC's way to its clients: a socket behind a network that may be a bad one.
#pragma once

#include "Network/BadNetwork.h"
#include "Network/Options.h"
#include "Terminal/Common.h"

#include "LogicalControls.h"

#include <cstdint>
#include <string>
#include <vector>

constexpr std::uint32_t c_unMostReorder = 1000;
constexpr double c_dLongestDelay = 1000; // milliseconds

// Of percent.
std::uint32_t Millionths(double dPercent);

// --loss to --delay. The seed is the command's own.
void AddFaultOptions(CCommand& command, stFaults& faults);

// Belongs to one thread.
class CUpdateLink
{
public:
    CUpdateLink(const stMulticastLink& link, const stFaults& faults);

    bool Open();
    void Send(const UDP_PACKET& packet, long lLength);

    // Puts on the wire what is due by now; says when the next is, but never later than the given time.
    tSteadyClock::time_point SendDue(tSteadyClock::time_point later);

    // The same for everything that was held back or delayed.
    void SendRest();

    long GetSent() const { return m_lSent; }
    long GetRefused() const { return m_lRefused; }

    // That nothing arrives is what such a network is for.
    bool LostAll() const { return m_lRefused == 0 && m_Network.GetCount(enFaultLost) != 0; }

    // What the network did to the datagrams; and in words.
    std::uint32_t GetCount(enFault enWhat) const { return m_Network.GetCount(enWhat); }
    std::string FaultsText() const;

private:
    void Put(const std::vector<stArrival>& arrivals);

    const stMulticastLink& m_Link;
    const stFaults m_Faults;
    CBadNetwork m_Network;
    RySocketIO::CSocket m_Socket;
    const tSteadyClock::time_point m_Start;
    long m_lSent = 0;
    long m_lRefused = 0;
};
