// The value that each parameter has by default, and the names that paths start with.
#pragma once

#include "LogicalControls/ParameterModel.h"
#include "Runtime/Export.h"
#include "RyGConsoleString.h"

class CBMAContainer;

// 51 x 7 arrays, path type major as canMaxParams: the entry of a pair is at path type * 7 + message type. Each array holds one
// element for each of the pair's parameters, of the type that the message type fixes:
//
//     String           const char*      a name pattern, such as "Mic%ch%"
//     Rotary, Fader    float
//     Switch, Meter    unsigned char    a switch is 0 or 1
//     Integer, Other   int
//
// What can be named by coordinates is better read through GetDefaultPPC. The tables are constant: any thread may read them at any
// time. An image does not begin with these values but with zeros; ApplyDefaults brings it here.
extern LOGICALCONTROLS_EXPORT const void* const pvDefaultParameterValues[c_nPathTypes * c_nMessageTypes];

// The string arrays by name: MicInputParameters::enPPCStringMessage::caDefaults and its 50 siblings. Where a group has two, the
// first is a short name of the path and the second a long one. In a pattern "%ch%" stands for the path; every other character is
// itself.
#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters)                            \
    namespace group##Parameters                                                                                                    \
    {                                                                                                                              \
        namespace enPPCStringMessage                                                                                               \
        {                                                                                                                          \
        extern LOGICALCONTROLS_EXPORT const char* const caDefaults[strings];                                                       \
        }                                                                                                                          \
    }
#include "LogicalControls/ParameterGroups.def"
#undef LC_PARAMETER_GROUP

// A parameter's default, by the value's type as in CBMAContainer::GetPPC: float for rotaries and faders, int for switches,
// integers and others, unsigned char for meters, const char* for the patterns of strings. False, with the result as it was, when
// the model has no such parameter or the overload does not take the message type.
LOGICALCONTROLS_EXPORT bool GetDefaultPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nParam, float& fValue);
LOGICALCONTROLS_EXPORT bool GetDefaultPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nParam, int& nValue);
LOGICALCONTROLS_EXPORT bool GetDefaultPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nParam,
                                          unsigned char& ucValue);
LOGICALCONTROLS_EXPORT bool GetDefaultPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nParam,
                                          const char*& szPattern);

// A pattern as the string of a path: each "%ch%" replaced by the path's number as people count, from 1, without padding; cut to
// what a console string holds. A null pattern counts as an empty one.
LOGICALCONTROLS_EXPORT RyGConsoleString ExpandDefaultName(const char* szPattern, int nPath);

// Gives every parameter of the image its default, names expanded, in one pass over the blocks. As when whole blocks move, nothing
// is sent, no scope flag or SI float changes, and check words are as old as they were (UpdateXors). Not for an image that another
// thread uses.
LOGICALCONTROLS_EXPORT void ApplyDefaults(CBMAContainer& image);
