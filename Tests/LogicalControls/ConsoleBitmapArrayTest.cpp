#include "LogicalControls/ConsoleBitmapArray.h"

#include "LogicalControls/CheckWord.h"
#include "Runtime/Clock.h"
#include "Support/Bytes.h"
#include "Support/SystemCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <vector>

namespace
{

using Support::CSocketRecorder;
using Support::Hex;
using Support::tBytes;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int c_nFirst = CSocketRecorder::nFirstSocket;
constexpr long c_alBlockBytes[] = {40963, 261200, 17338, 59424, 11060, 2692, 15898};

tagenPPCMessageType Type(int nType)
{
    return static_cast<tagenPPCMessageType>(nType);
}

tagenVirtualPathType Path(int nPathType)
{
    return static_cast<tagenVirtualPathType>(nPathType);
}

struct stAt
{
    int nType;
    int nPathType;
    int nPath;
    int nParam;
};

// A parameter of each message type that the simple sender does not hold back.
constexpr stAt c_aAt[] = {{0, 1, 2, 1}, {1, 1, 143, 279}, {2, 1, 2, 3}, {3, 1, 5, 3}, {4, 1, 1, 1}, {5, 1, 7, 0}, {6, 1, 3, 8}};

// Writes a number through the overload that takes its message type.
void Set(CBMAContainer& image, const stAt& at, int nValue, bool bLite = false, bool bSendOnly = false)
{
    RyGConsoleString strValue(std::to_string(nValue));
    switch (at.nType)
    {
    case enString:
        return image.SetPPC(enString, Path(at.nPathType), at.nPath, at.nParam, strValue, bLite, bSendOnly);
    case enRotary:
    case enFader:
        return image.SetPPC(Type(at.nType), Path(at.nPathType), at.nPath, at.nParam, static_cast<float>(nValue), bLite, bSendOnly);
    case enMeter:
        return image.SetPPC(enMeter, Path(at.nPathType), at.nPath, at.nParam, static_cast<unsigned char>(nValue), bLite, bSendOnly);
    default:
        return image.SetPPC(Type(at.nType), Path(at.nPathType), at.nPath, at.nParam, nValue, bLite, bSendOnly);
    }
}

// Reads what Set wrote. A read that is refused yields 77.
int Get(const CBMAContainer& image, const stAt& at)
{
    RyGConsoleString strValue("77");
    float fValue = 77;
    unsigned char ucValue = 77;
    int nValue = 77;
    switch (at.nType)
    {
    case enString:
        image.GetPPC(enString, Path(at.nPathType), at.nPath, at.nParam, strValue);
        return std::atoi(strValue.Text().c_str());
    case enRotary:
    case enFader:
        image.GetPPC(Type(at.nType), Path(at.nPathType), at.nPath, at.nParam, fValue);
        return static_cast<int>(fValue);
    case enMeter:
        image.GetPPC(enMeter, Path(at.nPathType), at.nPath, at.nParam, ucValue);
        return ucValue;
    default:
        image.GetPPC(Type(at.nType), Path(at.nPathType), at.nPath, at.nParam, nValue);
        return nValue;
    }
}

typedef void (CBMAContainer::*tSetScope)(tagenPPCMessageType, tagenVirtualPathType, int, int, int);
typedef void (CBMAContainer::*tGetScope)(tagenPPCMessageType, tagenVirtualPathType, int, int, int&) const;

enum enScopeNames
{
    enStore,
    enRecall,
    enGlobal,
    enSafe
};

constexpr tSetScope c_apSetScope[] = {&CBMAContainer::SetPPCStoreScope, &CBMAContainer::SetPPCRecallScope,
                                      &CBMAContainer::SetPPCGlobalScope, &CBMAContainer::SetPPCSafeScope};
constexpr tGetScope c_apGetScope[] = {&CBMAContainer::GetPPCStoreScope, &CBMAContainer::GetPPCRecallScope,
                                      &CBMAContainer::GetPPCGlobalScope, &CBMAContainer::GetPPCSafeScope};

void SetFlag(CBMAContainer& image, int nScope, const stAt& at, int nValue)
{
    const tSetScope pSet = c_apSetScope[nScope];
    (image.*pSet)(Type(at.nType), Path(at.nPathType), at.nPath, at.nParam, nValue);
}

// 77 when the read is refused.
int Flag(const CBMAContainer& image, int nScope, const stAt& at)
{
    int nValue = 77;
    const tGetScope pGet = c_apGetScope[nScope];
    (image.*pGet)(Type(at.nType), Path(at.nPathType), at.nPath, at.nParam, nValue);
    return nValue;
}

typedef void (CBMAContainer::*tGetMemory)(void*&, long&);

// Through the type's own accessor; others have none. (g++ 12 loses the object of such a call under its undefined behaviour
// sanitizer where that is a member of the caller's.)
void GetTypesMemory(CBMAContainer& image, tGetMemory pGetMemory, void*& pMemory, long& lBytes)
{
    if (pGetMemory != nullptr)
    {
        (image.*pGetMemory)(pMemory, lBytes);
    }
    else
    {
        image.GetMessageMemory(enOther, pMemory, lBytes);
    }
}

template <class Call>
void ForEachParameter(int nType, Call call)
{
    for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
    {
        for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
        {
            for (int nParam = 0; nParam < canMaxParams[nPathType * c_nMessageTypes + nType]; ++nParam)
            {
                call(stAt{nType, nPathType, nPath, nParam});
            }
        }
    }
}

int FlagCount(const CBMAContainer& image, int nScope, int nType)
{
    int nCount = 0;
    ForEachParameter(nType, [&](const stAt& at) { nCount += Flag(image, nScope, at); });
    return nCount;
}

tBytes Block(const CBMAContainer& image, int nType)
{
    const void* pMemory = nullptr;
    long lBytes = -1;
    image.GetMessageMemory(Type(nType), pMemory, lBytes);
    const unsigned char* pBytes = static_cast<const unsigned char*>(pMemory);
    return tBytes(pBytes, pBytes + lBytes);
}

std::vector<tBytes> Blocks(const CBMAContainer& image)
{
    std::vector<tBytes> blocks;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        blocks.push_back(Block(image, nType));
    }
    return blocks;
}

float GetSI(const CBMAContainer& image, int nType, int nPathType, int nPath, int nParam)
{
    float fValue = 77;
    image.GetPPCSI(Type(nType), Path(nPathType), nPath, nParam, fValue);
    return fValue;
}

