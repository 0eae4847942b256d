// Diagnostics reports: parsed, filed, validated.
#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Input.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <map>
#include <string>

using namespace Fuzz;

namespace
{

struct stParameter
{
    std::string strI;
    std::string strV;
    std::string strE;
};

typedef std::map<int, stParameter> tMap;

struct stReportModel
{
    std::string strVersion;
    std::string strName;
    std::string strId;
    std::vector<stParameter> parameters;
    bool bRoot = false;       // the root is the one that reports have
    bool bIncomplete = false; // an attribute of a parameter is missing; those before it are in the list
};

// As a standard stream reads an int: blanks, a sign, digits up to the first other character; the nearest value beyond its range.
int ToInt(const std::string& strText)
{
    std::size_t unAt = strText.find_first_not_of(' ');
    unAt = unAt == std::string::npos ? strText.size() : unAt;
    const bool bNegative = unAt < strText.size() && strText[unAt] == '-';
    unAt += unAt < strText.size() && (strText[unAt] == '-' || strText[unAt] == '+') ? 1 : 0;
    std::int64_t nValue = 0;
    for (; unAt < strText.size() && strText[unAt] >= '0' && strText[unAt] <= '9'; ++unAt)
    {
        nValue = std::min<std::int64_t>(nValue * 10 + (strText[unAt] - '0'), std::int64_t(INT_MAX) + 1);
    }
    nValue = bNegative ? -nValue : std::min<std::int64_t>(nValue, INT_MAX);
    return static_cast<int>(nValue);
}

// What the schema takes for an int: a sign, digits, within 32 bits.
bool IsSchemaInt(const std::string& strText)
{
    const bool bNegative = strText.compare(0, 1, "-") == 0;
    const std::string strDigits = strText.substr(bNegative || strText.compare(0, 1, "+") == 0 ? 1 : 0);
    if (strDigits.empty() || strDigits.find_first_not_of("0123456789") != std::string::npos)
    {
        return false;
    }
    std::int64_t nValue = 0;
    for (const char c : strDigits)
    {
        nValue = std::min<std::int64_t>(nValue * 10 + (c - '0'), std::int64_t(INT_MAX) * 4);
    }
    return nValue <= std::int64_t(INT_MAX) + (bNegative ? 1 : 0);
}

// Schemas allow blanks around an int; not every XML library does.
bool HasBlank(const std::string& strText)
{
    return strText.find(' ') != std::string::npos;
}

// Takes exactly what a writer of reports makes, to the letter; the root may have another name, and a parameter lack an attribute.
class CStrictParser
{
public:
    explicit CStrictParser(const std::string& strText) : m_strText(strText) {}

    bool Parse(stReportModel& report)
    {
        std::string strRoot;
        if (!Take("<?xml version=\"1.0\"?><") || !Name(strRoot) || !Take(" version=\"") || !Value(report.strVersion) ||
            !Take("><DEV name=\"") || !Value(report.strName) || !Take(" id=\"") || !Value(report.strId) || !Take(">"))
        {
            return false;
        }
        report.bRoot = strRoot == "VORN";
        while (Take("<p"))
        {
            stParameter parameter;
            const bool bI = Take(" i=\"");
            const bool bRead = !bI || Value(parameter.strI);
            const bool bV = bRead && Take(" v=\"");
            const bool bReadV = bRead && (!bV || Value(parameter.strV));
            const bool bE = bReadV && Take(" e=\"");
            if (!bReadV || (bE && !Value(parameter.strE)) || !Take("/>"))
            {
                return false;
            }
            report.bIncomplete = report.bIncomplete || !bI || !bV || !bE;
            report.parameters.push_back(parameter);
        }
        return Take("</DEV></") && Take(strRoot.c_str()) && Take(">") && m_unAt == m_strText.size();
    }

private:
    bool Take(const char* szText)
    {
        const std::string strWanted = szText;
        const bool bThere = m_strText.compare(m_unAt, strWanted.size(), strWanted) == 0;
        m_unAt += bThere ? strWanted.size() : 0;
        return bThere;
    }

    bool Name(std::string& strName)
    {
        for (; m_unAt < m_strText.size() && std::isalpha(static_cast<unsigned char>(m_strText[m_unAt])) != 0; ++m_unAt)
        {
            strName += m_strText[m_unAt];
        }
        return !strName.empty();
    }

    // Up to the closing quote: printable characters that need no escape.
    bool Value(std::string& strValue)
    {
        for (; m_unAt < m_strText.size() && m_strText[m_unAt] != '"'; ++m_unAt)
        {
            const char c = m_strText[m_unAt];
            if (c < ' ' || c > '~' || c == '<' || c == '&')
            {
                return false;
            }
            strValue += c;
        }
        return Take("\"");
    }

