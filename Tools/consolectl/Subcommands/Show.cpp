// consolectl show: keeps shows in a file, and brings them back.
#include "Images/ShowFile.h"
#include "Network/Client.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Common.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace
{

constexpr int c_nShown = 5;

struct stOptions
{
    stClientOptions client;
    std::string strFile;
    std::string strName;
    std::vector<std::string> scope;
    std::vector<std::string> except;
    std::vector<std::string> safe;
    bool bReplace = false;
};

// What is to be done with the parameters of a type.
struct stCount
{
    int nInShow = 0;
    int nMoved = 0; // or different
    int nSafe = 0;
};
struct stCounts
{
    stCount& Of(const stAddress& address) { return aTypes[address.enType]; }

    stCount aTypes[c_nMessageTypes];
};

typedef void (CBMAContainer::*tSetFlag)(tagenPPCMessageType, tagenVirtualPathType, int, int, int);

void SetFlags(CBMAContainer& image, tSetFlag pSetFlag, const stPattern& pattern, int nFlag)
{
    ForEachParameter(pattern, [&](const stAddress& address)
                     { (image.*pSetFlag)(address.enType, address.enPathType, address.nPath, address.nParam, nFlag); });
}

// What is stored is what is recalled.
void SetShowFlags(CBMAContainer& image, const stPattern& pattern, int nFlag)
{
    SetFlags(image, &CBMAContainer::SetPPCStoreScope, pattern, nFlag);
    SetFlags(image, &CBMAContainer::SetPPCRecallScope, pattern, nFlag);
}

std::vector<stPattern> ParsePatterns(const std::vector<std::string>& texts)
{
    std::vector<stPattern> patterns(texts.size());
    std::transform(texts.begin(), texts.end(), patterns.begin(), ParsePattern);
    return patterns;
}

// A set safe flag lets a parameter move: everything does, but for the safe ones.
void SetSafeFlags(CBMAContainer& image, const std::vector<stPattern>& safe)
{
    SetFlags(image, &CBMAContainer::SetPPCSafeScope, c_EveryParameter, 1);
    for (const stPattern& pattern : safe)
    {
        SetFlags(image, &CBMAContainer::SetPPCSafeScope, pattern, 0);
    }
}

bool IsRecalled(const CBMAContainer& image, const stAddress& address)
{
    int nFlag = 0;
    image.GetPPCRecallScope(address.enType, address.enPathType, address.nPath, address.nParam, nFlag);
    return nFlag != 0 && address.enType != enMeter;
}

bool IsSafe(const CBMAContainer& image, const stAddress& address)
{
    int nFlag = 0;
    image.GetPPCSafeScope(address.enType, address.enPathType, address.nPath, address.nParam, nFlag);
    return nFlag == 0;
}

// The changes that lead from one image to the other.
std::vector<stChange> Difference(const CBMAContainer& from, const CBMAContainer& to)
{
    std::vector<stChange> changes;
    ForEachParameter(c_EveryParameter,
                     [&](const stAddress& address)
                     {
                         const stValue value = ReadValue(to, address);
                         if (!SameValue(address, ReadValue(from, address), value))
                         {
                             changes.push_back({address, value});
                         }
                     });
    return changes;
}

void PrintTable(const stCounts& counts, const char* szMoved, const char* szSame, bool bSafe)
{
    stCount sum;
    const auto row = [&](const char* szType, const stCount& count)
    {
        const int nSame = count.nInShow - count.nMoved - count.nSafe;
        Line("%-10s %12s %12s %12s %12s", szType, Grouped(count.nInShow).c_str(), Grouped(count.nMoved).c_str(),
             bSafe ? Grouped(count.nSafe).c_str() : "", Grouped(nSame).c_str());
    };
    Line("%s",
         Styled(enStrong, Format("%-10s %12s %12s %12s %12s", "type", "in the show", szMoved, bSafe ? "stayed safe" : "", szSame))
             .c_str());
    for (int nType = 0; nType < enMeter; ++nType)
    {
        row(caMessageTypeNames[nType], counts.aTypes[nType]);
        sum.nInShow += counts.aTypes[nType].nInShow;
        sum.nMoved += counts.aTypes[nType].nMoved;
        sum.nSafe += counts.aTypes[nType].nSafe;
    }
    row("all", sum);
}

int Save(const stOptions& options)
{
    const std::vector<stPattern> scope =
        options.scope.empty() ? std::vector<stPattern>{c_EveryParameter} : ParsePatterns(options.scope);
    const std::vector<stPattern> except = ParsePatterns(options.except);
    CShowFile file;
    std::string strError = file.Open(options.strFile, true);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    const auto pClient = std::make_unique<CClient>(options.client);
    const int nStatus = pClient->Open();
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    CBMAContainer& live = pClient->Image();
    for (const stPattern& pattern : scope)
    {
        SetShowFlags(live, pattern, 1);
    }
    for (const stPattern& pattern : except)
    {
        SetShowFlags(live, pattern, 0);
    }
    SetSafeFlags(live, {});
    const auto pShow = std::make_unique<CBMAContainer>();
    live.ExportScopedParameters(*pShow, true, true, nullptr);
    strError = file.Save(options.strName, MakeShowBlocks(*pShow), options.bReplace);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    stCounts counts;
    ForEachParameter(c_EveryParameter,
                     [&](const stAddress& address) { counts.Of(address).nInShow += IsRecalled(*pShow, address) ? 1 : 0; });
    int nParameters = 0;
    for (const stCount& count : counts.aTypes)
    {
        nParameters += count.nInShow;
    }
    Line("show \"%s\" saved to %s: %s parameters", options.strName.c_str(), options.strFile.c_str(), Grouped(nParameters).c_str());
    return enExitDone;
}

std::string LoadShow(const stOptions& options, CBMAContainer& show)
{
    CShowFile file;
    std::vector<stShowBlock> blocks;
    std::string strError = file.Open(options.strFile, false);
    if (strError.empty())
    {
        strError = file.Load(options.strName, blocks);
    }
    if (strError.empty())
    {
        strError = ApplyShowBlocks(blocks, show);
        strError = strError.empty() ? strError : options.strFile + ": show \"" + options.strName + "\": " + strError;
    }
    return strError;
}

// A show, and the MC beside it. The show is read before anything is heard or sent.
int OpenBoth(const stOptions& options, std::unique_ptr<CBMAContainer>& pShow, std::unique_ptr<CClient>& pClient)
{
    pShow = std::make_unique<CBMAContainer>();
    const std::string strError = LoadShow(options, *pShow);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    pClient = std::make_unique<CClient>(options.client);
    return pClient->Open();
}

int Recall(const stOptions& options)
{
    const std::vector<stPattern> safe = ParsePatterns(options.safe);
    std::unique_ptr<CBMAContainer> pShow;
    std::unique_ptr<CClient> pClient;
    int nStatus = OpenBoth(options, pShow, pClient);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    const auto pTarget = std::make_unique<CBMAContainer>(pClient->Image());
    pTarget->SetUseSimplePPCSender(false);
    SetSafeFlags(*pTarget, safe);
    pTarget->ImportScopedParameters(*pShow, true, true);
    const std::vector<stChange> changes = Difference(pClient->Image(), *pTarget);
    stCounts counts;
    ForEachParameter(c_EveryParameter,
                     [&](const stAddress& address)
                     {
                         const bool bRecalled = IsRecalled(*pTarget, address);
                         counts.Of(address).nInShow += bRecalled ? 1 : 0;
                         counts.Of(address).nSafe += bRecalled && IsSafe(*pTarget, address) ? 1 : 0;
                     });
    for (const stChange& change : changes)
    {
        ++counts.Of(change.address).nMoved;
    }
    const tSteadyClock::time_point start = tSteadyClock::now();
    nStatus = pClient->Send(changes);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    PrintTable(counts, "moved", "as it was", true);
    Line("show \"%s\" recalled: all changes back from the MC after %.1f ms", options.strName.c_str(), SecondsSince(start) * 1000);
    return enExitDone;
}

int Compare(const stOptions& options)
{
    std::unique_ptr<CBMAContainer> pShow;
    std::unique_ptr<CClient> pClient;
    const int nStatus = OpenBoth(options, pShow, pClient);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    stCounts counts;
    int nDifferent = 0;
    ForEachParameter(c_EveryParameter,
                     [&](const stAddress& address)
                     {
                         if (!IsRecalled(*pShow, address))
                         {
                             return;
                         }
                         const stValue live = ReadValue(pClient->Image(), address);
                         const stValue stored = ReadValue(*pShow, address);
                         ++counts.Of(address).nInShow;
                         if (!SameValue(address, live, stored))
                         {
                             ++counts.Of(address).nMoved;
                             if (++nDifferent <= c_nShown)
                             {
                                 Line("%s  %s  %s in the show, %s at the MC", Styled(enBad, "differs").c_str(),
                                      AddressText(address).c_str(), ValueText(address, stored).c_str(),
                                      ValueText(address, live).c_str());
                             }
                         }
                     });
    if (nDifferent > c_nShown)
    {
        Line("... and %s more", Grouped(nDifferent - c_nShown).c_str());
    }
    PrintTable(counts, "different", "the same", false);
    return nDifferent == 0 ? enExitDone : enExitFailed;
}

int List(const stOptions& options)
{
    CShowFile file;
    std::vector<stShowEntry> entries;
    std::string strError = file.Open(options.strFile, false);
    if (strError.empty())
    {
        strError = file.List(entries);
    }
    if (!strError.empty())
    {
        return Fail(strError);
    }
    Line("%s", Styled(enStrong, Format("%-20s %10s  %s", "saved (UTC)", "parameters", "show")).c_str());
    for (const stShowEntry& entry : entries)
    {
        Line("%-20s %10s  %s", Printable(entry.strSaved).c_str(), Grouped(static_cast<long>(entry.nStored)).c_str(),
             Printable(entry.strName).c_str());
    }
    return enExitDone;
}

int Delete(const stOptions& options)
{
    CShowFile file;
    std::string strError = file.Open(options.strFile, false);
    if (strError.empty())
    {
        strError = file.Delete(options.strName);
    }
    if (!strError.empty())
    {
        return Fail(strError);
    }
    Line("show \"%s\" deleted from %s", options.strName.c_str(), options.strFile.c_str());
    return enExitDone;
}

std::string CheckName(const std::string& strName)
{
    const bool bGood = !strName.empty() && strName.size() <= 64 && Printable(strName) == strName;
    return bGood ? std::string() : "a show's name has 1 to 64 characters that can be printed";
}

} // namespace

