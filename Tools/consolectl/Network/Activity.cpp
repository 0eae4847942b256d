#include "Network/Activity.h"

#include <algorithm>
#include <cstring>

std::vector<std::pair<stAddress, double>> stSecond::Busiest() const
{
    std::vector<std::pair<stAddress, double>> busiest;
    for (const auto& parameter : parameters)
    {
        busiest.push_back(
            {AddressAt(static_cast<tagenPPCMessageType>(parameter.first.first), parameter.first.second), parameter.second});
    }
    std::stable_sort(busiest.begin(), busiest.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    return busiest;
}

std::vector<std::pair<std::string, stSecond::stSender>> stSecond::Senders() const
{
    std::vector<std::pair<std::string, stSender>> sorted(senders.begin(), senders.end());
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.second.dBytes > b.second.dBytes; });
    return sorted;
}

long stSecond::CountMCs() const
{
    return std::count_if(senders.begin(), senders.end(), [](const auto& sender) { return sender.second.bUpdates; });
}

void CActivity::Take(stDatagram& datagram)
{
    stSecond::stSender& sender = m_Now.senders[datagram.source.Text()];
    ++sender.dDatagrams;
    sender.dBytes += static_cast<double>(datagram.bytes.size());
    sender.bUpdates = sender.bUpdates || std::strcmp(KindOf(datagram), "updates") == 0;
    m_lLost += static_cast<long>(m_LossFinder.Take(datagram).size());
    m_Shadow.Take(datagram);
    m_Now.dRequests += static_cast<double>(m_Shadow.GetRequests().size());
    if (m_Shadow.Follower().GetUpdatesApplied() != m_unApplied)
    {
        m_unApplied = m_Shadow.Follower().GetUpdatesApplied();
        m_LastUpdate = tSteadyClock::now();
        ++m_Now.dUpdates;
    }
    for (const stImageChange& change : m_Shadow.GetChanges())
    {
        ++m_Now.adChanges[change.address.enType];
        ++m_Now.parameters[{change.address.enType, NumberOf(change.address)}];
    }
}

bool CActivity::EndSecond()
{
    m_Now.dSeconds = SecondsSince(m_Began);
    if (m_Now.dSeconds < 1)
    {
        return false;
    }
    m_Whole = std::move(m_Now);
    m_Now = stSecond();
    m_Began = tSteadyClock::now();
    return true;
}

double CActivity::SecondsSilent() const
{
    return m_unApplied == 0 ? -1 : SecondsSince(m_LastUpdate);
}
