#include "LogicalControls/ParameterArray.h"

#include "Support/Blocks.h"
#include "Support/Bytes.h"
#include "Support/SystemCalls.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{

using Support::c_nBehind;
using Support::CDirtyMemory;
using Support::tBytes;
using Support::Whole;

// A bit array and its size; an array of values is nWidth bytes an element, one of bits 0.
template <typename T, tagenPPCMessageType N, int nCount, int nSize, int nBytesEach = 0>
struct stKind
{
    typedef CParameterArray<T, N, nBytesEach == 0> tArray;
    typedef CParameterArray<int, N, true> tMask;
    static constexpr tagenPPCMessageType enType = N;
    static constexpr int nElements = nCount;
    static constexpr int nBytes = nSize;
    static constexpr int nWidth = nBytesEach;
};

typedef stKind<int, enString, 3151, 394> tStringFlags;
typedef stKind<int, enRotary, 65300, 8163> tRotaryFlags;
typedef stKind<int, enSwitch, 138696, 17338> tSwitches;
typedef stKind<int, enInteger, 14856, 1858> tIntegerFlags;
typedef stKind<int, enFader, 2765, 346> tFaderFlags;
typedef stKind<int, enOther, 673, 85> tOtherFlags;
typedef stKind<int, enMeter, 15898, 1988> tMeterFlags;
typedef stKind<RyGConsoleString, enString, 3151, 40963, 13> tStrings;
typedef stKind<float, enRotary, 65300, 261200, 4> tRotaries;
typedef stKind<int, enInteger, 14856, 59424, 4> tIntegers;
typedef stKind<float, enFader, 2765, 11060, 4> tFaders;
typedef stKind<int, enOther, 673, 2692, 4> tOthers;
typedef stKind<unsigned char, enMeter, 15898, 15898, 1> tMeters;

struct stKindName
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
    ASSERT_EQ(bytes.size(), Whole(array).size());
    std::memcpy(array.GetMemoryPointer(), bytes.data(), bytes.size());
}

template <typename A>
std::unique_ptr<A> WithoutMemory()
{
    const Support::CFailingCall noMemory(Support::CFailingCall::enMalloc);
    return std::make_unique<A>();
}

bool Bit(const tBytes& bits, int nIndex)
{
    return (bits[static_cast<std::size_t>(nIndex / 8)] >> (nIndex % 8) & 1) != 0;
}

void SetBit(tBytes& bits, int nIndex, bool bValue)
{
    unsigned char& unByte = bits[static_cast<std::size_t>(nIndex / 8)];
    const int nMask = 1 << nIndex % 8;
    unByte = static_cast<unsigned char>(bValue ? unByte | nMask : unByte & ~nMask);
}

tBytes RandomBytes(std::mt19937& random, std::size_t unCount)
{
    tBytes bytes(unCount);
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<unsigned char>(random()); });
    return bytes;
}

enum enPatterns
{
    enNone,
    enAll,
    enRandom,
    enSparse,
    enDense,
    enRuns, // of whole bytes, longer and shorter than a machine word
    enEdges,
    enPatternCount
};

tBytes Pattern(int nPattern, std::mt19937& random, std::size_t unCount, int nElements)
{
    tBytes bytes(unCount);
    unsigned int unRun = 0;
    for (unsigned char& unByte : bytes)
    {
        const unsigned int unBits = static_cast<unsigned int>(random());
        unRun = unBits % 11 == 0 ? ~unRun : unRun;
        const unsigned int aunByPattern[] = {0, 255, unBits, unBits & unBits >> 8 & unBits >> 16, unBits | unBits >> 8, unRun, 0};
        unByte = static_cast<unsigned char>(aunByPattern[nPattern]);
    }
    for (const int nIndex : {0, 7, 8, 31, 32, 63, 64, 65, 127, 128, nElements - 2, nElements - 1, nElements})
    {
        SetBit(bytes, nIndex, nPattern == enEdges || Bit(bytes, nIndex));
    }
    return bytes;
}

tagenVirtualPathType PathType(int nPathType)
{
    return static_cast<tagenVirtualPathType>(nPathType);
}

template <typename K>
class FlagArray : public testing::Test
{
protected:
    static int Params(int nPathType) { return canMaxParams[nPathType * 7 + K::enType]; }
    static int Offset(int nPathType)
    {
        return nPathType == 0 ? 0 : Offset(nPathType - 1) + canMaxPaths[nPathType - 1] * Params(nPathType - 1);
    }

