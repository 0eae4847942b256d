#include "Messages/PPCPacket.h"

#include <cstring>

namespace
{

template <typename T>
bool ReadValue(const stPPCRecordHeader& header, const unsigned char* pValue, T& value)
{
    typename stPPCWireValue<T>::type wire;
    if (pValue == nullptr || header.nValueLength < static_cast<int>(sizeof wire))
    {
        return false;
    }
    std::memcpy(&wire, pValue, sizeof wire);
    value = wire;
    return true;
}

} // namespace

CPPCStreamReader::CPPCStreamReader(const unsigned char* pStream, long lLength)
    : m_pNext(pStream), m_lLeft(pStream != nullptr && lLength > 0 ? lLength : 0), m_bGood(true), m_Header(), m_pValue(nullptr)
{
}

bool CPPCStreamReader::Next()
{
    const long lHeader = sizeof m_Header;
    m_pValue = nullptr;
    if (m_lLeft == 0 || !m_bGood)
    {
        return false;
    }
    m_bGood = m_lLeft >= lHeader;
    if (m_bGood)
    {
        std::memcpy(&m_Header, m_pNext, sizeof m_Header);
        m_bGood = m_Header.nValueLength > 0 && m_Header.nValueLength <= m_lLeft - lHeader;
    }
    if (!m_bGood)
    {
        return false;
    }
    m_pValue = m_pNext + lHeader;
    m_pNext = m_pValue + m_Header.nValueLength;
    m_lLeft -= lHeader + m_Header.nValueLength;
    return true;
}

stPPCAddress CPPCStreamReader::Address() const
{
    return {static_cast<tagenPPCMessageType>(int(m_Header.nMessageType)),
            static_cast<tagenVirtualPathType>(int(m_Header.nPathType)), m_Header.nPath, m_Header.nParameter};
}

bool CPPCStreamReader::GetValue(float& fValue) const
{
    return ReadValue(m_Header, m_pValue, fValue);
}

bool CPPCStreamReader::GetValue(int& nValue) const
{
    return ReadValue(m_Header, m_pValue, nValue);
}

bool CPPCStreamReader::GetValue(RyGConsoleString& strValue) const
{
    return ReadValue(m_Header, m_pValue, strValue);
}
