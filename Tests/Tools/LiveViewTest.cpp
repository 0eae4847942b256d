#include "Web/LiveView.h"

#include "Support/SystemCalls.h"
#include "Support/Updates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace
{

using ::testing::HasSubstr;

constexpr char c_szFader[] = R"({"set": [["MicInput/3/Fader/0", "-6.5"]]})";

class CSomeShows : public IShows
{
public:
    const std::vector<std::string>& GetNames() override { return names; }
    bool Compare(const std::string& strName, const CBMAContainer&, tFrame& pFrame, std::string& strError) override
    {
        if (!bReady)
        {
            return false;
        }
        strError = strName == "Monday" ? "" : "there is no show \"" + strName + "\"";
        pFrame = strError.empty() ? std::make_shared<const std::string>("\3a show") : nullptr;
        return true;
    }

    std::vector<std::string> names = {"Monday"};
    bool bReady = true;
};

class LiveView : public ::testing::Test
{
protected:
    CLiveView& View(const std::string& strToken = "")
    {
        m_pView = std::make_unique<CLiveView>(
            stSeen{stMulticastLink(), "a link", strToken, &m_Shows}, [this](const stChange& change)
            { m_Sent.push_back(AddressText(change.address) + " " + ValueText(change.address, change.value)); });
        return *m_pView;
    }

    void Take(const stEndpoint& source, const Support::tBytes& bytes)
    {
        stDatagram datagram = {0, source, {0xe100002e, 7060}, bytes};
        m_pView->Take(datagram);
    }

    void Update(const stEndpoint& source = {0x0a000001, 40000})
    {
        const auto pImage = std::make_unique<CBMAContainer>();
        for (const int nUpdateType : {enMCUpdateRotary, enMCUpdateSurface})
        {
            for (const auto& bytes : Support::Datagrams(++m_unId, Support::Update(*pImage, nUpdateType)))
            {
                Take(source, bytes);
            }
        }
        m_pView->Next({}, 1);
    }

    // What pages are told of the link when so much time has passed.
    nlohmann::json Health(std::chrono::milliseconds time, const stTrafficLoss& loss = {})
    {
        m_Time.Pass(time);
        m_pView->Next(loss, 3);
        for (const std::string& strText : Told(*m_pView->MakeBrowser()))
        {
            const auto text = nlohmann::json::parse(strText, nullptr, false);
            if (text.is_object() && text.contains("health"))
            {
                return text["health"];
            }
        }
        return {};
    }

    // All that a browser is told now: texts as they are, the rest by its first byte.
    static std::vector<std::string> Told(IBrowser& browser)
    {
        std::vector<std::string> told;
        while (const tFrame pFrame = browser.NextFrame())
        {
            told.push_back(pFrame->front() == '{' ? *pFrame : std::to_string(pFrame->front()));
            if (told.size() > 10)
            {
                ADD_FAILURE() << "there is no end";
                break;
            }
        }
        return told;
    }

    Support::CSteadyTime m_Time;
    CSomeShows m_Shows;
    std::vector<std::string> m_Sent;
    std::unique_ptr<CLiveView> m_pView;
    std::uint32_t m_unId = 100;
};

typedef std::vector<std::string> tTexts;

} // namespace

TEST_F(LiveView, AChangeIsSentAsItIsAskedFor)
{
    const auto pBrowser = View().MakeBrowser();
    EXPECT_THAT(Told(*pBrowser), ::testing::ElementsAre(R"({"mayChange":true,"shows":["Monday"]})"));
    EXPECT_TRUE(pBrowser->OnText(c_szFader));
    EXPECT_TRUE(pBrowser->OnText(R"({"set": [["MicInput/3/Name", "Lead"], ["MicInput/3/Switch/0", "1"]]})"));
    EXPECT_EQ(tTexts({"MicInput/3/Fader/0 -6.5", "MicInput/3/String/1 \"Lead\"", "MicInput/3/Switch/0 1"}), m_Sent);
    EXPECT_EQ(tTexts(), Told(*pBrowser));
}

TEST_F(LiveView, NonsenseIsTheEnd)
{
    const auto pBrowser = View().MakeBrowser();
    for (const char* szText :
         {"", "x", "{", "[]", "7", "null", R"({"set": 1})", R"({"set": [1]})", R"({"set": [[]]})",
          R"({"set": [["MicInput/3/Fader/0"]]})", R"({"set": [["MicInput/3/Fader/0", 1]]})", R"({"set": {"a": 1}})",
          R"({"visible": 1})", R"({"token": 1})", R"({"show": 1})", "{\"set\": [[\"\xff\", \"1\"]]}"})
    {
        EXPECT_FALSE(pBrowser->OnText(szText)) << szText;
    }
    EXPECT_EQ(tTexts(), m_Sent);
}

