// Completion of the command line, for bash and for zsh.
#pragma once

#include "Terminal/CommandTree.h"

// The names in a parameter's address, of which shells complete the others.
struct stAddressNames
{
    std::vector<std::string> groups;
    std::vector<std::string> types;
};

// As one word of a shell.
std::string ShellQuoted(const std::string& strText);

tFiles BashCompletion(const stCommand& program, const stAddressNames& names);
tFiles ZshCompletion(const stCommand& program, const stAddressNames& names);
