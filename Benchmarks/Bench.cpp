// Runs the cases and prints the table.
#include "Bench.h"

#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <numeric>

namespace
{

typedef std::chrono::steady_clock tClock;
typedef std::function<stRound(double)> tRounds;

// How long each side of a round lasts at least, in seconds, and how many rounds make a case.
struct stEffort
{
    double dSide;
    int nRounds;
    double dShare; // of a measured case's full round
};

constexpr stEffort c_FullEffort = {0.004, 61, 1.0};
constexpr stEffort c_QuickEffort = {0.0008, 15, 0.1};

stEffort g_Effort = c_FullEffort;

struct stEntry
{
    stCase entry;
    std::function<tRounds()> make;
};

std::map<std::string, stEntry>& Entries()
{
    static std::map<std::string, stEntry> s_Entries;
    return s_Entries;
}

// The cases of AddCase, to be counted, as gains are comparisons with others; and what is only counted.
std::map<std::string, std::function<stCounted()>>& Countable()
{
    static std::map<std::string, std::function<stCounted()>> s_Countable;
    return s_Countable;
}

// Twice before it counts, so that nothing is met for the first time.
void Count()
{
    for (const auto& [strName, make] : Countable())
    {
        const stCounted counted = make();
        counted.work();
        counted.work();
        CALLGRIND_ZERO_STATS;
        counted.work();
        CALLGRIND_DUMP_STATS_AT(strName.c_str());
        std::printf("%d\t%s\n", counted.nOperations, strName.c_str());
    }
}

void PrintBytes()
{
    for (const auto& [strName, entry] : Entries())
    {
        if (entry.entry.enQuantity == enBytes)
        {
            std::printf("%.0f\t%s\n", entry.make()(1).dOurs, strName.c_str());
        }
    }
}

double SecondsOf(const std::function<void()>& work, int nRepeats)
{
    const tClock::time_point start = tClock::now();
    for (int nRepeat = 0; nRepeat < nRepeats; ++nRepeat)
    {
        work();
    }
    return std::chrono::duration<double>(tClock::now() - start).count();
}

int RepeatsFor(const std::function<void()>& work)
{
    for (int nRepeats = 1;; nRepeats *= 2)
    {
        const double dSeconds = SecondsOf(work, nRepeats);
        if (dSeconds >= g_Effort.dSide / 4)
        {
            return std::max(1, static_cast<int>(std::ceil(nRepeats * g_Effort.dSide / dSeconds)));
        }
    }
}

// The sides take turns, and which of them begins alternates.
tRounds InTurns(const stSides& sides)
{
    const int nOurs = RepeatsFor(sides.ours);
    const int nLimit = RepeatsFor(sides.limit);
    bool bOursFirst = false;
    return [=](double) mutable
    {
        bOursFirst = !bOursFirst;
        stRound round = {};
        for (const bool bOurs : {bOursFirst, !bOursFirst})
        {
            double& dTime = bOurs ? round.dOurs : round.dLimit;
            dTime = SecondsOf(bOurs ? sides.ours : sides.limit, bOurs ? nOurs : nLimit);
            dTime /= double(sides.nOperations) * (bOurs ? nOurs : nLimit);
        }
        return round;
    };
}

double Sum(const std::vector<double>& numbers)
{
    return std::accumulate(numbers.begin(), numbers.end(), 0.0);
}

double RatioOf(enRatios enRatio, const stRound& round)
{
    return enRatio == enGain ? round.dLimit / round.dOurs : round.dOurs / round.dLimit;
}

void Run(benchmark::State& state, const stEntry& entry)
{
    try
    {
        const tRounds rounds = entry.make();
        std::vector<double> ours;
        std::vector<double> limits;
        std::vector<double> ratios;
        for (auto _ : state)
        {
            const stRound round = rounds(g_Effort.dShare);
            state.SetIterationTime(round.dOurs);
            ours.push_back(round.dOurs);
            limits.push_back(round.dLimit);
            ratios.push_back(RatioOf(entry.entry.enRatio, round));
        }
        const bool bLoss = entry.entry.enRatio == enLoss;
        state.counters["ours"] = bLoss ? Sum(ours) : Median(ours);
        state.counters["limit"] = bLoss ? Sum(limits) : Median(limits);
        state.counters["ratio"] = bLoss ? Sum(ours) : Median(ratios);
    }
    catch (const std::string& strReason)
    {
        state.SkipWithError(strReason.c_str());
    }
}

struct stUnit
{
    double dUnit;
    const char* szUnit;
};

std::string Measure(double dMeasure, const std::vector<stUnit>& units)
{
    auto unit = units.begin();
    while (unit + 1 != units.end() && dMeasure >= 1000 * unit->dUnit)
    {
        ++unit;
    }
    char acText[32];
    std::snprintf(acText, sizeof acText, "%.3g %s", dMeasure / unit->dUnit, unit->szUnit);
    return acText;
}

std::string Measured(const stCase& entry, double dMeasure)
{
    if (entry.enRatio == enLoss)
    {
        return std::to_string(static_cast<long>(dMeasure));
    }
    return entry.enQuantity == enBytes ? Measure(dMeasure, {{1, "B"}, {1e3, "kB"}, {1e6, "MB"}})
                                       : Measure(dMeasure, {{1e-9, "ns"}, {1e-6, "us"}, {1e-3, "ms"}, {1, "s"}});
}

std::string Goal(const stCase& entry, double dGoal)
{
    char acText[32];
    std::snprintf(acText, sizeof acText, "%.4g", dGoal);
    return entry.enRatio == enLoss ? "none" : dGoal != 0 ? acText : "-";
}

bool Meets(const stCase& entry, double dRatio, double dGoal)
{
    return entry.enRatio == enLoss ? dRatio == 0 : dGoal != 0 && (entry.enRatio == enCost ? dRatio <= dGoal : dRatio >= dGoal);
}

class CTable : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context&) override
    {
        std::printf("%-46s %-40s %8s %8s %7s %6s %8s  met\n", "what", "limit", "ours", "limit", "ratio", "good", "extreme");
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
        {
            Print(Entries().at(run.run_name.function_name).entry, run);
        }
    }

    void Finalize() override
    {
        std::printf("\nours, limit: medians, an operation, of losses sums; ratio: the median of the rounds' ratios, a gain with an "
                    "x. Extreme met: "
                    "%d of %d, "
                    "good missed: %d, skipped: %d.\n",
                    m_nExtreme, m_nGoals, m_nMissed, m_nSkipped);
    }

