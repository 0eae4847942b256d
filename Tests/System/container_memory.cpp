// Prints how many bytes of memory a container keeps.
#include "LogicalControls.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <vector>

namespace
{

long ResidentPages()
{
    long lAll = 0;
    long lResident = 0;
    std::ifstream("/proc/self/statm") >> lAll >> lResident;
    return lResident;
}

} // namespace

int main()
{
    constexpr std::size_t c_unWarm = 2; // until then an emulator translates
    constexpr std::size_t c_unCounted = 16;
    std::vector<std::unique_ptr<CBMAContainer>> containers;
    long lBefore = 0;
    while (containers.size() < c_unWarm + c_unCounted)
    {
        lBefore = containers.size() == c_unWarm ? ResidentPages() : lBefore;
        containers.push_back(std::make_unique<CBMAContainer>());
    }
    std::printf("%ld\n", (ResidentPages() - lBefore) * sysconf(_SC_PAGESIZE) / static_cast<long>(c_unCounted));
    return 0;
}
