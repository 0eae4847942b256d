#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Diagnostics/CaughtReader.h"
#include "Support/SystemCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

namespace
{

using namespace Support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// A file that lasts as long as this.
class CTemporaryFile
{
public:
    CTemporaryFile(const std::string& strFile, const std::string& strText)
        : strName(testing::TempDir() + "xml_schema_test_" + strFile)
    {
        std::ofstream(strName) << strText;
    }
    ~CTemporaryFile() { std::remove(strName.c_str()); }

    const std::string strName;
};

const char* const c_aszAccepted[] = {
    "<VORN version=\"1.0\"><DEV name=\"SURFACE\" id=\"3\"></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"SURFACE\" id=\"3\"><p i=\"0\" v=\"1234\" e=\"0\"/><p i=\"1\" v=\"0\" e=\"0\"/></DEV></VORN>",
    "<?xml version=\"1.0\"?>\n<VORN version=\"1.0\">\n<DEV name=\"X\" id=\"3\">\n<p i=\"0\" v=\"1\" e=\"0\"/>\n</DEV>\n</VORN>\n",
    "<VORN version=\"\"><DEV name=\"\" id=\"-2147483648\"><p i=\"2147483647\" v=\"\" e=\"\"></p></DEV></VORN>",
    "<VORN version='x'><DEV id='+1' name='a &amp; b'><p e='&lt;' v='1.23e+03' i='-7'/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"1\" v=\"1\" e=\"0\"/><p i=\"1\" v=\"1\" e=\"0\"/></DEV></VORN>",
    "<!-- c --><VORN version=\"1.0\"><!-- c --><!-- c --><DEV name=\"X\" id=\"3\"><!-- c --><?a b?></DEV></VORN><!-- c -->"};

const char* const c_aszRefused[] = {
    // the root
    "<VORNX version=\"1.0\"><DEV name=\"X\" id=\"3\"/></VORNX>", "<vorn version=\"1.0\"><DEV name=\"X\" id=\"3\"/></vorn>",
    "<DEV name=\"X\" id=\"3\"/>", "<p i=\"1\" v=\"1\" e=\"0\"/>",
    "<VORN xmlns=\"urn:x\" version=\"1.0\"><DEV name=\"X\" id=\"3\"/></VORN>", "<VORN><DEV name=\"X\" id=\"3\"/></VORN>",
    "<VORN version=\"1.0\" more=\"\"><DEV name=\"X\" id=\"3\"/></VORN>", "<VORN Version=\"1.0\"><DEV name=\"X\" id=\"3\"/></VORN>",
    // its children
    "<VORN version=\"1.0\"/>", "<VORN version=\"1.0\">text<DEV name=\"X\" id=\"3\"/></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"/>text</VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"/><DEV name=\"Y\" id=\"4\"/></VORN>",
    "<VORN version=\"1.0\"><dev name=\"X\" id=\"3\"/></VORN>", "<VORN version=\"1.0\"><p i=\"1\" v=\"1\" e=\"0\"/></VORN>",
    "<VORN version=\"1.0\"><p i=\"1\" v=\"1\" e=\"0\"/><DEV name=\"X\" id=\"3\"/></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"/><p i=\"1\" v=\"1\" e=\"0\"/></VORN>",
    "<VORN version=\"1.0\"><VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"/></VORN></VORN>",
    // the device
    "<VORN version=\"1.0\"><DEV id=\"3\"/></VORN>", "<VORN version=\"1.0\"><DEV name=\"X\"/></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"\"/></VORN>", "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3a\"/></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"1.5\"/></VORN>", "<VORN version=\"1.0\"><DEV name=\"X\" id=\"2147483648\"/></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\" more=\"\"/></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\">text</DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><q i=\"1\" v=\"1\" e=\"0\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><P i=\"1\" v=\"1\" e=\"0\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><DEV name=\"X\" id=\"3\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"1\" v=\"1\" e=\"0\"/>text</DEV></VORN>",
    // the parameters
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p v=\"1\" e=\"0\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"1\" e=\"0\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"1\" v=\"1\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"\" v=\"1\" e=\"0\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"one\" v=\"1\" e=\"0\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"12abc\" v=\"1\" e=\"0\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"1e3\" v=\"1\" e=\"0\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"-2147483649\" v=\"1\" e=\"0\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"1\" v=\"1\" e=\"0\" more=\"\"/></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"1\" v=\"1\" e=\"0\">text</p></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"1\" v=\"1\" e=\"0\"><p i=\"1\" v=\"1\" e=\"0\"/></p></DEV></VORN>",
    "<VORN version=\"1.0\"><DEV name=\"X\" id=\"3\"><p i=\"1\" v=\"1\" e=\"0\"/><p i=\"1\" v=\"1\"/></DEV></VORN>"};

class XMLSchema : public CCaughtReader
{
protected:
    bool ValidateAt(const std::string& strFile)
    {
        const CRedirectedFile redirected(strFile);
        const bool bResult = Catch([&] { return m_Reader.validate(); });
        EXPECT_EQ("", m_strPrinted);
        return bResult;
    }
};

} // namespace

