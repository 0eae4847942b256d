#include "ClientComms/RawPPCQueue.h"

#include <algorithm>
#include <exception>

CRawPPCQueue::CRawPPCQueue() : m_nBorrowed(0), m_nRemoved(0) {}

CRawPPCQueue::~CRawPPCQueue() = default;

bool CRawPPCQueue::AddMsgToTail(CRawPPCMsg* pMessages)
{
    if (pMessages == nullptr)
    {
        return true;
    }
    try
    {
        m_Entries.emplace_back();
    }
    catch (const std::exception&)
    {
        return false;
    }
    m_Entries.back().reset(pMessages);
    return true;
}

CRawPPCMsg* CRawPPCQueue::GetFrontMsg(bool bPop)
{
    if (m_Entries.empty() || (bPop && m_nBorrowed > 0))
    {
        return nullptr;
    }
    CRawPPCMsg* pMessages = m_Entries.front().get();
    if (bPop)
    {
        m_Entries.front().release();
        m_Entries.pop_front();
    }
    return pMessages;
}

bool CRawPPCQueue::RemoveFront()
{
    if (m_Entries.empty())
    {
        return false;
    }
    if (m_nBorrowed > 0)
    {
        m_Entries.front().release(); // the sender deletes it
        --m_nBorrowed;
        ++m_nRemoved;
    }
    m_Entries.pop_front();
    return true;
}

void CRawPPCQueue::ClearQueue()
{
    while (RemoveFront())
    {
    }
}

int CRawPPCQueue::GetQueueSize() const
{
    return static_cast<int>(m_Entries.size());
}

int CRawPPCQueue::Borrow(CRawPPCMsg** ppEntries, int nMax)
{
    if (ppEntries == nullptr || m_nBorrowed > 0 || m_nRemoved > 0)
    {
        return 0;
    }
    m_nBorrowed = std::max(0, std::min(nMax, GetQueueSize()));
    for (int nEntry = 0; nEntry < m_nBorrowed; ++nEntry)
    {
        ppEntries[nEntry] = m_Entries[static_cast<std::size_t>(nEntry)].get();
    }
    return m_nBorrowed;
}

int CRawPPCQueue::GiveBack(int nDone, int& nMissing)
{
    nMissing = std::max(0, std::min(nDone, m_nRemoved));
    int nOwned = m_nRemoved;
    for (; nOwned < nDone && m_nBorrowed > 0; ++nOwned, --m_nBorrowed)
    {
        m_Entries.front().release();
        m_Entries.pop_front();
    }
    m_nBorrowed = 0;
    m_nRemoved = 0;
    return nOwned;
}
