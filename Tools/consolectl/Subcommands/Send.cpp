// consolectl send: changes at a rate, to see what a console makes of them.
#include "Images/Address.h"
#include "Network/Options.h"
#include "Network/SentChanges.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Output.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>

namespace
{

constexpr double c_dLongestSleep = 0.05;
constexpr double c_dRound = 0.001; // changes that are due within it leave together

struct stOptions
{
    stMulticastLink link;
    std::string strAddress;
    double dFrom = 0;
    double dTo = 0;
    std::string strScript;
    double dRate = 1000;
    int nCount = 0;
    double dTimeout = 0;
};

struct stTimedChange
{
    double dSeconds;
    stChange change;
};

// The ramp's value of a step.
stValue RampValue(double dValue)
{
    stValue value;
    value.fValue = static_cast<float>(dValue);
    value.nValue = static_cast<int>(std::lround(dValue));
    return value;
}

// Each step of the ramp goes to one parameter, in turn.
std::vector<stTimedChange> MakeRamp(const stOptions& options)
{
    std::vector<stAddress> addresses;
    ForEachParameter(ParsePattern(options.strAddress), [&](const stAddress& address) { addresses.push_back(address); });
    for (const stAddress& address : addresses)
    {
        if (address.enType == enString || address.enType == enMeter)
        {
            throw stWrongUse("ADDRESS", AddressText(address) + " takes no numbers from clients: --script sends texts");
        }
        ParseValue(address.enType, std::to_string(std::lround(options.dFrom))); // throws where it can't take that
        ParseValue(address.enType, std::to_string(std::lround(options.dTo)));
    }
    const std::size_t unCount = options.nCount > 0 ? std::size_t(options.nCount) : addresses.size();
    std::vector<stTimedChange> changes;
    for (std::size_t unStep = 0; unStep < unCount; ++unStep)
    {
        const stAddress& address = addresses[unStep % addresses.size()];
        const double dShare = unCount < 2 ? 1 : static_cast<double>(unStep) / static_cast<double>(unCount - 1);
        changes.push_back({options.dRate > 0 ? static_cast<double>(unStep) / options.dRate : 0,
                           {address, RampValue(options.dFrom + (options.dTo - options.dFrom) * dShare)}});
    }
    return changes;
}

// "SECONDS ADDRESS VALUE" a line; empty lines and those that begin with # are passed over.
std::vector<stTimedChange> ReadScript(const std::string& strFile)
{
    std::error_code noError;
    const std::filesystem::file_type type = std::filesystem::status(strFile, noError).type();
    std::ifstream file(strFile);
    if (!file || (type != std::filesystem::file_type::regular && type != std::filesystem::file_type::fifo))
    {
        throw std::runtime_error(strFile + ": it can't be read");
    }
    std::vector<stTimedChange> changes;
    char acLine[256];
    for (int nLine = 1; file.getline(acLine, sizeof acLine); ++nLine)
    {
        std::string strLine(acLine, static_cast<std::size_t>(file.gcount()) - (file.eof() ? 0 : 1)); // without its end
        strLine.erase(strLine.find_last_not_of('\r') + 1);
        if (strLine.empty() || strLine[0] == '#')
        {
            continue;
        }
        const std::size_t unAddress = strLine.find(' ');
        const std::size_t unValue = unAddress == std::string::npos ? unAddress : strLine.find(' ', unAddress + 1);
        double dSeconds = 0;
        if (unValue == std::string::npos || !ParseNumber(strLine.substr(0, unAddress), dSeconds) ||
            !(dSeconds >= 0 && dSeconds <= 86400) || (!changes.empty() && dSeconds < changes.back().dSeconds))
        {
            throw stWrongUse("--script", Format("line %d is no SECONDS ADDRESS VALUE with a time after the one before", nLine));
        }
        try
        {
            const stAddress address = ParseAddress(strLine.substr(unAddress + 1, unValue - unAddress - 1));
            changes.push_back({dSeconds, {address, ParseValue(address.enType, strLine.substr(unValue + 1))}});
        }
        catch (const stWrongUse& error)
        {
            throw stWrongUse(Format("--script, line %d", nLine), error.what());
        }
    }
    if (!file.eof()) // a line that has no end, or a failure
    {
        throw std::runtime_error(Format("%s: a line of it is too long, or can't be read", strFile.c_str()));
    }
    return changes;
}

int Send(const stOptions& options)
{
    if (options.strAddress.empty() == options.strScript.empty())
    {
        throw stWrongUse("send", "it takes an ADDRESS or a --script, one of them");
    }
    const std::vector<stTimedChange> changes = options.strScript.empty() ? MakeRamp(options) : ReadScript(options.strScript);
    CatchStopSignals(); // not before: a script may come from a pipe, which is waited for
    const auto pHandler = std::make_unique<CClientMsgHandler>(false);
    pHandler->SetRemoteAddress(c_szPPCGroup, 0, int(c_unPPCPort));
    if (!pHandler->InitialiseClient(0, nullptr, nullptr, options.link.strInterface.c_str()) && pHandler->GetLocalPort() == 0)
    {
        return Fail("the network can't be had: " + LinkText(options.link));
    }
    Line("changes to %s", LinkText(options.link).c_str());
    const tSteadyClock::time_point start = tSteadyClock::now();
    std::size_t unSent = 0;
    bool bSent = true;
    CProgress progress("send", static_cast<long>(changes.size()));
    while (unSent < changes.size() && bSent && !StopRequested())
    {
        const double dNow = SecondsSince(start);
        if (options.dTimeout > 0 && dNow >= options.dTimeout)
        {
            break;
        }
        const double dDue = changes[unSent].dSeconds;
        if (dDue > dNow)
        {
            SleepSeconds(std::min(std::max(dDue - dNow, c_dRound), c_dLongestSleep));
            continue;
        }
        for (std::size_t unBegin = unSent;
             unSent < changes.size() && changes[unSent].dSeconds <= dNow && unSent - unBegin < c_unChangesAtOnce; ++unSent)
        {
            QueueChange(*pHandler, changes[unSent].change);
        }
        bSent = pHandler->SendAll();
        progress.Show(static_cast<long>(unSent));
    }
    pHandler->Shutdown();
    if (!bSent)
    {
        return Fail("nothing can be sent: " + LinkText(options.link));
    }
    const double dSeconds = SecondsSince(start);
    PrintResult(Format("%s sent in %.3f s", Counted(static_cast<long>(unSent), "changes").c_str(), dSeconds),
                {{"time", CCell::Time(TimeNow())},
                 {"sender", OwnAddress(options.link)},
                 {"changes", static_cast<long>(unSent)},
                 {"seconds", {dSeconds, 3}}});
    if (unSent < changes.size() && !StopRequested())
    {
        Fail(Format("%s of %s within %g seconds", Grouped(static_cast<long>(unSent)).c_str(),
                    Counted(static_cast<long>(changes.size()), "changes").c_str(), options.dTimeout));
        return enExitTimedOut;
    }
    return enExitDone;
}

} // namespace

