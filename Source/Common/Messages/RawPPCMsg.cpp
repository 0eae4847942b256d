#include "Messages/RawPPCMsg.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace
{

const char c_szNoOutput[] = "RAWPPCMSG outstream EXCEPTION!!";
const char c_szNoValue[] = "RAWPPCMSG instream error: failed to copy to local buffer";
const char c_szNoMemory[] = "RAWPPCMSG instream EXCEPTION!!";

// The message types, as bits, whose value has this C++ type.
template <typename T>
constexpr unsigned int c_unTypesOf = 0;
template <>
constexpr unsigned int c_unTypesOf<RyGConsoleString> = 1u << enString;
template <>
constexpr unsigned int c_unTypesOf<float> = 1u << enRotary | 1u << enFader;
template <>
constexpr unsigned int c_unTypesOf<int> = 1u << enSwitch | 1u << enInteger | 1u << enOther | 1u << enMeter;

bool IsMessageType(int nType)
{
    return nType >= 0 && nType < c_nMessageTypes;
}

// Four bytes as they lie there, to be compared with others.
std::uint32_t RawWord(const unsigned char* pBytes)
{
    std::uint32_t unWord = 0;
    std::memcpy(&unWord, pBytes, sizeof unWord);
    return unWord;
}

// How many records in a row, from one of unSize bytes, have its type and its length: nearly all streams are of few such rows. A
// last value may run past the end.
unsigned long CountAlike(const unsigned char* pRecord, unsigned long unLeft, unsigned long unSize)
{
    constexpr std::size_t c_unType = offsetof(stPPCRecordHeader, nMessageType);
    constexpr std::size_t c_unLength = offsetof(stPPCRecordHeader, nValueLength);
    const std::uint32_t unType = RawWord(pRecord + c_unType);
    const std::uint32_t unLength = RawWord(pRecord + c_unLength);
    const auto differs = [=](unsigned long unRecord)
    {
        const unsigned char* const pOther = pRecord + unRecord * unSize;
        return (RawWord(pOther + c_unType) ^ unType) | (RawWord(pOther + c_unLength) ^ unLength);
    };
    const unsigned long unLast = (unLeft - sizeof(stPPCRecordHeader)) / unSize; // that has a header, when all are alike
    unsigned long un = 1;
    while (un + 3 <= unLast && (differs(un) | differs(un + 1) | differs(un + 2) | differs(un + 3)) == 0)
    {
        un += 4;
    }
    while (un <= unLast && differs(un) == 0)
    {
        ++un;
    }
    return un;
}

} // namespace

CRawPPCMsg::CRawPPCMsg() : m_Header(), m_bError(false), m_nErrorCode(0) {}

CRawPPCMsg::CRawPPCMsg(const CRawPPCMsg& other) : CMemPoolBase(other), m_Header(), m_bError(false), m_nErrorCode(0)
{
    TakeOver(other);
}

CRawPPCMsg& CRawPPCMsg::operator=(const CRawPPCMsg& other)
{
    CopyToMe(other);
    return *this;
}

CRawPPCMsg::~CRawPPCMsg() = default;

void CRawPPCMsg::Clear()
{
    m_pValue.reset();
}

bool CRawPPCMsg::SetPPC(tagenPPCMessageType enType, int nPathType, int nPath, int nParam, float fValue)
{
    return SetRecord(enType, nPathType, nPath, nParam, fValue);
}

bool CRawPPCMsg::SetPPC(tagenPPCMessageType enType, int nPathType, int nPath, int nParam, int nValue)
{
    return SetRecord(enType, nPathType, nPath, nParam, nValue);
}

bool CRawPPCMsg::SetPPC(tagenPPCMessageType enType, int nPathType, int nPath, int nParam, const RyGConsoleString& strValue)
{
    return SetRecord(enType, nPathType, nPath, nParam, strValue);
}

// The plain sum; a length that no record has makes it wrap, as 32 bits do everywhere.
int CRawPPCMsg::GetTotalSize() const
{
    return static_cast<int>(static_cast<std::uint32_t>(int(m_Header.nValueLength)) + std::uint32_t(sizeof m_Header));
}

bool CRawPPCMsg::HaveError(int* pnCode) const
{
    if (pnCode != nullptr)
    {
        *pnCode = m_nErrorCode;
    }
    return m_bError;
}

bool CRawPPCMsg::ValidatePPC(const unsigned char* pRecord)
{
    if (pRecord == nullptr)
    {
        return false;
    }
    boost::endian::big_uint32_t unMarker;
    std::memcpy(&unMarker, pRecord, sizeof unMarker);
    return unMarker == c_unPPCMarker;
}

void CRawPPCMsg::operator>>(unsigned char** ppOut)
{
    if (ppOut == nullptr)
    {
        return;
    }
    const std::size_t unSize = sizeof m_Header + ValueLength();
    *ppOut = new (std::nothrow) unsigned char[unSize];
    if (*ppOut == nullptr)
    {
        std::puts(c_szNoOutput);
        m_nErrorCode = enErrorNoOutput; // without the flag: that is meant
        return;
    }
    WriteTo(*ppOut, unSize);
}

