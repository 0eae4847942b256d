#include "LogicalControls/ScopeMask.h"

#include "Support/Blocks.h"
#include "Support/Locales.h"
#include "Support/Records.h"
#include "Support/SystemCalls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <locale>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace
{

using Support::c_nBehind;
using Support::FlagRecord;
using Support::Hex;
using Support::tBytes;
typedef std::vector<stPPCWithSI> tRecords;
typedef std::vector<tBytes> tFlags; // by message type: the block and what lies behind it

constexpr int c_anFlags[] = {3151, 65300, 138696, 14856, 2765, 673, 15898};
constexpr int c_anFlagBytes[] = {394, 8163, 17338, 1858, 346, 85, 1988};

tagenPPCMessageType Type(int nType)
{
    return static_cast<tagenPPCMessageType>(nType);
}

tagenVirtualPathType Path(int nPathType)
{
    return static_cast<tagenVirtualPathType>(nPathType);
}

int Params(int nType, int nPathType)
{
    return canMaxParams[nPathType * 7 + nType];
}

unsigned char* Memory(CCBMAContainerScopeMask& mask, int nType)
{
    void* pMemory = nullptr;
    long lBytes = -1;
    mask.GetMessageMemory(Type(nType), pMemory, lBytes);
    EXPECT_EQ(c_anFlagBytes[nType], lBytes);
    return static_cast<unsigned char*>(pMemory);
}

tFlags Flags(CCBMAContainerScopeMask& mask)
{
    tFlags flags;
    for (int nType = 0; nType < 7; ++nType)
    {
        flags.emplace_back(Memory(mask, nType), Memory(mask, nType) + c_anFlagBytes[nType] + c_nBehind);
    }
    return flags;
}

// Random bytes, behind the flags as well.
tFlags Scramble(CCBMAContainerScopeMask& mask, unsigned int unSeed)
{
    std::mt19937 random(unSeed);
    for (int nType = 0; nType < 7; ++nType)
    {
        for (int nByte = 0; nByte < c_anFlagBytes[nType] + c_nBehind; ++nByte)
        {
            Memory(mask, nType)[nByte] = static_cast<unsigned char>(random());
        }
    }
    return Flags(mask);
}

void SetBit(tFlags& flags, int nType, std::int64_t nIndex, bool bValue)
{
    unsigned char& ucByte = flags[static_cast<std::size_t>(nType)][static_cast<std::size_t>(nIndex / 8)];
    ucByte = static_cast<unsigned char>(bValue ? ucByte | 1 << nIndex % 8 : ucByte & ~(1 << nIndex % 8));
}

int Write(CCBMAContainerScopeMask& mask, tRecords records)
{
    return mask.BlockWrite(records.data(), static_cast<int>(records.size()));
}

// What a block write has to make of the flags, in arithmetic that nothing overflows.
void WriteModel(tFlags& flags, const tRecords& records)
{
    bool bFound = false;
    int nType = 0;
    std::int64_t nBase = 0;
    const stPPCWithSI* pLast = nullptr;
    for (const stPPCWithSI& record : records)
    {
        const bool bContiguous = pLast != nullptr && record.nPath == pLast->nPath && record.enPathType == pLast->enPathType &&
                                 record.enMessageType == pLast->enMessageType;
        pLast = &record;
        if (!bContiguous && record.enPathType < 51)
        {
            nType = record.enMessageType;
            bFound = nType >= 0 && nType < 7 && record.enPathType >= 0;
            nBase = 0;
            for (int nPathType = 0; bFound && nPathType < record.enPathType; ++nPathType)
            {
                nBase += canMaxPaths[nPathType] * Params(nType, nPathType);
            }
            nBase += bFound ? std::int64_t(record.nPath) * Params(nType, record.enPathType) : 0;
        }
        const std::int64_t nIndex = nBase + record.nParameter;
        if (bFound && nIndex >= 0 && nIndex < c_anFlags[nType])
        {
            SetBit(flags, nType, nIndex, record.value.nValue != 0);
        }
    }
}

template <class Call>
void ForEachFlag(Call call)
{
    for (int nType = 0; nType < 7; ++nType)
    {
        for (int nPathType = 0; nPathType < 51; ++nPathType)
        {
            for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
            {
                for (int nParam = 0; nParam < Params(nType, nPathType); ++nParam)
                {
                    call(nType, nPathType, nPath, nParam);
                }
            }
        }
    }
}

// Assigns record by record, at most 100 of one message type at a time.
void AssignByRecords(CCBMAContainerScopeMask& mask, int nValue)
{
    tRecords batch;
    ForEachFlag(
        [&](int nType, int nPathType, int nPath, int nParam)
        {
            if (batch.size() == 100 || (!batch.empty() && batch.back().enMessageType != nType))
            {
                Write(mask, batch);
                batch.clear();
            }
            batch.push_back(FlagRecord(nType, nPathType, nPath, nParam, nValue));
        });
    Write(mask, batch);
}

class ScopeMask : public testing::Test
{
protected:
    void ExpectWrites(const tRecords& records)
    {
        WriteModel(m_Expected, records);
        EXPECT_EQ(1, Write(m_Mask, records));
        EXPECT_TRUE(m_Expected == Flags(m_Mask));
    }

    const std::unique_ptr<CCBMAContainerScopeMask> m_pMask = std::make_unique<CCBMAContainerScopeMask>();
    CCBMAContainerScopeMask& m_Mask = *m_pMask;
    tFlags m_Expected = Flags(m_Mask);
};

// Standard output's stream as it was.
class CStreamKeeper
{
public:
    CStreamKeeper() : m_Before(nullptr), m_Global() { m_Before.copyfmt(std::cout); }
    ~CStreamKeeper()
    {
        std::cout.copyfmt(m_Before);
        std::locale::global(m_Global);
    }

private:
    std::ios m_Before;
    std::locale m_Global;
};

std::string Dump(const CCBMAContainerScopeMask& mask)
{
    testing::internal::CaptureStdout();
    mask.DumpMasks();
    return testing::internal::GetCapturedStdout();
}

// The labels are not those of the types below them: that is how the dump looks.
std::string ExpectedDump(const tFlags& flags)
{
    static const struct
    {
        const char* szLabel;
        std::size_t unType;
        std::size_t unLines;
    } aSections[] = {{"  Rotaries\n", 2, 867}, {"  Integer\n", 3, 93}, {"  Fader\n", 4, 18},
                     {"  String\n", 0, 20},    {"  Meter\n", 6, 100},  {"  Other\n", 5, 5}};
    std::string strDump = "[CCBMAContainerScopeMask::DumpMasks] START\n";
    for (const auto& section : aSections)
    {
        strDump += section.szLabel;
        for (std::size_t unByte = 0; unByte < section.unLines * 20; ++unByte)
        {
            char acByte[8];
            std::snprintf(acByte, sizeof acByte, "%4x ", static_cast<unsigned int>(flags[section.unType][unByte]));
            strDump += (unByte % 20 == 0 ? "\t" : "") + std::string(acByte) + (unByte % 20 == 19 ? "\n" : "");
        }
        strDump += "\n\n";
    }
    return strDump + "[CCBMAContainerScopeMask::DumpMasks] END\n";
}

} // namespace

