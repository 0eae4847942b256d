#include "Diagnostics/XMLDiagnostics.h"

#include "Support/Locales.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <iterator>
#include <limits>
#include <locale>
#include <map>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using XMLDiagnostics::float2String;
using XMLDiagnostics::int2String;
using XMLDiagnostics::string2Float;
using XMLDiagnostics::string2Int;
using XMLDiagnostics::XMLElement;
using XMLDiagnosticsParametersDSP::strName;

namespace
{

constexpr float c_fInfinity = std::numeric_limits<float>::infinity();
constexpr float c_fSmallest = std::numeric_limits<float>::denorm_min();

static_assert(sizeof(XMLDiagnostics::XML_NODE_TYPE) == 4 && sizeof(XMLDiagnostics::XML_ATTRIBUTE_TYPE) == 4, "32 bits");
static_assert(std::is_same<decltype(XMLDiagnosticsParametersDSP::strName), const char* const[150]>::value, "150 slots");
static_assert(XMLDiagnosticsParametersDSP::c_nNames == 150, "150 slots");

const char* const c_aszNodeTypes[] = {"UNKNOWN",
                                      "GUI",
                                      "SURFACE",
                                      "MC",
                                      "Plover",
                                      "Lark",
                                      "AMU",
                                      "ZLINK",
                                      "CONTROL1",
                                      "CONTROL2",
                                      "CONTROL3",
                                      "EXTERNAL1",
                                      "EXTERNAL2",
                                      "SWITCHINTERLINK",
                                      "ROUTERINTERLINK",
                                      "IOBOX",
                                      "ROUTERCPU",
                                      "HeronBox",
                                      "GenericAES50",
                                      "Condor Router AES50 Port",
                                      "Falcon Router AES50 Port",
                                      "Kestrel",
                                      "FinchBox",
                                      "WrenBox",
                                      "Merlin",
                                      "Osprey"};

// The names of all parameters, in order, but for the last slot.
std::vector<std::string> Names()
{
    std::vector<std::string> names = {"enUpTime", "enGeneralMute"};
    const char* const aszEffects[] = {"en_fx_error_id_",
                                      "en_fx_process_exception_counter_",
                                      "en_fx_crunch_exception_counter_",
                                      "en_fx_link_port_rx_overrun_counter_",
                                      "en_fx_brick_overflow_counter_",
                                      "en_fx_dsp_local_temperature_"};
    const char* const aszMain[] = {"en_main_error_id_",
                                   "en_main_muted_",
                                   "en_main_crunch_fp_exception_counter_",
                                   "en_main_process_fp_exception_counter_",
                                   "en_main_link_port_rx_overrun_counter_",
                                   "en_main_brick_overflow_counter_",
                                   "en_main_dsp_local_temperature_"};
    for (int nDSP = 1; nDSP <= 10; ++nDSP)
    {
        for (const std::string strPrefix : aszEffects)
        {
            names.push_back(strPrefix + std::to_string(nDSP));
        }
    }
    names[2] = "en_fx_error_id_1 = en_fx_dsp_param_start";
    for (int nDSP = 1; nDSP <= 10; ++nDSP)
    {
        for (const std::string strPrefix : aszMain)
        {
            names.push_back(strPrefix + std::to_string(nDSP));
        }
    }
    for (const char* szName : {"enRoleNumber", "enRoleName", "enUDPState", "enUDPTimeouts", "enStartTime", "enMuteStatusenRail3v3",
                               "enRail5v", "enRail5v_STBY", "enRail_PlusVA", "enRail_Plus12V", "enRail_MinusVA", "enRail48V",
                               "enRailVCC_1V0", "enRailVCC_1V1", "enRailVCC_1V2", "enRailVCC_1V8", "enRailVCC_2V5"})
    {
        names.push_back(szName);
    }
    return names;
}

} // namespace

TEST(XMLDiagnostics, SharesItsConstants)
{
    EXPECT_EQ(XMLDiagnostics::c_strSchemaFile, "/opt/orvik/bin/xml_validation.xsd");
    EXPECT_EQ(XMLDiagnostics::c_strFormatVersion, "1.0");
    EXPECT_EQ(XMLDiagnostics::c_strMulticastGroup, "225.0.0.60");
}

