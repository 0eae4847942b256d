#include "Images/ShowBlocks.h"

#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

namespace
{

using Support::Hex;
using Support::tBytes;

const stShowBlock& Find(const std::vector<stShowBlock>& blocks, const std::string& strKind, tagenPPCMessageType enType)
{
    for (const stShowBlock& block : blocks)
    {
        if (block.strKind == strKind && block.enType == enType)
        {
            return block;
        }
    }
    throw std::runtime_error("there is no such block");
}

tBytes Piece(const stShowBlock& block, std::size_t unFirst, std::size_t unCount)
{
    return tBytes(block.bytes.begin() + static_cast<long>(unFirst), block.bytes.begin() + static_cast<long>(unFirst + unCount));
}

TEST(ShowBlocks, AreTheValuesSIFloatsAndFlagsOfAllTypesButMeters)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const std::vector<stShowBlock> blocks = MakeShowBlocks(*pImage);
    ASSERT_EQ(20u, blocks.size());
    EXPECT_EQ(261200u, Find(blocks, "value", enRotary).bytes.size());
    EXPECT_EQ(261200u, Find(blocks, "si", enRotary).bytes.size());
    EXPECT_EQ(11060u, Find(blocks, "si", enFader).bytes.size());
    EXPECT_EQ(17337u, Find(blocks, "value", enSwitch).bytes.size());
    EXPECT_EQ(40963u, Find(blocks, "value", enString).bytes.size());
    EXPECT_EQ(8163u, Find(blocks, "store", enRotary).bytes.size());
    EXPECT_EQ(17337u, Find(blocks, "recall", enSwitch).bytes.size());
    EXPECT_EQ(85u, Find(blocks, "recall", enOther).bytes.size());
}

// The globals are the first path, the first mic input the second: with 7 and 280 rotaries, 1 and 2 faders, 248 switches.
TEST(ShowBlocks, LieBigEndianOnEveryMachine)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    RyGConsoleString strValue("Lead Vocal");
    pImage->SetPPC(enFader, enMicInput, 0, 0, -6.5f, false, false);
    pImage->SetPPCSI(enFader, enMicInput, 0, 0, 1.0f, false);
    pImage->SetPPC(enInteger, enGlobals, 0, 1, 0x01020304, false, false);
    pImage->SetPPC(enOther, enGlobals, 0, 0, -2, false, false);
    pImage->SetPPC(enSwitch, enMicInput, 0, 1, 1, false, false);
    pImage->SetPPC(enString, enGlobals, 0, 1, strValue, false, false);
    pImage->SetPPCStoreScope(enFader, enMicInput, 0, 1, 1);
    pImage->SetPPCRecallScope(enRotary, enMicInput, 0, 5, 1);
    const std::vector<stShowBlock> blocks = MakeShowBlocks(*pImage);
    EXPECT_EQ(Hex("00 00 00 00 c0 d0 00 00"), Piece(Find(blocks, "value", enFader), 0, 8));
    EXPECT_EQ(Hex("00 00 00 00 3f 80 00 00"), Piece(Find(blocks, "si", enFader), 0, 8));
    EXPECT_EQ(Hex("00 00 00 00 01 02 03 04"), Piece(Find(blocks, "value", enInteger), 0, 8));
    EXPECT_EQ(Hex("ff ff ff fe"), Piece(Find(blocks, "value", enOther), 0, 4));
    EXPECT_EQ(Hex("00 02"), Piece(Find(blocks, "value", enSwitch), 30, 2)); // switch 249 of all
    EXPECT_EQ(Hex("4c 65 61 64 20 56 6f 63 61 6c 00 00 00"), Piece(Find(blocks, "value", enString), 13, 13));
    EXPECT_EQ(Hex("04"), Piece(Find(blocks, "store", enFader), 0, 1));
    EXPECT_EQ(Hex("00 10"), Piece(Find(blocks, "recall", enRotary), 0, 2)); // rotary 12 of all
}

TEST(ShowBlocks, MakeAnEqualImageAgain)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    std::mt19937 random(7);
    for (int nTry = 0; nTry < 20000; ++nTry)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(random() % 6);
        const tagenVirtualPathType enPathType = static_cast<tagenVirtualPathType>(random() % c_nPathTypes);
        const int nPath = static_cast<int>(random() % static_cast<unsigned int>(canMaxPaths[enPathType]));
        const int nParams = canMaxParams[enPathType * c_nMessageTypes + enType];
        const int nParam = static_cast<int>(random() % static_cast<unsigned int>(nParams));
        RyGConsoleString strValue(std::to_string(random()));
        pImage->SetPPC(enType, enPathType, nPath, nParam, static_cast<float>(random()), false, false);
        pImage->SetPPC(enType, enPathType, nPath, nParam, static_cast<int>(random()), false, false);
        pImage->SetPPC(enType, enPathType, nPath, nParam, strValue, false, false);
        pImage->SetPPCStoreScope(enType, enPathType, nPath, nParam, static_cast<int>(random() & 1));
        pImage->SetPPCRecallScope(enType, enPathType, nPath, nParam, static_cast<int>(random() & 1));
        if (enType == enRotary || enType == enFader)
        {
            pImage->SetPPCSI(enType, enPathType, nPath, nParam, static_cast<float>(random()), false);
        }
    }
    const std::vector<stShowBlock> blocks = MakeShowBlocks(*pImage);
    const auto pOther = std::make_unique<CBMAContainer>();
    ASSERT_EQ("", ApplyShowBlocks(blocks, *pOther));
    const std::vector<stShowBlock> again = MakeShowBlocks(*pOther);
    ASSERT_EQ(blocks.size(), again.size());
    for (std::size_t unBlock = 0; unBlock < blocks.size(); ++unBlock)
    {
        EXPECT_EQ(blocks[unBlock].bytes, again[unBlock].bytes) << blocks[unBlock].strKind << blocks[unBlock].enType;
    }
    pImage->UpdateXors();
    pOther->UpdateXors();
    for (int nType = 0; nType < enMeter; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        EXPECT_EQ(pImage->GetXorVal(enType), pOther->GetXorVal(enType)) << nType;
    }
}

TEST(ShowBlocks, AreRefusedWhenOneIsMissingOrNotAsLongAsItHasToBe)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const std::vector<stShowBlock> blocks = MakeShowBlocks(*pImage);
    for (std::size_t unBlock = 0; unBlock < blocks.size(); ++unBlock)
    {
        std::vector<stShowBlock> bad = blocks;
        bad.erase(bad.begin() + static_cast<long>(unBlock));
        EXPECT_NE(std::string::npos, ApplyShowBlocks(bad, *pImage).find(" is missing")) << unBlock;
        for (const int nMore : {-1, 1})
        {
            bad = blocks;
            bad[unBlock].bytes.resize(bad[unBlock].bytes.size() + static_cast<std::size_t>(nMore));
            EXPECT_NE(std::string::npos, ApplyShowBlocks(bad, *pImage).find(" is not as long as it has to be")) << unBlock;
        }
    }
    std::vector<stShowBlock> more = blocks;
    more.push_back({"value", enMeter, {}});
    EXPECT_EQ("it holds blocks that no show has", ApplyShowBlocks(more, *pImage));
    EXPECT_EQ("the value block of type Rotary is missing", ApplyShowBlocks({}, *pImage));
}

} // namespace
