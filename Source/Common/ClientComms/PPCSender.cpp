#include "ClientComms/PPCSender.h"

#include "ClientComms/ClientMsgHandler.h"

#include <climits>
#include <cstdint>

CPPCSender::CPPCSender(int nPeriod, CClientMsgHandler* pHandler) : m_pHandler(pHandler)
{
    const std::int64_t nMicroseconds = std::int64_t(nPeriod) * 1000;
    if (nMicroseconds >= LONG_MIN && nMicroseconds <= LONG_MAX)
    {
        SetIterationDelay(0, static_cast<long>(nMicroseconds));
    }
    else
    {
        SetIterationDelay(nPeriod / 1000, nPeriod % 1000 * 1000L); // over half an hour, where a long has 32 bits
    }
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
