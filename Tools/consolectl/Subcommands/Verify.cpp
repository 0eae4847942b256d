// consolectl verify: are two images the same?
#include "Images/Address.h"
#include "Images/ImageFile.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Common.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace
{

constexpr int c_nShown = 10;

struct stOptions
{
    std::string strFileA;
    std::string strFileB;
};

struct stComparison
{
    int anSame[c_nMessageTypes] = {};
    int nDifferent = 0;
};

stComparison Compare(const CBMAContainer& imageA, const CBMAContainer& imageB)
{
    stComparison result;
    ForEachParameter(c_EveryParameter,
                     [&](const stAddress& address)
                     {
                         const stValue a = ReadValue(imageA, address);
                         const stValue b = ReadValue(imageB, address);
                         if (SameValue(address, a, b))
                         {
                             ++result.anSame[address.enType];
                         }
                         else if (++result.nDifferent <= c_nShown)
                         {
                             Line("%s  %s  %s | %s", Styled(enBad, "differs").c_str(), AddressText(address).c_str(),
                                  ValueText(address, a).c_str(), ValueText(address, b).c_str());
                         }
                     });
    if (result.nDifferent > c_nShown)
    {
        Line("... and %s more", Grouped(result.nDifferent - c_nShown).c_str());
    }
    return result;
}

// True when every parameter and every check word is the same.
bool PrintTable(const stComparison& result, const CBMAContainer& imageA, const CBMAContainer& imageB)
{
    bool bSame = true;
    int nSame = 0;
    Line("%s",
         Styled(enStrong, Format("%-10s %12s %12s   %-10s %-10s", "type", "parameters", "in step", "check A", "check B")).c_str());
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        const bool bRow = result.anSame[nType] == canParameterCounts[nType] && imageA.GetXorVal(enType) == imageB.GetXorVal(enType);
        Line("%-10s %12s %12s   %08x   %08x   %s", caMessageTypeNames[nType], Grouped(canParameterCounts[nType]).c_str(),
             Grouped(result.anSame[nType]).c_str(), imageA.GetXorVal(enType), imageB.GetXorVal(enType),
             bRow ? Styled(enGood, "in step").c_str() : Styled(enBad, "NOT in step").c_str());
        bSame = bSame && bRow;
        nSame += result.anSame[nType];
    }
    Line("%-10s %12s %12s", "all", Grouped(c_nParameters).c_str(), Grouped(nSame).c_str());
    return bSame;
}

int Verify(const stOptions& options)
{
    const auto pImageA = std::make_unique<CBMAContainer>();
    const auto pImageB = std::make_unique<CBMAContainer>();
    for (const std::string& strError : {LoadImage(options.strFileA, *pImageA), LoadImage(options.strFileB, *pImageB)})
    {
        if (!strError.empty())
        {
            return Fail(strError);
        }
    }
    pImageA->UpdateXors();
    pImageB->UpdateXors();
    return PrintTable(Compare(*pImageA, *pImageB), *pImageA, *pImageB) ? enExitDone : enExitFailed;
}

} // namespace

void AddVerify(CLI::App& app, int& nStatus)
{
    const auto pOptions = std::make_shared<stOptions>();
    CLI::App* pCommand = app.add_subcommand(
        "verify", "Compare two images that mc or follow saved, parameter by parameter; exit status 1 when they differ");
    pCommand->add_option("A", pOptions->strFileA, "First image file")->required()->check(CLI::ExistingFile);
    pCommand->add_option("B", pOptions->strFileB, "Second image file")->required()->check(CLI::ExistingFile);
    pCommand->callback([pOptions, &nStatus] { nStatus = Verify(*pOptions); });
}
