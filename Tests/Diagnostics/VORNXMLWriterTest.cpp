#include "Diagnostics/VORNXMLWriter.h"

#include "Support/Locales.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <locale>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace
{

static_assert(std::is_same<decltype(VORNXMLWriter::m_strDocument), std::string>::value, "read directly");

const char* const c_szX7 = R"(<?xml version="1.0"?><VORN version="1.0"><DEV name="X" id="7"></DEV></VORN>)";

std::string Report(const std::string& strParameters, const std::string& strName = "X", const std::string& strId = "7")
{
    return R"(<?xml version="1.0"?><VORN version="1.0"><DEV name=")" + strName + R"(" id=")" + strId + R"(">)" + strParameters +
           "</DEV></VORN>";
}

std::string Parameter(const std::string& strI, const std::string& strV, const std::string& strE)
{
    return R"(<p i=")" + strI + R"(" v=")" + strV + R"(" e=")" + strE + R"("/>)";
}

// The report of a device after one add_attribute.
template <class... Arguments>
std::string After(Arguments... arguments)
{
    VORNXMLWriter writer;
    writer.start_xml("1.0", "X", "7");
    writer.add_attribute(arguments...);
    return writer.m_strDocument;
}

XMLDiagnostics::XML_NODE_TYPE NodeType(int nType)
{
    return static_cast<XMLDiagnostics::XML_NODE_TYPE>(nType);
}

} // namespace

TEST(VORNXMLWriter, HoldsNothingAtFirst)
{
    const VORNXMLWriter writer;
    EXPECT_EQ(writer.m_strDocument, "");
}

TEST(VORNXMLWriter, StartsAReportOfANamedDevice)
{
    VORNXMLWriter writer;
    writer.start_xml("1.0", "X", "7");
    EXPECT_EQ(writer.m_strDocument, c_szX7);
}

TEST(VORNXMLWriter, StartsAReportOfANodeType)
{
    VORNXMLWriter writer;
    writer.start_xml("1.0", XMLDiagnostics::XNT_SURFACE, 3);
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version="1.0"><DEV name="SURFACE" id="3"></DEV></VORN>)");
    writer.start_xml("1.0", XMLDiagnostics::XNT_SURFACE, "three");
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version="1.0"><DEV name="SURFACE" id="three"></DEV></VORN>)");
    writer.start_xml("1.0", NodeType(0), 1);
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version="1.0"><DEV name="UNKNOWN" id="1"></DEV></VORN>)");
}

TEST(VORNXMLWriter, NamesEveryNodeType)
{
    VORNXMLWriter writer;
    for (int nType = 0; nType < 26; ++nType)
    {
        const std::string strExpected = Report("", XMLDiagnostics::XNODE_TYPE_DESCRIPTION[nType].name, "12");
        writer.start_xml("1.0", NodeType(nType), 12);
        EXPECT_EQ(writer.m_strDocument, strExpected);
        writer.start_xml("1.0", NodeType(nType), "12");
        EXPECT_EQ(writer.m_strDocument, strExpected);
    }
    writer.start_xml("1.0", NodeType(19), 12);
    EXPECT_EQ(writer.m_strDocument, Report("", "Condor Router AES50 Port", "12"));
    writer.start_xml("1.0", NodeType(15), 12);
    EXPECT_EQ(writer.m_strDocument, Report("", "IOBOX", "12"));
}

TEST(VORNXMLWriter, NamesNodeTypesThatDoNotExistUnknown)
{
    VORNXMLWriter writer;
    for (const int nType : {INT_MIN, -1, 26, 27, 1000, INT_MAX})
    {
        writer.start_xml("1.0", NodeType(nType), 12);
        EXPECT_EQ(writer.m_strDocument, Report("", "UNKNOWN", "12")) << nType;
        writer.start_xml("1.0", NodeType(nType), "twelve");
        EXPECT_EQ(writer.m_strDocument, Report("", "UNKNOWN", "twelve")) << nType;
    }
}

TEST(VORNXMLWriter, WritesTheDeviceIdInDecimal)
{
    VORNXMLWriter writer;
    for (const int nId : {0, -1, 1234567, INT_MAX, INT_MIN})
    {
        writer.start_xml("1.0", XMLDiagnostics::XNT_GUI, nId);
        EXPECT_EQ(writer.m_strDocument, Report("", "GUI", std::to_string(nId)));
    }
}

