// A show's image as bytes: the same on every machine.
#pragma once

#include "LogicalControls.h"

#include <string>
#include <vector>

// One block of a show: all parameters of a message type in flat order.
//
//   "value"    the values: floats and ints as 4 big-endian bytes, strings as 13, switches as bits
//   "si"       the SI floats of rotaries and faders
//   "store"    the store flags, as bits
//   "recall"   the recall flags, as bits
//
// Bits are least significant first; those behind the last parameter are 0. Meters are no part of a show.
struct stShowBlock
{
    std::string strKind;
    tagenPPCMessageType enType;
    std::vector<unsigned char> bytes;
};

// Both use the image's read cursor.
std::vector<stShowBlock> MakeShowBlocks(CBMAContainer& image);

// Writes the blocks into image. Empty, or what is wrong with them: then the image is half-written.
std::string ApplyShowBlocks(const std::vector<stShowBlock>& blocks, CBMAContainer& image);
