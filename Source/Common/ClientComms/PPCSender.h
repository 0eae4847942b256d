// The thread that sends what is queued.
#pragma once

#include "Runtime/Export.h"
#include "RySocketIO/CSocketThread.h"

class CClientMsgHandler;

// Calls its handler's SendAll again and again, on a thread of its own. The handler is not owned, and outlives the sender.
class LOGICALCONTROLS_EXPORT CPPCSender : public RySocketIO::CSocketThread
{
public:
    // The period is in milliseconds; 0 or less leaves no pause between one SendAll and the next.
    CPPCSender(int nPeriod, CClientMsgHandler* pHandler);
    ~CPPCSender() override;

    void Do() override;

private:
    CClientMsgHandler* m_pHandler;
};
