#include "Messages/MCUpdateMsg.h"

#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

using Support::Append;
using Support::AppendArray;
using Support::AppendBig;
using Support::Hex;
using Support::tBytes;
using Support::UpdateHeader;

namespace
{

typedef std::vector<tBytes> tArrays;

constexpr int c_nMaxDeep = 261199;

const char* const c_szGolden = "00000001 5a 01020304 00000002 00000013"
                               "00000003 aabbcc"
                               "00000008 0102030405060708";

// The bytes in a heap block of exactly their size.
class CExactCopy
{
public:
    explicit CExactCopy(const tBytes& bytes) : m_pBlock(new unsigned char[bytes.size()]), m_unSize(bytes.size())
    {
        std::copy(bytes.begin(), bytes.end(), m_pBlock.get());
    }

    unsigned char* Data() { return m_pBlock.get(); }
    std::size_t Size() const { return m_unSize; }

private:
    std::unique_ptr<unsigned char[]> m_pBlock;
    std::size_t m_unSize;
};

std::unique_ptr<CMCUpdateMsg> NewMessage(bool bShallow = false)
{
    auto pMessage = std::make_unique<CMCUpdateMsg>();
    pMessage->SetShallowMode(bShallow);
    return pMessage;
}

// Array t as t + 1 bytes of 0x10 + t.
tBytes SomeArray(int nType)
{
    return tBytes(static_cast<std::size_t>(nType) + 1, static_cast<unsigned char>(0x10 + nType));
}

tArrays SomeArrays(int nFirst, int nLast)
{
    tArrays arrays(c_nMessageTypes);
    for (int nType = nFirst; nType <= nLast; ++nType)
    {
        arrays[static_cast<std::size_t>(nType)] = SomeArray(nType);
    }
    return arrays;
}

std::unique_ptr<CMCUpdateMsg> FullMessage(int nUpdateType = 0)
{
    auto pMessage = NewMessage();
    pMessage->SetMarker(1);
    pMessage->SetUpdateType(static_cast<MCUpdateType>(nUpdateType));
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        EXPECT_TRUE(pMessage->SetArray(static_cast<tagenPPCMessageType>(nType), SomeArray(nType).data(), nType + 1));
    }
    return pMessage;
}

tBytes Update(int nUpdateType, const tArrays& arrays)
{
    tBytes body;
    for (const tBytes& array : arrays)
    {
        AppendArray(body, array);
    }
    tBytes bytes = UpdateHeader(static_cast<std::uint32_t>(nUpdateType), static_cast<std::uint32_t>(body.size()));
    Append(bytes, body);
    return bytes;
}

// What GetArray shows for each message type; nothing for an array that there is none of.
tArrays Shown(const CMCUpdateMsg& message)
{
    tArrays arrays(c_nMessageTypes);
    for (std::size_t unType = 0; unType < arrays.size(); ++unType)
    {
        const unsigned char ucOther = 0;
        const unsigned char* pData = &ucOther;
        int nLength = 77;
        const bool bAny = message.GetArray(static_cast<tagenPPCMessageType>(unType), pData, nLength);
        EXPECT_EQ(bAny, pData != nullptr);
        EXPECT_EQ(bAny, nLength > 0);
        if (bAny)
        {
            arrays[unType].assign(pData, pData + nLength);
        }
    }
    return arrays;
}

// Serialises into a block of exactly the stated size, and into one with a guard behind it that must stay.
tBytes Serialised(CMCUpdateMsg& message)
{
    const std::size_t unSize = static_cast<std::size_t>(std::max(message.GetTotalSize(), 0));
    CExactCopy exact(tBytes(unSize, 0xee));
    tBytes guarded(unSize + 64, 0xee);
    unsigned char* pExact = exact.Data();
    unsigned char* pGuarded = guarded.data();
    message >> &pExact;
    message >> &pGuarded;
    EXPECT_EQ(tBytes(guarded.begin() + static_cast<std::ptrdiff_t>(unSize), guarded.end()), tBytes(64, 0xee));
    EXPECT_EQ(pExact, exact.Data());
    guarded.resize(unSize);
    EXPECT_TRUE(std::equal(guarded.begin(), guarded.end(), exact.Data()));
    return guarded;
}

void ParseTrusted(CMCUpdateMsg& message, const tBytes& bytes)
{
    CExactCopy copy(bytes);
    message << copy.Data();
}

// The error code, or 0 when there is no error.
int Error(CMCUpdateMsg& message)
{
    int nCode = -1;
    const bool bError = message.HaveError(&nCode);
    EXPECT_EQ(bError, nCode != 0);
    EXPECT_EQ(message.HaveError(nullptr), bError);
    return nCode;
}

