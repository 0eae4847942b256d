// A network with faults, the same ones again for the same seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <vector>

// What a bad network does. Probabilities are in millionths of the datagrams: whole numbers decide alike on every machine.
struct stFaults
{
    static constexpr std::uint32_t c_unAlways = 1000000;

    std::uint32_t unSeed = 1;
    std::uint32_t unLoss = 0;
    std::uint32_t unDuplicate = 0;
    std::uint32_t unCorrupt = 0;
    std::uint32_t unTruncate = 0;
    std::uint32_t unReorder = 0; // a datagram may be held back behind up to so many later ones
    std::int64_t nDelay = 0;     // microseconds, for every datagram

    bool Any() const;
};

enum enFault : int
{
    enFaultLost,
    enFaultDuplicated,
    enFaultTruncated,
    enFaultCorrupted,
    enFaultHeldBack,
    enFaultCount
};

// One fault, as the network records it.
struct stFaultRecord
{
    std::uint32_t unDatagram; // counted from 0 in the order of Send
    bool bDuplicate;          // it happened to the datagram's duplicate, which is made before the other faults
    enFault enWhat;
    std::uint32_t unWhere;   // the bytes kept; the byte corrupted; how many later datagrams it was held back behind
    unsigned char ucFlipped; // the bits of that byte
};

// What arrives.
struct stArrival
{
    std::uint32_t unDatagram;
    bool bDuplicate;
    std::vector<unsigned char> bytes;
};

// Takes datagrams and hands out what arrives of them. What becomes of a datagram depends on the seed, on how many were sent before
// it and on its length alone: not on the time, and no fault depends on which others are on.
//
// A datagram is lost, or is duplicated, and each of the two is cut short, then corrupted, then held back, on its own. Time is any
// count of microseconds that doesn't run backwards; nothing here waits.
class CBadNetwork
{
public:
    explicit CBadNetwork(const stFaults& faults);

    void Send(std::int64_t nNow, const void* pData, std::size_t unLength);

    // What has arrived by now and was not handed out yet.
    std::vector<stArrival> Receive(std::int64_t nNow);

    // When the next datagram arrives; none while all there are, are held back.
    std::optional<std::int64_t> NextArrival() const;

    // Everything that is still inside, in the order of its arrival.
    std::vector<stArrival> Flush();

    // The faults since the last call.
    std::vector<stFaultRecord> TakeRecords();

    // At any moment: taken + duplicates = lost + delivered + inside.
    std::uint32_t GetTaken() const { return m_unTaken; }
    std::uint32_t GetDelivered() const { return m_unDelivered; }
    std::uint32_t GetInside() const { return static_cast<std::uint32_t>(m_HeldBack.size() + m_UnderWay.size()); }
    std::uint32_t GetCount(enFault enWhat) const { return m_aunCount[enWhat]; }

private:
    struct stHeldBack
    {
        std::uint32_t unGoesOn; // goes on when this datagram has been taken
        stArrival arrival;
    };

    struct stUnderWay
    {
        std::int64_t nArrives;
        stArrival arrival;
    };

    // The random numbers that decide about one of the two.
    struct stFate
    {
        std::uint32_t unTruncate;
        std::uint32_t unKept;
        std::uint32_t unCorrupt;
        std::uint32_t unByte;
        std::uint32_t unBits;
        std::uint32_t unBehind;
    };

    void Record(enFault enWhat, const stArrival& arrival, std::uint32_t unWhere = 0, unsigned char ucFlipped = 0);
    void Damage(stArrival& arrival, const stFate& fate);
    void HoldBack(stArrival arrival, std::uint32_t unBehind);
    void GoOn(std::int64_t nNow);

    const stFaults m_Faults;
    std::mt19937 m_Random;
    std::deque<stHeldBack> m_HeldBack; // in the order in which they go on
    std::deque<stUnderWay> m_UnderWay;
    std::vector<stFaultRecord> m_Records;
    std::uint32_t m_unTaken;
    std::uint32_t m_unDelivered;
    std::uint32_t m_aunCount[enFaultCount];
};
