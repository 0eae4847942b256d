// What came from the network, and what became of it.
#pragma once

#include "ClientComms/UDPPacket.h"
#include "Runtime/Export.h"
#include "RySocketIO/CIPString.h"

#include <atomic>
#include <cstdint>

// What is counted, a name each; ReceiveCounterText says what it means.
enum enReceiveCounter : int
{
#define COUNTER(name, text) name,
#include "ClientComms/ReceiveCounters.def"
#undef COUNTER
    enReceiveCounterCount
};

// What a counter counts, in words; empty outside the enumeration.
LOGICALCONTROLS_EXPORT const char* ReceiveCounterText(enReceiveCounter enCounter);

// The state of a handler's counters at one moment. All of them count from the handler's construction, modulo 2^32: take the
// difference of two states. While nothing is being received the sums are exact:
//
//     datagrams = the rejected + stored + completing
//     updates = decode errors + refused + superseded + applied + thrown + those that still wait (two at most)
struct stReceiveStatistics
{
    enum : int
    {
        enMaxSenders = 8
    };

    // What came from one address.
    struct stSender
    {
        RySocketIO::CIPString address;
        std::uint32_t unDatagrams;
        std::uint32_t unBytes;
    };

    std::uint32_t aunCount[enReceiveCounterCount];
    std::uint32_t aunByType[c_nDatagramTypeLimit]; // datagrams with a valid header, by type
    stSender aSenders[enMaxSenders];               // in the order of their first datagram
    int nSenders;
    std::uint32_t unOtherSenders; // datagrams from yet other senders

    // All datagrams that were rejected, whatever the reason.
    LOGICALCONTROLS_EXPORT std::uint32_t Rejected() const;
};

// The counters themselves. Any thread may count and read; counting a sender belongs to the receive thread. 32 bits each, which the
// console counts without a lock.
class CReceiveCounters
{
public:
    CReceiveCounters();

    void Count(enReceiveCounter enCounter, std::uint32_t unHowMany = 1)
    {
        m_aunCount[enCounter].fetch_add(unHowMany, std::memory_order_relaxed);
    }
    void CountType(int nType) { m_aunByType[nType].fetch_add(1, std::memory_order_relaxed); }
    void CountSender(const RySocketIO::CIPString& address, std::uint32_t unBytes);

    stReceiveStatistics Read() const;

private:
    struct stSender
    {
        RySocketIO::CIPString address; // not written again once m_nSenders counts it
        std::atomic<std::uint32_t> unDatagrams;
        std::atomic<std::uint32_t> unBytes;
    };

    std::atomic<std::uint32_t> m_aunCount[enReceiveCounterCount];
    std::atomic<std::uint32_t> m_aunByType[c_nDatagramTypeLimit];
    stSender m_aSenders[stReceiveStatistics::enMaxSenders];
    std::atomic<int> m_nSenders;
    std::atomic<std::uint32_t> m_unOtherSenders;
};
