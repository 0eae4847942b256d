#include "Messages/MCUpdateMsg.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>

namespace
{

typedef boost::endian::big_int32_t tArrayLength;

constexpr int c_nUpdateTypeLimit = 31;
constexpr int c_nDeepParseLimit = CMCUpdateMsg::enMaxArrayLength - 1; // a full buffer is refused, on purpose

// How far a parse goes that was given no length. No update reaches a third of it.
constexpr std::size_t c_unTrustedReach = 4u << 20;

stMCUpdateHeader HeaderOf(const unsigned char* pData)
{
    stMCUpdateHeader header;
    std::memcpy(&header, pData, sizeof header);
    return header;
}

} // namespace

stCarriedArrays CarriedArrays(int nUpdateType)
{
    switch (nUpdateType)
    {
    case enMCUpdateSurface:
        return {enSwitch, enMeter};
    case enMCUpdateRotary:
        return {enString, enRotary};
    case enMCUpdateSwitchesIntegers4:
    case enMCUpdateSwitchesIntegers8:
        return {enSwitch, enInteger};
    default:
        return {enString, enMeter};
    }
}

CMCUpdateMsg::CMCUpdateMsg()
    : m_Header(), m_pDeep(static_cast<unsigned char*>(std::calloc(c_nMessageTypes, enMaxArrayLength))), m_anDeepLengths(),
      m_pShallowSource(nullptr), m_aShallow(), m_bError(false), m_bShallowMode(false), m_nErrorCode(0), m_unShallowSet(0),
      m_unDeepHeld(0)
{
    if (m_pDeep == nullptr)
    {
        throw std::bad_alloc();
    }
}

CMCUpdateMsg::CMCUpdateMsg(const CMCUpdateMsg& other) : CMCUpdateMsg()
{
    CopyToMe(other);
}

CMCUpdateMsg& CMCUpdateMsg::operator=(const CMCUpdateMsg& other)
{
    CopyToMe(other);
    return *this;
}

CMCUpdateMsg::~CMCUpdateMsg() = default;

void CMCUpdateMsg::Clear()
{
    Clear(false);
}

void CMCUpdateMsg::Clear(bool bDeep)
{
    m_Header = stMCUpdateHeader();
    m_pShallowSource = nullptr;
    m_unShallowSet = 0;
    m_unDeepHeld = 0;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        m_anDeepLengths[nType] = 0;
        if (bDeep)
        {
            std::memset(Deep(nType), 0, enMaxArrayLength);
            m_aShallow[nType].pData = nullptr;
        }
    }
}

void CMCUpdateMsg::SetShallowMode(bool bShallow)
{
    m_bShallowMode = bShallow;
}

void CMCUpdateMsg::SetUpdateType(MCUpdateType enType)
{
    m_Header.nUpdateType = enType;
}

MCUpdateType CMCUpdateMsg::GetUpdateType() const
{
    // A shallow parse leaves the message's own header alone.
    const bool bFromSource = m_bShallowMode && m_pShallowSource != nullptr;
    return static_cast<MCUpdateType>(int(bFromSource ? HeaderOf(m_pShallowSource).nUpdateType : m_Header.nUpdateType));
}

void CMCUpdateMsg::SetMarker(std::uint32_t unMarker)
{
    m_Header.unMarker = unMarker;
}

bool CMCUpdateMsg::HaveError(int* pnCode) const
{
    if (pnCode != nullptr)
    {
        *pnCode = m_nErrorCode;
    }
    return m_bError;
}

void CMCUpdateMsg::ClearError()
{
    m_bError = false;
    m_nErrorCode = 0;
}

int CMCUpdateMsg::GetTotalSize() const
{
    std::int64_t nTotal = sizeof m_Header;
    const stCarriedArrays carried = CarriedArrays(m_Header.nUpdateType);
    for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
    {
        nTotal += std::int64_t(sizeof(tArrayLength)) + m_anDeepLengths[nType];
    }
    return static_cast<int>(std::min<std::int64_t>(std::max<std::int64_t>(nTotal, INT_MIN), INT_MAX));
}

bool CMCUpdateMsg::ValidateUpdate(const unsigned char* pData) const
{
    if (pData == nullptr)
    {
        return false;
    }
    const stMCUpdateHeader header = HeaderOf(pData);
    return header.unMarker == c_unMCUpdateMarker && header.nUpdateType < c_nUpdateTypeLimit;
}

