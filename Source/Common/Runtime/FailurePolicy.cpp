#include "Runtime/FailurePolicy.h"

#include "Runtime/TextOrEmpty.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#ifdef LOGICALCONTROLS_HAVE_BACKTRACE
#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#endif
#include <unistd.h>

namespace
{

[[maybe_unused]] constexpr int c_nMaxFrames = 20;
constexpr int c_nOwnFrames = 3; // GetBackTrace, ReportStack, DoAction

#ifdef LOGICALCONTROLS_HAVE_BACKTRACE
// The first backtrace of a process may load a library and allocate. A failed invariant is no time for that: it is done at start.
struct stWarmUp
{
    stWarmUp()
    {
        void* apFrames[c_nMaxFrames];
        backtrace(apFrames, c_nMaxFrames);
    }
};

const stWarmUp g_WarmUp;
#endif

// Written only where it changes something: other threads may be reporting.
void SwitchToDecimal()
{
    if ((std::cerr.flags() & std::ios_base::basefield) != std::ios_base::dec)
    {
        std::cerr << std::dec;
    }
}

// A frame of its own in every build, so that the stack begins at who called DoAction.
template <class Policy>
__attribute__((noinline)) void ReportStack(Policy& policy)
{
    std::cerr << "\n stack frame:";
    GetBackTrace(policy, c_nOwnFrames);
    std::cerr << "\n" << std::flush;
}

} // namespace

AssertFailStdErrBase::~AssertFailStdErrBase() = default;

void AssertFailStdErrBase::ReportWhat(const char* szLabel, const char* szFunction, const char* szFile, unsigned int unLine,
                                      const char* szCondition, const char* szUserMessage, int)
{
    std::cerr.clear(); // an earlier write may have failed
    SwitchToDecimal();
    // Streamed as it is, a null text would put standard error out of order for good.
    std::cerr << TextOrEmpty(szLabel) << ": " << TextOrEmpty(szCondition) << " at: \n\t" << TextOrEmpty(szFunction) << ",\n\t"
              << TextOrEmpty(szFile) << ":" << std::to_string(unLine);
    if (*TextOrEmpty(szUserMessage) != '\0')
    {
        std::cerr << "\n user msg: " << szUserMessage;
    }
}

void AssertFailStdErrBase::ReportBackTraceLineInfo(const char* szObject, const char* szSymbol)
{
    std::cerr << "\n  " << (szObject != nullptr ? szObject : "unexpected null ptr") << ", "
              << (szSymbol != nullptr ? szSymbol : "no information (try -rdynamic)") << std::flush;
}

int AssertFailStdErrAbort::DoAction()
{
    ReportStack(*this);
    std::abort();
}

int AssertDoNothing::DoAction()
{
    ReportStack(*this);
    return 0;
}

int InfoOnFail::DoAction()
{
    std::cerr << "\n" << std::flush;
    return 0;
}

int AssertFailStdErrHalt::DoAction()
{
    const pid_t nProcess = getpid();
    if (nProcess < 0)
    {
        std::perror("unable to get pid, aborting");
        std::abort();
    }
    std::cerr << "Halting process: " << std::to_string(nProcess) << "\n";
    return kill(nProcess, SIGSTOP);
}

DemangledSynNameResourceGuard::~DemangledSynNameResourceGuard()
{
    if (m_szName != nullptr)
    {
        std::free(m_szName); // the demangler's own malloc
    }
}

#ifdef LOGICALCONTROLS_HAVE_BACKTRACE
template <class Policy>
__attribute__((noinline)) void GetBackTrace(Policy& policy, int nFirstFrame)
{
    void* apFrames[c_nMaxFrames] = {};
    const int nFrames = backtrace(apFrames, c_nMaxFrames);
    for (int nFrame = std::max(nFirstFrame, 0); nFrame < nFrames; ++nFrame)
    {
        Dl_info info = {};
        if (dladdr(apFrames[nFrame], &info) == 0)
        {
            continue;
        }
        int nStatus = -1;
        const DemangledSynNameResourceGuard demangled(abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &nStatus));
        const bool bDemangled = nStatus == 0 && demangled != nullptr;
        policy.ReportBackTraceLineInfo(info.dli_fname, bDemangled ? demangled : info.dli_sname);
    }
}
#else
template <class Policy>
void GetBackTrace(Policy&, int)
{
}
#endif

template LOGICALCONTROLS_EXPORT void GetBackTrace(AssertFailStdErrAbort& policy, int nFirstFrame);
template LOGICALCONTROLS_EXPORT void GetBackTrace(AssertDoNothing& policy, int nFirstFrame);
