#include "BadNetworkSeed.h"

#include <algorithm>
#include <memory>
#include <random>
#include <thread>

using Support::CNumberedHandler;
using Support::CWired;
using Support::Expect;
using Support::stSeen;
using Support::stWired;
using Support::tBytes;
typedef Support::CReassemblyModel CModel;

stFaults FaultsOf(std::uint32_t unSeed)
{
    stFaults faults;
    faults.unSeed = unSeed;
    faults.unLoss = 10000 * (unSeed % 10);
    faults.unDuplicate = 20000 * (unSeed % 5);
    faults.unCorrupt = 10000 * (unSeed % 4);
    faults.unTruncate = 10000 * (unSeed % 3);
    faults.unReorder = 15 * (unSeed % 6);
    return faults;
}

bool CSeed::Has(const stWired& wired, enFault enWhat) const
{
    const auto pFaults = m_Faults.find({wired.unDatagram, wired.bDuplicate});
    return pFaults != m_Faults.end() && pFaults->second.count(enWhat) != 0;
}

// On the sender's thread.
void CSeed::Send(RySocketIO::CSocket& sender)
{
    std::mt19937 random(m_unSeed);
    std::int64_t nNow = 0;
    for (std::uint32_t unNumber = 1; unNumber <= m_unUpdates; ++unNumber)
    {
        m_Updates.push_back(Support::MakeNumberedUpdate(unNumber, c_unFirstId + unNumber, random));
        for (const tBytes& datagram : m_Updates.back().datagrams)
        {
            m_UpdateOfDatagram.push_back(unNumber - 1);
            m_Network.Send(++nNow, datagram.data(), datagram.size());
            Put(sender, m_Network.Receive(nNow));
        }
    }
    Put(sender, m_Network.Flush());
    m_Wire.Put(sender, {c_unNoDatagram, false, Support::Hex("00")}); // behind it, the kernel's losses are known
}

void CSeed::Put(RySocketIO::CSocket& sender, const std::vector<stArrival>& arrivals)
{
    for (const stFaultRecord& record : m_Network.TakeRecords())
    {
        m_Faults[{record.unDatagram, record.bDuplicate}].insert(record.enWhat);
    }
    for (const stArrival& arrival : arrivals)
    {
        m_Wire.Put(sender, {arrival.unDatagram, arrival.bDuplicate, arrival.bytes});
    }
}

// The application's thread: applies what comes, and clears errors when it is told of one.
void CSeed::Receive(CNumberedHandler& handler, const std::atomic<bool>& bSent)
{
    const auto update = [&handler]
    {
        if (handler.UpdateBMA() == CClientMsgHandler::enUpdateDecodeError)
        {
            handler.ClearReceiveErrors();
        }
    };
    for (std::uint32_t unKnown = 0; !bSent;)
    {
        m_Wire.AwaitOne(unKnown);
        update();
    }
    m_Wire.AwaitAll();
    update();
}

// What reassembly has to have made of that which was received, in that order.
void CSeed::Replay(const stReceiveStatistics& statistics)
{
    std::map<CModel::enOutcome, std::uint32_t> outcomes;
    std::uint32_t unForeign = 0, unInvalid = 0;
    for (std::size_t un = 0; un < m_Wire.m_Received.size(); ++un)
    {
        const CModel::stResult result = m_Model.Take(m_Wire.m_Received[un].bytes, un);
        ++outcomes[result.enWhat];
        if (result.enWhat != CModel::enComplete)
        {
            continue;
        }
        stCompletion completion = {{}, {}, &m_Wire.m_Received[un], result.unType == 0, false};
        completion.bDecodes = completion.bDecodes && Support::ReadUpdate(result.message, completion.contents);
        for (const std::size_t unTag : result.tags)
        {
            completion.fragments.push_back(&m_Wire.m_Received[unTag]);
        }
        unForeign += result.unType == 0 ? 0 : 1;
        unInvalid += result.unType == 0 && !completion.bDecodes ? 1 : 0;
        m_Completions.push_back(completion);
    }
    const auto same = [&](enReceiveCounter enCounter, std::uint32_t unExpected)
    {
        Expect(statistics.aunCount[enCounter] == unExpected, "seed %u: %s: %u, and not %u", m_unSeed, ReceiveCounterText(enCounter),
               statistics.aunCount[enCounter], unExpected);
    };
    same(enCountDatagrams, static_cast<std::uint32_t>(m_Wire.m_Received.size()));
    same(enRejectedTooShort, outcomes[CModel::enTooShort]);
    same(enRejectedHeader, outcomes[CModel::enBadHeader]);
    same(enRejectedPayload, outcomes[CModel::enBadPayload]);
    same(enRejectedBuffer, outcomes[CModel::enTooLarge]);
    same(enCountStored, outcomes[CModel::enStored]);
    same(enCountCompleting, outcomes[CModel::enComplete]);
    same(enCountEvicted, m_Model.GetEvicted());
    same(enCountForeign, unForeign);
    same(enDecodeErrorInvalid, unInvalid);
}

