// consolectl watch: each change of the parameters that somebody asks about.
#include "Images/Cells.h"
#include "Network/Shadow.h"
#include "Network/TrafficOptions.h"
#include "Subcommands/Subcommands.h"

#include <algorithm>
#include <memory>

namespace
{

struct stOptions
{
    stTrafficOptions traffic;
    stLimits limits;
    std::vector<std::string> patterns;
};

void PrintChange(CTable& table, const CBMAContainer& image, const stImageChange& change)
{
    const stAddress& address = change.address;
    const std::string strOrigin = change.client == stEndpoint() ? "MC" : "client " + change.client.AddressText();
    table.Print({CCell::Time(change.nTime), change.sender.AddressText(), AddressText(address), NameText(image, address),
                 ValueCell(address, change.before), ValueCell(address, change.after).In(enGood), strOrigin});
}

int Watch(const stOptions& options)
{
    std::vector<stPattern> patterns = ParsePatterns(options.patterns);
    const std::unique_ptr<CTraffic> pTraffic = OpenTraffic(options.traffic);
    if (pTraffic == nullptr)
    {
        return enExitFailed;
    }
    CTable table({{"time", 12}, {"sender", 15}, {"address", 26}, {"name", 18}, {"old", -12}, {"new", -12}, {"origin", 22}});
    const auto pShadow = std::make_unique<CShadow>(options.traffic.link);
    const auto isWatched = [&patterns](const stImageChange& change)
    {
        return std::any_of(patterns.begin(), patterns.end(),
                           [&change](const stPattern& pattern) { return IsNamedBy(pattern, change.address); });
    };
    long lChanges = 0;
    TakeAll(*pTraffic, options.limits, lChanges,
            [&](stDatagram& datagram)
            {
                pShadow->Take(datagram);
                for (const stImageChange& change : pShadow->GetChanges())
                {
                    if (isWatched(change) && (options.limits.nCount == 0 || lChanges < options.limits.nCount))
                    {
                        PrintChange(table, pShadow->Image(), change);
                        ++lChanges;
                    }
                }
            });
    Line("%s%s", Counted(lChanges, "changes").c_str(), pShadow->IsWhole() ? "" : "; the image never was whole");
    return TrafficStatus(*pTraffic, options.limits, lChanges, "changes");
}

} // namespace

void AddWatch(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command =
        console.Add("watch", "Show each change of parameters: when, who sent it, old and new value, and who had asked for it");
    AddTrafficOptions(command, pOptions->traffic);
    AddLimitOptions(command, pOptions->limits, "changes");
    AddFormatOption(command);
    command
        .Option("ADDRESS", pOptions->patterns,
                "Such as MicInput/12/Fader or 'MicInput/*/Switch/0-9'; each part may be '*', path and parameter a range")
        .Required();
    command.Footer("consolectl watch 'MicInput/*/Fader'\n"
                   "consolectl watch '*/*/*/*' --format csv --timeout 10 >changes.csv");
    command.RunsUntilStopped([pOptions] { return Watch(*pOptions); });
}
