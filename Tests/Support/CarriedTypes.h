// Which message types an update carries, for the tests' models: written from the format.
#pragma once

#include <cstdint>

namespace Support
{

struct stCarriedTypes
{
    int nFirst;
    int nLast;
};

inline stCarriedTypes CarriedTypes(std::uint32_t unUpdateType)
{
    switch (unUpdateType)
    {
    case 1:
        return {2, 6};
    case 2:
        return {0, 1};
    case 4:
    case 8:
        return {2, 3};
    default:
        return {0, 6};
    }
}

} // namespace Support
