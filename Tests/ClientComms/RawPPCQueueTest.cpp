#include "ClientComms/RawPPCQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

using testing::ElementsAre;

namespace
{

typedef std::unique_ptr<CRawPPCMsg[]> tOwned;

// An array of messages with a value each; the first carries the number.
CRawPPCMsg* NewEntry(int nNumber, std::size_t unMessages = 1)
{
    CRawPPCMsg* const pMessages = new CRawPPCMsg[unMessages];
    for (std::size_t un = 0; un < unMessages; ++un)
    {
        EXPECT_TRUE(pMessages[un].SetPPC(enInteger, 0, 0, un == 0 ? nNumber : -1, nNumber));
    }
    return pMessages;
}

// Reads an entry down to its value, so that one freed too early is seen.
int NumberOf(const CRawPPCMsg* pMessages)
{
    unsigned char acRecord[29] = {};
    EXPECT_EQ(pMessages->WriteTo(acRecord, sizeof acRecord), sizeof acRecord);
    const int nNumber = pMessages->Header().nParameter;
    EXPECT_EQ(acRecord[28], nNumber % 256);
    return nNumber;
}

class RawPPCQueue : public ::testing::Test
{
protected:
    // Adds arrays of one to three messages, numbered from nFirst on.
    void Fill(int nCount, int nFirst = 1)
    {
        for (int n = nFirst; n < nFirst + nCount; ++n)
        {
            EXPECT_TRUE(m_pQueue->AddMsgToTail(NewEntry(n, static_cast<std::size_t>(n % 3 + 1))));
        }
    }

    // Borrows up to nMax and answers their numbers.
    std::vector<int> Borrow(int nMax)
    {
        m_Borrowed.assign(static_cast<std::size_t>(nMax), nullptr);
        m_Borrowed.resize(static_cast<std::size_t>(m_pQueue->Borrow(m_Borrowed.data(), nMax)));
        return Numbers();
    }

    std::vector<int> Numbers() const
    {
        std::vector<int> numbers;
        for (const CRawPPCMsg* const pMessages : m_Borrowed)
        {
            numbers.push_back(NumberOf(pMessages));
        }
        return numbers;
    }

    // Gives back, frees what is then the sender's, and answers how many those were.
    int GiveBack(int nDone, int nExpectedMissing)
    {
        int nMissing = -1;
        const int nMine = m_pQueue->GiveBack(nDone, nMissing);
        EXPECT_EQ(nMissing, nExpectedMissing);
        for (int n = 0; n < nMine; ++n)
        {
            NumberOf(m_Borrowed.at(static_cast<std::size_t>(n)));
            delete[] m_Borrowed[static_cast<std::size_t>(n)];
        }
        return nMine;
    }

    // The numbers of all that is left, which are popped.
    std::vector<int> Left()
    {
        std::vector<int> numbers;
        while (const tOwned pFront{m_pQueue->GetFrontMsg(true)})
        {
            numbers.push_back(NumberOf(pFront.get()));
        }
        EXPECT_EQ(m_pQueue->GetQueueSize(), 0);
        return numbers;
    }

    std::unique_ptr<CRawPPCQueue> m_pQueue = std::make_unique<CRawPPCQueue>();
    std::vector<CRawPPCMsg*> m_Borrowed;
};

} // namespace

TEST_F(RawPPCQueue, HasAVirtualDestructorAndNoCopies)
{
    EXPECT_TRUE(std::has_virtual_destructor<CRawPPCQueue>::value);
    EXPECT_FALSE(std::is_copy_constructible<CRawPPCQueue>::value);
    EXPECT_FALSE(std::is_copy_assignable<CRawPPCQueue>::value);
}

TEST_F(RawPPCQueue, AnEmptyOneHasNoFrontAndRefusesToRemoveIt)
{
    EXPECT_EQ(m_pQueue->GetQueueSize(), 0);
    EXPECT_EQ(m_pQueue->GetFrontMsg(false), nullptr);
    EXPECT_EQ(m_pQueue->GetFrontMsg(true), nullptr);
    EXPECT_FALSE(m_pQueue->RemoveFront());
    m_pQueue->ClearQueue();
    EXPECT_EQ(m_pQueue->GetQueueSize(), 0);
}

TEST_F(RawPPCQueue, NullIsNotAdded)
{
    EXPECT_TRUE(m_pQueue->AddMsgToTail(nullptr));
    EXPECT_EQ(m_pQueue->GetQueueSize(), 0);
    Fill(1);
    EXPECT_TRUE(m_pQueue->AddMsgToTail(nullptr));
    EXPECT_EQ(m_pQueue->GetQueueSize(), 1);
    EXPECT_TRUE(m_pQueue->RemoveFront());
    EXPECT_FALSE(m_pQueue->RemoveFront());
}