void CMCUpdateMsg::operator>>(unsigned char** ppOut)
{
    const std::int64_t nTotal = GetTotalSize();
    if (ppOut == nullptr || *ppOut == nullptr || nTotal < std::int64_t(sizeof m_Header))
    {
        return;
    }
    m_Header.nBodyLength = static_cast<std::int32_t>(nTotal - std::int64_t(sizeof m_Header));
    std::memset(*ppOut, 0, static_cast<std::size_t>(nTotal));
    std::memcpy(*ppOut, &m_Header, sizeof m_Header);

    // A refused array keeps its length, and a negative one makes the total smaller: what is left of the buffer bounds each step.
    std::int64_t nOffset = sizeof m_Header;
    const stCarriedArrays carried = CarriedArrays(m_Header.nUpdateType);
    for (int nType = carried.nFirst; nType <= carried.nLast && nTotal - nOffset >= std::int64_t(sizeof(tArrayLength)); ++nType)
    {
        const tArrayLength length(m_anDeepLengths[nType]);
        std::memcpy(*ppOut + nOffset, &length, sizeof length);
        nOffset += std::int64_t(sizeof length);

        const std::int64_t nArray = std::max<std::int64_t>(m_anDeepLengths[nType], 0);
        const std::int64_t nCopy = std::min({nArray, std::int64_t(enMaxArrayLength), nTotal - nOffset});
        std::memcpy(*ppOut + nOffset, Deep(nType), static_cast<std::size_t>(nCopy));
        nOffset += nArray;
    }
}

void CMCUpdateMsg::operator<<(unsigned char* pData)
{
    const char* szRefusal = nullptr;
    ParseChecked(pData, c_unTrustedReach, false, szRefusal);
    PrintRefusal(szRefusal);
}

bool CMCUpdateMsg::Parse(const unsigned char* pData, std::size_t unSize)
{
    const char* szRefusal = nullptr;
    const bool bParsed = Parse(pData, unSize, szRefusal);
    PrintRefusal(szRefusal);
    return bParsed;
}

bool CMCUpdateMsg::Parse(const unsigned char* pData, std::size_t unSize, const char*& szRefusal)
{
    return ParseChecked(pData, unSize, true, szRefusal);
}

void CMCUpdateMsg::PrintRefusal(const char* szRefusal)
{
    if (szRefusal != nullptr)
    {
        std::puts(szRefusal);
    }
}

void CMCUpdateMsg::ShallowAssign(unsigned char* pData)
{
    if (pData != nullptr)
    {
        AssignShallow(pData, c_unTrustedReach);
    }
}

void CMCUpdateMsg::CopyToMe(const CMCUpdateMsg& other)
{
    if (&other == this)
    {
        return;
    }
    Clear(false);
    m_Header = other.m_Header;
    const stCarriedArrays carried = CarriedArrays(m_Header.nUpdateType);
    for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
    {
        const int nLength = other.m_anDeepLengths[nType];
        m_anDeepLengths[nType] = nLength;
        if (nLength > 0 && nLength < enMaxArrayLength)
        {
            std::memcpy(Deep(nType), other.Deep(nType), static_cast<std::size_t>(nLength));
            m_unDeepHeld |= other.m_unDeepHeld & (1u << nType);
        }
    }
}

bool CMCUpdateMsg::GetArray(tagenPPCMessageType enType, const unsigned char*& pData, int& nLength) const
{
    pData = nullptr;
    nLength = 0;
    if (enType < 0 || enType >= c_nMessageTypes)
    {
        return false;
    }
    const unsigned int unHeld = m_bShallowMode ? m_unShallowSet : m_unDeepHeld;
    const int nHeld = m_bShallowMode ? m_aShallow[enType].nLength : m_anDeepLengths[enType];
    if ((unHeld & (1u << enType)) == 0 || nHeld <= 0)
    {
        return false;
    }
    pData = m_bShallowMode ? m_aShallow[enType].pData : Deep(enType);
    nLength = nHeld;
    return true;
}

bool CMCUpdateMsg::SetArray(tagenPPCMessageType enType, const unsigned char* pData, int nLength)
{
    unsigned char* pArray = pData != nullptr || nLength == 0 ? PrepareArray(enType, nLength) : nullptr;
    if (pArray != nullptr && nLength > 0)
    {
        std::memmove(pArray, pData, static_cast<std::size_t>(nLength));
    }
    return pArray != nullptr;
}

