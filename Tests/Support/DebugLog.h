// The library's debug lines, caught for a test.
#pragma once

#include "RySocketIO/CUtility.h"

#include <mutex>
#include <string>
#include <vector>

namespace Support
{

// While one lives, it is the process's debug sink. One at a time.
class CDebugLog
{
public:
    CDebugLog() : m_Sink{&CDebugLog::Write, this} { RySocketIO::CUtility::SetDebugSink(&m_Sink); }
    ~CDebugLog() { RySocketIO::CUtility::SetDebugSink(nullptr); }
    CDebugLog(const CDebugLog&) = delete;
    CDebugLog& operator=(const CDebugLog&) = delete;

    // The lines since the last call.
    std::vector<std::string> Take()
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        std::vector<std::string> lines;
        lines.swap(m_Lines);
        return lines;
    }

private:
    static void Write(void* pContext, const char* szLine)
    {
        CDebugLog& log = *static_cast<CDebugLog*>(pContext);
        const std::lock_guard<std::mutex> guard(log.m_Mutex);
        log.m_Lines.push_back(szLine);
    }

    RySocketIO::stDebugSink m_Sink;
    std::mutex m_Mutex;
    std::vector<std::string> m_Lines;
};

} // namespace Support