TEST(VORNXMLWriter, TakesTheVersionFromItsCaller)
{
    VORNXMLWriter writer;
    writer.start_xml("2.1-b", "", "");
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version="2.1-b"><DEV name="" id=""></DEV></VORN>)");
    writer.start_xml(XMLDiagnostics::c_strFormatVersion.c_str(), "X", "7");
    EXPECT_EQ(writer.m_strDocument, c_szX7);
}

TEST(VORNXMLWriter, AppendsParametersInTheOrderOfTheCalls)
{
    VORNXMLWriter writer;
    writer.start_xml("1.0", XMLDiagnostics::XNT_SURFACE, 3);
    writer.add_attribute(0, 1234, 0, nullptr);
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version="1.0"><DEV name="SURFACE" id="3">)"
                                    R"(<p i="0" v="1234" e="0"/></DEV></VORN>)");
    writer.add_attribute(1, 0, 0, nullptr);
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version="1.0"><DEV name="SURFACE" id="3">)"
                                    R"(<p i="0" v="1234" e="0"/><p i="1" v="0" e="0"/></DEV></VORN>)");
    writer.add_attribute("0", "again", "2", nullptr);
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version="1.0"><DEV name="SURFACE" id="3">)"
                                    R"(<p i="0" v="1234" e="0"/><p i="1" v="0" e="0"/><p i="0" v="again" e="2"/></DEV></VORN>)");
}

TEST(VORNXMLWriter, TakesTextsAndNumbers)
{
    EXPECT_EQ(After("a", "b", "c", "x"), Report(R"(<p i="a" v="b" e="c"/>)"));
    EXPECT_EQ(After(-1, "b", "c", "x"), Report(R"(<p i="-1" v="b" e="c"/>)"));
    EXPECT_EQ(After(-1, "b", -3, "x"), Report(R"(<p i="-1" v="b" e="-3"/>)"));
    EXPECT_EQ(After(-1, -2, -3, "x"), Report(R"(<p i="-1" v="-2" e="-3"/>)"));
    EXPECT_EQ(After("a", -2, -3, "x"), Report(R"(<p i="a" v="-2" e="-3"/>)"));
    EXPECT_EQ(After("a", "b", -3, "x"), Report(R"(<p i="a" v="b" e="-3"/>)"));
    EXPECT_EQ(After("a", 1234.5f, -3, "x"), Report(R"(<p i="a" v="1.23e+03" e="-3"/>)"));
    EXPECT_EQ(After(-1, 1234.5f, -3, "x"), Report(R"(<p i="-1" v="1.23e+03" e="-3"/>)"));
}

TEST(VORNXMLWriter, IgnoresTheFourthArgument)
{
    const char* const szNull = nullptr;
    for (const char* szIgnored : {szNull, "", "label", "</DEV>", "\"<&"})
    {
        EXPECT_EQ(After("1", "2", "3", szIgnored), Report(Parameter("1", "2", "3")));
        EXPECT_EQ(After(1, "2", "3", szIgnored), Report(Parameter("1", "2", "3")));
        EXPECT_EQ(After(1, "2", 3, szIgnored), Report(Parameter("1", "2", "3")));
        EXPECT_EQ(After(1, 2, 3, szIgnored), Report(Parameter("1", "2", "3")));
        EXPECT_EQ(After("1", 2, 3, szIgnored), Report(Parameter("1", "2", "3")));
        EXPECT_EQ(After("1", "2", 3, szIgnored), Report(Parameter("1", "2", "3")));
        EXPECT_EQ(After("1", 2.0f, 3, szIgnored), Report(Parameter("1", "2", "3")));
        EXPECT_EQ(After(1, 2.0f, 3, szIgnored), Report(Parameter("1", "2", "3")));
    }
}

TEST(VORNXMLWriter, WritesIntsWhole)
{
    EXPECT_EQ(After(INT_MAX, INT_MIN, 1234567, nullptr), Report(R"(<p i="2147483647" v="-2147483648" e="1234567"/>)"));
    EXPECT_EQ(After("i", INT_MAX, INT_MIN, nullptr), Report(R"(<p i="i" v="2147483647" e="-2147483648"/>)"));
}

