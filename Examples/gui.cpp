// A GUI in plain text: names, faders and meters of four mic inputs. Of each frame the lines that have changed are drawn.
#include "LogicalControls.h"

#include <cstdio>
#include <memory>
#include <string>
#include <thread>

constexpr int c_nFirstPath = 22; // mic inputs 23 to 26
constexpr int c_nStrips = 4;
constexpr int c_nFrames = 10;

std::string Line(const CBMAContainer& image, int nPath)
{
    RyGConsoleString strName;
    float fLevel = 0;
    unsigned char ucMeter = 0;
    image.GetPPC(enString, enMicInput, nPath, canCommonParamTypesTable[enCommonName][enMicInput], strName);
    image.GetPPC(enFader, enMicInput, nPath, canCommonParamTypesTable[enCommonFader][enMicInput], fLevel);
    image.GetPPC(enMeter, enMicInput, nPath, 0, ucMeter);
    char acLine[80];
    std::snprintf(acLine, sizeof acLine, "%-12s %6.1f dB  %s", strName.Text().c_str(), double(fLevel),
                  std::string(ucMeter / 16, '#').c_str());
    return acLine;
}

int main()
{
    const auto image = std::make_unique<CBMAContainer>();
    const auto follower = std::make_unique<CImageFollower>(*image);
    if (!follower->InitialiseClient(7060, nullptr, "225.0.0.46", nullptr))
    {
        std::fprintf(stderr, "gui: no network\n");
        return 1;
    }
    std::string astrDrawn[c_nStrips];
    int nFrames = 0;
    int nDrawn = 0;
    for (int nRound = 1; nRound <= 500 && nFrames < c_nFrames; ++nRound) // five seconds at most
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (follower->UpdateBMA() == CClientMsgHandler::enUpdateDecodeError)
        {
            follower->ClearReceiveErrors(); // a bad update costs itself, not those after it
        }
        const bool bFrame = nRound % 20 == 0 && follower->GetTypesReceived() == c_unWholeImage; // five times a second
        for (int nStrip = 0; bFrame && nStrip < c_nStrips; ++nStrip)
        {
            const std::string strLine = Line(*image, c_nFirstPath + nStrip);
            nDrawn += strLine != astrDrawn[nStrip] ? std::printf("%s\n", strLine.c_str()) > 0 : 0;
            astrDrawn[nStrip] = strLine;
        }
        nFrames += bFrame ? 1 : 0;
    }
    std::printf("%d of %d lines drawn\n", nDrawn, nFrames * c_nStrips); // 0 of 0: no MC
    return nFrames == c_nFrames ? 0 : 1;
}
