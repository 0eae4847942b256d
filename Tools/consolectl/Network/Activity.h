// What happens on a console's network, second by second.
#pragma once

#include "Network/LossFinder.h"
#include "Network/Shadow.h"

#include <cmath>
#include <map>
#include <string>
#include <utility>
#include <vector>

// What happened within about a second, counted.
struct stSecond
{
    struct stSender
    {
        double dDatagrams = 0;
        double dBytes = 0;
        bool bUpdates = false; // an MC
    };

    long PerSecond(double dCount) const { return std::lround(dCount / dSeconds); }

    // The parameters that changed, and how often; and who sent: what is most first.
    std::vector<std::pair<stAddress, double>> Busiest() const;
    std::vector<std::pair<std::string, stSender>> Senders() const;
    long CountMCs() const;

    double dSeconds = 1;
    std::map<std::string, stSender> senders;
    std::map<std::pair<int, int>, double> parameters; // changes, by type and number
    double adChanges[c_nMessageTypes] = {};
    double dUpdates = 0;
    double dRequests = 0;
};

// Belongs to one thread, as what it shadows does.
class CActivity
{
public:
    explicit CActivity(const stMulticastLink& updates) : m_Shadow(updates) {}

    void Take(stDatagram& datagram);

    // True once a second: GetSecond tells of another one.
    bool EndSecond();
    const stSecond& GetSecond() const { return m_Whole; }

    CShadow& Shadow() { return m_Shadow; }
    double SecondsSilent() const; // since the last update; negative: there was none
    long GetLost() const { return m_lLost; }
    void ForgetLost() { m_lLost = 0; }

private:
    CShadow m_Shadow;
    CLossFinder m_LossFinder;
    stSecond m_Now;
    stSecond m_Whole; // the last one
    tSteadyClock::time_point m_Began = tSteadyClock::now();
    tSteadyClock::time_point m_LastUpdate = {};
    std::uint32_t m_unApplied = 0;
    long m_lLost = 0;
};
