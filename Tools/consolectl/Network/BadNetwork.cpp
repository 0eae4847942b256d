#include "Network/BadNetwork.h"

#include <algorithm>
#include <utility>

namespace
{

// A random number brought into 0 to unRange - 1.
std::uint32_t Scale(std::uint32_t unRandom, std::size_t unRange)
{
    return static_cast<std::uint32_t>(unRandom * static_cast<std::uint64_t>(unRange) >> 32);
}

bool Happens(std::uint32_t unRandom, std::uint32_t unMillionths)
{
    return Scale(unRandom, stFaults::c_unAlways) < unMillionths;
}

} // namespace

bool stFaults::Any() const
{
    return unLoss != 0 || unDuplicate != 0 || unCorrupt != 0 || unTruncate != 0 || unReorder != 0 || nDelay != 0;
}

CBadNetwork::CBadNetwork(const stFaults& faults)
    : m_Faults(faults), m_Random(faults.unSeed), m_unTaken(0), m_unDelivered(0), m_aunCount()
{
}

void CBadNetwork::Send(std::int64_t nNow, const void* pData, std::size_t unLength)
{
    // As many random numbers for every datagram, whatever becomes of it.
    const auto draw = [this] { return static_cast<std::uint32_t>(m_Random()); };
    const bool bLost = Happens(draw(), m_Faults.unLoss);
    const bool bTwice = Happens(draw(), m_Faults.unDuplicate) && !bLost;
    const stFate first = {draw(), draw(), draw(), draw(), draw(), draw()};
    const stFate second = {draw(), draw(), draw(), draw(), draw(), draw()};

    stArrival arrival = {m_unTaken, false, {}};
    if (bLost)
    {
        Record(enFaultLost, arrival);
    }
    else
    {
        const unsigned char* pBytes = static_cast<const unsigned char*>(pData);
        arrival.bytes.assign(pBytes, pBytes + unLength);
        stArrival duplicate = {m_unTaken, true, bTwice ? arrival.bytes : std::vector<unsigned char>()};
        Damage(arrival, first);
        HoldBack(std::move(arrival), Scale(first.unBehind, m_Faults.unReorder + std::size_t(1)));
        if (bTwice)
        {
            Record(enFaultDuplicated, duplicate);
            Damage(duplicate, second);
            HoldBack(std::move(duplicate), Scale(second.unBehind, m_Faults.unReorder + std::size_t(1)));
        }
    }
    GoOn(nNow);
    ++m_unTaken;
}

std::vector<stArrival> CBadNetwork::Receive(std::int64_t nNow)
{
    std::vector<stArrival> arrived;
    for (; !m_UnderWay.empty() && m_UnderWay.front().nArrives <= nNow; m_UnderWay.pop_front())
    {
        arrived.push_back(std::move(m_UnderWay.front().arrival));
    }
    m_unDelivered += static_cast<std::uint32_t>(arrived.size());
    return arrived;
}

std::optional<std::int64_t> CBadNetwork::NextArrival() const
{
    return m_UnderWay.empty() ? std::nullopt : std::optional<std::int64_t>(m_UnderWay.front().nArrives);
}

std::vector<stArrival> CBadNetwork::Flush()
{
    std::vector<stArrival> arrived;
    for (stUnderWay& underWay : m_UnderWay)
    {
        arrived.push_back(std::move(underWay.arrival));
    }
    for (stHeldBack& heldBack : m_HeldBack)
    {
        arrived.push_back(std::move(heldBack.arrival));
    }
    m_UnderWay.clear();
    m_HeldBack.clear();
    m_unDelivered += static_cast<std::uint32_t>(arrived.size());
    return arrived;
}

std::vector<stFaultRecord> CBadNetwork::TakeRecords()
{
    return std::exchange(m_Records, {});
}

void CBadNetwork::Record(enFault enWhat, const stArrival& arrival, std::uint32_t unWhere, unsigned char ucFlipped)
{
    m_Records.push_back({arrival.unDatagram, arrival.bDuplicate, enWhat, unWhere, ucFlipped});
    ++m_aunCount[enWhat];
}

// Nothing can be cut off an empty datagram, nor be wrong in it.
void CBadNetwork::Damage(stArrival& arrival, const stFate& fate)
{
    if (Happens(fate.unTruncate, m_Faults.unTruncate) && !arrival.bytes.empty())
    {
        const std::uint32_t unKept = Scale(fate.unKept, arrival.bytes.size());
        arrival.bytes.resize(unKept);
        Record(enFaultTruncated, arrival, unKept);
    }
    if (Happens(fate.unCorrupt, m_Faults.unCorrupt) && !arrival.bytes.empty())
    {
        const std::uint32_t unByte = Scale(fate.unByte, arrival.bytes.size());
        const unsigned char ucFlipped = static_cast<unsigned char>(1 + Scale(fate.unBits, 255));
        arrival.bytes[unByte] = static_cast<unsigned char>(arrival.bytes[unByte] ^ ucFlipped);
        Record(enFaultCorrupted, arrival, unByte, ucFlipped);
    }
}

// Of those that go on behind the same datagram, the one that was sent last is the first.
void CBadNetwork::HoldBack(stArrival arrival, std::uint32_t unBehind)
{
    if (unBehind != 0)
    {
        Record(enFaultHeldBack, arrival, unBehind);
    }
    const std::uint32_t unDatagram = arrival.unDatagram;
    const std::uint32_t unGoesOn = unDatagram + unBehind;
    const auto isLater = [&](const stHeldBack& other)
    { return other.unGoesOn > unGoesOn || (other.unGoesOn == unGoesOn && other.arrival.unDatagram < unDatagram); };
    m_HeldBack.insert(std::find_if(m_HeldBack.begin(), m_HeldBack.end(), isLater), {unGoesOn, std::move(arrival)});
}

void CBadNetwork::GoOn(std::int64_t nNow)
{
    for (; !m_HeldBack.empty() && m_HeldBack.front().unGoesOn <= m_unTaken; m_HeldBack.pop_front())
    {
        m_UnderWay.push_back({nNow + m_Faults.nDelay, std::move(m_HeldBack.front().arrival)});
    }
}