template <typename Action>
std::string Printed(Action action)
{
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

const char* const c_szNull = "CMCUpdateMsg operator<< - NULL data!\n";
const char* const c_szInvalid = "CMCUpdateMsg operator<< - error validating update data\n";

struct stRange
{
    int nUpdateType;
    int nFirst;
    int nLast;
};

constexpr stRange c_aRanges[] = {{0, 0, 6}, {1, 2, 6}, {2, 0, 1},  {3, 0, 6},  {4, 2, 3},  {5, 0, 6},
                                 {8, 2, 3}, {9, 0, 6}, {16, 0, 6}, {30, 0, 6}, {-1, 0, 6}, {INT_MIN, 0, 6}};

TEST(MCUpdateMsg, AnArrayThatComesEmptyShowsNothingOfTheOneBefore)
{
    tBytes full = UpdateHeader(1, 0);
    AppendArray(full, Hex("aa bb"));
    AppendArray(full, Hex("cc"));
    tBytes empty = UpdateHeader(1, 0);
    AppendArray(empty, tBytes());
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    pMessage->SetShallowMode(true);
    const unsigned char* pData = nullptr;
    int nLength = 0;
    ASSERT_TRUE(pMessage->Parse(full.data(), full.size()));
    ASSERT_TRUE(pMessage->GetArray(enSwitch, pData, nLength));
    ASSERT_TRUE(pMessage->Parse(empty.data(), empty.size()));
    EXPECT_FALSE(pMessage->GetArray(enSwitch, pData, nLength));
    EXPECT_FALSE(pMessage->GetArray(enInteger, pData, nLength));
    EXPECT_EQ(nullptr, pData);
}

} // namespace

TEST(MCUpdateMsg, AFreshOneIsEmptyAndUnmarked)
{
    const auto pMessage = NewMessage();
    EXPECT_EQ(pMessage->GetUpdateType(), enMCUpdateAll);
    EXPECT_EQ(pMessage->GetTotalSize(), 45);
    EXPECT_EQ(Error(*pMessage), 0);
    EXPECT_EQ(Shown(*pMessage), tArrays(7));
    tBytes expected = Hex("00000000 00 00000000 00000000 0000001c");
    expected.resize(45);
    EXPECT_EQ(Serialised(*pMessage), expected);
}

TEST(MCUpdateMsg, SerialisesHeaderAndEachCarriedArray)
{
    const auto pMessage = NewMessage();
    pMessage->SetMarker(1);
    pMessage->SetUpdateType(enMCUpdateRotary);
    EXPECT_TRUE(pMessage->SetArray(enString, Hex("aabbcc").data(), 3));
    EXPECT_TRUE(pMessage->SetArray(enRotary, Hex("0102030405060708").data(), 8));
    EXPECT_EQ(Serialised(*pMessage), Hex("00000001 00 00000000 00000002 00000013 00000003 aabbcc 00000008 0102030405060708"));
}

TEST(MCUpdateMsg, AGoldenUpdateComesBackAsItWentWithItsBodyLengthComputed)
{
    tBytes otherBodyLength = Hex(c_szGolden);
    otherBodyLength[13] = 0x7f;
    for (const tBytes& bytes : {Hex(c_szGolden), otherBodyLength})
    {
        const auto pMessage = NewMessage();
        EXPECT_EQ(Printed([&] { ParseTrusted(*pMessage, bytes); }), "");
        EXPECT_EQ(Error(*pMessage), 0);
        EXPECT_EQ(pMessage->GetUpdateType(), enMCUpdateRotary);
        EXPECT_EQ(Shown(*pMessage), (tArrays{Hex("aabbcc"), Hex("0102030405060708"), {}, {}, {}, {}, {}}));
        EXPECT_EQ(Serialised(*pMessage), Hex(c_szGolden));
    }
}

// ---- What an update type carries ----------------------------------------------------------------------------------------------

TEST(MCUpdateMsg, EveryUpdateTypeSerialisesItsArrays)
{
    for (const stRange& range : c_aRanges)
    {
        const auto pMessage = FullMessage(range.nUpdateType);
        tArrays carried = SomeArrays(range.nFirst, range.nLast);
        carried = tArrays(carried.begin() + range.nFirst, carried.begin() + range.nLast + 1);
        const tBytes expected = Update(range.nUpdateType, carried);
        EXPECT_EQ(CarriedArrays(range.nUpdateType).nFirst, range.nFirst) << range.nUpdateType;
        EXPECT_EQ(CarriedArrays(range.nUpdateType).nLast, range.nLast) << range.nUpdateType;
        EXPECT_EQ(pMessage->GetTotalSize(), static_cast<int>(expected.size())) << range.nUpdateType;
        EXPECT_EQ(Serialised(*pMessage), expected) << range.nUpdateType;
    }
}

