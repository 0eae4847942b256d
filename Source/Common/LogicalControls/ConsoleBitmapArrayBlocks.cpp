// Block transfer: an image as arrays of records.
#include "LogicalControls/BlockPosition.h"
#include "LogicalControls/ConsoleBitmapArray.h"

#include <algorithm>
#include <cstring>

namespace
{

// An element to and from a record's value: the bytes that the type has, and no others.
template <typename T, tagenPPCMessageType N, bool compressed>
void LoadValue(const CParameterArray<T, N, compressed>& values, std::int64_t nIndex, uPPCValue& value)
{
    T loaded;
    LoadElement(values.GetMemoryPointer(), nIndex, loaded, Int2Type<compressed>());
    std::memcpy(value.acBytes, &loaded, sizeof loaded);
}

template <typename T, tagenPPCMessageType N, bool compressed>
void StoreValue(CParameterArray<T, N, compressed>& values, std::int64_t nIndex, const uPPCValue& value)
{
    T stored;
    std::memcpy(&stored, value.acBytes, sizeof stored);
    StoreElement(values.GetMemoryPointer(), nIndex, stored, Int2Type<compressed>());
}

} // namespace

bool CBMAContainer::SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                     stBlockRef& cursor, Int2Type<0>)
{
    return PlaceCursor(m_Values, enType, enPathType, nPath, nParam, cursor);
}

bool CBMAContainer::SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                     stBlockRef& cursor, Int2Type<1>)
{
    return PlaceCursor(m_aScopeFlags[enRecallScope], enType, enPathType, nPath, nParam, cursor);
}

bool CBMAContainer::SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                     stBlockRef& cursor, Int2Type<2>)
{
    return PlaceCursor(m_aScopeFlags[enStoreScope], enType, enPathType, nPath, nParam, cursor);
}

bool CBMAContainer::SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                     stBlockRef& cursor, Int2Type<3>)
{
    return PlaceCursor(m_aScopeFlags[enGlobalScope], enType, enPathType, nPath, nParam, cursor);
}

bool CBMAContainer::SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                     stBlockRef& cursor, Int2Type<4>)
{
    return PlaceCursor(m_aScopeFlags[enSafeScope], enType, enPathType, nPath, nParam, cursor);
}

void CBMAContainer::GetBlockPosition(const stBlockRef& cursor, tagenPPCMessageType& enType, tagenVirtualPathType& enPathType,
                                     int& nPath, int& nParam)
{
    enType = static_cast<tagenPPCMessageType>(cursor.nMessageType);
    enPathType = static_cast<tagenVirtualPathType>(cursor.nPathType);
    nPath = cursor.nPath;
    nParam = cursor.nParameter;
}

bool CBMAContainer::SetReadBlock(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam)
{
    return IsParameterAddress(enType, enPathType, nPath, nParam) &&
           SetBlockPosition(enType, enPathType, nPath, nParam, m_aCursors[enReadCursor], Int2Type<0>());
}

bool CBMAContainer::SetReadBlocks(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam)
{
    return SetReadBlock(enType, enPathType, nPath, nParam) &&
           SetBlockPosition(enType, enPathType, nPath, nParam, m_aCursors[enReadRecallCursor], Int2Type<1>()) &&
           SetBlockPosition(enType, enPathType, nPath, nParam, m_aCursors[enReadStoreCursor], Int2Type<2>());
}

const CBMAContainer::stBlockRef& CBMAContainer::GetReadBlock() const
{
    return m_aCursors[enReadCursor];
}

const CBMAContainer::stBlockRef* CBMAContainer::GetReadBlocks() const
{
    return m_aCursors;
}

int CBMAContainer::BlockReadPPC(stPPCWithSI* pRecords, int nCount, int nScope)
{
    const stParameterFlags* pFlags = ScopeFlags(nScope);
    return pFlags != nullptr ? BlockRead(pRecords, nCount, pFlags) : 0;
}

int CBMAContainer::BlockReadScopelessPPC(stPPCWithSI* pRecords, int nCount)
{
    return BlockRead(pRecords, nCount, nullptr);
}

int CBMAContainer::BlockWritePPC(stPPCWithSI* pRecords, int nCount, int nScope)
{
    stParameterFlags* pFlags = ScopeFlags(nScope);
    return pFlags != nullptr ? BlockWrite(pRecords, nCount, pFlags) : 0;
}

int CBMAContainer::BlockWriteScopelessPPC(stPPCWithSI* pRecords, int nCount)
{
    return BlockWrite(pRecords, nCount, nullptr);
}

stParameterFlags* CBMAContainer::ScopeFlags(int nScope)
{
    return nScope >= 0 && nScope < enScopeCount ? &m_aScopeFlags[nScope] : nullptr;
}

// Path by path; what is left of a path when the records are full is where the next call goes on.
int CBMAContainer::BlockRead(stPPCWithSI* pRecords, int nCount, const stParameterFlags* pFlags)
{
    stBlockRef& cursor = m_aCursors[enReadCursor];
    int nRead = 0;
    while (pRecords != nullptr && nRead < nCount && (cursor.nParameter < cursor.lCount || GoToNextPath()))
    {
        const int nRun = std::min(nCount - nRead, static_cast<int>(cursor.lCount) - cursor.nParameter);
        ReadRun(pRecords + nRead, nRun, pFlags);
        cursor.nParameter += nRun;
        nRead += nRun;
    }
    if (nRead > 0 && cursor.nParameter == cursor.lCount)
    {
        GoToNextPath(); // so that the cursor shows what comes next
    }
    return nRead;
}

