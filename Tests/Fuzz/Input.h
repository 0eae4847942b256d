// What the fuzz targets share: an input read as numbers, and a check that ends the program.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

namespace Fuzz
{

typedef std::vector<unsigned char> tBytes;

// A finding: one line on the real standard error, whatever became of the stream, and the end of the program.
[[noreturn, gnu::format(printf, 1, 2)]] inline void Fail(const char* szFormat, ...)
{
    va_list arguments;
    va_start(arguments, szFormat);
    dprintf(STDERR_FILENO, "\nFINDING: ");
    vdprintf(STDERR_FILENO, szFormat, arguments);
    dprintf(STDERR_FILENO, "\n");
    va_end(arguments);
    std::abort();
}

template <typename... Arguments>
void Check(bool bGood, const char* szFormat, Arguments... arguments)
{
    if (!bGood)
    {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
        Fail(szFormat, arguments...);
#pragma GCC diagnostic pop
    }
}

// The library says much on standard error that only costs time here. Sanitizers and Fail write past the stream, so theirs is kept.
inline bool QuietStandardError()
{
    std::FILE* pNull = std::fopen("/dev/null", "w");
    if (pNull != nullptr)
    {
        stderr = pNull;
    }
    return pNull != nullptr;
}

// Big-endian loads and stores of the models' own.
inline std::uint32_t LoadBig(const unsigned char* pBytes)
{
    return std::uint32_t(pBytes[0]) << 24 | std::uint32_t(pBytes[1]) << 16 | std::uint32_t(pBytes[2]) << 8 | pBytes[3];
}

inline std::int32_t LoadSigned(const unsigned char* pBytes)
{
    return static_cast<std::int32_t>(LoadBig(pBytes));
}

inline void AppendBig(tBytes& bytes, std::uint32_t unValue)
{
    for (int nShift = 24; nShift >= 0; nShift -= 8)
    {
        bytes.push_back(static_cast<unsigned char>(unValue >> nShift));
    }
}

inline void Append(tBytes& bytes, const tBytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

// A copy with nothing readable behind it, so that a sanitizer sees a byte too many. Never null.
class CExact
{
public:
    CExact(const unsigned char* pBytes, std::size_t unSize) : m_pBytes(static_cast<unsigned char*>(std::malloc(unSize)))
    {
        if (unSize > 0)
        {
            std::memcpy(m_pBytes, pBytes, unSize);
        }
    }
    explicit CExact(const tBytes& bytes) : CExact(bytes.data(), bytes.size()) {}
    ~CExact() { std::free(m_pBytes); }
    CExact(const CExact&) = delete;
    CExact& operator=(const CExact&) = delete;

    unsigned char* Data() const { return m_pBytes; }
    char* Text() const { return reinterpret_cast<char*>(m_pBytes); }

private:
    unsigned char* m_pBytes;
};

// Takes an input apart from the front. Past its end everything is 0.
class CInput
{
public:
    CInput(const unsigned char* pData, std::size_t unSize) : m_pData(pData), m_unLeft(unSize) {}

    std::size_t Left() const { return m_unLeft; }
    bool Empty() const { return m_unLeft == 0; }

    unsigned int Byte()
    {
        if (m_unLeft == 0)
        {
            return 0;
        }
        --m_unLeft;
        return *m_pData++;
    }

    // 0 to unLimit - 1.
    unsigned int Below(unsigned int unLimit) { return Byte() % unLimit; }
    bool Bit() { return (Byte() & 1) != 0; }

    unsigned int Big16()
    {
        const unsigned int unHigh = Byte();
        return unHigh << 8 | Byte();
    }

    std::uint32_t Big32()
    {
        const std::uint32_t unHigh = Big16();
        return unHigh << 16 | Big16();
    }

    // A number of any size in few bytes: mostly small, now and then from the edges of what an int holds.
    int Number()
    {
        const unsigned int unByte = Byte();
        if (unByte < 200)
        {
            return static_cast<int>(unByte);
        }
        if (unByte < 216)
        {
            return static_cast<int>(unByte) - 216; // -16 to -1
        }
        if (unByte < 240)
        {
            return static_cast<int>(Big16());
        }
        static const std::int64_t caEdges[] = {INT32_MAX, INT32_MIN,  65535,           -65536,
                                               0x1000000, -0x1000000, INT32_MAX / 280, 1 << 28};
        return unByte < 248 ? static_cast<int>(caEdges[unByte - 240]) : static_cast<int>(Big32());
    }

    tBytes Bytes(std::size_t unCount)
    {
        const tBytes bytes(m_pData, m_pData + (unCount < m_unLeft ? unCount : m_unLeft));
        m_pData += bytes.size();
        m_unLeft -= bytes.size();
        return bytes;
    }

    tBytes Rest() { return Bytes(m_unLeft); }

private:
    const unsigned char* m_pData;
    std::size_t m_unLeft;
};

// unCount bytes, 65,536 at most, that are the same on every machine and differ from seed to seed.
inline tBytes Pattern(std::size_t unCount, unsigned int unSeed)
{
    static const tBytes all = []
    {
        tBytes bytes(65536 + 256);
        std::uint32_t unState = 1;
        for (unsigned char& ucByte : bytes)
        {
            unState = unState * 1664525u + 1013904223u;
            ucByte = static_cast<unsigned char>(unState >> 24);
        }
        return bytes;
    }();
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(unSeed % 256);
    return tBytes(first, first + static_cast<std::ptrdiff_t>(unCount));
}

} // namespace Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t unSize);
