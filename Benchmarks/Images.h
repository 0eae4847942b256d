// An image of random values, the same for the same seed.
#pragma once

#include "LogicalControls.h"

#include <algorithm>
#include <memory>
#include <random>

typedef std::shared_ptr<CBMAContainer> tImage;

inline tImage RandomImage(unsigned int unSeed)
{
    const tImage pImage = std::make_shared<CBMAContainer>();
    std::mt19937 random(unSeed);
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        void* pMemory = nullptr;
        long lBytes = 0;
        pImage->GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pMemory, lBytes);
        std::generate_n(static_cast<unsigned char*>(pMemory), lBytes, [&] { return static_cast<unsigned char>(random()); });
    }
    return pImage;
}
