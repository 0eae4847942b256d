// An image in a file: the bytes of an update that carries all seven arrays.
#pragma once

#include "LogicalControls.h"

#include <string>

// Writes the whole file or nothing. Returns what went wrong, empty when nothing did.
std::string SaveImage(const CBMAContainer& image, const std::string& strFile);

// Why it wouldn't write there, to be asked before long work; empty when it would, as far as can be told. What is there and is no
// image stays.
std::string WhyNotSaved(const std::string& strFile);

// Reads a file into image, which stays as it was when that fails.
std::string LoadImage(const std::string& strFile, CBMAContainer& image);