// ---- All flags ----------------------------------------------------------------------------------------------------------------

TEST_F(ScopeMask, StartsClearWhateverTheMemoryHeld)
{
    const Support::CDirtyMemory dirty;
    CCBMAContainerScopeMask mask;
    const tFlags flags = Flags(mask);
    for (std::size_t unType = 0; unType < 7; ++unType)
    {
        EXPECT_EQ(tBytes(static_cast<std::size_t>(c_anFlagBytes[unType] + c_nBehind)), flags[unType]);
    }
}

TEST_F(ScopeMask, HasNoBlockOfATypeThatDoesNotExist)
{
    for (const int nType : {INT_MIN, -1, 7, INT_MAX})
    {
        void* pMemory = this;
        long lBytes = 77;
        m_Mask.GetMessageMemory(Type(nType), pMemory, lBytes);
        EXPECT_TRUE(pMemory == nullptr && lBytes == 0) << nType;
    }
}

TEST_F(ScopeMask, AssignsEveryFlag)
{
    for (const int nValue : {1, 0, 5, 0, -1, 0, INT_MIN, 0, 256, 0})
    {
        EXPECT_EQ(1, m_Mask.BlockAssign(nValue));
        int nCount = 0;
        ForEachFlag(
            [&](int nType, int nPathType, int nPath, int nParam)
            {
                int nRead = 77;
                m_Mask.GetFlag(Type(nType), Path(nPathType), nPath, nParam, nRead);
                nCount += nRead;
            });
        EXPECT_EQ(nValue != 0 ? 241339 : 0, nCount) << nValue;
    }
}

