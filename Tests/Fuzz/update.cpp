// Update messages, parsed deeply and shallowly, and what they write into an image.
#include "ClientComms/ImageSync.h"
#include "Messages/MCUpdateMsg.h"

#include "ImageModel.h"
#include "Input.h"
#include "UpdateModel.h"

#include <algorithm>
#include <climits>
#include <memory>

using namespace Fuzz;

namespace
{

constexpr std::int32_t c_nDeepLimit = 261200; // what a buffer holds; a parse takes less than that
constexpr int c_nMostMessages = 3;
constexpr int c_nMostBlocks = 6;

struct stDeepModel
{
    std::int32_t nUpdateType = 0;
    tBytes header = tBytes(17);
    std::array<std::int32_t, 7> lengths = {};
    std::array<bool, 7> held = {};
    std::array<tBytes, 7> bytes;
    bool bError = false;
    int nCode = 0;
};

class CBench
{
public:
    CBench()
        : m_pDeep(std::make_unique<CMCUpdateMsg>()), m_pShallow(std::make_unique<CMCUpdateMsg>()),
          m_pCopy(std::make_unique<CMCUpdateMsg>()), m_pImage(std::make_unique<CBMAContainer>())
    {
        m_pShallow->SetShallowMode(true);
        for (std::size_t unType = 0; unType < 7; ++unType)
        {
            std::fill(m_Fresh.values[unType].begin(), m_Fresh.values[unType].end(), static_cast<unsigned char>(0x5a + unType));
        }
        m_Model = m_Fresh;
        FillImage(*m_pImage, m_Model);
    }

    void Run(CInput& input)
    {
        m_pDeep->Clear();
        m_pDeep->ClearError();
        m_pShallow->Clear();
        m_pShallow->ClearError();
        m_Deep = stDeepModel();
        m_bShallowError = false;
        m_nBlocks = 0;
        for (int nMessage = 0; nMessage < c_nMostMessages && !input.Empty(); ++nMessage)
        {
            const unsigned int unTypes = input.Byte();
            const tBytes bytes = Message(input);
            const CExact exact(bytes);
            const stUpdateModel update = WalkUpdate(bytes);
            ParseShallow(exact, bytes, update, unTypes);
            ParseDeep(exact, bytes, update, unTypes);
        }
        CheckImage(*m_pImage, m_Model);
        Restore();
    }

private:
    tBytes Message(CInput& input);
    tBytes Array(CInput& input, int nType, std::uint32_t& unClaimed);

    void ParseShallow(const CExact& exact, const tBytes& bytes, const stUpdateModel& update, unsigned int unTypes)
    {
        const bool bParsed = m_pShallow->Parse(exact.Data(), bytes.size());
        Check(bParsed == update.bValid, "a shallow parse answered %d", int(bParsed));
        m_bShallowError = m_bShallowError || !update.bValid;
        int nCode = 0;
        Check(m_pShallow->HaveError(&nCode) == m_bShallowError && nCode == (m_bShallowError ? 104 : 0), "the error is %d", nCode);
        Check(!bParsed || m_pShallow->GetUpdateType() == update.nUpdateType, "a shallow update is of type %d",
              int(m_pShallow->GetUpdateType()));
        for (int nType = -1; nType <= 7; ++nType)
        {
            const stArrayModel array = nType >= 0 && nType < 7 ? update.arrays[std::size_t(nType)] : stArrayModel();
            CheckArray(*m_pShallow, nType, array.bHeld, bytes.data() + array.unOffset, array.nLength);
        }
        if (update.bValid)
        {
            Apply(*m_pShallow, update.nUpdateType, unTypes,
                  [&](int nType, std::int32_t& nLength) -> const unsigned char*
                  {
                      const stArrayModel& array = update.arrays[std::size_t(nType)];
                      nLength = array.bHeld ? array.nLength : 0;
                      return bytes.data() + array.unOffset;
                  });
        }
    }

    void ParseDeep(const CExact& exact, const tBytes& bytes, const stUpdateModel& update, unsigned int unTypes)
    {
        const bool bParsed = m_pDeep->Parse(exact.Data(), bytes.size());
        const bool bExpected = TakeDeep(bytes, update);
        Check(bParsed == bExpected, "a deep parse answered %d", int(bParsed));
        int nCode = 0;
        Check(m_pDeep->HaveError(&nCode) == m_Deep.bError && nCode == m_Deep.nCode, "the error is %d and not %d", nCode,
              m_Deep.nCode);
        CheckDeep(*m_pDeep, c_nDeepLimit + 1);
        if (m_pDeep->GetTotalSize() <= 4 << 20)
        {
            Serialise();
        }
        m_pCopy->CopyToMe(*m_pDeep);
        CheckDeep(*m_pCopy, c_nDeepLimit);
        Apply(*m_pDeep, m_Deep.nUpdateType, unTypes,
              [&](int nType, std::int32_t& nLength) -> const unsigned char*
              {
                  nLength = m_Deep.held[std::size_t(nType)] ? m_Deep.lengths[std::size_t(nType)] : 0;
                  return m_Deep.bytes[std::size_t(nType)].data();
              });
    }

