#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Diagnostics/CaughtReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Support;
using testing::ElementsAre;

class XMLReaderMap : public CCaughtReader
{
};

} // namespace

TEST_F(XMLReaderMap, RefusesADeviceWithoutParameters)
{
    for (const char* szInside : {"", "\n", "text", "<!-- c -->", "<![CDATA[<p/>]]>"})
    {
        SCOPED_TRACE(szInside);
        EXPECT_FALSE(Populate(Device(szInside)));
        EXPECT_EQ(NoElementsInMap("X"), m_strPrinted);
        EXPECT_FALSE(Check(Device(szInside)));
        EXPECT_EQ(NoElementsInDocument("X"), m_strPrinted);
        EXPECT_FALSE(m_Reader.HasSomeChildElements());
        EXPECT_TRUE(Parse(Device(szInside)));
        EXPECT_EQ("", m_strPrinted);
    }
    EXPECT_FALSE(Populate("<VORN version=\"1.0\"><DEV name=\"X\" id=\"12\"/></VORN>"));
    EXPECT_EQ(NoElementsInMap("X"), m_strPrinted);
}

TEST_F(XMLReaderMap, PrintsADeviceTypeThatLooksLikeAFormat)
{
    EXPECT_FALSE(Populate("<VORN><DEV name=\"%s%n\" id=\"1\"/></VORN>"));
    EXPECT_EQ(NoElementsInMap("%s%n"), m_strPrinted);
    EXPECT_FALSE(Check("<VORN><DEV name=\"%s%n\" id=\"1\"/></VORN>"));
    EXPECT_EQ(NoElementsInDocument("%s%n"), m_strPrinted);
}

TEST_F(XMLReaderMap, ChecksAReportWithoutFilingIt)
{
    EXPECT_TRUE(Check(Device("\n<!-- c -->" + P(1))));
    EXPECT_EQ("", m_strPrinted);
    EXPECT_STREQ("X", m_Reader.GetDeviceType());
    EXPECT_EQ(12, m_Reader.GetDeviceID());
    EXPECT_TRUE(m_Reader.HasSomeChildElements());
    EXPECT_FALSE(m_Reader.mapHasElements());
    EXPECT_TRUE(Check(Device("<p/>")));
}

TEST_F(XMLReaderMap, TakesTheStepsOneByOne)
{
    ASSERT_TRUE(Parse(Device(P(1) + P(2))));
    EXPECT_TRUE(m_Reader.HasSomeChildElements());
    EXPECT_FALSE(m_Reader.mapHasElements());
    EXPECT_TRUE(Catch([&] { return m_Reader.GetMsgDeviceType(); }));
    Catch([&] { return m_Reader.populateMap(), true; });
    EXPECT_EQ("", m_strPrinted);
    EXPECT_THAT(Keys(), ElementsAre(1, 2));
}

TEST_F(XMLReaderMap, KeepsTheLaterOfTwoParametersWithOneNumber)
{
    EXPECT_TRUE(Populate(Device(P(3, "old") + "text" + P(4) + "<!-- c -->" + P(3, "new"))));
    EXPECT_THAT(Keys(), ElementsAre(3, 4));
    EXPECT_EQ("3|new|0", All(m_Reader.get_at(3)));
}

TEST_F(XMLReaderMap, KeepsEntriesOfEarlierReports)
{
    ASSERT_TRUE(Populate(Device(P(1, "a") + P(2, "a"))));
    ASSERT_TRUE(Populate(Device(P(2, "b") + P(3, "b"))));
    EXPECT_THAT(Keys(), ElementsAre(1, 2, 3));
    EXPECT_EQ("1|a|0", All(m_Reader.get_at(1)));
    EXPECT_EQ("2|b|0", All(m_Reader.get_at(2)));
    EXPECT_TRUE(Populate(Device(""))) << "the map holds something all the same";
    EXPECT_EQ("", m_strPrinted);
}

TEST_F(XMLReaderMap, EmptiesTheMapAtAnIncompleteParameter)
{
    for (const char* szP :
         {"<p i=\"7\" v=\"1\"/>", "<p i=\"7\" e=\"1\"/>", "<p v=\"7\" e=\"1\"/>", "<p/>", "<p I=\"1\" v=\"1\" e=\"1\"/>"})
    {
        SCOPED_TRACE(szP);
        ASSERT_TRUE(Populate(c_strGood));
        EXPECT_FALSE(Populate(Device(P(1) + szP + P(2))));
        EXPECT_EQ(c_strIncomplete + NoElementsInMap("X"), m_strPrinted);
        EXPECT_FALSE(m_Reader.mapHasElements());
        EXPECT_STREQ("X", m_Reader.GetDeviceType());
    }
}

