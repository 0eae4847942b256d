// Whole images: copied, checked, moved under masks, flagged, read and written as records.
#include "Bench.h"
#include "Images.h"

#include "LogicalControls.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

namespace
{

// Parameters by message type, bytes an element (switches: bits).
constexpr int c_nSwitchBytes = (138696 + 7) / 8;

struct stBlockSize
{
    tagenPPCMessageType enType;
    std::size_t unBytes;
    std::size_t unElement; // 0: bits
};

constexpr stBlockSize c_aValueBlocks[] = {
    {enString, 3151 * 13, 13}, {enRotary, 65300 * 4, 4}, {enSwitch, c_nSwitchBytes, 0}, {enInteger, 14856 * 4, 4},
    {enFader, 2765 * 4, 4},    {enOther, 673 * 4, 4},    {enMeter, 15898, 1},
};

// Plain memory as malloc gives it: what the limits work on.
class CBlocks
{
public:
    explicit CBlocks(std::vector<std::size_t> sizes) : m_Sizes(std::move(sizes))
    {
        for (const std::size_t unBytes : m_Sizes)
        {
            m_Blocks.emplace_back(static_cast<unsigned char*>(std::malloc(unBytes + 64)));
            std::memset(m_Blocks.back().get(), 1, unBytes + 64);
        }
    }

    std::size_t Count() const { return m_Sizes.size(); }
    std::size_t Size(std::size_t unBlock) const { return m_Sizes[unBlock]; }
    unsigned char* At(std::size_t unBlock) const { return m_Blocks[unBlock].get(); }

private:
    struct stFree
    {
        void operator()(unsigned char* pBlock) const { std::free(pBlock); }
    };

    std::vector<std::size_t> m_Sizes;
    std::vector<std::unique_ptr<unsigned char[], stFree>> m_Blocks;
};

typedef std::shared_ptr<CBlocks> tBlocks;

std::vector<std::size_t> ValueSizes()
{
    std::vector<std::size_t> sizes;
    for (const stBlockSize& block : c_aValueBlocks)
    {
        sizes.push_back(block.unBytes);
    }
    return sizes;
}

std::vector<std::size_t> FlagSizes()
{
    std::vector<std::size_t> sizes;
    for (const int nCount : canParameterCounts)
    {
        sizes.push_back(static_cast<std::size_t>(nCount + 7) / 8);
    }
    return sizes;
}

// Values, side floats and the four scopes' flags: all that a copy of an image carries.
std::vector<std::size_t> ImageSizes()
{
    std::vector<std::size_t> sizes = ValueSizes();
    sizes.insert(sizes.end(), {65300 * 4, 2765 * 4});
    for (int nScope = 0; nScope < 4; ++nScope)
    {
        const std::vector<std::size_t> flags = FlagSizes();
        sizes.insert(sizes.end(), flags.begin(), flags.end());
    }
    return sizes;
}

void CopyBlocks(const CBlocks& from, const CBlocks& to)
{
    for (std::size_t unBlock = 0; unBlock < from.Count(); ++unBlock)
    {
        std::memcpy(to.At(unBlock), from.At(unBlock), from.Size(unBlock));
        benchmark::ClobberMemory();
    }
}

std::function<void()> CopyOf(std::vector<std::size_t> sizes)
{
    const tBlocks pFrom = std::make_shared<CBlocks>(sizes);
    const tBlocks pTo = std::make_shared<CBlocks>(std::move(sizes));
    return [=] { CopyBlocks(*pFrom, *pTo); };
}

// A whole image to records, or back, beside the records copied.
stSides TransferredInBlocks(bool bRead)
{
    constexpr int c_nRecords = 241339;
    typedef std::vector<stPPCWithSI> tRecords;
    const tImage pImage = RandomImage(1);
    const int nScope = CBMAContainer::m_anScopeMasks[0];
    const auto read = [=](tRecords& records)
    {
        pImage->SetReadBlock(enString, enGlobals, 0, 0);
        pImage->BlockReadPPC(records.data(), c_nRecords, nScope);
    };
    const auto pRecords = std::make_shared<tRecords>(c_nRecords);
    const auto pFrom = std::make_shared<tRecords>(c_nRecords);
    const auto pTo = std::make_shared<tRecords>(c_nRecords);
    read(*pRecords);
    const auto ours = [=]
    {
        if (bRead)
        {
            read(*pRecords);
        }
        else
        {
            pImage->BlockWritePPC(pRecords->data(), c_nRecords, nScope);
        }
    };
    const auto limit = [=]
    {
        std::memcpy(static_cast<void*>(pTo->data()), pFrom->data(), c_nRecords * sizeof(stPPCWithSI));
        benchmark::ClobberMemory();
    };
    return {ours, limit, 1};
}

// ---- Moves under masks

enum enMasks : int
{
    enNone,
    enAll,
    enWholePaths,
    enOnePercent,
    enHalf
};

// Sets an image's recall and safe flags alike: which parameters a scoped import moves.
void SetFlags(CBMAContainer& image, enMasks enMask)
{
    std::mt19937 random(5);
    std::vector<stPPCWithSI> records;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
        {
            for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
            {
                const bool bPath = random() % 2 != 0;
                for (int nParam = 0; nParam < canMaxParams[nPathType * c_nMessageTypes + nType]; ++nParam)
                {
                    const auto unRandom = random() % 100;
                    const bool abSet[] = {false, true, bPath, unRandom < 1, unRandom < 50};
                    stPPCWithSI record;
                    record.enMessageType = static_cast<tagenPPCMessageType>(nType);
                    record.enPathType = static_cast<tagenVirtualPathType>(nPathType);
                    record.nPath = nPath;
                    record.nParameter = nParam;
                    record.value.nValue = abSet[enMask] ? 1 : 0;
                    records.push_back(record);
                }
            }
        }
    }
    image.BlockWriteRecallScope(records.data(), static_cast<int>(records.size()));
    image.BlockWriteSafeScope(records.data(), static_cast<int>(records.size()));
}

