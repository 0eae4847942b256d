// An array of an image as it is when its memory could not be had.
#pragma once

#include "Support/SystemCalls.h"

#include <gtest/gtest.h>

#include <new>

namespace Support
{

// Takes the place of one that found its memory.
template <class Array>
void TakeMemory(Array& array)
{
    array.~Array();
    const CFailingCall noMemory(CFailingCall::enMalloc);
    new (&array) Array;
    EXPECT_EQ(nullptr, array.GetMemoryPointer());
}

} // namespace Support
