#include "Runtime/Clock.h"

#include "ClientComms/ClientMsgHandler.h"
#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

// Handlers while the wall clock is anywhere, steps and stands still.
namespace
{

using Support::tBytes;

constexpr std::int64_t c_nMillisecond = 1000;
constexpr std::int64_t c_nSecond = 1000 * c_nMillisecond;
constexpr std::int64_t c_nHour = 3600 * c_nSecond;
constexpr std::int64_t c_n2038 = (std::int64_t(1) << 31) * c_nSecond; // where a signed second of 32 bits ends
constexpr std::int64_t c_n2106 = (std::int64_t(1) << 32) * c_nSecond; // and an unsigned one

std::int64_t g_nNow = 0;

class CNullHandler : public CClientMsgHandler
{
public:
    CNullHandler() : CClientMsgHandler(false) {}
    ~CNullHandler() override { Shutdown(); }
};

class Clock : public testing::Test
{
protected:
    Clock() : m_pHandler(new CNullHandler)
    {
        g_nNow = 1000 * c_nSecond;
        CClock::SetSource([] { return g_nNow; });
    }
    ~Clock() override { CClock::SetSource(nullptr); }

    void Restart(std::int64_t nNow)
    {
        g_nNow = nNow;
        m_pHandler.reset(new CNullHandler);
        ASSERT_TRUE(m_pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
    }

    // An update of this type comes, so much later, and is applied.
    void Receive(MCUpdateType enType, std::int64_t nLater)
    {
        g_nNow += nLater;
        tBytes update = Support::UpdateHeader(static_cast<std::uint32_t>(enType), 8);
        Support::AppendArray(update, {1, 2, 3, 4});
        tBytes datagram = Support::Datagram(0, 1, 1, 1, update);
        m_pHandler->OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()), "127.0.0.1");
        EXPECT_EQ(0, m_pHandler->UpdateBMA());
    }

    int UpdateLater(std::int64_t nLater)
    {
        g_nNow += nLater;
        return m_pHandler->UpdateBMA();
    }

    std::unique_ptr<CNullHandler> m_pHandler;
};

struct stMoment
{
    const char* szName;
    std::int64_t nStart;
};

const stMoment c_aMoments[] = {
    {"the first second", 1},
    {"now and here", 1700000000 * c_nSecond},
    {"2038 is reached at the first update", c_n2038 - 10 * c_nMillisecond},
    {"2038 is reached between two updates", c_n2038 - 30 * c_nMillisecond},
    {"after 2038", c_n2038 + c_nHour},
    {"2106 is reached between two updates", c_n2106 - 30 * c_nMillisecond},
    {"after 2106", c_n2106 + c_nHour},
    {"a clock of 32 bits after 2038", -c_n2038 + c_nHour},
    {"before 1970", -1000 * c_nSecond},
    {"1970 is reached between two updates", -30 * c_nMillisecond},
};

tBytes Bytes(const UDP_PACKET& packet, std::size_t unLength)
{
    const unsigned char* pBytes = reinterpret_cast<const unsigned char*>(&packet);
    return tBytes(pBytes, pBytes + unLength);
}

} // namespace

TEST_F(Clock, PeriodsAreTheSameAtEveryTime)
{
    for (const stMoment& moment : c_aMoments)
    {
        SCOPED_TRACE(moment.szName);
        Restart(moment.nStart);
        Receive(enMCUpdateSurface, 20 * c_nMillisecond);
        Receive(enMCUpdateSurface, 40 * c_nMillisecond);
        EXPECT_FLOAT_EQ(30.0f, m_pHandler->GetSurfUpdatePeriod());
        EXPECT_FLOAT_EQ(-1.0f, m_pHandler->GetSurfUpdatePeriod());
        Receive(enMCUpdateRotary, 15 * c_nMillisecond);
        EXPECT_FLOAT_EQ(75.0f, m_pHandler->GetRotsUpdatePeriod());
        Receive(enMCUpdateRotary, 5 * c_nMillisecond);
        EXPECT_FLOAT_EQ(5.0f, m_pHandler->GetRotsUpdatePeriod());
    }
}

TEST_F(Clock, TheMCIsSilentAfterSixtyMillisecondsAtEveryTime)
{
    for (const stMoment& moment : c_aMoments)
    {
        SCOPED_TRACE(moment.szName);
        Restart(moment.nStart);
        EXPECT_EQ(6, m_pHandler->UpdateBMA()) << "there was no surface update yet";
        Receive(enMCUpdateSurface, 20 * c_nMillisecond);
        EXPECT_EQ(7, UpdateLater(60 * c_nMillisecond));
        EXPECT_EQ(6, UpdateLater(1));
        EXPECT_EQ(6, UpdateLater(c_nHour));
        EXPECT_EQ(3, m_pHandler->GetMCTimeouts());
        EXPECT_EQ(0, m_pHandler->GetMCTimeouts());
        Receive(enMCUpdateSurface, 0);
        EXPECT_EQ(7, UpdateLater(0));
    }
}

TEST_F(Clock, AStepForwardIsAnIntervalAndASilence)
{
    Restart(1000 * c_nSecond);
    Receive(enMCUpdateSurface, 20 * c_nMillisecond);
    EXPECT_EQ(6, UpdateLater(c_nHour));
    Receive(enMCUpdateSurface, 20 * c_nMillisecond);
    EXPECT_EQ(7, UpdateLater(0));
    EXPECT_FLOAT_EQ((20.0f + 3600020.0f) / 2, m_pHandler->GetSurfUpdatePeriod());
    Receive(enMCUpdateSurface, 20 * c_nMillisecond);
    EXPECT_FLOAT_EQ(20.0f, m_pHandler->GetSurfUpdatePeriod());
}

