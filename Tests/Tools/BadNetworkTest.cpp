#include "Network/BadNetwork.h"

#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace
{

using Support::Hex;
using Support::tBytes;

constexpr std::uint32_t c_unTenPercent = 100000;
constexpr std::uint32_t c_unMany = 1000;
constexpr std::size_t c_unSize = 20;

// Datagram n starts with n, in its first four bytes.
tBytes Numbered(std::uint32_t unNumber, std::size_t unLength = c_unSize)
{
    tBytes bytes;
    Support::AppendBig(bytes, unNumber);
    bytes.resize(unLength, 0xa5);
    return bytes;
}

typedef std::vector<std::uint32_t> tNumbers;

struct stRun
{
    std::vector<stArrival> arrivals; // what Flush gave out is in flushed
    std::vector<stArrival> flushed;
    std::vector<stFaultRecord> records;
    tNumbers counts; // by fault
};

void Append(std::vector<stArrival>& arrivals, std::vector<stArrival> more)
{
    arrivals.insert(arrivals.end(), more.begin(), more.end());
}

void ExpectBalance(const CBadNetwork& network)
{
    ASSERT_EQ(network.GetTaken() + network.GetCount(enFaultDuplicated),
              network.GetCount(enFaultLost) + network.GetDelivered() + network.GetInside());
}

// Sends numbered datagrams, one every 100 microseconds, and takes what has arrived after each. The balance holds at every moment.
stRun Drive(const stFaults& faults, std::uint32_t unDatagrams = c_unMany, std::size_t unLength = c_unSize)
{
    stRun run;
    CBadNetwork network(faults);
    for (std::uint32_t un = 0; un < unDatagrams; ++un)
    {
        network.Send(100 * un, Numbered(un, unLength).data(), unLength);
        ExpectBalance(network);
        Append(run.arrivals, network.Receive(100 * un));
        ExpectBalance(network);
    }
    EXPECT_EQ(network.GetTaken(), unDatagrams);
    EXPECT_EQ(network.GetDelivered(), run.arrivals.size());
    run.flushed = network.Flush();
    EXPECT_EQ(network.GetInside(), 0u);
    ExpectBalance(network);
    EXPECT_TRUE(network.Flush().empty());
    run.records = network.TakeRecords();
    EXPECT_TRUE(network.TakeRecords().empty());
    for (int nFault = 0; nFault < enFaultCount; ++nFault)
    {
        const enFault enWhat = static_cast<enFault>(nFault);
        run.counts.push_back(network.GetCount(enWhat));
        const auto records = std::count_if(run.records.begin(), run.records.end(),
                                           [&](const stFaultRecord& record) { return record.enWhat == enWhat; });
        EXPECT_EQ(network.GetCount(enWhat), static_cast<std::uint32_t>(records));
    }
    return run;
}

tNumbers Order(const std::vector<stArrival>& arrivals)
{
    tNumbers numbers;
    for (const stArrival& arrival : arrivals)
    {
        numbers.push_back(arrival.unDatagram);
    }
    return numbers;
}

// One line a fault, as "3' cut to 7".
std::string Text(const std::vector<stFaultRecord>& records)
{
    static const char* const aszWhat[] = {" lost", " duplicated", " cut to ", " corrupted at ", " held back behind "};
    std::string strText;
    for (const stFaultRecord& record : records)
    {
        strText += std::to_string(record.unDatagram) + (record.bDuplicate ? "'" : "") + aszWhat[record.enWhat] +
                   (record.enWhat >= enFaultTruncated ? std::to_string(record.unWhere) : "") +
                   (record.enWhat == enFaultCorrupted ? " by " + std::to_string(record.ucFlipped) : "") + "\n";
    }
    return strText;
}

bool operator==(const stRun& a, const stRun& b)
{
    const auto equal = [](const std::vector<stArrival>& first, const std::vector<stArrival>& second)
    {
        return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                          [](const stArrival& x, const stArrival& y) {
                              return std::tie(x.unDatagram, x.bDuplicate, x.bytes) == std::tie(y.unDatagram, y.bDuplicate, y.bytes);
                          });
    };
    return equal(a.arrivals, b.arrivals) && equal(a.flushed, b.flushed) && Text(a.records) == Text(b.records);
}

stFaults Seed(std::uint32_t unSeed)
{
    stFaults faults;
    faults.unSeed = unSeed;
    return faults;
}

stFaults Everything(std::uint32_t unSeed)
{
    stFaults faults = Seed(unSeed);
    faults.unLoss = faults.unDuplicate = faults.unCorrupt = faults.unTruncate = c_unTenPercent;
    faults.unReorder = 4;
    return faults;
}

stFaults With(std::uint32_t stFaults::*pFault, std::uint32_t unHowMuch, std::uint32_t unSeed = 7)
{
    stFaults faults = Seed(unSeed);
    faults.*pFault = unHowMuch;
    return faults;
}

} // namespace

