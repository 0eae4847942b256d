// consolectl: the engineer's view of a console's logical controls.
#include "Subcommands/Subcommands.h"
#include "Terminal/Common.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <stdexcept>

namespace
{

int RefuseUse(const std::exception& error)
{
    Fail(std::string(error.what()) + " (see consolectl --help)");
    return enExitWrongUse;
}

int Run(int nArguments, char** ppArguments)
{
    CLI::App app(
        "The engineer's view of a mixing console's logical controls: what a machine's network lets through, who sends what, what "
        "is lost, what changes and why, and whether both ends are the same. Simulates a master controller (MC), too.\n\n"
        "A first look, in two terminals:\n  consolectl mc\n  consolectl watch 'MicInput/*/Fader'\n\n"
        "Each subcommand explains itself: consolectl mc --help");
    app.require_subcommand(1);
    app.get_formatter()->column_width(34);
    int nStatus = enExitDone;
    AddDoctor(app, nStatus);
    AddMc(app, nStatus);
    AddFollow(app, nStatus);
    AddWatch(app, nStatus);
    AddGet(app, nStatus);
    AddSet(app, nStatus);
    AddSend(app, nStatus);
    AddParams(app, nStatus);
    AddStats(app, nStatus);
#ifdef CONSOLECTL_HAVE_TOP
    AddTop(app, nStatus);
#endif
    AddVerify(app, nStatus);
    AddRecord(app, nStatus);
    AddReplay(app, nStatus);
#ifdef CONSOLECTL_HAVE_SHOWS
    AddShow(app, nStatus);
#endif
    AddWhy(app, nStatus);
    AddDiagnostics(app, nStatus);
    AddManual(app, nStatus);
    try
    {
        app.parse(nArguments, ppArguments);
    }
    catch (const CLI::Success& success)
    {
        return app.exit(success);
    }
    catch (const CLI::RequiredError& error)
    {
        return RefuseUse(app.remaining().empty()
                             ? std::runtime_error(error.what())
                             : std::runtime_error("\"" + app.remaining()[0] + "\" is no subcommand, and no option"));
    }
    catch (const CLI::ParseError& error)
    {
        return RefuseUse(error);
    }
    catch (const stWrongUse& error)
    {
        return RefuseUse(error);
    }
    if (std::fflush(stdout) != 0 || std::fflush(RowsOutput()) != 0 || OutputFailed())
    {
        return Fail("standard output takes no more");
    }
    return nStatus;
}

} // namespace

int main(int nArguments, char** ppArguments)
{
    try
    {
        return Run(nArguments, ppArguments);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "consolectl: %s\n", error.what());
    }
    catch (...)
    {
        std::fprintf(stderr, "consolectl: no memory\n"); // for which an image throws a number
    }
    return enExitFailed;
}
