#include "Network/StateFollower.h"

#include "Support/Network.h"
#include "Support/SystemCalls.h"
#include "Support/Updates.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

namespace
{

using std::chrono::milliseconds;
using Support::tBytes;

// Rotary updates are five datagrams, surface updates and those of switches and integers two.
class StateFollower : public ::testing::Test
{
protected:
    void Receive(const tBytes& datagram, const char* szSender = "10.0.0.1")
    {
        std::vector<char> bytes(datagram.begin(), datagram.end());
        m_pFollower->OnReceivedData(bytes.data(), static_cast<long>(bytes.size()), RySocketIO::CIPString(szSender));
    }

    std::vector<tBytes> Datagrams(int nUpdateType) { return Support::Datagrams(++m_unId, Support::Update(*m_pMC, nUpdateType)); }

    // Of a whole update, the first ones.
    void ReceiveUpdate(int nUpdateType, std::size_t unDatagrams = 5, const char* szSender = "10.0.0.1")
    {
        std::vector<tBytes> datagrams = Datagrams(nUpdateType);
        datagrams.resize(std::min(datagrams.size(), unDatagrams));
        for (const tBytes& datagram : datagrams)
        {
            Receive(datagram, szSender);
        }
        m_pFollower->UpdateBMA();
    }

    // By message type, from strings to meters: a letter for the state of each.
    std::string States() const
    {
        std::string strStates;
        for (int nType = 0; nType < c_nMessageTypes; ++nType)
        {
            strStates += "wpcs"[m_pFollower->GetState(static_cast<tagenPPCMessageType>(nType))];
        }
        return strStates;
    }

    std::unique_ptr<Support::CSteadyTime> m_pTime = std::make_unique<Support::CSteadyTime>();
    const std::unique_ptr<CBMAContainer> m_pMC = std::make_unique<CBMAContainer>();
    const std::unique_ptr<CBMAContainer> m_pImage = std::make_unique<CBMAContainer>();
    std::unique_ptr<CStateFollower> m_pFollower = std::make_unique<CStateFollower>(*m_pImage);
    std::uint32_t m_unId = 0;
};

} // namespace

TEST_F(StateFollower, EveryTypeIsWaitedForAtFirst)
{
    m_pTime->Pass(std::chrono::hours(1));
    EXPECT_EQ("wwwwwww", States());
    EXPECT_EQ("waiting: String Rotary Switch Integer Fader Other Meter", m_pFollower->StatesText());
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        EXPECT_EQ(-1.0, m_pFollower->GetAge(static_cast<tagenPPCMessageType>(nType))) << nType;
    }
    EXPECT_EQ(0u, m_pFollower->GetTypesReceived());
    RySocketIO::CIPString sender;
    EXPECT_FALSE(m_pFollower->GetLastSender(sender));
}

TEST_F(StateFollower, TypesArePartialWhoseUpdateHasBegun)
{
    ReceiveUpdate(enMCUpdateSurface, 1);
    EXPECT_EQ("wwppppp", States());
    EXPECT_EQ("waiting: String Rotary; partial: Switch Integer Fader Other Meter", m_pFollower->StatesText());
    ReceiveUpdate(enMCUpdateRotary, 4);
    EXPECT_EQ("ppppppp", States());
    EXPECT_EQ(-1.0, m_pFollower->GetAge(enRotary)) << "none came whole";
    m_pTime->Pass(milliseconds(999));
    EXPECT_EQ("ppppppp", States());
    m_pTime->Pass(milliseconds(1));
    EXPECT_EQ("wwwwwww", States());
}

TEST_F(StateFollower, TypesAreCompleteForASecondAfterTheirUpdate)
{
    ReceiveUpdate(enMCUpdateSwitchesIntegers4);
    EXPECT_EQ("wwccwww", States());
    EXPECT_EQ(1u, m_pFollower->GetCount(enSwitch));
    EXPECT_EQ(0u, m_pFollower->GetCount(enFader));
    EXPECT_EQ(0x0cu, m_pFollower->GetTypesReceived());
    m_pTime->Pass(milliseconds(999));
    ReceiveUpdate(enMCUpdateRotary);
    EXPECT_EQ("ccccwww", States());
    EXPECT_EQ(0x0fu, m_pFollower->GetTypesReceived());
    EXPECT_EQ("waiting: Fader Other Meter", m_pFollower->StatesText());
    m_pTime->Pass(milliseconds(1));
    EXPECT_EQ("ccsswww", States());
    ReceiveUpdate(enMCUpdateSurface);
    EXPECT_EQ("ccccccc", States());
    EXPECT_EQ("all complete", m_pFollower->StatesText());
    EXPECT_EQ(c_unWholeImage, m_pFollower->GetTypesReceived());
    m_pTime->Pass(milliseconds(1000));
    EXPECT_EQ("sssssss", States());
}

