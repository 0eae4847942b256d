#include "Diagnostics/ReportLimits.h"

#include "Diagnostics/DiagnosticsXMLReader.h"

#include <cstddef>

namespace
{

const char c_szManyAttributes[] = "an element with more than 256 attributes is not allowed";
const char c_szLongName[] = "a name of more than 256 bytes is not allowed";
const char c_szManyNamespaces[] = "an element with more than 64 declarations of namespaces at it and around it is not allowed";
const char c_szDeep[] = "an element with more than 256 elements around it is not allowed";
static_assert(diagnostics_xml_reader::c_nAttributeLimit == 256 && diagnostics_xml_reader::c_nNameLimit == 256 &&
                  diagnostics_xml_reader::c_nNamespaceLimit == 64 && diagnostics_xml_reader::c_nDepthLimit == 256,
              "the texts tell the limits");

// A report's characters: bytes, or two bytes each.
class CCharacters
{
public:
    CCharacters(const char* pBuffer, int nSize, xmlCharEncoding enEncoding)
        : m_pBytes(reinterpret_cast<const unsigned char*>(pBuffer)),
          m_bWide(enEncoding == XML_CHAR_ENCODING_UTF16LE || enEncoding == XML_CHAR_ENCODING_UTF16BE),
          m_unLow(enEncoding == XML_CHAR_ENCODING_UTF16BE ? 1 : 0), m_unCount(static_cast<std::size_t>(nSize) / (m_bWide ? 2 : 1))
    {
    }

    std::size_t Count() const { return m_unCount; }

    // 0 behind the end.
    unsigned int At(std::size_t un) const
    {
        if (un >= m_unCount)
        {
            return 0;
        }
        return m_bWide ? m_pBytes[2 * un + m_unLow] + 256u * m_pBytes[2 * un + 1 - m_unLow] : m_pBytes[un];
    }

    // What it takes as UTF-8. Half of a pair takes two.
    int Bytes(unsigned int unCharacter) const
    {
        const bool bTwo = unCharacter < 0x800 || (unCharacter & 0xf800u) == 0xd800u;
        return !m_bWide || unCharacter < 0x80 ? 1 : bTwo ? 2 : 3;
    }

private:
    const unsigned char* const m_pBytes;
    const bool m_bWide;
    const std::size_t m_unLow; // which byte of two
    const std::size_t m_unCount;
};

// A tag of an element, from its "<" on.
class CTag
{
public:
    explicit CTag(bool bOpen) : m_bOpen(bOpen), m_unQuote(0), m_nAttributes(0), m_nName(0) {}

    // Which limit it is beyond with this character, null if none.
    const char* Take(unsigned int unCharacter, int nBytes)
    {
        if (!m_bOpen)
        {
            return nullptr;
        }
        if (m_unQuote != 0)
        {
            m_unQuote = unCharacter == m_unQuote ? 0 : m_unQuote;
            return nullptr;
        }
        switch (unCharacter)
        {
        case '"':
        case '\'':
            m_unQuote = unCharacter;
            return ++m_nAttributes > diagnostics_xml_reader::c_nAttributeLimit ? c_szManyAttributes : nullptr;
        case '>':
            m_bOpen = false;
            return nullptr;
        case ' ':
        case '\t':
        case '\r':
        case '\n':
        case '=':
        case '/':
            m_nName = 0;
            return nullptr;
        default:
            m_nName += nBytes;
            return m_nName > diagnostics_xml_reader::c_nNameLimit ? c_szLongName : nullptr;
        }
    }

private:
    bool m_bOpen;
    unsigned int m_unQuote; // of the value that it is in
    int m_nAttributes;      // declarations of namespaces, too
    int m_nName;
};

int CountNamespaces(const xmlNode* pElement)
{
    int nNamespaces = 0;
    for (; pElement != nullptr && pElement->type == XML_ELEMENT_NODE; pElement = pElement->parent)
    {
        for (const xmlNs* pNamespace = pElement->nsDef; pNamespace != nullptr; pNamespace = pNamespace->next)
        {
            ++nNamespaces;
        }
    }
    return nNamespaces;
}

} // namespace

stExcess FindExcess(const char* pBuffer, int nSize, xmlCharEncoding enEncoding)
{
    const CCharacters characters(pBuffer, nSize, enEncoding);
    CTag tag(false);
    int nLine = 1;
    for (std::size_t un = 0; un < characters.Count(); ++un)
    {
        const unsigned int unCharacter = characters.At(un);
        nLine += unCharacter == '\n' ? 1 : 0;
        if (unCharacter == '<')
        {
            const unsigned int unNext = characters.At(un + 1);
            tag = CTag(unNext != '!' && unNext != '?');
        }
        else if (const char* szReason = tag.Take(unCharacter, characters.Bytes(unCharacter)))
        {
            return {szReason, nLine};
        }
    }
    return {nullptr, 0};
}

const char* FindExcess(const xmlParserCtxt& parser, int nNamespaces, const xmlChar* const* pszNamespaces)
{
    for (int nNamespace = 0; nNamespace < nNamespaces; ++nNamespace)
    {
        if (xmlStrlen(pszNamespaces[2 * nNamespace + 1]) > diagnostics_xml_reader::c_nNameLimit) // after its prefix
        {
            return c_szLongName;
        }
    }
    if (nNamespaces > 0 && CountNamespaces(parser.node) > diagnostics_xml_reader::c_nNamespaceLimit)
    {
        return c_szManyNamespaces;
    }
    return parser.nodeNr - 1 > diagnostics_xml_reader::c_nDepthLimit ? c_szDeep : nullptr;
}
