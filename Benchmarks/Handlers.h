// Handlers that the benchmarks receive with.
#pragma once

#include "Datagrams.h"
#include "Images.h"

#include "LogicalControls.h"

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

// What has come so far, and when the last of it was ready: written by the thread that receives.
struct stArrivals
{
    void Count(std::uint32_t unMore = 1)
    {
        at = std::chrono::steady_clock::now();
        unCount += unMore;
    }

    std::chrono::steady_clock::time_point at;
    std::atomic<std::uint32_t> unCount{0};
};

// Processes each update at once, on the receive thread. What derives from it shuts it down.
class CPromptHandler : public CClientMsgHandler
{
public:
    CPromptHandler() : CClientMsgHandler(false) {}

    using CClientMsgHandler::OnReceivedData;
    void OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender) override
    {
        CClientMsgHandler::OnReceivedData(pData, lLength, sender);
        UpdateBMA();
    }
};

// Says when each update is ready, and in the image, if there is one.
class CReadyHandler : public CPromptHandler
{
public:
    explicit CReadyHandler(tImage pImage) : m_pImage(std::move(pImage))
    {
        if (!InitialiseClient(0, "127.0.0.1", nullptr, nullptr))
        {
            throw std::string("no socket can be had");
        }
    }
    ~CReadyHandler() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        if (m_pImage != nullptr)
        {
            ApplyMCUpdate(update, *m_pImage);
        }
        m_Arrivals.Count();
        return 0;
    }

    stArrivals m_Arrivals;

private:
    const tImage m_pImage;
};

// A handler that is given its datagrams by hand.
class CFedHandler : public CClientMsgHandler
{
public:
    CFedHandler() : CClientMsgHandler(false), m_Sender("127.0.0.1") {}
    ~CFedHandler() override { Shutdown(); }

    // The seconds that the handler takes over an update whose datagrams lie in the room, or elsewhere.
    double Take(const CFragments& fragments, bool bInRoom)
    {
        double dSeconds = 0;
        for (int nFragment = 0; nFragment < fragments.Count(); ++nFragment)
        {
            char* pData = reinterpret_cast<char*>(const_cast<unsigned char*>(fragments.At(nFragment)));
            const long lSize = static_cast<long>(fragments.Size(nFragment));
            if (bInRoom)
            {
                long lRoom = 0;
                char* const pRoom = ReceiveRoom(lRoom);
                std::memcpy(pRoom, pData, fragments.Size(nFragment)); // the system's work
                pData = pRoom;
            }
            const auto start = std::chrono::steady_clock::now();
            OnReceivedData(pData, lSize, m_Sender);
            dSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        }
        return dSeconds;
    }

    // Receives what was sent to a socket, as the receive thread does.
    void TakeFrom(int nSocket, int nDatagrams)
    {
        for (int nDatagram = 0; nDatagram < nDatagrams; ++nDatagram)
        {
            long lRoom = 0;
            char* const pRoom = ReceiveRoom(lRoom);
            OnReceivedData(pRoom, static_cast<long>(recv(nSocket, pRoom, static_cast<std::size_t>(lRoom), 0)), m_Sender);
        }
    }

private:
    const RySocketIO::CIPString m_Sender;
};
