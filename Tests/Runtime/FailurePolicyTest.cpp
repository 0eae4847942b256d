#include "Runtime/FailurePolicy.h"

#include "Support/Locales.h"
#include "Support/SystemCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <ios>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SKIP_UNDER_SANITIZERS(reason) GTEST_SKIP() << reason
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SKIP_UNDER_SANITIZERS(reason) GTEST_SKIP() << reason
#endif
#endif
#ifndef SKIP_UNDER_SANITIZERS
#define SKIP_UNDER_SANITIZERS(reason)
#endif

namespace
{

bool g_bFailKill = false;

} // namespace

// In place of the system's: a wrong number below 1 would mean many processes at once, and those are not this program's.
extern "C" int kill(pid_t nProcess, int nSignal) noexcept
{
    if (g_bFailKill || nProcess < 1)
    {
        errno = EPERM;
        return -1;
    }
    return static_cast<int>(syscall(SYS_kill, nProcess, nSignal));
}

namespace
{

using Support::CFailingCall;
using Support::CStack;
using Support::stFrame;
using testing::Contains;
using testing::EndsWith;
using testing::KilledBySignal;
using testing::MatchesRegex;

// Leaves standard error as it found it.
class FailurePolicy : public testing::Test
{
protected:
    FailurePolicy() : m_Before(nullptr) { m_Before.copyfmt(std::cerr); }
    ~FailurePolicy() override
    {
        std::cerr.clear();
        std::cerr.copyfmt(m_Before);
    }

private:
    std::ios m_Before;
};

typedef FailurePolicy FailurePolicyDeathTest;

template <class Action>
std::string Printed(Action action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

// The texts of a report, in the order of the arguments.
struct stTexts
{
    const char* aszText[5];
};

constexpr stTexts c_Texts = {{"ASSERT", "f", "a", "x > 0", "m"}};
const char* const c_szReport = "ASSERT: x > 0 at: \n\tf,\n\ta:12\n user msg: m";

std::string Reported(const stTexts& texts, unsigned int unLine = 12, int nUnused = 0)
{
    const char* const* p = texts.aszText;
    return Printed([&] { AssertDoNothing().ReportWhat(p[0], p[1], p[2], unLine, p[3], p[4], nUnused); });
}

std::string Symbol(int nFrame)
{
    return "frame" + std::to_string(nFrame);
}

// Frames frame0, frame1 and so on of the object "program"; those of a number in unknown are in none.
std::vector<stFrame> Frames(int nCount, const std::vector<int>& unknown = {})
{
    static std::string s_astrSymbol[100];
    std::vector<stFrame> frames;
    for (int nFrame = 0; nFrame < nCount; ++nFrame)
    {
        s_astrSymbol[nFrame] = Symbol(nFrame);
        const bool bKnown = std::find(unknown.begin(), unknown.end(), nFrame) == unknown.end();
        frames.push_back({bKnown, "program", s_astrSymbol[nFrame].c_str()});
    }
    return frames;
}

std::string Lines(int nFirst, int nEnd)
{
    std::string strLines;
    for (int nFrame = nFirst; nFrame < nEnd; ++nFrame)
    {
        strLines += "\n  program, " + Symbol(nFrame);
    }
    return strLines;
}

template <class Policy>
std::string BackTrace(const std::vector<stFrame>& frames, int nFirst)
{
    const CStack stack(frames);
    Policy policy;
    return Printed([&] { GetBackTrace(policy, nFirst); });
}

struct stNames
{
    const char* szObject;
    const char* szSymbol;
    const char* szLine;
};

// The whole text of a process that was killed: an emulator adds a line of its own.
auto Says(const std::string& strRegex)
{
    return MatchesRegex(strRegex + "(qemu: [^\n]*\n)?");
}

// Stands behind std::cerr and lets its text through at a flush only.
class CFlushes : public std::stringbuf
{
public:
    CFlushes() : m_pBefore(std::cerr.rdbuf(this)) { std::cerr << std::nounitbuf; }
    ~CFlushes() override { std::cerr.rdbuf(m_pBefore); }

    std::vector<std::string> m_Flushed;

protected:
    int sync() override
    {
        m_Flushed.push_back(str());
        str("");
        const std::string& strText = m_Flushed.back();
        return write(STDERR_FILENO, strText.data(), strText.size()) == static_cast<ssize_t>(strText.size()) ? 0 : -1;
    }

private:
    std::streambuf* m_pBefore;
};

// A process that does this and exits with its result; a hung one ends by itself.
class CChild
{
public:
    template <class Action>
    explicit CChild(Action action) : m_nProcess(fork()), m_bGone(m_nProcess < 0)
    {
        if (m_nProcess == 0)
        {
            alarm(30);
            _exit(action());
        }
    }
    ~CChild()
    {
        if (!m_bGone)
        {
            kill(m_nProcess, SIGKILL);
            waitpid(m_nProcess, nullptr, 0);
        }
    }
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;

    pid_t Id() const { return m_nProcess; }

    bool Stops()
    {
        const int nStatus = Wait();
        return WIFSTOPPED(nStatus) && WSTOPSIG(nStatus) == SIGSTOP;
    }

    // The exit code once it may go on, or -1.
    int GoesOnTo()
    {
        if (m_bGone || kill(m_nProcess, SIGCONT) != 0)
        {
            return -1;
        }
        const int nStatus = Wait();
        return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    }

private:
    int Wait()
    {
        int nStatus = 0;
        m_bGone = m_bGone || waitpid(m_nProcess, &nStatus, WUNTRACED) != m_nProcess || !WIFSTOPPED(nStatus);
        return nStatus;
    }

    pid_t m_nProcess;
    bool m_bGone; // kill would take its number for all processes
};

// Nothing is left for anyone; only for a process that ends soon.
void UseUpAllMemory()
{
    const rlimit none = {1, 1};
    setrlimit(RLIMIT_AS, &none);
    for (std::size_t unSize = 1 << 20; unSize > 0; unSize /= 2)
    {
        void* volatile pTaken = nullptr;
        do
        {
            pTaken = std::malloc(unSize);
        } while (pTaken != nullptr);
    }
}

// The system refuses to read a file name from where there is no memory.
bool IsReadable(const char* szText)
{
    return access(szText, F_OK) == 0 || errno != EFAULT;
}

template <class Policy>
void ExpectPlainPolicy()
{
    EXPECT_TRUE((std::is_convertible<Policy*, AssertFailStdErrBase*>::value));
    EXPECT_EQ(sizeof(Policy), sizeof(void*));
}

int Deep(int nCalls);
int (*volatile g_pDeep)(int) = &Deep;

// A pointer that may change keeps each call a frame of its own.
int Deep(int nCalls)
{
    return nCalls == 0 ? AssertDoNothing().DoAction() : g_pDeep(nCalls - 1) + 1;
}

} // namespace

TEST_F(FailurePolicy, ReportsLabelConditionFunctionFileAndLine)
{
    EXPECT_EQ(Reported({{"ASSERT", "f", "a", "x > 0", ""}}), "ASSERT: x > 0 at: \n\tf,\n\ta:12");
    EXPECT_EQ(Reported({{"ASSERT", "f", "a", "x > 0", nullptr}}), "ASSERT: x > 0 at: \n\tf,\n\ta:12");
    EXPECT_EQ(Reported({{"", "", "", "", ""}}, 0), ":  at: \n\t,\n\t:0");
}

TEST_F(FailurePolicy, ReportsTheUsersMessageBehindTheLine)
{
    EXPECT_EQ(Reported(c_Texts), c_szReport);
    EXPECT_EQ(Reported({{"l", "g(int)", "b", "c", "two\nlines "}}, 7), "l: c at: \n\tg(int),\n\tb:7\n user msg: two\nlines ");
}

TEST_F(FailurePolicy, ReportsThoughAnEarlierWriteHasFailed)
{
    std::cerr.setstate(std::ios::badbit);
    EXPECT_EQ(c_szReport, Reported(c_Texts));
}

TEST_F(FailurePolicy, ReportsTextsAsTheyAre)
{
    EXPECT_EQ(Reported({{"%s", "%n", "%d", "%5$s", "%"}}), "%s: %5$s at: \n\t%n,\n\t%d:12\n user msg: %");
    const std::string strLong(100000, 'x');
    const char* p = strLong.c_str();
    EXPECT_EQ(Reported({{p, p, p, p, p}}),
              strLong + ": " + strLong + " at: \n\t" + strLong + ",\n\t" + strLong + ":12\n user msg: " + strLong);
}

TEST_F(FailurePolicy, ReportsTheHighestLineAndIgnoresTheLastArgument)
{
    for (const int nUnused : {INT_MIN, -1, 1, INT_MAX})
    {
        EXPECT_EQ(Reported({{"l", "f", "a", "c", ""}}, UINT_MAX, nUnused), "l: c at: \n\tf,\n\ta:4294967295");
    }
}

TEST_F(FailurePolicy, LeavesStandardErrorInDecimal)
{
    for (const auto base : {std::hex, std::oct, std::dec})
    {
        std::cerr << base << std::showbase << std::uppercase;
        EXPECT_EQ(Reported(c_Texts), c_szReport);
        EXPECT_EQ(std::cerr.flags() & std::ios::basefield, std::ios::dec);
        EXPECT_EQ(Printed([] { std::cerr << 255; }), "255");
    }
}

TEST_F(FailurePolicy, ReportsPlainNumbersWhateverTheLocale)
{
    std::cerr.imbue(std::locale(std::locale::classic(), new Support::CEachDigitApart));
    EXPECT_EQ(Reported(c_Texts), c_szReport);
}

TEST_F(FailurePolicy, TakesANullTextForAnEmptyOne)
{
    for (std::size_t unText = 0; unText < 5; ++unText)
    {
        stTexts nullOne = c_Texts;
        stTexts emptyOne = c_Texts;
        nullOne.aszText[unText] = nullptr;
        emptyOne.aszText[unText] = "";
        EXPECT_EQ(Reported(nullOne), Reported(emptyOne)) << unText;
        EXPECT_TRUE(std::cerr.good()) << unText;
        EXPECT_EQ(Reported(c_Texts), c_szReport) << unText;
    }
    EXPECT_EQ(Reported(stTexts()), ":  at: \n\t,\n\t:12");
    EXPECT_TRUE(std::cerr.good());
}

TEST_F(FailurePolicy, TwoThreadsReportAtOnceAndNothingGetsLost)
{
    const auto report = []
    {
        for (int nReport = 0; nReport < 200; ++nReport)
        {
            AssertDoNothing().ReportWhat("ASSERT", "f", "a", 12, "x > 0", "m", 0);
        }
    };
    testing::internal::CaptureStderr();
    std::thread other(report);
    report();
    other.join();
    EXPECT_EQ(testing::internal::GetCapturedStderr().size(), 400 * std::strlen(c_szReport));
}

TEST_F(FailurePolicy, PrintsObjectAndSymbolOfAStackLine)
{
    const stNames aCases[] = {
        {"program", "main", "\n  program, main"},
        {"program", nullptr, "\n  program, no information (try -rdynamic)"},
        {nullptr, "main", "\n  unexpected null ptr, main"},
        {nullptr, nullptr, "\n  unexpected null ptr, no information (try -rdynamic)"},
        {"", "", "\n  , "},
        {"%s", "_ZN13CBMAContainer10UpdateXorsEv", "\n  %s, _ZN13CBMAContainer10UpdateXorsEv"},
    };
    for (const stNames& line : aCases)
    {
        EXPECT_EQ(Printed([&] { InfoOnFail().ReportBackTraceLineInfo(line.szObject, line.szSymbol); }), line.szLine);
        EXPECT_TRUE(std::cerr.good());
    }
}

TEST_F(FailurePolicy, FlushesEachLineOfAStackAndItsEnd)
{
    const CStack stack(Frames(5));
    const CFlushes flushes;
    EXPECT_EQ(Printed([] { AssertDoNothing().DoAction(); }), "\n stack frame:" + Lines(3, 5) + "\n");
    EXPECT_THAT(flushes.m_Flushed, Contains(EndsWith(Lines(3, 4))));
    EXPECT_THAT(flushes.m_Flushed, Contains(Lines(4, 5)));
    EXPECT_THAT(flushes.m_Flushed, Contains("\n"));
}

TEST_F(FailurePolicy, EndsTheReportLineAndFlushesForInformationOnly)
{
    const CFlushes flushes;
    EXPECT_EQ(Printed([] { EXPECT_EQ(InfoOnFail().DoAction(), 0); }), "\n");
}

TEST_F(FailurePolicy, PrintsTheCallersBehindItsOwnThreeFrames)
{
    for (int nFrames = 0; nFrames <= 25; ++nFrames)
    {
        const CStack stack(Frames(nFrames));
        EXPECT_EQ(Printed([] { EXPECT_EQ(AssertDoNothing().DoAction(), 0); }),
                  "\n stack frame:" + Lines(3, std::min(nFrames, 20)) + "\n")
            << nFrames;
    }
}

TEST_F(FailurePolicy, PrintsTheStackRightBehindTheReport)
{
    const CStack stack(Frames(4));
    AssertDoNothing policy;
    AssertFailStdErrBase& base = policy;
    testing::internal::CaptureStderr();
    base.ReportWhat("ASSERT", "f", "a", 12, "x > 0", "m", 0);
    base.DoAction();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c_szReport + std::string("\n stack frame:\n  program, frame3\n"));
}

