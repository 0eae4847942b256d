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
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace
{

using Support::c_nBehind;
using Support::CDirtyMemory;
using Support::Hex;
using Support::tBytes;
using Support::Whole;

// What a parameter array consists of, field by field.
struct stFields
{
    const void* pTable;
    int anLimits[51 + 7 * 51];
    int anMaxParams[51];
    int nElements;
    int nByteAllocation;
    unsigned char* pValues;
    unsigned char* pBits;
    void* pTyped;
    unsigned char* apBase[51];
    int anOffset[51];
    std::uint32_t unXorVal;
};

template <typename T, tagenPPCMessageType N, int nCount, int nSize>
struct stKind
{
    typedef T tValue;
    typedef CParameterArray<T, N, false> tArray;
    typedef CParameterArray<int, N, true> tMask;
    static constexpr tagenPPCMessageType enType = N;
    static constexpr int nElements = nCount;
    static constexpr int nBytes = nSize;
    static constexpr int nWidth = nSize / nCount;
};

typedef stKind<RyGConsoleString, enString, 3151, 40963> tStrings;
typedef stKind<float, enRotary, 65300, 261200> tRotaries;
typedef stKind<int, enInteger, 14856, 59424> tIntegers;
typedef stKind<float, enFader, 2765, 11060> tFaders;
typedef stKind<int, enOther, 673, 2692> tOthers;
typedef stKind<unsigned char, enMeter, 15898, 15898> tMeters;

struct stKindName
{
    template <typename K>
    static std::string GetName(int)
    {
        return caMessageTypeNames[K::enType];
    }
};

template <typename A>
stFields Fields(const A& array)
{
    static_assert(sizeof(A) == sizeof(stFields), "no field besides");
    stFields fields;
    std::memcpy(&fields, static_cast<const void*>(&array), sizeof fields);
    return fields;
}

// A value that differs from its neighbours and is never zero.
template <typename T>
T Numbered(int nNumber)
{
    return static_cast<T>(2 * nNumber + 1);
}

template <>
RyGConsoleString Numbered<RyGConsoleString>(int nNumber)
{
    return RyGConsoleString("n" + std::to_string(nNumber));
}

std::string Ignoring(const char* szOperation, int nPathType, int nPath, int nParam)
{
    return std::string("CParameterArray::") + szOperation + "(pt = " + std::to_string(nPathType) +
           ", nPath=" + std::to_string(nPath) + ", nParam=" + std::to_string(nParam) + " ) ### RANGE CHECK FAILED - IGNORING\n";
}

tagenVirtualPathType PathType(int nPathType)
{
    return static_cast<tagenVirtualPathType>(nPathType);
}

int ParamsOf(int nType, int nPathType)
{
    return canMaxParams[nPathType * 7 + nType];
}

int OffsetOf(int nType, int nPathType)
{
    int nOffset = 0;
    for (int nBefore = 0; nBefore < nPathType; ++nBefore)
    {
        nOffset += canMaxPaths[nBefore] * ParamsOf(nType, nBefore);
    }
    return nOffset;
}

// The width of an element is 0 in a bit array.
template <typename A>
void ExpectFields(A& array, int nType, int nElements, int nByteAllocation, int nWidth)
{
    EXPECT_TRUE(std::has_virtual_destructor<A>::value);
    unsigned char* pBlock = static_cast<unsigned char*>(array.GetMemoryPointer());
    const stFields fields = Fields(array);
    const CMaxPathParameterArray limits;
    EXPECT_EQ(std::memcmp(fields.anLimits, &limits, sizeof limits), 0);
    EXPECT_EQ(fields.nElements, nElements);
    EXPECT_EQ(fields.nByteAllocation, nByteAllocation);
    EXPECT_EQ(fields.pValues, nWidth > 0 ? pBlock : nullptr);
    EXPECT_EQ(fields.pTyped, nWidth > 0 ? pBlock : nullptr);
    EXPECT_EQ(fields.pBits, nWidth > 0 ? nullptr : pBlock);
    EXPECT_EQ(fields.unXorVal, 0U);
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        EXPECT_EQ(fields.anMaxParams[nPathType], ParamsOf(nType, nPathType));
        EXPECT_EQ(fields.anOffset[nPathType], OffsetOf(nType, nPathType));
        EXPECT_EQ(fields.apBase[nPathType], nWidth > 0 ? pBlock + OffsetOf(nType, nPathType) * nWidth : nullptr);
    }
}

template <typename K>
class ParameterArray : public testing::Test
{
protected:
    typedef typename K::tValue tValue;
    typedef typename K::tArray tArray;

