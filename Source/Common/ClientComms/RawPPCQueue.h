// The outgoing parameter changes, in the order they came.
#pragma once

#include "Runtime/Export.h"
#include "Runtime/MemPool.h"

#include <deque>
#include <memory>

// A first-in-first-out queue that owns the messages it holds. It has no lock of its own: the message handler's PPC buffer lock
// is held around every call.
class LOGICALCONTROLS_EXPORT CRawPPCQueue
{
public:
    CRawPPCQueue();
    virtual ~CRawPPCQueue();
    CRawPPCQueue(const CRawPPCQueue&) = delete;
    CRawPPCQueue& operator=(const CRawPPCQueue&) = delete;

    // Takes over pMessage, which was made with new. Null is ignored.
    void AddMsgToTail(MemPool::CMemPoolBase* pMessage);

    // The front message, null when there is none. With bPop it leaves the queue and belongs to the caller.
    MemPool::CMemPoolBase* GetFrontMsg(bool bPop);

    // Destroys the front message. False when there is none.
    bool RemoveFront();

    void ClearQueue();
    int GetQueueSize() const;

private:
    std::deque<std::unique_ptr<MemPool::CMemPoolBase>> m_Messages;
};