TEST_F(RawPPCQueue, AnArrayIsOneEntryHoweverManyMessagesItHas)
{
    for (const std::size_t unMessages : {1u, 2u, 5u, 100u})
    {
        EXPECT_TRUE(m_pQueue->AddMsgToTail(NewEntry(3, unMessages)));
        EXPECT_EQ(m_pQueue->GetQueueSize(), 1);
        EXPECT_TRUE(m_pQueue->RemoveFront());
        EXPECT_EQ(m_pQueue->GetQueueSize(), 0);
    }
}

TEST_F(RawPPCQueue, LookingAtTheFrontLeavesItWhereItIs)
{
    CRawPPCMsg* const pFirst = NewEntry(1);
    EXPECT_TRUE(m_pQueue->AddMsgToTail(pFirst));
    Fill(1, 2);
    EXPECT_EQ(m_pQueue->GetFrontMsg(false), pFirst);
    EXPECT_EQ(m_pQueue->GetFrontMsg(false), pFirst);
    EXPECT_EQ(m_pQueue->GetQueueSize(), 2);
}

TEST_F(RawPPCQueue, MessagesLeaveInTheOrderTheyCame)
{
    std::vector<int> expected;
    for (int n = 1; n <= 1000; ++n)
    {
        expected.push_back(n);
    }
    Fill(1000);
    EXPECT_EQ(m_pQueue->GetQueueSize(), 1000);
    EXPECT_EQ(Left(), expected);
}

TEST_F(RawPPCQueue, APoppedMessageBelongsToTheCaller)
{
    Fill(2);
    const tOwned pMine(m_pQueue->GetFrontMsg(true));
    EXPECT_EQ(m_pQueue->GetQueueSize(), 1);
    m_pQueue.reset();
    EXPECT_EQ(NumberOf(pMine.get()), 1);
}

TEST_F(RawPPCQueue, RemovingTakesTheFrontAlone)
{
    Fill(3);
    EXPECT_TRUE(m_pQueue->RemoveFront());
    EXPECT_EQ(m_pQueue->GetQueueSize(), 2);
    EXPECT_THAT(Left(), ElementsAre(2, 3));
}

TEST_F(RawPPCQueue, GoesOnAfterItWasCleared)
{
    Fill(3);
    m_pQueue->ClearQueue();
    EXPECT_EQ(m_pQueue->GetQueueSize(), 0);
    EXPECT_EQ(m_pQueue->GetFrontMsg(false), nullptr);
    Fill(2, 8);
    EXPECT_THAT(Left(), ElementsAre(8, 9));
}

// ---- The loan -----------------------------------------------------------------------------------------------------------------

