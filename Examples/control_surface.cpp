// A control surface: takes eight faders as the MC has them, moves each to -10 dB, and waits until the MC has them there.
#include "LogicalControls.h"

#include <cstdio>
#include <memory>
#include <thread>

constexpr int c_nStrips = 8;
constexpr float c_fLevel = -10.0f;

// Names and levels in a line; true when every level is the one that was asked for.
bool Print(const CBMAContainer& image)
{
    bool bMoved = true;
    for (int nPath = 0; nPath < c_nStrips; ++nPath)
    {
        RyGConsoleString strName;
        float fLevel = 0;
        image.GetPPC(enString, enMicInput, nPath, canCommonParamTypesTable[enCommonName][enMicInput], strName);
        image.GetPPC(enFader, enMicInput, nPath, canCommonParamTypesTable[enCommonFader][enMicInput], fLevel);
        std::printf("%s%s %.1f", nPath == 0 ? "" : " | ", strName.Text().c_str(), double(fLevel));
        bMoved = bMoved && fLevel == c_fLevel;
    }
    std::printf("\n");
    return bMoved;
}

int main()
{
    const auto image = std::make_unique<CBMAContainer>();
    const auto follower = std::make_unique<CImageFollower>(*image);
    follower->SetRemoteAddress("225.0.0.45", 0, 7050); // where the MC takes changes
    if (!follower->InitialiseClient(7060, nullptr, "225.0.0.46", nullptr) || !follower->StartPPCSender(10))
    {
        std::fprintf(stderr, "control_surface: no network\n");
        return 1;
    }
    bool bQueued = false; // what is, goes out every 10 ms in one datagram
    bool bMoved = false;
    for (int nRound = 0; nRound < 500 && !bMoved; ++nRound) // five seconds at most
    {
        if (follower->UpdateBMA() == CClientMsgHandler::enUpdateDecodeError)
        {
            follower->ClearReceiveErrors(); // a bad update costs itself, not those after it
        }
        if (nRound % 10 == 9 && follower->GetTypesReceived() == c_unWholeImage) // ten times a second
        {
            bMoved = Print(*image);
            for (int nPath = 0; !bQueued && nPath < c_nStrips; ++nPath)
            {
                follower->QueuePPC(enFader, enMicInput, nPath, canCommonParamTypesTable[enCommonFader][enMicInput], c_fLevel);
            }
            bQueued = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::puts(bMoved ? "all moved" : "no answer from an MC");
    return bMoved ? 0 : 1;
}
