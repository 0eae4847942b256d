// consolectl manual: pages for man, and completion for shells, out of what the subcommands say of themselves.
#include "LogicalControls.h"
#include "Manual/Completion.h"
#include "Manual/ManualPages.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Common.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
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

int WriteManual(const CLI::App& app, const stOptions& options)
{
    int nStatus = enExitDone;
    for (const auto& [strName, strText] : c_Kinds.at(options.strWhat)(ReadCommand(app, "consolectl")))
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

std::string CheckWhat(const std::string& strWhat)
{
    return c_Kinds.count(strWhat) != 0 ? std::string() : strWhat + " is none of man, bash, zsh";
}

} // namespace

void AddManual(CLI::App& app, int& nStatus)
{
    const auto pOptions = std::make_shared<stOptions>();
    CLI::App* pCommand = app.add_subcommand("manual", "Write the pages for man, or the completion for bash or zsh");
    pCommand->group(""); // for who packs it
    pCommand->add_option("WHAT", pOptions->strWhat, "Which of them")
        ->type_name("man|bash|zsh")
        ->required()
        ->check(CLI::Validator(CheckWhat, ""));
    pCommand->add_option("FOLDER", pOptions->strFolder, "Where the files go; none: to standard output");
    pCommand->footer("source <(consolectl manual bash)");
    pCommand->callback([&app, pOptions, &nStatus] { nStatus = WriteManual(app, *pOptions); });
}
