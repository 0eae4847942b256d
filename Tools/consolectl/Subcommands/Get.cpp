// consolectl get: reads parameters of the MC.
#include "Network/Client.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Common.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace
{

struct stOptions
{
    stClientOptions client;
    std::vector<std::string> addresses;
};

int Get(const stOptions& options)
{
    std::vector<stPattern> patterns;
    unsigned int unTypes = 0;
    for (const std::string& strAddress : options.addresses)
    {
        patterns.push_back(ParsePattern(strAddress));
        for (int nType = patterns.back().types.nFirst; nType <= patterns.back().types.nLast; ++nType)
        {
            unTypes |= 1u << nType;
        }
    }
    const auto pClient = std::make_unique<CClient>(options.client);
    const int nStatus = pClient->Open(unTypes);
    for (std::size_t unPattern = 0; nStatus == enExitDone && unPattern < patterns.size(); ++unPattern)
    {
        ForEachParameter(
            patterns[unPattern], [&](const stAddress& address)
            { Line("%-28s  %s", AddressText(address).c_str(), ValueText(address, ReadValue(pClient->Image(), address)).c_str()); });
    }
    return nStatus;
}

} // namespace

void AddGet(CLI::App& app, int& nStatus)
{
    const auto pOptions = std::make_shared<stOptions>();
    CLI::App* pCommand = app.add_subcommand("get", "Show parameters of the MC, a line each: address and value");
    AddClientOptions(*pCommand, pOptions->client);
    pCommand
        ->add_option("ADDRESS", pOptions->addresses,
                     "Such as MicInput/12/Fader/0; each part may be \"*\", path and parameter a range (0-9)")
        ->required();
    pCommand->callback(
        [pOptions, &nStatus]
        {
            CatchStopSignals();
            nStatus = Get(*pOptions);
        });
}
