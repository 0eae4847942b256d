// consolectl params: what parameters there are.
#include "Images/Cells.h"
#include "Subcommands/Subcommands.h"

#include <memory>

namespace
{

constexpr const char* caLimits[c_nMessageTypes] = {
    "12 characters", "float", "0 or 1", "-2147483648 to 2147483647", "float", "-2147483648 to 2147483647", "0 to 255"};

// An image that a console begins with, to read the defaults from.
std::unique_ptr<CBMAContainer> MakeDefaults()
{
    auto pImage = std::make_unique<CBMAContainer>();
    ApplyDefaults(*pImage);
    return pImage;
}

struct stOptions
{
    std::vector<std::string> patterns;
    int nCount = 0;
};

int Params(const stOptions& options)
{
    std::vector<stPattern> patterns = ParsePatterns(options.patterns);
    if (patterns.empty())
    {
        patterns.push_back(c_EveryParameter);
    }
    const std::unique_ptr<CBMAContainer> pDefaults = MakeDefaults();
    CShortTable table(options.nCount, {{"address", 26}, {"name", 9}, {"type", 7, true}, {"limits", 25}, {"default", 12}});
    table.PrintHead();
    for (const stPattern& pattern : patterns)
    {
        ForEachParameter(pattern,
                         [&](const stAddress& address)
                         {
                             table.Print({AddressText(address), CommonNameText(address), caMessageTypeNames[address.enType],
                                          caLimits[address.enType], ValueCell(address, ReadValue(*pDefaults, address))});
                         });
    }
    return enExitDone;
}

} // namespace

void AddParams(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add("params", "List parameters: address, name, type, limits and default");
    AddFormatOption(command);
    AddRowsOption(command, pOptions->nCount, "parameters");
    command.Option("ADDRESS", pOptions->patterns, "Such as 'MicInput/0/*/*'; none: all 241,339");
    command.Footer("consolectl params 'VCAGroups/*/Fader'\n"
                   "consolectl params --format json >params.json");
    command.Runs([pOptions] { return Params(*pOptions); });
}
