// Which traffic a subcommand looks at.
#pragma once

#include "Network/Traffic.h"

#include <memory>
#include <string>

// Where to take it from: the network, or a capture file when one is named.
struct stTrafficOptions
{
    stMulticastLink link;
    std::string strCapture;
};
void AddTrafficOptions(CLI::App& command, stTrafficOptions& options);

// Says what was chosen. Null when that failed, which it says too.
std::unique_ptr<CTraffic> OpenTraffic(const stTrafficOptions& options);