TEST_F(Clock, AStepBackAddsNothingAndIsNoSilence)
{
    Restart(1000 * c_nSecond + c_nHour);
    Receive(enMCUpdateSurface, 20 * c_nMillisecond);
    EXPECT_EQ(7, UpdateLater(-c_nHour));
    Receive(enMCUpdateSurface, 0);
    EXPECT_FLOAT_EQ(10.0f, m_pHandler->GetSurfUpdatePeriod());
    EXPECT_EQ(6, UpdateLater(61 * c_nMillisecond)) << "time counts from the update after the step";
    Receive(enMCUpdateSurface, 0);
    EXPECT_FLOAT_EQ(61.0f, m_pHandler->GetSurfUpdatePeriod());
}

// A clock of 32 bits goes from 2038 to 1901.
TEST_F(Clock, AFarStepBackAddsNothingAndTimeGoesOnFromThere)
{
    Restart(c_n2038 - 30 * c_nMillisecond);
    Receive(enMCUpdateSurface, 20 * c_nMillisecond);
    Receive(enMCUpdateSurface, -2 * c_n2038 + 20 * c_nMillisecond);
    EXPECT_FLOAT_EQ(10.0f, m_pHandler->GetSurfUpdatePeriod());
    Receive(enMCUpdateSurface, 20 * c_nMillisecond);
    EXPECT_FLOAT_EQ(20.0f, m_pHandler->GetSurfUpdatePeriod());
    EXPECT_EQ(7, UpdateLater(60 * c_nMillisecond));
    EXPECT_EQ(6, UpdateLater(1));
}

TEST_F(Clock, AClockThatStandsStillMeasuresNothing)
{
    Restart(1000 * c_nSecond);
    Receive(enMCUpdateSurface, 0);
    Receive(enMCUpdateSurface, 0);
    EXPECT_FLOAT_EQ(0.0f, m_pHandler->GetSurfUpdatePeriod());
    EXPECT_EQ(7, UpdateLater(0));
    EXPECT_EQ(0, m_pHandler->GetMCTimeouts());
}

TEST_F(Clock, TheFirstIntervalCountsFromInitialiseClient)
{
    Receive(enMCUpdateSurface, c_nHour);
    EXPECT_FLOAT_EQ(0.0f, m_pHandler->GetSurfUpdatePeriod()) << "without it";
    Restart(1000 * c_nSecond);
    Receive(enMCUpdateSurface, 1234 * c_nMillisecond);
    EXPECT_FLOAT_EQ(1234.0f, m_pHandler->GetSurfUpdatePeriod());
    Restart(1000 * c_nSecond);
    Receive(enMCUpdateSurface, -c_nHour);
    EXPECT_FLOAT_EQ(0.0f, m_pHandler->GetSurfUpdatePeriod()) << "set back meanwhile";
}

TEST_F(Clock, OutgoingMessageIdsAreTheSecondsModuloTwoToTheThirtySecond)
{
    const struct
    {
        std::int64_t nNow;
        const char* szHeader;
    } rows[] = {{1, "00000001 00000000 00000001 00000001 00000002"},
                {c_n2038 - 1, "00000001 7fffffff 00000001 00000001 00000002"},
                {c_n2038, "00000001 80000000 00000001 00000001 00000002"},
                {c_n2106 - 1, "00000001 ffffffff 00000001 00000001 00000002"},
                {c_n2106 + 5 * c_nSecond, "00000001 00000005 00000001 00000001 00000002"},
                {-1 * c_nSecond, "00000001 ffffffff 00000001 00000001 00000002"},
                {-c_n2038, "00000001 80000000 00000001 00000001 00000002"}};
    const auto pPacket = std::make_unique<UDP_PACKET>();
    const unsigned char acData[] = {1, 2};
    for (const auto& row : rows)
    {
        g_nNow = row.nNow;
        ASSERT_TRUE(m_pHandler->GenerateMultiplePPCPacket(acData, 2, pPacket.get()));
        EXPECT_EQ(Support::Hex(row.szHeader), Bytes(*pPacket, 20));
    }
}

TEST_F(Clock, FragmentsOfEveryMessageIdAreMatched)
{
    const std::uint32_t aunIds[] = {0, 1, 0x7fffffff, 0x80000000, 0x80000001, 0xffffffff};
    for (const std::uint32_t unId : aunIds)
    {
        const auto pBase = std::make_unique<CMsgHandlerBase>();
        tBytes joined(8);
        unsigned char* pJoined = joined.data();
        int nSize = static_cast<int>(joined.size());
        const auto take = [&](std::uint32_t unOf, std::uint32_t unNumber, const tBytes& payload)
        {
            const tBytes datagram = Support::Datagram(7, unOf, unNumber, 2, payload);
            return pBase->ValidatePacketSequence(reinterpret_cast<const char*>(datagram.data()), static_cast<long>(datagram.size()),
                                                 &pJoined, nSize);
        };
        EXPECT_EQ(-1, take(unId, 2, {3, 4}));
        EXPECT_EQ(-1, take(unId ^ 0x80000000u, 1, {9})) << "another sign";
        EXPECT_EQ(-1, take(unId ^ 1u, 1, {9})) << "another number";
        EXPECT_EQ(7, take(unId, 1, {1, 2})) << unId;
        EXPECT_EQ(4, nSize);
        EXPECT_EQ(Support::Hex("01 02 03 04 00 00 00 00"), joined);
    }
}

TEST_F(Clock, NoSourceIsTheSystems)
{
    CClock::SetSource(nullptr);
    const std::int64_t nBefore = std::time(nullptr);
    const std::int64_t nClock = CClock::Microseconds() / c_nSecond;
    EXPECT_LE(nBefore, nClock + 1);
    EXPECT_GE(nBefore + 60, nClock);
}
