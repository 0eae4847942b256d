// The system calls of the library under a test's eyes: recorded, or made to fail. Without a recorder they go to the system.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <vector>

namespace Support
{

struct stSentDatagram
{
    int nSocket;
    sockaddr_in destination;
    int nFlags;
    std::vector<unsigned char> bytes;
};

// While one lives, no socket, sendto or close of the library reaches the system on this thread: sockets get the numbers from
// nFirstSocket on, datagrams and closed sockets are recorded. One at a time.
class CSocketRecorder
{
public:
    static constexpr int nFirstSocket = 7001;

    CSocketRecorder();
    ~CSocketRecorder();

    bool bFailSocket = false; // socket() answers -1
    bool bFailSend = false;   // sendto() answers -1
    std::vector<stSentDatagram> sent;
    std::vector<int> opened;
    std::vector<int> closed;
};

// While one lives, the calls of this name on this thread are made to fail once nAllowed of them have succeeded; malloc fails for
// good from then on.
class CFailingCall
{
public:
    enum enCalls
    {
        enMalloc,
        enMutexInit,
        enSemInit,
        enCallCount
    };

    explicit CFailingCall(enCalls enCall, int nAllowed = 0);
    ~CFailingCall();

private:
    enCalls m_enCall;
};

// The size that the library's last malloc on this thread asked for.
std::size_t LastMallocSize();

} // namespace Support
