// A thread that takes no signals and ends when it is told to. Private to the library.
#pragma once

#include "RySocketIO/StopEvent.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <thread>

namespace RySocketIO
{

// Runs a function on a thread of its own; the function looks at the stop event and returns when it is set. Any thread may stop it,
// the thread itself as well; everything else belongs to the owner.
class CStoppableThread
{
public:
    CStoppableThread() : m_bRunning(false), m_bJoining(false), m_Id(std::thread::id()) {}
    ~CStoppableThread() { Stop(); }
    CStoppableThread(const CStoppableThread&) = delete;
    CStoppableThread& operator=(const CStoppableThread&) = delete;

    // False when a thread runs already or can't be had.
    template <class Function>
    bool Start(Function function)
    {
        if (m_bRunning)
        {
            return false;
        }
        Stop(); // one that has ended by itself
        if (!m_Stop.Reset())
        {
            return false;
        }
        m_bRunning = true;
        StartWithoutSignals(
            [this, function]
            {
                const CPresence presence(*this);
                function();
            });
        if (!m_Thread.joinable())
        {
            m_bRunning = false; // else the thread itself says when it is over, perhaps by now
        }
        return m_Thread.joinable();
    }

    // Tells the thread to end, and waits until it has, except on the thread itself. False when there was none, or another call has
    // waited for it.
    bool Stop()
    {
        if (m_Id == std::this_thread::get_id())
        {
            m_Stop.Set();
            return true;
        }
        if (m_bJoining.exchange(true))
        {
            while (m_bJoining)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return false;
        }
        const bool bThere = m_Thread.joinable();
        if (bThere)
        {
            m_Stop.Set();
            m_Thread.join();
        }
        m_bJoining = false;
        return bThere;
    }

    bool IsRunning() const { return m_bRunning; }
    const CStopEvent& StopEvent() const { return m_Stop; }

private:
    // On the thread, for as long as it runs: however the function is left.
    class CPresence
    {
    public:
        explicit CPresence(CStoppableThread& thread) : m_Thread(thread) { m_Thread.m_Id = std::this_thread::get_id(); }
        ~CPresence()
        {
            m_Thread.m_Id = std::thread::id();
            m_Thread.m_bRunning = false;
        }
        CPresence(const CPresence&) = delete;
        CPresence& operator=(const CPresence&) = delete;

    private:
        CStoppableThread& m_Thread;
    };

    // Signals are for the application's threads: ours starts with all of them blocked.
    template <class Function>
    void StartWithoutSignals(Function function)
    {
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        const bool bBlocked = pthread_sigmask(SIG_SETMASK, &all, &before) == 0;
        try
        {
            m_Thread = std::thread(function);
        }
        catch (const std::exception&)
        {
        }
        if (bBlocked)
        {
            pthread_sigmask(SIG_SETMASK, &before, nullptr);
        }
    }

    CStopEvent m_Stop;
    std::thread m_Thread;
    std::atomic<bool> m_bRunning;
    std::atomic<bool> m_bJoining;
    std::atomic<std::thread::id> m_Id; // of the thread, while it runs
};

} // namespace RySocketIO
