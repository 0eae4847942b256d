#include "Messages/RawPPCMsg.h"

#include "Support/Records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using Support::Append;
using Support::c_szFloatRecord;
using Support::c_szIntRecord;
using Support::c_szStringRecord;
using Support::Hex;
using Support::SerialisedRecord;
using Support::tBytes;
using testing::ElementsAre;

namespace
{

thread_local bool g_bNoMemory = false;
thread_local int g_nArrays = 0;
thread_local std::size_t g_unLastArray = 0;

} // namespace

// What a message makes its values and buffers with: the usual one, watched, and out of memory where a test wants that.
void* operator new[](std::size_t unSize, const std::nothrow_t&) noexcept
{
    ++g_nArrays;
    g_unLastArray = unSize;
    try
    {
        return g_bNoMemory ? nullptr : ::operator new[](unSize);
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

namespace
{

const char* const c_szOutExceptionLine = "RAWPPCMSG outstream EXCEPTION!!\n";
const char* const c_szInErrorLine = "RAWPPCMSG instream error: failed to copy to local buffer\n";
const char* const c_szInExceptionLine = "RAWPPCMSG instream EXCEPTION!!\n";

const tBytes c_Float = Hex(c_szFloatRecord);
const tBytes c_String = Hex(c_szStringRecord);
const tBytes c_Int = Hex(c_szIntRecord);

// Value lengths that no record has.
const std::uint32_t c_aunNoLengths[] = {0, 0xffffffff, 0xffffffe8, 0xffffffe7, 0xffffffe6, 0x80000000};

// Value lengths that run past four bytes.
const std::uint32_t c_aunForgedLengths[] = {5, 0xffff, 0x7fffffe6, 0x7fffffe7, 0x7fffffff};

// What standard output receives while pAct runs.
template <typename T>
std::string Printed(const T& pAct)
{
    testing::internal::CaptureStdout();
    pAct();
    return testing::internal::GetCapturedStdout();
}

// The same while this thread gets no more arrays.
template <typename T>
std::string PrintedWithoutMemory(const T& pAct)
{
    testing::internal::CaptureStdout();
    g_bNoMemory = true;
    pAct();
    g_bNoMemory = false;
    return testing::internal::GetCapturedStdout();
}

// The bytes in a heap block of exactly their size, so that a read past the end is seen.
std::unique_ptr<unsigned char[]> Exact(const tBytes& bytes)
{
    std::unique_ptr<unsigned char[]> pBlock(new unsigned char[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), pBlock.get());
    return pBlock;
}

tBytes FirstOf(const tBytes& bytes, std::size_t unCount)
{
    return tBytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(unCount));
}

void Read(CRawPPCMsg& message, const tBytes& record)
{
    message << Exact(record).get();
}

bool Parse(CRawPPCMsg& message, const tBytes& bytes)
{
    return message.Parse(Exact(bytes).get(), bytes.size());
}

tBytes Serialised(CRawPPCMsg& message)
{
    unsigned char* pOut = nullptr;
    message >> &pOut;
    const std::unique_ptr<unsigned char[]> pOwned(pOut);
    return pOut != nullptr ? tBytes(pOut, pOut + std::max(message.GetTotalSize(), 25)) : tBytes();
}

// What WriteTo makes of 42 bytes "ee" when it may use the first unRoom.
tBytes Written(const CRawPPCMsg& message, std::size_t unRoom, std::size_t unExpected)
{
    tBytes bytes(42, 0xee);
    EXPECT_EQ(message.WriteTo(bytes.data(), unRoom), unExpected);
    return bytes;
}

tBytes FilledUp(tBytes bytes)
{
    bytes.resize(42, 0xee);
    return bytes;
}

// Flag and code.
typedef std::pair<bool, int> tError;
const tError c_NoError(false, 0);

tError Error(const CRawPPCMsg& message)
{
    int nCode = -1;
    const bool bFlag = message.HaveError(&nCode);
    EXPECT_EQ(bFlag, message.HaveError(nullptr));
    return tError(bFlag, nCode);
}

// Counts how often it was cleared, and does nothing else then.
class CClearCounter : public CRawPPCMsg
{
public:
    void Clear() override { ++nCleared; }

    int nCleared = 0;
};

} // namespace

TEST(RawPPCMsg, IsAPooledMessage)
{
    EXPECT_TRUE((std::is_base_of<MemPool::CMemPoolBase, CRawPPCMsg>::value));
    EXPECT_TRUE(std::has_virtual_destructor<CRawPPCMsg>::value);
    CRawPPCMsg message;
    Read(message, c_Int);
    static_cast<MemPool::CMemPoolBase&>(message).Clear();
    EXPECT_EQ(message.Value(), nullptr);
}

TEST(RawPPCMsg, AFreshOneIsAZeroHeaderWithoutValueOrError)
{
    CRawPPCMsg message;
    EXPECT_EQ(message.GetTotalSize(), 25);
    EXPECT_EQ(message.Value(), nullptr);
    EXPECT_EQ(Error(message), c_NoError);
    EXPECT_EQ(Serialised(message), tBytes(25));
    EXPECT_EQ(Error(message), c_NoError);
}

TEST(RawPPCMsg, StreamsARecordInAndOut)
{
    for (const tBytes& record : {c_Float, c_String, c_Int, SerialisedRecord(3, 1, Hex("5a"))})
    {
        CRawPPCMsg message;
        EXPECT_EQ(Printed([&] { Read(message, record); }), "");
        EXPECT_EQ(message.GetTotalSize(), static_cast<int>(record.size()));
        EXPECT_EQ(tBytes(message.Value(), message.Value() + message.Header().nValueLength),
                  tBytes(record.begin() + 25, record.end()));
        EXPECT_EQ(Serialised(message), record);
        EXPECT_EQ(g_unLastArray, record.size());
        EXPECT_EQ(Serialised(message), record);
        EXPECT_EQ(Error(message), c_NoError);
    }
}

TEST(RawPPCMsg, TakesAnyMarkerFlagAndAddress)
{
    const tBytes record = Hex("deadbeef a5 ffffffff 80000000 7fffffff fffffffe 00000003 112233");
    CRawPPCMsg message;
    Read(message, record);
    EXPECT_EQ(message.Header().unMarker, 0xdeadbeefu);
    EXPECT_EQ(message.Header().ucFlag, 0xa5);
    EXPECT_EQ(message.Header().nMessageType, -1);
    EXPECT_EQ(message.Header().nPathType, INT_MIN);
    EXPECT_EQ(message.Header().nPath, INT_MAX);
    EXPECT_EQ(message.Header().nParameter, -2);
    EXPECT_EQ(message.Header().nValueLength, 3);
    EXPECT_EQ(Serialised(message), record);
}

TEST(RawPPCMsg, ClearFreesTheValueAndKeepsTheHeader)
{
    const tBytes withoutValue = Hex("00000001 00 00000003 00000032 00000001 00000044 00000004 00000000");
    CRawPPCMsg message;
    Read(message, c_Int);
    message.Clear();
    message.Clear();
    EXPECT_EQ(message.Value(), nullptr);
    EXPECT_EQ(message.GetTotalSize(), 29);
    EXPECT_EQ(Serialised(message), withoutValue);
    EXPECT_EQ(Written(message, 29, 29), FilledUp(withoutValue));
    EXPECT_EQ(Error(message), c_NoError);
}

TEST(RawPPCMsg, ANewRecordReplacesTheOldOne)
{
    CRawPPCMsg message;
    Read(message, c_String);
    Read(message, c_Float);
    EXPECT_EQ(Serialised(message), c_Float);
    EXPECT_TRUE(Parse(message, c_String));
    EXPECT_EQ(Serialised(message), c_String);
    EXPECT_TRUE(message.SetPPC(enInteger, 50, 1, 68, -2));
    EXPECT_EQ(Serialised(message), c_Int);
}

TEST(RawPPCMsg, WriteToGivesTheWholeRecordOrNothing)
{
    CRawPPCMsg message;
    Read(message, c_Int);
    for (std::size_t unRoom = 0; unRoom < 29; ++unRoom)
    {
        EXPECT_EQ(Written(message, unRoom, 0), FilledUp(tBytes())) << unRoom;
    }
    EXPECT_EQ(Written(message, 29, 29), FilledUp(c_Int));
    EXPECT_EQ(Written(message, 42, 29), FilledUp(c_Int));
    EXPECT_EQ(message.WriteTo(nullptr, 0), 0u);
    EXPECT_EQ(Error(message), c_NoError);
}

// ---- Errors -------------------------------------------------------------------------------------------------------------------

TEST(RawPPCMsg, NoMemoryToSerialiseIntoIsCodeOneWithoutTheFlag) // which is meant
{
    CRawPPCMsg message;
    Read(message, c_Int);
    unsigned char ucOld = 0;
    unsigned char* pOut = &ucOld;
    EXPECT_EQ(PrintedWithoutMemory([&] { message >> &pOut; }), c_szOutExceptionLine);
    EXPECT_EQ(pOut, nullptr);
    EXPECT_EQ(Error(message), tError(false, 1));
    EXPECT_EQ(Serialised(message), c_Int);
    EXPECT_EQ(Error(message), tError(false, 1));
}

TEST(RawPPCMsg, ARecordWithoutAValueIsCodeTwo)
{
    for (const std::uint32_t unLength : c_aunNoLengths)
    {
        CRawPPCMsg streamed;
        CRawPPCMsg parsed;
        EXPECT_EQ(Printed([&] { Read(streamed, SerialisedRecord(3, unLength)); }), c_szInErrorLine);
        EXPECT_EQ(Printed([&] { EXPECT_FALSE(Parse(parsed, SerialisedRecord(3, unLength))); }), c_szInErrorLine);
        for (const CRawPPCMsg* const pMessage : {&streamed, &parsed})
        {
            EXPECT_EQ(Error(*pMessage), tError(true, 2)) << unLength;
            EXPECT_EQ(pMessage->Value(), nullptr) << unLength;
        }
    }
}

TEST(RawPPCMsg, NoRecordAtAllIsCodeTwo)
{
    const unsigned char* const pNone = nullptr;
    CRawPPCMsg streamed;
    CRawPPCMsg parsed;
    EXPECT_EQ(Printed([&] { streamed << pNone; }), c_szInErrorLine);
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(parsed.Parse(pNone, 100)); }), c_szInErrorLine);
    EXPECT_EQ(Error(streamed), tError(true, 2));
    EXPECT_EQ(Error(parsed), tError(true, 2));
}

