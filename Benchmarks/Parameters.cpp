// Single parameters, at random addresses.
#include "Bench.h"
#include "Limits.h"

#include "LogicalControls.h"

#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <random>
#include <unordered_map>

namespace
{

constexpr int c_nAddresses = 65536;

struct stAddress
{
    tagenVirtualPathType enPathType;
    int nPath;
    int nParam;
};

typedef std::shared_ptr<std::vector<stAddress>> tAddresses;

// Of rotaries, each as likely as another.
tAddresses RandomAddresses()
{
    std::vector<stAddress> all;
    for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
    {
        for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
        {
            for (int nParam = 0; nParam < canMaxParams[nPathType * c_nMessageTypes + enRotary]; ++nParam)
            {
                all.push_back({static_cast<tagenVirtualPathType>(nPathType), nPath, nParam});
            }
        }
    }
    std::mt19937 random(7);
    const tAddresses pAddresses = std::make_shared<std::vector<stAddress>>();
    for (int nAddress = 0; nAddress < c_nAddresses; ++nAddress)
    {
        pAddresses->push_back(all[random() % all.size()]);
    }
    return pAddresses;
}

// Calls visit with each address and a value.
template <class Visitor>
std::function<void()> ForEach(const tAddresses& pAddresses, Visitor visit)
{
    return [=]() mutable
    {
        float fValue = 0;
        for (const stAddress& address : *pAddresses)
        {
            visit(address, fValue);
            fValue += 0.25f;
        }
        benchmark::DoNotOptimize(fValue);
    };
}

std::function<void()> SetInImage(const tAddresses& pAddresses)
{
    const auto pImage = std::make_shared<CBMAContainer>();
    return ForEach(pAddresses, [pImage](const stAddress& address, float fValue)
                   { pImage->SetPPC(enRotary, address.enPathType, address.nPath, address.nParam, fValue, false, false); });
}

std::uint64_t KeyOf(const stAddress& address)
{
    return std::uint64_t(enRotary) << 48 | std::uint64_t(address.enPathType) << 40 | std::uint64_t(address.nPath) << 16 |
           std::uint64_t(address.nParam);
}

// A map that holds every parameter of the console.
template <class Map>
std::function<void()> SetInMap(const tAddresses& pAddresses)
{
    const auto pMap = std::make_shared<Map>();
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
        {
            for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
            {
                for (int nParam = 0; nParam < canMaxParams[nPathType * c_nMessageTypes + nType]; ++nParam)
                {
                    const stAddress address = {static_cast<tagenVirtualPathType>(nPathType), nPath, nParam};
                    (*pMap)[KeyOf(address) + (std::uint64_t(nType) << 48) - (std::uint64_t(enRotary) << 48)] = 0;
                }
            }
        }
    }
    return ForEach(pAddresses, [pMap](const stAddress& address, float fValue) { pMap->find(KeyOf(address))->second = fValue; });
}

} // namespace

void AddParameterCases()
{
    AddCase({"SetPPC of a float", "one checked function", enCost, 3.0, 1.5},
            []
            {
                const tAddresses pAddresses = RandomAddresses();
                return stSides{SetInImage(pAddresses),
                               ForEach(pAddresses, [](const stAddress& address, float fValue)
                                       { stCheckedFloats::Store(address.enPathType, address.nPath, address.nParam, fValue); }),
                               c_nAddresses};
            });
    AddCase({"GetPPC of a float", "one checked function", enCost, 2.9, 1.3},
            []
            {
                const tAddresses pAddresses = RandomAddresses();
                const auto pImage = std::make_shared<CBMAContainer>();
                return stSides{ForEach(pAddresses, [pImage](const stAddress& address, float& fValue)
                                       { pImage->GetPPC(enRotary, address.enPathType, address.nPath, address.nParam, fValue); }),
                               ForEach(pAddresses, [](const stAddress& address, float& fValue)
                                       { stCheckedFloats::Read(address.enPathType, address.nPath, address.nParam, fValue); }),
                               c_nAddresses};
            });
    AddCase(
        {"SetPPC against a hash map", "unordered_map, 64-bit key", enGain, 3.5, 7},
        []
        {
            const tAddresses pAddresses = RandomAddresses();
            return stSides{SetInImage(pAddresses), SetInMap<std::unordered_map<std::uint64_t, float>>(pAddresses), c_nAddresses};
        });
    AddCase({"SetPPC against a tree map", "map, 64-bit key", enGain, 50, 100},
            []
            {
                const tAddresses pAddresses = RandomAddresses();
                return stSides{SetInImage(pAddresses), SetInMap<std::map<std::uint64_t, float>>(pAddresses), c_nAddresses};
            });
}
