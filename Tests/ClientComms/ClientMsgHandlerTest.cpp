#include "ClientComms/ClientMsgHandler.h"

#include "Runtime/Clock.h"
#include "Runtime/Poison.h"
#include "Support/Bytes.h"
#include "Support/DebugLog.h"
#include "Support/SystemCalls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{

using RySocketIO::CIPString;
using Support::Datagram;
using Support::Hex;
using Support::tBytes;
typedef std::vector<std::string> tLines;

const char* const c_szPartial = "CClientMsgHandler::OnReceivedData - received partial packet";
const char* const c_szWrongType =
    "CClientMsgHandler::OnReceivedData - received incorrect packet type (should be bma update), ignoring";
const char* const c_szCalled = "CClientMsgHandler::ReceivedMCData - called";

std::atomic<int> g_nNow{0}; // microseconds after g_nEpoch
std::int64_t g_nEpoch = 0;

std::int64_t Now()
{
    return g_nEpoch + g_nNow;
}

std::string ParseError(int nCode, int nCache)
{
    return "CClientMsgHandler::ReceivedMCData - error with update msg parsing: " + std::to_string(nCode) + ", cache " +
           std::to_string(nCache);
}

// An update whose array 2 (array 0 when rotary, all or unknown) has these bytes.
tBytes Update(std::uint32_t unType, const tBytes& data)
{
    tBytes bytes = Support::UpdateHeader(unType, static_cast<std::uint32_t>(4 + data.size()));
    Support::AppendArray(bytes, data);
    return bytes;
}

tBytes Single(const tBytes& message, std::uint32_t unType = 0)
{
    return Datagram(unType, 7, 1, 1, message);
}

tBytes Surface(unsigned char ucMark)
{
    return Single(Update(1, tBytes(9, ucMark)));
}

const tBytes c_Bad = Single(Support::UpdateHeader(1, 0, 2));

// Keeps the array that each update brings, and answers 100 and so on.
class CKeepingHandler : public CClientMsgHandler
{
public:
    CKeepingHandler() : CClientMsgHandler(false) {}
    ~CKeepingHandler() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        if (m_bThrow)
        {
            throw std::runtime_error("no");
        }
        tBytes bytes;
        for (int nType = 0; nType < c_nMessageTypes; ++nType)
        {
            const unsigned char* pData = nullptr;
            int nLength = 0;
            if (update.GetArray(static_cast<tagenPPCMessageType>(nType), pData, nLength))
            {
                bytes.push_back(static_cast<unsigned char>(nType));
                bytes.insert(bytes.end(), pData, pData + nLength);
            }
        }
        m_Applied.push_back(bytes);
        m_Sequences.push_back(GetUpdateSequence());
        return m_nAnswer++;
    }

    bool m_bThrow = false;
    int m_nAnswer = 100;
    std::vector<tBytes> m_Applied;
    std::vector<std::uint32_t> m_Sequences;
};

class ClientMsgHandler : public ::testing::Test
{
protected:
    ClientMsgHandler()
    {
        g_nNow = 0;
        g_nEpoch = std::int64_t(1700000000) * 1000000;
        CClock::SetSource(&Now);
    }
    ~ClientMsgHandler() override { CClock::SetSource(nullptr); }

    // Gives a datagram to the handler in a block of exactly its size, and returns what was logged.
    tLines Deliver(const tBytes& datagram, const char* szSender = "10.0.0.1")
    {
        const std::unique_ptr<char[]> pExact(new char[datagram.size()]);
        std::copy(datagram.begin(), datagram.end(), pExact.get());
        m_Log.Take();
        testing::internal::CaptureStdout();
        m_pHandler->OnReceivedData(pExact.get(), static_cast<long>(datagram.size()), CIPString(szSender));
        m_strPrinted = testing::internal::GetCapturedStdout();
        return m_Log.Take();
    }

    void DeliverAt(int nMicroseconds, std::uint32_t unUpdateType)
    {
        g_nNow = nMicroseconds;
        Deliver(Single(Update(unUpdateType, Hex("01"))));
    }

    // One round; which marks were applied in it, by the last byte of each.
    tBytes Round(int nResult)
    {
        m_pHandler->m_Applied.clear();
        EXPECT_EQ(nResult, m_pHandler->UpdateBMA());
        tBytes marks;
        for (const tBytes& applied : m_pHandler->m_Applied)
        {
            marks.push_back(applied.empty() ? static_cast<unsigned char>(0) : applied.back());
        }
        m_pHandler->m_nAnswer = 100;
        return marks;
    }

    // The cache that the next message goes to, told by the error of a bad one.
    void ExpectCurrentCache(int nCache) { EXPECT_EQ(ParseError(104, nCache), Deliver(c_Bad).back()); }

    Support::CDebugLog m_Log;
    std::unique_ptr<CKeepingHandler> m_pHandler = std::make_unique<CKeepingHandler>();
    std::string m_strPrinted;
};

TEST_F(ClientMsgHandler, AFreshOneHasNothing)
{
    EXPECT_EQ(tBytes(), Round(6));
    EXPECT_EQ(-1.0f, m_pHandler->GetSurfUpdatePeriod());
    EXPECT_EQ(-1.0f, m_pHandler->GetRotsUpdatePeriod());
    EXPECT_EQ(1, m_pHandler->GetMCTimeouts());
    CIPString sender("unset");
    EXPECT_FALSE(m_pHandler->GetLastSender(sender));
    EXPECT_EQ(0u, m_pHandler->GetLocalPort());
}

