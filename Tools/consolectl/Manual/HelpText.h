// What --help prints.
#pragma once

#include "Manual/CommandTree.h"

// No line is longer than so many characters, but for words that are.
std::string HelpText(const stCommand& command, int nWidth);