// What a scoped import moves: six value blocks, and the side floats of two, as {block, mask}.
std::vector<stBlockSize> MovedBlocks()
{
    std::vector<stBlockSize> blocks;
    std::copy_if(std::begin(c_aValueBlocks), std::end(c_aValueBlocks), std::back_inserter(blocks),
                 [](const stBlockSize& block) { return block.enType != enMeter; });
    blocks.push_back(c_aValueBlocks[enRotary]);
    blocks.push_back(c_aValueBlocks[enFader]);
    return blocks;
}

std::vector<std::size_t> SizesOf(const std::vector<stBlockSize>& blocks)
{
    std::vector<std::size_t> sizes;
    for (const stBlockSize& block : blocks)
    {
        sizes.push_back(block.unBytes);
    }
    return sizes;
}

// The plainest way: bit by bit.
class CBitByBit
{
public:
    explicit CBitByBit(const CBMAContainer& flagged) : m_Blocks(MovedBlocks()), m_From(SizesOf(m_Blocks)), m_To(SizesOf(m_Blocks))
    {
        for (const stBlockSize& block : m_Blocks)
        {
            const int nCount = canParameterCounts[block.enType];
            std::vector<unsigned char> mask(static_cast<std::size_t>(nCount + 7) / 8);
            Collect(flagged, block.enType, mask);
            m_Masks.push_back(std::move(mask));
        }
    }

    void operator()()
    {
        for (std::size_t unBlock = 0; unBlock < m_Blocks.size(); ++unBlock)
        {
            Move(m_Blocks[unBlock], m_Masks[unBlock].data(), m_Masks[unBlock].data(), m_From.At(unBlock), m_To.At(unBlock));
            benchmark::ClobberMemory();
        }
    }

private:
    static void Collect(const CBMAContainer& flagged, tagenPPCMessageType enType, std::vector<unsigned char>& mask)
    {
        std::size_t unElement = 0;
        for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
        {
            for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
            {
                for (int nParam = 0; nParam < canMaxParams[nPathType * c_nMessageTypes + enType]; ++nParam, ++unElement)
                {
                    int nFlag = 0;
                    flagged.GetPPCSafeScope(enType, static_cast<tagenVirtualPathType>(nPathType), nPath, nParam, nFlag);
                    mask[unElement / 8] = static_cast<unsigned char>(mask[unElement / 8] | nFlag << unElement % 8);
                }
            }
        }
    }

