// Limits that, as the library does, lie in a shared object of their own.
#pragma once

// One checked function: the least that a store and a read of one float with its flag can be.
struct __attribute__((visibility("default"))) stCheckedFloats
{
    static void Store(int nPathType, int nPath, int nParam, float fValue);
    static void Read(int nPathType, int nPath, int nParam, float& fValue);
};
