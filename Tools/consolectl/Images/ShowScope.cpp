#include "Images/ShowScope.h"

#include "Terminal/Common.h"

namespace
{

typedef void (CBMAContainer::*tGetFlag)(tagenPPCMessageType, tagenVirtualPathType, int, int, int&) const;

bool HasFlag(const CBMAContainer& image, tGetFlag pGetFlag, const stAddress& address)
{
    int nFlag = 0;
    (image.*pGetFlag)(address.enType, address.enPathType, address.nPath, address.nParam, nFlag);
    return nFlag != 0;
}

} // namespace

void SetFlags(CBMAContainer& image, tSetFlag pSetFlag, const stPattern& pattern, int nFlag)
{
    ForEachParameter(pattern, [&](const stAddress& address)
                     { (image.*pSetFlag)(address.enType, address.enPathType, address.nPath, address.nParam, nFlag); });
}

void SetSafeFlags(CBMAContainer& image, const std::vector<stPattern>& safe)
{
    SetFlags(image, &CBMAContainer::SetPPCSafeScope, c_EveryParameter, 1);
    for (const stPattern& pattern : safe)
    {
        SetFlags(image, &CBMAContainer::SetPPCSafeScope, pattern, 0);
    }
}

bool IsStored(const CBMAContainer& image, const stAddress& address)
{
    return address.enType != enMeter && HasFlag(image, &CBMAContainer::GetPPCStoreScope, address);
}

bool IsRecalled(const CBMAContainer& image, const stAddress& address)
{
    return address.enType != enMeter && HasFlag(image, &CBMAContainer::GetPPCRecallScope, address);
}

bool IsSafe(const CBMAContainer& image, const stAddress& address)
{
    return !HasFlag(image, &CBMAContainer::GetPPCSafeScope, address);
}

std::unique_ptr<CBMAContainer> MakeRecalled(const CBMAContainer& live, CBMAContainer& show, const std::vector<stPattern>& safe)
{
    auto pRecalled = std::make_unique<CBMAContainer>(live);
    pRecalled->SetUseSimplePPCSender(false);
    SetSafeFlags(*pRecalled, safe);
    pRecalled->ImportScopedParameters(show, true, true);
    return pRecalled;
}

stShowCount stShowCounts::Sum() const
{
    stShowCount sum;
    for (const stShowCount& count : aTypes)
    {
        sum.nInShow += count.nInShow;
        sum.nMoved += count.nMoved;
        sum.nSafe += count.nSafe;
    }
    return sum;
}

void PrintShowCounts(const stShowCounts& counts, const char* szMoved, const char* szSame, bool bSafe)
{
    const auto row = [&](const char* szType, const stShowCount& count)
    {
        const int nSame = count.nInShow - count.nMoved - count.nSafe;
        Line("%-10s %12s %12s %12s %12s", szType, Grouped(count.nInShow).c_str(), Grouped(count.nMoved).c_str(),
             bSafe ? Grouped(count.nSafe).c_str() : "", Grouped(nSame).c_str());
    };
    Line("%s",
         Styled(enStrong, Format("%-10s %12s %12s %12s %12s", "type", "in its scope", szMoved, bSafe ? "stayed safe" : "", szSame))
             .c_str());
    for (int nType = 0; nType < enMeter; ++nType)
    {
        row(caMessageTypeNames[nType], counts.aTypes[nType]);
    }
    row("all", counts.Sum());
}
