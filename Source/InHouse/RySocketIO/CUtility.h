// The console's debug log.
#pragma once

namespace RySocketIO
{

// Takes finished lines, without a line end. Called on whatever thread logs, so it must be thread-safe, must not block
// and must not throw.
struct stDebugSink
{
    void (*pWrite)(void* pContext, const char* szLine);
    void* pContext;
};

// The process's log. Any thread may use it.
class __attribute__((visibility("default"))) CUtility
{
public:
    // Logs a line, formatted as by printf and cut at 511 characters. With no sink a call costs one load.
    static void Debug(const char* szFormat, ...) __attribute__((format(printf, 1, 2)));

    // The process's one sink; null, as at the start, is none, and so is one that can't write. The sink must live until another one
    // is set and every call that may still be using it has ended.
    static void SetDebugSink(const stDebugSink* pSink);
};

} // namespace RySocketIO
