// consolectl mc: a simulated master controller.
#include "Images/Cells.h"
#include "Images/ImageFile.h"
#include "Images/MovingImage.h"
#include "Network/Options.h"
#include "Network/PPCReceiver.h"
#include "Network/Report.h"
#include "Network/UpdateLink.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace
{

constexpr std::size_t c_unShownChanges = 5; // to people one by one, of a datagram
constexpr double c_dSettleSeconds = 0.5;
constexpr double c_dForEver = 1e9;
constexpr double c_dLongestLag = 1;
constexpr double c_dLongestSleep = 0.005;

struct stOptions
{
    stMulticastLink link;
    double dSurfaceRate = 50;
    double dRotaryRate = 10;
    double dReportPeriod = 1;
    double dSeconds = 0;
    int nMovingFaders = 24;
    stFaults faults; // its seed is the image's, too
    std::string strSave;
    stLimits limits; // of clients' changes
};

// The parameters that a stream of changes names.
std::vector<stAddress> ReadAddresses(const std::vector<unsigned char>& payload)
{
    std::vector<stAddress> addresses;
    CPPCStreamReader reader(payload.data(), static_cast<long>(payload.size()));
    while (reader.Next())
    {
        const stAddress address = reader.Address();
        if (IsParameterAddress(address.enType, address.enPathType, address.nPath, address.nParam))
        {
            addresses.push_back(address);
        }
    }
    return addresses;
}

class CSimulatedMC
{
public:
    explicit CSimulatedMC(const stOptions& options)
        : m_Options(options), m_Image(m_Moving.Image()), m_Updates(options.link, options.faults), m_Start(tSteadyClock::now())
    {
    }

    int Run();

private:
    bool OpenSockets();
    void ApplyClientChanges();
    void SendUpdate(MCUpdateType enType);
    void SendReport(double dSeconds);
    void RunUntil(double dSeconds, bool bMove);
    bool IsOver() const { return m_Options.limits.Reached(m_lApplied, m_Began); }

    const stOptions& m_Options;
    CMovingImage m_Moving;
    CBMAContainer& m_Image;
    CMCUpdateMsg m_Message;
    UDP_PACKET m_Packet;
    std::vector<unsigned char> m_Serialised;
    CPPCReceiver m_PPCs;
    CUpdateLink m_Updates;
    std::unique_ptr<CDiagnosticsSocketSender> m_pReports; // none while nothing is to be sent: it would close descriptor 0
    bool m_bReports = false;
    CTable m_Table{{{"time", 12}, {"sender", 15}, {"address", 26}, {"name", 18}, {"old", -12}, {"new", -12}}};
    const tSteadyClock::time_point m_Began = tSteadyClock::now();
    tSteadyClock::time_point m_Start; // of its time, which may stand still
    double m_dNextReport = 0;
    const std::uint32_t m_unStartTime = CClock::Seconds();
    std::uint32_t m_unMessageId = 0;
    long m_lUpdates[2] = {};
    long m_lChangeDatagrams = 0;
    long m_lApplied = 0;
    long m_lRefused = 0;
    long m_lReports = 0;
};

bool CSimulatedMC::OpenSockets()
{
    const char* szInterface = m_Options.link.strInterface.c_str();
    if (m_Options.dReportPeriod > 0)
    {
        m_pReports = std::make_unique<CDiagnosticsSocketSender>();
        m_bReports = m_pReports->EstablishMulticastTransmitter(XMLDiagnostics::c_strMulticastGroup.c_str(), c_unReportPort);
    }
    return m_Updates.Open() && m_PPCs.InitialiseLocalSockets(c_unPPCPort, nullptr, szInterface, 1) &&
           m_PPCs.AddToGroup(c_szPPCGroup);
}

void CSimulatedMC::ApplyClientChanges()
{
    for (const stReceivedPPCs& received : m_PPCs.Take())
    {
        const long lLength = static_cast<long>(received.payload.size());
        const std::vector<stAddress> addresses = ReadAddresses(received.payload);
        std::vector<stValue> before;
        const bool bShown = addresses.size() <= c_unShownChanges || GetFormat() != enFormatText;
        for (std::size_t unChange = 0; unChange < addresses.size() && bShown; ++unChange)
        {
            before.push_back(ReadValue(m_Image, addresses[unChange]));
        }
        for (const stAddress& address : addresses)
        {
            m_Moving.ClientSets(address);
        }
        const stPPCResult result = ApplyPPCs(received.payload.data(), lLength, m_Image);
        m_lApplied += result.nApplied;
        m_lRefused += result.nRefused + (result.bComplete ? 0 : 1);
        ++m_lChangeDatagrams;
        for (std::size_t unChange = 0; unChange < before.size(); ++unChange)
        {
            const stAddress& address = addresses[unChange];
            m_Table.Print({CCell::Time(TimeNow()), received.sender.Text(), AddressText(address), NameText(m_Image, address),
                           ValueCell(address, before[unChange]), ValueCell(address, ReadValue(m_Image, address)).In(enGood)});
        }
        if (before.size() < addresses.size())
        {
            Line("%s changes from %s in a datagram of %s bytes: %s to %s", Grouped(static_cast<long>(addresses.size())).c_str(),
                 received.sender.Text(), Grouped(c_nDatagramHeader + lLength).c_str(), AddressText(addresses.front()).c_str(),
                 AddressText(addresses.back()).c_str());
        }
    }
}

void CSimulatedMC::SendUpdate(MCUpdateType enType)
{
    if (!BuildMCUpdate(m_Image, enType, m_Message))
    {
        return;
    }
    m_Serialised.resize(static_cast<std::size_t>(m_Message.GetTotalSize()));
    unsigned char* pSerialised = m_Serialised.data();
    m_Message >> &pSerialised;
    const long lSize = static_cast<long>(m_Serialised.size());
    ++m_unMessageId;
    for (int nFragment = 1; nFragment <= CountFragments(lSize); ++nFragment)
    {
        m_Updates.Send(m_Packet, MakeFragment(enDatagramMCUpdate, m_unMessageId, pSerialised, lSize, nFragment, m_Packet));
    }
    ++m_lUpdates[enType == enMCUpdateRotary];
}

// The MC's own health. Where reports can't go the first failure says so, and is the last.
void CSimulatedMC::SendReport(double dSeconds)
{
    std::vector<stReportedValue> values;
    for (const std::string& strValue :
         {Format("enUpTime=%ld", static_cast<long>(dSeconds)), std::string("enGeneralMute=0"), std::string("enRoleNumber=1"),
          std::string("enRoleName=Simulated MC"), std::string("enUDPState=1"), std::string("enUDPTimeouts=0"),
          Format("enStartTime=%u", m_unStartTime)})
    {
        values.push_back(ParseReportedValue(strValue));
    }
    const std::string strReport = MakeReport("MC", 1, values);
    m_pReports->Send(strReport.data(), static_cast<unsigned int>(strReport.size()));
    m_bReports = m_pReports->LastSendSucceeded();
    m_lReports += m_bReports ? 1 : 0;
}

// What is sent, and in which order, depends on the options alone. An MC that is kept from sending goes on where it was: its time
// has stood still.
void CSimulatedMC::RunUntil(double dSeconds, bool bMove)
{
    while (!IsOver())
    {
        ApplyClientChanges();
        const double dSurface = static_cast<double>(m_lUpdates[0]) / m_Options.dSurfaceRate;
        const double dRotary = static_cast<double>(m_lUpdates[1]) / m_Options.dRotaryRate;
        const double dDue = std::min(dSurface, dRotary);
        const double dNow = SecondsSince(m_Start);
        if (std::min(dDue, dNow) >= dSeconds)
        {
            return;
        }
        m_Start += dNow - dDue > c_dLongestLag ? Duration(dNow - dDue) : tSteadyClock::duration(0);
        if (m_bReports && dNow >= m_dNextReport)
        {
            SendReport(dNow);
            m_dNextReport = std::max(m_dNextReport + m_Options.dReportPeriod, dNow);
        }
        if (dDue > dNow || dDue >= dSeconds)
        {
            SleepUntil(m_Updates.SendDue(m_Start + Duration(std::min(dDue, dNow + c_dLongestSleep))));
            continue;
        }
        if (dSurface <= dRotary && bMove)
        {
            m_Moving.Move(dSurface, m_Options.nMovingFaders);
        }
        SendUpdate(dSurface <= dRotary ? enMCUpdateSurface : enMCUpdateRotary);
    }
}

int CSimulatedMC::Run()
{
    if (!OpenSockets())
    {
        return Fail("the network can't be had: " + LinkText({c_szPPCGroup, c_unPPCPort, m_Options.link.strInterface}));
    }
    m_Moving.Fill(m_Options.faults.unSeed);
    Describe(m_Options.link, m_PPCs.GetReceiveBufferSize(), "MC: ");
    Line("MC: changes from clients on %s:%u", c_szPPCGroup, c_unPPCPort);
    RunUntil(m_Options.dSeconds > 0 ? m_Options.dSeconds : c_dForEver, true);
    if (!IsOver())
    {
        RunUntil(m_Options.dSeconds + c_dSettleSeconds, false); // the last state, a few times over
    }
    m_Updates.SendRest();
    Line("MC: sent %s surface and %s rotary updates in %s datagrams (%ld refused by the system)", Grouped(m_lUpdates[0]).c_str(),
         Grouped(m_lUpdates[1]).c_str(), Grouped(m_Updates.GetSent()).c_str(), m_Updates.GetRefused());
    if (m_Options.faults.Any())
    {
        Line("MC: a bad network, %s", m_Updates.FaultsText().c_str());
    }
    Line("MC: diagnostics reports sent to %s:%u: %s", XMLDiagnostics::c_strMulticastGroup.c_str(), c_unReportPort,
         Grouped(m_lReports).c_str());
    Line("MC: %s applied, %s refused, from %s; %s dropped by the kernel", Counted(m_lApplied, "changes").c_str(),
         Grouped(m_lRefused).c_str(), Counted(m_lChangeDatagrams, "datagrams").c_str(),
         Counted(m_PPCs.GetSocketStatistics().unKernelDrops, "datagrams").c_str());
    if (m_Updates.GetSent() == 0 && !m_Updates.LostAll())
    {
        return Fail(
            Format("nothing could be sent to %s: is there an interface with a multicast route?", m_Options.link.strGroup.c_str()));
    }
    const std::string strError = m_Options.strSave.empty() ? std::string() : SaveImage(m_Image, m_Options.strSave);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    return IsOver() && m_Options.limits.dTimeout > 0 ? m_Options.limits.Status(m_lApplied, "changes") : int(enExitDone);
}

} // namespace

