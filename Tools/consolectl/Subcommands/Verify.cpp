// consolectl verify: are two images the same?
#include "Images/Cells.h"
#include "Images/Difference.h"
#include "Network/ImageSource.h"
#include "Subcommands/Subcommands.h"

#include <memory>

namespace
{

struct stOptions
{
    stClientOptions client;
    std::string strA;
    std::string strB;
    int nCount = 10;
};

// Every byte is compared, whatever the check words say: changes that cancel out leave them equal.
std::vector<stAddress> Compare(const stNamedImage& a, const stNamedImage& b)
{
    std::vector<stAddress> different = FindDifferences(*a.pImage, *b.pImage);
    const auto isLeftOut = [&](const stAddress& address) { return !a.Holds(address) || !b.Holds(address); };
    different.erase(std::remove_if(different.begin(), different.end(), isLeftOut), different.end());
    return different;
}

void PrintDifferences(const stOptions& options, const std::vector<stAddress>& different, const stNamedImage& a,
                      const stNamedImage& b)
{
    CShortTable table(options.nCount,
                      {{"time", 0}, {"sender", 0}, {"verdict", 7}, {"address", 26}, {"name", 18}, {"a", 14}, {"b", 1}});
    const CCell now = CCell::Time(TimeNow());
    for (const stAddress& address : different)
    {
        table.Print({now, a.strSender.empty() ? b.strSender : a.strSender, CCell(enBad, "differs"), AddressText(address),
                     NameText(*a.pImage, address), ValueCell(address, ReadValue(*a.pImage, address)),
                     ValueCell(address, ReadValue(*b.pImage, address))});
    }
}

// A show's check words are those of parameters that it doesn't hold, too: they say nothing.
void PrintTypes(const std::vector<stAddress>& different, const stNamedImage& a, const stNamedImage& b)
{
    const bool bShow = a.bShow || b.bShow;
    int anCompared[c_nMessageTypes] = {};
    int anDifferent[c_nMessageTypes] = {};
    ForEachParameter(c_EveryParameter,
                     [&](const stAddress& address) { anCompared[address.enType] += a.Holds(address) && b.Holds(address) ? 1 : 0; });
    for (const stAddress& address : different)
    {
        ++anDifferent[address.enType];
    }
    std::uint32_t aunA[c_nMessageTypes];
    std::uint32_t aunB[c_nMessageTypes];
    ReadCheckWords(*a.pImage, aunA);
    ReadCheckWords(*b.pImage, aunB);
    Line("%s",
         Styled(enStrong, Format("%-10s %12s %12s   %-10s %-10s", "type", "parameters", "in step", "check A", "check B")).c_str());
    int nCompared = 0;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const bool bSame = anDifferent[nType] == 0 && (bShow || aunA[nType] == aunB[nType]);
        const std::string strBad =
            !bShow && aunA[nType] == aunB[nType] ? "NOT in step, though the check words are equal" : "NOT in step";
        Line("%-10s %12s %12s   %-10s %-10s %s", caMessageTypeNames[nType], Grouped(anCompared[nType]).c_str(),
             Grouped(anCompared[nType] - anDifferent[nType]).c_str(), bShow ? "" : Format("%08x", aunA[nType]).c_str(),
             bShow ? "" : Format("%08x", aunB[nType]).c_str(),
             bSame ? Styled(enGood, "in step").c_str() : Styled(enBad, strBad).c_str());
        nCompared += anCompared[nType];
    }
    Line("%-10s %12s %12s", "all", Grouped(nCompared).c_str(), Grouped(nCompared - static_cast<int>(different.size())).c_str());
}

int Verify(const stOptions& options)
{
    stNamedImage a;
    stNamedImage b;
    int nStatus = LoadNamedImage(options.strA, options.client, a);
    nStatus = nStatus == enExitDone ? LoadNamedImage(options.strB, options.client, b) : nStatus;
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    const std::vector<stAddress> different = Compare(a, b);
    PrintDifferences(options, different, a, b);
    PrintTypes(different, a, b);
    return different.empty() ? enExitDone : enExitFailed;
}

} // namespace

void AddVerify(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add(
        "verify",
        "Are two images the same? Check words, then every byte; what differs by address and name; exit status 1 when they do");
    AddClientOptions(command, pOptions->client);
    AddFormatOption(command);
    command.Option("--count", pOptions->nCount, "Show so many differences; 0: all").Within(0, c_nParameters);
    command.Option("A", pOptions->strA, std::string("An image: ") + c_szImageSources).Type(c_szImageType).Required();
    command.Option("B", pOptions->strB, "The other one").Type(c_szImageType).Required();
    command.Footer("consolectl verify mc FILE.pcap\n"
                   "consolectl verify FILE.pcap@2 FILE.pcap@3\n"
                   "consolectl verify mc SHOWS:Monday");
    command.RunsUntilStopped([pOptions] { return Verify(*pOptions); });
}