template <class Call>
std::string Complaint(Call call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

std::uint32_t Word(const tBytes& bytes)
{
    std::uint32_t unWord = 0;
    std::memcpy(&unWord, bytes.data(), sizeof unWord);
    return unWord;
}

// Addresses of no element. A bit array checks nothing but its block, which some of these are still inside.
struct stOutside
{
    int nPathType;
    int nPath;
    int nParam; // -2: the number of parameters
    bool bOutsideTheBlock;
};

constexpr stOutside c_aOutside[] = {{-1, 0, 0, true},
                                    {51, 0, 0, true},
                                    {INT_MIN, 0, 0, true},
                                    {INT_MAX, 0, 0, true},
                                    {0, -1, -1, true},
                                    {0, 0, -1, true},
                                    {1, -1000, 0, true},
                                    {1, INT_MIN, 0, true},
                                    {1, INT_MAX, 0, true},
                                    {1, 0, INT_MIN, true},
                                    {1, 0, INT_MAX, true},
                                    {50, 2, 0, true},
                                    {50, INT_MAX, 0, true},
                                    {1, 144, 0, false},
                                    {1, 0, -2, false},
                                    {50, INT_MIN, INT_MIN, true},
                                    {50, INT_MAX, INT_MAX, true}};

template <class Call>
void ForEachOutside(int nType, bool bBitArray, Call call)
{
    for (const stOutside& outside : c_aOutside)
    {
        if (!bBitArray || outside.bOutsideTheBlock)
        {
            const int nParam = outside.nParam == -2 ? canMaxParams[c_nMessageTypes + nType] : outside.nParam;
            call(stAt{nType, outside.nPathType, outside.nPath, nParam});
        }
    }
}

class ConsoleImage : public testing::Test
{
protected:
    CSocketRecorder m_Recorder;
    const std::unique_ptr<CBMAContainer> m_pImage = std::make_unique<CBMAContainer>();
    CBMAContainer& m_Image = *m_pImage;
};

// An image that sends what is written.
class SendingImage : public ConsoleImage
{
protected:
    SendingImage()
    {
        m_Image.SetUseSimplePPCSender(true);
        m_Image.InitSimplePPCSenderComms();
    }

    // The datagram types since the last call.
    std::vector<int> Sent()
    {
        std::vector<int> types;
        for (const Support::stSentDatagram& sent : m_Recorder.sent)
        {
            EXPECT_EQ(Hex("00 00 00"), tBytes(sent.bytes.begin(), sent.bytes.begin() + 3));
            types.push_back(sent.bytes[3]);
        }
        m_Recorder.sent.clear();
        return types;
    }
};

} // namespace

// ---- Values -------------------------------------------------------------------------------------------------------------------

TEST_F(ConsoleImage, IsAllZeroWhenFresh)
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        EXPECT_EQ(tBytes(static_cast<std::size_t>(c_alBlockBytes[nType])), Block(m_Image, nType));
        EXPECT_EQ(0u, m_Image.GetXorVal(Type(nType)));
        for (int nScope = 0; nScope < 4; ++nScope)
        {
            EXPECT_EQ(0, FlagCount(m_Image, nScope, nType));
        }
    }
    EXPECT_EQ(0, GetSI(m_Image, enRotary, 1, 143, 279));
    EXPECT_EQ(0, GetSI(m_Image, enFader, 50, 1, 0));
    EXPECT_THAT(CBMAContainer::m_anScopeMasks, ElementsAre(0, 1, 2, 3));
    EXPECT_TRUE(std::has_virtual_destructor<CBMAContainer>::value);
}

TEST_F(ConsoleImage, CursorIsNowhereWhenFresh)
{
    const CBMAContainer::stBlockRef cursor;
    EXPECT_THAT((std::vector<std::int64_t>{cursor.nMessageType, cursor.nPathType, cursor.nPath, cursor.nParameter, cursor.lCount,
                                           cursor.nBaseIndex}),
                ElementsAre(-1, -1, 0, 0, 0, 0));
    EXPECT_EQ(nullptr, cursor.pMemory);
}

TEST_F(ConsoleImage, KeepsAValueOfEachTypeInItsOwnBlockOnly)
{
    for (const stAt& at : c_aAt)
    {
        const std::vector<tBytes> before = Blocks(m_Image);
        Set(m_Image, at, 1);
        EXPECT_EQ(1, Get(m_Image, at)) << at.nType;
        const std::vector<tBytes> after = Blocks(m_Image);
        for (std::size_t unType = 0; unType < before.size(); ++unType)
        {
            EXPECT_EQ(static_cast<int>(unType) == at.nType, before[unType] != after[unType]) << at.nType << " " << unType;
        }
    }
}

TEST_F(ConsoleImage, KeepsASwitchAsOneBit)
{
    for (const int nValue : {5, -1, INT_MIN})
    {
        Set(m_Image, c_aAt[enSwitch], nValue);
        EXPECT_EQ(1, Get(m_Image, c_aAt[enSwitch]));
        Set(m_Image, c_aAt[enSwitch], 0);
        EXPECT_EQ(0, Get(m_Image, c_aAt[enSwitch]));
    }
}

TEST_F(ConsoleImage, LeavesTheCallersStringAlone)
{
    RyGConsoleString strValue("Kick");
    m_Image.SetPPC(enString, enMicInput, 0, 0, strValue, false, false);
    EXPECT_EQ("Kick", strValue.Text());
}

