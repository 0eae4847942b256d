// consolectl set: changes parameters at the MC.
#include "Network/Client.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Output.h"

#include <algorithm>
#include <memory>

namespace
{

struct stOptions
{
    stClientOptions client;
    std::vector<std::string> changes; // address, value, address, value
    int nCount = 0;
};

// Each parameter that an address names, with the value that goes with it.
std::vector<stChange> ParseChanges(const stOptions& options)
{
    std::vector<stChange> changes;
    if (options.changes.empty())
    {
        throw stWrongUse("set", "ADDRESS VALUE is required");
    }
    if (options.changes.size() % 2 != 0)
    {
        throw stWrongUse("set", "\"" + options.changes.back() + "\" has no value: ADDRESS VALUE go in pairs");
    }
    for (std::size_t unPair = 0; unPair < options.changes.size(); unPair += 2)
    {
        const stPattern pattern = ParsePattern(options.changes[unPair]);
        if (pattern.types.nFirst != pattern.types.nLast)
        {
            throw stWrongUse("set", "\"" + options.changes[unPair] + "\" names several types: one value fits only one");
        }
        const stValue value = ParseValue(static_cast<tagenPPCMessageType>(pattern.types.nFirst), options.changes[unPair + 1]);
        ForEachParameter(pattern, [&](const stAddress& address) { changes.push_back({address, value}); });
    }
    changes.resize(options.nCount > 0 ? std::min(changes.size(), static_cast<std::size_t>(options.nCount)) : changes.size());
    return changes;
}

int Set(const stOptions& options)
{
    const std::vector<stChange> changes = ParseChanges(options);
    if (options.client.bDirect)
    {
        CheckSimpleSender("--direct", options.client.link);
    }
    SimpleUDPPPCSender sender;
    unsigned int unTypes = 0;
    for (const stChange& change : changes)
    {
        const stAddress& address = change.address;
        unTypes |= 1u << address.enType;
        if (options.client.bDirect && sender._FilterPacket(address.enType, address.enPathType, address.nParam))
        {
            throw stWrongUse("--direct", AddressText(address) + " is on the list of parameters that are never sent so");
        }
    }
    const auto pClient = std::make_unique<CClient>(options.client);
    int nStatus = pClient->Open(unTypes);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    const std::string strBefore = ValueText(changes[0].address, ReadValue(pClient->Image(), changes[0].address));
    const tSteadyClock::time_point start = tSteadyClock::now();
    nStatus = pClient->Send(changes);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    const double dMilliseconds = SecondsSince(start) * 1000;
    const bool bOne = changes.size() == 1;
    const std::string strResent =
        pClient->GetResent() == 0 ? "" : Format(" (%s sent again)", Grouped(pClient->GetResent()).c_str());
    PrintResult(bOne && pClient->GetSent() == 0
                    ? Format("%s  has the value %s: nothing to send", AddressText(changes[0].address).c_str(), strBefore.c_str())
                : bOne ? Format("%s  %s -> %s, back from the MC after %.1f ms", AddressText(changes[0].address).c_str(),
                                strBefore.c_str(), Styled(enGood, ValueText(changes[0].address, changes[0].value)).c_str(),
                                dMilliseconds)
                       : Format("%s: %s sent, all back from the MC after %.1f ms%s",
                                Counted(static_cast<long>(changes.size()), "parameters").c_str(),
                                Counted(pClient->GetSent(), "changes").c_str(), dMilliseconds, strResent.c_str()),
                {{"time", CCell::Time(TimeNow())},
                 {"sender", pClient->Sender()},
                 {"address", bOne ? CCell(AddressText(changes[0].address)) : CCell()},
                 {"parameters", static_cast<long>(changes.size())},
                 {"sent", pClient->GetSent()},
                 {"resent", pClient->GetResent()},
                 {"milliseconds", {dMilliseconds, 1}}});
    return enExitDone;
}

} // namespace

void AddSet(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add(
        "set",
        "Change parameters at the MC, and wait until its updates show them. A burst goes out in as few datagrams as it fits in");
    AddClientOptions(command, pOptions->client);
    AddDirectOption(command, pOptions->client);
    command.Option("--count", pOptions->nCount, "Change the first so many parameters that are named; 0: all").Within(0, 1000000000);
    AddFormatOption(command);
    command.Rest(pOptions->changes);
    command.Footer(
        "ADDRESS VALUE, in pairs, such as\n"
        "  consolectl set MicInput/12/Fader/0 -6.5 MicInput/12/String/1 'Lead Vocal'\n"
        "Path and parameter may be a range (0-9), all but the type may be '*'. The last value for a parameter counts. What follows "
        "'--' is no option, whatever it begins with.");
    command.RunsUntilStopped([pOptions] { return Set(*pOptions); });
}
