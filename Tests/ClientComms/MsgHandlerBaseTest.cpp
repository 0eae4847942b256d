#include "ClientComms/MsgHandlerBase.h"

#include "Support/Bytes.h"
#include "Support/DebugLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{

using Support::Datagram;
using Support::Hex;
using Support::tBytes;
typedef std::vector<std::string> tLines;

const char* const c_szTooBig =
    "[CMsgHandlerBase::ValidatePacketSequence] fragmented message was too big to fit in the supplied buffer.";
const std::uint32_t c_aunBoundaries[] = {0xffffffff, 0, 1, 2, 5, 6, 0x7fffffff, 0x80000000};

std::string Signed(std::uint32_t unValue)
{
    return std::to_string(static_cast<std::int64_t>(unValue) - (unValue >> 31 != 0 ? std::int64_t(1) << 32 : 0));
}

std::string Validating(std::size_t unLength, int nRingIndex)
{
    return "CMsgHandlerBase::ValidatePacketSequence - validating (lLength = " + std::to_string(unLength) +
           ") (m_nReceivedPackets = " + std::to_string(nRingIndex) + ")";
}

std::string InvalidHeader(std::uint32_t unType, std::uint32_t unNumber, std::uint32_t unTotal)
{
    return "[CMsgHandlerBase::ValidatePacketSequence] invalid packet header: type (" + Signed(unType) + ") sequence (" +
           Signed(unNumber) + ") total (" + Signed(unTotal) + ")";
}

std::string TooSmall(std::uint32_t unPacket, int nBuffer)
{
    return "[CMsgHandlerBase::ValidatePacketSequence] supplied buffer is too small to hold the rx packet; packet (" +
           Signed(unPacket) + ") bytes, buffer (" + std::to_string(nBuffer) + ") bytes.";
}

std::uint32_t Field(const tBytes& datagram, std::size_t unIndex)
{
    std::uint32_t unValue = 0;
    std::for_each(datagram.begin() + static_cast<long>(4 * unIndex), datagram.begin() + static_cast<long>(4 * unIndex + 4),
                  [&unValue](unsigned char ucByte) { unValue = unValue << 8 | ucByte; });
    return unValue;
}

struct stOutcome
{
    int nResult;
    tBytes message;
    tLines lines;
};

// Reassembly again, as simply as can be: every fragment ever stored, of which the last 50 count.
class CModel
{
public:
    stOutcome Take(const tBytes& datagram, int nCapacity)
    {
        stOutcome refused{-1, tBytes(), {Validating(datagram.size(), static_cast<int>(m_Stored.size() % 50))}};
        if (datagram.size() < 20)
        {
            return refused;
        }
        const std::uint32_t unType = Field(datagram, 0), unNumber = Field(datagram, 2), unTotal = Field(datagram, 3);
        const std::uint32_t unLength = Field(datagram, 4);
        const std::string strInvalid = InvalidHeader(unType, unNumber, unTotal);
        const std::size_t unCapacity = nCapacity < 0 ? 0 : static_cast<std::size_t>(nCapacity);
        if (unType > 89 || unNumber == 0 || unNumber > unTotal || unTotal > 5)
        {
            return Refuse(refused, strInvalid);
        }
        if (unTotal == 1 && unLength > unCapacity)
        {
            return Refuse(refused, TooSmall(unLength, nCapacity));
        }
        if (unLength > datagram.size() - 20)
        {
            return Refuse(refused, strInvalid);
        }
        stOutcome joined{static_cast<int>(unType), tBytes(), refused.lines};
        for (std::uint32_t un = 1; un <= unTotal; ++un)
        {
            const tBytes* pFragment = un == unNumber ? &datagram : Newest(Field(datagram, 1), un);
            if (pFragment == nullptr)
            {
                return datagram.size() > 65000 ? Refuse(refused, strInvalid) : Store(refused, datagram);
            }
            const auto payload = pFragment->begin() + 20;
            joined.message.insert(joined.message.end(), payload, payload + static_cast<long>(Field(*pFragment, 4)));
        }
        return joined.message.size() > unCapacity ? Refuse(refused, c_szTooBig) : joined;
    }

private:
    static stOutcome Refuse(stOutcome outcome, const std::string& strLine)
    {
        outcome.lines.push_back(strLine);
        return outcome;
    }