TEST(XMLDiagnostics, NamesTheNodeTypesByValue)
{
    static_assert(std::size(XMLDiagnostics::XNODE_TYPE_DESCRIPTION) == 26 && std::size(c_aszNodeTypes) == 26, "0 to 25");
    static_assert(XMLDiagnostics::c_nXMLNodeTypes == 26, "0 to 25");
    for (int nType = 0; nType < 26; ++nType)
    {
        EXPECT_EQ(static_cast<int>(XMLDiagnostics::XNODE_TYPE_DESCRIPTION[nType].type), nType);
        EXPECT_EQ(XMLDiagnostics::XNODE_TYPE_DESCRIPTION[nType].name, c_aszNodeTypes[nType]);
    }
}

TEST(XMLDiagnostics, NumbersTheNodeTypes)
{
    EXPECT_EQ(static_cast<int>(XMLDiagnostics::XNT_UNKNOWN), 0);
    EXPECT_EQ(static_cast<int>(XMLDiagnostics::XNT_SURFACE), 2);
    EXPECT_EQ(static_cast<int>(XMLDiagnostics::XNT_IOBOX), 15);
    EXPECT_EQ(static_cast<int>(XMLDiagnostics::XNT_OSPREY_IO), 25);
}

TEST(XMLDiagnostics, NamesTheAttributesByValue)
{
    const char* const aszNames[] = {"i", "v", "e"};
    static_assert(std::size(XMLDiagnostics::XML_ATTRIBUTE_TYPE_DESCRIPTION) == 3, "three attributes");
    static_assert(XMLDiagnostics::c_nXMLAttributeTypes == 3, "three attributes");
    static_assert(XMLDiagnostics::XAT_I == 0 && XMLDiagnostics::XAT_V == 1 && XMLDiagnostics::XAT_E == 2, "in this order");
    for (int nType = 0; nType < 3; ++nType)
    {
        EXPECT_EQ(static_cast<int>(XMLDiagnostics::XML_ATTRIBUTE_TYPE_DESCRIPTION[nType].type), nType);
        EXPECT_EQ(XMLDiagnostics::XML_ATTRIBUTE_TYPE_DESCRIPTION[nType].name, aszNames[nType]);
    }
}

TEST(XMLElement, IsEmptyAtFirstAndHoldsThreeTextsInOrder)
{
    const XMLElement element;
    EXPECT_EQ(element.i + element.v + element.e, "");
    const XMLElement filled{"1", "2", "3"};
    EXPECT_EQ(filled.i, "1");
    EXPECT_EQ(filled.v, "2");
    EXPECT_EQ(filled.e, "3");
    static_assert(sizeof(XMLElement) == 3 * sizeof(std::string), "three texts and nothing else");
}

TEST(XMLElement, IsCopiedWhole)
{
    const std::string strLong(1000, 'v');
    const XMLElement element{"7", strLong, "-3"};
    XMLElement copy(element);
    XMLElement assigned{"a", "b", "c"};
    assigned = copy;
    copy.v = "changed";
    EXPECT_EQ(assigned.i, "7");
    EXPECT_EQ(assigned.v, strLong);
    EXPECT_EQ(assigned.e, "-3");
    EXPECT_EQ(element.v, strLong);
    const XMLElement& self = assigned;
    assigned = self;
    EXPECT_EQ(assigned.v, strLong);
}

TEST(XMLElement, IsMovedWhole)
{
    const std::string strLong(1000, 'e');
    XMLElement element{"7", "0", strLong};
    const char* pText = element.e.data();
    const XMLElement moved(std::move(element));
    EXPECT_EQ(moved.i + moved.v + moved.e, "70" + strLong);
    EXPECT_EQ(moved.e.data(), pText);
}

TEST(XMLElement, IsFiledInAMapByNumber)
{
    std::map<int, XMLElement> elements;
    elements[7] = XMLElement{"7", "1.5", "0"};
    EXPECT_EQ(elements[7].v, "1.5");
    EXPECT_EQ(elements[8].i + elements[8].v + elements[8].e, "");
}

