// consolectl mc: a simulated master controller.
#include "Images/Cells.h"
#include "Images/ImageFile.h"
#include "Network/Report.h"
#include "Network/SimulatedMC.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"

#include <memory>
#include <vector>

namespace
{

constexpr std::size_t c_unShownChanges = 5; // to people one by one, of a datagram

struct stOptions
{
    stMCOptions mc;
    std::string strSave;
    stLimits limits; // of clients' changes
};

class CMc : public CSimulatedMC
{
public:
    explicit CMc(const stOptions& options) : CSimulatedMC(options.mc), m_Options(options) {}

    int Start();

private:
    bool IsOver() override { return m_Options.limits.Reached(Counts().lApplied, m_Began); }
    void Apply(const stReceivedPPCs& received, const std::vector<stAddress>& addresses) override;
    void PrintCounts() const;
    int Finish();

    const stOptions& m_Options;
    CTable m_Table{{{"time", 12}, {"sender", 15}, {"address", 26}, {"name", 18}, {"old", -12}, {"new", -12}}};
    const tSteadyClock::time_point m_Began = tSteadyClock::now();
};

void CMc::Apply(const stReceivedPPCs& received, const std::vector<stAddress>& addresses)
{
    std::vector<stValue> before;
    const bool bShown = addresses.size() <= c_unShownChanges || GetFormat() != enFormatText;
    for (std::size_t unChange = 0; unChange < addresses.size() && bShown; ++unChange)
    {
        before.push_back(ReadValue(Image(), addresses[unChange]));
    }
    CSimulatedMC::Apply(received, addresses);
    for (std::size_t unChange = 0; unChange < before.size(); ++unChange)
    {
        const stAddress& address = addresses[unChange];
        m_Table.Print({CCell::Time(TimeNow()), received.sender.Text(), AddressText(address), NameText(Image(), address),
                       ValueCell(address, before[unChange]), ValueCell(address, ReadValue(Image(), address)).In(enGood)});
    }
    if (before.size() < addresses.size())
    {
        Line("%s changes from %s in a datagram of %s bytes: %s to %s", Grouped(static_cast<long>(addresses.size())).c_str(),
             received.sender.Text(), Grouped(c_nDatagramHeader + static_cast<long>(received.payload.size())).c_str(),
             AddressText(addresses.front()).c_str(), AddressText(addresses.back()).c_str());
    }
}

void CMc::PrintCounts() const
{
    const stMCCounts& counts = Counts();
    Line("MC: sent %s surface and %s rotary updates in %s datagrams (%ld refused by the system)", Grouped(counts.lSurface).c_str(),
         Grouped(counts.lRotary).c_str(), Grouped(Updates().GetSent()).c_str(), Updates().GetRefused());
    if (m_Options.mc.faults.Any())
    {
        Line("MC: a bad network, %s", Updates().FaultsText().c_str());
    }
    Line("MC: diagnostics reports sent to %s:%u: %s", XMLDiagnostics::c_strMulticastGroup.c_str(), c_unReportPort,
         Grouped(counts.lReports).c_str());
    Line("MC: %s applied, %s refused, from %s; %s dropped by the kernel", Counted(counts.lApplied, "changes").c_str(),
         Grouped(counts.lRefused).c_str(), Counted(counts.lChangeDatagrams, "datagrams").c_str(),
         Counted(Changes().GetSocketStatistics().unKernelDrops, "datagrams").c_str());
}

int CMc::Finish()
{
    PrintCounts();
    if (Updates().GetSent() == 0 && !Updates().LostAll() && !OutputFailed())
    {
        return Fail(Format("nothing could be sent to %s: is there an interface with a multicast route?",
                           m_Options.mc.link.strGroup.c_str()));
    }
    const std::string strError = m_Options.strSave.empty() ? std::string() : SaveImage(Image(), m_Options.strSave);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    return IsOver() && m_Options.limits.dTimeout > 0 ? m_Options.limits.Status(Counts().lApplied, "changes") : int(enExitDone);
}

int CMc::Start()
{
    const std::string strWhyNot = WhyNotSaved(m_Options.strSave);
    const std::string strError = strWhyNot.empty() ? Open() : strWhyNot;
    if (!strError.empty())
    {
        return Fail(strError);
    }
    Describe(m_Options.mc.link, Changes().GetReceiveBufferSize(), "MC: ");
    Line("MC: changes from clients on %s:%u", c_szPPCGroup, c_unPPCPort);
    Run();
    return Finish();
}

} // namespace

void AddMc(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    stMCOptions& mc = pOptions->mc;
    CCommand command = console.Add(
        "mc", "Simulate a master controller: own an image, move faders and meters, multicast it, take clients' changes");
    AddLinkOptions(command, mc.link);
    command.Option("--surface-rate", mc.dSurfaceRate, "Surface updates (switches to meters) a second")
        .Within(c_dLowestRate, c_dHighestRate);
    command.Option("--rotary-rate", mc.dRotaryRate, "Rotary updates (strings, rotaries) a second")
        .Within(c_dLowestRate, c_dHighestRate);
    command.Option("--report-period", mc.dReportPeriod, "Seconds from one diagnostics report to the next; 0: none")
        .Within(0, c_dLongestPeriod);
    command.Option("--seconds", mc.dSeconds, "Stop after so long, the last state sent; 0: at Ctrl-C").Within(0, c_dLongestPeriod);
    command.Option("--moving-faders", mc.nMovingFaders, "Mic inputs whose fader and meter move; a fader that a client sets stays")
        .Within(0, canMaxPaths[enMicInput]);
    command.Option("--seed", mc.faults.unSeed, "Seed of the image's first contents and of the network's faults");
    AddFaultOptions(command, mc.faults);
    AddLimitOptions(command, pOptions->limits, "changes of clients");
    AddFormatOption(command);
    command.Option("--save", pOptions->strSave, "Write the image to this file at the end").File();
    command.RunsUntilStopped([pOptions] { return std::make_unique<CMc>(*pOptions)->Start(); });
}