TEST(MCUpdateMsg, EveryUpdateTypeParsesAndCopiesItsArrays)
{
    const auto pDeep = NewMessage();
    const auto pShallow = NewMessage(true);
    for (const stRange& range : c_aRanges)
    {
        CExactCopy bytes(Serialised(*FullMessage(range.nUpdateType)));
        const tArrays expected = SomeArrays(range.nFirst, range.nLast);
        pDeep->Clear(true);
        *pDeep << bytes.Data();
        *pShallow << bytes.Data();
        EXPECT_EQ(Shown(*pDeep), expected) << range.nUpdateType;
        EXPECT_EQ(Shown(*pShallow), expected) << range.nUpdateType;
        pDeep->CopyToMe(*FullMessage(range.nUpdateType));
        EXPECT_EQ(Shown(*pDeep), expected) << range.nUpdateType;
        EXPECT_EQ(pDeep->GetUpdateType(), range.nUpdateType);
        EXPECT_EQ(pShallow->GetUpdateType(), range.nUpdateType);
        EXPECT_EQ(Error(*pDeep) + Error(*pShallow), 0) << range.nUpdateType;
    }
}

// ---- Validation and errors ----------------------------------------------------------------------------------------------------

TEST(MCUpdateMsg, ValidatesMarkerAndUpdateType)
{
    const auto pMessage = NewMessage();
    const auto valid = [&](std::uint32_t unType, std::uint32_t unMarker)
    {
        CExactCopy bytes(UpdateHeader(unType, 0, unMarker));
        return pMessage->ValidateUpdate(bytes.Data());
    };
    for (const std::uint32_t unType : {0u, 1u, 7u, 30u, 0xffffffffu, 0x80000000u})
    {
        EXPECT_TRUE(valid(unType, 1)) << unType;
    }
    for (const std::uint32_t unType : {31u, 32u, 0x100u, 0x01000000u, 0x7fffffffu})
    {
        EXPECT_FALSE(valid(unType, 1)) << unType;
    }
    for (const std::uint32_t unMarker : {0u, 2u, 0x01000000u, 0x101u, 0xffffffffu})
    {
        EXPECT_FALSE(valid(2, unMarker)) << unMarker;
    }
    EXPECT_FALSE(pMessage->ValidateUpdate(nullptr));
    EXPECT_EQ(Error(*pMessage), 0);
}

TEST(MCUpdateMsg, NullDataIsError103AndChangesNothingElse)
{
    for (const bool bShallow : {false, true})
    {
        const auto pMessage = FullMessage();
        const tBytes before = Serialised(*pMessage);
        pMessage->SetShallowMode(bShallow);
        EXPECT_EQ(Printed([&] { *pMessage << nullptr; }), c_szNull);
        EXPECT_EQ(Error(*pMessage), 103);
        EXPECT_EQ(Serialised(*pMessage), before);
        pMessage->ClearError();
        EXPECT_EQ(Printed([&] { EXPECT_FALSE(pMessage->Parse(nullptr, 0)); }), c_szNull);
        EXPECT_EQ(Error(*pMessage), 103);
    }
}

TEST(MCUpdateMsg, AnInvalidUpdateIsError104AndChangesNothingElse)
{
    for (const tBytes& bytes : {Update(31, SomeArrays(0, 6)), UpdateHeader(2, 0, 0), UpdateHeader(2, 0, 2)})
    {
        const auto pMessage = FullMessage();
        EXPECT_EQ(Printed([&] { ParseTrusted(*pMessage, bytes); }), c_szInvalid);
        EXPECT_EQ(Error(*pMessage), 104);
        EXPECT_EQ(Shown(*pMessage), SomeArrays(0, 6));
        EXPECT_EQ(pMessage->GetUpdateType(), enMCUpdateAll);
    }
}

TEST(MCUpdateMsg, ErrorsStickThroughGoodParsesClearingAndCopying)
{
    const auto pMessage = NewMessage();
    Printed([&] { *pMessage << nullptr; });
    ParseTrusted(*pMessage, Hex(c_szGolden));
    EXPECT_EQ(Shown(*pMessage)[0], Hex("aabbcc"));
    pMessage->Clear(true);
    pMessage->CopyToMe(*FullMessage());
    EXPECT_EQ(Error(*pMessage), 103);
    Printed([&] { ParseTrusted(*pMessage, UpdateHeader(31, 0)); });
    EXPECT_EQ(Error(*pMessage), 104);
    pMessage->ClearError();
    EXPECT_EQ(Error(*pMessage), 0);
}

