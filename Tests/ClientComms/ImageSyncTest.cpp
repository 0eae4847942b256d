#include "ClientComms/ImageSync.h"

#include "Support/Bytes.h"
#include "Support/DebugLog.h"
#include "Support/Records.h"
#include "Support/SystemCalls.h"
#include "Support/TakeMemory.h"
#include "Support/Updates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

using Support::Append;
using Support::AppendArray;
using Support::AppendBig;
using Support::Datagrams;
using Support::Hex;
using Support::Record;
using Support::tBytes;
using Support::Update;
using Support::UpdateHeader;

namespace
{

typedef std::unique_ptr<CBMAContainer> tImage;

constexpr long c_alBlockSizes[c_nMessageTypes] = {40963, 261200, 17338, 59424, 11060, 2692, 15898};

tagenPPCMessageType Type(int nType)
{
    return static_cast<tagenPPCMessageType>(nType);
}

unsigned char* Block(CBMAContainer& image, int nType)
{
    void* pMemory = nullptr;
    long lBytes = 0;
    image.GetMessageMemory(Type(nType), pMemory, lBytes);
    EXPECT_EQ(lBytes, c_alBlockSizes[nType]);
    return static_cast<unsigned char*>(pMemory);
}

// Every value of it random, floats that are no numbers among them.
tImage RandomImage(unsigned int unSeed)
{
    std::mt19937 random(unSeed);
    tImage pImage = std::make_unique<CBMAContainer>();
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const long lValues = nType == enSwitch ? 17337 : c_alBlockSizes[nType]; // the last byte holds no switch
        std::generate_n(Block(*pImage, nType), lValues, [&] { return static_cast<unsigned char>(random()); });
    }
    return pImage;
}

// The message types whose blocks are equal, bit t for type t.
unsigned int EqualBlocks(CBMAContainer& first, CBMAContainer& second)
{
    unsigned int unEqual = 0;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const std::size_t unBytes = static_cast<std::size_t>(c_alBlockSizes[nType]);
        unEqual |= std::memcmp(Block(first, nType), Block(second, nType), unBytes) == 0 ? 1u << nType : 0;
    }
    return unEqual;
}

unsigned int Apply(const tBytes& update, CBMAContainer& image)
{
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    pMessage->SetShallowMode(true);
    EXPECT_TRUE(pMessage->Parse(update.data(), update.size()));
    return ApplyMCUpdate(*pMessage, image);
}

// All seven blocks of zeros, but that of one type with a length of its own.
tBytes UpdateWithLength(int nType, long lLength)
{
    tBytes update = UpdateHeader(0, 0);
    for (int nEach = 0; nEach < c_nMessageTypes; ++nEach)
    {
        AppendArray(update, tBytes(static_cast<std::size_t>(nEach == nType ? lLength : c_alBlockSizes[nEach])));
    }
    return update;
}

// Switches and integers, zeros all, of which the switches are a byte short.
tBytes UpdateWithoutTheLastSwitches()
{
    tBytes update = UpdateHeader(4, 0);
    AppendArray(update, tBytes(17337));
    AppendArray(update, tBytes(59424));
    return update;
}

// For one parameter of each message type, on a path type that has more than one path.
tBytes RecordOfEachType(std::uint32_t unMarker)
{
    tBytes stream = Record(0, 1, 143, 1, Hex("4b69636b20496e000000000000"), unMarker);
    Append(stream, Record(1, 1, 143, 279, Hex("3e200000"), unMarker));
    Append(stream, Record(2, 1, 143, 575, Hex("00000100"), unMarker));
    Append(stream, Record(3, 1, 143, 22, Hex("fffffffe"), unMarker));
    Append(stream, Record(4, 1, 143, 1, Hex("c0200000"), unMarker));
    Append(stream, Record(5, 1, 143, 0, Hex("01020304"), unMarker));
    Append(stream, Record(6, 1, 143, 8, Hex("000000c8"), unMarker));
    return stream;
}

constexpr int c_anLastMicParam[c_nMessageTypes] = {1, 279, 575, 22, 1, 0, 8};