TEST_F(LiveView, WhatCannotBeSetIsRefusedWithWhy)
{
    const auto pBrowser = View().MakeBrowser();
    Told(*pBrowser);
    const std::pair<const char*, const char*> aRefused[] = {
        {R"({"set": [["MicInput/144/Fader/0", "1"]]})", "path \\\"144\\\" is out of range"},
        {R"({"set": [["MicInput/3/Fader/0", "loud"]]})", "no value of type Fader"},
        {R"({"set": [["MicInput/*/Fader/0", "1"]]})", "more than one parameter"},
        {R"({"set": [["MicInput/3/Meter/0", "1"]]})", "the MC alone"},
        {R"({"set": [["MicInput/3/Fader/0", "-6.5"], ["Nobody/3/Fader/0", "1"]]})", "is no parameter group"}};
    for (const auto& refused : aRefused)
    {
        EXPECT_TRUE(pBrowser->OnText(refused.first));
        EXPECT_THAT(Told(*pBrowser), ::testing::ElementsAre(HasSubstr(refused.second))) << refused.first;
    }
    EXPECT_EQ(tTexts(), m_Sent); // of what is wrong in part nothing is sent
}

TEST_F(LiveView, TooManyChangesAreRefused)
{
    const auto pBrowser = View().MakeBrowser();
    Told(*pBrowser);
    std::string strChange = R"(["MicInput/3/Fader/0", "1"])";
    std::string strChanges = strChange;
    for (int nMore = 0; nMore < 63; ++nMore)
    {
        strChanges += "," + strChange;
    }
    EXPECT_TRUE(pBrowser->OnText("{\"set\": [" + strChanges + "]}"));
    EXPECT_EQ(64u, m_Sent.size());
    EXPECT_TRUE(pBrowser->OnText("{\"set\": [" + strChanges + "," + strChange + "]}"));
    EXPECT_EQ(64u, m_Sent.size());
    EXPECT_THAT(Told(*pBrowser), ::testing::ElementsAre(HasSubstr("too many")));
}

TEST_F(LiveView, WithATokenOnlyWhoKnowsItMayChange)
{
    CLiveView& view = View("0123456789abcdef");
    const auto pBrowser = view.MakeBrowser();
    EXPECT_THAT(Told(*pBrowser), ::testing::ElementsAre(HasSubstr("\"mayChange\":false")));
    for (const char* szToken : {"", "0123456789abcde", "0123456789abcdee", "0123456789abcdef0", "x"})
    {
        EXPECT_TRUE(pBrowser->OnText("{\"token\": \"" + std::string(szToken) + "\"}"));
        EXPECT_EQ(tTexts({R"({"mayChange":false})"}), Told(*pBrowser)) << szToken;
        EXPECT_TRUE(pBrowser->OnText(c_szFader));
        EXPECT_THAT(Told(*pBrowser), ::testing::ElementsAre(HasSubstr("may only look"))) << szToken;
    }
    EXPECT_EQ(tTexts(), m_Sent);
    EXPECT_TRUE(pBrowser->OnText(R"({"token": "0123456789abcdef"})"));
    EXPECT_EQ(tTexts({R"({"mayChange":true})"}), Told(*pBrowser));
    EXPECT_TRUE(pBrowser->OnText(c_szFader));
    EXPECT_EQ(tTexts({"MicInput/3/Fader/0 -6.5"}), m_Sent);
    EXPECT_TRUE(pBrowser->OnText(R"({"token": "another"})"));
    EXPECT_TRUE(pBrowser->OnText(c_szFader)); // the right stays
    EXPECT_EQ(2u, m_Sent.size());
    m_Sent.pop_back();
    EXPECT_TRUE(view.MakeBrowser()->OnText(c_szFader)); // another page doesn't know it by that
    EXPECT_EQ(1u, m_Sent.size());
}

TEST_F(LiveView, WhatWasNotYetToldIsToldTogether)
{
    CLiveView& view = View("0123456789abcdef");
    const auto pBrowser = view.MakeBrowser();
    EXPECT_TRUE(pBrowser->OnText(R"({"token": "0123456789abcdef"})"));
    EXPECT_TRUE(pBrowser->OnText(R"({"set": [["MicInput/3/Meter/0", "1"]]})"));
    EXPECT_THAT(Told(*pBrowser),
                ::testing::ElementsAre(::testing::AllOf(HasSubstr(R"("mayChange":true)"), HasSubstr(R"("shows":["Monday"])"),
                                                        HasSubstr("the MC alone"))));
}

TEST_F(LiveView, HealthTellsOfSilence)
{
    View();
    nlohmann::json health = Health(std::chrono::milliseconds(600));
    EXPECT_EQ(-1, health["silent"]);
    EXPECT_EQ(0, health["gap"]);
    EXPECT_EQ("", health["mc"]);
    EXPECT_EQ(3, health["browsers"]);
    EXPECT_EQ("waiting", health["types"][0]["state"]);
    Update();
    m_Time.Pass(std::chrono::milliseconds(250));
    Update();
    health = Health(std::chrono::milliseconds(500));
    EXPECT_EQ("10.0.0.1", health["mc"]);
    EXPECT_TRUE(health["whole"]);
    EXPECT_EQ("complete", health["types"][4]["state"]);
    EXPECT_NEAR(0.5, health["silent"], 1e-9);
    EXPECT_NEAR(0.5, health["types"][4]["age"], 1e-9);
    EXPECT_NEAR(0.5, health["gap"], 1e-9); // longer than the one before: it goes on
    health = Health(std::chrono::milliseconds(1500));
    EXPECT_NEAR(2, health["silent"], 1e-9);
    EXPECT_NEAR(2, health["gap"], 1e-9);
    Update();
    EXPECT_NEAR(2, Health(std::chrono::milliseconds(100))["gap"], 1e-9); // nothing new has been told
    EXPECT_NEAR(2, Health(std::chrono::milliseconds(500))["gap"], 1e-9);
    Update();
    EXPECT_NEAR(0.6, Health(std::chrono::milliseconds(500))["gap"], 1e-9); // each once
}

TEST_F(LiveView, HealthTellsWhereWhatIsLost)
{
    View();
    Update();
    Take({0x0a000001, 40000}, {1, 2, 3});
    const stTrafficLoss loss = {7, 4};
    const nlohmann::json health = Health(std::chrono::milliseconds(600), loss);
    EXPECT_EQ(R"([["kernel",7],["frame size",5],["header",0],["ring",0],["fragments",0],["decode",0]])", health["lost"].dump());
    Support::tBytes bytes = Support::Update(*std::make_unique<CBMAContainer>(), enMCUpdateSurface);
    bytes[17] = 0x7f; // of the length of its first block
    for (const Support::tBytes& datagram : Support::Datagrams(++m_unId, bytes))
    {
        Take({0x0a000001, 40000}, datagram);
    }
    EXPECT_EQ(1, Health(std::chrono::milliseconds(600), loss)["lost"][5][1]);
}

TEST_F(LiveView, HealthTellsWhoSends)
{
    View();
    Update();
    Update({0x0a000002, 40000});
    Take({0x0a000003, 50000}, {1, 2, 3});
    const nlohmann::json health = Health(std::chrono::milliseconds(1000));
    EXPECT_EQ(2, health["mcs"]);
    std::vector<std::string> names;
    for (const nlohmann::json& sender : health["senders"])
    {
        names.push_back(sender["name"]);
    }
    EXPECT_EQ(tTexts({"10.0.0.1:40000", "10.0.0.2:40000", "10.0.0.3:50000"}), names);
    EXPECT_EQ(3, health["senders"][2]["bytes"]);
    EXPECT_EQ(1, health["senders"][2]["datagrams"]);
    Update();
    EXPECT_EQ(1, Health(std::chrono::milliseconds(1000))["mcs"]);
    // Of very many those who send most.
    for (unsigned int un = 0; un < 30; ++un)
    {
        Take({0x0a000100 + un, 50000}, Support::tBytes(un < 18 ? 3 : 30));
    }
    const nlohmann::json busiest = Health(std::chrono::milliseconds(1000))["senders"];
    EXPECT_EQ(12u, busiest.size());
    EXPECT_EQ("10.0.1.18:50000", busiest[0]["name"]);
    EXPECT_EQ("10.0.1.29:50000", busiest[11]["name"]);
}

TEST_F(LiveView, ValuesComeWhenAllTypesHaveAndThePageIsSeen)
{
    const auto pBrowser = View().MakeBrowser();
    m_pView->Next({}, 1);
    EXPECT_THAT(Told(*pBrowser), ::testing::ElementsAre(HasSubstr("mayChange"), HasSubstr("\"health\"")));
    EXPECT_TRUE(pBrowser->OnText(R"({"visible": false})"));
    Update();
    EXPECT_EQ(tTexts(), Told(*pBrowser));
    EXPECT_TRUE(pBrowser->OnText(R"({"visible": true})"));
    EXPECT_EQ(tTexts({"1"}), Told(*pBrowser));
    EXPECT_EQ(tTexts(), Told(*pBrowser));
}

TEST_F(LiveView, AShowIsToldWhenItIsReady)
{
    const auto pBrowser = View().MakeBrowser();
    Update();
    Told(*pBrowser);
    m_Shows.bReady = false;
    EXPECT_TRUE(pBrowser->OnText(R"({"show": "Monday"})"));
    EXPECT_EQ(tTexts(), Told(*pBrowser));
    m_Shows.bReady = true;
    EXPECT_EQ(tTexts({"3"}), Told(*pBrowser));
    EXPECT_TRUE(pBrowser->OnText(R"({"show": "Sunday"})"));
    EXPECT_THAT(Told(*pBrowser), ::testing::ElementsAre(HasSubstr("there is no show")));
    EXPECT_TRUE(pBrowser->OnText(R"({"show": ""})"));
    EXPECT_EQ(tTexts(), Told(*pBrowser));
}
