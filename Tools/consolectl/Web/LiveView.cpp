#include "Web/LiveView.h"

#include "Network/LossLayers.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace
{

typedef nlohmann::json tJson;

constexpr std::chrono::milliseconds c_HealthPeriod(500);
constexpr std::size_t c_unMostChanges = 64; // of one text
constexpr std::size_t c_unMostSenders = 12;

// Equal texts take as long as others.
bool IsSame(const std::string& strA, const std::string& strB)
{
    unsigned char ucDifferent = strA.size() == strB.size() ? 0 : 1;
    for (std::size_t un = 0; un < std::min(strA.size(), strB.size()); ++un)
    {
        ucDifferent = static_cast<unsigned char>(ucDifferent | (strA[un] ^ strB[un]));
    }
    return ucDifferent == 0;
}

tFrame MakeText(const tJson& text)
{
    return std::make_shared<const std::string>(text.dump(-1, ' ', true, tJson::error_handler_t::replace));
}

// What a page asks for: a parameter's address as text, and its value as text. Throws stWrongUse.
stChange ReadChange(const tJson& change)
{
    const stAddress address = ParseAddress(change.at(0).get<std::string>());
    return {address, ParseValue(address.enType, change.at(1).get<std::string>())};
}

// Those who send most, in an order that stays.
std::vector<std::pair<std::string, stSecond::stSender>> BusiestByName(const stSecond& second)
{
    std::vector<std::pair<std::string, stSecond::stSender>> senders = second.Senders();
    senders.resize(std::min(senders.size(), c_unMostSenders));
    std::sort(senders.begin(), senders.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    return senders;
}

} // namespace

class CLiveView::CPage : public IBrowser
{
public:
    explicit CPage(CLiveView& view) : m_View(view), m_bMayChange(view.m_Seen.strToken.empty())
    {
        static const std::vector<std::string> c_None;
        Answer({{"mayChange", m_bMayChange}, {"shows", view.m_Seen.pShows == nullptr ? c_None : view.m_Seen.pShows->GetNames()}});
    }

    bool OnText(const std::string& strText) override
    {
        const tJson text = tJson::parse(strText, nullptr, false);
        if (!text.is_object())
        {
            return false;
        }
        try
        {
            Take(text);
            return true;
        }
        catch (const stWrongUse& wrong)
        {
            Answer({{"refused", wrong.what()}});
            return true;
        }
        catch (const tJson::exception&)
        {
            return false;
        }
    }

    tFrame NextFrame() override
    {
        if (!m_Answer.empty())
        {
            return TakeAnswer();
        }
        if (m_unHealth != m_View.m_unHealth)
        {
            m_unHealth = m_View.m_unHealth;
            return m_View.m_pHealth;
        }
        if (!m_View.m_Activity.Shadow().IsWhole()) // values that nobody has sent are none
        {
            return nullptr;
        }
        if (tFrame pShow = m_bShowWanted ? NextShow() : nullptr)
        {
            return pShow;
        }
        if (!m_bVisible || m_unSeen == m_View.m_Frames.GetNumber())
        {
            return nullptr;
        }
        tFrame pFrame = m_View.m_Frames.Since(m_unSeen);
        m_unSeen = m_View.m_Frames.GetNumber();
        return pFrame;
    }

private:
    void Take(const tJson& text)
    {
        m_bVisible = text.value("visible", m_bVisible);
        if (text.contains("token"))
        {
            const bool bSame = IsSame(text.at("token").get<std::string>(), m_View.m_Seen.strToken);
            m_bMayChange = m_bMayChange || bSame;
            Answer({{"mayChange", m_bMayChange}});
        }
        m_strShow = text.value("show", m_strShow);
        m_bShowWanted = m_View.m_Seen.pShows != nullptr && (text.contains("show") ? !m_strShow.empty() : m_bShowWanted);
        const tJson changes = text.value("set", tJson::array());
        if (!changes.empty() && !m_bMayChange)
        {
            throw stWrongUse("set", "this page may only look: the address with the token is what consolectl printed");
        }
        if (changes.size() > c_unMostChanges)
        {
            throw stWrongUse("set", "these are too many changes at once");
        }
        std::vector<stChange> read;
        for (const tJson& change : changes)
        {
            read.push_back(ReadChange(change));
        }
        std::for_each(read.begin(), read.end(), m_View.m_Send);
    }

    // With what else hasn't been told yet.
    void Answer(const tJson& answer) { m_Answer.update(answer); }

    tFrame TakeAnswer()
    {
        const tJson answer = std::move(m_Answer);
        m_Answer = tJson::object();
        return MakeText(answer);
    }

    // The show that was asked for, unless it is too soon.
    tFrame NextShow()
    {
        tFrame pFrame;
        std::string strError;
        m_bShowWanted = !m_View.m_Seen.pShows->Compare(m_strShow, m_View.m_Activity.Shadow().Image(), pFrame, strError);
        if (!strError.empty())
        {
            Answer({{"noShow", strError}});
            return TakeAnswer();
        }
        return pFrame;
    }

    CLiveView& m_View;
    bool m_bShowWanted = false;
    std::string m_strShow;
    bool m_bMayChange;
    bool m_bVisible = true;
    std::uint32_t m_unSeen = 0;
    std::uint32_t m_unHealth = 0;
    tJson m_Answer = tJson::object();
};

CLiveView::CLiveView(stSeen seen, std::function<void(const stChange&)> send)
    : m_Seen(std::move(seen)), m_Send(std::move(send)), m_Activity(m_Seen.link), m_Frames(m_Activity.Shadow())
{
}

void CLiveView::Take(stDatagram& datagram)
{
    m_Activity.Take(datagram);
    m_Frames.Take();
    if (m_Activity.Shadow().Follower().GetUpdatesApplied() != m_unApplied)
    {
        m_dLongestGap = LongestGap();
        m_LastUpdate = tSteadyClock::now();
        m_unApplied = m_Activity.Shadow().Follower().GetUpdatesApplied();
    }
}

void CLiveView::Next(const stTrafficLoss& loss, int nBrowsers)
{
    m_Frames.Next();
    m_Activity.EndSecond();
    if (tSteadyClock::now() >= m_NextHealth)
    {
        m_pHealth = MakeHealth(loss, nBrowsers);
        m_dLongestGap = 0;
        ++m_unHealth;
        m_NextHealth = tSteadyClock::now() + c_HealthPeriod;
    }
}

std::unique_ptr<IBrowser> CLiveView::MakeBrowser()
{
    return std::make_unique<CPage>(*this);
}

// As long as none comes, it grows.
double CLiveView::LongestGap() const
{
    return m_unApplied == 0 ? 0 : std::max(m_dLongestGap, SecondsSince(m_LastUpdate));
}

tFrame CLiveView::MakeHealth(const stTrafficLoss& loss, int nBrowsers)
{
    const stSecond& second = m_Activity.GetSecond();
    CShadow& shadow = m_Activity.Shadow();
    tJson types = tJson::array();
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const auto enType = static_cast<tagenPPCMessageType>(nType);
        types.push_back({{"state", TypeStateText(shadow.Follower().GetState(enType))},
                         {"age", shadow.Follower().GetAge(enType)},
                         {"changes", second.PerSecond(second.adChanges[nType])}});
    }
    tJson senders = tJson::array();
    for (const auto& sender : BusiestByName(second))
    {
        senders.push_back({{"name", sender.first},
                           {"datagrams", second.PerSecond(sender.second.dDatagrams)},
                           {"bytes", second.PerSecond(sender.second.dBytes)}});
    }
    const stReceiveStatistics statistics = shadow.Follower().GetStatistics();
    const auto lostIn = [&](const std::string& strLayer, std::uint64_t unCount)
    {
        for (const stLossLayer& layer : c_aLossLayers)
        {
            unCount += strLayer == layer.szLayer ? statistics.aunCount[layer.enCounter] : 0;
        }
        return tJson({strLayer, unCount});
    };
    const tJson health = {
        {"health",
         {{"link", m_Seen.strLink},
          {"mc", shadow.SenderText()},
          {"mcs", second.CountMCs()},
          {"silent", m_Activity.SecondsSilent()},
          {"whole", shadow.IsWhole()},
          {"updates", second.PerSecond(second.dUpdates)},
          {"gap", LongestGap()},
          {"requests", second.PerSecond(second.dRequests)},
          {"browsers", nBrowsers},
          {"types", types},
          {"senders", senders},
          {"lost",
           tJson::array({lostIn("kernel", loss.unKernel), lostIn("frame size", loss.unSize), lostIn("header", 0), lostIn("ring", 0),
                         lostIn("fragments", static_cast<std::uint64_t>(m_Activity.GetLost())), lostIn("decode", 0)})}}}};
    return MakeText(health);
}