// Applied from a block of exactly its size; checks the debug lines, one a refused record.
void ExpectApplied(CBMAContainer& image, const tBytes& stream, int nApplied, int nRefused, bool bComplete)
{
    const std::unique_ptr<unsigned char[]> pStream(new unsigned char[stream.size()]);
    std::copy(stream.begin(), stream.end(), pStream.get());
    Support::CDebugLog log;
    const stPPCResult result = ApplyPPCs(pStream.get(), static_cast<long>(stream.size()), image);
    EXPECT_EQ(result.nApplied, nApplied);
    EXPECT_EQ(result.nRefused, nRefused);
    EXPECT_EQ(result.bComplete, bComplete);
    EXPECT_EQ(log.Take().size(), static_cast<std::size_t>(nRefused));
}

template <typename Visitor>
void ForEveryParameter(Visitor visit)
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
        {
            for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
            {
                for (int nParam = 0; nParam < canMaxParams[nPathType * c_nMessageTypes + nType]; ++nParam)
                {
                    visit(Type(nType), static_cast<tagenVirtualPathType>(nPathType), nPath, nParam);
                }
            }
        }
    }
}

void SetGlobalFlags(CBMAContainer& image)
{
    ForEveryParameter([&](tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam)
                      { image.SetPPCGlobalScope(enType, enPathType, nPath, nParam, 1); });
}

int CountGlobalFlags(const CBMAContainer& image)
{
    int nCount = 0;
    ForEveryParameter(
        [&](tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam)
        {
            int nFlag = 0;
            image.GetPPCGlobalScope(enType, enPathType, nPath, nParam, nFlag);
            nCount += nFlag;
        });
    return nCount;
}

void Receive(CImageFollower& follower, const tBytes& datagram)
{
    std::string strBytes(datagram.begin(), datagram.end());
    follower.OnReceivedData(&strBytes[0], static_cast<long>(strBytes.size()), RySocketIO::CIPString("192.168.1.2"));
}

void ReceiveMessage(CImageFollower& follower, std::uint32_t unId, const tBytes& message)
{
    for (const tBytes& datagram : Datagrams(unId, message))
    {
        Receive(follower, datagram);
    }
}

} // namespace

// ---- BuildMCUpdate ------------------------------------------------------------------------------------------------------------

TEST(BuildMCUpdate, MakesAValidUpdateOfTheBlocksThatItsTypeCarries)
{
    const tImage pImage = RandomImage(1);
    struct
    {
        int nUpdateType;
        std::size_t unSize;
        const char* szHeader;
    } const aCases[] = {{1, 106449, "00000001 00 00000000 00000001 00019fc0 000043ba"},
                        {2, 302188, "00000001 00 00000000 00000002 00049c5b 0000a003"},
                        {4, 76787, "00000001 00 00000000 00000004 00012be2 000043ba"},
                        {8, 76787, "00000001 00 00000000 00000008 00012be2 000043ba"},
                        {0, 408620, "00000001 00 00000000 00000000 00063c1b 0000a003"},
                        {30, 408620, "00000001 00 00000000 0000001e 00063c1b 0000a003"},
                        {-1, 408620, "00000001 00 00000000 ffffffff 00063c1b 0000a003"}};
    for (const auto& each : aCases)
    {
        const tBytes update = Update(*pImage, each.nUpdateType);
        EXPECT_EQ(update.size(), each.unSize);
        EXPECT_EQ(tBytes(update.begin(), update.begin() + 21), Hex(each.szHeader));
    }
}

TEST(BuildMCUpdate, RefusesATypeAboveThirty)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    EXPECT_FALSE(BuildMCUpdate(*pImage, static_cast<MCUpdateType>(31), *pMessage));
    EXPECT_FALSE(BuildMCUpdate(*pImage, static_cast<MCUpdateType>(INT_MAX), *pMessage));
}

TEST(BuildMCUpdate, RefusesAnImageThatLacksABlock)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    Support::TakeMemory(*static_cast<CParameterArray<int, enSwitch, true>*>(pImage->GetCParamArray(enSwitch)));
    EXPECT_FALSE(BuildMCUpdate(*pImage, enMCUpdateSurface, *pMessage));
    EXPECT_TRUE(BuildMCUpdate(*pImage, enMCUpdateRotary, *pMessage));
}

