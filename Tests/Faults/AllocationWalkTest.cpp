#include "Faults/AllocationWalk.h"

#include "Faults/FailingAllocator.h"
#include "LogicalControls/ConsoleBitmapArray.h"
#include "Runtime/FailurePolicy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlmemory.h>

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

namespace
{

using Faults::CShortage;
using Faults::stOperation;

constexpr unsigned int c_unSecondsAnOperation = 100; // one that hangs, in a lock that was kept, ends the program
constexpr long c_lMostAllocations = 5000;
constexpr int c_nCasesAtLeast = 2000;

std::atomic<const char*> g_szOperation{""};

void OnAlarm(int)
{
    const char* szOperation = g_szOperation;
    static_cast<void>(!write(STDOUT_FILENO, szOperation, std::strlen(szOperation)));
    _exit(1);
}

struct stCase
{
    unsigned int unEnding;
    const char* szWrong;
    bool bStruck;
    bool bGoodAfter;
    bool bLost;
};

unsigned int Act(const Faults::tAction& action, const char*& szWrong)
{
    try
    {
        return action() ? Faults::enDone : Faults::enRefused;
    }
    catch (const std::bad_alloc&)
    {
        return Faults::enBadAlloc;
    }
    catch (int nThrown)
    {
        return nThrown == 0 ? Faults::enIntThrown : Faults::enElse;
    }
    catch (const Faults::stWrong& wrong)
    {
        szWrong = wrong.szWhat;
    }
    catch (...)
    {
    }
    return Faults::enElse;
}

stCase Try(const stOperation& operation, long lAllowed, bool bForGood)
{
    stCase result = {Faults::enElse, "", false, false, false};
    const long lLive = Faults::LiveBlocks();
    {
        const Faults::tAction action = operation.pPrepare();
        {
            const CShortage shortage(lAllowed, bForGood);
            result.unEnding = Act(action, result.szWrong);
        }
        result.bStruck = CShortage::HasStruck();
        result.bGoodAfter = Act(action, result.szWrong) == Faults::enDone;
    }
    xmlResetLastError();
    result.bLost = Faults::LiveBlocks() != lLive;
    return result;
}

// Lets each allocation of an operation fail, alone or with all that follow it. Returns how many cases there were.
int Walk(const stOperation& operation, bool bForGood, std::vector<std::string>& wrong)
{
    int nCases = 0;
    bool bStruck = true;
    for (long lAllowed = 0; bStruck && lAllowed < c_lMostAllocations; ++lAllowed)
    {
        const stCase result = Try(operation, lAllowed, bForGood);
        bStruck = result.bStruck;
        nCases += bStruck ? 1 : 0;
        const unsigned int unEndings = bStruck ? operation.unEndings : unsigned(Faults::enDone);
        const struct
        {
            bool bWrong;
            const char* szText;
        } checks[] = {{(result.unEnding & unEndings) == 0, "ends in another way than it should"},
                      {*result.szWrong != '\0', result.szWrong},
                      {!result.bGoodAfter, "fails with memory, too"},
                      {result.bLost, "memory is lost"}};
        for (const auto& check : checks)
        {
            if (check.bWrong)
            {
                wrong.push_back(std::string(operation.szName) + ", allocation " + std::to_string(lAllowed + 1) +
                                (bForGood ? " and all after it: " : ": ") + check.szText + " (" + std::to_string(result.unEnding) +
                                ")");
            }
        }
    }
    if (bStruck)
    {
        wrong.push_back(std::string(operation.szName) + ": no end of allocations");
    }
    return nCases;
}

class AllocationWalk : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, xmlMemSetup(&Faults::Free, &Faults::Allocate, &Faults::Reallocate, &Faults::Duplicate));
        std::signal(SIGALRM, OnAlarm);
    }

    void TearDown() override
    {
        alarm(0);
        std::signal(SIGALRM, SIG_DFL);
    }
};

} // namespace

// Nothing that is meant for a network leaves. The demangler's memory comes from elsewhere, and the library frees it.
extern "C"
{

    ssize_t __real_sendto(int, const void*, std::size_t, int, const sockaddr*, socklen_t);
    char* __real___cxa_demangle(const char*, char*, std::size_t*, int*);

    ssize_t __wrap_sendto(int nSocket, const void* pData, std::size_t unLength, int nFlags, const sockaddr* pAddress,
                          socklen_t unSize)
    {
        sockaddr_in destination = {};
        std::memcpy(&destination, pAddress, sizeof destination);
        return IN_MULTICAST(ntohl(destination.sin_addr.s_addr)) ? static_cast<ssize_t>(unLength)
                                                                : __real_sendto(nSocket, pData, unLength, nFlags, pAddress, unSize);
    }

    char* __wrap___cxa_demangle(const char* szName, char* acBuffer, std::size_t* punLength, int* pnStatus)
    {
        if (!Faults::MayAllocate())
        {
            *pnStatus = -1;
            return nullptr;
        }
        return static_cast<char*>(Faults::Adopt(__real___cxa_demangle(szName, acBuffer, punLength, pnStatus)));
    }

} // extern "C"

TEST_F(AllocationWalk, EveryOperationFailsAsItShouldAndWorksAgain)
{
    std::vector<stOperation> operations;
    for (const auto pMake :
         {Faults::ImageOperations, Faults::MessageOperations, Faults::ClientOperations, Faults::DiagnosticsOperations})
    {
        const Faults::tOperations more = pMake();
        operations.insert(operations.end(), more.begin(), more.end());
    }
    std::vector<std::string> wrong;
    std::string strTable;
    int nTotal = 0;
    for (const stOperation& operation : operations)
    {
        g_szOperation = operation.szName;
        alarm(c_unSecondsAnOperation);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Try(operation, c_lMostAllocations, false); // whatever is made once and for all is made now
        const int nOnce = Walk(operation, false, wrong);
        const int nForGood = Walk(operation, true, wrong);
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
        strTable += std::to_string(nOnce) + " + " + std::to_string(nForGood) + "  " + operation.szName + "\n";
        nTotal += nOnce + nForGood;
    }
    std::printf("%scases: %d, operations: %d\n", strTable.c_str(), nTotal, static_cast<int>(operations.size()));
    EXPECT_THAT(wrong, testing::IsEmpty());
    EXPECT_LE(c_nCasesAtLeast, nTotal);
}

TEST_F(AllocationWalk, AFailedInvariantIsReportedWithoutMemory)
{
    const auto fail = []
    {
        const CShortage shortage(0, true);
        AssertFailStdErrAbort policy;
        policy.ReportWhat("ASSERT", "void f(int)", "Source/f", 12, "x > 0", "a message of more than the length of a small string",
                          0);
        policy.DoAction();
    };
    EXPECT_EXIT(fail(), testing::KilledBySignal(SIGABRT), "ASSERT: x > 0 at: .*small string.* stack frame:");
}

TEST_F(AllocationWalk, ADoubleAbortsWithoutMemory)
{
    CBMAContainer image;
    const auto fail = [&image]
    {
        const CShortage shortage(0, true);
        image.SetPPC(enRotary, enGlobals, 0, 0, 0.5, false, false);
    };
    EXPECT_EXIT(fail(), testing::KilledBySignal(SIGABRT), "ASSERT: 0 at: ");
}
