#include "LogicalControls/ConsoleBitmapArray.h"

#include "Exhaustive/ConsoleModel.h"
#include "Exhaustive/ImageAccess.h"
#include "LogicalControls/ScopeMask.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace Exhaustive;

const int c_anMoving[] = {enRotaries, enSwitches, enIntegers, enFaders, enStrings, enOthers}; // no meters
constexpr int c_nRounds = 5;
constexpr int c_nSafeOverride = 230; // a switch of path type 0
constexpr int c_nMicInputPatch = 16;

typedef tBlock tFlags[c_nTypes];

// ---- The model's own transfers -------------------------------------------------------------------------------------------------

// Values and SI floats where both flags are set.
void Move(const stConsoleModel& from, stConsoleModel& to, const tFlags& maskA, const tFlags& maskB)
{
    for (const int nType : c_anMoving)
    {
        for (std::size_t unAt = 0; unAt < from.aValues[nType].size(); ++unAt)
        {
            if (maskA[nType][unAt] == 0 || maskB[nType][unAt] == 0)
            {
                continue;
            }
            to.aValues[nType][unAt] = from.aValues[nType][unAt];
            if (HasSI(nType))
            {
                to.aSI[nType][unAt] = from.aSI[nType][unAt];
            }
        }
    }
}

// The flags that the mask names; without one, all.
void CopyFlags(const tFlags& from, tFlags& to, const tFlags* pMask)
{
    for (const int nType : c_anMoving)
    {
        for (std::size_t unAt = 0; unAt < from[nType].size(); ++unAt)
        {
            to[nType][unAt] = pMask == nullptr || (*pMask)[nType][unAt] != 0 ? from[nType][unAt] : to[nType][unAt];
        }
    }
}

// Two images and a mask, told twice.
struct stPair
{
    CBMAContainer& one;
    CBMAContainer& other;
    CCBMAContainerScopeMask& mask;
    stConsoleModel modelOne;
    stConsoleModel modelOther;
    tFlags maskFlags;
};

struct stTransfer
{
    const char* szName;
    std::function<void(stPair&)> move;
};

std::vector<stTransfer> Transfers()
{
    std::vector<stTransfer> transfers = {{"import of globals",
                                          [](stPair& pair)
                                          {
                                              pair.one.ImportGlobalParameters(pair.other);
                                              const auto& flags = pair.modelOne.aFlags;
                                              Move(pair.modelOther, pair.modelOne, flags[enGlobal], flags[enSafe]);
                                          }},
                                         {"export of globals", [](stPair& pair)
                                          {
                                              pair.one.ExportGlobalParameters(pair.other);
                                              const auto& flags = pair.modelOne.aFlags;
                                              Move(pair.modelOne, pair.modelOther, flags[enGlobal], flags[enSafe]);
                                          }}};
    for (const bool bMask : {false, true})
    {
        transfers.push_back({"export of store flags", [bMask](stPair& pair)
                             {
                                 pair.one.ExportStoreScope(pair.other, bMask ? &pair.mask : nullptr);
                                 CopyFlags(pair.modelOne.aFlags[enStore], pair.modelOther.aFlags[enStore],
                                           bMask ? &pair.maskFlags : nullptr);
                             }});
        transfers.push_back({"export of recall flags", [bMask](stPair& pair)
                             {
                                 pair.one.ExportRecallScope(pair.other, bMask ? &pair.mask : nullptr);
                                 CopyFlags(pair.modelOne.aFlags[enRecall], pair.modelOther.aFlags[enRecall],
                                           bMask ? &pair.maskFlags : nullptr);
                             }});
    }
    return transfers;
}

void CopyScopes(const stConsoleModel& from, stConsoleModel& to, bool bStore, bool bRecall)
{
    if (bStore)
    {
        CopyFlags(from.aFlags[enStore], to.aFlags[enStore], nullptr);
    }
    if (bRecall)
    {
        CopyFlags(from.aFlags[enRecall], to.aFlags[enRecall], nullptr);
    }
}

stTransfer ScopedImport(bool bStore, bool bRecall)
{
    return {"scoped import", [=](stPair& pair)
            {
                pair.one.ImportScopedParameters(pair.other, bStore, bRecall);
                CopyScopes(pair.modelOther, pair.modelOne, bStore, bRecall);
                Move(pair.modelOther, pair.modelOne, pair.modelOne.aFlags[enRecall], pair.modelOne.aFlags[enSafe]);
            }};
}

stTransfer ScopedExport(bool bStore, bool bRecall, bool bMask, bool bOverride)
{
    return {"scoped export", [=](stPair& pair)
            {
                const stAddress at = {enSwitches, 0, 0, c_nSafeOverride};
                SetPPC(pair.one, at, tValue{bOverride});
                Write(pair.modelOne, at, tValue{bOverride});
                pair.one.ExportScopedParameters(pair.other, bStore, bRecall, bMask ? &pair.mask : nullptr);
                CopyScopes(pair.modelOne, pair.modelOther, bStore, bRecall);
                const auto& flags = pair.modelOne.aFlags;
                Move(pair.modelOne, pair.modelOther, bMask ? pair.maskFlags : flags[enStore],
                     bOverride && !bMask ? flags[enStore] : flags[enSafe]);
            }};
}

