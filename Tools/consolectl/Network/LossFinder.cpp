#include "Network/LossFinder.h"

#include "Terminal/Common.h"

#include <cstring>

std::string stLostMessage::Text() const
{
    if (unTotal == 0)
    {
        return "none of it came";
    }
    std::vector<std::string> numbers;
    for (std::uint32_t unFragment = 0; unFragment < unTotal; ++unFragment)
    {
        if ((unMissing >> unFragment & 1) != 0)
        {
            numbers.push_back(std::to_string(unFragment + 1));
        }
    }
    std::string strText = numbers.size() == 1 ? "fragment " : "fragments ";
    for (std::size_t unNumber = 0; unNumber < numbers.size(); ++unNumber)
    {
        strText += (unNumber == 0 ? "" : unNumber + 1 < numbers.size() ? ", " : " and ") + numbers[unNumber];
    }
    return strText + Format(" of %u %s missing", unTotal, numbers.size() == 1 ? "is" : "are");
}

std::vector<stLostMessage> CLossFinder::Take(const stDatagram& datagram)
{
    UDP_PACKET_HEADER header;
    if (datagram.bytes.size() < sizeof header)
    {
        return {};
    }
    std::memcpy(&header, datagram.bytes.data(), sizeof header);
    const std::uint32_t unNumber = header.unPacketNumber;
    const std::uint32_t unTotal = header.unTotal;
    const bool bCutShort = header.unPayloadLength > datagram.bytes.size() - sizeof header; // no receiver takes it
    if (bCutShort || header.nType != enDatagramMCUpdate || unTotal > std::uint32_t(c_nMaxFragments) || unNumber < 1 ||
        unNumber > unTotal)
    {
        return {};
    }
    if (m_Senders.size() > c_unMostSenders)
    {
        m_Senders.clear();
    }
    stSender& sender = m_Senders[{datagram.source.unAddress, datagram.source.usPort}];
    const bool bNew = sender.endpoint == stEndpoint();
    const std::uint32_t unLater = header.unMessageId - sender.unOldest; // modulo 2^32, as the numbers are
    if (!bNew && unLater > c_unLongestGap && 0 - unLater <= c_unLongestGap)
    {
        return {}; // late: it was given up, or had come before
    }
    std::vector<stLostMessage> lost;
    if (bNew || unLater > c_unLongestGap)
    {
        lost = GiveUpAllButNewest(sender, datagram.nTime);
        sender = {datagram.source, header.unMessageId + 1, {}};
        return lost;
    }
    stMessage& message = sender.messages[unLater];
    message.unTotal = unTotal;
    message.unCame |= 1u << (unNumber - 1);
    if (unLater >= c_unPatience)
    {
        lost = GiveUp(sender, unLater - c_unPatience + 1, datagram.nTime);
    }
    return lost;
}

std::vector<stLostMessage> CLossFinder::GiveUpAllButNewest(stSender& sender, std::int64_t nTime)
{
    return sender.messages.empty() ? std::vector<stLostMessage>() : GiveUp(sender, sender.messages.rbegin()->first, nTime);
}

// The messages before unEnd, counted from the oldest.
std::vector<stLostMessage> CLossFinder::GiveUp(stSender& sender, std::uint32_t unEnd, std::int64_t nTime)
{
    std::vector<stLostMessage> lost;
    for (std::uint32_t unLater = 0; unLater < unEnd; ++unLater)
    {
        const stMessage message = sender.messages[unLater];
        const std::uint32_t unWhole = (1u << message.unTotal) - 1;
        if (message.unTotal == 0 || message.unCame != unWhole)
        {
            lost.push_back({nTime, sender.endpoint, sender.unOldest + unLater, message.unTotal, unWhole & ~message.unCame});
        }
    }
    std::map<std::uint32_t, stMessage> left;
    for (auto next = sender.messages.lower_bound(unEnd); next != sender.messages.end(); ++next)
    {
        left[next->first - unEnd] = next->second;
    }
    sender.messages.swap(left);
    sender.unOldest += unEnd;
    return lost;
}

std::vector<stLostMessage> CLossFinder::Finish(std::int64_t nTime)
{
    std::vector<stLostMessage> lost;
    for (auto& entry : m_Senders)
    {
        const std::vector<stLostMessage> more = GiveUpAllButNewest(entry.second, nTime);
        lost.insert(lost.end(), more.begin(), more.end());
    }
    return lost;
}
