// The operations on images with arrays of records, and on cursors.
#include "ImageBench.h"

namespace Fuzz
{

namespace
{

constexpr int c_nMostRecords = 600;
constexpr int c_nMostRecordsInAll = 6000;

// Flags named by records: the place of the path looked up last serves all that follow on the same path.
template <class Flags>
void WriteFlags(const std::vector<stPPCWithSI>& records, Flags flags)
{
    bool bPosition = false;
    int nType = 0;
    std::int64_t nBase = 0;
    for (std::size_t unRecord = 0; unRecord < records.size(); ++unRecord)
    {
        const stPPCWithSI& record = records[unRecord];
        const stPPCWithSI* pBefore = unRecord > 0 ? &records[unRecord - 1] : nullptr;
        const bool bSamePath = pBefore != nullptr && pBefore->nPath == record.nPath && pBefore->enPathType == record.enPathType &&
                               pBefore->enMessageType == record.enMessageType;
        if (!bSamePath && record.enPathType < 51)
        {
            nType = record.enMessageType;
            bPosition = IsType(nType) && IsGroup(record.enPathType);
            nBase = bPosition ? Offset(nType, record.enPathType) + Params(nType, record.enPathType) * record.nPath : 0;
        }
        const std::int64_t nFlag = nBase + record.nParameter;
        if (bPosition && nFlag >= 0 && nFlag < Count(nType))
        {
            SetBit(flags(nType), nFlag, record.value.nValue != 0);
        }
    }
}

} // namespace

// Runs along a path, with jumps.
std::vector<stPPCWithSI> CImageBench::Records(CInput& input)
{
    std::vector<stPPCWithSI> records;
    stPlace place = {0, 0, 0, 0};
    for (unsigned int unRun = input.Below(6); unRun > 0 && m_nRecords < c_nMostRecordsInAll; --unRun)
    {
        const unsigned int unShape = input.Byte();
        place = unShape < 200 ? TakePlace(input) : place;
        const int nStep = unShape % 4 - 1;
        for (unsigned int unCount = 1 + unShape % 16; unCount > 0; --unCount, ++m_nRecords)
        {
            stPPCWithSI record;
            record.enMessageType = TypeOf(place);
            record.enPathType = GroupOf(place);
            record.nPath = place.nPath;
            record.nParameter = place.nParam;
            const tBytes bytes = Pattern(16, unShape + unCount * 7 + input.Byte());
            std::memcpy(record.value.acBytes, bytes.data(), 16);
            if (unShape & 0x10)
            {
                record.value.nValue = static_cast<int>(unCount & 1);
            }
            record.nScope = bytes[0] < 128 ? 0 : bytes[1] - 100;
            record.fSI = ToFloat(LoadBig(&bytes[4]));
            records.push_back(record);
            place.nParam = static_cast<int>(static_cast<std::uint32_t>(place.nParam) + static_cast<std::uint32_t>(nStep));
        }
    }
    return records;
}

void CImageBench::BlockFlags(CInput& input)
{
    const int nScope = static_cast<int>(input.Below(4));
    static void (CBMAContainer::*const caWrite[])(stPPCWithSI*, int) = {
        &CBMAContainer::BlockWriteStoreScope, &CBMAContainer::BlockWriteRecallScope, &CBMAContainer::BlockWriteGlobalScope,
        &CBMAContainer::BlockWriteSafeScope};
    std::vector<stPPCWithSI> records = Records(input);
    (*m_pImage.*caWrite[nScope])(records.data(), static_cast<int>(records.size()));
    WriteFlags(records, [&](int nType) -> tBytes& { return m_Model.Flags(nScope, nType); });
}

void CImageBench::Mask(CInput& input)
{
    const unsigned int unShape = input.Byte();
    if (unShape >= 250)
    {
        const int nValue = unShape % 2 ? input.Number() : 0;
        Check(m_Mask.BlockAssign(nValue) == 1, "BlockAssign did not answer 1");
        for (int nType = 0; nType < 7; ++nType)
        {
            for (std::int64_t nFlag = 0; nFlag < Count(nType); nFlag += nFlag % 8 == 0 && nFlag + 8 <= Count(nType) ? 8 : 1)
            {
                const bool bWhole = nFlag % 8 == 0 && nFlag + 8 <= Count(nType);
                unsigned char& ucByte = m_MaskModel[std::size_t(nType)][std::size_t(nFlag / 8)];
                bWhole ? static_cast<void>(ucByte = nValue != 0 ? 0xff : 0)
                       : SetBit(m_MaskModel[std::size_t(nType)], nFlag, nValue != 0);
            }
        }
        return;
    }
    if (unShape >= 100)
    {
        std::vector<stPPCWithSI> records = Records(input);
        Check(m_Mask.BlockWrite(records.data(), static_cast<int>(records.size())) == 1, "BlockWrite did not answer 1");
        WriteFlags(records, [this](int nType) -> tBytes& { return m_MaskModel[std::size_t(nType)]; });
        return;
    }
    const stPlace place = TakePlace(input);
    const std::int64_t nFlat = Flat(place);
    int nFlag = 77;
    if (unShape < 50)
    {
        m_Mask.SetFlag(TypeOf(place), GroupOf(place), place.nPath, place.nParam, static_cast<int>(unShape % 3));
        if (nFlat >= 0)
        {
            SetBit(m_MaskModel[std::size_t(place.nType)], nFlat, unShape % 3 != 0);
        }
    }
    m_Mask.GetFlag(TypeOf(place), GroupOf(place), place.nPath, place.nParam, nFlag);
    Check(nFlag == (nFlat < 0 ? 77 : GetBit(m_MaskModel[std::size_t(place.nType)], nFlat) ? 1 : 0), "a mask's flag is %d", nFlag);
}

void CImageBench::CheckMask()
{
    for (int nType = 0; nType < 7; ++nType)
    {
        void* pMemory = nullptr;
        long lBytes = 0;
        const tBytes& flags = m_MaskModel[std::size_t(nType)];
        m_Mask.GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pMemory, lBytes);
        Check(lBytes == static_cast<long>(flags.size()) && std::memcmp(pMemory, flags.data(), flags.size()) == 0,
              "a mask's flags of type %d are not what was written", nType);
    }
}