// Every update that was handed to the application is the next of its kind among those that were completed.
void CSeed::MatchApplied(std::vector<stSeen> applied)
{
    std::map<std::uint32_t, stCompletion*> ofSequence;
    auto pNext = m_Completions.begin();
    std::vector<stSeen> inOrder = applied;
    std::sort(inOrder.begin(), inOrder.end(), [](const stSeen& a, const stSeen& b) { return a.unSequence < b.unSequence; });
    for (const stSeen& each : inOrder)
    {
        pNext = std::find_if(pNext, m_Completions.end(),
                             [&](const stCompletion& completion)
                             { return completion.bDecodes && completion.contents == each.contents; });
        Expect(pNext != m_Completions.end(), "seed %u: update %u was never completed like this", m_unSeed, each.unSequence);
        if (pNext == m_Completions.end())
        {
            return;
        }
        pNext->bApplied = true;
        ofSequence[each.unSequence] = &*pNext++;
    }
    Expect(ofSequence.size() == applied.size(), "seed %u: an update was applied twice", m_unSeed);
    for (const stSeen& each : applied)
    {
        CheckApplied(*ofSequence[each.unSequence], each);
    }
}

void CSeed::CheckApplied(const stCompletion& completion, const stSeen& applied)
{
    const std::uint32_t unSequence = applied.unSequence;
    const bool bWhole = Support::ProvesItself(completion.contents);
    const bool bDamaged = std::any_of(completion.fragments.begin(), completion.fragments.end(),
                                      [this](const stWired* pWired) { return IsDamaged(*pWired); });
    if (!bWhole)
    {
        Expect(bDamaged, "seed %u: update %u does not prove itself, and nothing damaged it", m_unSeed, unSequence);
        ++m_Figures["updates handed over that do not prove themselves, damaged on the way"];
        return;
    }
    const std::uint32_t unNumber = Support::BigAt(completion.contents.arrays.begin()->second, 0);
    Expect(unNumber >= 1 && unNumber <= m_Updates.size() && m_Updates[unNumber - 1].contents == completion.contents,
           "seed %u: update %u proves itself but was never sent", m_unSeed, unSequence);
    bool bLate = false;
    const bool bRight = m_Order.Take(applied, unNumber, bDamaged, bLate);
    Expect(bRight, "seed %u: update %u was %s", m_unSeed, unNumber, applied.bNewest ? "applied over a later one" : "left alone");
    if (!applied.bNewest)
    {
        ++m_Figures[bLate ? "updates left alone, as one that was sent later was applied" : "updates left alone for a newer one"];
        m_LeftAlone.insert(unNumber);
        return;
    }
    m_Whole.insert(unNumber);
}

void CSeed::Balance(const stReceiveStatistics& statistics, const RySocketIO::stSocketStatistics& socket)
{
    const auto count = [&](enReceiveCounter enCounter) { return statistics.aunCount[enCounter]; };
    const auto add = [&](const char* szWhat, std::uint32_t unCount) { m_Figures[szWhat] += unCount; };
    const std::uint32_t unLost = static_cast<std::uint32_t>(m_Wire.m_Lost.size());
    const std::uint32_t unReceived = static_cast<std::uint32_t>(m_Wire.m_Received.size());
    add("datagrams given to the bad networks", m_Network.GetTaken());
    add("+ duplicates made", m_Network.GetCount(enFaultDuplicated));
    add("- lost by the bad networks", m_Network.GetCount(enFaultLost));
    add("  (cut short)", m_Network.GetCount(enFaultTruncated));
    add("  (corrupted)", m_Network.GetCount(enFaultCorrupted));
    add("  (held back)", m_Network.GetCount(enFaultHeldBack));
    add("+ closing datagrams", 1);
    add("- lost by the kernel", unLost);
    add("= received", unReceived);
    add("rejected", statistics.Rejected());
    add("+ stored", count(enCountStored));
    add("+ completing", count(enCountCompleting));
    add("  (pushed out of the ring)", count(enCountEvicted));
    add("updates decoded or not", count(enCountUpdates));
    add("= applied", count(enCountApplied));
    add("+ superseded", count(enCountSuperseded));
    add("+ undecodable", count(enDecodeErrorInvalid));
    add("+ refused after an error", count(enCountRefused));
    Expect(m_Network.GetTaken() + m_Network.GetCount(enFaultDuplicated) - m_Network.GetCount(enFaultLost) ==
                   m_Network.GetDelivered() &&
               m_Network.GetDelivered() + 1 == m_Wire.m_unSent && m_Wire.m_unSent == unLost + unReceived,
           "seed %u: datagrams are not accounted for", m_unSeed);
    Expect(m_Wire.m_unUnknown == 0 && m_Wire.m_unRefused == 0, "seed %u: %u unknown datagrams, %u refused by the system", m_unSeed,
           m_Wire.m_unUnknown, m_Wire.m_unRefused);
    Expect(socket.unDatagrams == unReceived && socket.unTruncated == 0 && socket.unErrors == 0,
           "seed %u: the socket handed out %u datagrams of %u", m_unSeed, socket.unDatagrams, unReceived);
    // Where the kernel does not tell, it says 0.
    Expect(socket.unKernelDrops == unLost || socket.unKernelDrops == 0,
           "seed %u: the kernel says that it lost %u datagrams, not %u", m_unSeed, socket.unKernelDrops, unLost);
    Expect(count(enCountDatagrams) == statistics.Rejected() + count(enCountStored) + count(enCountCompleting),
           "seed %u: received is not rejected + stored + completing", m_unSeed);
    Expect(count(enCountCompleting) == count(enCountUpdates) + count(enCountForeign) &&
               count(enCountUpdates) == count(enCountApplied) + count(enCountSuperseded) + count(enDecodeErrorInvalid) +
                                            count(enDecodeErrorNull) + count(enCountRefused) + count(enCountThrown),
           "seed %u: the updates are not accounted for", m_unSeed);
}

