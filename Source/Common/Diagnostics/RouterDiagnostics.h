// The audio router's nodes and ports as printable text.
#pragma once

#include "Runtime/Export.h"

#include <iosfwd>
#include <string>

// For processes that print router topology: the identifiers that the router reports, and operators that write each to a stream as
// its number followed by its name, and return the stream. A number that has no name is no error: the text says so. Numbers are
// written in decimal whatever the stream is set to; that of a DevicePortID leaves the stream in decimal, the others leave it as it
// was; a width is the number's. Everything is constant: any thread may use it.
namespace RouterDiagnostics
{

// The kind of device that a node of the router is.
enum LOGICALCONTROLS_EXPORT NodeType : int
{
#define LC_ROUTER_NODE_TYPE(enumerator, description) enumerator,
#include "Diagnostics/RouterNodeTypes.def"
#undef LC_ROUTER_NODE_TYPE
};

// A port, or a set of ports, of a device.
enum LOGICALCONTROLS_EXPORT DevicePortID : int
{
    PORT_X = 0, // of a device with ports X and Y, or A of one with ports A to D
    PORT_Y = 1, // or B
    PORT_C = 2,
    PORT_D = 3,
    PORTS_X_AND_Y = 20,
    PORTS_A_TO_D = 21,
    PORTS_A_TO_C = 22,
    PORT_LOCAL_ROUTER = 250
};

// What runs over a device's ethernet.
enum LOGICALCONTROLS_EXPORT DeviceEthernetTypeID : int
{
    ETHERNET = 0,
    AES50_ETHERNET_CONTROL = 1,
    ETHERNET_TYPE_UNDETERMINATE = 255
};

// The port of a splitter that a signal takes.
enum LOGICALCONTROLS_EXPORT DeviceSplitterPort : int
{
    SPLITTER_PORT_A = 0,
    SPLITTER_PORT_B = 1,
    SPLITTER_PORT_A_AND_B = 2,
    SPLITTER_PORT_NA = 3,
    SPLITTER_PORT_ERROR = 255
};

// A node type, and what is printed behind its name.
struct stNodeTypeDescription
{
    NodeType type;
    std::string description;
};

// By value: the entry of a node type is at its number. Each translation unit has a copy of its own.
static const stNodeTypeDescription NODE_TYPE_DESCRIPTION[] = {
#define LC_ROUTER_NODE_TYPE(enumerator, description) {enumerator, description},
#include "Diagnostics/RouterNodeTypes.def"
#undef LC_ROUTER_NODE_TYPE
};

// Print "2 NT_SURFACE SURFACE", "250(PORT_LOCAL_ROUTER)", and so on.
LOGICALCONTROLS_EXPORT std::ostream& operator<<(std::ostream& stream, NodeType enType);
LOGICALCONTROLS_EXPORT std::ostream& operator<<(std::ostream& stream, DevicePortID enPort);
LOGICALCONTROLS_EXPORT std::ostream& operator<<(std::ostream& stream, DeviceEthernetTypeID enType);
LOGICALCONTROLS_EXPORT std::ostream& operator<<(std::ostream& stream, DeviceSplitterPort enPort);

} // namespace RouterDiagnostics