    bool TakeDeep(const tBytes& bytes, const stUpdateModel& update)
    {
        if (!update.bValid)
        {
            m_Deep.bError = true;
            m_Deep.nCode = 104;
            return false;
        }
        bool bAll = true;
        m_Deep.nUpdateType = update.nUpdateType;
        m_Deep.header.assign(bytes.begin(), bytes.begin() + 17);
        for (std::size_t unType = 0; unType < 7; ++unType)
        {
            const stArrayModel& array = update.arrays[unType];
            if (!array.bSet)
            {
                continue;
            }
            m_Deep.lengths[unType] = array.nLength;
            m_Deep.held[unType] = array.bHeld && array.nLength < c_nDeepLimit;
            if (m_Deep.held[unType])
            {
                const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(array.unOffset);
                m_Deep.bytes[unType].assign(first, first + array.nLength);
            }
            else if (array.bHeld)
            {
                bAll = false;
                m_Deep.bError = true;
                m_Deep.nCode = 102;
            }
        }
        return bAll;
    }

    // A copy takes over only what its update type carries, and nothing of nLimit bytes or more.
    void CheckDeep(const CMCUpdateMsg& message, std::int32_t nLimit)
    {
        const Support::stCarriedTypes carried = CarriedBy(m_Deep.nUpdateType);
        const bool bCopy = nLimit == c_nDeepLimit;
        std::int64_t nTotal = 17;
        for (int nType = 0; nType < 7; ++nType)
        {
            const std::size_t unType = static_cast<std::size_t>(nType);
            const bool bCarried = nType >= carried.nFirst && nType <= carried.nLast;
            const std::int32_t nLength = m_Deep.lengths[unType];
            const bool bThere = m_Deep.held[unType] && nLength > 0 && nLength < nLimit && (bCarried || !bCopy);
            CheckArray(message, nType, bThere, m_Deep.bytes[unType].data(), nLength);
            nTotal += bCarried ? 4 + std::int64_t(nLength) : 0;
        }
        nTotal = std::min<std::int64_t>(std::max<std::int64_t>(nTotal, INT_MIN), INT_MAX);
        Check(message.GetTotalSize() == nTotal, "the total size is %d", message.GetTotalSize());
        Check(message.GetUpdateType() == m_Deep.nUpdateType, "a deep update is of type %d", int(message.GetUpdateType()));
    }

    static void CheckArray(const CMCUpdateMsg& message, int nType, bool bThere, const unsigned char* pBytes, std::int32_t nLength)
    {
        static const unsigned char ucNone = 0;
        const unsigned char* pArray = &ucNone;
        int nHeld = -1;
        const bool bHeld = message.GetArray(static_cast<tagenPPCMessageType>(nType), pArray, nHeld);
        Check(bHeld == bThere, "array %d is said to be %d", nType, int(bHeld));
        Check(nHeld == (bThere ? nLength : 0), "array %d is said to have %d bytes", nType, nHeld);
        Check(bThere ? std::memcmp(pArray, pBytes, static_cast<std::size_t>(nLength)) == 0 : pArray == nullptr,
              "array %d is not what was parsed", nType);
    }

    void Serialise();

    template <class Arrays>
    void Apply(const CMCUpdateMsg& message, std::int32_t nUpdateType, unsigned int unTypes, Arrays arrays)
    {
        const unsigned int unWritten = ApplyMCUpdate(message, *m_pImage, unTypes);
        unsigned int unExpected = 0;
        const Support::stCarriedTypes carried = CarriedBy(nUpdateType);
        for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
        {
            std::int32_t nLength = 0;
            const unsigned char* pBytes = arrays(nType, nLength);
            if ((unTypes >> nType & 1) != 0 && static_cast<std::size_t>(nLength) == m_Model.values[std::size_t(nType)].size())
            {
                unExpected |= 1u << nType;
                Write(nType, pBytes);
            }
        }
        m_unDirty |= unExpected;
        Check(unWritten == unExpected, "types %x were written and not %x", unWritten, unExpected);
    }

    // Floats and ints are big-endian words on the way.
    void Write(int nType, const unsigned char* pBytes)
    {
        tBytes& values = m_Model.values[std::size_t(nType)];
        const bool bWords = nType == 1 || nType == 3 || nType == 4 || nType == 5;
        if (!bWords)
        {
            std::memcpy(values.data(), pBytes, values.size());
            return;
        }
        for (std::size_t unByte = 0; unByte < values.size(); unByte += 4)
        {
            const std::uint32_t unWord = LoadBig(pBytes + unByte);
            std::memcpy(&values[unByte], &unWord, 4);
        }
    }

    void Restore()
    {
        for (int nType = 0; nType < 7; ++nType)
        {
            if ((m_unDirty >> nType & 1) != 0)
            {
                long lBytes = 0;
                m_Model.values[std::size_t(nType)] = m_Fresh.values[std::size_t(nType)];
                std::memcpy(ValueMemory(*m_pImage, nType, lBytes), m_Fresh.values[std::size_t(nType)].data(),
                            m_Fresh.values[std::size_t(nType)].size());
            }
        }
        m_unDirty = 0;
    }

