#include "ClientComms/MsgHandlerBase.h"

#include "ClientComms/FragmentRing.h"
#include "Runtime/Poison.h"
#include "RySocketIO/CUtility.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

using RySocketIO::CUtility;

namespace
{

void LogInvalidHeader(const UDP_PACKET_HEADER& header)
{
    CUtility::Debug("[CMsgHandlerBase::ValidatePacketSequence] invalid packet header: type (%d) sequence (%d) total (%d)",
                    int(header.nType), static_cast<int>(header.unPacketNumber), static_cast<int>(header.unTotal));
}

// The numbers of a header against each other. All but the type are unsigned, so that a negative one is a huge one.
bool IsHeaderValid(const UDP_PACKET_HEADER& header)
{
    return header.nType >= 0 && header.nType < c_nDatagramTypeLimit && header.unPacketNumber > 0 &&
           header.unPacketNumber <= header.unTotal && header.unTotal <= std::uint32_t(c_nMaxFragments);
}

} // namespace

static_assert(CMsgHandlerBase::enRingSize == int(CFragmentRing::enKept), "the ring is as large as it says");

CMsgHandlerBase::CMsgHandlerBase()
    : m_aRemoteAddresses(), m_nRemoteAddresses(0), m_pRing(new CFragmentRing), m_bStrictMatching(false)
{
}

CMsgHandlerBase::~CMsgHandlerBase() = default;

void CMsgHandlerBase::OnReceivedData(char*, long)
{
    CUtility::Debug("CMsgHandlerBase::OnReceivedData - override me");
}

void CMsgHandlerBase::SetRemoteAddress(const char* szAddress, int nSecond, int nPort)
{
    const std::size_t unLength = szAddress != nullptr ? strnlen(szAddress, enMaxAddressText) : std::size_t(enMaxAddressText);
    if (m_nRemoteAddresses >= enMaxRemoteAddresses || unLength >= enMaxAddressText)
    {
        return;
    }
    stRemoteAddress& entry = m_aRemoteAddresses[m_nRemoteAddresses]; // all zero
    std::memcpy(entry.acAddress, szAddress, unLength);
    entry.nSecond = nSecond;
    if (nPort != -1)
    {
        entry.nPort = nPort;
    }
    ++m_nRemoteAddresses;
}

void CMsgHandlerBase::ResetRemoteAddresses()
{
    std::fill(std::begin(m_aRemoteAddresses), std::end(m_aRemoteAddresses), stRemoteAddress());
    m_nRemoteAddresses = 0;
}

int CMsgHandlerBase::ValidatePacketSequence(const char* pData, long lLength, unsigned char** ppBuffer, int& nBufferSize)
{
    stJoining joining = {ppBuffer != nullptr ? *ppBuffer : nullptr, nBufferSize, enAnyType, enIntoBuffer, nullptr, 0};
    const int nResult = Reassemble(pData, lLength, joining, RySocketIO::CIPString());
    nBufferSize = joining.nSize;
    return nResult;
}

