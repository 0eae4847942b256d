#include "ClientComms/ImageSync.h"

#include "LogicalControls/BlockKernels.h"
#include "Messages/PPCPacket.h"
#include "RySocketIO/CUtility.h"

#include <cstdint>
#include <cstring>

namespace
{

constexpr MCUpdateType c_enLastUpdateType = static_cast<MCUpdateType>(30);

// Floats and ints travel big-endian; strings, bits and meters are bytes.
bool IsWordBlock(tagenPPCMessageType enType)
{
    return enType == enRotary || enType == enInteger || enType == enFader || enType == enOther;
}

// Copies a block between the machine's order and the wire's; the way back is the same.
void CopyBlock(tagenPPCMessageType enType, void* pDestination, const void* pSource, std::size_t unBytes)
{
    if (IsWordBlock(enType))
    {
        BlockKernels().SwapWords(static_cast<unsigned char*>(pDestination), static_cast<const unsigned char*>(pSource), unBytes);
    }
    else
    {
        std::memcpy(pDestination, pSource, unBytes);
    }
}

template <typename Wire, typename Value>
bool ApplyRecord(const CPPCStreamReader& reader, const stPPCAddress& address, CBMAContainer& image)
{
    Wire wire = Wire();
    if (!reader.GetValue(wire))
    {
        return false;
    }
    Value value = static_cast<Value>(wire);
    image.SetPPC(address.enType, address.enPathType, address.nPath, address.nParam, value, false, false);
    return true;
}

bool ApplyRecord(const CPPCStreamReader& reader, CBMAContainer& image)
{
    const stPPCAddress address = reader.Address();
    if (!IsParameterAddress(address.enType, address.enPathType, address.nPath, address.nParam))
    {
        return false;
    }
    switch (address.enType)
    {
    case enString:
        return ApplyRecord<RyGConsoleString, RyGConsoleString>(reader, address, image);
    case enRotary:
    case enFader:
        return ApplyRecord<float, float>(reader, address, image);
    case enSwitch:
    case enInteger:
    case enOther:
        return ApplyRecord<int, int>(reader, address, image);
    case enMeter:
        return ApplyRecord<int, unsigned char>(reader, address, image);
    }
    return false;
}

} // namespace

bool BuildMCUpdate(const CBMAContainer& image, MCUpdateType enUpdateType, CMCUpdateMsg& message)
{
    if (enUpdateType > c_enLastUpdateType)
    {
        return false;
    }
    message.Clear();
    message.SetMarker(c_unMCUpdateMarker);
    message.SetUpdateType(enUpdateType);
    const stCarriedArrays carried = CarriedArrays(enUpdateType);
    for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        const void* pBlock = nullptr;
        long lBytes = 0;
        image.GetMessageMemory(enType, pBlock, lBytes);
        unsigned char* pArray = message.PrepareArray(enType, static_cast<int>(lBytes));
        if (pArray == nullptr || pBlock == nullptr)
        {
            return false;
        }
        CopyBlock(enType, pArray, pBlock, static_cast<std::size_t>(lBytes));
    }
    return true;
}

unsigned int ApplyMCUpdate(const CMCUpdateMsg& message, CBMAContainer& image, unsigned int unTypes)
{
    unsigned int unWritten = 0;
    const stCarriedArrays carried = CarriedArrays(message.GetUpdateType());
    for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        const unsigned char* pArray = nullptr;
        int nLength = 0;
        void* pBlock = nullptr;
        long lBytes = 0;
        image.GetMessageMemory(enType, pBlock, lBytes);
        const bool bWanted = (unTypes & (1u << nType)) != 0;
        if (bWanted && message.GetArray(enType, pArray, nLength) && nLength == lBytes && pBlock != nullptr)
        {
            CopyBlock(enType, pBlock, pArray, static_cast<std::size_t>(lBytes));
            unWritten |= 1u << nType;
        }
    }
    return unWritten;
}

stPPCResult ApplyPPCs(const unsigned char* pStream, long lLength, CBMAContainer& image)
{
    stPPCResult result = {0, 0, false};
    CPPCStreamReader reader(pStream, lLength);
    while (reader.Next())
    {
        if (ApplyRecord(reader, image))
        {
            ++result.nApplied;
            continue;
        }
        ++result.nRefused;
        const stPPCAddress address = reader.Address();
        RySocketIO::CUtility::Debug("ApplyPPCs - refused: msg type (%d), path type (%d), path (%d), parameter (%d)",
                                    static_cast<int>(address.enType), static_cast<int>(address.enPathType), address.nPath,
                                    address.nParam);
    }
    result.bComplete = reader.IsGood();
    return result;
}

CUpdateOrder::CUpdateOrder() : m_bAny(false), m_unSequence(0), m_unId(0) {}

bool CUpdateOrder::IsNewer(std::uint32_t unSequence, std::uint32_t unId, tTime now) const
{
    const bool bOvertaken = static_cast<std::int32_t>(unSequence - m_unSequence) < 0;
    const bool bLate = static_cast<std::int32_t>(unId - m_unId) < 0 && now - m_Came < c_IdsCount;
    return !m_bAny || (!bOvertaken && !bLate);
}

void CUpdateOrder::SetNewest(std::uint32_t unSequence, std::uint32_t unId, tTime now)
{
    m_bAny = true;
    m_unSequence = unSequence;
    m_unId = unId;
    m_Came = now;
}

CImageFollower::CImageFollower(CBMAContainer& image)
    : CClientMsgHandler(false), m_Image(image), m_unTypesReceived(0), m_unUpdatesApplied(0), m_unUpdatesOvertaken(0)
{
}

CImageFollower::~CImageFollower()
{
    Shutdown();
}

int CImageFollower::ProcessMCUpdate(const CMCUpdateMsg& update)
{
    const CUpdateOrder::tTime now = std::chrono::steady_clock::now();
    unsigned int unWanted = 0;
    bool bOvertaken = false;
    const stCarriedArrays carried = CarriedArrays(update.GetUpdateType());
    for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
    {
        const unsigned char* pArray = nullptr;
        int nLength = 0;
        if (update.GetArray(static_cast<tagenPPCMessageType>(nType), pArray, nLength))
        {
            const bool bNewer = m_aOrder[nType].IsNewer(GetUpdateSequence(), GetUpdateId(), now);
            unWanted |= bNewer ? 1u << nType : 0;
            bOvertaken = bOvertaken || !bNewer;
        }
    }
    const unsigned int unWritten = ApplyMCUpdate(update, m_Image, unWanted);
    for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
    {
        if ((unWritten & (1u << nType)) != 0)
        {
            m_aOrder[nType].SetNewest(GetUpdateSequence(), GetUpdateId(), now);
        }
    }
    m_unTypesReceived |= unWritten;
    ++(bOvertaken && unWanted == 0 ? m_unUpdatesOvertaken : m_unUpdatesApplied);
    return unWritten == unWanted ? enApplied : enBlockLeftOut;
}
