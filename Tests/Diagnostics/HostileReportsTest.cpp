#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Diagnostics/CaughtReader.h"
#include "Support/InChild.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace
{

using namespace Support;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// A file that no report may get at, and what is in it.
const std::string c_strSecret = "SECRET";

class CSecretFile
{
public:
    CSecretFile() : strName(testing::TempDir() + "hostile_reports_secret") { std::ofstream(strName) << c_strSecret; }
    ~CSecretFile() { std::remove(strName.c_str()); }

    const std::string strName;
};

// Sees every file that the XML library is about to load. Local ones are loaded.
class CRecordingLoader
{
public:
    CRecordingLoader() : m_Before(xmlGetExternalEntityLoader())
    {
        s_pThis = this;
        xmlSetExternalEntityLoader(&CRecordingLoader::Load);
    }
    ~CRecordingLoader() { xmlSetExternalEntityLoader(m_Before); }

    std::vector<std::string> asked;

private:
    static xmlParserInputPtr Load(const char* szUrl, const char*, xmlParserCtxtPtr pContext)
    {
        const std::string strUrl = szUrl == nullptr ? "(none)" : szUrl;
        s_pThis->asked.push_back(strUrl);
        return strUrl.find("://") == std::string::npos ? xmlNewInputFromFile(pContext, szUrl) : nullptr;
    }

    static CRecordingLoader* s_pThis;
    xmlExternalEntityLoader m_Before;
};

CRecordingLoader* CRecordingLoader::s_pThis = nullptr;

// The switches of a host program that trusts its documents.
class CTrustingHost
{
public:
    explicit CTrustingHost(bool bTrusting)
        : m_nSubstitute(xmlSubstituteEntitiesDefault(bTrusting ? 1 : 0)), m_nLoadDtd(xmlLoadExtDtdDefaultValue),
          m_nKeepBlanks(xmlKeepBlanksDefault(bTrusting ? 0 : 1)), m_nValidate(xmlDoValidityCheckingDefaultValue)
    {
        xmlLoadExtDtdDefaultValue = bTrusting ? XML_DETECT_IDS | XML_COMPLETE_ATTRS : 0;
        xmlDoValidityCheckingDefaultValue = bTrusting ? 1 : 0;
    }
    ~CTrustingHost()
    {
        xmlSubstituteEntitiesDefault(m_nSubstitute);
        xmlKeepBlanksDefault(m_nKeepBlanks);
        xmlLoadExtDtdDefaultValue = m_nLoadDtd;
        xmlDoValidityCheckingDefaultValue = m_nValidate;
    }

private:
    int m_nSubstitute;
    int m_nLoadDtd;
    int m_nKeepBlanks;
    int m_nValidate;
};

// A report that uses this declaration.
std::string Declared(const std::string& strSubset, const std::string& strValue = "&a;", const std::string& strText = "")
{
    return "<?xml version=\"1.0\"?><!DOCTYPE VORN " + strSubset + ">" +
           Device("<p i=\"1\" v=\"" + strValue + "\" e=\"\"/>" + strText);
}

// Ten references to each entity in the next one.
std::string Laughs(int nLevels)
{
    std::string strSubset = "[<!ENTITY l0 \"ha\">";
    for (int nLevel = 1; nLevel <= nLevels; ++nLevel)
    {
        const std::string strReference = "&l" + std::to_string(nLevel - 1) + ";";
        strSubset += "<!ENTITY l" + std::to_string(nLevel) + " \"";
        for (int nTime = 0; nTime < 10; ++nTime)
        {
            strSubset += strReference;
        }
        strSubset += "\">";
    }
    return strSubset + "]";
}

class HostileReports : public CCaughtReader
{
protected:
    void ExpectStillGood()
    {
        ASSERT_TRUE(Populate(c_strGood));
        EXPECT_EQ("", m_strPrinted);
        EXPECT_STREQ("SURFACE", m_Reader.GetDeviceType());
        EXPECT_EQ("7|1|2", All(m_Reader.get_at(7)));
    }

    void ExpectRefused(const std::string& strReport)
    {
        SCOPED_TRACE(strReport.substr(0, 200));
        EXPECT_FALSE(Populate(strReport));
        EXPECT_EQ(c_strNull, m_strPrinted);
        EXPECT_FALSE(Check(strReport));
        EXPECT_EQ(c_strNull, m_strPrinted);
        EXPECT_FALSE(Validate(SCHEMA_FILE));
        ExpectStillGood();
    }

    CSecretFile m_Secret;
};

} // namespace