TEST(RawPPCMsg, NoMemoryForTheValueIsCodeThree)
{
    const std::unique_ptr<unsigned char[]> pRecord = Exact(c_String);
    CRawPPCMsg streamed;
    CRawPPCMsg parsed;
    CRawPPCMsg made;
    EXPECT_EQ(PrintedWithoutMemory([&] { streamed << pRecord.get(); }), c_szInExceptionLine);
    EXPECT_EQ(PrintedWithoutMemory([&] { EXPECT_FALSE(parsed.Parse(pRecord.get(), 38)); }), c_szInExceptionLine);
    EXPECT_EQ(PrintedWithoutMemory([&] { EXPECT_FALSE(made.SetPPC(enSwitch, 1, 2, 3, 1)); }), c_szInExceptionLine);
    for (const CRawPPCMsg* const pMessage : {&streamed, &parsed, &made})
    {
        EXPECT_EQ(Error(*pMessage), tError(true, 3));
        EXPECT_EQ(pMessage->Value(), nullptr);
    }
}

TEST(RawPPCMsg, OnlyANewMessageIsFreeOfAnError)
{
    CRawPPCMsg good;
    Read(good, c_Int);
    CRawPPCMsg message;
    Read(message, SerialisedRecord(3, 0));
    Read(message, c_Float);
    EXPECT_TRUE(Parse(message, c_Float));
    EXPECT_TRUE(message.SetPPC(enFader, 1, 2, 3, 4.0f));
    message = good;
    EXPECT_EQ(Serialised(message), c_Int);
    message.Clear();
    EXPECT_EQ(Error(message), tError(true, 2));
}

