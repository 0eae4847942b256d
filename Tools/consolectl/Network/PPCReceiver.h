// The simulated MC's ear for changes.
#pragma once

#include "Network/Mailbox.h"

#include "LogicalControls.h"

#include <vector>

struct stReceivedPPCs
{
    std::vector<unsigned char> payload;
    RySocketIO::CIPString sender;
};

// Takes the clients' changes off the network; the MC's own thread applies them.
class CPPCReceiver : public CMsgHandlerBase, public RySocketIO::CSocket
{
public:
    CPPCReceiver()
        : CSocket(RySocketIO::enConnectionUDP, false, false), m_Buffer(c_nMaxPayload * c_nMaxFragments), m_Received(c_unMaxWaiting)
    {
        SetUseSenderInfo(true);
    }
    ~CPPCReceiver() override { StopReceiving(); }

    using CMsgHandlerBase::OnReceivedData;

    void OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender) override
    {
        unsigned char* pBuffer = m_Buffer.data();
        int nSize = static_cast<int>(m_Buffer.size());
        const int nType = ValidatePacketSequence(pData, lLength, &pBuffer, nSize);
        if (nType != enDatagramPPC && nType != enDatagramPPCFlagged)
        {
            return;
        }
        m_Received.Put({{pBuffer, pBuffer + nSize}, sender}, static_cast<std::size_t>(nSize));
    }

    std::vector<stReceivedPPCs> Take() { return m_Received.Take(); }

private:
    static constexpr std::size_t c_unMaxWaiting = 4 << 20; // bytes

    std::vector<unsigned char> m_Buffer; // of the receive thread
    CMailbox<stReceivedPPCs> m_Received;
};
