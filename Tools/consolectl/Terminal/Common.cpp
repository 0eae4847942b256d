#include "Terminal/Common.h"

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

volatile std::sig_atomic_t g_nStop = 0;
bool g_bNotesAside = false;
std::FILE* g_pRows = stdout;

std::string FormatList(const char* szFormat, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int nLength = std::vsnprintf(nullptr, 0, szFormat, again);
    va_end(again);
    std::string strText(static_cast<std::size_t>(std::max(nLength, 0)), '\0');
    std::vsnprintf(strText.data(), strText.size() + 1, szFormat, arguments);
    return strText;
}

// By a character's first bytes: controls, what is written longer than it has to be, halves of pairs, what is beyond the last
// character, and what turns the direction of a line.
bool IsUnwelcome(unsigned int unLead, unsigned int unSecond, unsigned int unThird)
{
    return (unLead == 0xc2 && unSecond < 0xa0) || (unLead == 0xe0 && unSecond < 0xa0) || (unLead == 0xed && unSecond > 0x9f) ||
           (unLead == 0xf0 && unSecond < 0x90) || (unLead == 0xf4 && unSecond > 0x8f) ||
           (unLead == 0xe2 && unSecond == 0x80 && unThird >= 0xaa && unThird <= 0xae) ||
           (unLead == 0xe2 && unSecond == 0x81 && unThird >= 0xa6 && unThird <= 0xa9);
}

// Of the printable UTF-8 character at this place; 0 when there is none.
std::size_t CharacterLength(const std::string& strText, std::size_t unPlace)
{
    const auto byteAt = [&](std::size_t unAt) { return unAt < strText.size() ? static_cast<unsigned char>(strText[unAt]) : 0u; };
    const unsigned int unLead = byteAt(unPlace);
    if (unLead < 0x80)
    {
        return unLead >= ' ' && unLead != 0x7f ? 1 : 0;
    }
    const std::size_t unLength = unLead >= 0xf0 && unLead < 0xf5   ? 4
                                 : unLead >= 0xe0 && unLead < 0xf0 ? 3
                                 : unLead >= 0xc2 && unLead < 0xe0 ? 2
                                                                   : 0;
    for (std::size_t unNext = 1; unNext < unLength; ++unNext)
    {
        if ((byteAt(unPlace + unNext) & 0xc0) != 0x80)
        {
            return 0;
        }
    }
    return IsUnwelcome(unLead, byteAt(unPlace + 1), byteAt(unPlace + 2)) ? 0 : unLength;
}

} // namespace

void CatchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { g_nStop = 1; };
    action.sa_flags = SA_RESTART; // of writes, which would lose a row; what waits is broken off all the same
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
    {
        struct sigaction before = {};
        sigaction(nSignal, nullptr, &before);
        // Ignored, as nohup asks for, a hang-up stays so. A script's shell lets all that is in the background ignore the others.
        if (nSignal != SIGHUP || before.sa_handler != SIG_IGN)
        {
            sigaction(nSignal, &action, nullptr);
        }
    }
}

bool StopRequested()
{
    return g_nStop != 0;
}

std::int64_t TimeNow()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

double SecondsSince(tSteadyClock::time_point start)
{
    return std::chrono::duration<double>(tSteadyClock::now() - start).count();
}

tSteadyClock::duration Duration(double dSeconds)
{
    return std::chrono::duration_cast<tSteadyClock::duration>(std::chrono::duration<double>(dSeconds));
}