TEST_F(SendingImage, IgnoresTypesThatAnOverloadDoesNotTake)
{
    const std::vector<tBytes> before = Blocks(m_Image);
    RyGConsoleString strValue("1");
    const std::string strComplaint = Complaint(
        [&]
        {
            for (const int nType : {INT_MIN, -1, 0, 1, 2, 3, 4, 5, 6, 7, INT_MAX})
            {
                SetFlag(m_Image, enGlobal, {nType, 1, 0, 0}, 1);
                const auto set = [&](auto&& value)
                {
                    for (const int nHow : {0, 1, 2, 3})
                    {
                        m_Image.SetPPC(Type(nType), enMicInput, 0, 0, value, (nHow & 1) != 0, (nHow & 2) != 0);
                    }
                };
                if (nType != enRotary && nType != enFader)
                {
                    set(1.0f);
                }
                if (nType != enSwitch && nType != enInteger && nType != enOther)
                {
                    set(1);
                }
                if (nType != enString)
                {
                    set(strValue);
                }
                if (nType != enMeter)
                {
                    set(static_cast<unsigned char>(1));
                }
                EXPECT_EQ(nType >= 0 && nType <= 6 ? 1 : 77, Flag(m_Image, enGlobal, {nType, 1, 0, 0}));
            }
        });
    EXPECT_EQ("", strComplaint);
    EXPECT_EQ(before, Blocks(m_Image));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(ConsoleImage, ReadLeavesItsResultWhereItsTypeIsNotTaken)
{
    for (const stAt& at : c_aAt)
    {
        Set(m_Image, at, 1);
    }
    for (const int nType : {INT_MIN, -1, 0, 1, 2, 3, 4, 5, 6, 7, INT_MAX})
    {
        const stAt at = nType >= 0 && nType <= 6 ? c_aAt[nType] : stAt{nType, 1, 0, 0};
        float fValue = 77;
        int nValue = 77;
        RyGConsoleString strValue("77");
        unsigned char ucValue = 77;
        m_Image.GetPPC(Type(nType), enMicInput, at.nPath, at.nParam, fValue);
        m_Image.GetPPC(Type(nType), enMicInput, at.nPath, at.nParam, nValue);
        m_Image.GetPPC(Type(nType), enMicInput, at.nPath, at.nParam, strValue);
        m_Image.GetPPC(Type(nType), enMicInput, at.nPath, at.nParam, ucValue);
        EXPECT_EQ(nType == 1 || nType == 4 ? 1.0f : 77.0f, fValue) << nType;
        EXPECT_EQ(nType == 2 || nType == 3 || nType == 5 ? 1 : 77, nValue) << nType;
        EXPECT_EQ(nType == 0 ? "1" : "77", strValue.Text()) << nType;
        EXPECT_EQ(nType == 6 ? 1 : 77, ucValue) << nType;
    }
}

TEST_F(ConsoleImage, LightSetStoresSwitchesOnly)
{
    for (const stAt& at : c_aAt)
    {
        Set(m_Image, at, 1);
        Set(m_Image, at, 0, true);
        EXPECT_EQ(at.nType == enSwitch ? 0 : 1, Get(m_Image, at)) << at.nType;
    }
}

TEST_F(ConsoleImage, EveryWriteClearsTheGlobalFlagOfItsParameterAlone)
{
    for (const stAt& at : c_aAt)
    {
        for (const bool bLite : {false, true})
        {
            ForEachParameter(at.nType, [&](const stAt& each) { SetFlag(m_Image, enGlobal, each, 1); });
            for (const int nScope : {enStore, enRecall, enSafe})
            {
                SetFlag(m_Image, nScope, at, 1);
            }
            Set(m_Image, at, 1, bLite);
            EXPECT_EQ(0, Flag(m_Image, enGlobal, at));
            EXPECT_EQ(canParameterCounts[at.nType] - 1, FlagCount(m_Image, enGlobal, at.nType));
            EXPECT_EQ(3, Flag(m_Image, enStore, at) + Flag(m_Image, enRecall, at) + Flag(m_Image, enSafe, at));
        }
    }
}

TEST_F(ConsoleImage, SendOnlyStoresNothingButMeters)
{
    for (const stAt& at : c_aAt)
    {
        for (const bool bLite : {false, true})
        {
            Set(m_Image, at, 1);
            SetFlag(m_Image, enGlobal, at, 1);
            Set(m_Image, at, 0, bLite, true);
            EXPECT_EQ(at.nType == enMeter && !bLite ? 0 : 1, Get(m_Image, at)) << at.nType;
            EXPECT_EQ(at.nType == enMeter ? 0 : 1, Flag(m_Image, enGlobal, at)) << at.nType;
        }
    }
}

// ---- Addresses outside --------------------------------------------------------------------------------------------------------

TEST_F(SendingImage, RefusedWriteChangesNoValueAndNoFlagButIsSent)
{
    const std::vector<tBytes> before = Blocks(m_Image);
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        ForEachParameter(nType, [&](const stAt& at) { SetFlag(m_Image, enGlobal, at, 1); });
        const std::string strComplaint = Complaint(
            [&]
            {
                ForEachOutside(nType, nType == enSwitch,
                               [&](const stAt& at)
                               {
                                   Set(m_Image, at, 1);
                                   Set(m_Image, at, 1, true);
                                   EXPECT_EQ(std::vector<int>(nType == enMeter ? 0 : 2, 1), Sent());
                               });
            });
        EXPECT_EQ(nType == enSwitch, strComplaint.empty());
        EXPECT_EQ(canParameterCounts[nType], FlagCount(m_Image, enGlobal, nType)) << nType;
    }
    EXPECT_EQ(before, Blocks(m_Image));
}

TEST_F(ConsoleImage, RefusedReadLeavesItsResult)
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const std::string strComplaint = Complaint(
            [&] {
                ForEachOutside(nType, nType == enSwitch, [&](const stAt& at) { EXPECT_EQ(77, Get(m_Image, at)) << at.nPathType; });
            });
        EXPECT_EQ(nType == enSwitch, strComplaint.empty());
    }
}

TEST_F(ConsoleImage, RefusalsAreReportedByTheValueArraysWord)
{
    const std::string strRange = "Range Check failed, n Path > max path of type  expected  - 144 got - 144 \n "
                                 "pt 1, p 144, param 0, \nCParameterArray::";
    const std::string strIgnored = "(pt = 1, nPath=144, nParam=0 ) ### RANGE CHECK FAILED - IGNORING\n";
    for (const int nType : {0, 1, 3, 4, 5, 6})
    {
        const stAt at = {nType, 1, 144, 0};
        EXPECT_EQ(strRange + "SetPPC" + strIgnored, Complaint([&] { Set(m_Image, at, 1); }));
        EXPECT_EQ(strRange + "SetPPCLite" + strIgnored, Complaint([&] { Set(m_Image, at, 1, true); }));
        EXPECT_EQ(strRange + "GetPPC" + strIgnored, Complaint([&] { Get(m_Image, at); }));
        EXPECT_EQ(nType == enMeter ? strRange + "SetPPC" + strIgnored : "", Complaint([&] { Set(m_Image, at, 1, false, true); }));
    }
    EXPECT_EQ("Range Check failed, pt > maxpath types  \n "
              "CParameterArray::SetPPC(pt = 51, nPath=0, nParam=0 ) ### RANGE CHECK FAILED - IGNORING\n",
              Complaint(
                  [&] {
                      Set(m_Image, {enFader, 51, 0, 0}, 1);
                  }));
    EXPECT_EQ("base address check 1 failed\n "
              "CParameterArray::SetPPC(pt = 0, nPath=0, nParam=-1 ) ### RANGE CHECK FAILED - IGNORING\n",
              Complaint(
                  [&] {
                      Set(m_Image, {enOther, 0, 0, -1}, 1);
                  }));
}

