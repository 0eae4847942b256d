// What differs between C libraries.
#pragma once

#include <arpa/inet.h>
#include <semaphore.h>
#include <time.h>

#include <cerrno>

namespace Support
{

// The error number of a wait for a semaphore that takes too long: ETIMEDOUT, or, where the C library hands on what the system call
// answered, -ETIMEDOUT.
inline int ErrorOfLateWait()
{
    sem_t semaphore;
    timespec soon;
    sem_init(&semaphore, 0, 0);
    clock_gettime(CLOCK_REALTIME, &soon);
    soon.tv_nsec += 1000000;
    soon.tv_sec += soon.tv_nsec / 1000000000;
    soon.tv_nsec %= 1000000000;
    const int nResult = sem_timedwait(&semaphore, &soon);
    const int nError = errno;
    sem_destroy(&semaphore);
    return nResult == -1 ? nError : 0;
}

// The error number of a wait as this C library gives it.
inline int WaitError(int nError)
{
    return ErrorOfLateWait() < 0 ? -nError : nError;
}

// Whether it reads addresses of fewer than four numbers, 127.1 for 127.0.0.1.
inline bool ReadsShortAddresses()
{
    return inet_addr("127.1") == htonl(0x7f000001);
}

} // namespace Support
