#include "ClientComms/ReceiveStatistics.h"

#include "ClientComms/ClientMsgHandler.h"
#include "Support/Bytes.h"
#include "Support/DebugLog.h"
#include "Support/NumberedUpdates.h"
#include "Support/SystemCalls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <stdexcept>
#include <string>

namespace
{

using RySocketIO::CIPString;
using Support::Datagram;
using Support::Hex;
using Support::tBytes;
typedef std::map<std::string, std::uint32_t> tCounts; // by text, so that a failure reads well

tBytes Update(unsigned char ucMark)
{
    tBytes bytes = Support::UpdateHeader(1, 5);
    Support::AppendArray(bytes, {ucMark});
    return bytes;
}

tBytes Single(const tBytes& message, std::uint32_t unType = 0)
{
    return Datagram(unType, 7, 1, 1, message);
}

const tBytes c_Good = Single(Update(1));
const tBytes c_Bad = Single(Support::UpdateHeader(1, 0, 2));
const tBytes c_Fragment = Datagram(0, 7, 1, 2, Hex("0102"));

class CSilentHandler : public CClientMsgHandler
{
public:
    CSilentHandler() : CClientMsgHandler(false) {}
    ~CSilentHandler() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg&) override { return m_bThrow ? throw std::runtime_error("no") : 0; }

    bool m_bThrow = false;
};

class ReceiveStatistics : public ::testing::Test
{
protected:
    void Deliver(const tBytes& datagram, const char* szSender = "10.0.0.1")
    {
        tBytes copy = datagram;
        m_pHandler->OnReceivedData(reinterpret_cast<char*>(copy.data()), static_cast<long>(copy.size()), CIPString(szSender));
    }

    void DeliverFragments(std::uint32_t unId, int nCount)
    {
        for (int nFragment = 0; nFragment < nCount; ++nFragment)
        {
            Deliver(Datagram(0, unId, 1, 2, Hex("00")));
        }
    }

    stReceiveStatistics Statistics() const { return m_pHandler->GetStatistics(); }

    // Every counter that is not 0.
    tCounts Counts() const
    {
        const stReceiveStatistics statistics = Statistics();
        tCounts counts;
        for (int nCounter = 0; nCounter < enReceiveCounterCount; ++nCounter)
        {
            if (statistics.aunCount[nCounter] != 0)
            {
                counts[ReceiveCounterText(static_cast<enReceiveCounter>(nCounter))] = statistics.aunCount[nCounter];
            }
        }
        return counts;
    }

    // The counters of datagrams for so many of them, each of unBytes, and one more counter.
    static tCounts Rejected(const char* szText, std::uint32_t unBytes, std::uint32_t unDatagrams = 1)
    {
        tCounts counts = {{"datagrams", unDatagrams}, {szText, unDatagrams}};
        if (unBytes > 0)
        {
            counts["bytes of datagrams"] = unBytes * unDatagrams;
        }
        return counts;
    }

    const std::unique_ptr<CSilentHandler> m_pHandler = std::make_unique<CSilentHandler>();
};

TEST_F(ReceiveStatistics, StartAtZero)
{
    EXPECT_EQ(tCounts(), Counts());
    EXPECT_EQ(0, Statistics().nSenders);
    EXPECT_EQ(0u, Statistics().unOtherSenders);
}

TEST(ReceiveCounterText, IsThereAndDifferentForEveryCounter)
{
    std::set<std::string> texts;
    for (int nCounter = 0; nCounter < enReceiveCounterCount; ++nCounter)
    {
        texts.insert(ReceiveCounterText(static_cast<enReceiveCounter>(nCounter)));
    }
    EXPECT_EQ(std::size_t(enReceiveCounterCount), texts.size());
    EXPECT_EQ(0u, texts.count(""));
    EXPECT_STREQ("", ReceiveCounterText(static_cast<enReceiveCounter>(-1)));
    EXPECT_STREQ("", ReceiveCounterText(enReceiveCounterCount));
}