// ---- Document type declarations -----------------------------------------------------------------------------------------------

TEST_F(HostileReports, ExpandNoEntities)
{
    const std::string strLong = "[<!ENTITY a \"" + std::string(60000, 'a') + "\">]";
    for (const bool bTrusting : {false, true})
    {
        const CTrustingHost host(bTrusting);
        const auto start = std::chrono::steady_clock::now();
        for (const int nLevels : {1, 3, 9, 40})
        {
            ExpectRefused(Declared(Laughs(nLevels), "&l" + std::to_string(nLevels) + ";"));
            ExpectRefused(Declared(Laughs(nLevels), "", "&l" + std::to_string(nLevels) + ";"));
        }
        ExpectRefused(Declared(strLong, Repeat("&a;", 11000)));
        ExpectRefused(Declared(strLong, "", Repeat("&a;", 11000)));
        ExpectRefused(Declared("[<!ENTITY a \"&b;\"><!ENTITY b \"&a;\">]"));
        ExpectRefused(Declared("[<!ENTITY % a \"%b;\"><!ENTITY % b \"%a;\">%a;]", ""));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    }
}

// A schema is the file of that name and no other: neither the host's loader nor a catalog of its environment is asked.
TEST_F(HostileReports, AreValidatedByTheFileItself)
{
    const CRecordingLoader loader;
    ASSERT_TRUE(Populate(c_strGood));
    EXPECT_TRUE(Validate(SCHEMA_FILE)) << m_Reader.GetError();
    EXPECT_EQ(std::vector<std::string>(), loader.asked);

    const auto run = [this]
    {
        const std::string strCatalog = testing::TempDir() + "catalog." + std::to_string(getpid());
        std::ofstream(strCatalog)
            << "<catalog xmlns=\"urn:oasis:names:tc:entity:xmlns:xml:catalog\"><system systemId=\"absent.xsd\" "
               "uri=\"file://" SCHEMA_FILE "\"/><uri name=\"absent.xsd\" uri=\"file://" SCHEMA_FILE "\"/></catalog>";
        setenv("XML_CATALOG_FILES", strCatalog.c_str(), 1);
        const bool bValid = m_Reader.validate("absent.xsd");
        std::remove(strCatalog.c_str());
        return bValid ? 1 : 0;
    };
    EXPECT_EQ(0, Support::InChild(run));
}

