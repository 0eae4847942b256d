#include "Network/SimulatedMC.h"

#include "Network/Report.h"

#include <algorithm>

namespace
{

constexpr double c_dSettleSeconds = 0.5;
constexpr double c_dForEver = 1e9;
constexpr double c_dLongestLag = 1;
constexpr double c_dLongestSleep = 0.005;

// The parameters that a stream of changes names.
std::vector<stAddress> ReadAddresses(const std::vector<unsigned char>& payload)
{
    std::vector<stAddress> addresses;
    CPPCStreamReader reader(payload.data(), static_cast<long>(payload.size()));
    while (reader.Next())
    {
        const stAddress address = reader.Address();
        if (IsParameterAddress(address.enType, address.enPathType, address.nPath, address.nParam))
        {
            addresses.push_back(address);
        }
    }
    return addresses;
}

} // namespace

CSimulatedMC::CSimulatedMC(const stMCOptions& options)
    : m_Options(options), m_Image(m_Moving.Image()), m_Updates(m_Options.link, m_Options.faults), m_Start(tSteadyClock::now())
{
}

std::string CSimulatedMC::Open()
{
    const char* szInterface = m_Options.link.strInterface.c_str();
    if (m_Options.dReportPeriod > 0)
    {
        m_pReports = std::make_unique<CDiagnosticsSocketSender>();
        m_bReports = m_pReports->EstablishMulticastTransmitter(XMLDiagnostics::c_strMulticastGroup.c_str(), c_unReportPort);
    }
    if (!m_Updates.Open() || !m_PPCs.InitialiseLocalSockets(c_unPPCPort, nullptr, szInterface, 1) ||
        !m_PPCs.AddToGroup(c_szPPCGroup))
    {
        return "the network can't be had: " + LinkText({c_szPPCGroup, c_unPPCPort, m_Options.link.strInterface});
    }
    m_Moving.Fill(m_Options.faults.unSeed);
    return std::string();
}

void CSimulatedMC::Set(const stChange& change)
{
    m_Moving.ClientSets(change.address);
    WriteValue(m_Image, change, false);
}

void CSimulatedMC::Apply(const stReceivedPPCs& received, const std::vector<stAddress>& addresses)
{
    for (const stAddress& address : addresses)
    {
        m_Moving.ClientSets(address);
    }
    const stPPCResult result = ApplyPPCs(received.payload.data(), static_cast<long>(received.payload.size()), m_Image);
    m_Counts.lApplied += result.nApplied;
    m_Counts.lRefused += result.nRefused + (result.bComplete ? 0 : 1);
    ++m_Counts.lChangeDatagrams;
}

void CSimulatedMC::ApplyClientChanges()
{
    for (const stReceivedPPCs& received : m_PPCs.Take())
    {
        Apply(received, ReadAddresses(received.payload));
    }
}

void CSimulatedMC::SendUpdate(MCUpdateType enType)
{
    if (!BuildMCUpdate(m_Image, enType, m_Message))
    {
        return;
    }
    m_Serialised.resize(static_cast<std::size_t>(m_Message.GetTotalSize()));
    unsigned char* pSerialised = m_Serialised.data();
    m_Message >> &pSerialised;
    const long lSize = static_cast<long>(m_Serialised.size());
    ++m_unMessageId;
    for (int nFragment = 1; nFragment <= CountFragments(lSize); ++nFragment)
    {
        m_Updates.Send(m_Packet, MakeFragment(enDatagramMCUpdate, m_unMessageId, pSerialised, lSize, nFragment, m_Packet));
    }
    ++(enType == enMCUpdateRotary ? m_Counts.lRotary : m_Counts.lSurface);
}

// The MC's own health. Where reports can't go the first failure says so, and is the last.
void CSimulatedMC::SendReport(double dSeconds)
{
    std::vector<stReportedValue> values;
    for (const std::string& strValue :
         {Format("enUpTime=%ld", static_cast<long>(dSeconds)), std::string("enGeneralMute=0"), std::string("enRoleNumber=1"),
          std::string("enRoleName=Simulated MC"), std::string("enUDPState=1"), std::string("enUDPTimeouts=0"),
          Format("enStartTime=%u", m_unStartTime)})
    {
        values.push_back(ParseReportedValue(strValue));
    }
    const std::string strReport = MakeReport("MC", 1, values);
    m_pReports->Send(strReport.data(), static_cast<unsigned int>(strReport.size()));
    m_bReports = m_pReports->LastSendSucceeded();
    m_Counts.lReports += m_bReports ? 1 : 0;
}

// An MC that is kept from sending goes on where it was: its time has stood still.
void CSimulatedMC::RunUntil(double dSeconds, bool bMove)
{
    while (!IsOver())
    {
        ApplyClientChanges();
        const double dSurface = static_cast<double>(m_Counts.lSurface) / m_Options.dSurfaceRate;
        const double dRotary = static_cast<double>(m_Counts.lRotary) / m_Options.dRotaryRate;
        const double dDue = std::min(dSurface, dRotary);
        const double dNow = SecondsSince(m_Start);
        if (std::min(dDue, dNow) >= dSeconds)
        {
            return;
        }
        m_Start += dNow - dDue > c_dLongestLag ? Duration(dNow - dDue) : tSteadyClock::duration(0);
        if (m_bReports && dNow >= m_dNextReport)
        {
            SendReport(dNow);
            m_dNextReport = std::max(m_dNextReport + m_Options.dReportPeriod, dNow);
        }
        if (dDue > dNow || dDue >= dSeconds)
        {
            SleepUntil(m_Updates.SendDue(m_Start + Duration(std::min(dDue, dNow + c_dLongestSleep))));
            continue;
        }
        if (dSurface <= dRotary && bMove)
        {
            m_Moving.Move(dSurface, m_Options.nMovingFaders);
        }
        SendUpdate(dSurface <= dRotary ? enMCUpdateSurface : enMCUpdateRotary);
    }
}

void CSimulatedMC::Run()
{
    RunUntil(m_Options.dSeconds > 0 ? m_Options.dSeconds : c_dForEver, true);
    RunUntil(m_Options.dSeconds + c_dSettleSeconds, false); // the last state, a few times over
    m_Updates.SendRest();
}
