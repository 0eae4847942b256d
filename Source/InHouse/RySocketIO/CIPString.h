// An IPv4 address as text.
#pragma once

#include <cstring>

namespace RySocketIO
{

// A plain value of at most 47 characters ("192.168.1.20"); longer text is cut. Made and copied without allocating.
class CIPString
{
public:
    CIPString() : m_acText() {}
    CIPString(const char* szText) : m_acText()
    {
        if (szText != nullptr)
        {
            std::memcpy(m_acText, szText, strnlen(szText, sizeof m_acText - 1));
        }
    }

    const char* Text() const { return m_acText; }

    bool operator==(const CIPString& other) const { return std::strcmp(m_acText, other.m_acText) == 0; }
    bool operator!=(const CIPString& other) const { return !(*this == other); }

private:
    char m_acText[48];
};

} // namespace RySocketIO
