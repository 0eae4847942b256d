// A receiver of whole updates that says when each is ready.
#pragma once

#include "Images.h"

#include "LogicalControls.h"

#include <atomic>
#include <chrono>
#include <cstdint>
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

// Processes each update at once, on the receive thread: into the image, if there is one.
class CReadyHandler : public CClientMsgHandler
{
public:
    explicit CReadyHandler(tImage pImage) : CClientMsgHandler(false), m_pImage(std::move(pImage))
    {
        if (!InitialiseClient(0, "127.0.0.1", nullptr, nullptr))
        {
            throw std::string("no socket can be had");
        }
    }
    ~CReadyHandler() override { Shutdown(); }

    using CClientMsgHandler::OnReceivedData;
    void OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender) override
    {
        CClientMsgHandler::OnReceivedData(pData, lLength, sender);
        UpdateBMA();
    }

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
