// consolectl why: every write to one parameter.
#include "Images/Cells.h"
#include "Network/Shadow.h"
#include "Network/TrafficOptions.h"
#include "Subcommands/Subcommands.h"

#include <memory>

namespace
{

struct stOptions
{
    stTrafficOptions traffic;
    stLimits limits;
    std::string strAddress;
};

class CWhy
{
public:
    explicit CWhy(const stOptions& options)
        : m_Options(options), m_Address(ParseAddress(options.strAddress)), m_Shadow(options.traffic.link)
    {
    }

    int Run();

private:
    void Take(stDatagram& datagram);
    void PrintRequest(const stClientChange& request);
    void PrintChange(const stImageChange& change);
    bool IsIt(const stAddress& address) const
    {
        return address.enType == m_Address.enType && NumberOf(address) == NumberOf(m_Address);
    }

    const stOptions& m_Options;
    const stAddress m_Address;
    const bool m_bFiltered = SimpleUDPPPCSender()._FilterPacket(m_Address.enType, m_Address.enPathType, m_Address.nParam);
    CShadow m_Shadow;
    CTable m_Table{{{"time", 12},
                    {"sender", 21},
                    {"address", 0},
                    {"write", 15},
                    {"old", -11},
                    {"new", -11},
                    {"datagram", 48},
                    {"filter", 36}}};
    long m_lDatagram = 0; // what is written comes from it; of an update, from its last
    long m_lWrites = 0;
};

// One that is on the list may still come: the queue has no filter, and others may send what they like.
void CWhy::PrintRequest(const stClientChange& request)
{
    const char* const szDatagram = request.nDatagramType == enDatagramPPCFlagged ? "flagged change" : "changes";
    m_Table.Print({CCell::Time(request.nTime), request.client.Text(), AddressText(m_Address), "client asks for", CCell(),
                   ValueCell(m_Address, request.value),
                   Format("datagram %ld: %s, message %u, record %d", m_lDatagram, szDatagram, request.unMessageId, request.nRecord),
                   m_bFiltered ? "sent, though on the fixed filter list" : "sent"});
    ++m_lWrites;
}

void CWhy::PrintChange(const stImageChange& change)
{
    const std::string strWrite = change.client == stEndpoint() ? "MC changes" : "MC grants";
    m_Table.Print({CCell::Time(change.nTime), change.sender.Text(), AddressText(m_Address), strWrite,
                   ValueCell(m_Address, change.before), ValueCell(m_Address, change.after),
                   Format("datagram %ld: update, message %u", m_lDatagram, change.unMessageId), "updates have no filter"});
    ++m_lWrites;
}

void CWhy::Take(stDatagram& datagram)
{
    m_lDatagram = datagram.lNumber;
    m_Shadow.Take(datagram);
    for (const stClientChange& request : m_Shadow.GetRequests())
    {
        if (IsIt(request.address))
        {
            PrintRequest(request);
        }
    }
    for (const stImageChange& change : m_Shadow.GetChanges())
    {
        if (IsIt(change.address))
        {
            PrintChange(change);
        }
    }
}

int CWhy::Run()
{
    const std::unique_ptr<CTraffic> pTraffic = OpenTraffic(m_Options.traffic);
    if (pTraffic == nullptr)
    {
        return enExitFailed;
    }
    Line("%s: what a client sets with the simple sender is %s", AddressText(m_Address).c_str(),
         m_Address.enType == enMeter ? "not sent: meters are set by the MC alone"
         : m_bFiltered               ? "not sent: fixed filter list"
                                     : "sent");
    m_Table.PrintHead();
    TakeAll(*pTraffic, m_Options.limits, m_lWrites, [this](stDatagram& datagram) { Take(datagram); });
    const bool bKnown = (m_Shadow.Follower().GetTypesReceived() & 1u << m_Address.enType) != 0;
    Line("%s; %s in the end, after %s", Counted(m_lWrites, "writes").c_str(),
         bKnown ? ValueText(m_Address, ReadValue(m_Shadow.Image(), m_Address)).c_str() : "not known",
         Counted(m_Shadow.Follower().GetUpdatesApplied(), "updates").c_str());
    return TrafficStatus(*pTraffic, m_Options.limits, m_lWrites, "writes");
}

} // namespace

void AddWhy(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add(
        "why", "Why a parameter is as it is: each write to it, who sent it in which datagram, and what the send filter says");
    AddTrafficOptions(command, pOptions->traffic);
    AddLimitOptions(command, pOptions->limits, "writes");
    AddFormatOption(command);
    command.Option("ADDRESS", pOptions->strAddress, "Such as MicInput/12/Fader").Required();
    command.Footer("consolectl why MicInput/12/Fader --capture FILE.pcap\n"
                   "An update carries a parameter whether it changed or not: what is shown are those that changed it.");
    command.RunsUntilStopped([pOptions] { return std::make_unique<CWhy>(*pOptions)->Run(); });
}
