// A master controller that owns an image, moves it, multicasts it, and takes clients' changes.
#pragma once

#include "Images/Address.h"
#include "Images/MovingImage.h"
#include "Network/Options.h"
#include "Network/PPCReceiver.h"
#include "Network/UpdateLink.h"
#include "Terminal/Common.h"

#include "LogicalControls.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct stMCOptions
{
    stMulticastLink link;
    double dSurfaceRate = 50; // updates a second
    double dRotaryRate = 10;
    double dReportPeriod = 1; // seconds; 0: no reports
    double dSeconds = 0;      // of moving, and then the last state a few times over; 0: for ever
    int nMovingFaders = 24;
    stFaults faults; // its seed is the image's, too
};

constexpr double c_dLowestRate = 0.1;
constexpr double c_dHighestRate = 1000;
constexpr double c_dLongestPeriod = 86400;

struct stMCCounts
{
    long lSurface = 0; // updates sent
    long lRotary = 0;
    long lChangeDatagrams = 0;
    long lApplied = 0; // changes of clients
    long lRefused = 0;
    long lReports = 0;
};

// Belongs to one thread, which is in Run for most of its life. What is sent, and in which order, depends on the options alone.
class CSimulatedMC
{
public:
    explicit CSimulatedMC(const stMCOptions& options);
    virtual ~CSimulatedMC() = default;
    CSimulatedMC(const CSimulatedMC&) = delete;
    CSimulatedMC& operator=(const CSimulatedMC&) = delete;

    // Opens the sockets and fills the image: empty, or what went wrong.
    std::string Open();

    // Until its time is up, or it is over.
    void Run();

    const CBMAContainer& Image() const { return m_Image; }

    // What the MC itself changes: a fader stays there, as one does that a client sets.
    void Set(const stChange& change);

    const stMCCounts& Counts() const { return m_Counts; }
    const CUpdateLink& Updates() const { return m_Updates; }
    const CPPCReceiver& Changes() const { return m_PPCs; }

protected:
    // Asked between any two steps, a few milliseconds apart at most.
    virtual bool IsOver() = 0;

    // A datagram of a client's, and the parameters that it names.
    virtual void Apply(const stReceivedPPCs& received, const std::vector<stAddress>& addresses);

private:
    void ApplyClientChanges();
    void SendUpdate(MCUpdateType enType);
    void SendReport(double dSeconds);
    void RunUntil(double dSeconds, bool bMove);

    const stMCOptions m_Options;
    CMovingImage m_Moving;
    CBMAContainer& m_Image;
    CMCUpdateMsg m_Message;
    UDP_PACKET m_Packet;
    std::vector<unsigned char> m_Serialised;
    CPPCReceiver m_PPCs;
    CUpdateLink m_Updates;
    std::unique_ptr<CDiagnosticsSocketSender> m_pReports; // none while nothing is to be sent: it would close descriptor 0
    bool m_bReports = false;
    tSteadyClock::time_point m_Start; // of its time, which may stand still
    double m_dNextReport = 0;
    const std::uint32_t m_unStartTime = CClock::Seconds();
    std::uint32_t m_unMessageId = 0;
    stMCCounts m_Counts;
};
