// Wakes a thread that waits, for good. Private to the library.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace RySocketIO
{

// Once set it stays set until Reset. Any thread may set it; one thread waits, on Descriptor together with others or by Wait.
class CStopEvent
{
public:
    CStopEvent() : m_nDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~CStopEvent()
    {
        if (IsValid())
        {
            close(m_nDescriptor);
        }
    }
    CStopEvent(const CStopEvent&) = delete;
    CStopEvent& operator=(const CStopEvent&) = delete;

    bool IsValid() const { return m_nDescriptor >= 0; }
    int Descriptor() const { return m_nDescriptor; }

    bool Set()
    {
        const std::uint64_t unOne = 1;
        return write(m_nDescriptor, &unOne, sizeof unOne) == static_cast<ssize_t>(sizeof unOne);
    }

    void Reset()
    {
        std::uint64_t unCount = 0;
        while (read(m_nDescriptor, &unCount, sizeof unCount) > 0)
        {
        }
    }

    // True when set within the time; a signal may end the wait early.
    bool Wait(const timespec& time) const
    {
        pollfd entry = {m_nDescriptor, POLLIN, 0};
        return ppoll(&entry, 1, &time, nullptr) > 0;
    }

private:
    const int m_nDescriptor;
};

} // namespace RySocketIO