TEST(BuildMCUpdate, EmptiesTheMessageFirst)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    const unsigned char* pData = nullptr;
    int nLength = 0;
    EXPECT_TRUE(pMessage->SetArray(enString, Hex("0102").data(), 2));
    EXPECT_TRUE(BuildMCUpdate(*pImage, enMCUpdateSurface, *pMessage));
    EXPECT_FALSE(pMessage->GetArray(enString, pData, nLength));
}

TEST(BuildMCUpdate, WritesNumbersBigEndianAndStringsBitsAndMetersAsTheyAre)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    for (const tBytes& stream : {RecordOfEachType(1), Record(1, 0, 0, 0, Hex("7f800000")), Record(2, 0, 0, 9, Hex("00000001"))})
    {
        ApplyPPCs(stream.data(), static_cast<long>(stream.size()), *pImage);
    }
    const tBytes update = Update(*pImage, 0);
    const auto at = [&](int nType, std::ptrdiff_t nOffset, std::ptrdiff_t nCount)
    {
        std::ptrdiff_t nStart = 17 + 4 + nOffset;
        for (int nBefore = 0; nBefore < nType; ++nBefore)
        {
            nStart += 4 + c_alBlockSizes[nBefore];
        }
        return tBytes(update.begin() + nStart, update.begin() + nStart + nCount);
    };
    EXPECT_EQ(at(0, (75 + 143 * 2 + 1) * 13, 14), Hex("4b69636b20496e000000000000 00"));
    EXPECT_EQ(at(1, 0, 8), Hex("7f800000 00000000"));
    EXPECT_EQ(at(1, (7 + 144 * 280 - 1) * 4, 8), Hex("3e200000 00000000"));
    EXPECT_EQ(at(2, 0, 3), Hex("00 02 00"));
    EXPECT_EQ(at(2, (248 + 144 * 576) / 8 - 1, 2), Hex("80 00"));
    EXPECT_EQ(at(3, (147 + 144 * 23 - 1) * 4, 8), Hex("fffffffe 00000000"));
    EXPECT_EQ(at(4, (1 + 144 * 2 - 1) * 4, 8), Hex("c0200000 00000000"));
    EXPECT_EQ(at(5, (1 + 144 - 1) * 4, 8), Hex("01020304 00000000"));
    EXPECT_EQ(at(6, 23 + 144 * 9 - 1, 2), Hex("c8 00"));
}

// ---- ApplyMCUpdate ------------------------------------------------------------------------------------------------------------

TEST(ApplyMCUpdate, SurfaceThenRotaryMakeAnEqualImageWithEqualCheckWords)
{
    const tImage pSource = RandomImage(20240229);
    const auto pImage = std::make_unique<CBMAContainer>();
    EXPECT_EQ(Apply(Update(*pSource, enMCUpdateSurface), *pImage), 0x7cu);
    EXPECT_EQ(EqualBlocks(*pSource, *pImage), 0x7cu);
    EXPECT_EQ(Apply(Update(*pSource, enMCUpdateRotary), *pImage), 0x03u);
    EXPECT_EQ(EqualBlocks(*pSource, *pImage), 0x7fu);
    pSource->UpdateXors();
    pImage->UpdateXors();
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        EXPECT_NE(pSource->GetXorVal(Type(nType)), 0u) << nType;
        EXPECT_EQ(pSource->GetXorVal(Type(nType)), pImage->GetXorVal(Type(nType))) << nType;
    }
}

TEST(ApplyMCUpdate, WritesOnlyTheBlocksThatTheTypeCarries)
{
    const tImage pSource = RandomImage(3);
    for (const int nUpdateType : {4, 8, 0, -1})
    {
        const unsigned int unCarried = nUpdateType > 0 ? 0x0c : 0x7f;
        const tImage pImage = RandomImage(4);
        EXPECT_EQ(Apply(Update(*pSource, nUpdateType), *pImage), unCarried);
        EXPECT_EQ(EqualBlocks(*pSource, *pImage), unCarried);
        EXPECT_EQ(EqualBlocks(*RandomImage(4), *pImage), 0x7f & ~unCarried);
    }
}

