// The subcommands and what they take, as the parser has them: what the manual's pages and completion are made of.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

// An option, or an argument, which goes by its place.
struct stArgument
{
    std::vector<std::string> names; // "-h", "--help"; an argument has one: "FILE"
    std::string strValue;           // what stands for its value: "FILE", "text|json|csv"; empty: an option without
    std::string strLimits;          // "1 to 65535"
    std::string strDefault;         // empty: none
    std::string strDescription;
    std::vector<std::string> values;   // what completes its value: a c_szFile and the like, or a word itself
    std::vector<std::string> excludes; // names of options that it does not go with
    bool bRequired = false;
    bool bRepeated = false;
};

constexpr char c_szNothing[] = "@nothing"; // nobody can list it
constexpr char c_szFile[] = "@file";
constexpr char c_szInterface[] = "@interface"; // its name
constexpr char c_szAddress[] = "@address";     // "MicInput/3/Fader/0"

struct stCommand
{
    std::string strName;    // "save"
    std::string strPath;    // "consolectl show save"
    std::string strSummary; // the start of the description, for lists
    std::string strDescription;
    std::string strFooter;
    bool bHidden = false; // from lists
    std::vector<stArgument> options;
    std::vector<stArgument> arguments; // those that may be repeated come last, and go in turn
    std::vector<stCommand> subcommands;
};

// With all that is below it.
stCommand ReadCommand(const CLI::App& app, const std::string& strPath);

// Texts by the name of a file.
typedef std::map<std::string, std::string> tFiles;
