// Finds arrays and positions in the families of arrays that an image is made of. Private to the library.
#pragma once

#include "LogicalControls/ConsoleBitmapArray.h"
#include "LogicalControls/ParameterElements.h"

#include <cstdint>

// Calls visit with the array of a message type. False, and no call, for a type that does not exist.
template <class Family, class Visitor>
bool VisitArray(Family& family, tagenPPCMessageType enType, Visitor visit)
{
    switch (enType)
    {
    case enString:
        visit(family.strings);
        return true;
    case enRotary:
        visit(family.rotaries);
        return true;
    case enSwitch:
        visit(family.switches);
        return true;
    case enInteger:
        visit(family.integers);
        return true;
    case enFader:
        visit(family.faders);
        return true;
    case enOther:
        visit(family.others);
        return true;
    case enMeter:
        visit(family.meters);
        return true;
    }
    return false;
}

// Puts cursor on a parameter of one of the family's arrays. True when the console has that parameter. A path type of 51 or more
// leaves the cursor where it was; a negative one, and a message type that does not exist, leave it without memory.
template <class Family>
bool PlaceCursor(Family& family, tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                 CBMAContainer::stBlockRef& cursor)
{
    if (enPathType >= c_nPathTypes)
    {
        return false;
    }
    cursor = CBMAContainer::stBlockRef();
    cursor.nMessageType = enType;
    cursor.nPathType = enPathType;
    cursor.nPath = nPath;
    cursor.nParameter = nParam;
    if (enPathType < 0)
    {
        return false;
    }
    VisitArray(family, enType,
               [&](auto& array)
               {
                   long lFirst = 0;
                   unsigned char* pBits = nullptr;
                   array.GetPPCBitBase(enPathType, 0, lFirst, cursor.lCount, pBits);
                   cursor.nBaseIndex = lFirst + std::int64_t(cursor.lCount) * nPath;
                   cursor.pMemory = array.GetMemoryPointer();
               });
    return IsParameterAddress(enType, enPathType, nPath, nParam);
}

// The flat number of a parameter of the cursor's path; -1 outside the block, and without one.
inline std::int64_t IndexAt(const CBMAContainer::stBlockRef& cursor, int nParam)
{
    const std::int64_t nIndex = cursor.nBaseIndex + nParam;
    return cursor.pMemory != nullptr && nIndex >= 0 && nIndex < canParameterCounts[cursor.nMessageType] ? nIndex : -1;
}

// Calls visit with each run of records of one path, the cursor placed on it: one look-up a run.
template <class Family, class Visitor>
void WalkRuns(Family& family, stPPCWithSI* pRecords, int nCount, CBMAContainer::stBlockRef& cursor, Visitor visit)
{
    cursor = CBMAContainer::stBlockRef();
    for (int nFirst = 0; pRecords != nullptr && nFirst < nCount;)
    {
        const stPPCWithSI& first = pRecords[nFirst];
        int nEnd = nFirst + 1;
        while (nEnd < nCount && pRecords[nEnd].IsContiguous(first))
        {
            ++nEnd;
        }
        PlaceCursor(family, first.enMessageType, first.enPathType, first.nPath, first.nParameter, cursor);
        visit(pRecords + nFirst, nEnd - nFirst);
        nFirst = nEnd;
    }
}

// Sets or clears the flag of each record by its value as an int; a flag outside the block is ignored.
inline void WriteFlags(stParameterFlags& flags, stPPCWithSI* pRecords, int nCount, CBMAContainer::stBlockRef& cursor)
{
    WalkRuns(flags, pRecords, nCount, cursor,
             [&cursor](const stPPCWithSI* pRun, int nRun)
             {
                 for (int nRecord = 0; nRecord < nRun; ++nRecord)
                 {
                     const std::int64_t nIndex = IndexAt(cursor, pRun[nRecord].nParameter);
                     if (nIndex >= 0)
                     {
                         WriteBit(cursor.pMemory, nIndex, pRun[nRecord].value.nValue != 0);
                     }
                 }
             });
}
