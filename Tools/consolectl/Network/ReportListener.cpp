#include "Network/ReportListener.h"

#include "Network/Mailbox.h"
#include "Network/Report.h"
#include "Terminal/Common.h"

#include <map>
#include <vector>

namespace
{

constexpr double c_dLoopPeriod = 0.01;
constexpr std::size_t c_unMaxDevices = 1000;
constexpr std::size_t c_unMaxWaiting = 4 << 20; // bytes

struct stReceivedReport
{
    std::vector<char> bytes;
    RySocketIO::CIPString sender;
    tSteadyClock::time_point time;
};

class CReportReceiver : public RySocketIO::CSocket
{
public:
    CReportReceiver() : CSocket(RySocketIO::enConnectionUDP, false, false), m_Reports(c_unMaxWaiting) { SetUseSenderInfo(true); }
    ~CReportReceiver() override { StopReceiving(); }

    using CSocket::OnReceivedData;

    void OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender) override
    {
        m_Reports.Put({{pData, pData + lLength}, sender, tSteadyClock::now()}, static_cast<std::size_t>(lLength));
    }

    std::vector<stReceivedReport> Take() { return m_Reports.Take(); }
    std::size_t GetLost() { return m_Reports.GetLost(); }

private:
    CMailbox<stReceivedReport> m_Reports;
};

// What has come from a device.
struct stDevice
{
    long lReports = 0;
    tSteadyClock::time_point last = {};
};

class CListen
{
public:
    explicit CListen(const stListenOptions& options) : m_Options(options), m_Start(tSteadyClock::now()) {}

    int Run();

private:
    void Take(stReceivedReport& report);
    bool IsOver() const { return m_Options.limits.Reached(m_lReports, m_Start); }
    void PrintSummary();

    const stListenOptions& m_Options;
    const tSteadyClock::time_point m_Start;
    diagnostics_xml_reader m_Reader;
    CReportReceiver m_Receiver;
    std::map<std::string, stDevice> m_Devices;
    long m_lReports = 0;
    long m_lRefused = 0;
};

void CListen::Take(stReceivedReport& report)
{
    const int nSize = static_cast<int>(report.bytes.size());
    report.bytes.push_back('\0'); // the text ends, whatever came
    const bool bXML = m_Reader.IsXML(report.bytes.data());
    if (!bXML || !ReadReport(m_Reader, report.bytes.data(), nSize))
    {
        ++m_lRefused;
        Line("%s  %d bytes from %s  %s", Styled(enBad, "no report").c_str(), nSize, report.sender.Text(),
             bXML ? Printable(m_Reader.GetError()).c_str() : "it does not begin as XML");
        return;
    }
    const bool bValid = !m_Options.bValidate || m_Reader.validate(m_Options.strSchema.c_str());
    m_lRefused += bValid ? 0 : 1;
    ++m_lReports;
    stDevice forgotten; // of a device too many
    const std::string strDevice = DeviceText(m_Reader);
    const bool bRemembered = m_Devices.size() < c_unMaxDevices || m_Devices.count(strDevice) != 0;
    stDevice& device = bRemembered ? m_Devices[strDevice] : forgotten;
    const std::string strAge = device.lReports == 0 ? std::string("its first report")
                                                    : Format("%.2f s after its last report",
                                                             std::chrono::duration<double>(report.time - device.last).count());
    ++device.lReports;
    device.last = report.time;
    const std::string strValid = !m_Options.bValidate ? std::string()
                                 : bValid             ? ", " + Styled(enGood, "valid")
                                                      : ", " + Styled(enBad, "not valid: " + Printable(m_Reader.GetError()));
    PrintReport(Format("%s from %s: %s, %s%s", Styled(enStrong, strDevice).c_str(), report.sender.Text(),
                       Counted(static_cast<long>(m_Reader.GetMap().size()), "parameters").c_str(), strAge.c_str(),
                       strValid.c_str()),
                m_Reader, report.sender.Text());
}

void CListen::PrintSummary()
{
    const RySocketIO::stSocketStatistics statistics = m_Receiver.GetSocketStatistics();
    const std::size_t unLost = m_Receiver.GetLost() + statistics.unKernelDrops + statistics.unTruncated;
    Line("reports: %s, devices: %zu, refused: %s, lost: %zu", Grouped(m_lReports).c_str(), m_Devices.size(),
         Grouped(m_lRefused).c_str(), unLost);
    for (const auto& entry : m_Devices)
    {
        Line("  %-24s  reports: %s, the last %.2f s ago", entry.first.c_str(), Grouped(entry.second.lReports).c_str(),
             SecondsSince(entry.second.last));
    }
}

int CListen::Run()
{
    if (!m_Receiver.InitialiseLocalSockets(m_Options.link.unPort, nullptr, m_Options.link.strInterface.c_str(), 1) ||
        !m_Receiver.AddToGroup(m_Options.link.strGroup.c_str()))
    {
        return Fail("the network can't be had: " + LinkText(m_Options.link));
    }
    Line("reports on %s", LinkText(m_Options.link).c_str());
    while (!IsOver())
    {
        std::vector<stReceivedReport> reports = m_Receiver.Take();
        for (std::size_t unReport = 0; unReport < reports.size() && !IsOver(); ++unReport)
        {
            Take(reports[unReport]);
        }
        SleepSeconds(c_dLoopPeriod);
    }
    PrintSummary();
    if (m_lRefused > 0)
    {
        return Fail(Format("%ld of what came was no valid report", m_lRefused));
    }
    return m_Options.limits.Status(m_lReports, "reports");
}

} // namespace

int Listen(const stListenOptions& options)
{
    return CListen(options).Run();
}
