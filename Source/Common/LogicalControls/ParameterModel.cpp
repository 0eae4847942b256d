#include "LogicalControls/ParameterModel.h"

#include "LogicalControls/ParameterLayout.h"

#include <algorithm>
#include <iterator>

namespace
{

static_assert(c_Layout<enString>.nElements == 3151, "strings of the console");
static_assert(c_Layout<enRotary>.nElements == 65300, "rotaries of the console");
static_assert(c_Layout<enSwitch>.nElements == 138696, "switches of the console");
static_assert(c_Layout<enInteger>.nElements == 14856, "integers of the console");
static_assert(c_Layout<enFader>.nElements == 2765, "faders of the console");
static_assert(c_Layout<enOther>.nElements == 673, "others of the console");
static_assert(c_Layout<enMeter>.nElements == 15898, "meters of the console");
static_assert(3151 + 65300 + 138696 + 14856 + 2765 + 673 + 15898 == c_nParameters, "all parameters of the console");

// A row a common type, a column a path type. The path types from LineIOModule on have none.
#define LC_NO_COMMON -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1
constexpr int canCommonParams[][c_nPathTypes] = {
#define LC_COMMON_PARAM_TYPE(row, type, ...) {__VA_ARGS__, LC_NO_COMMON, LC_NO_COMMON},
#include "LogicalControls/CommonParamTypes.def"
#undef LC_COMMON_PARAM_TYPE
};

static_assert(sizeof(canCommonParams) / sizeof(canCommonParams[0]) == c_nCommonParamTypes, "a row a common type");

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
    c_Layout<enString>.nElements, c_Layout<enRotary>.nElements, c_Layout<enSwitch>.nElements, c_Layout<enInteger>.nElements,
    c_Layout<enFader>.nElements,  c_Layout<enOther>.nElements,  c_Layout<enMeter>.nElements,
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
