#include "Exhaustive/DamagedMessages.h"

#include "ClientComms/ImageSync.h"
#include "ClientComms/MsgHandlerBase.h"
#include "Exhaustive/DamagedReport.h"
#include "Exhaustive/QuietTest.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace Exhaustive;

class FlippedBits : public CQuietTest
{
};

template <class Bytes>
Bytes Flipped(Bytes bytes, std::size_t unBit)
{
    bytes[unBit / 8] = static_cast<typename Bytes::value_type>(bytes[unBit / 8] ^ 1 << unBit % 8);
    return bytes;
}

// ---- Datagrams, read once more -------------------------------------------------------------------------------------------------

struct stMessage
{
    int nType; // -1: none
    tBytes bytes;
};

// What comes of a datagram when those of its id that came before are these, by number.
stMessage Completed(const tBytes& datagram, std::uint32_t unId, std::map<std::uint32_t, tBytes> payloads)
{
    const std::uint32_t unType = Big(&datagram[0]);
    const std::uint32_t unNumber = Big(&datagram[8]);
    const std::uint32_t unTotal = Big(&datagram[12]);
    const std::uint32_t unLength = Big(&datagram[16]);
    if (unType > 89 || unNumber == 0 || unNumber > unTotal || unTotal > 5 || unLength > datagram.size() - 20)
    {
        return {-1, {}};
    }
    if (Big(&datagram[4]) != unId)
    {
        payloads.clear();
    }
    payloads[unNumber] = tBytes(datagram.begin() + 20, datagram.begin() + 20 + static_cast<std::ptrdiff_t>(unLength));
    stMessage message = {static_cast<int>(unType), {}};
    for (std::uint32_t unFragment = 1; unFragment <= unTotal; ++unFragment)
    {
        if (payloads.count(unFragment) == 0)
        {
            return {-1, {}};
        }
        Support::Append(message.bytes, payloads[unFragment]);
    }
    return message;
}

// Ids with an even number of bits set: with one flipped, none is another.
std::uint32_t EvenId(std::uint32_t unNumber)
{
    std::uint32_t unParity = unNumber;
    for (int nShift = 16; nShift > 0; nShift /= 2)
    {
        unParity ^= unParity >> nShift;
    }
    return unNumber << 1 | (unParity & 1);
}

// The whole of 1 to nTotal, but for the one that comes last, damaged.
void FlipEveryBitOfTheLast(std::uint32_t unType, int nLast, int nTotal)
{
    constexpr int nRoom = 200;
    std::map<std::uint32_t, tBytes> payloads;
    for (int nNumber = 1; nNumber <= nTotal; ++nNumber)
    {
        payloads[static_cast<std::uint32_t>(nNumber)] =
            tBytes(static_cast<std::size_t>(6 + nNumber), static_cast<unsigned char>(nNumber));
    }
    const std::uint32_t unLast = static_cast<std::uint32_t>(nLast);
    const tBytes payload = payloads[unLast];
    payloads.erase(unLast);
    const std::unique_ptr<CMsgHandlerBase> pHandler = std::make_unique<CMsgHandlerBase>();
    CGuardedBlock in(100);
    CGuardedBlock out(nRoom);
    for (std::size_t unBit = 0; unBit < (payload.size() + 20) * 8; ++unBit)
    {
        const std::uint32_t unId = EvenId(static_cast<std::uint32_t>(unBit));
        const tBytes last = Support::Datagram(unType, unId, unLast, static_cast<std::uint32_t>(nTotal), payload);
        unsigned char* pBuffer = out.Last(nRoom);
        int nSize = nRoom;
        for (const auto& before : payloads)
        {
            const tBytes other = Support::Datagram(unType, unId, before.first, static_cast<std::uint32_t>(nTotal), before.second);
            const char* pOther = reinterpret_cast<const char*>(in.Put(other.data(), other.size()));
            ASSERT_EQ(-1, pHandler->ValidatePacketSequence(pOther, static_cast<long>(other.size()), &pBuffer, nSize));
        }
        const tBytes flipped = Flipped(last, unBit);
        const stMessage expected = Completed(flipped, unId, payloads);
        const char* pLast = reinterpret_cast<const char*>(in.Put(flipped.data(), flipped.size()));
        ASSERT_EQ(expected.nType, pHandler->ValidatePacketSequence(pLast, static_cast<long>(flipped.size()), &pBuffer, nSize))
            << nLast << " of " << nTotal << ", bit " << unBit;
        ASSERT_EQ(expected.nType == -1 ? nRoom : static_cast<int>(expected.bytes.size()), nSize) << unBit;
        ASSERT_TRUE(expected.nType == -1 || expected.bytes == tBytes(pBuffer, pBuffer + nSize)) << unBit;
    }
}

