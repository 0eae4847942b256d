#include "ClientComms/SideBySide.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace Support
{

namespace
{

constexpr std::size_t c_unDatagramsOfSeed = 300;
constexpr std::uint32_t c_unFirstId = 0x80000000u - 60; // the messages lie on both sides of 2^31
constexpr std::uint32_t c_unNoDatagram = 0xffffffff;

stFaults FaultsOf(std::uint32_t unSeed)
{
    struct stProfile
    {
        std::uint32_t unLoss, unDuplicate, unCorrupt, unTruncate, unReorder;
    };
    static const stProfile aProfiles[] = {{100000, 0, 0, 0, 0},
                                          {0, 300000, 0, 0, 0},
                                          {0, 0, 100000, 0, 0},
                                          {0, 0, 0, 100000, 0},
                                          {0, 0, 0, 0, 10},
                                          {0, 200000, 0, 0, 90},
                                          {100000, 100000, 50000, 20000, 8},
                                          {50000, 0, 20000, 0, 0},
                                          {20000, 300000, 50000, 50000, 30},
                                          {500000, 500000, 500000, 500000, 200}};
    const stProfile& profile = aProfiles[unSeed % (sizeof aProfiles / sizeof aProfiles[0])];
    stFaults faults;
    faults.unSeed = unSeed;
    faults.unLoss = profile.unLoss;
    faults.unDuplicate = profile.unDuplicate;
    faults.unCorrupt = profile.unCorrupt;
    faults.unTruncate = profile.unTruncate;
    faults.unReorder = profile.unReorder;
    return faults;
}

} // namespace

// Nothing of an earlier seed stays in the ring or waits in a cache, and the first cache is next.
void CSideBySide::Start()
{
    const std::map<enFate, std::uint32_t> fates = m_Figures.fates;
    const stTag tag = {c_unNoDatagram, true};
    for (int nFragment = 0; nFragment < 50; ++nFragment)
    {
        Deliver(Datagram(0, 0xffffffff, 1, 2, tBytes(1)), tag);
    }
    while (m_nCache != 0 || m_aCaches[0].bError || m_aCaches[1].bError)
    {
        Deliver(Datagram(0, 0xfffffffe, 1, 1, UpdateHeader(9, 0)), tag);
        LookForUpdates();
    }
    m_Figures.fates = fates;
    m_Tags.clear();
    m_Faults.clear();
    m_Updates.clear();
    m_UpdateOfDatagram.clear();
    m_Intact.clear();
    m_Fates.clear();
    m_Applied.clear();
    m_Order.Clear();
    m_pHandler->m_Orders.clear();
    m_Model.ForgetEvictedIds();
}

void CSideBySide::Deliver(const tBytes& bytes, const stTag& tag)
{
    m_Tags.push_back(tag);
    const std::unique_ptr<char[]> pExact(new char[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), pExact.get());
    m_pHandler->OnReceivedData(pExact.get(), static_cast<long>(bytes.size()), m_Sender);

    static const std::map<CModel::enOutcome, int> counters = {
        {CModel::enTooShort, enRejectedTooShort},  {CModel::enBadHeader, enRejectedHeader},
        {CModel::enBadPayload, enRejectedPayload}, {CModel::enTooLarge, enRejectedBuffer},
        {CModel::enStored, enCountStored},         {CModel::enComplete, enCountCompleting}};
    const CModel::stResult result = m_Model.Take(bytes, m_Tags.size() - 1);
    ++m_Counts[enCountDatagrams];
    ++m_Counts[counters.at(result.enWhat)];
    if (result.enWhat == CModel::enComplete)
    {
        m_Counts[enCountMixed] += result.bMixed ? 1 : 0;
        Complete(result);
    }
}

void CSideBySide::Complete(const CModel::stResult& result)
{
    stJoined joined;
    joined.tags = result.tags;
    joined.unLastTag = m_Tags.size() - 1;
    if (result.unType != 0)
    {
        ++m_Counts[enCountForeign];
        Settle(joined, enFateForeign);
        return;
    }
    stCache& cache = m_aCaches[m_nCache];
    m_nCache = 1 - m_nCache;
    ++m_Counts[enCountUpdates];
    if (cache.waiting.has_value())
    {
        ++m_Counts[enCountSuperseded];
        Settle(*cache.waiting, enFateSuperseded);
        cache.waiting.reset();
    }
    const bool bDecodes = ReadUpdate(result.message, joined.contents);
    if (!bDecodes || cache.bError)
    {
        ++m_Counts[bDecodes ? enCountRefused : enDecodeErrorInvalid];
        Settle(joined, bDecodes ? enFateRefused : enFateUndecoded);
        cache.bError = true;
    }
    else
    {
        joined.unSequence = ++m_unSequence;
        cache.waiting = joined;
    }
    m_Counts[enCountLengthMismatch] += bDecodes && BigAt(result.message, 13) != result.message.size() - 17 ? 1 : 0;
}

void CSideBySide::Settle(const stJoined& joined, enFate enWhat)
{
    ++m_Figures.fates[enWhat];
    for (const std::size_t unTag : joined.tags)
    {
        if (m_Tags[unTag].unDatagram != c_unNoDatagram)
        {
            m_Fates[m_UpdateOfDatagram[m_Tags[unTag].unDatagram]].insert(enWhat);
        }
    }
}

// One round of the application.
void CSideBySide::LookForUpdates()
{
    m_pHandler->m_Seen.clear();
    const int nResult = m_pHandler->UpdateBMA();
    std::vector<stJoined> expected;
    bool bErrorLast = false;
    for (stCache& cache : m_aCaches)
    {
        bErrorLast = cache.bError || (bErrorLast && !cache.waiting.has_value());
        if (!cache.bError && cache.waiting.has_value())
        {
            expected.push_back(*cache.waiting);
            cache.waiting.reset();
            ++m_Counts[enCountApplied];
        }
    }
    EXPECT_EQ(nResult == CClientMsgHandler::enUpdateDecodeError, bErrorLast);
    if (nResult == CClientMsgHandler::enUpdateDecodeError)
    {
        m_pHandler->ClearReceiveErrors();
        m_aCaches[0].bError = m_aCaches[1].bError = false;
    }
    ASSERT_EQ(m_pHandler->m_Seen.size(), expected.size());
    for (std::size_t un = 0; un < expected.size(); ++un)
    {
        ASSERT_EQ(m_pHandler->m_Seen[un].unSequence, expected[un].unSequence);
        const stContents& contents = m_pHandler->m_Seen[un].contents;
        ASSERT_TRUE(contents == expected[un].contents);
        Digest(m_pHandler->m_Seen[un].unSequence);
        for (const auto& [nType, array] : contents.arrays)
        {
            Digest(CheckWord(contents.unUpdateType, nType, array));
        }
        Apply(expected[un], m_pHandler->m_Seen[un]);
    }
}

void CSideBySide::Apply(const stJoined& joined, const stSeen& seen)
{
    const bool bWhole = ProvesItself(joined.contents);
    const std::uint32_t unNumber = bWhole ? BigAt(joined.contents.arrays.begin()->second, 0) : 0;
    const auto pSent = std::find_if(m_Updates.begin(), m_Updates.end(),
                                    [&](const stNumberedUpdate& update) { return update.contents == joined.contents; });
    // Exactly those that are as they were sent prove themselves, and what doesn't was damaged on its way.
    ASSERT_EQ(bWhole, pSent != m_Updates.end());
    const bool bDamaged =
        std::any_of(joined.tags.begin(), joined.tags.end(), [&](std::size_t unTag) { return m_Tags[unTag].bDamaged; });
    if (!bWhole)
    {
        ASSERT_TRUE(bDamaged);
        Settle(joined, enFateDamaged);
        return;
    }
    ASSERT_EQ(unNumber, pSent->unNumber);
    bool bLate = false;
    ASSERT_TRUE(m_Order.Take(seen, unNumber, bDamaged, bLate)) << "update " << unNumber;
    if (!seen.bNewest)
    {
        m_Figures.unLate += bLate ? 1 : 0;
        Settle(joined, enFateOlder);
        return;
    }
    m_Applied.insert(unNumber);
    Settle(joined, enFateApplied);
}

void CSideBySide::ExpectStatistics()
{
    const stReceiveStatistics statistics = m_pHandler->GetStatistics();
    m_Counts[enCountEvicted] = m_Model.GetEvicted();
    for (int nCounter = 0; nCounter < enReceiveCounterCount; ++nCounter)
    {
        Digest(statistics.aunCount[nCounter]);
        if (nCounter != enCountBytes)
        {
            EXPECT_EQ(statistics.aunCount[nCounter], m_Counts[nCounter])
                << ReceiveCounterText(static_cast<enReceiveCounter>(nCounter));
        }
    }
    const auto& count = statistics.aunCount;
    EXPECT_EQ(count[enCountDatagrams], statistics.Rejected() + count[enCountStored] + count[enCountCompleting]);
    EXPECT_EQ(count[enCountUpdates], count[enDecodeErrorNull] + count[enDecodeErrorInvalid] + count[enCountRefused] +
                                         count[enCountSuperseded] + count[enCountApplied] + count[enCountThrown]);
}

// Why none of a datagram's copies arrived as it was sent. False when one did.
bool CSideBySide::Explained(std::uint32_t unDatagram)
{
    if (m_Intact.count(unDatagram) != 0)
    {
        return false;
    }
    const std::vector<stFaultRecord>& faults = m_Faults[{unDatagram, false}];
    const auto is = [&](enFault enWhat)
    { return std::any_of(faults.begin(), faults.end(), [=](const stFaultRecord& record) { return record.enWhat == enWhat; }); };
    EXPECT_TRUE(is(enFaultLost) || is(enFaultTruncated) || is(enFaultCorrupted)) << "datagram " << unDatagram;
    ++(is(enFaultLost) ? m_Figures.unFragmentLost : m_Figures.unFragmentDamaged);
    return true;
}

// An update that was not applied lacks a fragment, for a recorded reason, or was pushed out of the ring, or came to something else.
void CSideBySide::Explain(const stNumberedUpdate& update, std::uint32_t unFirstDatagram)
{
    if (m_Applied.count(update.unNumber) != 0)
    {
        ++m_Figures.unWhole;
        return;
    }
    for (std::uint32_t un = 0; un < update.datagrams.size(); ++un)
    {
        if (Explained(unFirstDatagram + un))
        {
            return;
        }
    }
    const bool bEvicted = m_Model.FirstEvictedOf(c_unFirstId + update.unNumber) != 0;
    EXPECT_TRUE(bEvicted || !m_Fates[update.unNumber].empty()) << "update " << update.unNumber;
    ++(m_Fates[update.unNumber].empty() ? m_Figures.unEvicted : m_Figures.unOtherFate);
}

void CSideBySide::Remember(CBadNetwork& network)
{
    for (const stFaultRecord& record : network.TakeRecords())
    {
        m_Faults[{record.unDatagram, record.bDuplicate}].push_back(record);
    }
}

void CSideBySide::Deliver(const std::vector<stArrival>& arrivals)
{
    for (const stArrival& arrival : arrivals)
    {
        stTag tag = {arrival.unDatagram, false};
        for (const stFaultRecord& record : m_Faults[{arrival.unDatagram, arrival.bDuplicate}])
        {
            tag.bDamaged = tag.bDamaged || record.enWhat == enFaultTruncated || record.enWhat == enFaultCorrupted;
        }
        if (!tag.bDamaged)
        {
            m_Intact.insert(arrival.unDatagram);
        }
        Deliver(arrival.bytes, tag);
    }
}

void CSideBySide::RunSeed(std::uint32_t unSeed)
{
    Start();
    CBadNetwork network(FaultsOf(unSeed));
    std::mt19937 random(unSeed);
    for (std::uint32_t unNumber = 1; m_UpdateOfDatagram.size() < c_unDatagramsOfSeed; ++unNumber)
    {
        m_Updates.push_back(MakeNumberedUpdate(unNumber, c_unFirstId + unNumber, random));
        for (const tBytes& datagram : m_Updates.back().datagrams)
        {
            m_UpdateOfDatagram.push_back(unNumber);
            network.Send(0, datagram.data(), datagram.size());
            Remember(network);
            Deliver(network.Receive(0));
            if (random() % 6 == 0)
            {
                LookForUpdates();
            }
        }
    }
    Deliver(network.Flush());
    LookForUpdates();
    ExpectStatistics();
    std::uint32_t unFirstDatagram = 0;
    for (const stNumberedUpdate& update : m_Updates)
    {
        Explain(update, unFirstDatagram);
        unFirstDatagram += static_cast<std::uint32_t>(update.datagrams.size());
    }
    m_Figures.unUpdates += static_cast<std::uint32_t>(m_Updates.size());
    m_Figures.unDatagrams += unFirstDatagram;
    for (int nFault = 0; nFault < enFaultCount; ++nFault)
    {
        m_Figures.faults[static_cast<enFault>(nFault)] += network.GetCount(static_cast<enFault>(nFault));
    }
}

} // namespace Support