void CImageBench::PlaceReader(CInput& input)
{
    const stPlace place = TakePlace(input);
    const bool bThree = input.Bit();
    const bool bPlaced = bThree ? m_pImage->SetReadBlocks(TypeOf(place), GroupOf(place), place.nPath, place.nParam)
                                : m_pImage->SetReadBlock(TypeOf(place), GroupOf(place), place.nPath, place.nParam);
    Check(bPlaced == Exists(place), "placing the reader on %d/%d/%d/%d answered %d", place.nGroup, place.nPath, place.nType,
          place.nParam, int(bPlaced));
    if (bPlaced)
    {
        m_Reader = place;
        m_bStarted = true;
        m_bEnd = false;
        for (int nCursor = bThree ? 2 : 0; nCursor >= 0; --nCursor)
        {
            const CBMAContainer::stBlockRef& cursor = m_pImage->GetReadBlocks()[nCursor];
            Check(cursor.nMessageType == place.nType && cursor.nPathType == place.nGroup && cursor.nPath == place.nPath &&
                      cursor.nParameter == place.nParam && cursor.lCount == Params(place.nType, place.nGroup),
                  "cursor %d stands elsewhere", nCursor);
        }
    }
}

void CImageBench::CheckReader()
{
    const CBMAContainer::stBlockRef& cursor = m_pImage->GetReadBlock();
    if (m_bEnd)
    {
        Check(cursor.nMessageType == 7, "at the end of the image the reader is at type %d", cursor.nMessageType);
    }
    else if (m_bStarted)
    {
        Check(cursor.nMessageType == m_Reader.nType && cursor.nPathType == m_Reader.nGroup && cursor.nPath == m_Reader.nPath &&
                  cursor.nParameter == m_Reader.nParam,
              "the reader is at %d/%d/%d/%d", cursor.nPathType, cursor.nPath, cursor.nMessageType, cursor.nParameter);
    }
    else
    {
        Check(cursor.nMessageType == -1 && cursor.nPathType == -1, "a fresh reader has moved");
    }
}