TEST_F(FailurePolicy, StartsABackTraceAtTheFrameAskedFor)
{
    for (const int nFrames : {0, 2, 20, 25})
    {
        for (const int nFirst : {INT_MIN, -21, -1, 0, 1, 3, 19, 20, 21, INT_MAX})
        {
            const std::string strLines = Lines(std::max(nFirst, 0), std::min(nFrames, 20));
            EXPECT_EQ(BackTrace<AssertDoNothing>(Frames(nFrames), nFirst), strLines) << nFrames << " " << nFirst;
            EXPECT_EQ(BackTrace<AssertFailStdErrAbort>(Frames(nFrames), nFirst), strLines) << nFrames << " " << nFirst;
        }
    }
}

TEST_F(FailurePolicy, SkipsUnknownFramesAndReadsNoFurtherForThem)
{
    EXPECT_EQ(BackTrace<AssertDoNothing>(Frames(25, {0, 4, 5, 19}), 0), Lines(1, 4) + Lines(6, 19));
    EXPECT_EQ(BackTrace<AssertDoNothing>(Frames(3, {0, 1, 2}), 0), "");
    const CStack stack(Frames(6, {0, 1, 4}));
    EXPECT_EQ(Printed([] { AssertDoNothing().DoAction(); }), "\n stack frame:\n  program, frame3\n  program, frame5\n");
}

