#include "Manual/CommandTree.h"

#include "Terminal/Common.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace
{

// What a name says about the value; all other names in capitals stand for something that nobody can list.
const std::map<std::string, const char*> c_Values = {
    {"FILE", c_szFile}, {"ADDRESS", c_szAddress}, {"ADDRESS=VALUE", c_szAddress}, {"--interface", c_szInterface}};

bool HasCapital(const std::string& strText)
{
    return std::any_of(strText.begin(), strText.end(), [](unsigned char c) { return std::isupper(c) != 0; });
}

// By its name, or else by its type: "text|json|csv" lists words.
std::vector<std::string> ValuesOf(const stArgument& argument)
{
    std::vector<std::string> values;
    for (const std::string& strName : argument.names)
    {
        if (c_Values.count(strName) != 0)
        {
            return {c_Values.at(strName)};
        }
    }
    for (const std::string& strPart : CLI::detail::split(argument.strValue, '|'))
    {
        if (c_Values.count(strPart) != 0)
        {
            values.push_back(c_Values.at(strPart));
        }
        else if (!strPart.empty() && !HasCapital(strPart))
        {
            values.push_back(strPart);
        }
    }
    return values.empty() ? std::vector<std::string>{c_szNothing} : values;
}

// "NUMBER:1 to 65535": where a check follows the type, it says more.
void ReadType(const CLI::Option& option, stArgument& argument)
{
    const std::string strType = option.get_type_name();
    const std::size_t unColon = strType.find(':');
    argument.strValue = strType.substr(0, unColon);
    argument.strLimits = unColon == std::string::npos ? "" : strType.substr(unColon + 1);
}

std::vector<std::string> NamesOf(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& strName : option.get_snames())
    {
        names.push_back("-" + strName);
    }
    for (const std::string& strName : option.get_lnames())
    {
        names.push_back("--" + strName);
    }
    return names;
}

// The parser has them in an order that changes from run to run.
std::vector<std::string> ExcludesOf(const CLI::Option& option)
{
    std::vector<std::string> excludes;
    for (const CLI::Option* pOther : option.get_excludes())
    {
        excludes.push_back(pOther->get_name());
    }
    std::sort(excludes.begin(), excludes.end());
    return excludes;
}

stArgument ReadArgument(const CLI::Option& option, const std::vector<std::string>& names)
{
    stArgument argument;
    argument.names = names;
    if (option.get_items_expected_max() > 0)
    {
        ReadType(option, argument);
        argument.strDefault = option.get_default_str();
    }
    argument.strDescription = option.get_description();
    argument.values = ValuesOf(argument);
    argument.excludes = ExcludesOf(option);
    argument.bRequired = option.get_required();
    argument.bRepeated = option.get_items_expected_max() > 1 || option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
    return argument;
}

// What the parser leaves to the subcommand is named by the words in capitals that its footer starts with.
std::vector<stArgument> ReadExtras(const std::string& strFooter)
{
    std::vector<stArgument> extras;
    std::istringstream words(strFooter.substr(0, strFooter.find_first_of(",:.\n")));
    std::string strWord;
    while (words >> strWord && std::none_of(strWord.begin(), strWord.end(), [](unsigned char c) { return std::islower(c) != 0; }))
    {
        stArgument argument;
        argument.names = {strWord};
        argument.values = ValuesOf(argument);
        argument.bRequired = true;
        argument.bRepeated = true;
        extras.push_back(argument);
    }
    return extras;
}

// Options that belong together have no name, and say nothing of --help.
void ReadArguments(const CLI::App& app, stCommand& command)
{
    const auto isShown = [&app](const CLI::Option* pOption)
    { return !pOption->get_group().empty() && !(app.get_name().empty() && pOption == app.get_help_ptr()); };
    for (const CLI::Option* pOption : app.get_options(isShown))
    {
        if (pOption->get_positional())
        {
            command.arguments.push_back(ReadArgument(*pOption, {pOption->get_name(true)}));
        }
        if (pOption->nonpositional())
        {
            command.options.push_back(ReadArgument(*pOption, NamesOf(*pOption)));
        }
    }
    if (app.get_allow_extras())
    {
        const std::vector<stArgument> extras = ReadExtras(app.get_footer());
        command.arguments.insert(command.arguments.end(), extras.begin(), extras.end());
    }
}

std::string SummaryOf(const std::string& strDescription)
{
    const std::size_t unQuestion = strDescription.find("? ");
    std::size_t unEnd = std::min(strDescription.find('\n'), unQuestion == std::string::npos ? unQuestion : unQuestion + 1);
    for (const char* szEnd : {": ", "; ", ". "})
    {
        unEnd = std::min(unEnd, strDescription.find(szEnd));
    }
    return strDescription.substr(0, unEnd);
}

} // namespace

stCommand ReadCommand(const CLI::App& app, const std::string& strPath)
{
    stCommand command;
    command.strName = strPath.substr(strPath.rfind(' ') + 1);
    command.strPath = strPath;
    command.strSummary = SummaryOf(app.get_description());
    command.strDescription = app.get_description();
    command.strFooter = app.get_footer();
    command.bHidden = app.get_group().empty();
    ReadArguments(app, command);
    for (const CLI::App* pSubcommand : app.get_subcommands({}))
    {
        if (pSubcommand->get_name().empty())
        {
            ReadArguments(*pSubcommand, command);
        }
        else
        {
            command.subcommands.push_back(ReadCommand(*pSubcommand, strPath + " " + pSubcommand->get_name()));
        }
    }
    return command;
}