    // Every operation on one address: inside the block it goes by the arithmetic, outside nothing happens.
    void Try(int nPathType, int nPath, int nParam)
    {
        SCOPED_TRACE(testing::Message() << nPathType << " " << nPath << " " << nParam);
        const tagenVirtualPathType enPathType = PathType(nPathType);
        const bool bExists = nPathType >= 0 && nPathType < 51;
        const std::int64_t nIndex = bExists ? Offset(nPathType) + Params(nPathType) * std::int64_t(nPath) + nParam : -1;
        const bool bInside = nIndex >= 0 && nIndex < K::nElements;
        for (const int nValue : {1, 0, 1})
        {
            int nRead = 77;
            EXPECT_EQ(m_Array.SetPPC(enPathType, nPath, nParam, nValue), bInside);
            EXPECT_EQ(m_Array.GetPPC(enPathType, nPath, nParam, nRead), bInside);
            EXPECT_EQ(nRead, bInside ? nValue : 77);
            EXPECT_EQ(m_Array.SetPPCLite(enPathType, nPath, nParam, 1 - nValue), bInside);
        }
        if (bInside)
        {
            SetBit(m_Model, static_cast<int>(nIndex), false);
        }
    }

    typename K::tArray m_Array;
    tBytes m_Model = tBytes(static_cast<std::size_t>(K::nBytes + c_nBehind), 0);
};

typedef testing::Types<tStringFlags, tRotaryFlags, tSwitches, tIntegerFlags, tFaderFlags, tOtherFlags, tMeterFlags> tFlagKinds;
TYPED_TEST_SUITE(FlagArray, tFlagKinds, stKindName);

template <typename K>
class MaskedMove : public testing::Test
{
protected:
    // What the taker's memory must be: the giver's elements where both masks are set, its own everywhere else.
    static tBytes Moved(const tBytes& from, const tBytes& before, const tBytes& a, const tBytes& b)
    {
        tBytes after = before;
        // Bit arrays move by whole bytes, so the bits behind the last element go by their mask bits too.
        const int nEnd = K::nWidth == 0 ? (K::nElements + 7) / 8 * 8 : K::nElements;
        for (int nElement = 0; nElement < nEnd; ++nElement)
        {
            const bool bMoves = Bit(a, nElement) && Bit(b, nElement);
            if (bMoves && K::nWidth == 0)
            {
                SetBit(after, nElement, Bit(from, nElement));
            }
            std::copy_n(from.begin() + nElement * K::nWidth, bMoves ? K::nWidth : 0, after.begin() + nElement * K::nWidth);
        }
        return after;
    }

    // Moves with every pair of mask patterns.
    template <typename F>
    void ExpectMoves(F Move)
    {
        std::mt19937 random(20011);
        const tBytes from = RandomBytes(random, Whole(m_Giver).size());
        const tBytes before = RandomBytes(random, from.size());
        SetWhole(m_Giver, from);
        for (int nPair = 0; nPair < enPatternCount * enPatternCount; ++nPair)
        {
            const tBytes a = Pattern(nPair / enPatternCount, random, Whole(m_MaskA).size(), K::nElements);
            const tBytes b = Pattern(nPair % enPatternCount, random, a.size(), K::nElements);
            SetWhole(m_MaskA, a);
            SetWhole(m_MaskB, b);
            SetWhole(m_Taker, before);
            Move(m_Giver, m_Taker, m_MaskA, m_MaskB);
            EXPECT_TRUE(Whole(m_Taker) == Moved(from, before, a, b)) << "patterns " << nPair;
            EXPECT_TRUE(Whole(m_Giver) == from && Whole(m_MaskA) == a && Whole(m_MaskB) == b) << "patterns " << nPair;
        }
    }

    typename K::tArray m_Giver;
    typename K::tArray m_Taker;
    typename K::tMask m_MaskA;
    typename K::tMask m_MaskB;
};

typedef testing::Types<tStrings, tRotaries, tIntegers, tFaders, tOthers, tMeters, tStringFlags, tRotaryFlags, tSwitches,
                       tIntegerFlags, tFaderFlags, tOtherFlags, tMeterFlags>
    tAllKinds;