TEST_F(ClientMsgHandler, AnUpdateInOneDatagramIsAppliedOnce)
{
    EXPECT_EQ((tLines{"CClientMsgHandler::OnReceivedData length 44",
                      "CMsgHandlerBase::ValidatePacketSequence - validating (lLength = 44) (m_nReceivedPackets = 0)",
                      "CClientMsgHandler::ReceivedMCData - called"}),
              Deliver(Single(Update(1, Hex("0a 0b 0c")))));
    Round(100);
    EXPECT_EQ(std::vector<tBytes>{Hex("02 0a 0b 0c")}, m_pHandler->m_Applied);
    EXPECT_EQ(tBytes(), Round(7));
}

TEST_F(ClientMsgHandler, AnUpdateInFragmentsIsAppliedAfterTheLastAndMovesTheCacheOnce)
{
    const tBytes update = Update(1, Hex("0a 0b 0c"));
    const tBytes head(update.begin(), update.begin() + 10), tail(update.begin() + 10, update.end());
    EXPECT_EQ((tLines{"CClientMsgHandler::OnReceivedData length 34",
                      "CMsgHandlerBase::ValidatePacketSequence - validating (lLength = 34) (m_nReceivedPackets = 0)",
                      "CClientMsgHandler::OnReceivedData - received partial packet"}),
              Deliver(Datagram(0, 7, 2, 2, tail)));
    EXPECT_EQ(tBytes(), Round(6));
    EXPECT_EQ((tLines{"CClientMsgHandler::OnReceivedData length 30",
                      "CMsgHandlerBase::ValidatePacketSequence - validating (lLength = 30) (m_nReceivedPackets = 1)", c_szCalled}),
              Deliver(Datagram(0, 7, 1, 2, head)));
    EXPECT_EQ(Hex("0c"), Round(100));
    EXPECT_EQ(tBytes(), Round(7));
    ExpectCurrentCache(1);
}

TEST_F(ClientMsgHandler, FaultsInOneDatagramLeaveTheNextUpdateWhole)
{
    const tBytes update = Update(1, Hex("55"));
    const tBytes aFaults[] = {tBytes(),
                              tBytes(19, 0),
                              Datagram(90, 7, 1, 1, update),
                              Datagram(0, 7, 3, 2, update),
                              Datagram(0, 7, 1, 1, 2000000, update),
                              Datagram(0, 7, 1, 1, 26, Hex("01")),
                              Datagram(0, 7, 1, 6, update),
                              Datagram(0, 7, 1, 2, 0xffffffff, update),
                              Datagram(0, 7, 5, 5, update),
                              tBytes(65507, 0xff)};
    for (const tBytes& fault : aFaults)
    {
        const tLines lines = Deliver(fault);
        EXPECT_EQ("CClientMsgHandler::OnReceivedData length " + std::to_string(fault.size()), lines.front());
        EXPECT_EQ(c_szPartial, lines.back());
        Deliver(Single(update));
        EXPECT_EQ(Hex("55"), Round(100));
    }
}

TEST_F(ClientMsgHandler, ForeignMessagesAreIgnoredAndHarmNothingThatWaits)
{
    Deliver(Surface(0x11));
    Deliver(Surface(0x22));
    for (const std::uint32_t unType : {1u, 3u, 89u})
    {
        EXPECT_EQ((tLines{"CClientMsgHandler::OnReceivedData length 520",
                          "CMsgHandlerBase::ValidatePacketSequence - validating (lLength = 520) (m_nReceivedPackets = " +
                              std::to_string(unType == 1   ? 0
                                             : unType == 3 ? 1
                                                           : 2) +
                              ")",
                          c_szWrongType}),
                  Deliver(Single(tBytes(500, 0x99), unType)));
        EXPECT_EQ(c_szPartial, Deliver(Datagram(unType, unType, 1, 2, tBytes(500, 0x99))).back());
        EXPECT_EQ(c_szWrongType, Deliver(Datagram(unType, unType, 2, 2, tBytes(500, 0x99))).back());
    }
    Deliver(Datagram(0, 500, 1, 2, tBytes(500, 0x99)));
    Round(101);
    EXPECT_EQ((std::vector<tBytes>{Hex("02 11 11 11 11 11 11 11 11 11"), Hex("02 22 22 22 22 22 22 22 22 22")}),
              m_pHandler->m_Applied);
    ExpectCurrentCache(0);
}

TEST_F(ClientMsgHandler, AForeignMessageTooLargeForTheBufferIsRefusedLikeAnyOther)
{
    const tLines lines = Deliver(Datagram(1, 7, 1, 1, 1048577, Hex("01")));
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ("[CMsgHandlerBase::ValidatePacketSequence] supplied buffer is too small to hold the rx packet; packet (1048577) "
              "bytes, buffer (1048576) bytes.",
              lines[2]);
    EXPECT_EQ(c_szPartial, lines[3]);
}

TEST_F(ClientMsgHandler, TwoUpdatesAreAppliedInCacheOrderAndAThirdReplacesTheFirst)
{
    Deliver(Surface(1));
    Deliver(Surface(2));
    EXPECT_EQ(Hex("01 02"), Round(101));
    Deliver(Surface(3));
    Deliver(Surface(4));
    Deliver(Surface(5));
    EXPECT_EQ(Hex("05 04"), Round(101));
    EXPECT_EQ((std::vector<std::uint32_t>{1, 2, 5, 4}), m_pHandler->m_Sequences);
    EXPECT_EQ(tBytes(), Round(7));
}

