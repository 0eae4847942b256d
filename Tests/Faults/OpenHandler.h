// A handler with an open port of this machine, and somebody at the other end.
#pragma once

#include "ClientComms/ClientMsgHandler.h"
#include "Support/Bytes.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace Faults
{

constexpr char c_szLoopback[] = "127.0.0.1";

inline sockaddr_in Loopback(unsigned int unPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(unPort));
    return address;
}

class CCountingHandler : public CClientMsgHandler
{
public:
    CCountingHandler() : CClientMsgHandler(false), nApplied(0) {}
    ~CCountingHandler() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg&) override
    {
        ++nApplied;
        return 0;
    }

    bool Open() { return InitialiseClient(0, c_szLoopback, nullptr, nullptr); }

    int nApplied;
};

// Sends to a port of this machine; and receives.
class CPeer
{
public:
    explicit CPeer(unsigned int unPort = 0) : m_nSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = Loopback(0);
        bind(m_nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        if (unPort != 0)
        {
            address = Loopback(unPort);
            connect(m_nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        }
    }
    ~CPeer() { close(m_nSocket); }
    CPeer(const CPeer&) = delete;
    CPeer& operator=(const CPeer&) = delete;

    int Port() const
    {
        sockaddr_in address = {};
        socklen_t unSize = sizeof address;
        getsockname(m_nSocket, reinterpret_cast<sockaddr*>(&address), &unSize);
        return ntohs(address.sin_port);
    }

    void SendUpdate()
    {
        Support::tBytes update = Support::UpdateHeader(enMCUpdateRotary, 8);
        Support::AppendArray(update, {1, 2, 3, 4});
        const Support::tBytes datagram = Support::Datagram(0, ++m_unId, 1, 1, update);
        send(m_nSocket, datagram.data(), datagram.size(), 0);
    }

    // How many datagrams have come.
    int Take()
    {
        int nTaken = 0;
        char acDatagram[100];
        while (recv(m_nSocket, acDatagram, sizeof acDatagram, MSG_DONTWAIT) >= 0)
        {
            ++nTaken;
        }
        return nTaken;
    }

private:
    int m_nSocket;
    std::uint32_t m_unId = 0;
};

} // namespace Faults
