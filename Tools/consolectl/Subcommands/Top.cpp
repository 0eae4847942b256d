// consolectl top: a console's network at a glance, live.
#include "Images/Cells.h"
#include "Network/LossFinder.h"
#include "Network/Shadow.h"
#include "Network/TrafficOptions.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Screen.h"

#include <algorithm>
#include <cmath>
#include <map>
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

// What happened within about a second.
struct stSecond
{
    long PerSecond(double dCount) const { return std::lround(dCount / dSeconds); }

    double dSeconds = 1;
    std::map<std::string, std::pair<long, double>> senders; // datagrams and bytes
    std::map<std::pair<int, int>, int> parameters;          // changes, by type and number
    int anChanges[c_nMessageTypes] = {};
    long lUpdates = 0;
    long lRequests = 0;
};

class CTop
{
public:
    explicit CTop(const stOptions& options) : m_Options(options), m_Shadow(options.traffic.link) {}

    int Run();

private:
    void Take(stDatagram& datagram);
    void Draw(CScreen& screen, const stTrafficLoss& loss);
    void DrawSummary(CScreen& screen, const stTrafficLoss& loss);
    void DrawTypes(CScreen& screen);
    void DrawSenders(CScreen& screen);
    void DrawBusiest(CScreen& screen);
    bool TakeKeys(CScreen& screen, const stTrafficLoss& loss);
    int Watch(CTraffic& traffic);

    const stOptions& m_Options;
    CShadow m_Shadow;
    CLossFinder m_LossFinder;
    stSecond m_Now;
    stSecond m_Shown; // the last whole second
    std::uint32_t m_unAppliedBefore = 0;
    tSteadyClock::time_point m_LastUpdate = tSteadyClock::now();
    long m_lLost = 0;
    stTrafficLoss m_ResetLoss; // as it was when the losses were reset
    long m_lDrawn = 0;
    bool m_bPaused = false;
};

void CTop::Take(stDatagram& datagram)
{
    auto& sender = m_Now.senders[datagram.source.Text()];
    ++sender.first;
    sender.second += static_cast<double>(datagram.bytes.size());
    m_lLost += static_cast<long>(m_LossFinder.Take(datagram).size());
    m_Shadow.Take(datagram);
    m_Now.lRequests += static_cast<long>(m_Shadow.GetRequests().size());
    if (m_Shadow.Follower().GetUpdatesApplied() != m_unAppliedBefore)
    {
        m_unAppliedBefore = m_Shadow.Follower().GetUpdatesApplied();
        m_LastUpdate = tSteadyClock::now();
        ++m_Now.lUpdates;
    }
    for (const stImageChange& change : m_Shadow.GetChanges())
    {
        ++m_Now.anChanges[change.address.enType];
        ++m_Now.parameters[{change.address.enType, NumberOf(change.address)}];
    }
}

void CTop::DrawSummary(CScreen& screen, const stTrafficLoss& loss)
{
    const double dSilent = SecondsSince(m_LastUpdate);
    const bool bEver = m_Shadow.Follower().GetUpdatesApplied() != 0;
    const std::string strMC = !bEver ? "no MC heard yet"
                              : dSilent > c_dSilent
                                  ? Format("MC %s SILENT for %.1f s", m_Shadow.GetMC().AddressText().c_str(), dSilent)
                                  : "MC " + m_Shadow.GetMC().AddressText();
    screen.Text(
        Format("consolectl top  %s:%u  %s", m_Options.traffic.link.strGroup.c_str(), m_Options.traffic.link.unPort, strMC.c_str()),
        !bEver || dSilent > c_dSilent ? enBad : enStrong);
    const std::uint32_t unKernel = loss.unKernel - m_ResetLoss.unKernel;
    const std::uint32_t unSize = loss.unSize - m_ResetLoss.unSize;
    screen.Text(Format("updates %ld/s   client changes %ld/s   lost %ld, by the kernel %u, by size %u",
                       m_Shown.PerSecond(static_cast<double>(m_Shown.lUpdates)),
                       m_Shown.PerSecond(static_cast<double>(m_Shown.lRequests)), m_lLost, unKernel, unSize),
                m_lLost == 0 && unKernel == 0 && unSize == 0 ? enPlain : enBad);
    screen.Text("");
}

void CTop::DrawTypes(CScreen& screen)
{
    screen.Text(Format("%-10s %-10s %8s %12s", "type", "state", "age s", "changes/s"), enStrong);
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        const enTypeState enState = m_Shadow.Follower().GetState(enType);
        const double dAge = m_Shadow.Follower().GetAge(enType);
        screen.Text(Format("%-10s %-10s %8s %12ld", caMessageTypeNames[nType], TypeStateText(enState),
                           dAge < 0 ? "-" : Format("%.2f", dAge).c_str(), m_Shown.PerSecond(m_Shown.anChanges[nType])),
                    enState == enTypeComplete ? enGood : enBad);
    }
    screen.Text("");
}

