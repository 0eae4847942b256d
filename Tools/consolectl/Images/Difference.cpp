#include "Images/Difference.h"

#include <algorithm>
#include <cstring>

namespace
{

constexpr int c_nAtOnce = 64; // elements, whole bytes of bits too

int BitsOf(tagenPPCMessageType enType)
{
    return enType == enSwitch ? 1 : enType == enMeter ? 8 : enType == enString ? 8 * int(RyGConsoleString::enSize) : 32;
}

const unsigned char* BlockOf(const CBMAContainer& image, tagenPPCMessageType enType)
{
    const void* pBlock = nullptr;
    long lBytes = 0;
    image.GetMessageMemory(enType, pBlock, lBytes);
    return static_cast<const unsigned char*>(pBlock);
}

bool SameElement(const unsigned char* pA, const unsigned char* pB, int nElement, int nBits)
{
    const int nByte = nElement * nBits / 8;
    return nBits == 1 ? ((pA[nByte] ^ pB[nByte]) >> (nElement % 8) & 1) == 0
                      : std::memcmp(pA + nByte, pB + nByte, static_cast<std::size_t>(nBits / 8)) == 0;
}

} // namespace

std::vector<stAddress> FindDifferences(const CBMAContainer& a, const CBMAContainer& b, unsigned int unTypes)
{
    std::vector<stAddress> different;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        const unsigned char* const pA = BlockOf(a, enType);
        const unsigned char* const pB = BlockOf(b, enType);
        const int nBits = BitsOf(enType);
        for (int nFirst = 0; nFirst < canParameterCounts[nType] && (unTypes & 1u << nType) != 0; nFirst += c_nAtOnce)
        {
            const int nEnd = std::min(nFirst + c_nAtOnce, canParameterCounts[nType]);
            const int nByte = nFirst * nBits / 8;
            if (std::memcmp(pA + nByte, pB + nByte, static_cast<std::size_t>(((nEnd - nFirst) * nBits + 7) / 8)) == 0)
            {
                continue;
            }
            for (int nElement = nFirst; nElement < nEnd; ++nElement)
            {
                if (!SameElement(pA, pB, nElement, nBits))
                {
                    different.push_back(AddressAt(enType, nElement));
                }
            }
        }
    }
    return different;
}