TEST_F(HostileReports, LoadNothingByADeclaration)
{
    CRecordingLoader loader;
    std::vector<std::string> subsets = {"", "[]", "[<!ENTITY a \"b\">]", "[<!ATTLIST p v CDATA \"d\">]", "[<!ELEMENT VORN ANY>]"};
    for (const std::string& strUrl : {m_Secret.strName, "file://" + m_Secret.strName, std::string("file:///etc/passwd"),
                                      std::string("http://127.0.0.1:1/a"), std::string("ftp://127.0.0.1:1/a")})
    {
        subsets.push_back("SYSTEM \"" + strUrl + "\"");
        subsets.push_back("PUBLIC \"-//A//B\" \"" + strUrl + "\"");
        subsets.push_back("SYSTEM \"" + strUrl + "\" [<!ENTITY a \"b\">]");
        subsets.push_back("[<!ENTITY a SYSTEM \"" + strUrl + "\">]");
        subsets.push_back("[<!ENTITY a PUBLIC \"-//A//B\" \"" + strUrl + "\">]");
        subsets.push_back("[<!ENTITY % b SYSTEM \"" + strUrl + "\">%b;]");
        subsets.push_back("[<!ENTITY % b SYSTEM \"" + strUrl + "\">%b;<!ENTITY a \"c\">]");
        subsets.push_back("[<!NOTATION n SYSTEM \"" + strUrl + "\"><!ENTITY a SYSTEM \"" + strUrl + "\" NDATA n>]");
    }
    for (const bool bTrusting : {false, true})
    {
        const CTrustingHost host(bTrusting);
        for (const std::string& strSubset : subsets)
        {
            ExpectRefused(Declared(strSubset));
            ExpectRefused(Declared(strSubset, "1"));
            ExpectRefused(Declared(strSubset, "1", "&a;"));
        }
    }
    EXPECT_THAT(loader.asked, Each(std::string(SCHEMA_FILE)));
}

TEST_F(HostileReports, WouldReadFilesInATrustingHost)
{
    CRecordingLoader loader;
    const CTrustingHost host(true);
    const std::string strReport = Declared("[<!ENTITY a SYSTEM \"" + m_Secret.strName + "\">]", "1", "&a;");
    xmlFreeDoc(xmlParseMemory(strReport.data(), static_cast<int>(strReport.size())));
    EXPECT_THAT(loader.asked, ElementsAre(m_Secret.strName));
}

TEST_F(HostileReports, HideNoDeclarationInAnotherEncoding)
{
    for (const bool bTrusting : {false, true})
    {
        const CTrustingHost host(bTrusting);
        for (const bool bBig : {false, true})
        {
            ExpectRefused(Wide("<!DOCTYPE VORN>" + c_strGood, bBig));
            EXPECT_TRUE(Populate(Wide(c_strGood, bBig)));
        }
    }
    ExpectRefused("\xef\xbb\xbf<!DOCTYPE VORN>" + c_strGood);
}

// Character sets are code that the system would load: whatever a report declares, it is Unicode.
TEST_F(HostileReports, ChooseNoCharacterSet)
{
    for (const char* szEncoding : {"windows-1252", "ISO-2022-CN-EXT", "EBCDIC-US", "UTF-32", "ISO-8859-1", "none"})
    {
        const std::string strDeclaration = "<?xml version=\"1.0\" encoding=\"" + std::string(szEncoding) + "\"?>";
        EXPECT_TRUE(Populate(strDeclaration + Device(P(1, "\xc3\xa9")))) << szEncoding;
        EXPECT_EQ("1|\xc3\xa9|0", All(m_Reader.get_at(1)));
        ExpectRefused(strDeclaration + Device(P(1, "\x80")));
    }
    for (const std::string& strMark : {std::string("\x4c\x6f\xa7\x94"), std::string("\0\0\0<", 4), std::string("<\0\0\0", 4),
                                       std::string("\0\0<\0", 4), std::string("\0<\0\0", 4)})
    {
        ExpectRefused(strMark + c_strGood);
    }
}

TEST_F(HostileReports, AreParsedByNoSwitchOfTheHost)
{
    const CTrustingHost host(true);
    EXPECT_FALSE(Populate("<VORN>\n<!-- blanks count --><DEV name=\"a\" id=\"1\">" + P(1) + "</DEV></VORN>"));
    EXPECT_EQ(c_strBadDevice, m_strPrinted);
    EXPECT_EQ(1, xmlSubstituteEntitiesDefault(1));
    EXPECT_EQ(0, xmlKeepBlanksDefault(0));
    EXPECT_EQ(XML_DETECT_IDS | XML_COMPLETE_ATTRS, xmlLoadExtDtdDefaultValue);
    EXPECT_EQ(1, xmlDoValidityCheckingDefaultValue);
}

