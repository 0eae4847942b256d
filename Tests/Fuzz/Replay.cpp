// Runs a fuzz target without libFuzzer: all its seeds, then mutations of them that are the same on every machine.
#include "Input.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

using Fuzz::tBytes;

namespace
{

constexpr std::size_t c_unLongest = 65536;

int HexDigit(char c)
{
    return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

struct stSeed
{
    std::string strName;
    tBytes bytes;
};

// "name: 00 01 fe" a line, the name optional; blank lines and those that begin with # are none.
bool ReadSeeds(const char* szFile, std::vector<stSeed>& seeds)
{
    std::ifstream file(szFile);
    if (!file)
    {
        return false;
    }
    int nLine = 0;
    for (std::string strLine; std::getline(file, strLine);)
    {
        ++nLine;
        if (strLine.empty() || strLine[0] == '#')
        {
            continue;
        }
        const std::size_t unColon = strLine.find(':');
        stSeed seed = {unColon == std::string::npos ? "line" + std::to_string(nLine) : strLine.substr(0, unColon), {}};
        int nHigh = -1;
        for (std::size_t unAt = unColon == std::string::npos ? 0 : unColon + 1; unAt < strLine.size(); ++unAt)
        {
            const int nDigit = HexDigit(strLine[unAt]);
            if (nDigit < 0 && std::isspace(static_cast<unsigned char>(strLine[unAt])) == 0)
            {
                std::fprintf(stderr, "%s:%d: not hexadecimal\n", szFile, nLine);
                return false;
            }
            if (nDigit >= 0 && nHigh >= 0)
            {
                seed.bytes.push_back(static_cast<unsigned char>(nHigh * 16 + nDigit));
            }
            nHigh = nDigit < 0 ? nHigh : nHigh < 0 ? nDigit : -1;
        }
        seeds.push_back(seed);
    }
    return true;
}

// libFuzzer's form: name="text with \x00 in it" a line.
bool ReadDictionary(const char* szFile, std::vector<tBytes>& words)
{
    std::ifstream file(szFile);
    for (std::string strLine; std::getline(file, strLine);)
    {
        const std::size_t unFirst = strLine.find('"');
        const std::size_t unLast = strLine.rfind('"');
        if (strLine.empty() || strLine[0] == '#' || unFirst == unLast)
        {
            continue;
        }
        tBytes word;
        for (std::size_t unAt = unFirst + 1; unAt < unLast; ++unAt)
        {
            char c = strLine[unAt];
            if (c == '\\' && strLine[unAt + 1] == 'x' && unAt + 3 < unLast)
            {
                c = static_cast<char>(HexDigit(strLine[unAt + 2]) * 16 + HexDigit(strLine[unAt + 3]));
                unAt += 3;
            }
            else if (c == '\\')
            {
                c = strLine[++unAt];
            }
            word.push_back(static_cast<unsigned char>(c));
        }
        words.push_back(word);
    }
    return file.eof();
}

class CMutator
{
public:
    CMutator(const std::vector<stSeed>& seeds, const std::vector<tBytes>& words, unsigned int unSeed)
        : m_Seeds(seeds), m_Words(words), m_Random(unSeed)
    {
    }

    tBytes Next()
    {
        tBytes bytes = m_Seeds.empty() ? tBytes() : m_Seeds[Below(m_Seeds.size())].bytes;
        for (std::size_t unChanges = 1 + Below(8); unChanges > 0; --unChanges)
        {
            Change(bytes);
        }
        bytes.resize(std::min(bytes.size(), c_unLongest));
        return bytes;
    }

private:
    // The distributions of the standard library differ from one to another; the generator does not.
    std::size_t Below(std::size_t unLimit) { return static_cast<std::size_t>(m_Random()) % std::max<std::size_t>(unLimit, 1); }
    unsigned char Byte() { return static_cast<unsigned char>(m_Random() >> 13); }

    void Insert(tBytes& bytes, const tBytes& more)
    {
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(Below(bytes.size() + 1)), more.begin(), more.end());
    }

    void Overwrite(tBytes& bytes, const tBytes& more)
    {
        const std::size_t unAt = Below(bytes.size() + 1);
        bytes.resize(std::max(bytes.size(), unAt + more.size()));
        std::copy(more.begin(), more.end(), bytes.begin() + static_cast<std::ptrdiff_t>(unAt));
    }

    tBytes Part(const tBytes& bytes)
    {
        const std::size_t unFirst = Below(bytes.size() + 1);
        const std::size_t unCount = Below(std::min<std::size_t>(bytes.size() - unFirst, 64) + 1);
        return tBytes(bytes.begin() + static_cast<std::ptrdiff_t>(unFirst),
                      bytes.begin() + static_cast<std::ptrdiff_t>(unFirst + unCount));
    }

    void Change(tBytes& bytes)
    {
        const std::size_t unAt = Below(bytes.size());
        const std::size_t unKind = Below(10);
        if (unKind < 3 && !bytes.empty())
        {
            bytes[unAt] = static_cast<unsigned char>(unKind == 0   ? bytes[unAt] ^ 1u << Below(8)
                                                     : unKind == 1 ? Byte()
                                                                   : bytes[unAt] + 1);
        }
        else if (unKind == 3)
        {
            bytes.resize(unAt);
        }
        else if (unKind == 4)
        {
            Insert(bytes, {Byte(), Byte()});
        }
        else if (unKind == 5)
        {
            bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(unAt),
                        bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), unAt + 1 + Below(8))));
        }
        else if (unKind == 6)
        {
            Overwrite(bytes, Part(bytes));
        }
        else if (unKind == 7)
        {
            Insert(bytes, Part(m_Seeds.empty() ? bytes : m_Seeds[Below(m_Seeds.size())].bytes));
        }
        else if (!m_Words.empty())
        {
            const tBytes& word = m_Words[Below(m_Words.size())];
            unKind == 8 ? Insert(bytes, word) : Overwrite(bytes, word);
        }
    }

    const std::vector<stSeed>& m_Seeds;
    const std::vector<tBytes>& m_Words;
    std::mt19937 m_Random;
};

