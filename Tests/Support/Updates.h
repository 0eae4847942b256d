// Updates of a whole image's blocks, as they travel.
#pragma once

#include "ClientComms/ImageSync.h"
#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <memory>

namespace Support
{

inline tBytes Update(const CBMAContainer& image, int nUpdateType)
{
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    EXPECT_TRUE(BuildMCUpdate(image, static_cast<MCUpdateType>(nUpdateType), *pMessage));
    tBytes bytes(static_cast<std::size_t>(pMessage->GetTotalSize()));
    unsigned char* pBytes = bytes.data();
    *pMessage >> &pBytes;
    return bytes;
}

// The datagrams of a message, cut at 64,980 bytes.
inline std::vector<tBytes> Datagrams(std::uint32_t unId, const tBytes& message)
{
    std::vector<tBytes> datagrams;
    const std::size_t unTotal = (message.size() + 64979) / 64980;
    for (std::size_t unNumber = 1; unNumber <= unTotal; ++unNumber)
    {
        const auto first = message.begin() + static_cast<std::ptrdiff_t>((unNumber - 1) * 64980);
        const auto last = unNumber == unTotal ? message.end() : first + 64980;
        datagrams.push_back(
            Datagram(0, unId, static_cast<std::uint32_t>(unNumber), static_cast<std::uint32_t>(unTotal), tBytes(first, last)));
    }
    return datagrams;
}

} // namespace Support
