// Parameter changes for tests: in memory, and as written-out bytes.
#pragma once

#include "Messages/PPCPacket.h"
#include "Support/Bytes.h"

#include <string>

namespace Support
{

// A rotary (-0.75), a string ("Kick In") and an integer (-2).
const char* const c_szFloatRecord = "00000001 00 00000001 00000002 00000003 00000004 00000004 bf400000";
const char* const c_szStringRecord = "00000001 00 00000000 00000001 0000008f 00000001 0000000d 4b69636b20496e000000000000";
const char* const c_szIntRecord = "00000001 00 00000003 00000032 00000001 00000044 00000004 fffffffe";

// A serialised record whose header claims this length, whatever its value is.
inline tBytes SerialisedRecord(std::uint32_t unType, std::uint32_t unClaimedLength, const tBytes& value = tBytes(),
                               std::uint32_t unMarker = 1)
{
    tBytes bytes;
    AppendBig(bytes, unMarker);
    bytes.push_back(0);
    for (const std::uint32_t unField : {unType, 7u, 8u, 9u, unClaimedLength})
    {
        AppendBig(bytes, unField);
    }
    Append(bytes, value);
    return bytes;
}

// A serialised record of this parameter.
inline tBytes Record(int nType, int nPathType, int nPath, int nParam, const tBytes& value, std::uint32_t unMarker = 1)
{
    tBytes bytes;
    AppendBig(bytes, unMarker);
    bytes.push_back(0);
    for (const int nField : {nType, nPathType, nPath, nParam, static_cast<int>(value.size())})
    {
        AppendBig(bytes, static_cast<std::uint32_t>(nField));
    }
    Append(bytes, value);
    return bytes;
}

// A record for a flag writer: the value counts, the scope word says the opposite and is not to be looked at.
inline stPPCWithSI FlagRecord(int nType, int nPathType, int nPath, int nParam, int nValue = 1)
{
    stPPCWithSI record;
    record.enMessageType = static_cast<tagenPPCMessageType>(nType);
    record.enPathType = static_cast<tagenVirtualPathType>(nPathType);
    record.nPath = nPath;
    record.nParameter = nParam;
    record.value.nValue = nValue;
    record.nScope = nValue == 0;
    return record;
}

} // namespace Support
