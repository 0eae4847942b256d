#include "ClientComms/SimpleUDPPPCSender.h"

#include "Exhaustive/ConsoleModel.h"
#include "Exhaustive/ImageAccess.h"
#include "LogicalControls/ConsoleBitmapArray.h"
#include "Support/SystemCalls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace
{

using namespace Exhaustive;

// The whole datagram, with zeros for the message id, which is the time.
tBlock Datagram(const stAddress& at, const tValue& value, bool bFlag)
{
    const tBlock record = WireRecord(at, value);
    tBlock bytes = {0, 0, 0, static_cast<unsigned char>(bFlag ? 3 : 1), 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    bytes.push_back(static_cast<unsigned char>(record.size()));
    bytes.insert(bytes.end(), record.begin(), record.end());
    return bytes;
}

// A sender whose datagrams are recorded.
class FilteredSending : public testing::Test
{
protected:
    // What was sent since the last call, message ids wiped out.
    std::vector<tBlock> Sent()
    {
        std::vector<tBlock> sent;
        for (Support::stSentDatagram& datagram : m_Recorder.sent)
        {
            if (datagram.bytes.size() >= 8)
            {
                std::memset(datagram.bytes.data() + 4, 0, 4);
            }
            sent.push_back(std::move(datagram.bytes));
        }
        m_Recorder.sent.clear();
        return sent;
    }

    // Nothing of what is filtered, and of all else just this.
    bool IsRightlySent(const stAddress& at, const tValue& value, bool bFlag)
    {
        const bool bSent = at.nType != enMeters && !IsFiltered(at.nType, at.nPathType, at.nParam);
        return Sent() == (bSent ? std::vector<tBlock>{Datagram(at, value, bFlag)} : std::vector<tBlock>());
    }

    Support::CSocketRecorder m_Recorder;
};

class FilteredImage : public FilteredSending
{
protected:
    FilteredImage()
    {
        m_Image.SetUseSimplePPCSender(true);
        m_Image.InitSimplePPCSenderComms();
    }

    std::unique_ptr<CBMAContainer> m_pImage = std::make_unique<CBMAContainer>();
    CBMAContainer& m_Image = *m_pImage;
};

// Every parameter of a path type that any type has, and what lies beside them.
std::vector<int> ParamsAround(int nType, int nPathType)
{
    std::vector<int> params = {INT_MIN, INT_MAX, 1 << 16};
    for (int nParam = -1; nParam <= std::max(MaxParams(nType, nPathType), 300) + 1; ++nParam)
    {
        params.push_back(nParam);
    }
    return params;
}

} // namespace

TEST_F(FilteredSending, KnowsEveryParameterOfEveryTypeAndItsNeighbours)
{
    SimpleUDPPPCSender sender;
    CTally tally;
    for (int nPair = 0; nPair < 9 * 55; ++nPair)
    {
        const int nType = nPair / 55 - 1;
        const int nPathType = nPair % 55 - 2;
        for (const int nParam : ParamsAround(nType, nPathType))
        {
            const bool bFiltered = sender._FilterPacket(static_cast<tagenPPCMessageType>(nType), nPathType, nParam);
            tally.Check(bFiltered == IsFiltered(nType, nPathType, nParam), "filter", {nType, nPathType, 0, nParam});
        }
    }
    EXPECT_EQ("", tally.Text());
}

// Whatever the path, and whether there is such a parameter or not: the sender knows no limits.
TEST_F(FilteredSending, SendsEveryParameterButTheFilteredAndItsNeighbours)
{
    SimpleUDPPPCSender sender;
    ASSERT_TRUE(sender.InitComms());
    CTally tally;
    unsigned int unNumber = 0;
    for (int nPair = 0; nPair < 9 * 55; ++nPair)
    {
        const stAddress pair = {nPair / 55 - 1, nPair % 55 - 2, 0, 0};
        for (const int nParam : ParamsAround(pair.nType, pair.nPathType))
        {
            const bool bFlag = (++unNumber & 1) != 0;
            const int nPath = unNumber % 3 == 0 ? INT_MIN : static_cast<int>(unNumber % 145) - 1;
            const stAddress at = {pair.nType, pair.nPathType, nPath, nParam};
            sender.SendPPCMessage<int>(TypeOf(at), at.nPathType, at.nPath, at.nParam, static_cast<int>(unNumber), bFlag);
            tBlock expected = Datagram({enIntegers, at.nPathType, at.nPath, at.nParam}, {}, bFlag);
            for (int nByte = 0; nByte < 4; ++nByte)
            {
                const int nShift = 24 - nByte * 8;
                expected[static_cast<std::size_t>(25 + nByte)] =
                    static_cast<unsigned char>(static_cast<unsigned int>(at.nType) >> nShift);
                expected[static_cast<std::size_t>(45 + nByte)] = static_cast<unsigned char>(unNumber >> nShift);
            }
            const bool bSent = !IsFiltered(at.nType, at.nPathType, at.nParam);
            tally.Check(Sent() == (bSent ? std::vector<tBlock>{expected} : std::vector<tBlock>()), "datagram", at);
        }
    }
    EXPECT_EQ("", tally.Text());
}

TEST_F(FilteredImage, SendsEveryAddressButTheFilteredAndTheMeters)
{
    CTally tally;
    unsigned int unNumber = 0;
    for (const stAddress& at : EveryAddress())
    {
        const tValue value = Numbered(at.nType, ++unNumber);
        SetPPC(m_Image, at, value);
        tally.Check(IsRightlySent(at, value, false), "datagram", at);
    }
    EXPECT_EQ("", tally.Text());
    EXPECT_EQ(1u, m_Recorder.opened.size());
}

// All but integers say so in the datagram.
TEST_F(FilteredImage, SendsEveryParameterOfAPathWithoutStoringIt)
{
    stConsoleModel model;
    CTally tally;
    unsigned int unNumber = 0;
    for (const stAddress& at : EveryAddress())
    {
        if (at.nPath == MaxPaths(at.nPathType) - 1 && at.nType != enMeters)
        {
            const tValue value = Numbered(at.nType, ++unNumber);
            SetPPC(m_Image, at, value, enSendOnly);
            tally.Check(IsRightlySent(at, value, at.nType != enIntegers), "datagram", at);
        }
    }
    EXPECT_EQ("", tally.Text());
    EXPECT_EQ("", Difference(m_Image, model));
}
