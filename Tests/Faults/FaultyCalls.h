// System calls of the library that fail when a test says so. The program is linked with FaultyCalls.cpp and -Wl,--wrap=... for
// each of the names there.
#pragma once

#include <climits>
#include <functional>
#include <string>

namespace Faults
{

enum enCalls : int
{
    enSocket,
    enSetOption,
    enGetOption,
    enBind,
    enGetName,
    enPoll,
    enPPoll,
    enReceive,
    enSend,
    enClose,
    enEvent,
    enRead,
    enWrite,
    enTimeOfDay,
    enHostByName,
    enParseAddress,
    enPrintAddress,
    enStartThread,
    enSignalMask,
    enMutexInit,
    enMutexLock,
    enMutexTryLock,
    enMutexUnlock,
    enMutexDestroy,
    enMutexAttributeInit,
    enMutexAttributeType,
    enReadersInit,
    enReadersAttributeInit,
    enReadersRead,
    enReadersWrite,
    enReadersUnlock,
    enSemaphoreInit,
    enSemaphoreWait,
    enSemaphorePost,
    enProtect,
    enSystemValue,
    enKill,
    enOpen,
    enDescriptorControl,
    enSleep,
    enCallCount
};

// Answers of recvmsg beside an errno: a datagram that was too long, and one of no bytes.
constexpr int c_nTruncated = -1;
constexpr int c_nEmpty = -2;

// While one lives, a call of the library fails with this errno, on every thread: nTimes of them, or for ever. With options only
// the setsockopt of these counts. One at a time.
class CFault
{
public:
    explicit CFault(enCalls enCall, int nError, int nTimes = INT_MAX, int nOption = -1, int nOtherOption = -1);
    ~CFault();
    CFault(const CFault&) = delete;
    CFault& operator=(const CFault&) = delete;

    // How often it happened.
    static int Struck();
};

// How often the library has made a call.
int CallsOf(enCalls enCall);

// How often it closed what was not open, and unlocked what it had not locked.
int BadCloses();
int BadUnlocks();

int OpenDescriptors();

// Does the action. False when it did not end within two seconds: the fault was lifted then, and threads that wait for their end
// were told it once more.
bool EndsInTime(const std::function<void()>& action);

// Waits, for no more than 20 seconds, until the condition holds.
bool Becomes(const std::function<bool()>& condition);

// How often a call is made within a second, looked at for a fifth of one.
double CallsASecond(enCalls enCall);

} // namespace Faults
