// consolectl show: keeps shows in a file, and brings them back.
#include "Subcommands/Show.h"

#include "Images/Cells.h"
#include "Images/ShowFile.h"
#include "Images/ShowScope.h"
#include "Subcommands/Subcommands.h"

#include <algorithm>
#include <memory>

namespace
{

// What is stored is what is recalled.
void SetShowFlags(CBMAContainer& image, const stPattern& pattern, int nFlag)
{
    SetFlags(image, &CBMAContainer::SetPPCStoreScope, pattern, nFlag);
    SetFlags(image, &CBMAContainer::SetPPCRecallScope, pattern, nFlag);
}

std::string CheckName(const std::string& strName)
{
    const bool bGood = !strName.empty() && Width(strName) <= 64 && Printable(strName) == strName;
    return bGood ? std::string() : "a show's name has 1 to 64 characters that can be printed";
}

int CountRecalled(const CBMAContainer& show)
{
    int nCount = 0;
    ForEachParameter(c_EveryParameter, [&](const stAddress& address) { nCount += IsRecalled(show, address) ? 1 : 0; });
    return nCount;
}

// What is not stored has no value that could be recalled: it keeps its flags. Returns how many of the pattern's there are.
int SetScope(CBMAContainer& show, const stPattern& pattern, const stShowOptions& options)
{
    int nNotStored = 0;
    ForEachParameter(pattern,
                     [&](const stAddress& address)
                     {
                         const bool bStored = IsStored(show, address) && options.strStore.empty();
                         const bool bRecalled = options.strRecall.empty() ? IsRecalled(show, address) : options.strRecall == "on";
                         nNotStored += IsStored(show, address) ? 0 : 1;
                         if (IsStored(show, address))
                         {
                             show.SetPPCStoreScope(address.enType, address.enPathType, address.nPath, address.nParam,
                                                   bStored ? 1 : 0);
                             show.SetPPCRecallScope(address.enType, address.enPathType, address.nPath, address.nParam,
                                                    bStored && bRecalled ? 1 : 0);
                         }
                     });
    return nNotStored;
}

void PrintScope(const CBMAContainer& show, const std::vector<stPattern>& patterns, const stShowOptions& options)
{
    CShortTable table(options.nCount, {{"address", 26}, {"name", 18}, {"store", 6}, {"recall", 7}, {"value", 1}});
    for (const stPattern& pattern : patterns)
    {
        ForEachParameter(pattern,
                         [&](const stAddress& address)
                         {
                             const bool bStored = IsStored(show, address);
                             table.Print({AddressText(address), NameText(show, address), bStored ? "store" : "-",
                                          IsRecalled(show, address) ? "recall" : "-",
                                          bStored ? ValueCell(address, ReadValue(show, address)) : CCell()});
                         });
    }
}

// Opens a file of shows and works on it: what went wrong is said.
template <class Work>
int WithFile(const stShowOptions& options, Work work)
{
    CShowFile file;
    std::string strError = file.Open(options.strFile, false);
    strError = strError.empty() ? work(file) : strError;
    return strError.empty() ? int(enExitDone) : Fail(strError);
}

} // namespace

int SaveShow(const stShowOptions& options)
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
    const int nParameters = CountRecalled(*pShow);
    PrintResult(
        Format("show \"%s\" saved to %s: %s", options.strName.c_str(), Printable(options.strFile).c_str(),
               Counted(nParameters, "parameters").c_str()),
        {{"time", CCell::Time(TimeNow())}, {"sender", pClient->Sender()}, {"show", options.strName}, {"parameters", nParameters}});
    return enExitDone;
}

// Leaves the show as it is then in image. Empty, or what went wrong.
std::string ChangeScope(const stShowOptions& options, const std::vector<stPattern>& patterns, CBMAContainer& image)
{
    int nNotStored = 0;
    const auto change = [&](std::vector<stShowBlock>& blocks)
    {
        const std::string strError = ApplyShowBlocks(blocks, image);
        for (const stPattern& pattern : patterns)
        {
            nNotStored += SetScope(image, pattern, options);
        }
        blocks = MakeShowBlocks(image);
        return strError.empty() ? strError : options.strFile + ": show \"" + options.strName + "\": " + strError;
    };
    CShowFile file;
    std::string strError = file.Open(options.strFile, false);
    strError = strError.empty() ? file.Change(options.strName, change) : strError;
    if (strError.empty() && nNotStored > 0)
    {
        Line("%s not in the show, and out of it still", Counted(nNotStored, "parameters").c_str());
    }
    return strError;
}

