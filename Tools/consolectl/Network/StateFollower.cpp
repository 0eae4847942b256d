#include "Network/StateFollower.h"

#include <cstring>

namespace
{

constexpr std::uint32_t c_unFresh = 1000; // milliseconds

} // namespace

CStateFollower::CStateFollower(CBMAContainer& image)
    : CImageFollower(image), m_Start(tSteadyClock::now()), m_aunBegun(), m_aunCame(), m_aunCount()
{
}

CStateFollower::~CStateFollower()
{
    Shutdown();
}

std::uint32_t CStateFollower::Now() const
{
    return static_cast<std::uint32_t>(SecondsSince(m_Start) * 1000) + 1;
}

// A message's first fragment tells what it carries.
void CStateFollower::OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender)
{
    struct
    {
        UDP_PACKET_HEADER datagram;
        stMCUpdateHeader update;
    } headers;
    if (pData != nullptr && lLength >= long(sizeof headers))
    {
        std::memcpy(&headers, pData, sizeof headers);
        const int nUpdateType = headers.update.nUpdateType;
        if (headers.datagram.nType == enDatagramMCUpdate && headers.datagram.unPacketNumber == 1u && nUpdateType >= 0)
        {
            const stCarriedArrays carried = CarriedArrays(nUpdateType);
            for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
            {
                m_aunBegun[nType] = Now();
            }
        }
    }
    CImageFollower::OnReceivedData(pData, lLength, sender);
}

int CStateFollower::ProcessMCUpdate(const CMCUpdateMsg& update)
{
    const int nResult = CImageFollower::ProcessMCUpdate(update);
    const stCarriedArrays carried = CarriedArrays(update.GetUpdateType());
    for (int nType = carried.nFirst; nType <= carried.nLast && nResult == enApplied; ++nType)
    {
        m_aunCame[nType] = Now();
        ++m_aunCount[nType];
    }
    return nResult;
}

enTypeState CStateFollower::GetState(tagenPPCMessageType enType) const
{
    const std::uint32_t unCame = m_aunCame[enType];
    const std::uint32_t unBegun = m_aunBegun[enType];
    const std::uint32_t unNow = Now();
    return unCame != 0 && unNow - unCame < c_unFresh     ? enTypeComplete
           : unBegun != 0 && unNow - unBegun < c_unFresh ? enTypePartial
           : unCame != 0                                 ? enTypeStale
                                                         : enTypeWaiting;
}

double CStateFollower::GetAge(tagenPPCMessageType enType) const
{
    const std::uint32_t unCame = m_aunCame[enType];
    return unCame == 0 ? -1 : (Now() - unCame) / 1000.0;
}

std::string CStateFollower::StatesText() const
{
    std::string strText;
    for (const enTypeState enState : {enTypeWaiting, enTypePartial, enTypeStale})
    {
        std::string strTypes;
        for (int nType = 0; nType < c_nMessageTypes; ++nType)
        {
            const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
            if (GetState(enType) == enState)
            {
                strTypes +=
                    std::string(" ") + caMessageTypeNames[nType] + (GetAge(enType) < 0 ? "" : Format(" %.1f s", GetAge(enType)));
            }
        }
        if (!strTypes.empty())
        {
            strText += (strText.empty() ? "" : "; ") + std::string(TypeStateText(enState)) + ":" + strTypes;
        }
    }
    return strText.empty() ? "all complete" : strText;
}

const char* TypeStateText(enTypeState enState)
{
    static const char* const caTexts[] = {"waiting", "partial", "complete", "stale"};
    return caTexts[enState];
}

void PrintStatistics(const CImageFollower& follower)
{
    const stReceiveStatistics statistics = follower.GetStatistics();
    for (int nCounter = 0; nCounter < enReceiveCounterCount; ++nCounter)
    {
        const std::uint32_t unCount = statistics.aunCount[nCounter];
        if (unCount != 0)
        {
            Line("%14s  %s", Grouped(unCount).c_str(), ReceiveCounterText(static_cast<enReceiveCounter>(nCounter)));
        }
    }
    for (const auto* pSender = statistics.aSenders; pSender != statistics.aSenders + statistics.nSenders; ++pSender)
    {
        Line("%14s  datagrams from %s, %s bytes", Grouped(pSender->unDatagrams).c_str(), pSender->address.Text(),
             Grouped(pSender->unBytes).c_str());
    }
}
