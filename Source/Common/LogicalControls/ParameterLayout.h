// Where each parameter lies in its message type's block. Private to the library.
#pragma once

#include "LogicalControls/ParameterModel.h"

struct stParameterGroup
{
    const char* szName;
    int nPaths;
    int anParams[c_nMessageTypes];
};

// The console, a row a path type.
constexpr stParameterGroup c_aParameterGroups[] = {
#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters)                            \
    {#group, paths, {strings, rotaries, switches, integers, faders, others, meters}},
#include "LogicalControls/ParameterGroups.def"
#undef LC_PARAMETER_GROUP
};

static_assert(sizeof(c_aParameterGroups) / sizeof(c_aParameterGroups[0]) == c_nPathTypes, "a row a path type");
static_assert(enAuk == c_nPathTypes - 1, "the enumerators follow the rows");

constexpr bool IsPathType(int nPathType)
{
    return nPathType >= 0 && nPathType < c_nPathTypes;
}

constexpr bool IsMessageType(int nType)
{
    return nType >= 0 && nType < c_nMessageTypes;
}

// One message type's parameters of one path type: the flat number of the first, and how they are laid out.
struct stPathTypeLayout
{
    int nFirst;
    int nPaths;
    int nParams; // a path
};

struct stParameterLayout
{
    stPathTypeLayout aPathTypes[c_nPathTypes];
    int nElements;
};

constexpr stParameterLayout LayOut(int nType)
{
    stParameterLayout layout = {};
    for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
    {
        const stParameterGroup& group = c_aParameterGroups[nPathType];
        layout.aPathTypes[nPathType] = {layout.nElements, group.nPaths, group.anParams[nType]};
        layout.nElements += group.nPaths * group.anParams[nType];
    }
    return layout;
}

template <tagenPPCMessageType N>
constexpr stParameterLayout c_Layout = LayOut(N);

// The flat number of a parameter of the console, -1 for an address that names none.
template <tagenPPCMessageType N>
inline int ParameterIndex(int nPathType, int nPath, int nParam)
{
    if (!IsPathType(nPathType))
    {
        return -1;
    }
    const stPathTypeLayout& layout = c_Layout<N>.aPathTypes[nPathType];
    const bool bThere = static_cast<unsigned int>(nPath) < static_cast<unsigned int>(layout.nPaths) &&
                        static_cast<unsigned int>(nParam) < static_cast<unsigned int>(layout.nParams);
    return bThere ? layout.nFirst + nPath * layout.nParams + nParam : -1;
}
