#include "Images/Difference.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{

std::vector<std::string> Texts(const std::vector<stAddress>& addresses)
{
    std::vector<std::string> texts;
    for (const stAddress& address : addresses)
    {
        texts.push_back(AddressText(address));
    }
    return texts;
}

} // namespace

TEST(Difference, EachParameterHasANumberOfItsTypeAndTheNumberIsItsAddress)
{
    int anNext[c_nMessageTypes] = {};
    ForEachParameter(c_EveryParameter,
                     [&](const stAddress& address)
                     {
                         const int nNumber = NumberOf(address);
                         ASSERT_EQ(anNext[address.enType]++, nNumber);
                         const stAddress back = AddressAt(address.enType, nNumber);
                         ASSERT_EQ(AddressText(address), AddressText(back));
                     });
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        EXPECT_EQ(canParameterCounts[nType], anNext[nType]);
    }
}

TEST(Difference, TheFirstAndLastParameterOfEachGroupAndTypeIsFoundAndNothingElse)
{
    const auto pA = std::make_unique<CBMAContainer>();
    const auto pB = std::make_unique<CBMAContainer>();
    std::vector<stAddress> changed;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        for (int nGroup = 0; nGroup < c_nPathTypes; ++nGroup)
        {
            const tagenVirtualPathType enGroup = static_cast<tagenVirtualPathType>(nGroup);
            const stAddress first = {enType, enGroup, 0, 0};
            const stAddress last = {enType, enGroup, canMaxPaths[nGroup] - 1, canMaxParams[nGroup * c_nMessageTypes + nType] - 1};
            changed.push_back(first);
            if (NumberOf(first) != NumberOf(last))
            {
                changed.push_back(last);
            }
        }
    }
    stValue value;
    value.nValue = 1;
    value.fValue = 0.5f;
    value.strValue = RyGConsoleString("x");
    for (const stAddress& address : changed)
    {
        WriteValue(*pB, {address, value}, false);
        pB->SetPPC(address.enType, address.enPathType, address.nPath, address.nParam, static_cast<unsigned char>(1), false, false);
    }
    EXPECT_EQ(Texts(changed), Texts(FindDifferences(*pA, *pB)));
    EXPECT_EQ(Texts(changed), Texts(FindDifferences(*pB, *pA)));
    EXPECT_EQ(Texts({}), Texts(FindDifferences(*pB, *pB)));
}

TEST(Difference, ChangesThatLeaveTheCheckWordAsItWasAreFound)
{
    const auto pA = std::make_unique<CBMAContainer>();
    const auto pB = std::make_unique<CBMAContainer>();
    for (const int nParam : {4, 9})
    {
        pB->SetPPC(enInteger, enMicInput, 7, nParam, 0x1234, false, false);
    }
    std::uint32_t aunA[c_nMessageTypes];
    std::uint32_t aunB[c_nMessageTypes];
    ReadCheckWords(*pA, aunA);
    ReadCheckWords(*pB, aunB);
    EXPECT_EQ(aunA[enInteger], aunB[enInteger]);
    EXPECT_EQ(std::vector<std::string>({"MicInput/7/Integer/4", "MicInput/7/Integer/9"}), Texts(FindDifferences(*pA, *pB)));
}

TEST(Difference, OnlyTheTypesAskedForAreComparedAndZerosOfEitherSignDiffer)
{
    const auto pA = std::make_unique<CBMAContainer>();
    const auto pB = std::make_unique<CBMAContainer>();
    pB->SetPPC(enFader, enMicInput, 3, 0, -0.0f, false, false);
    pB->SetPPC(enSwitch, enMicInput, 3, 0, 1, false, false);
    EXPECT_EQ(std::vector<std::string>({"MicInput/3/Fader/0"}), Texts(FindDifferences(*pA, *pB, 1u << enFader)));
    EXPECT_EQ(std::vector<std::string>({"MicInput/3/Switch/0"}), Texts(FindDifferences(*pA, *pB, 1u << enSwitch)));
}

TEST(Difference, CheckWordsAreTheSameOnEveryMachine)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    RyGConsoleString strName("abcde");
    pImage->SetPPC(enString, enGlobals, 0, 0, strName, false, false);
    pImage->SetPPC(enSwitch, enGlobals, 0, 3, 1, false, false);
    pImage->SetPPC(enMeter, enGlobals, 0, 1, static_cast<unsigned char>(0x12), false, false);
    pImage->SetPPC(enInteger, enGlobals, 0, 1, 0x12345678, false, false);
    pImage->SetPPC(enFader, enGlobals, 0, 0, 1.0f, false, false);
    std::uint32_t aun[c_nMessageTypes];
    ReadCheckWords(*pImage, aun);
    EXPECT_EQ(0x61626364u ^ 0x65000000u, aun[enString]);
    EXPECT_EQ(0x08000000u, aun[enSwitch]);
    EXPECT_EQ(0x00120000u, aun[enMeter]);
    EXPECT_EQ(0x12345678u, aun[enInteger]);
    EXPECT_EQ(0x3f800000u, aun[enFader]);
}
