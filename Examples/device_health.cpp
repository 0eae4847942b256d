// A device that publishes its health: three reports, one a second.
#include "LogicalControls.h"

#include <chrono>
#include <thread>

int main()
{
    CDiagnosticsSocketSender sender;
    if (!sender.EstablishMulticastTransmitter(XMLDiagnostics::c_strMulticastGroup.c_str(), 7070))
    {
        return 1;
    }
    VORNXMLWriter writer;
    bool sent = true;
    for (int second = 0; sent && second < 3; ++second)
    {
        writer.start_xml(XMLDiagnostics::c_strFormatVersion.c_str(), XMLDiagnostics::XNT_IOBOX, 4);
        writer.add_attribute(0, second, 0, nullptr);           // up-time
        writer.add_attribute(1, 0, 0, nullptr);                // not muted
        writer.add_attribute(133, "Stage left", "0", nullptr); // its role
        writer.add_attribute(138, 5.02f, 0, nullptr);          // the 5 V rail
        sender.Send(writer.m_strDocument.data(), static_cast<unsigned int>(writer.m_strDocument.size()));
        sent = sender.LastSendSucceeded();
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    return sent ? 0 : 1;
}