    static int Params(int nPathType) { return ParamsOf(K::enType, nPathType); }
    static int Offset(int nPathType) { return OffsetOf(K::enType, nPathType); }

    // What the range check says of an address: nothing, or why it refuses it.
    static std::string Complaint(int nPathType, int nPath, int nParam)
    {
        if (nPathType > 50)
        {
            return "Range Check failed, pt > maxpath types  \n ";
        }
        if (nPathType >= 0 && nPath >= canMaxPaths[nPathType])
        {
            return "Range Check failed, n Path > max path of type  expected  - " + std::to_string(nPath) + " got - " +
                   std::to_string(canMaxPaths[nPathType]) + " \n pt " + std::to_string(nPathType) + ", p " + std::to_string(nPath) +
                   ", param " + std::to_string(nParam) + ", \n";
        }
        if (nPathType >= 0 && nParam >= Params(nPathType))
        {
            return "Range Check failed, parameter >  pt params\n ";
        }
        const bool bBefore =
            nPathType < 0 || (Offset(nPathType) + Params(nPathType) * std::int64_t(nPath)) * K::nWidth + nParam < 0;
        return bBefore ? "base address check 1 failed\n " : "";
    }

    // All that takes an address. What it must print is added to m_strExpected, what it must store to m_Model.
    void Try(int nPathType, int nPath, int nParam)
    {
        const tagenVirtualPathType enPathType = PathType(nPathType);
        const std::string strComplaint = Complaint(nPathType, nPath, nParam);
        const bool bPasses = strComplaint.empty();
        const std::int64_t nIndex = bPasses ? Offset(nPathType) + Params(nPathType) * std::int64_t(nPath) + nParam : -1;
        const bool bInside = nIndex >= 0 && nIndex < K::nElements;
        const tValue value = Numbered<tValue>(++m_nTries);
        tValue read = Numbered<tValue>(m_nTries + 1);
        SCOPED_TRACE(Ignoring("Try", nPathType, nPath, nParam));

        EXPECT_EQ(m_Array.RangeCheck(enPathType, nPath, nParam), bPasses);
        EXPECT_EQ(m_Array.SetPPC(enPathType, nPath, nParam, value), bInside);
        EXPECT_EQ(m_Array.GetPPC(enPathType, nPath, nParam, read), bInside);
        EXPECT_TRUE(read == (bInside ? value : Numbered<tValue>(m_nTries + 1)));
        EXPECT_EQ(m_Array.SetPPCLite(enPathType, nPath, nParam, Numbered<tValue>(m_nTries + 2)), bPasses);

        const auto Refusal = [&](bool bAccepts, const char* szOperation)
        { return bAccepts ? "" : strComplaint + Ignoring(szOperation, nPathType, nPath, nParam); };
        m_strExpected += strComplaint + Refusal(bInside, "SetPPC") + Refusal(bInside, "GetPPC") + Refusal(bPasses, "SetPPCLite");
        if (bInside)
        {
            m_Model[static_cast<std::size_t>(nIndex)] = value;
        }
    }

    void ExpectTextAndBlock()
    {
        EXPECT_EQ(testing::internal::GetCapturedStderr(), m_strExpected);
        m_strExpected.clear();
        tBytes expected(static_cast<std::size_t>(K::nBytes + c_nBehind));
        std::memcpy(expected.data(), m_Model.data(), static_cast<std::size_t>(K::nBytes));
        EXPECT_EQ(Whole(m_Array), expected);
    }

    tArray m_Array;
    std::vector<tValue> m_Model = std::vector<tValue>(static_cast<std::size_t>(K::nElements));
    std::string m_strExpected;
    int m_nTries = 0;
};

typedef testing::Types<tStrings, tRotaries, tIntegers, tFaders, tOthers, tMeters> tKinds;
TYPED_TEST_SUITE(ParameterArray, tKinds, stKindName);

} // namespace

TYPED_TEST(ParameterArray, StartsWithZeroInAPackedBlockAndBehindIt)
{
    const CDirtyMemory dirty;
    const typename TypeParam::tArray array;
    EXPECT_EQ(Support::LastMallocSize(), static_cast<std::size_t>(TypeParam::nBytes + 3 * sysconf(_SC_PAGESIZE) - 1));
    EXPECT_EQ(array.GetByteAllocation(), TypeParam::nBytes);
    EXPECT_EQ(TypeParam::nElements * sizeof(typename TypeParam::tValue), static_cast<std::size_t>(TypeParam::nBytes));
    EXPECT_EQ(Whole(array), tBytes(static_cast<std::size_t>(TypeParam::nBytes + c_nBehind), 0));
}