TEST(RawPPCMsg, TheFlagStaysWhateverTheLaterCodeIs)
{
    CRawPPCMsg message;
    const std::unique_ptr<unsigned char[]> pRecord = Exact(c_Int);
    unsigned char* pOut = nullptr;
    PrintedWithoutMemory([&] { message << pRecord.get(); });
    EXPECT_EQ(Error(message), tError(true, 3));
    PrintedWithoutMemory([&] { message >> &pOut; });
    EXPECT_EQ(Error(message), tError(true, 1));
    Read(message, SerialisedRecord(3, 0));
    EXPECT_EQ(Error(message), tError(true, 2));
}

// ---- Lengths that lie ---------------------------------------------------------------------------------------------------------

TEST(RawPPCMsg, AHeaderWithALengthThatNoRecordHasIsSerialisedAlone)
{
    for (const std::uint32_t unLength : c_aunNoLengths)
    {
        const tBytes header = SerialisedRecord(3, unLength);
        CRawPPCMsg message;
        Read(message, header);
        EXPECT_EQ(message.GetTotalSize(), message.Header().nValueLength + 25);
        EXPECT_EQ(Serialised(message), header) << unLength;
        EXPECT_EQ(g_unLastArray, 25u) << unLength;
        EXPECT_EQ(Written(message, 24, 0), FilledUp(tBytes())) << unLength;
        EXPECT_EQ(Written(message, 25, 25), FilledUp(header)) << unLength;
    }
}

