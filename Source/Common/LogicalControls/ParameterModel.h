// What the console consists of: the four coordinates that name a parameter, and their limits. Message type and path type are
// enumerations; the third and fourth coordinate are the path (which object of that kind) and the parameter (which parameter of that
// object), both 0-based ints.
#pragma once

#include "Runtime/Export.h"

// First coordinate: the message type, which fixes the value type as well.
enum LOGICALCONTROLS_EXPORT tagenPPCMessageType : int
{
    enString = 0,  // RyGConsoleString, 13 bytes
    enRotary = 1,  // float
    enSwitch = 2,  // one bit, read and written as int 0 or 1
    enInteger = 3, // int
    enFader = 4,   // float
    enOther = 5,   // int
    enMeter = 6    // unsigned char
};

// Second coordinate: the virtual path type, the kind of console object (a mic input, a stage box). enGlobals is 0, enAuk 50.
enum LOGICALCONTROLS_EXPORT tagenVirtualPathType : int
{
#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters) en##group,
#include "LogicalControls/ParameterGroups.def"
#undef LC_PARAMETER_GROUP
};

typedef tagenPPCMessageType enPPCMessageType;
typedef tagenVirtualPathType enVirtualPathType;

constexpr int c_nMessageTypes = 7;
constexpr int c_nPathTypes = 51;
constexpr int c_nParameters = 241339; // in one whole console

// Number of paths of each path type.
extern LOGICALCONTROLS_EXPORT const int canMaxPaths[c_nPathTypes];

// Parameters a path, path type major: the entry of a pair is at path type * 7 + message type.
extern LOGICALCONTROLS_EXPORT const int canMaxParams[c_nPathTypes * c_nMessageTypes];

// Parameters of each message type in the whole console.
extern LOGICALCONTROLS_EXPORT const int canParameterCounts[c_nMessageTypes];

// "String" to "Meter", and "Globals" to "Auk".
extern LOGICALCONTROLS_EXPORT const char* const caMessageTypeNames[c_nMessageTypes];
extern LOGICALCONTROLS_EXPORT const char* const caParameterGroupNames[c_nPathTypes];

// True when the four coordinates name a parameter of the console.
LOGICALCONTROLS_EXPORT bool IsParameterAddress(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam);

// The limits as the parameter arrays use them: an own copy, message type major. Immutable after construction; any thread may
// read. A path type or message type that does not exist has the limit 0.
class LOGICALCONTROLS_EXPORT CMaxPathParameterArray
{
public:
    CMaxPathParameterArray();

    int GetMaxPathTypes() const;
    int GetMaxPathOfType(tagenVirtualPathType enPathType) const;
    int GetTypeMaxParms(tagenPPCMessageType enType, tagenVirtualPathType enPathType) const;

private:
    int m_anMaxPaths[c_nPathTypes];
    int m_anMaxParams[c_nMessageTypes][c_nPathTypes];
};

// Parameters that several path types share, so that a caller can ask for one without knowing its number in each group. Two are
// named after what they hold; the others are known by number.
enum LOGICALCONTROLS_EXPORT enCommonParamTypes : int
{
    enCommonFader = 28, // the level of an input, a mix or a VCA group
    enCommonName = 35   // the name that a user gave the path
};

constexpr int c_nCommonParamTypes = 41;

// For each common type 51 ints: its parameter number by path type, -1 where a path type does not have it.
extern LOGICALCONTROLS_EXPORT const int* const canCommonParamTypesTable[c_nCommonParamTypes];

// The message type of each common type.
extern LOGICALCONTROLS_EXPORT const int caCommonParamTypeToMessageType[c_nCommonParamTypes];