TEST_F(ClientMsgHandler, AnUpdateShowsOnlyTheArraysThatItCarries)
{
    tBytes rotary = Support::UpdateHeader(2, 11);
    Support::AppendArray(rotary, Hex("aa"));
    Support::AppendArray(rotary, Hex("bb bb"));
    Deliver(Single(rotary));
    Deliver(Surface(1));
    Deliver(Single(Update(4, Hex("cc"))));
    Round(101);
    EXPECT_EQ((std::vector<tBytes>{Hex("02 cc"), Hex("02 01 01 01 01 01 01 01 01 01")}), m_pHandler->m_Applied);
    Deliver(Surface(2));
    Deliver(Single(rotary));
    Round(101);
    EXPECT_EQ((std::vector<tBytes>{Hex("00 aa 01 bb bb"), Hex("02 02 02 02 02 02 02 02 02 02")}), m_pHandler->m_Applied);
}

TEST_F(ClientMsgHandler, WhatIsNotAnUpdateFailsWithItsCodeAndPrintsIt)
{
    tBytes cut = Update(1, Hex("01 02"));
    cut.pop_back();
    const tBytes aBad[] = {
        tBytes(), tBytes(16, 0), Support::UpdateHeader(1, 0, 0), Support::UpdateHeader(1, 0, 2), Support::UpdateHeader(31, 0), cut};
    for (const tBytes& bad : aBad)
    {
        m_pHandler = std::make_unique<CKeepingHandler>();
        const tLines lines = Deliver(Single(bad));
        ASSERT_EQ(4u, lines.size());
        EXPECT_EQ(c_szCalled, lines[2]);
        EXPECT_EQ(ParseError(104, 0), lines[3]);
        EXPECT_EQ("CMCUpdateMsg operator<< - error validating update data\n", m_strPrinted);
        EXPECT_EQ(tBytes(), Round(5));
    }
}

TEST_F(ClientMsgHandler, ShortestAndOddUpdatesAreApplied)
{
    for (const std::uint32_t unType : {0u, 2u, 30u, 0xffffffffu})
    {
        Deliver(Single(Support::UpdateHeader(unType, 0)));
        Round(100);
        EXPECT_EQ(std::vector<tBytes>{tBytes()}, m_pHandler->m_Applied);
        EXPECT_EQ("", m_strPrinted);
    }
    tBytes almost = Support::UpdateHeader(1, 3);
    Support::Append(almost, Hex("00 00 01"));
    Deliver(Single(almost));
    EXPECT_EQ(Hex("00"), Round(100));
}

TEST_F(ClientMsgHandler, AnEmptyMessageDoesNotDecodeTheUpdateBeforeIt)
{
    Deliver(Surface(1));
    Deliver(Surface(2));
    EXPECT_EQ(Hex("01 02"), Round(101));
    EXPECT_EQ(ParseError(104, 0), Deliver(Single(tBytes())).back());
    EXPECT_EQ(tBytes(), Round(5));
}

TEST_F(ClientMsgHandler, ABadUpdateSpoilsItsCacheUntilErrorsAreCleared)
{
    Deliver(c_Bad);
    EXPECT_EQ(tBytes(), Round(5));
    EXPECT_EQ(tBytes(), Round(5));
    Deliver(Surface(1));
    EXPECT_EQ(Hex("01"), Round(100));
    EXPECT_EQ(tBytes(), Round(5));
    EXPECT_EQ(ParseError(104, 0), Deliver(Surface(2)).back());
    EXPECT_EQ(tBytes(), Round(5));
    EXPECT_EQ(0, m_pHandler->GetMCTimeouts());
    m_pHandler->ClearReceiveErrors();
    EXPECT_EQ(tBytes(), Round(7));
    Deliver(Surface(3));
    Deliver(Surface(4));
    EXPECT_EQ(Hex("04 03"), Round(101));
}

// An error sets the error flag and no other: what waited there is gone all the same.
TEST_F(ClientMsgHandler, ABadUpdateOverAWaitingOneLeavesTheFlagOfThatAndNotItsUpdate)
{
    Deliver(Surface(1));
    Deliver(Surface(2));
    Deliver(c_Bad, "10.0.0.9");
    CIPString sender;
    EXPECT_TRUE(m_pHandler->GetLastSender(sender));
    EXPECT_STREQ("10.0.0.9", sender.Text()); // the cache has a new update by its flag
    m_Log.Take();
    EXPECT_EQ(Hex("02"), Round(100));
    EXPECT_EQ("CClientMsgHandler::UpdateBMA - cache 0, Error: true, New Update: true", m_Log.Take().front());
    EXPECT_EQ(tBytes(), Round(5));
    m_pHandler->ClearReceiveErrors();
    m_Log.Take();
    EXPECT_EQ(tBytes(), Round(7));
    EXPECT_EQ("CClientMsgHandler::UpdateBMA - cache 0, Error: false, New Update: false", m_Log.Take().front());
}

