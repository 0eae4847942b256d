// Moves elements, or bits, where two masks both have a 1. Private to the library.
//
// A mask has one bit an element, least significant first. It is read a 64-bit word at a time with its bytes in memory order, on
// every machine, so the last word may reach past the mask: the block of a parameter array is readable that far.
#pragma once

#include <boost/endian/conversion.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

constexpr int c_nMaskWordBits = 64;
constexpr std::uint64_t c_unFullMaskWord = ~std::uint64_t(0);

template <std::size_t Width>
struct stWordOf
{
    typedef std::conditional_t<Width == 1, std::uint8_t, std::conditional_t<Width == 4, std::uint32_t, std::uint64_t>> type;
};

// Takes pFrom's bytes for bit 1 and keeps pTo's for bit 0, without a branch: one word, or the first and the last of the element,
// which overlap and are therefore both made before one is stored.
template <std::size_t Width>
void SelectElement(unsigned char* pTo, const unsigned char* pFrom, unsigned int unBit)
{
    typedef typename stWordOf<Width>::type tWord;
    static_assert(Width == sizeof(tWord) || (Width > sizeof(tWord) && Width < 2 * sizeof(tWord)), "one word, or two that overlap");
    constexpr std::size_t c_unLast = Width - sizeof(tWord);
    const tWord unKeep = static_cast<tWord>(static_cast<tWord>(unBit) - tWord(1)); // all ones to keep, all zeros to take
    const auto select = [&](std::size_t unOffset)
    {
        tWord unTo;
        tWord unFrom;
        std::memcpy(&unTo, pTo + unOffset, sizeof unTo);
        std::memcpy(&unFrom, pFrom + unOffset, sizeof unFrom);
        return static_cast<tWord>((unTo & unKeep) | (unFrom & ~unKeep));
    };
    const tWord unFirst = select(0);
    const tWord unLast = select(c_unLast);
    std::memcpy(pTo, &unFirst, sizeof unFirst);
    std::memcpy(pTo + c_unLast, &unLast, sizeof unLast);
}

// Four words at once, which a compiler makes one vector of: all ones where the bit of the four is 1.
struct stLanes
{
    std::uint32_t aun[4];
};

constexpr stLanes LanesOf(unsigned int unBits)
{
    return {{0u - (unBits & 1u), 0u - (unBits >> 1 & 1u), 0u - (unBits >> 2 & 1u), 0u - (unBits >> 3 & 1u)}};
}

constexpr stLanes c_aLanes[16] = {LanesOf(0),  LanesOf(1),  LanesOf(2),  LanesOf(3), LanesOf(4),  LanesOf(5),
                                  LanesOf(6),  LanesOf(7),  LanesOf(8),  LanesOf(9), LanesOf(10), LanesOf(11),
                                  LanesOf(12), LanesOf(13), LanesOf(14), LanesOf(15)};

inline void SelectFourWords(unsigned char* pTo, const unsigned char* pFrom, unsigned int unBits)
{
    const stLanes& take = c_aLanes[unBits];
    stLanes to;
    stLanes from;
    std::memcpy(&to, pTo, sizeof to);
    std::memcpy(&from, pFrom, sizeof from);
    for (int nLane = 0; nLane < 4; ++nLane)
    {
        to.aun[nLane] = (to.aun[nLane] & ~take.aun[nLane]) | (from.aun[nLane] & take.aun[nLane]);
    }
    std::memcpy(pTo, &to, sizeof to);
}

// The 64 elements of a mask word, of which many are to move: each is taken or kept.
template <std::size_t Width>
void SelectElements(unsigned char* pTo, const unsigned char* pFrom, std::uint64_t unMask)
{
    constexpr int c_nAtOnce = Width == 4 ? 4 : 1;
    for (int nElement = 0; nElement < c_nMaskWordBits; nElement += c_nAtOnce)
    {
        const std::size_t unOffset = static_cast<std::size_t>(nElement) * Width;
        const unsigned int unBits = static_cast<unsigned int>(unMask >> nElement);
        if constexpr (Width == 4)
        {
            SelectFourWords(pTo + unOffset, pFrom + unOffset, unBits & 15u);
        }
        else
        {
            SelectElement<Width>(pTo + unOffset, pFrom + unOffset, unBits & 1u);
        }
    }
}

inline int LowestBit(std::uint64_t unBits)
{
    if constexpr (sizeof(long) == sizeof unBits)
    {
        return __builtin_ctzl(unBits);
    }
    const std::uint32_t unLow = static_cast<std::uint32_t>(unBits);
    return unLow != 0 ? __builtin_ctz(unLow) : 32 + __builtin_ctz(static_cast<std::uint32_t>(unBits >> 32));
}

// The same for a word whose bits are in few runs, as those of whole paths or of single parameters: each run is one copy.
template <std::size_t Width>
void CopyRuns(unsigned char* pTo, const unsigned char* pFrom, std::uint64_t unMask)
{
    while (unMask != 0)
    {
        const int nFirst = LowestBit(unMask);
        const std::uint64_t unCarried = unMask + (std::uint64_t(1) << nFirst); // the run became the bit behind it
        const int nEnd = unCarried == 0 ? c_nMaskWordBits : LowestBit(unCarried);
        const std::size_t unOffset = static_cast<std::size_t>(nFirst) * Width;
        if (nEnd - nFirst == 1)
        {
            std::memcpy(pTo + unOffset, pFrom + unOffset, Width); // no call
        }
        else
        {
            std::memcpy(pTo + unOffset, pFrom + unOffset, static_cast<std::size_t>(nEnd - nFirst) * Width);
        }
        unMask &= unCarried;
    }
}

