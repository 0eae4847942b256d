// Parameters' values as cells of a table.
#pragma once

#include "Images/Address.h"
#include "Terminal/Output.h"

// A number is one for programs, too; a text is without its quotes there.
CCell ValueCell(const stAddress& address, const stValue& value);