TEST(ApplyMCUpdate, TakesADeepMessageAsItWasBuilt)
{
    const tImage pSource = RandomImage(5);
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    EXPECT_EQ(ApplyMCUpdate(*pMessage, *pImage), 0u);
    EXPECT_TRUE(BuildMCUpdate(*pSource, enMCUpdateAll, *pMessage));
    EXPECT_EQ(ApplyMCUpdate(*pMessage, *pImage), 0x7fu);
    EXPECT_EQ(EqualBlocks(*pSource, *pImage), 0x7fu);
}

TEST(ApplyMCUpdate, ReadsNumbersAsBigEndian)
{
    tBytes update = UpdateHeader(1, 0);
    AppendArray(update, tBytes(17338));
    tBytes integers = Hex("01020304 fffffffe");
    integers.resize(59424);
    AppendArray(update, integers);
    tBytes faders = Hex("3e200000");
    faders.resize(11060);
    AppendArray(update, faders);
    const auto pImage = std::make_unique<CBMAContainer>();
    int nFirst = 0;
    int nSecond = 0;
    float fFader = 0;
    EXPECT_EQ(Apply(update, *pImage), 0x1cu);
    pImage->GetPPC(enInteger, enGlobals, 0, 0, nFirst);
    pImage->GetPPC(enInteger, enGlobals, 0, 1, nSecond);
    pImage->GetPPC(enFader, enGlobals, 0, 0, fFader);
    EXPECT_EQ(nFirst, 0x01020304);
    EXPECT_EQ(nSecond, -2);
    EXPECT_EQ(fFader, 0.15625f);
}

TEST(ApplyMCUpdate, LeavesOutABlockOfAnotherLength)
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        for (const long lLength : {1L, c_alBlockSizes[nType] - 1, c_alBlockSizes[nType] + 1, c_alBlockSizes[nType] + 12287})
        {
            const tImage pImage = RandomImage(6);
            const unsigned int unOthers = 0x7f & ~(1u << nType);
            EXPECT_EQ(Apply(UpdateWithLength(nType, lLength), *pImage), unOthers) << nType << ": " << lLength;
            EXPECT_EQ(EqualBlocks(*RandomImage(6), *pImage), 1u << nType);
            EXPECT_EQ(EqualBlocks(*std::make_unique<CBMAContainer>(), *pImage), unOthers);
        }
    }
}

TEST(ApplyMCUpdate, LeavesOutABlockOfANegativeOrHugeLength)
{
    for (const char* szLength : {"ffffffff", "80000000", "7fffffff"})
    {
        tBytes update = UpdateHeader(2, 0);
        AppendArray(update, tBytes(40963));
        Append(update, Hex(szLength));
        const tImage pImage = RandomImage(7);
        const auto pMessage = std::make_unique<CMCUpdateMsg>();
        pMessage->SetShallowMode(true);
        pMessage->ShallowAssign(update.data());
        EXPECT_EQ(ApplyMCUpdate(*pMessage, *pImage), 0x01u) << szLength;
        EXPECT_EQ(EqualBlocks(*RandomImage(7), *pImage), 0x7eu) << szLength;
    }
}

TEST(ApplyMCUpdate, NeitherClearsGlobalFlagsNorSends)
{
    Support::CSocketRecorder recorder;
    const auto pImage = std::make_unique<CBMAContainer>();
    SetGlobalFlags(*pImage);
    pImage->SetUseSimplePPCSender(true);
    pImage->InitSimplePPCSenderComms();
    EXPECT_EQ(Apply(Update(*RandomImage(8), enMCUpdateAll), *pImage), 0x7fu);
    EXPECT_EQ(CountGlobalFlags(*pImage), 241339);
    EXPECT_TRUE(recorder.sent.empty());
    pImage->SetPPC(enFader, enGlobals, 0, 0, 1.0f, false, false);
    EXPECT_FALSE(recorder.sent.empty());
    EXPECT_EQ(CountGlobalFlags(*pImage), 241338);
}

