// Limits that, as the library does, lie in a shared object of their own.
#pragma once

#include <cstddef>

// One checked function: the least that a store and a read of one float with its flag can be.
struct __attribute__((visibility("default"))) stCheckedFloats
{
    static void Store(int nPathType, int nPath, int nParam, float fValue);
    static void Read(int nPathType, int nPath, int nParam, float& fValue);
};

// The best copy that changes the byte order of each 32-bit word: what a compiler makes of it, in the processor's widest form.
__attribute__((visibility("default"))) void CopySwapped(unsigned char* pTo, const unsigned char* pFrom, std::size_t unBytes);