TEST_F(ConsoleImage, SwitchBesideItsPathIsItsNeighbourInTheBlock)
{
    SetFlag(m_Image, enGlobal, {enSwitch, 1, 1, 0}, 1);
    Set(m_Image, {enSwitch, 1, 0, 576}, 1);
    EXPECT_EQ(1, Get(m_Image, {enSwitch, 1, 1, 0}));
    EXPECT_EQ(0, Flag(m_Image, enGlobal, {enSwitch, 1, 1, 0}));
    Set(m_Image, {enSwitch, 1, 0, -1}, 1);
    EXPECT_EQ(1, Get(m_Image, {enSwitch, 0, 0, 247}));
}

// ---- Scope flags --------------------------------------------------------------------------------------------------------------

TEST_F(ConsoleImage, KeepsFourFlagsOfEachParameterApart)
{
    for (const stAt& at : c_aAt)
    {
        for (int nScope = 0; nScope < 4; ++nScope)
        {
            SetFlag(m_Image, nScope, at, nScope % 2 == 0 ? 5 : INT_MIN);
            for (int nOther = 0; nOther < 4; ++nOther)
            {
                EXPECT_EQ(nOther == nScope ? 1 : 0, Flag(m_Image, nOther, at)) << at.nType;
                EXPECT_EQ(nOther == nScope ? 1 : 0, FlagCount(m_Image, nOther, at.nType)) << at.nType;
            }
            EXPECT_EQ(0, Get(m_Image, at));
            SetFlag(m_Image, nScope, at, 0);
            EXPECT_EQ(0, Flag(m_Image, nScope, at));
        }
    }
}

TEST_F(ConsoleImage, FlagOutsideIsIgnoredSilently)
{
    const std::string strComplaint = Complaint(
        [&]
        {
            for (const int nType : {INT_MIN, -1, 0, 1, 2, 3, 4, 5, 6, 7, INT_MAX})
            {
                for (int nScope = 0; nScope < 4; ++nScope)
                {
                    const auto refuse = [&](const stAt& at)
                    {
                        SetFlag(m_Image, nScope, at, 1);
                        EXPECT_EQ(77, Flag(m_Image, nScope, at));
                    };
                    nType >= 0 && nType <= 6 ? ForEachOutside(nType, true, refuse) : refuse({nType, 1, 0, 0});
                }
            }
        });
    EXPECT_EQ("", strComplaint);
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        EXPECT_EQ(0, FlagCount(m_Image, enStore, nType) + FlagCount(m_Image, enSafe, nType));
    }
}

// ---- SI values ----------------------------------------------------------------------------------------------------------------

TEST_F(SendingImage, KeepsSIValuesBesideRotariesAndFaders)
{
    for (const int nType : {1, 4})
    {
        const stAt& at = c_aAt[nType];
        Set(m_Image, at, 3);
        SetFlag(m_Image, enGlobal, at, 1);
        m_Recorder.sent.clear();
        m_Image.SetPPCSI(Type(nType), enMicInput, at.nPath, at.nParam, -0.25f, false);
        m_Image.SetPPCSI(Type(nType), enMicInput, at.nPath, at.nParam, 9.0f, true); // light: stores nothing
        EXPECT_EQ(-0.25f, GetSI(m_Image, nType, 1, at.nPath, at.nParam));
        EXPECT_EQ(0, GetSI(m_Image, 5 - nType, 1, 0, 0));
        EXPECT_EQ(3, Get(m_Image, at));
        EXPECT_EQ(1, Flag(m_Image, enGlobal, at));
        EXPECT_THAT(Sent(), IsEmpty());
        m_Image.SetPPCSI(Type(nType), enMicInput, at.nPath, at.nParam, 0.0f, false);
    }
}

TEST_F(ConsoleImage, SIReadLeavesItsResultWhereThereIsNone)
{
    for (const int nType : {-1, 0, 2, 3, 5, 6, 7})
    {
        EXPECT_EQ(77, GetSI(m_Image, nType, 1, 0, 0));
    }
    EXPECT_EQ("Range Check failed, parameter >  pt params\n "
              "CParameterArray::GetPPC(pt = 1, nPath=0, nParam=2 ) ### RANGE CHECK FAILED - IGNORING\n",
              Complaint([&] { EXPECT_EQ(77, GetSI(m_Image, enFader, 1, 0, 2)); }));
    EXPECT_EQ("Range Check failed, parameter >  pt params\n "
              "CParameterArray::SetPPCLite(pt = 1, nPath=0, nParam=280 ) ### RANGE CHECK FAILED - IGNORING\n",
              Complaint([&] { m_Image.SetPPCSI(enRotary, enMicInput, 0, 280, 1.0f, true); }));
}

// ---- Common types -------------------------------------------------------------------------------------------------------------

TEST_F(ConsoleImage, FindsTheValueOfARole)
{
    static const struct
    {
        int nCommonType;
        stAt at;
    } aCases[] = {{0, {2, 1, 143, 0}},   {1, {2, 10, 17, 97}}, {2, {2, 1, 9, 571}}, {33, {2, 5, 23, 91}}, {40, {2, 5, 1, 2}},
                  {29, {3, 1, 143, 15}}, {29, {3, 7, 2, 29}},  {29, {3, 8, 35, 3}}, {29, {3, 12, 7, 0}}};
    for (const auto& c : aCases)
    {
        const auto find = [&]
        { return m_Image.GetCommonParamTypePPC(Path(c.at.nPathType), c.at.nPath, static_cast<enCommonParamTypes>(c.nCommonType)); };
        EXPECT_EQ(0, find());
        Set(m_Image, c.at, 1);
        EXPECT_EQ(1, find()) << c.nCommonType;
    }
}

TEST_F(ConsoleImage, FindsEveryRoleOfTheTableOnEveryLastPath)
{
    for (int nCommonType = 0; nCommonType < c_nCommonParamTypes; ++nCommonType)
    {
        const int nType = caCommonParamTypeToMessageType[nCommonType];
        for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
        {
            const int nParam = canCommonParamTypesTable[nCommonType][nPathType];
            const stAt at = {nType, nPathType, canMaxPaths[nPathType] - 1, nParam};
            if (nParam != -1)
            {
                Set(m_Image, at, 1);
            }
            EXPECT_EQ(nParam != -1 && (nType == 2 || nType == 3 || nType == 5) ? 1 : 0,
                      m_Image.GetCommonParamTypePPC(Path(nPathType), at.nPath, static_cast<enCommonParamTypes>(nCommonType)));
        }
    }
}