TEST_F(ReceiveStatistics, CountWhyADatagramIsRejected)
{
    struct stCase
    {
        const char* szText;
        tBytes datagram;
    };
    for (const stCase& row : {
             stCase{"rejected: invalid type, number or total", Datagram(90, 7, 1, 1, Hex("01"))},
             stCase{"rejected: invalid type, number or total", Datagram(0, 7, 0, 1, Hex("01"))},
             stCase{"rejected: invalid type, number or total", Datagram(0, 7, 6, 6, Hex("01"))},
             stCase{"rejected: payload longer than the datagram", Datagram(0, 7, 1, 1, 2, Hex("01"))},
             stCase{"rejected: fragment too large to keep", Datagram(0, 7, 1, 2, tBytes(64981))},
             stCase{"rejected: message larger than the buffer", Datagram(0, 7, 1, 1, 1048577, Hex("01"))},
         })
    {
        const tCounts before = Counts();
        Deliver(row.datagram);
        tCounts expected = before;
        ++expected["datagrams"];
        ++expected[row.szText];
        expected["bytes of datagrams"] += static_cast<std::uint32_t>(row.datagram.size());
        EXPECT_EQ(expected, Counts());
    }
    EXPECT_EQ(6u, Statistics().Rejected());
}

TEST_F(ReceiveStatistics, CountWhatIsNoDatagramAtAll)
{
    Deliver(Hex("00 01"));
    m_pHandler->OnReceivedData(nullptr, 100, CIPString("10.0.0.1"));
    m_pHandler->OnReceivedData(nullptr, -1, CIPString("10.0.0.1"));
    EXPECT_EQ(Rejected("rejected: no data, or shorter than a header", 34, 3), Counts());
    EXPECT_EQ(102u, Statistics().aSenders[0].unBytes) << "a negative length is none";
}

TEST_F(ReceiveStatistics, CountAFragmentedMessageThatIsLargerThanTheBuffer)
{
    tBytes buffer(10);
    unsigned char* pBuffer = buffer.data();
    for (const std::uint32_t unNumber : {1u, 2u})
    {
        const tBytes datagram = Datagram(0, 7, unNumber, 2, Hex("0102030405060708"));
        int nSize = static_cast<int>(buffer.size());
        EXPECT_EQ(-1, m_pHandler->ValidatePacketSequence(reinterpret_cast<const char*>(datagram.data()),
                                                         static_cast<long>(datagram.size()), &pBuffer, nSize));
    }
    EXPECT_EQ(tCounts({{"datagrams", 2},
                       {"bytes of datagrams", 56},
                       {"fragments kept for a message under way", 1},
                       {"rejected: message larger than the buffer", 1}}),
              Counts());
}

TEST_F(ReceiveStatistics, CountDatagramsThatMissTheirCachesLock)
{
    std::unique_ptr<CSilentHandler> pUnlockable;
    {
        const Support::CFailingCall noMutex(Support::CFailingCall::enMutexInit);
        pUnlockable = std::make_unique<CSilentHandler>();
    }
    tBytes datagram = c_Good;
    pUnlockable->OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()), CIPString("1.1.1.1"));
    EXPECT_EQ(1u, pUnlockable->GetStatistics().aunCount[enRejectedLock]);
    EXPECT_EQ(1u, pUnlockable->GetStatistics().aunCount[enCountDatagrams]);
}

TEST_F(ReceiveStatistics, CountKeptFragmentsAndThoseThatCompleteAMessage)
{
    const tBytes update = Update(1);
    Deliver(Datagram(0, 7, 1, 2, tBytes(update.begin(), update.begin() + 10)));
    Deliver(Datagram(0, 7, 2, 2, tBytes(update.begin() + 10, update.end())));
    EXPECT_EQ(tCounts({{"datagrams", 2},
                       {"bytes of datagrams", 62},
                       {"fragments kept for a message under way", 1},
                       {"datagrams that completed a message", 1},
                       {"updates given to the decoder", 1}}),
              Counts());
}