TEST(RawPPCMsg, AHeaderThatClaimsTwoGigabytesOverrunsNothing)
{
    for (const std::uint32_t unLength : {0x7fffffe6u, 0x7fffffe7u, 0x7fffffffu})
    {
        const std::unique_ptr<unsigned char[]> pRecord = Exact(SerialisedRecord(3, unLength));
        CRawPPCMsg message;
        unsigned char* pOut = nullptr;
        EXPECT_EQ(PrintedWithoutMemory([&] { message << pRecord.get(); }), c_szInExceptionLine);
        EXPECT_EQ(g_unLastArray, unLength);
        EXPECT_EQ(PrintedWithoutMemory([&] { message >> &pOut; }), c_szOutExceptionLine);
        EXPECT_EQ(g_unLastArray, unLength + std::size_t{25});
        EXPECT_EQ(pOut, nullptr);
        EXPECT_EQ(Written(message, 42, 0), FilledUp(tBytes()));
    }
}

TEST(RawPPCMsg, ParseTakesTheFirstOfManyRecords)
{
    CRawPPCMsg message;
    EXPECT_TRUE(Parse(message, Hex(c_szFloatRecord + std::string(c_szStringRecord))));
    EXPECT_EQ(Serialised(message), c_Float);
    EXPECT_EQ(Error(message), c_NoError);
}

TEST(RawPPCMsg, ParseTakesARecordThatLiesInItsOwnValue)
{
    CRawPPCMsg message;
    EXPECT_TRUE(Parse(message, SerialisedRecord(3, 38, c_String)));
    EXPECT_TRUE(message.Parse(message.Value(), 38));
    EXPECT_EQ(Serialised(message), c_String);
}

TEST(RawPPCMsg, ParseRefusesARecordThatIsCutAnywhere)
{
    for (std::size_t unCut = 0; unCut < c_String.size(); ++unCut)
    {
        CRawPPCMsg message;
        EXPECT_EQ(Printed([&] { EXPECT_FALSE(Parse(message, FirstOf(c_String, unCut))); }), c_szInErrorLine) << unCut;
        EXPECT_EQ(Error(message), tError(true, 2)) << unCut;
        EXPECT_EQ(message.Value(), nullptr) << unCut;
    }
}

TEST(RawPPCMsg, ParseSeesAForgedLengthBeforeItAllocates)
{
    for (const std::uint32_t unLength : c_aunForgedLengths)
    {
        CRawPPCMsg message;
        const int nBefore = g_nArrays;
        EXPECT_FALSE(Parse(message, SerialisedRecord(3, unLength, Hex("00000001")))) << unLength;
        EXPECT_EQ(g_nArrays, nBefore) << unLength;
        EXPECT_EQ(Error(message), tError(true, 2)) << unLength;
    }
}