TEST(DSPParameterNames, AreThoseOfTheProcesses)
{
    const std::vector<std::string> names = Names();
    ASSERT_EQ(names.size(), 149u);
    for (int nParam = 0; nParam < 149; ++nParam)
    {
        ASSERT_NE(strName[nParam], nullptr) << nParam;
        EXPECT_EQ(strName[nParam], names[static_cast<std::size_t>(nParam)]) << nParam;
        EXPECT_EQ(XMLDiagnosticsParametersDSP::GetName(nParam), strName[nParam]) << nParam;
    }
}

TEST(DSPParameterNames, KeepTheirOddEntries)
{
    EXPECT_STREQ(strName[2], "en_fx_error_id_1 = en_fx_dsp_param_start");
    EXPECT_STREQ(strName[8], "en_fx_error_id_2");
    EXPECT_STREQ(strName[61], "en_fx_dsp_local_temperature_10");
    EXPECT_STREQ(strName[62], "en_main_error_id_1");
    EXPECT_STREQ(strName[64], "en_main_crunch_fp_exception_counter_1");
    EXPECT_STREQ(strName[131], "en_main_dsp_local_temperature_10");
    EXPECT_STREQ(strName[137], "enMuteStatusenRail3v3");
    EXPECT_STREQ(strName[148], "enRailVCC_2V5");
    EXPECT_EQ(strName[149], nullptr);
}

TEST(DSPParameterNames, AreNullWhereThereIsNone)
{
    for (const int nParam : {INT_MIN, -150, -1, 149, 150, 151, INT_MAX})
    {
        EXPECT_EQ(XMLDiagnosticsParametersDSP::GetName(nParam), nullptr) << nParam;
    }
}

TEST(int2String, WritesPlainDecimals)
{
    EXPECT_EQ(int2String(0), "0");
    EXPECT_EQ(int2String(7), "7");
    EXPECT_EQ(int2String(-40), "-40");
    EXPECT_EQ(int2String(1234567), "1234567");
    EXPECT_EQ(int2String(INT_MAX), "2147483647");
    EXPECT_EQ(int2String(INT_MIN), "-2147483648");
}

TEST(float2String, WritesThreeSignificantDigits)
{
    const std::pair<float, const char*> aCases[] = {{1234.5f, "1.23e+03"},
                                                    {0.000012f, "1.2e-05"},
                                                    {3.0f, "3"},
                                                    {100.0f, "100"},
                                                    {1000.0f, "1e+03"},
                                                    {12.345f, "12.3"},
                                                    {0.5f, "0.5"},
                                                    {48.0f, "48"},
                                                    {-0.25f, "-0.25"},
                                                    {0.0f, "0"},
                                                    {-0.0f, "-0"},
                                                    {999.0f, "999"},
                                                    {999.4f, "999"},
                                                    {999.6f, "1e+03"},
                                                    {0.0001f, "0.0001"},
                                                    {0.00012345f, "0.000123"},
                                                    {0.00009f, "9e-05"},
                                                    {0.000099996f, "0.0001"},
                                                    {-1234.5f, "-1.23e+03"},
                                                    {10.0f, "10"},
                                                    {1e30f, "1e+30"},
                                                    {FLT_MAX, "3.4e+38"},
                                                    {-FLT_MAX, "-3.4e+38"},
                                                    {FLT_MIN, "1.18e-38"},
                                                    {1e-40f, "1e-40"},
                                                    {c_fSmallest, "1.4e-45"}};
    for (const auto& [fValue, szText] : aCases)
    {
        EXPECT_EQ(float2String(fValue, 3), szText);
    }
}

TEST(float2String, WritesWhatIsNoNumber)
{
    EXPECT_EQ(float2String(std::numeric_limits<float>::quiet_NaN(), 3), "nan");
    EXPECT_EQ(float2String(c_fInfinity, 3), "inf");
    EXPECT_EQ(float2String(-c_fInfinity, 3), "-inf");
    EXPECT_EQ(float2String(c_fInfinity, 0), "inf");
}

