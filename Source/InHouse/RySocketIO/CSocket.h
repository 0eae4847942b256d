// A UDP socket with a receive thread: a stand-in for the console's socket library.
#pragma once

#include "RySocketIO/CIPString.h"

#include <cstdint>
#include <memory>

// This library's sockets ask where to put what they receive.
#define RYSOCKETIO_RECEIVE_ROOM

// What is used of the console's socket library: sockets, threads, addresses, and the log.
namespace RySocketIO
{

// What a socket has received and lost since it was opened, modulo 2^32.
struct stSocketStatistics
{
    std::uint32_t unDatagrams; // handed to OnReceivedData
    std::uint32_t unBytes;
    std::uint32_t unTruncated;   // too long to be taken whole, dropped
    std::uint32_t unKernelDrops; // lost in the kernel because the receive buffer was full; 0 where the kernel doesn't tell
    std::uint32_t unErrors;      // failed calls to wait or to receive
    std::int32_t nReceiveBuffer; // bytes that the system granted
};

// The kinds of connection, by the console's numbers: only this one exists here.
enum enConnectionType : int
{
    enConnectionUDP = 2
};

// Receives datagrams of up to 65,507 bytes on one thread of its own and hands each to OnReceivedData. That thread starts with
// InitialiseLocalSockets and ends with StopReceiving. It calls virtual functions: a class that overrides one calls StopReceiving
// first thing in its destructor, and so does every class that derives further.
//
// Send may be called from any thread, as may StopReceiving; everything else belongs to the thread that owns the socket. Failures
// are false results.
class __attribute__((visibility("default"))) CSocket
{
public:
    // Only UDP sockets exist here. The two flags belong to other kinds of connection.
    CSocket(int nConnectionType, bool bFlag, bool bReserved);
    virtual ~CSocket();
    CSocket(const CSocket&) = delete;
    CSocket& operator=(const CSocket&) = delete;

    // Opens a socket on the port (0: one that the system picks) and starts to receive. The local address may be null, empty or
    // "0.0.0.0" for any; multicast goes out and is joined on the interface that has szInterfaceAddress, null or empty for the
    // system's choice. Asks for a receive buffer of 4 MiB. False for the second time, too.
    bool InitialiseLocalSockets(unsigned int unPort, const char* szLocalAddress, const char* szInterfaceAddress, int nSockets);

    // Joins a multicast group.
    bool AddToGroup(const char* szGroup);

    // True when the whole datagram was handed to the system, for which it waits for up to 100 ms when there is no room.
    bool Send(const char* szAddress, unsigned int unPort, const char* pData, long lLength);

    // Chooses which OnReceivedData is called: with the sender's address, or, as at the start, without.
    void SetUseSenderInfo(bool bUse);

    // Ends the receive thread. Any thread; on the receive thread itself it does not wait for the end.
    void StopReceiving();

    // The port in use, and the receive buffer that the system granted in bytes; 0 before InitialiseLocalSockets.
    unsigned int GetLocalPort() const;
    int GetReceiveBufferSize() const;

    // Any thread. The kernel's losses are known when the next datagram comes.
    stSocketStatistics GetSocketStatistics() const;

    // Called on the receive thread before it waits for a datagram: where that is to be put, and how long it may be; null, as here,
    // for memory of the socket's own, which a longer one goes to as well. The answer holds until the next call.
    virtual char* ReceiveRoom(long& lSize);

    // Called on the receive thread. The data is valid for the length of the call. What an override throws is logged and ends with
    // that call.
    virtual void OnReceivedData(char* pData, long lLength);
    virtual void OnReceivedData(char* pData, long lLength, const CIPString& sender);

    // Called on the receive thread when it starts and before it ends.
    virtual void OnConnected();
    virtual void OnTerminated();

private:
    class CReceiver;
    std::unique_ptr<CReceiver> m_pReceiver;
};

} // namespace RySocketIO