// ---- ApplyPPCs ----------------------------------------------------------------------------------------------------------------

TEST(ApplyPPCs, WritesAValueOfEachTypeAndNothingElseWhateverTheMarker)
{
    RyGConsoleString strName("Kick In");
    const auto pExpected = std::make_unique<CBMAContainer>();
    pExpected->SetPPC(enString, enMicInput, 143, 1, strName, false, false);
    pExpected->SetPPC(enRotary, enMicInput, 143, 279, 0.15625f, false, false);
    pExpected->SetPPC(enSwitch, enMicInput, 143, 575, 1, false, false);
    pExpected->SetPPC(enInteger, enMicInput, 143, 22, -2, false, false);
    pExpected->SetPPC(enFader, enMicInput, 143, 1, -2.5f, false, false);
    pExpected->SetPPC(enOther, enMicInput, 143, 0, 0x01020304, false, false);
    pExpected->SetPPC(enMeter, enMicInput, 143, 8, static_cast<unsigned char>(200), false, false);
    for (const std::uint32_t unMarker : {1u, 0u, 0xdeadbeefu})
    {
        const auto pImage = std::make_unique<CBMAContainer>();
        ExpectApplied(*pImage, RecordOfEachType(unMarker), 7, 0, true);
        EXPECT_EQ(EqualBlocks(*pExpected, *pImage), 0x7fu);
        ExpectApplied(*pImage, Record(2, 1, 143, 575, Hex("00000000"), unMarker), 1, 0, true);
        EXPECT_EQ(EqualBlocks(*std::make_unique<CBMAContainer>(), *pImage), 0x04u);
    }
}

TEST(ApplyPPCs, ClearsTheGlobalFlagOfEachParameterAndNoOther)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    SetGlobalFlags(*pImage);
    pImage->SetPPCStoreScope(enRotary, enMicInput, 143, 279, 1);
    ExpectApplied(*pImage, RecordOfEachType(1), 7, 0, true);
    EXPECT_EQ(CountGlobalFlags(*pImage), 241339 - 7);
    int nFlag = 0;
    pImage->GetPPCStoreScope(enRotary, enMicInput, 143, 279, nFlag);
    EXPECT_EQ(nFlag, 1);
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        pImage->GetPPCGlobalScope(Type(nType), enMicInput, 143, c_anLastMicParam[nType], nFlag);
        EXPECT_EQ(nFlag, 0) << nType;
    }
}

TEST(ApplyPPCs, RefusesAddressesThatNameNoParameter)
{
    tBytes stream;
    int nRefused = 0;
    const auto refuse = [&](int nType, int nPathType, int nPath, int nParam)
    {
        Append(stream, Record(nType, nPathType, nPath, nParam, tBytes(13, 0x55)));
        ++nRefused;
    };
    for (const int nType : {-1, 7, INT_MIN, INT_MAX})
    {
        refuse(nType, 1, 0, 0);
    }
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        for (const int nBad : {-1, INT_MIN, INT_MAX})
        {
            refuse(nType, nBad, 0, 0);
            refuse(nType, 1, nBad, 0);
            refuse(nType, 1, 0, nBad);
        }
        refuse(nType, 51, 0, 0);
        refuse(nType, 1, 144, 0);
        refuse(nType, 1, 0, c_anLastMicParam[nType] + 1);
        refuse(nType, 1, 1, -8);
    }
    const tImage pImage = RandomImage(9);
    SetGlobalFlags(*pImage);
    ExpectApplied(*pImage, stream, 0, nRefused, true);
    EXPECT_EQ(EqualBlocks(*RandomImage(9), *pImage), 0x7fu);
    EXPECT_EQ(CountGlobalFlags(*pImage), 241339);
}

