#include "Terminal/Arguments.h"

#include "Terminal/Command.h"

#include <algorithm>

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
    if (StopRequested() || OutputFailed() || lCame >= std::max(nCount, 1))
    {
        return enExitDone;
    }
    Fail(Format("%s within %g seconds", Counted(lCame, strWhat).c_str(), dTimeout));
    return enExitTimedOut;
}

void AddLimitOptions(CCommand& command, stLimits& limits, const std::string& strWhat)
{
    command.Option("--count", limits.nCount, "Stop after so many " + strWhat + "; 0: at Ctrl-C").Within(0, 1000000000);
    command
        .Option("--timeout", limits.dTimeout,
                "Stop after so many seconds, with exit status 27 when too few " + strWhat + " came; 0: never")
        .Within(0, 86400);
}