void AddMc(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add(
        "mc", "Simulate a master controller: own an image, move faders and meters, multicast it, take clients' changes");
    AddLinkOptions(command, pOptions->link);
    command.Option("--surface-rate", pOptions->dSurfaceRate, "Surface updates (switches to meters) a second").Within(0.1, 1000);
    command.Option("--rotary-rate", pOptions->dRotaryRate, "Rotary updates (strings, rotaries) a second").Within(0.1, 1000);
    command.Option("--report-period", pOptions->dReportPeriod, "Seconds from one diagnostics report to the next; 0: none")
        .Within(0, 86400);
    command.Option("--seconds", pOptions->dSeconds, "Stop after so long, the last state sent; 0: at Ctrl-C").Within(0, 86400);
    command
        .Option("--moving-faders", pOptions->nMovingFaders,
                "Mic inputs whose fader and meter move; a fader that a client sets stays")
        .Within(0, canMaxPaths[enMicInput]);
    command.Option("--seed", pOptions->faults.unSeed, "Seed of the image's first contents and of the network's faults");
    AddFaultOptions(command, pOptions->faults);
    AddLimitOptions(command, pOptions->limits, "changes of clients");
    AddFormatOption(command);
    command.Option("--save", pOptions->strSave, "Write the image to this file at the end").File();
    command.RunsUntilStopped([pOptions] { return std::make_unique<CSimulatedMC>(*pOptions)->Run(); });
}
