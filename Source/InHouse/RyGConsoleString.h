// The console's string value: a stand-in for the in-house class of this name.
#pragma once

#include <cstring>
#include <string>

// Thirteen bytes that are stored, copied and sent whole: up to twelve characters and a zero. Longer text is cut. A value that
// came from a network may use all thirteen bytes; Text never reads past them. Trivially copyable, no pointer inside.
class __attribute__((visibility("default"))) RyGConsoleString
{
public:
    enum : int
    {
        enSize = 13,
        enMaxLength = enSize - 1
    };

    RyGConsoleString() : m_acText() {}
    RyGConsoleString(const char* szText) : m_acText() { Assign(szText, szText != nullptr ? strnlen(szText, enMaxLength) : 0); }
    RyGConsoleString(const std::string& strText) : m_acText() { Assign(strText.data(), strnlen(strText.c_str(), enMaxLength)); }

    std::string Text() const { return std::string(m_acText, strnlen(m_acText, enSize)); }

    const char* Data() const { return m_acText; }

    // Whole values are compared, the bytes behind the zero as well.
    bool operator==(const RyGConsoleString& other) const { return std::memcmp(m_acText, other.m_acText, enSize) == 0; }
    bool operator!=(const RyGConsoleString& other) const { return !(*this == other); }

private:
    void Assign(const char* pText, std::size_t unLength)
    {
        if (unLength > 0)
        {
            std::memcpy(m_acText, pText, unLength);
        }
    }

    char m_acText[enSize];
};