TEST_F(FailurePolicy, DemanglesSymbolsAndSaysWhatIsUnknown)
{
    const stNames aCases[] = {
        {"program", "_ZN13CBMAContainer10UpdateXorsEv", "\n  program, CBMAContainer::UpdateXors()"},
        {"program", "_ZlsRSoN17RouterDiagnostics8NodeTypeE", "\n  program, operator<<(std::ostream&, RouterDiagnostics::NodeType)"},
        {"program", "f", "\n  program, float"}, // the demangler takes the encoding of a type, too
        {"program", nullptr, "\n  program, no information (try -rdynamic)"},
        {nullptr, "_Z1fi", "\n  unexpected null ptr, f(int)"},
        {nullptr, nullptr, "\n  unexpected null ptr, no information (try -rdynamic)"},
    };
    for (const stNames& frame : aCases)
    {
        EXPECT_EQ(BackTrace<AssertDoNothing>({{true, frame.szObject, frame.szSymbol}}, 0), frame.szLine);
        EXPECT_TRUE(std::cerr.good());
    }
}

TEST_F(FailurePolicy, PrintsASymbolThatTheDemanglerRefusesAsItIs)
{
    const std::string strEndless = "_Z1f" + std::string(5000, 'P');
    for (const char* szSymbol : {"main", "", "_Z", "_ZN13CBMAContainer", "_Z1fi extra", "%s", strEndless.c_str()})
    {
        EXPECT_EQ(BackTrace<AssertDoNothing>({{true, "program", szSymbol}}, 0), "\n  program, " + std::string(szSymbol));
    }
}

