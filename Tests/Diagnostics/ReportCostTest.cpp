#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Diagnostics/CaughtReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libxml/parserInternals.h>

#include <string>
#include <vector>

namespace
{

using namespace Support;
using testing::HasSubstr;

const std::string c_strAttributes = "an element with more than 256 attributes is not allowed";
const std::string c_strNamespaces = "an element with more than 64 declarations of namespaces at it and around it is not allowed";
const std::string c_strDeep = "an element with more than 256 elements around it is not allowed";
const std::string c_strName = "a name of more than 256 bytes is not allowed";

// So many different attributes.
std::string Attributes(int nCount, const std::string& strPrefix = "a", char cQuote = '"')
{
    std::string strAttributes;
    for (int nAttribute = 0; nAttribute < nCount; ++nAttribute)
    {
        strAttributes += " " + strPrefix + std::to_string(nAttribute) + "=" + cQuote + "v" + cQuote;
    }
    return strAttributes;
}

std::string Declarations(int nCount, const std::string& strPrefix = "n")
{
    return Attributes(nCount, "xmlns:" + strPrefix);
}

// A report with these attributes of its elements, in front of the format's own.
std::string With(const std::string& strRoot, const std::string& strDevice = "", const std::string& strParameter = "",
                 const std::string& strOther = "")
{
    return "<VORN" + strRoot + " version=\"1.0\"><DEV" + strDevice + " name=\"X\" id=\"12\"><p" + strParameter +
           " i=\"1\" v=\"2\" e=\"3\"><q" + strOther + "/></p></DEV></VORN>";
}

// A report with something else in a parameter.
std::string Inside(const std::string& strOther)
{
    return Device("<p i=\"1\" v=\"2\" e=\"3\">" + strOther + "</p>");
}

// As UTF-16, after its mark.
std::string Wide(const std::u16string& strText, bool bBig)
{
    std::string strWide = bBig ? "\xfe\xff" : "\xff\xfe";
    for (const char16_t c : strText)
    {
        const char cHigh = static_cast<char>(static_cast<unsigned char>(c >> 8));
        const char cLow = static_cast<char>(static_cast<unsigned char>(c & 0xff));
        strWide += bBig ? cHigh : cLow;
        strWide += bBig ? cLow : cHigh;
    }
    return strWide;
}

std::u16string Repeat16(const std::u16string& strText, int nTimes)
{
    std::u16string strAll;
    for (int nTime = 0; nTime < nTimes; ++nTime)
    {
        strAll += strText;
    }
    return strAll;
}

class CManyLevels
{
public:
    CManyLevels() : m_unBefore(xmlParserMaxDepth) { xmlParserMaxDepth = 100000; }
    ~CManyLevels() { xmlParserMaxDepth = m_unBefore; }

private:
    unsigned int m_unBefore;
};

class ReportCost : public CCaughtReader
{
protected:
    void ExpectRead(const std::string& strReport)
    {
        SCOPED_TRACE(strReport.substr(0, 200));
        EXPECT_TRUE(Populate(strReport));
        EXPECT_EQ("", m_strPrinted);
        EXPECT_EQ("", m_Reader.GetError());
        EXPECT_TRUE(Check(strReport));
    }

    void ExpectRefused(const std::string& strReport, const std::string& strError)
    {
        SCOPED_TRACE(strReport.substr(0, 200));
        ASSERT_TRUE(Populate(c_strGood));
        EXPECT_FALSE(Populate(strReport));
        EXPECT_EQ(c_strNull, m_strPrinted);
        EXPECT_EQ(strError, m_Reader.GetError());
        EXPECT_FALSE(Check(strReport));
        EXPECT_EQ(c_strNull, m_strPrinted);
        EXPECT_FALSE(m_Reader.HasSomeChildElements());
        EXPECT_FALSE(Validate(SCHEMA_FILE));
        EXPECT_EQ("7|1|2", All(m_Reader.get_at(7)));
        EXPECT_TRUE(Populate(c_strGood));
        EXPECT_EQ("", m_Reader.GetError());
        EXPECT_TRUE(Validate(SCHEMA_FILE));
    }

    // As an attribute's and as an element's, with all that may follow it.
    void ExpectName(const std::string& strName, bool bRead)
    {
        for (const std::string& strElement :
             {"<q " + strName + "=\"v\"/>", "<q\t" + strName + " = 'v'/>", "<q a='v' " + strName + "\n=\n\"v\"\n/>",
              "<" + strName + "/>", "<" + strName + "></" + strName + ">", "<" + strName + "\ta='v'/>", "<" + strName + "\r\n/>"})
        {
            bRead ? ExpectRead(Inside(strElement)) : ExpectRefused(Inside(strElement), "line 1: " + c_strName);
        }
    }
};

} // namespace

