// Locales that numbers must not follow.
#pragma once

#include <locale>
#include <string>
#include <vector>

namespace Support
{

// Writes 12 as "1.2".
class CEachDigitApart : public std::numpunct<char>
{
protected:
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\1"; }
};

// While one lives, the global locale writes 1234567.5 as "1.234.567,5", and takes letters x for blanks.
class CGlobalLocale
{
public:
    CGlobalLocale() : m_Before(std::locale::global(std::locale(std::locale(std::locale::classic(), new CNumbers), new CLetters))) {}
    ~CGlobalLocale() { std::locale::global(m_Before); }

private:
    class CNumbers : public std::numpunct<char>
    {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };

    class CLetters : public std::ctype<char>
    {
    public:
        CLetters() : std::ctype<char>(Table()) {}

    private:
        static const mask* Table()
        {
            static std::vector<mask> masks(classic_table(), classic_table() + table_size);
            masks['x'] = space;
            masks[' '] = punct;
            return masks.data();
        }
    };

    std::locale m_Before;
};

} // namespace Support