TEST_F(ScopeMask, AssignsTheBitsThatAreFlagsAndNoOthers)
{
    static const char* const aszLastBytes[] = {"ff 7f 00", "ff 0f 00", "ff 00 00", "ff 00 00", "ff 1f 00", "ff 01 00", "ff 03 00"};
    m_Mask.BlockAssign(1);
    for (int nType = 0; nType < 7; ++nType)
    {
        const unsigned char* pFlags = Memory(m_Mask, nType);
        const unsigned char* pEnd = pFlags + c_anFlagBytes[nType];
        EXPECT_EQ(Hex(aszLastBytes[nType]), tBytes(pEnd - 2, pEnd + 1)) << nType;
        EXPECT_EQ(tBytes(static_cast<std::size_t>(c_anFlagBytes[nType] - 1), 0xff), tBytes(pFlags, pEnd - 1)) << nType;
    }
}

TEST_F(ScopeMask, AssignsWhatItsRecordsWouldAssign)
{
    CCBMAContainerScopeMask walked;
    for (const int nValue : {0, 1, 256, INT_MIN})
    {
        EXPECT_EQ(Scramble(m_Mask, 23), Scramble(walked, 23));
        AssignByRecords(walked, nValue);
        m_Mask.BlockAssign(nValue);
        EXPECT_TRUE(Flags(walked) == Flags(m_Mask)) << nValue;
    }
    Scramble(m_Mask, 24);
    Scramble(walked, 24);
    AssignByRecords(walked, 0);
    m_Mask.Reset();
    EXPECT_TRUE(Flags(walked) == Flags(m_Mask));
}

TEST_F(ScopeMask, CopyHasItsFlagsAndIsItsOwn)
{
    const tFlags before = Scramble(m_Mask, 25);
    const CCBMAContainerScopeMask& original = m_Mask;
    CCBMAContainerScopeMask copy(original);
    CCBMAContainerScopeMask assigned;
    m_Expected = Scramble(assigned, 26);
    EXPECT_EQ(&assigned, &(assigned = original));
    EXPECT_TRUE(before == Flags(m_Mask));
    m_Mask.BlockAssign(0);
    CCBMAContainerScopeMask empty;
    tFlags fresh = Flags(empty);
    for (std::size_t unType = 0; unType < 7; ++unType)
    {
        const long lCopied = (c_anFlags[unType] + 7) / 8; // a spare byte stays behind
        std::copy_n(before[unType].begin(), lCopied, fresh[unType].begin());
        std::copy_n(before[unType].begin(), lCopied, m_Expected[unType].begin());
    }
    EXPECT_TRUE(fresh == Flags(copy));
    EXPECT_TRUE(m_Expected == Flags(assigned));
}

TEST_F(ScopeMask, AssignedToItselfStaysAsItIs)
{
    m_Expected = Scramble(m_Mask, 27);
    const CCBMAContainerScopeMask& itself = m_Mask;
    EXPECT_EQ(&m_Mask, &(m_Mask = itself));
    EXPECT_TRUE(m_Expected == Flags(m_Mask));
}

TEST_F(ScopeMask, ReadsAndWritesOneFlag)
{
    static const int aanOutside[][4] = {{-1, 1, 0, 0}, {7, 1, 0, 0},  {2, -1, 0, 0},      {2, 51, 0, 0},
                                        {2, 0, 0, -1}, {2, 50, 2, 0}, {2, 1, INT_MIN, 0}, {2, 1, 0, INT_MAX}};
    int nRead = 77;
    for (const int nValue : {5, 0, INT_MIN})
    {
        m_Mask.SetFlag(enSwitch, enMicInput, 0, 10, nValue);
        m_Mask.GetFlag(enSwitch, enMicInput, 0, 10, nRead);
        EXPECT_EQ(nValue != 0, nRead) << nValue;
    }
    m_Expected[2][32] = 0x04;
    for (const auto& an : aanOutside)
    {
        nRead = 77;
        m_Mask.SetFlag(Type(an[0]), Path(an[1]), an[2], an[3], 1);
        m_Mask.GetFlag(Type(an[0]), Path(an[1]), an[2], an[3], nRead);
        EXPECT_EQ(77, nRead);
    }
    EXPECT_TRUE(m_Expected == Flags(m_Mask));
}

