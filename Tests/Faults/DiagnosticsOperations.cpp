#include "Faults/AllocationWalk.h"

#include "Diagnostics/DiagnosticsSocketSender.h"
#include "Diagnostics/DiagnosticsXMLReader.h"
#include "Diagnostics/RouterDiagnostics.h"
#include "Diagnostics/VORNXMLWriter.h"
#include "Diagnostics/XMLDiagnostics.h"
#include "Faults/FailingAllocator.h"
#include "Runtime/FailurePolicy.h"

#include <cstring>
#include <memory>
#include <sstream>
#include <string>

// Reports, and what becomes of failed invariants.
namespace
{

using Faults::CPlenty;
using Faults::Expect;
using Faults::tAction;

constexpr int c_nManyParameters = 20;
const char c_szLong[] = "a text that is longer than what a string keeps in itself";

tAction StartReport()
{
    const auto pWriter = std::make_shared<VORNXMLWriter>();
    return [pWriter]
    {
        pWriter->start_xml("1.0", c_szLong, "3");
        pWriter->start_xml("1.0", XMLDiagnostics::XNT_SURFACE, "3");
        pWriter->start_xml("1.0", XMLDiagnostics::XNT_SURFACE, 3);
        Expect(pWriter->m_strDocument ==
                   "<?xml version=\"1.0\"?><VORN version=\"1.0\"><DEV name=\"SURFACE\" id=\"3\"></DEV></VORN>",
               "another report");
        return true;
    };
}

// A parameter is there whole, or not at all.
template <class... Arguments>
tAction Add(const char* szElement, Arguments... arguments)
{
    const auto pWriter = std::make_shared<VORNXMLWriter>();
    pWriter->start_xml("1.0", "x", "3");
    const std::string strStart = "<?xml version=\"1.0\"?><VORN version=\"1.0\"><DEV name=\"x\" id=\"3\">";
    const std::string strBefore = strStart + "</DEV></VORN>";
    const std::string strAfter = strStart + szElement + "</DEV></VORN>";
    return [=]
    {
        {
            const CPlenty plenty;
            pWriter->start_xml("1.0", "x", "3");
        }
        try
        {
            pWriter->add_attribute(arguments..., nullptr);
        }
        catch (...)
        {
            Expect(pWriter->m_strDocument == strBefore, "half a parameter");
            throw;
        }
        Expect(pWriter->m_strDocument == strAfter, "another parameter");
        return true;
    };
}

tAction AddTexts()
{
    return Add("<p i=\"1\" v=\"a text that is longer than what a string keeps in itself\" e=\"2\"/>", "1", c_szLong, "2");
}

tAction AddNumberAndTexts()
{
    return Add("<p i=\"1\" v=\"v\" e=\"2\"/>", 1, "v", "2");
}

tAction AddNumbers()
{
    return Add("<p i=\"1234567890\" v=\"-1234567890\" e=\"-5\"/>", 1234567890, -1234567890, -5);
}

tAction AddFloat()
{
    return Add("<p i=\"1\" v=\"-1.23e+10\" e=\"0\"/>", 1, -12345678901.0f, 0);
}

tAction WriteFloat()
{
    return []
    {
        Expect(XMLDiagnostics::float2String(0.5f, 3) == "0.5", "another short text");
        // Nine digits are exact; what comes behind is the value's own expansion.
        Expect(XMLDiagnostics::float2String(0.1f, 27) == "0.100000001490116119384765625", "another long text");
        return true;
    };
}

tAction ReadFloat()
{
    return []
    {
        Expect(XMLDiagnostics::string2Float("0000000000000000000000000000000000000000.5") == 0.5f, "another float");
        return true;
    };
}

tAction ReadInt()
{
    return []
    {
        Expect(XMLDiagnostics::string2Int("0000000000000000000000000000000000000000012") == 12, "another int");
        Expect(XMLDiagnostics::string2Int(std::string("12")) == 12 && XMLDiagnostics::int2String(-12) == "-12", "another int");
        return true;
    };
}

tAction PrintRouter()
{
    return []
    {
        std::ostringstream stream;
        stream << RouterDiagnostics::PORTS_A_TO_D << static_cast<RouterDiagnostics::NodeType>(12345)
               << RouterDiagnostics::ETHERNET_TYPE_UNDETERMINATE << RouterDiagnostics::SPLITTER_PORT_ERROR;
        return stream.good();
    };
}

const char c_szReport[] = "<?xml version=\"1.0\"?><VORN version=\"1.0\"><DEV name=\"Condor Router AES50 Port\" id=\"3\">"
                          "<p i=\"7\" v=\"a value that &amp; is longer than a small string\" e=\"another one that is longer\"/>"
                          "<p i=\"8\" v=\"v\" e=\"e\"/></DEV></VORN>";
const char c_szBroken[] = "<VORN version=\"1.0\">\n<DEV name=\"Condor Router AES50 Port\" id=\"3\"><p></DEV></VORN>";
const char c_szDeclared[] = "<!DOCTYPE VORN [<!ENTITY e \"x\">]><VORN version=\"1.0\"><DEV name=\"&e;\" id=\"3\"><p/></DEV></VORN>";
const char c_szIncomplete[] = "<VORN version=\"1.0\"><DEV name=\"Condor Router AES50 Port\" id=\"3\"><p i=\"7\"/></DEV></VORN>";

std::string ReportOf(int nParameters)
{
    VORNXMLWriter writer;
    writer.start_xml("1.0", "Condor Router AES50 Port", "3");
    for (int nParameter = 0; nParameter < nParameters; ++nParameter)
    {
        writer.add_attribute(nParameter, c_szLong, nParameter, nullptr);
    }
    return writer.m_strDocument;
}

tAction ConstructReader()
{
    return []
    {
        diagnostics_xml_reader reader;
        Expect(!reader.find_parameter(7) && !reader.mapHasElements() && !reader.HasSomeChildElements(),
               "something in a new reader");
        return reader.IsXML(c_szReport);
    };
}

// What is taken is taken whole. Memory that the XML library can do without may be lacking.
tAction Parse(const std::string& strReport, std::size_t unParameters)
{
    const auto pReader = std::make_shared<diagnostics_xml_reader>();
    const auto pReport = std::make_shared<std::string>(strReport);
    return [=]
    {
        pReader->ClearMap();
        const bool bParsed = pReader->parseAndPopulateMap(&(*pReport)[0], static_cast<int>(pReport->size()));
        Expect(!bParsed || pReader->GetMap().size() == unParameters, "parameters are lost");
        Expect(!bParsed || std::strcmp(pReader->GetDeviceType(), "Condor Router AES50 Port") == 0, "another device");
        Expect(!bParsed || pReader->GetDeviceID() == 3, "another device's number");
        for (const auto& entry : pReader->GetMap())
        {
            Expect(!bParsed || !(entry.second.i.empty() || entry.second.v.empty() || entry.second.e.empty()), "a value is lost");
        }
        return bParsed;
    };
}

tAction ParseTwoParameters()
{
    return Parse(c_szReport, 2);
}

tAction ParseManyParameters()
{
    return Parse(ReportOf(c_nManyParameters), c_nManyParameters);
}

tAction ParseAndCheck()
{
    const auto pReader = std::make_shared<diagnostics_xml_reader>();
    const auto pReport = std::make_shared<std::string>(c_szReport);
    return [pReader, pReport]
    {
        const bool bParsed = pReader->parseAndCheckForValidMessage(&(*pReport)[0], static_cast<int>(pReport->size()));
        Expect(pReader->GetMap().empty(), "parameters are filed");
        return bParsed;
    };
}

// A report that is refused with memory is refused without.
tAction ParseRefused(const char* szReport)
{
    const auto pReader = std::make_shared<diagnostics_xml_reader>();
    const auto pReport = std::make_shared<std::string>(szReport);
    return [pReader, pReport]
    {
        Expect(!pReader->parseAndPopulateMap(&(*pReport)[0], static_cast<int>(pReport->size())), "a bad report is taken");
        Expect(!pReader->find_parameter(7), "a parameter of a bad report");
        return true;
    };
}

tAction ParseBroken()
{
    return ParseRefused(c_szBroken);
}

tAction ParseDeclared()
{
    return ParseRefused(c_szDeclared);
}

tAction ParseIncomplete()
{
    return ParseRefused(c_szIncomplete);
}

tAction ReadMap()
{
    const auto pReader = std::make_shared<diagnostics_xml_reader>();
    const auto pReport = std::make_shared<std::string>(c_szReport);
    return [pReader, pReport]
    {
        {
            const CPlenty plenty;
            pReader->ClearMap();
            pReader->SetMapLimit(5);
            pReader->parseAndPopulateMap(&(*pReport)[0], static_cast<int>(pReport->size()));
        }
        Expect(pReader->find_parameter(8), "no parameter");
        Expect(pReader->get_at(7).e == "another one that is longer", "another value");
        Expect(pReader->get_at(99).e.empty() && pReader->GetMap().size() == 3, "another map");
        return true;
    };
}

// Under the stack heading, frames whose names can't be had are printed as they are.
template <class Policy>
tAction ReportFailure()
{
    return []
    {
        Policy policy;
        policy.ReportWhat("ASSERT", "void f(int)", "Source/f", 12, "x > 0", c_szLong, 0);
        policy.ReportBackTraceLineInfo(nullptr, nullptr);
        return policy.DoAction() == 0;
    };
}

tAction SendReport()
{
    const auto pSender = std::make_shared<CDiagnosticsSocketSender>();
    Expect(pSender->EstablishMulticastTransmitter("225.0.0.60", 9), "no socket");
    return [pSender]
    {
        pSender->Send(c_szReport, sizeof c_szReport - 1);
        return pSender->LastSendSucceeded();
    };
}

} // namespace

