#include "Network/Client.h"

#include "Network/SentChanges.h"
#include "Terminal/Arguments.h"
#include "Terminal/Command.h"
#include "Terminal/Common.h"
#include "Terminal/Output.h"

#include <bitset>

namespace
{

constexpr double c_dLoopPeriod = 0.002;

} // namespace

// The group is joined apart, to tell which of the two failed.
std::string OpenLink(CImageFollower& follower, const stMulticastLink& link)
{
    if (!follower.InitialiseClient(link.unPort, nullptr, nullptr, link.strInterface.c_str()))
    {
        return Format("port %u can't be had on this interface", link.unPort);
    }
    if (!follower.AddToGroup(link.strGroup.c_str()))
    {
        return Format("group %s can't be joined: is there an interface with a multicast route?", link.strGroup.c_str());
    }
    return std::string();
}

std::string NoImageText(const stMulticastLink& link, double dSeconds)
{
    return Format("no image from an MC on %s:%u within %g seconds", link.strGroup.c_str(), link.unPort, dSeconds);
}

void AddClientOptions(CCommand& command, stClientOptions& options)
{
    AddLinkOptions(command, options.link);
    command
        .Option("--timeout", options.dTimeout,
                "Give up, with exit status 27, when what is waited for has not come from the MC within so many seconds")
        .Within(0.1, 86400);
}

void AddDirectOption(CCommand& command, stClientOptions& options)
{
    command.Flag("--direct", options.bDirect, "Send each change at once in a datagram of its own, instead of batches");
}

CClient::CClient(const stClientOptions& options) : m_Options(options), m_Follower(m_Image)
{
    m_Follower.SetRemoteAddress(c_szPPCGroup, 0, int(c_unPPCPort));
    m_Image.SetUseSimplePPCSender(options.bDirect);
    m_Image.InitSimplePPCSenderComms();
}

CClient::~CClient()
{
    m_Follower.Shutdown();
}

int CClient::Open(unsigned int unTypes)
{
    const std::string strError = OpenLink(m_Follower, m_Options.link);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    Describe(m_Options.link, m_Follower.GetReceiveBufferSize());
    const tSteadyClock::time_point start = tSteadyClock::now();
    CProgress progress("waiting for the MC's image", c_nMessageTypes);
    while ((m_Follower.GetTypesReceived() & unTypes) != unTypes)
    {
        progress.Show(static_cast<long>(std::bitset<c_nMessageTypes>(m_Follower.GetTypesReceived()).count()));
        if (StopRequested())
        {
            return Fail("interrupted before the MC's image was there: nothing is sent");
        }
        if (SecondsSince(start) > m_Options.dTimeout)
        {
            Fail(NoImageText(m_Options.link, m_Options.dTimeout));
            return enExitTimedOut;
        }
        SleepSeconds(c_dLoopPeriod);
        Update();
    }
    return enExitDone;
}

int CClient::Send(const std::vector<stChange>& changes)
{
    CSentChanges sent(changes, m_Image, m_Follower, m_Options.bDirect);
    const long lAll = sent.CountLeft();
    m_lSent += lAll;
    sent.Send();
    tSteadyClock::time_point lastBack = tSteadyClock::now();
    CProgress progress("changes back from the MC", lAll);
    while (sent.CountLeft() != 0)
    {
        const long lBefore = sent.CountLeft();
        progress.Show(lAll - lBefore);
        SleepSeconds(c_dLoopPeriod);
        if (Update())
        {
            sent.LeaveOutWhatIsBack();
        }
        if (sent.CountLeft() < lBefore)
        {
            lastBack = tSteadyClock::now();
        }
        else if (StopRequested())
        {
            return Fail(Format("interrupted: %s of %s back from the MC, all of them sent", Grouped(lAll - sent.CountLeft()).c_str(),
                               Counted(lAll, "changes").c_str()));
        }
        else if (SecondsSince(lastBack) > m_Options.dTimeout)
        {
            Fail(sent.LeftText());
            return enExitTimedOut;
        }
        else
        {
            m_lResent += sent.SendAgain();
        }
    }
    return enExitDone;
}

// True when an update came.
bool CClient::Update()
{
    const std::uint32_t unBefore = m_Follower.GetUpdatesApplied();
    if (m_Follower.UpdateBMA() == CClientMsgHandler::enUpdateDecodeError)
    {
        m_Follower.ClearReceiveErrors();
    }
    RySocketIO::CIPString sender;
    if (m_Follower.GetLastSender(sender))
    {
        m_strSender = sender.Text();
    }
    return m_Follower.GetUpdatesApplied() != unBefore;
}
