// Marks what the shared library exports; everything else stays hidden.
#pragma once

#define LOGICALCONTROLS_EXPORT __attribute__((visibility("default")))
