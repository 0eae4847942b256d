// Whole images: copied, checked, moved under masks, flagged, read and written as records.
#include "Bench.h"
#include "Masks.h"

#include "LogicalControls.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

namespace
{

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
            const auto move = m_Blocks[unBlock].unElement == 0 ? Move<0> : m_Blocks[unBlock].unElement == 4 ? Move<4> : Move<13>;
            move(canParameterCounts[m_Blocks[unBlock].enType], m_Masks[unBlock].data(), m_Masks[unBlock].data(), m_From.At(unBlock),
                 m_To.At(unBlock));
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

    // Width is the bytes of an element, 0 of a bit.
    template <std::size_t Width>
    static void Move(int nCount, const unsigned char* pMaskA, const unsigned char* pMaskB, const unsigned char* pFrom,
                     unsigned char* pTo)
    {
        const std::size_t unCount = static_cast<std::size_t>(nCount);
        for (std::size_t unElement = 0; unElement < unCount; ++unElement)
        {
            const unsigned int unBit = 1u << unElement % 8;
            if ((pMaskA[unElement / 8] & unBit) == 0 || (pMaskB[unElement / 8] & unBit) == 0)
            {
                continue;
            }
            if constexpr (Width == 0)
            {
                pTo[unElement / 8] = static_cast<unsigned char>((pTo[unElement / 8] & ~unBit) | (pFrom[unElement / 8] & unBit));
            }
            else
            {
                std::memcpy(pTo + unElement * Width, pFrom + unElement * Width, Width);
            }
        }
    }

    std::vector<stBlockSize> m_Blocks;
    CBlocks m_From;
    CBlocks m_To;
    std::vector<std::vector<unsigned char>> m_Masks;
};

struct stMaskedCase
{
    const char* szMask;
    stMask mask;
    double dGood;
    double dExtreme;
    double dGoodGain; // against bit by bit
    double dExtremeGain;
};

constexpr stMaskedCase c_aMaskedCases[] = {
    {"none", {0, false}, 0.25, 0.12, 6, 9},
    {"all", {100, false}, 1.3, 1.1, 6, 9},
    {"whole paths", {50, true}, 1.5, 1.0, 6, 9},
    {"1 % at random", {1, false}, 1.2, 0.8, 6, 9},
    {"50 % at random", {50, false}, 3.7, 1.5, 12, 30},
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
                    return stSides{ScopedImport(masked.mask, pDestination), CopyOf(SizesOf(MovedBlocks())), 1};
                });
        AddCase({"scoped import" + strMask + ", by bits", "bit by bit", enGain, masked.dGoodGain, masked.dExtremeGain},
                [masked]
                {
                    tImage pDestination;
                    const std::function<void()> ours = ScopedImport(masked.mask, pDestination);
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
