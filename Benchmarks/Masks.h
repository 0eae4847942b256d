// Scoped imports under masks, and memcpy of the same blocks.
#pragma once

#include "Images.h"

#include "LogicalControls.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

// Parameters by message type, bytes an element (switches: bits).
inline constexpr int c_nSwitchBytes = (138696 + 7) / 8;

struct stBlockSize
{
    tagenPPCMessageType enType;
    std::size_t unBytes;
    std::size_t unElement; // 0: bits
};

inline constexpr stBlockSize c_aValueBlocks[] = {
    {enString, 3151 * 13, 13}, {enRotary, 65300 * 4, 4}, {enSwitch, c_nSwitchBytes, 0}, {enInteger, 14856 * 4, 4},
    {enFader, 2765 * 4, 4},    {enOther, 673 * 4, 4},    {enMeter, 15898, 1},
};

// Blocks that lie as those of an image do, with the room behind each that its allocator adds: what the limits work on.
class CBlocks
{
public:
    explicit CBlocks(std::vector<std::size_t> sizes) : m_Sizes(std::move(sizes))
    {
        for (const std::size_t unBytes : m_Sizes)
        {
            m_Blocks.emplace_back(static_cast<unsigned char*>(GBMalloc(static_cast<long>(unBytes))));
            std::memset(m_Blocks.back().get(), 1, unBytes + 64);
        }
    }

    std::size_t Count() const { return m_Sizes.size(); }
    std::size_t Size(std::size_t unBlock) const { return m_Sizes[unBlock]; }
    unsigned char* At(std::size_t unBlock) const { return m_Blocks[unBlock].get(); }

private:
    struct stFree
    {
        void operator()(unsigned char* pBlock) const { GBFree(pBlock); }
    };

    std::vector<std::size_t> m_Sizes;
    std::vector<std::unique_ptr<unsigned char[], stFree>> m_Blocks;
};

typedef std::shared_ptr<CBlocks> tBlocks;

inline void CopyBlocks(const CBlocks& from, const CBlocks& to)
{
    for (std::size_t unBlock = 0; unBlock < from.Count(); ++unBlock)
    {
        std::memcpy(to.At(unBlock), from.At(unBlock), from.Size(unBlock));
        benchmark::ClobberMemory();
    }
}

inline std::function<void()> CopyOf(std::vector<std::size_t> sizes)
{
    const tBlocks pFrom = std::make_shared<CBlocks>(sizes);
    const tBlocks pTo = std::make_shared<CBlocks>(std::move(sizes));
    return [=] { CopyBlocks(*pFrom, *pTo); };
}

// Which parameters a scoped import moves: so many of a hundred, chosen one by one, or by whole paths.
struct stMask
{
    unsigned int unPercent;
    bool bWholePaths;
};

// Sets an image's recall and safe flags alike.
inline void SetFlags(CBMAContainer& image, const stMask& mask)
{
    std::mt19937 random(5);
    std::vector<stPPCWithSI> records;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
        {
            for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
            {
                const bool bPath = random() % 100 < mask.unPercent;
                for (int nParam = 0; nParam < canMaxParams[nPathType * c_nMessageTypes + nType]; ++nParam)
                {
                    const bool bParam = random() % 100 < mask.unPercent;
                    stPPCWithSI record;
                    record.enMessageType = static_cast<tagenPPCMessageType>(nType);
                    record.enPathType = static_cast<tagenVirtualPathType>(nPathType);
                    record.nPath = nPath;
                    record.nParameter = nParam;
                    record.value.nValue = (mask.bWholePaths ? bPath : bParam) ? 1 : 0;
                    records.push_back(record);
                }
            }
        }
    }
    image.BlockWriteRecallScope(records.data(), static_cast<int>(records.size()));
    image.BlockWriteSafeScope(records.data(), static_cast<int>(records.size()));
}

// What a scoped import moves: six value blocks, and the side floats of two, as {block, mask}.
inline std::vector<stBlockSize> MovedBlocks()
{
    std::vector<stBlockSize> blocks;
    std::copy_if(std::begin(c_aValueBlocks), std::end(c_aValueBlocks), std::back_inserter(blocks),
                 [](const stBlockSize& block) { return block.enType != enMeter; });
    blocks.push_back(c_aValueBlocks[enRotary]);
    blocks.push_back(c_aValueBlocks[enFader]);
    return blocks;
}

inline std::vector<std::size_t> SizesOf(const std::vector<stBlockSize>& blocks)
{
    std::vector<std::size_t> sizes;
    for (const stBlockSize& block : blocks)
    {
        sizes.push_back(block.unBytes);
    }
    return sizes;
}

inline std::function<void()> ScopedImport(const stMask& mask, tImage& pDestination)
{
    const tImage pSource = RandomImage(1);
    pDestination = RandomImage(2);
    SetFlags(*pDestination, mask);
    return [pSource, pTo = pDestination] { pTo->ImportScopedParameters(*pSource, false, false); };
}
