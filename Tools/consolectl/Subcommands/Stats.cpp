// consolectl stats: who sent what, how fast, and what was lost on the way.
#include "Network/KernelFiles.h"
#include "Network/LossFinder.h"
#include "Network/LossLayers.h"
#include "Network/Shadow.h"
#include "Network/TrafficOptions.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Output.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include <unistd.h>

namespace
{

constexpr std::size_t c_unMostFlows = 1000; // that are told apart

struct stOptions
{
    stTrafficOptions traffic;
    stLimits limits;
};

// What one sender sent of one kind.
struct stFlow
{
    long lDatagrams = 0;
    double dBytes = 0;
};

class CStats
{
public:
    explicit CStats(const stOptions& options) : m_Options(options), m_Shadow(options.traffic.link) {}

    int Run();

private:
    void Take(stDatagram& datagram);
    void PrintLost(const std::vector<stLostMessage>& lost);
    long PrintFlows(); // returns how many sent updates
    void PrintLayers(const stTrafficLoss& loss);
    void PrintOthers();
    void Row(const std::string& strSender, const char* szKind, const std::string& strWhat, long lCount, double dBytes = -1);
    double Seconds() const { return std::max(static_cast<double>(m_nLast - m_nFirst) / 1e6, 0.0); }

    const stOptions& m_Options;
    CShadow m_Shadow;
    CLossFinder m_LossFinder;
    std::map<std::pair<std::string, std::string>, stFlow> m_Flows; // by sender and kind
    CTable m_Table{
        {{"time", 12, true}, {"sender", 19}, {"kind", 10}, {"count", -9}, {"rate", -8}, {"byte_rate", -12, true}, {"what", 24}}};
    std::int64_t m_nFirst = TimeNow();
    std::int64_t m_nLast = m_nFirst;
    std::map<std::pair<std::string, int>, long> m_Types; // updates that brought one, by sender and message type
    std::uint32_t m_aunCounted[c_nMessageTypes] = {};
    long m_lDatagrams = 0;
    long m_lLost = 0;
};

void CStats::Row(const std::string& strSender, const char* szKind, const std::string& strWhat, long lCount, double dBytes)
{
    const bool bRates = Seconds() > 0;
    m_Table.Print({CCell::Time(m_nLast), strSender, szKind, lCount,
                   bRates ? CCell(static_cast<double>(lCount) / Seconds(), 1) : CCell(),
                   bRates && dBytes >= 0 ? CCell(std::lround(dBytes / Seconds())) : CCell(), strWhat});
}

void CStats::Take(stDatagram& datagram)
{
    m_nFirst = m_lDatagrams == 0 ? datagram.nTime : m_nFirst;
    m_nLast = datagram.nTime;
    ++m_lDatagrams;
    const bool bMany = m_Flows.size() >= c_unMostFlows;
    stFlow& flow = m_Flows[{bMany ? "others" : datagram.source.Text(), KindOf(datagram)}];
    ++flow.lDatagrams;
    flow.dBytes += static_cast<double>(datagram.bytes.size());
    PrintLost(m_LossFinder.Take(datagram));
    m_Shadow.Take(datagram);
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const std::uint32_t unCount = m_Shadow.Follower().GetCount(static_cast<tagenPPCMessageType>(nType));
        if (unCount != m_aunCounted[nType])
        {
            m_Types[{bMany ? "others" : datagram.source.Text(), nType}] += static_cast<long>(unCount - m_aunCounted[nType]);
            m_aunCounted[nType] = unCount;
        }
    }
}

void CStats::PrintLost(const std::vector<stLostMessage>& lost)
{
    for (const stLostMessage& message : lost)
    {
        m_Table.Print({CCell::Time(message.nTime), message.sender.Text(), CCell(enBad, "lost"), 1, CCell(), CCell(),
                       Format("message %u: %s", message.unMessageId, message.Text().c_str())});
        ++m_lLost;
    }
}

long CStats::PrintFlows()
{
    long lMCs = 0;
    for (const auto& entry : m_Flows)
    {
        lMCs += entry.first.second == "updates" ? 1 : 0;
        Row(entry.first.first, "datagrams", entry.first.second, entry.second.lDatagrams, entry.second.dBytes);
    }
    for (const auto& entry : m_Types)
    {
        Row(entry.first.first, "type", caMessageTypeNames[entry.first.second], entry.second);
    }
    const stReceiveStatistics statistics = m_Shadow.Follower().GetStatistics();
    // What becomes of them is counted for all MCs that there are.
    Row("", "updates", "whole messages", statistics.aunCount[enCountUpdates]);
    Row("", "updates", "applied to the image", m_Shadow.Follower().GetUpdatesApplied());
    Row("", "updates", "overtaken by newer ones", m_Shadow.Follower().GetUpdatesOvertaken());
    return lMCs;
}

// What the kernel dropped of those who listen on this machine, since they began: a follower that runs is one of them.
void CStats::PrintOthers()
{
    for (const stProcess& process :
         m_Options.traffic.strCapture.empty() ? FindHolders(m_Options.traffic.link.unPort) : std::vector<stProcess>())
    {
        if (process.nId != getpid())
        {
            m_Table.Print({CCell::Time(m_nLast), "", "kernel", static_cast<long>(process.ulDropped), CCell(), CCell(),
                           Format("of %s (process %d), since it began", process.strName.c_str(), process.nId)});
        }
    }
}

void CStats::PrintLayers(const stTrafficLoss& loss)
{
    Row("", "kernel", "the receive buffer was full", loss.unKernel);
    PrintOthers();
    Row("", "frame size", "longer than a datagram, or cut short", loss.unSize);
    const stReceiveStatistics statistics = m_Shadow.Follower().GetStatistics();
    for (const stLossLayer& layer : c_aLossLayers)
    {
        Row("", layer.szLayer, ReceiveCounterText(layer.enCounter), statistics.aunCount[layer.enCounter]);
    }
    Row("", "fragments", "messages that never came whole", m_lLost);
}

int CStats::Run()
{
    const std::unique_ptr<CTraffic> pTraffic = OpenTraffic(m_Options.traffic);
    if (pTraffic == nullptr)
    {
        return enExitFailed;
    }
    m_Table.PrintHead();
    TakeAll(*pTraffic, m_Options.limits, m_lDatagrams, [this](stDatagram& datagram) { Take(datagram); });
    PrintLost(m_LossFinder.Finish(m_nLast));
    if (PrintFlows() > 1)
    {
        Line("several senders of updates: either an MC began anew, or there are two, which meet in every client's image");
    }
    PrintLayers(pTraffic->GetLoss());
    Line("%s in %.3f s, %s lost", Counted(m_lDatagrams, "datagrams").c_str(), Seconds(), Counted(m_lLost, "messages").c_str());
    return TrafficStatus(*pTraffic, m_Options.limits, m_lDatagrams, "datagrams");
}

} // namespace

void AddStats(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add(
        "stats", "Who sends what and how fast, and what is lost in which layer: each lost message in a line of its own");
    AddTrafficOptions(command, pOptions->traffic);
    AddLimitOptions(command, pOptions->limits, "datagrams");
    AddFormatOption(command);
    command.Footer("consolectl stats --timeout 5\n"
                   "consolectl stats --capture FILE.pcap");
    command.RunsUntilStopped([pOptions] { return std::make_unique<CStats>(*pOptions)->Run(); });
}
