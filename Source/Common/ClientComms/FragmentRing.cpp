#include "ClientComms/FragmentRing.h"

#include "Runtime/Poison.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>

namespace
{

constexpr stPlace c_Elsewhere = {-1, 0};

constexpr std::size_t c_unLargePage = 2u << 20;

constexpr std::size_t WholePages(std::size_t unBytes)
{
    return (unBytes + c_unLargePage - 1) / c_unLargePage * c_unLargePage;
}

// Large pages, where the system has them: the processor does not remember as many small ones as the ring has. All are touched at
// once, so that receiving waits for none and nothing grows later.
unsigned char* LargePages(unsigned char* pMemory, std::size_t unBytes)
{
    const std::size_t unFront = WholePages(reinterpret_cast<std::uintptr_t>(pMemory)) - reinterpret_cast<std::uintptr_t>(pMemory);
    unsigned char* const pPages = pMemory + unFront;
#ifdef MADV_HUGEPAGE
    madvise(pPages, WholePages(unBytes), MADV_HUGEPAGE); // a wish: refused, pages are small
#endif
    std::memset(pPages, 0, unBytes);
    Poison(pMemory, unFront);
    Poison(pPages + unBytes, WholePages(unBytes) + c_unLargePage - unFront - unBytes);
    return pPages;
}

} // namespace

CFragmentRing::CFragmentRing()
    : m_pMemory(new unsigned char[WholePages(enBytes) + c_unLargePage]), m_pSlots(LargePages(m_pMemory.get(), enBytes)),
      m_aucUsers(), m_aKept(), m_nNext(0), m_Room{0, 0}, m_acUnderHeader(), m_bHeaderOver(false), m_aaViews(), m_anInView()
{
    for (stKeptFragment& fragment : m_aKept)
    {
        fragment.place = c_Elsewhere;
    }
}

CFragmentRing::~CFragmentRing() = default;

char* CFragmentRing::Room()
{
    PutBack();
    unsigned char* const pRoom = At(m_Room);
    Unpoison(pRoom, c_nMaxDatagram);
    std::memcpy(m_acUnderHeader, pRoom, m_Room.nShift > 0 ? sizeof m_acUnderHeader : 0);
    m_bHeaderOver = m_Room.nShift > 0;
    return reinterpret_cast<char*>(pRoom);
}

stKeptFragment CFragmentRing::Arrived(const char* pData, const RySocketIO::CIPString& sender)
{
    const unsigned char* const pBytes = reinterpret_cast<const unsigned char*>(pData);
    stKeptFragment fragment = {};
    std::memcpy(&fragment.header, pBytes, sizeof fragment.header);
    fragment.pPayload = pBytes + sizeof fragment.header;
    fragment.place = pBytes == At(m_Room) ? m_Room : c_Elsewhere;
    fragment.sender = sender;
    fragment.bUnfinished = true;
    PutBack();
    return fragment;
}

stKeptFragment CFragmentRing::Store(stKeptFragment fragment)
{
    Land(fragment);
    stKeptFragment& entry = m_aKept[m_nNext];
    const stKeptFragment oldest = entry;
    Use(oldest.place, -1);
    Use(fragment.place, 1);
    entry = fragment;
    m_nNext = (m_nNext + 1) % enKept;
    GoOnBehind(fragment);
    return oldest;
}

stKeptFragment* CFragmentRing::Newest(int nAge)
{
    stKeptFragment& fragment = m_aKept[(m_nNext - nAge + enKept) % enKept];
    return fragment.place.nSlot >= 0 ? &fragment : nullptr;
}

void CFragmentRing::Finish(std::uint32_t unMessageId)
{
    for (stKeptFragment& fragment : m_aKept)
    {
        fragment.bUnfinished = fragment.bUnfinished && fragment.header.unMessageId != unMessageId;
    }
}

