// Updates by reliable UDP, with ENet.
#include "Peers.h"

#include <enet/enet.h>

#include <atomic>
#include <chrono>

namespace
{

typedef std::chrono::steady_clock tClock;
typedef std::unique_ptr<ENetHost, void (*)(ENetHost*)> tHost;

constexpr std::chrono::seconds c_LongestConnect(5);
constexpr unsigned int c_unServiceTime = 10; // milliseconds that the receiver sleeps at most, to see that it is to end

// No bandwidth is given, so ENet doesn't limit it; a socket buffer of the size that ours has.
tHost MakeHost(const ENetAddress* pAddress, enPacketSizes enSize)
{
    tHost pHost(enet_host_create(pAddress, 1, 1, 0, 0), enet_host_destroy);
    if (pHost == nullptr)
    {
        throw std::string("ENet has no host");
    }
    if (enSize == enLargestPackets)
    {
        pHost->mtu = ENET_PROTOCOL_MAXIMUM_MTU;
        for (std::size_t unPeer = 0; unPeer < pHost->peerCount; ++unPeer)
        {
            pHost->peers[unPeer].mtu = pHost->mtu; // made with the host, as it was then
        }
        enet_socket_set_option(pHost->socket, ENET_SOCKOPT_RCVBUF, 4 << 20);
        enet_socket_set_option(pHost->socket, ENET_SOCKOPT_SNDBUF, 4 << 20);
    }
    return pHost;
}

// With the usual packets ENet is as it comes. With the largest the socket buffers are as large as ours, and its throttle, which
// makes the window smaller when round trips take longer for a while, is held open.
class CEnetUpdates : public COctetsLink
{
public:
    CEnetUpdates(const std::vector<unsigned char>& update, enPacketSizes enSize)
        : COctetsLink(update), m_pSender(MakeHost(nullptr, enSize)), m_pReceiver(nullptr, enet_host_destroy), m_pPeer(nullptr),
          m_bStop(false), m_bLost(false)
    {
        ENetAddress address = {};
        enet_address_set_host_ip(&address, "127.0.0.1");
        m_pReceiver = MakeHost(&address, enSize);
        enet_socket_get_address(m_pReceiver->socket, &address);
        m_pPeer = enet_host_connect(m_pSender.get(), &address, 1, 0);
        m_Thread = std::thread([this] { Receive(); });
        bool bConnected = false;
        const tClock::time_point end = tClock::now() + c_LongestConnect;
        while (m_pPeer != nullptr && !bConnected && tClock::now() < end)
        {
            ENetEvent event;
            bConnected = enet_host_service(m_pSender.get(), &event, 1) > 0 && event.type == ENET_EVENT_TYPE_CONNECT;
        }
        if (!bConnected)
        {
            Stop();
            throw std::string("ENet did not connect");
        }
        if (enSize == enLargestPackets)
        {
            enet_peer_throttle_configure(m_pPeer, ENET_PEER_PACKET_THROTTLE_INTERVAL, ENET_PEER_PACKET_THROTTLE_SCALE, 0);
        }
    }
    ~CEnetUpdates() override { Stop(); }

    // The octets stay where they are: ENet need not copy them.
    void Send() override
    {
        ENetPacket* const pPacket =
            enet_packet_create(m_Update.data(), m_Update.size(), ENET_PACKET_FLAG_RELIABLE | ENET_PACKET_FLAG_NO_ALLOCATE);
        if (pPacket == nullptr || enet_peer_send(m_pPeer, 0, pPacket) != 0)
        {
            throw std::string("ENet did not send");
        }
        enet_host_flush(m_pSender.get());
    }

    // Acknowledgements open the window for what is still to be sent.
    void Wait() override
    {
        ENetEvent event;
        if (enet_host_service(m_pSender.get(), &event, 0) != 0 || m_bLost)
        {
            throw std::string("ENet's connection ended");
        }
        std::this_thread::yield();
    }

private:
    void Receive()
    {
        while (!m_bStop)
        {
            ENetEvent event;
            if (enet_host_service(m_pReceiver.get(), &event, c_unServiceTime) <= 0)
            {
                continue;
            }
            if (event.type == ENET_EVENT_TYPE_RECEIVE)
            {
                Store(event.packet->data, event.packet->dataLength);
                enet_packet_destroy(event.packet);
            }
            m_bLost = m_bLost || event.type == ENET_EVENT_TYPE_DISCONNECT;
        }
    }

    void Stop()
    {
        m_bStop = true;
        m_Thread.join();
    }

    const tHost m_pSender;
    tHost m_pReceiver;
    ENetPeer* m_pPeer;
    std::atomic<bool> m_bStop;
    std::atomic<bool> m_bLost;
    std::thread m_Thread;
};

} // namespace

tLink EnetUpdates(const std::vector<unsigned char>& update, enPacketSizes enSize)
{
    if (enet_initialize() != 0)
    {
        throw std::string("ENet does not start");
    }
    return std::make_unique<CEnetUpdates>(update, enSize);
}
