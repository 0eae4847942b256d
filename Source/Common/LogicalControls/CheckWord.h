// The check word of a parameter block. Private to the library.
#pragma once

#include "LogicalControls/BlockKernels.h"

#include <cstdint>

// All 32-bit words of the block in the machine's own order, joined by exclusive or. A word count that is not a multiple of 4 is
// taken one word longer, odd as that is, so up to 4 bytes past the block are read: they must be there, and zero.
inline std::uint32_t CheckWord(const void* pBlock, long lBytes)
{
    long lWords = lBytes / 4;
    if (lWords % 4 != 0)
    {
        ++lWords;
    }
    return BlockKernels().JoinWords(static_cast<const unsigned char*>(pBlock), lWords);
}
