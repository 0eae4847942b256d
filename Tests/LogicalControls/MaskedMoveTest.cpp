#include "LogicalControls/ParameterArray.h"

#include "Support/Blocks.h"
#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <random>
#include <string>

namespace
{

using Support::tBytes;
using Support::Whole;

// An array and its number of elements, nBytesEach bytes each; one of bits has 0.
template <typename T, tagenPPCMessageType N, int nCount, int nBytesEach>
struct stArrayKind
{
    typedef CParameterArray<T, N, nBytesEach == 0> tArray;
    typedef CParameterArray<int, N, true> tMask;
    static constexpr tagenPPCMessageType enType = N;
    static constexpr int nElements = nCount;
    static constexpr int nWidth = nBytesEach;
};

struct stArrayKindName
{
    template <typename K>
    static std::string GetName(int)
    {
        return std::string(caMessageTypeNames[K::enType]) + (K::nWidth == 0 ? "Bits" : "Values");
    }
};

template <typename A>
void SetWhole(A& array, const tBytes& bytes)
{
    std::memcpy(array.GetMemoryPointer(), bytes.data(), bytes.size());
}

std::size_t At(int nByte)
{
    return static_cast<std::size_t>(nByte);
}

void PutBit(tBytes& bits, int nIndex, bool bValue)
{
    unsigned char& ucByte = bits[At(nIndex / 8)];
    ucByte = static_cast<unsigned char>(bValue ? ucByte | 1 << nIndex % 8 : ucByte & ~(1 << nIndex % 8));
}

void PutBits(tBytes& bits, int nFirst, int nEnd)
{
    for (int nIndex = nFirst; nIndex < nEnd; ++nIndex)
    {
        PutBit(bits, nIndex, true);
    }
}

tBytes Complement(tBytes bytes)
{
    for (unsigned char& ucByte : bytes)
    {
        ucByte = static_cast<unsigned char>(~ucByte);
    }
    return bytes;
}

// Where two blocks differ first; -1: nowhere.
long Difference(const tBytes& one, const tBytes& other)
{
    const auto at = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
    return at.first == one.end() && at.second == other.end() ? -1 : at.first - one.begin();
}

template <typename K>
class MaskPattern : public testing::Test
{
protected:
    // Giver and taker differ in every bit, and so in every element.
    MaskPattern()
    {
        m_From.resize(Whole(m_Giver).size());
        std::generate(m_From.begin(), m_From.end(), [this] { return static_cast<unsigned char>(m_Random()); });
        m_Before = Complement(m_From);
        SetWhole(m_Giver, m_From);
    }

    tBytes Mask(int nFill = 0) const { return tBytes(Whole(m_MaskA).size(), static_cast<unsigned char>(nFill)); }

    // nPercent of the bits, in the bytes behind the mask too.
    tBytes RandomMask(unsigned int unPercent)
    {
        tBytes mask = Mask();
        for (int nIndex = 0; At(nIndex) < mask.size() * 8; ++nIndex)
        {
            PutBit(mask, nIndex, m_Random() % 100 < unPercent);
        }
        return mask;
    }

    // Runs of full units, a mixed unit before each, an empty or a mixed one behind it.
    tBytes RunMask(int nUnitBytes, int nRun, bool bEmptyBehind)
    {
        tBytes mask = RandomMask(50);
        for (int nByte = 0; At(nByte) < mask.size(); ++nByte)
        {
            const int nUnit = nByte / nUnitBytes % (nRun + 2);
            const bool bFull = nUnit > 0 && nUnit <= nRun;
            unsigned char& ucByte = mask[At(nByte)];
            ucByte = static_cast<unsigned char>(bFull ? 0xff : (nUnit > nRun && bEmptyBehind ? 0 : ucByte));
        }
        return mask;
    }

    // What the taker must be then: element by element the giver's where both masks are set, its own elsewhere. Bits move by whole
    // bytes, so those between the last element and the end of its byte go by their mask bits too.
    tBytes Moved(const tBytes& a, const tBytes& b) const
    {
        tBytes after = m_Before;
        for (int nByte = 0; nByte < (K::nElements + 7) / 8; ++nByte)
        {
            for (int nElement = 8 * nByte, nBits = a[At(nByte)] & b[At(nByte)]; nBits != 0; nBits >>= 1, ++nElement)
            {
                if ((nBits & 1) != 0)
                {
                    MoveElement(after, nElement);
                }
            }
        }
        return after;
    }

    void MoveElement(tBytes& after, int nElement) const
    {
        if (K::nWidth == 0)
        {
            PutBit(after, nElement, (m_From[At(nElement / 8)] >> nElement % 8 & 1) != 0);
        }
        else if (nElement < K::nElements)
        {
            std::copy_n(m_From.begin() + nElement * K::nWidth, K::nWidth, after.begin() + nElement * K::nWidth);
        }
    }