Faults::tOperations Faults::DiagnosticsOperations()
{
    return {
        {"VORNXMLWriter::start_xml", enBadAlloc, StartReport},
        {"VORNXMLWriter::add_attribute of texts", enBadAlloc, AddTexts},
        {"VORNXMLWriter::add_attribute of a number and texts", enBadAlloc, AddNumberAndTexts},
        {"VORNXMLWriter::add_attribute of numbers", enBadAlloc, AddNumbers},
        {"VORNXMLWriter::add_attribute of a float", enBadAlloc, AddFloat},
        {"float2String", enBadAlloc, WriteFloat},
        {"string2Float", enBadAlloc, ReadFloat},
        {"int2String and string2Int", enBadAlloc, ReadInt},
        {"router identifiers", enRefused, PrintRouter},
        {"diagnostics_xml_reader", enDone, ConstructReader},
        {"diagnostics_xml_reader::parseAndPopulateMap", enDone | enRefused, ParseTwoParameters},
        {"diagnostics_xml_reader::parseAndPopulateMap of many", enDone | enRefused, ParseManyParameters},
        {"diagnostics_xml_reader::parseAndCheckForValidMessage", enDone | enRefused, ParseAndCheck},
        {"diagnostics_xml_reader given a broken report", enDone, ParseBroken},
        {"diagnostics_xml_reader given a document type declaration", enDone, ParseDeclared},
        {"diagnostics_xml_reader given an incomplete report", enDone, ParseIncomplete},
        {"diagnostics_xml_reader is asked", enDone | enBadAlloc, ReadMap},
        {"AssertDoNothing", enDone, ReportFailure<AssertDoNothing>},
        {"InfoOnFail", enDone, ReportFailure<InfoOnFail>},
        {"CDiagnosticsSocketSender", enDone, SendReport},
    };
}
