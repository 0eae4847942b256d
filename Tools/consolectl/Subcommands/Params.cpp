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

int Params(const std::vector<std::string>& texts)
{
    std::vector<stPattern> patterns = ParsePatterns(texts);
    if (patterns.empty())
    {
        patterns.push_back(c_EveryParameter);
    }
    const std::unique_ptr<CBMAContainer> pDefaults = MakeDefaults();
    CTable table({{"address", 36}, {"name", 9}, {"type", 7}, {"limits", 25}, {"default", 1}});
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
    const auto pPatterns = std::make_shared<std::vector<std::string>>();
    CCommand command = console.Add("params", "List parameters: address, name, type, limits and default");
    AddFormatOption(command);
    command.Option("ADDRESS", *pPatterns, "Such as 'MicInput/0/*/*'; none: all 241,339");
    command.Footer("consolectl params 'VCAGroups/*/Fader'\n"
                   "consolectl params --format json >params.json");
    command.Runs([pPatterns] { return Params(*pPatterns); });
}