int CMsgHandlerBase::Reassemble(const char* pData, long lLength, stJoining& joining, const RySocketIO::CIPString& sender)
{
    CUtility::Debug("CMsgHandlerBase::ValidatePacketSequence - validating (lLength = %d) (m_nReceivedPackets = %d)",
                    static_cast<int>(lLength), m_pRing->NextIndex());
    CountDatagram(lLength);
    if (lLength < c_nDatagramHeader || pData == nullptr || joining.pBuffer == nullptr)
    {
        return Reject(enRejectedTooShort);
    }
    stKeptFragment inHand = m_pRing->Arrived(pData, sender);
    const UDP_PACKET_HEADER& header = inHand.header;
    if (!IsHeaderValid(header))
    {
        LogInvalidHeader(header);
        return Reject(enRejectedHeader);
    }
    m_Counters.CountType(header.nType);
    const std::uint32_t unCapacity = static_cast<std::uint32_t>(std::max(joining.nSize, 0));
    const bool bSingle = header.unTotal == 1;
    if (bSingle && header.unPayloadLength > unCapacity)
    {
        CUtility::Debug("[CMsgHandlerBase::ValidatePacketSequence] supplied buffer is too small to hold the rx packet; packet "
                        "(%d) bytes, buffer (%d) bytes.",
                        static_cast<int>(header.unPayloadLength), joining.nSize);
        return Reject(enRejectedBuffer);
    }
    if (header.unPayloadLength > static_cast<unsigned long>(lLength - c_nDatagramHeader))
    {
        LogInvalidHeader(header); // a payload that is not there
        return Reject(enRejectedPayload);
    }

    const int nTotal = static_cast<int>(header.unTotal);
    const stOrigin origin = {header.nType, header.unTotal, sender};
    stKeptFragment* apTable[c_nMaxFragments] = {};
    apTable[header.unPacketNumber - 1] = &inHand;
    const auto itself = [](stKeptFragment& fragment) { return &fragment; };
    if (!bSingle && !m_pRing->Locate(apTable, header.unMessageId, nTotal, m_bStrictMatching ? &origin : nullptr, itself))
    {
        if (lLength > c_nMaxDatagram)
        {
            LogInvalidHeader(header); // larger than a slot of the ring
            return Reject(enRejectedTooLarge);
        }
        m_Counters.Count(enCountStored);
        m_Counters.Count(enCountEvicted, m_pRing->Store(inHand).bUnfinished ? 1 : 0);
        return enNoMessage;
    }
    if (!Join(apTable, nTotal, inHand, joining))
    {
        CUtility::Debug("[CMsgHandlerBase::ValidatePacketSequence] fragmented message was too big to fit in the supplied buffer.");
        return Reject(enRejectedBuffer);
    }
    m_pRing->BeginAfresh();
    m_Counters.Count(enCountCompleting);
    if (!bSingle)
    {
        const auto isOther = [&](const stKeptFragment* pFragment) { return !pFragment->IsOf(origin); };
        m_Counters.Count(enCountMixed, std::any_of(apTable, apTable + nTotal, isOther) ? 1 : 0);
        m_pRing->Finish(header.unMessageId);
    }
    return header.nType;
}

char* CMsgHandlerBase::DatagramRoom()
{
    return m_pRing->Room();
}

void CMsgHandlerBase::ReleaseView(int nView)
{
    m_pRing->Keep(nView, nullptr, 0);
}

void CMsgHandlerBase::SetStrictMatching(bool bStrict)
{
    m_bStrictMatching = bStrict;
}

stReceiveStatistics CMsgHandlerBase::GetStatistics() const
{
    return m_Counters.Read();
}

bool CMsgHandlerBase::LocatePacketsOfMessage(const UDP_PACKET** ppTable, long lMessageId, int nTotal)
{
    if (ppTable == nullptr || nTotal < 1 || nTotal > c_nMaxFragments)
    {
        return false;
    }
    if (m_pLocated == nullptr)
    {
        m_pLocated.reset(new (std::nothrow) UDP_PACKET[c_nMaxFragments]);
    }
    const auto show = [this](const stKeptFragment& fragment)
    {
        UDP_PACKET* const pPacket = m_pLocated.get() + (fragment.header.unPacketNumber - 1);
        pPacket->header = fragment.header;
        Unpoison(fragment.pPayload, fragment.header.unPayloadLength);
        std::memcpy(pPacket->acPayload, fragment.pPayload, fragment.header.unPayloadLength);
        return pPacket;
    };
    return m_pLocated != nullptr && m_pRing->Locate(ppTable, static_cast<std::uint32_t>(lMessageId), nTotal, nullptr, show);
}

bool CMsgHandlerBase::QueuePPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float fValue)
{
    return QueueRecord({enType, enPathType, nPath, nParam}, fValue);
}

bool CMsgHandlerBase::QueuePPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue)
{
    return QueueRecord({enType, enPathType, nPath, nParam}, nValue);
}

bool CMsgHandlerBase::QueuePPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                               const RyGConsoleString& strValue)
{
    return QueueRecord({enType, enPathType, nPath, nParam}, strValue);
}

bool CMsgHandlerBase::QueuePPC(const CRawPPCMsg& message)
{
    if (message.HaveError(nullptr) || message.Value() == nullptr || message.GetTotalSize() > c_nMaxPayload ||
        message.GetTotalSize() < 0)
    {
        CUtility::Debug("CMsgHandlerBase::QueuePPC - refused: a message that could never be sent");
        return false;
    }
    std::unique_ptr<CRawPPCMsg[]> pMessage(new (std::nothrow) CRawPPCMsg[1]);
    if (pMessage != nullptr)
    {
        pMessage[0] = message;
    }
    return Enqueue(std::move(pMessage));
}

