// Completion of the command line, for bash and for zsh.
#pragma once

#include "Manual/CommandTree.h"

// The names in a parameter's address, of which shells complete the others.
struct stAddressNames
{
    std::vector<std::string> groups;
    std::vector<std::string> types;
};

tFiles BashCompletion(const stCommand& program, const stAddressNames& names);
tFiles ZshCompletion(const stCommand& program, const stAddressNames& names);
