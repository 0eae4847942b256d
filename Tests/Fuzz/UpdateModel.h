// The models' own walk of an update message, written from its format.
#pragma once

#include "Input.h"
#include "Support/CarriedTypes.h"

#include <array>

namespace Fuzz
{

constexpr int c_nTypes = 7;

struct stArrayModel
{
    bool bSet = false;  // its length word was read and is not 0
    bool bHeld = false; // and all its bytes are there
    std::int32_t nLength = 0;
    std::size_t unOffset = 0; // of the bytes
};

struct stUpdateModel
{
    bool bValid = false;
    std::int32_t nUpdateType = 0;
    std::array<stArrayModel, c_nTypes> arrays;
};

inline Support::stCarriedTypes CarriedBy(std::int32_t nUpdateType)
{
    return Support::CarriedTypes(static_cast<std::uint32_t>(nUpdateType));
}

inline stUpdateModel WalkUpdate(const unsigned char* pBytes, std::size_t unSize)
{
    stUpdateModel model;
    if (unSize < 17 || LoadBig(pBytes) != 1 || LoadSigned(pBytes + 9) > 30)
    {
        return model;
    }
    model.nUpdateType = LoadSigned(pBytes + 9);
    model.bValid = true;
    std::size_t unAt = 17;
    const Support::stCarriedTypes carried = CarriedBy(model.nUpdateType);
    for (int nType = carried.nFirst; nType <= carried.nLast; ++nType)
    {
        const std::int32_t nLength = unSize - unAt >= 4 ? LoadSigned(pBytes + unAt) : 0;
        if (nLength == 0)
        {
            break; // the same zero is every later array's
        }
        stArrayModel& array = model.arrays[static_cast<std::size_t>(nType)];
        array.bSet = true;
        array.nLength = nLength;
        unAt += 4;
        array.unOffset = unAt;
        if (nLength > 0)
        {
            if (static_cast<std::size_t>(nLength) > unSize - unAt)
            {
                return stUpdateModel(); // runs past the end: nothing of it counts
            }
            array.bHeld = true;
            unAt += static_cast<std::size_t>(nLength);
        }
    }
    return model;
}

inline stUpdateModel WalkUpdate(const tBytes& bytes)
{
    return WalkUpdate(bytes.data(), bytes.size());
}

} // namespace Fuzz
