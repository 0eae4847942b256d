#include "Manual/Wording.h"

#include "Terminal/Common.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace
{

std::string ValueText(const stArgument& option, const stFonts& fonts)
{
    return option.strValue.empty() ? "" : " " + fonts.pItalic(option.strValue);
}

} // namespace

bool IsHelp(const stArgument& option)
{
    return option.names.back() == "--help";
}

bool IsTyped(const std::string& strLine)
{
    const bool bSentence = std::isupper(static_cast<unsigned char>(strLine[0])) != 0;
    const std::size_t unIndent = strLine.find_first_not_of(' ');
    return unIndent != std::string::npos && (unIndent > 0 || (!bSentence && strLine.find("consolectl ") != std::string::npos));
}

std::string OptionText(const stArgument& option, const stFonts& fonts)
{
    std::vector<std::string> names;
    std::transform(option.names.begin(), option.names.end(), std::back_inserter(names), fonts.pBold);
    return Joined(names, ", ") + ValueText(option, fonts);
}

std::string UsageText(const stCommand& command, const stFonts& fonts)
{
    std::string strUsage = fonts.pBold(command.strPath);
    const auto isOptional = [](const stArgument& option) { return !option.bRequired && !IsHelp(option); };
    if (std::any_of(command.options.begin(), command.options.end(), isOptional))
    {
        strUsage += " [" + fonts.pItalic("OPTION") + "]...";
    }
    for (const stArgument& option : command.options)
    {
        strUsage += option.bRequired ? " " + fonts.pBold(option.names.back()) + ValueText(option, fonts) : "";
    }
    for (const stArgument& argument : command.arguments)
    {
        const bool bLast = &argument == &command.arguments.back();
        const std::string strText = fonts.pItalic(argument.names[0]);
        strUsage += (argument.bRequired ? " " + strText : " [" + strText + "]") + (argument.bRepeated && bLast ? "..." : "");
    }
    return strUsage + (command.subcommands.empty() ? "" : " " + fonts.pItalic("SUBCOMMAND") + " ...");
}

std::string RemarksText(const stArgument& argument, bool bOption)
{
    std::vector<std::string> remarks;
    const auto add = [&remarks](bool bSaid, const std::string& strText)
    {
        if (bSaid)
        {
            remarks.push_back(strText);
        }
    };
    add(!bOption && argument.strValue.find('|') != std::string::npos, argument.strValue);
    add(!argument.strLimits.empty(), argument.strLimits);
    add(!argument.strDefault.empty(), "default " + argument.strDefault);
    add(bOption && argument.bRequired, "required");
    add(!argument.excludes.empty(), "not with " + Joined(argument.excludes, ", "));
    return remarks.empty() ? "" : " (" + Joined(remarks, ", ") + ")";
}
