#include "LogicalControls/ParameterModel.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <iterator>
#include <string>
#include <type_traits>

namespace
{

struct stGroup
{
    tagenVirtualPathType enPathType;
    const char* szName;
    int nPaths;
    int anParams[7]; // strings, rotaries, switches, integers, faders, others, meters
};

// Stated once more in full, so that a slip in the library's own table can't hide.
// clang-format off
const stGroup c_aGroups[] = {
    {enGlobals, "Globals", 1, {75, 7, 248, 147, 1, 1, 23}},
    {enMicInput, "MicInput", 144, {2, 280, 576, 23, 2, 1, 9}},
    {enAuxReturn, "AuxReturn", 24, {2, 264, 552, 17, 2, 1, 2}},
    {enSubMix, "SubMix", 72, {2, 102, 216, 16, 2, 1, 8}},
    {enMaster, "Master", 3, {2, 101, 208, 15, 2, 1, 9}},
    {enMainOut, "MainOut", 24, {2, 35, 96, 13, 2, 1, 8}},
    {enMonitors, "Monitors", 1, {162, 112, 104, 212, 1, 1, 17}},
    {enInternalFX, "InternalFX", 24, {19, 350, 16, 30, 2, 1, 273}},
    {enGEQPool, "GEQPool", 36, {2, 35, 16, 5, 1, 1, 1}},
    {enSmib, "Smib", 1, {1, 1, 8, 1, 1, 1, 1}},
    {enVCAGroups, "VCAGroups", 18, {2, 1, 480, 28, 97, 1, 1}},
    {enTalkGroups, "TalkGroups", 4, {2, 1, 280, 1, 1, 1, 1}},
    {enMuteGroups, "MuteGroups", 8, {2, 1, 280, 2, 1, 1, 1}},
    {enLineIOModule, "LineIOModule", 54, {1, 1, 40, 23, 1, 1, 1}},
    {enLineIOCPU, "LineIOCPU", 18, {1, 1, 48, 60, 1, 1, 49}},
    {enMicSplitCPU, "MicSplitCPU", 8, {1, 1, 160, 109, 1, 1, 72}},
    {enInputBayStrip, "InputBayStrip", 1, {1, 1, 24, 11, 2, 1, 16}},
    {enInputBayDetail, "InputBayDetail", 1, {1, 1, 96, 29, 1, 1, 19}},
    {enOutputBayStripArea, "OutputBayStripArea", 1, {1, 1, 16, 3, 1, 1, 15}},
    {enOutputBayDetailArea, "OutputBayDetailArea", 1, {1, 1, 56, 24, 1, 1, 3}},
    {enMasterBayStripArea, "MasterBayStripArea", 1, {1, 1, 16, 2, 1, 1, 14}},
    {enMasterBayDetailArea, "MasterBayDetailArea", 3, {12, 1, 24, 22, 1, 1, 442}},
    {enCommand, "Command", 1, {1, 1, 16, 3, 1, 1, 1}},
    {enFOHRouter, "FOHRouter", 3, {1, 1, 8, 2, 1, 1, 1}},
    {enStageRouter, "StageRouter", 8, {1, 1, 8, 2, 1, 1, 1}},
    {enSystemDevices, "SystemDevices", 28, {50, 1, 8, 27, 1, 1, 1}},
    {enGenericAES50Device, "GenericAES50Device", 18, {2, 1, 8, 1, 1, 1, 1}},
    {enKestrelDevice, "KestrelDevice", 18, {2, 1, 8, 1, 1, 1, 1}},
    {enHeronInputBayStrip, "HeronInputBayStrip", 28, {1, 1, 32, 8, 2, 1, 29}},
    {enHeronInputBayDetail, "HeronInputBayDetail", 2, {1, 1, 120, 26, 1, 1, 20}},
    {enHeronOutputBayStripArea, "HeronOutputBayStripArea", 42, {1, 1, 16, 3, 2, 1, 28}},
    {enHeronOutputBayDetailArea, "HeronOutputBayDetailArea", 1, {1, 1, 48, 22, 1, 1, 12}},
    {enHeronMasterBayStripArea, "HeronMasterBayStripArea", 3, {1, 1, 16, 2, 1, 1, 1}},
    {enHeronMasterBayDetailArea, "HeronMasterBayDetailArea", 1, {12, 1, 32, 22, 1, 1, 26}},
    {enHeronBoxModule, "HeronBoxModule", 32, {1, 1, 40, 21, 1, 1, 1}},
    {enHeronBoxCPU, "HeronBoxCPU", 4, {1, 1, 48, 57, 1, 1, 128}},
    {enHeronSurfaceMonitorIO, "HeronSurfaceMonitorIO", 1, {1, 1, 8, 1, 1, 1, 10}},
    {enTern, "Tern", 1, {3, 35, 16, 12, 1, 1, 2}},
    {enFinchChannelStrip, "FinchChannelStrip", 1, {1, 1, 24, 8, 2, 1, 15}},
    {enFinchDetail, "FinchDetail", 1, {12, 1, 120, 44, 1, 1, 4}},
    {enFinchOutputStrip, "FinchOutputStrip", 1, {1, 1, 16, 2, 1, 1, 1}},
    {enFinchMixStrip, "FinchMixStrip", 1, {1, 1, 16, 3, 1, 1, 15}},
    {enFinchBoxCPU, "FinchBoxCPU", 4, {1, 1, 96, 90, 1, 1, 96}},
    {enFinchSurfaceMonitorIO, "FinchSurfaceMonitorIO", 1, {1, 1, 8, 5, 1, 1, 24}},
    {enWrenChannelStrip, "WrenChannelStrip", 1, {1, 1, 24, 8, 2, 1, 15}},
    {enWrenDetail, "WrenDetail", 1, {12, 1, 128, 44, 1, 1, 4}},
    {enWrenOutputStrip, "WrenOutputStrip", 1, {1, 1, 16, 2, 1, 1, 1}},
    {enWrenMixStrip, "WrenMixStrip", 1, {1, 1, 16, 3, 1, 1, 15}},
    {enWrenSurfaceMonitorIO, "WrenSurfaceMonitorIO", 1, {1, 1, 8, 5, 1, 1, 24}},
    {enWrenBoxCPU, "WrenBoxCPU", 18, {1, 1, 72, 95, 1, 1, 48}},
    {enAuk, "Auk", 2, {2, 1, 8, 69, 1, 1, 64}},
};

struct stCommon
{
    int nMessageType;
    int anParam[13]; // Globals to MuteGroups; no later path type has any
};

const stCommon c_aCommon[] = {
    {2, {-1, 0, 6, 19, 10, 15, -1, -1, -1, -1, 0, -1, -1}},
    {2, {-1, 4, 7, 21, 11, 16, -1, -1, -1, -1, 97, -1, -1}},
    {2, {-1, 571, 544, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 124, 539, 14, 17, 5, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 126, 10, 55, 27, 19, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 135, -1, 116, 40, 32, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 139, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 117, -1, 5, 3, 7, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 102, 534, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 105, 541, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 108, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 111, 4, 17, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 110, 3, 16, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 244, 113, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 148, 17, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 316, 185, 89, 107, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 220, 89, 65, 83, -1, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 5, 0, 3, 3, -1, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 3, 154, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 27, -1, 11, 29, 22, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 33, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 0, 151, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 1, 152, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 2, 153, 0, 0, 0, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 40, 7, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 136, 103, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 112, 79, 36, 41, -1, -1, -1, -1, -1, -1, -1, -1}},
    {1, {-1, 172, 139, 60, 65, -1, -1, -1, -1, -1, -1, -1, -1}},
    {4, {-1, 0, 0, 0, 0, 0, -1, -1, -1, -1, 0, -1, -1}},
    {3, {-1, 15, 12, 11, 11, 11, -1, 29, 3, -1, 0, 0, 0}},
    {6, {-1, 0, 0, 0, 0, 0, -1, -1, -1, -1, -1, -1, -1}},
    {6, {-1, 2, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {6, {-1, 1, -1, 1, 2, 1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, -1, -1, 211, -1, 91, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 1, 0, 0, 0, 0, -1, -1, -1, -1, -1, -1, -1}},
    {0, {-1, 1, 1, 1, 1, 1, -1, -1, -1, -1, 1, -1, -1}},
    {2, {-1, 6, 209, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 78, 281, 31, 131, -1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 5, 8, 22, 12, 17, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 2, 1, 1, -1, 1, -1, -1, -1, -1, -1, -1, -1}},
    {2, {-1, 3, 2, 2, -1, 2, -1, -1, -1, -1, -1, -1, -1}},
};
// clang-format on

const int c_anCounts[] = {3151, 65300, 138696, 14856, 2765, 673, 15898};
const int c_anNoPathTypes[] = {INT_MIN, -2, -1, 51, 52, INT_MAX};
const int c_anNoMessageTypes[] = {INT_MIN, -2, -1, 7, 8, INT_MAX};

static_assert(std::size(c_aGroups) == 51, "one row a path type");
static_assert(std::size(c_aCommon) == 41, "one row a common type");
static_assert(std::is_same<decltype(canMaxPaths), const int[51]>::value, "indexed by path type");
static_assert(std::is_same<decltype(canMaxParams), const int[357]>::value, "51 rows of 7");
static_assert(std::is_same<decltype(canCommonParamTypesTable), const int* const[41]>::value, "a row a common type");
static_assert(std::is_same<decltype(caCommonParamTypeToMessageType), const int[41]>::value, "indexed by common type");
static_assert(sizeof(int) == 4, "the tables are 32 bits wide");
static_assert(c_nMessageTypes == 7 && c_nPathTypes == 51 && c_nCommonParamTypes == 41, "sizes of the model");

tagenVirtualPathType PathType(int nPathType)
{
    return static_cast<tagenVirtualPathType>(nPathType);
}

tagenPPCMessageType MessageType(int nType)
{
    return static_cast<tagenPPCMessageType>(nType);
}

bool IsAddress(int nType, int nPathType, int nPath, int nParam)
{
    return IsParameterAddress(MessageType(nType), PathType(nPathType), nPath, nParam);
}

} // namespace

TEST(ParameterModel, NumbersTheMessageTypesInOrder)
{
    const int anTypes[] = {enString, enRotary, enSwitch, enInteger, enFader, enOther, enMeter};
    const char* const aszNames[] = {"String", "Rotary", "Switch", "Integer", "Fader", "Other", "Meter"};
    for (int nType = 0; nType < 7; ++nType)
    {
        EXPECT_EQ(anTypes[nType], nType);
        EXPECT_STREQ(caMessageTypeNames[nType], aszNames[nType]);
    }
}

TEST(ParameterModel, NumbersAndNamesThePathTypesInOrder)
{
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        EXPECT_EQ(c_aGroups[nPathType].enPathType, nPathType);
        EXPECT_STREQ(caParameterGroupNames[nPathType], c_aGroups[nPathType].szName);
    }
}

TEST(ParameterModel, HoldsTheLimitsOfEveryGroupPathTypeMajor)
{
    for (int nPathType = 0; nPathType < 51; ++nPathType)
    {
        SCOPED_TRACE(c_aGroups[nPathType].szName);
        EXPECT_EQ(canMaxPaths[nPathType], c_aGroups[nPathType].nPaths);
        for (int nType = 0; nType < 7; ++nType)
        {
            EXPECT_EQ(canMaxParams[nPathType * 7 + nType], c_aGroups[nPathType].anParams[nType]) << nType;
        }
    }
}

TEST(ParameterModel, AddsUpToTheCountsOfAWholeConsole)
{
    int nAll = 0;
    for (int nType = 0; nType < 7; ++nType)
    {
        int nCount = 0;
        for (const stGroup& group : c_aGroups)
        {
            nCount += group.nPaths * group.anParams[nType];
        }
        EXPECT_EQ(nCount, c_anCounts[nType]) << nType;
        EXPECT_EQ(canParameterCounts[nType], c_anCounts[nType]) << nType;
        nAll += nCount;
    }
    EXPECT_EQ(nAll, 241339);
    EXPECT_EQ(c_nParameters, 241339);
}

TEST(ParameterModel, AnswersTheLimitsOfEveryPair)
{
    const CMaxPathParameterArray limits;
    EXPECT_EQ(limits.GetMaxPathTypes(), 51);
    for (const stGroup& group : c_aGroups)
    {
        EXPECT_EQ(limits.GetMaxPathOfType(group.enPathType), group.nPaths) << group.szName;
        for (int nType = 0; nType < 7; ++nType)
        {
            EXPECT_EQ(limits.GetTypeMaxParms(MessageType(nType), group.enPathType), group.anParams[nType]) << group.szName;
        }
    }
}

TEST(ParameterModel, AnswersTheLimitsOfAMicInputAndOfTheMasterBayMeters)
{
    const CMaxPathParameterArray limits;
    EXPECT_EQ(limits.GetMaxPathOfType(enMicInput), 144);
    EXPECT_EQ(limits.GetTypeMaxParms(enSwitch, enMicInput), 576);
    EXPECT_EQ(limits.GetTypeMaxParms(enMeter, enMasterBayDetailArea), 442);
}

TEST(ParameterModel, HasNoLimitsForPathTypesThatDoNotExist)
{
    const CMaxPathParameterArray limits;
    for (const int nPathType : c_anNoPathTypes)
    {
        EXPECT_EQ(limits.GetMaxPathOfType(PathType(nPathType)), 0) << nPathType;
        for (int nType = 0; nType < 7; ++nType)
        {
            EXPECT_EQ(limits.GetTypeMaxParms(MessageType(nType), PathType(nPathType)), 0) << nPathType;
        }
    }
}

TEST(ParameterModel, HasNoLimitsForMessageTypesThatDoNotExist)
{
    const CMaxPathParameterArray limits;
    for (const int nType : c_anNoMessageTypes)
    {
        for (const int nPathType : {INT_MIN, -1, 0, 50, 51, INT_MAX})
        {
            EXPECT_EQ(limits.GetTypeMaxParms(MessageType(nType), PathType(nPathType)), 0) << nType << " " << nPathType;
        }
    }
}

TEST(ParameterModel, LaysTheLimitsOutAsPathsThenParametersMessageTypeMajor)
{
    static_assert(!std::is_polymorphic<CMaxPathParameterArray>::value, "a plain class");
    static_assert(std::is_standard_layout<CMaxPathParameterArray>::value, "a plain class");
    std::array<int, 51 + 7 * 51> anHeld;
    static_assert(sizeof(CMaxPathParameterArray) == sizeof anHeld, "two tables and nothing else");

    const CMaxPathParameterArray limits;
    std::memcpy(anHeld.data(), &limits, sizeof anHeld);
    std::array<int, 51 + 7 * 51> anExpected;
    for (std::size_t unPathType = 0; unPathType < 51; ++unPathType)
    {
        anExpected[unPathType] = c_aGroups[unPathType].nPaths;
        for (std::size_t unType = 0; unType < 7; ++unType)
        {
            anExpected[51 + unType * 51 + unPathType] = c_aGroups[unPathType].anParams[unType];
        }
    }
    EXPECT_EQ(anHeld, anExpected);
}

TEST(ParameterModel, AcceptsTheFirstAndTheLastParameterOfEveryPairAndNothingBeside)
{
    for (const stGroup& group : c_aGroups)
    {
        for (int nType = 0; nType < 7; ++nType)
        {
            SCOPED_TRACE(std::string(group.szName) + " " + std::to_string(nType));
            const int nPaths = group.nPaths;
            const int nParams = group.anParams[nType];
            for (const int nPath : {INT_MIN, -1, 0, nPaths - 1, nPaths, INT_MAX})
            {
                for (const int nParam : {INT_MIN, -1, 0, nParams - 1, nParams, INT_MAX})
                {
                    const bool bExists = nPath >= 0 && nPath < nPaths && nParam >= 0 && nParam < nParams;
                    EXPECT_EQ(IsAddress(nType, group.enPathType, nPath, nParam), bExists) << nPath << " " << nParam;
                }
            }
        }
    }
}

TEST(ParameterModel, RefusesTypesThatDoNotExistAsAddresses)
{
    for (const int nPathType : c_anNoPathTypes)
    {
        for (int nType = 0; nType < 7; ++nType)
        {
            EXPECT_FALSE(IsAddress(nType, nPathType, 0, 0)) << nPathType;
            EXPECT_FALSE(IsAddress(nType, nPathType, -1, INT_MIN)) << nPathType;
        }
    }
    for (const int nType : c_anNoMessageTypes)
    {
        for (const int nPathType : {INT_MIN, -1, 0, 50, 51, INT_MAX})
        {
            EXPECT_FALSE(IsAddress(nType, nPathType, 0, 0)) << nType << " " << nPathType;
        }
    }
}

TEST(CommonParameters, HoldTheParameterNumberOfEveryPathType)
{
    for (int nCommon = 0; nCommon < 41; ++nCommon)
    {
        for (int nPathType = 0; nPathType < 51; ++nPathType)
        {
            const int nExpected = nPathType < 13 ? c_aCommon[nCommon].anParam[nPathType] : -1;
            EXPECT_EQ(canCommonParamTypesTable[nCommon][nPathType], nExpected) << nCommon << " " << nPathType;
        }
    }
}

TEST(CommonParameters, HaveTheirMessageTypes)
{
    for (int nCommon = 0; nCommon < 41; ++nCommon)
    {
        EXPECT_EQ(caCommonParamTypeToMessageType[nCommon], c_aCommon[nCommon].nMessageType) << nCommon;
    }
}

TEST(CommonParameters, AreParametersOfThePathTypesThatHaveThem)
{
    int nFound = 0;
    for (int nCommon = 0; nCommon < 41; ++nCommon)
    {
        for (int nPathType = 0; nPathType < 51; ++nPathType)
        {
            const int nParam = canCommonParamTypesTable[nCommon][nPathType];
            nFound += nParam != -1;
            EXPECT_TRUE(nParam == -1 || IsAddress(caCommonParamTypeToMessageType[nCommon], nPathType, 0, nParam)) << nCommon;
        }
    }
    EXPECT_EQ(nFound, 146);
}

TEST(CommonParameters, AreNamedWhereTheyAreKnown)
{
    EXPECT_EQ(static_cast<int>(enCommonFader), 28);
    EXPECT_EQ(static_cast<int>(enCommonName), 35);
    EXPECT_EQ(canCommonParamTypesTable[enCommonFader][enVCAGroups], 0);
    EXPECT_EQ(caCommonParamTypeToMessageType[enCommonFader], enFader);
    EXPECT_EQ(canCommonParamTypesTable[enCommonName][enMicInput], 1);
    EXPECT_EQ(caCommonParamTypeToMessageType[enCommonName], enString);
}