    stOutcome Store(const stOutcome& outcome, const tBytes& datagram)
    {
        m_Stored.push_front(datagram);
        return outcome;
    }

    const tBytes* Newest(std::uint32_t unId, std::uint32_t unNumber) const
    {
        const auto end = m_Stored.begin() + static_cast<long>(std::min<std::size_t>(m_Stored.size(), 50));
        const auto found = std::find_if(m_Stored.begin(), end,
                                        [unId, unNumber](const tBytes& stored)
                                        { return Field(stored, 1) == unId && Field(stored, 2) == unNumber; });
        return found == end ? nullptr : &*found;
    }

    std::deque<tBytes> m_Stored;
};

// Gives datagrams to a handler, each in a block of exactly its size, and holds every result against the model's.
class Reassembly : public ::testing::Test
{
protected:
    void Restart()
    {
        m_pHandler = std::make_unique<CMsgHandlerBase>();
        m_Model = CModel();
    }

    stOutcome Deliver(const tBytes& datagram)
    {
        const std::unique_ptr<char[]> pExact(new char[datagram.size()]);
        std::copy(datagram.begin(), datagram.end(), pExact.get());
        const stOutcome outcome = Deliver(pExact.get(), static_cast<long>(datagram.size()));
        const stOutcome expected = m_Model.Take(datagram, m_nCapacity);
        EXPECT_EQ(expected.nResult, outcome.nResult);
        EXPECT_EQ(expected.message, outcome.message);
        EXPECT_EQ(expected.lines, outcome.lines);
        return outcome;
    }

    stOutcome Deliver(const char* pData, long lLength)
    {
        const std::size_t unSize = static_cast<std::size_t>(std::max(m_nCapacity, 0));
        const std::unique_ptr<unsigned char[]> pBuffer(new unsigned char[unSize]);
        std::fill_n(pBuffer.get(), unSize, static_cast<unsigned char>(0xee));
        unsigned char* pOut = pBuffer.get();
        int nSize = m_nCapacity;
        stOutcome outcome{m_pHandler->ValidatePacketSequence(pData, lLength, &pOut, nSize), tBytes(), m_Log.Take()};
        EXPECT_EQ(pBuffer.get(), pOut);
        if (outcome.nResult == -1)
        {
            EXPECT_EQ(m_nCapacity, nSize);
            EXPECT_EQ(static_cast<long>(unSize), std::count(pOut, pOut + unSize, 0xee));
        }
        else
        {
            outcome.message.assign(pOut, pOut + nSize);
        }
        return outcome;
    }

    void Stores(const tBytes& datagram)
    {
        const stOutcome outcome = Deliver(datagram);
        EXPECT_EQ(-1, outcome.nResult);
        EXPECT_EQ(1u, outcome.lines.size());
    }

    void Refuses(const tBytes& datagram, const std::string& strLine)
    {
        const stOutcome outcome = Deliver(datagram);
        EXPECT_EQ(-1, outcome.nResult);
        EXPECT_EQ(2u, outcome.lines.size());
        EXPECT_EQ(strLine, outcome.lines.back());
    }

    void Completes(const tBytes& datagram, const tBytes& message)
    {
        const stOutcome outcome = Deliver(datagram);
        EXPECT_EQ(Field(datagram, 0), static_cast<std::uint32_t>(outcome.nResult));
        EXPECT_EQ(message, outcome.message);
    }

    // Stores fragments of other messages.
    void Bury(int nCount)
    {
        for (int n = 0; n < nCount; ++n)
        {
            Stores(Datagram(0, m_unNextForeign++, 1, 2, Hex("ff")));
        }
    }

    Support::CDebugLog m_Log;
    std::unique_ptr<CMsgHandlerBase> m_pHandler = std::make_unique<CMsgHandlerBase>();
    CModel m_Model;
    int m_nCapacity = 100;
    std::uint32_t m_unNextForeign = 1000000;
};

