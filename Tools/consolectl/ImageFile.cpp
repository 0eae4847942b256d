#include "ImageFile.h"

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

} // namespace

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

    // Written beside the file and then put in its place.
    const std::string strNew = strFile + ".new";
    std::ofstream file(strNew, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file || std::rename(strNew.c_str(), strFile.c_str()) != 0)
    {
        std::string strError = strFile + ": " + std::strerror(errno);
        std::remove(strNew.c_str());
        return strError;
    }
    return std::string();
}

std::string LoadImage(const std::string& strFile, CBMAContainer& image)
{
    if (!std::filesystem::is_regular_file(strFile))
    {
        return strFile + ": not a file";
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
