// What a recording tells of losses, layer by layer: the network's packets, datagrams, messages, updates.
#include "Network/Capture.h"
#include "Network/LossFinder.h"
#include "Network/Shadow.h"

#include "Support/ScratchFile.h"
#include "Support/Updates.h"

#include <gtest/gtest.h>

namespace
{

using Support::Datagram;
using Support::Hex;
using Support::tBytes;
typedef std::vector<tBytes> tDatagrams;
typedef std::map<std::string, std::uint32_t> tCounts;
typedef std::vector<std::string> tTexts;

// Those that tell of a loss.
constexpr enReceiveCounter c_aenCounters[] = {
    enRejectedTooShort, enRejectedSender, enRejectedHeader,  enRejectedPayload,    enRejectedTooLarge, enRejectedBuffer,
    enCountEvicted,     enCountMixed,     enDecodeErrorNull, enDecodeErrorInvalid, enCountRefused,     enCountLengthMismatch,
};

struct stFound
{
    tCounts counts; // that are not 0
    tTexts lost;
};

void Write(const tDatagrams& datagrams, unsigned int unDropped, const std::string& strFile)
{
    CCaptureWriter writer;
    ASSERT_EQ("", writer.Open(strFile));
    for (const tBytes& bytes : datagrams)
    {
        EXPECT_EQ("", writer.Write({1, {0x0a000001, 40000}, {0xe100002e, 7060}, bytes}));
    }
    const std::uint32_t aunCheckWords[c_nMessageTypes] = {};
    EXPECT_EQ("", writer.Finish(aunCheckWords, unDropped));
}

// What is found in a recording of these datagrams from an MC, and of so many more that the kernel dropped.
stFound Find(const tDatagrams& datagrams, unsigned int unDropped = 0)
{
    const Support::CScratchFile file;
    Write(datagrams, unDropped, file.Name());
    CCaptureFile capture;
    EXPECT_EQ("", capture.Open(file.Name()));
    const auto pShadow = std::make_unique<CShadow>(stMulticastLink());
    CLossFinder finder;
    stFound found;
    const auto add = [&found](const std::vector<stLostMessage>& lost)
    {
        for (const stLostMessage& message : lost)
        {
            found.lost.push_back(std::to_string(message.unMessageId) + ": " + message.Text());
        }
    };
    testing::internal::CaptureStdout(); // the library's lines
    for (stDatagram datagram; capture.Next(datagram, 0);)
    {
        add(finder.Take(datagram));
        pShadow->Take(datagram);
    }
    testing::internal::GetCapturedStdout();
    add(finder.Finish(0));
    const stReceiveStatistics statistics = pShadow->Follower().GetStatistics();
    for (const enReceiveCounter enCounter : c_aenCounters)
    {
        found.counts[ReceiveCounterText(enCounter)] = statistics.aunCount[enCounter];
    }
    found.counts["kernel"] = capture.GetLoss().unKernel;
    found.counts["size"] = capture.GetLoss().unSize;
    for (auto count = found.counts.begin(); count != found.counts.end();)
    {
        count = count->second == 0 ? found.counts.erase(count) : std::next(count);
    }
    return found;
}

tCounts Count(enReceiveCounter enCounter, std::uint32_t unCount)
{
    return {{ReceiveCounterText(enCounter), unCount}};
}

// An update of nothing, which is valid.
tBytes Update(std::uint32_t unId)
{
    return Datagram(0, unId, 1, 1, Support::UpdateHeader(1, 0));
}

// Such updates before and behind: of the first message and of the last nothing can be told.
tDatagrams Between(const tDatagrams& datagrams, std::uint32_t unFirst, std::uint32_t unLast)
{
    tDatagrams all = {Update(unFirst)};
    all.insert(all.end(), datagrams.begin(), datagrams.end());
    all.push_back(Update(unLast));
    return all;
}

} // namespace

TEST(LossLayers, WhatIsWholeIsNoLossHoweverItCame)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    tDatagrams datagrams = Support::Datagrams(2, Support::Update(*pImage, enMCUpdateRotary));
    std::swap(datagrams[0], datagrams[4]);
    datagrams.push_back(datagrams[1]);
    const stFound found = Find(Between(datagrams, 1, 3));
    EXPECT_EQ(tCounts(), found.counts);
    EXPECT_EQ(tTexts(), found.lost);
}

TEST(LossLayers, TheKernelsLossesAreThoseOfTheMachineThatRecorded)
{
    const stFound found = Find(Between({Update(2)}, 1, 3), 5);
    EXPECT_EQ(tCounts({{"kernel", 5}}), found.counts);
    EXPECT_EQ(tTexts(), found.lost);
}

