#include "Network/Client.h"

#include "Terminal/Arguments.h"
#include "Terminal/Command.h"
#include "Terminal/Common.h"
#include "Terminal/Output.h"

#include <array>
#include <bitset>
#include <set>

namespace
{

// Between as many changes as are sent at once the MC gets time to take them.
constexpr double c_dBreather = 0.005;

constexpr double c_dSendAgainAfter = 0.5;
constexpr double c_dLoopPeriod = 0.002;

// Of several changes of one parameter the last counts: the others would never show, or undo it.
std::vector<const stChange*> LastOfEachParameter(const std::vector<stChange>& changes)
{
    std::set<std::array<int, 4>> seen;
    std::vector<const stChange*> last;
    for (auto change = changes.rbegin(); change != changes.rend(); ++change)
    {
        const stAddress& address = change->address;
        if (seen.insert({address.enType, address.enPathType, address.nPath, address.nParam}).second)
        {
            last.push_back(&*change);
        }
    }
    std::reverse(last.begin(), last.end());
    return last;
}

} // namespace

bool QueueChange(CClientMsgHandler& handler, const stChange& change)
{
    const stAddress& address = change.address;
    switch (address.enType)
    {
    case enString:
        return handler.QueuePPC(address.enType, address.enPathType, address.nPath, address.nParam, change.value.strValue);
    case enRotary:
    case enFader:
        return handler.QueuePPC(address.enType, address.enPathType, address.nPath, address.nParam, change.value.fValue);
    default:
        return handler.QueuePPC(address.enType, address.enPathType, address.nPath, address.nParam, change.value.nValue);
    }
}

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
            Fail(Format("no image from an MC on %s:%u within %g seconds", m_Options.link.strGroup.c_str(), m_Options.link.unPort,
                        m_Options.dTimeout));
            return enExitTimedOut;
        }
        SleepSeconds(c_dLoopPeriod);
        Update();
    }
    return enExitDone;
}

int CClient::Send(const std::vector<stChange>& changes)
{
    std::vector<const stChange*> left = LastOfEachParameter(changes);
    LeaveOutWhatIsBack(left);
    m_lSent += static_cast<long>(left.size());
    SendOnce(left);
    tSteadyClock::time_point sent = tSteadyClock::now();
    tSteadyClock::time_point lastBack = sent;
    const long lAll = static_cast<long>(left.size());
    CProgress progress("changes back from the MC", lAll);
    while (!left.empty())
    {
        progress.Show(lAll - static_cast<long>(left.size()));
        SleepSeconds(c_dLoopPeriod);
        const std::size_t unBefore = left.size();
        if (Update())
        {
            LeaveOutWhatIsBack(left);
        }
        if (left.size() < unBefore)
        {
            lastBack = tSteadyClock::now();
        }
        else if (StopRequested())
        {
            return Fail(Format("interrupted: %s of %s back from the MC, all of them sent",
                               Grouped(lAll - static_cast<long>(left.size())).c_str(), Counted(lAll, "changes").c_str()));
        }
        else if (SecondsSince(lastBack) > m_Options.dTimeout)
        {
            Fail(Format("%s of %s never came back from the MC; the first: %s", Grouped(static_cast<long>(left.size())).c_str(),
                        Counted(static_cast<long>(changes.size()), "changes").c_str(), AddressText(left[0]->address).c_str()));
            return enExitTimedOut;
        }
        else if (SecondsSince(sent) > c_dSendAgainAfter)
        {
            SendOnce(left);
            m_lResent += static_cast<long>(left.size());
            sent = tSteadyClock::now();
        }
    }
    return enExitDone;
}

void CClient::LeaveOutWhatIsBack(std::vector<const stChange*>& changes) const
{
    const auto isBack = [this](const stChange* pChange)
    { return SameValue(pChange->address, ReadValue(m_Image, pChange->address), pChange->value); };
    changes.erase(std::remove_if(changes.begin(), changes.end(), isBack), changes.end());
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

// The queue is filled first and sent then, so that the datagrams are full.
void CClient::SendOnce(const std::vector<const stChange*>& changes)
{
    for (std::size_t unChange = 0; unChange < changes.size();)
    {
        const std::size_t unEnd = std::min(changes.size(), unChange + c_unChangesAtOnce);
        for (; unChange < unEnd; ++unChange)
        {
            if (m_Options.bDirect)
            {
                WriteValue(m_Image, *changes[unChange], true);
            }
            else
            {
                QueueChange(m_Follower, *changes[unChange]);
            }
        }
        m_Follower.SendAll();
        if (unChange < changes.size())
        {
            SleepSeconds(c_dBreather);
        }
    }
}