// In four rounds every address has all four pairs of its safe flag with each other flag, and no two kinds of flags are alike. In
// the fifth, flags are the same for a hundred neighbours.
void FlagInRounds(unsigned int unRound, stConsoleModel& model, tFlags& maskFlags)
{
    for (int nType = 0; nType < c_nTypes; ++nType)
    {
        maskFlags[nType].resize(model.aValues[nType].size());
        for (std::size_t unAt = 0; unAt < maskFlags[nType].size(); ++unAt)
        {
            const std::size_t unPlace = unRound < 4 ? unAt : unAt / 100;
            const std::size_t unPair = unPlace + unRound;
            const auto bit = [&](int nBit) { return static_cast<unsigned char>((unPair ^ unPlace >> nBit) & 1); };
            model.aFlags[enSafe][nType][unAt] = static_cast<unsigned char>(unPair >> 1 & 1);
            model.aFlags[enStore][nType][unAt] = static_cast<unsigned char>(unPair & 1);
            model.aFlags[enRecall][nType][unAt] = bit(2);
            model.aFlags[enGlobal][nType][unAt] = bit(3);
            maskFlags[nType][unAt] = bit(4);
        }
    }
}

// So that each switch and each flag that moves is seen.
void Contradict(const stConsoleModel& one, stConsoleModel& other)
{
    for (std::size_t unAt = 0; unAt < one.aValues[enSwitches].size(); ++unAt)
    {
        other.aValues[enSwitches][unAt] = tValue{static_cast<unsigned char>(one.aValues[enSwitches][unAt][0] ^ 1)};
    }
    for (int nFamily = 0; nFamily < c_nScopes * c_nTypes; ++nFamily)
    {
        tBlock flags = one.aFlags[nFamily / c_nTypes][nFamily % c_nTypes];
        for (unsigned char& ucFlag : flags)
        {
            ucFlag ^= 1u;
        }
        other.aFlags[nFamily / c_nTypes][nFamily % c_nTypes] = flags;
    }
}

class ScopedTransferOfEveryAddress : public testing::TestWithParam<int>
{
protected:
    ScopedTransferOfEveryAddress()
    {
        m_Pair.modelOne.Number(0);
        FlagInRounds(static_cast<unsigned int>(GetParam()), m_Pair.modelOne, m_Pair.maskFlags);
        m_Pair.modelOther.Number(1u << 20 | 1);
        Contradict(m_Pair.modelOne, m_Pair.modelOther);
        for (const stAddress& at : EveryAddress())
        {
            const int nFlag = m_Pair.maskFlags[at.nType][static_cast<std::size_t>(FlatIndex(at))];
            m_pMask->SetFlag(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, nFlag);
        }
        Fill(*m_pStartOne, m_Pair.modelOne);
        Fill(*m_pStartOther, m_Pair.modelOther);
    }

    void Run(const stTransfer& transfer)
    {
        *m_pOne = *m_pStartOne;
        *m_pOther = *m_pStartOther;
        stPair pair = m_Pair;
        transfer.move(pair);
        EXPECT_EQ("", Difference(*m_pOne, pair.modelOne)) << transfer.szName;
        EXPECT_EQ("", Difference(*m_pOther, pair.modelOther)) << transfer.szName;
    }

    std::unique_ptr<CBMAContainer> m_pStartOne = std::make_unique<CBMAContainer>();
    std::unique_ptr<CBMAContainer> m_pStartOther = std::make_unique<CBMAContainer>();
    std::unique_ptr<CBMAContainer> m_pOne = std::make_unique<CBMAContainer>();
    std::unique_ptr<CBMAContainer> m_pOther = std::make_unique<CBMAContainer>();
    std::unique_ptr<CCBMAContainerScopeMask> m_pMask = std::make_unique<CCBMAContainerScopeMask>();
    stPair m_Pair = {*m_pOne, *m_pOther, *m_pMask, {}, {}, {}};
};

INSTANTIATE_TEST_SUITE_P(Round, ScopedTransferOfEveryAddress, testing::Range(0, c_nRounds));

} // namespace

TEST_P(ScopedTransferOfEveryAddress, MovesValuesAndFlagsAsTheirFlagsSay)
{
    for (const stTransfer& transfer : Transfers())
    {
        Run(transfer);
    }
}

TEST_P(ScopedTransferOfEveryAddress, MovesValuesOfASceneWithOrWithoutItsFlags)
{
    for (int nCase = 0; nCase < 4; ++nCase)
    {
        const bool bStore = (nCase & 1) != 0;
        const bool bRecall = (nCase & 2) != 0;
        Run(ScopedImport(bStore, bRecall));
        Run(ScopedExport(bStore, bRecall, true, bStore != bRecall));
        Run(ScopedExport(bStore, bRecall, false, false));
        Run(ScopedExport(bStore, bRecall, false, true));
    }
}

TEST_P(ScopedTransferOfEveryAddress, CopiesEverythingOrThePatchingAlone)
{
    Run({"assignment", [](stPair& pair)
         {
             pair.one = pair.other;
             pair.modelOne = pair.modelOther;
         }});
    Run({"patching", [](stPair& pair)
         {
             pair.one.CopyMicInputPatching(pair.other);
             for (int nPath = 0; nPath < 144; ++nPath)
             {
                 const stAddress at = {enIntegers, 1, nPath, c_nMicInputPatch};
                 Write(pair.modelOne, at, pair.modelOther.aValues[enIntegers][static_cast<std::size_t>(FlatIndex(at))]);
             }
         }});
}