TEST_F(Reassembly, ShortDatagramsAreDroppedWithoutAMessage)
{
    for (std::size_t unLength = 0; unLength < 20; ++unLength)
    {
        Stores(tBytes(unLength, 0));
    }
    EXPECT_EQ(tLines{"CMsgHandlerBase::ValidatePacketSequence - validating (lLength = 19) (m_nReceivedPackets = 0)"},
              Deliver(tBytes(19, 0)).lines);
    EXPECT_EQ(tLines{"CMsgHandlerBase::ValidatePacketSequence - validating (lLength = -1) (m_nReceivedPackets = 0)"},
              Deliver("", -1).lines);
}

TEST_F(Reassembly, NullsAndImpossibleLengthsGiveNothing)
{
    const tBytes good = Datagram(0, 1, 1, 1, Hex("aa"));
    const char* pData = reinterpret_cast<const char*>(good.data());
    EXPECT_EQ(-1, Deliver(nullptr, 21).nResult);
    EXPECT_EQ(-1, Deliver(nullptr, LONG_MAX).nResult);
    EXPECT_EQ(-1, Deliver(pData, LONG_MIN).nResult);
    int nSize = 100;
    unsigned char* pNoBuffer = nullptr;
    EXPECT_EQ(-1, m_pHandler->ValidatePacketSequence(pData, 21, nullptr, nSize));
    EXPECT_EQ(-1, m_pHandler->ValidatePacketSequence(pData, 21, &pNoBuffer, nSize));
    m_Log.Take();
    Completes(good, Hex("aa"));
}

TEST_F(Reassembly, TwentyBytesAreAnEmptyMessageOfTheirType)
{
    for (const std::uint32_t unType : {0u, 1u, 3u, 89u})
    {
        Completes(Datagram(unType, 7, 1, 1, tBytes()), tBytes());
    }
    m_nCapacity = 0;
    Completes(Datagram(0, 7, 1, 1, tBytes()), tBytes());
}

TEST_F(Reassembly, ASingleDatagramIsCopiedWithoutWhatLiesBehindItsPayload)
{
    Completes(Hex("00000003 00000000 00000001 00000001 00000004 01 02 fe ff"), Hex("01 02 fe ff"));
    Completes(Datagram(0, 7, 1, 1, 2, Hex("01 02 03 04")), Hex("01 02"));
    Stores(Datagram(0, 8, 1, 2, 1, Hex("0a ff")));
    Completes(Datagram(0, 8, 2, 2, 1, Hex("0b ff ff")), Hex("0a 0b"));
}

TEST_F(Reassembly, EveryMixOfBoundaryValuesIsJudgedByTypeNumberAndTotal)
{
    int nMessages = 0;
    for (std::uint32_t unMix = 0; unMix < 512; ++unMix)
    {
        const std::uint32_t unType = c_aunBoundaries[unMix / 64], unNumber = c_aunBoundaries[unMix / 8 % 8];
        const std::uint32_t unTotal = c_aunBoundaries[unMix % 8];
        nMessages += Deliver(Datagram(unType, unMix, unNumber, unTotal, Hex("42"))).nResult >= 0 ? 1 : 0;
    }
    EXPECT_EQ(5, nMessages); // 1 of 1, in five valid types
}

TEST_F(Reassembly, BadHeadersAreLoggedWithTheirNumbersAndTheNextGoodOneCounts)
{
    const struct
    {
        std::uint32_t unType, unNumber, unTotal;
        const char* szNumbers;
    } aCases[] = {
        {90, 1, 1, "type (90) sequence (1) total (1)"},
        {0xffffffff, 1, 1, "type (-1) sequence (1) total (1)"},
        {0, 0, 1, "type (0) sequence (0) total (1)"},
        {0, 3, 2, "type (0) sequence (3) total (2)"},
        {0, 1, 6, "type (0) sequence (1) total (6)"},
        {0, 0xfffffffb, 3, "type (0) sequence (-5) total (3)"},
        {0, 0xfffffffe, 0xffffffff, "type (0) sequence (-2) total (-1)"},
        {0x80000000, 0x80000000, 0x7fffffff, "type (-2147483648) sequence (-2147483648) total (2147483647)"},
    };
    for (const auto& c : aCases)
    {
        Refuses(Datagram(c.unType, 7, c.unNumber, c.unTotal, Hex("ab")),
                std::string("[CMsgHandlerBase::ValidatePacketSequence] invalid packet header: ") + c.szNumbers);
        Completes(Datagram(0, 7, 1, 1, Hex("cd")), Hex("cd"));
    }
}

