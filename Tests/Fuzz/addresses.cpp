// Addresses, patterns and changes as they stand on a command line.
#include "Images/Address.h"

#include "Input.h"
#include "Terminal/Common.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>

using namespace Fuzz;

namespace
{

constexpr std::size_t c_unLongest = 200;

std::vector<std::string> SplitAtSlashes(const std::string& strText)
{
    std::vector<std::string> parts;
    std::size_t unFirst = 0;
    for (std::size_t unSlash = strText.find('/'); unSlash != std::string::npos; unSlash = strText.find('/', unFirst))
    {
        parts.push_back(strText.substr(unFirst, unSlash - unFirst));
        unFirst = unSlash + 1;
    }
    parts.push_back(strText.substr(unFirst));
    return parts;
}

// A decimal number from 0 to what an int holds; 0 may have a minus.
bool IsIndex(const std::string& strText, std::int64_t& nIndex)
{
    const bool bMinus = !strText.empty() && strText[0] == '-';
    if (strText.size() == (bMinus ? 1u : 0u))
    {
        return false;
    }
    nIndex = 0;
    for (const char c : strText.substr(bMinus ? 1 : 0))
    {
        if (c < '0' || c > '9')
        {
            return false;
        }
        nIndex = std::min<std::int64_t>(nIndex * 10 + (c - '0'), std::int64_t(1) << 40);
    }
    return !bMinus || nIndex == 0;
}

bool IsRange(const std::string& strText, std::int64_t nLimit, stRange& range)
{
    std::int64_t nFirst = 0;
    std::int64_t nLast = nLimit - 1;
    if (strText != "*")
    {
        const std::size_t unDash = strText.empty() ? std::string::npos : strText.find('-', 1);
        if (!IsIndex(strText.substr(0, unDash), nFirst))
        {
            return false;
        }
        nLast = nFirst;
        if (unDash != std::string::npos && !IsIndex(strText.substr(unDash + 1), nLast))
        {
            return false;
        }
    }
    range = {static_cast<int>(nFirst), static_cast<int>(nLast)};
    return nFirst <= nLast && nLast < nLimit;
}

bool IsName(const std::string& strText, const char* const* ppNames, int nNames, stRange& range)
{
    range = {0, nNames - 1};
    for (int nName = 0; nName < nNames && strText != "*"; ++nName)
    {
        if (strText == ppNames[nName])
        {
            range = {nName, nName};
            return true;
        }
    }
    return strText == "*";
}

// What a parameter is on its path: the number of its role, -1 for no name of one.
int RoleOf(const std::string& strName)
{
    for (int nRole = 0; nRole < c_nCommonParamTypes; ++nRole)
    {
        if (strName == (nRole == 28 ? "Fader" : nRole == 35 ? "Name" : "Common" + std::to_string(nRole)))
        {
            return nRole;
        }
    }
    return -1;
}

// The same for a pattern by a role's name.
std::int64_t ModelOfRole(const std::vector<std::string>& parts, stPattern& pattern)
{
    pattern.nCommonType = RoleOf(parts[2]);
    if (pattern.nCommonType < 0 || !IsName(parts[0], caParameterGroupNames, 51, pattern.groups))
    {
        return 0;
    }
    const int nType = caCommonParamTypeToMessageType[pattern.nCommonType];
    pattern.types = {nType, nType};
    pattern.params = {0, INT_MAX};
    const int* const pFirst = canMaxPaths + pattern.groups.nFirst;
    const int* const pEnd = canMaxPaths + pattern.groups.nLast + 1;
    if (!IsRange(parts[1], *std::max_element(pFirst, pEnd), pattern.paths))
    {
        return 0;
    }
    std::int64_t nNamed = 0;
    for (int nGroup = pattern.groups.nFirst; nGroup <= pattern.groups.nLast; ++nGroup)
    {
        const bool bHas = canCommonParamTypesTable[pattern.nCommonType][nGroup] >= 0;
        nNamed += bHas ? std::max(0, std::min(pattern.paths.nLast + 1, canMaxPaths[nGroup]) - pattern.paths.nFirst) : 0;
    }
    return nNamed;
}

// The pattern that the text stands for, and how many parameters it names: 0 when it is none.
std::int64_t Model(const std::string& strText, stPattern& pattern)
{
    const std::vector<std::string> parts = SplitAtSlashes(strText);
    pattern.nCommonType = -1;
    if (parts.size() == 3)
    {
        return ModelOfRole(parts, pattern);
    }
    if (parts.size() != 4 || !IsName(parts[0], caParameterGroupNames, 51, pattern.groups) ||
        !IsName(parts[2], caMessageTypeNames, 7, pattern.types))
    {
        return 0;
    }
    std::int64_t nPaths = 0;
    std::int64_t nParams = 0;
    const auto forEachPair = [&](auto visit)
    {
        for (int nGroup = pattern.groups.nFirst; nGroup <= pattern.groups.nLast; ++nGroup)
        {
            for (int nType = pattern.types.nFirst; nType <= pattern.types.nLast; ++nType)
            {
                visit(std::int64_t(canMaxPaths[nGroup]), std::int64_t(canMaxParams[nGroup * 7 + nType]));
            }
        }
    };
    forEachPair(
        [&](std::int64_t nOfGroup, std::int64_t nOfPath)
        {
            nPaths = std::max(nPaths, nOfGroup);
            nParams = std::max(nParams, nOfPath);
        });
    if (!IsRange(parts[1], nPaths, pattern.paths) || !IsRange(parts[3], nParams, pattern.params))
    {
        return 0;
    }
    std::int64_t nNamed = 0;
    const auto within = [](const stRange& range, std::int64_t nLimit)
    { return std::max<std::int64_t>(0, std::min<std::int64_t>(range.nLast + std::int64_t(1), nLimit) - range.nFirst); };
    forEachPair([&](std::int64_t nOfGroup, std::int64_t nOfPath)
                { nNamed += within(pattern.paths, nOfGroup) * within(pattern.params, nOfPath); });
    return nNamed;
}

// Null, or what the parser threw. Anything else that it throws ends the program.
template <class Work>
bool Accepts(Work work)
{
    try
    {
        work();
        return true;
    }
    catch (const stWrongUse& error)
    {
        Check(std::strlen(error.what()) > 0, "a text is refused without a word");
        return false;
    }
}

bool IsSame(const stRange& a, const stRange& b)
{
    return a.nFirst == b.nFirst && a.nLast == b.nLast;
}

void CheckAddress(const std::string& strText)
{
    stPattern expected = {};
    stPattern pattern = {};
    stAddress address = {};
    const std::int64_t nNamed = Model(strText, expected);
    const bool bPattern = Accepts([&] { pattern = ParsePattern(strText); });
    Check(bPattern == (nNamed > 0), "\"%s\" is taken for a pattern, or not", strText.c_str());
    const bool bOne = nNamed > 0 && expected.groups.nFirst == expected.groups.nLast &&
                      expected.types.nFirst == expected.types.nLast && expected.paths.nFirst == expected.paths.nLast &&
                      (expected.params.nFirst == expected.params.nLast || expected.nCommonType >= 0);
    const bool bAddress = Accepts([&] { address = ParseAddress(strText); });
    Check(bAddress == bOne, "\"%s\" is taken for an address, or not", strText.c_str());
    if (bPattern)
    {
        Check(IsSame(pattern.groups, expected.groups) && IsSame(pattern.types, expected.types) &&
                  IsSame(pattern.paths, expected.paths) && IsSame(pattern.params, expected.params) &&
                  pattern.nCommonType == expected.nCommonType,
              "\"%s\" is another pattern", strText.c_str());
    }
    if (bPattern && nNamed < 3000)
    {
        std::int64_t nVisited = 0;
        ForEachParameter(pattern,
                         [&](const stAddress& one)
                         {
                             Check(IsParameterAddress(one.enType, one.enPathType, one.nPath, one.nParam),
                                   "a pattern names nothing");
                             ++nVisited;
                         });
        Check(nVisited == nNamed, "\"%s\" names %ld parameters", strText.c_str(), static_cast<long>(nVisited));
    }
    if (bAddress)
    {
        const std::string strPrinted = AddressText(address);
        const stAddress again = ParseAddress(strPrinted);
        Check(again.enType == address.enType && again.enPathType == address.enPathType && again.nPath == address.nPath &&
                  again.nParam == address.nParam && AddressText(again) == strPrinted,
              "\"%s\" prints as \"%s\", which is another", strText.c_str(), strPrinted.c_str());
        const int nParam = expected.nCommonType < 0 ? expected.params.nFirst
                                                    : canCommonParamTypesTable[expected.nCommonType][expected.groups.nFirst];
        Check(address.enPathType == expected.groups.nFirst && address.enType == expected.types.nFirst &&
                  address.nPath == expected.paths.nFirst && address.nParam == nParam,
              "\"%s\" is another address", strText.c_str());
    }
}

// Decimal digits with a point and an exponent where they may be: no blank, no plus in front, no "inf".
bool IsDecimal(const std::string& strText)
{
    std::size_t unAt = !strText.empty() && strText[0] == '-' ? 1 : 0;
    const auto digits = [&]
    {
        const std::size_t unFirst = unAt;
        while (unAt < strText.size() && strText[unAt] >= '0' && strText[unAt] <= '9')
        {
            ++unAt;
        }
        return unAt - unFirst;
    };
    std::size_t unDigits = digits();
    if (unAt < strText.size() && strText[unAt] == '.')
    {
        ++unAt;
        unDigits += digits();
    }
    if (unDigits > 0 && unAt < strText.size() && (strText[unAt] == 'e' || strText[unAt] == 'E'))
    {
        ++unAt;
        unAt += unAt < strText.size() && (strText[unAt] == '+' || strText[unAt] == '-') ? 1 : 0;
        unDigits = digits();
    }
    return unDigits > 0 && unAt == strText.size();
}

bool IsWhole(const std::string& strText, std::int64_t& nValue)
{
    const bool bMinus = !strText.empty() && strText[0] == '-';
    const bool bNumber = IsIndex(strText.substr(bMinus ? 1 : 0), nValue) && strText.find('-', bMinus ? 1 : 0) == std::string::npos;
    nValue = bMinus ? -nValue : nValue;
    return bNumber && nValue >= INT32_MIN && nValue <= INT32_MAX;
}

enum enVerdicts
{
    enRefused,
    enTaken,
    enEither
};

// Whether a text is a value of the type; what is too small for a float may be taken as 0 or refused.
enVerdicts Judge(tagenPPCMessageType enType, const std::string& strText, stValue& value)
{
    std::int64_t nWhole = 0;
    switch (enType)
    {
    case enMeter:
        return enRefused;
    case enString:
        std::memcpy(&value.strValue, (strText + std::string(13, '\0')).data(), 13);
        return strText.size() <= 12 ? enTaken : enRefused;
    case enRotary:
    case enFader:
        if (!IsDecimal(strText))
        {
            return enRefused;
        }
        errno = 0;
        value.fValue = std::strtof(strText.c_str(), nullptr);
        if (value.fValue == 0 && strText.find_first_of("123456789") < strText.find_first_of("eE"))
        {
            return enEither; // not every C library says so
        }
        return errno == 0 ? enTaken : std::fabs(value.fValue) > 1 ? enRefused : enEither;
    default:
        if (!IsWhole(strText, nWhole) || (enType == enSwitch && nWhole != 0 && nWhole != 1))
        {
            return enRefused;
        }
        value.nValue = static_cast<int>(nWhole);
        return enTaken;
    }
}

void CheckChange(const std::string& strText)
{
    stChange change = {};
    stPattern pattern = {};
    stValue expected;
    const std::size_t unEquals = strText.find('=');
    const bool bChange = Accepts([&] { change = ParseChange(strText); });
    if (unEquals == std::string::npos || Model(strText.substr(0, unEquals), pattern) == 0 ||
        !Accepts([&] { ParseAddress(strText.substr(0, unEquals)); }))
    {
        Check(!bChange, "\"%s\" is taken for a change", strText.c_str());
        return;
    }
    const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(pattern.types.nFirst);
    const std::string strValue = strText.substr(unEquals + 1);
    // A text that ends early for C would be a shorter string.
    const bool bCut = enType == enString && strValue.find('\0') != std::string::npos;
    const enVerdicts enVerdict = Judge(enType, strValue, expected);
    Check(enVerdict == enEither || bChange == (enVerdict == enTaken), "\"%s\" is taken for a change, or not", strText.c_str());
    if (bChange && !bCut)
    {
        Check(SameValue(change.address, change.value, expected) ||
                  (enVerdict == enEither && std::fabs(change.value.fValue) < 1e-30f),
              "\"%s\" sets %s", strText.c_str(), ValueText(change.address, change.value).c_str());
    }
}

// What is printed is printable: no control character, and no byte that is no text.
void CheckPrintable(const std::string& strText)
{
    const std::string strPrinted = Printable(strText);
    Check(strPrinted.size() <= strText.size(), "%zu characters became %zu", strText.size(), strPrinted.size());
    for (const char c : strPrinted)
    {
        Check(static_cast<unsigned char>(c) >= ' ' && c != 0x7f, "a control character is printed");
    }
    Check(Printable(strPrinted) == strPrinted, "what is printable is not printed as it is");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t unSize)
{
    const std::string strText(reinterpret_cast<const char*>(pData), std::min(unSize, c_unLongest));
    CheckAddress(strText);
    CheckAddress(strText.substr(0, strText.find('=')));
    CheckChange(strText);
    CheckPrintable(strText);
    return 0;
}
