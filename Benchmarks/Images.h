// Images of random values, the same for the same seed, and updates of them.
#pragma once

#include "LogicalControls.h"

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

typedef std::shared_ptr<CBMAContainer> tImage;
typedef std::vector<unsigned char> tBytes;

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

// An update as it is sent: a rotary one has 302,188 bytes, a surface one 106,449.
inline tBytes SerialisedUpdate(const CBMAContainer& image, MCUpdateType enType)
{
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    BuildMCUpdate(image, enType, *pMessage);
    tBytes bytes(static_cast<std::size_t>(pMessage->GetTotalSize()));
    unsigned char* pOut = bytes.data();
    *pMessage >> &pOut;
    return bytes;
}