// ---- Block writes -------------------------------------------------------------------------------------------------------------

TEST_F(ScopeMask, WritesTheFlagOfEachRecordByItsIntegerValue)
{
    EXPECT_EQ(1, Write(m_Mask, {FlagRecord(2, 1, 0, 0), FlagRecord(2, 1, 0, 7, 5), FlagRecord(2, 1, 0, 3, INT_MIN),
                                FlagRecord(2, 1, 0, 9, 256), FlagRecord(2, 1, 1, 0), FlagRecord(0, 1, 0, 1),
                                FlagRecord(6, 50, 1, 63), FlagRecord(5, 50, 1, 0)}));
    m_Expected[2][31] = 0x89;
    m_Expected[2][32] = 0x02;
    m_Expected[2][103] = 0x01;
    m_Expected[0][9] = 0x10;
    m_Expected[6][1987] = 0x02;
    m_Expected[5][84] = 0x01;
    EXPECT_TRUE(m_Expected == Flags(m_Mask));
    EXPECT_EQ(1, Write(m_Mask, {FlagRecord(2, 1, 0, 7, 0), FlagRecord(2, 1, 0, 9, 0), FlagRecord(5, 50, 1, 0, 0),
                                FlagRecord(2, 1, 0, 9, 0)}));
    m_Expected[2][31] = 0x09;
    m_Expected[2][32] = m_Expected[5][84] = 0x00;
    EXPECT_TRUE(m_Expected == Flags(m_Mask));
}

TEST_F(ScopeMask, PathTypesFrom51OnUseTheLastPosition)
{
    Write(m_Mask, {FlagRecord(2, 1, 0, 0), FlagRecord(2, 51, 0, 1), FlagRecord(2, 51, 0, 2), FlagRecord(-1, 52, 9, 3),
                   FlagRecord(7, INT_MAX, -5, 4), FlagRecord(3, 51, 1, 5), FlagRecord(4, 50, 1, 0), FlagRecord(2, 51, 1, -1)});
    m_Expected[2][31] = 0x3f;
    m_Expected[4][345] = 0x18;
    EXPECT_TRUE(m_Expected == Flags(m_Mask));
}

TEST_F(ScopeMask, FirstRecordsWithoutAPositionAreSkipped)
{
    for (const int nPathType : {51, 52, INT_MAX, -1, INT_MIN})
    {
        Write(m_Mask, {FlagRecord(2, 1, 0, 0), FlagRecord(2, 1, 0, 0, 0)}); // counts for nothing in the next
        Write(m_Mask, {FlagRecord(2, nPathType, 0, 0), FlagRecord(2, nPathType, 0, 1), FlagRecord(3, 51, 0, 2),
                       FlagRecord(2, 1, 0, 3), FlagRecord(2, 1, 0, 3, 0)});
        EXPECT_TRUE(m_Expected == Flags(m_Mask)) << nPathType;
    }
}

TEST_F(ScopeMask, AddressesWithoutFlagsAreSkippedUntilThereIsAPosition)
{
    static const int aanNowhere[][2] = {{7, 1}, {INT_MAX, 0}, {-1, 1}, {INT_MIN, 50}, {2, -1}, {2, INT_MIN}, {7, -1}, {-1, -1}};
    for (const auto& an : aanNowhere)
    {
        Write(m_Mask, {FlagRecord(2, 1, 0, 0), FlagRecord(an[0], an[1], 0, 1), FlagRecord(an[0], an[1], 0, 2),
                       FlagRecord(2, 51, 0, 3), FlagRecord(2, 1, 0, 4)});
        m_Expected[2][31] = 0x11;
        EXPECT_TRUE(m_Expected == Flags(m_Mask)) << an[0] << " " << an[1];
    }
}

TEST_F(ScopeMask, WritesNothingWithoutRecords)
{
    m_Expected = Scramble(m_Mask, 28);
    stPPCWithSI record = FlagRecord(2, 1, 0, 0);
    for (const int nCount : {INT_MIN, -1, 0})
    {
        for (const int nValue : {0, 1})
        {
            record.value.nValue = nValue;
            EXPECT_EQ(1, m_Mask.BlockWrite(&record, nCount));
        }
        EXPECT_EQ(1, m_Mask.BlockWrite(nullptr, nCount));
    }
    EXPECT_EQ(1, m_Mask.BlockWrite(nullptr, 1));
    EXPECT_EQ(1, m_Mask.BlockWrite(nullptr, INT_MAX));
    EXPECT_TRUE(m_Expected == Flags(m_Mask));
}

