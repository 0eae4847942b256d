// Reports for tests of the reader, and what it prints of bad ones.
#pragma once

#include "Diagnostics/DiagnosticsXMLReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Support
{

inline const std::string c_strGood =
    "<VORN version=\"1.0\"><DEV name=\"SURFACE\" id=\"3\"><p i=\"7\" v=\"1\" e=\"2\"/></DEV></VORN>";

inline const std::string c_strIn = "WARNING - in diagnostics_xml_reader::";
inline const std::string c_strNull = c_strIn + "getXmlFromBuffer(char* buffer, int size):\n\txmlParseMemory() returned NULL!\n";
inline const std::string c_strWrongRoot =
    c_strIn + "getXmlFromBuffer(char* buffer, int size):\n\tBad XML document or wrong document type\n";
inline const std::string c_strNoDevice = c_strIn + "GetMsgDeviceType():\n\t\"name\" or \"id\" field returned NULL!\n";
inline const std::string c_strBadDevice = c_strNoDevice + c_strIn + "getXmlFromBuffer():\n\tGetMsgDeviceType() failed!\n";
inline const std::string c_strIncomplete = c_strIn + "populateMap():\n\t\"name\" or \"id\" field returned NULL!\n";
inline const std::string c_strEmptyMap =
    c_strIn + "find_parameter(int parameter):\n\tTrying to read an element of a valid but empty XML document!\n";

inline std::string NoElementsInMap(const std::string& strType)
{
    return c_strIn + "parseAndPopulateMap():\n\t" + strType + "map has 0 elements!\n";
}

inline std::string NoElementsInDocument(const std::string& strType)
{
    return c_strIn + "parseAndCheckForValidMessage():\n\t" + strType + "XML document has 0 elements!\n";
}

inline std::string Device(const std::string& strInside)
{
    return "<VORN version=\"1.0\"><DEV name=\"X\" id=\"12\">" + strInside + "</DEV></VORN>";
}

// A p element whose value tells it from another of its number.
inline std::string P(int nNumber, const std::string& strValue = "1")
{
    return "<p i=\"" + std::to_string(nNumber) + "\" v=\"" + strValue + "\" e=\"0\"/>";
}

inline std::string All(const XMLDiagnostics::XMLElement& element)
{
    return element.i + "|" + element.v + "|" + element.e;
}

inline std::string Repeat(const std::string& strText, int nTimes)
{
    std::string strAll;
    for (int nTime = 0; nTime < nTimes; ++nTime)
    {
        strAll += strText;
    }
    return strAll;
}

// Characters of two bytes, after their mark.
inline std::string Wide(const std::string& strText, bool bBig)
{
    std::string strWide = bBig ? "\xfe\xff" : "\xff\xfe";
    for (const char c : strText)
    {
        strWide += bBig ? std::string(1, '\0') + c : c + std::string(1, '\0');
    }
    return strWide;
}

// A reader whose output is caught. Reports lie in buffers of just their size, and must stay as they are.
class CCaughtReader : public testing::Test
{
protected:
    template <typename F>
    bool Catch(F call)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const bool bResult = call();
        m_strPrinted = testing::internal::GetCapturedStdout();
        EXPECT_EQ("", testing::internal::GetCapturedStderr());
        return bResult;
    }

    bool Give(bool (diagnostics_xml_reader::*pOperation)(char*, int), const std::string& strReport)
    {
        std::vector<char> buffer(strReport.begin(), strReport.end());
        const bool bResult = Catch([&] { return (m_Reader.*pOperation)(buffer.data(), static_cast<int>(buffer.size())); });
        EXPECT_EQ(strReport, std::string(buffer.begin(), buffer.end()));
        return bResult;
    }

    bool Populate(const std::string& strReport) { return Give(&diagnostics_xml_reader::parseAndPopulateMap, strReport); }
    bool Check(const std::string& strReport) { return Give(&diagnostics_xml_reader::parseAndCheckForValidMessage, strReport); }
    bool Parse(const std::string& strReport) { return Give(&diagnostics_xml_reader::getXmlFromBuffer, strReport); }
    bool Validate(const std::string& strFile)
    {
        const bool bResult = Catch([&] { return m_Reader.validate(strFile.c_str()); });
        EXPECT_EQ("", m_strPrinted);
        return bResult;
    }

    std::vector<int> Keys() const
    {
        std::vector<int> keys;
        for (const auto& entry : m_Reader.GetMap())
        {
            keys.push_back(entry.first);
        }
        return keys;
    }

    diagnostics_xml_reader m_Reader;
    std::string m_strPrinted;
};

} // namespace Support
