// Wakes a thread that waits, for good. Private to the library.
#pragma once

#include "RySocketIO/Descriptor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace RySocketIO
{

// Begins with Reset. Once set it stays set until the next. Any thread may set it; one thread waits, on Descriptor together with
// others or by Wait.
class CStopEvent
{
public:
    CStopEvent() : m_nDescriptor(-1), m_bSet(false) {}
    ~CStopEvent()
    {
        if (m_nDescriptor >= 0)
        {
            close(m_nDescriptor);
        }
    }
    CStopEvent(const CStopEvent&) = delete;
    CStopEvent& operator=(const CStopEvent&) = delete;

    int Descriptor() const { return m_nDescriptor; }

    // The flag counts; the descriptor only wakes the thread that waits. Should that fail, the thread sees the flag when it wakes
    // by itself, so it waits for no longer than c_LongestWait at a time.
    void Set()
    {
        m_bSet = true;
        const std::uint64_t unOne = 1;
        for (int nTry = 0; nTry < c_nTries && write(m_nDescriptor, &unOne, sizeof unOne) < 0 && errno == EINTR; ++nTry)
        {
        }
    }

    // False when there is no descriptor to be had, or it can't be emptied.
    bool Reset()
    {
        m_bSet = false;
        if (m_nDescriptor < 0)
        {
            m_nDescriptor = AboveStandard(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        }
        std::uint64_t unCount = 0;
        ssize_t nRead = 0;
        for (int nTry = 0; nTry < c_nTries && (nRead >= 0 || errno == EINTR); ++nTry)
        {
            nRead = read(m_nDescriptor, &unCount, sizeof unCount);
        }
        return nRead < 0 && errno == EAGAIN && !Wakes({0, 0});
    }

    bool IsSet() const { return m_bSet; }

    // True when set within the time; the wait may end early.
    bool Wait(const timespec& time) const
    {
        const bool bLong =
            time.tv_sec > c_LongestWait.tv_sec || (time.tv_sec == c_LongestWait.tv_sec && time.tv_nsec > c_LongestWait.tv_nsec);
        Wakes(bLong ? c_LongestWait : time);
        return m_bSet;
    }

    static constexpr timespec c_LongestWait = {0, 500 * 1000 * 1000};

private:
    static constexpr int c_nTries = 10;
    static constexpr timespec c_ErrorPause = {0, 10 * 1000 * 1000};

    bool Wakes(const timespec& time) const
    {
        pollfd entry = {m_nDescriptor, POLLIN, 0};
        const int nReady = ppoll(&entry, 1, &time, nullptr);
        if (nReady < 0)
        {
            nanosleep(&c_ErrorPause, nullptr);
        }
        return nReady > 0;
    }

    int m_nDescriptor;
    std::atomic<bool> m_bSet;
};

} // namespace RySocketIO