    std::string m_strText;
    std::size_t m_unAt = 0;
};

bool IsSame(const std::map<int, XMLDiagnostics::XMLElement>& filed, const tMap& expected)
{
    if (filed.size() != expected.size())
    {
        return false;
    }
    for (const auto& entry : expected)
    {
        const auto found = filed.find(entry.first);
        if (found == filed.end() || found->second.i != entry.second.strI || found->second.v != entry.second.strV ||
            found->second.e != entry.second.strE)
        {
            return false;
        }
    }
    return true;
}

tMap Entries(const std::map<int, XMLDiagnostics::XMLElement>& filed)
{
    tMap entries;
    for (const auto& entry : filed)
    {
        entries[entry.first] = {entry.second.i, entry.second.v, entry.second.e};
    }
    return entries;
}

bool ParseText(diagnostics_xml_reader& reader, const std::string& strText)
{
    const CExact exact(reinterpret_cast<const unsigned char*>(strText.data()), strText.size());
    return reader.parseAndPopulateMap(exact.Text(), static_cast<int>(strText.size()));
}

const char c_szGood[] =
    "<?xml version=\"1.0\"?><VORN version=\"1.0\"><DEV name=\"SURFACE\" id=\"3\"><p i=\"-77001\" v=\"1234\" e=\"0\"/>"
    "</DEV></VORN>";

// A good report goes through, whatever came before it.
void ExpectGood(diagnostics_xml_reader& reader, tMap& expected)
{
    Check(ParseText(reader, c_szGood), "a good report is refused: %s", reader.GetError().c_str());
    expected[-77001] = {"-77001", "1234", "0"};
    Check(IsSame(reader.GetMap(), expected), "a good report is not what is in the map");
    Check(std::string(reader.GetDeviceType()) == "SURFACE" && reader.GetDeviceID() == 3,
          "a good report is said to be from another");
}

void CheckStrict(diagnostics_xml_reader& reader, const stReportModel& report, bool bParsed, tMap& expected)
{
    bool bValid = IsSchemaInt(report.strId);
    bool bBlanks = HasBlank(report.strId);
    if (!report.bRoot || report.bIncomplete)
    {
        Check(!bParsed, "a report with another root, or without all attributes, is taken");
        Check(IsSame(reader.GetMap(), report.bRoot ? tMap() : expected), "a refused report's map is another");
        Check(!reader.validate(SCHEMA_FILE), "a refused report is valid");
        return;
    }
    for (const stParameter& parameter : report.parameters)
    {
        expected[ToInt(parameter.strI)] = parameter;
        bValid = bValid && IsSchemaInt(parameter.strI);
        bBlanks = bBlanks || HasBlank(parameter.strI);
    }
    Check(bParsed, "a report is refused: %s", reader.GetError().c_str());
    Check(IsSame(reader.GetMap(), expected), "a report's parameters are not what is in the map");
    Check(reader.GetDeviceType() == report.strName, "the device is said to be %s", reader.GetDeviceType());
    Check(reader.GetDeviceID() == ToInt(report.strId), "the device's id is said to be %d", reader.GetDeviceID());
    for (const auto& entry : expected)
    {
        Check(reader.find_parameter(entry.first) && reader.get_at(entry.first).v == entry.second.strV, "parameter %d is not found",
              entry.first);
    }
    Check(reader.validate(SCHEMA_FILE) == bValid || bBlanks, "a report is said to be valid, or not, against the schema");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t unSize)
{
    static diagnostics_xml_reader& reader = *new diagnostics_xml_reader;
    const std::string strText(reinterpret_cast<const char*>(pData), unSize);
    tMap expected;
    reader.ClearMap();
    ExpectGood(reader, expected);

    const bool bParsed = ParseText(reader, strText);
    stReportModel report;
    const bool bStrict = CStrictParser(strText).Parse(report);
    if (bStrict)
    {
        CheckStrict(reader, report, bParsed, expected);
    }
    else if (!bParsed)
    {
        // Refused: what was filed before stays, or a parameter without all its attributes emptied the map.
        Check(reader.GetMap().empty() || IsSame(reader.GetMap(), expected), "a refused report left something in the map");
        reader.validate(SCHEMA_FILE);
    }
    else
    {
        Check(!reader.GetMap().empty(), "a report without a parameter was taken");
        reader.validate(SCHEMA_FILE);
    }
    expected = Entries(reader.GetMap());

    const CExact exact(pData, unSize);
    const bool bMessage = reader.parseAndCheckForValidMessage(exact.Text(), static_cast<int>(unSize));
    Check(!bStrict || bMessage == (report.bRoot && !report.parameters.empty()), "a report is said to be a message, or not");
    Check(IsSame(reader.GetMap(), expected), "a check alone changed the map");
    const std::string strTerminated = strText.substr(0, strText.find('\0'));
    Check(reader.IsXML(strTerminated.c_str()) == (strTerminated.compare(0, 5, "<?xml") == 0),
          "the first five characters were misjudged");
    ExpectGood(reader, expected);
    return 0;
}
