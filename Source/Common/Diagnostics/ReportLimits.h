// What a diagnostics report may not have, because the XML library's work grows with it faster than with the report's length. The
// limits are those of diagnostics_xml_reader. Private to the library.
#pragma once

#include <libxml/encoding.h>
#include <libxml/parser.h>

// Which limit a report is beyond, in words; null if none.
struct stExcess
{
    const char* szReason;
    int nLine;
};

// Looks at the bytes, for what has to be found before they are parsed: the parser compares all attributes of an element with each
// other before it tells of any. It takes no tag to reach beyond another "<", whatever that stands in and wherever the report is
// broken; so each one begins a tag here, and there is nothing to hide one in.
stExcess FindExcess(const char* pBuffer, int nSize, xmlCharEncoding enEncoding);

// Looks at the element that a parser has just begun, and at the namespaces declared there, each a prefix and a name. A namespace is
// looked for at all elements around the one that uses it, and validation repeats its name with each attribute that it complains of.
// The XML library's own limit of depth is a setting of the process.
const char* FindExcess(const xmlParserCtxt& parser, int nNamespaces, const xmlChar* const* pszNamespaces);
