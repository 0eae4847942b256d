#include "ClientComms/RawPPCQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace
{

// Notes its number when it is destroyed.
class CNotingMessage : public MemPool::CMemPoolBase
{
public:
    CNotingMessage(int nNumber, std::vector<int>& destroyed) : m_nNumber(nNumber), m_Destroyed(destroyed) {}
    ~CNotingMessage() override { m_Destroyed.push_back(m_nNumber); }
    void Clear() override {}

private:
    const int m_nNumber;
    std::vector<int>& m_Destroyed;
};

class RawPPCQueue : public ::testing::Test
{
protected:
    // Adds messages 1 to nCount.
    void Fill(int nCount)
    {
        for (int n = 1; n <= nCount; ++n)
        {
            m_Added.push_back(new CNotingMessage(n, m_Destroyed));
            m_pQueue->AddMsgToTail(m_Added.back());
        }
    }

    std::vector<int> m_Destroyed;
    std::vector<CNotingMessage*> m_Added;
    std::unique_ptr<CRawPPCQueue> m_pQueue = std::make_unique<CRawPPCQueue>();
};

TEST_F(RawPPCQueue, AnEmptyOneHasNoFrontAndRefusesToRemoveIt)
{
    EXPECT_EQ(0, m_pQueue->GetQueueSize());
    EXPECT_EQ(nullptr, m_pQueue->GetFrontMsg(false));
    EXPECT_EQ(nullptr, m_pQueue->GetFrontMsg(true));
    EXPECT_FALSE(m_pQueue->RemoveFront());
    m_pQueue->ClearQueue();
    EXPECT_EQ(0, m_pQueue->GetQueueSize());
}

TEST_F(RawPPCQueue, NullIsNotAdded)
{
    m_pQueue->AddMsgToTail(nullptr);
    EXPECT_EQ(0, m_pQueue->GetQueueSize());
    EXPECT_FALSE(m_pQueue->RemoveFront());
}

TEST_F(RawPPCQueue, LookingAtTheFrontLeavesItWhereItIs)
{
    Fill(2);
    EXPECT_EQ(m_Added[0], m_pQueue->GetFrontMsg(false));
    EXPECT_EQ(m_Added[0], m_pQueue->GetFrontMsg(false));
    EXPECT_EQ(2, m_pQueue->GetQueueSize());
    EXPECT_TRUE(m_Destroyed.empty());
}

TEST_F(RawPPCQueue, MessagesLeaveInTheOrderTheyCame)
{
    Fill(200);
    for (int n = 0; n < 200; ++n)
    {
        const std::unique_ptr<MemPool::CMemPoolBase> pFront(m_pQueue->GetFrontMsg(true));
        ASSERT_EQ(m_Added[static_cast<std::size_t>(n)], pFront.get());
        ASSERT_EQ(199 - n, m_pQueue->GetQueueSize());
    }
    EXPECT_EQ(nullptr, m_pQueue->GetFrontMsg(true));
}

TEST_F(RawPPCQueue, APoppedMessageBelongsToTheCaller)
{
    Fill(1);
    std::unique_ptr<MemPool::CMemPoolBase> pMine(m_pQueue->GetFrontMsg(true));
    m_pQueue.reset();
    EXPECT_TRUE(m_Destroyed.empty());
    pMine.reset();
    EXPECT_EQ(std::vector<int>{1}, m_Destroyed);
}

TEST_F(RawPPCQueue, RemovingDestroysTheFrontAlone)
{
    Fill(3);
    EXPECT_TRUE(m_pQueue->RemoveFront());
    EXPECT_EQ(std::vector<int>{1}, m_Destroyed);
    EXPECT_EQ(2, m_pQueue->GetQueueSize());
    EXPECT_EQ(m_Added[1], m_pQueue->GetFrontMsg(false));
}

TEST_F(RawPPCQueue, ClearingDestroysEveryMessageOnceAndTheQueueGoesOn)
{
    Fill(3);
    m_pQueue->ClearQueue();
    std::sort(m_Destroyed.begin(), m_Destroyed.end());
    EXPECT_EQ((std::vector<int>{1, 2, 3}), m_Destroyed);
    EXPECT_EQ(0, m_pQueue->GetQueueSize());
    Fill(1);
    EXPECT_EQ(m_Added.back(), m_pQueue->GetFrontMsg(false));
}

TEST_F(RawPPCQueue, ItsEndDestroysWhatItHolds)
{
    Fill(4);
    EXPECT_TRUE(m_pQueue->RemoveFront());
    m_pQueue.reset();
    EXPECT_EQ(4u, m_Destroyed.size());
}

} // namespace
