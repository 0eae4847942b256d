#include "LogicalControls/DefaultParameterValues.h"

#include "LogicalControls/ConsoleBitmapArray.h"
#include "Support/Bytes.h"
#include "Support/Locales.h"
#include "Support/SystemCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <locale>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace
{

using Support::CSocketRecorder;
using Support::tBytes;
using testing::IsEmpty;
using testing::SizeIs;

static_assert(std::is_same<decltype(pvDefaultParameterValues), const void* const[357]>::value, "an array for each pair");
static_assert(sizeof(int) == 4 && sizeof(float) == 4 && std::numeric_limits<float>::is_iec559, "elements of four bytes");

tagenPPCMessageType Type(int nType)
{
    return static_cast<tagenPPCMessageType>(nType);
}

tagenVirtualPathType Path(int nPathType)
{
    return static_cast<tagenVirtualPathType>(nPathType);
}

// Every number that is not 0: floats as their bits, from the first to the last parameter.
struct stNumbers
{
    tagenPPCMessageType enType;
    tagenVirtualPathType enPathType;
    int nFirst;
    int nLast;
    std::uint32_t unBits;
};

constexpr std::uint32_t c_unMinus100 = 0xc2c80000;
constexpr std::uint32_t c_unUnset = 0x80000000;

// clang-format off
const stNumbers c_aNumbers[] = {
    {enFader, enMicInput, 0, 0, c_unMinus100}, {enFader, enAuxReturn, 0, 0, c_unMinus100}, {enFader, enSubMix, 0, 0, c_unMinus100},
    {enFader, enMaster, 0, 0, c_unMinus100}, {enFader, enMainOut, 0, 0, c_unMinus100},
    {enFader, enHeronOutputBayStripArea, 0, 0, c_unMinus100}, {enFader, enOutputBayStripArea, 0, 0, c_unMinus100},
    {enFader, enInputBayStrip, 1, 1, c_unMinus100}, {enFader, enHeronInputBayStrip, 1, 1, c_unMinus100},
    {enFader, enFinchChannelStrip, 1, 1, c_unMinus100}, {enFader, enWrenChannelStrip, 1, 1, c_unMinus100},
    // 0.0005, 0.1801, 2, 10, 21, 120
    {enRotary, enGlobals, 1, 1, 0x3a03126f}, {enRotary, enGlobals, 2, 2, 0x3e386c22}, {enRotary, enGlobals, 3, 3, 0x40000000},
    {enRotary, enGlobals, 4, 4, 0x41200000}, {enRotary, enGlobals, 5, 5, 0x41a80000}, {enRotary, enGlobals, 6, 6, 0x42f00000},
    // 0.05263158 twice, -100, 0.5, 1, -6, 10, 20000, 80, 400, 1600, 5000, 0.487 twice
    {enRotary, enMicInput, 0, 1, 0x3d579436}, {enRotary, enMicInput, 4, 4, c_unMinus100}, {enRotary, enMicInput, 5, 5, 0x3f000000},
    {enRotary, enMicInput, 10, 10, 0x3f800000}, {enRotary, enMicInput, 11, 11, 0xc0c00000},
    {enRotary, enMicInput, 12, 12, 0x41200000}, {enRotary, enMicInput, 13, 13, 0x469c4000},
    {enRotary, enMicInput, 18, 18, 0x42a00000}, {enRotary, enMicInput, 19, 19, 0x43c80000},
    {enRotary, enMicInput, 20, 20, 0x44c80000}, {enRotary, enMicInput, 21, 21, 0x459c4000},
    {enRotary, enMicInput, 22, 23, 0x3ef95810},
    {enInteger, enMicInput, 0, 0, c_unUnset}, {enInteger, enMicInput, 4, 5, c_unUnset}, {enInteger, enMicInput, 16, 17, c_unUnset},
    {enInteger, enMicInput, 15, 15, 0xff00b900}, {enInteger, enSystemDevices, 2, 26, c_unUnset},
    {enInteger, enVCAGroups, 0, 0, 0xff00b900}, {enInteger, enVCAGroups, 4, 27, 65535},
    {enSwitch, enGlobals, 1, 1, 1}, {enSwitch, enGlobals, 7, 12, 1}, {enSwitch, enGlobals, 16, 23, 1},
};

struct stNames
{
    tagenVirtualPathType enPathType;
    std::vector<std::string> names;
};

// Where a group has patterns; every other text is empty.
const stNames c_aNames[] = {
    {enMicInput, {"IN%ch%", "Mic%ch%"}}, {enAuxReturn, {"AR%ch%", "AuxR%ch%"}}, {enSubMix, {"AS%ch%", "AuxS%ch%"}},
    {enMaster, {"M%ch%", ""}}, {enMainOut, {"MO%ch%", "Mtx%ch%"}}, {enMonitors, {"Monitors"}},
    {enInternalFX, {"FX%ch%", "Ifx%ch%", "120.0", "Ch name", "Ch name", "Ch name", "Ch name", "Ch name", "Ch name", "Ch name",
                    "Ch name", "Ch name", "Ch name", "Ch name", "Ch name", "Ch name", "Ch name", "Ch name", "Ch name"}},
    {enGEQPool, {"GEQ%ch%", "Geq%ch%"}}, {enVCAGroups, {"VCA%ch%", "VCA%ch%"}}, {enTalkGroups, {"TG%ch%", "TalkG%ch%"}},
    {enMuteGroups, {"MG%ch%", "Mute%ch%"}},
    {enSystemDevices, {"IO%ch%", "IO%ch%", "Out1", "Out2", "Out3", "Out4", "Out5", "Out6", "Out7", "Out8", "Out9", "Out10", "Out11",
                       "Out12", "Out13", "Out14", "Out15", "Out16", "Out17", "Out18", "Out19", "Out20", "Out21", "Out22", "Out23",
                       "Out24", "In1", "In2", "In3", "In4", "In5", "In6", "In7", "In8", "In9", "In10", "In11", "In12", "In13",
                       "In14", "In15", "In16", "In17", "In18", "In19", "In20", "In21", "In22", "In23", "In24"}},
    {enGenericAES50Device, {"DEV%ch%", "Device %ch%"}}, {enKestrelDevice, {"", "Kestrel %ch%"}}, {enTern, {"Orvik", "GEQ", "Geq"}},
    {enAuk, {"IO%ch%", "IO%ch%"}},
};

const std::size_t c_aunStrings[] = {75, 2, 2, 2, 2, 2, 162, 19, 2, 1, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 12, 1, 1, 1, 50,
                                    2, 2, 1, 1, 1, 1, 1, 12, 1, 1, 1, 3, 1, 12, 1, 1, 1, 1, 1, 12, 1, 1, 1, 1, 2};
// clang-format on

struct stStringArray
{
    const char* const* pArray;
    std::size_t unCount;
};

const stStringArray c_aStringArrays[] = {
#define LC_PARAMETER_GROUP(group, ...)                                                                                             \
    {group##Parameters::enPPCStringMessage::caDefaults, std::size(group##Parameters::enPPCStringMessage::caDefaults)},
#include "LogicalControls/ParameterGroups.def"
#undef LC_PARAMETER_GROUP
};

std::uint32_t ExpectedBits(int nType, int nPathType, int nParam)
{
    for (const stNumbers& numbers : c_aNumbers)
    {
        if (numbers.enType == nType && numbers.enPathType == nPathType && numbers.nFirst <= nParam && nParam <= numbers.nLast)
        {
            return numbers.unBits;
        }
    }
    return 0;
}

std::string ExpectedName(int nPathType, int nParam)
{
    if (nPathType == enGlobals)
    {
        return nParam == 74 ? "remote1" : "";
    }
    for (const stNames& row : c_aNames)
    {
        if (row.enPathType == nPathType && static_cast<std::size_t>(nParam) < row.names.size())
        {
            return row.names[static_cast<std::size_t>(nParam)];
        }
    }
    return "";
}

template <class T>
std::uint32_t Bits(const T& value)
{
    std::uint32_t unBits = 0;
    static_assert(sizeof value == sizeof unBits, "a number of four bytes");
    std::memcpy(&unBits, &value, sizeof unBits);
    return unBits;
}

std::uint32_t TableBits(int nType, int nPathType, int nParam)
{
    const void* pArray = pvDefaultParameterValues[nPathType * 7 + nType];
    if (nType == enSwitch || nType == enMeter)
    {
        return static_cast<const unsigned char*>(pArray)[nParam];
    }
    const bool bFloat = nType == enRotary || nType == enFader;
    return bFloat ? Bits(static_cast<const float*>(pArray)[nParam]) : Bits(static_cast<const int*>(pArray)[nParam]);
}

// Calls with every parameter that has a default.
template <class Call>
void ForEachDefault(Call call)
{
    for (int nEntry = 0; nEntry < 357; ++nEntry)
    {
        for (int nParam = 0; nParam < canMaxParams[nEntry]; ++nParam)
        {
            call(nEntry % 7, nEntry / 7, nParam);
        }
    }
}

template <class T>
bool IsRefused(int nType, int nPathType, int nParam, T before)
{
    T value = before;
    return !GetDefaultPPC(Type(nType), Path(nPathType), nParam, value) && value == before;
}

bool IsRefusedByAll(int nType, int nPathType, int nParam)
{
    return IsRefused(nType, nPathType, nParam, 77.5f) && IsRefused(nType, nPathType, nParam, 77) &&
           IsRefused<unsigned char>(nType, nPathType, nParam, 77) && IsRefused<const char*>(nType, nPathType, nParam, "77");
}

template <class T>
T Default(int nType, int nPathType, int nParam)
{
    T value = T();
    EXPECT_TRUE(GetDefaultPPC(Type(nType), Path(nPathType), nParam, value)) << nType << " " << nPathType << " " << nParam;
    return value;
}

std::string Name(const char* szPattern, int nPath)
{
    return ExpandDefaultName(szPattern, nPath).Text();
}

std::string Replaced(std::string strPattern, int nPath)
{
    const std::size_t unMarker = strPattern.find("%ch%");
    return unMarker == std::string::npos ? strPattern : strPattern.replace(unMarker, 4, std::to_string(nPath + 1));
}

std::uint32_t DefaultBits(int nType, int nPathType, int nParam)
{
    switch (nType)
    {
    case enRotary:
    case enFader:
        return Bits(Default<float>(nType, nPathType, nParam));
    case enMeter:
        return Default<unsigned char>(nType, nPathType, nParam);
    default:
        return Bits(Default<int>(nType, nPathType, nParam));
    }
}

struct stAt
{
    tagenPPCMessageType enType;
    tagenVirtualPathType enPathType;
    int nPath;
    int nParam;
};

template <class Call>
void ForEachParameter(Call call)
{
    ForEachDefault(
        [&](int nType, int nPathType, int nParam)
        {
            for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
            {
                call(stAt{Type(nType), Path(nPathType), nPath, nParam});
            }
        });
}

template <class T>
bool Holds(const CBMAContainer& image, const stAt& at, const T& expected)
{
    T value = T();
    image.GetPPC(at.enType, at.enPathType, at.nPath, at.nParam, value);
    return std::memcmp(&value, &expected, sizeof value) == 0;
}

bool HoldsDefault(const CBMAContainer& image, const stAt& at)
{
    switch (at.enType)
    {
    case enString:
        return Holds(image, at, ExpandDefaultName(Default<const char*>(enString, at.enPathType, at.nParam), at.nPath));
    case enRotary:
    case enFader:
        return Holds(image, at, Default<float>(at.enType, at.enPathType, at.nParam));
    case enMeter:
        return Holds(image, at, Default<unsigned char>(enMeter, at.enPathType, at.nParam));
    default:
        return Holds(image, at, Default<int>(at.enType, at.enPathType, at.nParam));
    }
}

// Every parameter has a value that is not its default, an SI float, and some of the scope flags.
std::unique_ptr<CBMAContainer> UsedImage()
{
    auto pImage = std::make_unique<CBMAContainer>();
    CBMAContainer& image = *pImage;
    ForEachParameter(
        [&](const stAt& at)
        {
            const tagenPPCMessageType enType = at.enType;
            RyGConsoleString strOther("abcdefghijkl");
            const int nOther = enType == enSwitch ? 1 - Default<int>(enType, at.enPathType, at.nParam) : 0x01020304;
            image.SetPPC(enType, at.enPathType, at.nPath, at.nParam, strOther, false, false);
            image.SetPPC(enType, at.enPathType, at.nPath, at.nParam, 7.25f, false, false);
            image.SetPPC(enType, at.enPathType, at.nPath, at.nParam, nOther, false, false);
            image.SetPPC(enType, at.enPathType, at.nPath, at.nParam, static_cast<unsigned char>(0x5a), false, false);
            if (enType == enRotary || enType == enFader)
            {
                image.SetPPCSI(enType, at.enPathType, at.nPath, at.nParam, static_cast<float>(at.nPath) + 0.5f, false);
            }
            image.SetPPCStoreScope(enType, at.enPathType, at.nPath, at.nParam, at.nParam % 2);
            image.SetPPCRecallScope(enType, at.enPathType, at.nPath, at.nParam, at.nPath % 2);
            image.SetPPCGlobalScope(enType, at.enPathType, at.nPath, at.nParam, at.nParam % 3 == 0);
            image.SetPPCSafeScope(enType, at.enPathType, at.nPath, at.nParam, at.nPath % 3 == 0);
        });
    return pImage;
}

// The scope flags and the SI float of a parameter.
std::array<float, 5> Extras(const CBMAContainer& image, const stAt& at)
{
    int anFlags[] = {77, 77, 77, 77};
    float fSI = 77;
    image.GetPPCStoreScope(at.enType, at.enPathType, at.nPath, at.nParam, anFlags[0]);
    image.GetPPCRecallScope(at.enType, at.enPathType, at.nPath, at.nParam, anFlags[1]);
    image.GetPPCGlobalScope(at.enType, at.enPathType, at.nPath, at.nParam, anFlags[2]);
    image.GetPPCSafeScope(at.enType, at.enPathType, at.nPath, at.nParam, anFlags[3]);
    image.GetPPCSI(at.enType, at.enPathType, at.nPath, at.nParam, fSI);
    std::array<float, 5> extras = {0, 0, 0, 0, fSI};
    std::copy(std::begin(anFlags), std::end(anFlags), extras.begin());
    return extras;
}

std::vector<tBytes> Blocks(const CBMAContainer& image)
{
    std::vector<tBytes> blocks;
    for (int nType = 0; nType < 7; ++nType)
    {
        const void* pMemory = nullptr;
        long lBytes = -1;
        image.GetMessageMemory(Type(nType), pMemory, lBytes);
        const unsigned char* pBytes = static_cast<const unsigned char*>(pMemory);
        blocks.emplace_back(pBytes, pBytes + lBytes);
    }
    return blocks;
}

std::vector<std::uint32_t> CheckWords(CBMAContainer& image)
{
    image.UpdateXors();
    std::vector<std::uint32_t> words;
    for (int nType = 0; nType < 7; ++nType)
    {
        words.push_back(image.GetXorVal(Type(nType)));
    }
    return words;
}

} // namespace

TEST(DefaultParameterValues, HoldTheNumberOfEveryParameter)
{
    int nNotZero = 0;
    ForEachDefault(
        [&](int nType, int nPathType, int nParam)
        {
            if (nType == enString)
            {
                return;
            }
            const std::uint32_t unBits = TableBits(nType, nPathType, nParam);
            EXPECT_EQ(unBits, ExpectedBits(nType, nPathType, nParam)) << nType << " " << nPathType << " " << nParam;
            EXPECT_EQ(unBits, DefaultBits(nType, nPathType, nParam)) << nType << " " << nPathType << " " << nParam;
            nNotZero += unBits != 0;
        });
    EXPECT_EQ(nNotZero, 11 + 20 + 56 + 15); // faders, rotaries, integers, switches
}

TEST(DefaultParameterValues, HoldTheNamePatternOfEveryParameter)
{
    int nNotEmpty = 0;
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        for (int nParam = 0; nParam < canMaxParams[nPathType * 7]; ++nParam)
        {
            const char* szPattern = c_aStringArrays[nPathType].pArray[nParam];
            ASSERT_NE(szPattern, nullptr) << nPathType << " " << nParam;
            EXPECT_EQ(szPattern, ExpectedName(nPathType, nParam)) << nPathType << " " << nParam;
            EXPECT_EQ(Default<const char*>(enString, nPathType, nParam), szPattern) << nPathType << " " << nParam;
            nNotEmpty += *szPattern != 0;
        }
    }
    EXPECT_EQ(nNotEmpty, 96);
}

