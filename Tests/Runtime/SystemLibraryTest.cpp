// What C libraries for small systems get wrong, and what stands on it here. SYSTEM_LIBRARY says which one the tests are meant to
// run with: "sound" or "unpatched", uClibc-ng as it is without toolchains/uclibc-waits.patch.
#include "Runtime/Locks.h"

#include "Support/SystemLibrary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>

namespace
{

// Things to be taken, each of which is announced by one post.
class CTable
{
public:
    CTable() : m_Sema("table"), m_nThere(0), m_nTaken(0) {}

    void Put()
    {
        ++m_nThere;
        m_Sema.Post();
    }

    // Takes until nAll are taken. A wait may end for no reason: whoever waited looks again.
    void TakeUntil(int nAll)
    {
        while (m_nTaken < nAll)
        {
            int nThere = m_nThere;
            while (nThere > 0 && !m_nThere.compare_exchange_weak(nThere, nThere - 1))
            {
            }
            if (nThere == 0)
            {
                m_Sema.Wait();
            }
            else if (++m_nTaken == nAll)
            {
                m_Sema.Post(); // for who waits for more
            }
        }
    }

    int Taken() const { return m_nTaken; }

private:
    CSema m_Sema;
    std::atomic<int> m_nThere;
    std::atomic<int> m_nTaken;
};

} // namespace

TEST(SystemLibrary, IsTheOneThatIsMeant)
{
    const char* szMeant = std::getenv("SYSTEM_LIBRARY");
    if (szMeant == nullptr)
    {
        GTEST_SKIP() << "any is";
    }
    EXPECT_EQ(std::string(szMeant) == "unpatched" ? -ETIMEDOUT : ETIMEDOUT, Support::ErrorOfLateWait());
}

TEST(SystemLibrary, WaitsThatEndByThemselvesLoseNothing)
{
    constexpr int c_nPutsEach = 20000;
    CTable table;
    const auto put = [&table]
    {
        for (int nPut = 0; nPut < c_nPutsEach; ++nPut)
        {
            table.Put();
        }
    };
    const auto take = [&table] { table.TakeUntil(2 * c_nPutsEach); };
    testing::internal::CaptureStdout(); // the unpatched one's waits say each time that they failed
    std::thread aThreads[] = {std::thread(put), std::thread(take), std::thread(put), std::thread(take)};
    for (std::thread& thread : aThreads)
    {
        thread.join();
    }
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(2 * c_nPutsEach, table.Taken());
}