TEST(RawPPCMsg, ARefusedRecordLeavesNoValueOfTheOneBefore)
{
    for (const tBytes& bad : {Hex("0000"), SerialisedRecord(3, 0), SerialisedRecord(3, 14, Hex("00000001")),
                              SerialisedRecord(3, 0xffffffff, Hex("00"))})
    {
        CRawPPCMsg message;
        Read(message, c_Int);
        EXPECT_FALSE(Parse(message, bad));
        EXPECT_EQ(message.Value(), nullptr);
        const tBytes out = Serialised(message);
        EXPECT_EQ(tBytes(out.begin() + 25, out.end()), tBytes(out.size() - 25));
    }
}

// ---- Copies -------------------------------------------------------------------------------------------------------------------

TEST(RawPPCMsgCopy, HasItsOwnValue)
{
    CRawPPCMsg original;
    CRawPPCMsg assigned;
    CRawPPCMsg copied;
    Read(original, c_String);
    Read(assigned, c_Int);
    CRawPPCMsg constructed(original);
    EXPECT_EQ(&(assigned = original), &assigned);
    copied.CopyToMe(original);
    Read(original, c_Float);
    for (CRawPPCMsg* const pMessage : {&constructed, &assigned, &copied})
    {
        EXPECT_EQ(Serialised(*pMessage), c_String);
        EXPECT_EQ(Error(*pMessage), c_NoError);
    }
}

TEST(RawPPCMsgCopy, DoesNotTakeTheError)
{
    CRawPPCMsg bad;
    Read(bad, SerialisedRecord(3, 0));
    Read(bad, c_Int);
    const CRawPPCMsg copy(bad);
    EXPECT_EQ(Error(bad), tError(true, 2));
    EXPECT_EQ(Error(copy), c_NoError);
}

TEST(RawPPCMsgCopy, OfNoValueTakesTheHeaderAndIsCodeTwo)
{
    CRawPPCMsg fresh;
    CRawPPCMsg cleared;
    Read(cleared, c_String);
    cleared.Clear();
    for (CRawPPCMsg* const pSource : {&fresh, &cleared})
    {
        CRawPPCMsg message;
        Read(message, c_Int);
        EXPECT_EQ(Printed([&] { message = *pSource; }), c_szInErrorLine);
        EXPECT_EQ(Error(message), tError(true, 2));
        EXPECT_EQ(message.Value(), nullptr);
        EXPECT_EQ(Serialised(message), Serialised(*pSource));
        EXPECT_EQ(Printed([&] { EXPECT_EQ(Error(CRawPPCMsg(*pSource)), tError(true, 2)); }), c_szInErrorLine);
        EXPECT_EQ(Error(*pSource), c_NoError);
    }
}

TEST(RawPPCMsgCopy, WithoutMemoryIsCodeThreeAndHasNoValue)
{
    CRawPPCMsg good;
    CRawPPCMsg message;
    Read(good, c_String);
    Read(message, c_Int);
    EXPECT_EQ(PrintedWithoutMemory([&] { message = good; }), c_szInExceptionLine);
    EXPECT_EQ(Error(message), tError(true, 3));
    EXPECT_EQ(message.Value(), nullptr);
}

TEST(RawPPCMsgCopy, ToItselfLeavesAMessageAsItIs)
{
    CRawPPCMsg full;
    CRawPPCMsg fresh;
    Read(full, c_String);
    for (CRawPPCMsg* const pMessage : {&full, &fresh})
    {
        const tBytes before = Serialised(*pMessage);
        EXPECT_EQ(Printed([&] { pMessage->CopyToMe(*pMessage); }), "");
        EXPECT_EQ(Printed([&] { *pMessage = *static_cast<const CRawPPCMsg*>(pMessage); }), "");
        EXPECT_EQ(Serialised(*pMessage), before);
        EXPECT_EQ(Error(*pMessage), c_NoError);
    }
}

