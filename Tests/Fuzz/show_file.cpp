// Files that are said to be show files, and blocks that are said to be a show.
#include "Images/ShowBlocks.h"
#include "Images/ShowFile.h"

#include "Input.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include <unistd.h>

using namespace Fuzz;

namespace
{

constexpr int c_nMostDamages = 6;
const char c_szShow[] = "First night";

tBytes ReadWhole(const std::string& strFile)
{
    std::ifstream file(strFile, std::ios::binary);
    return tBytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteWhole(const std::string& strFile, const tBytes& bytes)
{
    std::ofstream file(strFile, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    Check(bool(file.flush()), "%s can't be written", strFile.c_str());
}

bool IsSame(const stShowBlock& a, const stShowBlock& b)
{
    return a.strKind == b.strKind && a.enType == b.enType && a.bytes == b.bytes;
}

// A folder of the program's own, in memory where there is one, gone at its end.
class CFolder
{
public:
    CFolder()
    {
        const char* szBase = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        m_strPath = std::string(szBase) + "/show_file." + std::to_string(getpid());
        std::filesystem::create_directories(m_strPath);
    }
    ~CFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(m_strPath, error);
    }
    CFolder(const CFolder&) = delete;
    CFolder& operator=(const CFolder&) = delete;

    std::string File() const { return m_strPath + "/shows"; }
    void Empty() const
    {
        for (const auto& entry : std::filesystem::directory_iterator(m_strPath))
        {
            std::filesystem::remove_all(entry.path());
        }
    }

private:
    std::string m_strPath;
};

class CBench
{
public:
    CBench() : m_pImage(std::make_unique<CBMAContainer>())
    {
        m_Blocks = {{"value", enFader, Pattern(900, 1)},
                    {"si", enFader, Pattern(40, 2)},
                    {"store", enOther, Pattern(13, 3)},
                    {"recall", enOther, Pattern(1, 4)},
                    {"value", enRotary, Pattern(9000, 5)}};
        CShowFile file;
        Must(file.Open(m_Folder.File(), true));
        Must(file.Save(c_szShow, m_Blocks, false));
        Must(file.Save("Second night", {m_Blocks[1]}, false));
        m_Valid = ReadWhole(m_Folder.File());
        m_Whole = MakeShowBlocks(*m_pImage);
    }

    void Run(CInput& input)
    {
        const unsigned int unShape = input.Byte();
        if (unShape == 255) // seldom: it takes long to turn a whole image into blocks and back
        {
            Blocks(input);
            return;
        }
        m_Folder.Empty();
        bool bHarmless = false;
        const tBytes bytes = unShape >= 160 ? input.Rest() : Damage(input, bHarmless);
        WriteWhole(m_Folder.File(), bytes);
        const bool bOnce = unShape < 160;
        Use(bytes, bOnce, bHarmless);
    }

private:
    static void Must(const std::string& strError) { Check(strError.empty(), "a show file can't be made: %s", strError.c_str()); }

    tBytes Damage(CInput& input, bool& bHarmless);
    void Use(const tBytes& bytes, bool bOnce, bool bHarmless);
    void SaveInto(CShowFile& file, bool bHarmless);
    void CheckLoaded(const std::vector<stShowBlock>& loaded);
    void Blocks(CInput& input);
    void ExpectBlocks(const std::vector<stShowBlock>& blocks);

    CFolder m_Folder;
    tBytes m_Valid;
    std::vector<stShowBlock> m_Blocks;
    std::vector<stShowBlock> m_Whole;
    std::unique_ptr<CBMAContainer> m_pImage;
};

// One burst that a check sum of 32 bits has to see, or a file cut short, longer, or with a page of another place.
tBytes CBench::Damage(CInput& input, bool& bHarmless)
{
    tBytes bytes = m_Valid;
    const unsigned int unKind = input.Byte();
    const std::size_t unAt = input.Big32() % bytes.size();
    const std::size_t unPage = 4096;
    if (unKind < 180)
    {
        for (std::size_t unByte = unAt; unByte < std::min(unAt + 1 + unKind % 4, bytes.size()); ++unByte)
        {
            bytes[unByte] = static_cast<unsigned char>(bytes[unByte] ^ input.Byte());
        }
    }
    else if (unKind < 200)
    {
        bytes.resize(unAt);
    }
    else if (unKind < 220)
    {
        Append(bytes, Pattern(unKind % 2 ? unPage : unAt % unPage, unKind));
    }
    else
    {
        const std::size_t unFrom = input.Byte() % (bytes.size() / unPage) * unPage;
        const tBytes page = unKind < 240 ? tBytes(bytes.begin() + static_cast<std::ptrdiff_t>(unFrom),
                                                  bytes.begin() + static_cast<std::ptrdiff_t>(unFrom + unPage))
                                         : tBytes(unPage, static_cast<unsigned char>(unKind == 255 ? 0xff : 0));
        std::copy(page.begin(), page.end(), bytes.begin() + static_cast<std::ptrdiff_t>(unAt / unPage * unPage));
    }
    bHarmless = bytes == m_Valid;
    return bytes;
}

// What comes out of a damaged show is the show, or has a block by a name that no reader takes for one of the show's.
void CBench::CheckLoaded(const std::vector<stShowBlock>& loaded)
{
    bool bForeign = false;
    for (const stShowBlock& block : loaded)
    {
        const auto original = std::find_if(m_Blocks.begin(), m_Blocks.end(),
                                           [&](const stShowBlock& candidate)
                                           { return candidate.strKind == block.strKind && candidate.enType == block.enType; });
        bForeign = bForeign || original == m_Blocks.end();
        Check(original == m_Blocks.end() || original->bytes == block.bytes,
              "the %s block of type %d is loaded, and is not what was saved", block.strKind.c_str(), int(block.enType));
    }
    Check(bForeign || loaded.size() == m_Blocks.size(), "%zu blocks are loaded of %zu", loaded.size(), m_Blocks.size());
}

// Whatever is in the file: what is saved now is there afterwards, or an error says that it is not.
void CBench::SaveInto(CShowFile& file, bool bHarmless)
{
    std::vector<stShowBlock> again;
    const std::string strSave = file.Save("Saved now", m_Blocks, true);
    const std::string strReload = strSave.empty() ? file.Load("Saved now", again) : std::string();
    if (strSave.empty() && strReload.empty())
    {
        Check(again.size() == m_Blocks.size() && std::is_permutation(again.begin(), again.end(), m_Blocks.begin(), IsSame),
              "what was saved into a file is not in it");
    }
    Check(!bHarmless || (strSave.empty() && strReload.empty()), "a good file takes no show: %s", strSave.c_str());
}

void CBench::Use(const tBytes& bytes, bool bOnce, bool bHarmless)
{
    std::vector<stShowBlock> loaded;
    std::vector<stShowEntry> entries;
    {
        CShowFile file;
        const std::string strOpen = file.Open(m_Folder.File(), false);
        Check(!bHarmless || strOpen.empty(), "a good file is refused: %s", strOpen.c_str());
        if (!strOpen.empty())
        {
            Check(strOpen.find('\n') == std::string::npos, "an error of more than one line");
            const tBytes after = ReadWhole(m_Folder.File());
            Check(after == bytes, "a file that was refused was changed");
            return;
        }
        const std::string strList = file.List(entries);
        const std::string strLoad = file.Load(c_szShow, loaded);
        Check(!bHarmless || (strList.empty() && strLoad.empty() && entries.size() == 2), "a good show is not loaded");
        if (bOnce && strLoad.empty())
        {
            CheckLoaded(loaded);
        }
        SaveInto(file, bHarmless);
        const std::string strDelete = file.Delete(c_szShow);
        Check(!bHarmless || strDelete.empty(), "a good show can't be deleted: %s", strDelete.c_str());
    }
}

// A list of blocks with something missing, twice, longer, renamed.
void CBench::Blocks(CInput& input)
{
    std::vector<stShowBlock> blocks = m_Whole;
    for (int nDamage = 0; nDamage < c_nMostDamages && !input.Empty() && !blocks.empty(); ++nDamage)
    {
        const std::size_t unBlock = input.Byte() % blocks.size();
        const unsigned int unKind = input.Byte();
        stShowBlock& block = blocks[unBlock];
        if (unKind < 64 && !block.bytes.empty())
        {
            block.bytes[input.Big32() % block.bytes.size()] = static_cast<unsigned char>(input.Byte());
        }
        else if (unKind < 96)
        {
            block.bytes.resize(block.bytes.size() + unKind % 3 - std::min<std::size_t>(block.bytes.size(), 1));
        }
        else if (unKind < 128)
        {
            std::swap(block, blocks[input.Byte() % blocks.size()]);
        }
        else if (unKind < 160)
        {
            block.enType = static_cast<tagenPPCMessageType>(input.Byte() % 9 - 1);
        }
        else if (unKind < 192)
        {
            block.strKind = blocks[input.Byte() % blocks.size()].strKind;
        }
        else if (unKind < 224)
        {
            blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(unBlock));
        }
        else
        {
            blocks.push_back(block);
        }
    }
    ExpectBlocks(blocks);
}

// Exactly the blocks of a show, in any order and each once, are a show; what is in them is then in the image.
void CBench::ExpectBlocks(const std::vector<stShowBlock>& blocks)
{
    std::size_t unRight = 0;
    for (const stShowBlock& wanted : m_Whole)
    {
        unRight += std::any_of(blocks.begin(), blocks.end(),
                               [&](const stShowBlock& block) {
                                   return block.strKind == wanted.strKind && block.enType == wanted.enType &&
                                          block.bytes.size() == wanted.bytes.size();
                               })
                       ? 1
                       : 0;
    }
    const bool bShow = unRight == m_Whole.size() && blocks.size() == m_Whole.size();
    const std::string strError = ApplyShowBlocks(blocks, *m_pImage);
    Check(strError.empty() == bShow, "%zu blocks are a show, or not: %s", blocks.size(), strError.c_str());
    if (!bShow)
    {
        return;
    }
    const std::vector<stShowBlock> made = MakeShowBlocks(*m_pImage);
    for (const stShowBlock& block : made)
    {
        const auto applied = std::find_if(blocks.begin(), blocks.end(),
                                          [&](const stShowBlock& candidate)
                                          { return candidate.strKind == block.strKind && candidate.enType == block.enType; });
        tBytes expected = applied->bytes;
        const bool bBits = block.strKind == "store" || block.strKind == "recall" || block.enType == enSwitch;
        const int nSpare = static_cast<int>(expected.size()) * 8 - canParameterCounts[block.enType];
        if (bBits && nSpare > 0)
        {
            expected.back() = static_cast<unsigned char>(expected.back() & 0xff >> nSpare); // those behind the last parameter
        }
        Check(block.bytes == expected, "the %s block of type %d is not in the image", block.strKind.c_str(), int(block.enType));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t unSize)
{
    static CBench bench;
    CInput input(pData, unSize);
    bench.Run(input);
    return 0;
}