TYPED_TEST_SUITE(MaskedMove, tAllKinds, stKindName);

} // namespace

TYPED_TEST(FlagArray, StartsClearInTheBlockAndItsSlack)
{
    const CDirtyMemory dirty;
    const typename TypeParam::tArray array;
    EXPECT_EQ(Support::LastMallocSize(), static_cast<std::size_t>(TypeParam::nBytes + 3 * sysconf(_SC_PAGESIZE) - 1));
    EXPECT_EQ(array.GetByteAllocation(), TypeParam::nBytes);
    EXPECT_EQ(TypeParam::nElements / 8 + 1, TypeParam::nBytes);
    EXPECT_EQ(Whole(array), this->m_Model);
}

TYPED_TEST(FlagArray, NumbersItsBitsByPathTypeThenPathThenParameter)
{
    std::mt19937 random(20013);
    int nIndex = 0;
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
        {
            for (int nParam = 0; nParam < this->Params(nPathType); ++nParam, ++nIndex)
            {
                const int nValue = static_cast<int>(random() & 1);
                int nRead = -1;
                SetBit(this->m_Model, nIndex, nValue != 0);
                ASSERT_TRUE(this->m_Array.SetPPC(PathType(nPathType), nPath, nParam, nValue));
                ASSERT_TRUE(this->m_Array.GetPPC(PathType(nPathType), nPath, nParam, nRead));
                ASSERT_EQ(nRead, nValue);
            }
        }
    }
    EXPECT_EQ(nIndex, TypeParam::nElements);
    EXPECT_EQ(Whole(this->m_Array), this->m_Model);
}

