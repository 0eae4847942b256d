#include "Runtime/Memory.h"

#include "Messages/MCUpdateMsg.h"
#include "Runtime/MemPool.h"
#include "Support/SystemCalls.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

namespace
{

struct stProtectCall
{
    void* pAddress;
    std::size_t unLength;
    int nProtection;
};

int g_nProtectError = 0;                       // what mprotect is to fail with; 0 asks the system
thread_local stProtectCall g_LastProtect = {}; // any thread may protect

} // namespace

// Stands before the C library's own, so that errors which the system never gives can be shown.
extern "C" int mprotect(void* pAddress, std::size_t unLength, int nProtection) noexcept
{
    g_LastProtect = {pAddress, unLength, nProtection};
    if (g_nProtectError != 0)
    {
        errno = g_nProtectError;
        return -1;
    }
    return static_cast<int>(syscall(SYS_mprotect, pAddress, unLength, nProtection));
}

namespace
{

long PageSize()
{
    return sysconf(_SC_PAGESIZE);
}

void* Address(std::uintptr_t unAddress)
{
    return reinterpret_cast<void*>(unAddress);
}

// A page of its own, given back at the end.
class CPage
{
public:
    explicit CPage(int nProtection, int nFlags = MAP_PRIVATE | MAP_ANONYMOUS, int nFile = -1)
        : m_pPage(mmap(nullptr, static_cast<std::size_t>(PageSize()), nProtection, nFlags, nFile, 0))
    {
    }
    ~CPage() { munmap(m_pPage, static_cast<std::size_t>(PageSize())); }
    CPage(const CPage&) = delete;
    CPage& operator=(const CPage&) = delete;