TEST_F(Reassembly, ASingleDatagramMayFillTheBufferAndNoMore)
{
    m_nCapacity = 3;
    Completes(Datagram(0, 7, 1, 1, Hex("01 02 03")), Hex("01 02 03"));
    Refuses(Datagram(0, 7, 1, 1, Hex("01 02 03 04")),
            "[CMsgHandlerBase::ValidatePacketSequence] supplied buffer is too small to hold the rx packet; packet (4) bytes, "
            "buffer (3) bytes.");
}

TEST_F(Reassembly, AHugeOrNegativeLengthIsTooLargeForAnyBuffer)
{
    for (const int nCapacity : {INT_MIN, -1, 0, 1, 1048576})
    {
        m_nCapacity = nCapacity;
        for (const std::uint32_t unLength : {0xffffffffu, 0x80000000u, 0x7fffffffu, 2000000u})
        {
            Refuses(Datagram(0, 7, 1, 1, unLength, Hex("01")), TooSmall(unLength, nCapacity));
        }
    }
}

TEST_F(Reassembly, NoClaimedLengthReachesBeyondTheDatagram)
{
    for (std::uint32_t unClaim = 0; unClaim <= 80; ++unClaim)
    {
        EXPECT_EQ(unClaim <= 20 ? 5 : -1, Deliver(Datagram(5, 7, 1, 1, unClaim, tBytes(20, 0x5a))).nResult);
        EXPECT_EQ(unClaim <= 20 ? 1u : 2u, Deliver(Datagram(5, 100 + unClaim, 1, 2, unClaim, tBytes(20, 0x5a))).lines.size());
    }
}

TEST_F(Reassembly, ALyingLastFragmentIsRefusedAndTheHonestOneCompletes)
{
    Stores(Datagram(0, 7, 1, 2, Hex("0a")));
    for (const std::uint32_t unClaim : {2u, 65000u, 0x7fffffffu, 0x80000000u, 0xffffffffu})
    {
        Refuses(Datagram(0, 7, 2, 2, unClaim, Hex("0b")), InvalidHeader(0, 2, 2));
    }
    Completes(Datagram(0, 7, 2, 2, Hex("0b")), Hex("0a 0b"));
}

TEST_F(Reassembly, EveryOrderOfFiveFragmentsJoinsThemInNumberOrder)
{
    const tBytes aPayloads[] = {Hex("01"), Hex("02 02"), tBytes(), Hex("04 04 04 04"), Hex("05")};
    std::uint32_t aunOrder[] = {1, 2, 3, 4, 5};
    std::uint32_t unId = 0;
    do
    {
        ++unId;
        for (int n = 0; n < 4; ++n)
        {
            Stores(Datagram(9, unId, aunOrder[n], 5, aPayloads[aunOrder[n] - 1]));
        }
        Completes(Datagram(9, unId, aunOrder[4], 5, aPayloads[aunOrder[4] - 1]), Hex("01 02 02 04 04 04 04 05"));
    } while (std::next_permutation(aunOrder, aunOrder + 5));
    EXPECT_EQ(120u, unId);
}

TEST_F(Reassembly, JoinedFragmentsMayFillTheBufferAndNoMore)
{
    for (const int nCapacity : {3, 2, 1, 0, -1, INT_MIN})
    {
        m_nCapacity = nCapacity;
        Stores(Datagram(2, 7, 1, 2, Hex("01 02")));
        Refuses(Datagram(2, 7, 2, 2, Hex("03 04")), c_szTooBig);
    }
    m_nCapacity = 4;
    Completes(Datagram(2, 7, 2, 2, Hex("03 04")), Hex("01 02 03 04"));
}