TYPED_TEST(ParameterArray, HoldsItsFieldsInOrder)
{
    typename TypeParam::tMask flags;
    ExpectFields(this->m_Array, TypeParam::enType, TypeParam::nElements, TypeParam::nBytes, TypeParam::nWidth);
    ExpectFields(flags, TypeParam::enType, TypeParam::nElements, TypeParam::nElements * 4, 0);
}

TYPED_TEST(ParameterArray, NumbersItsElementsByPathTypeThenPathThenParameter)
{
    testing::internal::CaptureStderr();
    int nElement = 0;
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
        {
            for (int nParam = 0; nParam < this->Params(nPathType); ++nParam, ++nElement)
            {
                typename TypeParam::tValue value = Numbered<typename TypeParam::tValue>(nElement);
                this->m_Model[static_cast<std::size_t>(nElement)] = value;
                ASSERT_TRUE(this->m_Array.SetPPC(PathType(nPathType), nPath, nParam, value));
            }
        }
    }
    EXPECT_EQ(nElement, TypeParam::nElements);
    this->ExpectTextAndBlock();
}

TYPED_TEST(ParameterArray, ReportsAndIgnoresAddressesOutsideItsLimits)
{
    std::vector<int> pathTypes = {INT_MIN, -2, -1, 51, 52, INT_MAX};
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        pathTypes.push_back(nPathType);
    }
    for (const int nPathType : pathTypes)
    {
        const bool bExists = nPathType >= 0 && nPathType < 51;
        const int nPaths = bExists ? canMaxPaths[nPathType] : 1;
        const int nParams = bExists ? this->Params(nPathType) : 1;
        testing::internal::CaptureStderr();
        for (const int nPath : {INT_MIN, -nPaths, -2, -1, 0, nPaths - 1, nPaths, INT_MAX})
        {
            for (const int nParam : {INT_MIN, -nParams, -1, 0, nParams - 1, nParams, INT_MAX})
            {
                this->Try(nPathType, nPath, nParam);
            }
        }
        this->ExpectTextAndBlock();
    }
}

TYPED_TEST(ParameterArray, NeverStoresBeforeItsBlockWhateverTheCheckLetsPass)
{
    for (int nPathType = 0; nPathType < 4; ++nPathType)
    {
        testing::internal::CaptureStderr();
        for (int nParam = -1; nParam >= -400; --nParam)
        {
            this->Try(nPathType, 0, nParam);
        }
        this->ExpectTextAndBlock();
    }
}

TYPED_TEST(ParameterArray, LightSetLeavesTheValueUnchanged)
{
    ASSERT_TRUE(this->m_Array.SetPPC(enMainOut, 23, 0, Numbered<typename TypeParam::tValue>(7)));
    const tBytes before = Whole(this->m_Array);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(this->m_Array.SetPPCLite(enMainOut, 23, 0, Numbered<typename TypeParam::tValue>(8)));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(Whole(this->m_Array), before);
}

TYPED_TEST(ParameterArray, ShowsWhereEachPathLies)
{
    void* pBase = this;
    long lCount = -1;
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        for (int nPath = 0; nPath <= canMaxPaths[nPathType]; ++nPath)
        {
            this->m_Array.GetPPCBase(PathType(nPathType), nPath, pBase, lCount);
            const int nElement = this->Offset(nPathType) + this->Params(nPathType) * nPath;
            EXPECT_EQ(pBase, static_cast<unsigned char*>(this->m_Array.GetMemoryPointer()) + nElement * TypeParam::nWidth);
            EXPECT_EQ(lCount, this->Params(nPathType));
        }
    }
    for (const int nPathType : {INT_MIN, -1, 51, INT_MAX})
    {
        this->m_Array.GetPPCBase(PathType(nPathType), 0, pBase = this, lCount = -1);
        EXPECT_EQ(pBase, nullptr);
        EXPECT_EQ(lCount, 0);
    }
}

TYPED_TEST(ParameterArray, AssignmentCopiesTheValuesAndNothingElse)
{
    std::mt19937 random(20012);
    typename TypeParam::tArray other;
    tBytes from(Whole(other).size());
    std::generate(from.begin(), from.end(), [&random] { return static_cast<unsigned char>(random()); });
    std::memcpy(other.GetMemoryPointer(), from.data(), from.size());
    other.SetXorVal(0x11111111UL);
    this->m_Array.SetXorVal(0xfedcba98UL);
    const void* const pBlock = this->m_Array.GetMemoryPointer();

    EXPECT_EQ(&(this->m_Array = other), &this->m_Array);
    EXPECT_EQ(Whole(other), from);
    std::fill(from.begin() + TypeParam::nBytes, from.end(), static_cast<unsigned char>(0));
    EXPECT_EQ(Whole(this->m_Array), from);
    EXPECT_EQ(Fields(this->m_Array).unXorVal, 0xfedcba98U);
    EXPECT_EQ(this->m_Array.GetMemoryPointer(), pBlock);
    const typename TypeParam::tArray& itself = this->m_Array;
    this->m_Array = itself;
    EXPECT_EQ(Whole(this->m_Array), from);
}