TEST_F(ReceiveStatistics, CountFragmentsPushedOutBeforeTheirMessageWasWhole)
{
    DeliverFragments(1, 50);
    EXPECT_EQ(0u, Statistics().aunCount[enCountEvicted]);
    DeliverFragments(2, 3);
    EXPECT_EQ(3u, Statistics().aunCount[enCountEvicted]);
}

TEST_F(ReceiveStatistics, DontCountFragmentsOfWholeMessagesAsPushedOut)
{
    DeliverFragments(1, 2); // a fragment and its duplicate
    Deliver(Datagram(5, 1, 2, 2, Hex("00")));
    DeliverFragments(2, 50);
    EXPECT_EQ(0u, Statistics().aunCount[enCountEvicted]);
}

TEST_F(ReceiveStatistics, CountMessagesJoinedFromUnlikeFragments)
{
    Deliver(Datagram(4, 7, 1, 2, Hex("00")));
    Deliver(Datagram(5, 7, 2, 2, Hex("00"))); // another type
    EXPECT_EQ(1u, Statistics().aunCount[enCountMixed]);
    Deliver(Datagram(5, 8, 1, 3, Hex("00")));
    Deliver(Datagram(5, 8, 2, 2, Hex("00"))); // another total
    EXPECT_EQ(2u, Statistics().aunCount[enCountMixed]);
    Deliver(Datagram(5, 9, 1, 2, Hex("00")));
    Deliver(Datagram(5, 9, 2, 2, Hex("00")));
    EXPECT_EQ(2u, Statistics().aunCount[enCountMixed]);
    Deliver(Datagram(5, 10, 1, 2, Hex("00")), "10.0.0.1");
    Deliver(Datagram(5, 10, 2, 2, Hex("00")), "10.0.0.2"); // another sender
    EXPECT_EQ(3u, Statistics().aunCount[enCountMixed]);
}

TEST_F(ReceiveStatistics, CountWholeMessagesThatAreNoUpdates)
{
    Deliver(Single(Hex("01"), 1));
    EXPECT_EQ(1u, Statistics().aunCount[enCountForeign]);
    EXPECT_EQ(1u, Statistics().aunCount[enCountCompleting]);
    EXPECT_EQ(0u, Statistics().aunCount[enCountUpdates]);
}

TEST_F(ReceiveStatistics, CountUpdatesByWhatBecameOfThem)
{
    Deliver(c_Good);
    Deliver(c_Good);
    Deliver(c_Good); // into the first cache, whose update nobody took
    EXPECT_EQ(1u, Statistics().aunCount[enCountSuperseded]);
    m_pHandler->UpdateBMA();
    EXPECT_EQ(2u, Statistics().aunCount[enCountApplied]);
    m_pHandler->m_bThrow = true;
    Deliver(c_Good);
    m_pHandler->UpdateBMA();
    EXPECT_EQ(1u, Statistics().aunCount[enCountThrown]);
    EXPECT_EQ(2u, Statistics().aunCount[enCountApplied]);
    EXPECT_EQ(4u, Statistics().aunCount[enCountUpdates]);
}

TEST_F(ReceiveStatistics, CountUpdatesThatFailToDecodeByTheirCode)
{
    Deliver(c_Bad);
    EXPECT_EQ(1u, Statistics().aunCount[enDecodeErrorInvalid]);
    Deliver(c_Good);
    Deliver(c_Good); // into the cache that holds the bad one
    EXPECT_EQ(1u, Statistics().aunCount[enCountRefused]);
    m_pHandler->ClearReceiveErrors();
    m_pHandler->ReceivedMCData(nullptr, 5);
    EXPECT_EQ(1u, Statistics().aunCount[enDecodeErrorNull]);
    EXPECT_EQ(4u, Statistics().aunCount[enCountUpdates]);
}

