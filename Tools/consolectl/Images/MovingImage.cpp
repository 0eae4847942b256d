#include "Images/MovingImage.h"

#include "Terminal/Common.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>

namespace
{

constexpr long c_lSwingMilliseconds = 1500; // a moving fader's way up, or down
const int c_nMicFader = canCommonParamTypesTable[enCommonFader][enMicInput];

} // namespace

void CMovingImage::Fill(unsigned int unSeed)
{
    std::mt19937 random(unSeed);
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    BuildMCUpdate(m_Image, enMCUpdateAll, *pMessage);
    for (int nType = enRotary; nType < c_nMessageTypes; ++nType)
    {
        const void* pBlock = nullptr;
        long lBytes = 0;
        const CBMAContainer& image = m_Image;
        image.GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pBlock, lBytes);
        unsigned char* pArray = pMessage->PrepareArray(static_cast<tagenPPCMessageType>(nType), static_cast<int>(lBytes));
        // Small exponents, so that any four bytes make a tame float. The last byte may reach past the last parameter.
        std::generate(pArray, pArray + lBytes - 1, [&] { return static_cast<unsigned char>(random() & 0x3f); });
    }
    ApplyMCUpdate(*pMessage, m_Image);
    for (int nPath = 0; nPath < canMaxPaths[enMicInput]; ++nPath)
    {
        RyGConsoleString strName(Format("Mic%d", nPath + 1));
        m_Image.SetPPC(enString, enMicInput, nPath, canCommonParamTypesTable[enCommonName][enMicInput], strName, false, false);
        m_Image.SetPPC(enFader, enMicInput, nPath, c_nMicFader, -60.0f, false, false);
    }
}

void CMovingImage::Move(double dSeconds, int nMovingFaders)
{
    for (int nPath = 0; nPath < nMovingFaders; ++nPath)
    {
        const long lPhase =
            static_cast<long>((static_cast<std::int64_t>(dSeconds * 1000) + nPath * 100) % (2 * c_lSwingMilliseconds));
        const double dSwing = static_cast<double>(std::min(lPhase, 2 * c_lSwingMilliseconds - lPhase)) / c_lSwingMilliseconds;
        if (m_TakenOver.count(nPath) == 0)
        {
            m_Image.SetPPC(enFader, enMicInput, nPath, c_nMicFader, static_cast<float>(-60 + 60 * dSwing), false, false);
        }
        m_Image.SetPPC(enMeter, enMicInput, nPath, 0, static_cast<unsigned char>(255 * dSwing), false, false);
    }
}

void CMovingImage::ClientSets(const stPPCAddress& address)
{
    if (address.enType == enFader && address.enPathType == enMicInput && address.nParam == c_nMicFader)
    {
        m_TakenOver.insert(address.nPath);
    }
}