TEST(MCUpdateMsg, AnArrayOf261199IsTakenAndOneOf261200RefusedInADeepParse)
{
    for (const int nLength : {c_nMaxDeep, c_nMaxDeep + 1})
    {
        const bool bTaken = nLength == c_nMaxDeep;
        const tBytes large(static_cast<std::size_t>(nLength), 0x77);
        const auto pMessage = NewMessage();
        const std::string strPrinted = Printed([&] { ParseTrusted(*pMessage, Update(2, {large, SomeArray(1)})); });
        EXPECT_EQ(strPrinted, bTaken ? "" : "CMCUpdateMsg operator<< - bma array too large, array size 261200\n");
        EXPECT_EQ(Error(*pMessage), bTaken ? 0 : 102);
        EXPECT_EQ(pMessage->GetTotalSize(), 17 + 4 + nLength + 4 + 2);
        EXPECT_EQ(Shown(*pMessage)[1], SomeArray(1));
        const tBytes expected = bTaken ? large : tBytes(large.size());
        EXPECT_TRUE(Serialised(*pMessage) == Update(2, {expected, SomeArray(1)}));
    }
}

TEST(MCUpdateMsg, EveryTooLargeArrayIsReportedAndSerialisesOnlyWhatTheMessageHolds)
{
    const tArrays arrays = {tBytes(261200, 0x77), SomeArray(3), tBytes(300000, 0x77), tBytes(261201, 0x77), SomeArray(6)};
    for (const bool bBounded : {false, true})
    {
        const auto pMessage = NewMessage();
        CExactCopy bytes(Update(1, arrays));
        EXPECT_EQ(Printed([&] { bBounded ? (void)pMessage->Parse(bytes.Data(), bytes.Size()) : *pMessage << bytes.Data(); }),
                  "CMCUpdateMsg operator<< - bma array too large, array size 261200\n"
                  "CMCUpdateMsg operator<< - bma array too large, array size 300000\n"
                  "CMCUpdateMsg operator<< - bma array too large, array size 261201\n");
        EXPECT_EQ(Error(*pMessage), 102);
        EXPECT_EQ(Shown(*pMessage)[3], SomeArray(3));
        EXPECT_EQ(Shown(*pMessage)[6], SomeArray(6));
        EXPECT_LE(Shown(*pMessage)[4].size(), 261200u);
        EXPECT_EQ(pMessage->GetTotalSize(), 17 + 20 + 261200 + 4 + 300000 + 261201 + 7);
        const auto pCopy = std::make_unique<CMCUpdateMsg>(*pMessage);
        const tBytes expected = Update(1, {tBytes(261200), SomeArray(3), tBytes(300000), tBytes(261201), SomeArray(6)});
        EXPECT_TRUE(Serialised(*pMessage) == expected);
        EXPECT_TRUE(Serialised(*pCopy) == expected);
    }
}

TEST(MCUpdateMsg, AnArrayOfTwoGigabytesIsRefusedWithoutReadingOn)
{
    tBytes bytes = UpdateHeader(2, 0);
    Append(bytes, Hex("7fffffff"));
    const auto pMessage = NewMessage();
    EXPECT_EQ(Printed([&] { ParseTrusted(*pMessage, bytes); }),
              "CMCUpdateMsg operator<< - bma array too large, array size 2147483647\n");
    EXPECT_EQ(Error(*pMessage), 102);
    const auto pCopy = std::make_unique<CMCUpdateMsg>(*pMessage);
    EXPECT_EQ(pCopy->GetTotalSize(), pMessage->GetTotalSize());
    EXPECT_LE(Shown(*pMessage)[0].size(), 261200u);
    EXPECT_LE(Shown(*pCopy)[0].size(), 261200u);
}

// ---- Lengths that mislead -----------------------------------------------------------------------------------------------------

TEST(MCUpdateMsg, AnEmptyArrayEndsTheParseAndLeavesTheRestAsItWas)
{
    const tBytes bytes = Update(0, {Hex("a0"), Hex("a1a1"), {}, Hex("a3"), Hex("a4"), Hex("a5"), Hex("a6")});
    tArrays expected = SomeArrays(0, 6);
    const auto pDeep = FullMessage();
    const auto pShallow = NewMessage(true);
    CExactCopy copy(bytes);
    *pDeep << copy.Data();
    *pShallow << copy.Data();
    expected[0] = Hex("a0");
    expected[1] = Hex("a1a1");
    EXPECT_EQ(Shown(*pDeep), expected);
    EXPECT_EQ(Shown(*pShallow), (tArrays{Hex("a0"), Hex("a1a1"), {}, {}, {}, {}, {}}));
    EXPECT_EQ(Error(*pDeep) + Error(*pShallow), 0);
}

