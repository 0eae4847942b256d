// The elements of a parameter array's block by their flat numbers, which are not checked. Private to the library.
#pragma once

#include "LogicalControls/ParameterArray.h"
#include "LogicalControls/ParameterLayout.h"

#include <cstdint>

// A block of bits that could not be had is null: it takes nothing and reads as 0.
inline void WriteBit(void* pMemory, std::int64_t nIndex, bool bValue)
{
    if (pMemory == nullptr)
    {
        return;
    }
    const unsigned int unMask = 1u << (nIndex & 7);
    unsigned char& ucByte = static_cast<unsigned char*>(pMemory)[nIndex >> 3];
    ucByte = static_cast<unsigned char>(bValue ? ucByte | unMask : ucByte & ~unMask);
}

inline int ReadBit(const void* pMemory, std::int64_t nIndex)
{
    return pMemory != nullptr ? static_cast<const unsigned char*>(pMemory)[nIndex >> 3] >> (nIndex & 7) & 1 : 0;
}

// Values lie packed (tag 0), bits bit by bit (tag 1).
template <typename T>
inline void StoreElement(void* pBlock, std::int64_t nIndex, const T& value, Int2Type<0>)
{
    static_cast<T*>(pBlock)[nIndex] = value;
}

inline void StoreElement(void* pBlock, std::int64_t nIndex, int nValue, Int2Type<1>)
{
    WriteBit(pBlock, nIndex, nValue != 0);
}

template <typename T>
inline void LoadElement(const void* pBlock, std::int64_t nIndex, T& value, Int2Type<0>)
{
    value = static_cast<const T*>(pBlock)[nIndex];
}

inline void LoadElement(const void* pBlock, std::int64_t nIndex, int& nValue, Int2Type<1>)
{
    nValue = ReadBit(pBlock, nIndex);
}

// The flat number of a parameter in its array, -1 for an address that names none; and the tag of the array.
template <typename T, tagenPPCMessageType N, bool compressed>
inline int IndexIn(const CParameterArray<T, N, compressed>&, int nPathType, int nPath, int nParam)
{
    return ParameterIndex<N>(nPathType, nPath, nParam);
}

template <typename T, tagenPPCMessageType N, bool compressed>
constexpr Int2Type<compressed> CompressionOf(const CParameterArray<T, N, compressed>&)
{
    return {};
}
