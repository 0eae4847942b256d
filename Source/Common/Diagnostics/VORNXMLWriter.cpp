#include "Diagnostics/VORNXMLWriter.h"

#include "Runtime/TextOrEmpty.h"

using XMLDiagnostics::float2String;
using XMLDiagnostics::int2String;

namespace
{

constexpr short c_nSignificantDigits = 3;
const char c_szEndOfDevice[] = "</DEV>";

const char* NameOf(XMLDiagnostics::XML_NODE_TYPE enType)
{
    const bool bKnown = enType >= 0 && enType < XMLDiagnostics::c_nXMLNodeTypes;
    return XMLDiagnostics::XNODE_TYPE_DESCRIPTION[bKnown ? enType : XMLDiagnostics::XNT_UNKNOWN].name.c_str();
}

} // namespace

VORNXMLWriter::VORNXMLWriter() : m_unInsertPosition(0) {}

VORNXMLWriter::~VORNXMLWriter() = default;

void VORNXMLWriter::start_xml(const char* szVersion, const char* szName, const char* szId)
{
    std::string strDocument = "<?xml version=\"1.0\"?><VORN version=\"";
    strDocument.append(TextOrEmpty(szVersion)).append("\"><DEV name=\"").append(TextOrEmpty(szName));
    strDocument.append("\" id=\"").append(TextOrEmpty(szId)).append("\"></DEV></VORN>");
    m_strDocument.swap(strDocument);
}

void VORNXMLWriter::start_xml(const char* szVersion, XMLDiagnostics::XML_NODE_TYPE enType, const char* szId)
{
    start_xml(szVersion, NameOf(enType), szId);
}

void VORNXMLWriter::start_xml(const char* szVersion, XMLDiagnostics::XML_NODE_TYPE enType, int nId)
{
    start_xml(szVersion, NameOf(enType), int2String(nId).c_str());
}

void VORNXMLWriter::add_attribute(const char* szI, const char* szV, const char* szE, const char*)
{
    const std::size_t unEnd = m_strDocument.find(c_szEndOfDevice);
    std::string strElement = "<p i=\"";
    strElement.append(TextOrEmpty(szI))
        .append("\" v=\"")
        .append(TextOrEmpty(szV))
        .append("\" e=\"")
        .append(TextOrEmpty(szE))
        .append("\"/>");
    m_unInsertPosition = static_cast<std::uint32_t>(unEnd);
    m_strDocument.insert(unEnd, strElement);
}

void VORNXMLWriter::add_attribute(int nI, const char* szV, const char* szE, const char* szIgnored)
{
    add_attribute(int2String(nI).c_str(), szV, szE, szIgnored);
}

void VORNXMLWriter::add_attribute(int nI, const char* szV, int nE, const char* szIgnored)
{
    add_attribute(int2String(nI).c_str(), szV, int2String(nE).c_str(), szIgnored);
}

void VORNXMLWriter::add_attribute(int nI, int nV, int nE, const char* szIgnored)
{
    add_attribute(int2String(nI).c_str(), int2String(nV).c_str(), int2String(nE).c_str(), szIgnored);
}

void VORNXMLWriter::add_attribute(const char* szI, int nV, int nE, const char* szIgnored)
{
    add_attribute(szI, int2String(nV).c_str(), int2String(nE).c_str(), szIgnored);
}

void VORNXMLWriter::add_attribute(const char* szI, const char* szV, int nE, const char* szIgnored)
{
    add_attribute(szI, szV, int2String(nE).c_str(), szIgnored);
}

void VORNXMLWriter::add_attribute(const char* szI, float fV, int nE, const char* szIgnored)
{
    add_attribute(szI, float2String(fV, c_nSignificantDigits).c_str(), int2String(nE).c_str(), szIgnored);
}

void VORNXMLWriter::add_attribute(int nI, float fV, int nE, const char* szIgnored)
{
    add_attribute(int2String(nI).c_str(), fV, nE, szIgnored);
}
