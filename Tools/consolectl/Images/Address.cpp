#include "Images/Address.h"

#include "Terminal/Common.h"

#include <boost/endian/conversion.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

namespace
{

constexpr std::size_t c_unLongestName = 40; // that is looked for

// The others go by number.
constexpr struct
{
    int nCommonType;
    const char* szName;
} caCommonNames[] = {{enCommonFader, "Fader"}, {enCommonName, "Name"}};

[[noreturn]] void Refuse(const std::string& strWhat)
{
    throw stWrongUse("address", strWhat);
}

[[noreturn]] void RefuseValue(const std::string& strWhat)
{
    throw stWrongUse("value", strWhat);
}

std::vector<std::string> Split(const std::string& strText, char cSeparator)
{
    std::vector<std::string> parts(1);
    for (const char c : strText)
    {
        if (c == cSeparator)
        {
            parts.emplace_back();
        }
        else
        {
            parts.back() += c;
        }
    }
    return parts;
}

// How many characters have to be changed, put in or left out to make one text of the other; upper case and lower are alike.
std::size_t Distance(const std::string& strA, const std::string& strB)
{
    std::vector<std::size_t> row(strB.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t(0));
    for (std::size_t unA = 0; unA < strA.size(); ++unA)
    {
        std::size_t unDiagonal = row[0]++;
        for (std::size_t unB = 0; unB < strB.size(); ++unB)
        {
            const bool bSame =
                std::tolower(static_cast<unsigned char>(strA[unA])) == std::tolower(static_cast<unsigned char>(strB[unB]));
            const std::size_t unChanged = unDiagonal + (bSame ? 0 : 1);
            unDiagonal = row[unB + 1];
            row[unB + 1] = std::min({unChanged, row[unB] + 1, row[unB + 1] + 1});
        }
    }
    return row.back();
}

template <class Name>
int FindName(const std::string& strName, const Name* pNames, int nNames, const char* szWhat)
{
    const Name* const pFound = std::find(pNames, pNames + nNames, strName);
    if (pFound == pNames + nNames)
    {
        const std::string strShort = strName.substr(0, c_unLongestName);
        const auto closer = [&](const std::string& strA, const std::string& strB)
        { return Distance(strShort, strA) < Distance(strShort, strB); };
        const std::string strNearest = *std::min_element(pNames, pNames + nNames, closer);
        Refuse(Format("\"%s\" is no %s; the nearest is %s", strName.c_str(), szWhat, strNearest.c_str()));
    }
    return static_cast<int>(pFound - pNames);
}

int ParseIndex(const std::string& strText, int nLimit, const char* szWhat, const char* szOf)
{
    int nIndex = 0;
    if (!ParseNumber(strText, nIndex) || nIndex < 0 || nIndex >= nLimit)
    {
        if (!IsWholeNumber(strText))
        {
            Refuse(Format("%s \"%s\" is no number: %s has 0 to %d", szWhat, strText.c_str(), szOf, nLimit - 1));
        }
        Refuse(Format("%s \"%s\" is out of range: %s has 0 to %d; the nearest is %d", szWhat, strText.c_str(), szOf, nLimit - 1,
                      strText[0] == '-' ? 0 : nLimit - 1));
    }
    return nIndex;
}

// As few digits as tell it from every other float.
std::string ShortestText(float fValue)
{
    char acText[32];
    return std::string(acText, std::to_chars(acText, acText + sizeof acText, fValue, std::chars_format::general).ptr);
}

// Two floats are the same when their bits are: a value that is no number, too.
std::uint32_t Bits(float fValue)
{
    std::uint32_t unBits;
    std::memcpy(&unBits, &fValue, sizeof unBits);
    return unBits;
}

// "*", "7" or "0-9".
stRange ParseRange(const std::string& strText, int nLimit, const char* szWhat, const char* szOf)
{
    if (strText == "*")
    {
        return {0, nLimit - 1};
    }
    const std::size_t unDash = strText.find('-', 1);
    const int nFirst = ParseIndex(strText.substr(0, unDash), nLimit, szWhat, szOf);
    const int nLast = unDash == std::string::npos ? nFirst : ParseIndex(strText.substr(unDash + 1), nLimit, szWhat, szOf);
    if (nLast < nFirst)
    {
        Refuse(Format("%s \"%s\" is a range from high to low", szWhat, strText.c_str()));
    }
    return {nFirst, nLast};
}

// A name fits one type alone.
void NarrowTypes(stPattern& pattern)
{
    if (pattern.nCommonType >= 0)
    {
        const int nType = caCommonParamTypeToMessageType[pattern.nCommonType];
        pattern.types = {nType, nType};
    }
}

stRange ParseName(const std::string& strName, const char* const* ppNames, int nNames, const char* szWhat)
{
    if (strName == "*")
    {
        return {0, nNames - 1};
    }
    const int nName = FindName(strName, ppNames, nNames, szWhat);
    return {nName, nName};
}

int ParseCommonType(const std::string& strName)
{
    std::vector<std::string> names;
    names.reserve(c_nCommonParamTypes);
    for (int nCommonType = 0; nCommonType < c_nCommonParamTypes; ++nCommonType)
    {
        names.push_back(CommonTypeName(nCommonType));
    }
    return FindName(strName, names.data(), c_nCommonParamTypes, "name of a parameter");
}

bool Contains(const stRange& range, int nNumber)
{
    return nNumber >= range.nFirst && nNumber <= range.nLast;
}

int ParametersOf(int nGroup, int nType)
{
    return canMaxParams[nGroup * c_nMessageTypes + nType];
}

} // namespace