void AddSend(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    pOptions->link.strGroup = c_szPPCGroup;
    pOptions->link.unPort = c_unPPCPort;
    CCommand command =
        console.Add("send", "Send a burst, a ramp or a script of changes at a rate, and don't wait for the MC to show them");
    AddInterfaceOption(command, pOptions->link);
    AddFormatOption(command);
    command.Option("--from", pOptions->dFrom, "The ramp's first value").Within(-1e9, 1e9);
    command.Option("--to", pOptions->dTo, "The ramp's last value").Within(-1e9, 1e9);
    command.Option("--rate", pOptions->dRate, "Changes a second; 0: all at once").Within(0, 1e7);
    command.Option("--count", pOptions->nCount, "Changes in all; 0: one for each parameter").Within(0, 10000000);
    command
        .Option("--timeout", pOptions->dTimeout, "Stop after so many seconds, with exit status 27 when not all was sent; 0: never")
        .Within(0, 86400);
    command.Option("--script", pOptions->strScript, "Send what this file says: SECONDS ADDRESS VALUE a line").File();
    command.Option("ADDRESS", pOptions->strAddress, "The parameters that take the ramp's steps in turn");
    command.Footer("consolectl send MicInput/12/Fader --from -60 --to 0 --count 100 --rate 50\n"
                   "consolectl send 'MicInput/*/Rotary/*' --to 0.5 --rate 0\n"
                   "printf '0 MicInput/0/Name Lead Vocal\\n0.5 MicInput/0/Fader -6.5\\n' >SCRIPT; consolectl send --script SCRIPT");
    command.Runs([pOptions] { return Send(*pOptions); });
}