// nCount parameters of the read cursor's path, from the cursor on. Values, SI floats and flags number their elements alike.
void CBMAContainer::ReadRun(stPPCWithSI* pRecords, int nCount, const stParameterFlags* pFlags)
{
    const stBlockRef& cursor = m_aCursors[enReadCursor];
    const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(cursor.nMessageType);
    const std::int64_t nFirst = cursor.nBaseIndex + cursor.nParameter;
    VisitArray(m_Values, enType,
               [&](const auto& values)
               {
                   for (int nRecord = 0; nRecord < nCount; ++nRecord)
                   {
                       stPPCWithSI& record = pRecords[nRecord];
                       record.enMessageType = enType;
                       record.enPathType = static_cast<tagenVirtualPathType>(cursor.nPathType);
                       record.nPath = cursor.nPath;
                       record.nParameter = cursor.nParameter + nRecord;
                       LoadValue(values, nFirst + nRecord, record.value);
                   }
               });
    if (enType == enRotary || enType == enFader)
    {
        const void* pSI = enType == enRotary ? m_RotarySI.GetMemoryPointer() : m_FaderSI.GetMemoryPointer();
        for (int nRecord = 0; nRecord < nCount; ++nRecord)
        {
            pRecords[nRecord].fSI = static_cast<const float*>(pSI)[nFirst + nRecord];
        }
    }
    if (pFlags != nullptr)
    {
        VisitArray(*pFlags, enType,
                   [&](const auto& flags)
                   {
                       for (int nRecord = 0; nRecord < nCount; ++nRecord)
                       {
                           pRecords[nRecord].nScope = ReadBit(flags.GetMemoryPointer(), nFirst + nRecord);
                       }
                   });
    }
}

// Moves the read cursor to the first parameter of the path that comes next in flat order; to the end, message type 7, and false
// when there is none.
bool CBMAContainer::GoToNextPath()
{
    stBlockRef& cursor = m_aCursors[enReadCursor];
    int nType = std::max(cursor.nMessageType, 0);
    int nPathType = std::max(cursor.nPathType, 0);
    int nPath = cursor.nMessageType < 0 ? 0 : cursor.nPath + 1;
    if (nPath >= canMaxPaths[nPathType])
    {
        nPath = 0;
        ++nPathType;
    }
    if (nPathType >= c_nPathTypes)
    {
        nPathType = 0;
        ++nType;
    }
    if (nType >= c_nMessageTypes)
    {
        cursor = stBlockRef();
        cursor.nMessageType = c_nMessageTypes;
        return false;
    }
    PlaceCursor(m_Values, static_cast<tagenPPCMessageType>(nType), static_cast<tagenVirtualPathType>(nPathType), nPath, 0, cursor);
    return true;
}

int CBMAContainer::BlockWrite(stPPCWithSI* pRecords, int nCount, stParameterFlags* pFlags)
{
    stBlockRef& cursor = m_aCursors[enWriteCursor];
    int nWritten = 0;
    WalkRuns(m_Values, pRecords, nCount, cursor,
             [&](const stPPCWithSI* pRun, int nRun)
             {
                 const stPPCWithSI& first = *pRun;
                 if (cursor.pMemory != nullptr && IsParameterAddress(first.enMessageType, first.enPathType, first.nPath, 0))
                 {
                     nWritten += WriteRun(pRun, nRun, pFlags);
                 }
             });
    return nWritten;
}

// Records of the write cursor's path, which exists; those of parameters that it has not are passed over.
int CBMAContainer::WriteRun(const stPPCWithSI* pRecords, int nCount, stParameterFlags* pFlags)
{
    const stBlockRef& cursor = m_aCursors[enWriteCursor];
    const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(cursor.nMessageType);
    int nWritten = 0;
    const auto forEach = [&](auto write)
    {
        nWritten = 0;
        for (int nRecord = 0; nRecord < nCount; ++nRecord)
        {
            const int nParameter = pRecords[nRecord].nParameter;
            if (nParameter >= 0 && nParameter < cursor.lCount)
            {
                write(pRecords[nRecord], cursor.nBaseIndex + nParameter);
                ++nWritten;
            }
        }
    };
    VisitArray(m_Values, enType,
               [&](auto& values) {
                   forEach([&values](const stPPCWithSI& record, std::int64_t nIndex) { StoreValue(values, nIndex, record.value); });
               });
    if (enType == enRotary || enType == enFader)
    {
        float* pSI = static_cast<float*>(enType == enRotary ? m_RotarySI.GetMemoryPointer() : m_FaderSI.GetMemoryPointer());
        forEach([pSI](const stPPCWithSI& record, std::int64_t nIndex) { pSI[nIndex] = record.fSI; });
    }
    if (pFlags != nullptr)
    {
        VisitArray(*pFlags, enType,
                   [&](auto& flags)
                   {
                       void* pBits = flags.GetMemoryPointer();
                       forEach([pBits](const stPPCWithSI& record, std::int64_t nIndex)
                               { WriteBit(pBits, nIndex, record.nScope != 0); });
                   });
    }
    return nWritten;
}