const stPattern c_EveryParameter = {{0, c_nPathTypes - 1}, {0, INT_MAX}, {0, c_nMessageTypes - 1}, {0, INT_MAX}, -1};

stRange stPattern::ParamsOf(int nGroup, int nType) const
{
    if (nCommonType >= 0)
    {
        const int nParam = canCommonParamTypesTable[nCommonType][nGroup];
        return nParam >= 0 && caCommonParamTypeToMessageType[nCommonType] == nType ? stRange{nParam, nParam} : stRange{0, -1};
    }
    return {params.nFirst, std::min(params.nLast, ParametersOf(nGroup, nType) - 1)};
}

stPattern ParsePattern(const std::string& strText)
{
    const std::vector<std::string> parts = Split(strText, '/');
    if (parts.size() != 4 && parts.size() != 3)
    {
        Refuse(Format("\"%s\" is no address: Group/path/Type/parameter, such as MicInput/3/Fader/0, or Group/path/name",
                      strText.c_str()));
    }
    stPattern pattern = c_EveryParameter;
    pattern.groups = ParseName(parts[0], caParameterGroupNames, c_nPathTypes, "parameter group");
    if (parts.size() == 3)
    {
        pattern.nCommonType = ParseCommonType(parts[2]);
    }
    else
    {
        pattern.types = ParseName(parts[2], caMessageTypeNames, c_nMessageTypes, "message type");
    }
    // How many there are at most, of what the names leave open.
    int nPaths = 0;
    int nParams = 0;
    for (int nGroup = pattern.groups.nFirst; nGroup <= pattern.groups.nLast; ++nGroup)
    {
        nPaths = std::max(nPaths, canMaxPaths[nGroup]);
        for (int nType = pattern.types.nFirst; nType <= pattern.types.nLast; ++nType)
        {
            nParams = std::max(nParams, ParametersOf(nGroup, nType));
        }
    }
    pattern.paths = ParseRange(parts[1], nPaths, "path", parts[0].c_str());
    if (parts.size() == 4)
    {
        const std::string strGroup = parts[0] + "/" + parts[2];
        pattern.params = ParseRange(parts[3], nParams, "parameter", strGroup.c_str());
    }
    NarrowTypes(pattern);
    bool bAny = false;
    ForEachParameter(pattern, [&bAny](const stAddress&) { bAny = true; });
    if (!bAny)
    {
        Refuse(Format("\"%s\" names no parameter", strText.c_str()));
    }
    return pattern;
}

