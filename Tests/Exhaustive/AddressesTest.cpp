#include "LogicalControls/ConsoleBitmapArray.h"

#include "ClientComms/ImageSync.h"
#include "Exhaustive/ConsoleModel.h"
#include "Exhaustive/ImageAccess.h"
#include "LogicalControls/ScopeMask.h"
#include "Messages/RawPPCMsg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace Exhaustive;

typedef std::vector<stPPCWithSI> tRecords;
typedef CBMAContainer::stBlockRef tCursor;

std::size_t At(const stAddress& at)
{
    return static_cast<std::size_t>(FlatIndex(at));
}

// Visits all addresses, or all backwards, with the number of each within its type. What a write in one direction does to a
// neighbour that is written later, one in the other direction shows.
template <class Visitor>
void ForEveryAddress(bool bBackwards, Visitor visit)
{
    const std::vector<stAddress>& every = EveryAddress();
    for (std::size_t unAddress = 0; unAddress < every.size(); ++unAddress)
    {
        const stAddress& at = bBackwards ? every[every.size() - 1 - unAddress] : every[unAddress];
        visit(at, At(at));
    }
}

// An image and a model that are alike, full of values, SI floats and flags that tell neighbours apart.
class EveryAddressOfTheConsole : public testing::Test
{
protected:
    EveryAddressOfTheConsole()
    {
        m_Model.Number(0);
        m_Model.Flag(1);
        Fill(m_Image, m_Model);
    }

    std::string Difference() { return Exhaustive::Difference(m_Image, m_Model); }

    // So that each one that a write clears is seen.
    void SetAllGlobalFlags()
    {
        for (tBlock& flags : m_Model.aFlags[enGlobal])
        {
            std::fill(flags.begin(), flags.end(), static_cast<unsigned char>(1));
        }
        Fill(m_Image, m_Model);
    }

    // All records, with values, SI floats and flags of their own.
    static tRecords Records(unsigned int unFirst, int nScope)
    {
        stConsoleModel model;
        model.Number(unFirst);
        model.Flag(unFirst);
        tRecords records;
        for (const stAddress& at : EveryAddress())
        {
            const float fSI = HasSI(at.nType) ? model.aSI[at.nType][At(at)] : 0;
            records.push_back(Record(at, model.aValues[at.nType][At(at)], fSI, model.aFlags[nScope][at.nType][At(at)]));
        }
        return records;
    }

    std::unique_ptr<CBMAContainer> m_pImage = std::make_unique<CBMAContainer>();
    CBMAContainer& m_Image = *m_pImage;
    stConsoleModel m_Model;
};

bool IsBitSet(const unsigned char* pBlock, std::size_t unAt)
{
    return (pBlock[unAt / 8] >> unAt % 8 & 1) != 0;
}

bool LiesInBlock(const CBMAContainer& image, const stAddress& at, std::size_t unAt, const tValue& value)
{
    const unsigned char* pBlock = ValueBlock(image, at.nType);
    const std::size_t unWidth = static_cast<std::size_t>(WidthOf(at.nType));
    return at.nType == enSwitches ? IsBitSet(pBlock, unAt) == (value[0] != 0)
                                  : std::memcmp(pBlock + unAt * unWidth, value.data(), unWidth) == 0;
}

} // namespace

// ---- One by one ---------------------------------------------------------------------------------------------------------------

TEST_F(EveryAddressOfTheConsole, IsWrittenAndReadAlone)
{
    for (const bool bBackwards : {false, true})
    {
        SetAllGlobalFlags();
        CTally tally;
        ForEveryAddress(bBackwards,
                        [&](const stAddress& at, std::size_t unAt)
                        {
                            const tValue value = Numbered(at.nType, static_cast<unsigned int>(unAt) ^ (bBackwards ? 0u : 1u));
                            SetPPC(m_Image, at, value);
                            Write(m_Model, at, value);
                            tally.Check(LiesInBlock(m_Image, at, unAt, value), "place", at);
                            tally.Check(GetPPC(m_Image, at, tValue{2}) == value, "value", at);
                        });
        EXPECT_EQ("", tally.Text());
        EXPECT_EQ("", Difference());
    }
}

TEST_F(EveryAddressOfTheConsole, IsWrittenByTheLightSetAndWhenOnlySentAsItsTypeHasIt)
{
    for (const enWriteModes enMode : {enLight, enSendOnly})
    {
        SetAllGlobalFlags();
        ForEveryAddress(false,
                        [&](const stAddress& at, std::size_t unAt)
                        {
                            const tValue value = Numbered(at.nType, static_cast<unsigned int>(unAt) ^ 3u);
                            SetPPC(m_Image, at, value, enMode);
                            Write(m_Model, at, value, enMode);
                        });
        EXPECT_EQ("", Difference()) << enMode;
        m_Model.Number(4);
    }
}

