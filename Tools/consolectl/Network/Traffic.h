// The datagrams of a console's network, one at a time: as they come, or from a capture file.
#pragma once

#include "Network/Options.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// An IPv4 address, most significant byte first as a number, and a port.
struct stEndpoint
{
    std::uint32_t unAddress = 0;
    unsigned short usPort = 0;

    std::string AddressText() const;
    std::string Text() const; // with the port
};

// 0.0.0.0 for what is no address.
stEndpoint MakeEndpoint(const std::string& strAddress, unsigned int unPort);
bool operator==(const stEndpoint& a, const stEndpoint& b);

struct stDatagram
{
    std::int64_t nTime = 0; // microseconds since 1970
    stEndpoint source;
    stEndpoint destination;
    std::vector<unsigned char> bytes;
    long lNumber = 0; // from 1: of those that came, or of a capture's packets
};

// By its header: "updates" of an MC, "changes" of a client, "others", or "no header".
const char* KindOf(const stDatagram& datagram);

// What a source of datagrams has lost, as far as it knows.
struct stTrafficLoss
{
    std::uint32_t unKernel = 0; // the receive buffer was full
    std::uint32_t unSize = 0;   // longer than a datagram of ours, or cut short
};

class CTraffic
{
public:
    virtual ~CTraffic() = default;

    // Waits for the next datagram, for so many seconds at most; false when there is none as yet.
    virtual bool Next(stDatagram& datagram, double dSeconds) = 0;

    // True when there will be no more; then empty, or why it was broken off.
    virtual bool IsOver() const = 0;
    virtual std::string GetError() const { return std::string(); }

    virtual stTrafficLoss GetLoss() const = 0;
};

// What is on the network: the MC's updates, and the clients' changes. Belongs to one thread, which gets everything in the order in
// which it looks; nothing comes twice.
class CLiveTraffic : public CTraffic
{
public:
    CLiveTraffic();
    ~CLiveTraffic() override;

    // Empty, or what went wrong.
    std::string Open(const stMulticastLink& updates);

    bool Next(stDatagram& datagram, double dSeconds) override;
    bool IsOver() const override;
    stTrafficLoss GetLoss() const override;

    int GetReceiveBufferSize() const;

private:
    struct stSocket
    {
        int nSocket;
        stEndpoint group;
        std::uint32_t unDropped;
    };

    std::string Listen(const std::string& strGroup, unsigned int unPort, const std::string& strInterface);
    bool Receive(stSocket& socket, stDatagram& datagram);

    std::vector<stSocket> m_Sockets;
    std::vector<unsigned char> m_Room;
    std::size_t m_unNext = 0; // which socket is looked at first
    std::uint32_t m_unTooLong = 0;
    long m_lCame = 0;
};
