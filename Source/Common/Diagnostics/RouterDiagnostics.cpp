#include "Diagnostics/RouterDiagnostics.h"

#include <iterator>
#include <ostream>

namespace RouterDiagnostics
{

namespace
{

const char* const caNodeTypeNames[] = {
#define LC_ROUTER_NODE_TYPE(enumerator, description) #enumerator,
#include "Diagnostics/RouterNodeTypes.def"
#undef LC_ROUTER_NODE_TYPE
};

struct stText
{
    int nValue;
    const char* szText;
};

// The unclosed bracket is meant: so the other processes print it.
constexpr stText caPorts[] = {
    {PORT_X, "(PORT_X/A)"},
    {PORT_Y, "(PORT_Y/B)"},
    {PORT_C, "(PORT_C"},
    {PORT_D, "(PORT_D)"},
    {PORTS_X_AND_Y, "(PORTS_X_AND_Y)"},
    {PORTS_A_TO_D, "(PORTS_A_TO_D)"},
    {PORTS_A_TO_C, "(PORTS_A_TO_C)"},
    {PORT_LOCAL_ROUTER, "(PORT_LOCAL_ROUTER)"},
};

constexpr stText caEthernetTypes[] = {
    {ETHERNET, "(ETHERNET)"},
    {AES50_ETHERNET_CONTROL, "(AES50_ETHERNET_CONTROL)"},
    {ETHERNET_TYPE_UNDETERMINATE, "(ETHERNET_TYPE_UNDETERMINATE)"},
};

constexpr stText caSplitterPorts[] = {
    {SPLITTER_PORT_A, "(SPLITTER_PORT_A)"},
    {SPLITTER_PORT_B, "(SPLITTER_PORT_B)"},
    {SPLITTER_PORT_A_AND_B, "(SPLITTER_PORT_A_AND_B)"},
    {SPLITTER_PORT_NA, "(SPLITTER_PORT_NA)"},
    {SPLITTER_PORT_ERROR, "(SPLITTER_PORT_ERROR)"},
};

template <std::size_t unTexts>
std::ostream& Write(std::ostream& stream, int nValue, const stText (&texts)[unTexts], const char* szOtherwise)
{
    const char* szText = szOtherwise;
    for (const stText& text : texts)
    {
        szText = text.nValue == nValue ? text.szText : szText;
    }
    return stream << std::to_string(nValue) << szText;
}

} // namespace

std::ostream& operator<<(std::ostream& stream, NodeType enType)
{
    const int nType = enType;
    const bool bInTable = nType >= 0 && nType < static_cast<int>(std::size(NODE_TYPE_DESCRIPTION));
    const bool bNamed = bInTable && nType != NT_MERLIN; // which prints no name: that is meant
    stream << std::to_string(nType) << " " << (bNamed ? caNodeTypeNames[nType] : "Unknown ?\?") << " ";
    if (bInTable)
    {
        stream << NODE_TYPE_DESCRIPTION[nType].description;
    }
    if (!bInTable || NODE_TYPE_DESCRIPTION[nType].type != enType)
    {
        stream << "  Error, description is wrong!!";
    }
    return stream;
}

std::ostream& operator<<(std::ostream& stream, DevicePortID enPort)
{
    return Write(stream << std::dec, enPort, caPorts, "(Unknown?\?)");
}

std::ostream& operator<<(std::ostream& stream, DeviceEthernetTypeID enType)
{
    return Write(stream, enType, caEthernetTypes, "(invalid)");
}

std::ostream& operator<<(std::ostream& stream, DeviceSplitterPort enPort)
{
    return Write(stream, enPort, caSplitterPorts, "(invalid)");
}

} // namespace RouterDiagnostics