TEST_F(XMLSchema, AcceptsTheFormat)
{
    for (const char* szReport : c_aszAccepted)
    {
        Parse(szReport);
        EXPECT_TRUE(Validate(SCHEMA_FILE)) << szReport << m_Reader.GetError();
        EXPECT_TRUE(ValidateAt(SCHEMA_FILE)) << szReport;
        EXPECT_EQ("", m_Reader.GetError());
    }
}

TEST_F(XMLSchema, RefusesEverythingElse)
{
    for (const char* szReport : c_aszRefused)
    {
        Parse(szReport);
        EXPECT_FALSE(Validate(SCHEMA_FILE)) << szReport;
        EXPECT_FALSE(ValidateAt(SCHEMA_FILE)) << szReport;
        EXPECT_THAT(m_Reader.GetError(), StartsWith("line 1: ")) << szReport;
    }
}

TEST_F(XMLSchema, IsReadFromItsFixedPathEachTime)
{
    ASSERT_TRUE(Populate(c_strGood));
    const CRedirectedFile redirected(SCHEMA_FILE);
    EXPECT_TRUE(Catch([&] { return m_Reader.validate(); }));
    EXPECT_TRUE(Catch([&] { return m_Reader.validate(); }));
    EXPECT_THAT(redirected.asked, ElementsAre("/opt/orvik/bin/xml_validation.xsd", "/opt/orvik/bin/xml_validation.xsd"));
}

TEST_F(XMLSchema, IsReadFromTheGivenFile)
{
    ASSERT_TRUE(Populate(c_strGood));
    const CRedirectedFile redirected(SCHEMA_FILE);
    EXPECT_TRUE(Validate("some/file.xsd"));
    EXPECT_THAT(redirected.asked, ElementsAre("some/file.xsd"));
}

TEST_F(XMLSchema, MayChangeBetweenTwoValidations)
{
    ASSERT_TRUE(Populate(c_strGood));
    const CTemporaryFile file("changing.xsd",
                              "<schema xmlns=\"http://www.w3.org/2001/XMLSchema\"><element name=\"VORN\"/></schema>");
    EXPECT_TRUE(Validate(file.strName));
    std::ofstream(file.strName) << "<schema xmlns=\"http://www.w3.org/2001/XMLSchema\"><element name=\"OTHER\"/></schema>";
    EXPECT_FALSE(Validate(file.strName));
}

TEST_F(XMLSchema, AllowsNothingWhenItIsNone)
{
    const std::string strXS = "<schema xmlns=\"http://www.w3.org/2001/XMLSchema\">";
    const CTemporaryFile empty("empty.xsd", "");
    const CTemporaryFile text("text.xsd", "no XML");
    const CTemporaryFile cut("cut.xsd", strXS + "<element name=\"VORN\"/>");
    const CTemporaryFile other("other.xsd", c_strGood);
    const CTemporaryFile wrong("wrong.xsd", strXS + "<element name=\"VORN\" type=\"none\"/></schema>");
    const CTemporaryFile bad("bad.xsd", strXS + "<element/></schema>");
    ASSERT_TRUE(Populate(c_strGood));
    for (const std::string& strFile : {testing::TempDir() + "xml_schema_test_missing.xsd", testing::TempDir(), empty.strName,
                                       text.strName, cut.strName, other.strName, wrong.strName, bad.strName})
    {
        SCOPED_TRACE(strFile);
        EXPECT_FALSE(ValidateAt(strFile));
        EXPECT_NE("", m_Reader.GetError());
        EXPECT_FALSE(Validate(strFile));
        EXPECT_NE("", m_Reader.GetError());
        EXPECT_TRUE(ValidateAt(SCHEMA_FILE));
        EXPECT_EQ("", m_Reader.GetError());
    }
}

TEST_F(XMLSchema, AllowsNothingWithoutAFileName)
{
    ASSERT_TRUE(Populate(c_strGood));
    EXPECT_FALSE(Catch([&] { return m_Reader.validate(nullptr); }));
    EXPECT_EQ("", m_strPrinted);
    EXPECT_FALSE(Validate(""));
}