TEST(MCUpdateMsg, ANegativeLengthIsStoredWithoutDataInEveryArray)
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        for (const int nLength : {-1, -46, INT_MIN})
        {
            tBytes bytes = UpdateHeader(0, 0);
            tArrays expected = SomeArrays(0, 6);
            expected[static_cast<std::size_t>(nType)].clear();
            for (int nArray = 0; nArray < c_nMessageTypes; ++nArray)
            {
                AppendBig(bytes, static_cast<std::uint32_t>(nArray == nType ? nLength : nArray + 1));
                Append(bytes, expected[static_cast<std::size_t>(nArray)]);
            }
            const auto pMessage = NewMessage();
            const auto pShallow = NewMessage(true);
            CExactCopy copy(bytes);
            *pMessage << copy.Data();
            EXPECT_TRUE(pShallow->Parse(copy.Data(), copy.Size()));
            const auto pCopy = std::make_unique<CMCUpdateMsg>(*pMessage);
            const auto pAssigned = FullMessage();
            *pAssigned = *pMessage;
            for (CMCUpdateMsg* pEach : {pMessage.get(), pCopy.get(), pAssigned.get()})
            {
                EXPECT_EQ(pEach->GetTotalSize(), 45 + 28 - (nType + 1) + nLength);
                EXPECT_EQ(Shown(*pEach), expected);
                EXPECT_EQ(Serialised(*pEach).size(), static_cast<std::size_t>(std::max(pEach->GetTotalSize(), 0)));
            }
            EXPECT_EQ(Shown(*pShallow), expected);
            EXPECT_EQ(Error(*pMessage) + Error(*pShallow), 0);
        }
    }
}

TEST(MCUpdateMsg, EveryTruncationIsTakenUpToAWholeArrayOrRefusedWhole)
{
    const tBytes golden = Hex(c_szGolden);
    const tArrays whole = {Hex("aabbcc"), Hex("0102030405060708"), {}, {}, {}, {}, {}};
    const tArrays before = SomeArrays(0, 6);
    ASSERT_EQ(golden.size(), 36u);
    for (std::size_t unCut = 0; unCut <= golden.size(); ++unCut)
    {
        CExactCopy bytes(tBytes(golden.begin(), golden.begin() + static_cast<std::ptrdiff_t>(unCut)));
        const bool bGood = (unCut >= 17 && unCut <= 20) || (unCut >= 24 && unCut <= 27) || unCut == 36;
        const std::size_t unTaken = !bGood || unCut < 24 ? 0 : unCut < 36 ? 1 : 2;
        const auto pDeep = FullMessage();
        const auto pShallow = NewMessage(true);
        CExactCopy earlier(Update(0, before));
        pShallow->ShallowAssign(earlier.Data());
        EXPECT_EQ(Printed([&] { EXPECT_EQ(pDeep->Parse(bytes.Data(), bytes.Size()), bGood); }), bGood ? "" : c_szInvalid) << unCut;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(pShallow->Parse(bytes.Data(), bytes.Size()), bGood); }), bGood ? "" : c_szInvalid);
        EXPECT_EQ(Error(*pDeep), bGood ? 0 : 104) << unCut;
        EXPECT_EQ(Error(*pShallow), bGood ? 0 : 104) << unCut;
        EXPECT_EQ(pDeep->GetUpdateType(), bGood ? enMCUpdateRotary : enMCUpdateAll) << unCut;
        const tArrays deep = Shown(*pDeep);
        const tArrays shallow = Shown(*pShallow);
        for (std::size_t unType = 0; unType < 7; ++unType)
        {
            EXPECT_EQ(deep[unType], unType < unTaken ? whole[unType] : before[unType]) << unCut;
            EXPECT_EQ(shallow[unType], unType < unTaken ? whole[unType] : tBytes()) << unCut;
        }
    }
}

TEST(MCUpdateMsg, AnArrayPastTheEndIsError104WhateverItsLength)
{
    for (const std::uint32_t unLength : {4u, 261199u, 261200u, 0x7ffffff0u, 0x7fffffffu})
    {
        tBytes bytes = Update(2, {SomeArray(0)});
        AppendBig(bytes, unLength);
        Append(bytes, Hex("010203"));
        CExactCopy copy(bytes);
        for (const bool bShallow : {false, true})
        {
            const auto pMessage = NewMessage(bShallow);
            EXPECT_EQ(Printed([&] { EXPECT_FALSE(pMessage->Parse(copy.Data(), copy.Size())); }), c_szInvalid);
            EXPECT_EQ(Error(*pMessage), 104);
            EXPECT_EQ(Shown(*pMessage), tArrays(7));
        }
    }
}

TEST(MCUpdateMsg, NoFlippedBitShowsBytesOutsideTheUpdate)
{
    const auto pDeep = NewMessage();
    const auto pShallow = NewMessage(true);
    for (std::size_t unBit = 0; unBit < 36 * 8; ++unBit)
    {
        tBytes flipped = Hex(c_szGolden);
        flipped[unBit / 8] = static_cast<unsigned char>(flipped[unBit / 8] ^ (1u << unBit % 8));
        CExactCopy bytes(flipped);
        pDeep->Clear(false);
        bool abGood[2] = {false, false};
        Printed([&] { abGood[0] = pDeep->Parse(bytes.Data(), bytes.Size()); });
        Printed([&] { abGood[1] = pShallow->Parse(bytes.Data(), bytes.Size()); });
        EXPECT_EQ(abGood[0], abGood[1]) << unBit;
        EXPECT_EQ(Shown(*pDeep), Shown(*pShallow)) << unBit;
        EXPECT_TRUE(unBit < 32 ? !abGood[0] : unBit >= 64 || abGood[0]) << unBit;
        pDeep->ClearError();
        pShallow->ClearError();
    }
}

