// consolectl follow: a client that is kept in step.
#include "Images/ImageFile.h"
#include "Network/Client.h"
#include "Network/StateFollower.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Output.h"

#include <array>
#include <bitset>
#include <memory>
#include <vector>

namespace
{

constexpr std::chrono::milliseconds c_LoopPeriod(2);

struct stOptions
{
    stMulticastLink link;
    double dSeconds = 0;
    double dUntilSilent = 0;
    std::vector<std::string> changes;
    std::string strSave;
    stLimits limits; // of updates
    bool bStatistics = false;
};

// A change on its way: sent to the MC, and not yet back in an update.
struct stTrackedChange
{
    stChange change;
    bool bBack = false;
    tSteadyClock::time_point sent = {};
};

CCell PeriodCell(float fMilliseconds)
{
    return fMilliseconds < 0 ? CCell() : CCell(static_cast<double>(fMilliseconds), 1);
}

// Each second's row: text says the types' states in one, programs get the state and age of each.
std::vector<stColumn> RowColumns()
{
    static std::array<std::string, c_nMessageTypes> s_Ages; // the columns' names, which stay here
    std::vector<stColumn> columns = {{"time", 12},      {"sender", 15, true}, {"surface_ms", -10}, {"rotary_ms", -9},
                                     {"time_outs", -9}, {"check", 8},         {"types", 12}};
    for (std::size_t unType = 0; unType < s_Ages.size(); ++unType)
    {
        s_Ages[unType] = std::string(caMessageTypeNames[unType]) + "_age";
        columns.insert(columns.end(), {{caMessageTypeNames[unType], 0}, {s_Ages[unType].c_str(), 0}});
    }
    return columns;
}

class CFollow
{
public:
    explicit CFollow(const stOptions& options) : m_Options(options), m_Follower(m_Image), m_Start(tSteadyClock::now()) {}

    int Run();

private:
    void Loop();
    void TakeUpdates();
    bool LacksUpdates() const;
    bool IsOver() const;
    bool IsWhole() const { return m_Follower.GetTypesReceived() == c_unWholeImage; }
    void SendChanges();
    void LookForChanges();
    void PrintRow(bool bLast);
    int Finish();

    const stOptions& m_Options;
    CBMAContainer m_Image;
    CStateFollower m_Follower;
    CTable m_Table{RowColumns()};
    bool m_bTimeout = false; // the last poll found the MC late
    bool m_bHeadPrinted = false;
    std::string m_strSender;
    std::vector<stTrackedChange> m_Changes;
    tSteadyClock::time_point m_Start;
    tSteadyClock::time_point m_LastUpdate = {};
    double m_dNextLine = 1;
    long m_lErrors = 0, m_lTimeouts = 0;
    bool m_bChangesSent = false;
    bool m_bTimedOut = false;
};

void CFollow::TakeUpdates()
{
    const std::uint32_t unBefore = m_Follower.GetUpdatesApplied();
    const int nResult = m_Follower.UpdateBMA();
    const bool bTimeout = nResult == CClientMsgHandler::enUpdateTimeout;
    m_lTimeouts += bTimeout && !m_bTimeout ? 1 : 0;
    m_bTimeout = bTimeout;
    if (m_Follower.GetUpdatesApplied() != unBefore)
    {
        m_LastUpdate = tSteadyClock::now();
        LookForChanges();
    }
    if (nResult == CClientMsgHandler::enUpdateDecodeError)
    {
        ++m_lErrors;
        m_Follower.ClearReceiveErrors();
    }
    if (m_bChangesSent || !IsWhole())
    {
        return;
    }
    Line("%6.2f s  %s: %s parameters", SecondsSince(m_Start), Styled(enGood, "the image is whole").c_str(),
         Grouped(c_nParameters).c_str());
    SendChanges();
}

// Only sent, not stored: the image has them when the MC sent them back.
void CFollow::SendChanges()
{
    m_bChangesSent = true;
    for (stTrackedChange& tracked : m_Changes)
    {
        const stAddress& address = tracked.change.address;
        const stValue before = ReadValue(m_Image, address);
        tracked.bBack = SameValue(address, before, tracked.change.value);
        Line("%6.2f s  change %s  %s -> %s%s", SecondsSince(m_Start), AddressText(address).c_str(),
             ValueText(address, before).c_str(), ValueText(address, tracked.change.value).c_str(),
             tracked.bBack ? "  (has that value)" : "  sent to the MC");
        tracked.sent = tSteadyClock::now();
        WriteValue(m_Image, tracked.change, true);
    }
}

void CFollow::LookForChanges()
{
    for (stTrackedChange& tracked : m_Changes)
    {
        const stAddress& address = tracked.change.address;
        if (m_bChangesSent && !tracked.bBack && SameValue(address, ReadValue(m_Image, address), tracked.change.value))
        {
            tracked.bBack = true;
            Line("%6.2f s  %s  %s = %s after %.1f ms", SecondsSince(m_Start), Styled(enGood, "back from the MC").c_str(),
                 AddressText(address).c_str(), ValueText(address, tracked.change.value).c_str(), SecondsSince(tracked.sent) * 1000);
        }
    }
}

// Than were asked for.
bool CFollow::LacksUpdates() const
{
    return static_cast<long>(m_Follower.GetUpdatesApplied()) < m_Options.limits.nCount;
}

bool CFollow::IsOver() const
{
    const double dNow = SecondsSince(m_Start);
    return StopRequested() || (m_Options.dSeconds > 0 && dNow >= m_Options.dSeconds) ||
           (m_Options.limits.nCount > 0 && !LacksUpdates()) ||
           (m_Options.dUntilSilent > 0 && m_Follower.GetUpdatesApplied() > 0 &&
            SecondsSince(m_LastUpdate) >= m_Options.dUntilSilent);
}

void CFollow::PrintRow(bool bLast)
{
    RySocketIO::CIPString sender;
    m_strSender = m_Follower.GetLastSender(sender) ? sender.Text() : m_strSender;
    std::vector<CCell> row = {CCell::Time(TimeNow()),
                              m_strSender,
                              PeriodCell(m_Follower.GetSurfUpdatePeriod()),
                              PeriodCell(m_Follower.GetRotsUpdatePeriod()),
                              m_lTimeouts,
                              CheckWordText(m_Image),
                              m_Follower.StatesText()};
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        row.emplace_back(TypeStateText(m_Follower.GetState(enType)));
        row.push_back(m_Follower.GetAge(enType) < 0 ? CCell() : CCell(m_Follower.GetAge(enType), 3));
    }
    if (!m_bHeadPrinted)
    {
        m_Table.PrintHead();
        m_bHeadPrinted = true;
    }
    m_Table.Print(row, IsTerminal() && !bLast);
}