TEST(float2String, TakesAnyPrecision)
{
    EXPECT_EQ(float2String(1234.5f, 1), "1e+03");
    EXPECT_EQ(float2String(1234.5f, 4), "1234"); // a tie goes to the even digit
    EXPECT_EQ(float2String(1234.5f, 5), "1234.5");
    EXPECT_EQ(float2String(1234.5f, 32767), "1234.5");
    EXPECT_EQ(float2String(0.1f, 9), "0.100000001");
    EXPECT_EQ(float2String(0.1f, 100), "0.100000001490116119384765625");
    EXPECT_EQ(float2String(FLT_MAX, 39), "340282346638528859811704183484516925440");
    EXPECT_EQ(float2String(FLT_MAX, 38), "3.4028234663852885981170418348451692544e+38");
}

TEST(float2String, TakesPrecisionsThatAreNoneAsAStreamDoes)
{
    EXPECT_EQ(float2String(3.75f, 0), "4"); // as one digit
    EXPECT_EQ(float2String(1234.5f, 0), "1e+03");
    EXPECT_EQ(float2String(3.14159265f, -1), "3.14159"); // as six digits
    EXPECT_EQ(float2String(1234567.0f, -32768), "1.23457e+06");
}

TEST(float2String, SurvivesTheWayBack)
{
    for (const float fValue : {0.1f, -1234.5f, 1.0f / 3, 16777215.0f, FLT_MAX, -FLT_MAX, FLT_MIN, c_fSmallest, 0.0f})
    {
        EXPECT_EQ(string2Float(float2String(fValue, 9)), fValue);
        EXPECT_EQ(string2Float(float2String(fValue, 9).c_str()), fValue);
    }
    EXPECT_TRUE(std::signbit(string2Float(float2String(-0.0f, 3))));
}

TEST(string2Int, ReadsTheNumberAtTheStart)
{
    const std::pair<const char*, int> aCases[] = {{"12abc", 12},
                                                  {" 7", 7},
                                                  {"-40", -40},
                                                  {"+5", 5},
                                                  {"0", 0},
                                                  {"-0", 0},
                                                  {"007", 7},
                                                  {"010", 10},
                                                  {"0x10", 0},
                                                  {"1.9", 1},
                                                  {"1,234", 1},
                                                  {"1e3", 1},
                                                  {"12 34", 12},
                                                  {"12-3", 12},
                                                  {" \t\n\v\f\r-40 ", -40},
                                                  {"2147483647", INT_MAX},
                                                  {"-2147483648", INT_MIN},
                                                  {"00000000000000000000000042", 42}};
    for (const auto& [szText, nValue] : aCases)
    {
        EXPECT_EQ(string2Int(szText), nValue) << szText;
        EXPECT_EQ(string2Int(std::string(szText)), nValue) << szText;
    }
}