// ---- Shallow parses -----------------------------------------------------------------------------------------------------------

TEST(MCUpdateMsg, ShallowViewsPointIntoTheCallersBytes)
{
    const auto pMessage = NewMessage(true);
    CExactCopy bytes(Hex(c_szGolden));
    const unsigned char* pString = nullptr;
    const unsigned char* pRotary = nullptr;
    int nLength = 0;
    *pMessage << bytes.Data();
    EXPECT_TRUE(pMessage->GetArray(enString, pString, nLength));
    EXPECT_EQ(nLength, 3);
    EXPECT_TRUE(pMessage->GetArray(enRotary, pRotary, nLength));
    EXPECT_EQ(nLength, 8);
    EXPECT_EQ(pString, bytes.Data() + 21);
    EXPECT_EQ(pRotary, bytes.Data() + 28);
    bytes.Data()[21] = 0x99;
    EXPECT_EQ(Shown(*pMessage)[0], Hex("99bbcc"));
}

TEST(MCUpdateMsg, AShallowParseKnowsNoLengthLimitAndLeavesTheHeaderAlone)
{
    const auto pMessage = FullMessage(enMCUpdateSurface);
    const tBytes before = Serialised(*pMessage);
    pMessage->SetShallowMode(true);
    CExactCopy bytes(Update(2, {tBytes(300000, 0x55), tBytes(261200, 0x66)}));
    EXPECT_EQ(Printed([&] { *pMessage << bytes.Data(); }), "");
    EXPECT_EQ(Error(*pMessage), 0);
    EXPECT_TRUE(Shown(*pMessage)[0] == tBytes(300000, 0x55));
    EXPECT_TRUE(Shown(*pMessage)[1] == tBytes(261200, 0x66));
    EXPECT_EQ(pMessage->GetUpdateType(), enMCUpdateRotary);
    pMessage->SetShallowMode(false);
    EXPECT_EQ(pMessage->GetUpdateType(), enMCUpdateSurface);
    EXPECT_EQ(Serialised(*pMessage), before);
}

TEST(MCUpdateMsg, ShowsOnlyTheViewsThatTheLastParseSet)
{
    const auto pMessage = NewMessage(true);
    CExactCopy rotary(Hex(c_szGolden));
    CExactCopy surface(Update(1, {SomeArray(2), SomeArray(3), {}, SomeArray(5), SomeArray(6)}));
    CExactCopy empty(UpdateHeader(0, 0));
    *pMessage << rotary.Data();
    *pMessage << surface.Data();
    EXPECT_EQ(Shown(*pMessage), SomeArrays(2, 3));
    pMessage->ShallowAssign(rotary.Data());
    EXPECT_EQ(Shown(*pMessage)[1], Hex("0102030405060708"));
    EXPECT_EQ(Shown(*pMessage)[2], tBytes());
    EXPECT_TRUE(pMessage->Parse(empty.Data(), empty.Size()));
    EXPECT_EQ(Shown(*pMessage), tArrays(7));
}

// ---- Clearing and copying -----------------------------------------------------------------------------------------------------

TEST(MCUpdateMsg, ClearEmptiesHeaderAndLengthsAndOnlyWhenDeepTheBytes)
{
    void (*const apClear[])(CMCUpdateMsg&) = {[](CMCUpdateMsg& message) { message.Clear(true); },
                                              [](CMCUpdateMsg& message) { message.Clear(false); },
                                              [](CMCUpdateMsg& message) { static_cast<MemPool::CMemPoolBase&>(message).Clear(); }};
    for (const auto pClear : apClear)
    {
        const auto pMessage = FullMessage(enMCUpdateSurface);
        pClear(*pMessage);
        EXPECT_EQ(pMessage->GetUpdateType(), enMCUpdateAll);
        EXPECT_EQ(Shown(*pMessage), tArrays(7));
        EXPECT_EQ(Serialised(*pMessage), Serialised(*NewMessage()));
        const unsigned char* pBytes = pMessage->PrepareArray(enMeter, 7);
        ASSERT_NE(pBytes, nullptr);
        EXPECT_EQ(tBytes(pBytes, pBytes + 7), pClear == apClear[0] ? tBytes(7) : SomeArray(6));
    }
}

