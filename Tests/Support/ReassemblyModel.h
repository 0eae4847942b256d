// Reassembly as simply as can be, with an account of which datagrams went into a message.
#pragma once

#include "Support/Bytes.h"
#include "Support/NumberedUpdates.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <vector>

namespace Support
{

class CReassemblyModel
{
public:
    enum enOutcome
    {
        enTooShort,
        enBadHeader,
        enBadPayload,
        enTooLarge,
        enStored,
        enComplete
    };

    struct stResult
    {
        enOutcome enWhat;
        std::uint32_t unType;
        std::uint32_t unId;
        tBytes message;
        std::vector<std::size_t> tags; // of its fragments, in number order
        bool bMixed;                   // of fragments that differ in type or total
    };

    // A datagram; the tag is the caller's.
    stResult Take(const tBytes& datagram, std::size_t unTag)
    {
        stResult result = {enTooShort, 0, 0, {}, {}, false};
        if (datagram.size() < 20)
        {
            return result;
        }
        const stFragment fragment = {
            datagram, BigAt(datagram, 0), BigAt(datagram, 4), BigAt(datagram, 8), BigAt(datagram, 12), unTag, true};
        result.unType = fragment.unType;
        result.unId = fragment.unId;
        if (fragment.unType > 89 || fragment.unNumber == 0 || fragment.unNumber > fragment.unTotal || fragment.unTotal > 5)
        {
            result.enWhat = enBadHeader;
        }
        else if (fragment.unTotal == 1 && BigAt(datagram, 16) > c_unBuffer)
        {
            result.enWhat = enTooLarge;
        }
        else if (BigAt(datagram, 16) > datagram.size() - 20)
        {
            result.enWhat = enBadPayload;
        }
        else if (Join(fragment, result))
        {
            result.enWhat = enComplete;
        }
        else
        {
            result.enWhat = enStored;
            Store(fragment);
        }
        return result;
    }

    // Fragments overwritten before a message of their id was whole; and the number of the first that this id lost so, or 0.
    std::uint32_t GetEvicted() const { return m_unEvicted; }
    std::uint32_t FirstEvictedOf(std::uint32_t unId) const
    {
        const auto pFirst = m_FirstEvicted.find(unId);
        return pFirst != m_FirstEvicted.end() ? pFirst->second : 0;
    }
    void ForgetEvictedIds() { m_FirstEvicted.clear(); }

private:
    struct stFragment
    {
        tBytes datagram;
        std::uint32_t unType, unId, unNumber, unTotal;
        std::size_t unTag;
        bool bUnfinished;
    };

    static constexpr std::size_t c_unRing = 50;
    static constexpr std::uint32_t c_unBuffer = 1048576;

    bool Join(const stFragment& last, stResult& result)
    {
        tBytes message;
        std::vector<std::size_t> tags;
        bool bMixed = false;
        for (std::uint32_t unNumber = 1; unNumber <= last.unTotal; ++unNumber)
        {
            const auto pNewest = std::find_if(m_Newest.begin(), m_Newest.end(),
                                              [&](const stFragment& fragment)
                                              { return fragment.unId == last.unId && fragment.unNumber == unNumber; });
            if (unNumber != last.unNumber && pNewest == m_Newest.end())
            {
                return false;
            }
            const stFragment& fragment = unNumber == last.unNumber ? last : *pNewest;
            const auto pPayload = fragment.datagram.begin() + 20;
            message.insert(message.end(), pPayload, pPayload + static_cast<long>(BigAt(fragment.datagram, 16)));
            tags.push_back(fragment.unTag);
            bMixed = bMixed || fragment.unType != last.unType || fragment.unTotal != last.unTotal;
        }
        result.message = message;
        result.tags = tags;
        result.bMixed = bMixed;
        for (stFragment& fragment : m_Newest)
        {
            // A message of one datagram leaves the fragments of its id alone.
            fragment.bUnfinished = fragment.bUnfinished && (fragment.unId != last.unId || last.unTotal == 1);
        }
        return true;
    }

    void Store(const stFragment& fragment)
    {
        m_Newest.push_front(fragment);
        if (m_Newest.size() <= c_unRing)
        {
            return;
        }
        if (m_Newest.back().bUnfinished)
        {
            ++m_unEvicted;
            m_FirstEvicted.emplace(m_Newest.back().unId, m_Newest.back().unNumber);
        }
        m_Newest.pop_back();
    }

    std::deque<stFragment> m_Newest; // the newest first
    std::uint32_t m_unEvicted = 0;
    std::map<std::uint32_t, std::uint32_t> m_FirstEvicted; // numbers by id
};

} // namespace Support