    char* Get() const { return static_cast<char*>(m_pPage); }

private:
    void* m_pPage;
};

// What LogMprotect prints; its result goes to nResult.
std::string Printed(void* pAddress, unsigned int unLength, int nProtection, int& nResult)
{
    testing::internal::CaptureStdout();
    nResult = LogMprotect(pAddress, unLength, nProtection);
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

void ExpectFailure(void* pAddress, unsigned int unLength, int nProtection, const std::string& strStart)
{
    int nResult = 0;
    const std::string strLine = Printed(pAddress, unLength, nProtection, nResult);
    EXPECT_EQ(strLine.substr(0, strStart.size()), strStart);
    EXPECT_EQ(strLine.find('\n'), strLine.size() - 1);
    EXPECT_EQ(nResult, static_cast<int>(strLine.size()));
}

class CPooled : public MemPool::CMemPoolBase
{
public:
    explicit CPooled(std::string& strLog) : m_strLog(strLog) {}
    ~CPooled() override { m_strLog += "destroyed"; }
    void Clear() override { m_strLog += "cleared "; }

private:
    std::string& m_strLog;
};

} // namespace

TEST(Malloc, AsksForThreePagesLessOneByteMoreThanTheSize)
{
    for (const long lSize : {0L, 1L, 2692L, 4096L, 261200L, 1048576L})
    {
        void* pMemory = GBMalloc(lSize);
        EXPECT_EQ(Support::LastMallocSize(), static_cast<std::size_t>(lSize + 3 * PageSize() - 1)) << lSize;
        ASSERT_NE(pMemory, nullptr);
        std::memset(pMemory, 0x5a, static_cast<std::size_t>(lSize + 3 * PageSize() - 1));
        GBFree(pMemory);
    }
}

TEST(Malloc, AsksFor12287BytesForAnEmptyBlockWherePagesAre4096)
{
    if (PageSize() != 4096)
    {
        GTEST_SKIP() << "pages of " << PageSize();
    }
    GBFree(GBMalloc(0));
    EXPECT_EQ(Support::LastMallocSize(), 12287U);
}

TEST(Malloc, ReturnsThePointerThatMallocGave)
{
    std::free(GBMalloc(100));
    GBFree(std::malloc(100));
    GBFree(nullptr);
}

TEST(Malloc, AnswersNullWithoutMemory)
{
    const Support::CFailingCall noMemory(Support::CFailingCall::enMalloc);
    EXPECT_EQ(GBMalloc(0), nullptr);
    EXPECT_EQ(GBMalloc(2692), nullptr);
}

TEST(Malloc, AnswersNullToASizeThatCannotBeWithoutAsking)
{
    GBFree(GBMalloc(77));
    const std::size_t unBefore = Support::LastMallocSize();
    for (const long lSize : {-1L, -3L * PageSize(), LONG_MIN, LONG_MAX, LONG_MAX - 3 * PageSize() + 2})
    {
        EXPECT_EQ(GBMalloc(lSize), nullptr) << lSize;
        EXPECT_EQ(Support::LastMallocSize(), unBefore) << lSize;
    }
}

TEST(LogMprotect, PassesItsArgumentsOnAndIsSilentOnSuccess)
{
    const CPage page(PROT_READ | PROT_WRITE);
    int nResult = -1;
    EXPECT_EQ(Printed(page.Get(), static_cast<unsigned int>(PageSize()), PROT_READ, nResult), "");
    EXPECT_EQ(nResult, 0);
    EXPECT_EQ(g_LastProtect.pAddress, page.Get());
    EXPECT_EQ(g_LastProtect.unLength, static_cast<std::size_t>(PageSize()));
    EXPECT_EQ(g_LastProtect.nProtection, PROT_READ);
}

TEST(LogMprotectDeathTest, ProtectsThePage)
{
    const CPage page(PROT_READ | PROT_WRITE);
    page.Get()[0] = 'a';
    ASSERT_EQ(LogMprotect(page.Get(), static_cast<unsigned int>(PageSize()), PROT_READ), 0);
    EXPECT_EQ(page.Get()[0], 'a');
    EXPECT_DEATH(*static_cast<volatile char*>(page.Get()) = 'b', "");
}

TEST(LogMprotect, NamesEachErrorInItsLine)
{
    const struct
    {
        int nError;
        const char* szLine;
    } aCases[] = {
        {ENOMEM, "mprotect failed : kernel out of memory addr(0x1ABCD000) len(0x2F00) prot(0x3)\n"},
        {EACCES, "mprotect failed : not enough privileges addr(0x1ABCD000) len(0x2F00) prot(0x3)\n"},
        {EFAULT, "mprotect failed : memory not allocated addr(0x1ABCD000) len(0x2F00) prot(0x3)\n"},
        {EINVAL, "mprotect failed : invalid argument to mprotect addr(0x1ABCD000) len(0x2F00) prot(0x3)\n"},
        {EPERM, "mprotect failed : unknown addr(0x1ABCD000) len(0x2F00) prot(0x3)\n"},
        {ENOSYS, "mprotect failed : unknown addr(0x1ABCD000) len(0x2F00) prot(0x3)\n"},
    };
    for (const auto& failure : aCases)
    {
        g_nProtectError = failure.nError;
        int nResult = 0;
        EXPECT_EQ(Printed(Address(0x1abcd000), 0x2f00, 3, nResult), failure.szLine);
        EXPECT_EQ(nResult, static_cast<int>(std::strlen(failure.szLine)));
    }
    g_nProtectError = 0;
}

TEST(LogMprotect, PrintsTheWidestLengthAndProtectionAsUnsigned)
{
    g_nProtectError = EINVAL;
    int nResult = 0;
    EXPECT_EQ(Printed(Address(0), 0xffffffffU, -1, nResult),
              "mprotect failed : invalid argument to mprotect addr(0x0) len(0xFFFFFFFF) prot(0xFFFFFFFF)\n");
    g_nProtectError = 0;
}

TEST(LogMprotect, PrintsTheWholeAddress)
{
    g_nProtectError = EFAULT;
    int nResult = 0;
    std::string strExpected = "mprotect failed : memory not allocated addr(0x";
    strExpected += sizeof(void*) == 4 ? "FEDCBA98" : "123FEDCBA98";
    const std::uintptr_t unAddress = sizeof(void*) == 4 ? 0xfedcba98U : static_cast<std::uintptr_t>(0x123fedcba98ULL);
    EXPECT_EQ(Printed(Address(unAddress), 1, 1, nResult), strExpected + ") len(0x1) prot(0x1)\n");
    g_nProtectError = 0;
}

TEST(LogMprotect, RefusesAnAddressInsideAPage)
{
    const CPage page(PROT_READ | PROT_WRITE);
    ExpectFailure(page.Get() + 1, 16, PROT_READ, "mprotect failed : invalid argument to mprotect addr(0x");
}

TEST(LogMprotect, RefusesToMakeAFileThatIsOpenForReadingWritable)
{
    std::FILE* pFile = std::fopen("/proc/self/exe", "rb");
    ASSERT_NE(pFile, nullptr);
    const CPage page(PROT_READ, MAP_SHARED, fileno(pFile));
    ExpectFailure(page.Get(), 16, PROT_READ | PROT_WRITE, "mprotect failed : not enough privileges addr(0x");
    std::fclose(pFile);
}

TEST(MemPoolBase, IsAnAbstractClassWithoutData)
{
    EXPECT_TRUE(std::is_abstract<MemPool::CMemPoolBase>::value);
    EXPECT_TRUE(std::has_virtual_destructor<MemPool::CMemPoolBase>::value);
    EXPECT_EQ(sizeof(MemPool::CMemPoolBase), sizeof(void*));
}

TEST(MemPoolBase, ClearsAndDestroysTheObjectBehindIt)
{
    std::string strLog;
    std::unique_ptr<MemPool::CMemPoolBase> pMessage = std::make_unique<CPooled>(strLog);
    pMessage->Clear();
    pMessage.reset();
    EXPECT_EQ(strLog, "cleared destroyed");
}

TEST(MemPoolBase, HasClearBehindTheTwoDestructorsInItsTable)
{
    void (MemPool::CMemPoolBase::*pClear)() = &MemPool::CMemPoolBase::Clear;
    std::ptrdiff_t nSlot = 0;
    std::memcpy(&nSlot, &pClear, sizeof nSlot);
    EXPECT_EQ(nSlot, static_cast<std::ptrdiff_t>(2 * sizeof(void*) + 1));
}

TEST(MemPoolBase, IsTheBaseOfTheMessages)
{
    EXPECT_TRUE((std::is_base_of<MemPool::CMemPoolBase, CMCUpdateMsg>::value));
}