TEST(DefaultParameterValues, HaveAStringArrayOfItsOwnForEachGroup)
{
    static_assert(std::size(c_aStringArrays) == 51 && std::size(c_aunStrings) == 51, "an array a group");
    static_assert(sizeof MonitorsParameters::enPPCStringMessage::caDefaults == 162 * sizeof(const char*), "an entry a parameter");
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        EXPECT_EQ(pvDefaultParameterValues[nPathType * 7], c_aStringArrays[nPathType].pArray) << nPathType;
        EXPECT_EQ(c_aStringArrays[nPathType].unCount, c_aunStrings[nPathType]) << nPathType;
        EXPECT_EQ(c_aStringArrays[nPathType].unCount, static_cast<std::size_t>(canMaxParams[nPathType * 7])) << nPathType;
    }
}

TEST(DefaultParameterValues, HaveAnArrayForEveryPair)
{
    EXPECT_THAT(pvDefaultParameterValues, testing::Each(testing::NotNull()));
}

TEST(DefaultParameterValues, AreReadWithTheirTypes)
{
    EXPECT_EQ(Default<float>(enFader, enMicInput, 0), -100.0f);
    EXPECT_EQ(Default<float>(enFader, enVCAGroups, 96), 0.0f);
    EXPECT_EQ(Default<float>(enRotary, enMicInput, 23), 0.487f);
    EXPECT_EQ(Default<int>(enSwitch, enGlobals, 23), 1);
    EXPECT_EQ(Default<int>(enInteger, enSystemDevices, 26), INT_MIN);
    EXPECT_EQ(Default<int>(enInteger, enVCAGroups, 0), -16729856);
    EXPECT_EQ(Default<int>(enOther, enAuk, 0), 0);
    EXPECT_EQ(Default<unsigned char>(enMeter, enMasterBayDetailArea, 441), 0);
    EXPECT_STREQ(Default<const char*>(enString, enMicInput, 1), "Mic%ch%");
}

