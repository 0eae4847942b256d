#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Diagnostics/ReportLimits.h"
#include "Runtime/TextOrEmpty.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlschemas.h>
#include <libxml/xmlschemastypes.h>

using XMLDiagnostics::string2Int;

namespace
{

const char c_szRootName[] = "VORN";
const char c_szDeclaration[] = "<?xml";

template <auto Free>
struct stFree
{
    template <typename T>
    void operator()(T* pObject) const
    {
        Free(pObject);
    }
};

struct stFreeText
{
    void operator()(xmlChar* pText) const { xmlFree(pText); }
};

typedef std::unique_ptr<xmlChar, stFreeText> tText;
typedef std::unique_ptr<xmlDoc, stFree<xmlFreeDoc>> tDocument;
typedef std::unique_ptr<xmlParserCtxt, stFree<xmlFreeParserCtxt>> tParser;
typedef std::unique_ptr<xmlSchemaParserCtxt, stFree<xmlSchemaFreeParserCtxt>> tSchemaParser;
typedef std::unique_ptr<xmlSchema, stFree<xmlSchemaFree>> tSchema;
typedef std::unique_ptr<xmlSchemaValidCtxt, stFree<xmlSchemaFreeValidCtxt>> tValidator;

// The library's own tables, which two threads at once would not make safely.
void InitialiseLibrary()
{
    static const bool s_bInitialised = []
    {
        xmlInitParser();
        xmlSchemaInitTypes();
        return true;
    }();
    static_cast<void>(s_bInitialised);
}

class CHeld
{
public:
    explicit CHeld(pthread_mutex_t& mutex) : m_Mutex(mutex), m_bHeld(pthread_mutex_lock(&m_Mutex) == 0) {}
    ~CHeld()
    {
        if (m_bHeld)
        {
            pthread_mutex_unlock(&m_Mutex);
        }
    }
    CHeld(const CHeld&) = delete;
    CHeld& operator=(const CHeld&) = delete;

private:
    pthread_mutex_t& m_Mutex;
    const bool m_bHeld;
};

// While one lives, what the XML library has to say on this thread goes here, and not to standard error; then the process's own
// handler is back. The first error is kept, with its line if it has one. Called from C: nothing may be thrown.
class CErrors
{
public:
    explicit CErrors(std::string& strFirst)
        : m_strFirst(strFirst), m_bOutOfMemory(false), m_pHandler(xmlStructuredError), m_pContext(xmlStructuredErrorContext)
    {
        xmlSetStructuredErrorFunc(this, On);
    }
    ~CErrors() { xmlSetStructuredErrorFunc(m_pContext, m_pHandler); }
    CErrors(const CErrors&) = delete;
    CErrors& operator=(const CErrors&) = delete;

    // The library goes on without memory, and with what it then lacks.
    bool IsOutOfMemory() const { return m_bOutOfMemory; }

    static void On(void* pThis, xmlErrorPtr pError)
    {
        if (pError != nullptr && pError->level >= XML_ERR_ERROR)
        {
            CErrors& errors = *static_cast<CErrors*>(pThis);
            errors.m_bOutOfMemory = errors.m_bOutOfMemory || pError->code == XML_ERR_NO_MEMORY;
            errors.Keep(pError->message, pError->line);
        }
    }

    // For why a report is refused, whatever else was wrong with it before.
    void KeepInstead(const char* szMessage, int nLine)
    {
        m_strFirst.clear();
        Keep(szMessage, nLine);
    }