TEST(BadNetwork, WithoutFaultsHandsOutWhatItTookAtOnce)
{
    EXPECT_FALSE(Seed(7).Any());
    const stRun run = Drive(Seed(7));
    ASSERT_EQ(run.arrivals.size(), c_unMany);
    for (std::uint32_t un = 0; un < c_unMany; ++un)
    {
        EXPECT_EQ(run.arrivals[un].unDatagram, un);
        EXPECT_FALSE(run.arrivals[un].bDuplicate);
        EXPECT_EQ(run.arrivals[un].bytes, Numbered(un));
    }
    EXPECT_TRUE(run.flushed.empty());
    EXPECT_TRUE(run.records.empty());
}

TEST(BadNetwork, LosesAsManyAsItIsToldTo)
{
    EXPECT_TRUE(With(&stFaults::unLoss, 1).Any());
    EXPECT_EQ(Drive(With(&stFaults::unLoss, c_unTenPercent)).counts, (tNumbers{100, 0, 0, 0, 0}));
    const stRun all = Drive(With(&stFaults::unLoss, stFaults::c_unAlways));
    EXPECT_TRUE(all.arrivals.empty() && all.flushed.empty());
    EXPECT_EQ(all.counts, (tNumbers{1000, 0, 0, 0, 0}));
}

TEST(BadNetwork, TheRecordNamesTheLostOnes)
{
    const stRun run = Drive(With(&stFaults::unLoss, c_unTenPercent), 10);
    EXPECT_EQ(Text(run.records), "0 lost\n1 lost\n8 lost\n");
    EXPECT_EQ(Order(run.arrivals), (tNumbers{2, 3, 4, 5, 6, 7, 9}));
}

TEST(BadNetwork, DuplicatesFollowTheirDatagramAndAreEqual)
{
    EXPECT_TRUE(With(&stFaults::unDuplicate, 1).Any());
    EXPECT_EQ(Drive(With(&stFaults::unDuplicate, c_unTenPercent)).counts, (tNumbers{0, 82, 0, 0, 0}));
    const stRun some = Drive(With(&stFaults::unDuplicate, c_unTenPercent), 17);
    EXPECT_EQ(Text(some.records), "15' duplicated\n");
    EXPECT_EQ(Order(some.arrivals), (tNumbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 15, 16}));

    const stRun all = Drive(With(&stFaults::unDuplicate, stFaults::c_unAlways));
    EXPECT_EQ(all.counts, (tNumbers{0, 1000, 0, 0, 0}));
    ASSERT_EQ(all.arrivals.size(), 2 * c_unMany);
    for (std::uint32_t un = 0; un < 2 * c_unMany; ++un)
    {
        EXPECT_EQ(all.arrivals[un].unDatagram, un / 2);
        EXPECT_EQ(all.arrivals[un].bDuplicate, un % 2 == 1);
        EXPECT_EQ(all.arrivals[un].bytes, Numbered(un / 2));
    }
}

TEST(BadNetwork, CorruptionChangesTheByteThatTheRecordNames)
{
    EXPECT_TRUE(With(&stFaults::unCorrupt, 1).Any());
    EXPECT_EQ(Drive(With(&stFaults::unCorrupt, c_unTenPercent)).counts, (tNumbers{0, 0, 0, 96, 0}));
    const stRun some = Drive(With(&stFaults::unCorrupt, c_unTenPercent), 21);
    EXPECT_EQ(Text(some.records), "14 corrupted at 9 by 92\n20 corrupted at 9 by 72\n");
    EXPECT_EQ(some.arrivals[13].bytes, Hex("0000000d a5a5a5a5 a5a5a5a5 a5a5a5a5 a5a5a5a5"));
    EXPECT_EQ(some.arrivals[14].bytes, Hex("0000000e a5a5a5a5 a5f9a5a5 a5a5a5a5 a5a5a5a5"));
    EXPECT_EQ(some.arrivals[20].bytes, Hex("00000014 a5a5a5a5 a5eda5a5 a5a5a5a5 a5a5a5a5"));

    const stRun all = Drive(With(&stFaults::unCorrupt, stFaults::c_unAlways));
    EXPECT_EQ(all.counts, (tNumbers{0, 0, 0, 1000, 0}));
    ASSERT_EQ(all.arrivals.size(), c_unMany);
    std::map<std::uint32_t, int> hits;
    for (std::uint32_t un = 0; un < c_unMany; ++un)
    {
        tBytes expected = Numbered(un);
        expected.at(all.records[un].unWhere) ^= all.records[un].ucFlipped;
        EXPECT_EQ(all.arrivals[un].bytes, expected);
        EXPECT_NE(all.arrivals[un].bytes, Numbered(un));
        ++hits[all.records[un].unWhere];
    }
    EXPECT_EQ(hits.size(), c_unSize); // every byte has its turn
}