private:
    void Print(const stCase& entry, const Run& run)
    {
        if (run.error_occurred)
        {
            std::printf("%-46s skipped: %s\n", entry.strName.c_str(), run.error_message.c_str());
            ++m_nSkipped;
            return;
        }
        const double dRatio = run.counters.at("ratio");
        char acRatio[32];
        std::snprintf(acRatio, sizeof acRatio, entry.enRatio == enGain ? "%.3gx" : "%.3g ", dRatio);
        const bool bGoal = entry.dGood != 0 || entry.dExtreme != 0 || entry.enRatio == enLoss;
        const bool bExtreme = Meets(entry, dRatio, entry.dExtreme);
        const bool bGood = bExtreme || Meets(entry, dRatio, entry.dGood);
        const char* const szMet = !bGoal ? "" : bExtreme ? "extreme" : bGood ? "good" : "MISSED";
        std::printf("%-46s %-40s %8s %8s %7s %6s %8s  %s\n", entry.strName.c_str(), entry.szLimit,
                    Measured(entry, run.counters.at("ours")).c_str(), Measured(entry, run.counters.at("limit")).c_str(),
                    entry.enRatio == enLoss ? "- " : acRatio, Goal(entry, entry.dGood).c_str(), Goal(entry, entry.dExtreme).c_str(),
                    szMet);
        std::fflush(stdout);
        m_nGoals += bGoal ? 1 : 0;
        m_nExtreme += bExtreme ? 1 : 0;
        m_nMissed += bGoal && entry.dGood != 0 && !bGood ? 1 : 0;
    }

    int m_nGoals = 0;
    int m_nExtreme = 0;
    int m_nMissed = 0;
    int m_nSkipped = 0;
};

} // namespace

stRound InEitherOrder(const std::function<double()>& ours, const std::function<double()>& limit)
{
    static bool s_bOursFirst = false;
    s_bOursFirst = !s_bOursFirst;
    stRound round = {};
    for (const bool bOurs : {s_bOursFirst, !s_bOursFirst})
    {
        (bOurs ? round.dOurs : round.dLimit) = bOurs ? ours() : limit();
    }
    return round;
}

void AddMeasuredCase(const stCase& entry, std::function<tRounds()> make)
{
    const stEntry& added = Entries()[entry.strName] = {entry, std::move(make)};
    benchmark::RegisterBenchmark(entry.strName.c_str(), [&added](benchmark::State& state) { Run(state, added); })
        ->UseManualTime()
        ->Iterations(g_Effort.nRounds);
}

void AddCount(const std::string& strName, std::function<stCounted()> make)
{
    Countable()[strName] = std::move(make);
}

void AddCase(const stCase& entry, std::function<stSides()> make)
{
    if (entry.enRatio == enCost)
    {
        AddCount(entry.strName,
                 [make]
                 {
                     const stSides sides = make();
                     return stCounted{sides.ours, sides.nOperations};
                 });
    }
    AddMeasuredCase(entry, [make = std::move(make)] { return InTurns(make()); });
}

int BenchMain(int nArguments, char** ppArguments, void (*addCases)())
{
    const auto take = [&](const char* szOption)
    {
        char** const ppEnd = std::remove_if(ppArguments + 1, ppArguments + nArguments,
                                            [=](const char* szArgument) { return std::strcmp(szArgument, szOption) == 0; });
        const bool bTaken = ppEnd != ppArguments + nArguments;
        nArguments = static_cast<int>(ppEnd - ppArguments);
        return bTaken;
    };
    g_Effort = take("--quick") ? c_QuickEffort : c_FullEffort;
    const bool bCount = take("--count");
    const bool bBytes = take("--bytes");
    benchmark::Initialize(&nArguments, ppArguments);
    if (benchmark::ReportUnrecognizedArguments(nArguments, ppArguments))
    {
        return 2;
    }
    addCases();
    if (bCount || bBytes)
    {
        bCount ? Count() : PrintBytes();
        return 0;
    }
    CTable table;
    benchmark::RunSpecifiedBenchmarks(&table);
    benchmark::Shutdown();
    return 0;
}