TYPED_TEST(FlagArray, IgnoresAddressesOutsideTheBlockSilently)
{
    std::fill(this->m_Model.begin(), this->m_Model.end(), static_cast<unsigned char>(0xff));
    SetWhole(this->m_Array, this->m_Model);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (const int nPathType : {INT_MIN, -2, -1, 0, 1, 2, 3, 6, 13, 21, 49, 50, 51, 52, INT_MAX})
    {
        const bool bExists = nPathType >= 0 && nPathType < 51;
        const int nPaths = bExists ? canMaxPaths[nPathType] : 1;
        const int nParams = bExists ? this->Params(nPathType) : 1;
        for (const int nPath : {INT_MIN, -nPaths, -1, 0, nPaths - 1, nPaths, nPaths + 1, 1 << 28, INT_MAX})
        {
            for (const int nParam : {INT_MIN, -nParams, -1, 0, nParams - 1, nParams, nParams + 6, nParams + 7, INT_MAX})
            {
                this->Try(nPathType, nPath, nParam);
            }
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(Whole(this->m_Array), this->m_Model);
}

TYPED_TEST(FlagArray, StoresOneForAnyValueButZeroInBothSets)
{
    for (const int nValue : {5, 0, -1, 0, 2, 0, 256, 0, INT_MIN, 0, INT_MAX, 0})
    {
        int nRead = -1;
        this->m_Array.SetPPC(enMainOut, 23, 0, nValue);
        this->m_Array.GetPPC(enMainOut, 23, 0, nRead);
        EXPECT_EQ(nRead, nValue != 0) << nValue;
        this->m_Array.SetPPCLite(enMainOut, 22, 0, nValue);
        this->m_Array.GetPPC(enMainOut, 22, 0, nRead);
        EXPECT_EQ(nRead, nValue != 0) << nValue;
    }
    EXPECT_EQ(Whole(this->m_Array), this->m_Model);
}

TYPED_TEST(FlagArray, ShowsWhereTheBitsOfEachPathLie)
{
    long lBitIndex = -1;
    long lCount = -1;
    unsigned char* pBits = nullptr;
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
        {
            this->m_Array.GetPPCBitBase(PathType(nPathType), nPath, lBitIndex, lCount, pBits);
            EXPECT_EQ(lBitIndex, this->Offset(nPathType) + this->Params(nPathType) * nPath);
            EXPECT_EQ(lCount, this->Params(nPathType));
            EXPECT_EQ(pBits, this->m_Array.GetMemoryPointer());
        }
    }
    for (const int nPathType : {INT_MIN, -1, 51, INT_MAX})
    {
        lCount = -1;
        this->m_Array.GetPPCBitBase(PathType(nPathType), 0, lBitIndex, lCount, pBits);
        EXPECT_EQ(lCount, 0) << nPathType;
    }
}

TYPED_TEST(FlagArray, AssignmentCopiesTheBytesThatHoldElementsAndNothingElse)
{
    std::mt19937 random(20012);
    typename TypeParam::tArray other;
    const tBytes from = RandomBytes(random, Whole(other).size());
    SetWhole(other, from);
    std::copy_n(from.begin(), (TypeParam::nElements + 7) / 8, this->m_Model.begin());

    EXPECT_EQ(&(this->m_Array = other), &this->m_Array);
    EXPECT_EQ(Whole(this->m_Array), this->m_Model);
    const typename TypeParam::tArray& itself = this->m_Array;
    this->m_Array = itself;
    EXPECT_EQ(Whole(this->m_Array), this->m_Model);
}

TYPED_TEST(FlagArray, IgnoresEverythingWithoutMemory)
{
    const auto pNothing = WithoutMemory<typename TypeParam::tArray>();
    EXPECT_EQ(pNothing->GetMemoryPointer(), nullptr);
    int nRead = 77;
    EXPECT_FALSE(pNothing->SetPPC(enGlobals, 0, 0, 1));
    EXPECT_FALSE(pNothing->SetPPCLite(enAuk, 1, 0, 1));
    EXPECT_FALSE(pNothing->GetPPC(enGlobals, 0, 0, nRead));
    EXPECT_EQ(nRead, 77);
    *pNothing = this->m_Array;
    std::fill(this->m_Model.begin(), this->m_Model.end(), static_cast<unsigned char>(0x77));
    SetWhole(this->m_Array, this->m_Model);
    this->m_Array = *pNothing;
    EXPECT_EQ(Whole(this->m_Array), this->m_Model);
}

TYPED_TEST(MaskedMove, ImportTakesExactlyTheElementsSetInBothMasks)
{
    this->ExpectMoves([](auto& giver, auto& taker, auto& maskA, auto& maskB) { taker.Import(giver, maskA, maskB); });
}

TYPED_TEST(MaskedMove, ExportGivesExactlyTheElementsSetInBothMasks)
{
    this->ExpectMoves([](auto& giver, auto& taker, auto& maskA, auto& maskB) { giver.Export(taker, maskA, maskB); });
}

TYPED_TEST(MaskedMove, MovesNothingWhenAMaskHasNoMemory)
{
    const auto pNoMask = WithoutMemory<typename TypeParam::tMask>();
    SetWhole(this->m_MaskA, tBytes(Whole(this->m_MaskA).size(), 0xff));
    SetWhole(this->m_Giver, tBytes(Whole(this->m_Giver).size(), 0x77));
    const tBytes before = Whole(this->m_Taker);
    this->m_Taker.Import(this->m_Giver, *pNoMask, this->m_MaskA);
    this->m_Taker.Import(this->m_Giver, this->m_MaskA, *pNoMask);
    this->m_Giver.Export(this->m_Taker, *pNoMask, this->m_MaskA);
    this->m_Giver.Export(this->m_Taker, this->m_MaskA, *pNoMask);
    EXPECT_EQ(Whole(this->m_Taker), before);
}

TEST(SwitchArray, HasTheFirstMicInputSwitchInBitZeroOfByte31)
{
    tSwitches::tArray switches;
    switches.SetPPC(enMicInput, 0, 0, 1);
    tBytes expected(17338 + c_nBehind);
    expected[31] = 0x01;
    EXPECT_EQ(Whole(switches), expected);
    switches.SetPPC(enMicInput, 0, 10, 1);
    expected[32] = 0x04;
    EXPECT_EQ(Whole(switches), expected);
}

TYPED_TEST(FlagArray, HasNoBitsForAPathTypeThatDoesNotExist)
{
    for (const int nPathType : {INT_MIN, -1, 51, INT_MAX})
    {
        long lBitIndex = -1;
        long lCount = -1;
        unsigned char* pBits = nullptr;
        this->m_Array.GetPPCBitBase(PathType(nPathType), 3, lBitIndex, lCount, pBits);
        EXPECT_EQ(lBitIndex, 0) << nPathType;
        EXPECT_EQ(lCount, 0) << nPathType;
    }
}