unsigned char* CMCUpdateMsg::PrepareArray(tagenPPCMessageType enType, int nLength)
{
    if (enType < 0 || enType >= c_nMessageTypes || nLength < 0 || nLength > enMaxArrayLength)
    {
        return nullptr;
    }
    m_anDeepLengths[enType] = nLength;
    m_unDeepHeld |= 1u << enType;
    return Deep(enType);
}

// Calls visit(type, length, bytes) for each array of the update whose length is not 0; bytes is null when the length is
// negative. False when an array runs past the unSize bytes.
template <class Visitor>
bool CMCUpdateMsg::WalkArrays(const unsigned char* pData, std::size_t unSize, Visitor visit)
{
    std::size_t unOffset = sizeof(stMCUpdateHeader);
    const stCarriedArrays carried = CarriedArrays(HeaderOf(pData).nUpdateType);
    for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
    {
        tArrayLength length;
        if (unSize - unOffset < sizeof length)
        {
            return true; // counts as an empty array
        }
        std::memcpy(&length, pData + unOffset, sizeof length);
        if (length == 0)
        {
            return true; // not consumed, so every array after it reads the same zero
        }
        unOffset += sizeof length;
        if (length < 0)
        {
            visit(nType, length, nullptr);
            continue;
        }
        const std::size_t unLength = static_cast<std::size_t>(std::int32_t(length));
        if (unLength > unSize - unOffset)
        {
            visit(nType, length, nullptr);
            return false;
        }
        visit(nType, length, pData + unOffset);
        unOffset += unLength;
    }
    return true;
}

bool CMCUpdateMsg::ParseChecked(const unsigned char* pData, std::size_t unSize, bool bBounded, const char*& szRefusal)
{
    szRefusal = nullptr;
    if (pData == nullptr)
    {
        szRefusal = "CMCUpdateMsg operator<< - NULL data!";
        ReportError(enErrorNullData);
        return false;
    }
    m_unShallowSet = 0;
    m_pShallowSource = nullptr;
    const auto ignore = [](int, std::int32_t, const unsigned char*) {};
    if (unSize < sizeof m_Header || !ValidateUpdate(pData) || (bBounded && !WalkArrays(pData, unSize, ignore)))
    {
        szRefusal = "CMCUpdateMsg operator<< - error validating update data";
        ReportError(enErrorInvalidUpdate);
        return false;
    }
    if (!m_bShallowMode)
    {
        return AssignDeep(pData, unSize);
    }
    AssignShallow(pData, unSize);
    return true;
}

// False when an array is too large; the others are taken over.
bool CMCUpdateMsg::AssignDeep(const unsigned char* pData, std::size_t unSize)
{
    bool bAllTaken = true;
    m_Header = HeaderOf(pData);
    WalkArrays(pData, unSize,
               [this, &bAllTaken](int nType, std::int32_t nLength, const unsigned char* pBytes)
               {
                   m_anDeepLengths[nType] = nLength;
                   m_unDeepHeld &= ~(1u << nType);
                   if (nLength > c_nDeepParseLimit)
                   {
                       std::printf("CMCUpdateMsg operator<< - bma array too large, array size %d\n", nLength);
                       ReportError(enErrorArrayTooLarge);
                       bAllTaken = false;
                   }
                   else if (pBytes != nullptr)
                   {
                       std::memmove(Deep(nType), pBytes, static_cast<std::size_t>(nLength));
                       m_unDeepHeld |= 1u << nType;
                   }
               });
    return bAllTaken;
}

void CMCUpdateMsg::AssignShallow(const unsigned char* pData, std::size_t unSize)
{
    m_pShallowSource = pData;
    m_unShallowSet = 0;
    WalkArrays(pData, unSize,
               [this](int nType, std::int32_t nLength, const unsigned char* pBytes)
               {
                   m_aShallow[nType].nLength = nLength;
                   if (pBytes != nullptr)
                   {
                       m_aShallow[nType].pData = pBytes;
                       m_unShallowSet |= 1u << nType;
                   }
               });
}

void CMCUpdateMsg::ReportError(int nCode)
{
    m_bError = true;
    m_nErrorCode = nCode;
}
