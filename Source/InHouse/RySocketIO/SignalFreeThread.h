// A thread that takes no signals. Private to the library.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <thread>

namespace RySocketIO
{

// Signals are for the application's threads: ours starts with all of them blocked. Not joinable when the system refused.
template <class Function>
std::thread StartSignalFreeThread(Function function)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    const bool bBlocked = pthread_sigmask(SIG_SETMASK, &all, &before) == 0;
    std::thread thread;
    try
    {
        thread = std::thread(function);
    }
    catch (const std::exception&)
    {
    }
    if (bBlocked)
    {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    return thread;
}

} // namespace RySocketIO
