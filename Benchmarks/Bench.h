// A case of the benchmarks: our operation beside the limit that it chases, measured in turns.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// How the two make a ratio. A cost is ours / limit, and better when it is less; a gain is limit / ours, and better when it is
// more. Of losses both are how many were lost, of all rounds; the goal is none.
enum enRatios : int
{
    enCost,
    enGain,
    enLoss
};

// What is measured.
enum enQuantities : int
{
    enSeconds,
    enBytes
};

// One line of the table. A goal of 0 is none. The name is that of the benchmark as well, so that a filter finds it.
struct stCase
{
    std::string strName;
    const char* szLimit;
    enRatios enRatio;
    double dGood;
    double dExtreme;
    enQuantities enQuantity = enSeconds;
};

// What is measured: each call does nOperations of the kind that the case is about, on data that the two share or that is alike.
struct stSides
{
    std::function<void()> ours;
    std::function<void()> limit;
    int nOperations;
};

// Both sides of one round, in seconds an operation, or bytes, or how many, measured by the case itself.
struct stRound
{
    double dOurs;
    double dLimit;
};

// A round of two measurements, one after the other: in every other round ours is first.
stRound InEitherOrder(const std::function<double()>& ours, const std::function<double()>& limit);

// Cases are made when they run, and what they hold is freed when they have run. A measured case's argument is how much of a full
// round it is to do: 1, and less in a quick run. What it throws as a std::string is why it was skipped.
void AddCase(const stCase& entry, std::function<stSides()> make);
void AddMeasuredCase(const stCase& entry, std::function<std::function<stRound(double)>()> make);

// Work whose instructions are counted, and whose time is not measured.
struct stCounted
{
    std::function<void()> work;
    int nOperations;
};

void AddCount(const std::string& strName, std::function<stCounted()> make);

// All of a program that measures cases, which addCases adds.
//   PROGRAM [--quick] [--benchmark_filter=REGEX] [any other option of Google Benchmark]
//   PROGRAM --count    under callgrind: each case that can be counted once, and a dump of what it took; prints operations and name
//   PROGRAM --bytes    prints the bytes and the name of what is measured in bytes
int BenchMain(int nArguments, char** ppArguments, void (*addCases)());

// One of some numbers: that at a share of them in order, as 0.99; the middle one.
inline double Quantile(std::vector<double> numbers, double dShare)
{
    const auto middle = numbers.begin() + static_cast<std::ptrdiff_t>(dShare * static_cast<double>(numbers.size() - 1));
    std::nth_element(numbers.begin(), middle, numbers.end());
    return *middle;
}

inline double Median(std::vector<double> numbers)
{
    return Quantile(std::move(numbers), 0.5);
}

// Each file of cases adds its own.
void AddMemoryCases();
void AddObjectCases();
void AddParameterCases();
void AddRecordCases();
void AddReportCases();
void AddUpdateCases();