int ScopeShow(const stShowOptions& options)
{
    const std::vector<stPattern> patterns =
        options.scope.empty() ? std::vector<stPattern>{c_EveryParameter} : ParsePatterns(options.scope);
    if (options.strRecall == "on" && options.strStore == "off")
    {
        throw stWrongUse("--recall on", "what --store off takes out of the show can't be brought back");
    }
    const auto pShow = std::make_unique<CBMAContainer>();
    const bool bChanges = !options.strRecall.empty() || !options.strStore.empty();
    const std::string strError =
        bChanges ? ChangeScope(options, patterns, *pShow) : ReadShow(options.strFile, options.strName, *pShow);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    PrintScope(*pShow, patterns, options);
    return enExitDone;
}

int ListShows(const stShowOptions& options)
{
    return WithFile(
        options,
        [&options](CShowFile& file)
        {
            std::vector<stShowEntry> entries;
            std::string strError = file.List(entries);
            CShortTable table(options.nShows, {{"saved", 23}, {"parameters", -10}, {"show", 1}});
            if (strError.empty())
            {
                table.PrintHead();
            }
            for (const stShowEntry& entry : entries)
            {
                std::string strIso = entry.strSaved + "Z";
                std::replace(strIso.begin(), strIso.end(), ' ', 'T');
                table.Print({CCell::Text(entry.strSaved + " UTC", strIso), static_cast<long>(entry.nStored), entry.strName});
            }
            return strError;
        });
}

int DeleteShow(const stShowOptions& options)
{
    return WithFile(options,
                    [&options](CShowFile& file)
                    {
                        std::string strError = file.Delete(options.strName);
                        if (strError.empty())
                        {
                            PrintResult(
                                Format("show \"%s\" deleted from %s", options.strName.c_str(), Printable(options.strFile).c_str()),
                                {{"time", CCell::Time(TimeNow())}, {"deleted", options.strName}});
                        }
                        return strError;
                    });
}

void AddShow(CCommand& console)
{
    const auto pOptions = std::make_shared<stShowOptions>();
    CCommand show = console.Add("show", "Keep shows in a file, and bring them back");
    const auto add = [&](const char* szName, const char* szWhat, bool bNamed, bool bLinked, int (*pRun)(const stShowOptions&))
    {
        CCommand command = show.Add(szName, szWhat);
        command.Option("FILE", pOptions->strFile, "The file of shows").File().Required();
        if (bNamed)
        {
            command.Option("NAME", pOptions->strName, "The show's name").Required().Check(CheckName);
        }
        if (bLinked)
        {
            AddClientOptions(command, pOptions->client);
        }
        AddFormatOption(command);
        command.RunsUntilStopped([pOptions, pRun] { return pRun(*pOptions); });
        return command;
    };
    const auto addPatterns = [](CCommand& command, const char* szName, std::vector<std::string>& patterns, const char* szWhat)
    { command.Option(szName, patterns, szWhat).Type("ADDRESS").Repeated(); };
    const auto addCount = [pOptions](CCommand command) { AddRowsOption(command, pOptions->nCount, "parameters"); };

    CCommand save = add("save", "Store the MC's parameters, meters left out", true, true, SaveShow);
    addPatterns(save, "--scope", pOptions->scope, "Store these alone, such as \"MicInput/*/Fader/*\"; default: all");
    addPatterns(save, "--except", pOptions->except, "Leave these out of it");
    save.Flag("--replace", pOptions->bReplace, "Put it in the place of a show of this name");
    CCommand recall = add("recall", "Bring a show's parameters back to the MC", true, true, RecallShow);
    CCommand preview =
        add("preview", "List what a recall would change, and why the rest would stay; nothing moves", true, true, PreviewShow);
    for (CCommand* pCommand : {&recall, &preview})
    {
        addPatterns(*pCommand, "--safe", pOptions->safe, "Leave these as they are, such as \"MicInput/0-7/*/*\"");
    }
    addCount(preview);
    addCount(add("compare", "Compare a show with the MC; exit status 1 when they differ", true, true, CompareShow));
    CCommand scope = add("scope", "Show which parameters a show stores and recalls, and change that", true, false, ScopeShow);
    scope.Option("ADDRESS", pOptions->scope, "Of these, such as \"MicInput/*/Fader\"; default: all");
    scope.Option("--recall", pOptions->strRecall, "Bring these back, or don't").OneOf({"on", "off"});
    scope.Option("--store", pOptions->strStore, "Take these out of the show").OneOf({"off"});
    addCount(scope);
    CCommand list = add("list", "List the shows of a file", false, false, ListShows);
    AddRowsOption(list, pOptions->nShows, "shows");
    add("delete", "Take a show out of a file", true, false, DeleteShow);
}