    void Keep(const char* szMessage, int nLine, const char* szFile = nullptr)
    {
        if (!m_strFirst.empty())
        {
            return;
        }
        try
        {
            const std::string strMessage = std::string(TextOrEmpty(szFile)) + TextOrEmpty(szMessage);
            m_strFirst = (nLine > 0 ? "line " + std::to_string(nLine) + ": " : std::string()) +
                         strMessage.substr(0, strMessage.find_last_not_of('\n') + 1);
        }
        catch (const std::bad_alloc&)
        {
            m_bOutOfMemory = true;
        }
    }

private:
    std::string& m_strFirst;
    bool m_bOutOfMemory;
    const xmlStructuredErrorFunc m_pHandler;
    void* const m_pContext;
};

void Refuse(xmlParserCtxt& parser, const char* szReason)
{
    static_cast<CErrors*>(parser._private)->KeepInstead(szReason, xmlSAX2GetLineNumber(&parser));
    xmlStopParser(&parser);
    parser.wellFormed = 0;
}

// A report has no document type declaration: whoever sends one wants entities expanded or files read.
void RefuseDocumentType(void* pContext, const xmlChar*, const xmlChar*, const xmlChar*)
{
    Refuse(*static_cast<xmlParserCtxtPtr>(pContext), "a document type declaration is not allowed");
}

// A parser as a new process has it, whatever this one has set for all of its XML, that refuses what a report does not have.
void Prepare(xmlParserCtxt& parser, CErrors& errors, int nOptions)
{
    parser.options = 0;
    xmlCtxtUseOptions(&parser, nOptions);
    parser.sax->ignorableWhitespace = xmlSAX2Characters; // blanks are nodes
    parser.linenumbers = 1;
    parser._private = &errors;
    parser.sax->internalSubset = RefuseDocumentType;
}

// A report is ASCII. Converting from other character sets would load modules of the system that the report chooses, so it is read
// as UTF-8, or UTF-16, whatever it declares.
bool IsUnicode(xmlCharEncoding enEncoding)
{
    return enEncoding == XML_CHAR_ENCODING_NONE || enEncoding == XML_CHAR_ENCODING_UTF8 ||
           enEncoding == XML_CHAR_ENCODING_UTF16LE || enEncoding == XML_CHAR_ENCODING_UTF16BE;
}

void StartElement(void* pContext, const xmlChar* szName, const xmlChar* szPrefix, const xmlChar* szNamespace, int nNamespaces,
                  const xmlChar** pszNamespaces, int nAttributes, int nDefaulted, const xmlChar** pszAttributes)
{
    xmlParserCtxt& parser = *static_cast<xmlParserCtxtPtr>(pContext);
    xmlSAX2StartElementNs(pContext, szName, szPrefix, szNamespace, nNamespaces, pszNamespaces, nAttributes, nDefaulted,
                          pszAttributes);
    if (const char* szReason = FindExcess(parser, nNamespaces, pszNamespaces))
    {
        Refuse(parser, szReason);
    }
}

// What xmlParseMemory does, within limits.
xmlDoc* Parse(const char* pBuffer, int nSize, CErrors& errors)
{
    if (pBuffer == nullptr || nSize <= 0)
    {
        return nullptr;
    }
    const xmlCharEncoding enEncoding =
        nSize >= 4 ? xmlDetectCharEncoding(reinterpret_cast<const unsigned char*>(pBuffer), 4) : XML_CHAR_ENCODING_NONE;
    if (!IsUnicode(enEncoding))
    {
        return nullptr;
    }
    const stExcess excess = FindExcess(pBuffer, nSize, enEncoding);
    if (excess.szReason != nullptr)
    {
        errors.Keep(excess.szReason, excess.nLine);
        return nullptr;
    }
    const tParser pParser(xmlCreateMemoryParserCtxt(pBuffer, nSize));
    if (pParser == nullptr)
    {
        return nullptr;
    }
    Prepare(*pParser, errors, XML_PARSE_NONET | XML_PARSE_IGNORE_ENC);
    pParser->sax->startElementNs = StartElement;
    xmlParseDocument(pParser.get());
    tDocument pDocument(pParser->myDoc);
    pParser->myDoc = nullptr;
    return pParser->wellFormed != 0 && !errors.IsOutOfMemory() ? pDocument.release() : nullptr;
}

// A file that is open to be read. By its name, the library would ask catalogs and the host's loader for another one.
class CInputFile
{
public:
    explicit CInputFile(const char* szFile) : m_nFile(szFile != nullptr ? open(szFile, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1)
    {
        fcntl(m_nFile, F_SETFL, 0); // no waiting for who might write into a pipe, but for what is being written
    }
    ~CInputFile()
    {
        if (IsOpen())
        {
            close(m_nFile);
        }
    }
    CInputFile(const CInputFile&) = delete;
    CInputFile& operator=(const CInputFile&) = delete;

    bool IsOpen() const { return m_nFile >= 0; }
    int Descriptor() const { return m_nFile; }

private:
    const int m_nFile;
};

xmlDoc* ReadSchema(const char* szFile, CErrors& errors)
{
    const CInputFile file(szFile);
    const tParser pParser(xmlNewParserCtxt());
    if (!file.IsOpen() || pParser == nullptr)
    {
        return nullptr;
    }
    Prepare(*pParser, errors, XML_PARSE_NONET);
    return xmlCtxtReadFd(pParser.get(), file.Descriptor(), szFile, nullptr, XML_PARSE_NONET);
}

// Parts of a schema that lie elsewhere would be fetched, from a network as well.
bool NamesOtherFiles(const xmlNode* pSchema)
{
    for (const xmlNode* pPart = pSchema != nullptr ? pSchema->children : nullptr; pPart != nullptr; pPart = pPart->next)
    {
        if (pPart->type == XML_ELEMENT_NODE && xmlHasProp(pPart, BAD_CAST "schemaLocation") != nullptr)
        {
            return true;
        }
    }
    return false;
}

// An element's attribute. False when it has none of that name, or the memory did not suffice.
bool GetAttribute(const xmlNode* pNode, const char* szName, std::string& strText)
{
    const auto assign = [&strText](const xmlChar* szText) { strText = reinterpret_cast<const char*>(szText); };
    const xmlAttr* const pAttribute = xmlHasProp(pNode, BAD_CAST szName);
    const xmlNode* const pText = pAttribute != nullptr ? pAttribute->children : nullptr;
    if (pText != nullptr && pText->next == nullptr && pText->type == XML_TEXT_NODE && pText->content != nullptr)
    {
        assign(pText->content); // as nearly all are: one piece, which need not be copied together
        return true;
    }
    const tText pWhole(pAttribute != nullptr ? xmlGetProp(pNode, BAD_CAST szName) : nullptr);
    if (pWhole != nullptr)
    {
        assign(pWhole.get());
    }
    return pWhole != nullptr;
}

} // namespace

diagnostics_xml_reader::diagnostics_xml_reader()
    : m_pCurrentNode(nullptr), m_pRootNode(nullptr), m_pDocument(nullptr), m_nDeviceId(0), m_xml_mutex(),
      m_unMapLimit(std::numeric_limits<std::size_t>::max())
{
    InitialiseLibrary();
    if (pthread_mutex_init(&m_xml_mutex, nullptr) != 0)
    {
        const pthread_mutex_t ready = PTHREAD_MUTEX_INITIALIZER; // it is used all the same
        m_xml_mutex = ready;
        std::puts("Error m_xml_mutex init failed");
    }
}

diagnostics_xml_reader::~diagnostics_xml_reader()
{
    FreeDocument();
    pthread_mutex_destroy(&m_xml_mutex);
}

bool diagnostics_xml_reader::parseAndPopulateMap(char* pBuffer, int nSize)
{
    const CHeld held(m_xml_mutex);
    if (!getXmlFromBuffer(pBuffer, nSize) || !FillMap())
    {
        return false;
    }
    if (!mapHasElements())
    {
        std::printf("WARNING - in diagnostics_xml_reader::parseAndPopulateMap():\n\t%smap has 0 elements!\n", GetDeviceType());
        return false;
    }
    return true;
}

bool diagnostics_xml_reader::parseAndCheckForValidMessage(char* pBuffer, int nSize)
{
    const CHeld held(m_xml_mutex);
    if (!getXmlFromBuffer(pBuffer, nSize))
    {
        return false;
    }
    if (!HasSomeChildElements())
    {
        std::printf("WARNING - in diagnostics_xml_reader::parseAndCheckForValidMessage():\n\t%sXML document has 0 elements!\n",
                    GetDeviceType());
        return false;
    }
    return true;
}

bool diagnostics_xml_reader::validate()
{
    return validate(XMLDiagnostics::c_strSchemaFile.c_str());
}

bool diagnostics_xml_reader::validate(const char* szSchemaFile)
{
    m_strError.clear();
    CErrors errors(m_strError);
    if (m_pDocument == nullptr)
    {
        errors.Keep("there is no document", 0);
        return false;
    }
    const tDocument pSchemaDocument(ReadSchema(szSchemaFile, errors));
    if (pSchemaDocument == nullptr)
    {
        m_strError.clear(); // the file's name helps more than its first error
        errors.Keep(" can't be read as XML", 0, szSchemaFile);
        return false;
    }
    if (NamesOtherFiles(xmlDocGetRootElement(pSchemaDocument.get())))
    {
        errors.Keep(" names other files", 0, szSchemaFile);
        return false;
    }
    const tSchemaParser pParser(xmlSchemaNewDocParserCtxt(pSchemaDocument.get()));
    if (pParser == nullptr)
    {
        return false;
    }
    xmlSchemaSetParserStructuredErrors(pParser.get(), CErrors::On, &errors);
    const tSchema pSchema(xmlSchemaParse(pParser.get()));
    if (pSchema == nullptr)
    {
        return false;
    }
    const tValidator pValidator(xmlSchemaNewValidCtxt(pSchema.get()));
    if (pValidator == nullptr)
    {
        return false;
    }
    xmlSchemaSetValidStructuredErrors(pValidator.get(), CErrors::On, &errors);
    return xmlSchemaValidateDoc(pValidator.get(), m_pDocument) == 0;
}

bool diagnostics_xml_reader::IsXML(const char* szText)
{
    return szText != nullptr && std::strncmp(szText, c_szDeclaration, sizeof c_szDeclaration - 1) == 0;
}

bool diagnostics_xml_reader::find_parameter(int nParameter)
{
    if (m_Map.empty())
    {
        std::puts("WARNING - in diagnostics_xml_reader::find_parameter(int parameter):\n"
                  "\tTrying to read an element of a valid but empty XML document!");
        return false;
    }
    return m_Map.count(nParameter) != 0;
}

XMLDiagnostics::XMLElement diagnostics_xml_reader::get_at(int nParameter)
{
    return m_Map[nParameter];
}

const char* diagnostics_xml_reader::GetDeviceType() const
{
    return m_strDeviceType.c_str();
}

int diagnostics_xml_reader::GetDeviceID() const
{
    return m_nDeviceId;
}

bool diagnostics_xml_reader::getXmlFromBuffer(char* pBuffer, int nSize)
{
    const auto warn = [](const char* szReason)
    { std::printf("WARNING - in diagnostics_xml_reader::getXmlFromBuffer(char* buffer, int size):\n\t%s\n", szReason); };

    FreeDocument();
    m_strError.clear();
    CErrors errors(m_strError);
    m_pDocument = Parse(pBuffer, nSize, errors);
    if (m_pDocument == nullptr)
    {
        warn("xmlParseMemory() returned NULL!");
        return false;
    }
    m_pRootNode = xmlDocGetRootElement(m_pDocument);
    if (m_pRootNode == nullptr)
    {
        warn("xmlDocGetRootElement() returned NULL!");
        return false;
    }
    if (xmlStrcmp(m_pRootNode->name, BAD_CAST c_szRootName) != 0)
    {
        warn("Bad XML document or wrong document type");
        return false;
    }
    if (!GetMsgDeviceType())
    {
        std::puts("WARNING - in diagnostics_xml_reader::getXmlFromBuffer():\n\tGetMsgDeviceType() failed!");
        return false;
    }
    return true;
}

bool diagnostics_xml_reader::GetMsgDeviceType()
{
    m_pCurrentNode = m_pRootNode != nullptr ? m_pRootNode->children : nullptr;
    if (m_pCurrentNode != nullptr && m_pCurrentNode->type != XML_ELEMENT_NODE)
    {
        m_pCurrentNode = m_pCurrentNode->next; // one step only: that is meant
    }
    try
    {
        std::string strId;
        std::string strName;
        if (!GetAttribute(m_pCurrentNode, "id", strId) || !GetAttribute(m_pCurrentNode, "name", strName))
        {
            std::puts("WARNING - in diagnostics_xml_reader::GetMsgDeviceType():\n\t\"name\" or \"id\" field returned NULL!");
            return false;
        }
        m_nDeviceId = string2Int(std::move(strId));
        m_strDeviceType.swap(strName);
    }
    catch (const std::bad_alloc&)
    {
        std::puts("diagnostics_xml_reader::GetMsgDeviceType - out of memory");
        return false;
    }
    return true;
}

void diagnostics_xml_reader::populateMap()
{
    FillMap();
}

// False when the memory did not suffice.
bool diagnostics_xml_reader::FillMap()
{
    using XMLDiagnostics::XML_ATTRIBUTE_TYPE_DESCRIPTION;
    const CErrors errors(m_strError);
    const xmlNode* pNode = m_pCurrentNode != nullptr ? m_pCurrentNode->children : nullptr;
    try
    {
        for (; pNode != nullptr; pNode = pNode->next)
        {
            if (pNode->type != XML_ELEMENT_NODE)
            {
                continue;
            }
            XMLDiagnostics::XMLElement element;
            std::string* const apTexts[XMLDiagnostics::c_nXMLAttributeTypes] = {&element.i, &element.v, &element.e};
            bool bComplete = true;
            for (const auto& attribute : XML_ATTRIBUTE_TYPE_DESCRIPTION)
            {
                bComplete = GetAttribute(pNode, attribute.name.c_str(), *apTexts[attribute.type]) && bComplete;
            }
            if (errors.IsOutOfMemory())
            {
                throw std::bad_alloc();
            }
            if (!bComplete)
            {
                // The text speaks of the device's attributes, and is meant to.
                std::puts("WARNING - in diagnostics_xml_reader::populateMap():\n\t\"name\" or \"id\" field returned NULL!");
                m_Map.clear();
                break;
            }
            const int nKey = string2Int(element.i);
            if (m_Map.size() < m_unMapLimit || m_Map.count(nKey) != 0)
            {
                m_Map[nKey] = std::move(element);
            }
        }
    }
    catch (const std::bad_alloc&)
    {
        std::puts("diagnostics_xml_reader::populateMap - out of memory");
        return false;
    }
    return true;
}

bool diagnostics_xml_reader::HasSomeChildElements() const
{
    if (m_pCurrentNode == nullptr || m_pCurrentNode->type != XML_ELEMENT_NODE)
    {
        return false;
    }
    const xmlNode* pChild = m_pCurrentNode->children;
    while (pChild != nullptr && pChild->type != XML_ELEMENT_NODE)
    {
        pChild = pChild->next;
    }
    return pChild != nullptr;
}

bool diagnostics_xml_reader::mapHasElements() const
{
    return !m_Map.empty();
}

void diagnostics_xml_reader::ClearMap()
{
    m_Map.clear();
}

void diagnostics_xml_reader::SetMapLimit(std::size_t unElements)
{
    m_unMapLimit = unElements;
}

void diagnostics_xml_reader::FreeDocument()
{
    xmlFreeDoc(m_pDocument);
    m_pDocument = nullptr;
    m_pRootNode = nullptr;
    m_pCurrentNode = nullptr;
}
