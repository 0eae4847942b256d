// What every message handler has: the fragments of messages under way, remote addresses, and outgoing parameter changes.
#pragma once

#include "ClientComms/RawPPCQueue.h"
#include "ClientComms/ReceiveStatistics.h"
#include "ClientComms/UDPPacket.h"
#include "Runtime/Export.h"
#include "Runtime/Locks.h"
#include "RySocketIO/CIPString.h"

#include <cstdint>
#include <memory>

class CFragmentRing;
struct stKeptFragment;

// The base of the client's message handler. It joins the fragments of a message: a ring keeps the last 50 that came, and the
// one that completes a message is joined with those from the ring, in number order whatever the order of arrival. Fragments are
// matched by message id alone. They stay in the ring until newer ones overwrite them, so a repeated last fragment completes its
// message again.
//
// Some 6 MB in all. Reassembly belongs to the one thread that receives datagrams; the PPC buffer may be used from any thread; the
// remote addresses are set before anything is sent.
class LOGICALCONTROLS_EXPORT CMsgHandlerBase
{
public:
    enum : int
    {
        enRingSize = 50,
        enMaxRemoteAddresses = 5,
        enMaxAddressText = 50, // with the zero behind it
        enNoMessage = -1
    };

    CMsgHandlerBase();
    virtual ~CMsgHandlerBase();
    CMsgHandlerBase(const CMsgHandlerBase&) = delete;
    CMsgHandlerBase& operator=(const CMsgHandlerBase&) = delete;

    // For the application to override; logs that nobody did.
    virtual void OnReceivedData(char* pData, long lLength);

    // Adds an address that outgoing datagrams are sent to: five at most, and a text of at most 49 characters; anything else is
    // ignored. Port -1 leaves the entry's port at 0, which stands for the handler's own.
    void SetRemoteAddress(const char* szAddress, int nSecond, int nPort);

    void ResetRemoteAddresses();

    // Takes a datagram of lLength bytes. When it completes a message, the message is in *ppBuffer, its length in nBufferSize
    // (which held the buffer's capacity), and the result is the datagram type; else enNoMessage, and the buffer is untouched. A
    // datagram that is refused is logged; none is trusted in any of its numbers.
    int ValidatePacketSequence(const char* pData, long lLength, unsigned char** ppBuffer, int& nBufferSize);

    // From now on fragments are matched by their type, their total and their sender as well. Off at the start. Before anything is
    // received.
    void SetStrictMatching(bool bStrict);

    // What came so far, and what became of it. Any thread.
    stReceiveStatistics GetStatistics() const;

    // Fills the empty ones among the first nTotal entries of the table with copies from the ring, newest first; they last until the
    // next call. True when all are filled; false at once for a total outside 1 to 5.
    bool LocatePacketsOfMessage(const UDP_PACKET** ppTable, long lMessageId, int nTotal);

    // Any thread: queues a change to be sent to every remote address. The value is a float for rotaries and faders, a string for
    // strings, an int for switches, integers, others and meters. False, with a line in the log, for what could never be sent or
    // would be refused at the other end: an address that names no parameter, a value of another type; a message that holds an error
    // or no value, or is larger than a datagram; and without memory.
    bool QueuePPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float fValue);
    bool QueuePPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue);
    bool QueuePPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                  const RyGConsoleString& strValue);

    // The same for a copy of a message, whatever it addresses.
    bool QueuePPC(const CRawPPCMsg& message);

    // Any thread: how many changes wait, and an end to all of them.
    int GetPPCBufferSize();
    void ClearPPCBuffer();

protected:
    struct stRemoteAddress
    {
        char acAddress[enMaxAddressText];
        int nPort; // 0: the handler's default port
        int nSecond;
    };

    // A message that was joined, and where to: into pBuffer, which has nSize bytes, or wherever it lies whole, until a message is
    // joined for the same view again.
    struct stJoining
    {
        unsigned char* pBuffer;
        int nSize;       // afterwards the message's
        int nWantedType; // a complete message of another type is checked and reported, but not joined
        int nView;       // enIntoBuffer: no other place than pBuffer will do
        const unsigned char* pMessage;
        std::uint32_t unMessageId;
    };

    enum : int
    {
        enAnyType = -1,
        enIntoBuffer = -1
    };

    // As ValidatePacketSequence, of a sender. What lies in the room for the next datagram has its header's bytes changed.
    int Reassemble(const char* pData, long lLength, stJoining& joining, const RySocketIO::CIPString& sender);

    // Where the next datagram is to be received, so that it need not be moved: c_nMaxDatagram bytes.
    char* DatagramRoom();

    // What the view had been given is not looked at any more.
    void ReleaseView(int nView);

    void CountDatagram(long lLength);
    int Reject(enReceiveCounter enReason);

    CRawPPCQueue m_PPCBuffer LOGICALCONTROLS_GUARDED_BY(m_PPCBufferLock);
    CCritSec m_PPCBufferLock;
    stRemoteAddress m_aRemoteAddresses[enMaxRemoteAddresses];
    int m_nRemoteAddresses;
    CReceiveCounters m_Counters;

private:
    template <typename T>
    bool QueueRecord(const stPPCAddress& address, const T& value);
    bool Enqueue(std::unique_ptr<CRawPPCMsg[]> pMessage);
    LOGICALCONTROLS_INTERNAL bool Join(stKeptFragment* const* ppTable, int nTotal, stKeptFragment& inHand, stJoining& joining);

    const std::unique_ptr<CFragmentRing> m_pRing;
    std::unique_ptr<UDP_PACKET[]> m_pLocated; // what LocatePacketsOfMessage shows
    bool m_bStrictMatching;
};
