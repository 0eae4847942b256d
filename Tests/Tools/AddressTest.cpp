#include "Images/Address.h"

#include "Terminal/Common.h"

#include <gtest/gtest.h>

namespace
{

std::vector<std::string> Named(const std::string& strPattern)
{
    std::vector<std::string> texts;
    ForEachParameter(ParsePattern(strPattern), [&texts](const stAddress& address) { texts.push_back(AddressText(address)); });
    return texts;
}

std::string ErrorOf(const std::string& strPattern)
{
    try
    {
        ParsePattern(strPattern);
    }
    catch (const stWrongUse& error)
    {
        return error.what();
    }
    return "none";
}

typedef std::vector<std::string> tTexts;

} // namespace

TEST(Address, ACommonParameterHasANameOnEachPathThatHasIt)
{
    EXPECT_EQ(tTexts({"MicInput/12/Fader/0"}), Named("MicInput/12/Fader"));
    EXPECT_EQ(tTexts({"MicInput/12/String/1"}), Named("MicInput/12/Name"));
    EXPECT_EQ(tTexts({"MicInput/0/Fader/0", "MicInput/1/Fader/0"}), Named("MicInput/0-1/Fader"));
    EXPECT_EQ("address: \"Globals/0/Fader\" names no parameter", ErrorOf("Globals/0/Fader"));
}

TEST(Address, EveryRoleOfEveryGroupIsNamedAsTheTablesSay)
{
    for (int nCommonType = 0; nCommonType < c_nCommonParamTypes; ++nCommonType)
    {
        const std::string strName = nCommonType == enCommonFader  ? "Fader"
                                    : nCommonType == enCommonName ? "Name"
                                                                  : "Common" + std::to_string(nCommonType);
        for (int nGroup = 0; nGroup < c_nPathTypes; ++nGroup)
        {
            const int nParam = canCommonParamTypesTable[nCommonType][nGroup];
            const std::string strPattern = std::string(caParameterGroupNames[nGroup]) + "/0/" + strName;
            if (nParam < 0)
            {
                EXPECT_NE("none", ErrorOf(strPattern)) << strPattern;
                continue;
            }
            const stAddress address = ParseAddress(strPattern);
            EXPECT_EQ(caCommonParamTypeToMessageType[nCommonType], address.enType) << strPattern;
            EXPECT_EQ(nGroup, address.enPathType);
            EXPECT_EQ(nParam, address.nParam) << strPattern;
        }
    }
}

TEST(Address, AWrongOneSaysWhichCoordinateItIsAndTheNearest)
{
    EXPECT_EQ("address: \"MicInpt\" is no parameter group; the nearest is MicInput", ErrorOf("MicInpt/3/Fader/0"));
    EXPECT_EQ("address: \"micinput\" is no parameter group; the nearest is MicInput", ErrorOf("micinput/3/Fader/0"));
    EXPECT_EQ("address: \"Faders\" is no message type; the nearest is Fader", ErrorOf("MicInput/3/Faders/0"));
    EXPECT_EQ("address: path \"144\" is out of range: MicInput has 0 to 143; the nearest is 143", ErrorOf("MicInput/144/Fader/0"));
    EXPECT_EQ("address: path \"-1\" is out of range: MicInput has 0 to 143; the nearest is 0", ErrorOf("MicInput/-1/Fader/0"));
    EXPECT_EQ("address: parameter \"99999999999\" is out of range: MicInput/Fader has 0 to 1; the nearest is 1",
              ErrorOf("MicInput/3/Fader/99999999999"));
    EXPECT_EQ("address: \"Level\" is no name of a parameter; the nearest is Fader", ErrorOf("MicInput/3/Level"));
    EXPECT_NE(std::string::npos, ErrorOf(std::string(100000, 'x') + "/3/Fader/0").find("is no parameter group; the nearest is "));
}

TEST(Address, APatternNamesWhatItCallsOnAndNoMore)
{
    for (const char* szPattern : {"MicInput/12/Fader", "MicInput/3-5/Switch/7-9", "*/0/Name", "VCAGroups/*/*/0", "*/*/Meter/20-30"})
    {
        const stPattern pattern = ParsePattern(szPattern);
        std::size_t unNamed = 0;
        ForEachParameter(c_EveryParameter, [&](const stAddress& address) { unNamed += IsNamedBy(pattern, address) ? 1 : 0; });
        EXPECT_EQ(Named(szPattern).size(), unNamed) << szPattern;
        ForEachParameter(pattern, [&](const stAddress& address) { EXPECT_TRUE(IsNamedBy(pattern, address)) << szPattern; });
    }
}
