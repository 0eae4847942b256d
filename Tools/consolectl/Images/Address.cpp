#include "Images/Address.h"

#include "Terminal/Common.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

namespace
{

[[noreturn]] void Refuse(const std::string& strWhat)
{
    throw stWrongUse("address", strWhat);
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

template <typename Number>
bool ParseNumber(const std::string& strText, Number& number)
{
    const char* pEnd = strText.data() + strText.size();
    const auto result = std::from_chars(strText.data(), pEnd, number);
    return result.ec == std::errc() && result.ptr == pEnd && std::isfinite(static_cast<double>(number));
}

int FindName(const std::string& strName, const char* const* ppNames, int nNames, const char* szWhat, const char* szExamples)
{
    const auto found = std::find(ppNames, ppNames + nNames, strName);
    if (found == ppNames + nNames)
    {
        Refuse(Format("\"%s\" is no %s; %s", strName.c_str(), szWhat, szExamples));
    }
    return static_cast<int>(found - ppNames);
}

int ParseIndex(const std::string& strText, int nLimit, const char* szWhat, const char* szOf)
{
    int nIndex = 0;
    if (!ParseNumber(strText, nIndex) || nIndex < 0 || nIndex >= nLimit)
    {
        Refuse(Format("%s \"%s\" is out of range: %s has 0 to %d", szWhat, strText.c_str(), szOf, nLimit - 1));
    }
    return nIndex;
}

// Two floats are the same when their bits are: a value that is no number, too.
std::uint32_t Bits(float fValue)
{
    std::uint32_t unBits;
    std::memcpy(&unBits, &fValue, sizeof unBits);
    return unBits;
}

bool IsFloat(tagenPPCMessageType enType)
{
    return enType == enRotary || enType == enFader;
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

stRange ParseName(const std::string& strName, const char* const* ppNames, int nNames, const char* szWhat, const char* szExamples)
{
    if (strName == "*")
    {
        return {0, nNames - 1};
    }
    const int nName = FindName(strName, ppNames, nNames, szWhat, szExamples);
    return {nName, nName};
}

constexpr char c_szGroupExamples[] = "Globals, MicInput, VCAGroups and Auk are some";
constexpr char c_szTypes[] = "String, Rotary, Switch, Integer, Fader, Other and Meter are all";

} // namespace

const stPattern c_EveryParameter = {{0, c_nPathTypes - 1}, {0, INT_MAX}, {0, c_nMessageTypes - 1}, {0, INT_MAX}};

stPattern ParsePattern(const std::string& strText)
{
    const std::vector<std::string> parts = Split(strText, '/');
    if (parts.size() != 4)
    {
        Refuse(Format("\"%s\" is no address: Group/path/Type/parameter, such as MicInput/3/Fader/0", strText.c_str()));
    }
    stPattern pattern = c_EveryParameter;
    pattern.groups = ParseName(parts[0], caParameterGroupNames, c_nPathTypes, "parameter group", c_szGroupExamples);
    pattern.types = ParseName(parts[2], caMessageTypeNames, c_nMessageTypes, "message type", c_szTypes);
    // How many there are at most, of what the names leave open.
    int nPaths = 0;
    int nParams = 0;
    for (int nGroup = pattern.groups.nFirst; nGroup <= pattern.groups.nLast; ++nGroup)
    {
        nPaths = std::max(nPaths, canMaxPaths[nGroup]);
        for (int nType = pattern.types.nFirst; nType <= pattern.types.nLast; ++nType)
        {
            nParams = std::max(nParams, canMaxParams[nGroup * c_nMessageTypes + nType]);
        }
    }
    const std::string strGroup = parts[0] + "/" + parts[2];
    pattern.paths = ParseRange(parts[1], nPaths, "path", parts[0].c_str());
    pattern.params = ParseRange(parts[3], nParams, "parameter", strGroup.c_str());
    bool bAny = false;
    ForEachParameter(pattern, [&bAny](const stAddress&) { bAny = true; });
    if (!bAny)
    {
        Refuse(Format("\"%s\" names no parameter", strText.c_str()));
    }
    return pattern;
}

stAddress ParseAddress(const std::string& strText)
{
    const stPattern pattern = ParsePattern(strText);
    for (const stRange& range : {pattern.groups, pattern.paths, pattern.types, pattern.params})
    {
        if (range.nFirst != range.nLast)
        {
            Refuse(Format("\"%s\" names more than one parameter", strText.c_str()));
        }
    }
    return {static_cast<tagenPPCMessageType>(pattern.types.nFirst), static_cast<tagenVirtualPathType>(pattern.groups.nFirst),
            pattern.paths.nFirst, pattern.params.nFirst};
}

stValue ParseValue(tagenPPCMessageType enType, const std::string& strText)
{
    stValue value;
    if (enType == enMeter)
    {
        Refuse("meters are set by the MC alone");
    }
    if (enType == enString)
    {
        if (strText.size() > std::size_t(RyGConsoleString::enMaxLength))
        {
            Refuse(Format("\"%s\" is too long: a console string holds 12 characters", strText.c_str()));
        }
        value.strValue = RyGConsoleString(strText);
        return value;
    }
    const bool bParsed = IsFloat(enType) ? ParseNumber(strText, value.fValue) : ParseNumber(strText, value.nValue);
    if (!bParsed || (enType == enSwitch && value.nValue != 0 && value.nValue != 1))
    {
        Refuse(Format("\"%s\" is no value of a %s: it takes %s", strText.c_str(), caMessageTypeNames[enType],
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

std::string ValueText(const stAddress& address, const stValue& value)
{
    if (address.enType == enString)
    {
        return "\"" + Printable(value.strValue.Text()) + "\"";
    }
    return IsFloat(address.enType) ? Format("%g", static_cast<double>(value.fValue)) : std::to_string(value.nValue);
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
}

bool SameValue(const stAddress& address, const stValue& a, const stValue& b)
{
    if (address.enType == enString)
    {
        return a.strValue == b.strValue;
    }
    return IsFloat(address.enType) ? Bits(a.fValue) == Bits(b.fValue) : a.nValue == b.nValue;
}
