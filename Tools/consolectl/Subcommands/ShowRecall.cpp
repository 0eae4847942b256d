// consolectl show recall, preview and compare: a show beside the MC.
#include "Images/Cells.h"
#include "Images/Difference.h"
#include "Images/ShowFile.h"
#include "Images/ShowScope.h"
#include "Subcommands/Show.h"

#include <memory>

namespace
{

// A show, and the MC beside it. The show is read before anything is heard or sent.
int OpenBoth(const stShowOptions& options, std::unique_ptr<CBMAContainer>& pShow, std::unique_ptr<CClient>& pClient)
{
    pShow = std::make_unique<CBMAContainer>();
    const std::string strError = ReadShow(options.strFile, options.strName, *pShow);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    pClient = std::make_unique<CClient>(options.client);
    return pClient->Open();
}

stShowCounts Count(const CBMAContainer& show, const CBMAContainer& target, const std::vector<stAddress>& moved)
{
    stShowCounts counts;
    ForEachParameter(c_EveryParameter,
                     [&](const stAddress& address)
                     {
                         const bool bRecalled = IsRecalled(show, address);
                         counts.Of(address).nInShow += bRecalled ? 1 : 0;
                         counts.Of(address).nSafe += bRecalled && IsSafe(target, address) ? 1 : 0;
                     });
    for (const stAddress& address : moved)
    {
        ++counts.Of(address).nMoved;
    }
    return counts;
}

} // namespace

int RecallShow(const stShowOptions& options)
{
    const std::vector<stPattern> safe = ParsePatterns(options.safe);
    std::unique_ptr<CBMAContainer> pShow;
    std::unique_ptr<CClient> pClient;
    int nStatus = OpenBoth(options, pShow, pClient);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    const std::unique_ptr<CBMAContainer> pTarget = MakeRecalled(pClient->Image(), *pShow, safe);
    const std::vector<stAddress> moved = FindDifferences(pClient->Image(), *pTarget);
    std::vector<stChange> changes(moved.size());
    std::transform(moved.begin(), moved.end(), changes.begin(),
                   [&pTarget](const stAddress& address) {
                       return stChange{address, ReadValue(*pTarget, address)};
                   });
    const tSteadyClock::time_point start = tSteadyClock::now();
    nStatus = pClient->Send(changes);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    const stShowCounts counts = Count(*pShow, *pTarget, moved);
    PrintShowCounts(counts, "moved", "as it was", true);
    const double dMilliseconds = SecondsSince(start) * 1000;
    PrintResult(Format("show \"%s\" recalled: all changes back from the MC after %.1f ms", options.strName.c_str(), dMilliseconds),
                {{"time", CCell::Time(TimeNow())},
                 {"sender", pClient->Sender()},
                 {"show", options.strName},
                 {"moved", counts.Sum().nMoved},
                 {"safe", counts.Sum().nSafe},
                 {"same", counts.Sum().nInShow - counts.Sum().nMoved - counts.Sum().nSafe},
                 {"milliseconds", {dMilliseconds, 1}}});
    return enExitDone;
}

// What differs between the show and the MC, and why it would move or stay.
int PreviewShow(const stShowOptions& options)
{
    const std::vector<stPattern> safe = ParsePatterns(options.safe);
    std::unique_ptr<CBMAContainer> pShow;
    std::unique_ptr<CClient> pClient;
    const int nStatus = OpenBoth(options, pShow, pClient);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    const CBMAContainer& live = pClient->Image();
    const std::unique_ptr<CBMAContainer> pTarget = MakeRecalled(live, *pShow, safe);
    {
        CShortTable table(options.nCount,
                          {{"time", 0}, {"sender", 0}, {"address", 26}, {"name", 18}, {"now", -12}, {"show", -12}, {"reason", 1}});
        for (const stAddress& address : FindDifferences(live, *pShow))
        {
            if (IsStored(*pShow, address))
            {
                table.Print({CCell::Time(TimeNow()), pClient->Sender(), AddressText(address), NameText(live, address),
                             ValueCell(address, ReadValue(live, address)), ValueCell(address, ReadValue(*pShow, address)),
                             !IsRecalled(*pShow, address) ? "stays: outside the recall scope"
                             : IsSafe(*pTarget, address)  ? CCell("stays: safe")
                                                          : CCell(enGood, "moves: in the recall scope, not safe")});
            }
        }
    }
    PrintShowCounts(Count(*pShow, *pTarget, FindDifferences(live, *pTarget)), "would move", "as it is", true);
    return enExitDone;
}

int CompareShow(const stShowOptions& options)
{
    std::unique_ptr<CBMAContainer> pShow;
    std::unique_ptr<CClient> pClient;
    const int nStatus = OpenBoth(options, pShow, pClient);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    const CBMAContainer& live = pClient->Image();
    std::vector<stAddress> different;
    {
        CShortTable table(options.nCount,
                          {{"time", 0}, {"sender", 0}, {"verdict", 7}, {"address", 26}, {"name", 18}, {"show", -12}, {"now", -12}});
        for (const stAddress& address : FindDifferences(live, *pShow))
        {
            if (IsRecalled(*pShow, address))
            {
                different.push_back(address);
                table.Print({CCell::Time(TimeNow()), pClient->Sender(), CCell(enBad, "differs"), AddressText(address),
                             NameText(live, address), ValueCell(address, ReadValue(*pShow, address)),
                             ValueCell(address, ReadValue(live, address))});
            }
        }
    }
    const auto pNothingSafe = std::make_unique<CBMAContainer>();
    SetSafeFlags(*pNothingSafe, {});
    PrintShowCounts(Count(*pShow, *pNothingSafe, different), "different", "the same", false);
    return different.empty() ? enExitDone : enExitFailed;
}
