#include "Exhaustive/GuardedBlock.h"

#include "ClientComms/ImageSync.h"
#include "Support/NumberedUpdates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

// The updates of a whole console, at every length and with every bit flipped.
namespace
{

using Support::tBytes;

struct stPlace
{
    int nType;
    std::size_t unAt; // of the bytes, behind their length
    std::size_t unLength;
};

const std::size_t c_aunBlockBytes[] = {40963, 261200, 17338, 59424, 11060, 2692, 15898};

class CWholeUpdate
{
public:
    explicit CWholeUpdate(std::uint32_t unUpdateType) : m_bFits(true)
    {
        const auto pImage = std::make_unique<CBMAContainer>();
        const auto pBuilt = std::make_unique<CMCUpdateMsg>();
        m_bFits = BuildMCUpdate(*pImage, static_cast<MCUpdateType>(unUpdateType), *pBuilt);
        m_Bytes.resize(static_cast<std::size_t>(pBuilt->GetTotalSize()));
        unsigned char* pOut = m_Bytes.data();
        *pBuilt >> &pOut;
        std::size_t unAt = 17;
        const auto [nFirst, nLast] = Support::CarriedTypes(unUpdateType);
        for (int nType = nFirst; nType <= nLast; ++nType)
        {
            m_Places.push_back({nType, unAt + 4, Support::BigAt(m_Bytes, unAt)});
            unAt = m_Places.back().unAt + m_Places.back().unLength;
        }
        m_bFits = m_bFits && unAt == m_Bytes.size();
        m_pMessage->SetShallowMode(true);
    }

    bool Fits() const { return m_bFits; }
    const tBytes& Bytes() const { return m_Bytes; }
    const std::vector<stPlace>& Places() const { return m_Places; }

    // What says how long everything is, of the first unSize bytes; the bytes between lie as they are.
    void PutNumbers(unsigned char* pTo, std::size_t unSize) const
    {
        std::memcpy(pTo, m_Bytes.data(), std::min<std::size_t>(unSize, 17));
        for (const stPlace& place : m_Places)
        {
            const std::size_t unStart = std::min(unSize, place.unAt - 4);
            std::memcpy(pTo + unStart, m_Bytes.data() + unStart, std::min(unSize, place.unAt) - unStart);
        }
    }

    // Whether so many bytes parse: as many as end between arrays. A length that is not all there counts as none.
    bool Parses(std::size_t unSize) const
    {
        return unSize >= 17 &&
               std::all_of(m_Places.begin(), m_Places.end(),
                           [unSize](const stPlace& place) { return unSize < place.unAt || unSize >= place.unAt + place.unLength; });
    }

    // Parses, and says whether exactly the arrays that are whole within unSize bytes are shown, where they lie.
    bool ShowsItsArrays(const unsigned char* pData, std::size_t unSize)
    {
        const char* szRefusal = nullptr;
        const bool bParsed = m_pMessage->Parse(pData, unSize, szRefusal);
        bool bRight = bParsed == Parses(unSize) && bParsed == (szRefusal == nullptr);
        for (const stPlace& place : m_Places)
        {
            const bool bWhole = bParsed && unSize >= place.unAt + place.unLength;
            const unsigned char* pArray = nullptr;
            int nLength = 0;
            const bool bShown = m_pMessage->GetArray(static_cast<tagenPPCMessageType>(place.nType), pArray, nLength);
            bRight = bRight && bShown == bWhole && pArray == (bWhole ? pData + place.unAt : nullptr) &&
                     nLength == (bWhole ? static_cast<int>(place.unLength) : 0);
        }
        m_pMessage->ClearError();
        return bRight;
    }

    // The same for bytes of which nothing is known, against a decoder of the test's.
    bool ShowsWhatADecoderReads(const unsigned char* pData, std::size_t unSize)
    {
        const char* szRefusal = nullptr;
        Support::stContents expected;
        const bool bReads = Support::ReadUpdate(tBytes(pData, pData + unSize), expected);
        const bool bParsed = m_pMessage->Parse(pData, unSize, szRefusal);
        const bool bRight = bParsed == bReads && (!bParsed || Support::ContentsOf(*m_pMessage).arrays == expected.arrays);
        m_pMessage->ClearError();
        return bRight;
    }

private:
    bool m_bFits;
    tBytes m_Bytes;
    std::vector<stPlace> m_Places;
    std::unique_ptr<CMCUpdateMsg> m_pMessage = std::make_unique<CMCUpdateMsg>();
};

class WholeUpdates : public testing::TestWithParam<std::uint32_t>
{
protected:
    CWholeUpdate m_Update{GetParam()};
    Exhaustive::CGuardedBlock m_Block{m_Update.Bytes().size()};
};

} // namespace

TEST_P(WholeUpdates, CarryTheBlocksOfAConsole)
{
    ASSERT_TRUE(m_Update.Fits());
    for (const stPlace& place : m_Update.Places())
    {
        EXPECT_EQ(c_aunBlockBytes[place.nType], place.unLength) << place.nType;
    }
}

TEST_P(WholeUpdates, CutAnywhereShowTheArraysThatAreWhole)
{
    for (std::size_t unSize = 0; unSize <= m_Update.Bytes().size(); ++unSize)
    {
        unsigned char* const pData = m_Block.Last(unSize);
        m_Update.PutNumbers(pData, unSize);
        ASSERT_TRUE(m_Update.ShowsItsArrays(pData, unSize)) << unSize << " bytes";
    }
}

TEST_P(WholeUpdates, WithAnyBitFlippedShowWhatTheyThenSay)
{
    const std::size_t unSize = m_Update.Bytes().size();
    unsigned char* const pData = m_Block.Put(m_Update.Bytes().data(), unSize);
    std::size_t unNumbersEnd = 17;
    std::size_t unNext = 0; // place
    for (std::size_t unByte = 0; unByte < unSize; ++unByte)
    {
        if (unNext < m_Update.Places().size() && unByte == m_Update.Places()[unNext].unAt - 4)
        {
            unNumbersEnd = m_Update.Places()[unNext++].unAt;
        }
        for (int nBit = 0; nBit < 8; ++nBit)
        {
            pData[unByte] = static_cast<unsigned char>(pData[unByte] ^ 1 << nBit);
            ASSERT_TRUE(unByte < unNumbersEnd ? m_Update.ShowsWhatADecoderReads(pData, unSize)
                                              : m_Update.ShowsItsArrays(pData, unSize))
                << "bit " << nBit << " of byte " << unByte;
            pData[unByte] = static_cast<unsigned char>(pData[unByte] ^ 1 << nBit);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(OfType, WholeUpdates, testing::Values(1u, 2u, 4u));
