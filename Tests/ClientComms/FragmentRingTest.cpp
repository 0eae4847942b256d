#include "ClientComms/MsgHandlerBase.h"

#include "Support/Bytes.h"
#include "Support/ReassemblyModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

namespace
{

using Support::AppendBig;
using Support::CReassemblyModel;
using Support::tBytes;

constexpr std::size_t c_unFull = 64980;

tBytes Fragment(std::uint32_t unId, std::uint32_t unNumber, std::uint32_t unTotal, std::size_t unPayload, unsigned int unSeed)
{
    tBytes datagram;
    for (const std::uint32_t unWord : {0u, unId, unNumber, unTotal, static_cast<std::uint32_t>(unPayload)})
    {
        AppendBig(datagram, unWord);
    }
    std::minstd_rand random(unSeed);
    std::generate_n(std::back_inserter(datagram), unPayload, [&] { return static_cast<unsigned char>(random() >> 8); });
    return datagram;
}

// Takes datagrams as a socket hands them over: received into the room, or lying elsewhere.
class CJoiner : public CMsgHandlerBase
{
public:
    struct stMessage
    {
        int nType;
        const unsigned char* pBytes;
        std::size_t unBytes;
    };

    stMessage Take(const tBytes& datagram, bool bInRoom, int nView)
    {
        char* const pRoom = DatagramRoom();
        EXPECT_FALSE(IsInView(reinterpret_cast<const unsigned char*>(pRoom)));
        char* const pData = bInRoom ? pRoom : m_acElsewhere.get();
        std::memcpy(pData, datagram.data(), datagram.size());
        stJoining joining = {m_pBuffer.get(), enRoom, enAnyType, nView, nullptr, 0};
        const int nType = Reassemble(pData, static_cast<long>(datagram.size()), joining, RySocketIO::CIPString());
        const stMessage message = {nType, joining.pMessage, static_cast<std::size_t>(joining.nSize)};
        if (nType >= 0)
        {
            m_aViews[nView] = message;
        }
        return message;
    }

    bool IsInBuffer(const stMessage& message) const { return message.pBytes == m_pBuffer.get(); }
    char* Room() { return DatagramRoom(); }

private:
    enum : int
    {
        enRoom = 1 << 20
    };

    // The room is 65,000 bytes from pRoom on, of which the first 20 may lie over the end of a fragment under way.
    bool IsInView(const unsigned char* pRoom) const
    {
        return std::any_of(std::begin(m_aViews), std::end(m_aViews),
                           [&](const stMessage& view)
                           { return pRoom < view.pBytes + view.unBytes && view.pBytes < pRoom + c_unFull + 20; });
    }

    std::unique_ptr<unsigned char[]> m_pBuffer{new unsigned char[enRoom]};
    std::unique_ptr<char[]> m_acElsewhere{new char[70000]};
    stMessage m_aViews[2] = {};
};

tBytes BytesOf(const CJoiner::stMessage& message)
{
    return tBytes(message.pBytes, message.pBytes + message.unBytes);
}

class FragmentRing : public testing::TestWithParam<bool>
{
protected:
    CJoiner::stMessage Take(const tBytes& datagram, int nView = 0)
    {
        const tBytes payload(datagram.begin() + 20, datagram.end());
        m_Sent.insert(m_Sent.end(), payload.begin(), payload.end());
        return m_Joiner.Take(datagram, GetParam(), nView);
    }

