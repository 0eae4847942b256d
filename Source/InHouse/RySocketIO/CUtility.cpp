#include "RySocketIO/CUtility.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace RySocketIO
{

namespace
{

std::atomic<const stDebugSink*> g_pSink{nullptr};

} // namespace

void CUtility::Debug(const char* szFormat, ...)
{
    if (g_pSink.load(std::memory_order_relaxed) == nullptr)
    {
        return;
    }
    const stDebugSink* pSink = g_pSink.load(std::memory_order_acquire);
    if (pSink == nullptr)
    {
        return;
    }
    char acLine[512];
    va_list arguments;
    va_start(arguments, szFormat);
    std::vsnprintf(acLine, sizeof acLine, szFormat, arguments);
    va_end(arguments);
    pSink->pWrite(pSink->pContext, acLine);
}

void CUtility::SetDebugSink(const stDebugSink* pSink)
{
    const bool bWrites = pSink != nullptr && pSink->pWrite != nullptr;
    g_pSink.store(bWrites ? pSink : nullptr, std::memory_order_release);
}

} // namespace RySocketIO