TEST_F(ReceiveStatistics, CountABadUpdateThatOverwritesAGoodOne)
{
    Deliver(c_Good);
    Deliver(c_Good);
    Deliver(c_Bad);
    EXPECT_EQ(1u, Statistics().aunCount[enCountSuperseded]);
    EXPECT_EQ(1u, Statistics().aunCount[enDecodeErrorInvalid]);
}

TEST_F(ReceiveStatistics, CountUpdatesWhoseBodyLengthIsNotTheirs)
{
    Deliver(c_Good);
    EXPECT_EQ(0u, Statistics().aunCount[enCountLengthMismatch]);
    tBytes update = Update(1);
    update[16] = 6;
    Deliver(Single(update));
    EXPECT_EQ(1u, Statistics().aunCount[enCountLengthMismatch]);
}

TEST_F(ReceiveStatistics, CountValidDatagramsByType)
{
    Deliver(c_Good);
    Deliver(c_Fragment);
    Deliver(Single(Hex("01"), 89));
    Deliver(Single(Hex("01"), 90));
    const stReceiveStatistics statistics = Statistics();
    EXPECT_EQ(2u, statistics.aunByType[0]);
    EXPECT_EQ(1u, statistics.aunByType[89]);
    EXPECT_EQ(3u, std::accumulate(std::begin(statistics.aunByType), std::end(statistics.aunByType), 0u));
}

TEST_F(ReceiveStatistics, CountDatagramsAndBytesBySender)
{
    Deliver(c_Good, "10.0.0.1");
    Deliver(c_Fragment, "10.0.0.2");
    Deliver(Hex("00"), "10.0.0.1");
    const stReceiveStatistics statistics = Statistics();
    ASSERT_EQ(2, statistics.nSenders);
    EXPECT_STREQ("10.0.0.1", statistics.aSenders[0].address.Text());
    EXPECT_EQ(2u, statistics.aSenders[0].unDatagrams);
    EXPECT_EQ(c_Good.size() + 1, statistics.aSenders[0].unBytes);
    EXPECT_STREQ("10.0.0.2", statistics.aSenders[1].address.Text());
    EXPECT_EQ(1u, statistics.aSenders[1].unDatagrams);
    EXPECT_EQ(22u, statistics.aSenders[1].unBytes);
}

TEST_F(ReceiveStatistics, CountTheNinthSenderAmongTheOthers)
{
    for (int nSender = 0; nSender < 10; ++nSender)
    {
        Deliver(c_Good, ("10.0.0." + std::to_string(nSender)).c_str());
    }
    Deliver(c_Good, "10.0.0.7");
    EXPECT_EQ(8, Statistics().nSenders);
    EXPECT_STREQ("10.0.0.7", Statistics().aSenders[7].address.Text());
    EXPECT_EQ(2u, Statistics().aSenders[7].unDatagrams);
    EXPECT_EQ(2u, Statistics().unOtherSenders);
}

TEST_F(ReceiveStatistics, CountDatagramsOfSendersThatAreNotAccepted)
{
    ASSERT_TRUE(m_pHandler->AcceptSender("10.0.0.1"));
    Support::CDebugLog log;
    Deliver(c_Good, "10.0.0.2");
    EXPECT_EQ("CClientMsgHandler::OnReceivedData - sender 10.0.0.2 is not accepted, ignoring", log.Take().back());
    EXPECT_EQ(Rejected("rejected: sender not accepted", static_cast<std::uint32_t>(c_Good.size())), Counts());
    Deliver(c_Good, "10.0.0.1");
    EXPECT_EQ(1u, Statistics().aunCount[enCountCompleting]);
}