TEST_F(ClientMsgHandler, AnErrorInTheLaterCacheOutlivesTheEarlierUpdate)
{
    Deliver(Surface(1));
    Deliver(c_Bad);
    EXPECT_EQ(Hex("01"), Round(5));
    Deliver(c_Bad);
    Deliver(Surface(2));
    EXPECT_EQ(tBytes(), Round(5));
    m_pHandler->ClearReceiveErrors();
    Deliver(Surface(3));
    EXPECT_EQ(Hex("03"), Round(100));
}

TEST_F(ClientMsgHandler, AWaitingUpdateIsNotAppliedOnceABadOneCameIntoItsCache)
{
    Deliver(Surface(1));
    Deliver(Surface(2));
    Deliver(c_Bad);
    EXPECT_EQ(Hex("02"), Round(100));
    EXPECT_EQ(tBytes(), Round(5));
    m_pHandler->ClearReceiveErrors();
    EXPECT_EQ(tBytes(), Round(7));
}

TEST_F(ClientMsgHandler, DataMayBeDecodedDirectlyAndLeavesTheCacheWhereItIs)
{
    tBytes update = Update(1, Hex("77"));
    testing::internal::CaptureStdout();
    m_pHandler->ReceivedMCData(update.data(), static_cast<long>(update.size()));
    EXPECT_EQ(tLines{c_szCalled}, m_Log.Take());
    EXPECT_EQ(Hex("77"), Round(100));
    EXPECT_EQ(0u, m_pHandler->GetUpdateId()) << "no message has come";
    m_Log.Take();
    m_pHandler->ReceivedMCData(nullptr, 100);
    EXPECT_EQ((tLines{c_szCalled, ParseError(103, 0)}), m_Log.Take());
    EXPECT_EQ("CMCUpdateMsg operator<< - NULL data!\n", testing::internal::GetCapturedStdout());
    EXPECT_EQ(tBytes(), Round(5));
}

TEST_F(ClientMsgHandler, DataTooShortForAnUpdateOrTooLongForACacheFailsToDecode)
{
    tBytes update = Update(1, Hex("77"));
    update.resize(1048577);
    for (const long lLength : {LONG_MIN, -1L, 0L, 16L, 1048577L})
    {
        m_Log.Take();
        testing::internal::CaptureStdout();
        m_pHandler->ReceivedMCData(update.data(), lLength);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ((tLines{c_szCalled, ParseError(104, 0)}), m_Log.Take());
        EXPECT_EQ(tBytes(), Round(5));
        m_pHandler->ClearReceiveErrors();
    }
}

TEST_F(ClientMsgHandler, DataMayFillACacheToTheLastByte)
{
    tBytes update = Support::UpdateHeader(1, 1048576 - 17);
    Support::AppendArray(update, tBytes(1048576 - 21, 0x5a));
    ASSERT_EQ(1048576u, update.size());
    m_pHandler->ReceivedMCData(update.data(), static_cast<long>(update.size()));
    EXPECT_EQ(Hex("5a"), Round(100));
    EXPECT_EQ(1048576u - 21, m_pHandler->m_Applied.front().size() - 1);
}

TEST_F(ClientMsgHandler, EachRoundLogsTheFlagsOfBothCaches)
{
    Deliver(c_Bad);
    Deliver(Surface(1));
    for (const char* szNew : {"true", "false"})
    {
        m_Log.Take();
        m_pHandler->UpdateBMA();
        EXPECT_EQ((tLines{"CClientMsgHandler::UpdateBMA - cache 0, Error: true, New Update: false",
                          std::string("CClientMsgHandler::UpdateBMA - cache 1, Error: false, New Update: ") + szNew}),
                  m_Log.Take());
    }
}

TEST_F(ClientMsgHandler, ThePlainOneLogsEachUpdateAndAnswersZero)
{
    const auto pPlain = std::make_unique<CClientMsgHandler>(true);
    tBytes update = Update(1, Hex("77"));
    pPlain->ReceivedMCData(update.data(), static_cast<long>(update.size()));
    m_Log.Take();
    EXPECT_EQ(0, pPlain->UpdateBMA());
    const tLines lines = m_Log.Take();
    EXPECT_EQ(3u, lines.size());
    EXPECT_EQ(1, std::count(lines.begin(), lines.end(), "CClientMsgHandler::ProcessMCUpdate - called"));
}

TEST_F(ClientMsgHandler, AnOverrideMayThrowAndTheNextUpdatesAreApplied)
{
    Deliver(Surface(1));
    m_pHandler->m_bThrow = true;
    EXPECT_NO_THROW(m_pHandler->UpdateBMA());
    m_pHandler->m_bThrow = false;
    Deliver(Surface(2));
    Deliver(Surface(3));
    EXPECT_EQ(Hex("03 02"), Round(101));
}

TEST_F(ClientMsgHandler, SixtyMillisecondsOfSilenceAreNoTimeoutAndOneMicrosecondMoreIs)
{
    const struct
    {
        int nNow, nResult;
    } aCases[] = {{1000000, 7}, {1060000, 7}, {1060001, 6}, {1059999, 7}, {999999, 7}, {-500000000, 7}, {500000000, 6}};
    DeliverAt(1000000, 1);
    Round(100);
    for (const auto& c : aCases)
    {
        g_nNow = c.nNow;
        EXPECT_EQ(tBytes(), Round(c.nResult)) << c.nNow;
    }
    EXPECT_EQ(2, m_pHandler->GetMCTimeouts());
    EXPECT_EQ(0, m_pHandler->GetMCTimeouts());
}

