#include "Manual/Completion.h"

#include "Terminal/Common.h"

namespace
{

constexpr char c_szHead[] = R"bash(# Completion of consolectl for bash, written by consolectl manual bash.

# By command as it is typed: its subcommands, its options, and what completes its arguments: first those that come once, then those
# that repeat in turn. By command and option: what completes its value. That is @file, @interface, @address, or one of some words.
)bash";

constexpr char c_szCode[] = R"bash(
_consolectl_address()
{
    local generate=(compgen -W '')
    case ${1//[^\/]/} in
        '') generate=(compgen -W "$_consolectl_groups" -S /) ;;
        //) generate=(compgen -W "$_consolectl_types" -P "${1%/*}/") ;;
    esac
    compopt -o nospace
    mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <("${generate[@]}" -- "${1##*/}")
}

# Bash's own way with names of files, which knows about quotes, is for where nothing else can follow.
_consolectl_values()
{
    local value interface words='' files=''
    for value in ${1//|/ }; do
        case $value in
            @file) files=1 ;;
            @interface)
                for interface in /sys/class/net/*/; do
                    interface=${interface%/}
                    words+=" ${interface##*/}"
                done
                ;;
            @address) _consolectl_address "$2" ;;
            @nothing) ;;
            *) words+=" $value" ;;
        esac
    done
    mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -W "$words" -- "$2")
    if [[ -n $files && ${#COMPREPLY[@]} == 0 ]]; then
        compopt -o default
    elif [[ -n $files ]]; then
        compopt -o filenames
        mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- "$2")
    fi
}

# What completes the argument of a command at this place.
_consolectl_argument()
{
    local once in_turn
    read -ra once <<<"${_consolectl_once[$1]}"
    read -ra in_turn <<<"${_consolectl_in_turn[$1]}"
    if (($2 < ${#once[@]})); then
        values=${once[$2]}
    elif ((${#in_turn[@]} > 0)); then
        values=${in_turn[($2 - ${#once[@]}) % ${#in_turn[@]}]}
    fi
}

# The words before tell which command it is, and what comes next. Around a "=" bash takes a word apart.
_consolectl()
{
    local IFS=$' \t\n' command=consolectl option='' place=0 i word values=''
    local current=${COMP_WORDS[COMP_CWORD]#[\'\"]}
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        if [[ $word == = ]]; then
            [[ -n $option ]] || ((++i))
        elif [[ -n $option ]]; then
            option=
        elif [[ -n ${_consolectl_option_values["$command $word"]+x} ]]; then
            option=$word
        elif [[ -n ${_consolectl_options["$command $word"]+x} ]]; then
            command+=" $word"
        elif [[ " ${_consolectl_options[$command]} " != *" $word "* ]]; then
            ((++place))
        fi
    done
    if ((i > COMP_CWORD)) || [[ $current == = && -z $option ]]; then
        return
    elif [[ -n $option ]]; then
        values=${_consolectl_option_values["$command $option"]}
    elif [[ $current != -* ]]; then
        values=${_consolectl_subcommands[$command]}
        _consolectl_argument "$command" "$place"
    fi
    _consolectl_values "${values:-${_consolectl_options[$command]}}" "${current#=}"
}

complete -F _consolectl consolectl
)bash";

typedef std::map<std::string, std::string> tTable;

struct stTables
{
    tTable subcommands;
    tTable options;
    tTable optionValues;
    tTable once;
    tTable inTurn;
};

void AddWord(std::string& strWords, const std::string& strWord)
{
    strWords += (strWords.empty() ? "" : " ") + strWord;
}

void FillTables(const stCommand& command, stTables& tables)
{
    for (const stArgument& option : command.options)
    {
        for (const std::string& strName : option.names)
        {
            AddWord(tables.options[command.strPath], strName);
            if (!option.strValue.empty())
            {
                tables.optionValues[command.strPath + " " + strName] = Joined(option.values, "|");
            }
        }
    }
    for (const stArgument& argument : command.arguments)
    {
        AddWord((argument.bRepeated ? tables.inTurn : tables.once)[command.strPath], Joined(argument.values, "|"));
    }
    for (const stCommand& subcommand : command.subcommands)
    {
        if (!subcommand.bHidden)
        {
            AddWord(tables.subcommands[command.strPath], subcommand.strName);
        }
        FillTables(subcommand, tables);
    }
}

std::string TableText(const char* szName, const tTable& table)
{
    std::string strText = std::string("declare -gA _consolectl_") + szName + "=(\n";
    for (const auto& [strKey, strWords] : table)
    {
        strText += "    [" + ShellQuoted(strKey) + "]=" + ShellQuoted(strWords) + "\n";
    }
    return strText + ")\n";
}

} // namespace

tFiles BashCompletion(const stCommand& program, const stAddressNames& names)
{
    stTables tables;
    FillTables(program, tables);
    return {{"consolectl", c_szHead + TableText("subcommands", tables.subcommands) + TableText("options", tables.options) +
                               TableText("option_values", tables.optionValues) + TableText("once", tables.once) +
                               TableText("in_turn", tables.inTurn) +
                               "_consolectl_groups=" + ShellQuoted(Joined(names.groups, " ")) +
                               "\n_consolectl_types=" + ShellQuoted(Joined(names.types, " ")) + "\n" + c_szCode}};
}
