// The worked examples and byte maps of a Markdown document, as text that a test can hold against what the library does.
#pragma once

#include "Support/Bytes.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace Support
{

typedef std::vector<std::string> tTextLines;

inline tTextLines ReadLines(const std::string& strFile)
{
    std::ifstream file(strFile);
    tTextLines lines;
    for (std::string strLine; std::getline(file, strLine);)
    {
        lines.push_back(strLine);
    }
    return lines;
}

// "| a | b |" as "a" and "b"; nothing when it is no row of a table.
inline tTextLines Cells(const std::string& strLine)
{
    tTextLines cells;
    for (std::size_t unAt = 2, unNext = 0; strLine.compare(0, 2, "| ") == 0 && unAt < strLine.size(); unAt = unNext + 3)
    {
        unNext = strLine.find(" | ", unAt);
        if (unNext == std::string::npos)
        {
            const bool bClosed = strLine.size() >= unAt + 2 && strLine.compare(strLine.size() - 2, 2, " |") == 0;
            return bClosed ? (cells.push_back(strLine.substr(unAt, strLine.size() - 2 - unAt)), cells) : tTextLines();
        }
        cells.push_back(strLine.substr(unAt, unNext - unAt));
    }
    return tTextLines();
}

// The lines between "<!-- KIND: NAME -->" and "<!-- end -->", by name.
inline std::map<std::string, tTextLines> MarkedLines(const tTextLines& lines, const std::string& strKind)
{
    const std::string strBegin = "<!-- " + strKind + ": ";
    std::map<std::string, tTextLines> marked;
    tTextLines* pInside = nullptr;
    for (const std::string& strLine : lines)
    {
        if (strLine.compare(0, strBegin.size(), strBegin) == 0)
        {
            pInside = &marked[strLine.substr(strBegin.size(), strLine.find(" -->") - strBegin.size())];
        }
        else if (strLine == "<!-- end -->")
        {
            pInside = nullptr;
        }
        else if (pInside != nullptr)
        {
            pInside->push_back(strLine);
        }
    }
    return marked;
}

// As hexdump -C has it, without the last offset.
inline tTextLines HexDump(const tBytes& bytes)
{
    tTextLines lines;
    for (std::size_t unLine = 0; unLine < bytes.size(); unLine += 16)
    {
        char acText[32];
        std::snprintf(acText, sizeof acText, "%08zx  ", unLine);
        std::string strHex = acText;
        std::string strText;
        for (std::size_t unByte = unLine; unByte < unLine + 16 && unByte < bytes.size(); ++unByte)
        {
            std::snprintf(acText, sizeof acText, "%02x %s", bytes[unByte], unByte == unLine + 7 ? " " : "");
            strHex += acText;
            strText += bytes[unByte] >= 0x20 && bytes[unByte] < 0x7f ? static_cast<char>(bytes[unByte]) : '.';
        }
        strHex.resize(60, ' ');
        lines.push_back(strHex + "|" + strText + "|");
    }
    return lines;
}

// A field of a message: its bytes, what it is called, and its value as text.
struct stExampleField
{
    tBytes bytes;
    std::string strField;
    std::string strValue;
};

// A hex dump, and a table that says what its bytes are.
struct stWorkedExample
{
    explicit stWorkedExample(const tTextLines& lines)
    {
        tTextLines table;
        for (const std::string& strLine : lines)
        {
            if (!strLine.empty())
            {
                (strLine.compare(0, 4, "    ") == 0 ? dump : table).push_back(strLine);
            }
        }
        bWellFormed = table.size() > 2 && table[0] == "| bytes | field | value |" && table[1] == "| --- | --- | --- |";
        for (std::size_t unRow = 2; unRow < table.size(); ++unRow)
        {
            const tTextLines cells = Cells(table[unRow]);
            bWellFormed = bWellFormed && cells.size() == 3 && TakeRow(cells);
        }
    }

    tBytes Bytes() const
    {
        tBytes all;
        for (const stExampleField& field : fields)
        {
            Append(all, field.bytes);
        }
        return all;
    }

    // The dump is what the bytes of the table make, to the last blank.
    bool IsCovered() const
    {
        tTextLines expected = HexDump(Bytes());
        for (std::string& strLine : expected)
        {
            strLine.insert(0, "    ");
        }
        return bWellFormed && expected == dump;
    }

    tTextLines dump;
    std::vector<stExampleField> fields;
    bool bWellFormed;

private:
    bool TakeRow(const tTextLines& cells)
    {
        const std::string& strHex = cells[0];
        if (strHex.size() < 4 || strHex.front() != '`' || strHex.back() != '`')
        {
            return false;
        }
        const std::string strDigits = strHex.substr(1, strHex.size() - 2);
        for (std::size_t unAt = 0; unAt < strDigits.size(); ++unAt)
        {
            const bool bBlank = unAt % 3 == 2;
            const bool bDigit = std::isdigit(strDigits[unAt]) != 0 || (strDigits[unAt] >= 'a' && strDigits[unAt] <= 'f');
            if (bBlank ? strDigits[unAt] != ' ' : !bDigit)
            {
                return false;
            }
        }
        fields.push_back({Hex(strDigits), cells[1], cells[2]});
        return strDigits.size() % 3 == 2;
    }
};

// A field's values, by its name, in the order of the example.
class CExampleValues
{
public:
    explicit CExampleValues(const std::vector<stExampleField>& fields) : m_Fields(fields), m_unNext(0) {}

    // Of the next field of that name; empty when there is none.
    std::string Text(const std::string& strField)
    {
        for (std::size_t un = m_unNext; un < m_Fields.size(); ++un)
        {
            if (m_Fields[un].strField == strField)
            {
                m_unNext = un + 1;
                return m_Fields[un].strValue;
            }
        }
        return std::string();
    }
    int Number(const std::string& strField) { return std::atoi(Text(strField).c_str()); }

private:
    const std::vector<stExampleField>& m_Fields;
    std::size_t m_unNext;
};

} // namespace Support
