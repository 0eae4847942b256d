// Takes diagnostics reports off the network and shows them.
#pragma once

#include "Network/Options.h"

#include "LogicalControls.h"

#include <string>

struct stListenOptions
{
    stMulticastLink link;
    std::string strSchema = XMLDiagnostics::c_strSchemaFile;
    int nCount = 0;      // of reports; 0: no end
    double dTimeout = 0; // seconds; 0: none
    bool bValidate = false;
};

// Until there are enough reports, the time is up, or a stop is asked for. Returns the exit status: failed when anything came that
// is no report or not a valid one.
int Listen(const stListenOptions& options);