TEST(DefaultParameterValues, AreRefusedToAnotherValueType)
{
    ForEachDefault(
        [](int nType, int nPathType, int nParam)
        {
            const bool bFloat = nType == enRotary || nType == enFader;
            const bool bInt = nType == enSwitch || nType == enInteger || nType == enOther;
            EXPECT_EQ(IsRefused(nType, nPathType, nParam, 77.5f), !bFloat) << nType;
            EXPECT_EQ(IsRefused(nType, nPathType, nParam, 77), !bInt) << nType;
            EXPECT_EQ(IsRefused<unsigned char>(nType, nPathType, nParam, 77), nType != enMeter) << nType;
            EXPECT_EQ(IsRefused<const char*>(nType, nPathType, nParam, "77"), nType != enString) << nType;
        });
}

TEST(DefaultParameterValues, AreRefusedForParametersThatDoNotExist)
{
    for (int nEntry = 0; nEntry < 357; ++nEntry)
    {
        for (const int nParam : {INT_MIN, -2, -1, canMaxParams[nEntry], canMaxParams[nEntry] + 1, INT_MAX})
        {
            EXPECT_TRUE(IsRefusedByAll(nEntry % 7, nEntry / 7, nParam)) << nEntry << " " << nParam;
        }
    }
}

TEST(DefaultParameterValues, AreRefusedForTypesThatDoNotExist)
{
    for (const int nNone : {INT_MIN, -357, -51, -7, -1, 51, 52, 357, INT_MAX})
    {
        for (int nType = -1; nType < 8; ++nType)
        {
            EXPECT_TRUE(IsRefusedByAll(nType, nNone, 0)) << nType << " " << nNone;
        }
    }
    for (const int nNone : {INT_MIN, -7, -1, 7, 8, 14, INT_MAX})
    {
        for (int nPathType = -1; nPathType < 52; ++nPathType)
        {
            EXPECT_TRUE(IsRefusedByAll(nNone, nPathType, 0)) << nNone << " " << nPathType;
        }
    }
}

