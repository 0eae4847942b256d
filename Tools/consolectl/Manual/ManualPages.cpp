#include "Manual/ManualPages.h"

#include "Manual/Wording.h"
#include "Terminal/Common.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace
{

const std::map<enExitStatus, const char*> c_ExitStatus = {
    {enExitDone, "Done"},
    {enExitFailed, "Failed; a line on standard error says why"},
    {enExitWrongUse, "Wrong use; a line on standard error says which part is wrong"},
    {enExitTimedOut, "What was waited for did not come in time"},
};

bool IsLetter(const std::string& strText, std::size_t unPlace)
{
    return unPlace < strText.size() && std::isalpha(static_cast<unsigned char>(strText[unPlace])) != 0;
}

// A hyphen joins two words; all other dashes are typed, and must stay what they are when they are copied.
std::string Escaped(const std::string& strText)
{
    static const std::map<char, const char*> escapes = {{'\\', "\\(rs"}, {'\'', "\\(aq"}, {'"', "\\(dq"},
                                                        {'`', "\\(ga"},  {'^', "\\(ha"},  {'~', "\\(ti"}};
    std::string strRoff = strText.compare(0, 1, ".") == 0 ? "\\&" : ""; // no request
    bool bTyped = false;
    for (std::size_t unPlace = 0; unPlace < strText.size(); ++unPlace)
    {
        const char c = strText[unPlace];
        const bool bJoins = unPlace > 0 && IsLetter(strText, unPlace - 1) && IsLetter(strText, unPlace + 1);
        bTyped = c != ' ' && (bTyped || (c == '-' && !bJoins));
        const auto escape = escapes.find(c);
        strRoff += escape != escapes.end() ? escape->second : c != '-' ? std::string(1, c) : bTyped ? "\\-" : "-";
    }
    return strRoff;
}

std::string Bold(const std::string& strText)
{
    return "\\fB" + Escaped(strText) + "\\fR";
}

std::string Italic(const std::string& strText)
{
    return "\\fI" + Escaped(strText) + "\\fR";
}

constexpr stFonts c_Roff = {Bold, Italic};

enum enLine
{
    enNone, // before the first, and after the last
    enBlank,
    enRead,
    enTyped, // an example
    enLineCount
};

enLine KindOf(const std::string& strLine)
{
    return strLine.find_first_not_of(' ') == std::string::npos ? enBlank : IsTyped(strLine) ? enTyped : enRead;
}

// Lines stay lines, as in the help; what is typed is set apart.
std::string Paragraphs(const std::string& strText)
{
    static const char c_szTyped[] = ".PP\n.RS 4\n.nf\n";
    static const char* const caBetween[enLineCount][enLineCount] = {
        {"", "", "", ".RS 4\n.nf\n"},
        {"", "", ".PP\n", c_szTyped},
        {"", "", ".br\n", c_szTyped},
        {".fi\n.RE\n", ".fi\n.RE\n", ".fi\n.RE\n.PP\n", ""},
    };
    std::string strRoff;
    std::istringstream lines(strText);
    std::string strLine;
    enLine enBefore = enNone;
    while (std::getline(lines, strLine))
    {
        const enLine enNow = KindOf(strLine);
        strRoff += caBetween[enBefore][enNow];
        strRoff += enNow == enBlank ? "" : Escaped(strLine.substr(strLine.find_first_not_of(' '))) + "\n";
        enBefore = enNow;
    }
    return strRoff + caBetween[enBefore][enNone];
}

bool HasExample(const std::string& strText)
{
    return Paragraphs(strText).find(".nf\n") != std::string::npos;
}

// "consolectl-mc": the page, and what stands for the subcommand in lists of pages.
std::string PageName(const stCommand& command)
{
    std::string strName = command.strPath;
    std::replace(strName.begin(), strName.end(), ' ', '-');
    return strName;
}

// Of all that can be run below this one, a line each.
std::vector<std::string> Usages(const stCommand& command)
{
    std::vector<std::string> usages;
    for (const stCommand& subcommand : command.subcommands)
    {
        const std::vector<std::string> below = Usages(subcommand);
        usages.insert(usages.end(), below.begin(), below.end());
    }
    return usages.empty() ? std::vector<std::string>{UsageText(command, c_Roff)} : usages;
}

std::string Items(const stCommand& command, bool bHelp)
{
    std::string strRoff;
    const auto add = [&strRoff](const stArgument& argument, bool bOption, const std::string& strHead)
    { strRoff += ".TP\n" + strHead + "\n" + Escaped(argument.strDescription + RemarksText(argument, bOption)) + "\n"; };
    for (const stArgument& argument : command.arguments)
    {
        if (!argument.strDescription.empty()) // the footer describes the others
        {
            add(argument, false, Italic(argument.names[0]));
        }
    }
    for (const stArgument& option : command.options)
    {
        if (bHelp || !IsHelp(option))
        {
            add(option, true, OptionText(option, c_Roff));
        }
    }
    return strRoff;
}

std::string Sections(const stCommand& command)
{
    std::string strRoff;
    for (const stCommand& subcommand : command.subcommands)
    {
        strRoff += ".SS \"" + Escaped(subcommand.strPath) + "\"\n" + Paragraphs(subcommand.strDescription) +
                   Items(subcommand, false) + (subcommand.strFooter.empty() ? "" : ".PP\n" + Paragraphs(subcommand.strFooter)) +
                   Sections(subcommand);
    }
    return strRoff;
}

// The subcommands, each with its page.
std::string Contents(const stCommand& program)
{
    std::string strRoff;
    for (const stCommand& command : program.subcommands)
    {
        strRoff += command.bHidden ? "" : ".TP\n" + Bold(PageName(command)) + "(1)\n" + Escaped(command.strDescription) + "\n";
    }
    return strRoff;
}

std::string ExitStatuses()
{
    std::string strRoff;
    for (const auto& [enStatus, szMeaning] : c_ExitStatus)
    {
        strRoff += Format(".TP\n%d\n%s\n", int(enStatus), Escaped(szMeaning).c_str());
    }
    return strRoff;
}

std::string SeeAlso(const stCommand& command, const stCommand& program)
{
    std::vector<std::string> pages;
    for (const stCommand& other : program.subcommands)
    {
        if (&command == &program)
        {
            pages.push_back(Bold(PageName(other)) + "(1)");
        }
    }
    return (pages.empty() ? Bold(PageName(program)) + "(1)" : Joined(pages, ",\n")) + "\n";
}

std::string Page(const stCommand& command, const stCommand& program, const std::string& strVersion)
{
    const bool bProgram = &command == &program;
    const std::string strName = Escaped(PageName(command));
    std::string strTitle = PageName(command);
    std::transform(strTitle.begin(), strTitle.end(), strTitle.begin(), [](unsigned char c) { return std::toupper(c); });
    std::string strRoff = ".TH \"" + Escaped(strTitle) + "\" 1 \"\" \"" + Escaped(program.strName + " " + strVersion) + "\"\n";
    const auto add = [&strRoff](const char* szHead, const std::string& strText)
    { strRoff += strText.empty() ? "" : std::string(".SH \"") + szHead + "\"\n" + strText; };

    add("NAME", strName + " \\- " + Escaped(command.strSummary) + "\n");
    add("SYNOPSIS", (bProgram ? UsageText(command, c_Roff) : Joined(Usages(command), "\n.br\n")) + "\n");
    add("DESCRIPTION", Paragraphs(command.strDescription));
    add("OPTIONS", Items(command, true));
    add("SUBCOMMANDS", bProgram ? Contents(command) : Sections(command));
    add("EXIT STATUS", ExitStatuses());
    add(HasExample(command.strFooter) ? "EXAMPLES" : "NOTES", Paragraphs(command.strFooter));
    add("SEE ALSO", SeeAlso(command, program));
    return strRoff;
}

} // namespace

tFiles ManualPages(const stCommand& program, const std::string& strVersion)
{
    tFiles pages = {{PageName(program) + ".1", Page(program, program, strVersion)}};
    for (const stCommand& command : program.subcommands)
    {
        pages[PageName(command) + ".1"] = Page(command, program, strVersion);
    }
    return pages;
}