TEST(ApplyPPCs, RefusesAValueThatIsTooShortAndGoesOn)
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const std::size_t unNeeded = nType == enString ? 13 : 4;
        const auto pImage = std::make_unique<CBMAContainer>();
        tBytes stream;
        for (std::size_t unLength = 1; unLength <= unNeeded + 1; ++unLength)
        {
            Append(stream, Record(nType, 1, 0, 0, tBytes(unLength, 0x55)));
        }
        const int nShort = static_cast<int>(unNeeded) - 1;
        ExpectApplied(*pImage, tBytes(stream.begin(), stream.end() - static_cast<std::ptrdiff_t>(unNeeded * 2 + 51)), 0, nShort,
                      true);
        EXPECT_EQ(EqualBlocks(*std::make_unique<CBMAContainer>(), *pImage), 0x7fu) << nType;
        ExpectApplied(*pImage, stream, 2, nShort, true);
        EXPECT_EQ(EqualBlocks(*std::make_unique<CBMAContainer>(), *pImage), 0x7fu & ~(1u << nType)) << nType;
    }
}

TEST(ApplyPPCs, StopsAtABadRecord)
{
    const tBytes good = Record(3, 1, 0, 0, Hex("00000005"));
    for (const std::uint32_t unLength : {0u, 0xffffffffu, 0x80000000u, 0x7fffffffu, 1000u})
    {
        tBytes stream = good;
        tBytes bad = Record(3, 1, 0, 1, tBytes());
        bad.resize(21);
        AppendBig(bad, unLength);
        Append(stream, bad);
        Append(stream, Record(3, 1, 0, 2, Hex("00000005")));
        const auto pImage = std::make_unique<CBMAContainer>();
        int nValue = 0;
        ExpectApplied(*pImage, stream, 1, 0, false);
        pImage->GetPPC(enInteger, enMicInput, 0, 2, nValue);
        EXPECT_EQ(nValue, 0) << unLength;
    }
}

TEST(ApplyPPCs, AppliesTheWholeRecordsOfEveryCut)
{
    const tBytes stream = RecordOfEachType(1);
    const auto pImage = std::make_unique<CBMAContainer>();
    ASSERT_EQ(stream.size(), 212u);
    for (std::size_t unCut = 0; unCut <= stream.size(); ++unCut)
    {
        const std::size_t unWhole = unCut < 38 ? 0 : 1 + (unCut - 38) / 29;
        const bool bComplete = unCut == 0 || (unCut >= 38 && (unCut - 38) % 29 == 0);
        ExpectApplied(*pImage, tBytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(unCut)),
                      static_cast<int>(unWhole), 0, bComplete);
    }
    EXPECT_EQ(ApplyPPCs(nullptr, 0, *pImage).nApplied, 0);
    EXPECT_EQ(ApplyPPCs(stream.data(), -1, *pImage).nApplied, 0);
}

// ---- CImageFollower -----------------------------------------------------------------------------------------------------------

TEST(ImageFollower, AppliesEachUpdateAfterItsLastFragment)
{
    const tImage pSource = RandomImage(10);
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pFollower = std::make_unique<CImageFollower>(*pImage);
    const std::vector<tBytes> rotary = Datagrams(2, Update(*pSource, enMCUpdateRotary));
    ASSERT_EQ(rotary.size(), 5u);
    for (const std::size_t unFragment : {4u, 0u, 3u, 1u})
    {
        Receive(*pFollower, rotary[unFragment]);
        EXPECT_EQ(pFollower->UpdateBMA(), 6);
        EXPECT_EQ(pFollower->GetTypesReceived(), 0u);
    }
    EXPECT_EQ(EqualBlocks(*std::make_unique<CBMAContainer>(), *pImage), 0x7fu);
    Receive(*pFollower, rotary[2]);
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(pFollower->GetTypesReceived(), 0x03u);
    EXPECT_EQ(EqualBlocks(*pSource, *pImage), 0x03u);
    EXPECT_EQ(pFollower->UpdateBMA(), 6);
    ReceiveMessage(*pFollower, 3, Update(*pSource, enMCUpdateSurface));
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(pFollower->GetTypesReceived(), c_unWholeImage);
    EXPECT_EQ(EqualBlocks(*pSource, *pImage), 0x7fu);
}

