#include "Network/SentChanges.h"

#include <algorithm>
#include <array>
#include <set>

namespace
{

// Between as many changes as are sent at once the MC gets time to take them.
constexpr double c_dBreather = 0.005;

constexpr double c_dSendAgainAfter = 0.5;

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

CSentChanges::CSentChanges(const std::vector<stChange>& changes, CBMAContainer& image, CClientMsgHandler& handler, bool bDirect)
    : m_lAll(static_cast<long>(changes.size())), m_Image(image), m_Handler(handler), m_bDirect(bDirect),
      m_Left(LastOfEachParameter(changes))
{
    LeaveOutWhatIsBack();
}

// The queue is filled first and sent then, so that the datagrams are full.
void CSentChanges::Send()
{
    for (std::size_t unChange = 0; unChange < m_Left.size();)
    {
        const std::size_t unEnd = std::min(m_Left.size(), unChange + c_unChangesAtOnce);
        for (; unChange < unEnd; ++unChange)
        {
            if (m_bDirect)
            {
                WriteValue(m_Image, *m_Left[unChange], true);
            }
            else
            {
                QueueChange(m_Handler, *m_Left[unChange]);
            }
        }
        m_Handler.SendAll();
        if (unChange < m_Left.size())
        {
            SleepSeconds(c_dBreather);
        }
    }
    m_Sent = tSteadyClock::now();
}

void CSentChanges::LeaveOutWhatIsBack()
{
    const auto isBack = [this](const stChange* pChange)
    { return SameValue(pChange->address, ReadValue(m_Image, pChange->address), pChange->value); };
    m_Left.erase(std::remove_if(m_Left.begin(), m_Left.end(), isBack), m_Left.end());
}

long CSentChanges::SendAgain()
{
    if (SecondsSince(m_Sent) <= c_dSendAgainAfter)
    {
        return 0;
    }
    Send();
    return CountLeft();
}

std::string CSentChanges::LeftText() const
{
    return Format("%s of %s never came back from the MC; the first: %s", Grouped(CountLeft()).c_str(),
                  Counted(m_lAll, "changes").c_str(), AddressText(m_Left[0]->address).c_str());
}
