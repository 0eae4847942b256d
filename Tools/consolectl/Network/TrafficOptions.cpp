#include "Network/TrafficOptions.h"

#include "Network/Capture.h"
#include "Terminal/Command.h"

void AddTrafficOptions(CCommand& command, stTrafficOptions& options)
{
    AddLinkOptions(command, options.link);
    command.Option("--capture", options.strCapture, "Take the datagrams from this capture file, not from the network").File();
}

std::unique_ptr<CTraffic> OpenTraffic(const stTrafficOptions& options)
{
    auto pLive = std::make_unique<CLiveTraffic>();
    auto pCapture = std::make_unique<CCaptureFile>();
    const bool bLive = options.strCapture.empty();
    const std::string strError = bLive ? pLive->Open(options.link) : pCapture->Open(options.strCapture);
    if (!strError.empty())
    {
        Fail(strError);
        return nullptr;
    }
    if (!bLive)
    {
        Line("datagrams from %s, %s bytes", Printable(options.strCapture).c_str(), Grouped(pCapture->GetSize()).c_str());
        return pCapture;
    }
    Describe(options.link, pLive->GetReceiveBufferSize());
    return pLive;
}

int TrafficStatus(const CTraffic& traffic, const stLimits& limits, long lCame, const std::string& strWhat)
{
    if (!traffic.GetError().empty())
    {
        return Fail("the capture was broken off: " + traffic.GetError());
    }
    return traffic.IsOver() ? int(enExitDone) : limits.Status(lCame, strWhat);
}