TEST(ExpandDefaultName, PutsThePathsNumberForEachMarker)
{
    EXPECT_EQ(Name("Mic%ch%", 0), "Mic1");
    EXPECT_EQ(Name("%ch%: %ch%", 143), "144: 144");
    EXPECT_EQ(Name("%ch%%ch%", 8), "99");
    EXPECT_EQ(Name("%%ch%%", 9), "%10%");
    EXPECT_EQ(Name("%ch%ch%", 1), "2ch%");
    EXPECT_EQ(Name("%c%ch%h%", 1), "%c2h%");
}

TEST(ExpandDefaultName, LeavesEverythingElseAsItIs)
{
    for (const char* szPattern : {"", "Ch name", "remote1", "Out24", "%ch", "ch%", "%", "%%", "%CH%", "% ch%", "%ch %", "%d %s %n"})
    {
        EXPECT_EQ(Name(szPattern, 0), szPattern);
        EXPECT_EQ(Name(szPattern, INT_MAX), szPattern);
    }
    EXPECT_EQ(Name("A%ch%B%ch", 4), "A5B%ch");
}

TEST(ExpandDefaultName, CutsToWhatAConsoleStringHolds)
{
    EXPECT_EQ(Name("abcdefghijklm", 0), "abcdefghijkl");
    EXPECT_EQ(Name("abcdefghijk%ch%", 11), "abcdefghijk1");
    EXPECT_EQ(Name("abcdefghijkl%ch%", 11), "abcdefghijkl");
    EXPECT_EQ(Name("abcdefghij%ch%xyz", 0), "abcdefghij1x");
    EXPECT_EQ(Name("%ch%%ch%%ch%%ch%xyz", 0), "1111xyz");
    EXPECT_EQ(Name((std::string(5000, '-') + "%ch%").c_str(), 0), "------------");
}

