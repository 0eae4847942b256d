#include "LogicalControls/ParameterModel.h"

#include <algorithm>
#include <iterator>

namespace
{

struct stGroup
{
    const char* szName;
    int nPaths;
    int anParams[c_nMessageTypes];
};

constexpr stGroup caGroups[] = {
#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters)                            \
    {#group, paths, {strings, rotaries, switches, integers, faders, others, meters}},
#include "LogicalControls/ParameterGroups.def"
#undef LC_PARAMETER_GROUP
};

static_assert(sizeof(caGroups) / sizeof(caGroups[0]) == c_nPathTypes, "a row a path type");
static_assert(enAuk == c_nPathTypes - 1, "the enumerators follow the rows");

constexpr int ParameterCount(int nType)
{
    int nCount = 0;
    for (const stGroup& group : caGroups)
    {
        nCount += group.nPaths * group.anParams[nType];
    }
    return nCount;
}

static_assert(ParameterCount(enString) == 3151, "strings of the console");
static_assert(ParameterCount(enRotary) == 65300, "rotaries of the console");
static_assert(ParameterCount(enSwitch) == 138696, "switches of the console");
static_assert(ParameterCount(enInteger) == 14856, "integers of the console");
static_assert(ParameterCount(enFader) == 2765, "faders of the console");
static_assert(ParameterCount(enOther) == 673, "others of the console");
static_assert(ParameterCount(enMeter) == 15898, "meters of the console");
static_assert(3151 + 65300 + 138696 + 14856 + 2765 + 673 + 15898 == c_nParameters, "all parameters of the console");

// A row a common type, a column a path type. The path types from LineIOModule on have none.
#define LC_NO_COMMON -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1
constexpr int canCommonParams[][c_nPathTypes] = {
#define LC_COMMON_PARAM_TYPE(row, type, ...) {__VA_ARGS__, LC_NO_COMMON, LC_NO_COMMON},
#include "LogicalControls/CommonParamTypes.def"
#undef LC_COMMON_PARAM_TYPE
};

static_assert(sizeof(canCommonParams) / sizeof(canCommonParams[0]) == c_nCommonParamTypes, "a row a common type");

bool IsPathType(int nPathType)
{
    return nPathType >= 0 && nPathType < c_nPathTypes;
}

bool IsMessageType(int nType)
{
    return nType >= 0 && nType < c_nMessageTypes;
}

} // namespace

#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters) paths,
const int canMaxPaths[c_nPathTypes] = {
#include "LogicalControls/ParameterGroups.def"
};
#undef LC_PARAMETER_GROUP

#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters)                            \
    strings, rotaries, switches, integers, faders, others, meters,
const int canMaxParams[c_nPathTypes * c_nMessageTypes] = {
#include "LogicalControls/ParameterGroups.def"
};
#undef LC_PARAMETER_GROUP

#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters) #group,
const char* const caParameterGroupNames[c_nPathTypes] = {
#include "LogicalControls/ParameterGroups.def"
};
#undef LC_PARAMETER_GROUP

const char* const caMessageTypeNames[c_nMessageTypes] = {"String", "Rotary", "Switch", "Integer", "Fader", "Other", "Meter"};

const int canParameterCounts[c_nMessageTypes] = {
    ParameterCount(enString), ParameterCount(enRotary), ParameterCount(enSwitch), ParameterCount(enInteger),
    ParameterCount(enFader),  ParameterCount(enOther),  ParameterCount(enMeter),
};

#define LC_COMMON_PARAM_TYPE(row, type, ...) canCommonParams[row],
const int* const canCommonParamTypesTable[c_nCommonParamTypes] = {
#include "LogicalControls/CommonParamTypes.def"
};
#undef LC_COMMON_PARAM_TYPE

#define LC_COMMON_PARAM_TYPE(row, type, ...) type,
const int caCommonParamTypeToMessageType[c_nCommonParamTypes] = {
#include "LogicalControls/CommonParamTypes.def"
};
#undef LC_COMMON_PARAM_TYPE

bool IsParameterAddress(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam)
{
    return IsMessageType(enType) && IsPathType(enPathType) && nPath >= 0 && nPath < canMaxPaths[enPathType] && nParam >= 0 &&
           nParam < canMaxParams[enPathType * c_nMessageTypes + enType];
}

CMaxPathParameterArray::CMaxPathParameterArray()
{
    std::copy(std::begin(canMaxPaths), std::end(canMaxPaths), m_anMaxPaths);
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        for (int nPathType = 0; nPathType < GetMaxPathTypes(); ++nPathType)
        {
            m_anMaxParams[nType][nPathType] = canMaxParams[nPathType * c_nMessageTypes + nType];
        }
    }
}

int CMaxPathParameterArray::GetMaxPathTypes() const
{
    return c_nPathTypes;
}

int CMaxPathParameterArray::GetMaxPathOfType(tagenVirtualPathType enPathType) const
{
    return IsPathType(enPathType) ? m_anMaxPaths[enPathType] : 0;
}

int CMaxPathParameterArray::GetTypeMaxParms(tagenPPCMessageType enType, tagenVirtualPathType enPathType) const
{
    return IsMessageType(enType) && IsPathType(enPathType) ? m_anMaxParams[enType][enPathType] : 0;
}
