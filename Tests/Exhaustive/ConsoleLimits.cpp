#include "Exhaustive/ConsoleModel.h"

#include <algorithm>
#include <cstdio>

namespace Exhaustive
{

namespace
{

struct stGroup
{
    int nPaths;
    int anParams[c_nTypes]; // strings, rotaries, switches, integers, faders, others, meters
};

// clang-format off
const stGroup c_aGroups[c_nGroups] = {
    {1, {75, 7, 248, 147, 1, 1, 23}},
    {144, {2, 280, 576, 23, 2, 1, 9}},
    {24, {2, 264, 552, 17, 2, 1, 2}},
    {72, {2, 102, 216, 16, 2, 1, 8}},
    {3, {2, 101, 208, 15, 2, 1, 9}},
    {24, {2, 35, 96, 13, 2, 1, 8}},
    {1, {162, 112, 104, 212, 1, 1, 17}},
    {24, {19, 350, 16, 30, 2, 1, 273}},
    {36, {2, 35, 16, 5, 1, 1, 1}},
    {1, {1, 1, 8, 1, 1, 1, 1}},
    {18, {2, 1, 480, 28, 97, 1, 1}},
    {4, {2, 1, 280, 1, 1, 1, 1}},
    {8, {2, 1, 280, 2, 1, 1, 1}},
    {54, {1, 1, 40, 23, 1, 1, 1}},
    {18, {1, 1, 48, 60, 1, 1, 49}},
    {8, {1, 1, 160, 109, 1, 1, 72}},
    {1, {1, 1, 24, 11, 2, 1, 16}},
    {1, {1, 1, 96, 29, 1, 1, 19}},
    {1, {1, 1, 16, 3, 1, 1, 15}},
    {1, {1, 1, 56, 24, 1, 1, 3}},
    {1, {1, 1, 16, 2, 1, 1, 14}},
    {3, {12, 1, 24, 22, 1, 1, 442}},
    {1, {1, 1, 16, 3, 1, 1, 1}},
    {3, {1, 1, 8, 2, 1, 1, 1}},
    {8, {1, 1, 8, 2, 1, 1, 1}},
    {28, {50, 1, 8, 27, 1, 1, 1}},
    {18, {2, 1, 8, 1, 1, 1, 1}},
    {18, {2, 1, 8, 1, 1, 1, 1}},
    {28, {1, 1, 32, 8, 2, 1, 29}},
    {2, {1, 1, 120, 26, 1, 1, 20}},
    {42, {1, 1, 16, 3, 2, 1, 28}},
    {1, {1, 1, 48, 22, 1, 1, 12}},
    {3, {1, 1, 16, 2, 1, 1, 1}},
    {1, {12, 1, 32, 22, 1, 1, 26}},
    {32, {1, 1, 40, 21, 1, 1, 1}},
    {4, {1, 1, 48, 57, 1, 1, 128}},
    {1, {1, 1, 8, 1, 1, 1, 10}},
    {1, {3, 35, 16, 12, 1, 1, 2}},
    {1, {1, 1, 24, 8, 2, 1, 15}},
    {1, {12, 1, 120, 44, 1, 1, 4}},
    {1, {1, 1, 16, 2, 1, 1, 1}},
    {1, {1, 1, 16, 3, 1, 1, 15}},
    {4, {1, 1, 96, 90, 1, 1, 96}},
    {1, {1, 1, 8, 5, 1, 1, 24}},
    {1, {1, 1, 24, 8, 2, 1, 15}},
    {1, {12, 1, 128, 44, 1, 1, 4}},
    {1, {1, 1, 16, 2, 1, 1, 1}},
    {1, {1, 1, 16, 3, 1, 1, 15}},
    {1, {1, 1, 8, 5, 1, 1, 24}},
    {18, {1, 1, 72, 95, 1, 1, 48}},
    {2, {2, 1, 8, 69, 1, 1, 64}},
};

struct stFilter
{
    int nType;
    int nPathType;
    std::vector<int> params; // empty: all
};

const std::vector<stFilter> c_Filters = {
    {2, 0, {5, 6, 228}},
    {3, 0, { 0,  1,  2,  3,  4,  5,  6,  7,  8,  9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29,
            30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 126}},
    {3, 14, {32}},
    {3, 35, {}},
    {3, 37, {}},
    {3, 39, {28, 41}},
};
// clang-format on

const int c_anCounts[c_nTypes] = {3151, 65300, 138696, 14856, 2765, 673, 15898};

bool IsGroup(int nPathType)
{
    return nPathType >= 0 && nPathType < c_nGroups;
}

// Elements in front of a path type's first.
std::int64_t OffsetOf(int nType, int nPathType)
{
    std::int64_t nOffset = 0;
    for (int nBefore = 0; nBefore < nPathType; ++nBefore)
    {
        nOffset += MaxPaths(nBefore) * MaxParams(nType, nBefore);
    }
    return nOffset;
}

// The same for every pair, counted once.
std::int64_t Offset(int nType, int nPathType)
{
    static const std::vector<std::int64_t> s_Offsets = []
    {
        std::vector<std::int64_t> offsets;
        for (int nPair = 0; nPair < c_nTypes * c_nGroups; ++nPair)
        {
            offsets.push_back(OffsetOf(nPair / c_nGroups, nPair % c_nGroups));
        }
        return offsets;
    }();
    return s_Offsets[static_cast<std::size_t>(nType * c_nGroups + nPathType)];
}

} // namespace

std::string Text(const stAddress& address)
{
    return "(" + std::to_string(address.nType) + ", " + std::to_string(address.nPathType) + ", " + std::to_string(address.nPath) +
           ", " + std::to_string(address.nParam) + ")";
}

int MaxPaths(int nPathType)
{
    return IsGroup(nPathType) ? c_aGroups[nPathType].nPaths : 0;
}

int MaxParams(int nType, int nPathType)
{
    return IsType(nType) && IsGroup(nPathType) ? c_aGroups[nPathType].anParams[nType] : 0;
}

int CountOf(int nType)
{
    return IsType(nType) ? c_anCounts[nType] : 0;
}

int WidthOf(int nType)
{
    static const int s_anWidths[c_nTypes] = {13, 4, 1, 4, 4, 4, 1};
    return s_anWidths[nType];
}

bool IsType(int nType)
{
    return nType >= 0 && nType < c_nTypes;
}

bool Exists(const stAddress& address)
{
    return address.nPath >= 0 && address.nPath < MaxPaths(address.nPathType) && address.nParam >= 0 &&
           address.nParam < MaxParams(address.nType, address.nPathType);
}

std::int64_t FlatIndex(const stAddress& address)
{
    if (!IsType(address.nType) || !IsGroup(address.nPathType))
    {
        return -1;
    }
    const std::int64_t nIndex = Offset(address.nType, address.nPathType) +
                                std::int64_t(MaxParams(address.nType, address.nPathType)) * address.nPath + address.nParam;
    return nIndex >= 0 && nIndex < CountOf(address.nType) ? nIndex : -1;
}

const std::vector<stAddress>& EveryAddress()
{
    static const std::vector<stAddress> s_Addresses = []
    {
        std::vector<stAddress> addresses;
        for (int nPair = 0; nPair < c_nTypes * c_nGroups; ++nPair)
        {
            stAddress at = {nPair / c_nGroups, nPair % c_nGroups, 0, 0};
            for (at.nPath = 0; at.nPath < MaxPaths(at.nPathType); ++at.nPath)
            {
                for (at.nParam = 0; at.nParam < MaxParams(at.nType, at.nPathType); ++at.nParam)
                {
                    addresses.push_back(at);
                }
            }
        }
        return addresses;
    }();
    return s_Addresses;
}

bool IsFiltered(int nType, int nPathType, int nParam)
{
    return std::any_of(c_Filters.begin(), c_Filters.end(),
                       [&](const stFilter& filter)
                       {
                           return filter.nType == nType && filter.nPathType == nPathType &&
                                  (filter.params.empty() || std::count(filter.params.begin(), filter.params.end(), nParam) != 0);
                       });
}

// The address check counts the parameter as a byte, and the end as so many elements of the width once more.
std::string RangeCheckText(const stAddress& address)
{
    if (address.nPathType > c_nGroups - 1)
    {
        return "Range Check failed, pt > maxpath types  \n ";
    }
    if (address.nPathType < 0)
    {
        return "base address check 1 failed\n ";
    }
    if (address.nPath >= MaxPaths(address.nPathType))
    {
        char acText[200];
        std::snprintf(acText, sizeof acText,
                      "Range Check failed, n Path > max path of type  expected  - %d got - %d \n pt %d, p %d, param %d, \n",
                      address.nPath, MaxPaths(address.nPathType), address.nPathType, address.nPath, address.nParam);
        return acText;
    }
    const std::int64_t nParams = MaxParams(address.nType, address.nPathType);
    if (address.nParam >= nParams)
    {
        return "Range Check failed, parameter >  pt params\n ";
    }
    const std::int64_t nWidth = WidthOf(address.nType);
    const std::int64_t nByte = (Offset(address.nType, address.nPathType) + nParams * address.nPath) * nWidth + address.nParam;
    return nByte < 0                                           ? "base address check 1 failed\n "
           : nByte >= CountOf(address.nType) * nWidth * nWidth ? "base address check 2 failed\n "
                                                               : "";
}

std::string RefusalText(const std::string& strOperation, const stAddress& address)
{
    const std::string strCheck = RangeCheckText(address);
    const bool bLight = strOperation == "SetPPCLite"; // stores nothing, and so looks no further
    if (strCheck.empty() && (bLight || FlatIndex(address) >= 0))
    {
        return "";
    }
    return strCheck + "CParameterArray::" + strOperation + "(pt = " + std::to_string(address.nPathType) +
           ", nPath=" + std::to_string(address.nPath) + ", nParam=" + std::to_string(address.nParam) +
           " ) ### RANGE CHECK FAILED - IGNORING\n";
}

} // namespace Exhaustive