std::size_t CRawPPCMsg::WriteAnyTo(unsigned char* pOut, std::size_t unRoom) const
{
    const std::size_t unValue = ValueLength();
    if (pOut == nullptr || unRoom < sizeof m_Header || unRoom - sizeof m_Header < unValue)
    {
        return 0;
    }
    std::memcpy(pOut, &m_Header, sizeof m_Header);
    if (m_pValue != nullptr)
    {
        std::memcpy(pOut + sizeof m_Header, m_pValue.get(), unValue);
    }
    else
    {
        std::memset(pOut + sizeof m_Header, 0, unValue);
    }
    return sizeof m_Header + unValue;
}

void CRawPPCMsg::operator<<(const unsigned char* pRecord)
{
    Parse(pRecord, SIZE_MAX);
}

bool CRawPPCMsg::Parse(const unsigned char* pRecord, std::size_t unSize)
{
    const std::unique_ptr<unsigned char[]> pOld(std::move(m_pValue)); // the record may lie in it
    Empty();
    if (pRecord == nullptr || unSize < sizeof m_Header)
    {
        return Fail(enErrorNoValue, c_szNoValue);
    }
    std::memcpy(&m_Header, pRecord, sizeof m_Header);
    if (ValueLength() == 0 || ValueLength() > unSize - sizeof m_Header)
    {
        return Fail(enErrorNoValue, c_szNoValue);
    }
    return HoldValue(pRecord + sizeof m_Header);
}

void CRawPPCMsg::CopyToMe(const CRawPPCMsg& other)
{
    if (&other != this)
    {
        Empty();
        TakeOver(other);
    }
}

bool CRawPPCMsg::AnalyseStream(const unsigned char* pStream, unsigned long unLength, unsigned long& unStrings,
                               unsigned long& unRotaries, unsigned long& unSwitches, unsigned long& unIntegers,
                               unsigned long& unFaders, unsigned long& unOthers, unsigned long& unMeters)
{
    unsigned long* const apCounters[c_nMessageTypes] = {&unStrings, &unRotaries, &unSwitches, &unIntegers,
                                                        &unFaders,  &unOthers,   &unMeters};
    for (unsigned long* pCounter : apCounters)
    {
        *pCounter = 0;
    }
    std::uint64_t unOffset = 0; // 64 bits: a forged length must not wrap it
    while (unOffset < unLength)
    {
        if (pStream == nullptr || unLength - unOffset < sizeof(stPPCRecordHeader))
        {
            return false;
        }
        stPPCRecordHeader header;
        std::memcpy(&header, pStream + unOffset, sizeof header);
        if (header.nValueLength <= 0)
        {
            return false;
        }
        const unsigned long unSize = sizeof header + static_cast<unsigned long>(int(header.nValueLength));
        const std::uint64_t unRecords = CountAlike(pStream + unOffset, static_cast<unsigned long>(unLength - unOffset), unSize);
        if (IsMessageType(header.nMessageType))
        {
            *apCounters[header.nMessageType] += static_cast<unsigned long>(unRecords);
        }
        unOffset += unRecords * unSize;
    }
    return true;
}

template <typename T>
bool CRawPPCMsg::SetRecord(tagenPPCMessageType enType, int nPathType, int nPath, int nParam, const T& value)
{
    if (!IsMessageType(enType) || (c_unTypesOf<T> & 1u << enType) == 0)
    {
        return false;
    }
    const stPPCRecord<T> record(enType, nPathType, nPath, nParam, value);
    Empty();
    m_Header = record.header;
    unsigned char acValue[sizeof record.value];
    std::memcpy(acValue, &record.value, sizeof acValue);
    return HoldValue(acValue);
}

void CRawPPCMsg::TakeOver(const CRawPPCMsg& other)
{
    m_Header = other.m_Header;
    if (ValueLength() > 0 && other.m_pValue != nullptr)
    {
        HoldValue(other.m_pValue.get());
    }
    else
    {
        Fail(enErrorNoValue, c_szNoValue);
    }
}

// Whatever a derived class makes of Clear, no value stays behind that the next header would misread.
void CRawPPCMsg::Empty()
{
    m_pValue.reset();
    Clear();
}

// As the header says; a negative length is none.
std::size_t CRawPPCMsg::ValueLength() const
{
    return m_Header.nValueLength > 0 ? static_cast<std::size_t>(int(m_Header.nValueLength)) : 0;
}

// Takes over as many bytes as the header says.
bool CRawPPCMsg::HoldValue(const unsigned char* pValue)
{
    m_pValue.reset(new (std::nothrow) unsigned char[ValueLength()]);
    if (m_pValue == nullptr)
    {
        return Fail(enErrorNoMemory, c_szNoMemory);
    }
    std::memcpy(m_pValue.get(), pValue, ValueLength());
    return true;
}

bool CRawPPCMsg::Fail(int nCode, const char* szText)
{
    std::puts(szText);
    m_bError = true;
    m_nErrorCode = nCode;
    return false;
}