const unsigned char* CFragmentRing::InPlace(stKeptFragment* const* ppTable, int nTotal, stKeptFragment& inHand)
{
    const unsigned char* const pLanded = inHand.place.nSlot >= 0 ? inHand.pPayload : At(m_Room) + c_nDatagramHeader;
    const auto payload = [&](int nEntry) { return ppTable[nEntry] == &inHand ? pLanded : ppTable[nEntry]->pPayload; };
    for (int nEntry = 1; nEntry < nTotal; ++nEntry)
    {
        if (payload(nEntry) != payload(nEntry - 1) + ppTable[nEntry - 1]->header.unPayloadLength)
        {
            return nullptr;
        }
    }
    if (inHand.header.unPayloadLength > std::uint32_t(c_nMaxPayload))
    {
        return nullptr;
    }
    Land(inHand);
    return payload(0);
}

void CFragmentRing::Keep(int nView, const stKeptFragment* const* ppTable, int nTotal)
{
    stPlace(&aPlaces)[c_nMaxFragments] = m_aaViews[nView];
    std::for_each(aPlaces, aPlaces + m_anInView[nView], [this](const stPlace& place) { Use(place, -1); });
    std::transform(ppTable, ppTable + nTotal, aPlaces, [](const stKeptFragment* pFragment) { return pFragment->place; });
    std::for_each(aPlaces, aPlaces + nTotal, [this](const stPlace& place) { Use(place, 1); });
    m_anInView[nView] = nTotal;
}

unsigned char* CFragmentRing::At(const stPlace& place) const
{
    return m_pSlots + std::ptrdiff_t(place.nSlot) * c_nMaxDatagram - std::ptrdiff_t(place.nShift) * c_nDatagramHeader;
}

// Brings a datagram that lies elsewhere into the room.
void CFragmentRing::Land(stKeptFragment& fragment)
{
    if (fragment.place.nSlot < 0)
    {
        unsigned char* const pPayload = At(m_Room) + c_nDatagramHeader;
        Unpoison(pPayload, c_nMaxPayload);
        std::memcpy(pPayload, fragment.pPayload, fragment.header.unPayloadLength);
        fragment.pPayload = pPayload;
        fragment.place = m_Room;
    }
}

// Shifted by more than one header, a datagram's payload begins in the slot before.
void CFragmentRing::Use(const stPlace& place, int nUsers)
{
    for (int nSlot = place.nSlot - (place.nShift > 1 ? 1 : 0); place.nSlot >= 0 && nSlot <= place.nSlot; ++nSlot)
    {
        m_aucUsers[nSlot] = static_cast<unsigned char>(m_aucUsers[nSlot] + nUsers);
    }
}

bool CFragmentRing::IsFree(int nSlot, int nCount) const
{
    return nSlot + nCount <= enSlots &&
           std::all_of(m_aucUsers + nSlot, m_aucUsers + nSlot + nCount, [](int nUsers) { return nUsers == 0; });
}

void CFragmentRing::GoOnBehind(const stKeptFragment& fragment)
{
    const stPlace behind = {fragment.place.nSlot + 1, fragment.place.nShift + 1};
    const bool bFull = fragment.header.unPayloadLength == std::uint32_t(c_nMaxPayload);
    if (bFull && IsFree(behind.nSlot, 1))
    {
        m_Room = behind;
    }
    else
    {
        BeginAfresh();
    }
}

// The first that is free: the traffic then goes round in as little memory as it needs, which the caches hold best.
void CFragmentRing::BeginAfresh()
{
    for (const int nCount : {int(c_nMaxFragments), 1})
    {
        for (int nSlot = 0; nSlot < enSlots; ++nSlot)
        {
            if (IsFree(nSlot, nCount))
            {
                m_Room = {nSlot, 0};
                return;
            }
        }
    }
}

void CFragmentRing::PutBack()
{
    std::memcpy(At(m_Room), m_acUnderHeader, m_bHeaderOver ? sizeof m_acUnderHeader : 0);
    m_bHeaderOver = false;
}
