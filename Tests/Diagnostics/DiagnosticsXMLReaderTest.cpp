#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Diagnostics/CaughtReader.h"
#include "Diagnostics/VORNXMLWriter.h"
#include "Support/SystemCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace
{

using testing::ElementsAre;
using testing::StartsWith;

using namespace Support;

struct stParse
{
    const char* szReport;
    std::string strPrinted;
};

// What every operation that parses refuses, and the words.
const stParse c_aRefused[] = {{"", c_strNull},
                              {"VORN", c_strNull},
                              {" <?xml version=\"1.0\"?><VORN><DEV name=\"a\" id=\"1\"/></VORN>", c_strNull},
                              {"<VORN><DEV name=\"a\" id=\"1\"></VORN>", c_strNull},
                              {"<VORN><DEV name=\"a\" id=\"1\"/></VORN><VORN/>", c_strNull},
                              {"<VORN><DEV name=\"a\" name=\"b\" id=\"1\"/></VORN>", c_strNull},
                              {"<VORN><DEV name=\"a\" id=\"1\" v=\"&unknown;\"/></VORN>", c_strNull},
                              {"<!DOCTYPE VORN><VORN><DEV name=\"a\" id=\"1\"/></VORN>", c_strNull},
                              {"<VORNX version=\"1.0\"><DEV name=\"a\" id=\"1\"/></VORNX>", c_strWrongRoot},
                              {"<vorn version=\"1.0\"><DEV name=\"a\" id=\"1\"/></vorn>", c_strWrongRoot},
                              {"<DEV name=\"a\" id=\"1\"/>", c_strWrongRoot},
                              {"<VOR/>", c_strWrongRoot},
                              {"<VORN version=\"1.0\"><DEV name=\"a\"/></VORN>", c_strBadDevice},
                              {"<VORN version=\"1.0\"><DEV id=\"1\"/></VORN>", c_strBadDevice},
                              {"<VORN version=\"1.0\"><DEV/></VORN>", c_strBadDevice},
                              {"<VORN version=\"1.0\"><DEV NAME=\"a\" ID=\"1\"/></VORN>", c_strBadDevice},
                              {"<VORN name=\"a\" id=\"1\"/>", c_strBadDevice},
                              {"<VORN version=\"1.0\">text</VORN>", c_strBadDevice},
                              {"<VORN version=\"1.0\">\n<!-- c --><DEV name=\"a\" id=\"1\"/></VORN>", c_strBadDevice},
                              {"<VORN version=\"1.0\"><!-- c -->\n<DEV name=\"a\" id=\"1\"/></VORN>", c_strBadDevice},
                              {"<VORN version=\"1.0\">a<![CDATA[b]]><DEV name=\"a\" id=\"1\"/></VORN>", c_strBadDevice},
                              {"<VORN version=\"1.0\"><?a?><?b?><DEV name=\"a\" id=\"1\"/></VORN>", c_strBadDevice},
                              {"<VORN version=\"1.0\"><NO/><DEV name=\"a\" id=\"1\"/></VORN>", c_strBadDevice}};

class XMLReader : public CCaughtReader
{
};

} // namespace

// ---- Recognising a report -----------------------------------------------------------------------------------------------------

TEST_F(XMLReader, KnowsXMLByItsFirstFiveCharacters)
{
    for (const char* szText : {"<?xml version=\"1.0\"?>", "<?xml", "<?xmlx"})
    {
        EXPECT_TRUE(m_Reader.IsXML(szText)) << szText;
    }
    for (const char* szText : {" <?xml", "<?XML", "<?Xml version", "\xef\xbb\xbf<?xml", "\n<?xml", "?xml", "<VORN/>"})
    {
        EXPECT_FALSE(m_Reader.IsXML(szText)) << szText;
    }
    EXPECT_FALSE(m_Reader.IsXML(nullptr));
}

TEST_F(XMLReader, ReadsNoFurtherThanTheEndOfAShortText)
{
    const std::string strStart = "<?xm";
    for (std::size_t unLength = 0; unLength <= strStart.size(); ++unLength)
    {
        std::vector<char> text(strStart.begin(), strStart.begin() + static_cast<std::ptrdiff_t>(unLength));
        text.push_back('\0');
        text.shrink_to_fit();
        EXPECT_FALSE(m_Reader.IsXML(text.data())) << unLength;
    }
}

// ---- A reader that has parsed nothing -----------------------------------------------------------------------------------------

TEST_F(XMLReader, IsEmptyAtFirst)
{
    EXPECT_STREQ("", m_Reader.GetDeviceType());
    EXPECT_EQ(0, m_Reader.GetDeviceID());
    EXPECT_FALSE(m_Reader.mapHasElements());
    EXPECT_TRUE(m_Reader.GetMap().empty());
    EXPECT_FALSE(m_Reader.HasSomeChildElements());
    EXPECT_EQ("", m_Reader.GetError());
}

TEST_F(XMLReader, HasNoDeviceBeforeAParse)
{
    EXPECT_FALSE(Catch([&] { return m_Reader.GetMsgDeviceType(); }));
    EXPECT_EQ(c_strNoDevice, m_strPrinted);
}