TEST_F(ConsoleImage, RoleThatIsNowhereReadsZeroWithoutTouchingAnArray)
{
    ForEachParameter(enSwitch, [&](const stAt& at) { Set(m_Image, at, 1); });
    static const int aanCases[][2] = {{41, 1}, {-1, 1}, {INT_MAX, 1}, {INT_MIN, 1}, {0, 51}, {0, -1}, {0, INT_MAX}, {0, INT_MIN},
                                      {2, 3},  {0, 0},  {0, 6},       {0, 9},       {0, 13}, {0, 50}, {40, 51},     {41, 51}};
    for (const auto& anCase : aanCases)
    {
        EXPECT_EQ("", Complaint(
                          [&] {
                              EXPECT_EQ(
                                  0, m_Image.GetCommonParamTypePPC(Path(anCase[1]), 0, static_cast<enCommonParamTypes>(anCase[0])));
                          }));
    }
}

TEST_F(ConsoleImage, RoleOfAPathThatDoesNotExistIsRefusedByTheArray)
{
    const auto find = [&] { EXPECT_EQ(0, m_Image.GetCommonParamTypePPC(enMicInput, 144, static_cast<enCommonParamTypes>(29))); };
    EXPECT_EQ("Range Check failed, n Path > max path of type  expected  - 144 got - 144 \n pt 1, p 144, param 15, \n"
              "CParameterArray::GetPPC(pt = 1, nPath=144, nParam=15 ) ### RANGE CHECK FAILED - IGNORING\n",
              Complaint(find));
    EXPECT_EQ(0, m_Image.GetCommonParamTypePPC(enMicInput, INT_MIN, static_cast<enCommonParamTypes>(0)));
}

// ---- Memory -------------------------------------------------------------------------------------------------------------------

TEST_F(ConsoleImage, HandsOutEachTypesBlock)
{
    static const struct
    {
        tGetMemory pGetMemory;
        std::size_t unFirstMicInput; // byte of its parameter 0
        const char* szBytes;         // after a 1 is written there
    } aCases[] = {{&CBMAContainer::GetStringMemory, 975, "31 00"}, {&CBMAContainer::GetRotaryMemory, 28, nullptr},
                  {&CBMAContainer::GetSwitchMemory, 31, "01"},     {&CBMAContainer::GetIntegerMemory, 588, nullptr},
                  {&CBMAContainer::GetFaderMemory, 4, nullptr},    {nullptr, 4, nullptr},
                  {&CBMAContainer::GetMeterMemory, 23, "01 00"}};
    const float fOne = 1;
    const int nOne = 1;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const auto& c = aCases[nType];
        void* apMemory[2] = {};
        const void* pConst = nullptr;
        long alBytes[3] = {-1, -1, -1};
        m_Image.GetMessageMemory(Type(nType), apMemory[0], alBytes[0]);
        GetTypesMemory(m_Image, c.pGetMemory, apMemory[1], alBytes[1]);
        static_cast<const CBMAContainer&>(m_Image).GetMessageMemory(Type(nType), pConst, alBytes[2]);
        EXPECT_EQ(apMemory[0], apMemory[1]) << nType;
        EXPECT_EQ(apMemory[0], pConst) << nType;
        EXPECT_THAT(alBytes, testing::Each(c_alBlockBytes[nType])) << nType;

        Set(m_Image, {nType, 1, 0, 0}, 1);
        const void* pOne = nType == enRotary || nType == enFader ? static_cast<const void*>(&fOne) : &nOne;
        const tBytes expected = c.szBytes != nullptr
                                    ? Hex(c.szBytes)
                                    : tBytes(static_cast<const unsigned char*>(pOne), static_cast<const unsigned char*>(pOne) + 4);
        EXPECT_EQ(0, std::memcmp(static_cast<unsigned char*>(apMemory[0]) + c.unFirstMicInput, expected.data(), expected.size()));
    }
}

TEST_F(ConsoleImage, CopiesAWholeBlockAndNoMore)
{
    for (const stAt& at : c_aAt)
    {
        Set(m_Image, at, 1);
        tBytes copy(static_cast<std::size_t>(c_alBlockBytes[at.nType]) + 1, 0xee);
        m_Image.GetOwnCopyMessageMemory(Type(at.nType), copy.data());
        EXPECT_EQ(0xee, copy.back());
        copy.pop_back();
        EXPECT_EQ(Block(m_Image, at.nType), copy);
    }
}

TEST_F(ConsoleImage, HasNoBlockOfATypeThatDoesNotExist)
{
    for (const int nType : {INT_MIN, -1, 7, INT_MAX})
    {
        unsigned char ucUntouched = 77;
        void* pMemory = &ucUntouched;
        const void* pConst = &ucUntouched;
        long lBytes = 77;
        long lConstBytes = 77;
        m_Image.GetMessageMemory(Type(nType), pMemory, lBytes);
        static_cast<const CBMAContainer&>(m_Image).GetMessageMemory(Type(nType), pConst, lConstBytes);
        m_Image.GetOwnCopyMessageMemory(Type(nType), &ucUntouched);
        EXPECT_TRUE(pMemory == nullptr && pConst == nullptr && lBytes == 0 && lConstBytes == 0 && ucUntouched == 77);
        EXPECT_EQ(nullptr, m_Image.GetCParamArray(Type(nType)));
        EXPECT_EQ(0u, m_Image.GetXorVal(Type(nType)));
    }
}

template <typename T, tagenPPCMessageType N, bool compressed>
void ExpectArray(CBMAContainer& image)
{
    const auto* pArray = static_cast<CParameterArray<T, N, compressed>*>(image.GetCParamArray(N));
    void* pMemory = nullptr;
    long lBytes = 0;
    image.GetMessageMemory(N, pMemory, lBytes);
    ASSERT_NE(nullptr, pArray);
    EXPECT_EQ(pMemory, pArray->GetMemoryPointer());
    EXPECT_EQ(lBytes, pArray->GetByteAllocation());
}

TEST_F(ConsoleImage, HandsOutItsValueArrays)
{
    ExpectArray<RyGConsoleString, enString, false>(m_Image);
    ExpectArray<float, enRotary, false>(m_Image);
    ExpectArray<int, enSwitch, true>(m_Image);
    ExpectArray<int, enInteger, false>(m_Image);
    ExpectArray<float, enFader, false>(m_Image);
    ExpectArray<int, enOther, false>(m_Image);
    ExpectArray<unsigned char, enMeter, false>(m_Image);
}

// ---- Check words --------------------------------------------------------------------------------------------------------------

