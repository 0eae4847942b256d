// What the subcommands share: exit status, options that several take, and text for people.
#pragma once

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdarg>
#include <string>

enum enExitStatus : int
{
    enExitDone = 0,
    enExitFailed = 1,
    enExitWrongUse = 2,
    enExitTimedOut = 27
};

// Where something is multicast: at first, where the MC's updates are.
struct stMulticastLink
{
    std::string strGroup = "225.0.0.46";
    unsigned int unPort = 7060;
    std::string strInterface; // empty: the system's choice
};

// Where clients send their changes.
constexpr char c_szPPCGroup[] = "225.0.0.45";
constexpr unsigned int c_unPPCPort = 7050;

// --group and --port of what szWhat names, --interface, and all three for the MC's updates.
void AddGroupOptions(CLI::App& command, stMulticastLink& link, const std::string& strWhat);
void AddInterfaceOption(CLI::App& command, stMulticastLink& link);
void AddLinkOptions(CLI::App& command, stMulticastLink& link);

// A number within these limits: not a number is outside them.
CLI::Validator Between(double dLow, double dHigh);

// "225.0.0.46:7060, interface 127.0.0.1".
std::string LinkText(const stMulticastLink& link);

// Says once what was chosen.
std::string Describe(const stMulticastLink& link, int nReceiveBuffer);

// From when Ctrl-C is asked for, StopRequested tells whether it came.
void CatchStopSignals();
bool StopRequested();

typedef std::chrono::steady_clock tSteadyClock;

double SecondsSince(tSteadyClock::time_point start);

// Sleeps until then, or until a signal.
void SleepUntil(tSteadyClock::time_point time);

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

// printf into a string.
std::string Format(const char* szFormat, ...) __attribute__((format(printf, 1, 2)));

// One line on standard output, at once; on a terminal it takes the place of a live line.
void Line(const char* szFormat, ...) __attribute__((format(printf, 1, 2)));

// "241,339".
std::string Grouped(long lNumber);

// One line on standard error, whatever is in the text; returns enExitFailed.
int Fail(const std::string& strText);