// Why no copy of a datagram arrived as it was sent; empty when one did.
std::string CSeed::ReasonOf(std::uint32_t unDatagram, const std::set<std::uint32_t>& lostInKernel) const
{
    if (m_Intact.count(unDatagram) != 0)
    {
        return {};
    }
    const stWired original = {unDatagram, false, {}};
    return Has(original, enFaultLost)            ? "a lost fragment"
           : Has(original, enFaultTruncated)     ? "a fragment that was cut short"
           : Has(original, enFaultCorrupted)     ? "a corrupted fragment"
           : lostInKernel.count(unDatagram) != 0 ? "a fragment that the kernel lost"
                                                 : "no reason";
}

// Why an update was not applied of which every fragment arrived as it was sent.
std::string CSeed::ReasonAfterArrival(std::uint32_t unUpdate) const
{
    if (m_LeftAlone.count(m_Updates[unUpdate].unNumber) != 0)
    {
        return "a newer one before it";
    }
    std::string strReason = "no reason";
    for (const stCompletion& completion : m_Completions)
    {
        const auto isOwn = [&](const stWired* pWired) { return m_UpdateOfDatagram.at(pWired->unDatagram) == unUpdate; };
        const auto& fragments = completion.fragments;
        if (std::none_of(fragments.begin(), fragments.end(), isOwn))
        {
            continue;
        }
        const auto pDamaged =
            std::find_if(fragments.begin(), fragments.end(), [&](const stWired* pWired) { return IsDamaged(*pWired); });
        if (pDamaged != fragments.end())
        {
            strReason = "a damaged copy in the place of number " + std::to_string(pDamaged - fragments.begin() + 1);
        }
        else if (completion.bDecodes && !completion.bApplied && std::all_of(fragments.begin(), fragments.end(), isOwn))
        {
            return "the next one in its cache, or an error there";
        }
    }
    const std::uint32_t unEvicted = m_Model.FirstEvictedOf(c_unFirstId + m_Updates[unUpdate].unNumber);
    return unEvicted != 0 ? "a fragment that was pushed out of the ring, number " + std::to_string(unEvicted) : strReason;
}

// Each update that was not applied: for want of a fragment, or pushed out of the ring, or because of what it came to.
void CSeed::Explain()
{
    std::set<std::uint32_t> lostInKernel;
    for (const stWired& wired : m_Wire.m_Lost)
    {
        lostInKernel.insert(wired.unDatagram);
    }
    for (const stWired& wired : m_Wire.m_Received)
    {
        if (!IsDamaged(wired))
        {
            m_Intact.insert(wired.unDatagram);
        }
    }
    std::uint32_t unDatagram = 0;
    for (std::uint32_t un = 0; un < m_Updates.size(); ++un)
    {
        std::string strReason;
        for (std::size_t unFragment = 0; unFragment < m_Updates[un].datagrams.size(); ++unFragment, ++unDatagram)
        {
            if (strReason.empty() && !(strReason = ReasonOf(unDatagram, lostInKernel)).empty())
            {
                strReason += ", number " + std::to_string(unFragment + 1);
            }
        }
        if (m_Whole.count(m_Updates[un].unNumber) != 0)
        {
            ++m_Figures["updates sent and applied, whole"];
            continue;
        }
        strReason = strReason.empty() ? ReasonAfterArrival(un) : strReason;
        Expect(strReason.find("no reason") != 0, "seed %u: update %u was not applied for no reason", m_unSeed,
               m_Updates[un].unNumber);
        ++m_Figures["updates not applied for " + strReason];
    }
}

void CSeed::Run(RySocketIO::CSocket& sender)
{
    const auto pHandler = std::make_unique<CWired<CNumberedHandler>>(m_Wire, false);
    if (!pHandler->InitialiseClient(c_unPort, nullptr, c_szGroup, nullptr) || pHandler->GetLocalPort() != c_unPort)
    {
        Expect(false, "no socket for %s:%u", c_szGroup, c_unPort);
        return;
    }
    std::atomic<bool> bSent(false);
    std::thread thread(
        [&]
        {
            Send(sender);
            bSent = true;
        });
    Receive(*pHandler, bSent);
    thread.join();
    pHandler->Shutdown();
    const stReceiveStatistics statistics = pHandler->GetStatistics();
    Balance(statistics, pHandler->GetSocketStatistics());
    Replay(statistics);
    MatchApplied(pHandler->m_Seen);
    Explain();
}
