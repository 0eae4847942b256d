// Addresses at and beyond every limit, and what to do with each of them on an image and on its model.
#pragma once

#include "Exhaustive/ConsoleModel.h"
#include "Exhaustive/ImageAccess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Exhaustive
{

inline std::set<int> Around(int nLimit)
{
    return {INT_MIN, INT_MIN + 1, -nLimit, -8, -1, 0, nLimit - 1, nLimit, nLimit + 1, INT_MAX};
}

inline std::vector<stAddress> BoundaryAddresses(const std::vector<int>& types)
{
    std::set<int> pathTypes = {INT_MIN, -51, 52, 357, INT_MAX};
    for (int nPathType = -1; nPathType <= c_nGroups; ++nPathType)
    {
        pathTypes.insert(nPathType);
    }
    std::vector<stAddress> addresses;
    for (const int nType : types)
    {
        for (const int nPathType : pathTypes)
        {
            for (const int nPath : Around(MaxPaths(nPathType)))
            {
                for (const int nParam : Around(MaxParams(nType, nPathType)))
                {
                    addresses.push_back({nType, nPathType, nPath, nParam});
                }
            }
        }
    }
    return addresses;
}

inline const std::vector<stAddress>& Boundary()
{
    static const std::vector<stAddress> s_Addresses = BoundaryAddresses({INT_MIN, -1, 0, 1, 2, 3, 4, 5, 6, 7, INT_MAX});
    return s_Addresses;
}

inline std::size_t At(const stAddress& at)
{
    return static_cast<std::size_t>(FlatIndex(at));
}

// One call at a time on an image and on its model, and what it has to print.
struct stTried
{
    CBMAContainer& image;
    stConsoleModel& model;
    CTally tally;
    std::string strExpected; // on standard error
    std::string strDumped;   // on standard output
    unsigned int unNumber;   // another one each time
};

struct stOperation
{
    const char* szName;
    void (*pTry)(stTried&, const stAddress&);
};

// Where two texts part.
inline std::string FirstDifference(const std::string& strExpected, const std::string& strPrinted)
{
    const auto at = std::mismatch(strExpected.begin(), strExpected.end(), strPrinted.begin(), strPrinted.end());
    return at.first == strExpected.end() && at.second == strPrinted.end()
               ? ""
               : "expected " + std::string(at.first, std::min(at.first + 200, strExpected.end())) + "\nprinted " +
                     std::string(at.second, std::min(at.second + 200, strPrinted.end()));
}

// Every global flag is set at first, so that each one that is cleared is seen.
inline void TryBoundary(const stOperation& operation)
{
    const std::unique_ptr<CBMAContainer> pImage = std::make_unique<CBMAContainer>();
    stConsoleModel model;
    model.Number(1);
    model.Flag(9);
    for (tBlock& flags : model.aFlags[enGlobal])
    {
        std::fill(flags.begin(), flags.end(), static_cast<unsigned char>(1));
    }
    Fill(*pImage, model);
    stTried tried = {*pImage, model, {}, "", "", 1u << 20};
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    for (const stAddress& at : Boundary())
    {
        operation.pTry(tried, at);
        ++tried.unNumber;
    }
    EXPECT_EQ("", FirstDifference(tried.strDumped, testing::internal::GetCapturedStdout()));
    EXPECT_EQ("", FirstDifference(tried.strExpected, testing::internal::GetCapturedStderr()));
    EXPECT_EQ("", tried.tally.Text());
    EXPECT_EQ("", Difference(*pImage, model));
}

inline std::string NameOf(const testing::TestParamInfo<stOperation>& of)
{
    return of.param.szName;
}

} // namespace Exhaustive
