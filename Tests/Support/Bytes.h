// Bytes written out, and small builders of the datagrams and updates that tests feed in.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace Support
{

typedef std::vector<unsigned char> tBytes;

// "00 01 fe" as bytes. Blanks and line ends are passed over.
inline tBytes Hex(const std::string& strText)
{
    tBytes bytes;
    int nDigits = 0;
    unsigned int unByte = 0;
    for (const char c : strText)
    {
        if (c == ' ' || c == '\n')
        {
            continue;
        }
        unByte = unByte * 16 + static_cast<unsigned int>(c <= '9' ? c - '0' : c - 'a' + 10);
        if (++nDigits % 2 == 0)
        {
            bytes.push_back(static_cast<unsigned char>(unByte));
            unByte = 0;
        }
    }
    return bytes;
}

// Appends a number as 4 big-endian bytes.
inline void AppendBig(tBytes& bytes, std::uint32_t unValue)
{
    for (int nShift = 24; nShift >= 0; nShift -= 8)
    {
        bytes.push_back(static_cast<unsigned char>(unValue >> nShift));
    }
}

inline void Append(tBytes& bytes, const tBytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

// A datagram whose header says exactly this, whatever the payload is.
inline tBytes Datagram(std::uint32_t unType, std::uint32_t unId, std::uint32_t unNumber, std::uint32_t unTotal,
                       std::uint32_t unClaimedLength, const tBytes& payload)
{
    tBytes bytes;
    for (const std::uint32_t unField : {unType, unId, unNumber, unTotal, unClaimedLength})
    {
        AppendBig(bytes, unField);
    }
    Append(bytes, payload);
    return bytes;
}

// An honest one.
inline tBytes Datagram(std::uint32_t unType, std::uint32_t unId, std::uint32_t unNumber, std::uint32_t unTotal,
                       const tBytes& payload)
{
    return Datagram(unType, unId, unNumber, unTotal, static_cast<std::uint32_t>(payload.size()), payload);
}

// The 17 bytes that start an update.
inline tBytes UpdateHeader(std::uint32_t unUpdateType, std::uint32_t unBodyLength, std::uint32_t unMarker = 1)
{
    tBytes bytes;
    AppendBig(bytes, unMarker);
    bytes.push_back(0);
    AppendBig(bytes, 0);
    AppendBig(bytes, unUpdateType);
    AppendBig(bytes, unBodyLength);
    return bytes;
}

// One carried array: its length, then its bytes.
inline void AppendArray(tBytes& bytes, const tBytes& data)
{
    AppendBig(bytes, static_cast<std::uint32_t>(data.size()));
    Append(bytes, data);
}

} // namespace Support
