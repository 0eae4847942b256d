#include "Web/Model.h"

#include "Images/Address.h"

#include <nlohmann/json.hpp>

std::string ModelJson()
{
    nlohmann::json groups = nlohmann::json::array();
    for (int nGroup = 0; nGroup < c_nPathTypes; ++nGroup)
    {
        const int* const pnParams = canMaxParams + nGroup * c_nMessageTypes;
        groups.push_back({{"name", caParameterGroupNames[nGroup]},
                          {"paths", canMaxPaths[nGroup]},
                          {"params", std::vector<int>(pnParams, pnParams + c_nMessageTypes)}});
    }
    nlohmann::json common = nlohmann::json::array();
    for (int nCommon = 0; nCommon < c_nCommonParamTypes; ++nCommon)
    {
        const int* const pnParams = canCommonParamTypesTable[nCommon];
        common.push_back({{"name", CommonTypeName(nCommon)},
                          {"type", caCommonParamTypeToMessageType[nCommon]},
                          {"params", std::vector<int>(pnParams, pnParams + c_nPathTypes)}});
    }
    return nlohmann::json({{"types", std::vector<std::string>(caMessageTypeNames, caMessageTypeNames + c_nMessageTypes)},
                           {"groups", groups},
                           {"common", common}})
        .dump();
}