TEST_F(ReportCost, HasItsLimits)
{
    EXPECT_EQ(256, diagnostics_xml_reader::c_nAttributeLimit);
    EXPECT_EQ(64, diagnostics_xml_reader::c_nNamespaceLimit);
    EXPECT_EQ(256, diagnostics_xml_reader::c_nDepthLimit);
    EXPECT_EQ(256, diagnostics_xml_reader::c_nNameLimit);
}

// ---- Attributes ---------------------------------------------------------------------------------------------------------------

TEST_F(ReportCost, AllowsAnElement256Attributes)
{
    ExpectRead(With(Attributes(255)));
    ExpectRead(With("", Attributes(254)));
    ExpectRead(With("", "", Attributes(253)));
    ExpectRead(With("", "", "", Attributes(256, "a", '\'')));
    ExpectRead(With(Attributes(255), Attributes(254), Attributes(253), Attributes(256)));
    ExpectRefused(With(Attributes(256)), "line 1: " + c_strAttributes);
    ExpectRefused(With("", Attributes(255)), "line 1: " + c_strAttributes);
    ExpectRefused(With("", "", Attributes(254)), "line 1: " + c_strAttributes);
    ExpectRefused(With("", "", "", Attributes(257, "a", '\'')), "line 1: " + c_strAttributes);
    ExpectRefused(With("", "", "", Attributes(10000)), "line 1: " + c_strAttributes);
}

TEST_F(ReportCost, CountsAnElementsDeclarationsAsAttributes)
{
    ExpectRead(With(Declarations(60) + Attributes(195)));
    ExpectRead(With("", "", "", Declarations(1) + Attributes(255, "n0:a")));
    ExpectRefused(With(Declarations(60) + Attributes(196)), "line 1: " + c_strAttributes);
    ExpectRefused(With("", "", "", Declarations(1) + Attributes(256, "n0:a")), "line 1: " + c_strAttributes);
    ExpectRefused(With("", "", "", Declarations(5000)), "line 1: " + c_strAttributes);
}

TEST_F(ReportCost, CountsAttributesWhoseNamespaceIsUnknown)
{
    EXPECT_TRUE(Populate(With("", "", "", Attributes(256, "x:a")))) << "it is XML all the same";
    EXPECT_THAT(m_Reader.GetError(), HasSubstr("prefix x"));
    ExpectRefused(With("", "", "", Attributes(257, "x:a")), "line 1: " + c_strAttributes);
}

TEST_F(ReportCost, HasTheLineOfTheElement)
{
    ExpectRefused("\n" + With("\n") + "\n<!--\n-->\n<" + "q" + Attributes(257) + "/>", "line 6: " + c_strAttributes);
}

TEST_F(ReportCost, FindsNoAttributesInValuesAndText)
{
    const std::string strMany = Attributes(8000, "a", '\'') + ">= a=b / " + Attributes(1000, "a", '\'');
    ExpectRead(Device(P(1, strMany)));
    EXPECT_EQ("1|" + strMany + "|0", All(m_Reader.get_at(1)));
    ExpectRead(Device("<p i='1' v='" + Attributes(8000) + "' e='" + Attributes(1000) + "'/>" + Attributes(1000) + P(2)));
    ExpectRead(Device("<!--" + Attributes(1000) + "--><?a" + Attributes(1000) + "?><![CDATA[" + Attributes(1000) + "]]>" + P(1)));
}

// ---- Namespaces ---------------------------------------------------------------------------------------------------------------

TEST_F(ReportCost, Allows64DeclarationsAtAnElementAndAroundIt)
{
    ExpectRead(With(Declarations(64)));
    ExpectRead(With("", "", "", Declarations(63) + " xmlns='u'"));
    ExpectRead(With(Declarations(16), Declarations(16, "o"), Declarations(16, "p"), Declarations(16)));
    ExpectRefused(With(Declarations(65)), "line 1: " + c_strNamespaces);
    ExpectRefused(With("", "", "", Declarations(64) + " xmlns='u'"), "line 1: " + c_strNamespaces);
    ExpectRefused(With(Declarations(16), Declarations(16, "o"), Declarations(16, "p"), Declarations(17)),
                  "line 1: " + c_strNamespaces);
    ExpectRefused(With(Declarations(64) + "\n", "", "", " xmlns=''"), "line 2: " + c_strNamespaces);
}

TEST_F(ReportCost, AllowsDeclarationsSideBySide)
{
    std::string strParameters;
    for (int nParameter = 0; nParameter < 3000; ++nParameter)
    {
        strParameters += "<p xmlns='u" + std::to_string(nParameter) + "' i='" + std::to_string(nParameter) + "' v='' e=''/>";
    }
    ExpectRead(Device(strParameters));
    EXPECT_EQ(3000u, m_Reader.GetMap().size());
}