TEST_F(XMLReader, FilesNothingBeforeAParse)
{
    Catch([&] { return m_Reader.populateMap(), true; });
    EXPECT_EQ("", m_strPrinted);
    EXPECT_FALSE(m_Reader.mapHasElements());
}

TEST_F(XMLReader, ValidatesNothingBeforeAParse)
{
    EXPECT_FALSE(Validate(SCHEMA_FILE));
    const CRedirectedFile redirected(SCHEMA_FILE);
    EXPECT_FALSE(Catch([&] { return m_Reader.validate(); }));
    EXPECT_EQ("", m_strPrinted);
}

TEST_F(XMLReader, AnswersForAnEmptyMap)
{
    EXPECT_FALSE(Catch([&] { return m_Reader.find_parameter(0); }));
    EXPECT_EQ(c_strEmptyMap, m_strPrinted);
    EXPECT_EQ("||", All(m_Reader.get_at(0)));
    EXPECT_TRUE(Catch([&] { return m_Reader.find_parameter(0); }));
    EXPECT_EQ("", m_strPrinted);
}

// ---- Parsing ------------------------------------------------------------------------------------------------------------------

TEST_F(XMLReader, FilesAReportsParametersByNumber)
{
    ASSERT_TRUE(Populate("<?xml version=\"1.0\"?>" + c_strGood));
    EXPECT_EQ("", m_strPrinted);
    EXPECT_STREQ("SURFACE", m_Reader.GetDeviceType());
    EXPECT_EQ(3, m_Reader.GetDeviceID());
    EXPECT_EQ("7|1|2", All(m_Reader.get_at(7)));
    EXPECT_THAT(Keys(), ElementsAre(7));
}

TEST_F(XMLReader, ReadsWhatTheWriterWrites)
{
    VORNXMLWriter writer;
    for (const XMLDiagnostics::stXMLNodeTypeDescription& type : XMLDiagnostics::XNODE_TYPE_DESCRIPTION)
    {
        writer.start_xml("1.0", type.type, -4 - type.type);
        writer.add_attribute(type.type, -0.25f, -3, nullptr);
        writer.add_attribute(148, 1234.5f, 2, nullptr);
        ASSERT_TRUE(Populate(writer.m_strDocument)) << writer.m_strDocument;
        EXPECT_EQ(type.name, m_Reader.GetDeviceType());
        EXPECT_EQ(-4 - type.type, m_Reader.GetDeviceID());
        EXPECT_EQ(std::to_string(type.type) + "|-0.25|-3", All(m_Reader.get_at(type.type)));
        EXPECT_EQ("148|1.23e+03|2", All(m_Reader.get_at(148)));
        EXPECT_TRUE(Validate(SCHEMA_FILE)) << m_Reader.GetError();
    }
}

TEST_F(XMLReader, RefusesWithItsWords)
{
    for (const stParse& refused : c_aRefused)
    {
        SCOPED_TRACE(refused.szReport);
        EXPECT_FALSE(Populate(refused.szReport));
        EXPECT_EQ(refused.strPrinted, m_strPrinted);
        EXPECT_FALSE(Check(refused.szReport));
        EXPECT_EQ(refused.strPrinted, m_strPrinted);
        EXPECT_FALSE(Parse(refused.szReport));
        EXPECT_EQ(refused.strPrinted, m_strPrinted);
        EXPECT_FALSE(m_Reader.mapHasElements());
        EXPECT_STREQ("", m_Reader.GetDeviceType());
    }
}

TEST_F(XMLReader, KeepsWhatItHeldWhenItRefuses)
{
    ASSERT_TRUE(Populate(c_strGood));
    for (const stParse& refused : c_aRefused)
    {
        SCOPED_TRACE(refused.szReport);
        EXPECT_FALSE(Populate(refused.szReport));
        EXPECT_STREQ("SURFACE", m_Reader.GetDeviceType());
        EXPECT_EQ(3, m_Reader.GetDeviceID());
        EXPECT_EQ("7|1|2", All(m_Reader.get_at(7)));
    }
}

TEST_F(XMLReader, TakesEveryStepAfterEveryRefusal)
{
    for (const stParse& refused : c_aRefused)
    {
        SCOPED_TRACE(refused.szReport);
        Parse(refused.szReport);
        const bool bDocument = refused.strPrinted != c_strNull;
        Catch([&] { return m_Reader.HasSomeChildElements(); });
        EXPECT_EQ("", m_strPrinted);
        Catch([&] { return m_Reader.populateMap(), true; });
        const bool bDevice = Catch([&] { return m_Reader.GetMsgDeviceType(); });
        EXPECT_EQ(bDevice ? "" : c_strNoDevice, m_strPrinted);
        EXPECT_EQ(refused.strPrinted == c_strWrongRoot && std::strstr(refused.szReport, "><DEV name") != nullptr, bDevice);
        EXPECT_TRUE(bDocument || (!m_Reader.HasSomeChildElements() && !Validate(SCHEMA_FILE)));
        ASSERT_TRUE(Populate(c_strGood));
        EXPECT_EQ("7|1|2", All(m_Reader.get_at(7)));
        EXPECT_TRUE(Validate(SCHEMA_FILE));
    }
}

