// Texts from callers. Private to the library.
#pragma once

// A null text counts as an empty one.
inline const char* TextOrEmpty(const char* szText)
{
    return szText != nullptr ? szText : "";
}
