#include "RySocketIO/CSocketThread.h"

#include "RySocketIO/ClientCall.h"
#include "RySocketIO/StoppableThread.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace RySocketIO
{

namespace
{

constexpr std::int64_t c_nLongestDelay = std::int64_t(1) << 50; // microseconds: 35 years

} // namespace

class __attribute__((visibility("hidden"))) CSocketThread::CLoop
{
public:
    explicit CLoop(CSocketThread& owner) : m_Owner(owner), m_Delay(0) {}

    // Seconds and microseconds may both be anything.
    void SetDelay(std::int64_t nSeconds, std::int64_t nMicroseconds)
    {
        const std::int64_t nMost = c_nLongestDelay / 1000000;
        m_Delay = std::chrono::seconds(std::clamp(nSeconds, -nMost, nMost)) +
                  std::chrono::microseconds(std::clamp(nMicroseconds, -c_nLongestDelay, c_nLongestDelay));
    }

    bool Start(int nIterations)
    {
        return m_Thread.Start([this, nIterations] { Run(nIterations); });
    }
    bool Stop() { return m_Thread.Stop(); }
    bool IsRunning() const { return m_Thread.IsRunning(); }

private:
    typedef std::chrono::steady_clock tClock;

    void Run(int nIterations)
    {
        CallOverride("CSocketThread", [this] { m_Owner.ThreadStarted(); });
        for (int nDone = 0; nIterations < 0 || nDone < nIterations; ++nDone)
        {
            const tClock::time_point next = tClock::now() + m_Delay;
            CallOverride("CSocketThread", [this] { m_Owner.Do(); });
            if (WaitUntil(next))
            {
                return;
            }
        }
    }

    // True when the thread is to stop.
    bool WaitUntil(tClock::time_point time) const
    {
        for (;;)
        {
            const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(time - tClock::now()).count();
            const long lSeconds = left > 0 ? static_cast<long>(left / 1000000000) : 0;
            const long lNanoseconds = left > 0 ? static_cast<long>(left % 1000000000) : 0;
            if (m_Thread.StopEvent().Wait({lSeconds, lNanoseconds}))
            {
                return true;
            }
            if (left <= 0)
            {
                return false;
            }
        }
    }

    CSocketThread& m_Owner;
    std::chrono::microseconds m_Delay;
    CStoppableThread m_Thread;
};

CSocketThread::CSocketThread() : m_pLoop(new CLoop(*this)) {}

CSocketThread::~CSocketThread() = default;

void CSocketThread::SetIterationDelay(long lSeconds, long lMicroseconds)
{
    m_pLoop->SetDelay(lSeconds, lMicroseconds);
}

bool CSocketThread::Start(int nIterations)
{
    return m_pLoop->Start(nIterations);
}

bool CSocketThread::Stop()
{
    return m_pLoop->Stop();
}

bool CSocketThread::IsRunning() const
{
    return m_pLoop->IsRunning();
}

void CSocketThread::ThreadStarted() {}

void CSocketThread::Do() {}

} // namespace RySocketIO
