#include "Runtime/Locks.h"

#include "Support/Interruptions.h"
#include "Support/SystemCalls.h"
#include "Support/SystemLibrary.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <new>
#include <signal.h>
#include <string>
#include <sys/time.h>
#include <thread>
#include <type_traits>
#include <utility>

#if defined(__SANITIZE_THREAD__)
#define UNDER_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define UNDER_THREAD_SANITIZER
#endif
#endif

namespace
{

using Support::CFailingCall;

// Two threads count together; the count is right, and free of races, only when the lock shuts one of them out.
template <class Take, class Give>
int CountTogether(Take take, Give give)
{
    constexpr int nRounds = 20000;
    int nCount = 0;
    const auto count = [&]
    {
        for (int nRound = 0; nRound < nRounds; ++nRound)
        {
            if (take())
            {
                ++nCount;
                give();
            }
        }
    };
    std::thread other(count);
    count();
    other.join();
    return nCount - 2 * nRounds;
}

// The result of a call on a thread of its own.
template <class Call>
bool OnAnotherThread(Call call)
{
    bool bResult = false;
    std::thread([&] { bResult = call(); }).join();
    return bResult;
}

std::unique_ptr<CMutex> MutexThatCouldNotBeSetUp(CMutex::enMutexTypes enType)
{
    const CFailingCall failing(CFailingCall::enMutexInit);
    return std::make_unique<CMutex>(enType);
}

constexpr CMutex::enMutexTypes c_aenMutexTypes[] = {CMutex::enNormal, CMutex::enErrorCheck, static_cast<CMutex::enMutexTypes>(2),
                                                    static_cast<CMutex::enMutexTypes>(-1)};

bool CanBeUsedIn(void* pPlace)
{
    CMutex* pMutex = new (pPlace) CMutex(CMutex::enNormal);
    const bool bGood = pMutex->Lock() && pMutex->Unlock();
    pMutex->~CMutex();
    return bGood;
}

// What a call prints on standard output.
template <class Call>
std::string Printed(Call call)
{
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

const std::string c_strInterrupted = "sem_wait returned: " + std::to_string(Support::WaitError(EINTR)) + "\n";

} // namespace

// ---- CCritSec -----------------------------------------------------------------------------------------------------------------

TEST(CritSec, LockAndUnlockAnswerZero)
{
    CCritSec section;
    for (int nRound = 0; nRound < 3; ++nRound)
    {
        EXPECT_EQ(0, section.Lock());
        EXPECT_EQ(0, section.Unlock());
    }
}

TEST(CritSec, ShutsAnotherThreadOut)
{
    CCritSec section;
    EXPECT_EQ(0, CountTogether([&] { return section.Lock() == 0; }, [&] { section.Unlock(); }));
}

TEST(CritSec, WorksWithoutHavingBeenSetUp)
{
    const Support::CFailingCall noMutex(Support::CFailingCall::enMutexInit);
    CCritSec section;
    EXPECT_EQ(section.Lock(), 0);
    EXPECT_EQ(section.Unlock(), 0);
}

TEST(CritSec, HasNoVirtualOperations)
{
    EXPECT_FALSE(std::is_polymorphic<CCritSec>::value);
    EXPECT_FALSE(std::is_copy_constructible<CCritSec>::value);
}

// ---- CMutex -------------------------------------------------------------------------------------------------------------------

TEST(Mutex, OfEveryTypeLocksAndUnlocks)
{
    for (const CMutex::enMutexTypes enType : c_aenMutexTypes)
    {
        CMutex mutex(enType);
        for (int nRound = 0; nRound < 3; ++nRound)
        {
            EXPECT_TRUE(mutex.Lock()) << enType;
            EXPECT_TRUE(mutex.Unlock()) << enType;
        }
    }
}

TEST(Mutex, OfEveryTypeShutsAnotherThreadOut)
{
    for (const CMutex::enMutexTypes enType : c_aenMutexTypes)
    {
        CMutex mutex(enType);
        EXPECT_EQ(0, CountTogether([&] { return mutex.Lock(); }, [&] { mutex.Unlock(); })) << enType;
    }
}

TEST(Mutex, ErrorCheckingOneRefusesASecondLockByItsOwner)
{
    CMutex mutex(CMutex::enErrorCheck);
    EXPECT_TRUE(mutex.Lock());
    EXPECT_FALSE(mutex.Lock());
    EXPECT_FALSE(mutex.Lock());
    EXPECT_TRUE(mutex.Unlock());
}

TEST(Mutex, TypeNumbersAreFixed)
{
    EXPECT_EQ(0, CMutex::enNormal);
    EXPECT_EQ(1, CMutex::enErrorCheck);
}

TEST(Mutex, ErrorCheckingOneIsNotRecursive)
{
    CMutex mutex(CMutex::enErrorCheck);
    mutex.Lock();
    mutex.Lock();
    mutex.Unlock(); // the one unlock gives it up
    EXPECT_TRUE(OnAnotherThread([&] { return mutex.Lock() && mutex.Unlock(); }));
}

TEST(Mutex, ThatCouldNotBeSetUpRefusesEverything)
{
    for (const CMutex::enMutexTypes enType : c_aenMutexTypes)
    {
        const std::unique_ptr<CMutex> pMutex = MutexThatCouldNotBeSetUp(enType);
        EXPECT_FALSE(pMutex->Lock()) << enType;
        EXPECT_FALSE(pMutex->Unlock()) << enType;
        EXPECT_FALSE(pMutex->Lock()) << enType;
    }
}

TEST(Mutex, SetUpAfterAFailedOneWorks)
{
    MutexThatCouldNotBeSetUp(CMutex::enNormal);
    CMutex mutex(CMutex::enNormal);
    EXPECT_TRUE(mutex.Lock());
    EXPECT_TRUE(mutex.Unlock());
}

// Neither may destroying wait for the mutex nor, seen with a thread sanitizer, destroy it locked or unlock it free.
TEST(Mutex, CanBeDestroyedFreeAndHeldAndItsPlaceUsedAgain)
{
    for (const bool bHeld : {false, true})
    {
        alignas(CMutex) unsigned char acPlace[sizeof(CMutex)];
        CMutex* pMutex = new (acPlace) CMutex(CMutex::enNormal);
        EXPECT_TRUE(!bHeld || pMutex->Lock());
        pMutex->~CMutex();
        EXPECT_TRUE(CanBeUsedIn(acPlace));
    }
}

TEST(Mutex, CanBeDestroyedHeldByAThreadThatIsGone)
{
#ifdef UNDER_THREAD_SANITIZER
    GTEST_SKIP() << "the sanitizer reports every unlock by another thread than the owner's, as is meant here";
#endif
    alignas(CMutex) unsigned char acPlace[sizeof(CMutex)];
    CMutex* pMutex = new (acPlace) CMutex(CMutex::enNormal);
    EXPECT_TRUE(OnAnotherThread([&] { return pMutex->Lock(); }));
    pMutex->~CMutex();
    EXPECT_TRUE(CanBeUsedIn(acPlace));
}

TEST(Mutex, ErrorCheckingOneCanBeDestroyedHeld)
{
    const std::unique_ptr<CMutex> pMutex = std::make_unique<CMutex>(CMutex::enErrorCheck);
    EXPECT_TRUE(pMutex->Lock());
}

TEST(Mutex, IsDestroyedThroughItsBase)
{
    EXPECT_TRUE(std::has_virtual_destructor<CMutex>::value);
    EXPECT_FALSE(std::is_copy_constructible<CMutex>::value);
    EXPECT_FALSE((std::is_convertible<CMutex::enMutexTypes, CMutex>::value));
}

// ---- CRWMutex -----------------------------------------------------------------------------------------------------------------

TEST(RWMutex, IsValidAndLocksBothWays)
{
    CRWMutex lock;
    ASSERT_TRUE(lock.IsValid());
    for (int nRound = 0; nRound < 3; ++nRound)
    {
        EXPECT_TRUE(lock.Read().Lock());
        EXPECT_TRUE(lock.Read().Unlock());
        EXPECT_TRUE(lock.Write().Lock());
        EXPECT_TRUE(lock.Write().Unlock());
    }
}

TEST(RWMutex, LetsTwoReadersInTogether)
{
    CRWMutex lock;
    ASSERT_TRUE(lock.Read().Lock());
    EXPECT_TRUE(OnAnotherThread([&] { return lock.Read().Lock() && lock.Read().Unlock(); }));
    EXPECT_TRUE(lock.Read().Unlock());
}

TEST(RWMutex, LetsOneWriterInAlone)
{
    CRWMutex lock;
    EXPECT_EQ(0, CountTogether([&] { return lock.Write().Lock(); }, [&] { lock.Write().Unlock(); }));
}

TEST(RWMutex, KeepsAReaderAndAWriterApart)
{
    CRWMutex lock;
    ASSERT_TRUE(lock.IsValid());
    int nFirst = 0;
    int nSecond = 0;
    std::thread writer(
        [&]
        {
            for (int nRound = 1; nRound <= 5000; ++nRound)
            {
                EXPECT_TRUE(lock.Write().Lock());
                nFirst = nRound;
                nSecond = nRound;
                EXPECT_TRUE(lock.Write().Unlock());
            }
        });
    int nTorn = 0;
    for (int nRound = 0; nRound < 5000; ++nRound)
    {
        EXPECT_TRUE(lock.Read().Lock());
        nTorn += nFirst != nSecond ? 1 : 0;
        EXPECT_TRUE(lock.Read().Unlock());
    }
    writer.join();
    EXPECT_EQ(0, nTorn);
    EXPECT_EQ(5000, nSecond);
}

TEST(RWMutex, LockObjectsStayBoundToTheirLock)
{
    CRWMutex first;
    CRWMutex second;
    EXPECT_NE(&first.Read(), &second.Read());
    EXPECT_EQ(&first.Write(), &first.Write());
    ASSERT_TRUE(first.Write().Lock());
    EXPECT_TRUE(second.Write().Lock()); // not held up by the first
    EXPECT_TRUE(second.Write().Unlock());
    EXPECT_TRUE(first.Write().Unlock());
}

TEST(RWMutex, LockObjectThatGoesAwayLeavesTheLockHeld)
{
    CRWMutex lock;
    {
        CRWMutex::CWriteLock passing(lock);
        ASSERT_TRUE(passing.Lock());
    }
    EXPECT_FALSE(lock.Write().Lock());
    EXPECT_FALSE(lock.Read().Lock());
    EXPECT_TRUE(lock.Write().Unlock());
    EXPECT_TRUE(lock.Write().Lock());
    EXPECT_TRUE(lock.Write().Unlock());
}

// ---- CSema --------------------------------------------------------------------------------------------------------------------

TEST(Sema, PostedTwiceLetsTwoWaitsPassAndBlocksTheThird)
{
    CSema sema("test");
    EXPECT_EQ(0, sema.Post());
    EXPECT_EQ(0, sema.Post());
    EXPECT_EQ("", Printed([&] { sema.Wait(); }));
    EXPECT_EQ("", Printed([&] { sema.Wait(); }));
    const Support::CInterruptions interruptions; // only a wait that blocks is interrupted
    EXPECT_EQ(c_strInterrupted, Printed([&] { sema.Wait(); }));
}

TEST(Sema, StartsAtZero)
{
    CSema sema("test");
    const Support::CInterruptions interruptions;
    EXPECT_EQ(c_strInterrupted, Printed([&] { sema.Wait(); }));
}

TEST(Sema, InterruptedWaitIsNotTriedAgainAndTakesNothing)
{
    CSema sema("test");
    {
        const Support::CInterruptions interruptions;
        EXPECT_EQ(c_strInterrupted + c_strInterrupted, Printed([&] { sema.Wait(), sema.Wait(); }));
    }
    EXPECT_EQ(0, sema.Post());
    EXPECT_EQ("", Printed([&] { sema.Wait(); }));
}

TEST(Sema, HandsAWakeUpToAnotherThread)
{
    CSema there("there");
    CSema back("back");
    int nValue = 0;
    std::thread other(
        [&]
        {
            there.Wait();
            nValue *= 2;
            back.Post();
        });
    nValue = 21;
    there.Post();
    back.Wait();
    EXPECT_EQ(42, nValue);
    other.join();
}

TEST(Sema, TakesAnyName)
{
    for (const char* szName : {static_cast<const char*>(nullptr), "", "/no/such/name"})
    {
        CSema sema(szName);
        EXPECT_EQ(0, sema.Post());
        EXPECT_EQ("", Printed([&] { sema.Wait(); }));
    }
}

TEST(Sema, OfOneNameAreNotShared)
{
    CSema first("same");
    CSema second("same");
    first.Post();
    const Support::CInterruptions interruptions;
    EXPECT_EQ(c_strInterrupted, Printed([&] { second.Wait(); }));
}

TEST(Sema, IsValidEvenWhenItCouldNotBeSetUp)
{
    CSema good("good");
    EXPECT_TRUE(good.IsValid());
    const CFailingCall failing(CFailingCall::enSemInit);
    CSema bad("bad");
    EXPECT_TRUE(bad.IsValid());
    EXPECT_TRUE(std::has_virtual_destructor<CSema>::value);
}

// ---- CLockGuard ---------------------------------------------------------------------------------------------------------------

TEST(LockGuard, HoldsTheLockForTheLengthOfABlock)
{
    CMutex mutex(CMutex::enErrorCheck);
    {
        const CLockGuard<CMutex> guard(mutex);
        EXPECT_TRUE(guard.IsHeld());
        EXPECT_FALSE(mutex.Lock());
    }
    EXPECT_TRUE(mutex.Lock());
    EXPECT_TRUE(mutex.Unlock());
}

TEST(LockGuard, HoldsACritSec)
{
    CCritSec section;
    std::unique_ptr<CLockGuard<CCritSec>> pGuard; // whoever is in, owns it
    const auto take = [&]
    {
        auto pTaken = std::make_unique<CLockGuard<CCritSec>>(section);
        pGuard = std::move(pTaken);
        return pGuard->IsHeld();
    };
    EXPECT_EQ(0, CountTogether(take, [&] { const auto pGiven = std::move(pGuard); }));
}

TEST(LockGuard, ThatWasRefusedSaysSoAndUnlocksNothing)
{
    CMutex mutex(CMutex::enErrorCheck);
    mutex.Lock();
    EXPECT_FALSE(CLockGuard<CMutex>(mutex).IsHeld());
    EXPECT_FALSE(mutex.Lock()); // still held
    EXPECT_TRUE(mutex.Unlock());

    const std::unique_ptr<CMutex> pBroken = MutexThatCouldNotBeSetUp(CMutex::enNormal);
    EXPECT_FALSE(CLockGuard<CMutex>(*pBroken).IsHeld());
}
