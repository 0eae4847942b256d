#include "ClientComms/SimpleUDPPPCSender.h"

#include "ClientComms/UDPPacket.h"
#include "Messages/PPCPacket.h"
#include "Runtime/Clock.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <cstring>

namespace
{

const char c_szGroup[] = "225.0.0.45";
constexpr unsigned int c_unPort = 7050;

// Parameters that are never sent, by message type and path type.
struct stFilteredRange
{
    tagenPPCMessageType enType;
    tagenVirtualPathType enPathType;
    int nFirst;
    int nLast;
};

constexpr stFilteredRange caFiltered[] = {
    {enSwitch, enGlobals, 5, 6},           {enSwitch, enGlobals, 228, 228},    {enInteger, enGlobals, 0, 58},
    {enInteger, enGlobals, 126, 126},      {enInteger, enLineIOCPU, 32, 32},   {enInteger, enHeronBoxCPU, INT_MIN, INT_MAX},
    {enInteger, enTern, INT_MIN, INT_MAX}, {enInteger, enFinchDetail, 28, 28}, {enInteger, enFinchDetail, 41, 41},
};

template <typename T>
struct stPPCDatagram
{
    UDP_PACKET_HEADER header;
    stPPCRecord<T> record;
};

static_assert(sizeof(stPPCDatagram<float>) == 49 && sizeof(stPPCDatagram<int>) == 49 &&
                  sizeof(stPPCDatagram<RyGConsoleString>) == 58,
              "record follows header");

} // namespace

SimpleUDPPPCSender::SimpleUDPPPCSender()
    : m_nSocket(0), m_Destination(), m_bOpen(false), m_bLastSendSucceeded(false), m_bOwnsSocket(false)
{
}

SimpleUDPPPCSender::~SimpleUDPPPCSender()
{
    DeInitComms();
}

bool SimpleUDPPPCSender::InitComms()
{
    DeInitComms();
    m_nSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    m_bOwnsSocket = m_nSocket >= 0;
    m_bOpen = ConstructDestinationAddr(c_szGroup, c_unPort, m_Destination);
    return m_bOpen;
}

void SimpleUDPPPCSender::DeInitComms()
{
    if (m_bOwnsSocket)
    {
        close(m_nSocket);
        m_nSocket = -1;
        m_bOwnsSocket = false;
    }
}

bool SimpleUDPPPCSender::ConstructDestinationAddr(const char* szHost, unsigned int unPort, sockaddr_in& address)
{
    address = sockaddr_in();
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(unPort));
    if (szHost == nullptr)
    {
        address.sin_addr.s_addr = INADDR_ANY;
        return true;
    }
    address.sin_addr.s_addr = inet_addr(szHost);
    if (address.sin_addr.s_addr != INADDR_NONE)
    {
        return true;
    }
    const hostent* pHost = gethostbyname(szHost);
    if (pHost == nullptr || pHost->h_addrtype != AF_INET || pHost->h_addr_list[0] == nullptr)
    {
        return false;
    }
    std::memcpy(&address.sin_addr, pHost->h_addr_list[0], sizeof address.sin_addr);
    return true;
}

template <typename T>
void SimpleUDPPPCSender::SendPPCMessage(tagenPPCMessageType enType, int nPathType, int nPath, int nParameter, T value, bool bFlag)
{
    if (_FilterPacket(enType, nPathType, nParameter))
    {
        return;
    }
    m_bLastSendSucceeded = false;
    if (!m_bOpen || !m_bOwnsSocket)
    {
        return;
    }
    stPPCDatagram<T> datagram = {{}, {enType, nPathType, nPath, nParameter, value}};
    datagram.header.nType = bFlag ? enDatagramPPCFlagged : enDatagramPPC;
    datagram.header.unMessageId = CClock::Seconds();
    datagram.header.unPacketNumber = 1;
    datagram.header.unTotal = 1;
    datagram.header.unPayloadLength = sizeof datagram.record;
    m_bLastSendSucceeded = sendto(m_nSocket, &datagram, sizeof datagram, 0, reinterpret_cast<const sockaddr*>(&m_Destination),
                                  sizeof m_Destination) != -1;
}

bool SimpleUDPPPCSender::_FilterPacket(tagenPPCMessageType enType, int nPathType, int nParameter)
{
    for (const stFilteredRange& range : caFiltered)
    {
        if (range.enType == enType && range.enPathType == nPathType && nParameter >= range.nFirst && nParameter <= range.nLast)
        {
            return true;
        }
    }
    return false;
}

template LOGICALCONTROLS_EXPORT void SimpleUDPPPCSender::SendPPCMessage(tagenPPCMessageType, int, int, int, float, bool);
template LOGICALCONTROLS_EXPORT void SimpleUDPPPCSender::SendPPCMessage(tagenPPCMessageType, int, int, int, int, bool);
template LOGICALCONTROLS_EXPORT void SimpleUDPPPCSender::SendPPCMessage(tagenPPCMessageType, int, int, int, RyGConsoleString, bool);
