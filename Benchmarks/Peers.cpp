// The library beside others for general use that can do the same work. PEERS_OSC, PEERS_ENET and PEERS_DDS say which are there.
#include "Peers.h"

#include "Bench.h"
#include "Images.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace
{

typedef std::chrono::steady_clock tClock;

// ---- Rounds

double SecondsSince(tClock::time_point start)
{
    return std::chrono::duration<double>(tClock::now() - start).count();
}

// Until unCount have arrived. More than were sent would be wrong as well.
void Await(CLink& link, std::uint32_t unCount)
{
    const stArrivals& arrivals = link.Arrivals();
    const auto isMissing = [&] { return static_cast<std::int32_t>(unCount - arrivals.unCount) > 0; };
    for (const tClock::time_point start = tClock::now(); isMissing(); link.Wait())
    {
        if (tClock::now() - start > c_LongestWait)
        {
            throw std::to_string(unCount - arrivals.unCount) + " did not arrive";
        }
    }
}

void Check(const CLink& link, std::uint32_t unCount)
{
    if (link.Arrivals().unCount != unCount || !link.IsRight())
    {
        throw std::string("what arrived is not what was sent");
    }
}

// How many operations a round has and a quick one at least, how many go together, and how many may be under way: 0 when nobody
// receives.
struct stPlan
{
    int nOperations;
    int nLeast;
    int nTogether;
    int nWindow;
};

double SecondsFor(CLink& link, int nOperations, const stPlan& plan)
{
    const std::uint32_t unBefore = link.Arrivals().unCount;
    const tClock::time_point start = tClock::now();
    for (int nDone = 1; nDone <= nOperations; ++nDone)
    {
        link.Send();
        if (nDone % plan.nTogether == 0)
        {
            link.Flush();
            if (plan.nWindow > 0 && nDone > plan.nWindow - plan.nTogether)
            {
                Await(link, unBefore + static_cast<std::uint32_t>(nDone + plan.nTogether - plan.nWindow));
            }
        }
    }
    if (plan.nWindow > 0)
    {
        Await(link, unBefore + static_cast<std::uint32_t>(nOperations));
    }
    const double dSeconds = SecondsSince(start);
    if (plan.nWindow > 0)
    {
        Check(link, unBefore + static_cast<std::uint32_t>(nOperations));
    }
    return dSeconds / nOperations;
}

// One way: from before it is sent until it is ready, the receiver asleep.
double Latency(CLink& link)
{
    std::this_thread::sleep_for(std::chrono::microseconds(300));
    link.Wait();
    const std::uint32_t unNext = link.Arrivals().unCount + 1;
    const tClock::time_point start = tClock::now();
    link.Send();
    Await(link, unNext);
    return std::chrono::duration<double>(link.Arrivals().at - start).count();
}

typedef std::function<stRound(double)> tRounds;

tRounds Throughput(std::shared_ptr<CLink> pOurs, std::shared_ptr<CLink> pTheirs, const stPlan& plan)
{
    bool bOursFirst = false;
    return [=](double dShare) mutable
    {
        const int nWanted = std::max(static_cast<int>(plan.nOperations * dShare), plan.nLeast);
        const int nOperations = nWanted / plan.nLeast * plan.nLeast;
        bOursFirst = !bOursFirst;
        stRound round = {};
        for (const bool bOurs : {bOursFirst, !bOursFirst})
        {
            (bOurs ? round.dOurs : round.dLimit) = SecondsFor(bOurs ? *pOurs : *pTheirs, nOperations, plan);
        }
        return round;
    };
}

// One by one, in turns.
tRounds Latencies(std::shared_ptr<CLink> pOurs, std::shared_ptr<CLink> pTheirs, double dQuantile)
{
    return [=](double dShare)
    {
        const int nProbes = static_cast<int>(200 * dShare);
        const std::uint32_t unOurs = pOurs->Arrivals().unCount + static_cast<std::uint32_t>(nProbes);
        const std::uint32_t unTheirs = pTheirs->Arrivals().unCount + static_cast<std::uint32_t>(nProbes);
        std::vector<double> ours;
        std::vector<double> theirs;
        for (int nProbe = 0; nProbe < nProbes; ++nProbe)
        {
            ours.push_back(Latency(*pOurs));
            theirs.push_back(Latency(*pTheirs));
        }
        Check(*pOurs, unOurs);
        Check(*pTheirs, unTheirs);
        return stRound{Quantile(ours, dQuantile), Quantile(theirs, dQuantile)};
    };
}

// ---- Cases

constexpr const char* c_szOscPackages = "liblo-dev";
constexpr const char* c_szEnetPackages = "libenet-dev";
constexpr const char* c_szDdsPackages = "cyclonedds-dev and cyclonedds-tools";

[[noreturn, maybe_unused]] void Missing(const char* szPackages)
{
    throw std::string("without ") + szPackages + "; cmake/install-packages peers";
}

tLink Osc()
{
    if constexpr (!PEERS_OSC)
    {
        Missing(c_szOscPackages);
    }
    else
    {
        return OscChanges(c_nSingleParams);
    }
}

tLink Enet(const tBytes& update, enPacketSizes enSize)
{
    if constexpr (!PEERS_ENET)
    {
        Missing(c_szEnetPackages);
    }
    else
    {
        return EnetUpdates(update, enSize);
    }
}

tLink DdsOfChanges(int nParams, enDdsWays enWay)
{
    if constexpr (!PEERS_DDS)
    {
        Missing(c_szDdsPackages);
    }
    else
    {
        return DdsChanges(nParams, enWay);
    }
}

tLink DdsOfUpdates(const tBytes& update)
{
    if constexpr (!PEERS_DDS)
    {
        Missing(c_szDdsPackages);
    }
    else
    {
        return DdsUpdates(update);
    }
}

void AddPeerChangeCases()
{
    constexpr stPlan c_NobodyListens = {20 * c_nSingleParams, c_nSingleParams, 1, 0};
    constexpr stPlan c_Single = {20 * c_nSingleParams, 2 * c_nSingleParams, 1, c_nSingleParams};
    constexpr stPlan c_Packed = {8 * c_nPackedParams, 2 * c_nPackedParams, c_nPackedParams, 2 * c_nPackedParams};
    AddMeasuredCase({"one change sent, against OSC", "liblo, nobody listens", enGain, 1.15, 1.25},
                    [=] { return Throughput(OurSingleChanges(false), Osc(), c_NobodyListens); });
    const auto add = [=](const stCase& entry, enDdsWays enWay)
    { AddMeasuredCase(entry, [=] { return Throughput(OurSingleChanges(true), DdsOfChanges(c_nSingleParams, enWay), c_Single); }); };
    add({"one change sent, against DDS, reliable", "Cyclone DDS, reliable", enGain, 1.2, 1.4}, enReliable);
    add({"one change sent, against DDS, best effort", "Cyclone DDS, best effort", enGain, 1.2, 1.4}, enBestEffort);
    AddMeasuredCase({"changes packed, against DDS", "Cyclone DDS, best effort, batched", enGain, 0, 0},
                    [=] { return Throughput(OurPackedChanges(), DdsOfChanges(c_nPackedParams, enBatched), c_Packed); });
}

void AddUpdateCase(const stCase& entry, tLink (*makeTheirs)(const tBytes&),
                   const std::function<tRounds(std::shared_ptr<CLink>, std::shared_ptr<CLink>)>& rounds)
{
    AddMeasuredCase(entry,
                    [=]
                    {
                        const tBytes update = SerialisedUpdate(*RandomImage(3), enMCUpdateRotary);
                        return rounds(OurUpdates(update), makeTheirs(update));
                    });
}

tRounds ManyUpdates(std::shared_ptr<CLink> pOurs, std::shared_ptr<CLink> pTheirs)
{
    return Throughput(std::move(pOurs), std::move(pTheirs), {500, 20, 1, 3});
}

template <int nPercent>
tRounds OneUpdate(std::shared_ptr<CLink> pOurs, std::shared_ptr<CLink> pTheirs)
{
    return Latencies(std::move(pOurs), std::move(pTheirs), nPercent / 100.0);
}

void AddPeerUpdateCases()
{
    const auto usual = [](const tBytes& update) { return Enet(update, enUsualPackets); };
    const auto largest = [](const tBytes& update) { return Enet(update, enLargestPackets); };
    AddUpdateCase({"302,188 bytes again and again, DDS", "Cyclone DDS, reliable, tuned", enGain, 1.3, 1.8}, DdsOfUpdates,
                  ManyUpdates);
    AddUpdateCase({"302,188 bytes again and again, ENet", "ENet, reliable, as it comes", enGain, 8, 12}, usual, ManyUpdates);
    AddUpdateCase({"302,188 bytes again and again, ENet, largest", "ENet, reliable, largest packets", enGain, 0, 0}, largest,
                  ManyUpdates);
    AddUpdateCase({"302,188 bytes one way, DDS, p50", "Cyclone DDS, reliable, tuned", enCost, 0.65, 0.45}, DdsOfUpdates,
                  OneUpdate<50>);
    AddUpdateCase({"302,188 bytes one way, DDS, p99", "Cyclone DDS, reliable, tuned", enCost, 0.6, 0.35}, DdsOfUpdates,
                  OneUpdate<99>);
    AddUpdateCase({"302,188 bytes one way, ENet, p50", "ENet, reliable, largest packets", enCost, 0, 0}, largest, OneUpdate<50>);
}

} // namespace