TEST_F(ScopeMask, AddressBesideItsPathIsANeighboursFlag)
{
    Write(m_Mask, {FlagRecord(2, 1, 0, 576), FlagRecord(2, 1, 0, -1), FlagRecord(2, 1, -1, 584), FlagRecord(2, 50, 1, -8),
                   FlagRecord(4, 0, 0, 1)});
    m_Expected[2][103] = 0x01;   // path 1, parameter 0
    m_Expected[2][30] = 0x80;    // the last of the globals
    m_Expected[2][32] = 0x01;    // path 0, parameter 8
    m_Expected[2][17335] = 0x01; // path 0, parameter 0
    m_Expected[4][0] = 0x02;     // mic input 0, parameter 0
    EXPECT_TRUE(m_Expected == Flags(m_Mask));

    Write(m_Mask, {FlagRecord(2, 1, -3728270, 2147483536), FlagRecord(0, 1, 1 << 30, INT_MIN)});
    m_Expected[2][33] = 0x01; // path 0, parameter 16
    m_Expected[0][9] = 0x08;  // mic input 0, parameter 0
    EXPECT_TRUE(m_Expected == Flags(m_Mask));
}

// Products and sums that would come back into the block in 32 bits: 576 times 2^26 is 9 times 2^32.
TEST_F(ScopeMask, AddressOutsideTheBlockTouchesNothing)
{
    const tRecords outside = {FlagRecord(2, 1, 1 << 26, 5),  FlagRecord(2, 1, INT_MIN, 0), FlagRecord(0, 1, INT_MIN, 0),
                              FlagRecord(2, 26, 1 << 29, 0), FlagRecord(2, 1, 0, INT_MAX), FlagRecord(2, 1, 0, INT_MIN),
                              FlagRecord(2, 0, 0, -1),       FlagRecord(2, 0, -1, 247),    FlagRecord(2, 1, 0, -249),
                              FlagRecord(2, 50, 1, 8),       FlagRecord(0, 50, 1, 2),      FlagRecord(4, 50, 2, 0),
                              FlagRecord(5, 50, 1, 1),       FlagRecord(2, 0, 0, 138703),  FlagRecord(6, 0, 0, 15898)};
    for (const int nFill : {0, 1})
    {
        m_Mask.BlockAssign(nFill);
        m_Expected = Flags(m_Mask);
        for (stPPCWithSI record : outside)
        {
            record.value.nValue = 1 - nFill;
            Write(m_Mask, {record, record});
            EXPECT_TRUE(m_Expected == Flags(m_Mask)) << record.enPathType << " " << record.nPath << " " << record.nParameter;
        }
    }
}

TEST_F(ScopeMask, KeepsToTheBlockWhateverTheRecords)
{
    static const int anTypes[] = {INT_MIN, -1, 0, 1, 2, 2, 3, 4, 5, 6, 7, INT_MAX};
    static const int anPathTypes[] = {INT_MIN, -1, 0, 1, 1, 7, 25, 49, 50, 51, 52, INT_MAX};
    static const int anPaths[] = {INT_MIN, -(1 << 26), -144, -1, 0, 0, 1, 2, 143, 144, 1 << 26, INT_MAX};
    static const int anParams[] = {INT_MIN, -(1 << 16), -9, -1, 0, 1, 7, 8, 63, 575, 1 << 16, INT_MAX};
    std::mt19937 random(29);
    const auto any = [&random](const int(&an)[12]) { return an[random() % 12]; };
    m_Expected = Scramble(m_Mask, 30);
    for (int nRound = 0; nRound < 200; ++nRound)
    {
        tRecords records;
        while (records.size() < 100)
        {
            const int nValue = static_cast<int>(random() % 2);
            records.insert(records.end(), 1 + random() % 2,
                           FlagRecord(any(anTypes), any(anPathTypes), any(anPaths), any(anParams), nValue));
            records.back().nParameter = any(anParams);
        }
        ExpectWrites(records);
    }
}

// ---- The dump -----------------------------------------------------------------------------------------------------------------

