#include "LogicalControls/ParameterArray.h"

#include "LogicalControls/BlockKernels.h"
#include "LogicalControls/MaskedMove.h"
#include "LogicalControls/ParameterElements.h"
#include "Runtime/Memory.h"

#include <cstdio>
#include <cstring>

namespace
{

// Check words, dumps and masks are read a little past a block's end: that much of the slack that GBMalloc adds is zeroed.
constexpr long c_lZeroedSlack = 32;
static_assert(c_lZeroedSlack >= long(c_unMaskReach), "a mask's slack is zeroed as far as it is read");

unsigned char* AllocateZeroed(long lBytes)
{
    void* pBlock = GBMalloc(lBytes);
    if (pBlock != nullptr)
    {
        std::memset(pBlock, 0, static_cast<std::size_t>(lBytes + c_lZeroedSlack));
    }
    return static_cast<unsigned char*>(pBlock);
}

} // namespace

template <typename T, tagenPPCMessageType N, bool compressed>
CParameterArray<T, N, compressed>::CParameterArray()
    : m_anMaxParams(), m_nElements(0), m_nByteAllocation(0), m_pValues(nullptr), m_pBits(nullptr), m_pTyped(nullptr),
      m_apPathTypeBase(), m_anPathTypeOffset(), m_unXorVal(0)
{
    for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
    {
        m_anMaxParams[nPathType] = m_Limits.GetTypeMaxParms(N, static_cast<tagenVirtualPathType>(nPathType));
    }
    Initialise();
}

template <typename T, tagenPPCMessageType N, bool compressed>
CParameterArray<T, N, compressed>::~CParameterArray()
{
    GBFree(m_pValues);
    GBFree(m_pBits);
    m_pValues = nullptr;
    m_pBits = nullptr;
}

template <typename T, tagenPPCMessageType N, bool compressed>
CParameterArray<T, N, compressed>& CParameterArray<T, N, compressed>::operator=(const CParameterArray& other)
{
    Copy(other);
    return *this;
}

template <typename T, tagenPPCMessageType N, bool compressed>
void CParameterArray<T, N, compressed>::Copy(const CParameterArray& other)
{
    const int nBytes = compressed ? (m_nElements + 7) / 8 : m_nByteAllocation;
    const void* pSource = other.GetMemoryPointer();
    void* pDestination = GetMemoryPointer();
    if (&other != this && pSource != nullptr && pDestination != nullptr)
    {
        std::memcpy(pDestination, pSource, static_cast<std::size_t>(nBytes));
    }
}

template <typename T, tagenPPCMessageType N, bool compressed>
void CParameterArray<T, N, compressed>::Initialise()
{
    m_nElements = 0;
    for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
    {
        m_anPathTypeOffset[nPathType] = m_nElements;
        m_nElements += m_Limits.GetMaxPathOfType(static_cast<tagenVirtualPathType>(nPathType)) * m_anMaxParams[nPathType];
    }
    if constexpr (compressed)
    {
        m_nByteAllocation = m_nElements * 4;
        InitialiseCompressedMemory();
    }
    else
    {
        m_nByteAllocation = m_nElements * static_cast<int>(sizeof(T));
        GBFree(m_pValues);
        m_pValues = AllocateZeroed(m_nByteAllocation);
        m_pTyped = reinterpret_cast<T*>(m_pValues);
        if (m_pValues == nullptr)
        {
            throw 0;
        }
        for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
        {
            m_apPathTypeBase[nPathType] = m_pValues + m_anPathTypeOffset[nPathType] * static_cast<int>(sizeof(T));
        }
    }
}

template <typename T, tagenPPCMessageType N, bool compressed>
void CParameterArray<T, N, compressed>::InitialiseCompressedMemory()
{
    GBFree(m_pBits);
    m_pBits = AllocateZeroed((m_nByteAllocation >> 5) + 1);
}

template <typename T, tagenPPCMessageType N, bool compressed>
bool CParameterArray<T, N, compressed>::SetPPC(tagenVirtualPathType enPathType, int nPath, int nParam, T value)
{
    std::int64_t nIndex = ParameterIndex<N>(enPathType, nPath, nParam);
    if (nIndex < 0 || Block() == nullptr)
    {
        nIndex = LooseIndex("SetPPC", enPathType, nPath, nParam);
    }
    if (nIndex >= 0)
    {
        StoreElement(Block(), nIndex, value, Int2Type<compressed>());
    }
    return nIndex >= 0;
}