TEST(MCUpdateMsg, ClearKeepsTheModeAndDeepDropsTheViews)
{
    const auto pMessage = NewMessage(true);
    CExactCopy bytes(Hex(c_szGolden));
    *pMessage << bytes.Data();
    pMessage->Clear(true);
    EXPECT_EQ(Shown(*pMessage), tArrays(7));
    EXPECT_EQ(pMessage->GetUpdateType(), enMCUpdateAll);
    *pMessage << bytes.Data();
    const unsigned char* pData = nullptr;
    int nLength = 0;
    EXPECT_TRUE(pMessage->GetArray(enString, pData, nLength));
    EXPECT_EQ(pData, bytes.Data() + 21);
}

TEST(MCUpdateMsg, ACopyHasHeaderAndCarriedArraysButNeitherErrorNorMode)
{
    const auto pSource = FullMessage(enMCUpdateSwitchesIntegers4);
    Printed([&] { *pSource << nullptr; });
    pSource->SetShallowMode(true);
    const auto pCopy = std::make_unique<CMCUpdateMsg>(*pSource);
    const auto pAssigned = FullMessage();
    EXPECT_EQ(&(*pAssigned = *pSource), pAssigned.get());
    for (CMCUpdateMsg* pEach : {pCopy.get(), pAssigned.get()})
    {
        EXPECT_EQ(Error(*pEach), 0);
        EXPECT_EQ(Shown(*pEach), SomeArrays(2, 3));
        EXPECT_EQ(Serialised(*pEach), Update(4, {SomeArray(2), SomeArray(3)}));
    }
}

TEST(MCUpdateMsg, ACopyTakesTheBytesOfUpTo261199)
{
    for (const int nLength : {c_nMaxDeep, c_nMaxDeep + 1})
    {
        const tBytes large(static_cast<std::size_t>(nLength), 0x42);
        const auto pSource = NewMessage();
        pSource->SetUpdateType(enMCUpdateRotary);
        EXPECT_TRUE(pSource->SetArray(enRotary, large.data(), nLength));
        const auto pCopy = std::make_unique<CMCUpdateMsg>(*pSource);
        EXPECT_EQ(pCopy->GetTotalSize(), 25 + nLength);
        EXPECT_TRUE(Shown(*pCopy)[1] == (nLength == c_nMaxDeep ? large : tBytes())); // what did not move is not shown
    }
}

TEST(MCUpdateMsg, ARefusedArrayIsNotShownAndTheNextGoodOneIs)
{
    const auto pMessage = NewMessage();
    const tBytes small = Hex("01 02 03");
    for (const std::size_t unLength : {std::size_t(3), std::size_t(c_nMaxDeep + 1), std::size_t(3)})
    {
        tBytes bytes = UpdateHeader(2, 0);
        AppendArray(bytes, small);
        AppendArray(bytes, tBytes(unLength, 0x42));
        CExactCopy copy(bytes);
        bool bGood = false;
        Printed([&] { bGood = pMessage->Parse(copy.Data(), copy.Size()); });
        EXPECT_EQ(bGood, unLength == 3);
        EXPECT_EQ(Shown(*pMessage)[0], small);
        EXPECT_EQ(Shown(*pMessage)[1], unLength == 3 ? tBytes(3, 0x42) : tBytes());
    }
}

TEST(MCUpdateMsg, AssignedToItselfItStaysAsItIsAndACopyHasNoViews)
{
    const auto pDeep = FullMessage(enMCUpdateSurface);
    const auto pShallow = NewMessage(true);
    CExactCopy bytes(Hex(c_szGolden));
    *pShallow << bytes.Data();
    const CMCUpdateMsg& deep = *pDeep;
    const CMCUpdateMsg& shallow = *pShallow;
    *pDeep = deep;
    pDeep->CopyToMe(deep);
    *pShallow = shallow;
    EXPECT_EQ(Shown(*pDeep), SomeArrays(0, 6));
    EXPECT_EQ(pDeep->GetUpdateType(), enMCUpdateSurface);
    EXPECT_EQ(Shown(*pShallow)[0], Hex("aabbcc"));
    const auto pCopy = std::make_unique<CMCUpdateMsg>(shallow);
    EXPECT_EQ(Shown(*pCopy), tArrays(7));
    pCopy->SetShallowMode(true);
    EXPECT_EQ(Shown(*pCopy), tArrays(7));
}

