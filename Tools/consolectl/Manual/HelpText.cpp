#include "Manual/HelpText.h"

#include "Manual/Wording.h"
#include "Terminal/Common.h"

#include <algorithm>
#include <sstream>

namespace
{

constexpr int c_nIndent = 2;
constexpr int c_nWidestHead = 24; // of an item; a longer one has a line of its own

std::string AsItIs(const std::string& strText)
{
    return strText;
}

constexpr stFonts c_Plain = {AsItIs, AsItIs};

std::string Paragraphs(const std::string& strText, int nWidth)
{
    std::string strWrapped;
    std::istringstream lines(strText);
    std::string strLine;
    while (std::getline(lines, strLine))
    {
        strWrapped += (IsTyped(strLine) ? strLine : Wrapped(strLine, nWidth, 0)) + "\n";
    }
    return strWrapped;
}

struct stItem
{
    std::string strHead;
    std::string strText;
};

std::string Items(const char* szTitle, const std::vector<stItem>& items, int nWidth)
{
    int nHead = 0;
    for (const stItem& item : items)
    {
        nHead = std::max(nHead, Width(item.strHead) <= c_nWidestHead ? Width(item.strHead) : 0);
    }
    const int nColumn = c_nIndent + nHead + c_nIndent;
    const std::string strIndent(c_nIndent, ' ');
    std::string strText = items.empty() ? "" : std::string("\n") + szTitle + ":\n";
    for (const stItem& item : items)
    {
        const bool bBeside = Width(item.strHead) <= nHead;
        const std::string strBlanks(static_cast<std::size_t>(nColumn), ' ');
        const std::string strLines = Wrapped(strBlanks + item.strText, nWidth, nColumn) + "\n";
        strText += strIndent;
        strText += bBeside ? Padded(item.strHead, nColumn - c_nIndent) + strLines.substr(strBlanks.size())
                           : item.strHead + "\n" + strLines;
    }
    return strText;
}

std::vector<stItem> ItemsOf(const std::vector<stArgument>& arguments, bool bOptions)
{
    std::vector<stItem> items;
    for (const stArgument& argument : arguments)
    {
        if (!argument.strDescription.empty()) // the footer describes the others
        {
            // Options without a letter stand below the others' long names.
            const std::string strBefore = bOptions && argument.names.size() == 1 ? "    " : "";
            items.push_back({bOptions ? strBefore + OptionText(argument, c_Plain) : argument.names[0],
                             argument.strDescription + RemarksText(argument, bOptions)});
        }
    }
    return items;
}

std::vector<stItem> ItemsOf(const std::vector<stCommand>& commands)
{
    std::vector<stItem> items;
    for (const stCommand& command : commands)
    {
        if (!command.bHidden)
        {
            items.push_back({command.strName, command.strDescription});
        }
    }
    return items;
}

} // namespace

std::string HelpText(const stCommand& command, int nWidth)
{
    const std::string strFooter = Paragraphs(command.strFooter, nWidth);
    return "Usage: " + UsageText(command, c_Plain) + "\n\n" + Paragraphs(command.strDescription, nWidth) +
           Items("Arguments", ItemsOf(command.arguments, false), nWidth) +
           Items("Options", ItemsOf(command.options, true), nWidth) + Items("Subcommands", ItemsOf(command.subcommands), nWidth) +
           (strFooter.empty() ? "" : "\n" + strFooter);
}