TEST_F(RawPPCQueue, LendsTheFirstEntriesInOrderAndStillCountsThem)
{
    Fill(5);
    EXPECT_THAT(Borrow(3), ElementsAre(1, 2, 3));
    EXPECT_EQ(m_Borrowed[0], m_pQueue->GetFrontMsg(false));
    EXPECT_EQ(m_pQueue->GetQueueSize(), 5);
    EXPECT_EQ(GiveBack(0, 0), 0);
    EXPECT_THAT(Left(), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(RawPPCQueue, LendsNoMoreThanThereAre)
{
    Fill(2);
    EXPECT_THAT(Borrow(64), ElementsAre(1, 2));
    EXPECT_EQ(GiveBack(2, 0), 2);
    EXPECT_EQ(m_pQueue->GetQueueSize(), 0);
}

TEST_F(RawPPCQueue, LendingNothingIsNoLoan)
{
    CRawPPCMsg* pEntry = nullptr;
    EXPECT_EQ(m_pQueue->Borrow(&pEntry, 1), 0);
    Fill(1);
    EXPECT_EQ(m_pQueue->Borrow(&pEntry, 0), 0);
    EXPECT_EQ(m_pQueue->Borrow(&pEntry, -1), 0);
    EXPECT_EQ(m_pQueue->Borrow(&pEntry, INT_MIN), 0);
    EXPECT_EQ(pEntry, nullptr);
    EXPECT_THAT(Borrow(1), ElementsAre(1));
    EXPECT_EQ(GiveBack(1, 0), 1);
}

TEST_F(RawPPCQueue, WhatIsDoneLeavesAndIsTheSendersToFree)
{
    Fill(5);
    EXPECT_THAT(Borrow(4), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(GiveBack(1, 0), 1);
    EXPECT_EQ(m_pQueue->GetQueueSize(), 4);
    EXPECT_THAT(Borrow(3), ElementsAre(2, 3, 4));
    EXPECT_EQ(GiveBack(3, 0), 3);
    EXPECT_THAT(Left(), ElementsAre(5));
}

TEST_F(RawPPCQueue, LendsToOneSenderOnly)
{
    Fill(3);
    EXPECT_THAT(Borrow(1), ElementsAre(1));
    CRawPPCMsg* apOther[3] = {};
    EXPECT_EQ(m_pQueue->Borrow(apOther, 3), 0);
    EXPECT_EQ(apOther[0], nullptr);
    m_pQueue->ClearQueue();
    Fill(1, 4);
    EXPECT_EQ(m_pQueue->Borrow(apOther, 3), 0);
    EXPECT_EQ(GiveBack(0, 0), 1);
    EXPECT_THAT(Borrow(3), ElementsAre(4));
    EXPECT_EQ(GiveBack(1, 0), 1);
}

TEST_F(RawPPCQueue, NobodyPopsWhatIsLent)
{
    Fill(2);
    EXPECT_THAT(Borrow(1), ElementsAre(1));
    EXPECT_EQ(m_pQueue->GetFrontMsg(true), nullptr);
    EXPECT_EQ(m_pQueue->GetQueueSize(), 2);
    EXPECT_EQ(GiveBack(0, 0), 0);
    EXPECT_THAT(Left(), ElementsAre(1, 2));
}

TEST_F(RawPPCQueue, ARemovedLoanLeavesAtOnceAndLivesUntilItIsGivenBack)
{
    Fill(4);
    EXPECT_THAT(Borrow(3), ElementsAre(1, 2, 3));
    EXPECT_TRUE(m_pQueue->RemoveFront());
    EXPECT_EQ(m_pQueue->GetQueueSize(), 3);
    EXPECT_EQ(m_pQueue->GetFrontMsg(false), m_Borrowed[1]);
    EXPECT_THAT(Numbers(), ElementsAre(1, 2, 3));
    EXPECT_EQ(GiveBack(2, 1), 2);
    EXPECT_EQ(m_pQueue->GetQueueSize(), 2);
    EXPECT_THAT(Left(), ElementsAre(3, 4));
}

TEST_F(RawPPCQueue, TheSenderFreesWhatOthersRemovedThoughItDidLess)
{
    const struct
    {
        int nRemoved;
        int nDone;
        int nMine;
        int nMissing;
    } aCases[] = {{1, 0, 1, 0}, {2, 1, 2, 1}, {3, 1, 3, 1}, {3, 3, 3, 3}, {2, 3, 3, 2}, {5, 0, 3, 0}, {4, 2, 3, 2}, {0, 2, 2, 0}};
    for (const auto& stCase : aCases)
    {
        Fill(5);
        EXPECT_EQ(Borrow(3).size(), 3u);
        for (int n = 0; n < stCase.nRemoved; ++n)
        {
            EXPECT_TRUE(m_pQueue->RemoveFront());
        }
        EXPECT_EQ(m_pQueue->GetQueueSize(), 5 - stCase.nRemoved);
        EXPECT_THAT(Numbers(), ElementsAre(1, 2, 3));
        EXPECT_EQ(GiveBack(stCase.nDone, stCase.nMissing), stCase.nMine) << stCase.nRemoved << ", " << stCase.nDone;
        EXPECT_EQ(m_pQueue->GetQueueSize(), 5 - std::max(stCase.nRemoved, stCase.nMine));
        Left();
    }
}

TEST_F(RawPPCQueue, WhatWasAddedAfterClearingIsNotTheLoans)
{
    Fill(3);
    EXPECT_THAT(Borrow(2), ElementsAre(1, 2));
    m_pQueue->ClearQueue();
    EXPECT_EQ(m_pQueue->GetQueueSize(), 0);
    EXPECT_EQ(m_pQueue->GetFrontMsg(false), nullptr);
    EXPECT_FALSE(m_pQueue->RemoveFront());
    Fill(3, 7);
    EXPECT_EQ(NumberOf(m_pQueue->GetFrontMsg(false)), 7);
    EXPECT_TRUE(m_pQueue->RemoveFront());
    EXPECT_THAT(Numbers(), ElementsAre(1, 2));
    EXPECT_EQ(GiveBack(2, 2), 2);
    EXPECT_THAT(Left(), ElementsAre(8, 9));
}

TEST_F(RawPPCQueue, AFrontThatIsNotLentIsPoppedDuringALoan)
{
    Fill(2);
    EXPECT_THAT(Borrow(1), ElementsAre(1));
    EXPECT_TRUE(m_pQueue->RemoveFront());
    const tOwned pSecond(m_pQueue->GetFrontMsg(true));
    ASSERT_NE(pSecond, nullptr);
    EXPECT_EQ(NumberOf(pSecond.get()), 2);
    EXPECT_EQ(m_pQueue->GetQueueSize(), 0);
    EXPECT_EQ(GiveBack(1, 1), 1);
}

TEST_F(RawPPCQueue, WhatIsAddedDuringALoanFollows)
{
    Fill(2);
    EXPECT_THAT(Borrow(2), ElementsAre(1, 2));
    Fill(1000, 3);
    EXPECT_EQ(m_pQueue->GetQueueSize(), 1002);
    EXPECT_THAT(Numbers(), ElementsAre(1, 2));
    EXPECT_EQ(GiveBack(2, 0), 2);
    EXPECT_EQ(m_pQueue->GetQueueSize(), 1000);
    EXPECT_EQ(NumberOf(m_pQueue->GetFrontMsg(false)), 3);
}

TEST_F(RawPPCQueue, GivingBackMoreThanIsLentTakesNothingElse)
{
    Fill(3);
    EXPECT_EQ(GiveBack(2, 0), 0);
    EXPECT_THAT(Borrow(2), ElementsAre(1, 2));
    EXPECT_EQ(GiveBack(INT_MAX, 0), 2);
    EXPECT_EQ(GiveBack(1, 0), 0);
    EXPECT_THAT(Left(), ElementsAre(3));
}

TEST_F(RawPPCQueue, GivingBackFewerThanNoneIsNone)
{
    Fill(3);
    EXPECT_THAT(Borrow(2), ElementsAre(1, 2));
    EXPECT_TRUE(m_pQueue->RemoveFront());
    EXPECT_EQ(GiveBack(INT_MIN, 0), 1);
    EXPECT_THAT(Left(), ElementsAre(2, 3));
}

TEST_F(RawPPCQueue, FreesAtItsEndWhatItHoldsLentOrNot)
{
    Fill(5);
    EXPECT_THAT(Borrow(3), ElementsAre(1, 2, 3));
    EXPECT_EQ(m_pQueue->GetQueueSize(), 5);
    m_pQueue.reset(); // the rest is the leak checker's
}

// ---- Threads ------------------------------------------------------------------------------------------------------------------

namespace
{

constexpr int c_nMessages = 20000;

// A queue under its lock, with those who use it: each method is one thread's work.
class CTraffic
{
public:
    void Produce()
    {
        for (int n = 1; n <= c_nMessages; ++n)
        {
            CRawPPCMsg* const pMessages = NewEntry(n);
            const std::lock_guard<std::mutex> guard(m_Lock);
            EXPECT_TRUE(m_Queue.AddMsgToTail(pMessages));
            m_bProduced = n == c_nMessages;
        }
    }

    void Clear()
    {
        for (; !IsProduced(); std::this_thread::yield())
        {
            const std::lock_guard<std::mutex> guard(m_Lock);
            nCleared += m_Queue.RemoveFront() ? 1 : 0;
            if (nCleared % 4 == 0)
            {
                nCleared += m_Queue.GetQueueSize();
                m_Queue.ClearQueue();
            }
        }
    }

    // Reads the entries while nobody holds the lock.
    void Send()
    {
        int nLast = 0;
        for (bool bLast = false; !bLast; std::this_thread::yield())
        {
            bLast = IsProduced();
            CRawPPCMsg* apEntries[16] = {};
            for (int nCount = Borrow(apEntries); nCount > 0; nCount = Borrow(apEntries))
            {
                for (int n = 0; n < nCount; ++n)
                {
                    const int nNumber = NumberOf(apEntries[n]);
                    EXPECT_GT(nNumber, nLast);
                    nLast = nNumber;
                }
                GiveBack(apEntries, nCount);
            }
        }
    }

    int nCleared = 0;
    int nSent = 0;

private:
    bool IsProduced()
    {
        const std::lock_guard<std::mutex> guard(m_Lock);
        return m_bProduced;
    }

    int Borrow(CRawPPCMsg** ppEntries)
    {
        const std::lock_guard<std::mutex> guard(m_Lock);
        return m_Queue.Borrow(ppEntries, 16);
    }

    void GiveBack(CRawPPCMsg** ppEntries, int nCount)
    {
        int nMissing = 0;
        {
            const std::lock_guard<std::mutex> guard(m_Lock);
            EXPECT_EQ(m_Queue.GiveBack(nCount, nMissing), nCount);
        }
        nSent += nCount - nMissing;
        std::for_each(ppEntries, ppEntries + nCount, [](CRawPPCMsg* pMessages) { delete[] pMessages; });
    }

    std::mutex m_Lock;
    CRawPPCQueue m_Queue;
    bool m_bProduced = false;
};

} // namespace

TEST(RawPPCQueueThreads, EveryMessageIsSentOnceInOrderOrCleared)
{
    CTraffic traffic;
    std::thread producer([&] { traffic.Produce(); });
    std::thread clearer([&] { traffic.Clear(); });
    traffic.Send();
    producer.join();
    clearer.join();
    EXPECT_EQ(traffic.nSent + traffic.nCleared, c_nMessages);
}
