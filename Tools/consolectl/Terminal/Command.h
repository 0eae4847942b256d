// A subcommand and what it takes. The parser of options stays behind this page: its headers take far longer to compile than a
// subcommand does.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

// An option or an argument of a command, as long as that one is. What is wrong with its text is found before any is taken over.
class COption
{
public:
    explicit COption(CLI::Option& option) : m_pOption(&option) {}

    COption Type(const std::string& strName);                                   // what stands for its value: "GROUP"
    COption File();                                                             // the value names one, or a pipe
    COption OneOf(const std::vector<std::string>& values);                      // which stand for it, too: "on|off"
    COption Within(double dLow, double dHigh);                                  // a number; not a number is outside
    COption Check(const std::function<std::string(const std::string&)>& wrong); // returns what is wrong; empty: nothing
    COption Default(const std::string& strText);                                // as it is told; empty: not at all
    COption Required();
    COption Repeated(); // may be given again, each time with one more value
    COption Excludes(const COption& other);

private:
    CLI::Option* m_pOption;
};

// Values stay where they are: they have to last as long as the parser. Their defaults, which are told, are what is there.
class CCommand
{
public:
    CCommand(CLI::App& app, int& nStatus) : m_pApp(&app), m_pStatus(&nStatus) {}

    // A subcommand; one is required then.
    CCommand Add(const char* szName, const std::string& strWhat);

    // "--name", or "NAME" for what goes by its place.
    COption Option(const std::string& strName, std::string& strValue, const std::string& strWhat);
    COption Option(const std::string& strName, std::vector<std::string>& values, const std::string& strWhat);
    COption Option(const std::string& strName, int& nValue, const std::string& strWhat);
    COption Option(const std::string& strName, unsigned int& unValue, const std::string& strWhat);
    COption Option(const std::string& strName, double& dValue, const std::string& strWhat);
    COption Option(const std::string& strName, const std::function<void(const std::string&)>& take, const std::string& strWhat);
    COption Option(const std::string& strName, const std::function<void(double)>& take, const std::string& strWhat);
    COption Flag(const std::string& strName, bool& bValue, const std::string& strWhat);

    // All other words, as they are: the parser would read values such as -x and [x] its own way. The footer describes them.
    void Rest(std::vector<std::string>& words);

    void Footer(const std::string& strText); // examples, and what else there is to say
    void Hide();                             // from lists

    // What it does; returns the exit status.
    void Runs(const std::function<int()>& run);
    void RunsUntilStopped(const std::function<int()>& run); // which looks at StopRequested

    const CLI::App& GetParser() const { return *m_pApp; }

    // What was typed, for the parser: it would take "[a,b]" for a list, and have what is behind "--" only where arguments go.
    static std::vector<std::string> Shielded(int nArguments, char** ppArguments);
    static std::string Unshielded(const std::string& strWord);

private:
    static COption Made(CLI::Option* pOption);
    template <class Number>
    COption NumberOption(const std::string& strName, Number& value, const std::string& strWhat);

    CLI::App* m_pApp;
    int* m_pStatus;
};
