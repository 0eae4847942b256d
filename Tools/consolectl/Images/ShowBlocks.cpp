#include "Images/ShowBlocks.h"

#include <boost/endian/arithmetic.hpp>

#include <algorithm>
#include <cstring>

namespace
{

// What a show holds, in the order of its blocks.
constexpr tagenPPCMessageType caTypes[] = {enRotary, enSwitch, enInteger, enFader, enString, enOther};

enum enKinds
{
    enValues,
    enSIFloats,
    enStoreFlags,
    enRecallFlags,
    enKindCount
};
constexpr const char* caKindNames[enKindCount] = {"value", "si", "store", "recall"};

// How an element of a block lies in it.
enum enForms
{
    enWords, // 32 bits, big-endian
    enTexts,
    enBits
};

bool IsPartOfShow(tagenPPCMessageType enType, enKinds enKind)
{
    return enKind != enSIFloats || enType == enRotary || enType == enFader;
}

enForms FormOf(tagenPPCMessageType enType, enKinds enKind)
{
    const bool bFlags = enKind == enStoreFlags || enKind == enRecallFlags;
    return bFlags || (enKind == enValues && enType == enSwitch) ? enBits : enType == enString ? enTexts : enWords;
}

std::size_t SizeOf(tagenPPCMessageType enType, enKinds enKind)
{
    const std::size_t unCount = static_cast<std::size_t>(canParameterCounts[enType]);
    const enForms enForm = FormOf(enType, enKind);
    return enForm == enBits ? (unCount + 7) / 8 : unCount * (enForm == enTexts ? std::size_t(RyGConsoleString::enSize) : 4);
}

int ScopeOf(enKinds enKind)
{
    return CBMAContainer::m_anScopeMasks[enKind == enRecallFlags ? 1 : 0];
}

// Where a record holds what a block of this kind is about.
void* FieldOf(stPPCWithSI& record, enKinds enKind)
{
    return enKind == enValues     ? static_cast<void*>(record.value.acBytes)
           : enKind == enSIFloats ? &record.fSI
                                  : static_cast<void*>(&record.nScope);
}

void Encode(enForms enForm, const void* pField, std::size_t unIndex, unsigned char* pBlock)
{
    std::uint32_t unWord = 0;
    if (enForm == enTexts)
    {
        std::memcpy(pBlock + unIndex * RyGConsoleString::enSize, pField, RyGConsoleString::enSize);
        return;
    }
    std::memcpy(&unWord, pField, sizeof unWord);
    if (enForm == enWords)
    {
        const boost::endian::big_uint32_t unWire(unWord);
        std::memcpy(pBlock + unIndex * sizeof unWire, &unWire, sizeof unWire);
    }
    else if (unWord != 0)
    {
        pBlock[unIndex / 8] = static_cast<unsigned char>(pBlock[unIndex / 8] | 1u << unIndex % 8);
    }
}

void Decode(enForms enForm, const unsigned char* pBlock, std::size_t unIndex, void* pField)
{
    if (enForm == enTexts)
    {
        std::memcpy(pField, pBlock + unIndex * RyGConsoleString::enSize, RyGConsoleString::enSize);
        return;
    }
    boost::endian::big_uint32_t unWire(static_cast<std::uint32_t>(pBlock[unIndex / 8] >> unIndex % 8 & 1));
    if (enForm == enWords)
    {
        std::memcpy(&unWire, pBlock + unIndex * sizeof unWire, sizeof unWire);
    }
    const std::uint32_t unWord = unWire;
    std::memcpy(pField, &unWord, sizeof unWord);
}

// All records of a message type.
std::vector<stPPCWithSI> ReadRecords(CBMAContainer& image, tagenPPCMessageType enType, int nScope)
{
    std::vector<stPPCWithSI> records(static_cast<std::size_t>(canParameterCounts[enType]));
    image.SetReadBlock(enType, enGlobals, 0, 0);
    image.BlockReadPPC(records.data(), canParameterCounts[enType], nScope);
    return records;
}

stShowBlock MakeBlock(CBMAContainer& image, tagenPPCMessageType enType, enKinds enKind)
{
    stShowBlock block = {caKindNames[enKind], enType, std::vector<unsigned char>(SizeOf(enType, enKind))};
    std::vector<stPPCWithSI> records = ReadRecords(image, enType, ScopeOf(enKind));
    for (std::size_t unRecord = 0; unRecord < records.size(); ++unRecord)
    {
        Encode(FormOf(enType, enKind), FieldOf(records[unRecord], enKind), unRecord, block.bytes.data());
    }
    return block;
}

void ApplyBlock(const stShowBlock& block, enKinds enKind, CBMAContainer& image)
{
    std::vector<stPPCWithSI> records = ReadRecords(image, block.enType, ScopeOf(enKind));
    for (std::size_t unRecord = 0; unRecord < records.size(); ++unRecord)
    {
        Decode(FormOf(block.enType, enKind), block.bytes.data(), unRecord, FieldOf(records[unRecord], enKind));
    }
    image.BlockWritePPC(records.data(), canParameterCounts[block.enType], ScopeOf(enKind));
}

} // namespace

std::vector<stShowBlock> MakeShowBlocks(CBMAContainer& image)
{
    std::vector<stShowBlock> blocks;
    for (const tagenPPCMessageType enType : caTypes)
    {
        for (int nKind = 0; nKind < enKindCount; ++nKind)
        {
            if (IsPartOfShow(enType, static_cast<enKinds>(nKind)))
            {
                blocks.push_back(MakeBlock(image, enType, static_cast<enKinds>(nKind)));
            }
        }
    }
    return blocks;
}

std::string ApplyShowBlocks(const std::vector<stShowBlock>& blocks, CBMAContainer& image)
{
    std::size_t unApplied = 0;
    for (const tagenPPCMessageType enType : caTypes)
    {
        for (int nKind = 0; nKind < enKindCount; ++nKind)
        {
            const enKinds enKind = static_cast<enKinds>(nKind);
            if (!IsPartOfShow(enType, enKind))
            {
                continue;
            }
            const auto block = std::find_if(blocks.begin(), blocks.end(),
                                            [=](const stShowBlock& candidate)
                                            { return candidate.enType == enType && candidate.strKind == caKindNames[nKind]; });
            if (block == blocks.end() || block->bytes.size() != SizeOf(enType, enKind))
            {
                return std::string("the ") + caKindNames[nKind] + " block of type " + caMessageTypeNames[enType] +
                       (block == blocks.end() ? " is missing" : " is not as long as it has to be");
            }
            ApplyBlock(*block, enKind, image);
            ++unApplied;
        }
    }
    return unApplied == blocks.size() ? std::string() : "it holds blocks that no show has";
}
