// Containers and handlers as objects: made, destroyed, and the memory that they stand in.
#include "Bench.h"
#include "Datagrams.h"
#include "Handlers.h"

#include "LogicalControls.h"

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace
{

// Values, side floats and the flags of four scopes.
constexpr double c_dImageBytes = 801523;
// What waits for the rest of its message, and the two updates that the application may look at.
constexpr double c_dHandlerBytes = 50 * 65000 + 2 * 302188;

double ResidentBytes()
{
    long lKilobytes = 0;
    std::ifstream file("/proc/self/smaps_rollup");
    for (std::string strWord; file >> strWord;)
    {
        if (strWord == "Rss:")
        {
            file >> lKilobytes;
            break;
        }
    }
    return static_cast<double>(lKilobytes) * 1024;
}

// How much more is resident for each of some objects, in a process of their own.
template <class Make>
double ResidentFor(Make make)
{
    constexpr int c_nObjects = 8;
    int anPipe[2];
    if (pipe(anPipe) != 0)
    {
        throw std::string("no pipe can be had");
    }
    const pid_t nChild = fork();
    if (nChild == 0)
    {
        malloc_trim(0); // what is free comes with its pages
        const double dBefore = ResidentBytes();
        std::vector<decltype(make())> objects;
        for (int nObject = 0; nObject < c_nObjects; ++nObject)
        {
            objects.push_back(make());
        }
        const double dEach = (ResidentBytes() - dBefore) / c_nObjects;
        _exit(write(anPipe[1], &dEach, sizeof dEach) == sizeof dEach ? 0 : 1);
    }
    close(anPipe[1]);
    double dEach = 0;
    const bool bTold = read(anPipe[0], &dEach, sizeof dEach) == sizeof dEach;
    close(anPipe[0]);
    if (nChild > 0)
    {
        waitpid(nChild, nullptr, 0);
    }
    if (!bTold)
    {
        throw std::string("no process can be had");
    }
    return dEach;
}

// At work for as long as it takes until it uses all of the memory that it ever uses.
std::unique_ptr<CFedHandler> UsedHandler(CFragments& rotary, CFragments& surface)
{
    auto pHandler = std::make_unique<CFedHandler>();
    for (std::uint32_t unUpdate = 1; unUpdate <= 60; ++unUpdate)
    {
        CFragments& fragments = unUpdate % 2 != 0 ? rotary : surface;
        fragments.SetId(unUpdate);
        pHandler->Take(fragments, true);
    }
    return pHandler;
}

double ResidentForHandler()
{
    const tImage pImage = RandomImage(3);
    const tBytes rotary = SerialisedUpdate(*pImage, enMCUpdateRotary);
    const tBytes surface = SerialisedUpdate(*pImage, enMCUpdateSurface);
    CFragments rotaryFragments(rotary.data(), static_cast<long>(rotary.size()));
    CFragments surfaceFragments(surface.data(), static_cast<long>(surface.size()));
    return ResidentFor([&] { return UsedHandler(rotaryFragments, surfaceFragments); });
}

// An object beside its bytes: taken from the system, written once, given back.
template <class Object>
void AddLifeCase(const stCase& entry, double dBytes)
{
    AddCase(entry,
            [=]
            {
                const std::size_t unBytes = static_cast<std::size_t>(dBytes);
                return stSides{[] { std::make_unique<Object>(); },
                               [=]
                               {
                                   void* volatile pBytes = std::malloc(unBytes); // volatile: it is not left out
                                   std::memset(pBytes, 0, unBytes);
                                   benchmark::ClobberMemory();
                                   std::free(pBytes);
                               },
                               1};
            });
}

void AddMemoryCase(const stCase& entry, double dLimit, double (*measure)())
{
    AddMeasuredCase(entry, [=] { return [=](double) { return stRound{measure(), dLimit}; }; });
}

} // namespace

void AddObjectCases()
{
    AddMemoryCase({"container, resident", "what an image must hold", enCost, 0, 1.1, enBytes}, c_dImageBytes,
                  [] { return ResidentFor([] { return std::make_unique<CBMAContainer>(); }); });
    AddMemoryCase({"handler, resident", "50 fragments, two updates", enCost, 0, 1.1, enBytes}, c_dHandlerBytes, ResidentForHandler);
    AddLifeCase<CBMAContainer>({"container made and destroyed", "its bytes zeroed", enCost, 0, 0}, c_dImageBytes);
    AddLifeCase<CFedHandler>({"handler made and destroyed", "its bytes zeroed", enCost, 0, 0}, c_dHandlerBytes);
}