TEST_F(EveryAddressOfTheConsole, HasAnSIFloatIfARotaryOrFader)
{
    for (const bool bLight : {false, true})
    {
        CTally tally;
        ForEveryAddress(!bLight,
                        [&](const stAddress& at, std::size_t unAt)
                        {
                            if (HasSI(at.nType))
                            {
                                float& fModel = m_Model.aSI[at.nType][unAt];
                                fModel = bLight ? fModel : static_cast<float>(unAt) + 0.25f;
                                m_Image.SetPPCSI(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, bLight ? -1.0f : fModel, bLight);
                            }
                            float fSI = 0.5f;
                            m_Image.GetPPCSI(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, fSI);
                            tally.Check(fSI == (HasSI(at.nType) ? m_Model.aSI[at.nType][unAt] : 0.5f), "SI", at);
                        });
        EXPECT_EQ("", tally.Text());
        EXPECT_EQ("", Difference());
    }
}

TEST_F(EveryAddressOfTheConsole, HasAFlagInEveryScope)
{
    for (int nScope = 0; nScope < c_nScopes; ++nScope)
    {
        for (const bool bBackwards : {false, true})
        {
            CTally tally;
            ForEveryAddress(bBackwards,
                            [&](const stAddress& at, std::size_t unAt)
                            {
                                unsigned char& ucFlag = m_Model.aFlags[nScope][at.nType][unAt];
                                ucFlag ^= 1u;
                                SetFlag(m_Image, nScope, at, ucFlag * -2);
                                tally.Check(GetFlag(m_Image, nScope, at, 2) == ucFlag, "flag", at);
                            });
            EXPECT_EQ("", tally.Text());
            EXPECT_EQ("", Difference());
        }
    }
}

TEST_F(EveryAddressOfTheConsole, HasAFlagInAMask)
{
    CCBMAContainerScopeMask mask;
    for (const bool bBackwards : {false, true})
    {
        CTally tally;
        ForEveryAddress(bBackwards,
                        [&](const stAddress& at, std::size_t unAt)
                        {
                            unsigned char& ucFlag = m_Model.aFlags[enStore][at.nType][unAt];
                            ucFlag ^= 1u;
                            int nFlag = 2;
                            mask.SetFlag(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, ucFlag * 256);
                            mask.GetFlag(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, nFlag);
                            tally.Check(nFlag == ucFlag, "flag", at);
                        });
        EXPECT_EQ("", tally.Text());
        EXPECT_EQ("", Exhaustive::Difference(mask, m_Model.aFlags[enStore]));
    }
    for (const int nValue : {0, -1, 0, 1})
    {
        EXPECT_EQ(1, mask.BlockAssign(nValue));
        for (tBlock& flags : m_Model.aFlags[enStore])
        {
            std::fill(flags.begin(), flags.end(), static_cast<unsigned char>(nValue != 0));
        }
        EXPECT_EQ("", Exhaustive::Difference(mask, m_Model.aFlags[enStore])) << nValue;
    }
}

TEST_F(EveryAddressOfTheConsole, IsWhereACursorIsPlacedAndReadFrom)
{
    CTally tally;
    ForEveryAddress(false,
                    [&](const stAddress& at, std::size_t unAt)
                    {
                        for (int nTag = 0; nTag <= 4; ++nTag)
                        {
                            tCursor cursor;
                            tally.Check(SetBlockPosition(m_Image, nTag, at, cursor), "position", at);
                            tally.Check(cursor.nBaseIndex + cursor.nParameter == static_cast<std::int64_t>(unAt) &&
                                            cursor.lCount == MaxParams(at.nType, at.nPathType),
                                        "cursor", at);
                        }
                        stPPCWithSI record;
                        tally.Check(m_Image.SetReadBlock(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam), "read cursor", at);
                        tally.Check(m_Image.BlockReadScopelessPPC(&record, 1) == 1, "count read", at);
                        const stPPCWithSI expected = Record(at, m_Model.aValues[at.nType][unAt]);
                        tally.Check(std::memcmp(&record, &expected, offsetof(tPPCPacket, nScope)) == 0, "record", at);
                    });
    EXPECT_EQ("", tally.Text());
    EXPECT_EQ("", Difference());
}

// ---- As records ---------------------------------------------------------------------------------------------------------------

TEST_F(EveryAddressOfTheConsole, HasItsFlagsWrittenByRecords)
{
    for (int nScope = 0; nScope < c_nScopes; ++nScope)
    {
        tRecords records;
        for (const stAddress& at : EveryAddress())
        {
            m_Model.aFlags[nScope][at.nType][At(at)] ^= 1u;
            const int nValue = m_Model.aFlags[nScope][at.nType][At(at)];
            records.push_back(Record(at, {}, 0, !nValue));
            records.back().value.nValue = nValue;
        }
        BlockWriteScope(m_Image, nScope, records.data(), c_nAddresses);
        EXPECT_EQ("", Difference()) << nScope;
    }
}