TEST_F(FailurePolicy, PrintsTheStackItIsCalledOn)
{
    Dl_info thisProgram;
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&Deep), &thisProgram), 0);
    const std::string strPrinted = Printed([] { AssertDoNothing().DoAction(); });
    EXPECT_THAT(strPrinted, MatchesRegex("\n stack frame:(\n  [^\n]+, [^\n]+)+\n"));
    EXPECT_THAT(strPrinted, testing::HasSubstr("\n  " + std::string(thisProgram.dli_fname) + ", "));
}

TEST_F(FailurePolicy, PrintsSeventeenCallersOfADeepStack)
{
    const std::string strPrinted = Printed([] { EXPECT_EQ(g_pDeep(30), 30); });
    EXPECT_THAT(strPrinted, MatchesRegex("\n stack frame:(\n  [^\n]+, [^\n]+){17}\n"));
}

TEST_F(FailurePolicyDeathTest, AbortsBehindTheStack)
{
    for (const int nFrames : {0, 3, 5, 25})
    {
        const CStack stack(Frames(nFrames));
        EXPECT_EXIT(AssertFailStdErrAbort().DoAction(), KilledBySignal(SIGABRT),
                    Says("\n stack frame:" + Lines(3, std::min(nFrames, 20)) + "\n"));
    }
}