TEST_F(XMLSchema, IsNoFileOfTheNetwork)
{
    ASSERT_TRUE(Populate(c_strGood));
    EXPECT_FALSE(Validate("http://127.0.0.1:1/schema.xsd"));
    EXPECT_FALSE(Validate("ftp://127.0.0.1:1/schema.xsd"));
}

// Nobody fetches them, and the loader is asked for nothing.
TEST_F(XMLSchema, NamesNoOtherFiles)
{
    static int s_nLoads;
    s_nLoads = 0;
    const xmlExternalEntityLoader before = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(
        [](const char* szUrl, const char*, xmlParserCtxtPtr pContext)
        {
            ++s_nLoads;
            return xmlNewInputFromFile(pContext, szUrl);
        });
    ASSERT_TRUE(Populate(c_strGood));
    for (const char* szPart : {"include", "import namespace=\"x\"", "redefine"})
    {
        const CTemporaryFile file("parts.xsd", std::string("<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"><xs:") +
                                                   szPart + " schemaLocation=\"http://127.0.0.1:1/a.xsd\"/></xs:schema>");
        EXPECT_FALSE(Validate(file.strName));
        EXPECT_EQ(file.strName + " names other files", m_Reader.GetError());
    }
    xmlSetExternalEntityLoader(before);
    EXPECT_EQ(0, s_nLoads);
}

TEST_F(XMLSchema, TellsTheLineThatItRefuses)
{
    ASSERT_TRUE(
        Populate("<VORN version=\"1.0\">\n<DEV name=\"X\" id=\"12\">\n" + P(1) + "\n<q i=\"1\" v=\"1\" e=\"1\"/>\n</DEV></VORN>"));
    EXPECT_FALSE(Validate(SCHEMA_FILE));
    EXPECT_THAT(m_Reader.GetError(), StartsWith("line 4: "));
    EXPECT_THAT(m_Reader.GetError(), HasSubstr("'q'"));
}

TEST_F(XMLSchema, LeavesReportAndMapAlone)
{
    ASSERT_TRUE(Populate(Device(P(1, "a") + "<q i=\"2\" v=\"b\" e=\"\"/>")));
    EXPECT_FALSE(Validate(SCHEMA_FILE));
    EXPECT_FALSE(Validate("/nowhere.xsd"));
    EXPECT_THAT(Keys(), ElementsAre(1, 2));
    EXPECT_STREQ("X", m_Reader.GetDeviceType());
    EXPECT_TRUE(m_Reader.HasSomeChildElements());
}

TEST_F(XMLSchema, JudgesTheReportThatIsHeldAfterAFailedParse)
{
    EXPECT_FALSE(Parse("<VORN version=\"1.0\"><!-- a --><!-- b --><DEV name=\"X\" id=\"1\"/></VORN>"));
    EXPECT_EQ(c_strBadDevice, m_strPrinted);
    EXPECT_TRUE(Validate(SCHEMA_FILE));
    EXPECT_FALSE(Populate(Device("")));
    EXPECT_EQ(NoElementsInMap("X"), m_strPrinted);
    EXPECT_TRUE(Validate(SCHEMA_FILE));
    EXPECT_FALSE(Parse("no XML"));
    EXPECT_FALSE(Validate(SCHEMA_FILE));
}

TEST(XMLSchemaThreads, ValidateWithTheirOwnReaders)
{
    const auto Validate = [](const std::string& strReport, bool bGood)
    {
        diagnostics_xml_reader reader;
        for (int nTime = 0; nTime < 50; ++nTime)
        {
            std::string strBuffer = strReport;
            EXPECT_TRUE(reader.parseAndPopulateMap(&strBuffer[0], static_cast<int>(strBuffer.size())));
            EXPECT_EQ(bGood, reader.validate(SCHEMA_FILE));
            EXPECT_EQ(bGood, reader.GetError().empty());
        }
    };
    std::thread other(Validate, Device(P(1) + "<q i=\"2\" v=\"b\" e=\"\"/>"), false);
    Validate(c_strGood, true);
    other.join();
}

TEST(XMLSchemaThreads, ValidateOneReportAfterAnother)
{
    diagnostics_xml_reader reader;
    for (int nTime = 0; nTime < 10; ++nTime)
    {
        std::string strBuffer = Device(P(nTime));
        std::thread([&] { EXPECT_TRUE(reader.parseAndPopulateMap(&strBuffer[0], static_cast<int>(strBuffer.size()))); }).join();
        std::thread([&] { EXPECT_TRUE(reader.validate(SCHEMA_FILE)); }).join();
    }
}
