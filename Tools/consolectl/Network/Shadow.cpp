#include "Network/Shadow.h"

#include "Images/Difference.h"

#include <algorithm>
#include <cstring>

namespace
{

constexpr std::int64_t c_nAnswerTime = 5000000; // microseconds that an MC takes at most to show what a client asked for

constexpr std::size_t c_unMostPending = 256; // of a parameter

// The value of a record; false when it is too short for its type.
bool ReadRecord(const CPPCStreamReader& reader, tagenPPCMessageType enType, stValue& value)
{
    return enType == enString                        ? reader.GetValue(value.strValue)
           : enType == enRotary || enType == enFader ? reader.GetValue(value.fValue)
                                                     : reader.GetValue(value.nValue);
}

UDP_PACKET_HEADER ReadHeader(const stDatagram& datagram)
{
    UDP_PACKET_HEADER header;
    std::memcpy(&header, datagram.bytes.data(), sizeof header);
    return header;
}

} // namespace

CShadow::CShadow(const stMulticastLink& updates)
    : m_Updates(MakeEndpoint(updates.strGroup, updates.unPort)), m_ChangesGroup(MakeEndpoint(c_szPPCGroup, c_unPPCPort)),
      m_pImage(std::make_unique<CBMAContainer>()), m_pBefore(std::make_unique<CBMAContainer>()),
      m_pFollower(std::make_unique<CStateFollower>(*m_pImage)), m_pRequestHandler(std::make_unique<CMsgHandlerBase>()),
      m_RequestBuffer(c_nMaxPayload * c_nMaxFragments)
{
}

void CShadow::Take(stDatagram& datagram)
{
    m_Changes.clear();
    m_Requests.clear();
    if (datagram.destination == m_Updates)
    {
        TakeUpdate(datagram);
    }
    else if (datagram.destination == m_ChangesGroup)
    {
        TakeRequests(datagram);
    }
}

void CShadow::TakeUpdate(stDatagram& datagram)
{
    LetOrderLapse(datagram);
    const unsigned int unTypesBefore = m_pFollower->GetTypesReceived();
    const std::uint32_t unBefore = m_pFollower->GetUpdatesApplied();
    m_pFollower->OnReceivedData(reinterpret_cast<char*>(datagram.bytes.data()), static_cast<long>(datagram.bytes.size()),
                                datagram.source.AddressText().c_str());
    if (m_pFollower->UpdateBMA() == CClientMsgHandler::enUpdateDecodeError)
    {
        m_pFollower->ClearReceiveErrors();
    }
    if (m_pFollower->GetUpdatesApplied() != unBefore)
    {
        m_MC = datagram.source;
        m_unUpdateId = ReadHeader(datagram).unMessageId;
        m_nUpdateTime = datagram.nTime;
        m_TookUpdate = tSteadyClock::now();
        FindChanges(datagram, unTypesBefore);
    }
}

// An MC that began anew, with lower numbers, is heard again when a second has passed since the last update that was applied. In a
// capture that is read in no time that second is waited for.
void CShadow::LetOrderLapse(const stDatagram& datagram)
{
    constexpr double c_dLapse = std::chrono::duration<double>(CUpdateOrder::c_IdsCount).count();
    if (datagram.bytes.size() < sizeof(UDP_PACKET_HEADER))
    {
        return;
    }
    const bool bLower = static_cast<std::int32_t>(ReadHeader(datagram).unMessageId - m_unUpdateId) < 0;
    if (bLower && m_nUpdateTime != 0 && static_cast<double>(datagram.nTime - m_nUpdateTime) / 1e6 > c_dLapse)
    {
        SleepSeconds(c_dLapse - SecondsSince(m_TookUpdate));
    }
}

void CShadow::FindChanges(const stDatagram& datagram, unsigned int unTypesBefore)
{
    const UDP_PACKET_HEADER header = ReadHeader(datagram); // it was good enough to complete an update
    bool bAny = m_pFollower->GetTypesReceived() != unTypesBefore;
    for (const stAddress& address : FindDifferences(*m_pBefore, *m_pImage))
    {
        bAny = true;
        if ((unTypesBefore & 1u << address.enType) != 0)
        {
            const stValue after = ReadValue(*m_pImage, address);
            m_Changes.push_back({datagram.nTime, address, ReadValue(*m_pBefore, address), after, datagram.source,
                                 header.unMessageId, TakeClientOf(address, after, datagram.nTime)});
        }
    }
    if (bAny)
    {
        *m_pBefore = *m_pImage;
    }
}

void CShadow::TakeRequests(const stDatagram& datagram)
{
    unsigned char* pBuffer = m_RequestBuffer.data();
    int nSize = static_cast<int>(m_RequestBuffer.size());
    const int nType = m_pRequestHandler->ValidatePacketSequence(reinterpret_cast<const char*>(datagram.bytes.data()),
                                                                static_cast<long>(datagram.bytes.size()), &pBuffer, nSize);
    if (nType != enDatagramPPC && nType != enDatagramPPCFlagged)
    {
        return;
    }
    const UDP_PACKET_HEADER header = ReadHeader(datagram);
    CPPCStreamReader reader(pBuffer, nSize);
    for (int nRecord = 0; reader.Next(); ++nRecord)
    {
        const stAddress address = reader.Address();
        stValue value;
        if (IsParameterAddress(address.enType, address.enPathType, address.nPath, address.nParam) &&
            ReadRecord(reader, address.enType, value))
        {
            m_Requests.push_back({datagram.nTime, address, value, datagram.source, header.unMessageId, nType, nRecord});
            std::deque<stRequest>& requests = m_Pending[{address.enType, NumberOf(address)}];
            requests.push_back({value, datagram.source, datagram.nTime});
            if (requests.size() > c_unMostPending)
            {
                requests.pop_front();
            }
        }
    }
}

// The newest request for this value. Those before it have been overtaken.
stEndpoint CShadow::TakeClientOf(const stAddress& address, const stValue& value, std::int64_t nTime)
{
    const auto found = m_Pending.find({address.enType, NumberOf(address)});
    if (found == m_Pending.end())
    {
        return {};
    }
    std::deque<stRequest>& requests = found->second;
    const auto isIt = [&](const stRequest& request)
    { return SameValue(address, request.value, value) && nTime - request.nTime <= c_nAnswerTime; };
    const auto request = std::find_if(requests.rbegin(), requests.rend(), isIt);
    if (request == requests.rend())
    {
        return {};
    }
    const stEndpoint client = request->client;
    requests.erase(requests.begin(), request.base());
    return client;
}
