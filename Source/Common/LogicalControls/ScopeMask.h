// One scope's worth of flags, apart from an image.
#pragma once

#include "LogicalControls/ParameterArray.h"
#include "Messages/PPCPacket.h"
#include "Runtime/Export.h"

// One flag for every parameter of the console, to say which of them an operation is about: CBMAContainer's scoped exports take
// one. Fresh, all flags are clear. The mask owns its flags (30 KB); it takes no lock.
//
// Flags are addressed as parameters are, and not held against the limits: an address whose flag would lie outside the block is
// ignored, one that falls inside it is a neighbour's.
class LOGICALCONTROLS_EXPORT CCBMAContainerScopeMask
{
public:
    CCBMAContainerScopeMask();
    CCBMAContainerScopeMask(const CCBMAContainerScopeMask& other);
    CCBMAContainerScopeMask& operator=(const CCBMAContainerScopeMask& other);
    ~CCBMAContainerScopeMask();

    // Clears every flag.
    void Reset();

    // Sets every flag (any value but 0) or clears it (0). Returns 1.
    int BlockAssign(int nValue);

    // Sets or clears the flag of each record, by its value as an int. Records of one path that follow each other cost one look-up.
    // A record whose path type is 51 or more counts as of the path that was looked up last in this call; a message type that does
    // not exist, and a path type below 0, have no flags. Returns 1.
    int BlockWrite(stPPCWithSI* pRecords, int nCount);

    // One flag, 0 or 1.
    void SetFlag(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue);
    void GetFlag(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int& nValue) const;

    // A message type's flags as a block, bit (i mod 8), least significant first, of byte (i div 8) for parameter i in flat order;
    // null and 0 for a type that does not exist.
    void GetMessageMemory(tagenPPCMessageType enType, void*& pMemory, long& lBytes);

    // Prints the flags' memory to standard output, in hexadecimal, 20 bytes a line; the stream stays in hexadecimal mode. The
    // sections' names are not those of the message types they show, and type 1 is left out: that is meant.
    void DumpMasks() const;

private:
    friend class CBMAContainer;

    stParameterFlags m_Flags;
};
