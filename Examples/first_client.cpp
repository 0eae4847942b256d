// The smallest client: follows an MC for ten seconds and reads a fader.
#include "LogicalControls.h"

#include <cstdio>
#include <memory>
#include <thread>

int main()
{
    const auto image = std::make_unique<CBMAContainer>();
    const auto follower = std::make_unique<CImageFollower>(*image);
    follower->InitialiseClient(7060, nullptr, "225.0.0.46", nullptr);
    for (int i = 0; i < 1000; ++i)
    {
        follower->UpdateBMA(); // applies what has come, on this thread
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    float level = 0;
    image->GetPPC(enFader, enMicInput, 0, 0, level);
    std::printf("mic input 1 is at %.1f dB; the image is %s\n", double(level),
                follower->GetTypesReceived() == c_unWholeImage ? "whole" : "not whole");
}
