// Which parameters of two images differ.
#pragma once

#include "Images/Address.h"

#include <vector>

// By the bytes of their values: two floats that are no numbers are the same when their bits are. In flat order, type by type.
std::vector<stAddress> FindDifferences(const CBMAContainer& a, const CBMAContainer& b, unsigned int unTypes = c_unWholeImage);
