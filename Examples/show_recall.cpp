// Stores a show and recalls it with one channel safe. Two images in memory, no network: what moves is said by scope flags.
#include "LogicalControls.h"

#include <cstdio>
#include <memory>

namespace
{

constexpr int c_nFader = 0; // of a mic input

void SetLevels(CBMAContainer& image, float fFirst, float fSecond)
{
    image.SetPPC(enFader, enMicInput, 0, c_nFader, fFirst, false, false);
    image.SetPPC(enFader, enMicInput, 1, c_nFader, fSecond, false, false);
}

void Print(const char* szWhat, const CBMAContainer& image)
{
    float fFirst = 0;
    float fSecond = 0;
    image.GetPPC(enFader, enMicInput, 0, c_nFader, fFirst);
    image.GetPPC(enFader, enMicInput, 1, c_nFader, fSecond);
    std::printf("%-22s mic 1 at %5.1f dB, mic 2 at %5.1f dB\n", szWhat, static_cast<double>(fFirst), static_cast<double>(fSecond));
}

} // namespace

int main()
{
    const auto live = std::make_unique<CBMAContainer>();
    const auto show = std::make_unique<CBMAContainer>();

    // Both faders belong to the show: stored with it, and recalled. A set safe flag lets a parameter move.
    for (int nPath = 0; nPath < 2; ++nPath)
    {
        live->SetPPCStoreScope(enFader, enMicInput, nPath, c_nFader, 1);
        live->SetPPCRecallScope(enFader, enMicInput, nPath, c_nFader, 1);
        live->SetPPCSafeScope(enFader, enMicInput, nPath, c_nFader, 1);
    }
    SetLevels(*live, -6.0f, -12.0f);
    live->ExportScopedParameters(*show, true, true, nullptr);
    Print("stored", *show);

    SetLevels(*live, -40.0f, -40.0f);
    Print("moved", *live);

    live->SetPPCSafeScope(enFader, enMicInput, 1, c_nFader, 0); // mic 2 stays as it is
    live->ImportScopedParameters(*show, true, true);
    Print("recalled, mic 2 safe", *live);
}