TEST_F(ScopeMask, DumpsTheMemoryOfAllButRotaries)
{
    const CStreamKeeper keeper;
    EXPECT_EQ(ExpectedDump(m_Expected), Dump(m_Mask));
    m_Expected = Scramble(m_Mask, 31);
    EXPECT_EQ(ExpectedDump(m_Expected), Dump(m_Mask));
    EXPECT_TRUE(m_Expected == Flags(m_Mask));
}

TEST_F(ScopeMask, DumpShowsSwitchesFirstAndOthersLast)
{
    const CStreamKeeper keeper;
    const std::string strZeros = "   0    0    0    0    0    0    0    0    0    0    0    0    0    0    0 ";
    const std::string strLine = "\t   0    0    0    0    0 " + strZeros + "\n";
    m_Mask.BlockAssign(1);
    Write(m_Mask, {FlagRecord(2, 0, 0, 4, 0), FlagRecord(2, 0, 0, 12, 0), FlagRecord(2, 0, 0, 13, 0), FlagRecord(2, 0, 0, 14, 0),
                   FlagRecord(2, 0, 0, 15, 0)});
    const std::string strStart = "[CCBMAContainerScopeMask::DumpMasks] START\n  Rotaries\n\t  ef    f   ff   ff   ff ";
    EXPECT_EQ(strStart, Dump(m_Mask).substr(0, strStart.size()));

    m_Mask.Reset();
    Write(m_Mask, {FlagRecord(5, 50, 1, 0)});
    const std::string strEnd = "\n\n  Other\n" + strLine + strLine + strLine + strLine + "\t   0    0    0    0    1 " + strZeros +
                               "\n\n\n[CCBMAContainerScopeMask::DumpMasks] END\n";
    const std::string strDump = Dump(m_Mask);
    EXPECT_EQ(strEnd, strDump.substr(strDump.size() - strEnd.size()));
}

TEST_F(ScopeMask, DumpGoesThroughTheStandardStreamAndLeavesItInHexadecimal)
{
    const CStreamKeeper keeper;
    for (const auto pBase : {std::dec, std::oct, std::hex})
    {
        std::ostringstream text;
        std::streambuf* const pBuffer = std::cout.rdbuf(text.rdbuf());
        std::cout << pBase;
        m_Mask.DumpMasks();
        std::cout << 255 << ' ' << 15;
        std::cout.rdbuf(pBuffer);
        EXPECT_EQ(ExpectedDump(m_Expected) + "ff f", text.str());
    }
}

TEST_F(ScopeMask, DumpIsTheSameWhateverTheStreamsSettings)
{
    const CStreamKeeper keeper;
    m_Expected = Scramble(m_Mask, 32);
    const std::locale grouping(std::locale::classic(), new Support::CEachDigitApart);
    std::locale::global(grouping);
    std::cout.imbue(grouping);
    std::cout << std::uppercase << std::showbase << std::showpos << std::left;
    std::cout.fill('*');
    EXPECT_EQ(ExpectedDump(m_Expected), Dump(m_Mask));
    EXPECT_EQ(std::ios::hex | std::ios::uppercase | std::ios::showbase | std::ios::showpos | std::ios::left,
              std::cout.flags() & ~(std::ios::skipws | std::ios::unitbuf));
}

// ---- Without memory -----------------------------------------------------------------------------------------------------------

TEST_F(ScopeMask, WithoutMemoryHasNoFlags)
{
    const CStreamKeeper keeper;
    m_Expected = Scramble(m_Mask, 33);
    for (int nAllowed = 0; nAllowed < 7; ++nAllowed)
    {
        auto pFailing = std::make_unique<Support::CFailingCall>(Support::CFailingCall::enMalloc, nAllowed);
        CCBMAContainerScopeMask mask;
        CCBMAContainerScopeMask copy(mask);
        pFailing.reset();
        int nRead = 77;
        EXPECT_EQ(1, mask.BlockAssign(1));
        EXPECT_EQ(1, Write(mask, {FlagRecord(2, 1, 0, 0), FlagRecord(5, 50, 1, 0), FlagRecord(6, 50, 1, 0)}));
        mask.GetFlag(enOther, enAuk, 1, 0, nRead); // its block is the last
        EXPECT_EQ(77, nRead);
        mask = copy;
        copy = m_Mask;
        EXPECT_EQ(0u, Dump(copy).find("[CCBMAContainerScopeMask::DumpMasks] START\n  Rotaries\n"));
        EXPECT_EQ(nullptr, Memory(mask, enOther));
    }
    EXPECT_TRUE(m_Expected == Flags(m_Mask));
}