TEST(ExpandDefaultName, TakesAnyPathNumber)
{
    EXPECT_EQ(Name("IN%ch%", -1), "IN0");
    EXPECT_EQ(Name("IN%ch%", -2), "IN-1");
    EXPECT_EQ(Name("IN%ch%", INT_MAX), "IN2147483648");
    EXPECT_EQ(Name("%ch%%ch%", INT_MAX), "214748364821");
    EXPECT_EQ(Name("%ch%", INT_MIN), "-2147483647");
}

TEST(ExpandDefaultName, CountsANullPatternAsEmptyAndFillsUpWithZeros)
{
    EXPECT_EQ(ExpandDefaultName(nullptr, 3), RyGConsoleString());
    EXPECT_EQ(ExpandDefaultName("", 3), RyGConsoleString());
    EXPECT_EQ(ExpandDefaultName("Mic%ch%", 3), RyGConsoleString("Mic4"));
}

TEST(ExpandDefaultName, WritesPlainDigitsUnderAnyLocale)
{
    const Support::CGlobalLocale locale;
    EXPECT_EQ(Name("%ch%", 1234566), "1234567");
}

TEST(ExpandDefaultName, CutsNoNameOfThisConsole)
{
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        for (int nParam = 0; nParam < canMaxParams[nPathType * 7]; ++nParam)
        {
            for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
            {
                const std::string strName = Replaced(ExpectedName(nPathType, nParam), nPath);
                EXPECT_LE(strName.size(), 12u) << strName;
                EXPECT_EQ(Name(c_aStringArrays[nPathType].pArray[nParam], nPath), strName);
            }
        }
    }
}

