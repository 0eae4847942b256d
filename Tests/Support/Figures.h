// What a test program without a test library tells: its failures and its figures.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace Support
{

inline int g_nFailures = 0;

inline void __attribute__((format(printf, 2, 3))) Expect(bool bTrue, const char* szFormat, ...)
{
    if (bTrue || ++g_nFailures > 20)
    {
        return;
    }
    va_list arguments;
    va_start(arguments, szFormat);
    std::printf("FAILED: ");
    std::vprintf(szFormat, arguments);
    std::printf("\n");
    va_end(arguments);
}

// Sums over all seeds, in the order in which they are printed.
class CFigures
{
public:
    std::uint32_t& operator[](const std::string& strWhat)
    {
        if (m_Counts.count(strWhat) == 0)
        {
            m_Order.push_back(strWhat);
        }
        return m_Counts[strWhat];
    }
    void Print() const
    {
        for (const std::string& strWhat : m_Order)
        {
            std::printf("%10u %s\n", m_Counts.at(strWhat), strWhat.c_str());
        }
    }

private:
    std::map<std::string, std::uint32_t> m_Counts;
    std::vector<std::string> m_Order;
};

} // namespace Support
