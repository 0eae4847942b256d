// Between a sending socket and a handler's receive thread: what is under way, what arrived, and what the kernel lost.
#pragma once

#include "LogicalControls.h"
#include "Support/Bytes.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Support
{

struct stWired
{
    std::uint32_t unDatagram;
    bool bDuplicate;
    tBytes bytes;
};

// What is on its way from the sending socket to the receive thread. The kernel keeps the order, so that whatever an arrival has
// overtaken is lost.
class CWire
{
public:
    CWire(const std::string& strGroup, unsigned int unPort) : m_strGroup(strGroup), m_unPort(unPort) {}

    // Sender: waits for room first.
    void Put(RySocketIO::CSocket& socket, stWired wired)
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        if (!m_Changed.wait_for(lock, c_Patience, [this] { return m_UnderWay.size() < c_unWindow; }))
        {
            LoseUpTo(m_UnderWay.size());
        }
        m_UnderWay.push_back(wired);
        ++m_unSent;
        lock.unlock();
        const bool bSent = socket.Send(m_strGroup.c_str(), m_unPort, reinterpret_cast<const char*>(wired.bytes.data()),
                                       static_cast<long>(wired.bytes.size()));
        m_unRefused += bSent ? 0 : 1;
    }

    // Receive thread.
    void Arrived(const char* pData, long lLength)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto pArrived = std::find_if(m_UnderWay.begin(), m_UnderWay.end(),
                                           [&](const stWired& wired)
                                           {
                                               return static_cast<long>(wired.bytes.size()) == lLength &&
                                                      std::equal(wired.bytes.begin(), wired.bytes.end(),
                                                                 reinterpret_cast<const unsigned char*>(pData));
                                           });
        m_unUnknown += pArrived == m_UnderWay.end() ? 1 : 0;
        if (pArrived != m_UnderWay.end())
        {
            LoseUpTo(static_cast<std::size_t>(pArrived - m_UnderWay.begin()));
            m_Received.push_back(std::move(m_UnderWay.front()));
            m_UnderWay.pop_front();
        }
    }

    // Receive thread, when the library is done with that datagram; application: waits for one, a little.
    void Handled()
    {
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            ++m_unHandled;
        }
        m_Changed.notify_all();
    }
    void AwaitOne(std::uint32_t& unKnown)
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Changed.wait_for(lock, std::chrono::milliseconds(1), [&] { return m_unHandled != unKnown; });
        unKnown = m_unHandled;
    }

    // Application: until everything sent is handled or lost.
    void AwaitAll()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Changed.wait_for(lock, c_Patience,
                           [this] { return m_UnderWay.empty() && m_unHandled == m_Received.size() + m_unUnknown; });
        LoseUpTo(m_UnderWay.size());
    }

    // When the others are done.
    std::uint32_t m_unSent = 0, m_unRefused = 0, m_unUnknown = 0, m_unHandled = 0;
    std::vector<stWired> m_Received;
    std::vector<stWired> m_Lost;

private:
    void LoseUpTo(std::size_t unHowMany)
    {
        for (; unHowMany > 0; --unHowMany)
        {
            m_Lost.push_back(std::move(m_UnderWay.front()));
            m_UnderWay.pop_front();
        }
    }

    static constexpr std::size_t c_unWindow = 20; // datagrams in the hands of the kernel at most: its smallest buffer takes these
    static constexpr std::chrono::seconds c_Patience = std::chrono::seconds(5);

    const std::string m_strGroup;
    const unsigned int m_unPort;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<stWired> m_UnderWay;
};

// A handler whose datagrams the wire hears of.
template <class Handler>
class CWired : public Handler
{
public:
    template <typename Argument>
    CWired(CWire& wire, Argument&& argument) : Handler(std::forward<Argument>(argument)), m_Wire(wire)
    {
    }
    ~CWired() override { this->Shutdown(); }

    using Handler::OnReceivedData;

    void OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender) override
    {
        m_Wire.Arrived(pData, lLength);
        Handler::OnReceivedData(pData, lLength, sender);
        m_Wire.Handled();
    }

private:
    CWire& m_Wire;
};

} // namespace Support
