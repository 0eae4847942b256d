// Thin wrappers of the POSIX locks, and a guard for the two mutexes.
#pragma once

#include "Runtime/Export.h"
#include "Runtime/ThreadSafety.h"

#include <pthread.h>
#include <semaphore.h>

// A plain mutex for the shortest of sections, which works even where it could not be set up. Never throws; Lock and Unlock return
// what pthreads returned, 0 on success.
class LOGICALCONTROLS_EXPORT LOGICALCONTROLS_LOCK CCritSec
{
public:
    CCritSec();
    ~CCritSec();
    CCritSec(const CCritSec&) = delete;
    CCritSec& operator=(const CCritSec&) = delete;

    int Lock() LOGICALCONTROLS_TRIES(false);
    int Unlock() LOGICALCONTROLS_RELEASES();

private:
    pthread_mutex_t m_Mutex;
};

// A mutex of a chosen kind that knows whether it could be set up. One that could not refuses every Lock and Unlock with false:
// a caller must look at the result before it touches what the mutex guards. Destroying a held CMutex unlocks it first.
class LOGICALCONTROLS_EXPORT LOGICALCONTROLS_LOCK CMutex
{
public:
    // Value 1 is an error-checking mutex, not a recursive one: a second Lock by its owner returns false.
    enum enMutexTypes : int
    {
        enNormal = 0,
        enErrorCheck = 1
    };

    explicit CMutex(enMutexTypes enType);
    virtual ~CMutex();
    CMutex(const CMutex&) = delete;
    CMutex& operator=(const CMutex&) = delete;

    bool Lock() LOGICALCONTROLS_TRIES(true);
    bool Unlock() LOGICALCONTROLS_RELEASES();

private:
    pthread_mutex_t m_Mutex;
    bool m_bInitialised;
    enMutexTypes m_enType;
};

// A reader/writer lock of the kind that prefers writers; what that means for a reader that comes while a writer waits is the C
// library's affair. Where it has no such kind IsValid is false, and every Lock and Unlock is refused. Used through its bound lock
// objects: `lock.Read().Lock()`, `lock.Write().Unlock()`.
class LOGICALCONTROLS_EXPORT CRWMutex
{
public:
    // Takes and releases the bound lock for reading; any number of readers hold it together. False when that failed.
    class LOGICALCONTROLS_EXPORT LOGICALCONTROLS_LOCK CReadLock
    {
    public:
        explicit CReadLock(CRWMutex& mutex);
        bool Lock() LOGICALCONTROLS_TRIES(true);
        bool Unlock() LOGICALCONTROLS_RELEASES();

    private:
        CRWMutex& m_Mutex;
    };

    // Takes and releases the bound lock for writing, alone. False when that failed.
    class LOGICALCONTROLS_EXPORT LOGICALCONTROLS_LOCK CWriteLock
    {
    public:
        explicit CWriteLock(CRWMutex& mutex);
        bool Lock() LOGICALCONTROLS_TRIES(true);
        bool Unlock() LOGICALCONTROLS_RELEASES();

    private:
        CRWMutex& m_Mutex;
    };

    CRWMutex();
    ~CRWMutex();
    CRWMutex(const CRWMutex&) = delete;
    CRWMutex& operator=(const CRWMutex&) = delete;

    bool IsValid() const { return m_bValid; }
    CReadLock& Read() { return m_ReadLock; }
    CWriteLock& Write() { return m_WriteLock; }

private:
    bool Release();

    pthread_rwlockattr_t m_Attribute;
    pthread_rwlock_t m_Lock;
    bool m_bAttributeInitialised;
    bool m_bLockInitialised;
    bool m_bValid;
    CWriteLock m_WriteLock;
    CReadLock m_ReadLock;
};

// A counting semaphore that starts at 0, for handing a wake-up from one thread to another. The name is for the reader of the
// calling code only. Wait tries once: a wait that a signal interrupts returns as if the semaphore had been posted, after a line
// on standard output, so a waiter looks again at what it waits for.
class LOGICALCONTROLS_EXPORT CSema
{
public:
    explicit CSema(const char* szName);
    virtual ~CSema();
    CSema(const CSema&) = delete;
    CSema& operator=(const CSema&) = delete;

    void Wait();
    int Post();
    bool IsValid();

private:
    sem_t m_Semaphore;
};

// Holds a CMutex or a CCritSec for the length of a block. Look at IsHeld before touching what the lock guards.
template <class Lock>
class LOGICALCONTROLS_LOCK_GUARD CLockGuard
{
public:
    explicit CLockGuard(Lock& lock) LOGICALCONTROLS_ACQUIRES(lock) : m_Lock(lock), m_bHeld(Take(lock)) {}
    ~CLockGuard() LOGICALCONTROLS_RELEASES()
    {
        if (m_bHeld)
        {
            m_Lock.Unlock();
        }
    }
    CLockGuard(const CLockGuard&) = delete;
    CLockGuard& operator=(const CLockGuard&) = delete;

    bool IsHeld() const { return m_bHeld; }

private:
    static bool Take(CMutex& lock) LOGICALCONTROLS_UNCHECKED { return lock.Lock(); }
    static bool Take(CCritSec& lock) LOGICALCONTROLS_UNCHECKED { return lock.Lock() == 0; }

    Lock& m_Lock;
    const bool m_bHeld;
};
