#include "ClientComms/MsgHandlerBase.h"

#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace
{

using Support::Datagram;
using Support::tBytes;

// Every order of every subset of fragments 1 to nTotal, and each of these with one of its fragments once more at any place.
void ForEachSequence(int nTotal, std::vector<int>& sequence, bool bRepeated, const std::function<void()>& visit)
{
    visit();
    for (int nNumber = 1; nNumber <= nTotal; ++nNumber)
    {
        const bool bThere = std::count(sequence.begin(), sequence.end(), nNumber) != 0;
        if (!bThere || !bRepeated)
        {
            sequence.push_back(nNumber);
            ForEachSequence(nTotal, sequence, bRepeated || bThere, visit);
            sequence.pop_back();
        }
    }
}

// A fragment of its own length; a changed one differs from the first in every byte.
tBytes Payload(int nNumber, bool bChanged)
{
    return tBytes(static_cast<std::size_t>(10 * nNumber), static_cast<unsigned char>(nNumber + (bChanged ? 0x80 : 0)));
}

class COrders
{
public:
    // Feeds the sequence as a message of its own; a repeated fragment comes changed, if so wanted.
    void Feed(int nTotal, const std::vector<int>& sequence, bool bChange)
    {
        ++m_unId;
        const std::uint32_t unType = m_unId % 90;
        std::map<int, tBytes> kept;
        for (std::size_t un = 0; un < sequence.size(); ++un)
        {
            const int nNumber = sequence[un];
            const bool bAgain = std::count(sequence.begin(), sequence.begin() + static_cast<long>(un), nNumber) != 0;
            const tBytes payload = Payload(nNumber, bAgain && bChange);
            std::map<int, tBytes> table = kept;
            table[nNumber] = payload;
            tBytes message;
            for (const auto& [nEach, bytes] : table)
            {
                Support::Append(message, bytes);
            }
            const bool bComplete = static_cast<int>(table.size()) == nTotal;
            m_unCompleted += bComplete ? 1 : 0;
            Expect(Datagram(unType, m_unId, static_cast<std::uint32_t>(nNumber), static_cast<std::uint32_t>(nTotal), payload),
                   bComplete ? static_cast<int>(unType) : -1, message);
            if (!bComplete)
            {
                kept = table; // the one that completes is not kept
            }
        }
        ++m_unSequences;
    }

    // Moves the ring on, so that it wraps round at another place of the sequences.
    void Skip(int nSlots)
    {
        for (; nSlots > 0; --nSlots)
        {
            Expect(Datagram(0, 0xffffffff, 1, 2, tBytes(3, 0xee)), -1, {});
        }
    }

    std::uint32_t m_unSequences = 0;
    std::uint32_t m_unCompleted = 0;

private:
    void Expect(const tBytes& datagram, int nResult, const tBytes& message)
    {
        const tBytes untouched(160, 0x5a);
        tBytes buffer = untouched;
        unsigned char* pBuffer = buffer.data();
        int nSize = static_cast<int>(buffer.size());
        const int nGot = m_pHandler->ValidatePacketSequence(reinterpret_cast<const char*>(datagram.data()),
                                                            static_cast<long>(datagram.size()), &pBuffer, nSize);
        tBytes expected = untouched;
        if (nResult >= 0)
        {
            std::copy(message.begin(), message.end(), expected.begin());
        }
        ASSERT_EQ(nGot, nResult);
        ASSERT_EQ(nSize, nResult >= 0 ? static_cast<int>(message.size()) : 160);
        ASSERT_EQ(pBuffer, buffer.data());
        ASSERT_EQ(buffer, expected);
    }

    std::unique_ptr<CMsgHandlerBase> m_pHandler = std::make_unique<CMsgHandlerBase>();
    std::uint32_t m_unId = 0x7fffff00;
};

} // namespace

TEST(ReassemblyOrders, FragmentsCompleteWithTheLastMissingOneInEveryOrderSubsetAndSingleRepetition)
{
    COrders orders;
    for (int nPass = 0; nPass < 3; ++nPass)
    {
        for (int nTotal = 1; nTotal <= 5; ++nTotal)
        {
            std::vector<int> sequence;
            const auto feed = [&]
            {
                const bool bRepeated = std::set<int>(sequence.begin(), sequence.end()).size() != sequence.size();
                for (int nChange = 0; nChange <= (bRepeated ? 1 : 0) && !testing::Test::HasFailure(); ++nChange)
                {
                    orders.Feed(nTotal, sequence, nChange == 1);
                }
            };
            ForEachSequence(nTotal, sequence, false, feed);
        }
        orders.Skip(17);
    }
    std::printf("%u sequences, %u messages completed\n", orders.m_unSequences, orders.m_unCompleted);
    EXPECT_EQ(orders.m_unSequences, 24732u);
}