TEST(ImageFollower, AppliesTwoPendingUpdatesInOneRound)
{
    const tImage pSource = RandomImage(11);
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pFollower = std::make_unique<CImageFollower>(*pImage);
    ReceiveMessage(*pFollower, 1, Update(*pSource, enMCUpdateSurface));
    ReceiveMessage(*pFollower, 2, Update(*pSource, enMCUpdateRotary));
    EXPECT_EQ(pFollower->GetUpdatesApplied(), 0u);
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(pFollower->GetUpdatesApplied(), 2u);
    EXPECT_EQ(pFollower->GetTypesReceived(), 0x7fu);
    EXPECT_EQ(EqualBlocks(*pSource, *pImage), 0x7fu);
}

TEST(ImageFollower, NeverPutsAnOlderBlockOverANewerOne)
{
    const tImage aSources[] = {RandomImage(21), RandomImage(22), RandomImage(23)};
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pFollower = std::make_unique<CImageFollower>(*pImage);
    for (std::uint32_t unId = 0; unId < 3; ++unId) // the third takes the place of the first, and is applied before the second
    {
        ReceiveMessage(*pFollower, unId, Update(*aSources[unId], enMCUpdateSurface));
    }
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(pFollower->GetUpdatesApplied(), 1u);
    EXPECT_EQ(pFollower->GetUpdatesOvertaken(), 1u);
    EXPECT_EQ(pFollower->GetUpdateSequence(), 2u);
    EXPECT_EQ(EqualBlocks(*aSources[2], *pImage) & 0x7cu, 0x7cu);
    ReceiveMessage(*pFollower, 4, Update(*aSources[0], enMCUpdateSwitchesIntegers4));
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(pFollower->GetUpdateSequence(), 4u);
    EXPECT_EQ(EqualBlocks(*aSources[0], *pImage) & 0x7cu, 0x0cu);
}

// The last fragment of the first comes when the second is applied already.
TEST(ImageFollower, NeverPutsAnUpdateOverAnotherThatWasSentLater)
{
    const tImage aSources[] = {RandomImage(31), RandomImage(32), RandomImage(33)};
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pFollower = std::make_unique<CImageFollower>(*pImage);
    const std::vector<tBytes> late = Datagrams(0xffffffff, Update(*aSources[0], enMCUpdateSurface));
    ASSERT_EQ(late.size(), 2u);
    Receive(*pFollower, late[0]);
    ReceiveMessage(*pFollower, 0, Update(*aSources[1], enMCUpdateSurface)); // the next id
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(pFollower->GetUpdateId(), 0u);
    Receive(*pFollower, late[1]);
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(pFollower->GetUpdateId(), 0xffffffffu);
    EXPECT_EQ(EqualBlocks(*aSources[1], *pImage) & 0x7cu, 0x7cu);
    ReceiveMessage(*pFollower, 0xffffffff, Update(*aSources[2], enMCUpdateRotary)); // other blocks, of which none is newer
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(EqualBlocks(*aSources[2], *pImage) & 0x03u, 0x03u);
    ReceiveMessage(*pFollower, 0, Update(*aSources[2], enMCUpdateSurface)); // the same second once more
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(EqualBlocks(*aSources[2], *pImage), 0x7fu);
}

TEST(ImageFollower, AppliesAnUpdateHoweverOftenItIsHanded)
{
    const tImage aSources[] = {RandomImage(41), RandomImage(42)};
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pFollower = std::make_unique<CImageFollower>(*pImage);
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    for (const tImage& pSource : aSources)
    {
        ASSERT_TRUE(BuildMCUpdate(*pSource, enMCUpdateAll, *pMessage));
        EXPECT_EQ(pFollower->ProcessMCUpdate(*pMessage), 0);
        EXPECT_EQ(EqualBlocks(*pSource, *pImage), 0x7fu);
    }
}

