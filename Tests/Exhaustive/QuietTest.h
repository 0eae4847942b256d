// Tests that are about results: what the library prints meanwhile is kept back.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace Exhaustive
{

// Standard output is kept back, and its end shown when the test failed: that is where the failure itself stands.
class CQuietTest : public testing::Test
{
protected:
    CQuietTest() { testing::internal::CaptureStdout(); }
    ~CQuietTest() override
    {
        const std::string strPrinted = testing::internal::GetCapturedStdout();
        if (HasFailure())
        {
            std::fputs(strPrinted.c_str() + strPrinted.size() - std::min(strPrinted.size(), std::size_t(2000)), stdout);
        }
    }
};

} // namespace Exhaustive