inline bool HasFewRuns(std::uint64_t unMask)
{
    constexpr int c_nFew = 4;
    std::uint64_t unFirsts = unMask & ~(unMask << 1);
    for (int nRun = 0; nRun < c_nFew; ++nRun)
    {
        unFirsts &= unFirsts - 1; // without the lowest
    }
    return unFirsts == 0;
}

// Empty words are passed over, full ones in a row are one copy. Select is for those of which many elements are to move.
template <std::size_t Width, void (*Select)(unsigned char*, const unsigned char*, std::uint64_t) = SelectElements<Width>>
void MoveMaskedElements(unsigned char* pDestination, const unsigned char* pSource, const unsigned char* pMaskA,
                        const unsigned char* pMaskB, int nElements)
{
    const auto mask = [=](int nFirst)
    { return boost::endian::load_little_u64(pMaskA + nFirst / 8) & boost::endian::load_little_u64(pMaskB + nFirst / 8); };
    constexpr int c_nFourWords = 4 * c_nMaskWordBits;
    const auto areFourEmpty = [=](int nFirst)
    {
        const int nThird = nFirst + 2 * c_nMaskWordBits;
        return (mask(nFirst) | mask(nThird - c_nMaskWordBits) | mask(nThird) | mask(nThird + c_nMaskWordBits)) == 0;
    };
    int nFirst = 0;
    while (nElements - nFirst >= c_nMaskWordBits)
    {
        const std::uint64_t unMask = mask(nFirst);
        const std::size_t unOffset = static_cast<std::size_t>(nFirst) * Width;
        int nEnd = nFirst + c_nMaskWordBits;
        if (unMask == 0)
        {
            for (; nElements - nEnd >= c_nFourWords && areFourEmpty(nEnd); nEnd += c_nFourWords)
            {
            }
        }
        else if (unMask == c_unFullMaskWord)
        {
            for (; nElements - nEnd >= c_nMaskWordBits && mask(nEnd) == c_unFullMaskWord; nEnd += c_nMaskWordBits)
            {
            }
            std::memcpy(pDestination + unOffset, pSource + unOffset, static_cast<std::size_t>(nEnd - nFirst) * Width);
        }
        else if (HasFewRuns(unMask))
        {
            CopyRuns<Width>(pDestination + unOffset, pSource + unOffset, unMask);
        }
        else
        {
            Select(pDestination + unOffset, pSource + unOffset, unMask);
        }
        nFirst = nEnd;
    }
    if (nFirst < nElements)
    {
        const std::uint64_t unThere = (std::uint64_t(1) << (nElements - nFirst)) - 1;
        const std::size_t unOffset = static_cast<std::size_t>(nFirst) * Width;
        CopyRuns<Width>(pDestination + unOffset, pSource + unOffset, mask(nFirst) & unThere);
    }
}

// Bits are merged a word at a time, then byte by byte, which needs no byte order.
template <typename Word>
int MergeMaskedWords(unsigned char* pDestination, const unsigned char* pSource, const unsigned char* pMaskA,
                     const unsigned char* pMaskB, int nByte, int nBytes)
{
    constexpr int c_nSize = sizeof(Word);
    for (; nByte + c_nSize <= nBytes; nByte += c_nSize)
    {
        Word aunWords[4];
        std::memcpy(&aunWords[0], pDestination + nByte, sizeof(Word));
        std::memcpy(&aunWords[1], pSource + nByte, sizeof(Word));
        std::memcpy(&aunWords[2], pMaskA + nByte, sizeof(Word));
        std::memcpy(&aunWords[3], pMaskB + nByte, sizeof(Word));
        const Word unMask = static_cast<Word>(aunWords[2] & aunWords[3]);
        aunWords[0] = static_cast<Word>((aunWords[1] & unMask) | (aunWords[0] & ~unMask));
        std::memcpy(pDestination + nByte, &aunWords[0], sizeof(Word));
    }
    return nByte;
}

[[gnu::noinline]] inline void MergeMaskedBits(unsigned char* pDestination, const unsigned char* pSource,
                                              const unsigned char* pMaskA, const unsigned char* pMaskB, int nBytes)
{
    const int nByte = MergeMaskedWords<std::uint64_t>(pDestination, pSource, pMaskA, pMaskB, 0, nBytes);
    MergeMaskedWords<std::uint8_t>(pDestination, pSource, pMaskA, pMaskB, nByte, nBytes);
}

// Sets or clears the first nBits bits; those behind them in the last byte stay.
inline void FillBits(unsigned char* pBits, int nBits, bool bValue)
{
    const int nWhole = nBits / 8;
    const unsigned char ucLast = static_cast<unsigned char>((1u << nBits % 8) - 1u);
    std::memset(pBits, bValue ? 0xff : 0, static_cast<std::size_t>(nWhole));
    if (ucLast != 0)
    {
        pBits[nWhole] = static_cast<unsigned char>(bValue ? pBits[nWhole] | ucLast : pBits[nWhole] & ~ucLast);
    }
}