TEST(RawPPCMsgCopy, CallsTheTargetsClearAndFreesTheValueWhateverThatDoes)
{
    CRawPPCMsg good;
    Read(good, c_String);
    CClearCounter message;
    message.CopyToMe(good);
    EXPECT_EQ(message.nCleared, 1);
    EXPECT_EQ(Serialised(message), c_String);
    message.CopyToMe(CRawPPCMsg());
    EXPECT_EQ(message.nCleared, 2);
    EXPECT_EQ(message.Value(), nullptr);
}

// ---- Records made from values -------------------------------------------------------------------------------------------------

TEST(RawPPCMsg, MakesTheRecordOfAFloat)
{
    typedef std::numeric_limits<float> tLimits;
    const struct
    {
        tagenPPCMessageType enType;
        float fValue;
        const char* szRecord;
    } aCases[] = {{enRotary, -0.75f, "00000001 00 00000001 01020304 ffffffff 80000000 00000004 bf400000"},
                  {enFader, 0.1f, "00000001 00 00000004 01020304 ffffffff 80000000 00000004 3dcccccd"},
                  {enFader, -0.0f, "00000001 00 00000004 01020304 ffffffff 80000000 00000004 80000000"},
                  {enRotary, -tLimits::infinity(), "00000001 00 00000001 01020304 ffffffff 80000000 00000004 ff800000"},
                  {enRotary, tLimits::denorm_min(), "00000001 00 00000001 01020304 ffffffff 80000000 00000004 00000001"}};
    for (const auto& stCase : aCases)
    {
        CRawPPCMsg message;
        EXPECT_TRUE(message.SetPPC(stCase.enType, 0x01020304, -1, INT_MIN, stCase.fValue));
        EXPECT_EQ(Serialised(message), Hex(stCase.szRecord));
    }
}

TEST(RawPPCMsg, MakesTheRecordOfAnInt)
{
    const struct
    {
        tagenPPCMessageType enType;
        int nValue;
        const char* szRecord;
    } aCases[] = {{enSwitch, 1, "00000001 00 00000002 00000032 00000001 00000044 00000004 00000001"},
                  {enInteger, -2, "00000001 00 00000003 00000032 00000001 00000044 00000004 fffffffe"},
                  {enOther, INT_MIN, "00000001 00 00000005 00000032 00000001 00000044 00000004 80000000"},
                  {enMeter, 0xfe, "00000001 00 00000006 00000032 00000001 00000044 00000004 000000fe"}};
    for (const auto& stCase : aCases)
    {
        CRawPPCMsg message;
        EXPECT_TRUE(message.SetPPC(stCase.enType, 50, 1, 68, stCase.nValue));
        EXPECT_EQ(Serialised(message), Hex(stCase.szRecord));
    }
}

TEST(RawPPCMsg, MakesTheRecordOfAString)
{
    CRawPPCMsg message;
    EXPECT_TRUE(message.SetPPC(enString, 1, 143, 1, RyGConsoleString("Kick In")));
    EXPECT_EQ(Serialised(message), c_String);
    EXPECT_TRUE(message.SetPPC(enString, 1, 143, 1, RyGConsoleString("twelve chars and more")));
    EXPECT_EQ(Serialised(message), Hex("00000001 00 00000000 00000001 0000008f 00000001 0000000d 7477656c7665206368617273 00"));
}

TEST(RawPPCMsg, RefusesAValueOfAnotherTypeAndStaysAsItIs)
{
    CRawPPCMsg message;
    EXPECT_TRUE(message.SetPPC(enInteger, 50, 1, 68, -2));
    for (const tagenPPCMessageType enType : {enString, enSwitch, enInteger, enOther, enMeter})
    {
        EXPECT_FALSE(message.SetPPC(enType, 1, 2, 3, 4.0f)) << enType;
    }
    for (const tagenPPCMessageType enType : {enString, enRotary, enFader})
    {
        EXPECT_FALSE(message.SetPPC(enType, 1, 2, 3, 4)) << enType;
    }
    for (const tagenPPCMessageType enType : {enRotary, enSwitch, enInteger, enFader, enOther, enMeter})
    {
        EXPECT_FALSE(message.SetPPC(enType, 1, 2, 3, RyGConsoleString("no"))) << enType;
    }
    for (const int nType : {INT_MIN, -1, 7, 32, INT_MAX})
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        EXPECT_FALSE(message.SetPPC(enType, 1, 2, 3, 4.0f)) << nType;
        EXPECT_FALSE(message.SetPPC(enType, 1, 2, 3, 4)) << nType;
        EXPECT_FALSE(message.SetPPC(enType, 1, 2, 3, RyGConsoleString("no"))) << nType;
    }
    EXPECT_EQ(Serialised(message), c_Int);
    EXPECT_EQ(Error(message), c_NoError);
}

