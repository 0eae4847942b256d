// The client's end of the link to the MC.
#pragma once

#include "ClientComms/MsgHandlerBase.h"
#include "ClientComms/PPCSender.h"
#include "Messages/MCUpdateMsg.h"
#include "Runtime/Export.h"
#include "Runtime/Locks.h"
#include "RySocketIO/CIPString.h"
#include "RySocketIO/CSocket.h"

#include <atomic>
#include <cstdint>
#include <memory>

// How often one kind of update comes. The receive thread records, the application's thread reads; neither waits for the other.
class CUpdateTiming
{
public:
    CUpdateTiming();

    // Receive thread: an update came now. The first interval counts from nStart, or is 0 when that is 0. Microseconds.
    void Record(std::int64_t nNow, std::int64_t nStart);

    // Application thread: the mean interval in milliseconds since the last call, -1 when there was no update.
    float TakeMeanPeriod();

    // Application thread: the time of the last update in microseconds; false when there was none yet.
    bool GetLast(std::int64_t& nLast) const;

private:
    struct stState
    {
        float fSum; // milliseconds
        std::int32_t nCount;
        std::int32_t nLastHigh; // microseconds
        std::uint32_t unLastLow;
        std::uint32_t unEpoch; // which TakeMeanPeriod the sum counts from
        bool bAny;
    };

    stState Read() const;

    // Written by the receive thread alone; m_unVersion is odd while it does.
    std::atomic<std::uint32_t> m_unVersion;
    std::atomic<float> m_fSum;
    std::atomic<std::int32_t> m_nCount;
    std::atomic<std::int32_t> m_nLastHigh;
    std::atomic<std::uint32_t> m_unLastLow;
    std::atomic<std::uint32_t> m_unEpoch;
    std::atomic<bool> m_bAny;

    // Written by the application's thread alone.
    std::atomic<std::uint32_t> m_unWantedEpoch;
};

// Receives the MC's updates, and sends changes to it. Its socket's receive thread joins and decodes them into one of two caches in
// turn; UpdateBMA, which the application calls from its own loop, hands each new one to ProcessMCUpdate, where the application
// writes it into its image.
//
//     construct; InitialiseClient; again and again UpdateBMA; destruct
//
// Changes are queued from any thread (QueuePPC) and leave in batches, on the sender thread:
//
//     SetRemoteAddress; InitialiseClient; StartPPCSender; again and again QueuePPC
//
// The handler owns its caches and its sender. Three threads meet here: the receive thread (OnReceivedData, ReceivedMCData), the
// sender's (SendAll) and the application's (everything else). A cache's mutex is held while a message is joined and decoded into
// it, and while the application looks at it, so an update is never torn; the PPC buffer's lock is held for single operations of the
// queue, never while records are packed or sent; no two locks are ever held at once. A class that derives from this one calls
// Shutdown first thing in its destructor: both threads call virtual functions of the object.
//
// UpdateBMA applies the first cache before the second, whichever is newer: GetUpdateSequence tells.
//
// An update that fails to decode makes its cache unusable, and UpdateBMA answers 5, until ClearReceiveErrors. No exception
// leaves. Some 6 MB in all, and 2 MB more once messages come in disorder.
class LOGICALCONTROLS_EXPORT CClientMsgHandler : public CMsgHandlerBase, public RySocketIO::CSocket
{
public:
    // What UpdateBMA answers when it is not what ProcessMCUpdate returned.
    enum enUpdateResults : int
    {
        enUpdateInitial = 1,
        enUpdateDecodeError = 5, // a cache holds an update that failed to decode
        enUpdateTimeout = 6,     // no new update, and none of type 1 for more than 60 ms
        enUpdateNone = 7         // no new update
    };

    // The flag goes to the socket library as it is.
    explicit CClientMsgHandler(bool bFlag);
    ~CClientMsgHandler() override;

    // Opens the port, joins the group and starts to receive. Addresses are IPv4 text; the local and interface addresses may be
    // null for the system's choice. True when the port or the group could be had: look at GetLocalPort to tell.
    bool InitialiseClient(unsigned int unPort, const char* szLocalAddress, const char* szGroup, const char* szInterfaceAddress);

    // Starts the thread that calls SendAll, every nPeriod milliseconds. Once only: a second time is refused, after StopPPCSender
    // as well. Remote addresses and InitialiseClient come before it.
    bool StartPPCSender(int nPeriod);

    // Stops that thread after the datagram that it may be sending. What is queued stays queued. Any thread, as Shutdown.
    void StopPPCSender();

    // Stops both threads. Any thread; on one of the two it does not wait for itself. Within ProcessMCUpdate it is put off until
    // that has returned.
    void Shutdown();

    using CMsgHandlerBase::OnReceivedData;

