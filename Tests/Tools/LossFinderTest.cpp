#include "Network/LossFinder.h"

#include "Network/Capture.h"
#include "Support/ScratchFile.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{

stDatagram Fragment(std::uint32_t unMessageId, std::uint32_t unNumber, std::uint32_t unTotal, unsigned short usPort = 1)
{
    UDP_PACKET_HEADER header = {};
    header.nType = enDatagramMCUpdate;
    header.unMessageId = unMessageId;
    header.unPacketNumber = unNumber;
    header.unTotal = unTotal;
    stDatagram datagram = {0, {0x0a000001, usPort}, {}, std::vector<unsigned char>(sizeof header)};
    std::memcpy(datagram.bytes.data(), &header, sizeof header);
    return datagram;
}

// What was lost of datagrams, in words.
std::vector<std::string> Lost(const std::vector<stDatagram>& datagrams)
{
    CLossFinder finder;
    std::vector<stLostMessage> all;
    const auto add = [&all](const std::vector<stLostMessage>& more) { all.insert(all.end(), more.begin(), more.end()); };
    for (const stDatagram& datagram : datagrams)
    {
        add(finder.Take(datagram));
    }
    add(finder.Finish(0));
    std::vector<std::string> texts;
    for (const stLostMessage& lost : all)
    {
        texts.push_back(std::to_string(lost.unMessageId) + ": " + lost.Text());
    }
    return texts;
}

// Messages of one fragment each, from one number to another.
std::vector<stDatagram> Messages(std::uint32_t unFirst, std::uint32_t unEnd, unsigned short usPort = 1)
{
    std::vector<stDatagram> datagrams;
    for (std::uint32_t unId = unFirst; unId != unEnd; ++unId)
    {
        datagrams.push_back(Fragment(unId, 1, 1, usPort));
    }
    return datagrams;
}

std::vector<stDatagram> operator+(std::vector<stDatagram> a, const std::vector<stDatagram>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

typedef std::vector<std::string> tTexts;

} // namespace

TEST(LossFinder, NothingIsLostOfWholeMessagesInAnyOrder)
{
    EXPECT_EQ(tTexts(), Lost(Messages(1, 100)));
    EXPECT_EQ(tTexts(), Lost({Fragment(1, 1, 1), Fragment(3, 2, 2), Fragment(2, 1, 1), Fragment(3, 1, 2), Fragment(4, 1, 1)}));
    EXPECT_EQ(tTexts(), Lost({Fragment(1, 1, 1), Fragment(2, 1, 1), Fragment(2, 1, 1), Fragment(1, 1, 1), Fragment(3, 1, 1)}));
}

TEST(LossFinder, TellsWhichFragmentsAreMissing)
{
    EXPECT_EQ(tTexts({"2: fragment 2 of 2 is missing"}),
              Lost(Messages(1, 2) + std::vector<stDatagram>{Fragment(2, 1, 2)} + Messages(3, 30)));
    EXPECT_EQ(tTexts({"2: fragments 1, 3 and 5 of 5 are missing"}),
              Lost(Messages(1, 2) + std::vector<stDatagram>{Fragment(2, 2, 5), Fragment(2, 4, 5)} + Messages(3, 5)));
    EXPECT_EQ(tTexts({"5: none of it came", "6: none of it came"}), Lost(Messages(1, 5) + Messages(7, 40)));
}

// Message n lacks the fragments of n's bits.
TEST(LossFinder, NamesWhatIsMissingInARecording)
{
    const Support::CScratchFile file;
    CCaptureWriter writer;
    ASSERT_EQ("", writer.Open(file.Name()));
    for (std::uint32_t unId = 0; unId < 32 + CLossFinder::c_unPatience; ++unId)
    {
        for (std::uint32_t unNumber = 1; unNumber <= 5; ++unNumber)
        {
            stDatagram datagram = Fragment(unId, unNumber, 5, 4321);
            datagram.nTime = 1000 * unId + unNumber;
            EXPECT_EQ("", unId < 32 && (unId >> (unNumber - 1) & 1) != 0 ? "" : writer.Write(datagram));
        }
    }
    EXPECT_EQ("", writer.Flush());

    CCaptureFile capture;
    ASSERT_EQ("", capture.Open(file.Name()));
    CLossFinder finder;
    std::uint32_t unNext = 1;
    for (stDatagram datagram; capture.Next(datagram, 0);)
    {
        for (const stLostMessage& lost : finder.Take(datagram))
        {
            EXPECT_EQ(unNext, lost.unMessageId);
            EXPECT_EQ(unNext == 31 ? 0u : 5u, lost.unTotal);
            EXPECT_EQ(unNext == 31 ? 0u : unNext, lost.unMissing);
            EXPECT_EQ("10.0.0.1:4321", lost.sender.Text());
            EXPECT_EQ(datagram.nTime, lost.nTime);
            ++unNext;
        }
    }
    EXPECT_EQ(32u, unNext);
    EXPECT_EQ(0u, finder.Finish(0).size());
}

TEST(LossFinder, MissingFragmentsInWords)
{
    const auto text = [](std::uint32_t unTotal, std::uint32_t unMissing) {
        return stLostMessage{0, {}, 7, unTotal, unMissing}.Text();
    };
    EXPECT_EQ("fragment 1 of 5 is missing", text(5, 0x01));
    EXPECT_EQ("fragment 5 of 5 is missing", text(5, 0x10));
    EXPECT_EQ("fragments 1 and 5 of 5 are missing", text(5, 0x11));
    EXPECT_EQ("fragments 2, 3, 4 and 5 of 5 are missing", text(5, 0x1e));
    EXPECT_EQ("none of it came", text(0, 0));
}

