// The datagram that everything travels in, to and from the MC.
#pragma once

#include "Runtime/Export.h"

#include <boost/endian/arithmetic.hpp>

#include <cstddef>
#include <cstdint>

// Datagram types. 0 to 89 are valid.
enum enDatagramType : int
{
    enDatagramMCUpdate = 0,  // an update message, in up to 5 fragments
    enDatagramPPC = 1,       // serialised parameter changes
    enDatagramPPCFlagged = 3 // one serialised parameter change, sent with its sender's flag
};

constexpr int c_nDatagramTypeLimit = 90;
constexpr int c_nMaxFragments = 5;
constexpr int c_nDatagramHeader = 20;
constexpr int c_nMaxPayload = 64980;
constexpr int c_nMaxDatagram = c_nDatagramHeader + c_nMaxPayload;

// The header of every datagram. All fields are big-endian on the wire and read as numbers here; no alignment is needed.
struct UDP_PACKET_HEADER
{
    boost::endian::big_int32_t nType;
    boost::endian::big_uint32_t unMessageId;    // the same in every fragment of one message
    boost::endian::big_uint32_t unPacketNumber; // 1 for the first fragment
    boost::endian::big_uint32_t unTotal;        // fragments of the message
    boost::endian::big_uint32_t unPayloadLength;
};

// A whole datagram, as large as the largest: 65,000 bytes, of which header.unPayloadLength behind the header count. Bytes only:
// it may lie anywhere, and is the same on every machine.
struct UDP_PACKET
{
    UDP_PACKET_HEADER header;
    unsigned char acPayload[c_nMaxPayload];
};

static_assert(sizeof(UDP_PACKET_HEADER) == c_nDatagramHeader && alignof(UDP_PACKET_HEADER) == 1, "the header is packed");
static_assert(offsetof(UDP_PACKET_HEADER, unMessageId) == 4 && offsetof(UDP_PACKET_HEADER, unPacketNumber) == 8 &&
                  offsetof(UDP_PACKET_HEADER, unTotal) == 12 && offsetof(UDP_PACKET_HEADER, unPayloadLength) == 16,
              "the offsets of the header");
static_assert(sizeof(UDP_PACKET) == c_nMaxDatagram && offsetof(UDP_PACKET, acPayload) == c_nDatagramHeader,
              "the payload follows the header");

// How many fragments a message of lLength bytes takes: 1 to 5, or 0 when the length is negative or the message too long.
LOGICALCONTROLS_EXPORT int CountFragments(long lLength);

// Makes fragment nNumber (from 1) of a message, which may lie in packet's payload already. Returns the size of the datagram in
// packet, 0 when there is no such fragment.
LOGICALCONTROLS_EXPORT long MakeFragment(enDatagramType enType, std::uint32_t unMessageId, const unsigned char* pMessage,
                                         long lLength, int nNumber, UDP_PACKET& packet);
