#include "Exhaustive/ConsoleModel.h"

#include "Exhaustive/ImageAccess.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace Exhaustive;

TEST(ConsoleModel, HasEveryAddressOnceInFlatOrder)
{
    const std::vector<stAddress>& every = EveryAddress();
    ASSERT_EQ(std::size_t(c_nAddresses), every.size());
    CTally tally;
    std::int64_t nNext = 0;
    for (std::size_t unAddress = 0; unAddress < every.size(); ++unAddress)
    {
        nNext = unAddress > 0 && every[unAddress].nType == every[unAddress - 1].nType ? nNext + 1 : 0;
        tally.Check(Exists(every[unAddress]) && FlatIndex(every[unAddress]) == nNext, "flat number", every[unAddress]);
    }
    EXPECT_EQ("", tally.Text());
    EXPECT_EQ(15898 - 1, nNext);
}

TEST(ConsoleModel, FiltersAsManyParametersAsAreStated)
{
    int nFiltered = 0;
    for (const stAddress& at : EveryAddress())
    {
        nFiltered += IsFiltered(at.nType, at.nPathType, at.nParam);
    }
    EXPECT_EQ(3 + 59 + 1 + 18 + 4 * 57 + 12 + 2, nFiltered);
}

TEST(ConsoleModel, TellsEveryNumberFromItsPartner)
{
    for (int nType = 0; nType < c_nTypes; ++nType)
    {
        for (unsigned int unNumber = 0; unNumber < 1000; ++unNumber)
        {
            ASSERT_NE(Numbered(nType, unNumber), Numbered(nType, unNumber ^ 1)) << nType << ", " << unNumber;
        }
    }
}

// The comparison that the others rely on has to see one value, SI float or flag of any type.
TEST(ConsoleModel, DiffersFromAnImageByAnyOneThing)
{
    const std::unique_ptr<CBMAContainer> pImage = std::make_unique<CBMAContainer>();
    stConsoleModel model;
    ASSERT_EQ("", Difference(*pImage, model));
    for (int nType = 0; nType < c_nTypes; ++nType)
    {
        const stAddress last = {nType, 50, 1, MaxParams(nType, 50) - 1};
        SetPPC(*pImage, last, tValue{1});
        EXPECT_NE("", Difference(*pImage, model)) << nType;
        SetPPC(*pImage, last, tValue{});
        for (int nScope = 0; nScope < c_nScopes; ++nScope)
        {
            SetFlag(*pImage, nScope, last, 1);
            EXPECT_NE("", Difference(*pImage, model)) << nType << ", " << nScope;
            SetFlag(*pImage, nScope, last, 0);
        }
        if (HasSI(nType))
        {
            pImage->SetPPCSI(TypeOf(last), PathTypeOf(last), last.nPath, last.nParam, 1.0f, false);
            EXPECT_NE("", Difference(*pImage, model)) << nType;
            pImage->SetPPCSI(TypeOf(last), PathTypeOf(last), last.nPath, last.nParam, 0.0f, false);
        }
    }
    EXPECT_EQ("", Difference(*pImage, model));
}