TEST_F(ClientMsgHandler, OnlySurfaceUpdatesBreakTheSilenceAndOnlyKnownOnesAreTimed)
{
    for (const std::uint32_t unType : {0u, 4u, 8u, 9u, 30u})
    {
        DeliverAt(10, unType);
        Round(100);
        EXPECT_EQ(tBytes(), Round(6));
        EXPECT_EQ(-1.0f, m_pHandler->GetRotsUpdatePeriod());
        EXPECT_EQ(-1.0f, m_pHandler->GetSurfUpdatePeriod());
    }
    DeliverAt(20, 2);
    Round(100);
    EXPECT_EQ(tBytes(), Round(6));
    EXPECT_EQ(6, m_pHandler->GetMCTimeouts());
    EXPECT_EQ(-1.0f, m_pHandler->GetSurfUpdatePeriod());
    EXPECT_EQ(0.0f, m_pHandler->GetRotsUpdatePeriod());
}

TEST_F(ClientMsgHandler, PeriodsAreMeansSinceTheLastCallOfTheirOwnKind)
{
    DeliverAt(1000000, 1);
    DeliverAt(1000500, 2);
    DeliverAt(1010000, 1);
    DeliverAt(1030500, 2);
    DeliverAt(1036000, 1);
    Deliver(c_Bad);
    EXPECT_FLOAT_EQ(12.0f, m_pHandler->GetSurfUpdatePeriod()); // 0, 10, 26
    EXPECT_EQ(-1.0f, m_pHandler->GetSurfUpdatePeriod());
    EXPECT_FLOAT_EQ(15.0f, m_pHandler->GetRotsUpdatePeriod()); // 0, 30
    EXPECT_EQ(-1.0f, m_pHandler->GetRotsUpdatePeriod());
}

TEST_F(ClientMsgHandler, APeriodGoesOnFromTheLastUpdateBeforeItWasAskedFor)
{
    DeliverAt(5000000, 1);
    EXPECT_EQ(0.0f, m_pHandler->GetSurfUpdatePeriod());
    DeliverAt(5007250, 1);
    EXPECT_FLOAT_EQ(7.25f, m_pHandler->GetSurfUpdatePeriod());
}

TEST_F(ClientMsgHandler, AClockSetBackAddsNothing)
{
    DeliverAt(1000000, 1);
    DeliverAt(1020000, 1);
    DeliverAt(1010000, 1);
    DeliverAt(1020000, 1);
    EXPECT_FLOAT_EQ(7.5f, m_pHandler->GetSurfUpdatePeriod()); // 0, 20, 0, 10
}

TEST_F(ClientMsgHandler, TimeGoesOnPastTheLargestSigned32BitSecond)
{
    g_nEpoch = std::int64_t(0x7fffffff) * 1000000 + 995000;
    DeliverAt(0, 1);
    DeliverAt(20000, 1);
    EXPECT_FLOAT_EQ(10.0f, m_pHandler->GetSurfUpdatePeriod()); // 0, 20
    Round(101);
    g_nNow = 80000;
    EXPECT_EQ(tBytes(), Round(7));
    g_nNow = 80001;
    EXPECT_EQ(tBytes(), Round(6));
}