TEST(UpdateOrder, TellsByTheNumberThenForASecondByTheId)
{
    const CUpdateOrder::tTime start;
    const auto after = [start](int nMilliseconds) { return start + std::chrono::milliseconds(nMilliseconds); };
    CUpdateOrder order;
    EXPECT_TRUE(order.IsNewer(0, 0, start));
    EXPECT_TRUE(order.IsNewer(0x80000000, 0xffffffff, start));
    order.SetNewest(0xffffffff, 10, start);
    const struct
    {
        std::uint32_t unSequence, unId;
        int nMilliseconds;
        bool bNewer;
    } aCases[] = {{0, 10, 0, true},           {0, 11, 0, true},
                  {0, 0x8000000a, 0, false},  {0, 0x80000009, 0, true},
                  {0, 9, 0, false},           {0, 9, 999, false},
                  {0, 9, 1000, true},         {0, 0xffffffff, 999, false},
                  {0xfffffffe, 10, 0, false}, {0xfffffffe, 11, 5000, false},
                  {0xffffffff, 10, 0, true},  {0x7ffffffe, 10, 0, true},
                  {0x7fffffff, 10, 0, false}};
    for (const auto& each : aCases)
    {
        EXPECT_EQ(order.IsNewer(each.unSequence, each.unId, after(each.nMilliseconds)), each.bNewer)
            << each.unSequence << ", " << each.unId << " after " << each.nMilliseconds;
    }
}

TEST(ImageFollower, AnswersTwoWhenABlockDoesNotFitAndZeroWhenNothingIsCarried)
{
    const tImage pImage = RandomImage(12);
    const auto pFollower = std::make_unique<CImageFollower>(*pImage);
    ReceiveMessage(*pFollower, 1, UpdateWithoutTheLastSwitches());
    EXPECT_EQ(pFollower->UpdateBMA(), CImageFollower::enBlockLeftOut);
    EXPECT_EQ(CImageFollower::enBlockLeftOut, 2);
    EXPECT_EQ(pFollower->GetTypesReceived(), 0x08u);
    EXPECT_EQ(EqualBlocks(*RandomImage(12), *pImage), 0x77u);
    ReceiveMessage(*pFollower, 2, UpdateHeader(2, 0));
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(pFollower->GetTypesReceived(), 0x08u);
    EXPECT_EQ(pFollower->GetUpdatesApplied(), 2u);
    EXPECT_EQ(pFollower->GetUpdatesOvertaken(), 0u);
}

TEST(ImageFollower, TakesAnOlderBlockWhereTheNewerOneDidNotFit)
{
    const tImage pSource = RandomImage(15);
    const tImage pImage = RandomImage(16);
    const auto pFollower = std::make_unique<CImageFollower>(*pImage);
    ReceiveMessage(*pFollower, 2, UpdateWithoutTheLastSwitches());
    EXPECT_EQ(pFollower->UpdateBMA(), CImageFollower::enBlockLeftOut);
    ReceiveMessage(*pFollower, 1, Update(*pSource, enMCUpdateSwitchesIntegers4)); // its integers are overtaken
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(EqualBlocks(*pSource, *pImage), 0x04u);
    EXPECT_EQ(pFollower->GetUpdatesApplied(), 2u);
    EXPECT_EQ(pFollower->GetUpdatesOvertaken(), 0u);
}

TEST(ImageFollower, ABadUpdateChangesNothingAndGoodOnesComeThroughOnceCleared)
{
    const tImage pSource = RandomImage(13);
    const tImage pImage = RandomImage(14);
    const auto pFollower = std::make_unique<CImageFollower>(*pImage);
    tBytes cut = Update(*pSource, enMCUpdateSwitchesIntegers4);
    cut.pop_back();
    testing::internal::CaptureStdout();
    ReceiveMessage(*pFollower, 1, cut);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "CMCUpdateMsg operator<< - error validating update data\n");
    EXPECT_EQ(pFollower->UpdateBMA(), 5);
    EXPECT_EQ(pFollower->UpdateBMA(), 5);
    EXPECT_EQ(EqualBlocks(*RandomImage(14), *pImage), 0x7fu);
    pFollower->ClearReceiveErrors();
    ReceiveMessage(*pFollower, 2, Update(*pSource, enMCUpdateSwitchesIntegers4));
    EXPECT_EQ(pFollower->UpdateBMA(), 0);
    EXPECT_EQ(pFollower->GetTypesReceived(), 0x0cu);
    EXPECT_EQ(EqualBlocks(*pSource, *pImage), 0x0cu);
}
