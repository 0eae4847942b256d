// consolectl top: a console's network at a glance, live.
#include "Images/Cells.h"
#include "Network/Activity.h"
#include "Network/TrafficOptions.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Output.h"
#include "Terminal/Screen.h"

#include <algorithm>
#include <memory>

#include <unistd.h>

namespace
{

constexpr double c_dLongestWait = 0.05;
constexpr double c_dDrawPeriod = 0.2;
constexpr double c_dSilent = 1; // seconds without an update
constexpr int c_nMostSenders = 5;
constexpr char c_szKeys[] = "q quit   p pause   r reset the losses";

struct stOptions
{
    stTrafficOptions traffic;
    stLimits limits;
};

class CTop
{
public:
    explicit CTop(const stOptions& options) : m_Options(options), m_Activity(options.traffic.link), m_Shadow(m_Activity.Shadow()) {}

    int Run();

private:
    void Draw(CScreen& screen, const stTrafficLoss& loss);
    void DrawSummary(CScreen& screen, const stTrafficLoss& loss);
    void DrawTypes(CScreen& screen);
    void DrawSenders(CScreen& screen);
    void DrawBusiest(CScreen& screen);
    bool TakeKeys(CScreen& screen, const stTrafficLoss& loss);
    void TakeNext(CTraffic& traffic);
    int Watch(CTraffic& traffic);
    void PrintSecond(CTable& table);
    int Print(CTraffic& traffic);
    bool Reached() const { return m_Options.limits.Reached(m_lShown, m_Start); }
    int Status(const char* szWhat) const;

    const stOptions& m_Options;
    CActivity m_Activity;
    CShadow& m_Shadow;
    stTrafficLoss m_ResetLoss; // as it was when the losses were reset
    const tSteadyClock::time_point m_Start = tSteadyClock::now();
    long m_lShown = 0;
    bool m_bPaused = false;
};

void CTop::DrawSummary(CScreen& screen, const stTrafficLoss& loss)
{
    const stSecond& second = m_Activity.GetSecond();
    const double dSilent = m_Activity.SecondsSilent();
    const std::string strMC = dSilent < 0           ? "no MC heard yet"
                              : dSilent > c_dSilent ? Format("MC %s SILENT for %.1f s", m_Shadow.SenderText().c_str(), dSilent)
                                                    : "MC " + m_Shadow.SenderText();
    screen.Text(
        Format("consolectl top  %s:%u  %s", m_Options.traffic.link.strGroup.c_str(), m_Options.traffic.link.unPort, strMC.c_str()),
        dSilent < 0 || dSilent > c_dSilent ? enBad : enStrong);
    const std::uint32_t unKernel = loss.unKernel - m_ResetLoss.unKernel;
    const std::uint32_t unSize = loss.unSize - m_ResetLoss.unSize;
    screen.Text(Format("updates %ld/s   client changes %ld/s   lost %ld, by the kernel %u, by size %u",
                       second.PerSecond(second.dUpdates), second.PerSecond(second.dRequests), m_Activity.GetLost(), unKernel,
                       unSize),
                m_Activity.GetLost() == 0 && unKernel == 0 && unSize == 0 ? enPlain : enBad);
    screen.Text("");
}

void CTop::DrawTypes(CScreen& screen)
{
    const stSecond& second = m_Activity.GetSecond();
    screen.Text(Format("%-10s %-10s %8s %12s", "type", "state", "age s", "changes/s"), enStrong);
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        const enTypeState enState = m_Shadow.Follower().GetState(enType);
        const double dAge = m_Shadow.Follower().GetAge(enType);
        screen.Text(Format("%-10s %-10s %8s %12ld", caMessageTypeNames[nType], TypeStateText(enState),
                           dAge < 0 ? "-" : Format("%.2f", dAge).c_str(), second.PerSecond(second.adChanges[nType])),
                    enState == enTypeComplete ? enGood : enBad);
    }
    screen.Text("");
}

void CTop::DrawSenders(CScreen& screen)
{
    screen.Text(Format("%-24s %12s %16s", "sender", "datagrams/s", "bytes/s"), enStrong);
    const stSecond& second = m_Activity.GetSecond();
    const int nMost = std::clamp(screen.RowsLeft() / 3, 1, c_nMostSenders); // parameters want to be seen, too
    int nShown = 0;
    for (const auto& entry : second.Senders())
    {
        if (++nShown > nMost)
        {
            screen.Text(Format("... and %zu more", second.senders.size() - static_cast<std::size_t>(nMost)), enFaint);
            break;
        }
        screen.Text(Format("%-24s %12ld %16s", entry.first.c_str(), second.PerSecond(entry.second.dDatagrams),
                           Grouped(second.PerSecond(entry.second.dBytes)).c_str()));
    }
    screen.Text("");
}

void CTop::DrawBusiest(CScreen& screen)
{
    const std::vector<std::pair<stAddress, double>> busiest = m_Activity.GetSecond().Busiest();
    screen.Text(Format("%-28s %-20s %14s %10s", Format("busiest of %zu", busiest.size()).c_str(), "name", "value", "changes/s"),
                enStrong);
    for (const auto& busy : busiest)
    {
        if (screen.RowsLeft() <= 0)
        {
            return;
        }
        const stAddress& address = busy.first;
        screen.Text(Format(
            "%-28s %s %14s %10ld", AddressText(address).c_str(), Padded(NameText(m_Shadow.Image(), address), 20).c_str(),
            ValueText(address, ReadValue(m_Shadow.Image(), address)).c_str(), m_Activity.GetSecond().PerSecond(busy.second)));
    }
}

