// consolectl doctor: why a client and an MC don't hear each other.
#include "Network/Checks.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Output.h"

#include "LogicalControls.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

struct stOptions
{
    stMulticastLink link;
    std::string strSchema = XMLDiagnostics::c_strSchemaFile;
    double dTimeout = 0.3;
    int nCount = 0;
};

int SchemaError(const std::string& strFile, long& lSize)
{
    struct stat status = {};
    if (stat(strFile.c_str(), &status) != 0 || access(strFile.c_str(), R_OK) != 0)
    {
        return errno;
    }
    lSize = static_cast<long>(status.st_size);
    return S_ISDIR(status.st_mode) ? EISDIR : S_ISREG(status.st_mode) && lSize == 0 ? ENODATA : 0;
}

// Nothing but reports needs it.
tFindings CheckSchema(const stExamined& examined)
{
    const std::string strFile = examined.strSchema;
    long lSize = 0;
    const int nError = SchemaError(strFile, lSize);
    if (nError == 0)
    {
        return {{enVerdictOk, "reports", strFile + ": " + Grouped(lSize) + " bytes", ""}};
    }
    return {{enVerdictWarning, "reports",
             strFile + ": " + (nError == ENODATA ? "it is empty" : std::strerror(nError)) +
                 ": reports can't be validated; --schema names another file",
             nError == EACCES   ? "chmod a+r " + ShellWord(strFile)
             : nError == EISDIR ? ""
                                : "install -D -m 644 Source/Common/Diagnostics/xml_validation.xsd " + ShellWord(strFile)}};
}

const struct
{
    const char* szName;
    tFindings (*pRun)(const stExamined& examined);
} c_aChecks[] = {
    {"interface", CheckInterfaces}, {"choice", CheckChoice}, {"route", CheckRoutes},
    {"filter", CheckReversePath},   {"port", CheckPorts},    {"group", CheckMembership},
    {"buffer", CheckReceiveBuffer}, {"TTL", CheckHops},      {"loop", CheckLoop},
    {"round trip", CheckRoundTrip}, {"MC", CheckMc},         {"schema", CheckSchema},
};

const struct
{
    const char* szName;
    enTextStyle enStyle;
} c_aVerdicts[] = {
    {"ok", enGood}, {"note", enFaint}, {"not used", enFaint}, {"warning", enStrong}, {"failed", enBad},
};

// What is amiss: how much of it, and the worst, of which the first.
struct stDiagnosis
{
    int nAmiss = 0;
    enVerdict enWorst = enVerdictOk;
    std::string strWorst;
};

void Print(CShortTable& table, const char* szCheck, const stFinding& finding)
{
    const auto& verdict = c_aVerdicts[finding.enIs];
    const bool bShown = table.Print({{verdict.enStyle, verdict.szName},
                                     szCheck,
                                     finding.strSubject,
                                     finding.strFinding,
                                     finding.strCommand.empty() ? CCell() : CCell(finding.strCommand)});
    if (bShown && !finding.strCommand.empty() && GetFormat() == enFormatText)
    {
        Line("          try: %s", Printable(finding.strCommand).c_str());
    }
}

void Add(stDiagnosis& diagnosis, const char* szCheck, const stFinding& finding)
{
    diagnosis.nAmiss += finding.enIs >= enVerdictWarning ? 1 : 0;
    if (finding.enIs > diagnosis.enWorst)
    {
        diagnosis.enWorst = finding.enIs;
        diagnosis.strWorst = std::string(szCheck) + " " + finding.strSubject + ": " + finding.strFinding;
    }
}

int Doctor(const stOptions& options)
{
    const stExamined examined(options.link, options.strSchema, options.dTimeout);
    CShortTable table(options.nCount, {{"verdict", 8}, {"check", 10}, {"subject", 16}, {"finding", 38}, {"command", 0}});
    table.PrintHead();
    stDiagnosis diagnosis;
    for (const auto& check : c_aChecks)
    {
        const std::vector<stFinding> findings = check.pRun(examined);
        if (StopRequested())
        {
            Line("stopped at the check of %s: %s before it", check.szName, Counted(diagnosis.nAmiss, "findings").c_str());
            return diagnosis.enWorst == enVerdictFailed ? enExitFailed : enExitDone;
        }
        for (const stFinding& finding : findings)
        {
            Print(table, check.szName, finding);
            Add(diagnosis, check.szName, finding);
        }
    }
    if (diagnosis.nAmiss == 0)
    {
        Line("%s", Styled(enGood, "all is well").c_str());
        return enExitDone;
    }
    Line("%s: the first is %s", Counted(diagnosis.nAmiss, "findings").c_str(), Printable(diagnosis.strWorst).c_str());
    return diagnosis.enWorst == enVerdictFailed ? enExitFailed : enExitDone;
}

} // namespace

void AddDoctor(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add("doctor", "Say why a client and an MC don't hear each other, and what to do about it");
    AddLinkOptions(command, pOptions->link);
    command.Option("--schema", pOptions->strSchema, "Schema file that reports are validated against");
    command
        .Option("--timeout", pOptions->dTimeout, "Seconds to wait for the datagram that is sent and received, and then for an MC's")
        .Within(0.01, 60);
    AddRowsOption(command, pOptions->nCount, "findings");
    AddFormatOption(command);
    command.Footer("consolectl doctor --interface eth0\n"
                   "consolectl doctor --format json");
    command.RunsUntilStopped([pOptions] { return Doctor(*pOptions); });
}