TEST_F(ClientMsgHandler, AfterInitialiseTheFirstIntervalsCountFromIt)
{
    g_nNow = 1000000;
    EXPECT_TRUE(m_pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
    EXPECT_NE(0u, m_pHandler->GetLocalPort());
    EXPECT_EQ(tBytes(), Round(6));
    DeliverAt(1250000, 1);
    DeliverAt(1500000, 2);
    EXPECT_FLOAT_EQ(250.0f, m_pHandler->GetSurfUpdatePeriod());
    EXPECT_FLOAT_EQ(500.0f, m_pHandler->GetRotsUpdatePeriod());
}

TEST_F(ClientMsgHandler, InitialiseFailsWithNeitherPortNorGroup)
{
    EXPECT_FALSE(m_pHandler->InitialiseClient(0, "not an address", nullptr, nullptr));
    EXPECT_TRUE(m_pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
    EXPECT_FALSE(m_pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
    m_pHandler->Shutdown();
    m_pHandler->Shutdown();
}

TEST_F(ClientMsgHandler, RemembersWhoSentTheLastGoodUpdate)
{
    const struct
    {
        tBytes datagram;
        const char* szSender;
        bool bChanged;
        const char* szLast;
    } aCases[] = {
        {Single(tBytes(), 1), "10.0.0.1", false, ""},         {Datagram(0, 7, 1, 2, Hex("01")), "10.0.0.1", false, ""},
        {Surface(1), "10.0.0.2", true, "10.0.0.2"},           {Surface(1), "10.0.0.2", false, "10.0.0.2"},
        {Single(tBytes(), 3), "10.0.0.3", false, "10.0.0.2"}, {Single(Update(9, Hex("01"))), "10.0.0.3", true, "10.0.0.3"}};
    for (const auto& c : aCases)
    {
        Deliver(c.datagram, c.szSender);
        CIPString sender;
        EXPECT_EQ(c.bChanged, m_pHandler->GetLastSender(sender));
        EXPECT_STREQ(c.szLast, sender.Text());
        EXPECT_FALSE(m_pHandler->GetLastSender(sender));
    }
}

TEST_F(ClientMsgHandler, ABadUpdateIntoAnIdleCacheLeavesTheSenderAndMovesTheCache)
{
    Deliver(c_Bad, "10.0.0.9");
    CIPString sender;
    EXPECT_FALSE(m_pHandler->GetLastSender(sender));
    EXPECT_STREQ("", sender.Text());
    ExpectCurrentCache(1);
    ExpectCurrentCache(0);
}

TEST_F(ClientMsgHandler, WithoutASenderDataIsNotItsBusiness)
{
    char cData = 0;
    m_pHandler->OnReceivedData(&cData, 1);
    EXPECT_EQ(tLines{"CMsgHandlerBase::OnReceivedData - override me"}, m_Log.Take());
}

// Tells when its receive thread has handled a datagram.
class CListeningHandler : public CKeepingHandler
{
public:
    ~CListeningHandler() override { Shutdown(); }

    using CKeepingHandler::OnReceivedData;
    void OnReceivedData(char* pData, long lLength, const CIPString& sender) override
    {
        CKeepingHandler::OnReceivedData(pData, lLength, sender);
        const std::lock_guard<std::mutex> guard(m_Mutex);
        m_bHandled = true;
        m_Handled.notify_all();
    }

    bool WaitForOne()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Handled.wait_for(lock, std::chrono::seconds(60), [this] { return m_bHandled; });
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Handled;
    bool m_bHandled = false;
};

TEST_F(ClientMsgHandler, ItsSocketBringsUpdatesWithTheirSender)
{
    const auto pHandler = std::make_unique<CListeningHandler>();
    ASSERT_TRUE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
    const tBytes datagram = Surface(0x42);
    ASSERT_TRUE(pHandler->Send("127.0.0.1", pHandler->GetLocalPort(), reinterpret_cast<const char*>(datagram.data()),
                               static_cast<long>(datagram.size())));
    ASSERT_TRUE(pHandler->WaitForOne());
    EXPECT_EQ(100, pHandler->UpdateBMA());
    EXPECT_EQ(0x42, pHandler->m_Applied.at(0).back());
    CIPString sender;
    EXPECT_TRUE(pHandler->GetLastSender(sender));
    EXPECT_STREQ("127.0.0.1", sender.Text());
}

#ifdef LOGICALCONTROLS_CAN_POISON
// Keeps what an update shows for longer than it may.
class CForgetfulHandler : public CClientMsgHandler
{
public:
    CForgetfulHandler() : CClientMsgHandler(false) {}
    ~CForgetfulHandler() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        int nLength = 0;
        update.GetArray(enSwitch, m_pKept, nLength);
        return *m_pKept;
    }

    const unsigned char* m_pKept = nullptr;
};

TEST(ClientMsgHandlerDeathTest, ALateLookAtAnUpdateIsReported)
{
    const auto pHandler = std::make_unique<CForgetfulHandler>();
    tBytes datagram = Surface(9);
    for (int nRound = 0; nRound < 2; ++nRound)
    {
        pHandler->OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()),
                                 CIPString("10.0.0.1"));
        EXPECT_EQ(9, pHandler->UpdateBMA());
    }
    EXPECT_DEATH(EXPECT_EQ(9, *pHandler->m_pKept), "use-after-poison");
}
#endif

// Random bytes behind headers that are mostly in order, of two senders.
TEST_F(ClientMsgHandler, NoDatagramCostsMoreThanFourLinesAndOnePrinted)
{
    ASSERT_TRUE(m_pHandler->AcceptSender("10.0.0.1"));
    std::mt19937 random(20140);
    const auto below = [&random](std::uint32_t unLimit) { return static_cast<std::uint32_t>(random() % unLimit); };
    std::size_t unMost = 0;
    std::size_t unLines = 0;
    for (int nDatagram = 0; nDatagram < 3000; ++nDatagram)
    {
        const std::uint32_t unUpdateType = below(40);
        const std::size_t unSize = below(8) == 0 ? 65487 : below(60);
        tBytes payload = Update(unUpdateType, tBytes(30));
        payload.resize(below(2) == 0 ? payload.size() : unSize);
        const std::uint32_t unTotal = 1 + below(6);
        const std::uint32_t unNumber = 1 + below(unTotal);
        const std::uint32_t unType = below(3) == 0 ? below(120) : 0;
        const std::uint32_t unId = below(4);
        const std::uint32_t unClaim = below(9) == 0 ? below(0x7fffffff) : static_cast<std::uint32_t>(payload.size());
        tBytes datagram = Datagram(unType, unId, unNumber, unTotal, unClaim, payload);
        const std::size_t unCut = below(30);
        datagram.resize(below(12) == 0 ? unCut : datagram.size());
        const tLines lines = Deliver(datagram, below(9) == 0 ? "10.0.0.2" : "10.0.0.1");
        ASSERT_LE(lines.size(), 4u);
        ASSERT_LE(std::count(m_strPrinted.begin(), m_strPrinted.end(), '\n'), 1);
        unMost = std::max(unMost, lines.size());
        unLines += lines.size();
        m_pHandler->ClearReceiveErrors();
    }
    EXPECT_EQ(4u, unMost);
    std::printf("lines for 3000 datagrams: %u\n", static_cast<unsigned int>(unLines));
    EXPECT_EQ(3000u, m_pHandler->GetStatistics().aunCount[enCountDatagrams]);
}