TEST_F(XMLReader, RefusesABufferThatIsNone)
{
    std::string strReport = c_strGood;
    ASSERT_TRUE(Populate(c_strGood));
    for (const int nSize : {INT_MIN, -1, 0})
    {
        EXPECT_FALSE(Catch([&] { return m_Reader.parseAndPopulateMap(&strReport[0], nSize); }));
        EXPECT_EQ(c_strNull, m_strPrinted);
    }
    for (const int nSize : {-1, 0, 1, INT_MAX})
    {
        EXPECT_FALSE(Catch([&] { return m_Reader.parseAndPopulateMap(nullptr, nSize); }));
        EXPECT_EQ(c_strNull, m_strPrinted);
        EXPECT_FALSE(Catch([&] { return m_Reader.parseAndCheckForValidMessage(nullptr, nSize); }));
        EXPECT_EQ(c_strNull, m_strPrinted);
    }
    EXPECT_FALSE(m_Reader.HasSomeChildElements());
}

TEST_F(XMLReader, ReadsOnlyTheBytesThatItIsGiven)
{
    std::string strReport = c_strGood + "<rubbish";
    const int nSize = static_cast<int>(c_strGood.size());
    EXPECT_TRUE(Catch([&] { return m_Reader.parseAndPopulateMap(&strReport[0], nSize); }));
    EXPECT_FALSE(Catch([&] { return m_Reader.parseAndPopulateMap(&strReport[0], nSize - 1); }));
    EXPECT_EQ(c_strNull, m_strPrinted);
    EXPECT_FALSE(Populate(strReport));
}

TEST_F(XMLReader, StepsOverOneNodeBeforeTheDevice)
{
    const std::string strDevice = "<DEV name=\"X\" id=\"12\">" + P(1) + "</DEV></VORN>";
    for (const char* szNode : {"", "\n", " \n\t ", "<!-- c -->", "<?a b?>", "<![CDATA[b]]>", "text"})
    {
        SCOPED_TRACE(szNode);
        EXPECT_TRUE(Populate("<VORN>" + (szNode + strDevice)));
        EXPECT_EQ("", m_strPrinted);
    }
}

TEST_F(XMLReader, AsksForNoElementNamesBelowTheRoot)
{
    EXPECT_TRUE(Populate("<VORN>\n<device id=\" 12abc\" name=\"\"><q e=\"c\" v=\"b\" i=\"5\">text<r/></q></device><DEV/></VORN>"));
    EXPECT_STREQ("", m_Reader.GetDeviceType());
    EXPECT_EQ(12, m_Reader.GetDeviceID());
    EXPECT_EQ("5|b|c", All(m_Reader.get_at(5)));
}

TEST_F(XMLReader, NamesTheLineOfAMistakeUntilTheNextParse)
{
    EXPECT_FALSE(Populate("<VORN>\n<DEV name=\"a\" id=\"1\">\n<p i=\"1\" v=\"1\" e=\"1\">\n</DEV></VORN>"));
    EXPECT_THAT(m_Reader.GetError(), StartsWith("line 4: "));
    EXPECT_TRUE(Populate(c_strGood));
    EXPECT_EQ("", m_Reader.GetError());
    EXPECT_FALSE(Populate("\n\n<!DOCTYPE VORN>\n" + c_strGood));
    EXPECT_THAT(m_Reader.GetError(), StartsWith("line 3: "));
    EXPECT_FALSE(Populate("<VORN><DEV/></VORN>"));
    EXPECT_EQ("", m_Reader.GetError());
}

// ---- Locking ------------------------------------------------------------------------------------------------------------------

TEST(XMLReaderLock, WorksWithoutItsMutex)
{
    testing::internal::CaptureStdout();
    const CFailingCall failing(CFailingCall::enMutexInit);
    diagnostics_xml_reader reader;
    EXPECT_EQ("Error m_xml_mutex init failed\n", testing::internal::GetCapturedStdout());
    std::string strReport = c_strGood;
    EXPECT_TRUE(reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size())));
    EXPECT_TRUE(reader.parseAndCheckForValidMessage(&strReport[0], static_cast<int>(strReport.size())));
    EXPECT_TRUE(reader.find_parameter(7));
}

TEST(XMLReaderLock, LetsTwoThreadsParseWithOneReader)
{
    diagnostics_xml_reader reader;
    const auto Parse = [&reader](int nFirst)
    {
        for (int nReport = 0; nReport < 200; ++nReport)
        {
            std::string strReport = Device(P(nFirst + nReport) + P(1000, std::to_string(nFirst)));
            EXPECT_TRUE(reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size())));
            EXPECT_TRUE(reader.parseAndCheckForValidMessage(&strReport[0], static_cast<int>(strReport.size())));
        }
    };
    std::thread other(Parse, 500);
    Parse(0);
    other.join();
    EXPECT_EQ(401u, reader.GetMap().size());
}
