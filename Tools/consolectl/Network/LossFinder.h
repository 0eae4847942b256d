// Which update messages never came whole, by the numbers that their datagrams carry.
#pragma once

#include "Network/Traffic.h"

#include "LogicalControls.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// A message of which something is missing.
struct stLostMessage
{
    std::int64_t nTime; // when it was given up
    stEndpoint sender;
    std::uint32_t unMessageId;
    std::uint32_t unTotal;   // fragments; 0: none of them came
    std::uint32_t unMissing; // bit n for fragment n + 1

    // "fragments 2 and 3 of 5 are missing", or "none of it came".
    std::string Text() const;
};

// A message is given up when one that was sent c_unPatience messages later has come: until then it may be late. A sender numbers
// its messages one by one; a leap of more than c_unLongestGap is a sender that began anew. Nobody can tell of a sender's first
// message whether it began before somebody listened, nor of the last whether it is still on its way: neither is counted.
class CLossFinder
{
public:
    static constexpr std::uint32_t c_unPatience = 16;
    static constexpr std::uint32_t c_unLongestGap = 100;
    static constexpr std::size_t c_unMostSenders = 1000; // with more than these all begin anew

    // An update's datagram; others are passed over. Returns what it made clear to be lost.
    std::vector<stLostMessage> Take(const stDatagram& datagram);

    // What is missing something when nobody listens any more.
    std::vector<stLostMessage> Finish(std::int64_t nTime);

private:
    struct stMessage
    {
        std::uint32_t unTotal = 0;
        std::uint32_t unCame = 0; // bit n for fragment n + 1
    };

    struct stSender
    {
        stEndpoint endpoint;
        std::uint32_t unOldest = 0;                  // the first number that is still waited for
        std::map<std::uint32_t, stMessage> messages; // by how much later than the oldest they were sent
    };

    std::vector<stLostMessage> GiveUp(stSender& sender, std::uint32_t unEnd, std::int64_t nTime);
    std::vector<stLostMessage> GiveUpAllButNewest(stSender& sender, std::int64_t nTime);

    std::map<std::pair<std::uint32_t, unsigned short>, stSender> m_Senders;
};