TEST(CheckWord, TakesAWordMoreUnlessTheWordCountDividesByFour)
{
    const tBytes bytes = Hex("00 01 02 03 04 10 20 40 80 11 22 44 88 f1 f2 f4 f8 5a 5b 5d 51 99 98 97 96 71 72 74 78");
    static const struct
    {
        long lBytes;
        const char* szWord;
    } aCases[] = {{0, "00 00 00 00"},  {3, "00 00 00 00"},  {4, "11 22 43 84"},  {8, "00 00 07 0c"},
                  {12, "f1 f2 f3 f4"}, {16, "f1 f2 f3 f4"}, {19, "f1 f2 f3 f4"}, {20, "32 31 39 33"}};
    for (const auto& c : aCases)
    {
        EXPECT_EQ(Word(Hex(c.szWord)), CheckWord(bytes.data() + 1, c.lBytes)) << c.lBytes; // at an odd address
    }
}

TEST_F(ConsoleImage, CheckWordIsTheExclusiveOrOfItsBlock)
{
    static const long alCounted[] = {40960, 261200, 17338, 59424, 11060, 2692, 15898}; // the rest of the strings is not
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        void* pMemory = nullptr;
        long lBytes = 0;
        m_Image.GetMessageMemory(Type(nType), pMemory, lBytes);
        tBytes expected(4);
        for (long lByte = 0; lByte < lBytes; ++lByte)
        {
            const auto ucByte = static_cast<unsigned char>(lByte * 7 + lByte / 251);
            static_cast<unsigned char*>(pMemory)[lByte] = ucByte;
            expected[static_cast<std::size_t>(lByte % 4)] ^= lByte < alCounted[nType] ? ucByte : static_cast<unsigned char>(0);
        }
        EXPECT_EQ(0u, m_Image.GetXorVal(Type(nType)));
        m_Image.UpdateXors();
        EXPECT_EQ(Word(expected), m_Image.GetXorVal(Type(nType))) << nType;
    }
}

TEST_F(ConsoleImage, CheckWordFollowsItsOwnTypeOnceUpdated)
{
    Set(m_Image, {enInteger, 1, 0, 0}, 0x1234);
    Set(m_Image, {enInteger, 50, 1, 68}, 0x7000ff);
    Set(m_Image, {enFader, 50, 1, 0}, 1);
    EXPECT_EQ(0u, m_Image.GetXorVal(enInteger));
    m_Image.UpdateXors();
    EXPECT_EQ(0x1234u ^ 0x7000ffu, m_Image.GetXorVal(enInteger));
    EXPECT_EQ(0x3f800000u, m_Image.GetXorVal(enFader));
    EXPECT_EQ(0u, m_Image.GetXorVal(enRotary));
    Set(m_Image, {enInteger, 1, 0, 0}, 0);
    EXPECT_EQ(0x1234u ^ 0x7000ffu, m_Image.GetXorVal(enInteger));
    m_Image.UpdateXors();
    EXPECT_EQ(0x7000ffu, m_Image.GetXorVal(enInteger));
}

TEST_F(ConsoleImage, EqualImagesHaveEqualCheckWordsInWhateverMemory)
{
    for (const long lBytes : c_alBlockBytes)
    {
        const std::vector<tBytes> dirt(20, tBytes(static_cast<std::size_t>(lBytes) + 12287, 0xff)); // for the next image
    }
    const auto pOther = std::make_unique<CBMAContainer>();
    for (const stAt& at : c_aAt)
    {
        Set(m_Image, at, 1);
        Set(*pOther, at, 0);
        Set(*pOther, at, 1);
        SetFlag(*pOther, enStore, at, 1); // counts for nothing
    }
    m_Image.UpdateXors();
    pOther->UpdateXors();
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        EXPECT_NE(0u, m_Image.GetXorVal(Type(nType))) << nType;
        EXPECT_EQ(m_Image.GetXorVal(Type(nType)), pOther->GetXorVal(Type(nType))) << nType;
    }
}

// ---- Mic input patching -------------------------------------------------------------------------------------------------------

TEST_F(SendingImage, CopiesThePatchingOfEveryMicInput)
{
    const auto pSource = std::make_unique<CBMAContainer>();
    for (int nPath = 0; nPath < 144; ++nPath)
    {
        for (const int nParam : {15, 16, 17})
        {
            Set(*pSource, {enInteger, 1, nPath, nParam}, 1000 * nParam + nPath);
            SetFlag(*pSource, enGlobal, {enInteger, 1, nPath, nParam}, 1);
            SetFlag(m_Image, enGlobal, {enInteger, 1, nPath, nParam}, 1);
        }
    }
    m_Image.CopyMicInputPatching(*pSource);

    EXPECT_EQ(std::vector<int>(144, 1), Sent());
    EXPECT_EQ(288, FlagCount(m_Image, enGlobal, enInteger));
    EXPECT_EQ(432, FlagCount(*pSource, enGlobal, enInteger));
    int nSum = 0;
    ForEachParameter(enInteger, [&](const stAt& at) { nSum += Get(m_Image, at) != 0 ? 1 : 0; });
    EXPECT_EQ(144, nSum);
    for (int nPath = 0; nPath < 144; ++nPath)
    {
        EXPECT_EQ(16000 + nPath, Get(m_Image, {enInteger, 1, nPath, 16}));
        EXPECT_EQ(0, Flag(m_Image, enGlobal, {enInteger, 1, nPath, 16}));
    }
}

// ---- Sending ------------------------------------------------------------------------------------------------------------------

TEST_F(SendingImage, SendsWholeDatagrams)
{
    CClock::SetSource([]() -> std::int64_t { return 0x01020304 * INT64_C(1000000); });
    RyGConsoleString strValue("Snare");
    m_Image.SetPPC(enString, enMicInput, 2, 1, strValue, false, true);
    m_Image.SetPPC(enSwitch, enMicInput, 2, 3, 5, false, true);
    m_Image.SetPPC(enFader, enMicInput, 143, 1, 0.5f, true, false);
    CClock::SetSource(nullptr);

    ASSERT_EQ(3u, m_Recorder.sent.size());
    EXPECT_EQ(Hex("00 00 00 03  01 02 03 04  00 00 00 01  00 00 00 01  00 00 00 26  00 00 00 01  00"
                  "00 00 00 00  00 00 00 01  00 00 00 02  00 00 00 01  00 00 00 0d  53 6e 61 72 65 00 00 00 00 00 00 00 00"),
              m_Recorder.sent[0].bytes);
    EXPECT_EQ(Hex("00 00 00 03  01 02 03 04  00 00 00 01  00 00 00 01  00 00 00 1d  00 00 00 01  00"
                  "00 00 00 02  00 00 00 01  00 00 00 02  00 00 00 03  00 00 00 04  00 00 00 05"),
              m_Recorder.sent[1].bytes);
    EXPECT_EQ(Hex("00 00 00 01  01 02 03 04  00 00 00 01  00 00 00 01  00 00 00 1d  00 00 00 01  00"
                  "00 00 00 04  00 00 00 01  00 00 00 8f  00 00 00 01  00 00 00 04  3f 00 00 00"),
              m_Recorder.sent[2].bytes);
}

