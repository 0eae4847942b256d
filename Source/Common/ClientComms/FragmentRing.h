// The fragments of messages under way, in the memory that they were received into. Private to the library.
#pragma once

#include "ClientComms/UDPPacket.h"
#include "RySocketIO/CIPString.h"

#include <algorithm>
#include <cstdint>
#include <memory>

// Where a datagram lies: its first byte at slot * c_nMaxDatagram - shift * c_nDatagramHeader.
struct stPlace
{
    int nSlot; // -1: in memory of somebody else
    int nShift;
};

// What all fragments of a message share beside its id.
struct stOrigin
{
    std::int32_t nType;
    std::uint32_t unTotal;
    const RySocketIO::CIPString& sender;
};

struct stKeptFragment
{
    bool IsOf(const stOrigin& origin) const
    {
        return header.nType == origin.nType && header.unTotal == origin.unTotal && sender == origin.sender;
    }

    UDP_PACKET_HEADER header;
    const unsigned char* pPayload;
    stPlace place;
    RySocketIO::CIPString sender;
    bool bUnfinished; // no message with this fragment has been whole
};

// Keeps the last 50 fragments that were stored, and finds the memory for the next datagram so that a message need not be copied
// together: a fragment that follows a full one is received where its header lies over the last bytes of that one's payload, which
// are put back, and so its payload lies right behind. What comes in order is whole where it lies. What does not lies wherever it
// does, and is copied together.
//
// A message that is whole in place can be kept there, for one of two views, until that view keeps another.
//
// Of one thread, that which receives. 5.7 MB, all of it touched when it is made, so that receiving waits for no page; 6 MB where
// the system has pages of 2 MB.
class CFragmentRing
{
public:
    enum : int
    {
        enKept = 50,
        enViews = 2
    };

    CFragmentRing();
    ~CFragmentRing();
    CFragmentRing(const CFragmentRing&) = delete;
    CFragmentRing& operator=(const CFragmentRing&) = delete;

    // Room for the next datagram, c_nMaxDatagram bytes.
    char* Room();

    // The datagram that has come, with its header at pData, there or elsewhere. In the room, its header's bytes are not its own any
    // more.
    stKeptFragment Arrived(const char* pData, const RySocketIO::CIPString& sender);

    // Keeps the datagram in hand, which is at most c_nMaxDatagram bytes long, instead of the oldest. Returns that one, its slot
    // free for anything.
    stKeptFragment Store(stKeptFragment fragment);

    // Where in the ring the next one goes: 0 to 49.
    int NextIndex() const { return m_nNext; }

    // Fills what is empty among the first nTotal entries with what show makes of the newest fragment of that number of the message;
    // with an origin, of that origin alone. True when all are filled.
    template <class Entry, class Show>
    bool Locate(Entry** ppTable, std::uint32_t unMessageId, int nTotal, const stOrigin* pOrigin, Show show);

    // A message of this id has been whole.
    void Finish(std::uint32_t unMessageId);

    // The message of these fragments, the last of which to arrive is inHand, when it is whole in place; null when it is not.
    const unsigned char* InPlace(stKeptFragment* const* ppTable, int nTotal, stKeptFragment& inHand);

    // Keeps such a message for a view, or nothing.
    void Keep(int nView, const stKeptFragment* const* ppTable, int nTotal);

    // The next datagram begins a message: where a whole one has room, else where one datagram has, which is always somewhere.
    void BeginAfresh();

private:
    enum : int
    {
        // The last fragment of a message is not kept, and leaves a gap once it is out of view. This is enough for those kept of
        // rotary and surface updates in turn (of five and two fragments), their gaps, two messages in view and room for another.
        enSlots = 88,
        enBytes = enSlots * c_nMaxDatagram
    };

    stKeptFragment* Newest(int nAge);
    unsigned char* At(const stPlace& place) const;
    void Land(stKeptFragment& fragment);
    void Use(const stPlace& place, int nUsers);
    bool IsFree(int nSlot, int nCount) const;
    void GoOnBehind(const stKeptFragment& fragment);
    void PutBack();

    const std::unique_ptr<unsigned char[]> m_pMemory; // what the slots lie in
    unsigned char* const m_pSlots;
    unsigned char m_aucUsers[enSlots];
    stKeptFragment m_aKept[enKept];
    int m_nNext; // where in m_aKept the next one goes
    stPlace m_Room;
    unsigned char m_acUnderHeader[c_nDatagramHeader]; // what the header in the room lies over
    bool m_bHeaderOver;
    stPlace m_aaViews[enViews][c_nMaxFragments];
    int m_anInView[enViews];
};

template <class Entry, class Show>
bool CFragmentRing::Locate(Entry** ppTable, std::uint32_t unMessageId, int nTotal, const stOrigin* pOrigin, Show show)
{
    auto nMissing = std::count(ppTable, ppTable + nTotal, nullptr);
    for (int nAge = 1; nAge <= enKept && nMissing != 0; ++nAge)
    {
        stKeptFragment* const pFragment = Newest(nAge);
        if (pFragment == nullptr)
        {
            break; // nor was there ever an older one
        }
        const std::uint32_t unNumber = pFragment->header.unPacketNumber;
        if (pFragment->header.unMessageId == unMessageId && unNumber <= static_cast<std::uint32_t>(nTotal) &&
            ppTable[unNumber - 1] == nullptr && (pOrigin == nullptr || pFragment->IsOf(*pOrigin)))
        {
            ppTable[unNumber - 1] = show(*pFragment);
            --nMissing;
        }
    }
    return nMissing == 0;
}
