// A call that fails with each of its errors, for tests of what then happens.
#pragma once

#include "Faults/FaultyCalls.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace Faults
{

typedef std::vector<int> tErrors;

inline std::string NameOf(int nError, int nTimes)
{
    return std::string(std::strerror(nError)) + (nTimes == INT_MAX ? ", always" : ", once");
}

// Does the action, on an object made before, with each of the errors, once and for ever.
template <class Make, class Action>
void WithEach(enCalls enCall, const tErrors& errors, Make make, Action action)
{
    for (const int nError : errors)
    {
        for (const int nTimes : {1, INT_MAX})
        {
            SCOPED_TRACE(NameOf(nError, nTimes));
            const int nDescriptors = OpenDescriptors();
            const int nBadCloses = BadCloses();
            {
                const auto pObject = make();
                const CFault fault(enCall, nError, nTimes);
                action(*pObject, nTimes);
                EXPECT_LT(0, CFault::Struck());
            }
            EXPECT_EQ(nDescriptors, OpenDescriptors());
            EXPECT_EQ(nBadCloses, BadCloses());
        }
    }
}

template <class Action>
void WithEach(enCalls enCall, const tErrors& errors, Action action)
{
    WithEach(
        enCall, errors, [] { return std::make_unique<int>(0); },
        [&](int&, int nTimes)
        {
            const int nDescriptors = OpenDescriptors();
            action(nTimes);
            EXPECT_EQ(nDescriptors, OpenDescriptors());
        });
}

} // namespace Faults
