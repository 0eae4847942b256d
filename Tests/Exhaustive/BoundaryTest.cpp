#include "LogicalControls/ConsoleBitmapArray.h"

#include "ClientComms/ImageSync.h"
#include "Exhaustive/Boundary.h"
#include "Exhaustive/ConsoleModel.h"
#include "Exhaustive/ImageAccess.h"
#include "LogicalControls/DefaultParameterValues.h"
#include "Support/DebugLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace
{

using namespace Exhaustive;

// An overload of SetPPC and GetPPC: the types that it takes.
const std::vector<int> c_aOverloads[] = {{enStrings}, {enRotaries, enFaders}, {enSwitches, enIntegers, enOthers}, {enMeters}};

bool Takes(std::size_t unOverload, int nType)
{
    const std::vector<int>& types = c_aOverloads[unOverload];
    return std::count(types.begin(), types.end(), nType) != 0;
}

template <typename Value>
void SetByOverload(stTried& tried, const stAddress& at, std::size_t unOverload, enWriteModes enMode)
{
    const tValue value = Numbered(Takes(unOverload, at.nType) ? at.nType : c_aOverloads[unOverload][0], tried.unNumber);
    Value typed;
    std::memcpy(&typed, value.data(), sizeof typed);
    if constexpr (std::is_same_v<Value, int>)
    {
        typed = at.nType == enSwitches ? value[0] : typed;
    }
    tried.image.SetPPC(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, typed, enMode == enLight, enMode == enSendOnly);
    if (Takes(unOverload, at.nType))
    {
        const bool bChecked = at.nType != enSwitches && (enMode != enSendOnly || at.nType == enMeters);
        tried.strExpected += bChecked ? RefusalText(enMode == enLight ? "SetPPCLite" : "SetPPC", at) : "";
        Write(tried.model, at, value, enMode);
    }
}

template <enWriteModes enMode>
void TrySet(stTried& tried, const stAddress& at)
{
    SetByOverload<RyGConsoleString>(tried, at, 0, enMode);
    SetByOverload<float>(tried, at, 1, enMode);
    SetByOverload<int>(tried, at, 2, enMode);
    SetByOverload<unsigned char>(tried, at, 3, enMode);
}

template <typename Value>
void GetByOverload(stTried& tried, const stAddress& at, std::size_t unOverload)
{
    Value before;
    std::memset(static_cast<void*>(&before), 0x3c, sizeof before);
    Value typed = before;
    tried.image.GetPPC(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, typed);
    const bool bTaken = Takes(unOverload, at.nType);
    const std::string strRefused = bTaken && at.nType != enSwitches ? RefusalText("GetPPC", at) : "";
    tried.strExpected += strRefused;
    if (bTaken && strRefused.empty() && FlatIndex(at) >= 0)
    {
        const tValue& value = tried.model.aValues[at.nType][At(at)];
        std::memset(static_cast<void*>(&before), 0, sizeof before);
        std::memcpy(static_cast<void*>(&before), value.data(), static_cast<std::size_t>(WidthOf(at.nType)));
        if constexpr (std::is_same_v<Value, int>)
        {
            before = at.nType == enSwitches ? value[0] : before;
        }
    }
    tried.tally.Check(std::memcmp(&before, &typed, sizeof typed) == 0, "value", at);
}

void TryGet(stTried& tried, const stAddress& at)
{
    GetByOverload<RyGConsoleString>(tried, at, 0);
    GetByOverload<float>(tried, at, 1);
    GetByOverload<int>(tried, at, 2);
    GetByOverload<unsigned char>(tried, at, 3);
}

// Writing the SI float of another type aborts.
void TrySI(stTried& tried, const stAddress& at)
{
    float fSI = 0.5f;
    float fExpected = fSI;
    if (HasSI(at.nType))
    {
        const float fNew = static_cast<float>(tried.unNumber);
        tried.image.SetPPCSI(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, -1.0f, true);
        tried.image.SetPPCSI(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, fNew, false);
        tried.strExpected += RefusalText("SetPPCLite", at) + RefusalText("SetPPC", at) + RefusalText("GetPPC", at);
        if (RefusalText("SetPPC", at).empty())
        {
            tried.model.aSI[at.nType][At(at)] = fExpected = fNew;
        }
    }
    tried.image.GetPPCSI(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, fSI);
    tried.tally.Check(fSI == fExpected, "SI", at);
}

// Flags know no limits but their block, and print nothing.
void TryFlags(stTried& tried, const stAddress& at)
{
    for (int nScope = 0; nScope < c_nScopes; ++nScope)
    {
        const bool bInside = FlatIndex(at) >= 0;
        const int nNew = static_cast<int>(tried.unNumber + static_cast<unsigned int>(nScope)) & 1;
        const int nBefore = bInside ? tried.model.aFlags[nScope][at.nType][At(at)] : 77;
        tried.tally.Check(GetFlag(tried.image, nScope, at, 77) == nBefore, "flag", at);
        SetFlag(tried.image, nScope, at, nNew * INT_MIN);
        if (bInside)
        {
            tried.model.aFlags[nScope][at.nType][At(at)] = static_cast<unsigned char>(nNew);
        }
    }
}

void TryRangeCheck(stTried& tried, const stAddress& at)
{
    void* const pArray = tried.image.GetCParamArray(TypeOf(at));
    tried.tally.Check((pArray != nullptr) == IsType(at.nType), "array", at);
    const auto check = [&](auto* pTyped)
    {
        tried.tally.Check(pTyped->RangeCheck(PathTypeOf(at), at.nPath, at.nParam) == RangeCheckText(at).empty(), "check", at);
        tried.strExpected += RangeCheckText(at);
    };
    switch (at.nType)
    {
    case enStrings:
        return check(static_cast<CParameterArray<RyGConsoleString, enString, false>*>(pArray));
    case enRotaries:
        return check(static_cast<CParameterArray<float, enRotary, false>*>(pArray));
    case enIntegers:
        return check(static_cast<CParameterArray<int, enInteger, false>*>(pArray));
    case enFaders:
        return check(static_cast<CParameterArray<float, enFader, false>*>(pArray));
    case enOthers:
        return check(static_cast<CParameterArray<int, enOther, false>*>(pArray));
    case enMeters:
        return check(static_cast<CParameterArray<unsigned char, enMeter, false>*>(pArray));
    default:
        return;
    }
}

void TryLimits(stTried& tried, const stAddress& at)
{
    static const CMaxPathParameterArray s_Limits;
    tried.tally.Check(IsParameterAddress(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam) == Exists(at), "existence", at);
    tried.tally.Check(s_Limits.GetMaxPathOfType(PathTypeOf(at)) == MaxPaths(at.nPathType), "paths", at);
    tried.tally.Check(s_Limits.GetTypeMaxParms(TypeOf(at), PathTypeOf(at)) == MaxParams(at.nType, at.nPathType), "parameters", at);
    float fValue = 0;
    int nValue = 0;
    unsigned char ucValue = 0;
    const char* szPattern = nullptr;
    const bool abDefault[] = {GetDefaultPPC(TypeOf(at), PathTypeOf(at), at.nParam, szPattern),
                              GetDefaultPPC(TypeOf(at), PathTypeOf(at), at.nParam, fValue),
                              GetDefaultPPC(TypeOf(at), PathTypeOf(at), at.nParam, nValue),
                              GetDefaultPPC(TypeOf(at), PathTypeOf(at), at.nParam, ucValue)};
    for (std::size_t unOverload = 0; unOverload < 4; ++unOverload)
    {
        const bool bDefault = Takes(unOverload, at.nType) && Exists({at.nType, at.nPathType, 0, at.nParam});
        tried.tally.Check(abDefault[unOverload] == bDefault, "default", at);
    }
}

// The parameter of common type 29 (an integer) by path type, -1 where there is none.
int ParamOfRole(int nPathType)
{
    static const std::vector<int> s_Params = {-1, 15, 12, 11, 11, 11, -1, 29, 3, -1, 0, 0, 0};
    return nPathType >= 0 && nPathType < static_cast<int>(s_Params.size()) ? s_Params[static_cast<std::size_t>(nPathType)] : -1;
}

// The address's parameter stands for the role's number.
void TryRole(stTried& tried, const stAddress& at)
{
    const stAddress role = {enIntegers, at.nPathType, at.nPath, ParamOfRole(at.nPathType)};
    const int nNoRole = at.nParam >= 0 && at.nParam <= 40 ? 41 : at.nParam;
    const auto get = [&](int nRole)
    { return tried.image.GetCommonParamTypePPC(PathTypeOf(at), at.nPath, static_cast<enCommonParamTypes>(nRole)); };
    int nExpected = 0;
    if (role.nParam != -1)
    {
        tried.strExpected += RefusalText("GetPPC", role);
        if (RefusalText("GetPPC", role).empty())
        {
            std::memcpy(&nExpected, tried.model.aValues[enIntegers][At(role)].data(), sizeof nExpected);
        }
    }
    tried.tally.Check(get(29) == nExpected, "role", at);
    tried.tally.Check(get(nNoRole) == 0, "no role", at);
}

void TryChange(stTried& tried, const stAddress& at)
{
    Support::CDebugLog log;
    const tValue value = Numbered(at.nType, tried.unNumber);
    tBlock record = WireRecord(IsType(at.nType) ? at : stAddress{enOthers, at.nPathType, at.nPath, at.nParam}, value);
    for (std::size_t unByte = 0; unByte < 4; ++unByte)
    {
        record[5 + unByte] = static_cast<unsigned char>(static_cast<unsigned int>(at.nType) >> (24 - 8 * unByte));
    }
    const stPPCResult result = ApplyPPCs(record.data(), static_cast<long>(record.size()), tried.image);
    tried.tally.Check(result.bComplete && result.nApplied == Exists(at) && result.nRefused == !Exists(at), "result", at);
    const std::string strLine = "ApplyPPCs - refused: msg type (" + std::to_string(at.nType) + "), path type (" +
                                std::to_string(at.nPathType) + "), path (" + std::to_string(at.nPath) + "), parameter (" +
                                std::to_string(at.nParam) + ")";
    tried.tally.Check(log.Take() == (Exists(at) ? std::vector<std::string>() : std::vector<std::string>{strLine}), "line", at);
    if (Exists(at))
    {
        Write(tried.model, at, value);
    }
}

const stOperation c_aOperations[] = {{"SetPPC", &TrySet<enPlain>},
                                     {"LightSetPPC", &TrySet<enLight>},
                                     {"SendOnlySetPPC", &TrySet<enSendOnly>},
                                     {"GetPPC", &TryGet},
                                     {"SI", &TrySI},
                                     {"ScopeFlags", &TryFlags},
                                     {"RangeCheck", &TryRangeCheck},
                                     {"Limits", &TryLimits},
                                     {"CommonTypes", &TryRole},
                                     {"ApplyPPCs", &TryChange}};

class AddressAtALimit : public testing::TestWithParam<stOperation>
{
};

INSTANTIATE_TEST_SUITE_P(Of, AddressAtALimit, testing::ValuesIn(c_aOperations), NameOf);

} // namespace

TEST_P(AddressAtALimit, TouchesNothingElseAndIsReportedAsStated)
{
    TryBoundary(GetParam());
}
