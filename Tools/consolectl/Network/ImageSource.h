// Images by what they are called on a command line.
#pragma once

#include "Network/Client.h"
#include "Terminal/Common.h"

#include "LogicalControls.h"

#include <cstdint>
#include <memory>
#include <string>

//   mc               the MC's, as it is now
//   FILE             saved by mc, follow or replay
//   FILE.pcap        what a recording leads to; FILE.pcap@3.5: what it was 3.5 seconds after the first datagram
//   FILE:NAME        a show of a file
constexpr char c_szImageSources[] = "mc (live), a saved image, a capture FILE.pcap or FILE.pcap@SECONDS, or a show FILE:NAME";

constexpr char c_szImageType[] = "mc|FILE";

struct stNamedImage
{
    std::unique_ptr<CBMAContainer> pImage = std::make_unique<CBMAContainer>();
    bool bShow = false;             // what its recall flags name, and no more
    std::string strSender;          // of an image that came over the network
    std::int64_t nTime = TimeNow(); // that it is the image of

    bool Holds(const stAddress& address) const;
};

// Returns the exit status; what went wrong is said. The MC's image is waited for until these message types have come.
int LoadNamedImage(const std::string& strSource, const stClientOptions& client, stNamedImage& named,
                   unsigned int unTypes = c_unWholeImage);