    // Imported with the masks one way round, exported the other way.
    void ExpectMove(const tBytes& a, const tBytes& b, const std::string& strCase)
    {
        const tBytes expected = Moved(a, b);
        SetWhole(m_MaskA, a);
        SetWhole(m_MaskB, b);
        SetWhole(m_Taker, m_Before);
        m_Taker.Import(m_Giver, m_MaskA, m_MaskB);
        EXPECT_EQ(-1, Difference(expected, Whole(m_Taker))) << "import, " << strCase;
        SetWhole(m_Taker, m_Before);
        m_Giver.Export(m_Taker, m_MaskB, m_MaskA);
        EXPECT_EQ(-1, Difference(expected, Whole(m_Taker))) << "export, " << strCase;
        EXPECT_TRUE(m_From == Whole(m_Giver) && a == Whole(m_MaskA) && b == Whole(m_MaskB)) << strCase;
    }

    void ExpectMove(const tBytes& mask, const std::string& strCase) { ExpectMove(mask, Mask(0xff), strCase); }

    std::mt19937 m_Random{40213};
    typename K::tArray m_Giver;
    typename K::tArray m_Taker;
    typename K::tMask m_MaskA;
    typename K::tMask m_MaskB;
    tBytes m_From;
    tBytes m_Before;
};

typedef testing::Types<stArrayKind<RyGConsoleString, enString, 3151, 13>, stArrayKind<float, enRotary, 65300, 4>,
                       stArrayKind<int, enInteger, 14856, 4>, stArrayKind<float, enFader, 2765, 4>,
                       stArrayKind<int, enOther, 673, 4>, stArrayKind<unsigned char, enMeter, 15898, 1>,
                       stArrayKind<int, enString, 3151, 0>, stArrayKind<int, enRotary, 65300, 0>,
                       stArrayKind<int, enSwitch, 138696, 0>, stArrayKind<int, enInteger, 14856, 0>,
                       stArrayKind<int, enFader, 2765, 0>, stArrayKind<int, enOther, 673, 0>, stArrayKind<int, enMeter, 15898, 0>>
    tArrayKinds;
TYPED_TEST_SUITE(MaskPattern, tArrayKinds, stArrayKindName);

constexpr int c_nFirstBits = 131; // two long words and a bit more

} // namespace

TYPED_TEST(MaskPattern, EmptyMaskMovesNothing)
{
    EXPECT_EQ(this->m_Before, this->Moved(this->Mask(), this->Mask(0xff)));
    this->ExpectMove(this->Mask(), "empty");
    this->ExpectMove(this->Mask(0xff), this->Mask(), "empty, the other way round");
    this->ExpectMove(this->Mask(), this->Mask(), "both empty");
    this->ExpectMove(this->Mask(0x55), this->Mask(0xaa), "nothing in common");
}

TYPED_TEST(MaskPattern, FullMasksMoveEveryElementAndNothingBehindTheLast)
{
    constexpr int nBytes = TypeParam::nWidth == 0 ? (TypeParam::nElements + 7) / 8 : TypeParam::nElements * TypeParam::nWidth;
    tBytes expected = this->m_Before;
    std::copy_n(this->m_From.begin(), nBytes, expected.begin());
    EXPECT_EQ(-1, Difference(expected, this->Moved(this->Mask(0xff), this->Mask(0xff))));
    this->ExpectMove(this->Mask(0xff), this->Mask(0xff), "both full");
}

TYPED_TEST(MaskPattern, PathOfAMaskIsThatPathOfTheArray)
{
    int nIndex = 0;
    for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
    {
        const int nParams = canMaxParams[nPathType * c_nMessageTypes + TypeParam::enType];
        const int nLast = canMaxPaths[nPathType] - 1;
        for (const int nPath : {0, nLast})
        {
            long lBitIndex = -1;
            long lCount = -1;
            unsigned char* pBits = nullptr;
            this->m_MaskA.GetPPCBitBase(static_cast<tagenVirtualPathType>(nPathType), nPath, lBitIndex, lCount, pBits);
            EXPECT_TRUE(lBitIndex == nIndex + nPath * nParams && lCount == nParams && pBits == this->m_MaskA.GetMemoryPointer());
            tBytes mask = this->Mask();
            PutBits(mask, nIndex + nPath * nParams, nIndex + (nPath + 1) * nParams);
            this->ExpectMove(mask, this->Mask(0xff), "path type " + std::to_string(nPathType));
        }
        nIndex += (nLast + 1) * nParams;
    }
    EXPECT_EQ(TypeParam::nElements, nIndex);
}

TYPED_TEST(MaskPattern, OneBitMovesOneElement)
{
    for (int nBit = 0; nBit < c_nFirstBits; ++nBit)
    {
        tBytes mask = this->Mask();
        PutBit(mask, nBit, true);
        this->ExpectMove(mask, "bit " + std::to_string(nBit));
    }
}

