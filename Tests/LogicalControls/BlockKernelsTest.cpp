#include "LogicalControls/BlockKernels.h"

#include "LogicalControls/MaskedMove.h"
#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

namespace
{

using Support::Hex;
using Support::tBytes;

constexpr std::size_t c_unAround = 64;

typedef void (*tMove)(unsigned char*, const unsigned char*, const unsigned char*, const unsigned char*, int);

// Bytes that are the same in every run.
class CRandomBytes
{
protected:
    tBytes Random(std::size_t unBytes)
    {
        tBytes bytes(unBytes);
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<unsigned char>(m_Random()); });
        return bytes;
    }

    std::mt19937 m_Random{31};
};

class MaskedBits : public testing::Test, protected CRandomBytes
{
};

// Every form of the loops that this processor can run.
class BlockKernel : public testing::TestWithParam<int>, protected CRandomBytes
{
protected:
    static void SetUpTestSuite() { s_nForms = FindBlockKernels(s_apForms); }

    void SetUp() override
    {
        if (GetParam() >= s_nForms)
        {
            GTEST_SKIP() << "this processor has no such form";
        }
    }

    const stBlockKernels& Form() const { return *s_apForms[GetParam()]; }

    // Bits of which about nPercent are set, in runs as long as paths are or one by one, and rubbish behind them.
    tBytes Mask(int nElements, unsigned int unPercent, bool bRuns)
    {
        tBytes mask = Random(static_cast<std::size_t>(nElements) / 8 + 1 + c_unMaskReach);
        int nLeft = 0;
        bool bSet = false;
        for (int nElement = 0; nElement < nElements; ++nElement, --nLeft)
        {
            if (!bRuns || nLeft <= 0)
            {
                bSet = m_Random() % 100 < unPercent;
                nLeft = static_cast<int>(m_Random() % 900);
            }
            unsigned char& ucByte = mask[static_cast<std::size_t>(nElement / 8)];
            ucByte = static_cast<unsigned char>(bSet ? ucByte | 1 << nElement % 8 : ucByte & ~(1 << nElement % 8));
        }
        return mask;
    }

    // Element by element, what the destination must be.
    static tBytes Moved(tBytes to, const tBytes& from, const tBytes& maskA, const tBytes& maskB, int nElements, std::size_t unWidth)
    {
        for (int nElement = 0; nElement < nElements; ++nElement)
        {
            const std::size_t unElement = static_cast<std::size_t>(nElement);
            if ((maskA[unElement / 8] & maskB[unElement / 8] & 1 << nElement % 8) != 0)
            {
                std::copy_n(from.begin() + static_cast<std::ptrdiff_t>(unElement * unWidth), unWidth,
                            to.begin() + static_cast<std::ptrdiff_t>(unElement * unWidth));
            }
        }
        return to;
    }

    void MovesWhatBothMasksName(tMove move, std::size_t unWidth, std::size_t unAlignment)
    {
        for (const int nElements : {0, 1, 3, 15, 16, 17, 63, 64, 65, 127, 511, 512, 513, 600, 1023, 1024, 1025, 1600, 5000})
        {
            for (const unsigned int unPercent : {0u, 1u, 6u, 50u, 97u, 100u})
            {
                for (const bool bRuns : {false, true})
                {
                    const std::size_t unOffset = m_Random() % (64 / unAlignment) * unAlignment;
                    MovesOnce(move, nElements, unWidth, unOffset, Mask(nElements, unPercent, bRuns), Mask(nElements, 100, bRuns));
                    MovesOnce(move, nElements, unWidth, unOffset, Mask(nElements, 90, bRuns), Mask(nElements, unPercent, !bRuns));
                }
            }
        }
    }

    void MovesOnce(tMove move, int nElements, std::size_t unWidth, std::size_t unOffset, const tBytes& maskA, const tBytes& maskB)
    {
        const std::size_t unBytes = static_cast<std::size_t>(nElements) * unWidth;
        const tBytes from = Random(unBytes);
        const tBytes before = Random(unBytes);
        tBytes block(unOffset + unBytes + c_unAround, 0xa5);
        alignas(64) static unsigned char s_acBlock[70000];
        ASSERT_LE(block.size(), sizeof s_acBlock);
        std::copy(before.begin(), before.end(), block.begin() + static_cast<std::ptrdiff_t>(unOffset));
        std::copy(block.begin(), block.end(), s_acBlock);
        move(s_acBlock + unOffset, from.data(), maskA.data(), maskB.data(), nElements);
        const tBytes expected = Moved(before, from, maskA, maskB, nElements, unWidth);
        std::copy(expected.begin(), expected.end(), block.begin() + static_cast<std::ptrdiff_t>(unOffset));
        const auto at = std::mismatch(block.begin(), block.end(), s_acBlock);
        EXPECT_EQ(block.end(), at.first) << nElements << " elements, offset " << unOffset << ", byte " << at.first - block.begin();
    }

    static const stBlockKernels* s_apForms[c_nMaxBlockKernels];
    static int s_nForms;
};

const stBlockKernels* BlockKernel::s_apForms[c_nMaxBlockKernels];
int BlockKernel::s_nForms;

