#include "ClientComms/RawPPCQueue.h"

CRawPPCQueue::CRawPPCQueue() = default;

CRawPPCQueue::~CRawPPCQueue() = default;

void CRawPPCQueue::AddMsgToTail(MemPool::CMemPoolBase* pMessage)
{
    if (pMessage != nullptr)
    {
        m_Messages.emplace_back(pMessage);
    }
}

MemPool::CMemPoolBase* CRawPPCQueue::GetFrontMsg(bool bPop)
{
    if (m_Messages.empty())
    {
        return nullptr;
    }
    if (!bPop)
    {
        return m_Messages.front().get();
    }
    MemPool::CMemPoolBase* pMessage = m_Messages.front().release();
    m_Messages.pop_front();
    return pMessage;
}

bool CRawPPCQueue::RemoveFront()
{
    if (m_Messages.empty())
    {
        return false;
    }
    m_Messages.pop_front();
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
    return static_cast<int>(m_Messages.size());
}