// To the next parameter in flat order.
bool CImageBench::Advance()
{
    if (++m_Reader.nParam < Params(m_Reader.nType, m_Reader.nGroup))
    {
        return true;
    }
    m_Reader.nParam = 0;
    if (++m_Reader.nPath < Paths(m_Reader.nGroup))
    {
        return true;
    }
    m_Reader.nPath = 0;
    if (++m_Reader.nGroup <= 50)
    {
        return true;
    }
    m_Reader.nGroup = 0;
    m_bEnd = ++m_Reader.nType > 6;
    return !m_bEnd;
}

// A record that was read; what its type has no use for is as before.
void CImageBench::CheckRead(const stPPCWithSI& record, const stPPCWithSI& before, int nScope)
{
    const int nType = m_Reader.nType;
    const std::int64_t nFlat = Flat(m_Reader);
    stPPCWithSI expected = before;
    expected.enMessageType = TypeOf(m_Reader);
    expected.enPathType = GroupOf(m_Reader);
    expected.nPath = m_Reader.nPath;
    expected.nParameter = m_Reader.nParam;
    if (nType == 2)
    {
        expected.value.nValue = GetBit(m_Model.values[2], nFlat) ? 1 : 0;
    }
    else
    {
        std::memcpy(expected.value.acBytes, m_Model.Value(nType, nFlat), Width(nType));
    }
    if (nType == 1 || nType == 4)
    {
        std::memcpy(&expected.fSI, m_Model.SI(nType, nFlat), 4);
    }
    if (nScope >= 0)
    {
        expected.nScope = GetBit(m_Model.Flags(nScope, nType), nFlat) ? 1 : 0;
    }
    Check(std::memcmp(&record, &expected, sizeof record) == 0, "%d/%d/%d/%d was read otherwise", m_Reader.nGroup, m_Reader.nPath,
          nType, m_Reader.nParam);
}

void CImageBench::Read(CInput& input)
{
    const unsigned int unShape = input.Byte();
    int nCount = input.Number();
    const int nScope = unShape % 8 == 7 ? input.Number() : static_cast<int>(unShape % 4);
    const bool bScopeless = (unShape & 0x30) == 0x30;
    nCount = std::min({nCount, c_nMostRecords, c_nMostRecordsInAll - m_nRecords});
    m_nRecords += std::max(nCount, 0);
    stPPCWithSI before;
    std::memset(before.value.acBytes, 0x3c, sizeof before.value.acBytes);
    before.nScope = 99;
    before.nReserved = 98;
    before.fSI = 97;
    before.nPad = 96;
    std::vector<stPPCWithSI> records(static_cast<std::size_t>(std::max(nCount, 0)) + 1, before);
    const int nRead = bScopeless ? m_pImage->BlockReadScopelessPPC(records.data(), nCount)
                                 : m_pImage->BlockReadPPC(records.data(), nCount, nScope);
    const bool bNothing = !bScopeless && (nScope < 0 || nScope > 3);
    int nExpected = 0;
    for (; !bNothing && nExpected < nCount && !m_bEnd; ++nExpected)
    {
        if (!m_bStarted)
        {
            m_Reader = {0, 0, 0, 0};
            m_bStarted = true;
        }
        CheckRead(records[std::size_t(nExpected)], before, bScopeless ? -1 : nScope);
        Advance();
    }
    Check(nRead == nExpected, "%d records were read and not %d", nRead, nExpected);
    Check(std::memcmp(&records[std::size_t(nExpected)], &before, sizeof before) == 0, "a record too many was written");
    CheckReader();
}

