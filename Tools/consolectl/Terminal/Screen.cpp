#include "Terminal/Screen.h"

#include <curses.h>

#include <algorithm>
#include <clocale>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace
{

int AttributesOf(enTextStyle enStyle)
{
    switch (enStyle)
    {
    case enGood:
    case enBad:
        return COLOR_PAIR(enStyle);
    case enStrong:
        return A_BOLD;
    case enFaint:
        return A_DIM;
    default:
        return A_NORMAL;
    }
}

// Characters beyond ASCII need the user's locale; numbers stay as they are.
SCREEN* OpenTerminal(std::FILE* pOutput)
{
    std::setlocale(LC_CTYPE, "");
    return pOutput != nullptr ? newterm(nullptr, pOutput, stdin) : nullptr;
}

// Nothing can be put in its place on a terminal without this.
bool HasPlaces()
{
    const char* const szMove = tigetstr("cup");
    return szMove != nullptr && szMove != reinterpret_cast<const char*>(-1);
}

} // namespace

// What is printed past the screen meanwhile goes nowhere: it would be drawn across it.
CScreen::CScreen() : m_pOutput(fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w")), m_pScreen(OpenTerminal(m_pOutput))
{
    const int nNowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (m_pScreen != nullptr && nNowhere >= 0)
    {
        dup2(nNowhere, STDOUT_FILENO);
        close(nNowhere);
    }
    if (m_pScreen == nullptr)
    {
        return;
    }
    m_bPlaces = HasPlaces();
    cbreak();
    noecho();
    curs_set(0);
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    if (has_colors())
    {
        start_color();
        use_default_colors();
        init_pair(enGood, COLOR_GREEN, -1);
        init_pair(enBad, COLOR_RED, -1);
    }
}

CScreen::~CScreen()
{
    if (m_pScreen != nullptr)
    {
        endwin();
        delscreen(m_pScreen);
    }
    if (m_pOutput != nullptr)
    {
        std::fflush(stdout);
        dup2(fileno(m_pOutput), STDOUT_FILENO);
        std::fclose(m_pOutput);
    }
}

void CScreen::Begin()
{
    m_Rows.clear();
}

void CScreen::Text(const std::string& strText, enTextStyle enStyle)
{
    if (RowsLeft() > 0)
    {
        m_Rows.emplace_back(strText, enStyle);
    }
}

int CScreen::RowsLeft() const
{
    return LINES - 1 - static_cast<int>(m_Rows.size());
}

void CScreen::End(const std::string& strLastRow)
{
    erase();
    const int nRows = std::min(static_cast<int>(m_Rows.size()), LINES - 1);
    for (int nRow = 0; nRow < nRows; ++nRow)
    {
        const auto& row = m_Rows[static_cast<std::size_t>(nRow)];
        Put(nRow, row.first, AttributesOf(row.second));
    }
    Put(LINES - 1, strLastRow, A_REVERSE);
    refresh();
}

int CScreen::Key()
{
    const int nKey = getch();
    return nKey == ERR ? 0 : nKey;
}

void CScreen::Put(int nRow, const std::string& strText, int nAttributes)
{
    attrset(nAttributes);
    mvaddstr(nRow, 0, Cut(strText, COLS).c_str());
    attrset(A_NORMAL);
}