TEST_F(StateFollower, NoMomentIsTakenForNever)
{
    for (int nMilliseconds = 0; nMilliseconds < 3; ++nMilliseconds)
    {
        m_pFollower = std::make_unique<CStateFollower>(*m_pImage);
        m_pTime->Pass(milliseconds(nMilliseconds));
        ReceiveUpdate(enMCUpdateSwitchesIntegers4, 1);
        EXPECT_EQ("wwppwww", States()) << nMilliseconds;
        ReceiveUpdate(enMCUpdateSwitchesIntegers4);
        EXPECT_EQ("wwccwww", States()) << nMilliseconds;
    }
}

TEST_F(StateFollower, AnAgeIsTheTimeSinceTheTypesLastWholeUpdate)
{
    m_pTime->Pass(milliseconds(123));
    ReceiveUpdate(enMCUpdateRotary);
    EXPECT_EQ(0.0, m_pFollower->GetAge(enString));
    m_pTime->Pass(milliseconds(200));
    ReceiveUpdate(enMCUpdateSurface);
    m_pTime->Pass(milliseconds(2900));
    ReceiveUpdate(enMCUpdateSwitchesIntegers8);
    ReceiveUpdate(enMCUpdateRotary, 4); // doesn't come whole
    m_pTime->Pass(milliseconds(400));
    for (const auto& [enType, dAge] : {std::pair<tagenPPCMessageType, double>{enString, 3.5},
                                       {enRotary, 3.5},
                                       {enSwitch, 0.4},
                                       {enInteger, 0.4},
                                       {enFader, 3.3},
                                       {enOther, 3.3},
                                       {enMeter, 3.3}})
    {
        EXPECT_DOUBLE_EQ(dAge, m_pFollower->GetAge(enType)) << enType;
    }
    EXPECT_EQ("ppccsss", States());
    EXPECT_EQ("partial: String 3.5 s Rotary 3.5 s; stale: Fader 3.3 s Other 3.3 s Meter 3.3 s", m_pFollower->StatesText());
}

TEST_F(StateFollower, OnlyTheFirstFragmentOfAnUpdateBeginsIt)
{
    std::vector<tBytes> datagrams = Datagrams(enMCUpdateRotary);
    for (std::size_t unFragment = 1; unFragment < datagrams.size(); ++unFragment)
    {
        // As if it were a first one by its payload.
        std::copy(datagrams[0].begin() + c_nDatagramHeader, datagrams[0].begin() + c_nDatagramHeader + 17,
                  datagrams[unFragment].begin() + c_nDatagramHeader);
        Receive(datagrams[unFragment]);
        EXPECT_EQ("wwwwwww", States()) << unFragment;
    }
    tBytes others = datagrams[0];
    others[3] = enDatagramPPC;
    Receive(others);
    EXPECT_EQ("wwwwwww", States()) << "no update";
    Receive(Datagrams(enMCUpdateSwitchesIntegers4)[0]);
    EXPECT_EQ("wwppwww", States());
}

TEST_F(StateFollower, AFirstFragmentBeginsAnUpdateByTheHeaderThatItHasWhole)
{
    const tBytes whole = Support::Datagram(0, 7, 1, 2, Support::UpdateHeader(enMCUpdateSurface, 0));
    for (std::size_t unLength = 0; unLength < whole.size(); ++unLength)
    {
        Receive(tBytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(unLength)));
        EXPECT_EQ("wwwwwww", States()) << unLength;
    }
    m_pFollower->OnReceivedData(nullptr, 100, RySocketIO::CIPString("10.0.0.1"));
    EXPECT_EQ("wwwwwww", States());
    for (const std::uint32_t unUpdateType : {0x80000001u, 0xffffffffu})
    {
        Receive(Support::Datagram(0, 7, 1, 2, Support::UpdateHeader(unUpdateType, 0)));
        EXPECT_EQ("wwwwwww", States()) << "of no type";
    }
    Receive(whole);
    EXPECT_EQ("wwppppp", States());
    Receive(Support::Datagram(0, 7, 1, 2, Support::UpdateHeader(enMCUpdateAll, 0)));
    EXPECT_EQ("ppppppp", States());
}