template <typename T, tagenPPCMessageType N, bool compressed>
bool CParameterArray<T, N, compressed>::SetPPCLite(tagenVirtualPathType enPathType, int nPath, int nParam, T value)
{
    if constexpr (compressed)
    {
        return SetPPC(enPathType, nPath, nParam, value);
    }
    else
    {
        static_cast<void>(value); // a value array's light set stores nothing: that is meant
        return Accept("SetPPCLite", enPathType, nPath, nParam, true);
    }
}

template <typename T, tagenPPCMessageType N, bool compressed>
bool CParameterArray<T, N, compressed>::GetPPC(tagenVirtualPathType enPathType, int nPath, int nParam, T& value) const
{
    std::int64_t nIndex = ParameterIndex<N>(enPathType, nPath, nParam);
    if (nIndex < 0 || Block() == nullptr)
    {
        nIndex = LooseIndex("GetPPC", enPathType, nPath, nParam);
    }
    if (nIndex >= 0)
    {
        LoadElement(Block(), nIndex, value, Int2Type<compressed>());
    }
    return nIndex >= 0;
}

template <typename T, tagenPPCMessageType N, bool compressed>
void CParameterArray<T, N, compressed>::GetPPCBase(tagenVirtualPathType enPathType, int nPath, void*& pBase, long& lCount) const
{
    pBase = nullptr;
    lCount = 0;
    if (!IsPathType(enPathType))
    {
        return;
    }
    lCount = m_anMaxParams[enPathType];
    if (!compressed)
    {
        const std::int64_t nBytes = std::int64_t(lCount) * nPath * std::int64_t(sizeof(T));
        pBase = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(m_apPathTypeBase[enPathType]) +
                                        static_cast<std::uintptr_t>(nBytes));
    }
}

template <typename T, tagenPPCMessageType N, bool compressed>
void CParameterArray<T, N, compressed>::GetPPCBitBase(tagenVirtualPathType enPathType, int nPath, long& lBitIndex, long& lCount,
                                                      unsigned char*& pBits) const
{
    pBits = m_pBits;
    lBitIndex = 0;
    lCount = 0;
    if (IsPathType(enPathType))
    {
        lCount = m_anMaxParams[enPathType];
        lBitIndex = static_cast<long>(m_anPathTypeOffset[enPathType] + std::int64_t(lCount) * nPath);
    }
}

template <typename T, tagenPPCMessageType N, bool compressed>
void* CParameterArray<T, N, compressed>::GetMemoryPointer()
{
    return Block();
}

template <typename T, tagenPPCMessageType N, bool compressed>
const void* CParameterArray<T, N, compressed>::GetMemoryPointer() const
{
    return Block();
}

template <typename T, tagenPPCMessageType N, bool compressed>
int CParameterArray<T, N, compressed>::GetByteAllocation() const
{
    return compressed ? m_nElements / 8 + 1 : m_nByteAllocation;
}

template <typename T, tagenPPCMessageType N, bool compressed>
void CParameterArray<T, N, compressed>::SetXorVal(unsigned long unXorVal)
{
    m_unXorVal = static_cast<std::uint32_t>(unXorVal);
}

template <typename T, tagenPPCMessageType N, bool compressed>
void CParameterArray<T, N, compressed>::Import(const CParameterArray& source, const tMask& maskA, const tMask& maskB)
{
    const unsigned char* const pMaskA = static_cast<const unsigned char*>(maskA.GetMemoryPointer());
    const unsigned char* const pMaskB = static_cast<const unsigned char*>(maskB.GetMemoryPointer());
    if (&source == this || Block() == nullptr || source.Block() == nullptr || pMaskA == nullptr || pMaskB == nullptr)
    {
        return;
    }
    if constexpr (compressed)
    {
        MergeMaskedBits(Block(), source.Block(), pMaskA, pMaskB, (m_nElements + 7) / 8);
    }
    else if constexpr (sizeof(T) == 4)
    {
        BlockKernels().MoveWords(Block(), source.Block(), pMaskA, pMaskB, m_nElements);
    }
    else if constexpr (sizeof(T) == sizeof(RyGConsoleString))
    {
        BlockKernels().MoveStrings(Block(), source.Block(), pMaskA, pMaskB, m_nElements);
    }
    else
    {
        MoveMaskedElements<sizeof(T)>(Block(), source.Block(), pMaskA, pMaskB, m_nElements);
    }
}

template <typename T, tagenPPCMessageType N, bool compressed>
void CParameterArray<T, N, compressed>::Export(CParameterArray& destination, const tMask& maskA, const tMask& maskB) const
{
    destination.Import(*this, maskA, maskB);
}

