#include "Runtime/Locks.h"

#include <cerrno>
#include <cstdio>

CCritSec::CCritSec()
{
    if (pthread_mutex_init(&m_Mutex, nullptr) != 0)
    {
        const pthread_mutex_t ready = PTHREAD_MUTEX_INITIALIZER; // it is used all the same
        m_Mutex = ready;
    }
}

CCritSec::~CCritSec()
{
    pthread_mutex_destroy(&m_Mutex);
}

int CCritSec::Lock()
{
    return pthread_mutex_lock(&m_Mutex);
}

int CCritSec::Unlock()
{
    return pthread_mutex_unlock(&m_Mutex);
}

CMutex::CMutex(enMutexTypes enType) : m_bInitialised(false), m_enType(enType)
{
    pthread_mutexattr_t attribute;
    if (pthread_mutexattr_init(&attribute) != 0)
    {
        return;
    }
    if (m_enType == enNormal)
    {
        pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_NORMAL);
    }
    else if (m_enType == enErrorCheck)
    {
        pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_ERRORCHECK);
    }
    m_bInitialised = pthread_mutex_init(&m_Mutex, &attribute) == 0;
    pthread_mutexattr_destroy(&attribute);
}

CMutex::~CMutex()
{
    if (!m_bInitialised)
    {
        return;
    }
    // Unlocking a mutex that nobody holds is undefined: take it if it is free, and it is held in any case.
    static_cast<void>(pthread_mutex_trylock(&m_Mutex));
    pthread_mutex_unlock(&m_Mutex);
    pthread_mutex_destroy(&m_Mutex);
    m_bInitialised = false;
}

bool CMutex::Lock()
{
    return m_bInitialised && pthread_mutex_lock(&m_Mutex) == 0;
}

bool CMutex::Unlock()
{
    return m_bInitialised && pthread_mutex_unlock(&m_Mutex) == 0;
}

CRWMutex::CReadLock::CReadLock(CRWMutex& mutex) : m_Mutex(mutex) {}

bool CRWMutex::CReadLock::Lock()
{
    return m_Mutex.m_bValid && pthread_rwlock_rdlock(&m_Mutex.m_Lock) == 0;
}

bool CRWMutex::CReadLock::Unlock()
{
    return m_Mutex.Release();
}

CRWMutex::CWriteLock::CWriteLock(CRWMutex& mutex) : m_Mutex(mutex) {}

bool CRWMutex::CWriteLock::Lock()
{
    return m_Mutex.m_bValid && pthread_rwlock_wrlock(&m_Mutex.m_Lock) == 0;
}

bool CRWMutex::CWriteLock::Unlock()
{
    return m_Mutex.Release();
}

CRWMutex::CRWMutex()
    : m_bAttributeInitialised(false), m_bLockInitialised(false), m_bValid(false), m_WriteLock(*this), m_ReadLock(*this)
{
#ifdef LOGICALCONTROLS_HAVE_RWLOCK_KIND
    if (pthread_rwlockattr_init(&m_Attribute) == 0)
    {
        pthread_rwlockattr_setkind_np(&m_Attribute, PTHREAD_RWLOCK_PREFER_WRITER_NP);
        m_bAttributeInitialised = true;
    }
#endif
    if (m_bAttributeInitialised)
    {
        m_bLockInitialised = pthread_rwlock_init(&m_Lock, &m_Attribute) == 0;
    }
    m_bValid = m_bAttributeInitialised && m_bLockInitialised;
}

CRWMutex::~CRWMutex()
{
    if (m_bLockInitialised)
    {
        pthread_rwlock_destroy(&m_Lock);
        m_bLockInitialised = false;
    }
    if (m_bAttributeInitialised)
    {
        pthread_rwlockattr_destroy(&m_Attribute);
        m_bAttributeInitialised = false;
    }
}

bool CRWMutex::Release()
{
    return m_bValid && pthread_rwlock_unlock(&m_Lock) == 0;
}

CSema::CSema(const char*)
{
    sem_init(&m_Semaphore, 0, 0);
}

// The semaphore is not destroyed: a thread that is still leaving Post may touch it.
CSema::~CSema() = default;

void CSema::Wait()
{
    if (sem_wait(&m_Semaphore) != 0)
    {
        std::printf("sem_wait returned: %d\n", errno);
    }
}

int CSema::Post()
{
    return sem_post(&m_Semaphore);
}

bool CSema::IsValid()
{
    return true;
}
