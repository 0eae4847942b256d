// Parameters as text: "MicInput/3/Fader/0", or by what it is on its path, "MicInput/3/Fader".
#pragma once

#include "LogicalControls.h"

#include <algorithm>
#include <string>
#include <vector>

typedef stPPCAddress stAddress;

// A value of any type, as a parameter holds it.
struct stValue
{
    int nValue = 0; // switches, integers, others, meters
    float fValue = 0;
    RyGConsoleString strValue;
};

struct stChange
{
    stAddress address;
    stValue value;
};

struct stRange
{
    int nFirst;
    int nLast;
};

// Many parameters by one text: an address of which each coordinate may be "*", and path and parameter a range such as "0-9".
struct stPattern
{
    // Of a group: none where last is below first.
    stRange ParamsOf(int nGroup, int nType) const;

    stRange groups;
    stRange paths;
    stRange types;
    stRange params;
    int nCommonType = -1; // instead of params: the one of each group that has this role
};

// These throw stWrongUse with one line that says which part is wrong and what is right.
stAddress ParseAddress(const std::string& strText);
stChange ParseChange(const std::string& strText); // "MicInput/3/Fader/0=0.75"
stPattern ParsePattern(const std::string& strText);
stValue ParseValue(tagenPPCMessageType enType, const std::string& strText);

std::vector<stPattern> ParsePatterns(const std::vector<std::string>& texts);

// The message types that it may name, bit t for type t.
unsigned int TypesOf(const stPattern& pattern);

bool IsNamedBy(const stPattern& pattern, const stAddress& address);

// The parameter with this number among all of its type, and the number of one.
stAddress AddressAt(tagenPPCMessageType enType, int nNumber);
int NumberOf(const stAddress& address);

// Calls visit with each parameter that the pattern names, in flat order.
template <class Visitor>
void ForEachParameter(const stPattern& pattern, Visitor visit)
{
    for (int nType = pattern.types.nFirst; nType <= pattern.types.nLast; ++nType)
    {
        for (int nGroup = pattern.groups.nFirst; nGroup <= pattern.groups.nLast; ++nGroup)
        {
            const int nLastPath = std::min(pattern.paths.nLast, canMaxPaths[nGroup] - 1);
            const stRange params = pattern.ParamsOf(nGroup, nType);
            for (int nPath = pattern.paths.nFirst; nPath <= nLastPath; ++nPath)
            {
                for (int nParam = params.nFirst; nParam <= params.nLast; ++nParam)
                {
                    visit(stAddress{static_cast<tagenPPCMessageType>(nType), static_cast<tagenVirtualPathType>(nGroup), nPath,
                                    nParam});
                }
            }
        }
    }
}

// "*/*/*/*".
extern const stPattern c_EveryParameter;

std::string AddressText(const stAddress& address);

// What it is on its path, "Fader", "Name" or "Common7", and empty for most; behind the name that its path has in an image: "Mic13
// Fader".
std::string CommonTypeName(int nCommonType);
std::string CommonNameText(const stAddress& address);
std::string NameText(const CBMAContainer& image, const stAddress& address);
bool IsFloat(tagenPPCMessageType enType);
std::string ValueText(const stAddress& address, const stValue& value);

stValue ReadValue(const CBMAContainer& image, const stAddress& address);
void WriteValue(CBMAContainer& image, const stChange& change, bool bSendOnly);
bool SameValue(const stAddress& address, const stValue& a, const stValue& b);

// The check words of an image as it is now, the same on every machine: those of strings, switches and meters, which are bytes, are
// the console's, most significant byte first. And one of all seven, which no two of them can cancel out in, as text.
void ReadCheckWords(CBMAContainer& image, std::uint32_t (&aunCheckWords)[c_nMessageTypes]);
std::string CheckWordText(CBMAContainer& image);