template <typename T, tagenPPCMessageType N, bool compressed>
bool CParameterArray<T, N, compressed>::RangeCheck(tagenVirtualPathType enPathType, int nPath, int nParam) const
{
    if (enPathType > c_nPathTypes - 1)
    {
        std::fputs("Range Check failed, pt > maxpath types  \n ", stderr);
        return false;
    }
    if (enPathType < 0)
    {
        std::fputs("base address check 1 failed\n ", stderr);
        return false;
    }
    const int nMaxPaths = m_Limits.GetMaxPathOfType(enPathType);
    if (nPath >= nMaxPaths)
    {
        // The path asked for goes under "expected" and the limit under "got": that is meant.
        std::fprintf(stderr, "Range Check failed, n Path > max path of type  expected  - %d got - %d \n ", nPath, nMaxPaths);
        std::fprintf(stderr, "pt %d, p %d, param %d, \n", static_cast<int>(enPathType), nPath, nParam);
        return false;
    }
    if (nParam >= m_anMaxParams[enPathType])
    {
        std::fputs("Range Check failed, parameter >  pt params\n ", stderr);
        return false;
    }
    // Loose on purpose: the parameter is not scaled by the element's size, and the end is scaled once more.
    const std::int64_t nSize = sizeof(T);
    const std::int64_t nBase = m_apPathTypeBase[enPathType] - m_pValues;
    const std::int64_t nAddress = nBase + std::int64_t(m_anMaxParams[enPathType]) * nPath * nSize + nParam;
    if (nAddress < 0)
    {
        std::fputs("base address check 1 failed\n ", stderr);
        return false;
    }
    if (nAddress >= m_nByteAllocation * nSize)
    {
        std::fputs("base address check 2 failed\n ", stderr);
        return false;
    }
    return true;
}

// The flat number of an element, -1 outside the block. In 64 bits, where nothing wraps.
template <typename T, tagenPPCMessageType N, bool compressed>
std::int64_t CParameterArray<T, N, compressed>::FlatIndex(tagenVirtualPathType enPathType, int nPath, int nParam) const
{
    if (!IsPathType(enPathType))
    {
        return -1;
    }
    const std::int64_t nIndex = m_anPathTypeOffset[enPathType] + std::int64_t(m_anMaxParams[enPathType]) * nPath + nParam;
    return nIndex >= 0 && nIndex < m_nElements ? nIndex : -1;
}

// What RangeCheck lets pass can still lie outside the block: bInside tells.
template <typename T, tagenPPCMessageType N, bool compressed>
bool CParameterArray<T, N, compressed>::Accept(const char* szOperation, tagenVirtualPathType enPathType, int nPath, int nParam,
                                               bool bInside) const
{
    if (RangeCheck(enPathType, nPath, nParam) && bInside)
    {
        return true;
    }
    std::fprintf(stderr, "CParameterArray::%s(pt = %d, nPath=%d, nParam=%d ) ### RANGE CHECK FAILED - IGNORING\n", szOperation,
                 static_cast<int>(enPathType), nPath, nParam);
    return false;
}

// The element of an address that names no parameter: some are a neighbour's all the same. -1, for value arrays with a report, when
// it is outside the block, or there is none.
template <typename T, tagenPPCMessageType N, bool compressed>
std::int64_t CParameterArray<T, N, compressed>::LooseIndex(const char* szOperation, tagenVirtualPathType enPathType, int nPath,
                                                           int nParam) const
{
    const std::int64_t nIndex = FlatIndex(enPathType, nPath, nParam);
    const bool bThere = nIndex >= 0 && Block() != nullptr;
    return (compressed ? bThere : Accept(szOperation, enPathType, nPath, nParam, bThere)) ? nIndex : -1;
}

template class CParameterArray<RyGConsoleString, enString, false>;
template class CParameterArray<float, enRotary, false>;
template class CParameterArray<int, enInteger, false>;
template class CParameterArray<float, enFader, false>;
template class CParameterArray<int, enOther, false>;
template class CParameterArray<unsigned char, enMeter, false>;
template void CParameterArray<int, enSwitch, false>::SetXorVal(unsigned long);

template class CParameterArray<int, enString, true>;
template class CParameterArray<int, enRotary, true>;
template class CParameterArray<int, enSwitch, true>;
template class CParameterArray<int, enInteger, true>;
template class CParameterArray<int, enFader, true>;
template class CParameterArray<int, enOther, true>;
template class CParameterArray<int, enMeter, true>;
