#include "ClientComms/UDPPacket.h"

#include <algorithm>
#include <cstring>

int CountFragments(long lLength)
{
    if (lLength < 0 || lLength > long(c_nMaxPayload) * c_nMaxFragments)
    {
        return 0;
    }
    return std::max(1, static_cast<int>((lLength + c_nMaxPayload - 1) / c_nMaxPayload));
}

long MakeFragment(enDatagramType enType, std::uint32_t unMessageId, const unsigned char* pMessage, long lLength, int nNumber,
                  UDP_PACKET& packet)
{
    const int nTotal = CountFragments(lLength);
    if (nNumber < 1 || nNumber > nTotal || (pMessage == nullptr && lLength > 0))
    {
        return 0;
    }
    const long lOffset = long(c_nMaxPayload) * (nNumber - 1);
    const long lPayload = std::min(lLength - lOffset, long(c_nMaxPayload));
    packet.header.nType = enType;
    packet.header.unMessageId = unMessageId;
    packet.header.unPacketNumber = static_cast<std::uint32_t>(nNumber);
    packet.header.unTotal = static_cast<std::uint32_t>(nTotal);
    packet.header.unPayloadLength = static_cast<std::uint32_t>(lPayload);
    if (lPayload > 0 && pMessage + lOffset != packet.acPayload)
    {
        std::memmove(packet.acPayload, pMessage + lOffset, static_cast<std::size_t>(lPayload));
    }
    return c_nDatagramHeader + lPayload;
}