TEST_F(ReceiveStatistics, AccountForEveryDatagramAndEveryUpdate)
{
    const tBytes kinds[] = {c_Good, c_Bad, c_Fragment, Single(Hex("01"), 1), Datagram(90, 7, 1, 1, Hex("01")), Hex("00")};
    std::uint32_t unRandom = 1;
    for (int nDatagram = 0; nDatagram < 3000; ++nDatagram)
    {
        unRandom = unRandom * 1664525u + 1013904223u;
        Deliver(kinds[(unRandom >> 16) % 6], (unRandom >> 24) % 2 == 0 ? "10.0.0.1" : "10.0.0.2");
        m_pHandler->m_bThrow = (unRandom >> 25) % 8 == 0;
        (unRandom >> 28) % 3 == 0 ? static_cast<void>(m_pHandler->UpdateBMA()) : void();
        (unRandom >> 27) % 8 == 0 ? m_pHandler->ClearReceiveErrors() : void();
    }
    m_pHandler->ClearReceiveErrors();
    m_pHandler->UpdateBMA();
    const stReceiveStatistics all = Statistics();
    const auto& count = all.aunCount;
    EXPECT_EQ(3000u, count[enCountDatagrams]);
    EXPECT_EQ(3000u, all.aSenders[0].unDatagrams + all.aSenders[1].unDatagrams);
    EXPECT_EQ(count[enCountDatagrams], all.Rejected() + count[enCountStored] + count[enCountCompleting]);
    EXPECT_EQ(count[enCountCompleting], count[enCountUpdates] + count[enCountForeign]);
    EXPECT_EQ(count[enCountUpdates], count[enDecodeErrorInvalid] + count[enDecodeErrorNull] + count[enCountRefused] +
                                         count[enCountSuperseded] + count[enCountApplied] + count[enCountThrown]);
    for (const enReceiveCounter enMoved : {enCountApplied, enCountThrown, enCountSuperseded, enCountRefused, enCountEvicted})
    {
        EXPECT_GT(count[enMoved], 0u) << ReceiveCounterText(enMoved);
    }
}

TEST_F(ReceiveStatistics, AcceptUpToEightSenders)
{
    EXPECT_FALSE(m_pHandler->AcceptSender(nullptr));
    for (int nSender = 0; nSender < 8; ++nSender)
    {
        EXPECT_TRUE(m_pHandler->AcceptSender(("10.0.0." + std::to_string(nSender)).c_str()));
    }
    EXPECT_FALSE(m_pHandler->AcceptSender("10.0.0.8"));
    Deliver(c_Good, "10.0.0.7");
    Deliver(c_Good, "10.0.0.8");
    EXPECT_EQ(1u, Statistics().aunCount[enCountUpdates]);
}

TEST_F(ReceiveStatistics, FragmentsOfStrangersPushOutNothing)
{
    const tBytes update = Update(1);
    m_pHandler->AcceptSender("10.0.0.1");
    Deliver(Datagram(0, 7, 1, 2, tBytes(update.begin(), update.begin() + 10)));
    for (int nFragment = 0; nFragment < 60; ++nFragment)
    {
        Deliver(c_Fragment, "10.0.0.66");
    }
    Deliver(Datagram(0, 7, 2, 2, tBytes(update.begin() + 10, update.end())));
    EXPECT_EQ(1u, Statistics().aunCount[enCountUpdates]);
    EXPECT_EQ(60u, Statistics().aunCount[enRejectedSender]);
}

TEST_F(ReceiveStatistics, AcceptNobodyWhoHasNoAddress)
{
    for (const char* szAddress : {"", "localhost", "10.0.0", "10.0.0.256", "127.000.000.001", " 10.0.0.1"})
    {
        EXPECT_FALSE(m_pHandler->AcceptSender(szAddress)) << szAddress;
    }
    Deliver(c_Good);
    EXPECT_EQ(1u, Statistics().aunCount[enCountUpdates]) << "everybody is still heard";
}