TEST(VORNXMLWriter, WritesFloatsWithThreeDigits)
{
    const std::pair<float, const char*> aCases[] = {
        {12.345f, "12.3"}, {1234.5f, "1.23e+03"},  {-0.25f, "-0.25"},  {0.5f, "0.5"},
        {48.0f, "48"},     {0.000012f, "1.2e-05"}, {1000.0f, "1e+03"}, {std::numeric_limits<float>::infinity(), "inf"}};
    for (const auto& [fValue, szText] : aCases)
    {
        EXPECT_EQ(After(5, fValue, 0, nullptr), Report(Parameter("5", szText, "0")));
        EXPECT_EQ(After("5", fValue, 0, nullptr), Report(Parameter("5", szText, "0")));
    }
}

TEST(VORNXMLWriter, DiscardsTheReportBefore)
{
    VORNXMLWriter writer;
    writer.start_xml("1.0", XMLDiagnostics::XNT_KESTREL, 123456);
    writer.add_attribute(1, 2, 3, nullptr);
    writer.add_attribute(4, 5, 6, nullptr);
    writer.start_xml("1.0", "X", "7");
    EXPECT_EQ(writer.m_strDocument, c_szX7);
    writer.add_attribute(7, 8, 9, nullptr);
    EXPECT_EQ(writer.m_strDocument, Report(R"(<p i="7" v="8" e="9"/>)"));
}

TEST(VORNXMLWriter, RefusesParametersBeforeTheStart)
{
    VORNXMLWriter writer;
    EXPECT_THROW(writer.add_attribute("1", "2", "3", nullptr), std::out_of_range);
    EXPECT_THROW(writer.add_attribute(1, "2", "3", nullptr), std::out_of_range);
    EXPECT_THROW(writer.add_attribute(1, "2", 3, nullptr), std::out_of_range);
    EXPECT_THROW(writer.add_attribute(1, 2, 3, nullptr), std::out_of_range);
    EXPECT_THROW(writer.add_attribute("1", 2, 3, nullptr), std::out_of_range);
    EXPECT_THROW(writer.add_attribute("1", "2", 3, nullptr), std::out_of_range);
    EXPECT_THROW(writer.add_attribute("1", 2.0f, 3, nullptr), std::out_of_range);
    EXPECT_THROW(writer.add_attribute(1, 2.0f, 3, nullptr), std::out_of_range);
    EXPECT_EQ(writer.m_strDocument, "");
}

TEST(VORNXMLWriter, RefusesParametersWithoutADeviceAndWorksOn)
{
    VORNXMLWriter writer;
    for (const std::string strOther : {"<VORN></VORN>", "</DEV", "</dev>", "< /DEV>", "a text longer than any index found before"})
    {
        writer.m_strDocument = strOther;
        EXPECT_THROW(writer.add_attribute(1, 2, 3, nullptr), std::out_of_range);
        EXPECT_EQ(writer.m_strDocument, strOther);
    }
    writer.start_xml("1.0", "X", "7");
    writer.add_attribute(1, 2, 3, nullptr);
    EXPECT_EQ(writer.m_strDocument, Report(Parameter("1", "2", "3")));
    writer.m_strDocument.clear();
    EXPECT_THROW(writer.add_attribute(1, 2, 3, nullptr), std::out_of_range);
    EXPECT_EQ(writer.m_strDocument, "");
}

TEST(VORNXMLWriter, InsertsInFrontOfTheFirstEndOfADeviceWhereverItStands)
{
    VORNXMLWriter writer;
    writer.m_strDocument = "ab</DEV>cd</DEV>";
    writer.add_attribute(1, 2, 3, nullptr);
    EXPECT_EQ(writer.m_strDocument, R"(ab<p i="1" v="2" e="3"/></DEV>cd</DEV>)");

    writer.start_xml("1.0", "a</DEV>b", "7");
    writer.add_attribute(1, 2, 3, nullptr);
    EXPECT_EQ(writer.m_strDocument, Report("", R"(a<p i="1" v="2" e="3"/></DEV>b)"));

    writer.start_xml("1.0", "X", "7");
    writer.add_attribute(1, "</DEV>", "3", nullptr);
    writer.add_attribute(4, 5, 6, nullptr);
    EXPECT_EQ(writer.m_strDocument, Report(R"(<p i="1" v="<p i="4" v="5" e="6"/></DEV>" e="3"/>)"));
}

