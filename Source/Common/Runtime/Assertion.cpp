#include "Runtime/Assertion.h"

#include <cstdio>
#include <cstdlib>

void AssertionFailed(const char* szCondition, const char* szFunction, const char* szFile, unsigned int unLine)
{
    std::fprintf(stderr, "ASSERT: %s at: \n\t%s,\n\t%s:%u\n", szCondition, szFunction, szFile, unLine);
    std::abort();
}
