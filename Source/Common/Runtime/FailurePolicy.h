// What happens when a checked condition fails: a report on standard error, then the policy's action.
#pragma once

#include "Runtime/Export.h"

// Whoever checks an invariant picks one of the policies below, says with ReportWhat what failed, and calls DoAction:
//
//     AssertFailStdErrAbort policy;
//     policy.ReportWhat("ASSERT", "void f(int)", "Source/f", 12, "x > 0", "x is the path", 0);
//     policy.DoAction();
//
//     AssertFailStdErrAbort   the stack, then abort
//     AssertDoNothing         the stack, then on
//     InfoOnFail              on
//     AssertFailStdErrHalt    stop this process until a debugger or SIGCONT lets it go on
//
// Policies hold nothing: make one where the check is. Any thread may report; two that do at once mix their lines. Nothing is
// allocated on the way but what the demangler needs, and a name that it can't demangle is printed as it is. On a C library
// without backtrace a stack is its heading and its end. Link programs with -rdynamic to see the names of their
// functions in it; static ones have none.
class LOGICALCONTROLS_EXPORT AssertFailStdErrBase
{
public:
    // Acts on the failure. 0, or what the system answered where the action asks it for something.
    virtual int DoAction() = 0;
    virtual ~AssertFailStdErrBase();

    // "label: condition at: ", function, file and line, then the user's message unless it is null or empty; no line end. Leaves
    // standard error (std::cerr) in decimal. A null text counts as an empty one. The last argument is not used.
    void ReportWhat(const char* szLabel, const char* szFunction, const char* szFile, unsigned int unLine, const char* szCondition,
                    const char* szUserMessage, int nUnused);

    // One line of a stack: the object file that the code lies in, and its symbol. Each may be null.
    void ReportBackTraceLineInfo(const char* szObject, const char* szSymbol);
};

// Prints the stack, then aborts.
class LOGICALCONTROLS_EXPORT AssertFailStdErrAbort : public AssertFailStdErrBase
{
public:
    int DoAction() override; // does not return
};

// Prints the stack, and the program goes on. The action answers 0.
class LOGICALCONTROLS_EXPORT AssertDoNothing : public AssertFailStdErrBase
{
public:
    int DoAction() override;
};

// The report was all: the program goes on. The action answers 0.
class LOGICALCONTROLS_EXPORT InfoOnFail : public AssertFailStdErrBase
{
public:
    int DoAction() override;
};

// Stops the whole process until a debugger or SIGCONT lets it go on.
class LOGICALCONTROLS_EXPORT AssertFailStdErrHalt : public AssertFailStdErrBase
{
public:
    int DoAction() override; // what kill answered
};

// Owns a text that the demangler returned, or null.
class LOGICALCONTROLS_EXPORT DemangledSynNameResourceGuard
{
public:
    explicit DemangledSynNameResourceGuard(char* szName) : m_szName(szName) {}
    ~DemangledSynNameResourceGuard();
    DemangledSynNameResourceGuard(const DemangledSynNameResourceGuard&) = delete;
    DemangledSynNameResourceGuard& operator=(const DemangledSynNameResourceGuard&) = delete;

    operator const char*() const { return m_szName; }

private:
    char* m_szName;
};

// Hands the policy a line for each caller, the innermost first: up to 20 of them, the first nFirstFrame left out (0 is this
// function itself), and those that lie in no known object.
template <class Policy>
void GetBackTrace(Policy& policy, int nFirstFrame);

extern template void GetBackTrace(AssertFailStdErrAbort& policy, int nFirstFrame);
extern template void GetBackTrace(AssertDoNothing& policy, int nFirstFrame);
