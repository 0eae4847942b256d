#include "Network/Report.h"

#include "Terminal/Output.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace
{

const char c_szForbidden[] = "\"<&";

// The number that a text stands for: digits, or a parameter's name. False when it is neither.
bool ParseParameter(const std::string& strText, int& nNumber)
{
    if (ParseNumber(strText, nNumber))
    {
        return true;
    }
    for (nNumber = 0; nNumber < XMLDiagnosticsParametersDSP::c_nNames; ++nNumber)
    {
        const char* szName = XMLDiagnosticsParametersDSP::GetName(nNumber);
        // The second one's text goes on behind its name.
        if (szName != nullptr && strText == std::string(szName, std::strcspn(szName, " ")))
        {
            return true;
        }
    }
    return false;
}

std::string NameText(int nNumber)
{
    const char* szName = XMLDiagnosticsParametersDSP::GetName(nNumber);
    return szName != nullptr ? szName : "-";
}

// Columns are as wide as what stands in them, up to a point.
int Widen(int nWidth, const std::string& strText)
{
    constexpr std::size_t c_unWidest = 48;
    return std::max(nWidth, static_cast<int>(std::min(strText.size(), c_unWidest)));
}

// A row for each parameter.
void PrintRows(const diagnostics_xml_reader& reader, const std::string& strSender)
{
    static CTable table({{"time", 1}, {"sender", 1}, {"device", 1}, {"number", 1}, {"name", 1}, {"value", 1}, {"second", 1}});
    const CCell now = CCell::Time(TimeNow());
    for (const auto& entry : reader.GetMap())
    {
        table.Print({now, strSender, DeviceText(reader), entry.first, NameText(entry.first), entry.second.v, entry.second.e});
    }
}

} // namespace

stReportedValue ParseReportedValue(const std::string& strText)
{
    const std::size_t unEqual = strText.find('=');
    const std::string strNumber = strText.substr(0, unEqual);
    stReportedValue value = {};
    if (unEqual == std::string::npos || !ParseParameter(strNumber, value.nNumber))
    {
        throw stWrongUse(strText, "is not a PARAMETER=VALUE, whose parameter is a number or a name such as enUpTime");
    }
    const std::string strError = CheckReportText(strText);
    if (!strError.empty())
    {
        throw stWrongUse(strText, strError);
    }
    const std::string strValues = strText.substr(unEqual + 1);
    const std::size_t unComma = strValues.find(',');
    value.strValue = strValues.substr(0, unComma);
    value.strSecond = unComma == std::string::npos ? "0" : strValues.substr(unComma + 1);
    return value;
}

std::string CheckReportText(const std::string& strText)
{
    const bool bPlain = std::all_of(strText.begin(), strText.end(), [](char c) { return c >= ' ' && c <= '~'; });
    const bool bTaken = bPlain && strText.find_first_of(c_szForbidden) == std::string::npos;
    return bTaken ? std::string() : "a report's texts are printable ASCII without \", < and &";
}

std::string MakeReport(const std::string& strDevice, int nId, const std::vector<stReportedValue>& values)
{
    VORNXMLWriter writer;
    writer.start_xml(XMLDiagnostics::c_strFormatVersion.c_str(), strDevice.c_str(), XMLDiagnostics::int2String(nId).c_str());
    for (const stReportedValue& value : values)
    {
        writer.add_attribute(value.nNumber, value.strValue.c_str(), value.strSecond.c_str(), nullptr);
    }
    return writer.m_strDocument;
}

std::vector<stReportedValue> SampleValues()
{
    std::vector<stReportedValue> values;
    for (const char* szValue :
         {"enUpTime=3600", "enGeneralMute=0", "en_fx_dsp_local_temperature_1=41.5", "en_main_dsp_local_temperature_1=43",
          "enRoleNumber=1", "enRoleName=Sample", "enUDPState=1", "enUDPTimeouts=0", "enRail5v=5.02", "enRail48V=47.9"})
    {
        values.push_back(ParseReportedValue(szValue));
    }
    return values;
}

bool ReadReport(diagnostics_xml_reader& reader, char* pBuffer, int nSize)
{
    reader.ClearMap();
    if (!reader.getXmlFromBuffer(pBuffer, nSize))
    {
        return false;
    }
    reader.populateMap();
    return reader.mapHasElements();
}

std::string DeviceText(const diagnostics_xml_reader& reader)
{
    constexpr std::size_t c_unLongest = 60;
    const std::string strType = reader.GetDeviceType();
    const std::string strShown = Printable(strType.substr(0, c_unLongest)) + (strType.size() > c_unLongest ? "..." : "");
    return strShown + " " + std::to_string(reader.GetDeviceID());
}

void PrintReport(const std::string& strHeading, const diagnostics_xml_reader& reader, const std::string& strSender)
{
    if (GetFormat() != enFormatText)
    {
        PrintRows(reader, strSender);
        return;
    }
    struct stRow
    {
        std::string strNumber, strName, strValue, strSecond;
    };
    std::vector<stRow> rows = {{"number", "name", "value", "second"}};
    for (const auto& entry : reader.GetMap())
    {
        rows.push_back({std::to_string(entry.first), NameText(entry.first), Printable(entry.second.v), Printable(entry.second.e)});
    }
    int nName = 0;
    int nValue = 0;
    for (const stRow& row : rows)
    {
        nName = Widen(nName, row.strName);
        nValue = Widen(nValue, row.strValue);
    }
    Line("%s", strHeading.c_str());
    for (const stRow& row : rows)
    {
        const std::string strRow = Format("  %6s  %-*s  %-*s  %s", row.strNumber.c_str(), nName, row.strName.c_str(), nValue,
                                          row.strValue.c_str(), row.strSecond.c_str());
        Line("%s", Styled(&row == &rows.front() ? enFaint : enPlain, strRow).c_str());
    }
}
