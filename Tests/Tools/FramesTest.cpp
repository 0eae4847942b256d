#include "Web/Frames.h"

#include "Support/SystemCalls.h"
#include "Support/Updates.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{

using Support::tBytes;

const stEndpoint c_Updates = {0xe100002e, 7060};
const stEndpoint c_MC = {0x0a000001, 40000};
const stAddress c_Fader = {enFader, enMicInput, 3, 0};
const stAddress c_Integer = {enInteger, enMicInput, 3, 0};
const stAddress c_Name = {enString, enMicInput, 3, 1};

tBytes BytesOf(const tFrame& pFrame)
{
    return pFrame == nullptr ? tBytes() : tBytes(pFrame->begin(), pFrame->end());
}

unsigned char KindOf(const tFrame& pFrame)
{
    return pFrame == nullptr ? static_cast<unsigned char>(0) : static_cast<unsigned char>(pFrame->front());
}

std::uint32_t Big(const tBytes& bytes, std::size_t unAt)
{
    return std::uint32_t(bytes.at(unAt)) << 24 | std::uint32_t(bytes.at(unAt + 1)) << 16 | std::uint32_t(bytes.at(unAt + 2)) << 8 |
           bytes.at(unAt + 3);
}

// The changes that a frame tells of one parameter after another: number and the first four bytes of the value.
std::vector<std::pair<std::uint32_t, std::uint32_t>> Changes(const tFrame& pFrame)
{
    const tBytes bytes = BytesOf(pFrame);
    std::vector<std::pair<std::uint32_t, std::uint32_t>> changes;
    const int nStrings = NumberOf(AddressAt(enString, 0)) + static_cast<int>(ParameterNumber(AddressAt(enRotary, 0)));
    std::size_t unAt = 5;
    for (std::uint32_t unLeft = bytes.empty() ? 0 : Big(bytes, 1); unLeft > 0; --unLeft)
    {
        changes.push_back({Big(bytes, unAt), Big(bytes, unAt + 4)});
        unAt += changes.back().first < static_cast<std::uint32_t>(nStrings) ? 17 : 8;
    }
    EXPECT_EQ(bytes.size(), bytes.empty() ? 0 : unAt);
    return changes;
}

class Frames : public ::testing::Test
{
protected:
    void SetNumber(const stAddress& address, int nValue)
    {
        stValue value;
        value.nValue = nValue;
        WriteValue(*m_pMC, {address, value}, false);
    }

    void SetLevel(const stAddress& address, float fValue)
    {
        stValue value;
        value.fValue = fValue;
        WriteValue(*m_pMC, {address, value}, false);
    }

    // The MC shows what it has.
    void Update(int nUpdateType)
    {
        for (const tBytes& bytes : Support::Datagrams(++m_unId, Support::Update(*m_pMC, nUpdateType)))
        {
            stDatagram datagram = {0, c_MC, c_Updates, bytes};
            m_pShadow->Take(datagram);
            m_Frames.Take();
        }
    }

    void Update()
    {
        Update(enMCUpdateRotary);
        Update(enMCUpdateSurface);
    }

    // A frame ends, after what the MC shows.
    std::uint32_t NextFrame()
    {
        Update();
        m_Frames.Next();
        return m_Frames.GetNumber();
    }

    Support::CSteadyTime m_Time;
    const std::unique_ptr<CBMAContainer> m_pMC = std::make_unique<CBMAContainer>();
    const std::unique_ptr<CShadow> m_pShadow = std::make_unique<CShadow>(stMulticastLink());
    CFrames m_Frames{*m_pShadow};
    std::uint32_t m_unId = 100;
};

} // namespace

TEST_F(Frames, NumbersGoThroughTheTypesInOrder)
{
    std::uint32_t unNumber = 0;
    ForEachParameter(c_EveryParameter, [&](const stAddress& address) { EXPECT_EQ(unNumber++, ParameterNumber(address)); });
    EXPECT_EQ(241339u, unNumber);
}

TEST_F(Frames, TheFirstIsTheWholeImageAsAnUpdateHasIt)
{
    SetLevel(c_Fader, -6.5f);
    NextFrame();
    tBytes wanted = Support::Update(*m_pMC, enMCUpdateAll);
    wanted.insert(wanted.begin(), 1);
    EXPECT_EQ(wanted, BytesOf(m_Frames.Since(0)));
}

TEST_F(Frames, AChangeIsWrittenMostSignificantByteFirst)
{
    const std::uint32_t unSeen = NextFrame();
    SetLevel(c_Fader, -6.5f);
    SetNumber(c_Integer, 0x01020304);
    stValue name;
    name.strValue = "Lead Vocal";
    WriteValue(*m_pMC, {c_Name, name}, false);
    NextFrame();
    tBytes wanted = {2, 0, 0, 0, 3};
    Support::AppendBig(wanted, ParameterNumber(c_Name));
    const tBytes text = {'L', 'e', 'a', 'd', ' ', 'V', 'o', 'c', 'a', 'l', 0, 0, 0};
    wanted.insert(wanted.end(), text.begin(), text.end());
    Support::AppendBig(wanted, ParameterNumber(c_Integer));
    wanted.insert(wanted.end(), {1, 2, 3, 4});
    Support::AppendBig(wanted, ParameterNumber(c_Fader));
    wanted.insert(wanted.end(), {0xc0, 0xd0, 0, 0}); // -6.5
    EXPECT_EQ(wanted, BytesOf(m_Frames.Since(unSeen)));
}