TEST(LossFinder, WaitsForWhatIsLate)
{
    const std::vector<stDatagram> late = {Fragment(2, 2, 2)};
    const std::vector<stDatagram> begun = Messages(1, 2) + std::vector<stDatagram>{Fragment(2, 1, 2)};
    EXPECT_EQ(tTexts(),
              Lost(begun + Messages(3, 2 + CLossFinder::c_unPatience) + late + Messages(2 + CLossFinder::c_unPatience, 40)));
    EXPECT_EQ(1u, Lost(begun + Messages(3, 3 + CLossFinder::c_unPatience) + late).size());
    EXPECT_EQ(tTexts(), // where one is given up the next is still waited for
              Lost(Messages(0, 1) + begun + Messages(3, 2 + CLossFinder::c_unPatience) + late +
                   Messages(2 + CLossFinder::c_unPatience, 40)));
}

TEST(LossFinder, SaysNothingOfTheFirstMessageAndTheLast)
{
    EXPECT_EQ(tTexts(),
              Lost(std::vector<stDatagram>{Fragment(1, 2, 2)} + Messages(2, 30) + std::vector<stDatagram>{Fragment(30, 1, 2)}));
}

TEST(LossFinder, NumbersGoRoundAndSendersAreToldApart)
{
    EXPECT_EQ(tTexts(), Lost(Messages(0xfffffff0, 0x10)));
    EXPECT_EQ(tTexts({"0: none of it came"}), Lost(Messages(0xfffffff0, 0) + Messages(1, 0x20)));
    EXPECT_EQ(tTexts(), Lost(Messages(1, 20, 1) + Messages(5000, 5020, 2) + Messages(20, 40, 1) + Messages(5020, 5040, 2)));
}

TEST(LossFinder, ALeapIsASenderThatBeginsAnew)
{
    EXPECT_EQ(tTexts(), Lost(Messages(5000, 5020) + Messages(1, 20)));
    EXPECT_EQ(tTexts(), Lost(Messages(1, 20) + Messages(5000, 5020)));
    EXPECT_EQ(CLossFinder::c_unLongestGap - 20,
              Lost(Messages(1, 20) + Messages(CLossFinder::c_unLongestGap, CLossFinder::c_unLongestGap + 20)).size());

    // After 19 the oldest that is waited for is 4.
    constexpr std::uint32_t c_unFurthest = 4 + CLossFinder::c_unLongestGap;
    EXPECT_EQ(c_unFurthest - 20, Lost(Messages(1, 20) + Messages(c_unFurthest, c_unFurthest + 20)).size());
    EXPECT_EQ(0u, Lost(Messages(1, 20) + Messages(c_unFurthest + 1, c_unFurthest + 20)).size());
}

// After 199 the oldest that is waited for is 184.
TEST(LossFinder, OnlyWhatIsVeryLateBeginsAnew)
{
    constexpr std::uint32_t c_unLatest = 184 - CLossFinder::c_unLongestGap;
    const std::vector<stDatagram> before = Messages(1, 200);
    const std::vector<stDatagram> after = std::vector<stDatagram>{Fragment(200, 1, 2)} + Messages(201, 230);
    EXPECT_EQ(tTexts({"200: fragment 2 of 2 is missing"}), Lost(before + Messages(c_unLatest, c_unLatest + 1) + after));
    EXPECT_EQ(tTexts(), Lost(before + Messages(c_unLatest - 1, c_unLatest) + after)) << "200 is the first of another sender";
}

TEST(LossFinder, WithTooManySendersAllBeginAnew)
{
    const std::vector<stDatagram> begun = Messages(1, 2) + std::vector<stDatagram>{Fragment(2, 1, 2)};
    std::vector<stDatagram> others;
    for (unsigned short usPort = 2; usPort <= CLossFinder::c_unMostSenders; ++usPort)
    {
        others.push_back(Fragment(1, 1, 1, usPort));
    }
    EXPECT_EQ(tTexts({"2: fragment 2 of 2 is missing"}), Lost(begun + others + Messages(3, 30)));
    others.push_back(Fragment(1, 1, 1, CLossFinder::c_unMostSenders + 1));
    EXPECT_EQ(tTexts(), Lost(begun + others + Messages(3, 30)));
}

TEST(LossFinder, AFragmentThatWasCutShortIsMissing)
{
    stDatagram cut = Fragment(2, 1, 1);
    cut.bytes[19] = 1; // of payload, which is not there
    EXPECT_EQ(tTexts({"2: none of it came"}), Lost(Messages(1, 2) + std::vector<stDatagram>{cut} + Messages(3, 30)));
}

TEST(LossFinder, WhatIsNoUpdateIsPassedOver)
{
    stDatagram shorter = Fragment(3, 1, 1);
    shorter.bytes.pop_back();
    stDatagram changes = Fragment(9, 1, 1);
    changes.bytes[3] = enDatagramPPC;
    EXPECT_EQ(tTexts(), Lost({Fragment(1, 1, 1), Fragment(9, 0, 1), Fragment(9, 2, 1), Fragment(9, 1, 6), Fragment(9, 0, 0),
                              Fragment(9, 0xffffffff, 0xffffffff), shorter, changes, Fragment(2, 1, 1), Fragment(3, 1, 1)}));
}
