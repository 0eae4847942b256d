// The vocabulary of diagnostics reports: who reports, and what the numbers in a report mean.
#pragma once

#include "Runtime/Export.h"

#include <string>

// A report is a small XML document (its format is in the documentation, under WireFormat) that VORNXMLWriter makes,
// CDiagnosticsSocketSender multicasts and diagnostics_xml_reader takes apart. This is what both ends share. Everything here is
// constant or takes its arguments by value: any thread may use it.
namespace XMLDiagnostics
{

static const std::string c_strSchemaFile = "/opt/orvik/bin/xml_validation.xsd";
static const std::string c_strFormatVersion = "1.0";
static const std::string c_strMulticastGroup = "225.0.0.60"; // of reports; the port is the application's

// The kind of device that reports.
enum LOGICALCONTROLS_EXPORT XML_NODE_TYPE : int
{
#define LC_XML_NODE_TYPE(enumerator, name) enumerator,
#include "Diagnostics/XMLNodeTypes.def"
#undef LC_XML_NODE_TYPE
};

// A node type, and its name in a report.
struct stXMLNodeTypeDescription
{
    XML_NODE_TYPE type;
    std::string name;
};

// By value: the entry of a node type is at its number.
static const stXMLNodeTypeDescription XNODE_TYPE_DESCRIPTION[] = {
#define LC_XML_NODE_TYPE(enumerator, name) {enumerator, name},
#include "Diagnostics/XMLNodeTypes.def"
#undef LC_XML_NODE_TYPE
};

constexpr int c_nXMLNodeTypes = sizeof(XNODE_TYPE_DESCRIPTION) / sizeof(XNODE_TYPE_DESCRIPTION[0]);

// The attributes of a reported parameter.
enum LOGICALCONTROLS_EXPORT XML_ATTRIBUTE_TYPE : int
{
    XAT_I = 0, // its number
    XAT_V = 1, // its value
    XAT_E = 2  // a second value, the sender's own
};

// An attribute, and its name in a report.
struct stXMLAttributeTypeDescription
{
    XML_ATTRIBUTE_TYPE type;
    std::string name;
};

static const stXMLAttributeTypeDescription XML_ATTRIBUTE_TYPE_DESCRIPTION[] = {{XAT_I, "i"}, {XAT_V, "v"}, {XAT_E, "e"}};

constexpr int c_nXMLAttributeTypes = sizeof(XML_ATTRIBUTE_TYPE_DESCRIPTION) / sizeof(XML_ATTRIBUTE_TYPE_DESCRIPTION[0]);

// One reported parameter: the texts of its attributes as they stood in the report.
struct XMLElement
{
    std::string i;
    std::string v;
    std::string e;
};

// Numbers to text and back, the same under every locale. A float gets so many significant digits, and an exponent where it is
// large or small: 1234.5 with three is "1.23e+03". Reading takes what a standard stream would: it skips blanks and
// stops at the first character that can't be part of a number. What then is none, such as "x" or "1e", is 0; what is beyond the
// type's range is its nearest value.
LOGICALCONTROLS_EXPORT std::string int2String(int nValue);
LOGICALCONTROLS_EXPORT std::string float2String(float fValue, short nPrecision);
LOGICALCONTROLS_EXPORT int string2Int(const char* szText);
LOGICALCONTROLS_EXPORT int string2Int(std::string strText);
LOGICALCONTROLS_EXPORT float string2Float(const char* szText);
LOGICALCONTROLS_EXPORT float string2Float(std::string strText);

} // namespace XMLDiagnostics

// What a report's parameter numbers stand for.
namespace XMLDiagnosticsParametersDSP
{

constexpr int c_nNames = 150;

// By parameter number. So the processes of the console know them: entry 2 goes on behind its name, entry 137 is two names run
// together, each later name stands one place early, and the last slot is null.
extern LOGICALCONTROLS_EXPORT const char* const strName[c_nNames];

// A number's name, null when it has none.
LOGICALCONTROLS_EXPORT const char* GetName(int nParameter);

} // namespace XMLDiagnosticsParametersDSP
