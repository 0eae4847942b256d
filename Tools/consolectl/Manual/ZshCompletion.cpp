#include "Manual/Completion.h"

#include "Terminal/Common.h"

namespace
{

constexpr char c_szHead[] = R"zsh(#compdef consolectl
# Completion of consolectl for zsh, written by consolectl manual zsh.

)zsh";

constexpr char c_szCode[] = R"zsh(
_consolectl_address()
{
    local expl
    case ${PREFIX//[^\/]} in
        ('') _wanted groups expl 'parameter group' compadd -qS / -a _consolectl_groups ;;
        (/) _message 'path: 3, 0-9 or *' ;;
        (//) compset -P '*/' && _wanted types expl 'message type' compadd -qS / -a _consolectl_types ;;
        (*) _message 'parameter: 0, 0-9 or *' ;;
    esac
}

# What completes a value: @file, @interface, @address, or one of some words.
_consolectl_values()
{
    local value expl
    local -a words
    for value; do
        case $value in
            (@file) _files ;;
            (@interface) words+=(/sys/class/net/*(-/N:t)) ;;
            (@address) _consolectl_address ;;
            (@nothing) ;;
            (*) words+=($value) ;;
        esac
    done
    (($#words == 0)) || _wanted values expl value compadd -a words
}

# The same, of arguments that repeat in turn after so many others.
_consolectl_in_turn()
{
    local -a values=($argv[2,-1])
    _consolectl_values ${(s:|:)values[($#line - 1 - $1) % $#values + 1]}
}

# Options, or one of $commands, whose own function completes what follows it.
_consolectl_command()
{
    local name=$1 curcontext=$curcontext state state_descr ret=1
    local -a line
    local -A opt_args
    _arguments -C $argv[2,-1] ': :->command' '*:: :->rest' && ret=0
    case $state in
        (command) _describe -t commands subcommand commands && ret=0 ;;
        (rest) (($+functions[${name}_$line[1]])) && ${name}_$line[1] && ret=0 ;;
    esac
    return ret
}

__consolectl "$@"
)zsh";

// "__consolectl_show_save"
std::string FunctionName(const stCommand& command)
{
    return "__" + Replaced(command.strPath, {{' ', "_"}});
}

// ":message: what completes it". The blank keeps zsh from handing arguments of its own along.
std::string ActionText(const std::string& strMessage, const std::string& strAction)
{
    return ":" + Replaced(strMessage, {{':', "\\:"}, {'\\', "\\\\"}}) + ": " + strAction;
}

std::string ValueText(const std::string& strMessage, const std::vector<std::string>& values)
{
    const std::string strValues = Joined(values, " ");
    return ActionText(strMessage, strValues == c_szNothing ? "" : "_consolectl_values " + strValues);
}

// Each name of the option. Where it may not be repeated, one of them is enough.
void AddOption(const stArgument& option, std::vector<std::string>& words)
{
    std::vector<std::string> others = option.excludes;
    if (!option.bRepeated && option.names.size() > 1)
    {
        others.insert(others.end(), option.names.begin(), option.names.end());
    }
    const std::string strBefore = (others.empty() ? "" : "(" + Joined(others, " ") + ")") + (option.bRepeated ? "*" : "");
    std::string strAfter = "[" + Replaced(option.strDescription, {{'[', "\\["}, {']', "\\]"}, {'\\', "\\\\"}}) + "]";
    strAfter += option.strValue.empty() ? "" : ValueText(option.strValue, option.values);
    for (const std::string& strName : option.names)
    {
        const char* const szValue = option.strValue.empty() ? "" : strName.compare(0, 2, "--") == 0 ? "=" : "+";
        words.push_back(ShellQuoted(Joined({strBefore, strName, szValue, strAfter}, "")));
    }
}

void AddArguments(const stCommand& command, std::vector<std::string>& words)
{
    std::vector<std::string> names; // of those that repeat in turn
    std::vector<std::string> values;
    for (const stArgument& argument : command.arguments)
    {
        if (argument.bRepeated)
        {
            names.push_back(argument.names[0]);
            values.push_back("\"" + Joined(argument.values, "|") + "\"");
        }
        else
        {
            words.push_back(ShellQuoted((argument.bRequired ? "" : ":") + ValueText(argument.names[0], argument.values)));
        }
    }
    if (!names.empty())
    {
        const std::string strAction = Format("_consolectl_in_turn %zu ", command.arguments.size() - names.size());
        words.push_back(ShellQuoted("*" + ActionText(Joined(names, " "), strAction + Joined(values, " "))));
    }
}

// The function of a command, and those of its subcommands.
std::string FunctionText(const stCommand& command)
{
    std::vector<std::string> words = {command.subcommands.empty() ? "_arguments" : "_consolectl_command " + FunctionName(command)};
    std::string strCommands;
    std::string strBelow;
    for (const stArgument& option : command.options)
    {
        AddOption(option, words);
    }
    AddArguments(command, words);
    for (const stCommand& subcommand : command.subcommands)
    {
        strCommands += subcommand.bHidden ? "" : "        " + ShellQuoted(subcommand.strName + ":" + subcommand.strSummary) + "\n";
        strBelow += FunctionText(subcommand);
    }
    return FunctionName(command) + "()\n{\n" + (strCommands.empty() ? "" : "    local -a commands=(\n" + strCommands + "    )\n") +
           "    " + Joined(words, " \\\n        ") + "\n}\n" + strBelow;
}

} // namespace

tFiles ZshCompletion(const stCommand& program, const stAddressNames& names)
{
    return {{"_consolectl", c_szHead + std::string("local -a _consolectl_groups=(") + Joined(names.groups, " ") +
                                ")\nlocal -a _consolectl_types=(" + Joined(names.types, " ") + ")\n\n" + FunctionText(program) +
                                c_szCode}};
}