TEST(BadNetwork, TruncationKeepsFewerBytesAndTheRecordSaysHowMany)
{
    EXPECT_TRUE(With(&stFaults::unTruncate, 1).Any());
    EXPECT_EQ(Drive(With(&stFaults::unTruncate, c_unTenPercent)).counts, (tNumbers{0, 0, 102, 0, 0}));
    const stRun some = Drive(With(&stFaults::unTruncate, c_unTenPercent), 22);
    EXPECT_EQ(Text(some.records), "13 cut to 7\n21 cut to 12\n");
    EXPECT_EQ(some.arrivals[12].bytes.size(), 20u);
    EXPECT_EQ(some.arrivals[13].bytes, Hex("0000000d a5a5a5"));
    EXPECT_EQ(some.arrivals[21].bytes, Hex("00000015 a5a5a5a5 a5a5a5a5"));

    const stRun all = Drive(With(&stFaults::unTruncate, stFaults::c_unAlways));
    EXPECT_EQ(all.counts, (tNumbers{0, 0, 1000, 0, 0}));
    ASSERT_EQ(all.arrivals.size(), c_unMany);
    std::map<std::size_t, int> lengths;
    for (std::uint32_t un = 0; un < c_unMany; ++un)
    {
        const tBytes whole = Numbered(un);
        ASSERT_LT(all.records[un].unWhere, c_unSize);
        EXPECT_EQ(all.arrivals[un].bytes, tBytes(whole.begin(), whole.begin() + static_cast<long>(all.records[un].unWhere)));
        ++lengths[all.arrivals[un].bytes.size()];
    }
    EXPECT_EQ(lengths.size(), c_unSize); // from 0 to 19
}

TEST(BadNetwork, AnEmptyDatagramHasNothingToDamage)
{
    stFaults faults = With(&stFaults::unTruncate, stFaults::c_unAlways);
    faults.unCorrupt = stFaults::c_unAlways;
    CBadNetwork network(faults);
    network.Send(0, nullptr, 0);
    const std::vector<stArrival> arrivals = network.Receive(0);
    ASSERT_EQ(arrivals.size(), 1u);
    EXPECT_TRUE(arrivals[0].bytes.empty());
    EXPECT_TRUE(network.TakeRecords().empty());
}

TEST(BadNetwork, HoldsBackBehindAsManyLaterOnesAsTheRecordSays)
{
    EXPECT_TRUE(With(&stFaults::unReorder, 1).Any());
    const stRun run = Drive(With(&stFaults::unReorder, 3, 1), 10);
    EXPECT_EQ(Text(run.records), "0 held back behind 3\n1 held back behind 1\n2 held back behind 1\n3 held back behind 3\n"
                                 "4 held back behind 2\n6 held back behind 1\n7 held back behind 3\n");
    EXPECT_EQ(Order(run.arrivals), (tNumbers{1, 2, 0, 5, 4, 3, 6, 8, 9}));
    EXPECT_EQ(Order(run.flushed), (tNumbers{7}));

    const stRun other = Drive(With(&stFaults::unReorder, 3, 2), 10);
    EXPECT_EQ(Order(other.arrivals), (tNumbers{0, 2, 3, 1, 5, 4, 6}));
    EXPECT_EQ(Order(other.flushed), (tNumbers{8, 7, 9}));
}

TEST(BadNetwork, NoDatagramIsOvertakenByMoreThanItIsToldTo)
{
    const stRun run = Drive(With(&stFaults::unReorder, 4));
    EXPECT_EQ(run.counts, (tNumbers{0, 0, 0, 0, 793}));
    EXPECT_EQ(run.arrivals.size(), 997u);
    EXPECT_EQ(run.flushed.size(), 3u);
    std::map<std::uint32_t, std::uint32_t> heldBack;
    for (const stFaultRecord& record : run.records)
    {
        heldBack[record.unDatagram] = record.unWhere;
        EXPECT_GE(record.unWhere, 1u);
        EXPECT_LE(record.unWhere, 4u);
    }
    const tNumbers order = Order(run.arrivals);
    std::uint32_t unFurthest = 0;
    for (std::size_t un = 0; un < order.size(); ++un)
    {
        const auto earlier = std::count_if(order.begin(), order.begin() + static_cast<long>(un),
                                           [&](std::uint32_t unEarlier) { return unEarlier > order[un]; });
        const std::uint32_t unOvertaken = static_cast<std::uint32_t>(earlier);
        EXPECT_LE(unOvertaken, heldBack[order[un]]) << order[un];
        unFurthest = std::max(unFurthest, unOvertaken);
    }
    EXPECT_EQ(unFurthest, 4u);
}