void CImageBench::Write(CInput& input)
{
    const unsigned int unShape = input.Byte();
    const int nScope = unShape % 8 == 7 ? input.Number() : static_cast<int>(unShape % 4);
    const bool bScopeless = (unShape & 0x30) == 0x30;
    std::vector<stPPCWithSI> records = Records(input);
    const int nCount = static_cast<int>(records.size());
    const int nWritten = bScopeless ? m_pImage->BlockWriteScopelessPPC(records.data(), nCount)
                                    : m_pImage->BlockWritePPC(records.data(), nCount, nScope);
    int nExpected = 0;
    for (const stPPCWithSI& record : records)
    {
        const stPlace place = {record.enMessageType, record.enPathType, record.nPath, record.nParameter};
        if (!Exists(place) || (!bScopeless && (nScope < 0 || nScope > 3)))
        {
            continue;
        }
        ++nExpected;
        const std::int64_t nFlat = Flat(place);
        if (place.nType == 2)
        {
            SetBit(m_Model.values[2], nFlat, record.value.nValue != 0);
        }
        else
        {
            std::memcpy(m_Model.Value(place.nType, nFlat), record.value.acBytes, Width(place.nType));
        }
        if (place.nType == 1 || place.nType == 4)
        {
            std::memcpy(m_Model.SI(place.nType, nFlat), &record.fSI, 4);
            m_SIs.push_back(place);
        }
        if (!bScopeless)
        {
            SetBit(m_Model.Flags(nScope, place.nType), nFlat, record.nScope != 0);
        }
    }
    Check(nWritten == nExpected, "%d records were written and not %d", nWritten, nExpected);
}

void CImageBench::Position(CInput& input)
{
    const stPlace place = TakePlace(input);
    const unsigned int unTag = input.Below(5);
    CBMAContainer::stBlockRef cursor;
    cursor.nMessageType = 40;
    cursor.nPath = 41;
    cursor.lCount = 42;
    const auto set = [&](auto tag)
    { return m_pImage->SetBlockPosition(TypeOf(place), GroupOf(place), place.nPath, place.nParam, cursor, tag); };
    const bool bPlaced = unTag == 0   ? set(Int2Type<0>())
                         : unTag == 1 ? set(Int2Type<1>())
                         : unTag == 2 ? set(Int2Type<2>())
                         : unTag == 3 ? set(Int2Type<3>())
                                      : set(Int2Type<4>());
    Check(bPlaced == Exists(place), "placing a cursor answered %d", int(bPlaced));
    if (place.nGroup > 50)
    {
        Check(cursor.nMessageType == 40 && cursor.nPath == 41 && cursor.lCount == 42,
              "a cursor was moved to a group beyond the last");
        return;
    }
    tagenPPCMessageType enType = enString;
    tagenVirtualPathType enGroup = enGlobals;
    int nPath = 0;
    int nParam = 0;
    CBMAContainer::GetBlockPosition(cursor, enType, enGroup, nPath, nParam);
    Check(enType == place.nType && enGroup == place.nGroup && nPath == place.nPath && nParam == place.nParam,
          "a cursor is elsewhere");
    const bool bBlock = IsType(place.nType) && IsGroup(place.nGroup);
    static const int caScopeOfTag[] = {-1, 1, 0, 2, 3};
    long lBytes = 0;
    const unsigned char* pExpected = !bBlock     ? nullptr
                                     : unTag > 0 ? FlagMemory(*m_pImage, caScopeOfTag[unTag], place.nType)
                                                 : ValueMemory(*m_pImage, place.nType, lBytes);
    Check(cursor.pMemory == pExpected, "a cursor is in another block");
    const std::int64_t nBase = bBlock ? Offset(place.nType, place.nGroup) + Params(place.nType, place.nGroup) * place.nPath : 0;
    Check(cursor.nBaseIndex == nBase, "a cursor's base is another");
    Check(cursor.lCount == (bBlock ? Params(place.nType, place.nGroup) : 0), "a cursor's path has %ld parameters", cursor.lCount);
}

} // namespace Fuzz
