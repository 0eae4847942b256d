// The system calls of the library under a test's eyes: recorded, or made to fail. Without a recorder they go to the system.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <climits>
#include <cstddef>
#include <string>
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

struct stSocketOption
{
    int nSocket;
    int nLevel;
    int nName;
    std::vector<unsigned char> value;
};

// While one lives, no socket, setsockopt, sendto or close of the library reaches the system on this thread: sockets get the numbers
// from nFirstSocket on, options, datagrams and closed sockets are recorded. One at a time.
class CSocketRecorder
{
public:
    static constexpr int nFirstSocket = 7001;

    CSocketRecorder();
    ~CSocketRecorder();

    bool bFailSocket = false; // socket() answers -1
    bool bFailOption = false; // setsockopt() answers -1
    bool bFailSend = false;   // sendto() answers -1
    long lSentAtMost = -1;    // when not negative, sendto() answers no more than this
    std::vector<stSocketOption> options;
    std::vector<stSentDatagram> sent;
    std::vector<int> opened;
    std::vector<int> closed;
};

// While one lives, the calls of this name on this thread are made to fail once nAllowed of them have succeeded: for good, or so
// many times.
class CFailingCall
{
public:
    enum enCalls
    {
        enMalloc,
        enMutexInit,
        enSemInit,
        enGetPid,
        enCallCount
    };

    explicit CFailingCall(enCalls enCall, int nAllowed = 0, int nFailures = INT_MAX);
    ~CFailingCall();

private:
    enCalls m_enCall;
};

// What dladdr says of an address.
struct stFrame
{
    bool bKnown;
    const char* szObject;
    const char* szSymbol;
};

// While one lives, backtrace on this thread answers these frames, as many as there is room for. One at a time.
class CStack
{
public:
    explicit CStack(const std::vector<stFrame>& frames);
    ~CStack();

private:
    std::vector<stFrame> m_Frames;
};

// While one lives, a file that the library opens on this thread is another one. One at a time.
class CRedirectedFile
{
public:
    explicit CRedirectedFile(const std::string& strTo);
    ~CRedirectedFile();

    std::string strTo;
    std::vector<std::string> asked; // the names that the library gave
};

// While one lives, the steady clock stands still on this thread but for what is made to pass; a sleep ends at once, when its time
// has passed. One at a time.
class CSteadyTime
{
public:
    CSteadyTime();
    ~CSteadyTime();

    void Pass(std::chrono::nanoseconds time) { m_Now += time; }

    std::chrono::steady_clock::time_point Now() const { return m_Now; }

private:
    std::chrono::steady_clock::time_point m_Now;
};

// The size that the library's last malloc on this thread asked for.
std::size_t LastMallocSize();

} // namespace Support