    std::unique_ptr<CMCUpdateMsg> m_pDeep;
    std::unique_ptr<CMCUpdateMsg> m_pShallow;
    std::unique_ptr<CMCUpdateMsg> m_pCopy;
    std::unique_ptr<CBMAContainer> m_pImage;
    stImageModel m_Fresh;
    stImageModel m_Model;
    stDeepModel m_Deep;
    bool m_bShallowError = false;
    unsigned int m_unDirty = 0;
    int m_nBlocks = 0;
};

// An array of a length that matters to the message or to the image.
tBytes CBench::Array(CInput& input, int nType, std::uint32_t& unClaimed)
{
    static const std::size_t caEdges[] = {261198, 261199, 261200, 261201};
    const unsigned int unKind = input.Byte();
    const std::size_t unBlock = m_Model.values[std::size_t(nType)].size();
    tBytes bytes;
    if (unKind < 100)
    {
        bytes = input.Bytes(unKind);
    }
    else if (unKind < 200 && ++m_nBlocks <= c_nMostBlocks)
    {
        const tBytes pattern = Pattern(65536, input.Byte());
        bytes.resize(unKind < 180 ? unBlock : unKind < 190 ? unBlock + unKind - 185 : caEdges[unKind % 4]);
        for (std::size_t unFirst = 0; unFirst < bytes.size(); unFirst += pattern.size())
        {
            std::copy_n(pattern.begin(), std::min(pattern.size(), bytes.size() - unFirst),
                        bytes.begin() + static_cast<std::ptrdiff_t>(unFirst));
        }
    }
    unClaimed =
        unKind >= 200 && unKind < 230 ? static_cast<std::uint32_t>(input.Number()) : static_cast<std::uint32_t>(bytes.size());
    return bytes;
}

tBytes CBench::Message(CInput& input)
{
    const unsigned int unShape = input.Byte();
    if (unShape >= 240)
    {
        return input.Bytes(input.Big16());
    }
    tBytes bytes;
    AppendBig(bytes, unShape == 239 ? static_cast<std::uint32_t>(input.Number()) : 1);
    bytes.push_back(static_cast<unsigned char>(unShape));
    AppendBig(bytes, unShape * 0x01020304u);
    const std::int32_t nUpdateType = unShape >= 200 ? input.Number() : static_cast<std::int32_t>(unShape % 10);
    AppendBig(bytes, static_cast<std::uint32_t>(nUpdateType));
    AppendBig(bytes, static_cast<std::uint32_t>(input.Byte()));
    const Support::stCarriedTypes carried = CarriedBy(nUpdateType);
    for (int nType = carried.nFirst; nType <= carried.nLast && !input.Empty(); ++nType)
    {
        std::uint32_t unClaimed = 0;
        const tBytes array = Array(input, nType, unClaimed);
        AppendBig(bytes, unClaimed);
        Append(bytes, array);
    }
    if (unShape % 16 == 15)
    {
        bytes.resize(bytes.size() - std::min(bytes.size(), std::size_t(input.Byte())));
    }
    return bytes;
}

void CBench::Serialise()
{
    const int nTotal = m_pDeep->GetTotalSize();
    const std::unique_ptr<unsigned char[]> pRoom(new unsigned char[static_cast<std::size_t>(std::max(nTotal, 1))]());
    unsigned char* pOut = pRoom.get();
    *m_pDeep >> &pOut;
    if (nTotal < 17)
    {
        return; // lengths below 0 were kept; nothing is written
    }
    tBytes expected(m_Deep.header.begin(), m_Deep.header.begin() + 13);
    AppendBig(expected, static_cast<std::uint32_t>(nTotal - 17));
    const Support::stCarriedTypes carried = CarriedBy(m_Deep.nUpdateType);
    for (std::size_t unType = std::size_t(carried.nFirst); unType <= std::size_t(carried.nLast); ++unType)
    {
        const bool bEmpty = m_Deep.lengths[unType] == 0;
        if (!bEmpty && !m_Deep.held[unType])
        {
            return; // what was refused has bytes of no meaning; that nothing is written outside is all there is to see
        }
        AppendBig(expected, static_cast<std::uint32_t>(m_Deep.lengths[unType]));
        Append(expected, bEmpty ? tBytes() : m_Deep.bytes[unType]);
    }
    Check(expected.size() == static_cast<std::size_t>(nTotal), "a message of %d bytes says %zu", nTotal, expected.size());
    Check(std::memcmp(pRoom.get(), expected.data(), expected.size()) == 0, "a message is not serialised as it was parsed");
    std::copy_n(expected.begin() + 13, 4, m_Deep.header.begin() + 13);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t unSize)
{
    static CBench& bench = *new CBench;
    CInput input(pData, unSize);
    bench.Run(input);
    return 0;
}
