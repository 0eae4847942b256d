// consolectl manual: pages for man, and completion for shells, out of what the subcommands say of themselves.
#include "LogicalControls.h"
#include "Manual/Completion.h"
#include "Manual/ManualPages.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Common.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>

namespace
{

struct stOptions
{
    std::string strWhat;
    std::string strFolder;
};

stAddressNames AddressNames()
{
    return {{caParameterGroupNames, caParameterGroupNames + c_nPathTypes},
            {caMessageTypeNames, caMessageTypeNames + c_nMessageTypes}};
}

const std::map<std::string, tFiles (*)(const stCommand&)> c_Kinds = {
    {"man", [](const stCommand& program) { return ManualPages(program, CONSOLECTL_VERSION); }},
    {"bash", [](const stCommand& program) { return BashCompletion(program, AddressNames()); }},
    {"zsh", [](const stCommand& program) { return ZshCompletion(program, AddressNames()); }},
};

int Write(const std::string& strFile, const std::string& strText)
{
    std::FILE* const pFile = std::fopen(strFile.c_str(), "wb");
    const bool bWritten = pFile != nullptr && std::fwrite(strText.data(), 1, strText.size(), pFile) == strText.size();
    const bool bClosed = pFile != nullptr && std::fclose(pFile) == 0;
    return bWritten && bClosed ? int(enExitDone) : Fail(strFile + ": " + std::strerror(errno));
}

int WriteManual(const CCommand& console, const stOptions& options)
{
    int nStatus = enExitDone;
    for (const auto& [strName, strText] : c_Kinds.at(options.strWhat)(ReadCommand(console.GetParser(), "consolectl")))
    {
        if (options.strFolder.empty())
        {
            std::fwrite(strText.data(), 1, strText.size(), stdout);
        }
        else if (nStatus == enExitDone)
        {
            nStatus = Write(options.strFolder + "/" + strName, strText);
        }
    }
    return nStatus;
}

std::vector<std::string> Kinds()
{
    std::vector<std::string> kinds;
    std::transform(c_Kinds.begin(), c_Kinds.end(), std::back_inserter(kinds), [](const auto& kind) { return kind.first; });
    return kinds;
}

} // namespace

void AddManual(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add("manual", "Write the pages for man, or the completion for bash or zsh");
    command.Hide(); // for who packs it
    command.Option("WHAT", pOptions->strWhat, "Which of them").OneOf(Kinds()).Required();
    command.Option("FOLDER", pOptions->strFolder, "Where the files go; none: to standard output");
    command.Footer("source <(consolectl manual bash)");
    command.Runs([console, pOptions] { return WriteManual(console, *pOptions); });
}
