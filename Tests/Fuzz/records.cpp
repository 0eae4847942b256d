// Streams of serialised parameter changes: counted, taken apart, written again, and applied to an image.
#include "ClientComms/ImageSync.h"
#include "Messages/RawPPCMsg.h"

#include "ImageModel.h"
#include "Input.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>

using namespace Fuzz;

namespace
{

constexpr std::size_t c_unHeader = 25;
constexpr std::size_t c_unLongest = 70000;

struct stRecord
{
    std::size_t unOffset;
    stPlace place;
    std::int32_t nLength;
};

struct stStreamModel
{
    std::vector<stRecord> records; // whole ones, in order
    bool bWhole = false;           // and nothing else
    std::array<unsigned long, 7> counts = {};
    bool bCounted = false; // as the counting sees it, to which the last value may be cut off
};

stStreamModel Walk(const tBytes& stream)
{
    stStreamModel model;
    std::uint64_t unAt = 0;
    bool bAllThere = true;
    while (unAt < stream.size())
    {
        const unsigned char* pRecord = stream.data() + unAt;
        if (stream.size() - unAt < c_unHeader || LoadSigned(pRecord + 21) <= 0)
        {
            return model;
        }
        const stRecord record = {
            static_cast<std::size_t>(unAt),
            {LoadSigned(pRecord + 5), LoadSigned(pRecord + 9), LoadSigned(pRecord + 13), LoadSigned(pRecord + 17)},
            LoadSigned(pRecord + 21)};
        if (IsType(record.place.nType))
        {
            ++model.counts[std::size_t(record.place.nType)];
        }
        unAt += c_unHeader + static_cast<std::uint64_t>(record.nLength);
        bAllThere = unAt <= stream.size();
        if (bAllThere)
        {
            model.records.push_back(record);
        }
    }
    model.bCounted = true;
    model.bWhole = bAllThere;
    return model;
}

// Records from few bytes, or the bytes themselves.
tBytes Stream(CInput& input)
{
    if (input.Byte() >= 200)
    {
        return input.Rest();
    }
    tBytes stream;
    while (!input.Empty() && stream.size() < c_unLongest)
    {
        const unsigned int unShape = input.Byte();
        const stPlace place = TakePlace(input);
        AppendBig(stream, unShape >= 250 ? static_cast<std::uint32_t>(input.Number()) : 1);
        stream.push_back(static_cast<unsigned char>(unShape >= 240 ? unShape : 0));
        for (const int nField : {place.nType, place.nGroup, place.nPath, place.nParam})
        {
            AppendBig(stream, static_cast<std::uint32_t>(nField));
        }
        const std::size_t unUsual = place.nType == 0 ? 13 : 4;
        const std::size_t unValue = unShape < 180 ? unUsual : unShape % 20;
        AppendBig(stream, unShape >= 230 && unShape < 240 ? static_cast<std::uint32_t>(input.Number())
                                                          : static_cast<std::uint32_t>(unValue));
        tBytes value = input.Bytes(unValue);
        value.resize(unShape == 229 ? value.size() : unValue); // or cut off
        Append(stream, value);
    }
    return stream;
}

void CheckCounts(const CExact& exact, const tBytes& stream, const stStreamModel& model)
{
    std::array<unsigned long, 7> counts;
    counts.fill(99);
    const bool bGood = CRawPPCMsg::AnalyseStream(exact.Data(), stream.size(), counts[0], counts[1], counts[2], counts[3], counts[4],
                                                 counts[5], counts[6]);
    Check(bGood == model.bCounted, "a stream of %zu bytes is said to be %d", stream.size(), int(bGood));
    for (std::size_t unType = 0; unType < 7; ++unType)
    {
        Check(counts[unType] == model.counts[unType], "%lu records of type %zu were counted", counts[unType], unType);
    }
}

// A message holds exactly the record that it took.
void CheckHeld(CRawPPCMsg& message, const unsigned char* pRecord, std::size_t unRecord)
{
    Check(message.GetTotalSize() == static_cast<int>(unRecord), "a record of %zu bytes has %d", unRecord, message.GetTotalSize());
    Check(std::memcmp(message.Value(), pRecord + c_unHeader, unRecord - c_unHeader) == 0, "a value is not what was parsed");
    const std::unique_ptr<unsigned char[]> pRoom(new unsigned char[unRecord]);
    std::memset(pRoom.get(), 0xee, unRecord);
    Check(message.WriteTo(pRoom.get(), unRecord - 1) == 0, "a record was written to too little room");
    Check(std::count(pRoom.get(), pRoom.get() + unRecord, 0xee) == static_cast<std::ptrdiff_t>(unRecord),
          "too little room was used");
    Check(message.WriteTo(pRoom.get(), unRecord) == unRecord, "a record was not written");
    Check(std::memcmp(pRoom.get(), pRecord, unRecord) == 0, "a record is not written as it was parsed");
    unsigned char* pOut = nullptr;
    message >> &pOut;
    const std::unique_ptr<unsigned char[]> pOwned(pOut);
    Check(pOut != nullptr && std::memcmp(pOut, pRecord, unRecord) == 0, "a record is not serialised as it was parsed");
}

void CheckRecord(const unsigned char* pRecord, std::size_t unLeft)
{
    const std::int32_t nLength = unLeft >= c_unHeader ? LoadSigned(pRecord + 21) : 0;
    const bool bThere = nLength > 0 && static_cast<std::size_t>(nLength) <= unLeft - c_unHeader;
    const std::size_t unRecord = c_unHeader + (bThere ? static_cast<std::size_t>(nLength) : 0);
    int nCode = -1;
    CRawPPCMsg message;
    Check(message.Parse(pRecord, unLeft) == bThere, "a record with %zu bytes left was parsed otherwise", unLeft);
    Check(message.HaveError(&nCode) == !bThere && nCode == (bThere ? 0 : 2), "the error is %d", nCode);
    Check(bThere == (message.Value() != nullptr), "a value is there, or not, against the result");
    CRawPPCMsg copy(message);
    Check(copy.HaveError(nullptr) == !bThere, "a copy went otherwise than its original");
    if (unLeft >= 4)
    {
        Check(CRawPPCMsg::ValidatePPC(pRecord) == (LoadBig(pRecord) == 1), "the marker was judged wrongly");
    }
    if (bThere)
    {
        CheckHeld(message, pRecord, unRecord);
        CheckHeld(copy, pRecord, unRecord);
        CRawPPCMsg trusting;
        trusting << pRecord;
        CheckHeld(trusting, pRecord, unRecord);
        return;
    }
    // What is not there is written as zeros, if there is room.
    const std::size_t unWritten = c_unHeader + static_cast<std::size_t>(std::max(int(message.Header().nValueLength), 0));
    unsigned char acRoom[c_unHeader + 64];
    const std::size_t unExpected = unWritten <= sizeof acRoom ? unWritten : 0;
    Check(message.WriteTo(acRoom, sizeof acRoom) == unExpected, "a record without a value was written otherwise");
    Check(unExpected == 0 || std::all_of(acRoom + c_unHeader, acRoom + unExpected, [](unsigned char uc) { return uc == 0; }),
          "a value that is not there is not zeros");
}

class CBench
{
public:
    CBench() : m_pImage(std::make_unique<CBMAContainer>())
    {
        for (int nType = 0; nType < 7; ++nType)
        {
            tBytes& flags = m_Model.Flags(c_nGlobalScope, nType);
            std::fill(flags.begin(), flags.end(), static_cast<unsigned char>(0xff));
        }
        m_Fresh = m_Model;
        FillImage(*m_pImage, m_Model);
    }

