// The models' own reassembly of datagrams, and what a client makes of the messages.
#pragma once

#include "ClientComms/ClientMsgHandler.h"

#include "Input.h"
#include "UpdateModel.h"

#include <algorithm>
#include <deque>
#include <map>
#include <utility>

namespace Fuzz
{

constexpr std::size_t c_unHeader = 20;
constexpr std::size_t c_unRing = 50;
constexpr std::size_t c_unSlot = 65000;
constexpr std::uint32_t c_unFlushId = 0x46555a5a;
constexpr std::int64_t c_nStart = 1700000000ll * 1000000;

inline std::int64_t g_nNow = c_nStart; // what the clock says

inline tBytes MakeDatagram(std::uint32_t unType, std::uint32_t unId, std::uint32_t unNumber, std::uint32_t unTotal,
                           std::uint32_t unClaimed, const tBytes& payload)
{
    tBytes bytes;
    for (const std::uint32_t unField : {unType, unId, unNumber, unTotal, unClaimed})
    {
        AppendBig(bytes, unField);
    }
    Append(bytes, payload);
    return bytes;
}

struct stOutcome
{
    int nResult = -1;
    bool bStored = false;
    tBytes message;
};

// The last 50 fragments, newest first.
class CRingModel
{
public:
    stOutcome Take(const tBytes& datagram, int nCapacity, int nSender)
    {
        stOutcome outcome;
        if (datagram.size() < c_unHeader)
        {
            return outcome;
        }
        const std::int32_t nType = LoadSigned(&datagram[0]);
        const std::uint32_t unNumber = LoadBig(&datagram[8]);
        const std::uint32_t unTotal = LoadBig(&datagram[12]);
        const std::uint32_t unPayload = LoadBig(&datagram[16]);
        if (nType < 0 || nType > 89 || unNumber == 0 || unNumber > unTotal || unTotal > 5 ||
            unPayload > datagram.size() - c_unHeader)
        {
            return outcome;
        }
        std::map<std::uint32_t, const tBytes*> parts = {{unNumber, &datagram}};
        for (const auto& [stored, nFrom] : m_Stored)
        {
            const std::uint32_t unStored = LoadBig(&stored[8]);
            const bool bSame = LoadSigned(&stored[0]) == nType && LoadBig(&stored[12]) == unTotal && nFrom == nSender;
            if (LoadBig(&stored[4]) == LoadBig(&datagram[4]) && unStored <= unTotal && (bSame || !m_bStrict))
            {
                parts.emplace(unStored, &stored);
            }
        }
        if (parts.size() < unTotal)
        {
            if (datagram.size() <= c_unSlot)
            {
                outcome.bStored = true;
                m_Stored.emplace_front(datagram, nSender);
                m_Stored.resize(std::min(m_Stored.size(), c_unRing));
            }
            return outcome;
        }
        tBytes joined;
        for (const auto& part : parts)
        {
            const unsigned char* pPart = part.second->data();
            joined.insert(joined.end(), pPart + c_unHeader, pPart + c_unHeader + LoadBig(pPart + 16));
        }
        if (joined.size() <= static_cast<std::size_t>(std::max(nCapacity, 0)))
        {
            outcome.nResult = nType;
            outcome.message = joined;
        }
        return outcome;
    }

    // How many fragments it takes to push out all that are no strangers.
    std::size_t Foreign() const
    {
        std::size_t unStrangers = 0;
        while (unStrangers < m_Stored.size() && m_Stored[unStrangers].first == Stranger())
        {
            ++unStrangers;
        }
        return c_unRing - unStrangers;
    }

    // Whether type, total and sender have to be those of the datagram that completes a message.
    void SetStrict(bool bStrict) { m_bStrict = bStrict; }

    // A fragment of a message that never becomes whole.
    static const tBytes& Stranger()
    {
        static const tBytes stranger = MakeDatagram(7, c_unFlushId, 5, 5, 0, tBytes());
        return stranger;
    }

private:
    std::deque<std::pair<tBytes, int>> m_Stored; // with their senders
    bool m_bStrict = false;
};

// What ProcessMCUpdate was shown.
struct stShown
{
    std::int32_t nUpdateType;
    std::uint32_t unSequence;
    std::array<tBytes, c_nTypes> arrays;
};

class CClient : public CClientMsgHandler
{
public:
    CClient() : CClientMsgHandler(false) {}
    ~CClient() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        stShown one = {update.GetUpdateType(), GetUpdateSequence(), {}};
        for (int nType = 0; nType < c_nTypes; ++nType)
        {
            const unsigned char* pArray = nullptr;
            int nLength = 0;
            if (update.GetArray(static_cast<tagenPPCMessageType>(nType), pArray, nLength))
            {
                one.arrays[static_cast<std::size_t>(nType)].assign(pArray, pArray + nLength);
            }
        }
        shown.push_back(one);
        return 100 + static_cast<int>(shown.size());
    }

    std::vector<stShown> shown;
};

// What a client's caches, its timing and its memory of senders have to be.
class CClientModel
{
public:
    void Take(const stOutcome& outcome, int nSender)
    {
        ++m_unDatagrams;
        m_unStored += outcome.bStored ? 1 : 0;
        m_unCompleting += outcome.nResult >= 0 ? 1 : 0;
        if (outcome.nResult != 0)
        {
            return;
        }
        Decode(outcome.message);
        if (m_aCaches[m_nCurrent].bNew)
        {
            m_bSenderChanged = m_bSenderChanged || nSender != m_nSender;
            m_nSender = nSender;
        }
        m_nCurrent = 1 - m_nCurrent;
    }

