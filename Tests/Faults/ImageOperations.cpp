#include "Faults/AllocationWalk.h"

#include "ClientComms/ImageSync.h"
#include "Faults/FailingAllocator.h"
#include "LogicalControls/ConsoleBitmapArray.h"
#include "LogicalControls/DefaultParameterValues.h"
#include "LogicalControls/ScopeMask.h"
#include "Runtime/Memory.h"

#include <sys/mman.h>

#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <string>

// Images, their arrays and masks.
namespace
{

using Faults::CPlenty;
using Faults::Expect;
using Faults::tAction;

constexpr int c_nRecords = 300;
constexpr long c_lLargestBlock = 4 * 65300;

CBMAContainer& OtherImage()
{
    static const std::unique_ptr<CBMAContainer> s_pImage(new CBMAContainer);
    return *s_pImage;
}

void UseBlocks(CBMAContainer& image, tagenPPCMessageType enType)
{
    static stPPCWithSI s_aRecords[c_nRecords];
    static unsigned char s_acCopy[c_lLargestBlock];
    image.GetOwnCopyMessageMemory(enType, s_acCopy);
    for (const int nScope : CBMAContainer::m_anScopeMasks)
    {
        image.SetReadBlocks(enType, enMicInput, 0, 0);
        const int nRead = image.BlockReadPPC(s_aRecords, c_nRecords, nScope);
        image.BlockWritePPC(s_aRecords, nRead, nScope);
        image.BlockReadScopelessPPC(s_aRecords, c_nRecords);
        image.BlockWriteScopelessPPC(s_aRecords, nRead);
        image.BlockWriteStoreScope(s_aRecords, nRead);
        image.BlockWriteRecallScope(s_aRecords, nRead);
        image.BlockWriteGlobalScope(s_aRecords, nRead);
        image.BlockWriteSafeScope(s_aRecords, nRead);
    }
}

void UseFlags(CBMAContainer& image, tagenPPCMessageType enType)
{
    int nFlag = 0;
    image.SetPPCStoreScope(enType, enMicInput, 3, 0, 1);
    image.SetPPCRecallScope(enType, enMicInput, 3, 0, 1);
    image.SetPPCGlobalScope(enType, enMicInput, 3, 0, 1);
    image.SetPPCSafeScope(enType, enMicInput, 3, 0, 1);
    image.GetPPCStoreScope(enType, enMicInput, 3, 0, nFlag);
    image.GetPPCSafeScope(enType, enMicInput, 3, 0, nFlag);
}

void UseMask(CCBMAContainerScopeMask& mask)
{
    stPPCWithSI aRecords[2];
    int nFlag = 0;
    mask.BlockAssign(1);
    mask.BlockWrite(aRecords, 2);
    mask.SetFlag(enSwitch, enMicInput, 3, 0, 1);
    mask.GetFlag(enSwitch, enMicInput, 3, 0, nFlag);
    mask.DumpMasks();
    mask.Reset();
}

// What an image can do, on one that may lack blocks of flags. None of it needs memory, but for the mask's, which it can do without.
void UseImage(CBMAContainer& image)
{
    CBMAContainer& other = OtherImage();
    CCBMAContainerScopeMask mask;
    UseMask(mask);
    RyGConsoleString strName("Kick In");
    image.SetPPC(enRotary, enMicInput, 3, 1, 0.25f, false, false);
    image.SetPPC(enFader, enMicInput, 3, 0, 0.25f, true, false);
    image.SetPPC(enSwitch, enMicInput, 3, 1, 1, false, false);
    image.SetPPC(enString, enMicInput, 3, 0, strName, false, false);
    image.SetPPC(enMeter, enMicInput, 3, 0, static_cast<unsigned char>(9), false, false);
    image.SetPPCSI(enRotary, enMicInput, 3, 1, 0.5f, false);
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        UseFlags(image, static_cast<tagenPPCMessageType>(nType));
        UseBlocks(image, static_cast<tagenPPCMessageType>(nType));
    }
    image.ImportGlobalParameters(other);
    image.ExportGlobalParameters(other);
    image.ImportScopedParameters(other, true, true);
    image.ExportScopedParameters(other, true, true, &mask);
    image.ExportScopedParameters(other, false, false, nullptr);
    image.ExportStoreScope(other, &mask);
    image.ExportRecallScope(other, nullptr);
    image.CopyMicInputPatching(other);
    image.UpdateXors();
    tPPCPacket list[2];
    list[1].enMessageType = static_cast<tagenPPCMessageType>(-1);
    image.DumpStoreScopeParams(list, 0);
    image.DumpSafeScopeParams(list, 0);
    ApplyDefaults(image);
}

// An array whose object needs no memory of its own here.
template <typename T, tagenPPCMessageType N, bool compressed>
tAction ConstructArray()
{
    return []
    {
        CParameterArray<T, N, compressed> array;
        array.SetPPC(enMicInput, 0, 0, T());
        return true;
    };
}

tAction ConstructImage()
{
    OtherImage();
    return []
    {
        const std::unique_ptr<CBMAContainer> pImage(new CBMAContainer);
        UseImage(*pImage);
        return true;
    };
}