    void Apply(const CExact& exact, const tBytes& stream, const stStreamModel& model)
    {
        int nApplied = 0;
        for (const stRecord& record : model.records)
        {
            nApplied += Write(record, &stream[record.unOffset + c_unHeader]) ? 1 : 0;
        }
        const stPPCResult result = ApplyPPCs(exact.Data(), static_cast<long>(stream.size()), *m_pImage);
        const int nRefused = static_cast<int>(model.records.size()) - nApplied;
        Check(result.nApplied == nApplied && result.nRefused == nRefused, "%d were applied and %d refused, and not %d and %d",
              result.nApplied, result.nRefused, nApplied, nRefused);
        Check(result.bComplete == model.bWhole, "the stream is said to be %d", int(result.bComplete));
        CheckImage(*m_pImage, m_Model);
        if (nApplied > 0)
        {
            m_Model = m_Fresh;
            FillImage(*m_pImage, m_Model);
        }
    }

private:
    bool Write(const stRecord& record, const unsigned char* pValue)
    {
        const int nType = record.place.nType;
        if (!Exists(record.place) || record.nLength < (nType == 0 ? 13 : 4))
        {
            return false;
        }
        const std::int64_t nFlat = Flat(record.place);
        const std::uint32_t unWord = LoadBig(pValue);
        SetBit(m_Model.Flags(c_nGlobalScope, nType), nFlat, false);
        if (nType == 2)
        {
            SetBit(m_Model.values[2], nFlat, unWord != 0);
        }
        else if (nType == 6)
        {
            *m_Model.Value(nType, nFlat) = static_cast<unsigned char>(unWord);
        }
        else if (nType == 0)
        {
            std::memcpy(m_Model.Value(nType, nFlat), pValue, 13);
        }
        else
        {
            std::memcpy(m_Model.Value(nType, nFlat), &unWord, 4);
        }
        return true;
    }

    std::unique_ptr<CBMAContainer> m_pImage;
    stImageModel m_Model;
    stImageModel m_Fresh;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t unSize)
{
    static CBench& bench = *new CBench;
    CInput input(pData, unSize);
    const tBytes stream = Stream(input);
    const CExact exact(stream);
    const stStreamModel model = Walk(stream);
    CheckCounts(exact, stream, model);
    for (const stRecord& record : model.records)
    {
        CheckRecord(exact.Data() + record.unOffset, stream.size() - record.unOffset);
    }
    const std::size_t unEnd =
        model.records.empty() ? 0
                              : model.records.back().unOffset + c_unHeader + static_cast<std::size_t>(model.records.back().nLength);
    CheckRecord(exact.Data() + unEnd, stream.size() - unEnd); // what the stream broke off at
    bench.Apply(exact, stream, model);
    return 0;
}