TEST_F(XMLReaderMap, FilesNumbersAsTheConverterReadsThem)
{
    const std::vector<std::pair<const char*, int>> texts = {
        {"abc", 0}, {"", 0}, {"12abc", 12}, {" 7", 7}, {"-5", -5}, {"1.9", 1}, {"99999999999", INT_MAX}, {"-99999999999", INT_MIN}};
    for (const auto& text : texts)
    {
        m_Reader.ClearMap();
        ASSERT_TRUE(Populate(Device("<p i=\"" + std::string(text.first) + "\" v=\"\" e=\"\"/>")));
        EXPECT_THAT(Keys(), ElementsAre(text.second));
        EXPECT_EQ(std::string(text.first) + "||", All(m_Reader.get_at(text.second)));
    }
}

TEST_F(XMLReaderMap, GivesTheTextsThatReferencesStandFor)
{
    ASSERT_TRUE(Populate(Device("<p i=\"&#55;\" v=\"&lt;&amp;&quot;&gt;&apos;\" e=\"&#x20ac;\n\"/>")));
    EXPECT_EQ("7|<&\">'|\xe2\x82\xac ", All(m_Reader.get_at(7)));
}

TEST_F(XMLReaderMap, FilesAnEmptyParameterWhereNoneIs)
{
    ASSERT_TRUE(Populate(c_strGood));
    EXPECT_FALSE(Catch([&] { return m_Reader.find_parameter(99); }));
    EXPECT_EQ("", m_strPrinted);
    EXPECT_TRUE(m_Reader.find_parameter(7));
    EXPECT_EQ("||", All(m_Reader.get_at(99)));
    EXPECT_TRUE(m_Reader.find_parameter(99));
    EXPECT_THAT(Keys(), ElementsAre(7, 99));
}

TEST_F(XMLReaderMap, ReturnsCopiesOfParameters)
{
    ASSERT_TRUE(Populate(c_strGood));
    XMLDiagnostics::XMLElement element = m_Reader.get_at(7);
    element.v = "changed";
    EXPECT_EQ("7|1|2", All(m_Reader.get_at(7)));
}

TEST_F(XMLReaderMap, ForgetsItsParametersAtClearMap)
{
    ASSERT_TRUE(Populate(c_strGood));
    m_Reader.ClearMap();
    EXPECT_FALSE(m_Reader.mapHasElements());
    EXPECT_STREQ("SURFACE", m_Reader.GetDeviceType());
    EXPECT_TRUE(Validate(SCHEMA_FILE));
    EXPECT_FALSE(Populate(Device("")));
    EXPECT_EQ(NoElementsInMap("X"), m_strPrinted);
}

TEST_F(XMLReaderMap, HoldsNoMoreNumbersThanItsLimit)
{
    m_Reader.SetMapLimit(100);
    for (int nReport = 0; nReport < 1000; ++nReport)
    {
        std::string strReport = Device(P(5 * nReport) + P(5 * nReport + 1) + P(5 * nReport + 2) + P(0, std::to_string(nReport)));
        ASSERT_TRUE(m_Reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size())));
        ASSERT_LE(m_Reader.GetMap().size(), 100u);
    }
    EXPECT_EQ(100u, m_Reader.GetMap().size());
    EXPECT_EQ("0|999|0", All(m_Reader.get_at(0))) << "numbers that are there go on being replaced";
    EXPECT_FALSE(m_Reader.find_parameter(4995));
}

TEST_F(XMLReaderMap, HoldsEverythingWithoutALimit)
{
    for (int nReport = 0; nReport < 1000; ++nReport)
    {
        std::string strReport = Device(P(3 * nReport) + P(3 * nReport + 1) + P(3 * nReport + 2));
        ASSERT_TRUE(m_Reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size())));
    }
    EXPECT_EQ(3000u, m_Reader.GetMap().size());
}

TEST_F(XMLReaderMap, CountsItsLimitFromNowOn)
{
    ASSERT_TRUE(Populate(Device(P(1) + P(2) + P(3))));
    m_Reader.SetMapLimit(2);
    EXPECT_TRUE(Populate(Device(P(2, "new") + P(4))));
    EXPECT_THAT(Keys(), ElementsAre(1, 2, 3));
    EXPECT_EQ("2|new|0", All(m_Reader.get_at(2)));
    EXPECT_FALSE(Populate(Device("<p/>")));
    EXPECT_TRUE(Populate(Device(P(7) + P(6) + P(5))));
    EXPECT_THAT(Keys(), ElementsAre(6, 7));
}

TEST_F(XMLReaderMap, FilesNothingWithALimitOfZero)
{
    m_Reader.SetMapLimit(0);
    EXPECT_FALSE(Populate(Device(P(1))));
    EXPECT_EQ(NoElementsInMap("X"), m_strPrinted);
}
