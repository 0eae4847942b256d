// Parameters as text: "MicInput/3/Fader/0".
#pragma once

#include "LogicalControls.h"

#include <string>

struct stAddress
{
    tagenPPCMessageType enType;
    tagenVirtualPathType enPathType;
    int nPath;
    int nParam;
};

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

// Both throw CLI::ValidationError with one line that says which part is wrong and what is right.
stAddress ParseAddress(const std::string& strText);
stChange ParseChange(const std::string& strText); // "MicInput/3/Fader/0=0.75"

std::string AddressText(const stAddress& address);
std::string ValueText(const stAddress& address, const stValue& value);

stValue ReadValue(const CBMAContainer& image, const stAddress& address);
void WriteValue(CBMAContainer& image, const stChange& change, bool bSendOnly);
bool SameValue(const stAddress& address, const stValue& a, const stValue& b);