std::vector<stPattern> ParsePatterns(const std::vector<std::string>& texts)
{
    std::vector<stPattern> patterns(texts.size());
    std::transform(texts.begin(), texts.end(), patterns.begin(), ParsePattern);
    return patterns;
}

unsigned int TypesOf(const stPattern& pattern)
{
    return (2u << pattern.types.nLast) - (1u << pattern.types.nFirst);
}

stAddress ParseAddress(const std::string& strText)
{
    const stPattern pattern = ParsePattern(strText);
    const stRange params = pattern.ParamsOf(pattern.groups.nFirst, pattern.types.nFirst);
    for (const stRange& range : {pattern.groups, pattern.paths, pattern.types, params})
    {
        if (range.nFirst != range.nLast)
        {
            Refuse(Format("\"%s\" names more than one parameter", strText.c_str()));
        }
    }
    return {static_cast<tagenPPCMessageType>(pattern.types.nFirst), static_cast<tagenVirtualPathType>(pattern.groups.nFirst),
            pattern.paths.nFirst, params.nFirst};
}

stValue ParseValue(tagenPPCMessageType enType, const std::string& strText)
{
    stValue value;
    if (enType == enMeter)
    {
        RefuseValue("meters are set by the MC alone");
    }
    if (enType == enString)
    {
        if (strText.size() > std::size_t(RyGConsoleString::enMaxLength))
        {
            const bool bWide = Width(strText) <= RyGConsoleString::enMaxLength;
            RefuseValue(Format("\"%s\" is too long: a console string holds 12 characters%s", strText.c_str(),
                               bWide ? " of one byte each" : ""));
        }
        value.strValue = RyGConsoleString(strText);
        return value;
    }
    const bool bParsed = IsFloat(enType) ? ParseNumber(strText, value.fValue) : ParseNumber(strText, value.nValue);
    if (!bParsed || (enType == enSwitch && value.nValue != 0 && value.nValue != 1))
    {
        RefuseValue(Format("\"%s\" is no value of type %s: it takes %s", strText.c_str(), caMessageTypeNames[enType],
                           IsFloat(enType)      ? "a number such as -6.5"
                           : enType == enSwitch ? "0 or 1"
                                                : "a whole number"));
    }
    return value;
}

stChange ParseChange(const std::string& strText)
{
    const std::size_t unEquals = strText.find('=');
    if (unEquals == std::string::npos)
    {
        Refuse(Format("\"%s\" is no change: ADDRESS=VALUE, such as MicInput/3/Fader/0=-6.5", strText.c_str()));
    }
    const stAddress address = ParseAddress(strText.substr(0, unEquals));
    return {address, ParseValue(address.enType, strText.substr(unEquals + 1))};
}

std::string AddressText(const stAddress& address)
{
    return Format("%s/%d/%s/%d", caParameterGroupNames[address.enPathType], address.nPath, caMessageTypeNames[address.enType],
                  address.nParam);
}

std::string CommonTypeName(int nCommonType)
{
    for (const auto& named : caCommonNames)
    {
        if (named.nCommonType == nCommonType)
        {
            return named.szName;
        }
    }
    return Format("Common%d", nCommonType);
}

std::string CommonNameText(const stAddress& address)
{
    for (int nCommonType = 0; nCommonType < c_nCommonParamTypes; ++nCommonType)
    {
        if (caCommonParamTypeToMessageType[nCommonType] == address.enType &&
            canCommonParamTypesTable[nCommonType][address.enPathType] == address.nParam)
        {
            return CommonTypeName(nCommonType);
        }
    }
    return std::string();
}

std::string NameText(const CBMAContainer& image, const stAddress& address)
{
    RyGConsoleString strName;
    const int nName = canCommonParamTypesTable[enCommonName][address.enPathType];
    if (nName >= 0)
    {
        image.GetPPC(enString, address.enPathType, address.nPath, nName, strName);
    }
    const std::string strCommon = CommonNameText(address);
    const std::string strPath = Printable(strName.Text());
    return strPath + (strPath.empty() || strCommon.empty() ? "" : " ") + strCommon;
}

