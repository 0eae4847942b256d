// Changes and updates by this library.
#include "Datagrams.h"
#include "Images.h"
#include "Peers.h"

#include "LogicalControls.h"

#include <sys/socket.h>

#include <algorithm>
#include <chrono>

namespace
{

typedef std::chrono::steady_clock tClock;

// The MC's end: applies every change to its image.
class CChangeReceiver : public CMsgHandlerBase, public RySocketIO::CSocket
{
public:
    explicit CChangeReceiver(stArrivals& arrivals)
        : CSocket(RySocketIO::enConnectionUDP, false, false), m_Arrivals(arrivals), m_Message(c_nMaxDatagram)
    {
    }
    ~CChangeReceiver() override { StopReceiving(); }

    using CSocket::OnReceivedData;
    void OnReceivedData(char* pData, long lLength) override
    {
        unsigned char* pMessage = m_Message.data();
        int nSize = static_cast<int>(m_Message.size());
        if (ValidatePacketSequence(pData, lLength, &pMessage, nSize) >= 0)
        {
            m_Arrivals.Count(static_cast<std::uint32_t>(ApplyPPCs(pMessage, nSize, m_Image).nApplied));
        }
    }

    CBMAContainer m_Image;

private:
    stArrivals& m_Arrivals;
    tBytes m_Message;
};

class COurChanges : public CChangeLink
{
public:
    explicit COurChanges(int nParams) : CChangeLink(nParams), m_pReceiver(std::make_unique<CChangeReceiver>(m_Arrivals)) {}

protected:
    float Received(int nParam) const override
    {
        float fValue = -1;
        m_pReceiver->m_Image.GetPPC(enRotary, enMicInput, enFirstPath + nParam / enPathParams, nParam % enPathParams, fValue);
        return fValue;
    }

    std::unique_ptr<CChangeReceiver> m_pReceiver;
};

// Each change a datagram, by the image's simple sender.
class COurSingleChanges : public COurChanges
{
public:
    explicit COurSingleChanges(bool bReceive) : COurChanges(c_nSingleParams)
    {
        m_Image.SetUseSimplePPCSender(true);
        m_Image.InitSimplePPCSenderComms();
        if (!m_pReceiver->InitialiseLocalSockets(c_unChangesPort, nullptr, "127.0.0.1", 1) ||
            !m_pReceiver->AddToGroup(c_szChangesGroup))
        {
            throw std::string("no socket can be had");
        }
        if (!bReceive)
        {
            ProveAndClose();
        }
    }

private:
    void Change(int nParam, float fValue) override
    {
        m_Image.SetPPC(enRotary, enMicInput, enFirstPath + nParam / enPathParams, nParam % enPathParams, fValue, false, false);
    }

    // That changes do leave, as the sender is silent about failures; from then on nobody listens.
    void ProveAndClose()
    {
        const tClock::time_point end = tClock::now() + c_LongestWait;
        Change(0, 1);
        while (m_Arrivals.unCount == 0 && tClock::now() < end)
        {
            std::this_thread::yield();
        }
        if (m_Arrivals.unCount == 0)
        {
            throw std::string("our change did not leave");
        }
        m_pReceiver.reset();
    }

    CBMAContainer m_Image;
};

// Queued, and packed into datagrams by SendAll.
class COurPackedChanges : public COurChanges
{
public:
    COurPackedChanges() : COurChanges(c_nPackedParams), m_Sender(false)
    {
        if (!m_pReceiver->InitialiseLocalSockets(0, "127.0.0.1", nullptr, 1) ||
            !m_Sender.InitialiseClient(0, "127.0.0.1", nullptr, nullptr))
        {
            throw std::string("no socket can be had");
        }
        m_Sender.SetRemoteAddress("127.0.0.1", 0, static_cast<int>(m_pReceiver->GetLocalPort()));
    }

    void Flush() override
    {
        if (!m_Sender.SendAll())
        {
            throw std::string("our changes did not leave");
        }
    }

private:
    void Change(int nParam, float fValue) override
    {
        m_Sender.QueuePPC(enRotary, enMicInput, enFirstPath + nParam / enPathParams, nParam % enPathParams, fValue);
    }

    CClientMsgHandler m_Sender;
};

// From a message's octets, as the others, to an image that it was applied to. The sender is the MC's: a plain socket, with the
// payload sent from where it lies, as the others do.
class COurUpdates : public CLink
{
public:
    explicit COurUpdates(const tBytes& update)
        : m_Update(update), m_pImage(std::make_shared<CBMAContainer>()), m_Handler(m_pImage),
          m_Destination(LoopbackAddress(m_Handler.GetLocalPort())), m_unId(0)
    {
    }

    void Send() override
    {
        const int nTotal = CountFragments(static_cast<long>(m_Update.size()));
        ++m_unId;
        for (int nFragment = 1; nFragment <= nTotal; ++nFragment)
        {
            const std::size_t unAt = static_cast<std::size_t>(nFragment - 1) * c_nMaxPayload;
            const std::size_t unPayload = std::min<std::size_t>(m_Update.size() - unAt, c_nMaxPayload);
            UDP_PACKET_HEADER header;
            header.nType = enDatagramMCUpdate;
            header.unMessageId = m_unId;
            header.unPacketNumber = static_cast<std::uint32_t>(nFragment);
            header.unTotal = static_cast<std::uint32_t>(nTotal);
            header.unPayloadLength = static_cast<std::uint32_t>(unPayload);
            iovec aVectors[] = {{&header, sizeof header}, {m_Update.data() + unAt, unPayload}};
            msghdr message = {};
            message.msg_name = &m_Destination;
            message.msg_namelen = sizeof m_Destination;
            message.msg_iov = aVectors;
            message.msg_iovlen = 2;
            if (sendmsg(m_Socket.Descriptor(), &message, 0) != static_cast<ssize_t>(sizeof header + unPayload))
            {
                throw std::string("our update did not leave");
            }
        }
    }

    const stArrivals& Arrivals() const override { return m_Handler.m_Arrivals; }

    bool IsRight() const override { return SerialisedUpdate(*m_pImage, enMCUpdateRotary) == m_Update; }

private:
    tBytes m_Update;
    const tImage m_pImage;
    CReadyHandler m_Handler;
    CPlainSocket m_Socket;
    sockaddr_in m_Destination;
    std::uint32_t m_unId;
};

} // namespace

tLink OurSingleChanges(bool bReceive)
{
    return std::make_unique<COurSingleChanges>(bReceive);
}

tLink OurPackedChanges()
{
    return std::make_unique<COurPackedChanges>();
}

tLink OurUpdates(const tBytes& update)
{
    return std::make_unique<COurUpdates>(update);
}
