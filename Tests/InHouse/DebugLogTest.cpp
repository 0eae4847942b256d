#include "RySocketIO/CUtility.h"

#include "Support/DebugLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace
{

using RySocketIO::CUtility;
typedef std::vector<std::string> tLines;

TEST(DebugLog, WithoutASinkALineGoesNowhere)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    CUtility::Debug("nobody %d", 1);
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(DebugLog, TheSinkGetsFinishedLinesInOrder)
{
    Support::CDebugLog log;
    CUtility::Debug("first");
    CUtility::Debug("%s %d (%u) %c %.1f 0x%x", "second", -7, 4294967295u, 'c', 0.5, 255u);
    CUtility::Debug("%s", "");
    EXPECT_EQ((tLines{"first", "second -7 (4294967295) c 0.5 0xff", ""}), log.Take());
}

TEST(DebugLog, APercentSignInAnArgumentIsText)
{
    Support::CDebugLog log;
    CUtility::Debug("%s 100%%", "%s%n%d");
    EXPECT_EQ(tLines{"%s%n%d 100%"}, log.Take());
}

TEST(DebugLog, ALineIsCutAt511Characters)
{
    Support::CDebugLog log;
    for (const std::size_t unLength : {510u, 511u, 512u, 100000u})
    {
        CUtility::Debug("%s", std::string(unLength, 'x').c_str());
        EXPECT_EQ(tLines{std::string(std::min<std::size_t>(unLength, 511), 'x')}, log.Take()) << unLength;
    }
}

TEST(DebugLog, ALongTextLosesItsEndNotItsStart)
{
    Support::CDebugLog log;
    CUtility::Debug("start %s end", std::string(600, '-').c_str());
    EXPECT_EQ(tLines{"start " + std::string(505, '-')}, log.Take());
}

TEST(DebugLog, OnlyTheSinkSetLastIsCalled)
{
    struct stCount
    {
        static void Write(void* pContext, const char*) { ++*static_cast<int*>(pContext); }
    };
    int anCalls[2] = {0, 0};
    const RySocketIO::stDebugSink first = {&stCount::Write, &anCalls[0]};
    const RySocketIO::stDebugSink second = {&stCount::Write, &anCalls[1]};
    CUtility::SetDebugSink(&first);
    CUtility::Debug("one");
    CUtility::SetDebugSink(&second);
    CUtility::Debug("two");
    CUtility::Debug("three");
    CUtility::SetDebugSink(nullptr);
    CUtility::Debug("four");
    EXPECT_EQ(1, anCalls[0]);
    EXPECT_EQ(2, anCalls[1]);
}

TEST(DebugLog, LinesOfSeveralThreadsStayWhole)
{
    Support::CDebugLog log;
    std::vector<std::thread> threads;
    tLines expected;
    for (int nThread = 0; nThread < 4; ++nThread)
    {
        const std::string strLine(400, static_cast<char>('a' + nThread));
        expected.insert(expected.end(), 500, strLine);
        threads.emplace_back(
            [strLine]
            {
                for (int n = 0; n < 500; ++n)
                {
                    CUtility::Debug("%s", strLine.c_str());
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    tLines lines = log.Take();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(expected, lines);
}

} // namespace
