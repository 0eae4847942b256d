#include "ClientComms/ClientMsgHandler.h"

#include "ClientComms/SideBySide.h"
#include "Support/Bytes.h"
#include "Support/NumberedUpdates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <set>
#include <vector>

namespace
{

using Support::Hex;
using Support::stContents;
using Support::stFigures;
using Support::stNumberedUpdate;
using Support::tBytes;

// Seeds that once failed: kept for ever.
constexpr std::uint32_t c_aunKeptSeeds[] = {139};

// Slow machines and slow builds look at a part of the seeds. What the first of them came to is the same everywhere.
constexpr std::uint32_t c_unDigestedSeeds = 200;
constexpr std::uint32_t c_unDigest = 3046771300u;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__x86_64__)
constexpr std::uint32_t c_unSeeds = c_unDigestedSeeds;
#else
constexpr std::uint32_t c_unSeeds = 10000;
#endif

// So many, or what SEEDS says in the environment.
std::uint32_t SeedsToRun()
{
    const char* const szSeeds = std::getenv("SEEDS");
    return szSeeds == nullptr ? c_unSeeds
                              : std::max(c_unDigestedSeeds, static_cast<std::uint32_t>(std::strtoul(szSeeds, nullptr, 10)));
}

const char* const c_aszFates[] = {"applied", "older than the last", "damaged", "undecodable", "refused", "superseded", "foreign"};

void Print(const stFigures& figures)
{
    static const char* const aszFaults[] = {"lost", "duplicated", "cut", "corrupted", "held back"};
    std::printf("%u updates in %u datagrams:", figures.unUpdates, figures.unDatagrams);
    for (const auto& [enWhat, unCount] : figures.faults)
    {
        std::printf(" %u %s", unCount, aszFaults[enWhat]);
    }
    std::printf("\nmessages:");
    for (const auto& [enWhat, unCount] : figures.fates)
    {
        std::printf(" %u %s", unCount, c_aszFates[enWhat]);
    }
    std::printf("\nupdates: %u applied; of the others %u lack a lost fragment, %u a damaged one, %u came to something else, "
                "%u were pushed out; %u left alone for one that was sent later\n",
                figures.unWhole, figures.unFragmentLost, figures.unFragmentDamaged, figures.unOtherFate, figures.unEvicted,
                figures.unLate);
}

} // namespace

TEST(ReassemblySeeds, TheNumberedUpdatesAreHonestDatagrams)
{
    std::mt19937 random(7);
    std::size_t unLargest = 0;
    std::set<std::size_t> totals;
    std::set<std::uint32_t> types;
    for (std::uint32_t unNumber = 1; unNumber <= 500; ++unNumber)
    {
        const stNumberedUpdate update = Support::MakeNumberedUpdate(unNumber, 0x01020304, random);
        const std::size_t unTotal = update.datagrams.size();
        tBytes message;
        for (std::size_t un = 0; un < unTotal; ++un)
        {
            const tBytes& datagram = update.datagrams[un];
            ASSERT_GE(datagram.size(), 30u);
            ASSERT_LE(datagram.size(), 200u);
            tBytes header = Hex("00000000 01020304 000000 00 000000 00 000000 00");
            header[11] = static_cast<unsigned char>(un + 1);
            header[15] = static_cast<unsigned char>(unTotal);
            header[19] = static_cast<unsigned char>(datagram.size() - 20);
            ASSERT_EQ(tBytes(datagram.begin(), datagram.begin() + 20), header);
            message.insert(message.end(), datagram.begin() + 20, datagram.end());
            unLargest = std::max(unLargest, datagram.size());
        }
        stContents contents;
        ASSERT_TRUE(Support::ReadUpdate(message, contents));
        ASSERT_TRUE(contents == update.contents);
        ASSERT_TRUE(Support::ProvesItself(contents));
        ++contents.arrays.rbegin()->second.back();
        ASSERT_FALSE(Support::ProvesItself(contents));
        totals.insert(unTotal);
        types.insert(contents.unUpdateType);
    }
    EXPECT_EQ(unLargest, 200u);
    EXPECT_EQ(totals, (std::set<std::size_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(types, (std::set<std::uint32_t>{1, 2, 4}));
}

TEST(ReassemblySeeds, EveryUpdateIsAppliedAsItWasSentOrItsLossIsExplained)
{
    testing::internal::CaptureStdout(); // a line for each update that is none
    Support::CSideBySide run;
    std::vector<std::uint32_t> seeds(SeedsToRun());
    std::iota(seeds.begin(), seeds.end(), 0);
    seeds.insert(seeds.end(), std::begin(c_aunKeptSeeds), std::end(c_aunKeptSeeds));
    for (const std::uint32_t unSeed : seeds)
    {
        SCOPED_TRACE(unSeed);
        run.RunSeed(unSeed);
        if (unSeed + 1 == c_unDigestedSeeds)
        {
            EXPECT_EQ(run.GetDigest(), c_unDigest);
        }
        if (HasFailure())
        {
            ADD_FAILURE() << "keep this seed: " << unSeed;
            break;
        }
    }
    const std::string strPrinted = testing::internal::GetCapturedStdout();
    if (HasFailure())
    {
        std::printf("%s", strPrinted.c_str()); // with what failed
    }
    const stFigures& figures = run.m_Figures;
    Print(figures);
    for (const auto& [enWhat, unCount] : figures.faults)
    {
        EXPECT_GT(unCount, 0u) << enWhat;
    }
    EXPECT_EQ(figures.fates.size(), std::size_t(Support::enFateCount));
    EXPECT_EQ(figures.unUpdates,
              figures.unWhole + figures.unFragmentLost + figures.unFragmentDamaged + figures.unOtherFate + figures.unEvicted);
    EXPECT_GT(figures.unLate, 0u);
    EXPECT_GT(figures.unEvicted, 0u);
}
