#include "Diagnostics/RouterDiagnostics.h"

#include "Support/Locales.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <iomanip>
#include <ios>
#include <iterator>
#include <locale>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace
{

using namespace RouterDiagnostics;

// 24 has no name in print.
const struct
{
    NodeType type;
    int nValue;
    const char* szText;
    const char* szDescription;
} c_aNodeTypes[] = {
    {NT_UNKNOWN, 0, "0 NT_UNKNOWN UNKNOWN", "UNKNOWN"},
    {NT_GUI, 1, "1 NT_GUI GUI", "GUI"},
    {NT_SURFACE, 2, "2 NT_SURFACE SURFACE", "SURFACE"},
    {NT_MC, 3, "3 NT_MC MC", "MC"},
    {NT_MIC_SPLIT, 4, "4 NT_MIC_SPLIT MICSPLIT", "MICSPLIT"},
    {NT_LINE_IO, 5, "5 NT_LINE_IO Lark", "Lark"},
    {NT_AMU, 6, "6 NT_AMU AMU", "AMU"},
    {NT_ZLINK, 7, "7 NT_ZLINK ZLINK", "ZLINK"},
    {NT_CONTROL1, 8, "8 NT_CONTROL1 CONTROL1", "CONTROL1"},
    {NT_CONTROL2, 9, "9 NT_CONTROL2 CONTROL2", "CONTROL2"},
    {NT_CONTROL3, 10, "10 NT_CONTROL3 CONTROL3", "CONTROL3"},
    {NT_EXTERNAL1, 11, "11 NT_EXTERNAL1 EXTERNAL1", "EXTERNAL1"},
    {NT_EXTERNAL2, 12, "12 NT_EXTERNAL2 EXTERNAL2", "EXTERNAL2"},
    {NT_SWITCHINTERLINK, 13, "13 NT_SWITCHINTERLINK SWITCHINTERLINK", "SWITCHINTERLINK"},
    {NT_ROUTERINTERLINK, 14, "14 NT_ROUTERINTERLINK ROUTERINTERLINK", "ROUTERINTERLINK"},
    {NT_IOBOX, 15, "15 NT_IOBOX IOBOX", "IOBOX"},
    {NT_CPU, 16, "16 NT_CPU ROUTERCPU", "ROUTERCPU"},
    {NT_HERONBOX_LINE_IO, 17, "17 NT_HERONBOX_LINE_IO HeronBox", "HeronBox"},
    {NT_GENERIC_AES50, 18, "18 NT_GENERIC_AES50 Generic AES50 Device", "Generic AES50 Device"},
    {NT_CONDORROUTER_AES50, 19, "19 NT_CONDORROUTER_AES50 Condor Router AES50 Port", "Condor Router AES50 Port"},
    {NT_FALCONROUTER_AES50, 20, "20 NT_FALCONROUTER_AES50 Falcon Router AES50 Port", "Falcon Router AES50 Port"},
    {NT_KESTREL, 21, "21 NT_KESTREL Kestrel", "Kestrel"},
    {NT_FINCHBOX_LINE_IO, 22, "22 NT_FINCHBOX_LINE_IO FinchBox", "FinchBox"},
    {NT_WRENBOX_LINE_IO, 23, "23 NT_WRENBOX_LINE_IO WrenBox", "WrenBox"},
    {static_cast<NodeType>(24), 24, "24 Unknown ?? Merlin", "Merlin"},
    {NT_OSPREY_IO, 25, "25 NT_OSPREY_IO Osprey", "Osprey"},
};

typedef std::map<int, std::string> tNames;

// The text for 2 is never closed.
const tNames c_Ports = {{0, "(PORT_X/A)"},       {1, "(PORT_Y/B)"},      {2, "(PORT_C"},         {3, "(PORT_D)"},
                        {20, "(PORTS_X_AND_Y)"}, {21, "(PORTS_A_TO_D)"}, {22, "(PORTS_A_TO_C)"}, {250, "(PORT_LOCAL_ROUTER)"}};
const tNames c_EthernetTypes = {{0, "(ETHERNET)"}, {1, "(AES50_ETHERNET_CONTROL)"}, {255, "(ETHERNET_TYPE_UNDETERMINATE)"}};
const tNames c_SplitterPorts = {{0, "(SPLITTER_PORT_A)"},
                                {1, "(SPLITTER_PORT_B)"},
                                {2, "(SPLITTER_PORT_A_AND_B)"},
                                {3, "(SPLITTER_PORT_NA)"},
                                {255, "(SPLITTER_PORT_ERROR)"}};

const std::ios::fmtflags c_aBases[] = {std::ios::dec, std::ios::hex, std::ios::oct, std::ios::fmtflags()};
const std::ios::fmtflags c_OtherFlags = std::ios::showbase | std::ios::uppercase | std::ios::left | std::ios::boolalpha;

template <class Value>
std::string Text(Value value)
{
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string Number(int nValue)
{
    return std::to_string(nValue);
}

// Each number that has a name, and a good many that have none.
template <class Value>
void ExpectNames(const tNames& names, const std::string& strOther)
{
    std::vector<int> values = {INT_MIN, INT_MIN + 1, -1000000, 65536, 0x01000000, INT_MAX - 1, INT_MAX};
    for (int nValue = -600; nValue <= 600; ++nValue)
    {
        values.push_back(nValue);
    }
    for (const int nValue : values)
    {
        const auto name = names.find(nValue);
        EXPECT_EQ(Text(static_cast<Value>(nValue)), Number(nValue) + (name == names.end() ? strOther : name->second));
    }
}

// The number is decimal whatever the stream is set to; the flags afterwards are those before, but for the base when that one is
// left in decimal.
template <class Value>
void ExpectDecimal(Value value, const std::string& strText, bool bLeavesDecimal)
{
    for (const std::ios::fmtflags base : c_aBases)
    {
        std::ostringstream text;
        text.fill('*');
        text.precision(3);
        text.flags(base | c_OtherFlags);
        text << value;
        EXPECT_EQ(text.str(), strText);
        EXPECT_EQ(text.flags(), (bLeavesDecimal ? std::ios::dec : base) | c_OtherFlags);
        EXPECT_EQ(text.fill(), '*');
        EXPECT_EQ(text.precision(), 3);
        EXPECT_EQ(text.width(), 0);
    }
}

// No separators in the number, and the stream keeps its locale.
template <class Value>
void ExpectNoSeparators(Value value, const std::string& strText)
{
    std::ostringstream text;
    const std::locale apart(std::locale::classic(), new Support::CEachDigitApart);
    text.imbue(apart);
    text << value;
    EXPECT_EQ(text.str(), strText);
    EXPECT_TRUE(text.getloc() == apart);
    text << ' ' << 123;
    EXPECT_EQ(text.str(), strText + " 1.2.3");
}

} // namespace

TEST(RouterNodeTypes, AreTheirNumberNameAndDescriptionInPrint)
{
    ASSERT_EQ(std::size(c_aNodeTypes), 26U);
    for (const auto& node : c_aNodeTypes)
    {
        EXPECT_EQ(static_cast<int>(node.type), node.nValue);
        EXPECT_EQ(Text(node.type), node.szText);
    }
}

TEST(RouterNodeTypes, HaveADescriptionAtTheirNumber)
{
    ASSERT_EQ(std::size(NODE_TYPE_DESCRIPTION), 26U);
    for (const auto& node : c_aNodeTypes)
    {
        EXPECT_EQ(NODE_TYPE_DESCRIPTION[node.nValue].type, node.type);
        EXPECT_EQ(NODE_TYPE_DESCRIPTION[node.nValue].description, node.szDescription);
    }
    EXPECT_TRUE((std::is_same<decltype(NODE_TYPE_DESCRIPTION[0].description), std::string>::value));
}

TEST(RouterNodeTypes, SayThatTheDescriptionIsWrongOutsideTheTable)
{
    for (const int nValue : {INT_MIN, -0x10000, -26, -25, -1, 26, 27, 255, 256, 0x10000, 0x10000000, INT_MAX})
    {
        EXPECT_EQ(Text(static_cast<NodeType>(nValue)), Number(nValue) + " Unknown ??   Error, description is wrong!!");
    }
}

TEST(RouterPorts, AreTheirNumberAndNameInPrint)
{
    EXPECT_EQ(Text(PORT_C), "2(PORT_C");
    EXPECT_EQ(Text(static_cast<DevicePortID>(4)), "4(Unknown?\?)");
    EXPECT_EQ(Text(static_cast<DevicePortID>(-1)), "-1(Unknown?\?)");
    ExpectNames<DevicePortID>(c_Ports, "(Unknown?\?)");
}

TEST(RouterPorts, HaveTheirNumbers)
{
    const int anPorts[] = {PORT_X, PORT_Y, PORT_C, PORT_D, PORTS_X_AND_Y, PORTS_A_TO_D, PORTS_A_TO_C, PORT_LOCAL_ROUTER};
    std::size_t unPort = 0;
    for (const int nNumber : {0, 1, 2, 3, 20, 21, 22, 250})
    {
        EXPECT_EQ(anPorts[unPort++], nNumber);
    }
}

TEST(RouterEthernetTypes, AreTheirNumberAndNameInPrint)
{
    EXPECT_EQ(Text(ETHERNET), "0(ETHERNET)");
    EXPECT_EQ(Text(AES50_ETHERNET_CONTROL), "1(AES50_ETHERNET_CONTROL)");
    EXPECT_EQ(Text(ETHERNET_TYPE_UNDETERMINATE), "255(ETHERNET_TYPE_UNDETERMINATE)");
    EXPECT_EQ(Text(static_cast<DeviceEthernetTypeID>(2)), "2(invalid)");
    ExpectNames<DeviceEthernetTypeID>(c_EthernetTypes, "(invalid)");
}

TEST(RouterSplitterPorts, AreTheirNumberAndNameInPrint)
{
    EXPECT_EQ(Text(SPLITTER_PORT_A), "0(SPLITTER_PORT_A)");
    EXPECT_EQ(Text(SPLITTER_PORT_B), "1(SPLITTER_PORT_B)");
    EXPECT_EQ(Text(SPLITTER_PORT_A_AND_B), "2(SPLITTER_PORT_A_AND_B)");
    EXPECT_EQ(Text(SPLITTER_PORT_NA), "3(SPLITTER_PORT_NA)");
    EXPECT_EQ(Text(SPLITTER_PORT_ERROR), "255(SPLITTER_PORT_ERROR)");
    ExpectNames<DeviceSplitterPort>(c_SplitterPorts, "(invalid)");
}

TEST(RouterDiagnostics, FollowEachOtherInAStream)
{
    std::ostringstream text;
    std::ostream& stream = text;
    EXPECT_EQ(&(stream << NT_ZLINK << PORT_C << ETHERNET << SPLITTER_PORT_ERROR), &stream);
    EXPECT_EQ(&(stream << ' ' << SPLITTER_PORT_A << ETHERNET << PORT_X << NT_CPU), &stream);
    EXPECT_EQ(text.str(), "7 NT_ZLINK ZLINK2(PORT_C0(ETHERNET)255(SPLITTER_PORT_ERROR) "
                          "0(SPLITTER_PORT_A)0(ETHERNET)0(PORT_X/A)16 NT_CPU ROUTERCPU");
}

TEST(RouterDiagnostics, PortsLeaveAStreamInDecimal)
{
    ExpectDecimal(PORT_LOCAL_ROUTER, "250(PORT_LOCAL_ROUTER)", true);
    ExpectDecimal(static_cast<DevicePortID>(-255), "-255(Unknown?\?)", true);
    std::ostringstream text;
    text << std::hex << PORT_LOCAL_ROUTER << 250;
    EXPECT_EQ(text.str(), "250(PORT_LOCAL_ROUTER)250");
}

TEST(RouterDiagnostics, TheOthersLeaveAStreamAsItWas)
{
    ExpectDecimal(NT_OSPREY_IO, "25 NT_OSPREY_IO Osprey", false);
    ExpectDecimal(static_cast<NodeType>(26), "26 Unknown ??   Error, description is wrong!!", false);
    ExpectDecimal(ETHERNET_TYPE_UNDETERMINATE, "255(ETHERNET_TYPE_UNDETERMINATE)", false);
    ExpectDecimal(static_cast<DeviceEthernetTypeID>(-255), "-255(invalid)", false);
    ExpectDecimal(SPLITTER_PORT_ERROR, "255(SPLITTER_PORT_ERROR)", false);
    ExpectDecimal(static_cast<DeviceSplitterPort>(-255), "-255(invalid)", false);
    std::ostringstream text;
    text << std::hex << NT_OSPREY_IO << ETHERNET_TYPE_UNDETERMINATE << SPLITTER_PORT_ERROR << 255;
    EXPECT_EQ(text.str(), "25 NT_OSPREY_IO Osprey255(ETHERNET_TYPE_UNDETERMINATE)255(SPLITTER_PORT_ERROR)ff");
}

TEST(RouterDiagnostics, NumbersHaveNoSeparatorsWhateverTheLocale)
{
    ExpectNoSeparators(NT_OSPREY_IO, "25 NT_OSPREY_IO Osprey");
    ExpectNoSeparators(static_cast<NodeType>(INT_MIN), "-2147483648 Unknown ??   Error, description is wrong!!");
    ExpectNoSeparators(PORT_LOCAL_ROUTER, "250(PORT_LOCAL_ROUTER)");
    ExpectNoSeparators(static_cast<DevicePortID>(INT_MIN), "-2147483648(Unknown?\?)");
    ExpectNoSeparators(ETHERNET_TYPE_UNDETERMINATE, "255(ETHERNET_TYPE_UNDETERMINATE)");
    ExpectNoSeparators(static_cast<DeviceEthernetTypeID>(INT_MAX), "2147483647(invalid)");
    ExpectNoSeparators(SPLITTER_PORT_ERROR, "255(SPLITTER_PORT_ERROR)");
    ExpectNoSeparators(static_cast<DeviceSplitterPort>(INT_MAX), "2147483647(invalid)");
}

TEST(RouterDiagnostics, AFailedStreamStaysAsItIs)
{
    std::ostringstream text;
    text.setstate(std::ios::failbit);
    EXPECT_EQ(&(text << NT_GUI << PORT_C << ETHERNET << SPLITTER_PORT_A), &text);
    EXPECT_EQ(text.rdstate(), std::ios::failbit);
    text.clear();
    EXPECT_EQ(text.str(), "");
}

TEST(RouterDiagnostics, IdentifiersHave32Bits)
{
    for (const std::size_t unSize :
         {sizeof(NodeType), sizeof(DevicePortID), sizeof(DeviceEthernetTypeID), sizeof(DeviceSplitterPort)})
    {
        EXPECT_EQ(unSize, 4U);
    }
    EXPECT_TRUE(std::is_signed<std::underlying_type<DevicePortID>::type>::value);
}

TEST(RouterDiagnostics, GivesAWidthToTheNumber)
{
    std::ostringstream text;
    text << std::setw(3) << NT_MC << "|" << std::setw(3) << PORT_C << "|" << std::setw(3) << ETHERNET << "|" << std::setw(3)
         << SPLITTER_PORT_NA;
    EXPECT_EQ(text.str(), "  3 NT_MC MC|  2(PORT_C|  0(ETHERNET)|  3(SPLITTER_PORT_NA)");
}
