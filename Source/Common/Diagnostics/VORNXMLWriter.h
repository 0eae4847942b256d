// Writes diagnostics reports.
#pragma once

#include "Diagnostics/XMLDiagnostics.h"
#include "Runtime/Export.h"

#include <cstdint>
#include <string>

// One report of one device as XML text in memory, a single line with no blanks between elements:
//
//     VORNXMLWriter writer;
//     writer.start_xml(XMLDiagnostics::c_strFormatVersion.c_str(), XMLDiagnostics::XNT_SURFACE, 3);
//     writer.add_attribute(0, 1234, 0, nullptr);
//
//     <?xml version="1.0"?><VORN version="1.0"><DEV name="SURFACE" id="3"><p i="0" v="1234" e="0"/></DEV></VORN>
//
// start_xml begins a report, add_attribute appends a parameter to it, m_strDocument is the report after each step; the next
// start_xml discards it. Texts are copied as they are, nothing is escaped: they are ASCII, and hold no ", < or &. A null text
// counts as an empty one. Numbers are int and float: a double or an unsigned is ambiguous, and does not compile. Not for two
// threads at once. Only what the standard library throws is thrown.
class LOGICALCONTROLS_EXPORT VORNXMLWriter
{
public:
    VORNXMLWriter();
    virtual ~VORNXMLWriter();

    // A new report: version of the format, name and id of the device. A node type that does not exist is named as UNKNOWN.
    void start_xml(const char* szVersion, const char* szName, const char* szId);
    void start_xml(const char* szVersion, XMLDiagnostics::XML_NODE_TYPE enType, const char* szId);
    void start_xml(const char* szVersion, XMLDiagnostics::XML_NODE_TYPE enType, int nId);

    // Appends a parameter: its number, its value, and a second value of the caller's own. Floats are written with three significant
    // digits. The last argument is ignored. Throws std::out_of_range, the report unchanged, when there was no start_xml.
    void add_attribute(const char* szI, const char* szV, const char* szE, const char* szIgnored);
    void add_attribute(int nI, const char* szV, const char* szE, const char* szIgnored);
    void add_attribute(int nI, const char* szV, int nE, const char* szIgnored);
    void add_attribute(int nI, int nV, int nE, const char* szIgnored);
    void add_attribute(const char* szI, int nV, int nE, const char* szIgnored);
    void add_attribute(const char* szI, const char* szV, int nE, const char* szIgnored);
    void add_attribute(const char* szI, float fV, int nE, const char* szIgnored);
    void add_attribute(int nI, float fV, int nE, const char* szIgnored);

    std::string m_strDocument;

private:
    std::uint32_t m_unInsertPosition; // of the last parameter
};