TEST(VORNXMLWriter, EscapesNothing)
{
    EXPECT_EQ(After("a&b", "\"<>'\n", "\xc3\xa9", nullptr), Report(Parameter("a&b", "\"<>'\n", "\xc3\xa9")));
    VORNXMLWriter writer;
    writer.start_xml("&", "<", "\"");
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version="&"><DEV name="<" id="""></DEV></VORN>)");
}

TEST(VORNXMLWriter, CountsNullTextsAsEmpty)
{
    const char* const szNull = nullptr;
    EXPECT_EQ(After(szNull, szNull, szNull, szNull), Report(Parameter("", "", "")));
    EXPECT_EQ(After(1, szNull, szNull, szNull), Report(Parameter("1", "", "")));
    EXPECT_EQ(After(1, szNull, 3, szNull), Report(Parameter("1", "", "3")));
    EXPECT_EQ(After(szNull, 2, 3, szNull), Report(Parameter("", "2", "3")));
    EXPECT_EQ(After(szNull, 0.5f, 3, szNull), Report(Parameter("", "0.5", "3")));
    EXPECT_EQ(After("1", szNull, "3", szNull), Report(Parameter("1", "", "3")));
    VORNXMLWriter writer;
    writer.start_xml(szNull, szNull, szNull);
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version=""><DEV name="" id=""></DEV></VORN>)");
    writer.start_xml(szNull, XMLDiagnostics::XNT_MC, szNull);
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version=""><DEV name="MC" id=""></DEV></VORN>)");
    writer.start_xml(szNull, XMLDiagnostics::XNT_MC, 4);
    EXPECT_EQ(writer.m_strDocument, R"(<?xml version="1.0"?><VORN version=""><DEV name="MC" id="4"></DEV></VORN>)");
}

TEST(VORNXMLWriter, WritesAllParametersOfADeviceInOrder)
{
    VORNXMLWriter writer;
    writer.start_xml("1.0", "X", "7");
    std::string strParameters;
    for (int nParam = 0; nParam < 149; ++nParam)
    {
        writer.add_attribute(nParam, nParam * -1000, nParam % 2, XMLDiagnosticsParametersDSP::strName[nParam]);
        strParameters += Parameter(std::to_string(nParam), std::to_string(nParam * -1000), std::to_string(nParam % 2));
    }
    EXPECT_EQ(writer.m_strDocument, Report(strParameters));
}

TEST(VORNXMLWriter, TakesLongTexts)
{
    const std::string strLong(100000, 'v');
    EXPECT_EQ(After(strLong.c_str(), strLong.c_str(), strLong.c_str(), nullptr), Report(Parameter(strLong, strLong, strLong)));
}

TEST(VORNXMLWriter, WritesTheSameUnderAnyGlobalLocale)
{
    const Support::CGlobalLocale locale;
    VORNXMLWriter writer;
    writer.start_xml("1.0", XMLDiagnostics::XNT_GUI, 1234567);
    writer.add_attribute(1234567, 2345678, -3456789, nullptr);
    writer.add_attribute(1000, 12.345f, 4000, nullptr);
    writer.add_attribute("i", 1234.5f, 4000, nullptr);
    EXPECT_EQ(writer.m_strDocument, Report(R"(<p i="1234567" v="2345678" e="-3456789"/><p i="1000" v="12.3" e="4000"/>)"
                                           R"(<p i="i" v="1.23e+03" e="4000"/>)",
                                           "GUI", "1234567"));
}

TEST(VORNXMLWriter, IsDestroyedThroughItsBase)
{
    class CReport : public VORNXMLWriter
    {
    public:
        explicit CReport(bool& bGone) : m_bGone(bGone) {}
        ~CReport() override { m_bGone = true; }

    private:
        bool& m_bGone;
    };
    bool bGone = false;
    std::unique_ptr<VORNXMLWriter> pWriter = std::make_unique<CReport>(bGone);
    pWriter->start_xml("1.0", "X", "7");
    pWriter.reset();
    EXPECT_TRUE(bGone);
}
