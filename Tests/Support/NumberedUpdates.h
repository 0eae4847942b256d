// Small updates that prove themselves: every array carries its update's number and a check word over its bytes.
#pragma once

#include "Messages/MCUpdateMsg.h"
#include "Support/Bytes.h"
#include "Support/CarriedTypes.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <random>
#include <vector>

namespace Support
{

inline std::uint32_t BigAt(const tBytes& bytes, std::size_t unAt)
{
    std::uint32_t unValue = 0;
    for (std::size_t un = 0; un < 4; ++un)
    {
        unValue = unValue << 8 | bytes.at(unAt + un);
    }
    return unValue;
}

// What an update says: its type, and the arrays by message type.
struct stContents
{
    std::uint32_t unUpdateType = 0;
    std::map<int, tBytes> arrays;
};

inline bool operator==(const stContents& a, const stContents& b)
{
    return a.unUpdateType == b.unUpdateType && a.arrays == b.arrays;
}

// The same as a decoded update shows it.
inline stContents ContentsOf(const CMCUpdateMsg& update)
{
    stContents contents;
    contents.unUpdateType = static_cast<std::uint32_t>(int(update.GetUpdateType()));
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const unsigned char* pArray = nullptr;
        int nLength = 0;
        if (update.GetArray(static_cast<tagenPPCMessageType>(nType), pArray, nLength))
        {
            contents.arrays[nType].assign(pArray, pArray + nLength);
        }
    }
    return contents;
}

struct stNumberedUpdate
{
    std::uint32_t unNumber = 0;
    stContents contents;
    std::vector<tBytes> datagrams; // of 30 to 200 bytes
};

// Any change of a single byte changes it.
inline std::uint32_t CheckWord(std::uint32_t unUpdateType, int nMessageType, const tBytes& array)
{
    std::uint32_t unCheck = 2166136261u;
    const auto add = [&](std::uint32_t unByte) { unCheck = (unCheck ^ unByte) * 16777619u; };
    add(unUpdateType);
    add(static_cast<std::uint32_t>(nMessageType));
    for (std::size_t un = 0; un < array.size(); ++un)
    {
        add(un < 4 || un >= 8 ? array[un] : 0u); // the word itself lies at 4
    }
    return unCheck;
}

// Whether these are all arrays of one such update, every one as it was sent. Its number is in the first.
inline bool ProvesItself(const stContents& contents)
{
    const auto [nFirst, nLast] = CarriedTypes(contents.unUpdateType);
    for (int nType = nFirst; nType <= nLast; ++nType)
    {
        const auto pArray = contents.arrays.find(nType);
        const bool bGood = pArray != contents.arrays.end() && pArray->second.size() >= 8 &&
                           BigAt(pArray->second, 4) == CheckWord(contents.unUpdateType, nType, pArray->second) &&
                           BigAt(pArray->second, 0) == BigAt(contents.arrays.begin()->second, 0);
        if (!bGood)
        {
            return false;
        }
    }
    return static_cast<int>(contents.arrays.size()) == nLast - nFirst + 1;
}

inline tBytes Serialised(const stContents& contents)
{
    tBytes body;
    for (const auto& [nType, array] : contents.arrays)
    {
        AppendArray(body, array);
    }
    tBytes message = UpdateHeader(contents.unUpdateType, static_cast<std::uint32_t>(body.size()));
    Append(message, body);
    return message;
}

// Update unNumber of a seed: of type 1, 2 or 4, in 1 to 5 fragments of uneven sizes.
inline stNumberedUpdate MakeNumberedUpdate(std::uint32_t unNumber, std::uint32_t unId, std::mt19937& random)
{
    const auto below = [&random](std::size_t unRange) { return random() % unRange; };
    stNumberedUpdate update;
    update.unNumber = unNumber;
    update.contents.unUpdateType = below(2) == 0 ? 1 : below(2) == 0 ? 2 : 4;
    const auto [nFirst, nLast] = CarriedTypes(update.contents.unUpdateType);
    for (int nType = nFirst; nType <= nLast; ++nType)
    {
        tBytes array;
        AppendBig(array, unNumber);
        AppendBig(array, 0);
        std::generate_n(std::back_inserter(array), below(80), [&] { return static_cast<unsigned char>(random()); });
        tBytes check;
        AppendBig(check, CheckWord(update.contents.unUpdateType, nType, array));
        std::copy(check.begin(), check.end(), array.begin() + 4);
        update.contents.arrays[nType] = array;
    }
    const tBytes message = Serialised(update.contents);

    constexpr std::size_t c_unLeast = 10, c_unMost = 180; // payload bytes
    const std::size_t unFewest = (message.size() + c_unMost - 1) / c_unMost;
    const std::size_t unTotal = unFewest + below(std::min<std::size_t>(5, message.size() / c_unLeast) - unFewest + 1);
    std::size_t unAt = 0;
    for (std::size_t unLeft = unTotal; unLeft > 0; --unLeft)
    {
        const std::size_t unRest = message.size() - unAt;
        const std::size_t unMin = std::max(c_unLeast, unRest - std::min(unRest, c_unMost * (unLeft - 1)));
        const std::size_t unMax = std::min(c_unMost, unRest - c_unLeast * (unLeft - 1));
        const std::size_t unSize = unLeft == 1 ? unRest : unMin + below(unMax - unMin + 1);
        const auto pStart = message.begin() + static_cast<long>(unAt);
        update.datagrams.push_back(Datagram(0, unId, static_cast<std::uint32_t>(update.datagrams.size() + 1),
                                            static_cast<std::uint32_t>(unTotal),
                                            tBytes(pStart, pStart + static_cast<long>(unSize))));
        unAt += unSize;
    }
    return update;
}

// What a decoder makes of a message: false when it is no update.
inline bool ReadUpdate(const tBytes& message, stContents& contents)
{
    if (message.size() < 17 || BigAt(message, 0) != 1 || (BigAt(message, 9) ^ 0x80000000u) > 0x8000001eu)
    {
        return false;
    }
    contents.unUpdateType = BigAt(message, 9);
    contents.arrays.clear();
    const auto [nFirst, nLast] = CarriedTypes(contents.unUpdateType);
    std::size_t unAt = 17;
    for (int nType = nFirst; nType <= nLast && unAt + 4 <= message.size(); ++nType)
    {
        const std::uint32_t unLength = BigAt(message, unAt);
        unAt += unLength == 0 ? 0 : 4;
        if (unLength == 0 || unLength >= 0x80000000u)
        {
            continue;
        }
        if (unLength > message.size() - unAt)
        {
            return false;
        }
        const auto pStart = message.begin() + static_cast<long>(unAt);
        contents.arrays[nType].assign(pStart, pStart + static_cast<long>(unLength));
        unAt += unLength;
    }
    return true;
}

} // namespace Support
