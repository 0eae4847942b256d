// How cost grows: with followers, with records in a datagram, with the parameters that a mask lets through. Three tables, tab
// separated, for growth.gnuplot.
//   bench_growth FOLDER
#include "Bench.h"
#include "Datagrams.h"
#include "Followers.h"
#include "Masks.h"

#include "LogicalControls.h"

#include <benchmark/benchmark.h>

#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr int c_nRepetitions = 41;

double SecondsOf(const std::function<void()>& work)
{
    const tClock::time_point start = tClock::now();
    work();
    return std::chrono::duration<double>(tClock::now() - start).count();
}

// ---- Records in a datagram

constexpr int c_nMostRecords = 2240;
constexpr int c_nPathParams = 280; // rotaries of a mic input
constexpr int c_nPaths = 144;

// A handler that sends to a plain socket, and what reads there.
class CRecordRoad
{
public:
    CRecordRoad() : m_pHandler(new CClientMsgHandler(false)), m_Buffer(c_nMaxDatagram), m_Values(c_nPaths * c_nPathParams)
    {
        if (!m_pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr))
        {
            throw std::string("no socket can be had");
        }
        m_pHandler->SetRemoteAddress("127.0.0.1", 0, static_cast<int>(m_Socket.Port()));
    }

    // Adds the seconds that so many records in one datagram take on both sides.
    void Travel(int nRecords, double& dSend, double& dRead)
    {
        for (int nRecord = 0; nRecord < nRecords; ++nRecord)
        {
            m_pHandler->QueuePPC(enRotary, enMicInput, nRecord / c_nPathParams, nRecord % c_nPathParams, 0.5f);
        }
        dSend += SecondsOf([&] { m_pHandler->SendAll(); });
        int nRead = 0;
        dRead += SecondsOf([&] { nRead = Receive(); });
        if (nRead != nRecords)
        {
            throw std::string("not all records of a datagram came");
        }
    }

private:
    int Receive()
    {
        const ssize_t nBytes = recv(m_Socket.Descriptor(), m_Buffer.data(), m_Buffer.size(), 0);
        CPPCStreamReader reader(m_Buffer.data() + c_nDatagramHeader, std::max<long>(nBytes - c_nDatagramHeader, 0));
        int nRead = 0;
        while (reader.Next())
        {
            const stPPCAddress address = reader.Address();
            float fValue = 0;
            if (reader.GetValue(fValue) && address.nPath < c_nPaths && address.nParam < c_nPathParams)
            {
                m_Values[static_cast<std::size_t>(address.nPath * c_nPathParams + address.nParam)] = fValue;
                ++nRead;
            }
        }
        benchmark::ClobberMemory();
        return nRead;
    }

    CPlainSocket m_Socket;
    const std::unique_ptr<CClientMsgHandler> m_pHandler;
    tBytes m_Buffer;
    std::vector<float> m_Values;
};

struct stRecordTimes
{
    int nRecords;
    std::vector<double> sends;
    std::vector<double> reads;
};

void MeasureRecords(std::FILE* pTable)
{
    std::vector<stRecordTimes> kinds;
    for (int nRecords = 1; nRecords < c_nMostRecords; nRecords *= 2)
    {
        kinds.push_back({nRecords, {}, {}});
    }
    kinds.push_back({c_nMostRecords, {}, {}});
    CRecordRoad road;
    for (int nRepetition = 0; nRepetition < c_nRepetitions; ++nRepetition)
    {
        for (stRecordTimes& kind : kinds)
        {
            const int nDatagrams = std::clamp(2 * c_nMostRecords / kind.nRecords, 4, 256);
            double dSend = 0;
            double dRead = 0;
            for (int nDatagram = 0; nDatagram < nDatagrams; ++nDatagram)
            {
                road.Travel(kind.nRecords, dSend, dRead);
            }
            kind.sends.push_back(dSend / nDatagrams / kind.nRecords);
            kind.reads.push_back(dRead / nDatagrams / kind.nRecords);
        }
    }
    std::fprintf(pTable, "records\tsend_ns\tread_ns\n");
    for (const stRecordTimes& kind : kinds)
    {
        std::fprintf(pTable, "%d\t%.1f\t%.1f\n", kind.nRecords, 1e9 * Median(kind.sends), 1e9 * Median(kind.reads));
    }
}

// ---- Masks

constexpr unsigned int c_aunPercents[] = {0, 1, 2, 5, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
constexpr int c_nImports = 50; // in a row, a side

struct stMaskTimes
{
    unsigned int unPercent;
    std::function<void()> aImports[2]; // at random, by whole paths
    std::vector<double> aTimes[2];
    std::vector<double> aRatios[2];
};

void MeasureMasks(std::FILE* pTable)
{
    std::vector<stMaskTimes> kinds;
    for (const unsigned int unPercent : c_aunPercents)
    {
        tImage pDestination;
        kinds.push_back(
            {unPercent, {ScopedImport({unPercent, false}, pDestination), ScopedImport({unPercent, true}, pDestination)}, {}, {}});
    }
    const std::function<void()> copy = CopyOf(SizesOf(MovedBlocks()));
    const auto measure = [](const std::function<void()>& work)
    {
        work(); // what the other side pushed out of the caches comes back
        const auto works = [&]
        {
            for (int nTime = 0; nTime < c_nImports; ++nTime)
            {
                work();
            }
        };
        return SecondsOf(works) / c_nImports;
    };
    for (int nRepetition = 0; nRepetition < c_nRepetitions; ++nRepetition)
    {
        for (stMaskTimes& kind : kinds)
        {
            for (int nShape = 0; nShape < 2; ++nShape)
            {
                const double dImport = measure(kind.aImports[nShape]);
                kind.aTimes[nShape].push_back(dImport);
                kind.aRatios[nShape].push_back(dImport / measure(copy));
            }
        }
    }
    std::fprintf(pTable, "percent\trandom_us\trandom_ratio\tpaths_us\tpaths_ratio\n");
    for (const stMaskTimes& kind : kinds)
    {
        std::fprintf(pTable, "%u\t%.2f\t%.3f\t%.2f\t%.3f\n", kind.unPercent, 1e6 * Median(kind.aTimes[0]), Median(kind.aRatios[0]),
                     1e6 * Median(kind.aTimes[1]), Median(kind.aRatios[1]));
    }
}

void Write(const std::string& strPath, void (*measure)(std::FILE*))
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pTable(std::fopen(strPath.c_str(), "w"), std::fclose);
    if (pTable == nullptr)
    {
        throw "can't write " + strPath;
    }
    measure(pTable.get());
}

} // namespace

int main(int nArguments, char** ppArguments)
{
    if (nArguments != 2)
    {
        std::fprintf(stderr, "usage: bench_growth FOLDER\n");
        return 2;
    }
    try
    {
        const std::string strFolder = ppArguments[1];
        Write(strFolder + "/followers.tsv", MeasureFollowers); // forks: before there are threads
        Write(strFolder + "/records.tsv", MeasureRecords);
        Write(strFolder + "/masks.tsv", MeasureMasks);
    }
    catch (const std::string& strReason)
    {
        std::fprintf(stderr, "bench_growth: %s\n", strReason.c_str());
        return 1;
    }
    return 0;
}
