#include "Limits.h"

#include "LogicalControls/ParameterModel.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace
{

constexpr int c_nRotaries = 65300;

float g_afValues[c_nRotaries];
unsigned char g_aucFlags[c_nRotaries / 8 + 1];

struct stLayout
{
    stLayout() : anFirst(), anPaths(), anParams()
    {
        for (int nPathType = 0, nFirst = 0; nPathType < c_nPathTypes; ++nPathType)
        {
            anFirst[nPathType] = nFirst;
            anPaths[nPathType] = canMaxPaths[nPathType];
            anParams[nPathType] = canMaxParams[nPathType * c_nMessageTypes + enRotary];
            nFirst += anPaths[nPathType] * anParams[nPathType];
        }
    }

    int anFirst[c_nPathTypes];
    int anPaths[c_nPathTypes];
    int anParams[c_nPathTypes];
};

const stLayout g_Layout;

int IndexOf(int nPathType, int nPath, int nParam)
{
    if (static_cast<unsigned int>(nPathType) >= static_cast<unsigned int>(c_nPathTypes) ||
        static_cast<unsigned int>(nPath) >= static_cast<unsigned int>(g_Layout.anPaths[nPathType]) ||
        static_cast<unsigned int>(nParam) >= static_cast<unsigned int>(g_Layout.anParams[nPathType]))
    {
        return -1;
    }
    return g_Layout.anFirst[nPathType] + nPath * g_Layout.anParams[nPathType] + nParam;
}

} // namespace

void stCheckedFloats::Store(int nPathType, int nPath, int nParam, float fValue)
{
    const int nIndex = IndexOf(nPathType, nPath, nParam);
    if (nIndex >= 0)
    {
        g_afValues[nIndex] = fValue;
        g_aucFlags[nIndex >> 3] = static_cast<unsigned char>(g_aucFlags[nIndex >> 3] & ~(1 << (nIndex & 7)));
    }
}

void stCheckedFloats::Read(int nPathType, int nPath, int nParam, float& fValue)
{
    const int nIndex = IndexOf(nPathType, nPath, nParam);
    if (nIndex >= 0)
    {
        fValue = g_afValues[nIndex];
    }
}

#if defined(__x86_64__) && !defined(__clang__) // which links no such functions of a shared library
__attribute__((target_clones("avx2", "default")))
#endif
void CopySwapped(unsigned char* pTo, const unsigned char* pFrom, std::size_t unBytes)
{
    const auto copy = [=](std::size_t unFirst, std::size_t unEnd)
    {
        for (std::size_t unByte = unFirst; unByte < unEnd; unByte += 4)
        {
            std::uint32_t unWord;
            std::memcpy(&unWord, pFrom + unByte, sizeof unWord);
            unWord = __builtin_bswap32(unWord);
            std::memcpy(pTo + unByte, &unWord, sizeof unWord);
        }
    };
    const std::size_t unToLine = std::min<std::size_t>(-reinterpret_cast<std::uintptr_t>(pTo) % 64, unBytes); // of the cache
    copy(0, unToLine);
    copy(unToLine, unBytes);
}
