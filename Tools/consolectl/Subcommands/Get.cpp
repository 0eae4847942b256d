// consolectl get: reads parameters of the MC, or of another image.
#include "Images/Cells.h"
#include "Network/ImageSource.h"
#include "Subcommands/Subcommands.h"

#include <memory>

namespace
{

struct stOptions
{
    stClientOptions client;
    std::string strSource = "mc";
    std::vector<std::string> addresses;
    int nCount = 0;
};

int Get(const stOptions& options)
{
    std::vector<stPattern> patterns = ParsePatterns(options.addresses);
    unsigned int unTypes = 1u << enString; // for the names
    for (const stPattern& pattern : patterns)
    {
        unTypes |= TypesOf(pattern);
    }
    stNamedImage named;
    const int nStatus = LoadNamedImage(options.strSource, options.client, named, unTypes);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    CShortTable table(options.nCount, {{"time", 12}, {"sender", 15, true}, {"address", 26}, {"name", 18}, {"value", 12}});
    long lLacking = 0;
    const CCell time = CCell::Time(named.nTime);
    for (const stPattern& pattern : patterns)
    {
        ForEachParameter(pattern,
                         [&](const stAddress& address)
                         {
                             if (!named.Holds(address))
                             {
                                 ++lLacking;
                                 return;
                             }
                             table.Print({time, named.strSender, AddressText(address), NameText(*named.pImage, address),
                                          ValueCell(address, ReadValue(*named.pImage, address))});
                         });
    }
    if (lLacking > 0)
    {
        Line("%s not in %s", Counted(lLacking, "parameters").c_str(), Printable(options.strSource).c_str());
    }
    return enExitDone;
}

} // namespace

void AddGet(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add("get", "Show parameters of the MC, or of another image, a line each");
    AddClientOptions(command, pOptions->client);
    AddFormatOption(command);
    AddRowsOption(command, pOptions->nCount, "parameters");
    command.Option("--from", pOptions->strSource, std::string("The image: ") + c_szImageSources).Type(c_szImageType);
    command
        .Option("ADDRESS", pOptions->addresses,
                "Such as MicInput/12/Fader/0 or MicInput/12/Name; each part may be '*', path and parameter a range (0-9)")
        .Required();
    command.Footer("consolectl get 'MicInput/*/Name'\n"
                   "consolectl get MicInput/12/Fader --from FILE.pcap@3.5");
    command.RunsUntilStopped([pOptions] { return Get(*pOptions); });
}