    // Receive thread: one datagram, with the address it came from. Within ProcessMCUpdate it is rejected. The bytes of one that was
    // received into ReceiveRoom are the handler's from then on: who overrides this looks at them before.
    void OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender) override;

    // Sends what is queued, and what is added meanwhile: as many whole records in each datagram as fit, each datagram to every
    // remote address. The result is that of the last send: false, too, when there was nothing to send. A message with an error
    // stays in front of those behind it until ClearPPCBuffer. Belongs to one thread, the sender's once that is started; false
    // when another is at it.
    virtual bool SendAll();

    // Makes a datagram of serialised records. False for more than a datagram holds, and without a packet.
    bool GenerateMultiplePPCPacket(const unsigned char* pData, int nSize, UDP_PACKET* pPacket);

    // Hands an update to the application, which returns a result of its own for UpdateBMA. Called with the cache's mutex held.
    // The update's arrays are valid for the length of the call only: it is a shallow message, of which a copy keeps nothing. A
    // program built with the address sanitizer is told when it looks at them later. This one returns 0.
    virtual int ProcessMCUpdate(const CMCUpdateMsg& update);

    // One round of the application's loop: applies what is new, and says how it went. Within ProcessMCUpdate it does nothing and
    // answers 7.
    virtual int UpdateBMA();

    // Within ProcessMCUpdate: the number of the update, counted from 1 in the order of arrival, modulo 2^32.
    std::uint32_t GetUpdateSequence() const { return m_unProcessedSequence; }

    // Within ProcessMCUpdate: the id of the message that the update came in, or of the last one before it when it came through
    // ReceivedMCData.
    std::uint32_t GetUpdateId() const { return m_unProcessedId; }

    // Receive thread: decodes one complete update message into the current cache. Within ProcessMCUpdate it only counts it.
    void ReceivedMCData(unsigned char* pData, long lLength);

    // From now on datagrams of this sender, and of others accepted before, are the only ones that are looked at; all others are
    // rejected before they can push out fragments of a message under way. At the start everybody is accepted. Up to 8 IPv4
    // addresses, before InitialiseClient; false for more, and for what is none.
    bool AcceptSender(const char* szAddress);

    // Makes caches that hold a bad update usable again; within ProcessMCUpdate, when that has returned.
    void ClearReceiveErrors();

    // Mean time between surface updates, and between rotary updates, since the last call: milliseconds, -1 for none. Exact as long
    // as somebody asks every day: the sum is a float.
    float GetSurfUpdatePeriod();
    float GetRotsUpdatePeriod();

    // How often UpdateBMA answered 6 since the last call.
    int GetMCTimeouts();

    // Who sent the last update. True when that changed since the last call.
    bool GetLastSender(RySocketIO::CIPString& sender);

#ifdef RYSOCKETIO_RECEIVE_ROOM
    // Receive thread: where the socket is to put the next datagram, so that it need not be moved. With a socket library that does
    // not ask, each is copied once.
    char* ReceiveRoom(long& lSize) override;
#endif

private:
    enum : int
    {
        enCaches = 2,
        enReceiveBufferSize = 1048576,
        enMaxAcceptedSenders = 8
    };

    class CCount;
    class CLoan;
    class CProcessing;

    struct stUpdateData
    {
        stUpdateData()
            : nIndex(0), mutex(CMutex::enNormal), bWaits(false), unSequence(0), unMessageId(0),
              pBuffer(new unsigned char[enReceiveBufferSize]), pMessage(nullptr), unMessage(0)
        {
        }

        int nIndex;
        CMCUpdateMsg update LOGICALCONTROLS_GUARDED_BY(mutex);
        CMutex mutex;
        bool bWaits LOGICALCONTROLS_GUARDED_BY(mutex);               // a good update is here that was not applied yet
        std::uint32_t unSequence LOGICALCONTROLS_GUARDED_BY(mutex);  // of that update
        std::uint32_t unMessageId LOGICALCONTROLS_GUARDED_BY(mutex); // of that update
        const std::unique_ptr<unsigned char[]> pBuffer LOGICALCONTROLS_GUARDED_BY(mutex); // for what is not whole where it lies
        const unsigned char* pMessage LOGICALCONTROLS_GUARDED_BY(mutex);                  // the update's bytes
        std::size_t unMessage LOGICALCONTROLS_GUARDED_BY(mutex);
    };

    bool IsAccepted(const RySocketIO::CIPString& sender) const;
    void RejectUnread(long lLength, enReceiveCounter enReason);
    void CountUnlocked();
    const char* DecodeUpdate(int nCache, const unsigned char* pData, long lLength)
        LOGICALCONTROLS_REQUIRES(m_aCaches[nCache].mutex);
    bool DecodeMessage(CMCUpdateMsg& update, const unsigned char* pData, long lLength, const char*& szRefusal);
    void RememberSender(const RySocketIO::CIPString& sender);
    int ApplyCache(int nCache, int nResult, bool& bApplied);
    void DoWhatWasPutOff();
    bool SendQueue();
    int PackRecords(int& nSize, bool& bDrained);
    void SendPacket(int nSize, bool& bLastSend, int& nSent);

    stUpdateData m_aCaches[enCaches];
    RySocketIO::CIPString m_Sender LOGICALCONTROLS_GUARDED_BY(m_SenderMutex);
    CMutex m_SenderMutex;
    std::atomic<bool> m_bSenderChanged;
    int m_nCurrentCache;                                 // of the receive thread
    std::atomic<unsigned char> m_aucNewUpdate[enCaches]; // changed under the cache's mutex
    std::atomic<unsigned char> m_aucError[enCaches];     // changed under the cache's mutex
    CUpdateTiming m_SurfaceTiming;
    CUpdateTiming m_RotaryTiming;
    std::atomic<std::int32_t> m_nStartHigh; // microseconds, 0 until InitialiseClient
    std::atomic<std::uint32_t> m_unStartLow;
    int m_nMCTimeouts;
    unsigned int m_unDefaultPort; // for remote addresses without one
    const std::unique_ptr<CProcessing> m_pProcessing;
    std::unique_ptr<CPPCSender> m_pPPCSender;
    std::unique_ptr<UDP_PACKET> m_pSendPacket; // of the thread that is in SendAll
    std::atomic<bool> m_bSending;
    std::atomic<bool> m_bStopSending;
    std::uint32_t m_unSequence;          // of the update decoded last; of the receive thread
    std::uint32_t m_unMessageId;         // of the update joined last; of the receive thread
    std::uint32_t m_unProcessedSequence; // of the application's thread
    std::uint32_t m_unProcessedId;       // of the application's thread
    RySocketIO::CIPString m_aAcceptedSenders[enMaxAcceptedSenders];
    int m_nAcceptedSenders;
};
