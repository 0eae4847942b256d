#include "Network/LossFinder.h"

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

TEST(LossFinder, WaitsForWhatIsLate)
{
    const std::vector<stDatagram> late = {Fragment(2, 2, 2)};
    const std::vector<stDatagram> begun = Messages(1, 2) + std::vector<stDatagram>{Fragment(2, 1, 2)};
    EXPECT_EQ(tTexts(),
              Lost(begun + Messages(3, 2 + CLossFinder::c_unPatience) + late + Messages(2 + CLossFinder::c_unPatience, 40)));
    EXPECT_EQ(1u, Lost(begun + Messages(3, 3 + CLossFinder::c_unPatience) + late).size());
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
    EXPECT_EQ(tTexts(), Lost({Fragment(1, 1, 1), Fragment(900, 0, 1), Fragment(900, 2, 1), Fragment(900, 1, 6),
                              Fragment(900, 0xffffffff, 0xffffffff), shorter, changes, Fragment(2, 1, 1), Fragment(3, 1, 1)}));
}
