// What C libraries for small systems get wrong, and what stands on it here. SYSTEM_LIBRARY says which one the tests are meant to
// run with: "sound" or "unpatched", uClibc-ng as it is without toolchains/uclibc-waits.patch.
#include "Runtime/Locks.h"

#include "Support/InChild.h"
#include "Support/Interruptions.h"
#include "Support/SystemLibrary.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

namespace
{

bool IsMeantToBe(const char* szKind)
{
    const char* szMeant = std::getenv("SYSTEM_LIBRARY");
    return szMeant != nullptr && std::string(szMeant) == szKind;
}

// How many waits failed, by what they print.
int Failures(const std::string& strPrinted)
{
    int nFailures = 0;
    for (std::size_t unAt = 0; (unAt = strPrinted.find("sem_wait returned: ", unAt)) != std::string::npos; ++unAt)
    {
        ++nFailures;
    }
    return nFailures;
}

// Two threads wait as often as a third posts.
void WaitTogether(CSema& sema, int nWaitsEach)
{
    const auto wait = [&]
    {
        for (int nWait = 0; nWait < nWaitsEach; ++nWait)
        {
            sema.Wait();
        }
    };
    std::thread one(wait);
    std::thread other(wait);
    for (int nPost = 0; nPost < 2 * nWaitsEach; ++nPost)
    {
        sema.Post();
    }
    one.join();
    other.join();
}

struct stNeedsTwoTries
{
    explicit stNeedsTwoTries(int& nTries)
    {
        if (++nTries < 2)
        {
            throw std::runtime_error("the first time");
        }
    }
};

} // namespace

TEST(SystemLibrary, IsTheOneThatIsMeant)
{
    if (std::getenv("SYSTEM_LIBRARY") == nullptr)
    {
        GTEST_SKIP() << "any is";
    }
    EXPECT_EQ(IsMeantToBe("unpatched") ? -ETIMEDOUT : ETIMEDOUT, Support::ErrorOfLateWait());
}

// In as many rounds as it takes until one failed, where waits fail by themselves.
TEST(SystemLibrary, WaitThatFailsByItselfTakesNothing)
{
    constexpr int c_nWaitsEach = 10000;
    const int nRounds = IsMeantToBe("unpatched") ? 40 : 2;
    int nFailures = 0;
    for (int nRound = 0; nRound < nRounds && nFailures == 0; ++nRound)
    {
        CSema sema("contended");
        testing::internal::CaptureStdout();
        WaitTogether(sema, c_nWaitsEach);
        nFailures = Failures(testing::internal::GetCapturedStdout());
        testing::internal::CaptureStdout();
        for (int nLeft = 0; nLeft < nFailures; ++nLeft)
        {
            sema.Wait();
        }
        EXPECT_EQ(0, Failures(testing::internal::GetCapturedStdout())) << "what a failed wait left is there";
        const Support::CInterruptions interruptions; // only a wait that blocks is interrupted
        testing::internal::CaptureStdout();
        sema.Wait();
        EXPECT_EQ(1, Failures(testing::internal::GetCapturedStdout())) << "and no more than that";
    }
    EXPECT_TRUE(nFailures == 0 || IsMeantToBe("unpatched")) << nFailures;
    std::printf("%d waits failed by themselves\n", nFailures);
}

// With call_once the next caller would wait for ever on some; the library has only statics of functions.
TEST(SystemLibrary, StaticOfAFunctionThatThrewIsMadeTheNextTime)
{
    const auto makeThreeTimes = []
    {
        int nTries = 0;
        int nThrown = 0;
        for (int nTime = 0; nTime < 3; ++nTime)
        {
            try
            {
                static const stNeedsTwoTries s_Made(nTries);
            }
            catch (const std::runtime_error&)
            {
                ++nThrown;
            }
        }
        return 10 * nTries + nThrown;
    };
    EXPECT_EQ(21, Support::InChild(makeThreeTimes)); // where nothing is made yet
}