TEST(ApplyDefaults, GivesEveryParameterItsDefaultAndLeavesFlagsAndSIFloats)
{
    const auto pImage = UsedImage();
    const auto pBefore = std::make_unique<CBMAContainer>(*pImage);
    ApplyDefaults(*pImage);
    int nCompared = 0;
    ForEachParameter(
        [&](const stAt& at)
        {
            EXPECT_FALSE(HoldsDefault(*pBefore, at)) << at.enType << " " << at.enPathType << " " << at.nPath << " " << at.nParam;
            EXPECT_TRUE(HoldsDefault(*pImage, at)) << at.enType << " " << at.enPathType << " " << at.nPath << " " << at.nParam;
            EXPECT_EQ(Extras(*pImage, at), Extras(*pBefore, at)) << at.enType << " " << at.enPathType << " " << at.nParam;
            ++nCompared;
        });
    EXPECT_EQ(nCompared, 241339);
    EXPECT_EQ(Extras(*pImage, {enFader, enMicInput, 3, 0}), (std::array<float, 5>{0, 1, 1, 1, 3.5f}));
}

TEST(ApplyDefaults, NamesThePathsOfAnImage)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    ApplyDefaults(*pImage);
    EXPECT_TRUE(Holds(*pImage, {enString, enMicInput, 143, 0}, RyGConsoleString("IN144")));
    EXPECT_TRUE(Holds(*pImage, {enString, enMicInput, 0, 1}, RyGConsoleString("Mic1")));
    EXPECT_TRUE(Holds(*pImage, {enString, enKestrelDevice, 17, 1}, RyGConsoleString("Kestrel 18")));
    EXPECT_TRUE(Holds(*pImage, {enString, enSystemDevices, 27, 25}, RyGConsoleString("Out24")));
    EXPECT_TRUE(Holds(*pImage, {enString, enGlobals, 0, 74}, RyGConsoleString("remote1")));
    EXPECT_TRUE(Holds(*pImage, {enString, enInternalFX, 23, 2}, RyGConsoleString("120.0")));
    EXPECT_TRUE(Holds(*pImage, {enFader, enMicInput, 71, 0}, -100.0f));
}

