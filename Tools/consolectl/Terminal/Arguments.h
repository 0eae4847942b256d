// What the arguments of several subcommands have in common.
#pragma once

#include "Terminal/Common.h"

#include <string>

class CCommand;

// When to stop: --count and --timeout, of what strWhat names.
struct stLimits
{
    int nCount = 0;      // 0: no end
    double dTimeout = 0; // seconds; 0: none

    // So it is when a stop was asked for, and when nobody takes the output any more.
    bool Reached(long lCame, tSteadyClock::time_point start) const;

    // How long may be waited, for so many seconds at most.
    double TimeLeft(tSteadyClock::time_point start, double dMost) const;

    // Done when as many came as were asked for, or, without a count, any at all; else timed out, which it says. Of an output that
    // nobody takes, main tells.
    int Status(long lCame, const std::string& strWhat) const;
};
void AddLimitOptions(CCommand& command, stLimits& limits, const std::string& strWhat);