void SleepUntil(tSteadyClock::time_point time)
{
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(time - tSteadyClock::now()).count();
    if (left > 0)
    {
        const timespec sleep = {static_cast<std::time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
        nanosleep(&sleep, nullptr);
    }
}

void SleepSeconds(double dSeconds)
{
    SleepUntil(tSteadyClock::now() + Duration(dSeconds));
}

std::string Styled(enTextStyle enStyle, const std::string& strText)
{
    static const char* const caCodes[] = {"", "\033[32m", "\033[31m", "\033[1m", "\033[2m"};
    return IsTerminal() && !g_bNotesAside && enStyle != enPlain ? caCodes[enStyle] + strText + "\033[0m" : strText;
}

bool IsTerminal()
{
    static const bool bTerminal = isatty(STDOUT_FILENO) != 0;
    return bTerminal;
}

std::string Printable(const std::string& strText)
{
    std::string strPrintable;
    for (std::size_t unPlace = 0; unPlace < strText.size();)
    {
        const std::size_t unLength = CharacterLength(strText, unPlace);
        strPrintable += unLength == 0 ? "?" : strText.substr(unPlace, unLength);
        unPlace += std::max<std::size_t>(unLength, 1);
    }
    return strPrintable;
}

// Of UTF-8 the first byte of each character counts.
int Width(const std::string& strText)
{
    int nWidth = 0;
    bool bStyle = false; // from an escape to its 'm'
    for (const char c : strText)
    {
        bStyle = bStyle || c == '\033';
        nWidth += bStyle || (static_cast<unsigned char>(c) & 0xc0) == 0x80 ? 0 : 1;
        bStyle = bStyle && c != 'm';
    }
    return nWidth;
}

std::string Padded(const std::string& strText, int nWidth)
{
    const std::string strBlanks(static_cast<std::size_t>(std::max(std::abs(nWidth) - Width(strText), 0)), ' ');
    return nWidth < 0 ? strBlanks + strText : strText + strBlanks;
}

std::string Cut(const std::string& strText, int nWidth)
{
    std::string strCut = strText;
    while (Width(strCut) > std::max(nWidth - 1, 0))
    {
        strCut.pop_back();
    }
    return Width(strText) <= nWidth ? strText : strCut + ">";
}

std::string Wrapped(const std::string& strLine, int nWidth, int nIndent)
{
    const std::size_t unBlanks = std::min(strLine.find_first_not_of(' '), strLine.size());
    std::string strText = strLine.substr(0, unBlanks);
    int nColumn = Width(strText);
    std::istringstream words(strLine);
    std::string strWord;
    for (bool bFirst = true; words >> strWord; bFirst = false)
    {
        const bool bFits = nColumn + 1 + Width(strWord) <= nWidth;
        strText += bFirst ? "" : bFits ? " " : "\n" + std::string(static_cast<std::size_t>(nIndent), ' ');
        nColumn = bFirst ? nColumn : bFits ? nColumn + 1 : nIndent;
        strText += strWord;
        nColumn += Width(strWord);
    }
    return strText;
}

bool IsWholeNumber(const std::string& strText)
{
    const std::size_t unFirst = strText.compare(0, 1, "-") == 0 ? 1 : 0;
    return strText.size() > unFirst && strText.find_first_not_of("0123456789", unFirst) == std::string::npos;
}

std::string Replaced(const std::string& strText, const std::map<char, const char*>& replacements)
{
    std::string strReplaced;
    for (const char c : strText)
    {
        const auto replacement = replacements.find(c);
        strReplaced += replacement != replacements.end() ? replacement->second : std::string(1, c);
    }
    return strReplaced;
}

std::string Joined(const std::vector<std::string>& texts, const std::string& strBetween)
{
    std::string strJoined;
    for (const std::string& strText : texts)
    {
        strJoined += (&strText == &texts.front() ? "" : strBetween) + strText;
    }
    return strJoined;
}

std::string WhyNoFile(const std::string& strFile)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(strFile, error);
    return std::filesystem::is_regular_file(status)                 ? ""
           : status.type() == std::filesystem::file_type::not_found ? strFile + ": there is no such file"
           : !std::filesystem::status_known(status)                 ? strFile + ": " + error.message()
                                                                    : strFile + ": not a file";
}

std::string ShellQuoted(const std::string& strText)
{
    return "'" + Replaced(strText, {{'\'', "'\\''"}}) + "'";
}

std::string ShellWord(const std::string& strText)
{
    static const char c_szPlain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:@";
    if (!strText.empty() && strText.find_first_not_of(c_szPlain) == std::string::npos)
    {
        return strText;
    }
    return ShellQuoted(strText);
}

std::string Format(const char* szFormat, ...)
{
    va_list arguments;
    va_start(arguments, szFormat);
    std::string strText = FormatList(szFormat, arguments);
    va_end(arguments);
    return strText;
}

// What the library itself prints on standard output are notes, too: rows get a descriptor of their own.
void SendNotesAside(bool bAside)
{
    if (bAside && !g_bNotesAside)
    {
        std::fflush(stdout);
        std::FILE* const pRows = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w");
        g_pRows = pRows != nullptr ? pRows : stdout;
        if (pRows != nullptr)
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
        }
    }
    g_bNotesAside = bAside;
}

std::FILE* RowsOutput()
{
    return g_pRows;
}

bool OutputFailed()
{
    return std::ferror(stdout) != 0 || std::ferror(g_pRows) != 0;
}

void Line(const char* szFormat, ...)
{
    std::FILE* const pOutput = g_bNotesAside ? stderr : stdout;
    va_list arguments;
    va_start(arguments, szFormat);
    std::string strText = FormatList(szFormat, arguments);
    va_end(arguments);
    if (IsTerminal() && !g_bNotesAside)
    {
        const bool bFits = Width(strText) < TerminalWidth() || strText.find('\n') != std::string::npos;
        strText = "\r\033[K" + (bFits ? strText : Wrapped(strText, TerminalWidth() - 1, 4));
    }
    std::fprintf(pOutput, "%s\n", strText.c_str());
    std::fflush(pOutput);
}

int TerminalWidth()
{
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void LiveLine(const std::string& strText)
{
    std::printf("\r\033[K%s", Cut(strText, TerminalWidth() - 1).c_str());
    std::fflush(stdout);
}

std::string Grouped(long lNumber)
{
    std::string strText = std::to_string(lNumber);
    for (std::size_t unPlace = strText.size(); unPlace > 3 && strText[unPlace - 4] != '-';)
    {
        unPlace -= 3;
        strText.insert(unPlace, ",");
    }
    return strText;
}

std::string Counted(long lNumber, const std::string& strThings)
{
    return Grouped(lNumber) + " " + (lNumber == 1 ? strThings.substr(0, strThings.size() - 1) : strThings);
}

int Fail(const std::string& strText)
{
    std::fprintf(stderr, "consolectl: %s\n", Printable(strText).c_str());
    return enExitFailed;
}