TYPED_TEST(MaskPattern, OneClearBitKeepsOneElement)
{
    for (int nBit = 0; nBit < c_nFirstBits; ++nBit)
    {
        tBytes mask = this->Mask(0xff);
        PutBit(mask, nBit, false);
        this->ExpectMove(mask, "all but bit " + std::to_string(nBit));
    }
}

TYPED_TEST(MaskPattern, RandomMasksMoveWhatTheyHaveInCommon)
{
    for (const unsigned int unPercentA : {1u, 50u, 99u})
    {
        for (const unsigned int unPercentB : {1u, 50u, 99u})
        {
            const std::string strCase = std::to_string(unPercentA) + " and " + std::to_string(unPercentB) + " percent";
            this->ExpectMove(this->RandomMask(unPercentA), this->RandomMask(unPercentB), strCase);
        }
    }
}

TYPED_TEST(MaskPattern, RunsOfFullWordsMoveWholeAmongMixedOnes)
{
    for (const int nUnitBytes : {1, 4, 8, 16})
    {
        for (const int nRun : {1, 2, 3})
        {
            const std::string strCase = std::to_string(nRun) + " times " + std::to_string(nUnitBytes);
            this->ExpectMove(this->RunMask(nUnitBytes, nRun, false), strCase + ", mixed behind");
            this->ExpectMove(this->RunMask(nUnitBytes, nRun, true), strCase + ", empty behind");
            this->ExpectMove(this->RunMask(nUnitBytes, nRun, true), this->RandomMask(99), strCase + ", against a dense one");
        }
    }
}

TYPED_TEST(MaskPattern, LastPartialWordEndsAtTheLastElement)
{
    for (int nTail = 0; nTail < c_nFirstBits; ++nTail)
    {
        tBytes mask = this->Mask();
        PutBits(mask, TypeParam::nElements - nTail, static_cast<int>(mask.size()) * 8);
        this->ExpectMove(mask, "the last " + std::to_string(nTail) + " and all bits behind");
        mask = this->Mask(0xff);
        std::fill(mask.begin() + (TypeParam::nElements - nTail) / 8, mask.end(), static_cast<unsigned char>(0));
        this->ExpectMove(mask, "all but about the last " + std::to_string(nTail));
    }
}

TYPED_TEST(MaskPattern, OneMaskMayBeBoth)
{
    for (const unsigned int unPercent : {1u, 50u, 99u})
    {
        const tBytes mask = this->RandomMask(unPercent);
        const tBytes expected = this->Moved(mask, mask);
        SetWhole(this->m_MaskA, mask);
        SetWhole(this->m_Taker, this->m_Before);
        this->m_Taker.Import(this->m_Giver, this->m_MaskA, this->m_MaskA);
        EXPECT_EQ(-1, Difference(expected, Whole(this->m_Taker)));
        SetWhole(this->m_Taker, this->m_Before);
        this->m_Giver.Export(this->m_Taker, this->m_MaskA, this->m_MaskA);
        EXPECT_EQ(-1, Difference(expected, Whole(this->m_Taker)));
    }
}

// The giver's own set bits come over, the taker's own set bits are given away.
TEST(MaskPatternOfFlags, MaskMayBeGiverOrTaker)
{
    CParameterArray<int, enRotary, true> giver;
    CParameterArray<int, enRotary, true> taker;
    CParameterArray<int, enRotary, true> full;
    SetWhole(full, tBytes(Whole(full).size(), 0xff));
    SetWhole(giver, tBytes(Whole(giver).size(), 0x35));
    SetWhole(taker, tBytes(Whole(taker).size(), 0x53));
    tBytes expected = Whole(taker);

    giver.Export(taker, giver, full); // a byte is 0x35 | 0x53
    std::fill_n(expected.begin(), 8163, static_cast<unsigned char>(0x77));
    EXPECT_EQ(-1, Difference(expected, Whole(taker)));
    taker.Import(giver, full, taker); // 0x35 & 0x77
    std::fill_n(expected.begin(), 8163, static_cast<unsigned char>(0x35));
    EXPECT_EQ(-1, Difference(expected, Whole(taker)));
}

TEST(MaskPatternOfFlags, SpareByteBehindAFullLastByteStays)
{
    CParameterArray<int, enSwitch, true> giver;
    CParameterArray<int, enSwitch, true> taker;
    CParameterArray<int, enSwitch, true> full;
    SetWhole(full, tBytes(Whole(full).size(), 0xff));
    SetWhole(giver, tBytes(Whole(giver).size(), 0xff));
    taker.Import(giver, full, full);
    giver.Export(taker, full, full);
    tBytes expected(17338 + Support::c_nBehind, 0);
    std::fill_n(expected.begin(), 17337, static_cast<unsigned char>(0xff));
    EXPECT_EQ(expected, Whole(taker));
}