TEST_F(EveryAddressOfTheConsole, GoesInAndOutByBlockTransfer)
{
    for (int nScope = -1; nScope < c_nScopes; ++nScope)
    {
        const int nFlags = std::max(nScope, 0);
        const unsigned int unFirst = 1000u + static_cast<unsigned int>(nScope);
        tRecords records = Records(unFirst, nFlags);
        EXPECT_EQ(c_nAddresses, nScope < 0 ? m_Image.BlockWriteScopelessPPC(records.data(), c_nAddresses)
                                           : m_Image.BlockWritePPC(records.data(), c_nAddresses, nScope));
        m_Model.Number(unFirst);
        for (std::size_t unRecord = 0; nScope >= 0 && unRecord < records.size(); ++unRecord)
        {
            const stAddress& at = EveryAddress()[unRecord];
            m_Model.aFlags[nScope][at.nType][At(at)] = static_cast<unsigned char>(records[unRecord].nScope);
        }
        EXPECT_EQ("", Difference()) << nScope;

        tRecords read(records.size() + 1);
        ASSERT_TRUE(m_Image.SetReadBlock(enString, enGlobals, 0, 0));
        ASSERT_EQ(c_nAddresses, nScope < 0 ? m_Image.BlockReadScopelessPPC(read.data(), c_nAddresses + 1)
                                           : m_Image.BlockReadPPC(read.data(), c_nAddresses + 1, nScope));
        CTally tally;
        for (std::size_t unRecord = 0; unRecord < records.size(); ++unRecord)
        {
            records[unRecord].nScope = nScope < 0 ? 0 : records[unRecord].nScope;
            tally.Check(std::memcmp(&records[unRecord], &read[unRecord], sizeof read[unRecord]) == 0, "record",
                        EveryAddress()[unRecord]);
        }
        EXPECT_EQ("", tally.Text()) << nScope;
    }
}

TEST_F(EveryAddressOfTheConsole, TravelsAsASerialisedRecord)
{
    CTally tally;
    tBlock stream;
    CRawPPCMsg message;
    SetAllGlobalFlags();
    ForEveryAddress(false,
                    [&](const stAddress& at, std::size_t unAt)
                    {
                        const tValue value = Numbered(at.nType, static_cast<unsigned int>(unAt) + 77);
                        const tBlock record = WireRecord(at, value);
                        stream.insert(stream.end(), record.begin(), record.end());
                        Write(m_Model, at, value);
                    });
    const stPPCResult result = ApplyPPCs(stream.data(), static_cast<long>(stream.size()), m_Image);
    EXPECT_EQ(c_nAddresses, result.nApplied);
    EXPECT_EQ(0, result.nRefused);
    EXPECT_TRUE(result.bComplete);
    EXPECT_EQ("", Difference());

    CPPCStreamReader reader(stream.data(), static_cast<long>(stream.size()));
    for (const stAddress& at : EveryAddress())
    {
        ASSERT_TRUE(reader.Next());
        const stPPCAddress read = reader.Address();
        tally.Check(read.enType == at.nType && read.enPathType == at.nPathType && read.nPath == at.nPath &&
                        read.nParam == at.nParam,
                    "address", at);
        unsigned char acOut[38] = {};
        const unsigned char* pRecord = reader.Value() - 25;
        tally.Check(message.Parse(pRecord, at.nType == enStrings ? 38 : 29) && message.WriteTo(acOut, sizeof acOut) > 25 &&
                        std::memcmp(acOut, pRecord, static_cast<std::size_t>(message.GetTotalSize())) == 0,
                    "bytes", at);
    }
    EXPECT_EQ("", tally.Text());
}

TEST_F(EveryAddressOfTheConsole, TravelsInAnUpdate)
{
    const std::unique_ptr<CMCUpdateMsg> pMessage = std::make_unique<CMCUpdateMsg>();
    const std::unique_ptr<CBMAContainer> pOther = std::make_unique<CBMAContainer>();
    stConsoleModel other;
    for (const int nUpdateType : {1, 2})
    {
        ASSERT_TRUE(BuildMCUpdate(m_Image, static_cast<MCUpdateType>(nUpdateType), *pMessage));
        for (int nType = nUpdateType == 1 ? 2 : 0; nType <= (nUpdateType == 1 ? 6 : 1); ++nType)
        {
            const unsigned char* pArray = nullptr;
            int nLength = 0;
            ASSERT_TRUE(pMessage->GetArray(static_cast<tagenPPCMessageType>(nType), pArray, nLength));
            EXPECT_EQ(m_Model.WireBlock(nType), tBlock(pArray, pArray + nLength)) << nType;
            other.aValues[nType] = m_Model.aValues[nType];
        }
        ApplyMCUpdate(*pMessage, *pOther);
        EXPECT_EQ("", Exhaustive::Difference(*pOther, other)) << nUpdateType;
    }
    EXPECT_EQ("", Difference());
}