// The flag goes out as the datagram type; with integers it never does, on purpose, and meters never go out at all.
TEST_F(SendingImage, SendOnlyShowsInTheDatagramTypeButNotOfIntegers)
{
    for (const stAt& at : c_aAt)
    {
        for (const bool bLite : {false, true})
        {
            Set(m_Image, at, 1, bLite, false);
            EXPECT_EQ(std::vector<int>(at.nType == enMeter ? 0 : 1, 1), Sent()) << at.nType;
            Set(m_Image, at, 1, bLite, true);
            EXPECT_EQ(std::vector<int>(at.nType == enMeter ? 0 : 1, at.nType == enInteger ? 1 : 3), Sent()) << at.nType;
        }
    }
}

TEST_F(SendingImage, HeldBackParameterIsStoredAllTheSame)
{
    Set(m_Image, {enInteger, 0, 0, 58}, 9);
    EXPECT_EQ(9, Get(m_Image, {enInteger, 0, 0, 58}));
    EXPECT_THAT(Sent(), IsEmpty());
    Set(m_Image, {enInteger, 0, 0, 59}, 9);
    EXPECT_THAT(Sent(), ElementsAre(1));
}

TEST_F(SendingImage, FailedSendStoresAllTheSame)
{
    m_Recorder.bFailSend = true;
    Set(m_Image, c_aAt[enRotary], 9);
    EXPECT_EQ(9, Get(m_Image, c_aAt[enRotary]));
}

TEST_F(ConsoleImage, SendsOnlyWithTheFlagAndASender)
{
    Set(m_Image, c_aAt[enRotary], 1);
    m_Image.InitSimplePPCSenderComms(); // not to be used: makes none
    m_Image.DeInitSimplePPCSenderComms();
    EXPECT_THAT(m_Recorder.opened, IsEmpty());
    m_Image.SetUseSimplePPCSender(true);
    Set(m_Image, c_aAt[enRotary], 1);
    EXPECT_THAT(m_Recorder.opened, IsEmpty());
    EXPECT_THAT(m_Recorder.sent, IsEmpty());
    EXPECT_THAT(m_Recorder.closed, IsEmpty());
}

TEST_F(SendingImage, ClearedFlagKeepsTheSenderForLater)
{
    m_Image.SetUseSimplePPCSender(false);
    m_Image.InitSimplePPCSenderComms();
    Set(m_Image, c_aAt[enRotary], 1);
    EXPECT_THAT(Sent(), IsEmpty());
    m_Image.SetUseSimplePPCSender(true);
    Set(m_Image, c_aAt[enRotary], 1);
    ASSERT_EQ(1u, m_Recorder.sent.size());
    EXPECT_EQ(c_nFirst, m_Recorder.sent[0].nSocket);
    EXPECT_THAT(m_Recorder.closed, IsEmpty());
}

TEST_F(SendingImage, DeInitEndsSendingUntilTheNextInit)
{
    m_Image.DeInitSimplePPCSenderComms();
    m_Image.DeInitSimplePPCSenderComms();
    EXPECT_THAT(m_Recorder.closed, ElementsAre(c_nFirst));
    Set(m_Image, c_aAt[enRotary], 1);
    EXPECT_THAT(Sent(), IsEmpty());
    m_Image.InitSimplePPCSenderComms();
    m_Image.InitSimplePPCSenderComms();
    EXPECT_THAT(m_Recorder.opened, ElementsAre(c_nFirst, c_nFirst + 1, c_nFirst + 2));
    EXPECT_THAT(m_Recorder.closed, ElementsAre(c_nFirst, c_nFirst + 1));
    Set(m_Image, c_aAt[enRotary], 1);
    EXPECT_THAT(Sent(), ElementsAre(1));
}

TEST(ConsoleImageSocket, IsClosedBeforeTheNextIsOpened)
{
    const auto free = []
    {
        const int nFree = open("/dev/null", O_RDONLY);
        close(nFree);
        return nFree;
    };
    const auto pImage = std::make_unique<CBMAContainer>();
    pImage->SetUseSimplePPCSender(true);
    const int nBefore = free();
    pImage->InitSimplePPCSenderComms();
    const int nFree = free();
    EXPECT_NE(nBefore, nFree);
    pImage->InitSimplePPCSenderComms();
    EXPECT_EQ(nFree, free());
    pImage->DeInitSimplePPCSenderComms();
    EXPECT_EQ(nBefore, free());
}

// ---- Copies -------------------------------------------------------------------------------------------------------------------

namespace
{

void Fill(CBMAContainer& image)
{
    int nCount = 0;
    for (const stAt& at : c_aAt)
    {
        Set(image, at, 1);
        for (int nScope = 0; nScope < 4; ++nScope)
        {
            SetFlag(image, nScope, {at.nType, 25, nCount++, 0}, 1); // 28 devices, a flag each
        }
    }
    image.SetPPCSI(enRotary, enMicInput, 1, 2, 1.5f, false);
    image.SetPPCSI(enFader, enMicInput, 1, 1, 4.5f, false);
}

void ExpectFilled(const CBMAContainer& image)
{
    int nCount = 0;
    for (const stAt& at : c_aAt)
    {
        EXPECT_EQ(1, Get(image, at)) << at.nType;
        for (int nScope = 0; nScope < 4; ++nScope)
        {
            EXPECT_EQ(1, Flag(image, nScope, {at.nType, 25, nCount++, 0})) << at.nType << " " << nScope;
            EXPECT_EQ(1, FlagCount(image, nScope, at.nType)) << at.nType << " " << nScope;
        }
    }
    EXPECT_EQ(1.5f, GetSI(image, enRotary, 1, 1, 2));
    EXPECT_EQ(4.5f, GetSI(image, enFader, 1, 1, 1));
}

} // namespace

TEST_F(ConsoleImage, CopyHasEverythingAndIsItsOwn)
{
    Fill(m_Image);
    m_Image.UpdateXors();
    const auto pCopy = std::make_unique<CBMAContainer>(m_Image);
    const auto pAssigned = std::make_unique<CBMAContainer>();
    Set(*pAssigned, {enFader, 2, 2, 0}, 8);
    SetFlag(*pAssigned, enSafe, {enFader, 2, 2, 0}, 1);
    EXPECT_EQ(pAssigned.get(), &(*pAssigned = m_Image));
    ExpectFilled(*pCopy);
    ExpectFilled(*pAssigned);
    EXPECT_EQ(Blocks(m_Image), Blocks(*pCopy));
    EXPECT_EQ(Blocks(m_Image), Blocks(*pAssigned));

    Set(m_Image, c_aAt[enFader], 2);
    SetFlag(m_Image, enStore, {enFader, 25, 16, 0}, 0);
    ExpectFilled(*pCopy);
    ExpectFilled(*pAssigned);
    EXPECT_THAT(m_Recorder.opened, IsEmpty());
}