void CTop::DrawSenders(CScreen& screen)
{
    screen.Text(Format("%-24s %12s %16s", "sender", "datagrams/s", "bytes/s"), enStrong);
    int nShown = 0;
    for (const auto& entry : m_Shown.senders)
    {
        if (++nShown > c_nMostSenders)
        {
            screen.Text(Format("... and %zu more", m_Shown.senders.size() - c_nMostSenders), enFaint);
            break;
        }
        screen.Text(Format("%-24s %12ld %16s", entry.first.c_str(), m_Shown.PerSecond(static_cast<double>(entry.second.first)),
                           Grouped(m_Shown.PerSecond(entry.second.second)).c_str()));
    }
    screen.Text("");
}

void CTop::DrawBusiest(CScreen& screen)
{
    typedef std::pair<std::pair<int, int>, int> tBusy;
    std::vector<tBusy> busiest(m_Shown.parameters.begin(), m_Shown.parameters.end());
    std::stable_sort(busiest.begin(), busiest.end(), [](const tBusy& a, const tBusy& b) { return a.second > b.second; });
    screen.Text(Format("%-28s %-20s %14s %10s", Format("busiest of %zu", busiest.size()).c_str(), "name", "value", "changes/s"),
                enStrong);
    for (const tBusy& busy : busiest)
    {
        if (screen.RowsLeft() <= 0)
        {
            return;
        }
        const stAddress address = AddressAt(static_cast<tagenPPCMessageType>(busy.first.first), busy.first.second);
        screen.Text(Format("%-28s %s %14s %10ld", AddressText(address).c_str(),
                           Padded(NameText(m_Shadow.Image(), address), 20).c_str(),
                           ValueText(address, ReadValue(m_Shadow.Image(), address)).c_str(), m_Shown.PerSecond(busy.second)));
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
    ++m_lDrawn;
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
        m_lLost = nKey == 'r' ? 0 : m_lLost;
        m_ResetLoss = nKey == 'r' ? loss : m_ResetLoss;
    }
    return true;
}

int CTop::Run()
{
    if (!IsTerminal() || isatty(STDIN_FILENO) == 0)
    {
        return Fail("top needs a terminal; stats says the same to a pipe");
    }
    const std::unique_ptr<CTraffic> pTraffic = OpenTraffic(m_Options.traffic);
    if (pTraffic == nullptr)
    {
        return enExitFailed;
    }
    const int nStatus = Watch(*pTraffic);
    Line("%s updates, %s messages lost", Grouped(m_Shadow.Follower().GetUpdatesApplied()).c_str(), Grouped(m_lLost).c_str());
    return nStatus;
}

int CTop::Watch(CTraffic& traffic)
{
    CScreen screen;
    if (!screen.IsOpen())
    {
        return Fail("this terminal can't be used: TERM names one that is not known here, or that can't be drawn on");
    }
    const tSteadyClock::time_point start = tSteadyClock::now();
    double dNextDraw = 0;
    double dSecondBegan = 0;
    for (stDatagram datagram; !m_Options.limits.Reached(m_lDrawn, start) && TakeKeys(screen, traffic.GetLoss());)
    {
        if (traffic.Next(datagram, c_dLongestWait))
        {
            Take(datagram);
        }
        const double dNow = SecondsSince(start);
        if (dNow >= dSecondBegan + 1)
        {
            m_Now.dSeconds = dNow - dSecondBegan;
            m_Shown = m_Now;
            m_Now = stSecond();
            dSecondBegan = dNow;
        }
        if (dNow >= dNextDraw)
        {
            Draw(screen, traffic.GetLoss());
            dNextDraw = dNow + c_dDrawPeriod;
        }
    }
    return m_Options.limits.dTimeout > 0 && m_Options.limits.nCount > 0 ? m_Options.limits.Status(m_lDrawn, "screens")
                                                                        : int(enExitDone);
}

} // namespace

void AddTop(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command =
        console.Add("top", "A live view of the whole terminal: senders, rates, losses, each type's age, the busiest parameters");
    AddLinkOptions(command, pOptions->traffic.link);
    AddLimitOptions(command, pOptions->limits, "screens");
    command.Footer(std::string("Keys: ") + c_szKeys);
    command.RunsUntilStopped([pOptions] { return std::make_unique<CTop>(*pOptions)->Run(); });
}
