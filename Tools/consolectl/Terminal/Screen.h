// The whole terminal, drawn anew again and again.
#pragma once

#include "Terminal/Common.h"

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

struct screen;

// The terminal is the program's as long as it lives. Rows go from the top; those that find no room are left out, and what is too
// long for its row ends in ">".
class CScreen
{
public:
    CScreen();
    ~CScreen();
    CScreen(const CScreen&) = delete;
    CScreen& operator=(const CScreen&) = delete;

    // False for a terminal that is not known here, or can't be drawn on.
    bool IsOpen() const { return m_pScreen != nullptr && m_bPlaces; }

    void Begin();
    void Text(const std::string& strText, enTextStyle enStyle = enPlain);
    int RowsLeft() const;
    void End(const std::string& strLastRow); // without a Begin before it: the rows are those of the last time

    // The next key that was pressed; 0 when there is none.
    int Key();

private:
    void Put(int nRow, const std::string& strText, int nAttributes);

    std::FILE* const m_pOutput;
    screen* const m_pScreen;
    bool m_bPlaces = false;
    std::vector<std::pair<std::string, enTextStyle>> m_Rows;
};