int CMsgHandlerBase::GetPPCBufferSize()
{
    const CLockGuard<CCritSec> guard(m_PPCBufferLock);
    return guard.IsHeld() ? m_PPCBuffer.GetQueueSize() : 0;
}

void CMsgHandlerBase::ClearPPCBuffer()
{
    const CLockGuard<CCritSec> guard(m_PPCBufferLock);
    if (guard.IsHeld())
    {
        m_PPCBuffer.ClearQueue();
    }
}

template <typename T>
bool CMsgHandlerBase::QueueRecord(const stPPCAddress& address, const T& value)
{
    std::unique_ptr<CRawPPCMsg[]> pMessage(new (std::nothrow) CRawPPCMsg[1]);
    const bool bNamed = IsParameterAddress(address.enType, address.enPathType, address.nPath, address.nParam);
    const bool bMade = bNamed && pMessage != nullptr &&
                       pMessage[0].SetPPC(address.enType, address.enPathType, address.nPath, address.nParam, value);
    if (!bNamed || (pMessage != nullptr && !bMade && !pMessage[0].HaveError(nullptr)))
    {
        CUtility::Debug("CMsgHandlerBase::QueuePPC - refused: msg type (%d), path type (%d), path (%d), parameter (%d)",
                        static_cast<int>(address.enType), static_cast<int>(address.enPathType), address.nPath, address.nParam);
        return false;
    }
    return Enqueue(std::move(pMessage));
}

// Null is a message for which there was no memory, and so is one with an error.
bool CMsgHandlerBase::Enqueue(std::unique_ptr<CRawPPCMsg[]> pMessage)
{
    if (pMessage != nullptr && !pMessage[0].HaveError(nullptr))
    {
        const CLockGuard<CCritSec> guard(m_PPCBufferLock);
        if (guard.IsHeld() && m_PPCBuffer.AddMsgToTail(pMessage.get()))
        {
            pMessage.release(); // the queue's
            return true;
        }
    }
    CUtility::Debug("CMsgHandlerBase::QueuePPC - no memory");
    return false;
}

// Joins a complete table where it lies, or in the buffer; or does nothing when the buffer is too small for it.
bool CMsgHandlerBase::Join(stKeptFragment* const* ppTable, int nTotal, stKeptFragment& inHand, stJoining& joining)
{
    std::int64_t nLength = 0;
    for (int nEntry = 0; nEntry < nTotal; ++nEntry)
    {
        nLength += ppTable[nEntry]->header.unPayloadLength;
    }
    if (nLength > std::max(joining.nSize, 0))
    {
        return false;
    }
    joining.nSize = static_cast<int>(nLength);
    joining.unMessageId = inHand.header.unMessageId;
    if (joining.nWantedType != enAnyType && joining.nWantedType != inHand.header.nType)
    {
        return true;
    }
    joining.pMessage = joining.nView != enIntoBuffer ? m_pRing->InPlace(ppTable, nTotal, inHand) : nullptr;
    const bool bInPlace = joining.pMessage != nullptr;
    if (joining.nView != enIntoBuffer)
    {
        m_pRing->Keep(joining.nView, ppTable, bInPlace ? nTotal : 0);
    }
    if (!bInPlace)
    {
        joining.pMessage = joining.pBuffer;
        unsigned char* pTo = joining.pBuffer;
        for (int nEntry = 0; nEntry < nTotal; ++nEntry)
        {
            const std::size_t unPayload = ppTable[nEntry]->header.unPayloadLength;
            Unpoison(ppTable[nEntry]->pPayload, unPayload);
            std::memmove(pTo, ppTable[nEntry]->pPayload, unPayload);
            pTo += unPayload;
        }
    }
    return true;
}

void CMsgHandlerBase::CountDatagram(long lLength)
{
    m_Counters.Count(enCountDatagrams);
    m_Counters.Count(enCountBytes, static_cast<std::uint32_t>(std::max(lLength, 0L)));
}

int CMsgHandlerBase::Reject(enReceiveCounter enReason)
{
    m_Counters.Count(enReason);
    return enNoMessage;
}