tAction CopyImage()
{
    OtherImage().SetUseSimplePPCSender(true);
    return []
    {
        const std::unique_ptr<CBMAContainer> pImage(new CBMAContainer(OtherImage()));
        pImage->SetPPC(enFader, enMicInput, 3, 0, 0.25f, false, false);
        return true;
    };
}

tAction AssignImage()
{
    OtherImage().SetUseSimplePPCSender(true);
    const auto pImage = std::make_shared<CBMAContainer>();
    return [pImage]
    {
        *pImage = OtherImage();
        pImage->SetPPC(enFader, enMicInput, 3, 0, 0.25f, false, false);
        UseImage(*pImage);
        return true;
    };
}

tAction SendFromImage()
{
    const auto pImage = std::make_shared<CBMAContainer>();
    return [pImage]
    {
        pImage->SetUseSimplePPCSender(true);
        pImage->InitSimplePPCSenderComms();
        RyGConsoleString strName("Kick In");
        pImage->SetPPC(enString, enMicInput, 3, 0, strName, false, false);
        pImage->SetPPC(enSwitch, enMicInput, 3, 1, 1, false, false);
        pImage->SetPPC(enFader, enMicInput, 3, 0, 0.25f, false, true);
        pImage->DeInitSimplePPCSenderComms();
        float fValue = 1;
        pImage->GetPPC(enFader, enMicInput, 3, 0, fValue);
        Expect(fValue == 0, "a value that was only to be sent is stored");
        return true;
    };
}

tAction ConstructMask()
{
    return []
    {
        const std::unique_ptr<CCBMAContainerScopeMask> pMask(new CCBMAContainerScopeMask);
        UseMask(*pMask);
        const std::unique_ptr<CCBMAContainerScopeMask> pCopy(new CCBMAContainerScopeMask(*pMask));
        *pMask = *pCopy;
        UseMask(*pCopy);
        return true;
    };
}

tAction AllocateBlock()
{
    return []
    {
        void* pBlock = GBMalloc(100);
        GBFree(pBlock);
        return pBlock != nullptr;
    };
}

tAction ReportProtection()
{
    return []
    {
        alignas(8) static char s_acMemory[16];
        Expect(LogMprotect(s_acMemory + 1, 1, PROT_READ) > 0, "no line about a failed protection");
        return true;
    };
}

tAction ExpandName()
{
    return []
    {
        Expect(ExpandDefaultName("elevenchars%ch%%ch%%ch%", INT_MAX) == RyGConsoleString("elevenchars2"), "a wrong name");
        return true;
    };
}

tAction MakeImageMessages()
{
    const auto pImage = std::make_shared<CBMAContainer>();
    const auto pUpdate = std::make_shared<CMCUpdateMsg>();
    return [pImage, pUpdate]
    {
        Expect(BuildMCUpdate(*pImage, enMCUpdateSurface, *pUpdate), "no update is made");
        Expect(ApplyMCUpdate(*pUpdate, *pImage) == 0x7cu, "the update is not applied");
        unsigned char acRecord[29] = {0, 0, 0, 1, 0, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0, 9};
        const stPPCResult result = ApplyPPCs(acRecord, sizeof acRecord, *pImage);
        Expect(result.nApplied == 1 && result.bComplete, "a record is not applied");
        return true;
    };
}

} // namespace

Faults::tOperations Faults::ImageOperations()
{
    return {
        {"a String array", enIntThrown, ConstructArray<RyGConsoleString, enString, false>},
        {"a Rotary array", enIntThrown, ConstructArray<float, enRotary, false>},
        {"an Integer array", enIntThrown, ConstructArray<int, enInteger, false>},
        {"a Fader array", enIntThrown, ConstructArray<float, enFader, false>},
        {"an Other array", enIntThrown, ConstructArray<int, enOther, false>},
        {"a Meter array", enIntThrown, ConstructArray<unsigned char, enMeter, false>},
        {"String flags", enDone, ConstructArray<int, enString, true>},
        {"Switch flags", enDone, ConstructArray<int, enSwitch, true>},
        {"Meter flags", enDone, ConstructArray<int, enMeter, true>},
        {"Rotary flags", enDone, ConstructArray<int, enRotary, true>},
        {"Integer flags", enDone, ConstructArray<int, enInteger, true>},
        {"Fader flags", enDone, ConstructArray<int, enFader, true>},
        {"Other flags", enDone, ConstructArray<int, enOther, true>},
        {"an image and all that it does", enDone | enBadAlloc | enIntThrown, ConstructImage},
        {"a copy of an image that sends", enDone | enBadAlloc | enIntThrown, CopyImage},
        {"an image assigned", enDone, AssignImage},
        {"an image that sends", enDone, SendFromImage},
        {"masks and all that they do", enDone | enBadAlloc, ConstructMask},
        {"updates and records from and into images", enDone, MakeImageMessages},
        {"GBMalloc", enRefused, AllocateBlock},
        {"LogMprotect", enDone, ReportProtection},
        {"ExpandDefaultName", enDone | enBadAlloc, ExpandName},
    };
}
