#include "Terminal/Output.h"

#include "Terminal/Command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <numeric>

namespace
{

enFormat g_enFormat = enFormatText;

constexpr int c_nGap = 2;              // blanks between columns
constexpr int c_nEnoughForPeople = 10; // rows

std::string Quoted(const std::string& strText)
{
    return nlohmann::json(strText).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

std::string CsvField(const std::string& strText)
{
    if (strText.find_first_of(",\"\r\n") == std::string::npos)
    {
        return strText;
    }
    std::string strField = "\"";
    for (const char c : strText)
    {
        strField += c == '"' ? "\"\"" : std::string(1, c);
    }
    return strField + "\"";
}

std::string TimeFormat(const char* szFormat, const std::tm& time)
{
    char acText[32] = "";
    std::strftime(acText, sizeof acText, szFormat, &time);
    return acText;
}

} // namespace

void AddFormatOption(CCommand& command)
{
    static const std::vector<std::string> names = {"text", "json", "csv"};
    const auto take = [](const std::string& strName)
    {
        g_enFormat = static_cast<enFormat>(std::find(names.begin(), names.end(), strName) - names.begin());
        SendNotesAside(g_enFormat != enFormatText);
    };
    command.Option("--format", take, "How it is printed: text for people, json (an object a line) or csv")
        .OneOf(names)
        .Default("text");
}

enFormat GetFormat()
{
    return g_enFormat;
}

CCell::CCell() : m_bNone(true) {}

CCell::CCell(const char* szText) : CCell(std::string(szText)) {}

CCell::CCell(const std::string& strText) : m_strText(Printable(strText)), m_strMachine(strText) {}

CCell::CCell(enTextStyle enStyle, const std::string& strText) : CCell(strText)
{
    m_enStyle = enStyle;
}

CCell::CCell(int nNumber) : CCell(static_cast<long>(nNumber)) {}

CCell::CCell(long lNumber) : m_strText(Grouped(lNumber)), m_strMachine(std::to_string(lNumber)), m_bNumber(true) {}

CCell::CCell(unsigned int unNumber)
    : m_strText(Grouped(static_cast<long>(unNumber))), m_strMachine(std::to_string(unNumber)), m_bNumber(true)
{
}

CCell::CCell(double dNumber, int nDecimals)
    : m_strText(Format("%.*f", nDecimals, dNumber)), m_strMachine(m_strText), m_bNumber(std::isfinite(dNumber))
{
}

CCell CCell::Text(const std::string& strPeople, const std::string& strPrograms)
{
    CCell cell(strPeople);
    cell.m_strMachine = strPrograms;
    return cell;
}

CCell CCell::Number(const std::string& strNumber)
{
    CCell cell(strNumber);
    cell.m_bNumber = strNumber.find_first_not_of("+-.0123456789e") == std::string::npos; // neither "inf" nor "nan"
    return cell;
}

CCell CCell::In(enTextStyle enStyle) const
{
    CCell cell = *this;
    cell.m_enStyle = enStyle;
    return cell;
}

CCell CCell::Time(std::int64_t nTime)
{
    const std::time_t seconds = static_cast<std::time_t>(nTime / 1000000);
    const int nMicroseconds = static_cast<int>(nTime % 1000000);
    std::tm here = {};
    std::tm utc = {};
    localtime_r(&seconds, &here);
    gmtime_r(&seconds, &utc);
    CCell cell;
    cell.m_bNone = false;
    cell.m_strText = TimeFormat("%H:%M:%S", here) + Format(".%03d", nMicroseconds / 1000);
    cell.m_strMachine = TimeFormat("%Y-%m-%dT%H:%M:%S", utc) + Format(".%06dZ", nMicroseconds);
    return cell;
}

CTable::CTable(std::vector<stColumn> columns) : m_Columns(std::move(columns)) {}

void CTable::PrintHead()
{
    Fit();
    if (g_enFormat == enFormatText)
    {
        std::vector<CCell> names;
        for (const stColumn& column : m_Columns)
        {
            names.emplace_back(enStrong, column.szName);
        }
        Line("%s", TextLine(names, false).c_str());
    }
}

void CTable::Print(const std::vector<CCell>& row, bool bLive)
{
    Fit();
    if (g_enFormat == enFormatText)
    {
        bLive ? LiveLine(TextLine(row, bLive)) : Line("%s", TextLine(row, bLive).c_str());
        return;
    }
    std::string strText;
    if (g_enFormat == enFormatJson)
    {
        strText = JsonLine(row) + "\n";
    }
    else
    {
        for (std::size_t unColumn = 0; unColumn < m_Columns.size() && !m_bNamed; ++unColumn)
        {
            strText += (unColumn == 0 ? "" : ",") + std::string(m_Columns[unColumn].szName);
        }
        strText += m_bNamed ? "" : "\n";
        for (std::size_t unColumn = 0; unColumn < m_Columns.size(); ++unColumn)
        {
            strText += (unColumn == 0 ? "" : ",") + CsvField(Printable(row[unColumn].m_strMachine));
        }
        strText += "\n";
    }
    m_bNamed = true;
    std::fwrite(strText.data(), 1, strText.size(), RowsOutput());
    std::fflush(RowsOutput());
}

// To the terminal. What it has no room for is said: another format has it all.
void CTable::Fit()
{
    if (m_nMost > 0 || !IsTerminal() || g_enFormat != enFormatText)
    {
        return;
    }
    m_nMost = std::max(TerminalWidth() - 1, 1);
    const int nWidth = std::accumulate(m_Columns.begin(), m_Columns.end(), -c_nGap,
                                       [](int nSum, const stColumn& column)
                                       { return nSum + (column.nWidth == 0 ? 0 : std::abs(column.nWidth) + c_nGap); });
    std::vector<std::string> leftOut;
    for (stColumn& column : m_Columns)
    {
        if (nWidth > m_nMost && column.bMayLack)
        {
            column.nWidth = 0;
            leftOut.emplace_back(column.szName);
        }
    }
    if (!leftOut.empty())
    {
        Line("%s", Styled(enFaint, Format("(%d columns: no room for %s)", m_nMost + 1, Joined(leftOut, ", ").c_str())).c_str());
    }
}

// The last cell isn't padded, and a cell that needs more room than its column takes it. What doesn't fit on the terminal's line
// goes on in the next one, unless that is live.
std::string CTable::TextLine(const std::vector<CCell>& row, bool bLive) const
{
    std::string strLine;
    std::string strBlanks; // before the next cell
    int nUsed = 0;
    for (std::size_t unColumn = 0; unColumn < m_Columns.size(); ++unColumn)
    {
        const int nWidth = m_Columns[unColumn].nWidth;
        if (nWidth == 0)
        {
            continue;
        }
        const CCell& cell = row[unColumn];
        const std::string strPadded = Padded(cell.m_strText, nWidth);
        const bool bFits = m_nMost == 0 || bLive || nUsed + Width(strBlanks + strPadded) <= m_nMost;
        if (!bFits && nUsed > 0)
        {
            strLine += "\n";
            strBlanks = std::string(2 * c_nGap, ' ');
            nUsed = 0;
        }
        if (!bFits && Width(strBlanks + strPadded) > m_nMost)
        {
            strLine += Styled(cell.m_enStyle, Wrapped(strBlanks + cell.m_strText, m_nMost, 2 * c_nGap));
            nUsed = m_nMost; // what follows begins a line
            strBlanks = std::string(c_nGap, ' ');
            continue;
        }
        // The style goes round the text alone: blanks have none.
        const std::size_t unBefore = nWidth < 0 ? strPadded.size() - cell.m_strText.size() : 0;
        strLine += strBlanks + strPadded.substr(0, unBefore) + Styled(cell.m_enStyle, cell.m_strText);
        nUsed += Width(strBlanks) + static_cast<int>(unBefore) + Width(cell.m_strText);
        strBlanks = strPadded.substr(unBefore + cell.m_strText.size()) + std::string(c_nGap, ' ');
    }
    strLine.erase(strLine.find_last_not_of(' ') + 1);
    return strLine;
}

std::string CTable::JsonLine(const std::vector<CCell>& row) const
{
    std::string strLine = "{";
    for (std::size_t unColumn = 0; unColumn < m_Columns.size(); ++unColumn)
    {
        const CCell& cell = row[unColumn];
        strLine += (unColumn == 0 ? "" : ", ") + Quoted(m_Columns[unColumn].szName) + ": " +
                   (cell.m_bNone     ? "null"
                    : cell.m_bNumber ? cell.m_strMachine
                                     : Quoted(cell.m_strMachine));
    }
    return strLine + "}";
}

void AddRowsOption(CCommand& command, int& nRows, const std::string& strWhat)
{
    COption count = command.Option("--count", nRows, "Show so many " + strWhat + "; 0: all").Within(0, 1000000000);
    if (nRows == c_nEnough)
    {
        count.Default(Format("%d, all in json and csv", c_nEnoughForPeople));
    }
}

CShortTable::CShortTable(int nMost, std::vector<stColumn> columns)
    : m_nMost(nMost != c_nEnough           ? nMost
              : g_enFormat == enFormatText ? c_nEnoughForPeople
                                           : 0),
      m_Table(std::move(columns))
{
}

CShortTable::~CShortTable()
{
    if (m_nMost > 0 && m_nRows > m_nMost)
    {
        Line("... and %s more; --count 0 shows all", Grouped(m_nRows - m_nMost).c_str());
    }
}

bool CShortTable::Print(const std::vector<CCell>& row)
{
    const bool bShown = ++m_nRows <= m_nMost || m_nMost == 0;
    if (bShown)
    {
        m_Table.Print(row);
    }
    return bShown;
}

void CShortTable::PrintForPrograms(const std::vector<CCell>& row)
{
    if (g_enFormat != enFormatText)
    {
        m_Table.Print(row);
    }
}

void PrintResult(const std::string& strText, const std::vector<std::pair<const char*, CCell>>& row)
{
    if (g_enFormat == enFormatText)
    {
        Line("%s", strText.c_str());
        return;
    }
    std::vector<stColumn> columns;
    std::vector<CCell> cells;
    for (const auto& named : row)
    {
        columns.push_back({named.first, 1});
        cells.push_back(named.second);
    }
    CTable(columns).Print(cells);
}

CProgress::CProgress(const std::string& strWhat, long lAll) : m_strWhat(strWhat), m_lAll(std::max(lAll, 1L)) {}

CProgress::~CProgress()
{
    if (m_bShown)
    {
        LiveLine("");
    }
}

void CProgress::Show(long lDone)
{
    constexpr int c_nWidth = 30;
    const tSteadyClock::time_point now = tSteadyClock::now();
    if (!IsTerminal() || g_enFormat != enFormatText || now < m_NextShown)
    {
        return;
    }
    m_NextShown = now + std::chrono::milliseconds(100);
    m_bShown = true;
    const double dShare = std::min(static_cast<double>(lDone) / static_cast<double>(m_lAll), 1.0);
    const int nFull = static_cast<int>(dShare * c_nWidth);
    std::string strBar;
    for (int nPlace = 0; nPlace < c_nWidth; ++nPlace)
    {
        strBar += nPlace < nFull ? "█" : "░";
    }
    LiveLine(Format("%s %s %3.0f %%", m_strWhat.c_str(), strBar.c_str(), dShare * 100));
}
