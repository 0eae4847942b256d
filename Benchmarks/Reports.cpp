// Diagnostics reports: written, and read.
#include "Bench.h"

#include "LogicalControls.h"

#include <benchmark/benchmark.h>

#include <libxml/parser.h>

#include <memory>
#include <string>

namespace
{

constexpr int c_nParameters = 149;

void Write(VORNXMLWriter& writer)
{
    writer.start_xml("1.0", XMLDiagnostics::XNT_SURFACE, 3);
    for (int nParameter = 0; nParameter < c_nParameters; ++nParameter)
    {
        writer.add_attribute(nParameter, 1000 + nParameter, 0, nullptr);
    }
}

// The XML library's own work on a report, nothing looked at.
std::function<void()> PlainParse(const std::string& strReport)
{
    return [=]
    {
        xmlDoc* const pDocument = xmlReadMemory(strReport.data(), static_cast<int>(strReport.size()), nullptr, nullptr, 0);
        benchmark::DoNotOptimize(pDocument);
        xmlFreeDoc(pDocument);
    };
}

std::string Report()
{
    VORNXMLWriter writer;
    Write(writer);
    return writer.m_strDocument;
}

} // namespace

void AddReportCases()
{
    AddCase({"XML writer, 149 parameters", "the XML library's parse of it", enCost, 0, 0},
            []
            {
                const auto pWriter = std::make_shared<VORNXMLWriter>();
                return stSides{[=] { Write(*pWriter); }, PlainParse(Report()), 1};
            });
    AddCase({"XML reader, 149 parameters", "the XML library's parse of it", enCost, 0, 1.5},
            []
            {
                const auto pReader = std::make_shared<diagnostics_xml_reader>();
                std::string strReport = Report();
                const auto ours = [=]() mutable
                {
                    if (!pReader->parseAndPopulateMap(strReport.data(), static_cast<int>(strReport.size())))
                    {
                        throw std::string("the report is refused");
                    }
                };
                return stSides{ours, PlainParse(strReport), 1};
            });
}