TEST_F(ReceiveStatistics, StrictMatchingJoinsFragmentsOfOneSenderOnly)
{
    m_pHandler->SetStrictMatching(true);
    Deliver(Datagram(4, 7, 1, 2, Hex("00")), "10.0.0.1");
    Deliver(Datagram(4, 7, 2, 2, Hex("00")), "10.0.0.2");
    EXPECT_EQ(0u, Statistics().aunCount[enCountCompleting]);
    Deliver(Datagram(4, 7, 2, 2, Hex("00")), "10.0.0.1");
    EXPECT_EQ(1u, Statistics().aunCount[enCountCompleting]);
    EXPECT_EQ(0u, Statistics().aunCount[enCountMixed]);
}

TEST_F(ReceiveStatistics, StrictMatchingJoinsFragmentsOfOneTypeAndTotalOnly)
{
    m_pHandler->SetStrictMatching(true);
    Deliver(Datagram(4, 7, 1, 2, Hex("00")));
    Deliver(Datagram(5, 7, 2, 2, Hex("00")));
    Deliver(Datagram(5, 7, 1, 3, Hex("00")));
    EXPECT_EQ(0u, Statistics().aunCount[enCountCompleting]);
    Deliver(Datagram(4, 7, 2, 2, Hex("00")));
    EXPECT_EQ(1u, Statistics().aunCount[enCountCompleting]);
    EXPECT_EQ(0u, Statistics().aunCount[enCountMixed]);
}

// Ids are seconds: ten updates of a second share one, and a tenth of the datagrams is lost.
class CSharedIds : public CClientMsgHandler
{
public:
    CSharedIds() : CClientMsgHandler(false) {}
    ~CSharedIds() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        ++(Support::ProvesItself(Support::ContentsOf(update)) ? m_nWhole : m_nMixed);
        return 0;
    }

    void Run(std::uint32_t unUpdates)
    {
        std::mt19937 random(8);
        for (std::uint32_t unNumber = 0; unNumber < unUpdates; ++unNumber)
        {
            for (tBytes& datagram : Support::MakeNumberedUpdate(unNumber, 0x65000000u + unNumber / 10, random).datagrams)
            {
                if (random() % 10 == 0)
                {
                    ++m_unLost;
                    continue;
                }
                OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()), CIPString("10.0.0.1"));
                UpdateBMA();
                ClearReceiveErrors();
            }
        }
    }

    int m_nWhole = 0;
    int m_nMixed = 0;
    std::uint32_t m_unLost = 0;
};

TEST(SharedIds, MixUpdatesAsTheCountersTellAndFewerWithStrictMatching)
{
    int anMixed[2] = {};
    for (const bool bStrict : {false, true})
    {
        const auto pHandler = std::make_unique<CSharedIds>();
        pHandler->SetStrictMatching(bStrict);
        testing::internal::CaptureStdout(); // a line for each update that is none
        pHandler->Run(4000);
        testing::internal::GetCapturedStdout();
        const stReceiveStatistics statistics = pHandler->GetStatistics();
        const auto& count = statistics.aunCount;
        std::printf(
            "%s: %u lost; %d applied whole, %d mixed; joined from unlike fragments: %u, of another length: %u, no update: %u\n",
            bStrict ? "strict" : "by id alone", pHandler->m_unLost, pHandler->m_nWhole, pHandler->m_nMixed, count[enCountMixed],
            count[enCountLengthMismatch], count[enDecodeErrorInvalid]);
        EXPECT_GT(pHandler->m_unLost, 0u);
        EXPECT_GT(pHandler->m_nWhole, 1000);
        EXPECT_GT(count[enCountLengthMismatch], 0u);
        EXPECT_EQ(bStrict, count[enCountMixed] == 0);
        EXPECT_EQ(count[enCountUpdates], count[enDecodeErrorInvalid] + count[enCountSuperseded] + count[enCountApplied]);
        EXPECT_EQ(count[enCountApplied], static_cast<std::uint32_t>(pHandler->m_nWhole + pHandler->m_nMixed));
        anMixed[bStrict] = pHandler->m_nMixed;
    }
    EXPECT_GT(anMixed[0], anMixed[1]);
}

} // namespace