// The same when the empty message comes in pieces.
TEST_F(ClientMsgHandler, EmptyFragmentsDoNotDecodeTheUpdateBeforeThem)
{
    Deliver(Surface(1));
    Deliver(Surface(2));
    EXPECT_EQ(Hex("01 02"), Round(101));
    Deliver(Datagram(0, 8, 1, 2, tBytes()));
    EXPECT_EQ(ParseError(104, 0), Deliver(Datagram(0, 8, 2, 2, tBytes())).back());
    EXPECT_EQ(tBytes(), Round(5));
    m_pHandler->ClearReceiveErrors();
    EXPECT_EQ(tBytes(), Round(7));
}

// The third comes into the cache of the first, the fourth and the fifth into those of the second and the third.
TEST_F(ClientMsgHandler, AnUpdateIsTimedByItsOwnTypeWhateverItsCacheHeld)
{
    DeliverAt(1000, 1);
    DeliverAt(2000, 1);
    DeliverAt(12000, 2);
    DeliverAt(17000, 1);
    DeliverAt(20000, 1);
    EXPECT_FLOAT_EQ(4.75f, m_pHandler->GetSurfUpdatePeriod()); // 0, 1, 15, 3
    EXPECT_FLOAT_EQ(0.0f, m_pHandler->GetRotsUpdatePeriod());
    Round(101);
    EXPECT_EQ(-1.0f, m_pHandler->GetRotsUpdatePeriod());
}

TEST_F(ClientMsgHandler, AClockSetByAnHourIsAnHourOrNothing)
{
    const std::int64_t nHour = std::int64_t(3600) * 1000000;
    DeliverAt(0, 1);
    g_nEpoch += nHour;
    EXPECT_EQ(1, static_cast<int>(Round(100).size()));
    EXPECT_EQ(tBytes(), Round(6));
    DeliverAt(0, 1);
    EXPECT_FLOAT_EQ(1800000.0f, m_pHandler->GetSurfUpdatePeriod()); // 0, 3600000
    Round(100);
    EXPECT_EQ(tBytes(), Round(7));
    g_nEpoch -= nHour;
    EXPECT_EQ(tBytes(), Round(7));
    DeliverAt(0, 1);
    DeliverAt(20000, 1);
    EXPECT_FLOAT_EQ(10.0f, m_pHandler->GetSurfUpdatePeriod()); // 0, 20
    EXPECT_EQ(1, m_pHandler->GetMCTimeouts());
}

// Nothing is done in a cache whose lock can't be had, and nothing waits for it.
TEST_F(ClientMsgHandler, WithoutItsLocksItTakesNothingAndAnswers)
{
    std::unique_ptr<CKeepingHandler> pUnlockable;
    {
        const Support::CFailingCall noMutex(Support::CFailingCall::enMutexInit);
        pUnlockable = std::make_unique<CKeepingHandler>();
    }
    tBytes update = Update(1, Hex("77"));
    tBytes datagram = Single(update);
    pUnlockable->ReceivedMCData(update.data(), static_cast<long>(update.size()));
    pUnlockable->OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()), CIPString("1.1.1.1"));
    EXPECT_EQ(6, pUnlockable->UpdateBMA());
    EXPECT_TRUE(pUnlockable->m_Applied.empty());
    pUnlockable->ClearReceiveErrors();
    CIPString sender("unset");
    EXPECT_FALSE(pUnlockable->GetLastSender(sender));
    EXPECT_STREQ("unset", sender.Text());
    EXPECT_EQ(1u, pUnlockable->GetStatistics().aunCount[enCountUpdates]);
    EXPECT_EQ(1u, pUnlockable->GetStatistics().aunCount[enDecodeErrorLock]);
    EXPECT_EQ(1u, pUnlockable->GetStatistics().aunCount[enRejectedLock]);
}

// Counts updates whose bytes differ from each other.
class CTearCheckingHandler : public CClientMsgHandler
{
public:
    CTearCheckingHandler() : CClientMsgHandler(false) {}
    ~CTearCheckingHandler() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        const unsigned char* pData = nullptr;
        int nLength = 0;
        const bool bHave = update.GetArray(enSwitch, pData, nLength);
        m_unTorn += bHave && std::count(pData, pData + nLength, *pData) == nLength ? 0 : 1;
        m_unLast = std::max(m_unLast, GetUpdateSequence());
        ++m_unApplied;
        return 0;
    }

    std::uint32_t m_unTorn = 0;
    std::uint32_t m_unApplied = 0;
    std::uint32_t m_unLast = 0;
};

