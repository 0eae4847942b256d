// Parameters' values as cells of a table.
#pragma once

#include "Images/Address.h"
#include "Terminal/Output.h"

// A number is one for programs, too; a text is without its quotes there.
CCell ValueCell(const stAddress& address, const stValue& value);

// As it lies in memory, in hexadecimal digits: of values whose text is the same. A number begins with its highest bits.
CCell BytesCell(const stAddress& address, const stValue& value);