TEST(MCUpdateMsg, ArraysOutsideTheLimitsAreRefused)
{
    const auto pMessage = FullMessage();
    const tBytes large(261201, 0x42);
    for (const int nType : {-1, 7, INT_MIN, INT_MAX})
    {
        const unsigned char* pData = large.data();
        int nLength = 5;
        EXPECT_FALSE(pMessage->SetArray(static_cast<tagenPPCMessageType>(nType), large.data(), 1));
        EXPECT_EQ(pMessage->PrepareArray(static_cast<tagenPPCMessageType>(nType), 1), nullptr);
        EXPECT_FALSE(pMessage->GetArray(static_cast<tagenPPCMessageType>(nType), pData, nLength));
        EXPECT_EQ(pData, nullptr);
        EXPECT_EQ(nLength, 0);
    }
    for (const int nLength : {-1, INT_MIN, 261201, INT_MAX})
    {
        EXPECT_FALSE(pMessage->SetArray(enString, large.data(), nLength));
        EXPECT_EQ(pMessage->PrepareArray(enString, nLength), nullptr);
    }
    EXPECT_FALSE(pMessage->SetArray(enString, nullptr, 1));
    EXPECT_EQ(Shown(*pMessage), SomeArrays(0, 6));
    EXPECT_TRUE(pMessage->SetArray(enString, large.data(), 261200));
    EXPECT_EQ(pMessage->GetTotalSize(), 45 + 27 + 261200);
}

TEST(MCUpdateMsg, SerialisesIntoNothingWhereThereIsNoBuffer)
{
    const auto pMessage = FullMessage();
    *pMessage >> nullptr;
    unsigned char* pNone = nullptr;
    *pMessage >> &pNone;
    EXPECT_EQ(pNone, nullptr);
}

TEST(MCUpdateMsg, NegativeLengthsThatLeaveTheHeaderAloneAreSerialisedAsTheHeader)
{
    const auto pMessage = NewMessage();
    ParseTrusted(*pMessage, Hex("00000001 00 00000000 00000002 00000008 fffffffc fffffffc"));
    EXPECT_EQ(pMessage->GetTotalSize(), 17);
    EXPECT_EQ(Serialised(*pMessage), Hex("00000001 00 00000000 00000002 00000000"));
}

TEST(MCUpdateMsg, TheLastFourBytesOfABufferAreALength)
{
    const auto pMessage = NewMessage();
    ParseTrusted(*pMessage, Hex("00000001 00 00000000 00000002 0000000b fffffffd 00000003 aabbcc"));
    EXPECT_EQ(pMessage->GetTotalSize(), 25);
    EXPECT_EQ(Serialised(*pMessage), Hex("00000001 00 00000000 00000002 00000008 fffffffd 00000003"));
}

TEST(MCUpdateMsg, ACopyShowsNoBytesThatDidNotMoveBesideOthersThatDid)
{
    const auto pSource = NewMessage();
    const tBytes large(261200, 0x42);
    pSource->SetUpdateType(enMCUpdateRotary);
    EXPECT_TRUE(pSource->SetArray(enString, large.data(), 261200));
    EXPECT_TRUE(pSource->SetArray(enRotary, large.data(), 1));
    const auto pCopy = std::make_unique<CMCUpdateMsg>(*pSource);
    EXPECT_EQ(Shown(*pCopy), (tArrays{{}, Hex("42"), {}, {}, {}, {}, {}}));
}

TEST(MCUpdateMsg, ALengthOfNothingEmptiesAnArrayWithoutData)
{
    const auto pMessage = FullMessage();
    EXPECT_TRUE(pMessage->SetArray(enRotary, nullptr, 0));
    EXPECT_NE(pMessage->PrepareArray(enSwitch, 0), nullptr);
    tArrays expected = SomeArrays(0, 6);
    expected[1].clear();
    expected[2].clear();
    EXPECT_EQ(Shown(*pMessage), expected);
}

TEST(MCUpdateMsg, ABoundedParseTakesAnUpdateWithAnEmptyArray)
{
    const tBytes update = Hex("00000001 00 00000000 00000001 0000000e 00000002 aabb 00000000 00000001 cc");
    for (const bool bShallow : {false, true})
    {
        const auto pMessage = NewMessage(bShallow);
        CExactCopy bytes(update);
        EXPECT_TRUE(pMessage->Parse(bytes.Data(), bytes.Size()));
        EXPECT_EQ(Error(*pMessage), 0);
        EXPECT_EQ(Shown(*pMessage), (tArrays{{}, {}, Hex("aabb"), {}, {}, {}, {}}));
    }
}

TEST(MCUpdateMsg, AParseWithoutALengthEndsFourMebibytesIn)
{
    tBytes bytes = Hex("00000001 00 00000000 00000002 00000000");
    AppendBig(bytes, 0);
    bytes.resize(16u << 20);
    for (const std::uint32_t unLength : {(4u << 20) - 21, (4u << 20) - 20})
    {
        for (int nByte = 0; nByte < 4; ++nByte)
        {
            bytes[17 + static_cast<std::size_t>(nByte)] = static_cast<unsigned char>(unLength >> (24 - 8 * nByte));
        }
        const auto pMessage = NewMessage(true);
        *pMessage << bytes.data();
        EXPECT_EQ(Shown(*pMessage)[0].size(), unLength == (4u << 20) - 21 ? unLength : 0u);
    }
}
