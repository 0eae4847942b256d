// Takes diagnostics reports off the network and shows them.
#pragma once

#include "Network/Options.h"
#include "Terminal/Arguments.h"

#include "LogicalControls.h"

#include <string>

struct stListenOptions
{
    stMulticastLink link;
    std::string strSchema = XMLDiagnostics::c_strSchemaFile;
    stLimits limits; // of reports
    bool bValidate = false;
};

// Until there are enough reports, the time is up, or a stop is asked for. Returns the exit status: failed when anything came that
// is no report or not a valid one.
int Listen(const stListenOptions& options);
