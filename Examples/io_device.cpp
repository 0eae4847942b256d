// An I/O device: sets its switches and gains as the MC's image has them, and reports its health once a second, for four seconds.
#include "LogicalControls.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <thread>

// One setting of the hardware; here, a line of text. What the hardware can't do is refused, whatever comes from the network.
void Set(const char* szWhat, int nChannel, float fWanted, float fLimit, float& fNow)
{
    if (std::abs(fWanted - fNow) >= 0.1f && fWanted >= 0 && fWanted <= fLimit)
    {
        std::printf("%s %d: %.1f -> %.1f\n", szWhat, nChannel, double(fNow), double(fWanted));
        fNow = fWanted;
    }
}

bool Report(CDiagnosticsSocketSender& sender, int nSeconds, bool bMuted)
{
    VORNXMLWriter writer;
    writer.start_xml(XMLDiagnostics::c_strFormatVersion.c_str(), XMLDiagnostics::XNT_IOBOX, 4);
    writer.add_attribute(0, nSeconds, 0, nullptr); // up-time
    writer.add_attribute(1, bMuted ? 1 : 0, 0, nullptr);
    writer.add_attribute(133, "Stage left", "0", nullptr); // its role
    writer.add_attribute(138, 5.02f, 0, nullptr);          // the 5 V rail
    sender.Send(writer.m_strDocument.data(), static_cast<unsigned int>(writer.m_strDocument.size()));
    return sender.LastSendSucceeded();
}

int main()
{
    const auto image = std::make_unique<CBMAContainer>();
    const auto follower = std::make_unique<CImageFollower>(*image);
    CDiagnosticsSocketSender sender;
    bool ok = sender.EstablishMulticastTransmitter(XMLDiagnostics::c_strMulticastGroup.c_str(), 7070) &&
              follower->InitialiseClient(7060, nullptr, "225.0.0.46", nullptr);
    float afSwitch[4] = {}, afGain[4] = {};            // as the hardware comes up
    for (int nRound = 0; ok && nRound < 400; ++nRound) // of 10 ms each
    {
        follower->UpdateBMA();
        follower->ClearReceiveErrors(); // a bad update costs itself, not those after it
        const bool bWhole = follower->GetTypesReceived() == c_unWholeImage;
        for (int nChannel = 0; bWhole && nChannel < 4; ++nChannel)
        {
            int nSwitch = 0;
            float fGain = 0;
            image->GetPPC(enSwitch, enLineIOModule, 0, nChannel, nSwitch);
            image->GetPPC(enRotary, enMicInput, nChannel, 0, fGain);
            Set("switch", nChannel, static_cast<float>(nSwitch), 1, afSwitch[nChannel]);
            Set("gain", nChannel, fGain, 60, afGain[nChannel]);
        }
        ok = nRound % 100 != 0 || Report(sender, nRound / 100, !bWhole); // muted until it knows what is wanted
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const bool bWhole = follower->GetTypesReceived() == c_unWholeImage;
    std::puts(!ok ? "no network" : bWhole ? "done" : "no MC");
    return ok && bWhole ? 0 : 1;
}