TYPED_TEST(ParameterArray, ThrowsTheIntZeroAndPrintsNothingWithoutMemory)
{
    int nThrown = -1;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    try
    {
        const Support::CFailingCall noMemory(Support::CFailingCall::enMalloc);
        const typename TypeParam::tArray array;
    }
    catch (const int nValue)
    {
        nThrown = nValue;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(nThrown, 0);
}

TEST(RotaryArray, StoresTheLastMicInputParameterAsElement40326)
{
    CParameterArray<float, enRotary, false> rotaries;
    ASSERT_TRUE(rotaries.SetPPC(enMicInput, 143, 279, 0.75F));
    std::vector<float> expected(65300);
    expected[40326] = 0.75F;
    EXPECT_EQ(std::memcmp(rotaries.GetMemoryPointer(), expected.data(), 261200), 0);
}

TEST(RotaryArray, SaysInWordsWhyItIgnoresAnAddress)
{
    const struct
    {
        int nPathType, nPath, nParam;
        const char* szText;
    } aCases[] = {
        {1, 144, 0,
         "Range Check failed, n Path > max path of type  expected  - 144 got - 144 \n pt 1, p 144, param 0, \n"
         "CParameterArray::SetPPC(pt = 1, nPath=144, nParam=0 ) ### RANGE CHECK FAILED - IGNORING\n"},
        {3, 2000, -9,
         "Range Check failed, n Path > max path of type  expected  - 2000 got - 72 \n pt 3, p 2000, param -9, \n"
         "CParameterArray::SetPPC(pt = 3, nPath=2000, nParam=-9 ) ### RANGE CHECK FAILED - IGNORING\n"},
        {51, 0, 0,
         "Range Check failed, pt > maxpath types  \n "
         "CParameterArray::SetPPC(pt = 51, nPath=0, nParam=0 ) ### RANGE CHECK FAILED - IGNORING\n"},
        {1, 0, 280,
         "Range Check failed, parameter >  pt params\n "
         "CParameterArray::SetPPC(pt = 1, nPath=0, nParam=280 ) ### RANGE CHECK FAILED - IGNORING\n"},
        {0, 0, -1,
         "base address check 1 failed\n "
         "CParameterArray::SetPPC(pt = 0, nPath=0, nParam=-1 ) ### RANGE CHECK FAILED - IGNORING\n"},
        {-1, 0, 0,
         "base address check 1 failed\n "
         "CParameterArray::SetPPC(pt = -1, nPath=0, nParam=0 ) ### RANGE CHECK FAILED - IGNORING\n"},
        {1, 0, -8, "CParameterArray::SetPPC(pt = 1, nPath=0, nParam=-8 ) ### RANGE CHECK FAILED - IGNORING\n"},
        {1, 0, -7, ""},
    };
    CParameterArray<float, enRotary, false> rotaries;
    for (const auto& address : aCases)
    {
        testing::internal::CaptureStderr();
        rotaries.SetPPC(PathType(address.nPathType), address.nPath, address.nParam, 0.0F);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), address.szText);
    }
}

TEST(StringArray, HoldsThirteenBytesAString)
{
    CParameterArray<RyGConsoleString, enString, false> strings;
    strings.SetPPC(enGlobals, 0, 1, "Twelve chars and more");
    strings.SetPPC(enGlobals, 0, 2, "a");
    const unsigned char* pBlock = static_cast<const unsigned char*>(strings.GetMemoryPointer());
    EXPECT_EQ(tBytes(pBlock, pBlock + 40), Hex("00 00 00 00 00 00 00 00 00 00 00 00 00 54 77 65 6c 76 65 20 63 68 61 72 73 00"
                                               "61 00 00 00 00 00 00 00 00 00 00 00 00 00"));
}

TEST(SwitchArray, KeepsACheckWordInItsBitsAndHasNoValueArrayOfItsOwn)
{
    CParameterArray<int, enSwitch, true> switches;
    ExpectFields(switches, enSwitch, 138696, 138696 * 4, 0);
    switches.SetXorVal(0xfedcba98UL);
    EXPECT_EQ(Fields(switches).unXorVal, 0xfedcba98U);
    void (CParameterArray<int, enSwitch, false>::*pSetXorVal)(unsigned long) = &CParameterArray<int, enSwitch, false>::SetXorVal;
    EXPECT_NE(pSetXorVal, nullptr);
}