TEST_F(Reassembly, AFirstFragmentLargerThanTheBufferIsRefusedWhicheverComesLast)
{
    m_nCapacity = 10;
    Stores(Datagram(0, 7, 1, 2, tBytes(20, 1)));
    Refuses(Datagram(0, 7, 2, 2, tBytes(20, 2)), c_szTooBig);
    Stores(Datagram(0, 8, 2, 2, tBytes()));
    Refuses(Datagram(0, 8, 1, 2, tBytes(20, 1)), c_szTooBig);
}

TEST_F(Reassembly, OnlyWhatASlotHoldsIsStoredAndWhatCompletesMayBeLarger)
{
    m_nCapacity = 131072;
    Stores(Datagram(0, 7, 1, 2, tBytes(64980, 0x31)));
    Refuses(Datagram(0, 8, 1, 2, tBytes(64981, 0x31)), InvalidHeader(0, 1, 2));
    Refuses(Datagram(0, 8, 1, 2, 4, tBytes(65487, 0x31)), InvalidHeader(0, 1, 2));
    Stores(Datagram(0, 8, 2, 2, Hex("32")));
    tBytes joined(64980, 0x31);
    Support::Append(joined, tBytes(65487, 0x33));
    Completes(Datagram(0, 7, 2, 2, tBytes(65487, 0x33)), joined);
    Completes(Datagram(6, 9, 1, 1, tBytes(65487, 0x34)), tBytes(65487, 0x34));
}

TEST_F(Reassembly, OfTwoFragmentsWithOneNumberTheNewestWins)
{
    for (int nBetween = 0; nBetween < 50; ++nBetween)
    {
        Restart();
        Stores(Datagram(0, 7, 2, 2, Hex("aa aa aa")));
        Bury(nBetween);
        Stores(Datagram(0, 7, 2, 2, Hex("bb")));
        Completes(Datagram(0, 7, 1, 2, Hex("01")), Hex("01 bb"));
    }
}

TEST_F(Reassembly, TheDatagramInHandOutranksTheRing)
{
    Stores(Datagram(0, 7, 1, 3, Hex("01")));
    Stores(Datagram(0, 7, 2, 3, Hex("aa")));
    Completes(Datagram(0, 7, 2, 2, Hex("bb")), Hex("01 bb"));
    Completes(Datagram(0, 7, 1, 2, Hex("cc")), Hex("cc aa"));
}

TEST_F(Reassembly, ANumberAboveTheNewTotalIsNotUsed)
{
    Stores(Datagram(0, 7, 3, 3, Hex("03")));
    Stores(Datagram(0, 7, 1, 2, Hex("01")));
    Completes(Datagram(0, 7, 2, 2, Hex("02")), Hex("01 02"));
    Completes(Datagram(0, 7, 2, 3, Hex("02")), Hex("01 02 03"));
}

TEST_F(Reassembly, FragmentsAreMatchedByTheWholeIdAloneAndTheLastGivesTheType)
{
    const std::uint32_t aunIds[] = {0, 1, 0x100, 0x10000, 0x7fffffff, 0x80000000, 0x80000001, 0xffffffff};
    for (const std::uint32_t unId : aunIds)
    {
        Stores(Datagram(1, unId, 1, 2, Hex("01")));
    }
    for (const std::uint32_t unId : aunIds)
    {
        Completes(Datagram(4, unId, 2, 2, Hex("02")), Hex("01 02"));
    }
    Stores(Datagram(0, 2, 2, 2, Hex("02")));
}

TEST_F(Reassembly, ARepeatedLastFragmentCompletesAgainUntilTheRingHasMovedOn)
{
    const tBytes last = Datagram(0, 7, 2, 2, Hex("02"));
    Stores(Datagram(0, 7, 1, 2, Hex("01")));
    Completes(last, Hex("01 02"));
    Completes(last, Hex("01 02"));
    Bury(49);
    Completes(last, Hex("01 02"));
    Bury(1);
    Stores(last);
}

TEST_F(Reassembly, ForeignFragmentsPushOutAHalfReceivedMessage)
{
    for (const int nForeign : {45, 46, 47, 49, 50, 51})
    {
        Restart();
        for (std::uint32_t unNumber = 1; unNumber <= 4; ++unNumber)
        {
            Stores(Datagram(0, 7, unNumber, 5, Hex("0f")));
        }
        Bury(nForeign);
        EXPECT_EQ(nForeign <= 46 ? 0 : -1, Deliver(Datagram(0, 7, 5, 5, Hex("0f"))).nResult);
    }
}