// What may stand for a character of an attribute's value, alone and as it is.
bool MayBeInAValue(char c)
{
    const unsigned char uc = static_cast<unsigned char>(c);
    const bool bBlank = uc == '\t' || uc == '\n' || uc == '\r';
    return bBlank || (uc >= ' ' && uc < 0x80 && uc != '<' && uc != '&' && uc != '"');
}

} // namespace

TEST_F(FlippedBits, OfAnUpdateOfEveryTypeShowNoBytesButItsOwn)
{
    CUpdateCheck check;
    for (const std::uint32_t unType : {0u, 1u, 2u, 3u, 4u, 8u, 30u})
    {
        const tBytes bytes = SmallUpdate(unType);
        for (std::size_t unBit = 0; unBit < bytes.size() * 8; ++unBit)
        {
            ASSERT_EQ("", check.Of(Flipped(bytes, unBit), bytes.size())) << unType << ", bit " << unBit;
        }
    }
}

// A bit makes a 25 the last valid type, and a 26 the first that is not.
TEST_F(FlippedBits, OfADatagramAreRefusedOrDoAsTheyThenSay)
{
    FlipEveryBitOfTheLast(25, 1, 1);
    FlipEveryBitOfTheLast(26, 1, 2);
    FlipEveryBitOfTheLast(26, 2, 3);
    FlipEveryBitOfTheLast(0, 5, 5);
}

TEST_F(FlippedBits, OfAStreamOfRecordsChangeWhatTheyThenName)
{
    CRecordCheck check;
    const tBytes stream = RecordStream();
    for (std::size_t unBit = 0; unBit < stream.size() * 8; ++unBit)
    {
        ASSERT_EQ("", check.Of(Flipped(stream, unBit), stream.size())) << "bit " << unBit;
    }
    EXPECT_EQ("", check.OfImage());
}

TEST_F(FlippedBits, OfAReportAreRefusedOrGiveTheTextThatStandsThere)
{
    CReportCheck check;
    const std::string strReport = c_szReport;
    int nTaken = 0;
    for (std::size_t unBit = 0; unBit < strReport.size() * 8; ++unBit)
    {
        const std::string strFlipped = Flipped(strReport, unBit);
        const bool bTaken = check.Parse(strFlipped);
        nTaken += bTaken;
        ASSERT_EQ("", bTaken ? check.Of(strFlipped) : "") << strFlipped;
    }
    EXPECT_LT(0, nTaken);
}

TEST_F(FlippedBits, OfAReportsValuesAreThoseValues)
{
    CReportCheck check;
    const std::string strReport = c_szReport;
    for (const std::string& strValue : {std::string("1234"), std::string("-5.25")})
    {
        const std::size_t unStart = strReport.find(strValue);
        for (std::size_t unBit = 0; unBit < strValue.size() * 8; ++unBit)
        {
            const std::string strFlipped = Flipped(strValue, unBit);
            std::string strDamaged = strReport;
            strDamaged.replace(unStart, strValue.size(), strFlipped);
            const bool bTaken = check.Parse(strDamaged);
            ASSERT_EQ(MayBeInAValue(strFlipped[unBit / 8]), bTaken) << strDamaged;
            ASSERT_TRUE(!bTaken || check.Reader().get_at(strValue == "1234" ? 0 : 1).v == Normalised(strFlipped)) << strDamaged;
        }
    }
}
