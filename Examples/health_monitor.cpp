// A monitor of devices' health: prints each report, and a warning when a 5 V rail is low. Ends after six seconds.
#include "LogicalControls.h"

#include <chrono>
#include <cstdio>
#include <thread>

namespace
{

constexpr int c_nRail5v = 138;

// Reports are parsed on the socket's receive thread, the only one that uses the reader.
class CMonitor : public RySocketIO::CSocket
{
public:
    CMonitor() : CSocket(RySocketIO::enConnectionUDP, false, false) {}
    ~CMonitor() override { StopReceiving(); }

    using CSocket::OnReceivedData;

    void OnReceivedData(char* pData, long lLength) override
    {
        m_Reader.ClearMap(); // what another device said
        if (!m_Reader.parseAndPopulateMap(pData, static_cast<int>(lLength)))
        {
            return;
        }
        std::printf("%s %d:", m_Reader.GetDeviceType(), m_Reader.GetDeviceID());
        for (const auto& parameter : m_Reader.GetMap())
        {
            const char* name = XMLDiagnosticsParametersDSP::GetName(parameter.first); // null for a number without a name
            std::printf(" %s=%s", name != nullptr ? name : parameter.second.i.c_str(), parameter.second.v.c_str());
        }
        std::printf("\n");
        if (m_Reader.find_parameter(c_nRail5v) && XMLDiagnostics::string2Float(m_Reader.get_at(c_nRail5v).v) < 4.75f)
        {
            std::printf("warning: the 5 V rail is low\n");
        }
        std::fflush(stdout);
    }

private:
    diagnostics_xml_reader m_Reader;
};

} // namespace

int main()
{
    CMonitor monitor;
    if (!monitor.InitialiseLocalSockets(7070, nullptr, nullptr, 1) ||
        !monitor.AddToGroup(XMLDiagnostics::c_strMulticastGroup.c_str()))
    {
        std::printf("no network\n");
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::seconds(6));
}