tBytes g_Running;
std::string g_strRunning;

// What an input did to the program, in the form that seeds are kept in.
void Report()
{
    dprintf(STDERR_FILENO, "%s:", g_strRunning.c_str());
    for (const unsigned char ucByte : g_Running)
    {
        dprintf(STDERR_FILENO, " %02x", static_cast<unsigned int>(ucByte));
    }
    dprintf(STDERR_FILENO, "\n");
}

void Run(const tBytes& bytes, const std::string& strName)
{
    g_Running = bytes;
    g_strRunning = strName;
    const Fuzz::CExact exact(bytes);
    LLVMFuzzerTestOneInput(exact.Data(), bytes.size());
}

int WriteSeeds(const std::vector<stSeed>& seeds, const std::string& strFolder)
{
    mkdir(strFolder.c_str(), 0777);
    for (std::size_t unSeed = 0; unSeed < seeds.size(); ++unSeed)
    {
        std::ofstream file(strFolder + "/" + std::to_string(unSeed) + "-" + seeds[unSeed].strName, std::ios::binary);
        for (const unsigned char ucByte : seeds[unSeed].bytes)
        {
            file.put(static_cast<char>(ucByte));
        }
        if (!file.flush())
        {
            std::fprintf(stderr, "%s: can't be written\n", strFolder.c_str());
            return 1;
        }
    }
    return 0;
}

// The library's warnings go nowhere; the result goes to where standard output was.
int RunAll(const std::vector<stSeed>& seeds, const std::vector<tBytes>& words, unsigned long unRuns, unsigned int unSeed)
{
    const int nOutput = dup(STDOUT_FILENO);
    const int nNull = open("/dev/null", O_WRONLY);
    dup2(nNull, STDOUT_FILENO);
    std::signal(SIGABRT, [](int) { Report(); });
    for (const stSeed& seed : seeds)
    {
        Run(seed.bytes, seed.strName);
    }
    CMutator mutator(seeds, words, unSeed);
    for (unsigned long unRun = 0; unRun < unRuns; ++unRun)
    {
        Run(mutator.Next(), "run" + std::to_string(unRun));
    }
    std::fflush(stdout);
    dprintf(nOutput, "%lu executions (%zu seeds, %zu words, seed %u), no finding\n",
            static_cast<unsigned long>(seeds.size()) + unRuns, seeds.size(), words.size(), unSeed);
    return 0;
}

} // namespace

int main(int nArguments, char** ppArguments)
{
    std::vector<stSeed> seeds;
    std::vector<tBytes> words;
    if (nArguments == 4 && std::strcmp(ppArguments[2], "--write-seeds") == 0)
    {
        return ReadSeeds(ppArguments[1], seeds) ? WriteSeeds(seeds, ppArguments[3]) : 1;
    }
    if (nArguments != 5)
    {
        std::fprintf(stderr, "usage: %s SEEDS.hex DICTIONARY RUNS SEED\n       %s SEEDS.hex --write-seeds FOLDER\n", ppArguments[0],
                     ppArguments[0]);
        return 2;
    }
    if (!ReadSeeds(ppArguments[1], seeds) || !ReadDictionary(ppArguments[2], words) || seeds.empty() || words.empty())
    {
        std::fprintf(stderr, "%s or %s: can't be read, or holds nothing\n", ppArguments[1], ppArguments[2]);
        return 1;
    }
    return RunAll(seeds, words, std::strtoul(ppArguments[3], nullptr, 10),
                  static_cast<unsigned int>(std::strtoul(ppArguments[4], nullptr, 10)));
}
