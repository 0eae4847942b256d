#include "Images/ImageFile.h"

#include "Terminal/Common.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

namespace
{

constexpr std::size_t c_unImageSize = 408620; // an update with all seven arrays
constexpr int c_nMostLinks = 40;              // that lead on to one another, as the system has it

std::string LastError(const std::string& strFile)
{
    return strFile + ": " + std::strerror(errno);
}

// Of an image's size, and beginning as one.
bool IsUpdate(const std::string& strFile, std::uintmax_t unSize)
{
    static constexpr unsigned char c_aucMarker[] = {0, 0, 0, 1};
    char acBeginning[sizeof c_aucMarker] = {};
    std::ifstream(strFile, std::ios::binary).read(acBeginning, sizeof acBeginning);
    return unSize == c_unImageSize && std::memcmp(acBeginning, c_aucMarker, sizeof c_aucMarker) == 0;
}

// Written beside the file and then put in its place, with its rights: it is there whole, or as it was. Where a link leads the file
// is replaced, or made, and the link stays.
std::string ReplaceFile(const std::string& strFile, const std::vector<unsigned char>& bytes)
{
    std::string strWhyNot = WhyNotSaved(strFile);
    if (!strWhyNot.empty())
    {
        return strWhyNot;
    }
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(strFile, error);
    std::filesystem::path target = strFile;
    for (int nLink = 0; nLink < c_nMostLinks && std::filesystem::is_symlink(std::filesystem::symlink_status(target, error));
         ++nLink)
    {
        target = target.parent_path() / std::filesystem::read_symlink(target, error);
    }
    const std::string strNew = target.string() + "." + std::to_string(getpid()) + ".new";
    std::FILE* const pFile = std::fopen(strNew.c_str(), "wbx");
    if (pFile == nullptr)
    {
        return LastError(strFile);
    }
    const bool bWritten =
        std::fwrite(bytes.data(), 1, bytes.size(), pFile) == bytes.size() &&
        (!std::filesystem::exists(status) || fchmod(fileno(pFile), static_cast<mode_t>(status.permissions())) == 0);
    if (std::fclose(pFile) != 0 || !bWritten || std::rename(strNew.c_str(), target.c_str()) != 0)
    {
        std::string strError = LastError(strFile);
        std::remove(strNew.c_str());
        return strError;
    }
    return std::string();
}

} // namespace

std::string WhyNotSaved(const std::string& strFile)
{
    std::error_code error;
    if (std::filesystem::status(strFile, error).type() == std::filesystem::file_type::not_found)
    {
        return std::string();
    }
    std::string strWhyNot = WhyNoFile(strFile);
    const std::uintmax_t unSize = std::filesystem::file_size(strFile, error);
    return !strWhyNot.empty()                         ? strWhyNot
           : access(strFile.c_str(), W_OK) != 0       ? LastError(strFile)
           : unSize == 0 || IsUpdate(strFile, unSize) ? ""
                                                      : strFile + ": it is no image, and stays as it is";
}

std::string SaveImage(const CBMAContainer& image, const std::string& strFile)
{
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    if (!BuildMCUpdate(image, enMCUpdateAll, *pMessage))
    {
        return "the image can't be serialised";
    }
    std::vector<unsigned char> bytes(static_cast<std::size_t>(pMessage->GetTotalSize()));
    unsigned char* pBytes = bytes.data();
    *pMessage >> &pBytes;

    return ReplaceFile(strFile, bytes);
}

std::string LoadImage(const std::string& strFile, CBMAContainer& image)
{
    std::string strWhyNot = WhyNoFile(strFile);
    if (!strWhyNot.empty())
    {
        return strWhyNot;
    }
    std::ifstream file(strFile, std::ios::binary);
    if (!file)
    {
        return strFile + ": " + std::strerror(errno);
    }
    std::vector<char> bytes(c_unImageSize + 1); // one more, to notice a longer file
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    pMessage->SetShallowMode(true);
    const auto pLoaded = std::make_unique<CBMAContainer>();
    if (bytes.size() != c_unImageSize || !pMessage->Parse(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()) ||
        ApplyMCUpdate(*pMessage, *pLoaded) != c_unWholeImage)
    {
        return strFile + ": not a whole image";
    }
    image = *pLoaded;
    return std::string();
}
