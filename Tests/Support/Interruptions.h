// Signals that come all the time.
#pragma once

#include <signal.h>
#include <sys/time.h>

#include <atomic>

namespace Support
{

// While one lives, the process is interrupted every millisecond. One at a time.
class CInterruptions
{
public:
    CInterruptions()
    {
        Counter() = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { ++Counter(); };
        sigaction(SIGALRM, &action, &m_OldAction);
        Every(1000);
    }
    ~CInterruptions()
    {
        Every(0);
        signal(SIGALRM, SIG_IGN); // one may still be on its way
        sigaction(SIGALRM, &m_OldAction, nullptr);
    }
    CInterruptions(const CInterruptions&) = delete;
    CInterruptions& operator=(const CInterruptions&) = delete;

    int Count() const { return Counter(); }

private:
    static std::atomic<int>& Counter()
    {
        static std::atomic<int> s_nCounter{0};
        return s_nCounter;
    }

    static void Every(int nMicroseconds)
    {
        itimerval timer = {};
        timer.it_interval.tv_usec = nMicroseconds;
        timer.it_value.tv_usec = nMicroseconds;
        setitimer(ITIMER_REAL, &timer, nullptr);
    }

    struct sigaction m_OldAction;
};

} // namespace Support