TEST_F(Reassembly, DatagramsMayLieAtAnyAddress)
{
    const tBytes datagram = Datagram(0, 0x01020304, 1, 1, Hex("11 22 33"));
    for (std::size_t unOffset = 0; unOffset < 8; ++unOffset)
    {
        const std::unique_ptr<char[]> pBlock(new char[unOffset + datagram.size()]);
        std::copy(datagram.begin(), datagram.end(), pBlock.get() + unOffset);
        EXPECT_EQ(Hex("11 22 33"), Deliver(pBlock.get() + unOffset, static_cast<long>(datagram.size())).message);
    }
}

// What a fixed seed deals: mostly honest headers of few messages, with lies in every field.
class CDealer
{
public:
    std::uint32_t Below(std::uint32_t unLimit) { return static_cast<std::uint32_t>(m_Engine() % unLimit); }
    std::uint32_t Maybe(std::uint32_t unHonest) { return Below(20) == 0 ? c_aunBoundaries[Below(8)] : unHonest; }

    tBytes Deal(std::size_t unPayload)
    {
        const std::uint32_t unTotal = 1 + Below(5);
        const tBytes payload(unPayload, static_cast<unsigned char>(Below(256)));
        return Datagram(Maybe(Below(91)), Maybe(Below(4)), Maybe(1 + Below(unTotal)), Maybe(unTotal),
                        Maybe(static_cast<std::uint32_t>(unPayload)), payload);
    }

private:
    std::mt19937 m_Engine{20240607};
};

TEST_F(Reassembly, ALongRandomRunGoesAsTheModelSays)
{
    CDealer dealer;
    int nMessages = 0, nRefused = 0;
    for (int n = 0; n < 20000 && !HasFailure(); ++n)
    {
        m_nCapacity = dealer.Below(4) == 0 ? static_cast<int>(dealer.Below(30)) - 1 : 60;
        const stOutcome outcome = Deliver(dealer.Deal(dealer.Below(13)));
        nMessages += outcome.nResult >= 0 ? 1 : 0;
        nRefused += outcome.lines.size() > 1 ? 1 : 0;
    }
    EXPECT_GT(nMessages, 2000);
    EXPECT_GT(nRefused, 2000);
    EXPECT_LT(nMessages + nRefused, 18000);
}

TEST_F(Reassembly, DatagramsOfEveryLengthGoAsTheModelSays)
{
    CDealer dealer;
    m_nCapacity = 131072;
    std::vector<std::size_t> sizes{64979, 64980, 64981, 64999, 65000, 65001, 65002, 65506, 65507};
    for (std::size_t unSize = 0; unSize <= 60; ++unSize)
    {
        sizes.push_back(unSize);
    }
    for (int n = 0; n < 1400 && !HasFailure(); ++n)
    {
        const std::size_t unSize = sizes[static_cast<std::size_t>(n) % sizes.size()];
        tBytes datagram = dealer.Deal(unSize < 20 ? 0 : unSize - 20);
        datagram.resize(unSize);
        Deliver(datagram);
    }
}

class CTestHandler : public CMsgHandlerBase
{
public:
    using CMsgHandlerBase::m_aRemoteAddresses;
    using CMsgHandlerBase::m_nRemoteAddresses;

    void Store(std::uint32_t unId, std::uint32_t unNumber, std::uint32_t unTotal, const tBytes& payload)
    {
        const tBytes datagram = Datagram(0, unId, unNumber, unTotal, payload);
        unsigned char ucBuffer = 0;
        unsigned char* pBuffer = &ucBuffer;
        int nSize = 1;
        EXPECT_EQ(-1, ValidatePacketSequence(reinterpret_cast<const char*>(datagram.data()), static_cast<long>(datagram.size()),
                                             &pBuffer, nSize));
    }

    void Add(CRawPPCMsg* pMessage)
    {
        const CLockGuard guard(m_PPCBufferLock);
        m_PPCBuffer.AddMsgToTail(pMessage);
    }
};

