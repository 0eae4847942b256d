#include "ImageFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

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
    std::ifstream file(strFile, std::ios::binary);
    if (!file)
    {
        return strFile + ": " + std::strerror(errno);
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    pMessage->SetShallowMode(true);
    const auto pLoaded = std::make_unique<CBMAContainer>();
    if (!pMessage->Parse(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()) ||
        ApplyMCUpdate(*pMessage, *pLoaded) != c_unWholeImage)
    {
        return strFile + ": not a whole image";
    }
    image = *pLoaded;
    return std::string();
}