    static void Move(const stBlockSize& block, const unsigned char* pMaskA, const unsigned char* pMaskB, const unsigned char* pFrom,
                     unsigned char* pTo)
    {
        const std::size_t unCount = static_cast<std::size_t>(canParameterCounts[block.enType]);
        for (std::size_t unElement = 0; unElement < unCount; ++unElement)
        {
            const unsigned int unBit = 1u << unElement % 8;
            if ((pMaskA[unElement / 8] & unBit) == 0 || (pMaskB[unElement / 8] & unBit) == 0)
            {
                continue;
            }
            if (block.unElement == 0)
            {
                pTo[unElement / 8] = static_cast<unsigned char>((pTo[unElement / 8] & ~unBit) | (pFrom[unElement / 8] & unBit));
            }
            else
            {
                std::memcpy(pTo + unElement * block.unElement, pFrom + unElement * block.unElement, block.unElement);
            }
        }
    }

    std::vector<stBlockSize> m_Blocks;
    CBlocks m_From;
    CBlocks m_To;
    std::vector<std::vector<unsigned char>> m_Masks;
};

std::function<void()> ScopedImport(enMasks enMask, tImage& pDestination)
{
    const tImage pSource = RandomImage(1);
    pDestination = RandomImage(2);
    SetFlags(*pDestination, enMask);
    return [pSource, pTo = pDestination] { pTo->ImportScopedParameters(*pSource, false, false); };
}

struct stMaskedCase
{
    const char* szMask;
    enMasks enMask;
    double dGood;
    double dExtreme;
    double dGoodGain; // against bit by bit
    double dExtremeGain;
};

constexpr stMaskedCase c_aMaskedCases[] = {
    {"none", enNone, 0.25, 0.12, 6, 9},
    {"all", enAll, 1.3, 1.1, 6, 9},
    {"whole paths", enWholePaths, 1.5, 1.0, 6, 9},
    {"1 % at random", enOnePercent, 1.2, 0.8, 6, 9},
    {"50 % at random", enHalf, 3.7, 1.5, 12, 30},
};

void AddMaskedCases()
{
    for (const stMaskedCase& masked : c_aMaskedCases)
    {
        const std::string strMask = std::string(", ") + masked.szMask;
        AddCase({"scoped import" + strMask, "memcpy of what it moves", enCost, masked.dGood, masked.dExtreme},
                [masked]
                {
                    tImage pDestination;
                    return stSides{ScopedImport(masked.enMask, pDestination), CopyOf(SizesOf(MovedBlocks())), 1};
                });
        AddCase({"scoped import" + strMask + ", by bits", "bit by bit", enGain, masked.dGoodGain, masked.dExtremeGain},
                [masked]
                {
                    tImage pDestination;
                    const std::function<void()> ours = ScopedImport(masked.enMask, pDestination);
                    const auto pBits = std::make_shared<CBitByBit>(*pDestination);
                    return stSides{ours, [pBits] { (*pBits)(); }, 1};
                });
    }
}

} // namespace

void AddMemoryCases()
{
    AddCase({"image copied", "memcpy of its blocks", enCost, 1.10, 1.03},
            []
            {
                const tImage pFrom = RandomImage(1);
                const tImage pTo = RandomImage(2);
                return stSides{[=] { *pTo = *pFrom; }, CopyOf(ImageSizes()), 1};
            });
    AddCase({"UpdateXors", "memcpy of the values", enCost, 0.9, 0.6},
            []
            {
                const tImage pImage = RandomImage(1);
                return stSides{[=] { pImage->UpdateXors(); }, CopyOf(ValueSizes()), 1};
            });
    AddMaskedCases();
    AddCase({"BlockAssign", "memset of the flags", enCost, 0, 2},
            []
            {
                const auto pMask = std::make_shared<CCBMAContainerScopeMask>();
                const tBlocks pFlags = std::make_shared<CBlocks>(FlagSizes());
                const auto limit = [=]
                {
                    for (std::size_t unBlock = 0; unBlock < pFlags->Count(); ++unBlock)
                    {
                        std::memset(pFlags->At(unBlock), 0xff, pFlags->Size(unBlock));
                        benchmark::ClobberMemory();
                    }
                };
                return stSides{[=] { pMask->BlockAssign(1); }, limit, 1};
            });
    AddCase({"BlockReadPPC, a whole image", "memcpy of the records", enCost, 0, 2}, [] { return TransferredInBlocks(true); });
    AddCase({"BlockWritePPC, a whole image", "memcpy of the records", enCost, 0, 2}, [] { return TransferredInBlocks(false); });
}
