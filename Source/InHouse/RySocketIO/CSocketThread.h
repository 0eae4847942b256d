// A thread that does something again and again: a stand-in for the console's socket library.
#pragma once

#include <memory>

namespace RySocketIO
{

// Calls Do periodically on a thread of its own. What Do throws is logged, and the next call comes in its time. Like CSocket it
// calls virtual functions: a class that overrides one calls Stop first thing in its destructor. The owner's thread calls everything
// else.
class __attribute__((visibility("default"))) CSocketThread
{
public:
    CSocketThread();
    virtual ~CSocketThread();
    CSocketThread(const CSocketThread&) = delete;
    CSocketThread& operator=(const CSocketThread&) = delete;

    // The time from the start of one Do to the start of the next; a Do that takes longer is followed at once. Before Start.
    void SetIterationDelay(long lSeconds, long lMicroseconds);

    // Starts the thread: nIterations calls of Do, or with -1 until Stop. False when it runs already or can't be had.
    bool Start(int nIterations);

    // Ends the thread after the Do that it may be in. Any thread; on that thread itself it does not wait. False when there was
    // none.
    bool Stop();

    bool IsRunning() const;

protected:
    // Called once on the thread, before the first Do.
    virtual void ThreadStarted();

    // Called again and again.
    virtual void Do();

private:
    class CLoop;
    std::unique_ptr<CLoop> m_pLoop;
};

} // namespace RySocketIO
