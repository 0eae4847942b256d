// Takes diagnostics reports apart.
#pragma once

#include "Diagnostics/XMLDiagnostics.h"
#include "Runtime/Export.h"

#include <cstddef>
#include <map>
#include <string>

#include <pthread.h>

struct _xmlDoc;
struct _xmlNode;

// Parses one report after another, files its parameters by their number, and validates it against a schema:
//
//     diagnostics_xml_reader reader;
//     if (reader.IsXML(pData) && reader.parseAndPopulateMap(pData, nLength) && reader.find_parameter(7))
//         Show(reader.GetDeviceType(), reader.GetDeviceID(), reader.get_at(7).v);
//
// Parameters of earlier reports stay until a report brings the same number again, until a p element lacks one of its attributes,
// which empties the map, or until ClearMap: a receiver of many devices calls it before each report, or has a reader for each.
//
// A failure is false and a warning of two or more lines on standard output (validate prints none), and the reader works on the next
// good report; nothing is thrown, save by get_at when there is no memory for its copy. GetError tells more.
//
// A report comes from a network and is not trusted: a document type declaration, which the format does not have, is refused before
// anything that it says is used, so nothing is expanded, and no file is read but the schema, which must not name others. It is read
// as UTF-8, or UTF-16, whatever it declares, since other character sets make the system load code for them. An element that is
// beyond one of the limits below, none of which the format comes near, makes the whole report refused; attributes and the lengths
// of names count in whatever looks like an element, also inside a comment. So the costs of parsing and validating grow no faster
// than a report's length, whatever is in it: one that fits into a datagram takes milliseconds and a few megabytes. A report's
// length itself is not limited, nor is the number of its elements; a value, or a text, is by the XML library, to 10 MB. The library
// is initialised at the first reader and never cleaned up; its settings for the whole process are neither used nor changed.
//
// The two parse operations lock each other out. Nothing else locks: what reads a report (validate, too) must not run while another
// is parsed.
class LOGICALCONTROLS_EXPORT diagnostics_xml_reader
{
public:
    // What an element has at most. A report with more is refused as one that is no XML, and GetError tells the limit.
    static constexpr int c_nAttributeLimit = 256; // attributes, declarations of namespaces among them
    static constexpr int c_nNamespaceLimit = 64;  // declarations of namespaces, together with all elements around it
    static constexpr int c_nDepthLimit = 256;     // elements around it
    static constexpr int c_nNameLimit = 256; // bytes of UTF-8 in its name, an attribute's (each with its prefix), a namespace's

    diagnostics_xml_reader();
    virtual ~diagnostics_xml_reader();
    diagnostics_xml_reader(const diagnostics_xml_reader&) = delete;
    diagnostics_xml_reader& operator=(const diagnostics_xml_reader&) = delete;

    // Parses a report, then fills the map: true when the map holds anything. A later parameter of the same number counts.
    bool parseAndPopulateMap(char* pBuffer, int nSize);

    // Parses a report, and leaves the map alone: true when the report has a parameter.
    bool parseAndCheckForValidMessage(char* pBuffer, int nSize);

    // Validates the report that was parsed last against the schema file of XMLDiagnostics, or another one. The file is read each
    // time. Prints nothing. Not for a process that is out of memory: the XML library may not survive that here.
    bool validate();
    bool validate(const char* szSchemaFile);

    // True when the text begins with "<?xml". Not a blank may stand before it.
    bool IsXML(const char* szText);

    // True when the map holds a parameter; get_at returns it, and files an empty one under a number that is not there.
    bool find_parameter(int nParameter);
    XMLDiagnostics::XMLElement get_at(int nParameter);

    // Of the report that was parsed last. The text is valid until the next parse.
    const char* GetDeviceType() const;
    int GetDeviceID() const;

    // The steps of parsing: the document, the device that it is of, its parameters. They take no lock.
    bool getXmlFromBuffer(char* pBuffer, int nSize);
    bool GetMsgDeviceType();
    void populateMap();
    bool HasSomeChildElements() const;
    bool mapHasElements() const;

    // All parameters in the map, in the order of their numbers.
    const std::map<int, XMLDiagnostics::XMLElement>& GetMap() const { return m_Map; }

    void ClearMap();

    // From now on a number that is not in the map is passed over when the map holds so many. No limit at the start.
    void SetMapLimit(std::size_t unElements);

    // Why the last parse or validation failed: mostly what the XML library said, with the line; empty when the warning says all.
    // The text is another one after the next parse or validation.
    const std::string& GetError() const { return m_strError; }

private:
    void FreeDocument();
    bool FillMap();

    _xmlNode* m_pCurrentNode; // the device's element
    _xmlNode* m_pRootNode;
    _xmlDoc* m_pDocument; // owned
    std::string m_strDeviceType;
    int m_nDeviceId;
    std::map<int, XMLDiagnostics::XMLElement> m_Map;
    pthread_mutex_t m_xml_mutex;
    std::size_t m_unMapLimit;
    std::string m_strError;
};