TEST_F(FailurePolicyDeathTest, AbortsBehindARealStack)
{
    AssertFailStdErrAbort policy;
    AssertFailStdErrBase& base = policy;
    EXPECT_EXIT(base.DoAction(), KilledBySignal(SIGABRT), Says("\n stack frame:(\n  [^\n]+, [^\n]+)+\n"));
}

TEST_F(FailurePolicyDeathTest, FlushesTheEndOfTheStackBeforeItAborts)
{
    const CStack stack(Frames(4));
    const CFlushes flushes;
    EXPECT_EXIT(AssertFailStdErrAbort().DoAction(), KilledBySignal(SIGABRT), Says("\n stack frame:\n  program, frame3\n"));
}

TEST_F(FailurePolicyDeathTest, NeedsNoMemoryForAStackWithoutDemangledNames)
{
    SKIP_UNDER_SANITIZERS("an allocator of its own ends the process");
    EXPECT_EXIT((UseUpAllMemory(), AssertFailStdErrAbort().DoAction()), KilledBySignal(SIGABRT),
                Says("\n stack frame:(\n  [^\n]+, [^\n]+)+\n"));
    const CStack stack({stFrame(), stFrame(), stFrame(), {true, "program", "_Z1fi"}});
    EXPECT_EXIT((UseUpAllMemory(), AssertFailStdErrAbort().DoAction()), KilledBySignal(SIGABRT),
                Says("\n stack frame:\n  program, _Z1fi\n"));
}

TEST_F(FailurePolicy, HaltStopsTheProcessUntilItMayGoOn)
{
    testing::internal::CaptureStderr();
    CChild child([] { return 40 + AssertFailStdErrHalt().DoAction(); });
    EXPECT_TRUE(child.Stops());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Halting process: " + std::to_string(child.Id()) + "\n");
    EXPECT_EQ(child.GoesOnTo(), 40);
}