TEST_F(Frames, OfAValueThatChangedSeveralTimesTheNewestIsTold)
{
    const std::uint32_t unSeen = NextFrame();
    for (int nValue : {5, 6, 7})
    {
        SetNumber(c_Integer, nValue);
        Update();
    }
    m_Frames.Next();
    const auto changes = Changes(m_Frames.Since(unSeen));
    ASSERT_EQ(1u, changes.size());
    EXPECT_EQ(ParameterNumber(c_Integer), changes[0].first);
    EXPECT_EQ(7u, changes[0].second);
}

TEST_F(Frames, WhereNothingChangedNothingIsTold)
{
    const std::uint32_t unSeen = NextFrame();
    NextFrame();
    EXPECT_EQ(nullptr, m_Frames.Since(unSeen));
}

TEST_F(Frames, WhoWasBehindGetsEverythingOnceAndAsItIsNow)
{
    const std::uint32_t unSeen = NextFrame();
    SetNumber(c_Integer, 5);
    NextFrame();
    SetLevel(c_Fader, 1.0f);
    NextFrame();
    SetNumber(c_Integer, 6);
    const std::uint32_t unLast = NextFrame();
    const auto changes = Changes(m_Frames.Since(unSeen));
    ASSERT_EQ(2u, changes.size());
    EXPECT_EQ(std::make_pair(ParameterNumber(c_Integer), 6u), changes[0]);
    EXPECT_EQ(std::make_pair(ParameterNumber(c_Fader), 0x3f800000u), changes[1]);
    EXPECT_EQ(1u, Changes(m_Frames.Since(unLast - 1)).size());
    EXPECT_EQ(nullptr, m_Frames.Since(unLast));
}

// What comes while a frame is under way is told with it, even to who was behind before it ended.
TEST_F(Frames, AChangeBetweenFramesIsNotLost)
{
    const std::uint32_t unSeen = NextFrame();
    NextFrame();
    SetNumber(c_Integer, 5);
    Update();
    m_Frames.Since(unSeen);
    const std::uint32_t unBefore = m_Frames.GetNumber();
    m_Frames.Next();
    EXPECT_EQ(1u, Changes(m_Frames.Since(unBefore)).size());
}

TEST_F(Frames, BeyondTheLimitTheWholeImageIsTold)
{
    const std::uint32_t unSeen = NextFrame();
    for (int nNumber = 0; nNumber < 40000; ++nNumber)
    {
        SetLevel(AddressAt(enRotary, nNumber), -7.25f);
    }
    const std::uint32_t unMost = NextFrame();
    EXPECT_EQ(enFrameChanges, KindOf(m_Frames.Since(unSeen)));
    for (int nNumber = 0; nNumber <= 40000; ++nNumber)
    {
        SetLevel(AddressAt(enRotary, nNumber), -8.25f);
    }
    NextFrame();
    EXPECT_EQ(enFrameImage, KindOf(m_Frames.Since(unMost)));
    EXPECT_EQ(enFrameImage, KindOf(m_Frames.Since(unSeen)));
}

TEST_F(Frames, ATypeThatComesForTheFirstTimeIsToldWithTheWholeImage)
{
    Update(enMCUpdateSurface);
    m_Frames.Next();
    const std::uint32_t unSeen = m_Frames.GetNumber();
    NextFrame();
    EXPECT_EQ(enFrameImage, KindOf(m_Frames.Since(unSeen)));
}

TEST_F(Frames, TheSameBytesAreMadeOnceForAll)
{
    const std::uint32_t unSeen = NextFrame();
    SetNumber(c_Integer, 5);
    NextFrame();
    EXPECT_EQ(m_Frames.Since(unSeen), m_Frames.Since(unSeen));
    EXPECT_EQ(m_Frames.Since(0), m_Frames.Since(0));
    const tFrame pBefore = m_Frames.Since(0);
    SetNumber(c_Integer, 6);
    NextFrame();
    EXPECT_NE(BytesOf(pBefore), BytesOf(m_Frames.Since(0)));
}

TEST_F(Frames, AShowIsAByteForEachParameterAndWhatDiffers)
{
    std::vector<unsigned char> marks(static_cast<std::size_t>(c_nParameters));
    marks[0] = enMarkStored;
    marks[ParameterNumber(c_Integer)] = enMarkStored | enMarkDiffers | enMarkMoves | enMarkRecalled;
    SetNumber(c_Integer, 0x01020304);
    tBytes wanted(1, 3);
    wanted.insert(wanted.end(), marks.begin(), marks.end());
    Support::AppendBig(wanted, 1);
    Support::AppendBig(wanted, ParameterNumber(c_Integer));
    Support::AppendBig(wanted, 0x01020304);
    EXPECT_EQ(wanted, BytesOf(MakeShowFrame(marks, *m_pMC)));
}