TEST(ApplyDefaults, MakesImagesEqualWhateverTheyHeld)
{
    const auto pUsed = UsedImage();
    const auto pFresh = std::make_unique<CBMAContainer>();
    ASSERT_NE(Blocks(*pUsed), Blocks(*pFresh));
    ApplyDefaults(*pUsed);
    ApplyDefaults(*pFresh);
    EXPECT_EQ(Blocks(*pUsed), Blocks(*pFresh));
    EXPECT_EQ(CheckWords(*pUsed), CheckWords(*pFresh));
    const std::vector<tBytes> once = Blocks(*pUsed);
    ApplyDefaults(*pUsed);
    EXPECT_EQ(Blocks(*pUsed), once);
}

TEST(ApplyDefaults, DoesWithoutTheSwitchesThatFoundNoMemory)
{
    int nWithout = 0;
    for (int nAllowed = 0; nAllowed < 60; ++nAllowed)
    {
        std::unique_ptr<CBMAContainer> pImage;
        try
        {
            const Support::CFailingCall noMemory(Support::CFailingCall::enMalloc, nAllowed, 1);
            pImage = std::make_unique<CBMAContainer>();
        }
        catch (int)
        {
            continue; // a value array does not
        }
        void* pSwitches = nullptr;
        long lBytes = 0;
        pImage->GetMessageMemory(enSwitch, pSwitches, lBytes);
        nWithout += pSwitches == nullptr;
        ApplyDefaults(*pImage);
        EXPECT_TRUE(Holds(*pImage, {enFader, enMicInput, 71, 0}, -100.0f)) << nAllowed;
    }
    EXPECT_EQ(nWithout, 1);
}

TEST(ApplyDefaults, SendsAndPrintsNothing)
{
    CSocketRecorder recorder;
    const auto pImage = UsedImage();
    pImage->SetUseSimplePPCSender(true);
    pImage->InitSimplePPCSenderComms();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ApplyDefaults(*pImage);
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(recorder.sent, IsEmpty());
    pImage->SetPPC(enRotary, enMicInput, 0, 0, 0.5f, false, false);
    EXPECT_THAT(recorder.sent, SizeIs(1));
}
