#include "ClientComms/MsgHandlerBase.h"

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

CMsgHandlerBase::CMsgHandlerBase()
    : m_aRemoteAddresses(), m_nRemoteAddresses(0), m_aRing(), m_nReceivedPackets(0), m_abUnfinished(), m_bStrictMatching(false)
{
    for (UDP_PACKET& slot : m_aRing)
    {
        slot.header.nType = enFreeSlot;
    }
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
    return Reassemble(pData, lLength, ppBuffer, nBufferSize, enAnyType, RySocketIO::CIPString());
}

int CMsgHandlerBase::Reassemble(const char* pData, long lLength, unsigned char** ppBuffer, int& nBufferSize, int nWantedType,
                                const RySocketIO::CIPString& sender)
{
    CUtility::Debug("CMsgHandlerBase::ValidatePacketSequence - validating (lLength = %d) (m_nReceivedPackets = %d)",
                    static_cast<int>(lLength), m_nReceivedPackets);
    CountDatagram(lLength);
    if (lLength < c_nDatagramHeader || pData == nullptr || ppBuffer == nullptr || *ppBuffer == nullptr)
    {
        return Reject(enRejectedTooShort);
    }
    // The overlay has no alignment; only the lLength bytes that are there are looked at.
    const UDP_PACKET* pPacket = reinterpret_cast<const UDP_PACKET*>(pData);
    const UDP_PACKET_HEADER& header = pPacket->header;
    if (!IsHeaderValid(header))
    {
        LogInvalidHeader(header);
        return Reject(enRejectedHeader);
    }
    m_Counters.CountType(header.nType);
    const std::uint32_t unCapacity = static_cast<std::uint32_t>(std::max(nBufferSize, 0));
    const bool bSingle = header.unTotal == 1;
    if (bSingle && header.unPayloadLength > unCapacity)
    {
        CUtility::Debug("[CMsgHandlerBase::ValidatePacketSequence] supplied buffer is too small to hold the rx packet; packet "
                        "(%d) bytes, buffer (%d) bytes.",
                        static_cast<int>(header.unPayloadLength), nBufferSize);
        return Reject(enRejectedBuffer);
    }
    if (header.unPayloadLength > static_cast<unsigned long>(lLength - c_nDatagramHeader))
    {
        LogInvalidHeader(header); // a payload that is not there
        return Reject(enRejectedPayload);
    }

    const int nTotal = static_cast<int>(header.unTotal);
    const stOrigin origin = {header.nType, header.unTotal, sender};
    const UDP_PACKET* apTable[c_nMaxFragments] = {};
    apTable[header.unPacketNumber - 1] = pPacket;
    if (!bSingle && !Locate(apTable, header.unMessageId, nTotal, m_bStrictMatching ? &origin : nullptr))
    {
        if (lLength > c_nMaxDatagram)
        {
            LogInvalidHeader(header); // larger than a slot of the ring
            return Reject(enRejectedTooLarge);
        }
        StoreFragment(pData, lLength, sender);
        return enNoMessage;
    }
    const bool bCopy = nWantedType == enAnyType || header.nType == nWantedType;
    if (!JoinFragments(apTable, nTotal, *ppBuffer, nBufferSize, bCopy))
    {
        CUtility::Debug("[CMsgHandlerBase::ValidatePacketSequence] fragmented message was too big to fit in the supplied buffer.");
        return Reject(enRejectedBuffer);
    }
    CountCompleting(apTable, header.unMessageId, origin);
    return header.nType;
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
    return ppTable != nullptr && nTotal >= 1 && nTotal <= c_nMaxFragments &&
           Locate(ppTable, static_cast<std::uint32_t>(lMessageId), nTotal, nullptr);
}

bool CMsgHandlerBase::IsOf(int nSlot, const stOrigin& origin) const
{
    const UDP_PACKET_HEADER& header = m_aRing[nSlot].header;
    return header.nType == origin.nType && header.unTotal == origin.unTotal && m_aSenders[nSlot] == origin.sender;
}

// With an origin, fragments of that origin alone.
bool CMsgHandlerBase::Locate(const UDP_PACKET** ppTable, std::uint32_t unMessageId, int nTotal, const stOrigin* pOrigin) const
{
    const auto missing = [&] { return std::count(ppTable, ppTable + nTotal, nullptr); };
    for (int nAge = 1; nAge <= enRingSize && missing() != 0; ++nAge)
    {
        const int nSlot = (m_nReceivedPackets - nAge + enRingSize) % enRingSize;
        const UDP_PACKET& slot = m_aRing[nSlot];
        const std::uint32_t unNumber = slot.header.unPacketNumber;
        const bool bMatches = slot.header.unMessageId == unMessageId && unNumber <= static_cast<std::uint32_t>(nTotal) &&
                              (pOrigin == nullptr || IsOf(nSlot, *pOrigin));
        if (slot.header.nType != enFreeSlot && bMatches && ppTable[unNumber - 1] == nullptr)
        {
            ppTable[unNumber - 1] = &slot;
        }
    }
    return missing() == 0;
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

// Joins a complete table, or writes nothing when the buffer is too small for all of it.
bool CMsgHandlerBase::JoinFragments(const UDP_PACKET* const* ppTable, int nTotal, unsigned char* pBuffer, int& nBufferSize,
                                    bool bCopy)
{
    std::int64_t nLength = 0;
    for (int nEntry = 0; nEntry < nTotal; ++nEntry)
    {
        nLength += ppTable[nEntry]->header.unPayloadLength;
    }
    if (nLength > std::max(nBufferSize, 0))
    {
        return false;
    }
    for (int nEntry = 0; bCopy && nEntry < nTotal; ++nEntry)
    {
        const std::size_t unPayload = ppTable[nEntry]->header.unPayloadLength;
        std::memmove(pBuffer, ppTable[nEntry]->acPayload, unPayload);
        pBuffer += unPayload;
    }
    nBufferSize = static_cast<int>(nLength);
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

void CMsgHandlerBase::StoreFragment(const char* pData, long lLength, const RySocketIO::CIPString& sender)
{
    m_Counters.Count(enCountStored);
    m_Counters.Count(enCountEvicted, m_abUnfinished[m_nReceivedPackets] ? 1 : 0);
    std::memcpy(&m_aRing[m_nReceivedPackets], pData, static_cast<std::size_t>(lLength));
    m_aSenders[m_nReceivedPackets] = sender;
    m_abUnfinished[m_nReceivedPackets] = true;
    m_nReceivedPackets = (m_nReceivedPackets + 1) % enRingSize;
}

void CMsgHandlerBase::CountCompleting(const UDP_PACKET* const* ppTable, std::uint32_t unMessageId, const stOrigin& origin)
{
    m_Counters.Count(enCountCompleting);
    if (origin.unTotal == 1)
    {
        return;
    }
    bool bMixed = false;
    for (int nSlot = 0; nSlot < enRingSize; ++nSlot)
    {
        const bool bJoined = std::find(ppTable, ppTable + origin.unTotal, &m_aRing[nSlot]) != ppTable + origin.unTotal;
        bMixed = bMixed || (bJoined && !IsOf(nSlot, origin));
        m_abUnfinished[nSlot] = m_abUnfinished[nSlot] && m_aRing[nSlot].header.unMessageId != unMessageId;
    }
    m_Counters.Count(enCountMixed, bMixed ? 1 : 0);
}
