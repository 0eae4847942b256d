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
    int nCount = c_nEnough;
};

// Every byte is compared, whatever the check words say: changes that cancel out leave them equal.
std::vector<stAddress> Compare(const stNamedImage& a, const stNamedImage& b)
{
    std::vector<stAddress> different = FindDifferences(*a.pImage, *b.pImage);
    const auto isLeftOut = [&](const stAddress& address) { return !a.Holds(address) || !b.Holds(address); };
    different.erase(std::remove_if(different.begin(), different.end(), isLeftOut), different.end());
    return different;
}

// What was found of the parameters of one type.
struct stVerdict
{
    int nCompared = 0;
    int nDifferent = 0;
    std::uint32_t unA = 0; // check words
    std::uint32_t unB = 0;
    bool bWords = true; // a show's are those of parameters that it doesn't hold, too: they say nothing

    bool InStep() const { return nDifferent == 0 && (!bWords || unA == unB); }
    std::string WordText(std::uint32_t unWord) const { return bWords ? Format("%08x", unWord) : ""; }
    std::string Text() const
    {
        return InStep() ? "in step" : bWords && unA == unB ? "NOT in step, though the check words are equal" : "NOT in step";
    }
};

std::vector<stVerdict> Judge(const std::vector<stAddress>& different, const stNamedImage& a, const stNamedImage& b)
{
    std::uint32_t aunA[c_nMessageTypes];
    std::uint32_t aunB[c_nMessageTypes];
    ReadCheckWords(*a.pImage, aunA);
    ReadCheckWords(*b.pImage, aunB);
    std::vector<stVerdict> verdicts(c_nMessageTypes);
    for (std::size_t unType = 0; unType < verdicts.size(); ++unType)
    {
        verdicts[unType].unA = aunA[unType];
        verdicts[unType].unB = aunB[unType];
        verdicts[unType].bWords = !a.bShow && !b.bShow;
    }
    ForEachParameter(
        c_EveryParameter, [&](const stAddress& address)
        { verdicts[static_cast<std::size_t>(address.enType)].nCompared += a.Holds(address) && b.Holds(address) ? 1 : 0; });
    for (const stAddress& address : different)
    {
        ++verdicts[static_cast<std::size_t>(address.enType)].nDifferent;
    }
    return verdicts;
}

// A row for each difference; for programs one for each type, too.
void PrintRows(int nMost, const std::vector<stAddress>& different, const std::vector<stVerdict>& verdicts, const stNamedImage& a,
               const stNamedImage& b)
{
    CShortTable table(nMost, {{"time", 0},
                              {"sender", 0},
                              {"verdict", 7},
                              {"address", 26},
                              {"name", 18},
                              {"a", 14},
                              {"b", 12},
                              {"compared", 0},
                              {"different", 0}});
    const CCell now = CCell::Time(TimeNow());
    const CCell sender = a.strSender.empty() ? b.strSender : a.strSender;
    for (const stAddress& address : different)
    {
        const stValue aValue = ReadValue(*a.pImage, address);
        const stValue bValue = ReadValue(*b.pImage, address);
        const auto cell = ValueText(address, aValue) == ValueText(address, bValue) ? BytesCell : ValueCell;
        table.Print({now, sender, CCell(enBad, "differs"), AddressText(address), NameText(*a.pImage, address),
                     cell(address, aValue), cell(address, bValue), 1, 1});
    }
    for (std::size_t unType = 0; unType < verdicts.size(); ++unType)
    {
        const stVerdict& verdict = verdicts[unType];
        table.PrintForPrograms({now, sender, verdict.Text(), Format("*/*/%s/*", caMessageTypeNames[unType]), CCell(),
                                verdict.WordText(verdict.unA), verdict.WordText(verdict.unB), verdict.nCompared,
                                verdict.nDifferent});
    }
}

void PrintTypes(const std::vector<stVerdict>& verdicts)
{
    const auto row = [](const char* szType, int nCompared, int nDifferent, const std::string& strVerdict) {
        Line("%-10s %12s %12s   %s", szType, Grouped(nCompared).c_str(), Grouped(nCompared - nDifferent).c_str(),
             strVerdict.c_str());
    };
    Line("%s",
         Styled(enStrong, Format("%-10s %12s %12s   %-10s %-10s", "type", "parameters", "in step", "check A", "check B")).c_str());
    stVerdict all;
    for (std::size_t unType = 0; unType < verdicts.size(); ++unType)
    {
        const stVerdict& verdict = verdicts[unType];
        row(caMessageTypeNames[unType], verdict.nCompared, verdict.nDifferent,
            Format("%-10s %-10s ", verdict.WordText(verdict.unA).c_str(), verdict.WordText(verdict.unB).c_str()) +
                Styled(verdict.InStep() ? enGood : enBad, verdict.Text()));
        all.nCompared += verdict.nCompared;
        all.nDifferent += verdict.nDifferent;
    }
    row("all", all.nCompared, all.nDifferent, "");
}

// What needs no MC is read first: what is wrong with it needn't wait for one.
int Load(const stOptions& options, stNamedImage& a, stNamedImage& b)
{
    const bool bSwapped = options.strA == "mc";
    const int nStatus = LoadNamedImage(bSwapped ? options.strB : options.strA, options.client, bSwapped ? b : a);
    return nStatus == enExitDone ? LoadNamedImage(bSwapped ? options.strA : options.strB, options.client, bSwapped ? a : b)
                                 : nStatus;
}

int Verify(const stOptions& options)
{
    stNamedImage a;
    stNamedImage b;
    const int nStatus = Load(options, a, b);
    if (nStatus != enExitDone)
    {
        return nStatus;
    }
    const std::vector<stAddress> different = Compare(a, b);
    const std::vector<stVerdict> verdicts = Judge(different, a, b);
    PrintRows(options.nCount, different, verdicts, a, b);
    PrintTypes(verdicts);
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
    AddRowsOption(command, pOptions->nCount, "differences");
    command.Option("A", pOptions->strA, std::string("An image: ") + c_szImageSources).Type(c_szImageType).Required();
    command.Option("B", pOptions->strB, "The other one").Type(c_szImageType).Required();
    command.Footer("consolectl verify mc FILE.pcap\n"
                   "consolectl verify FILE.pcap@2 FILE.pcap@3\n"
                   "consolectl verify mc SHOWS:Monday");
    command.RunsUntilStopped([pOptions] { return Verify(*pOptions); });
}