TEST(ValidatePPC, LooksAtTheMarkerAlone)
{
    EXPECT_TRUE(CRawPPCMsg::ValidatePPC(Exact(Hex("00000001")).get()));
    EXPECT_TRUE(CRawPPCMsg::ValidatePPC(Exact(SerialisedRecord(9, 0)).get()));
    EXPECT_FALSE(CRawPPCMsg::ValidatePPC(nullptr));
    for (const char* const szMarker : {"00000002", "00000000", "01000000", "80000001", "00010001", "00000101", "ffffffff"})
    {
        EXPECT_FALSE(CRawPPCMsg::ValidatePPC(Exact(Hex(szMarker)).get())) << szMarker;
    }
}

// ---- Counting a stream --------------------------------------------------------------------------------------------------------

namespace
{

typedef std::vector<unsigned long> tCounts;

bool Analyse(const unsigned char* pStream, std::size_t unLength, tCounts& counts)
{
    counts.assign(7, 99);
    return CRawPPCMsg::AnalyseStream(pStream, static_cast<unsigned long>(unLength), counts[0], counts[1], counts[2], counts[3],
                                     counts[4], counts[5], counts[6]);
}

bool Analyse(const tBytes& stream, tCounts& counts)
{
    return Analyse(Exact(stream).get(), stream.size(), counts);
}

} // namespace

TEST(AnalyseStream, AnEmptyStreamIsGoodAndCountsNothing)
{
    tCounts counts;
    EXPECT_TRUE(Analyse(tBytes(), counts));
    EXPECT_THAT(counts, ElementsAre(0, 0, 0, 0, 0, 0, 0));
    EXPECT_TRUE(Analyse(nullptr, 0, counts));
    EXPECT_FALSE(Analyse(nullptr, 29, counts));
    EXPECT_THAT(counts, ElementsAre(0, 0, 0, 0, 0, 0, 0));
}

TEST(AnalyseStream, CountsEachTypeInItsOwnCounterWhateverTheMarker)
{
    tBytes stream;
    for (std::uint32_t unType = 0; unType < 7; ++unType)
    {
        for (std::uint32_t un = 0; un <= unType; ++un)
        {
            Append(stream, SerialisedRecord(unType, un + 1, tBytes(un + 1, 0xff), un));
        }
    }
    tCounts counts;
    EXPECT_TRUE(Analyse(stream, counts));
    EXPECT_THAT(counts, ElementsAre(1, 2, 3, 4, 5, 6, 7));
}

TEST(AnalyseStream, PassesOverATypeItDoesNotKnow)
{
    for (const std::uint32_t unType : {7u, 9u, 0x01000000u, 0x7fffffffu, 0x80000000u, 0xffffffffu})
    {
        tBytes stream = c_String;
        Append(stream, SerialisedRecord(unType, 5, Hex("0102030405")));
        Append(stream, c_Int);
        tCounts counts;
        EXPECT_TRUE(Analyse(stream, counts)) << unType;
        EXPECT_THAT(counts, ElementsAre(1, 0, 0, 1, 0, 0, 0)) << unType;
    }
}

TEST(AnalyseStream, StopsAtALengthOfNothingOrLessThoughRecordsRemain)
{
    for (const std::uint32_t unLength : c_aunNoLengths)
    {
        tBytes stream = c_Float;
        Append(stream, SerialisedRecord(5, unLength, Hex("00000001")));
        Append(stream, c_Int);
        tCounts counts;
        EXPECT_FALSE(Analyse(stream, counts)) << unLength;
        EXPECT_THAT(counts, ElementsAre(0, 1, 0, 0, 0, 0, 0)) << unLength;
    }
}

