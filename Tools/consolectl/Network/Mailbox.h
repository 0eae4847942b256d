// What a receive thread hands over to another thread.
#pragma once

#include "LogicalControls.h"

#include <atomic>
#include <cstddef>
#include <vector>

// Put may be called on one thread and Take on another. What exceeds the room is lost, and counted, as in a full socket.
template <typename T>
class CMailbox
{
public:
    explicit CMailbox(std::size_t unRoom) : m_unRoom(unRoom), m_unUsed(0), m_unLost(0) {}

    // unSize is what the item holds beside itself, and takes of the room.
    void Put(T item, std::size_t unSize)
    {
        unSize += sizeof item;
        const CLockGuard<CCritSec> guard(m_Lock);
        if (!guard.IsHeld() || m_unUsed + unSize > m_unRoom)
        {
            ++m_unLost;
            return;
        }
        m_Items.push_back(std::move(item));
        m_unUsed += unSize;
    }

    std::vector<T> Take()
    {
        std::vector<T> items;
        const CLockGuard<CCritSec> guard(m_Lock);
        if (guard.IsHeld())
        {
            items.swap(m_Items);
            m_unUsed = 0;
        }
        return items;
    }

    std::size_t GetLost() const { return m_unLost; }

private:
    const std::size_t m_unRoom;
    CCritSec m_Lock;
    std::vector<T> m_Items LOGICALCONTROLS_GUARDED_BY(m_Lock);
    std::size_t m_unUsed LOGICALCONTROLS_GUARDED_BY(m_Lock);
    std::atomic<std::size_t> m_unLost;
};
