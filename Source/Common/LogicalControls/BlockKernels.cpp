#include "LogicalControls/BlockKernels.h"

#include "LogicalControls/MaskedMove.h"

#include <boost/endian/conversion.hpp>

#include <cstring>

#if defined(__x86_64__) && !defined(LOGICALCONTROLS_PORTABLE)
#define LOGICALCONTROLS_WIDE_KERNELS
#include <immintrin.h>
#endif

namespace
{

constexpr int c_nStringBytes = 13;

// ---- Portable. Always inline, so that a wider form is this code again, made for its instructions.

// Thirty-two words at a time, in lanes that do not wait for each other.
[[gnu::always_inline]] inline std::uint32_t JoinWords(const unsigned char* pWords, long lWords)
{
    constexpr int c_nLanes = 16;
    std::uint64_t aunLanes[c_nLanes] = {};
    long lWord = 0;
    for (; lWords - lWord >= 2 * c_nLanes; lWord += 2 * c_nLanes)
    {
        for (int nLane = 0; nLane < c_nLanes; ++nLane)
        {
            std::uint64_t unWords;
            std::memcpy(&unWords, pWords + 4 * lWord + 8 * nLane, sizeof unWords);
            aunLanes[nLane] ^= unWords;
        }
    }
    std::uint64_t unBoth = 0; // even words and odd ones
    for (const std::uint64_t unLane : aunLanes)
    {
        unBoth ^= unLane;
    }
    std::uint32_t unJoined = static_cast<std::uint32_t>(unBoth) ^ static_cast<std::uint32_t>(unBoth >> 32);
    for (; lWord < lWords; ++lWord)
    {
        std::uint32_t unWord;
        std::memcpy(&unWord, pWords + 4 * lWord, sizeof unWord);
        unJoined ^= unWord;
    }
    return unJoined;
}

[[gnu::always_inline]] inline void SwapWord(unsigned char* pTo, const unsigned char* pFrom)
{
    std::uint32_t unWord;
    std::memcpy(&unWord, pFrom, sizeof unWord);
    boost::endian::native_to_big_inplace(unWord);
    std::memcpy(pTo, &unWord, sizeof unWord);
}

// The words up to a line of the cache go one by one, so that no wide store lies across two lines.
[[gnu::always_inline]] inline void SwapWords(unsigned char* pTo, const unsigned char* pFrom, std::size_t unBytes)
{
    const std::size_t unWords = unBytes / 4;
    const std::size_t unToLine = std::min(-reinterpret_cast<std::uintptr_t>(pTo) % 64 / 4, unWords);
    for (std::size_t unWord = 0; unWord < unToLine; ++unWord)
    {
        SwapWord(pTo + 4 * unWord, pFrom + 4 * unWord);
    }
    for (std::size_t unWord = unToLine; unWord < unWords; ++unWord)
    {
        SwapWord(pTo + 4 * unWord, pFrom + 4 * unWord);
    }
}

std::uint32_t JoinWordsPortable(const unsigned char* pWords, long lWords)
{
    return JoinWords(pWords, lWords);
}

void SwapWordsPortable(unsigned char* pTo, const unsigned char* pFrom, std::size_t unBytes)
{
    if (boost::endian::order::native == boost::endian::order::big)
    {
        std::memcpy(pTo, pFrom, unBytes / 4 * 4);
        return;
    }
    SwapWords(pTo, pFrom, unBytes);
}

const stBlockKernels c_Portable = {"portable", JoinWordsPortable, SwapWordsPortable, MoveMaskedElements<4>,
                                   MoveMaskedElements<c_nStringBytes>};

#ifdef LOGICALCONTROLS_WIDE_KERNELS

#define LC_AVX2 [[gnu::target("avx2")]]
#define LC_AVX512 [[gnu::target("avx512f,avx512bw,avx512vl,avx512dq,avx2,bmi,bmi2,popcnt")]]

LC_AVX2 std::uint32_t JoinWordsAvx2(const unsigned char* pWords, long lWords)
{
    return JoinWords(pWords, lWords);
}

LC_AVX2 void SwapWordsAvx2(unsigned char* pTo, const unsigned char* pFrom, std::size_t unBytes)
{
    SwapWords(pTo, pFrom, unBytes);
}

const stBlockKernels c_Avx2 = {"avx2", JoinWordsAvx2, SwapWordsAvx2, MoveMaskedElements<4>, MoveMaskedElements<c_nStringBytes>};

LC_AVX512 std::uint32_t JoinWordsAvx512(const unsigned char* pWords, long lWords)
{
    return JoinWords(pWords, lWords);
}

// 64 bits of both masks from element nFirst on, which need not be the first of a byte.
LC_AVX512 inline std::uint64_t MaskAt(const unsigned char* pMaskA, const unsigned char* pMaskB, int nFirst)
{
    std::uint64_t aunWords[2];
    std::memcpy(&aunWords[0], pMaskA + nFirst / 8, sizeof aunWords[0]);
    std::memcpy(&aunWords[1], pMaskB + nFirst / 8, sizeof aunWords[1]);
    const int nShift = nFirst % 8;
    const std::uint64_t unBehind = pMaskA[nFirst / 8 + 8] & pMaskB[nFirst / 8 + 8];
    return (aunWords[0] & aunWords[1]) >> nShift | unBehind << 1 << (63 - nShift);
}

// nElements of at most 64; no branch depends on the mask.
LC_AVX512 inline void SelectWords(unsigned char* pTo, const unsigned char* pFrom, std::uint64_t unMask)
{
    for (int nQuarter = 0; nQuarter < 4; ++nQuarter)
    {
        const __mmask16 unTake = static_cast<__mmask16>(unMask >> 16 * nQuarter);
        const __m512i from = _mm512_maskz_loadu_epi32(unTake, pFrom + 64 * nQuarter);
        _mm512_mask_storeu_epi32(pTo + 64 * nQuarter, unTake, from);
    }
}

LC_AVX512 inline void CopyWords(unsigned char* pTo, const unsigned char* pFrom)
{
    for (int nQuarter = 0; nQuarter < 4; ++nQuarter)
    {
        _mm512_storeu_si512(pTo + 64 * nQuarter, _mm512_loadu_si512(pFrom + 64 * nQuarter));
    }
}

LC_AVX512 inline void MoveWord(unsigned char* pTo, const unsigned char* pFrom, std::uint64_t unMask)
{
    constexpr int c_nFew = 4; // cheaper one by one
    if (unMask == c_unFullMaskWord)
    {
        CopyWords(pTo, pFrom);
    }
    else if (_mm_popcnt_u64(unMask) > c_nFew)
    {
        SelectWords(pTo, pFrom, unMask);
    }
    else
    {
        for (; unMask != 0; unMask = _blsr_u64(unMask))
        {
            std::memcpy(pTo + 4 * _tzcnt_u64(unMask), pFrom + 4 * _tzcnt_u64(unMask), 4);
        }
    }
}

enum enSteps : int
{
    enEmpty,
    enMixed,
    enFull
};

// The bits that both masks have from element nFirst on, as many as a register holds, with the rest of their last byte.
LC_AVX512 inline enSteps StepAt(const unsigned char* pMaskA, const unsigned char* pMaskB, int nFirst)
{
    const __m512i mask = _mm512_and_si512(_mm512_loadu_si512(pMaskA + nFirst / 8), _mm512_loadu_si512(pMaskB + nFirst / 8));
    const unsigned int unLast = pMaskA[nFirst / 8 + 64] & pMaskB[nFirst / 8 + 64];
    if (_mm512_test_epi64_mask(mask, mask) == 0 && unLast == 0)
    {
        return enEmpty;
    }
    const unsigned int unWanted = (1u << nFirst % 8) - 1u;
    const bool bFull = _mm512_cmpneq_epi64_mask(mask, _mm512_set1_epi64(-1)) == 0 && (unLast & unWanted) == unWanted;
    return bFull ? enFull : enMixed;
}

// After the words up to a line of the cache, so that no wide store lies across two, steps of as many elements as a register has
// bits; those that are full and follow each other are one copy.
LC_AVX512 void MoveWordsAvx512(unsigned char* pTo, const unsigned char* pFrom, const unsigned char* pMaskA,
                               const unsigned char* pMaskB, int nElements)
{
    constexpr int c_nStep = 512;
    const int nToLine = static_cast<int>(-reinterpret_cast<std::uintptr_t>(pTo) % 64 / 4);
    int nFirst = std::min(nToLine, nElements);
    if (nFirst > 0)
    {
        SelectWords(pTo, pFrom, _bzhi_u64(MaskAt(pMaskA, pMaskB, 0), static_cast<unsigned int>(nFirst)));
    }
    while (nElements - nFirst >= c_nStep)
    {
        const enSteps enStep = StepAt(pMaskA, pMaskB, nFirst);
        int nEnd = nFirst + c_nStep;
        while (enStep == enFull && nElements - nEnd >= c_nStep && StepAt(pMaskA, pMaskB, nEnd) == enFull)
        {
            nEnd += c_nStep;
        }
        const std::ptrdiff_t nOffset = std::ptrdiff_t(nFirst) * 4;
        if (enStep == enFull)
        {
            std::memcpy(pTo + nOffset, pFrom + nOffset, std::size_t(nEnd - nFirst) * 4);
        }
        for (int nWord = nFirst; enStep == enMixed && nWord < nEnd; nWord += c_nMaskWordBits)
        {
            MoveWord(pTo + std::ptrdiff_t(nWord) * 4, pFrom + std::ptrdiff_t(nWord) * 4, MaskAt(pMaskA, pMaskB, nWord));
        }
        nFirst = nEnd;
    }
    for (; nFirst < nElements; nFirst += c_nMaskWordBits)
    {
        const unsigned int unLeft = static_cast<unsigned int>(std::min(nElements - nFirst, c_nMaskWordBits));
        const std::uint64_t unMask = _bzhi_u64(MaskAt(pMaskA, pMaskB, nFirst), unLeft);
        MoveWord(pTo + std::ptrdiff_t(nFirst) * 4, pFrom + std::ptrdiff_t(nFirst) * 4, unMask);
    }
}

// Four strings at a time: 52 bytes under a mask of as many bits.
LC_AVX512 void SelectStringsAvx512(unsigned char* pTo, const unsigned char* pFrom, std::uint64_t unMask)
{
    constexpr std::uint64_t c_unFirstBytes =
        1u | 1u << c_nStringBytes | std::uint64_t(1) << 2 * c_nStringBytes | std::uint64_t(1) << 3 * c_nStringBytes;
    constexpr std::uint64_t c_unString = (1u << c_nStringBytes) - 1;
    for (; unMask != 0; unMask >>= 4, pTo += 4 * c_nStringBytes, pFrom += 4 * c_nStringBytes)
    {
        const __mmask64 unTake = _pdep_u64(unMask, c_unFirstBytes) * c_unString;
        _mm512_mask_storeu_epi8(pTo, unTake, _mm512_maskz_loadu_epi8(unTake, pFrom));
    }
}

const stBlockKernels c_Avx512 = {"avx512", JoinWordsAvx512, SwapWordsAvx2, MoveWordsAvx512,
                                 MoveMaskedElements<c_nStringBytes, SelectStringsAvx512>};

#endif

const stBlockKernels* g_pChosen = &c_Portable;

[[gnu::constructor]] void Choose()
{
    const stBlockKernels* apKernels[c_nMaxBlockKernels];
    g_pChosen = apKernels[FindBlockKernels(apKernels) - 1];
}

} // namespace

int FindBlockKernels(const stBlockKernels* (&apKernels)[c_nMaxBlockKernels])
{
    int nFound = 0;
    apKernels[nFound++] = &c_Portable;
#ifdef LOGICALCONTROLS_WIDE_KERNELS
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2"))
    {
        apKernels[nFound++] = &c_Avx2;
        if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
            __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("bmi2"))
        {
            apKernels[nFound++] = &c_Avx512;
        }
    }
#endif
    return nFound;
}

const stBlockKernels& BlockKernels()
{
    return *g_pChosen;
}
