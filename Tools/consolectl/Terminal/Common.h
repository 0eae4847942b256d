// What the subcommands share: exit status, time, and text for people.
#pragma once

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

enum enExitStatus : int
{
    enExitDone = 0,
    enExitFailed = 1,
    enExitWrongUse = 2,
    enExitTimedOut = 27
};

// What was typed is wrong: one line that says which part, and what is right. main prints it and ends with enExitWrongUse.
struct stWrongUse : std::runtime_error
{
    stWrongUse(const std::string& strPart, const std::string& strWhat) : std::runtime_error(strPart + ": " + strWhat) {}
};

// From when Ctrl-C is asked for, StopRequested tells whether it came. A hang-up that is ignored stays so.
void CatchStopSignals();
bool StopRequested();

typedef std::chrono::steady_clock tSteadyClock;

// Microseconds since 1970, of the system's clock.
std::int64_t TimeNow();

double SecondsSince(tSteadyClock::time_point start);
tSteadyClock::duration Duration(double dSeconds);

// Sleeps until then, or until a signal.
void SleepUntil(tSteadyClock::time_point time);
void SleepSeconds(double dSeconds); // not at all below 0

enum enTextStyle
{
    enPlain,
    enGood,
    enBad,
    enStrong,
    enFaint
};

// The text as it is to a pipe, coloured to a terminal.
std::string Styled(enTextStyle enStyle, const std::string& strText);
bool IsTerminal();

// Text from outside, without what would steer a terminal: control characters, and bytes that are no UTF-8, are "?".
std::string Printable(const std::string& strText);

// Characters, not bytes, and not a style; and the text with blanks behind it, or before it for a negative width.
int Width(const std::string& strText);
std::string Padded(const std::string& strText, int nWidth);

// What is too long for the width ends in ">".
std::string Cut(const std::string& strText, int nWidth);

// A line as several, of which all but the first begin with so many blanks; what is longer without a blank stays in one.
std::string Wrapped(const std::string& strLine, int nWidth, int nIndent);

// With these characters replaced, each by its text.
std::string Replaced(const std::string& strText, const std::map<char, const char*>& replacements);

std::string Joined(const std::vector<std::string>& texts, const std::string& strBetween);

// Empty for a file, whatever a link leads to; else that there is none, that it is something else, or why the system doesn't tell.
std::string WhyNoFile(const std::string& strFile);

// The text as one word of a shell's line; as it is where that is plain.
std::string ShellQuoted(const std::string& strText);
std::string ShellWord(const std::string& strText);

// The whole text as a decimal number that the type can take, and neither infinite nor none.
template <class Number>
bool ParseNumber(const std::string& strText, Number& number)
{
    const char* const pEnd = strText.data() + strText.size();
    const auto result = std::from_chars(strText.data(), pEnd, number);
    return result.ec == std::errc() && result.ptr == pEnd && std::isfinite(static_cast<double>(number));
}

// Digits, with a minus before them or not, however many.
bool IsWholeNumber(const std::string& strText);

// printf into a string.
std::string Format(const char* szFormat, ...) __attribute__((format(printf, 1, 2)));

// Aside, what Line says goes to standard error, and so does what the library prints. Rows stay on standard output.
void SendNotesAside(bool bAside);
std::FILE* RowsOutput();

// Whether nobody takes the output any more.
bool OutputFailed();

// One line on standard output, at once; on a terminal it takes the place of a live line.
void Line(const char* szFormat, ...) __attribute__((format(printf, 1, 2)));

// Of the terminal, in characters; 80 where there is none.
int TerminalWidth();

// On a terminal: a line that the next one takes the place of.
void LiveLine(const std::string& strText);

// "241,339".
std::string Grouped(long lNumber);

// "1 update", "2,000 updates".
std::string Counted(long lNumber, const std::string& strThings);

// One line on standard error, whatever is in the text; returns enExitFailed.
int Fail(const std::string& strText);
