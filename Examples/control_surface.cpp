// A small control surface: the names and faders of eight mic inputs as the MC has them, then each fader moved to -10 dB.
#include "LogicalControls.h"

#include <cstdio>
#include <memory>
#include <thread>

namespace
{

constexpr int c_nStrips = 8;
constexpr float c_fLevel = -10.0f;

float Level(const CBMAContainer& image, int nPath)
{
    float fLevel = 0;
    image.GetPPC(enFader, enMicInput, nPath, canCommonParamTypesTable[enCommonFader][enMicInput], fLevel);
    return fLevel;
}

void Print(const CBMAContainer& image)
{
    for (int nPath = 0; nPath < c_nStrips; ++nPath)
    {
        RyGConsoleString strName;
        image.GetPPC(enString, enMicInput, nPath, canCommonParamTypesTable[enCommonName][enMicInput], strName);
        std::printf("%s%s %.1f", nPath == 0 ? "" : " | ", strName.Text().c_str(), static_cast<double>(Level(image, nPath)));
    }
    std::printf("\n");
}

// Takes updates until the condition holds: the application's loop. False after five seconds.
template <class Condition>
bool RunUntil(CImageFollower& follower, Condition condition)
{
    for (int nRound = 0; nRound < 500 && !condition(); ++nRound)
    {
        follower.UpdateBMA();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

} // namespace

int main()
{
    const auto image = std::make_unique<CBMAContainer>();
    const auto follower = std::make_unique<CImageFollower>(*image);
    follower->SetRemoteAddress("225.0.0.45", 0, 7050); // where the MC takes changes
    follower->InitialiseClient(7060, nullptr, "225.0.0.46", nullptr);
    follower->StartPPCSender(10); // every 10 ms, what is queued goes out in one datagram

    const bool whole = RunUntil(*follower, [&] { return follower->GetTypesReceived() == c_unWholeImage; });
    Print(*image);
    for (int nPath = 0; whole && nPath < c_nStrips; ++nPath)
    {
        follower->QueuePPC(enFader, enMicInput, nPath, canCommonParamTypesTable[enCommonFader][enMicInput], c_fLevel);
    }
    const bool moved = RunUntil(*follower,
                                [&]
                                {
                                    bool all = whole;
                                    for (int nPath = 0; nPath < c_nStrips; ++nPath)
                                    {
                                        all = all && Level(*image, nPath) == c_fLevel;
                                    }
                                    return all;
                                });
    Print(*image);
    return moved ? 0 : 1;
}
