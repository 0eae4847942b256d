#include "Network/UpdateLink.h"

#include "Terminal/Arguments.h"
#include "Terminal/Command.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr double c_dMillionthsOfPercent = stFaults::c_unAlways / 100.0;

std::int64_t MicrosecondsSince(tSteadyClock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::microseconds>(tSteadyClock::now() - start).count();
}

} // namespace

std::uint32_t Millionths(double dPercent)
{
    return static_cast<std::uint32_t>(std::lround(dPercent * c_dMillionthsOfPercent));
}

void AddFaultOptions(CCommand& command, stFaults& faults)
{
    static const struct
    {
        const char* szName;
        std::uint32_t stFaults::*pFault;
        const char* szHelp;
    } aShares[] = {
        {"--loss", &stFaults::unLoss, "Percent of the updates' datagrams that are lost"},
        {"--duplicate", &stFaults::unDuplicate, "Percent that arrive twice"},
        {"--corrupt", &stFaults::unCorrupt, "Percent of which a byte is wrong"},
        {"--truncate", &stFaults::unTruncate, "Percent that are cut short"},
    };
    for (const auto& share : aShares)
    {
        const auto set = [&faults, &share](double dPercent) { faults.*share.pFault = Millionths(dPercent); };
        command.Option(share.szName, set, share.szHelp).Within(0, 100).Default("0");
    }
    command.Option("--reorder", faults.unReorder, "A datagram may be held back behind up to so many later ones")
        .Within(0u, c_unMostReorder);
    command
        .Option(
            "--delay", [&faults](double dMilliseconds) { faults.nDelay = std::llround(dMilliseconds * 1000); },
            "Milliseconds that every datagram is under way")
        .Within(0, c_dLongestDelay)
        .Default("0");
}

CUpdateLink::CUpdateLink(const stMulticastLink& link, const stFaults& faults)
    : m_Link(link), m_Faults(faults), m_Network(faults), m_Socket(RySocketIO::enConnectionUDP, false, false),
      m_Start(tSteadyClock::now())
{
}

bool CUpdateLink::Open()
{
    return m_Socket.InitialiseLocalSockets(0, nullptr, m_Link.strInterface.c_str(), 1);
}

void CUpdateLink::Send(const UDP_PACKET& packet, long lLength)
{
    const std::int64_t nNow = MicrosecondsSince(m_Start);
    m_Network.Send(nNow, &packet, static_cast<std::size_t>(lLength));
    Put(m_Network.Receive(nNow));
    m_Network.TakeRecords(); // the counts are enough here
}

tSteadyClock::time_point CUpdateLink::SendDue(tSteadyClock::time_point later)
{
    Put(m_Network.Receive(MicrosecondsSince(m_Start)));
    const std::optional<std::int64_t> next = m_Network.NextArrival();
    return next.has_value() ? std::min(later, m_Start + std::chrono::microseconds(*next)) : later;
}

void CUpdateLink::SendRest()
{
    Put(m_Network.Flush());
}

std::string CUpdateLink::FaultsText() const
{
    const auto count = [this](enFault enWhat) { return Grouped(GetCount(enWhat)); };
    return Format("seed %u: of %s datagrams %s lost, %s duplicated, %s cut short, %s corrupted, %s held back; %s delivered",
                  m_Faults.unSeed, Grouped(m_Network.GetTaken()).c_str(), count(enFaultLost).c_str(),
                  count(enFaultDuplicated).c_str(), count(enFaultTruncated).c_str(), count(enFaultCorrupted).c_str(),
                  count(enFaultHeldBack).c_str(), Grouped(m_Network.GetDelivered()).c_str());
}

void CUpdateLink::Put(const std::vector<stArrival>& arrivals)
{
    for (const stArrival& arrival : arrivals)
    {
        const bool bSent =
            m_Socket.Send(m_Link.strGroup.c_str(), m_Link.unPort, reinterpret_cast<const char*>(arrival.bytes.data()),
                          static_cast<long>(arrival.bytes.size()));
        ++(bSent ? m_lSent : m_lRefused);
    }
}