TEST(AnalyseStream, CountsALastRecordWhoseValueRunsPastTheEnd)
{
    for (const std::uint32_t unLength : c_aunForgedLengths)
    {
        tBytes stream = c_Float;
        Append(stream, SerialisedRecord(5, unLength, Hex("00000001")));
        tCounts counts;
        EXPECT_TRUE(Analyse(stream, counts)) << unLength;
        EXPECT_THAT(counts, ElementsAre(0, 1, 0, 0, 0, 1, 0)) << unLength;
    }
}

TEST(AnalyseStream, ACutIsBadWhereLessThanAHeaderIsLeft)
{
    const tBytes stream = Hex(c_szFloatRecord + std::string(c_szStringRecord) + c_szIntRecord);
    ASSERT_EQ(stream.size(), 96u);
    for (std::size_t unCut = 0; unCut <= stream.size(); ++unCut)
    {
        tCounts counts;
        const bool bGood = Analyse(FirstOf(stream, unCut), counts);
        EXPECT_THAT(counts, ElementsAre(unCut >= 29 + 25, unCut >= 25, 0, unCut >= 67 + 25, 0, 0, 0)) << unCut;
        const std::size_t unLeft = unCut < 29 ? unCut : unCut < 67 ? unCut - 29 : unCut - 67;
        EXPECT_EQ(bGood, unLeft == 0 || unLeft >= 25) << unCut;
    }
}

// Rows of records that are alike, as channels send them, of every length up to more than are looked at together.
TEST(AnalyseStream, RowsCountAsTheirRecordsDo)
{
    const std::pair<std::uint32_t, std::uint32_t> aKinds[] = {{1, 4}, {4, 4}, {0, 13}, {1, 13}, {9, 4}}; // type, length
    for (std::size_t unRow = 0; unRow <= 11; ++unRow)
    {
        for (const auto& first : aKinds)
        {
            for (const auto& second : aKinds)
            {
                tBytes stream;
                tCounts expected(10, 0);
                const auto append = [&](const std::pair<std::uint32_t, std::uint32_t>& kind)
                {
                    Append(stream, SerialisedRecord(kind.first, kind.second, tBytes(kind.second, 0x42)));
                    ++expected[kind.first];
                };
                for (std::size_t un = 0; un < unRow; ++un)
                {
                    append(first);
                }
                append(second);
                append(first);
                expected.resize(7);
                tCounts counts;
                EXPECT_TRUE(Analyse(stream, counts));
                EXPECT_EQ(counts, expected) << unRow << " of type " << first.first << ", then " << second.first;
            }
        }
    }
}

TEST(AnalyseStream, ARowIsCountedUpToWhereverItIsCut)
{
    tBytes stream;
    for (int nRecord = 0; nRecord < 12; ++nRecord)
    {
        Append(stream, c_Float);
    }
    for (std::size_t unCut = 0; unCut <= stream.size(); ++unCut)
    {
        tCounts counts;
        const bool bGood = Analyse(FirstOf(stream, unCut), counts);
        EXPECT_THAT(counts, ElementsAre(0, (unCut + 4) / 29, 0, 0, 0, 0, 0)) << unCut;
        EXPECT_EQ(bGood, unCut % 29 == 0 || unCut % 29 >= 25) << unCut;
    }
}

TEST(RawPPCMsg, ARecordCutBehindItsHeaderLeavesTheHeader)
{
    CRawPPCMsg message;
    EXPECT_FALSE(Parse(message, FirstOf(c_String, 25)));
    EXPECT_EQ(message.Header().nValueLength, 13);
    EXPECT_EQ(message.GetTotalSize(), 38);
}

TEST(RawPPCMsgCopy, TakesAValueOfOneByte)
{
    CRawPPCMsg source;
    const tBytes record = SerialisedRecord(6, 1, Hex("7f"));
    ASSERT_TRUE(Parse(source, record));
    CRawPPCMsg copy(source);
    EXPECT_EQ(Error(copy), tError(false, 0));
    EXPECT_EQ(Serialised(copy), record);
}
