// The check word of a parameter block. Private to the library.
#pragma once

#include <cstdint>
#include <cstring>

// All 32-bit words of the block in the machine's own order, joined by exclusive or. A word count that is not a multiple of 4 is
// taken one word longer, odd as that is, so up to 4 bytes past the block are read: they must be there, and zero.
inline std::uint32_t CheckWord(const void* pBlock, long lBytes)
{
    long lWords = lBytes / 4;
    if (lWords % 4 != 0)
    {
        ++lWords;
    }
    const unsigned char* pWord = static_cast<const unsigned char*>(pBlock);
    std::uint32_t unCheck = 0;
    for (long lWord = 0; lWord < lWords; ++lWord, pWord += 4)
    {
        std::uint32_t unWord;
        std::memcpy(&unWord, pWord, sizeof unWord);
        unCheck ^= unWord;
    }
    return unCheck;
}