TEST(LossLayers, DatagramsThatAreShorterThanTheySay)
{
    const stFound tooShort = Find(Between({tBytes(19), tBytes(), Update(2)}, 1, 3));
    EXPECT_EQ(Count(enRejectedTooShort, 2), tooShort.counts);
    EXPECT_EQ(tTexts(), tooShort.lost);

    const stFound payload = Find(Between({Datagram(0, 2, 1, 1, 5, Hex("01020304")), Datagram(0, 3, 1, 2, 5, Hex("01020304")),
                                          Datagram(0, 3, 2, 2, 4, Hex("01020304"))},
                                         1, 4));
    EXPECT_EQ(Count(enRejectedPayload, 2), payload.counts);
    EXPECT_EQ(tTexts({"2: none of it came", "3: fragment 1 of 2 is missing"}), payload.lost);
}

TEST(LossLayers, FragmentsThatAreLongerThanADatagram)
{
    const tBytes longest = Datagram(0, 2, 1, 2, tBytes(c_nMaxPayload));
    EXPECT_EQ(tCounts(), Find(Between({longest}, 1, 3)).counts);
    EXPECT_EQ(Count(enRejectedTooLarge, 1), Find(Between({Datagram(0, 2, 1, 2, tBytes(c_nMaxPayload + 1))}, 1, 3)).counts);
    EXPECT_EQ(Count(enRejectedTooLarge, 1), Find(Between({Datagram(0, 2, 1, 2, tBytes(65487))}, 1, 3)).counts);

    const stFound buffer = Find(Between({Datagram(0, 2, 1, 1, 1048577, Hex("01"))}, 1, 3));
    EXPECT_EQ(Count(enRejectedBuffer, 1), buffer.counts);
    EXPECT_EQ(tTexts({"2: none of it came"}), buffer.lost);
}

TEST(LossLayers, HeadersThatCannotBe)
{
    const tBytes payload = Support::UpdateHeader(1, 0);
    const stFound found =
        Find(Between({Datagram(90, 2, 1, 1, payload), Datagram(0xffffffff, 2, 1, 1, payload), Datagram(0, 2, 0, 1, payload),
                      Datagram(0, 2, 2, 1, payload), Datagram(0, 2, 1, 6, payload), Datagram(0, 2, 0, 0, payload)},
                     1, 3));
    EXPECT_EQ(Count(enRejectedHeader, 6), found.counts);
    EXPECT_EQ(tTexts({"2: none of it came"}), found.lost);
}

// The ring keeps 50 fragments.
TEST(LossLayers, FragmentsThatTheRingLosesBeforeTheirMessageIsWhole)
{
    tDatagrams datagrams;
    tTexts lost;
    for (std::uint32_t unId = 2; unId < 55; ++unId)
    {
        datagrams.push_back(Datagram(0, unId, 1, 2, Hex("01")));
        lost.push_back(std::to_string(unId) + ": fragment 2 of 2 is missing");
    }
    const stFound found = Find(Between(datagrams, 1, 55));
    EXPECT_EQ(Count(enCountEvicted, 3), found.counts);
    EXPECT_EQ(lost, found.lost);
}

TEST(LossLayers, MessagesOfUnlikeFragments)
{
    tBytes update = Support::UpdateHeader(1, 0);
    const tBytes head(update.begin(), update.begin() + 10);
    const tBytes tail(update.begin() + 10, update.end());
    const stFound found = Find(Between({Datagram(0, 2, 1, 3, head), Datagram(0, 2, 2, 2, tail)}, 1, 3));
    EXPECT_EQ(Count(enCountMixed, 1), found.counts);
}

TEST(LossLayers, UpdatesThatAreNone)
{
    const stFound invalid = Find(Between({Datagram(0, 2, 1, 1, Support::UpdateHeader(1, 0, 2)),
                                          Datagram(0, 3, 1, 1, Support::UpdateHeader(31, 0)), Datagram(0, 4, 1, 1, tBytes())},
                                         1, 5));
    EXPECT_EQ(Count(enDecodeErrorInvalid, 3), invalid.counts);
    EXPECT_EQ(tTexts(), invalid.lost) << "they came";
    EXPECT_EQ(Count(enCountLengthMismatch, 1), Find(Between({Datagram(0, 2, 1, 1, Support::UpdateHeader(1, 6))}, 1, 3)).counts);
}
