// What help and manual pages say alike.
#pragma once

#include "Manual/CommandTree.h"

// How a page sets what is typed as it is, and what stands for something.
struct stFonts
{
    std::string (*pBold)(const std::string&);
    std::string (*pItalic)(const std::string&);
};

bool IsHelp(const stArgument& option);

// Whether a line of a description is an example, which is copied as it stands: it is indented, or no sentence and runs the program.
bool IsTyped(const std::string& strLine);

// "-n, --name NAME".
std::string OptionText(const stArgument& option, const stFonts& fonts);

// "consolectl show save [OPTION]... FILE NAME".
std::string UsageText(const stCommand& command, const stFonts& fonts);

// " (1 to 65535, default 7060)", or nothing.
std::string RemarksText(const stArgument& argument, bool bOption);