void AddShow(CLI::App& app, int& nStatus)
{
    const auto pOptions = std::make_shared<stOptions>();
    CLI::App* pShow = app.add_subcommand("show", "Keep shows in a file, and bring them back");
    pShow->require_subcommand(1);
    const auto add = [&](const char* szName, const char* szWhat, bool bNamed, bool bLinked, int (*pRun)(const stOptions&))
    {
        CLI::App* pCommand = pShow->add_subcommand(szName, szWhat);
        pCommand->add_option("FILE", pOptions->strFile, "The file of shows")->required();
        if (bNamed)
        {
            pCommand->add_option("NAME", pOptions->strName, "The show's name")->required()->check(CLI::Validator(CheckName, ""));
        }
        if (bLinked)
        {
            AddClientOptions(*pCommand, pOptions->client);
        }
        pCommand->callback(
            [pOptions, pRun, &nStatus]
            {
                CatchStopSignals();
                nStatus = pRun(*pOptions);
            });
        return pCommand;
    };
    const auto addPatterns = [](CLI::App* pCommand, const char* szName, std::vector<std::string>& patterns, const char* szWhat)
    { pCommand->add_option(szName, patterns, szWhat)->type_name("ADDRESS")->take_all()->allow_extra_args(false); };

    CLI::App* pSave = add("save", "Store the MC's parameters, meters left out", true, true, Save);
    addPatterns(pSave, "--scope", pOptions->scope, "Store these alone, such as \"MicInput/*/Fader/*\"; default: all");
    addPatterns(pSave, "--except", pOptions->except, "Leave these out of it");
    pSave->add_flag("--replace", pOptions->bReplace, "Put it in the place of a show of this name");
    CLI::App* pRecall = add("recall", "Bring a show's parameters back to the MC", true, true, Recall);
    addPatterns(pRecall, "--safe", pOptions->safe, "Leave these as they are, such as \"MicInput/0-7/*/*\"");
    add("list", "List the shows of a file", false, false, List);
    add("delete", "Take a show out of a file", true, false, Delete);
    add("compare", "Compare a show with the MC; exit status 1 when they differ", true, true, Compare);
}
