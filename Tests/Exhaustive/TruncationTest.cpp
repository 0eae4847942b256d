#include "Exhaustive/GuardedBlock.h"

#include "ClientComms/ImageSync.h"
#include "ClientComms/MsgHandlerBase.h"
#include "Exhaustive/DamagedMessages.h"
#include "Exhaustive/DamagedReport.h"
#include "Exhaustive/ImageAccess.h"
#include "Exhaustive/QuietTest.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace Exhaustive;

class CutMessages : public CQuietTest
{
};

// Fragment nNumber of nTotal, whose payload tells it from the others.
tBytes Fragment(std::uint32_t unId, int nNumber, int nTotal)
{
    const tBytes payload(static_cast<std::size_t>(10 + nNumber), static_cast<unsigned char>(0x30 + nNumber));
    return Support::Datagram(0, unId, static_cast<std::uint32_t>(nNumber), static_cast<std::uint32_t>(nTotal), payload);
}

// The update of a real console's switches and integers, as its own and the wire's.
tBytes RealUpdate(CBMAContainer& image, stConsoleModel& model)
{
    model.Number(0);
    Fill(image, model);
    tBytes bytes = Support::UpdateHeader(4, 17338 + 59424 + 8);
    Support::AppendArray(bytes, model.WireBlock(enSwitches));
    Support::AppendArray(bytes, model.WireBlock(enIntegers));
    return bytes;
}

// Feeds datagrams to a handler, each of them and the joined message in a guarded block.
class CCutDatagrams
{
public:
    // Gives the first unSize bytes; true when they completed a message, which has to be this one.
    bool Give(const tBytes& datagram, std::size_t unSize, const tBytes& message)
    {
        unsigned char* pBuffer = m_Out.Last(message.size());
        std::memset(pBuffer, 0xee, message.size());
        int nSize = static_cast<int>(message.size());
        const char* pData = reinterpret_cast<const char*>(m_In.Put(datagram.data(), unSize));
        const int nType = m_Handler.ValidatePacketSequence(pData, static_cast<long>(unSize), &pBuffer, nSize);
        const tBytes expected = nType == 0 ? message : tBytes(message.size(), 0xee);
        m_bRight = m_bRight && nSize == static_cast<int>(message.size()) && tBytes(pBuffer, pBuffer + nSize) == expected &&
                   (nType == 0 || nType == -1);
        return nType == 0;
    }

    bool IsRight() const { return m_bRight; }

private:
    std::unique_ptr<CMsgHandlerBase> m_pHandler = std::make_unique<CMsgHandlerBase>();
    CMsgHandlerBase& m_Handler = *m_pHandler;
    CGuardedBlock m_In{4096};
    CGuardedBlock m_Out{4096};
    bool m_bRight = true;
};

} // namespace

TEST(GuardedBlockDeathTest, EndsAtAPageThatMayNotBeTouched)
{
    CGuardedBlock block(100);
    const tBytes bytes = Support::Hex("01 02 03");
    unsigned char* pBytes = block.Put(bytes.data(), bytes.size());
    EXPECT_EQ(bytes, tBytes(pBytes, pBytes + 3));
    volatile unsigned char* pBehind = pBytes + 3;
    EXPECT_DEATH(static_cast<void>(*pBehind), "");
    EXPECT_DEATH(*pBehind = 1, "");
}

// ---- Updates ------------------------------------------------------------------------------------------------------------------

TEST_F(CutMessages, UpdateOfEveryTypeIsTakenOnlyUpToAWholeArray)
{
    const std::unique_ptr<CBMAContainer> pImage = std::make_unique<CBMAContainer>();
    CUpdateCheck check;
    for (const std::uint32_t unType : {0u, 1u, 2u, 3u, 4u, 8u, 9u, 30u, 0x80000000u, 0xffffffffu})
    {
        const tBytes bytes = SmallUpdate(unType);
        for (std::size_t unSize = 0; unSize <= bytes.size(); ++unSize)
        {
            ASSERT_EQ("", check.Of(bytes, unSize)) << unType << ", " << unSize << " bytes";
            ASSERT_TRUE(unSize < bytes.size() || check.IsTaken()) << unType;
            ASSERT_EQ(0u, ApplyMCUpdate(check.Shallow(), *pImage)) << unType; // no array is as long as a block
        }
    }
    EXPECT_EQ("", Difference(*pImage, stConsoleModel()));
}

TEST_F(CutMessages, UpdateOfARealImageChangesItByWholeArraysAlone)
{
    const std::unique_ptr<CBMAContainer> pImage = std::make_unique<CBMAContainer>();
    stConsoleModel full;
    const tBytes bytes = RealUpdate(*pImage, full);
    *pImage = CBMAContainer();
    stConsoleModel model;
    CUpdateCheck check;
    int nTaken = 0;
    for (std::size_t unSize = 0; unSize <= bytes.size(); ++unSize)
    {
        ASSERT_EQ("", check.Of(bytes, unSize)) << unSize << " bytes";
        nTaken += check.IsTaken();
        if (check.IsTaken())
        {
            const unsigned int unSwitches = unSize >= 17 + 4 + 17338 ? 1u << enSwitches : 0;
            const unsigned int unIntegers = unSize == bytes.size() ? 1u << enIntegers : 0;
            model.aValues[enSwitches] = unSwitches != 0 ? full.aValues[enSwitches] : model.aValues[enSwitches];
            model.aValues[enIntegers] = unIntegers != 0 ? full.aValues[enIntegers] : model.aValues[enIntegers];
            EXPECT_EQ(unSwitches | unIntegers, ApplyMCUpdate(check.Shallow(), *pImage)) << unSize;
            EXPECT_EQ("", Difference(*pImage, model)) << unSize;
        }
    }
    EXPECT_EQ(4 + 4 + 1, nTaken); // less than a length behind the header, and behind the first array; all
}