TEST_F(ReportCost, TellsOfItsLimitAndNotOfWhatWasWrongBefore)
{
    ExpectRefused(With(" x:a=''", Declarations(65)), "line 1: " + c_strNamespaces);
}

// ---- Names --------------------------------------------------------------------------------------------------------------------

TEST_F(ReportCost, AllowsANameOf256Bytes)
{
    ExpectName(std::string(256, 'n'), true);
    ExpectName(std::string(257, 'n'), false);
    ExpectName(Repeat("\xc3\xa9", 128), true);
    ExpectName(Repeat("\xc3\xa9", 128) + "n", false);
    ExpectName(std::string(48000, 'n'), false);
}

TEST_F(ReportCost, CountsThePrefixOfAName)
{
    const std::string strPrefix(100, 'n');
    const std::string strDeclaration = "<r xmlns:" + strPrefix + "='u'>";
    for (const char* szBefore : {"<", "<q "})
    {
        const std::string strAfter = szBefore[1] == 'q' ? "='v'/></r>" : "/></r>";
        ExpectRead(Inside(strDeclaration + szBefore + strPrefix + ":" + std::string(155, 'l') + strAfter));
        ExpectRefused(Inside(strDeclaration + szBefore + strPrefix + ":" + std::string(156, 'l') + strAfter),
                      "line 1: " + c_strName);
    }
    ExpectRead(With(" xmlns:" + std::string(250, 'n') + "='u'"));
    ExpectRefused(With(" xmlns:" + std::string(251, 'n') + "='u'"), "line 1: " + c_strName);
}

TEST_F(ReportCost, AllowsANamespaceOf256Bytes)
{
    for (const char* szAttribute : {" xmlns='", " xmlns:x='"})
    {
        for (const int nElement : {0, 1, 2, 3})
        {
            std::string astrAttributes[4];
            astrAttributes[nElement] = szAttribute + Repeat("\xc3\xa9", 128) + "'";
            EXPECT_TRUE(Populate(With(astrAttributes[0], astrAttributes[1], astrAttributes[2], astrAttributes[3])));
            astrAttributes[nElement] = szAttribute + std::string(256, 'u') + "'";
            ExpectRead(With(astrAttributes[0], astrAttributes[1], astrAttributes[2], astrAttributes[3]));
            for (const std::string& strLong : {std::string(257, 'u'), std::string(32000, 'u'), Repeat("\xc3\xa9", 129)})
            {
                astrAttributes[nElement] = szAttribute + strLong + "'";
                ExpectRefused(With(astrAttributes[0], astrAttributes[1], astrAttributes[2], astrAttributes[3]),
                              "line 1: " + c_strName);
            }
        }
    }
}

TEST_F(ReportCost, LimitsNoValueTextOrComment)
{
    const std::string strLong(65000, 'n');
    ExpectRead(Device(P(1, strLong)));
    EXPECT_EQ("1|" + strLong + "|0", All(m_Reader.get_at(1)));
    ExpectRead(Device(P(1) + strLong));
    ExpectRead(Device(P(1) + "<!--" + strLong + "-->"));
    ExpectRead(Device(P(1) + "<?a " + strLong + "?>"));
    ExpectRead(Device(P(1) + "<![CDATA[" + strLong + "]]>"));
    ExpectRead("<VORN><DEV id='1' name='" + strLong + "'>" + P(1) + "</DEV></VORN>");
}

// ---- Depth --------------------------------------------------------------------------------------------------------------------

TEST_F(ReportCost, Allows256ElementsAroundOne)
{
    const auto Nested = [](int nAround) { return Inside(Repeat("<q>", nAround - 3) + "<r/>" + Repeat("</q>", nAround - 3)); };
    ExpectRead(Nested(256));
    EXPECT_FALSE(Populate(Nested(257)));
    EXPECT_EQ(c_strNull, m_strPrinted);
    EXPECT_THAT(m_Reader.GetError(), HasSubstr("depth in document: 256"));
    const CManyLevels levels;
    ExpectRead(Nested(256));
    ExpectRefused(Nested(257), "line 1: " + c_strDeep);
    ExpectRefused(Nested(5000), "line 1: " + c_strDeep);
}

// ---- Where elements may hide --------------------------------------------------------------------------------------------------