TEST_P(BlockKernel, JoinsWordsAtAnyAddressAndOfAnyNumber)
{
    const tBytes bytes = Random(4 * 300 + 64);
    for (std::size_t unOffset : {0u, 1u, 13u, 64u})
    {
        std::uint32_t unExpected = 0;
        for (long lWords = 0; lWords <= 300; ++lWords)
        {
            ASSERT_EQ(unExpected, Form().JoinWords(bytes.data() + unOffset, lWords)) << lWords;
            std::uint32_t unWord;
            std::memcpy(&unWord, bytes.data() + std::min(unOffset + static_cast<std::size_t>(lWords) * 4, bytes.size() - 4), 4);
            unExpected ^= unWord;
        }
    }
}

// The value 0x01020304 travels as these four bytes in this order, whatever the machine's is.
TEST_P(BlockKernel, SwapsWordsToTheOrderOfTheWireAndBack)
{
    const std::uint32_t aunValues[] = {0x01020304u, 0xfffefdfcu};
    unsigned char acWire[8];
    Form().SwapWords(acWire, reinterpret_cast<const unsigned char*>(aunValues), sizeof acWire);
    EXPECT_EQ(Hex("01 02 03 04 ff fe fd fc"), tBytes(acWire, acWire + sizeof acWire));
    for (std::size_t unWords = 0; unWords < 200; ++unWords)
    {
        const std::size_t unOffset = unWords % 7;
        const tBytes values = Random(4 * unWords + 3); // a part of a word is no word
        tBytes wire(unOffset + values.size() + c_unAround, 0xa5);
        tBytes expected = wire;
        for (std::size_t unWord = 0; unWord < unWords; ++unWord)
        {
            std::uint32_t unValue;
            std::memcpy(&unValue, values.data() + 4 * unWord, 4);
            for (std::size_t unByte = 0; unByte < 4; ++unByte)
            {
                expected[unOffset + 4 * unWord + unByte] = static_cast<unsigned char>(unValue >> (24 - 8 * unByte));
            }
        }
        Form().SwapWords(wire.data() + unOffset, values.data(), values.size());
        ASSERT_EQ(expected, wire) << unWords;
        tBytes back(4 * unWords);
        Form().SwapWords(back.data(), wire.data() + unOffset, 4 * unWords);
        ASSERT_TRUE(std::equal(back.begin(), back.end(), values.begin())) << unWords;
    }
}

TEST_P(BlockKernel, MovesTheWordsThatBothMasksName)
{
    MovesWhatBothMasksName(Form().MoveWords, 4, 4);
}

TEST_P(BlockKernel, MovesTheStringsThatBothMasksName)
{
    MovesWhatBothMasksName(Form().MoveStrings, 13, 1);
}

// Runs of set flags, and of clear ones, from every bit of a word on and from every word of a line of the cache: whatever a form
// looks at together begins and ends within a run somewhere.
TEST_P(BlockKernel, MovesRunsFromEveryBitToEveryPlace)
{
    constexpr int c_nElements = 1200;
    const tBytes every(c_nElements / 8 + 1 + c_unMaskReach, 0xff);
    for (int nFirst = 0; nFirst < 2 * 64; ++nFirst)
    {
        for (const int nLength : {1, 63, 64, 65, 447, 505, 511, 512, 513, 520, 1024, 1071})
        {
            tBytes run(every.size(), 0);
            for (int nElement = nFirst; nElement < std::min(nFirst + nLength, c_nElements); ++nElement)
            {
                unsigned char& ucByte = run[static_cast<std::size_t>(nElement / 8)];
                ucByte = static_cast<unsigned char>(ucByte | 1 << nElement % 8);
            }
            tBytes rest = run;
            std::transform(run.begin(), run.end(), rest.begin(),
                           [](unsigned char ucByte) { return static_cast<unsigned char>(~ucByte); });
            const std::size_t unOffset = static_cast<std::size_t>(nFirst + nLength) % 16 * 4;
            MovesOnce(Form().MoveWords, c_nElements, 4, unOffset, run, every);
            MovesOnce(Form().MoveWords, c_nElements, 4, unOffset, every, rest);
        }
    }
}

TEST_F(MaskedBits, AreMergedWhereBothMasksNameThem)
{
    for (const int nBytes : {0, 1, 7, 8, 63, 64, 65, 127, 128, 300, 17337})
    {
        const std::size_t unBytes = static_cast<std::size_t>(nBytes);
        const tBytes from = Random(unBytes);
        const tBytes maskA = Random(unBytes);
        const tBytes maskB = Random(unBytes);
        tBytes to = Random(unBytes + c_unAround);
        tBytes expected = to;
        for (std::size_t unByte = 0; unByte < unBytes; ++unByte)
        {
            const int nMask = maskA[unByte] & maskB[unByte];
            expected[unByte] = static_cast<unsigned char>((from[unByte] & nMask) | (to[unByte] & ~nMask));
        }
        MergeMaskedBits(to.data(), from.data(), maskA.data(), maskB.data(), nBytes);
        ASSERT_EQ(expected, to) << nBytes;
    }
}

INSTANTIATE_TEST_SUITE_P(, BlockKernel, testing::Range(0, c_nMaxBlockKernels),
                         [](const auto& form) {
                             return std::string(form.param == 0 ? "Portable" : form.param == 1 ? "Avx2" : "Avx512");
                         });

TEST(BlockKernels, ThatAreInUseAreTheWidestThatThereAre)
{
    const stBlockKernels* apForms[c_nMaxBlockKernels];
    const int nForms = FindBlockKernels(apForms);
    EXPECT_STREQ("portable", apForms[0]->szName);
    EXPECT_EQ(apForms[nForms - 1], &BlockKernels());
}

} // namespace