int main(int nArguments, char** ppArguments)
{
    for (const auto& [bThere, szPackages] :
         {std::pair(PEERS_OSC != 0, c_szOscPackages), std::pair(PEERS_ENET != 0, c_szEnetPackages),
          std::pair(PEERS_DDS != 0, c_szDdsPackages)})
    {
        if (!bThere)
        {
            std::printf("bench_peers: without %s; cmake/install-packages peers installs all\n", szPackages);
        }
    }
    const bool bOwnNetwork = std::getenv("LOGICALCONTROLS_OWN_NETWORK") != nullptr;
    if (!bOwnNetwork)
    {
        std::printf("bench_peers: not in a network namespace of its own\n");
    }
    if (!bOwnNetwork || (!PEERS_OSC && !PEERS_ENET && !PEERS_DDS))
    {
        return 77;
    }
    const int nStatus = BenchMain(nArguments, ppArguments,
                                  []
                                  {
                                      AddPeerChangeCases();
                                      AddPeerUpdateCases();
                                  });
    std::printf(
        "What they do besides: ENet and DDS's reliable writers repeat what is lost, DDS finds the other end and checks types, and "
        "OSC takes any name.\nWhat ours does: it checks every address against the parameter model, and keeps a whole image "
        "with its flags. It repeats nothing;\nthe next update makes up for a lost one.\n");
    return nStatus;
}