void CTop::Draw(CScreen& screen, const stTrafficLoss& loss)
{
    if (!m_bPaused)
    {
        screen.Begin();
        DrawSummary(screen, loss);
        DrawTypes(screen);
        DrawSenders(screen);
        DrawBusiest(screen);
    }
    screen.End((m_bPaused ? "[paused]   " : "") + std::string(c_szKeys));
    ++m_lShown;
}

// False when it is to end.
bool CTop::TakeKeys(CScreen& screen, const stTrafficLoss& loss)
{
    for (int nKey = screen.Key(); nKey != 0; nKey = screen.Key())
    {
        if (nKey == 'q')
        {
            return false;
        }
        m_bPaused = nKey == 'p' ? !m_bPaused : m_bPaused;
        if (nKey == 'r')
        {
            m_Activity.ForgetLost();
            m_ResetLoss = loss;
        }
    }
    return true;
}

int CTop::Run()
{
    const bool bScreen = GetFormat() == enFormatText;
    if (bScreen && (!IsTerminal() || isatty(STDIN_FILENO) == 0))
    {
        return Fail("top needs a terminal; --format json or csv, and stats, say the same to a pipe");
    }
    const std::unique_ptr<CTraffic> pTraffic = OpenTraffic(m_Options.traffic);
    if (pTraffic == nullptr)
    {
        return enExitFailed;
    }
    const int nStatus = bScreen ? Watch(*pTraffic) : Print(*pTraffic);
    Line("%s, %s lost", Counted(m_Shadow.Follower().GetUpdatesApplied(), "updates").c_str(),
         Counted(m_Activity.GetLost(), "messages").c_str());
    return nStatus;
}

void CTop::TakeNext(CTraffic& traffic)
{
    stDatagram datagram;
    if (traffic.Next(datagram, c_dLongestWait))
    {
        m_Activity.Take(datagram);
    }
}

int CTop::Watch(CTraffic& traffic)
{
    CScreen screen;
    if (!screen.IsOpen())
    {
        return Fail("this terminal can't be used: TERM names one that is not known here, or that can't be drawn on");
    }
    double dNextDraw = 0;
    while (!Reached() && TakeKeys(screen, traffic.GetLoss()))
    {
        TakeNext(traffic);
        m_Activity.EndSecond();
        if (SecondsSince(m_Start) >= dNextDraw)
        {
            Draw(screen, traffic.GetLoss());
            dNextDraw = SecondsSince(m_Start) + c_dDrawPeriod;
        }
    }
    return Status("screens");
}

// What the screen shows, of all senders and parameters.
void CTop::PrintSecond(CTable& table)
{
    const stSecond& second = m_Activity.GetSecond();
    const CCell time = CCell::Time(TimeNow());
    const std::string strMC = m_Shadow.SenderText();
    for (const auto& sender : second.Senders())
    {
        table.Print({time, sender.first, "datagrams", CCell(), CCell(), CCell(), CCell(),
                     second.PerSecond(sender.second.dDatagrams), second.PerSecond(sender.second.dBytes)});
    }
    table.Print({time, strMC, "lost", CCell(), CCell(), m_Activity.GetLost(), CCell(), CCell(), CCell()});
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        const double dAge = m_Shadow.Follower().GetAge(enType);
        table.Print({time, strMC, "type", Format("*/*/%s/*", caMessageTypeNames[nType]), CCell(),
                     TypeStateText(m_Shadow.Follower().GetState(enType)), dAge < 0 ? CCell() : CCell(dAge, 2),
                     second.PerSecond(second.adChanges[nType]), CCell()});
    }
    for (const auto& busy : second.Busiest())
    {
        table.Print({time, strMC, "parameter", AddressText(busy.first), NameText(m_Shadow.Image(), busy.first),
                     ValueCell(busy.first, ReadValue(m_Shadow.Image(), busy.first)), CCell(), second.PerSecond(busy.second),
                     CCell()});
    }
}

int CTop::Print(CTraffic& traffic)
{
    CTable table({{"time", 0},
                  {"sender", 0},
                  {"kind", 0},
                  {"address", 0},
                  {"name", 0},
                  {"value", 0},
                  {"age", 0},
                  {"rate", 0},
                  {"byte_rate", 0}});
    while (!Reached())
    {
        TakeNext(traffic);
        if (m_Activity.EndSecond())
        {
            PrintSecond(table);
            ++m_lShown;
        }
    }
    return Status("seconds");
}

int CTop::Status(const char* szWhat) const
{
    const stLimits& limits = m_Options.limits;
    return limits.dTimeout > 0 && limits.nCount > 0 ? limits.Status(m_lShown, szWhat) : int(enExitDone);
}

} // namespace

void AddTop(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command =
        console.Add("top", "A live view on the whole terminal: senders, rates, losses, each type's age, the busiest parameters");
    AddLinkOptions(command, pOptions->traffic.link);
    AddLimitOptions(command, pOptions->limits, "screens");
    AddFormatOption(command);
    command.Footer(std::string("Keys: ") + c_szKeys +
                   "\n\nFor programs, once a second, a row for each sender, message type and parameter that changed.");
    command.RunsUntilStopped([pOptions] { return std::make_unique<CTop>(*pOptions)->Run(); });
}