    CJoiner m_Joiner;
    tBytes m_Sent;
};

TEST_P(FragmentRing, WhatComesInOrderIsWholeWhereItLies)
{
    for (std::uint32_t unId = 1; unId <= 40; ++unId) // around the ring, and around its memory
    {
        m_Sent.clear();
        const char* const pFirst = m_Joiner.Room();
        const std::uint32_t unTotal = 1 + unId % 5;
        for (std::uint32_t unNumber = 1; unNumber < unTotal; ++unNumber)
        {
            ASSERT_EQ(-1, Take(Fragment(unId, unNumber, unTotal, c_unFull, unId * 8 + unNumber)).nType);
        }
        const auto message = Take(Fragment(unId, unTotal, unTotal, 12345, unId), static_cast<int>(unId % 2));
        ASSERT_EQ(0, message.nType);
        EXPECT_EQ(reinterpret_cast<const unsigned char*>(pFirst) + 20, message.pBytes) << unId;
        EXPECT_TRUE(m_Sent == BytesOf(message)) << unId;
    }
}

// What an MC sends, for several rounds of the ring.
TEST_P(FragmentRing, SurfaceAndRotaryUpdatesInTurnAreAlwaysWholeWhereTheyLie)
{
    for (std::uint32_t unId = 1; unId <= 80; ++unId)
    {
        const std::uint32_t unTotal = unId % 2 != 0 ? 2 : 5;
        for (std::uint32_t unNumber = 1; unNumber < unTotal; ++unNumber)
        {
            ASSERT_EQ(-1, Take(Fragment(unId, unNumber, unTotal, c_unFull, unNumber)).nType);
        }
        const auto message = Take(Fragment(unId, unTotal, unTotal, unTotal == 2 ? 41469 : 42268, unId), static_cast<int>(unId % 2));
        ASSERT_EQ(0, message.nType);
        EXPECT_FALSE(m_Joiner.IsInBuffer(message)) << unId;
    }
}

TEST_P(FragmentRing, WhatComesOutOfOrderIsCopiedTogether)
{
    const tBytes first = Fragment(1, 1, 2, c_unFull, 1);
    EXPECT_EQ(-1, Take(Fragment(1, 2, 2, 100, 2)).nType);
    const auto message = Take(first);
    ASSERT_EQ(0, message.nType);
    EXPECT_TRUE(m_Joiner.IsInBuffer(message));
    EXPECT_EQ(c_unFull + 100, message.unBytes);
    EXPECT_TRUE(std::equal(first.begin() + 20, first.end(), message.pBytes));
    EXPECT_TRUE(std::equal(m_Sent.begin(), m_Sent.begin() + 100, message.pBytes + c_unFull));
}

// The last fragment's header was received over the end of the payload before it.
TEST_P(FragmentRing, ARepeatedLastFragmentCompletesTheSameMessageAgain)
{
    Take(Fragment(1, 1, 3, c_unFull, 1));
    Take(Fragment(1, 2, 3, c_unFull, 2));
    const tBytes last = Fragment(1, 3, 3, 7, 3);
    const tBytes once = BytesOf(Take(last, 0));
    const tBytes whole = m_Sent;
    EXPECT_TRUE(whole == once);
    EXPECT_TRUE(whole == BytesOf(m_Joiner.Take(last, GetParam(), 1)));
    EXPECT_TRUE(whole == BytesOf(m_Joiner.Take(last, GetParam(), 0)));
}

TEST_P(FragmentRing, AMessageInterruptedByAnotherIsWholeAsWell)
{
    const tBytes a1 = Fragment(1, 1, 2, c_unFull, 1);
    const tBytes a2 = Fragment(1, 2, 2, 9, 2);
    Take(a1);
    m_Sent.clear();
    Take(Fragment(2, 1, 2, c_unFull, 3));
    const tBytes between = BytesOf(Take(Fragment(2, 2, 2, 10, 4), 0));
    EXPECT_TRUE(m_Sent == between);
    const auto message = Take(a2, 1);
    ASSERT_EQ(c_unFull + 9, message.unBytes);
    EXPECT_TRUE(std::equal(a1.begin() + 20, a1.end(), message.pBytes));
    EXPECT_TRUE(std::equal(a2.begin() + 20, a2.end(), message.pBytes + c_unFull));
}

// Full fragments and short ones, of a few messages at a time, in any order, repeated and never completed; in the room or not.
TEST(FragmentRingSeeds, JoinsAsTheModelDoesAndLeavesWhatIsInViewAlone)
{
    CJoiner joiner;
    CReassemblyModel model;
    std::mt19937 random(11);
    tBytes aViews[2];
    CJoiner::stMessage aShown[2] = {};
    int nComplete = 0;
    int nInPlace = 0;
    std::uint32_t unId = 0;
    std::uint32_t unNext = 1;
    for (unsigned int unStep = 1; unStep <= 3000; ++unStep)
    {
        const std::uint32_t unTotal = 1 + static_cast<std::uint32_t>(random() % 5);
        const std::uint32_t unNumber = 1 + static_cast<std::uint32_t>(random() % unTotal);
        const bool bInOrder = random() % 10 != 0;
        tBytes datagram;
        if (bInOrder)
        {
            const std::uint32_t unWhole = 1 + unId % 5;
            datagram = Fragment(unId, unNext, unWhole, unNext < unWhole ? c_unFull : random() % 200, unStep);
            unId += unNext == unWhole ? 1 : 0;
            unNext = unNext == unWhole ? 1 : unNext + 1;
        }
        else
        {
            datagram = Fragment(unId - static_cast<std::uint32_t>(random() % 3), unNumber, unTotal,
                                random() % 2 != 0 ? c_unFull : random() % 200, unStep);
        }
        const CReassemblyModel::stResult expected = model.Take(datagram, 0);
        const int nView = nComplete % 2;
        const CJoiner::stMessage message = joiner.Take(datagram, random() % 8 != 0, nView);
        ASSERT_EQ(expected.enWhat == CReassemblyModel::enComplete ? 0 : -1, message.nType) << unStep;
        if (message.nType == 0)
        {
            ASSERT_TRUE(expected.message == BytesOf(message)) << unStep;
            nInPlace += joiner.IsInBuffer(message) ? 0 : 1;
            aShown[nView] = message;
            aViews[nView] = expected.message;
            ++nComplete;
        }
        for (int nOther = 0; nOther < 2; ++nOther)
        {
            if (!joiner.IsInBuffer(aShown[nOther]))
            {
                ASSERT_TRUE(aViews[nOther] == BytesOf(aShown[nOther])) << unStep;
            }
        }
    }
    EXPECT_GT(nComplete, 800);
    EXPECT_GT(nInPlace, nComplete / 2);
    EXPECT_LT(nInPlace, nComplete);
}

INSTANTIATE_TEST_SUITE_P(, FragmentRing, testing::Bool(),
                         [](const auto& inRoom) { return inRoom.param ? "ReceivedIntoTheRoom" : "ReceivedElsewhere"; });

} // namespace
