#include "Exhaustive/DamagedReport.h"

#include <algorithm>
#include <cstdlib>

namespace Exhaustive
{

const char* const c_szReport =
    "<?xml version=\"1.0\"?><VORN version=\"1.0\"><DEV name=\"SURFACE\" id=\"3\"><p i=\"0\" v=\"1234\" e=\"0\"/>"
    "<p i=\"1\" v=\"-5.25\" e=\"7\"/></DEV></VORN>";

bool CReportCheck::Parse(const std::string& strText)
{
    char* pText = reinterpret_cast<char*>(m_Block.Put(strText.data(), strText.size()));
    const int nSize = static_cast<int>(strText.size());
    m_Reader.ClearMap();
    const bool bChecked = m_Reader.parseAndCheckForValidMessage(pText, nSize);
    const bool bFiled = m_Reader.parseAndPopulateMap(pText, nSize);
    return bFiled && bChecked && m_Reader.mapHasElements();
}

std::string CReportCheck::Of(const std::string& strText)
{
    const std::string strIn = Normalised(strText);
    const auto stands = [&](const std::string& strQuoted) { return strIn.find("\"" + strQuoted + "\"") != std::string::npos; };
    if (!stands(m_Reader.GetDeviceType()))
    {
        return "device type";
    }
    for (const auto& entry : m_Reader.GetMap())
    {
        if (!stands(entry.second.i) || !stands(entry.second.v) || !stands(entry.second.e) ||
            std::atoi(entry.second.i.c_str()) != entry.first)
        {
            return "element " + entry.second.i;
        }
    }
    return m_Reader.GetMap().size() <= 2 ? "" : "number of elements";
}

std::string Normalised(std::string strText)
{
    std::replace_if(
        strText.begin(), strText.end(), [](char c) { return c == '\t' || c == '\n' || c == '\r'; }, ' ');
    return strText;
}

} // namespace Exhaustive
