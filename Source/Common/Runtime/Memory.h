// Allocation of the parameter blocks, and mprotect with a report.
#pragma once

#include "Runtime/Export.h"

// Allocates lSize bytes plus three pages less one byte, so that the owner can find a page-aligned window in the block and
// protect it with LogMprotect. The pointer is malloc's own: neither aligned nor offset. Null when there is no memory, or when
// lSize is negative or too large to add the slack to. The caller owns the block and returns it with GBFree.
LOGICALCONTROLS_EXPORT void* GBMalloc(long lSize);

// Frees what GBMalloc returned; null is ignored.
LOGICALCONTROLS_EXPORT void GBFree(void* pMemory);

// mprotect that says on standard output why it failed. Returns 0 on success, else the number of characters printed.
LOGICALCONTROLS_EXPORT int LogMprotect(void* pAddress, unsigned int unLength, int nProtection);
