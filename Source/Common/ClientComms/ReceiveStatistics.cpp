#include "ClientComms/ReceiveStatistics.h"

#include <algorithm>
#include <iterator>
#include <numeric>

const char* ReceiveCounterText(enReceiveCounter enCounter)
{
    static const char* const s_aszTexts[] = {
#define COUNTER(name, text) text,
#include "ClientComms/ReceiveCounters.def"
#undef COUNTER
    };
    return enCounter >= 0 && enCounter < enReceiveCounterCount ? s_aszTexts[enCounter] : "";
}

std::uint32_t stReceiveStatistics::Rejected() const
{
    return std::accumulate(aunCount + enRejectedTooShort, aunCount + enCountStored, std::uint32_t(0));
}

CReceiveCounters::CReceiveCounters() : m_aunCount(), m_aunByType(), m_aSenders(), m_nSenders(0), m_unOtherSenders(0) {}

void CReceiveCounters::CountSender(const RySocketIO::CIPString& address, std::uint32_t unBytes)
{
    const int nSenders = m_nSenders.load(std::memory_order_relaxed);
    stSender* const pEnd = m_aSenders + nSenders;
    stSender* const pSender = std::find_if(m_aSenders, pEnd, [&](const stSender& sender) { return sender.address == address; });
    if (pSender == m_aSenders + stReceiveStatistics::enMaxSenders)
    {
        m_unOtherSenders.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if (pSender == pEnd)
    {
        pSender->address = address;
        m_nSenders.store(nSenders + 1, std::memory_order_release);
    }
    pSender->unDatagrams.fetch_add(1, std::memory_order_relaxed);
    pSender->unBytes.fetch_add(unBytes, std::memory_order_relaxed);
}

stReceiveStatistics CReceiveCounters::Read() const
{
    stReceiveStatistics statistics = {};
    const auto load = [](const std::atomic<std::uint32_t>& unCounter) { return unCounter.load(std::memory_order_relaxed); };
    std::transform(std::begin(m_aunCount), std::end(m_aunCount), statistics.aunCount, load);
    std::transform(std::begin(m_aunByType), std::end(m_aunByType), statistics.aunByType, load);
    statistics.nSenders = m_nSenders.load(std::memory_order_acquire);
    std::transform(m_aSenders, m_aSenders + statistics.nSenders, statistics.aSenders,
                   [&](const stSender& sender) {
                       return stReceiveStatistics::stSender{sender.address, load(sender.unDatagrams), load(sender.unBytes)};
                   });
    statistics.unOtherSenders = load(m_unOtherSenders);
    return statistics;
}
