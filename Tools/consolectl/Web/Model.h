// What the live page has to know of the console's parameters, as JSON.
#pragma once

#include <string>

// Groups with their sizes, types, and the parameters that are common to several groups, from the library's tables.
std::string ModelJson();