class MsgHandlerBase : public ::testing::Test
{
protected:
    std::unique_ptr<CTestHandler> m_pHandler = std::make_unique<CTestHandler>();
};

TEST_F(MsgHandlerBase, LocatesTheNewestOfEachNumberAndLeavesFilledEntries)
{
    m_pHandler->Store(0xffffffff, 1, 5, Hex("01"));
    m_pHandler->Store(0xffffffff, 3, 5, Hex("aa"));
    m_pHandler->Store(0xffffffff, 3, 5, Hex("03"));
    const auto pMine = std::make_unique<UDP_PACKET>();
    const UDP_PACKET* apTable[5] = {nullptr, pMine.get(), nullptr, nullptr, nullptr};
    EXPECT_FALSE(m_pHandler->LocatePacketsOfMessage(apTable, -1, 4));
    ASSERT_TRUE(m_pHandler->LocatePacketsOfMessage(apTable, -1, 3));
    EXPECT_EQ(1, apTable[0]->acPayload[0]);
    EXPECT_EQ(pMine.get(), apTable[1]);
    EXPECT_EQ(3, apTable[2]->acPayload[0]);
    EXPECT_EQ(nullptr, apTable[4]);
}

TEST_F(MsgHandlerBase, LocatesNothingForATotalOutsideOneToFiveOrInFreeSlots)
{
    const auto pMine = std::make_unique<UDP_PACKET>();
    const UDP_PACKET* const pOne = pMine.get();
    const UDP_PACKET* apTable[5] = {pOne, pOne, pOne, pOne, pOne};
    for (const int nTotal : {INT_MIN, -1, 0, 6, INT_MAX})
    {
        EXPECT_FALSE(m_pHandler->LocatePacketsOfMessage(apTable, 0, nTotal)) << nTotal;
    }
    EXPECT_TRUE(m_pHandler->LocatePacketsOfMessage(apTable, 0, 5));
    const UDP_PACKET* apEmpty[5] = {};
    EXPECT_FALSE(m_pHandler->LocatePacketsOfMessage(apEmpty, 0, 1));
    EXPECT_EQ(nullptr, apEmpty[0]);
}

TEST_F(MsgHandlerBase, UnhandledDataIsLogged)
{
    Support::CDebugLog log;
    char cData = 0;
    m_pHandler->OnReceivedData(&cData, 1);
    EXPECT_EQ(tLines{"CMsgHandlerBase::OnReceivedData - override me"}, log.Take());
}

TEST_F(MsgHandlerBase, RemoteAddressesKeepTextPortAndSecondWord)
{
    m_pHandler->SetRemoteAddress("10.1.2.3", 77, 5000);
    m_pHandler->SetRemoteAddress("", -3, -1);
    ASSERT_EQ(2, m_pHandler->m_nRemoteAddresses);
    const auto& first = m_pHandler->m_aRemoteAddresses[0];
    EXPECT_EQ(std::string("10.1.2.3") + std::string(42, '\0'), std::string(first.acAddress, 50));
    EXPECT_EQ(5000, first.nPort);
    EXPECT_EQ(77, first.nSecond);
    EXPECT_EQ(0, m_pHandler->m_aRemoteAddresses[1].nPort);
    EXPECT_EQ(-3, m_pHandler->m_aRemoteAddresses[1].nSecond);
}

TEST_F(MsgHandlerBase, AnAddressOfFiftyCharactersOrNullIsNotAdded)
{
    const std::unique_ptr<char[]> pUnterminated(new char[50]);
    std::fill_n(pUnterminated.get(), 50, '1');
    m_pHandler->SetRemoteAddress(pUnterminated.get(), 9, 99);
    m_pHandler->SetRemoteAddress(std::string(50, '2').c_str(), 9, 99);
    m_pHandler->SetRemoteAddress(nullptr, 9, 99);
    EXPECT_EQ(0, m_pHandler->m_nRemoteAddresses);
    m_pHandler->SetRemoteAddress(std::string(49, '3').c_str(), 1, -1);
    ASSERT_EQ(1, m_pHandler->m_nRemoteAddresses);
    EXPECT_EQ(std::string(49, '3') + '\0', std::string(m_pHandler->m_aRemoteAddresses[0].acAddress, 50));
    EXPECT_EQ(0, m_pHandler->m_aRemoteAddresses[0].nPort);
}