TEST_F(ConsoleImage, AssignedToItselfStaysAsItIs)
{
    Fill(m_Image);
    CBMAContainer& self = m_Image;
    m_Image = self;
    ExpectFilled(m_Image);
    EXPECT_THAT(m_Recorder.opened, IsEmpty());
}

TEST_F(SendingImage, AssignedToItselfMakesItsSenderAnew)
{
    Fill(m_Image);
    CBMAContainer& self = m_Image;
    m_Image = self;
    ExpectFilled(m_Image);
    EXPECT_THAT(m_Recorder.opened, ElementsAre(c_nFirst, c_nFirst + 1));
    EXPECT_THAT(m_Recorder.closed, ElementsAre(c_nFirst));
}

TEST_F(SendingImage, CopyAndAssignedImageHaveSendersOfTheirOwn)
{
    {
        const auto pCopy = std::make_unique<CBMAContainer>(m_Image);
        const auto pAssigned = std::make_unique<CBMAContainer>();
        *pAssigned = m_Image;
        *pAssigned = m_Image; // gives up the first of its own
        Set(*pCopy, c_aAt[enRotary], 1);
        Set(*pAssigned, c_aAt[enRotary], 1);
        Set(m_Image, c_aAt[enRotary], 1);
        ASSERT_EQ(3u, m_Recorder.sent.size());
        EXPECT_EQ(c_nFirst + 1, m_Recorder.sent[0].nSocket);
        EXPECT_EQ(c_nFirst + 3, m_Recorder.sent[1].nSocket);
        EXPECT_EQ(c_nFirst, m_Recorder.sent[2].nSocket);
        EXPECT_THAT(m_Recorder.closed, ElementsAre(c_nFirst + 2));
    }
    EXPECT_THAT(m_Recorder.closed, testing::UnorderedElementsAre(c_nFirst + 1, c_nFirst + 2, c_nFirst + 3));
}

TEST_F(SendingImage, CopyFollowsTheFlagNotTheSender)
{
    m_Image.DeInitSimplePPCSenderComms();
    const auto pCopy = std::make_unique<CBMAContainer>(m_Image);
    EXPECT_THAT(m_Recorder.opened, ElementsAre(c_nFirst, c_nFirst + 1));
    const auto pSilent = std::make_unique<CBMAContainer>();
    *pCopy = *pSilent;
    EXPECT_THAT(m_Recorder.closed, ElementsAre(c_nFirst)); // the sender stays, unused
    Set(*pCopy, c_aAt[enRotary], 1);
    EXPECT_THAT(Sent(), IsEmpty());
    pCopy->SetUseSimplePPCSender(true);
    Set(*pCopy, c_aAt[enRotary], 1);
    EXPECT_THAT(Sent(), ElementsAre(1));
}

// ---- Failures -----------------------------------------------------------------------------------------------------------------

TEST(ConsoleImageMemory, ThrowsZeroWhereverItsMemoryRunsOut)
{
    constexpr int nBlocks = 7 + 28 + 2;
    const auto pPlace = std::make_unique<std::aligned_storage_t<sizeof(CBMAContainer), alignof(CBMAContainer)>>();
    for (int nAllowed = 0; nAllowed <= nBlocks; ++nAllowed)
    {
        int nThrown = -1;
        try
        {
            const Support::CFailingCall failing(Support::CFailingCall::enMalloc, nAllowed);
            (new (pPlace.get()) CBMAContainer)->~CBMAContainer();
        }
        catch (const int nCode)
        {
            nThrown = nCode;
        }
        EXPECT_EQ(nAllowed < nBlocks ? 0 : -1, nThrown) << nAllowed;
    }
}

namespace
{

// The whole report of a failed assertion, with whatever line number and callers. An emulator adds a line of its own.
auto Report(const std::string& strFunction, const std::string& strCondition)
{
    return testing::AllOf(testing::StartsWith("ASSERT: " + strCondition + " at: \n\tvoid CBMAContainer::" + strFunction +
                                              ",\n\tSource/Common/LogicalControls/ConsoleBitmapArray:"),
                          testing::MatchesRegex("([^\n]*\n){2}\tSource/Common/LogicalControls/ConsoleBitmapArray:[1-9][0-9]*"
                                                "\n stack frame:(\n  [^\n]+, [^\n]+)+\n(qemu: [^\n]*\n)?"));
}

} // namespace

TEST(ConsoleBitmapArrayDeathTest, DoublesAbort)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const testing::KilledBySignal aborted(SIGABRT);
    double fResult = 0;
    EXPECT_EXIT(pImage->SetPPC(enRotary, enMicInput, 0, 0, 0.5, false, false), aborted,
                Report("SetPPC(enPPCMessageType, enVirtualPathType, int, int, double, bool, bool)", "0"));
    EXPECT_EXIT(pImage->SetPPC(Type(7), Path(51), -1, -1, 0.5, true, true), aborted,
                Report("SetPPC(enPPCMessageType, enVirtualPathType, int, int, double, bool, bool)", "0"));
    EXPECT_EXIT(pImage->GetPPC(enRotary, enMicInput, 0, 0, fResult), aborted,
                Report("GetPPC(enPPCMessageType, enVirtualPathType, int, int, double&)", "0"));
    EXPECT_EXIT(pImage->GetPPC(Type(-1), Path(-1), -1, -1, fResult), aborted,
                Report("GetPPC(enPPCMessageType, enVirtualPathType, int, int, double&)", "0"));
}

TEST(ConsoleBitmapArrayDeathTest, SIOfAnotherTypeAborts)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    for (const int nType : {-1, 0, 2, 3, 5, 6, 7})
    {
        EXPECT_EXIT(pImage->SetPPCSI(Type(nType), enMicInput, 0, 0, 0.5f, nType % 2 == 0), testing::KilledBySignal(SIGABRT),
                    Report("SetPPCSI(enPPCMessageType, enVirtualPathType, int, int, float, bool)", "NASTY"));
    }
}

TEST_F(ConsoleImage, CopiesNoBlockToNowhere)
{
    for (int nType = -1; nType <= c_nMessageTypes; ++nType)
    {
        m_Image.GetOwnCopyMessageMemory(static_cast<tagenPPCMessageType>(nType), nullptr);
    }
}