TEST_F(ClientMsgHandler, OfManyUpdatesNoneIsTornOrUnaccountedForAndTheLastIsApplied)
{
    constexpr std::uint32_t unUpdates = 100000;
    RySocketIO::CUtility::SetDebugSink(nullptr); // its lock would put the threads in order
    const auto pHandler = std::make_unique<CTearCheckingHandler>();
    std::vector<tBytes> datagrams;
    for (std::uint32_t un = 0; un < 251; ++un)
    {
        datagrams.push_back(Single(Update(1, tBytes(40 + un, static_cast<unsigned char>(un)))));
    }
    std::atomic<bool> bDone{false};
    std::thread receiver(
        [&]
        {
            for (std::uint32_t un = 0; un < unUpdates; ++un)
            {
                tBytes& datagram = datagrams[un % 251];
                pHandler->OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()),
                                         CIPString(un % 2 == 0 ? "10.0.0.1" : "10.0.0.2"));
                un % 8 == 0 ? std::this_thread::yield() : void(); // a mutex is not fair
            }
            bDone = true;
        });
    CIPString sender;
    while (!bDone)
    {
        pHandler->UpdateBMA();
        pHandler->GetSurfUpdatePeriod();
        pHandler->GetLastSender(sender);
    }
    receiver.join();
    pHandler->UpdateBMA();
    const stReceiveStatistics statistics = pHandler->GetStatistics();
    EXPECT_EQ(0u, pHandler->m_unTorn);
    EXPECT_EQ(unUpdates, pHandler->m_unLast);
    EXPECT_EQ(unUpdates, statistics.aunCount[enCountUpdates]);
    EXPECT_EQ(pHandler->m_unApplied, statistics.aunCount[enCountApplied]);
    EXPECT_EQ(unUpdates, statistics.aunCount[enCountApplied] + statistics.aunCount[enCountSuperseded]);
    std::printf("%u updates: %u applied, %u superseded\n", unUpdates, pHandler->m_unApplied,
                statistics.aunCount[enCountSuperseded]);
}

// While one update is applied another one waits to be decoded into the same cache.
class CInterruptedHandler : public CKeepingHandler
{
public:
    ~CInterruptedHandler() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        const int nResult = CKeepingHandler::ProcessMCUpdate(update);
        if (m_nCall++ == m_nInterruptedCall)
        {
            std::atomic<bool> bStarted{false};
            m_Other = std::thread(
                [this, &bStarted]
                {
                    tBytes datagram = Surface(3);
                    bStarted = true;
                    OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()), "10.0.0.2");
                });
            while (!bStarted)
            {
                std::this_thread::yield();
            }
            std::this_thread::yield();
        }
        return nResult;
    }

    int m_nCall = 0;
    int m_nInterruptedCall = 0;
    std::thread m_Other;
};

TEST_F(ClientMsgHandler, AnUpdateThatWaitsWhileItsCacheIsAppliedIsAppliedNext)
{
    const auto pHandler = std::make_unique<CInterruptedHandler>();
    RySocketIO::CUtility::SetDebugSink(nullptr);
    for (int nRound = 0; nRound < 500; ++nRound)
    {
        pHandler->m_nCall = 0;
        pHandler->m_nInterruptedCall = nRound % 2; // the third of a round goes where the first went
        pHandler->m_Applied.clear();
        for (const int nMark : {1, 2})
        {
            tBytes datagram = Surface(static_cast<unsigned char>(nMark));
            pHandler->OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()), "10.0.0.1");
        }
        pHandler->UpdateBMA();
        pHandler->m_Other.join();
        ASSERT_EQ(2u, pHandler->m_Applied.size());
        pHandler->UpdateBMA();
        ASSERT_EQ(3u, pHandler->m_Applied.size()) << nRound;
        EXPECT_EQ(3, pHandler->m_Applied[2].back());
    }
}

// Datagrams come from another thread while handlers come and go; each second one ends in the middle of them.
class CHeardHandler : public CKeepingHandler
{
public:
    ~CHeardHandler() override { Shutdown(); }

    using CKeepingHandler::OnReceivedData;
    void OnReceivedData(char* pData, long lLength, const CIPString& sender) override
    {
        CKeepingHandler::OnReceivedData(pData, lLength, sender);
        m_bHeard = true;
    }

    std::atomic<bool> m_bHeard{false};
};

TEST_F(ClientMsgHandler, ManyComeAndGoUnderTraffic)
{
    RySocketIO::CUtility::SetDebugSink(nullptr);
    std::atomic<unsigned int> unPort{0};
    std::atomic<bool> bDone{false};
    std::thread traffic(
        [&]
        {
            RySocketIO::CSocket sender(RySocketIO::enConnectionUDP, false, false);
            EXPECT_TRUE(sender.InitialiseLocalSockets(0, "127.0.0.1", nullptr, 1));
            const tBytes datagram = Surface(5);
            while (!bDone)
            {
                const unsigned int unTo = unPort;
                if (unTo == 0 || !sender.Send("127.0.0.1", unTo, reinterpret_cast<const char*>(datagram.data()),
                                              static_cast<long>(datagram.size())))
                {
                    std::this_thread::yield();
                }
            }
        });
    for (int n = 0; n < 100; ++n)
    {
        const auto pHandler = std::make_unique<CHeardHandler>();
        EXPECT_TRUE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
        pHandler->SetRemoteAddress("127.0.0.1", 0, static_cast<int>(pHandler->GetLocalPort()));
        EXPECT_TRUE(pHandler->StartPPCSender(1) && pHandler->QueuePPC(enInteger, enMicInput, 0, 0, n));
        unPort = pHandler->GetLocalPort();
        while (n % 2 == 0 && !pHandler->m_bHeard)
        {
            pHandler->UpdateBMA();
            std::this_thread::yield();
        }
        unPort = 0;
    }
    bDone = true;
    traffic.join();
}

TEST_F(ClientMsgHandler, AnUpdateWhoseProcessingThrewIsLogged)
{
    m_pHandler->m_bThrow = true;
    Deliver(Surface(1));
    m_Log.Take();
    m_pHandler->UpdateBMA();
    const tLines lines = m_Log.Take();
    EXPECT_EQ(1, std::count(lines.begin(), lines.end(), "CClientMsgHandler::UpdateBMA - ProcessMCUpdate threw, cache 0"));
}

} // namespace
