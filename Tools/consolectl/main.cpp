// consolectl: the engineer's view of a console's logical controls.
#include "Manual/CommandTree.h"
#include "Manual/HelpText.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Common.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include <fcntl.h>

namespace
{

int RefuseUse(const std::string& strText)
{
    Fail(strText + " (see consolectl --help)");
    return enExitWrongUse;
}

// What the parser could make nothing of says more than what is missing because of it. Empty: nothing of that kind.
std::string UnknownWord(const CLI::App& app, const CLI::ParseError& error)
{
    const auto enError = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const std::vector<std::string> words = app.remaining(true);
    if (words.empty() || (enError != CLI::ExitCodes::RequiredError && enError != CLI::ExitCodes::ExtrasError))
    {
        return "";
    }
    const CLI::App* pCommand = &app; // that the words came to
    while (!pCommand->get_subcommands().empty())
    {
        pCommand = pCommand->get_subcommands().back();
    }
    const bool bGroup = !pCommand->get_subcommands({}).empty();
    return "\"" + CCommand::Unshielded(words[0]) + "\" is " +
           (bGroup               ? "no subcommand, and no option"
            : words[0][0] == '-' ? "no option"
                                 : "too much");
}

// "consolectl show save".
std::string PathOf(const CLI::App& command)
{
    return command.get_parent() == nullptr ? "consolectl" : PathOf(*command.get_parent()) + " " + command.get_name();
}

int EndOfOutput(int nStatus)
{
    const bool bTaken = std::cout.flush().good() && std::fflush(stdout) == 0 && std::fflush(RowsOutput()) == 0 && !OutputFailed();
    return bTaken ? nStatus : Fail("standard output takes no more");
}

int Run(int nArguments, char** ppArguments)
{
    CLI::App app(
        "The engineer's view of a mixing console's logical controls: what a machine's network lets through, who sends what, what "
        "is lost, what changes and why, and whether both ends are the same. Simulates a master controller (MC), too.\n\n"
        "A first look, in two terminals:\n  consolectl mc\n  consolectl watch 'MicInput/*/Fader'\n\n"
        "Each subcommand explains itself: consolectl mc --help",
        "consolectl");
    app.formatter_fn([](const CLI::App* pCommand, const std::string&, CLI::AppFormatMode)
                     { return HelpText(ReadCommand(*pCommand, PathOf(*pCommand)), TerminalWidth() - 1); });
    app.set_version_flag("--version", "consolectl " CONSOLECTL_VERSION, "Print the version and exit");
    int nStatus = enExitDone;
    CCommand console(app, nStatus);
    AddDoctor(console);
    AddMc(console);
    AddFollow(console);
    AddWatch(console);
    AddGet(console);
    AddSet(console);
    AddSend(console);
    AddParams(console);
    AddStats(console);
#ifdef CONSOLECTL_HAVE_TOP
    AddTop(console);
#endif
    AddVerify(console);
    AddRecord(console);
    AddReplay(console);
#ifdef CONSOLECTL_HAVE_SHOWS
    AddShow(console);
#endif
    AddWhy(console);
    AddWeb(console);
    AddDiagnostics(console);
    AddManual(console);
    try
    {
        app.parse(CCommand::Shielded(nArguments, ppArguments));
    }
    catch (const CLI::Success& success)
    {
        app.exit(success);
        return EndOfOutput(enExitDone);
    }
    catch (const CLI::ParseError& error)
    {
        const std::string strWord = UnknownWord(app, error);
        return RefuseUse(strWord.empty() ? error.what() : strWord);
    }
    catch (const stWrongUse& error)
    {
        return RefuseUse(error.what());
    }
    return EndOfOutput(nStatus);
}

// Else a file or a socket would get their numbers, and what is meant for people would go there.
void KeepStandardStreams()
{
    for (int nStream = 0; nStream <= 2; ++nStream)
    {
        if (fcntl(nStream, F_GETFD) < 0)
        {
            open("/dev/null", O_RDONLY); // the lowest number that is free: what is written fails, as it did
        }
    }
}

} // namespace

int main(int nArguments, char** ppArguments)
{
    KeepStandardStreams();
    std::signal(SIGXFSZ, SIG_IGN); // what is written beyond a limit fails, and that is told
    try
    {
        return Run(nArguments, ppArguments);
    }
    catch (const std::bad_alloc&)
    {
    }
    catch (const std::exception& error)
    {
        return Fail(error.what());
    }
    catch (...) // an image throws a number for it
    {
    }
    std::fprintf(stderr, "consolectl: no memory\n");
    return enExitFailed;
}