TEST_F(FailurePolicy, HaltPrintsAPlainDecimalNumberWhateverTheStreamIsSetTo)
{
    std::cerr << std::hex << std::showbase;
    for (const auto& locale : {std::locale::classic(), std::locale(std::locale::classic(), new Support::CEachDigitApart)})
    {
        std::cerr.imbue(locale);
        testing::internal::CaptureStderr();
        CChild child([] { return AssertFailStdErrHalt().DoAction(); });
        EXPECT_TRUE(child.Stops());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Halting process: " + std::to_string(child.Id()) + "\n");
    }
}

TEST_F(FailurePolicy, HaltAnswersWhatKillAnswered)
{
    g_bFailKill = true;
    const std::string strPrinted = Printed([] { EXPECT_EQ(AssertFailStdErrHalt().DoAction(), -1); });
    g_bFailKill = false;
    EXPECT_EQ(strPrinted, "Halting process: " + std::to_string(getpid()) + "\n");
}

TEST_F(FailurePolicy, HaltDoesNotFlush)
{
    CChild child(
        []
        {
            const CFlushes flushes;
            AssertFailStdErrHalt().DoAction();
            return flushes.str().empty() ? -1 : static_cast<int>(flushes.m_Flushed.size());
        });
    EXPECT_TRUE(child.Stops());
    EXPECT_EQ(child.GoesOnTo(), 0);
}

TEST_F(FailurePolicyDeathTest, HaltAbortsWhereThereIsNoProcessNumber)
{
    const CFailingCall noNumber(CFailingCall::enGetPid);
    EXPECT_EXIT(AssertFailStdErrHalt().DoAction(), KilledBySignal(SIGABRT), Says("unable to get pid, aborting: [^\n]+\n"));
}

TEST(FailurePolicyClasses, AreOneTreeWithoutData)
{
    EXPECT_TRUE(std::is_abstract<AssertFailStdErrBase>::value);
    EXPECT_TRUE(std::has_virtual_destructor<AssertFailStdErrBase>::value);
    ExpectPlainPolicy<AssertFailStdErrBase>();
    ExpectPlainPolicy<AssertFailStdErrAbort>();
    ExpectPlainPolicy<AssertDoNothing>();
    ExpectPlainPolicy<InfoOnFail>();
    ExpectPlainPolicy<AssertFailStdErrHalt>();
}

TEST(FailurePolicyClasses, HaveTheActionFirstInTheirTable)
{
    int (AssertFailStdErrBase::*pAction)() = &AssertFailStdErrBase::DoAction;
    std::ptrdiff_t nSlot = 0;
    std::memcpy(&nSlot, &pAction, sizeof nSlot);
    EXPECT_EQ(nSlot, 1);
}

TEST(DemangledSynNameResourceGuard, ShowsTheTextItOwns)
{
    char* szName = static_cast<char*>(std::malloc(5));
    std::memcpy(szName, "name", 5);
    const DemangledSynNameResourceGuard guard(szName);
    const char* szShown = guard;
    EXPECT_EQ(szShown, szName);
    EXPECT_STREQ(szShown, "name");
    EXPECT_FALSE(std::is_copy_constructible<DemangledSynNameResourceGuard>::value);
    EXPECT_FALSE(std::is_copy_assignable<DemangledSynNameResourceGuard>::value);
}

TEST(DemangledSynNameResourceGuard, MayOwnNothing)
{
    const DemangledSynNameResourceGuard guard(nullptr);
    const char* szShown = guard;
    EXPECT_EQ(szShown, nullptr);
}

TEST(DemangledSynNameResourceGuard, FreesTheText)
{
    SKIP_UNDER_SANITIZERS("freed memory is kept; what is not freed is found at the end");
    constexpr std::size_t unMapped = 64 << 20; // so large that it goes back to the system at once
    char* szName = static_cast<char*>(std::malloc(unMapped));
    ASSERT_NE(szName, nullptr);
    char* szEnd = szName + unMapped - 1;
    *szEnd = '\0';
    ASSERT_TRUE(IsReadable(szEnd));
    {
        const DemangledSynNameResourceGuard guard(szName);
    }
    EXPECT_FALSE(IsReadable(szEnd));
}
