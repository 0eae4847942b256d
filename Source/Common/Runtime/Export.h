// Marks what the shared library exports; everything else stays hidden.
#pragma once

#define LOGICALCONTROLS_EXPORT __attribute__((visibility("default")))

// A member of an exported class that only the library calls, and so without a detour.
#define LOGICALCONTROLS_INTERNAL __attribute__((visibility("hidden")))
