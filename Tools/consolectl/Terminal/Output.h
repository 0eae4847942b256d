// What a subcommand finds, as rows of a table: aligned text for people, JSON or CSV for programs.
#pragma once

#include "Terminal/Common.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class CCommand;

enum enFormat
{
    enFormatText,
    enFormatJson, // an object a line
    enFormatCsv   // a line of names, then one for each row
};

// --format. What Line says goes to standard error beside JSON and CSV, so that only rows are on standard output.
void AddFormatOption(CCommand& command);
enFormat GetFormat();

struct stColumn
{
    const char* szName; // in JSON and CSV, and over the text
    int nWidth;         // of the text; negative: set to the right; 0: not in the text
};

// One value of a row. None: null in JSON, empty elsewhere.
class CCell
{
public:
    CCell();
    CCell(const char* szText);
    CCell(const std::string& strText);
    CCell(enTextStyle enStyle, const std::string& strText);
    CCell(int nNumber);
    CCell(long lNumber);
    CCell(unsigned int unNumber);
    CCell(double dNumber, int nDecimals);

    // Another text for people than for programs; a number as it is written.
    static CCell Text(const std::string& strPeople, const std::string& strPrograms);
    static CCell Number(const std::string& strNumber);

    // The same in a style.
    CCell In(enTextStyle enStyle) const;

    // "10:12:31.042" here, "2026-11-22T09:12:31.042117Z" for programs.
    static CCell Time(std::int64_t nTime);

private:
    friend class CTable;

    std::string m_strText;
    std::string m_strMachine; // of JSON and CSV
    enTextStyle m_enStyle = enPlain;
    bool m_bNumber = false;
    bool m_bNone = false;
};

// Rows of the same columns. The first row brings CSV's line of names along.
class CTable
{
public:
    explicit CTable(std::vector<stColumn> columns);

    // The names over the columns, in text alone.
    void PrintHead();
    // Live: the next line on the terminal takes its place.
    void Print(const std::vector<CCell>& row, bool bLive = false);

private:
    std::string TextLine(const std::vector<CCell>& row) const;
    std::string JsonLine(const std::vector<CCell>& row) const;

    const std::vector<stColumn> m_Columns;
    bool m_bNamed = false;
};

// The first rows, as many as were asked for (0: all). Says in the end how many there are beside them.
class CShortTable
{
public:
    CShortTable(int nMost, std::vector<stColumn> columns) : m_nMost(nMost), m_Table(std::move(columns)) {}
    ~CShortTable();
    CShortTable(const CShortTable&) = delete;
    CShortTable& operator=(const CShortTable&) = delete;

    void Print(const std::vector<CCell>& row);

private:
    const int m_nMost;
    int m_nRows = 0;
    CTable m_Table;
};

// What a command came to: a line for people, a row for programs.
void PrintResult(const std::string& strText, const std::vector<std::pair<const char*, CCell>>& row);

// How far long work has come: a bar on a terminal, nothing elsewhere. Gone when it ends.
class CProgress
{
public:
    CProgress(const std::string& strWhat, long lAll);
    ~CProgress();
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    void Show(long lDone);

private:
    const std::string m_strWhat;
    const long m_lAll;
    tSteadyClock::time_point m_NextShown = {};
    bool m_bShown = false;
};
