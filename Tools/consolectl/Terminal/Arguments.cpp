#include "Terminal/Arguments.h"

#include <CLI/CLI.hpp>

#include <algorithm>

CLI::Validator Between(double dLow, double dHigh)
{
    return CLI::Validator(
        [dLow, dHigh](std::string& strText)
        {
            double dValue = 0;
            const bool bInside = CLI::detail::lexical_cast(strText, dValue) && dValue >= dLow && dValue <= dHigh;
            return bInside ? std::string() : Format("Value %s not in range %g to %g", strText.c_str(), dLow, dHigh);
        },
        Format("NUMBER in [%g - %g]", dLow, dHigh));
}

bool stLimits::Reached(long lCame, tSteadyClock::time_point start) const
{
    return StopRequested() || OutputFailed() || (nCount > 0 && lCame >= nCount) ||
           (dTimeout > 0 && SecondsSince(start) >= dTimeout);
}

double stLimits::TimeLeft(tSteadyClock::time_point start, double dMost) const
{
    return dTimeout > 0 ? std::clamp(dTimeout - SecondsSince(start), 0.0, dMost) : dMost;
}

int stLimits::Status(long lCame, const std::string& strWhat) const
{
    if (StopRequested() || lCame >= std::max(nCount, 1))
    {
        return enExitDone;
    }
    Fail(Format("%s %s within %g seconds", Grouped(lCame).c_str(), strWhat.c_str(), dTimeout));
    return enExitTimedOut;
}

void AddLimitOptions(CLI::App& command, stLimits& limits, const std::string& strWhat)
{
    command.add_option("--count", limits.nCount, "Stop after so many " + strWhat + "; 0: at Ctrl-C")
        ->check(CLI::Range(0, 1000000000))
        ->capture_default_str();
    command
        .add_option("--timeout", limits.dTimeout,
                    "Stop after so many seconds, with exit status 27 when too few " + strWhat + " came; 0: never")
        ->check(Between(0, 86400))
        ->capture_default_str();
}
