// The outgoing parameter changes, in the order they came.
#pragma once

#include "Messages/RawPPCMsg.h"
#include "Runtime/Export.h"

#include <deque>
#include <memory>

// A first-in-first-out queue that owns what it holds: pointers to messages made with new[], of which the first of each array is
// the one that travels. It has no lock of its own: the message handler's PPC buffer lock is held around every call.
//
// One sender may work on the front messages while nobody holds the lock: it borrows them, and gives them back. They count as
// queued meanwhile. When others remove one that is borrowed, it leaves the queue at once, and lives until the sender gives it
// back, which it does before the queue ends.
class LOGICALCONTROLS_EXPORT CRawPPCQueue
{
public:
    CRawPPCQueue();
    virtual ~CRawPPCQueue();
    CRawPPCQueue(const CRawPPCQueue&) = delete;
    CRawPPCQueue& operator=(const CRawPPCQueue&) = delete;

    // Takes over pMessages; null is ignored. False when there is no memory: then they stay the caller's.
    bool AddMsgToTail(CRawPPCMsg* pMessages);

    // The front messages, null when there are none. With bPop they leave the queue and belong to the caller; null, too, while a
    // sender has borrowed them.
    CRawPPCMsg* GetFrontMsg(bool bPop);

    // Destroys the front messages. False when there are none.
    bool RemoveFront();

    void ClearQueue();
    int GetQueueSize() const;

    // Shows the first nMax entries, in order, to the one sender. Returns how many there are; 0 while some are out already.
    int Borrow(CRawPPCMsg** ppEntries, int nMax);

    // Ends the loan: the first nDone of the entries leave the queue. Returns how many of them, counted from the first, are now
    // the sender's to delete[]: those, or more when others removed more. nMissing is how many of the first nDone others had
    // removed.
    int GiveBack(int nDone, int& nMissing);

private:
    typedef std::unique_ptr<CRawPPCMsg[]> tEntry;

    std::deque<tEntry> m_Entries;
    int m_nBorrowed; // of the first entries
    int m_nRemoved;  // borrowed ones that others have removed since
};
