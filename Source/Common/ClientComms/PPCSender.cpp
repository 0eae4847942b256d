#include "ClientComms/PPCSender.h"

#include "ClientComms/ClientMsgHandler.h"

#include <algorithm>
#include <climits>
#include <cstdint>

CPPCSender::CPPCSender(int nPeriod, CClientMsgHandler* pHandler) : m_pHandler(pHandler)
{
    const std::int64_t nMicroseconds = std::int64_t(nPeriod) * 1000;
    SetIterationDelay(0, static_cast<long>(std::clamp<std::int64_t>(nMicroseconds, LONG_MIN, LONG_MAX)));
}

CPPCSender::~CPPCSender()
{
    Stop();
}

void CPPCSender::Do()
{
    if (m_pHandler != nullptr)
    {
        m_pHandler->SendAll();
    }
}