TEST_F(ReportCost, IsLimitedInOtherEncodings)
{
    const std::u16string strStart = u"<VORN><DEV name='X' id='1'><p i='1' v='2' e='3'>";
    const std::u16string strEnd = u"</p></DEV></VORN>";
    const auto Element = [&](const std::u16string& strInside) { return strStart + u"\n<" + strInside + u"/>" + strEnd; };
    const auto Attributes16 = [](int nCount)
    {
        const std::string strAttributes = Attributes(nCount);
        return u"q" + std::u16string(strAttributes.begin(), strAttributes.end());
    };
    for (const bool bBig : {false, true})
    {
        ExpectRead(Wide(Element(Attributes16(256)), bBig));
        ExpectRefused(Wide(Element(Attributes16(257)), bBig), "line 2: " + c_strAttributes);
        ExpectRefused(Wide(u"<?xml version='1.0'?>" + Element(Attributes16(257)), bBig).substr(2), "line 2: " + c_strAttributes);
        for (const std::u16string& str256 :
             {Repeat16(u"n", 256), Repeat16(u"\u00e9", 128), Repeat16(u"\u3042", 85) + u"n", Repeat16(u"\U00010000", 64)})
        {
            ExpectRead(Wide(Element(str256), bBig));
            ExpectRefused(Wide(Element(str256 + u"n"), bBig), "line 2: " + c_strName);
        }
        ExpectRead(Wide(Element(u"q a='" + Repeat16(u"\u3c3c\u2222\u3e3e", 9000) + u"'"), bBig)); // no "<" in other characters
    }
    ExpectRefused("\xef\xbb\xbf" + With(Attributes(256)), "line 1: " + c_strAttributes);
}

TEST_F(ReportCost, IsLimitedBehindMistakes)
{
    const std::string strMany = "<q" + Attributes(257) + "/>";
    for (const char* szMistake : {"&unknown;", "&",         "]]>",    "\x01", "\xff",    "</x>",        "<x",
                                  "<x a",      "<x a=",     "<x a='", "<x '", "<x \"'",  "<!x",         "<!--",
                                  "<!-- -- ",  "<![CDATA[", "<?",     "<?a",  "<?xml?>", "<!DOCTYPE x", "<!DOCTYPE x [ <!--"})
    {
        ExpectRefused(Device(P(1) + szMistake + strMany), "line 1: " + c_strAttributes);
        ExpectRefused(Device(P(1) + szMistake + ">" + strMany), "line 1: " + c_strAttributes);
        ExpectRefused(szMistake + Device(strMany), "line 1: " + c_strAttributes);
    }
    ExpectRefused(Device(P(1) + "<!--" + strMany + "-->"), "line 1: " + c_strAttributes);
    ExpectRefused(Device(P(1) + "<![CDATA[" + strMany + "]]>"), "line 1: " + c_strAttributes);
}

// ---- What is not limited ------------------------------------------------------------------------------------------------------

TEST_F(ReportCost, IsNoneOfAReportsInTheFormat)
{
    std::string strAny;
    for (int nCharacter = ' '; nCharacter < 127; ++nCharacter)
    {
        strAny += std::string("\"<&").find(static_cast<char>(nCharacter)) == std::string::npos
                      ? std::string(1, static_cast<char>(nCharacter))
                      : std::string();
    }
    for (const int nParameters : {1, 149, 3000, 50000})
    {
        m_Reader.ClearMap();
        std::string strParameters;
        for (int nParameter = 0; nParameter < nParameters; ++nParameter)
        {
            strParameters += P(nParameter, nParameters == 149 ? Repeat(strAny, 4) : strAny);
        }
        ExpectRead("<?xml version=\"1.0\"?>" + Device(strParameters));
        EXPECT_EQ(static_cast<std::size_t>(nParameters), m_Reader.GetMap().size());
        EXPECT_EQ("0|" + (nParameters == 149 ? Repeat(strAny, 4) : strAny) + "|0", All(m_Reader.get_at(0)));
        EXPECT_TRUE(Validate(SCHEMA_FILE)) << m_Reader.GetError();
    }
}

TEST_F(ReportCost, IsNoneOfAReportsWithMoreInIt)
{
    const std::string strDevice = "<DEV xmlns=\"urn:a\" name=\"X\" id=\"1\" a=\"\" y:b=\"\" xml:lang=\"en\">";
    const std::string strMore = "<q><r s=\"t\"/>text &amp; more</q><!-- a < b, \"c\" --><?d e=\"f\"?><![CDATA[<g h='i'>]]>";
    std::string strParameters;
    for (int nParameter = 0; nParameter < 149; ++nParameter)
    {
        strParameters += "\n  <y:p xmlns:z=\"urn:z\" z:a=\"b\" c='\"' i=\"" + std::to_string(nParameter) + "\" v=\"=\" e='>'>" +
                         strMore + "</y:p>";
    }
    ExpectRead("<?xml version=\"1.0\"?>\n<!-- a -->\n<VORN xmlns:y=\"http://y.org/y\" version=\"1.0\">\n" + strDevice +
               strParameters + "</DEV>\n</VORN>");
    EXPECT_EQ(149u, m_Reader.GetMap().size());
    EXPECT_EQ("148|=|>", All(m_Reader.get_at(148)));
}
