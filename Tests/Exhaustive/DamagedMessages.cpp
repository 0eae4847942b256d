#include "Exhaustive/DamagedMessages.h"

#include "ClientComms/ImageSync.h"
#include "Exhaustive/ImageAccess.h"
#include "Messages/PPCPacket.h"
#include "Messages/RawPPCMsg.h"

#include <algorithm>
#include <cstring>

namespace Exhaustive
{

namespace
{

constexpr std::size_t c_unUpdateHeader = 17;
constexpr std::size_t c_unRecordHeader = 25;

int Signed(const unsigned char* pBytes)
{
    return static_cast<int>(Big(pBytes));
}

// ---- A second reading of an update ---------------------------------------------------------------------------------------------

struct stView
{
    const unsigned char* pData;
    std::size_t unLength;
};

// The arrays that are to be shown, without data where there is none. False: not an update.
bool ReadUpdate(const unsigned char* pBytes, std::size_t unSize, stView (&views)[c_nTypes])
{
    if (unSize < c_unUpdateHeader || Big(pBytes) != 1 || Signed(pBytes + 9) > 30)
    {
        return false;
    }
    std::size_t unAt = c_unUpdateHeader;
    const Support::stCarriedTypes carried = Support::CarriedTypes(Big(pBytes + 9));
    for (int nType = carried.nFirst; nType <= carried.nLast && unAt + 4 <= unSize && Big(pBytes + unAt) != 0; ++nType)
    {
        const int nLength = Signed(pBytes + unAt);
        unAt += 4;
        if (nLength > 0 && static_cast<std::size_t>(nLength) > unSize - unAt)
        {
            return false;
        }
        if (nLength > 0)
        {
            views[nType] = {pBytes + unAt, static_cast<std::size_t>(nLength)};
            unAt += static_cast<std::size_t>(nLength);
        }
    }
    return true;
}

std::string ViewsDifference(const CMCUpdateMsg& message, const stView (&views)[c_nTypes], bool bShallow)
{
    for (int nType = 0; nType < c_nTypes; ++nType)
    {
        const unsigned char* pData = nullptr;
        int nLength = 0;
        const stView& view = views[nType];
        const bool bShown = message.GetArray(static_cast<tagenPPCMessageType>(nType), pData, nLength);
        const bool bSame = bShown && static_cast<std::size_t>(nLength) == view.unLength &&
                           (bShallow ? pData == view.pData : std::memcmp(pData, view.pData, view.unLength) == 0);
        if (bShown != (view.pData != nullptr) || (bShown && !bSame))
        {
            return std::string(bShallow ? "shallow" : "deep") + " array " + std::to_string(nType);
        }
    }
    return "";
}

// ---- A second reading of a stream ----------------------------------------------------------------------------------------------

struct stRead
{
    const unsigned char* pRecord;
    stAddress address;
    int nLength;
};

// The records whose value lies in the bytes as a whole. False: something else is behind them.
bool ReadStream(const unsigned char* pBytes, std::size_t unSize, std::vector<stRead>& records)
{
    std::size_t unAt = 0;
    while (unAt < unSize)
    {
        const unsigned char* pRecord = pBytes + unAt;
        const std::size_t unLeft = unSize - unAt;
        const int nLength = unLeft < c_unRecordHeader ? 0 : Signed(pRecord + 21);
        if (nLength <= 0 || static_cast<std::size_t>(nLength) > unLeft - c_unRecordHeader)
        {
            return false;
        }
        records.push_back(
            {pRecord, {Signed(pRecord + 5), Signed(pRecord + 9), Signed(pRecord + 13), Signed(pRecord + 17)}, nLength});
        unAt += c_unRecordHeader + static_cast<std::size_t>(nLength);
    }
    return true;
}

bool IsTaken(const stRead& record)
{
    return Exists(record.address) && record.nLength >= (record.address.nType == enStrings ? 13 : 4);
}

tValue ValueOf(const stRead& record)
{
    tValue value = {};
    const unsigned char* pValue = record.pRecord + c_unRecordHeader;
    const std::uint32_t unWord = Big(pValue);
    switch (record.address.nType)
    {
    case enStrings:
        std::memcpy(value.data(), pValue, value.size());
        break;
    case enSwitches:
        value[0] = unWord != 0;
        break;
    case enMeters:
        value[0] = pValue[3];
        break;
    default:
        std::memcpy(value.data(), &unWord, sizeof unWord);
    }
    return value;
}

} // namespace

std::uint32_t Big(const unsigned char* pBytes)
{
    return std::uint32_t(pBytes[0]) << 24 | std::uint32_t(pBytes[1]) << 16 | std::uint32_t(pBytes[2]) << 8 | pBytes[3];
}

tBytes SmallUpdate(std::uint32_t unUpdateType)
{
    const Support::stCarriedTypes carried = Support::CarriedTypes(unUpdateType);
    tBytes body;
    for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
    {
        Support::AppendArray(body, tBytes(static_cast<std::size_t>(3 + nType), static_cast<unsigned char>(0xa0 + nType)));
    }
    tBytes bytes = Support::UpdateHeader(unUpdateType, static_cast<std::uint32_t>(body.size()));
    Support::Append(bytes, body);
    return bytes;
}

std::string CUpdateCheck::Of(const tBytes& bytes, std::size_t unSize)
{
    const unsigned char* pBytes = m_Block.Put(bytes.data(), unSize);
    stView views[c_nTypes] = {};
    m_bTaken = ReadUpdate(pBytes, unSize, views);
    if (!m_bTaken)
    {
        std::fill(std::begin(views), std::end(views), stView());
    }
    for (const bool bShallow : {true, false})
    {
        CMCUpdateMsg& message = bShallow ? *m_pShallow : *m_pDeep;
        message.Clear();
        message.ClearError();
        message.SetShallowMode(bShallow);
        int nCode = 0;
        if (message.Parse(pBytes, unSize) != m_bTaken || message.HaveError(&nCode) == m_bTaken || nCode != (m_bTaken ? 0 : 104))
        {
            return "result, code " + std::to_string(nCode);
        }
        if (m_bTaken && message.GetUpdateType() != Signed(pBytes + 9))
        {
            return "update type";
        }
        const std::string strDifference = ViewsDifference(message, views, bShallow);
        if (!strDifference.empty())
        {
            return strDifference;
        }
    }
    return "";
}

tBytes RecordStream()
{
    return Support::Hex("00000001 00 00000001 00000002 00000003 00000004 00000004 bf400000"
                        "00000001 00 00000000 00000001 0000008f 00000001 0000000d 4b69636b20496e000000000000"
                        "00000001 00 00000002 00000000 00000000 000000e6 00000004 00000001"
                        "00000001 00 00000006 00000015 00000002 000001b9 00000004 0000007f"
                        "00000001 00 00000003 00000032 00000001 00000044 00000004 fffffffe");
}

std::string CRecordCheck::Of(const tBytes& bytes, std::size_t unSize)
{
    const unsigned char* pBytes = m_Block.Put(bytes.data(), unSize);
    std::string strWrong = OfMessage(pBytes, unSize);
    strWrong += strWrong.empty() ? OfCounts(pBytes, unSize) : "";
    strWrong += strWrong.empty() ? OfReader(pBytes, unSize) : "";
    strWrong += strWrong.empty() ? OfApplied(pBytes, unSize) : "";
    return strWrong;
}

std::string CRecordCheck::OfImage()
{
    return Difference(*m_pImage, m_Model);
}

// One message from the start of the bytes, serialised again to just as many.
std::string CRecordCheck::OfMessage(const unsigned char* pBytes, std::size_t unSize)
{
    std::vector<stRead> records;
    ReadStream(pBytes, unSize, records);
    const bool bWhole = !records.empty();
    CRawPPCMsg message;
    int nCode = 0;
    if (message.Parse(pBytes, unSize) != bWhole || message.HaveError(&nCode) == bWhole || nCode != (bWhole ? 0 : 2))
    {
        return "message";
    }
    const std::size_t unRecord = bWhole ? c_unRecordHeader + static_cast<std::size_t>(records[0].nLength) : 0;
    CGuardedBlock out(unRecord);
    const bool bSame = !bWhole || (message.WriteTo(out.Last(unRecord), unRecord) == unRecord &&
                                   std::memcmp(out.Last(unRecord), pBytes, unRecord) == 0);
    const bool bMarked = unSize < 4 || CRawPPCMsg::ValidatePPC(pBytes) == (Big(pBytes) == 1);
    return bSame && bMarked ? "" : "message's bytes";
}

// A last value may run past the end.
std::string CRecordCheck::OfCounts(const unsigned char* pBytes, std::size_t unSize)
{
    unsigned long aunExpected[c_nTypes] = {};
    std::uint64_t unAt = 0;
    bool bGood = true;
    while (bGood && unAt < unSize)
    {
        bGood = unSize - unAt >= c_unRecordHeader && Signed(pBytes + unAt + 21) > 0;
        if (bGood)
        {
            const int nType = Signed(pBytes + unAt + 5);
            aunExpected[IsType(nType) ? nType : 0] += IsType(nType);
            unAt += c_unRecordHeader + Big(pBytes + unAt + 21);
        }
    }
    unsigned long c[c_nTypes] = {9, 9, 9, 9, 9, 9, 9};
    const bool bResult =
        CRawPPCMsg::AnalyseStream(pBytes, static_cast<unsigned long>(unSize), c[0], c[1], c[2], c[3], c[4], c[5], c[6]);
    return bResult == bGood && std::equal(std::begin(c), std::end(c), aunExpected) ? "" : "counts";
}

std::string CRecordCheck::OfReader(const unsigned char* pBytes, std::size_t unSize)
{
    std::vector<stRead> records;
    const bool bGood = ReadStream(pBytes, unSize, records);
    CPPCStreamReader reader(pBytes, static_cast<long>(unSize));
    for (const stRead& record : records)
    {
        if (!reader.Next() || reader.Value() != record.pRecord + c_unRecordHeader || reader.Header().nValueLength != record.nLength)
        {
            return "reader";
        }
        int nValue = 0;
        RyGConsoleString strValue;
        const bool bInt = reader.GetValue(nValue);
        const bool bString = reader.GetValue(strValue);
        if (bInt != (record.nLength >= 4) || bString != (record.nLength >= 13) || (bInt && nValue != Signed(reader.Value())) ||
            (bString && std::memcmp(strValue.Data(), reader.Value(), 13) != 0))
        {
            return "reader's value";
        }
    }
    return !reader.Next() && reader.IsGood() == bGood ? "" : "reader's end";
}

std::string CRecordCheck::OfApplied(const unsigned char* pBytes, std::size_t unSize)
{
    std::vector<stRead> records;
    const bool bGood = ReadStream(pBytes, unSize, records);
    int nTaken = 0;
    for (const stRead& record : records)
    {
        if (IsTaken(record))
        {
            ++nTaken;
            Write(m_Model, record.address, ValueOf(record));
        }
    }
    const stPPCResult result = ApplyPPCs(pBytes, static_cast<long>(unSize), *m_pImage);
    if (result.nApplied != nTaken || result.nRefused != static_cast<int>(records.size()) - nTaken || result.bComplete != bGood)
    {
        return "applied";
    }
    for (const stRead& record : records)
    {
        const bool bHeld =
            !IsTaken(record) || GetPPC(*m_pImage, record.address, {}) ==
                                    m_Model.aValues[record.address.nType][static_cast<std::size_t>(FlatIndex(record.address))];
        if (!bHeld)
        {
            return "value of " + Text(record.address);
        }
    }
    return "";
}

} // namespace Exhaustive