    void Decode(const tBytes& message)
    {
        ++m_unUpdates;
        stCache& cache = m_aCaches[m_nCurrent];
        const stUpdateModel update = WalkUpdate(message);
        cache.bPending = update.bValid && !cache.bError;
        cache.bError = !cache.bPending;
        cache.bytes = message;
        cache.bNew = cache.bNew || cache.bPending; // an error leaves the flag of what it has overwritten
        if (cache.bPending)
        {
            cache.unOrder = ++m_unOrder;
            m_nLastSurface = update.nUpdateType == 1 ? g_nNow : m_nLastSurface;
        }
    }

    void Update(CClient& client)
    {
        client.shown.clear();
        const int nResult = client.UpdateBMA();
        int nExpected = 1;
        std::size_t unShown = 0;
        for (stCache& cache : m_aCaches)
        {
            if (cache.bError)
            {
                nExpected = 5;
            }
            else if (cache.bPending)
            {
                Check(unShown < client.shown.size(), "an update was not applied");
                Compare(cache, client.shown[unShown]);
                nExpected = 100 + static_cast<int>(++unShown);
                cache.bPending = cache.bNew = false;
            }
        }
        Check(unShown == client.shown.size(), "%zu updates were applied and not %zu", client.shown.size(), unShown);
        if (nExpected == 1)
        {
            nExpected = g_nNow - m_nLastSurface > 60000 ? 6 : 7;
        }
        Check(nResult == nExpected, "UpdateBMA answered %d and not %d", nResult, nExpected);
    }

    void ClearErrors()
    {
        for (stCache& cache : m_aCaches)
        {
            cache.bError = false;
            cache.bNew = cache.bPending;
        }
    }

    void Sender(CClient& client, const char* const* ppSenders)
    {
        RySocketIO::CIPString sender;
        const bool bChanged = client.GetLastSender(sender);
        Check(bChanged == m_bSenderChanged, "the sender's change is said to be %d", int(bChanged));
        Check(m_nSender < 0 || sender == ppSenders[m_nSender], "the last sender is said to be %s", sender.Text());
        m_bSenderChanged = false;
    }

    // Nothing that came is unaccounted for.
    void Count(const CClient& client) const
    {
        const stReceiveStatistics now = client.GetStatistics();
        const auto count = [&now](enReceiveCounter enCounter) { return now.aunCount[enCounter]; };
        Check(count(enCountDatagrams) == m_unDatagrams && count(enCountStored) == m_unStored &&
                  count(enCountCompleting) == m_unCompleting && now.Rejected() == m_unDatagrams - m_unStored - m_unCompleting,
              "%u datagrams are said to be %u rejected, %u stored and %u completing", m_unDatagrams, now.Rejected(),
              count(enCountStored), count(enCountCompleting));
        const unsigned int unWaiting = (m_aCaches[0].bPending ? 1u : 0u) + (m_aCaches[1].bPending ? 1u : 0u);
        const unsigned int unKnown = count(enDecodeErrorNull) + count(enDecodeErrorInvalid) + count(enCountRefused) +
                                     count(enCountSuperseded) + count(enCountApplied) + count(enCountThrown);
        Check(count(enCountUpdates) == m_unUpdates && unKnown + unWaiting == m_unUpdates, "%u updates are said to be %u",
              m_unUpdates, unKnown + unWaiting);
    }

    int Current() const { return m_nCurrent; }

private:
    struct stCache
    {
        bool bPending = false; // a good update waits
        bool bNew = false;     // the flag says so
        bool bError = false;
        std::uint32_t unOrder = 0;
        tBytes bytes;
    };

    void Compare(const stCache& cache, const stShown& one)
    {
        const stUpdateModel update = WalkUpdate(cache.bytes);
        Check(one.nUpdateType == update.nUpdateType, "update type %d was applied and not %d", one.nUpdateType, update.nUpdateType);
        for (std::size_t unType = 0; unType < c_nTypes; ++unType)
        {
            const stArrayModel& array = update.arrays[unType];
            const std::ptrdiff_t nFirst = static_cast<std::ptrdiff_t>(array.unOffset);
            const tBytes expected =
                array.bHeld ? tBytes(cache.bytes.begin() + nFirst, cache.bytes.begin() + nFirst + array.nLength) : tBytes();
            Check(one.arrays[unType] == expected, "array %zu of an update is not what was sent", unType);
        }
        for (const auto& earlier : m_Sequences)
        {
            const bool bLater = static_cast<std::int32_t>(one.unSequence - earlier.second) > 0;
            Check(bLater == (cache.unOrder > earlier.first), "updates are numbered out of the order of their arrival");
        }
        m_Sequences[cache.unOrder] = one.unSequence;
        if (m_Sequences.size() > 4)
        {
            m_Sequences.erase(m_Sequences.begin());
        }
    }

    stCache m_aCaches[2];
    int m_nCurrent = 0;
    std::uint32_t m_unOrder = 0;
    unsigned int m_unDatagrams = 0;
    unsigned int m_unStored = 0;
    unsigned int m_unCompleting = 0;
    unsigned int m_unUpdates = 0;
    int m_nSender = -1;
    bool m_bSenderChanged = false;
    std::int64_t m_nLastSurface = INT64_MIN / 2;
    std::map<std::uint32_t, std::uint32_t> m_Sequences;
};

} // namespace Fuzz