TEST(BadNetwork, DelaysEveryDatagramAlikeAndSoKeepsTheirOrder)
{
    stFaults faults = Seed(7);
    faults.nDelay = 250;
    EXPECT_TRUE(faults.Any());
    CBadNetwork network(faults);
    EXPECT_FALSE(network.NextArrival().has_value());
    network.Send(1000, "a", 1);
    network.Send(1100, "b", 1);
    network.Send(1100, "c", 1);
    EXPECT_EQ(network.NextArrival(), 1250);
    EXPECT_TRUE(network.Receive(1249).empty());
    EXPECT_EQ(Order(network.Receive(1250)), (tNumbers{0}));
    EXPECT_EQ(network.NextArrival(), 1350);
    EXPECT_TRUE(network.Receive(1349).empty());
    EXPECT_EQ(network.GetInside(), 2u);
    EXPECT_EQ(Order(network.Receive(2000)), (tNumbers{1, 2}));
    EXPECT_FALSE(network.NextArrival().has_value());
    EXPECT_TRUE(network.TakeRecords().empty());
}

TEST(BadNetwork, AHeldBackDatagramIsDelayedFromWhenItGoesOn)
{
    stFaults faults = With(&stFaults::unReorder, 3, 1);
    faults.nDelay = 1000;
    CBadNetwork network(faults);
    for (std::uint32_t un = 0; un < 6; ++un) // order 1 2 0 5: number 0 goes on behind 3, 1 behind 2, 2 behind 3
    {
        network.Send(100 * un, "x", 1);
    }
    EXPECT_EQ(network.NextArrival(), 1200);
    EXPECT_EQ(Order(network.Receive(1299)), (tNumbers{1}));
    EXPECT_EQ(Order(network.Receive(1300)), (tNumbers{2, 0}));
    EXPECT_EQ(network.NextArrival(), 1500);
    EXPECT_EQ(Order(network.Flush()), (tNumbers{5, 4, 3}));
}

TEST(BadNetwork, AllFaultsAtOnceMeetADatagramInTheirOrder)
{
    stFaults faults = Seed(7);
    faults.unLoss = faults.unTruncate = 200000;
    faults.unDuplicate = 250000;
    faults.unCorrupt = 300000;
    faults.unReorder = 2;
    const stRun run = Drive(faults, 12);
    EXPECT_EQ(Text(run.records), "0 lost\n1 lost\n2 corrupted at 6 by 116\n2 held back behind 2\n3 held back behind 2\n"
                                 "4 corrupted at 9 by 126\n4 held back behind 1\n4' duplicated\n6 held back behind 1\n"
                                 "7 held back behind 1\n8 lost\n9 corrupted at 17 by 247\n10 cut to 10\n11 held back behind 2\n");
    EXPECT_EQ(Order(run.arrivals), (tNumbers{4, 2, 5, 4, 3, 6, 7, 9, 10}));
    EXPECT_TRUE(run.arrivals[0].bDuplicate);
    EXPECT_EQ(run.arrivals[0].bytes, Numbered(4));
    EXPECT_EQ(run.arrivals[3].bytes, Hex("00000004 a5a5a5a5 a5dba5a5 a5a5a5a5 a5a5a5a5"));
    EXPECT_EQ(Order(run.flushed), (tNumbers{11}));
    EXPECT_EQ(Drive(Everything(7)).counts, (tNumbers{100, 72, 102, 97, 769}));
}

TEST(BadNetwork, TheSameSeedIsTheSameRunAndAnotherSeedAnotherOne)
{
    EXPECT_TRUE(Drive(Everything(7)) == Drive(Everything(7)));
    EXPECT_FALSE(Drive(Everything(7)) == Drive(Everything(8)));
    EXPECT_FALSE(Drive(With(&stFaults::unLoss, c_unTenPercent, 0)) == Drive(With(&stFaults::unLoss, c_unTenPercent, 0xffffffff)));
}

TEST(BadNetwork, NoFaultDependsOnTheTimeOnTheOtherFaultsOrOnLengths)
{
    stFaults late = Everything(7);
    late.nDelay = 5000;
    EXPECT_EQ(Text(Drive(late).records), Text(Drive(Everything(7)).records));

    const auto lost = [](const stRun& run)
    {
        std::vector<stFaultRecord> records = run.records;
        records.erase(
            std::remove_if(records.begin(), records.end(), [](const auto& record) { return record.enWhat != enFaultLost; }),
            records.end());
        return Text(records);
    };
    const std::string strLost = Text(Drive(With(&stFaults::unLoss, c_unTenPercent)).records);
    EXPECT_EQ(lost(Drive(Everything(7))), strLost);
    EXPECT_EQ(lost(Drive(Everything(7), c_unMany, 1400)), strLost);
}
