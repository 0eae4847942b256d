#include "Network/ImageSource.h"

#include "Images/ImageFile.h"
#ifdef CONSOLECTL_HAVE_SHOWS
#include "Images/ShowFile.h"
#endif
#include "Network/Capture.h"
#include "Network/Shadow.h"
#include "Terminal/Common.h"
#include "Terminal/Output.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace
{

bool IsFile(const std::string& strFile)
{
    std::error_code error;
    return std::filesystem::is_regular_file(strFile, error);
}

// By the number that a capture begins with, in either byte order, in micro- or nanoseconds, or of the newer kind.
bool IsCapture(const std::string& strFile)
{
    static const unsigned char caaBeginnings[][4] = {{0xa1, 0xb2, 0xc3, 0xd4},
                                                     {0xd4, 0xc3, 0xb2, 0xa1},
                                                     {0xa1, 0xb2, 0x3c, 0x4d},
                                                     {0x4d, 0x3c, 0xb2, 0xa1},
                                                     {0x0a, 0x0d, 0x0d, 0x0a}};
    unsigned char aucBeginning[4] = {};
    if (!IsFile(strFile)) // a pipe would be waited for
    {
        return false;
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pFile(std::fopen(strFile.c_str(), "rb"), std::fclose);
    if (pFile == nullptr || std::fread(aucBeginning, 1, sizeof aucBeginning, pFile.get()) != sizeof aucBeginning)
    {
        return false;
    }
    return std::any_of(std::begin(caaBeginnings), std::end(caaBeginnings),
                       [&aucBeginning](const auto& aucOne) { return std::memcmp(aucOne, aucBeginning, sizeof aucBeginning) == 0; });
}

int LoadLive(const stClientOptions& options, stNamedImage& named, unsigned int unTypes)
{
    const auto pClient = std::make_unique<CClient>(options);
    const int nStatus = pClient->Open(unTypes);
    *named.pImage = pClient->Image();
    named.strSender = pClient->Sender();
    named.nTime = TimeNow();
    return nStatus;
}

int LoadCapture(const std::string& strFile, double dAt, const stClientOptions& options, stNamedImage& named)
{
    CCaptureFile capture;
    const std::string strError = capture.Open(strFile);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    const auto pShadow = std::make_unique<CShadow>(options.link);
    CProgress progress(strFile, capture.GetSize());
    std::int64_t nFirst = -1;
    for (stDatagram datagram; !capture.IsOver();)
    {
        if (!capture.Next(datagram, 0))
        {
            continue;
        }
        nFirst = nFirst < 0 ? datagram.nTime : nFirst;
        if (dAt >= 0 && static_cast<double>(datagram.nTime - nFirst) / 1e6 > dAt)
        {
            break;
        }
        pShadow->Take(datagram);
        named.nTime = datagram.nTime;
        progress.Show(capture.GetPosition());
    }
    if (StopRequested())
    {
        return Fail("interrupted");
    }
    if (!capture.GetError().empty())
    {
        return Fail(strFile + " was broken off: " + capture.GetError() + "; FILE@SECONDS is an image before that");
    }
    if (dAt < 0 && capture.GetEnd() == nullptr)
    {
        Line("%s has no end of a recording: broken off, or made by another tool", Printable(strFile).c_str());
    }
    *named.pImage = pShadow->Image();
    named.strSender = pShadow->SenderText();
    return pShadow->IsWhole() ? int(enExitDone)
                              : Fail(Format("%s: the image that its updates to %s:%u lead to is not whole", strFile.c_str(),
                                            options.link.strGroup.c_str(), options.link.unPort));
}

int LoadShow(const std::string& strFile, const std::string& strName, stNamedImage& named)
{
#ifdef CONSOLECTL_HAVE_SHOWS
    named.bShow = true;
    const std::string strError = ReadShow(strFile, strName, *named.pImage);
    return strError.empty() ? int(enExitDone) : Fail(strError);
#else
    (void)named;
    return Fail(strFile + ":" + strName + ": this consolectl is built without shows");
#endif
}

} // namespace

bool stNamedImage::Holds(const stAddress& address) const
{
    int nFlag = 1;
    if (bShow)
    {
        pImage->GetPPCRecallScope(address.enType, address.enPathType, address.nPath, address.nParam, nFlag);
    }
    return nFlag != 0 && !(bShow && address.enType == enMeter);
}

int LoadNamedImage(const std::string& strSource, const stClientOptions& client, stNamedImage& named, unsigned int unTypes)
{
    if (strSource.empty())
    {
        throw stWrongUse("image", "no file is named");
    }
    if (strSource == "mc")
    {
        return LoadLive(client, named, unTypes);
    }
    if (IsCapture(strSource))
    {
        return LoadCapture(strSource, -1, client, named);
    }
    const std::size_t unAt = strSource.rfind('@');
    if (!IsFile(strSource) && unAt != std::string::npos && IsCapture(strSource.substr(0, unAt)))
    {
        double dAt = 0;
        if (!ParseNumber(strSource.substr(unAt + 1), dAt) || dAt < 0)
        {
            throw stWrongUse(strSource, "\"" + strSource.substr(unAt + 1) + "\" is no number of seconds");
        }
        return LoadCapture(strSource.substr(0, unAt), dAt, client, named);
    }
    for (std::size_t unColon = strSource.find(':', 1); !IsFile(strSource) && unColon != std::string::npos;
         unColon = strSource.find(':', unColon + 1))
    {
        if (IsFile(strSource.substr(0, unColon)))
        {
            return LoadShow(strSource.substr(0, unColon), strSource.substr(unColon + 1), named);
        }
    }
    const std::string strWhyNot = WhyNoFile(strSource);
    if (!strWhyNot.empty())
    {
        return Fail(strWhyNot + "; an image is " + c_szImageSources);
    }
    const std::string strError = LoadImage(strSource, *named.pImage);
    return strError.empty() ? int(enExitDone) : Fail(strError);
}