// ---- Datagrams ----------------------------------------------------------------------------------------------------------------

TEST_F(CutMessages, DatagramCutAnywhereCompletesNoMessageFirstOrLastToCome)
{
    CCutDatagrams datagrams;
    std::uint32_t unId = 0;
    for (int nCase = 0; nCase < 2 * 5 * 5; ++nCase)
    {
        const bool bFirst = nCase % 2 == 0;
        const int nTotal = nCase / 2 % 5 + 1;
        const int nCut = nCase / 10 + 1;
        const std::size_t unWhole = Fragment(0, nCut, nTotal).size();
        for (std::size_t unSize = 0; nCut <= nTotal && unSize <= unWhole; ++unSize)
        {
            ++unId;
            tBytes message;
            for (int nNumber = 1; nNumber <= nTotal; ++nNumber)
            {
                const tBytes fragment = Fragment(unId, nNumber, nTotal);
                message.insert(message.end(), fragment.begin() + 20, fragment.end());
            }
            bool bComplete = bFirst && datagrams.Give(Fragment(unId, nCut, nTotal), unSize, message);
            for (int nNumber = 1; nNumber <= nTotal; ++nNumber)
            {
                const tBytes fragment = Fragment(unId, nNumber, nTotal);
                bComplete = (nNumber != nCut && datagrams.Give(fragment, fragment.size(), message)) || bComplete;
            }
            bComplete = (!bFirst && datagrams.Give(Fragment(unId, nCut, nTotal), unSize, message)) || bComplete;
            ASSERT_EQ(unSize == unWhole, bComplete) << nCut << " of " << nTotal << ", " << unSize << " bytes";
            ASSERT_TRUE(datagrams.IsRight()) << nCut << " of " << nTotal << ", " << unSize << " bytes";
        }
    }
}

// As long as can be looked at, and without an end: fifty characters are too many, and no more are read.
TEST_F(CutMessages, AnAddressWithoutItsEndIsNone)
{
    class CHandler : public CMsgHandlerBase
    {
    public:
        using CMsgHandlerBase::m_nRemoteAddresses;
    };
    const auto pHandler = std::make_unique<CHandler>();
    CGuardedBlock block(50);
    const std::string strEndless(50, '1');
    pHandler->SetRemoteAddress(reinterpret_cast<const char*>(block.Put(strEndless.data(), 50)), 0, 9);
    EXPECT_EQ(0, pHandler->m_nRemoteAddresses);
}

// ---- Records ------------------------------------------------------------------------------------------------------------------

TEST_F(CutMessages, StreamOfRecordsIsReadUpToTheLastWholeOne)
{
    CRecordCheck check;
    const tBytes stream = RecordStream();
    for (std::size_t unSize = 0; unSize <= stream.size(); ++unSize)
    {
        ASSERT_EQ("", check.Of(stream, unSize)) << unSize << " bytes";
    }
    EXPECT_EQ("", check.OfImage());
}

TEST_F(CutMessages, EachRecordOfAStreamIsReadFromItsStart)
{
    CRecordCheck check;
    const tBytes stream = RecordStream();
    for (const std::ptrdiff_t nStart : {0, 29, 67, 96, 125})
    {
        const tBytes rest(stream.begin() + nStart, stream.end());
        for (std::size_t unSize = 0; unSize <= rest.size(); ++unSize)
        {
            ASSERT_EQ("", check.Of(rest, unSize)) << unSize << " bytes from " << nStart;
        }
    }
    EXPECT_EQ("", check.OfImage());
}

// ---- Reports ------------------------------------------------------------------------------------------------------------------

TEST_F(CutMessages, ReportIsRefusedUntilItIsWhole)
{
    CReportCheck check;
    const std::string strReport = c_szReport;
    for (std::size_t unSize = 0; unSize < strReport.size(); ++unSize)
    {
        ASSERT_FALSE(check.Parse(strReport.substr(0, unSize))) << unSize << " bytes";
        ASSERT_TRUE(check.Reader().GetMap().empty()) << unSize << " bytes";
    }
    EXPECT_TRUE(check.Parse(strReport));
    EXPECT_EQ("", check.Of(strReport));
    EXPECT_STREQ("SURFACE", check.Reader().GetDeviceType());
    EXPECT_EQ(3, check.Reader().GetDeviceID());
    EXPECT_EQ("1234", check.Reader().get_at(0).v);
    EXPECT_EQ("-5.25", check.Reader().get_at(1).v);
}

TEST_F(CutMessages, ReportIsKnownByItsFirstFiveCharacters)
{
    CReportCheck check;
    CGuardedBlock block(100);
    for (std::size_t unSize = 0; unSize <= 10; ++unSize)
    {
        const std::string strStart(c_szReport, unSize);
        const char* szText = reinterpret_cast<char*>(block.Put(strStart.c_str(), unSize + 1));
        EXPECT_EQ(unSize >= 5, check.Reader().IsXML(szText)) << unSize;
    }
}
