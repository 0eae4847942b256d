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
    const char* szName;    // in JSON and CSV, and over the text
    int nWidth;            // of the text; negative: set to the right; 0: not in the text
    bool bMayLack = false; // left out on a terminal that the whole row doesn't fit on
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
    void Fit();
    std::string TextLine(const std::vector<CCell>& row, bool bLive) const;
    std::string JsonLine(const std::vector<CCell>& row) const;

    std::vector<stColumn> m_Columns;
    int m_nMost = 0; // characters of a line; 0: any number
    bool m_bNamed = false;
};

// How many rows a table shows: 0 for all; c_nEnough for some to people, and all to programs.
constexpr int c_nEnough = -1;

// --count, of what strWhat names.
void AddRowsOption(CCommand& command, int& nRows, const std::string& strWhat);

// The first rows, as many as were asked for. Says in the end how many there are beside them.
class CShortTable
{
public:
    CShortTable(int nMost, std::vector<stColumn> columns);
    ~CShortTable();
    CShortTable(const CShortTable&) = delete;
    CShortTable& operator=(const CShortTable&) = delete;

    void PrintHead() { m_Table.PrintHead(); }
    bool Print(const std::vector<CCell>& row); // false: it is one too many

    // A sum, which people are told otherwise.
    void PrintForPrograms(const std::vector<CCell>& row);

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