TEST_F(HostileReports, AreNoneOfTheHostsErrors)
{
    int nErrors = 0;
    const auto CountError = [](void* pCount, xmlErrorPtr) { ++*static_cast<int*>(pCount); };
    xmlSetStructuredErrorFunc(&nErrors, CountError);
    EXPECT_FALSE(Populate("<VORN>"));
    EXPECT_TRUE(Populate(Device("<q i=\"1\" v=\"\" e=\"\"/>")));
    EXPECT_FALSE(Validate(SCHEMA_FILE));
    EXPECT_FALSE(Validate("/nowhere.xsd"));
    EXPECT_EQ(0, nErrors);
    EXPECT_EQ(&nErrors, xmlStructuredErrorContext);
    xmlFreeDoc(xmlParseMemory("<VORN>", 6));
    EXPECT_EQ(1, nErrors) << "the host's handler is there still";
    xmlSetStructuredErrorFunc(nullptr, nullptr);
}

// ---- Files that a report names otherwise --------------------------------------------------------------------------------------

TEST_F(HostileReports, LoadNoSchemaOfTheirOwn)
{
    const std::string strXsi = "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:";
    for (const bool bTrusting : {false, true})
    {
        const CTrustingHost host(bTrusting);
        for (const std::string& strUrl : {m_Secret.strName, std::string("http://127.0.0.1:1/a.xsd")})
        {
            for (const std::string& strHint :
                 {strXsi + "noNamespaceSchemaLocation=\"" + strUrl + "\"", strXsi + "schemaLocation=\"urn:x " + strUrl + "\""})
            {
                SCOPED_TRACE(strHint);
                CRecordingLoader loader;
                ASSERT_TRUE(Populate("<VORN version=\"1.0\" " + strHint + "><DEV name=\"a\" id=\"1\" " + strHint + "><p " +
                                     strHint + " i=\"1\" v=\"1\" e=\"1\"/></DEV></VORN>"));
                EXPECT_THAT(loader.asked, IsEmpty());
                EXPECT_TRUE(Validate(SCHEMA_FILE)) << m_Reader.GetError();
                EXPECT_TRUE(Validate(SCHEMA_FILE)) << m_Reader.GetError();
                EXPECT_THAT(loader.asked, IsEmpty());
            }
        }
    }
}

TEST_F(HostileReports, HaveASchemaThatExpandsNothing)
{
    const std::string strSchema = testing::TempDir() + "hostile_reports_schema";
    std::ofstream(strSchema) << "<!DOCTYPE x [<!ENTITY e SYSTEM \"" + m_Secret.strName +
                                    "\">]><xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">&e;</xs:schema>";
    const CTrustingHost host(true);
    CRecordingLoader loader;
    ASSERT_TRUE(Populate(c_strGood));
    EXPECT_FALSE(Validate(strSchema));
    EXPECT_THAT(loader.asked, IsEmpty());
    EXPECT_TRUE(Validate(SCHEMA_FILE));
    std::remove(strSchema.c_str());
}

TEST_F(HostileReports, IncludeNothing)
{
    CRecordingLoader loader;
    const CTrustingHost host(true);
    const std::string strInclude =
        "<xi:include xmlns:xi=\"http://www.w3.org/2001/XInclude\" parse=\"text\" href=\"" + m_Secret.strName;
    ASSERT_TRUE(Populate("<?oasis-xml-catalog catalog=\"http://127.0.0.1:1/a\"?><?xml-stylesheet href=\"http://127.0.0.1:1/a\"?>" +
                         Device(strInclude + "\" i=\"1\" v=\"2\" e=\"3\">" + strInclude + "\"/></xi:include>")));
    EXPECT_EQ("1|2|3", All(m_Reader.get_at(1)));
    EXPECT_FALSE(Validate(SCHEMA_FILE));
    EXPECT_THAT(loader.asked, IsEmpty());
}
