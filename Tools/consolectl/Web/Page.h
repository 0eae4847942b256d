// The files of the live page, as the build put them into the program.
#pragma once

#include "Web/Server.h"

#include <vector>

// index.html as "/", the others by their names.
std::vector<stWebFile> PageFiles();