TEST_F(StateFollower, AnUpdateThatDoesNotFitTheImageLeavesItsTypesPartial)
{
    tBytes update = Support::UpdateHeader(enMCUpdateSwitchesIntegers4, 0);
    Support::AppendArray(update, tBytes(17338));
    Support::AppendArray(update, tBytes(59423));
    for (const tBytes& datagram : Support::Datagrams(1, update))
    {
        Receive(datagram);
    }
    EXPECT_EQ(CImageFollower::enBlockLeftOut, m_pFollower->UpdateBMA());
    EXPECT_EQ("wwppwww", States());
    EXPECT_EQ(0x04u, m_pFollower->GetTypesReceived());
}

TEST_F(StateFollower, TheSenderOfTheLastUpdateIsTold)
{
    RySocketIO::CIPString sender;
    ReceiveUpdate(enMCUpdateSurface, 2, "10.0.0.1");
    EXPECT_TRUE(m_pFollower->GetLastSender(sender));
    EXPECT_STREQ("10.0.0.1", sender.Text());
    EXPECT_FALSE(m_pFollower->GetLastSender(sender));
    ReceiveUpdate(enMCUpdateRotary, 5, "10.0.0.2");
    EXPECT_TRUE(m_pFollower->GetLastSender(sender));
    EXPECT_STREQ("10.0.0.2", sender.Text());
}

TEST_F(StateFollower, StatesHaveNames)
{
    EXPECT_STREQ("waiting", TypeStateText(enTypeWaiting));
    EXPECT_STREQ("partial", TypeStateText(enTypePartial));
    EXPECT_STREQ("complete", TypeStateText(enTypeComplete));
    EXPECT_STREQ("stale", TypeStateText(enTypeStale));
}

TEST_F(StateFollower, ItsStatisticsAreTheCountersThatMovedAndTheSenders)
{
    ReceiveUpdate(enMCUpdateSurface, 2, "10.0.0.1");
    ReceiveUpdate(enMCUpdateRotary, 1, "10.0.0.2");
    Receive(tBytes(19), "10.0.0.2");
    testing::internal::CaptureStdout();
    PrintStatistics(*m_pFollower);
    std::string strPrinted = testing::internal::GetCapturedStdout();
    for (std::size_t unAt; (unAt = strPrinted.find("\r\033[K")) != std::string::npos;) // where the tests write to a terminal
    {
        strPrinted.erase(unAt, 4);
    }
    EXPECT_EQ("             4  datagrams\n"
              "       171,508  bytes of datagrams\n"
              "             1  rejected: no data, or shorter than a header\n"
              "             2  fragments kept for a message under way\n"
              "             1  datagrams that completed a message\n"
              "             1  updates given to the decoder\n"
              "             1  updates applied\n"
              "             2  datagrams from 10.0.0.1, 106,489 bytes\n"
              "             2  datagrams from 10.0.0.2, 65,019 bytes\n",
              strPrinted);
}

// The same through a socket, whose thread tells what has begun.
TEST_F(StateFollower, FollowsTheGroupThatItJoined)
{
    if (!Support::IsOwnNetwork())
    {
        GTEST_SKIP() << "not in a network namespace of its own";
    }
    m_pTime.reset(); // it is one thread's
    constexpr char c_szGroup[] = "239.1.1.4";
    RySocketIO::CSocket sender(RySocketIO::enConnectionUDP, false, false);
    ASSERT_TRUE(sender.InitialiseLocalSockets(0, "127.0.0.1", nullptr, 1));
    const unsigned int unPort = sender.GetLocalPort(); // which nobody else has
    ASSERT_TRUE(m_pFollower->InitialiseClient(unPort, nullptr, c_szGroup, nullptr));
    ASSERT_EQ(unPort, m_pFollower->GetLocalPort());
    const std::vector<tBytes> surface = Datagrams(enMCUpdateSurface);
    // Sends the first datagrams of an update again and again until the states are these.
    const auto await = [&](std::size_t unDatagrams, const std::string& strStates)
    {
        for (int nTry = 0; nTry < 10000 && States() != strStates; ++nTry)
        {
            for (std::size_t unDatagram = 0; unDatagram < unDatagrams; ++unDatagram)
            {
                const tBytes& bytes = surface[unDatagram];
                EXPECT_TRUE(sender.Send(c_szGroup, unPort, reinterpret_cast<const char*>(bytes.data()), long(bytes.size())));
            }
            std::this_thread::sleep_for(milliseconds(1));
            m_pFollower->UpdateBMA();
        }
        return States();
    };
    EXPECT_EQ("wwppppp", await(1, "wwppppp"));
    EXPECT_EQ("wwccccc", await(2, "wwccccc"));
    EXPECT_EQ(0x7cu, m_pFollower->GetTypesReceived());
    RySocketIO::CIPString last;
    EXPECT_TRUE(m_pFollower->GetLastSender(last));
    EXPECT_STREQ("127.0.0.1", last.Text());
    m_pFollower->Shutdown();
}