void CFollow::Loop()
{
    CProgress progress("waiting for the whole image", c_nMessageTypes);
    for (tSteadyClock::time_point next = m_Start; !IsOver(); next = std::max(next + c_LoopPeriod, tSteadyClock::now()))
    {
        TakeUpdates();
        IsWhole() ? void() : progress.Show(static_cast<long>(std::bitset<c_nMessageTypes>(m_Follower.GetTypesReceived()).count()));
        const double dNow = SecondsSince(m_Start);
        if (m_Options.limits.dTimeout > 0 && dNow >= m_Options.limits.dTimeout && (!IsWhole() || LacksUpdates()))
        {
            m_bTimedOut = true;
            return;
        }
        if (dNow >= m_dNextLine)
        {
            PrintRow(false);
            m_dNextLine += 1;
        }
        SleepUntil(next);
    }
}

int CFollow::Finish()
{
    PrintRow(true);
    Line("client: %s applied, %ld bad ones, %s dropped by the kernel", Counted(m_Follower.GetUpdatesApplied(), "updates").c_str(),
         m_lErrors, Counted(m_Follower.GetSocketStatistics().unKernelDrops, "datagrams").c_str());
    if (m_Options.bStatistics)
    {
        PrintStatistics(m_Follower);
    }
    // What isn't whole takes no file's place.
    const std::string strError = m_Options.strSave.empty() || !IsWhole() ? std::string() : SaveImage(m_Image, m_Options.strSave);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    if (m_bTimedOut)
    {
        Fail(Format(IsWhole() ? "too few updates within %g seconds" : "no whole image within %g seconds",
                    m_Options.limits.dTimeout));
        return enExitTimedOut;
    }
    for (const stTrackedChange& tracked : m_Changes)
    {
        if (!tracked.bBack)
        {
            return Fail(AddressText(tracked.change.address) + " never came back from the MC");
        }
    }
    return IsWhole() ? int(enExitDone)
                     : Fail(std::string("the image is not whole") + (m_Options.strSave.empty() ? "" : ": nothing is saved"));
}

int CFollow::Run()
{
    SimpleUDPPPCSender filter;
    for (const std::string& strChange : m_Options.changes)
    {
        CheckSimpleSender("--set", m_Options.link);
        const stChange change = ParseChange(strChange);
        if (filter._FilterPacket(change.address.enType, change.address.enPathType, change.address.nParam))
        {
            throw stWrongUse("--set", AddressText(change.address) + " is on the list of parameters that are never sent");
        }
        m_Changes.push_back({change});
    }
    m_Image.SetUseSimplePPCSender(!m_Changes.empty());
    m_Image.InitSimplePPCSenderComms();
    const std::string strWhyNot = WhyNotSaved(m_Options.strSave);
    const std::string strError = strWhyNot.empty() ? OpenLink(m_Follower, m_Options.link) : strWhyNot;
    if (!strError.empty())
    {
        return Fail(strError);
    }
    Describe(m_Options.link, m_Follower.GetReceiveBufferSize(), "client: ");
    Loop();
    m_Follower.Shutdown();
    return Finish();
}

} // namespace

void AddFollow(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add("follow", "Follow an MC: keep an image in step, show update periods, time-outs and check words");
    AddLinkOptions(command, pOptions->link);
    command.Option("--seconds", pOptions->dSeconds, "Stop after so long; 0: at Ctrl-C").Within(0, 86400);
    command
        .Option("--timeout", pOptions->limits.dTimeout,
                "Give up, with exit status 27, when the image is not whole by then, or --count updates did not come; 0: never")
        .Within(0, 86400);
    command.Option("--until-silent", pOptions->dUntilSilent, "Stop when the MC, once heard, has sent nothing for so many seconds")
        .Within(0, 86400);
    command
        .Option("--set", pOptions->changes,
                "Once the image is whole, send this change to the MC and wait for it to come back, such as "
                "MicInput/100/Fader/0=-6.5; may be given several times")
        .Type("ADDRESS=VALUE")
        .Repeated();
    command.Option("--count", pOptions->limits.nCount, "Stop after so many updates; 0: at Ctrl-C").Within(0, 1000000000);
    command.Option("--save", pOptions->strSave, "Write the image to this file at the end").File();
    AddFormatOption(command);
    command.Flag("--statistics", pOptions->bStatistics, "At the end, say what came and what became of it");
    command.RunsUntilStopped([pOptions] { return std::make_unique<CFollow>(*pOptions)->Run(); });
}
