#include "RySocketIO/CSocketThread.h"

#include "RySocketIO/SignalFreeThread.h"
#include "RySocketIO/StopEvent.h"

#include <atomic>
#include <chrono>

namespace RySocketIO
{

class __attribute__((visibility("hidden"))) CSocketThread::CLoop
{
public:
    explicit CLoop(CSocketThread& owner) : m_Owner(owner), m_Delay(0), m_bRunning(false) {}
    ~CLoop() { Stop(); }

    void SetDelay(std::chrono::microseconds delay) { m_Delay = delay; }
    bool IsRunning() const { return m_bRunning; }

    bool Start(int nIterations)
    {
        if (IsRunning() || !m_Stop.IsValid())
        {
            return false;
        }
        Stop(); // the thread of earlier iterations has ended by itself
        if (!m_Stop.Reset())
        {
            return false;
        }
        m_bRunning = true;
        m_Thread = StartSignalFreeThread(
            [this, nIterations]
            {
                Run(nIterations);
                m_bRunning = false;
            });
        if (!m_Thread.joinable())
        {
            m_bRunning = false;
        }
        return m_Thread.joinable();
    }

    bool Stop()
    {
        if (!m_Thread.joinable())
        {
            return false;
        }
        m_Stop.Set();
        m_Thread.join();
        return true;
    }

private:
    typedef std::chrono::steady_clock tClock;

    void Run(int nIterations)
    {
        m_Owner.ThreadStarted();
        for (int nDone = 0; nIterations < 0 || nDone < nIterations; ++nDone)
        {
            const tClock::time_point next = tClock::now() + m_Delay;
            m_Owner.Do();
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
            if (m_Stop.Wait({lSeconds, lNanoseconds}))
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
    CStopEvent m_Stop;
    std::thread m_Thread;
    std::atomic<bool> m_bRunning;
};

CSocketThread::CSocketThread() : m_pLoop(new CLoop(*this)) {}

CSocketThread::~CSocketThread() = default;

void CSocketThread::SetIterationDelay(long lSeconds, long lMicroseconds)
{
    m_pLoop->SetDelay(std::chrono::seconds(lSeconds) + std::chrono::microseconds(lMicroseconds));
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
