// Moves elements, or bits, where two masks both have a 1. Private to the library.
//
// A mask has one bit an element, least significant first. It is read a 64-bit word at a time with its bytes in memory order, on
// every machine, so the last word may reach past the mask: the block of a parameter array is readable that far.
#pragma once

#include <boost/endian/conversion.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>

template <std::size_t Width>
void MoveMaskedElements(unsigned char* pDestination, const unsigned char* pSource, const unsigned char* pMaskA,
                        const unsigned char* pMaskB, int nElements)
{
    constexpr int c_nBits = 64;
    for (int nFirst = 0; nFirst < nElements; nFirst += c_nBits)
    {
        std::uint64_t unMask =
            boost::endian::load_little_u64(pMaskA + nFirst / 8) & boost::endian::load_little_u64(pMaskB + nFirst / 8);
        if (nElements - nFirst < c_nBits)
        {
            unMask &= (std::uint64_t(1) << (nElements - nFirst)) - 1;
        }
        unsigned char* pTo = pDestination + static_cast<std::size_t>(nFirst) * Width;
        const unsigned char* pFrom = pSource + static_cast<std::size_t>(nFirst) * Width;
        if (unMask == ~std::uint64_t(0))
        {
            std::memcpy(pTo, pFrom, c_nBits * Width);
            continue;
        }
        for (; unMask != 0; unMask &= unMask - 1)
        {
            const std::size_t unOffset = static_cast<std::size_t>(__builtin_ctzll(unMask)) * Width;
            std::memcpy(pTo + unOffset, pFrom + unOffset, Width);
        }
    }
}

// A word of bits after the other, then the last bytes: a merge needs no byte order.
inline void MergeMaskedBits(unsigned char* pDestination, const unsigned char* pSource, const unsigned char* pMaskA,
                            const unsigned char* pMaskB, int nBytes)
{
    std::uint64_t aunWords[4] = {};
    for (int nByte = 0; nByte < nBytes; nByte += 8)
    {
        const std::size_t unCount = static_cast<std::size_t>(nBytes - nByte < 8 ? nBytes - nByte : 8);
        std::memcpy(&aunWords[0], pDestination + nByte, unCount);
        std::memcpy(&aunWords[1], pSource + nByte, unCount);
        std::memcpy(&aunWords[2], pMaskA + nByte, unCount);
        std::memcpy(&aunWords[3], pMaskB + nByte, unCount);
        const std::uint64_t unMask = aunWords[2] & aunWords[3];
        aunWords[0] = (aunWords[1] & unMask) | (aunWords[0] & ~unMask);
        std::memcpy(pDestination + nByte, &aunWords[0], unCount);
    }
}
