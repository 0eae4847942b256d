// A test rig of two clients: does a change of one come back from the MC to both, are their images equal, is anything lost?
#include "LogicalControls.h"

#include <cstdio>
#include <memory>
#include <thread>

struct stClient
{
    CBMAContainer image;
    CImageFollower follower{image};
    unsigned int Count(enReceiveCounter enCounter) const { return follower.GetStatistics().aunCount[enCounter]; }
    bool HasSettled() const { return follower.GetTypesReceived() == c_unWholeImage && Count(enCountStored) >= 60; }
    bool Has(float fWanted) const
    {
        float fLevel = 0;
        image.GetPPC(enFader, enMicInput, 143, 0, fLevel);
        return fLevel == fWanted;
    }
};

// Takes updates until the condition holds for both, five seconds at most, and prints whether it did.
template <class Condition>
bool Check(const char* szWhat, stClient& a, stClient& b, Condition condition)
{
    int nRounds = 500;
    for (; nRounds > 0 && !(condition(a) && condition(b)); --nRounds)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        a.follower.UpdateBMA();
        b.follower.UpdateBMA();
        a.image.UpdateXors();
        b.image.UpdateXors();
    }
    std::printf("%-16s %s\n", szWhat, nRounds > 0 ? "yes" : "NO");
    return nRounds > 0;
}

int main()
{
    const std::unique_ptr<stClient> a(new stClient), b(new stClient);
    a->follower.SetRemoteAddress("225.0.0.45", 0, 7050); // where the MC takes changes
    bool ok = a->follower.InitialiseClient(7060, nullptr, "225.0.0.46", nullptr) && a->follower.StartPPCSender(10) &&
              b->follower.InitialiseClient(7060, nullptr, "225.0.0.46", nullptr);
    ok = ok && Check("image whole", *a, *b, [](const stClient& c) { return c.HasSettled(); });
    const unsigned int unBefore = a->Count(enCountEvicted) + b->Count(enCountEvicted);
    const float fWanted = a->Has(-12.5f) ? -20.0f : -12.5f; // a change, whatever it was
    ok = ok && a->follower.QueuePPC(enFader, enMicInput, 143, 0, fWanted) &&
         Check("change is back", *a, *b, [&](const stClient& c) { return c.Has(fWanted); });
    for (tagenPPCMessageType enType : {enString, enRotary, enSwitch, enInteger, enFader, enOther, enMeter})
    {
        const auto isEqual = [&](const stClient& c) { return c.image.GetXorVal(enType) == a->image.GetXorVal(enType); };
        ok = ok && Check(caMessageTypeNames[enType], *a, *b, isEqual);
    }
    ok = ok && Check("300 fragments", *a, *b, [](const stClient& c) { return c.Count(enCountStored) >= 300; });
    const unsigned int unLost = a->Count(enCountEvicted) + b->Count(enCountEvicted) - unBefore;
    std::printf("%-16s %u\n", "lost", unLost);
    return ok && unLost == 0 ? 0 : 1;
}