bool IsNamedBy(const stPattern& pattern, const stAddress& address)
{
    return Contains(pattern.types, address.enType) && Contains(pattern.groups, address.enPathType) &&
           Contains(pattern.paths, address.nPath) && Contains(pattern.ParamsOf(address.enPathType, address.enType), address.nParam);
}

stAddress AddressAt(tagenPPCMessageType enType, int nNumber)
{
    int nGroup = 0;
    for (; nGroup < c_nPathTypes - 1 && nNumber >= canMaxPaths[nGroup] * ParametersOf(nGroup, enType); ++nGroup)
    {
        nNumber -= canMaxPaths[nGroup] * ParametersOf(nGroup, enType);
    }
    const int nParams = ParametersOf(nGroup, enType);
    return {enType, static_cast<tagenVirtualPathType>(nGroup), nNumber / nParams, nNumber % nParams};
}

int NumberOf(const stAddress& address)
{
    int nNumber = address.nPath * ParametersOf(address.enPathType, address.enType) + address.nParam;
    for (int nGroup = 0; nGroup < address.enPathType; ++nGroup)
    {
        nNumber += canMaxPaths[nGroup] * ParametersOf(nGroup, address.enType);
    }
    return nNumber;
}

bool IsFloat(tagenPPCMessageType enType)
{
    return enType == enRotary || enType == enFader;
}

std::string ValueText(const stAddress& address, const stValue& value)
{
    if (address.enType == enString)
    {
        return "\"" + Printable(value.strValue.Text()) + "\"";
    }
    return IsFloat(address.enType) ? ShortestText(value.fValue) : std::to_string(value.nValue);
}

stValue ReadValue(const CBMAContainer& image, const stAddress& address)
{
    stValue value;
    unsigned char ucMeter = 0;
    image.GetPPC(address.enType, address.enPathType, address.nPath, address.nParam, value.nValue);
    image.GetPPC(address.enType, address.enPathType, address.nPath, address.nParam, value.fValue);
    image.GetPPC(address.enType, address.enPathType, address.nPath, address.nParam, value.strValue);
    image.GetPPC(address.enType, address.enPathType, address.nPath, address.nParam, ucMeter);
    if (address.enType == enMeter)
    {
        value.nValue = ucMeter;
    }
    return value;
}

void WriteValue(CBMAContainer& image, const stChange& change, bool bSendOnly)
{
    const stAddress& address = change.address;
    RyGConsoleString strValue = change.value.strValue;
    image.SetPPC(address.enType, address.enPathType, address.nPath, address.nParam, change.value.nValue, false, bSendOnly);
    image.SetPPC(address.enType, address.enPathType, address.nPath, address.nParam, change.value.fValue, false, bSendOnly);
    image.SetPPC(address.enType, address.enPathType, address.nPath, address.nParam, strValue, false, bSendOnly);
    image.SetPPC(address.enType, address.enPathType, address.nPath, address.nParam, static_cast<unsigned char>(change.value.nValue),
                 false, bSendOnly);
}

bool SameValue(const stAddress& address, const stValue& a, const stValue& b)
{
    if (address.enType == enString)
    {
        return a.strValue == b.strValue;
    }
    return IsFloat(address.enType) ? Bits(a.fValue) == Bits(b.fValue) : a.nValue == b.nValue;
}

void ReadCheckWords(CBMAContainer& image, std::uint32_t (&aunCheckWords)[c_nMessageTypes])
{
    image.UpdateXors();
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const std::uint32_t unWord = image.GetXorVal(static_cast<tagenPPCMessageType>(nType));
        const bool bBytes = nType == enString || nType == enSwitch || nType == enMeter;
        aunCheckWords[nType] = bBytes ? boost::endian::big_to_native(unWord) : unWord;
    }
}

std::string CheckWordText(CBMAContainer& image)
{
    std::uint32_t aunCheckWords[c_nMessageTypes];
    ReadCheckWords(image, aunCheckWords);
    std::uint32_t unCheck = 0;
    for (const std::uint32_t unCheckWord : aunCheckWords)
    {
        unCheck = (unCheck << 5 | unCheck >> 27) ^ unCheckWord;
    }
    return Format("%08x", unCheck);
}