TEST_F(MsgHandlerBase, ASixthAddressIsIgnoredAndAResetForgetsThemAll)
{
    for (int n = 1; n <= 6; ++n)
    {
        m_pHandler->SetRemoteAddress(std::to_string(n).c_str(), n, 100 * n);
    }
    EXPECT_EQ(5, m_pHandler->m_nRemoteAddresses);
    EXPECT_STREQ("5", m_pHandler->m_aRemoteAddresses[4].acAddress);
    m_pHandler->ResetRemoteAddresses();
    EXPECT_EQ(0, m_pHandler->m_nRemoteAddresses);
    for (const auto& entry : m_pHandler->m_aRemoteAddresses)
    {
        EXPECT_EQ(std::string(50, '\0'), std::string(entry.acAddress, 50));
        EXPECT_EQ(0, entry.nPort);
        EXPECT_EQ(0, entry.nSecond);
    }
    m_pHandler->SetRemoteAddress("again", 0, -1);
    EXPECT_STREQ("again", m_pHandler->m_aRemoteAddresses[0].acAddress);
    EXPECT_EQ(0, m_pHandler->m_aRemoteAddresses[0].nPort);
}

TEST_F(MsgHandlerBase, ThePPCBufferIsCountedAndCleared)
{
    EXPECT_EQ(0, m_pHandler->GetPPCBufferSize());
    m_pHandler->Add(new CRawPPCMsg[1]);
    m_pHandler->Add(new CRawPPCMsg[3]);
    EXPECT_EQ(2, m_pHandler->GetPPCBufferSize());
    m_pHandler->ClearPPCBuffer();
    EXPECT_EQ(0, m_pHandler->GetPPCBufferSize());
}

// A long of 64 bits may hold an id with its sign extended, or without.
TEST_F(MsgHandlerBase, LocatesAnIdHoweverTheCallersLongHoldsIt)
{
    for (const std::uint32_t unId : {0u, 0x7fffffffu, 0x80000000u, 0xffffffffu})
    {
        m_pHandler->Store(unId, 1, 5, Hex("01"));
        for (const long lId : {static_cast<long>(unId), static_cast<long>(static_cast<std::int32_t>(unId))})
        {
            const UDP_PACKET* apTable[5] = {};
            ASSERT_TRUE(m_pHandler->LocatePacketsOfMessage(apTable, lId, 1)) << lId;
            EXPECT_EQ(unId, apTable[0]->header.unMessageId);
        }
    }
}

// The one in the ring and the one in hand.
TEST_F(MsgHandlerBase, FragmentsMayLieAtAnyAddress)
{
    for (std::size_t unOffset = 0; unOffset < 8; ++unOffset)
    {
        tBytes out(unOffset + 4);
        for (const std::uint32_t unNumber : {1u, 2u})
        {
            const tBytes datagram = Datagram(4, static_cast<std::uint32_t>(unOffset), unNumber, 2, Hex("11 22"));
            const std::unique_ptr<char[]> pBlock(new char[unOffset + datagram.size()]);
            std::copy(datagram.begin(), datagram.end(), pBlock.get() + unOffset);
            unsigned char* pOut = out.data() + unOffset;
            int nSize = 4;
            EXPECT_EQ(unNumber == 1 ? -1 : 4, m_pHandler->ValidatePacketSequence(pBlock.get() + unOffset,
                                                                                 static_cast<long>(datagram.size()), &pOut, nSize));
        }
        EXPECT_EQ(Hex("11 22 11 22"), tBytes(out.end() - 4, out.end()));
    }
}

TEST_F(MsgHandlerBase, LocatesTheOnlyFragmentOfAMessage)
{
    m_pHandler->Store(7, 1, 5, Hex("2a")); // its total is not looked at
    const UDP_PACKET* apTable[5] = {};
    ASSERT_TRUE(m_pHandler->LocatePacketsOfMessage(apTable, 7, 1));
    EXPECT_EQ(0x2a, apTable[0]->acPayload[0]);
}

} // namespace
