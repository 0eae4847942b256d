// For a build of the policies without backtrace, as on a C library that has none.
#include "Runtime/FailurePolicy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <string>

namespace
{

using testing::KilledBySignal;
using testing::MatchesRegex;

template <class Action>
std::string Printed(Action action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST(NoBacktrace, PrintsHeadingAndEndOfAStackOnly)
{
    EXPECT_EQ(Printed([] { EXPECT_EQ(AssertDoNothing().DoAction(), 0); }), "\n stack frame:\n");
}

TEST(NoBacktrace, PrintsNoLineWhateverTheFirstFrame)
{
    AssertDoNothing goOn;
    AssertFailStdErrAbort abort;
    for (const int nFirst : {INT_MIN, -1, 0, 3, INT_MAX})
    {
        EXPECT_EQ(Printed([&] { GetBackTrace(goOn, nFirst); }), "");
        EXPECT_EQ(Printed([&] { GetBackTrace(abort, nFirst); }), "");
    }
}

TEST(NoBacktrace, ReportsAsEver)
{
    AssertDoNothing policy;
    EXPECT_EQ(Printed([&] { policy.ReportWhat("ASSERT", "f", "a", 12, "x > 0", "m", 0); }),
              "ASSERT: x > 0 at: \n\tf,\n\ta:12\n user msg: m");
    EXPECT_EQ(Printed([&] { policy.ReportBackTraceLineInfo("program", nullptr); }), "\n  program, no information (try -rdynamic)");
    EXPECT_EQ(Printed([] { EXPECT_EQ(InfoOnFail().DoAction(), 0); }), "\n");
}

TEST(NoBacktraceDeathTest, AbortsBehindHeadingAndEnd)
{
    // An emulator adds a line of its own.
    EXPECT_EXIT(AssertFailStdErrAbort().DoAction(), KilledBySignal(SIGABRT), MatchesRegex("\n stack frame:\n(qemu: [^\n]*\n)?"));
}