TEST(string2Int, IsZeroWhereNoNumberIsAtTheStart)
{
    for (const char* szText : {"", " ", "abc", "a1", "-", "+", "- 5", "--5", "+-5", ".5", ",1",
                               "\xa0"
                               "7",
                               "\xff"
                               "7",
                               "\"7\""})
    {
        EXPECT_EQ(string2Int(szText), 0) << szText;
        EXPECT_EQ(string2Int(std::string(szText)), 0) << szText;
    }
    EXPECT_EQ(string2Int(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(string2Int(std::string("1\0002", 3)), 1);
    EXPECT_EQ(string2Int(std::string("\0001", 2)), 0);
}

TEST(string2Int, IsTheNearestIntBeyondTheRange)
{
    for (const std::string strDigits : {"2147483649", "4294967297", "99999999999999999999999999"})
    {
        EXPECT_EQ(string2Int(strDigits), INT_MAX) << strDigits;
        EXPECT_EQ(string2Int(("-" + strDigits).c_str()), INT_MIN) << strDigits;
    }
    EXPECT_EQ(string2Int("2147483648"), INT_MAX);
    EXPECT_EQ(string2Int(std::string(5000, '9')), INT_MAX);
}

TEST(string2Float, ReadsTheNumberAtTheStart)
{
    const std::pair<const char*, float> aCases[] = {
        {"1.23e+03", 1230.0f}, {"1.2e-05", 1.2e-05f},     {"48", 48.0f},   {"-0.25", -0.25f}, {"+0.5", 0.5f},       {".5", 0.5f},
        {"5.", 5.0f},          {" \t\n\v\f\r2.5 ", 2.5f}, {"1E2", 100.0f}, {"12abc", 12.0f},  {"1.2.3", 1.2f},      {"1,5", 1.0f},
        {"1 2", 1.0f},         {"007.50", 7.5f},          {"0x10", 0.0f},  {"1f", 1.0f},      {"3.4e+38", 3.4e+38f}};
    for (const auto& [szText, fValue] : aCases)
    {
        EXPECT_EQ(string2Float(szText), fValue) << szText;
        EXPECT_EQ(string2Float(std::string(szText)), fValue) << szText;
    }
}

TEST(string2Float, IsZeroWhereNoNumberIsAtTheStart)
{
    for (const char* szText : {"", " ", "abc", "a1", "-", "+", ".", "- 5", "--5", "e5", ".e5", ",5", "nan", "inf",
                               "\xff"
                               "7"})
    {
        EXPECT_EQ(string2Float(szText), 0.0f) << szText;
        EXPECT_EQ(string2Float(std::string(szText)), 0.0f) << szText;
    }
    EXPECT_EQ(string2Float(static_cast<const char*>(nullptr)), 0.0f);
    EXPECT_EQ(string2Float(std::string("1.5\0007", 5)), 1.5f);
}

TEST(string2Float, ReadsNothingOfAnExponentWithoutDigits)
{
    for (const char* szText : {"1e", "1e+", "1ex", "2.5E-"})
    {
        EXPECT_EQ(string2Float(szText), 0.0f) << szText;
    }
    EXPECT_EQ(string2Float("1e5x"), 100000.0f);
    EXPECT_EQ(string2Float("2.5e0.5"), 2.5f);
}

TEST(string2Float, IsTheNearestFloatBeyondTheRange)
{
    EXPECT_EQ(string2Float("1e40"), FLT_MAX);
    EXPECT_EQ(string2Float("-1e40"), -FLT_MAX);
    EXPECT_EQ(string2Float("1e999999999999"), FLT_MAX);
    EXPECT_EQ(string2Float(std::string(5000, '9')), FLT_MAX);
    EXPECT_EQ(string2Float("1e-60"), 0.0f);
    EXPECT_EQ(string2Float("1.4e-45"), c_fSmallest);
}

TEST(XMLDiagnosticsLocale, ChangesNoTextThatIsWritten)
{
    const Support::CGlobalLocale locale;
    std::ostringstream stream;
    stream << 1234567;
    ASSERT_EQ(stream.str(), "1.234.567");
    EXPECT_EQ(int2String(1234567), "1234567");
    EXPECT_EQ(int2String(INT_MIN), "-2147483648");
    EXPECT_EQ(float2String(1234.5f, 3), "1.23e+03");
    EXPECT_EQ(float2String(12345.5f, 9), "12345.5");
    EXPECT_EQ(float2String(1234567.0f, 9), "1234567");
}

TEST(XMLDiagnosticsLocale, ChangesNoNumberThatIsRead)
{
    const Support::CGlobalLocale locale;
    std::istringstream stream("x1.234.567");
    int nValue = 0;
    stream >> nValue;
    ASSERT_EQ(nValue, 1234567);
    EXPECT_EQ(string2Int("1.234.567"), 1);
    EXPECT_EQ(string2Int(std::string(" 1234567")), 1234567);
    EXPECT_EQ(string2Int("x1"), 0);
    EXPECT_EQ(string2Float("0.5"), 0.5f);
    EXPECT_EQ(string2Float(std::string("1.234")), 1.234f);
    EXPECT_EQ(string2Float("1,5"), 1.0f);
}
