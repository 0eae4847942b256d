// Manual pages, for man.
#pragma once

#include "Manual/CommandTree.h"

// One for the program, and one for each of its subcommands, which has those below it as sections.
tFiles ManualPages(const stCommand& program, const std::string& strVersion);
