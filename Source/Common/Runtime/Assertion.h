// What happens when the library meets a broken invariant. Private to the library.
#pragma once

// Reports the failed condition on standard error and aborts.
[[noreturn]] void AssertionFailed(const char* szCondition, const char* szFunction, const char* szFile, unsigned int unLine);
