// What every library has to do in the comparison: bring changes, or updates, from one end to another in this process, over the
// loopback interface.
#pragma once

#include "Handlers.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

constexpr char c_szChangesGroup[] = "225.0.0.45";
constexpr unsigned int c_unChangesPort = 7050;
constexpr int c_nSingleParams = 64;
constexpr int c_nPackedParams = 2240; // as many as a datagram of ours holds
constexpr std::chrono::seconds c_LongestWait(2);

// Both ends. What fails throws a std::string.
class CLink
{
public:
    CLink() = default;
    virtual ~CLink() = default;
    CLink(const CLink&) = delete;
    CLink& operator=(const CLink&) = delete;

    // Sends one change, or one update.
    virtual void Send() = 0;

    // Sends what was held back to go together.
    virtual void Flush() {}

    // Once, while the sender waits for the other end.
    virtual void Wait() { std::this_thread::yield(); }

    virtual const stArrivals& Arrivals() const { return m_Arrivals; }

    // When all has arrived: whether the other end holds what was sent last.
    virtual bool IsRight() const = 0;

protected:
    stArrivals m_Arrivals; // counted by the receiving thread
};

typedef std::unique_ptr<CLink> tLink;

// Changes of rotaries of some mic inputs in turn, each time to another value. A round changes each as often as the others.
class CChangeLink : public CLink
{
public:
    enum : int
    {
        enFirstPath = 3,
        enPathParams = 280
    };

    explicit CChangeLink(int nParams) : m_nNext(0), m_fValue(0), m_Received(static_cast<std::size_t>(nParams)) {}

    void Send() final
    {
        m_fValue = m_nNext == 0 ? m_fValue + 1 : m_fValue;
        Change(m_nNext, m_fValue);
        m_nNext = m_nNext + 1 == static_cast<int>(m_Received.size()) ? 0 : m_nNext + 1;
    }

    bool IsRight() const override
    {
        for (int nParam = 0; nParam < static_cast<int>(m_Received.size()); ++nParam)
        {
            if (m_nNext != 0 || Received(nParam) != m_fValue)
            {
                return false;
            }
        }
        return true;
    }

protected:
    virtual void Change(int nParam, float fValue) = 0;
    virtual float Received(int nParam) const { return m_Received[static_cast<std::size_t>(nParam)]; }

private:
    int m_nNext;
    float m_fValue;

protected:
    std::vector<float> m_Received; // where the other end stores what comes
};

// The same update again and again, as octets, into a buffer of the image's size.
class COctetsLink : public CLink
{
public:
    explicit COctetsLink(const std::vector<unsigned char>& update) : m_Update(update), m_Image(update.size()) {}

    bool IsRight() const override { return m_Image == m_Update; }

protected:
    void Store(const unsigned char* pOctets, std::size_t unOctets)
    {
        if (unOctets == m_Image.size())
        {
            std::memcpy(m_Image.data(), pOctets, unOctets);
            m_Arrivals.Count();
        }
    }

    std::vector<unsigned char> m_Update;

private:
    std::vector<unsigned char> m_Image;
};

// Ours: a change is a datagram of its own by the image's simple sender, to the group, with a receiver in it or without; or it is
// queued, and packed by SendAll. An update is made into fragments, sent, joined and applied to an image.
tLink OurSingleChanges(bool bReceive);
tLink OurPackedChanges();
tLink OurUpdates(const std::vector<unsigned char>& update);

// Theirs, each in a file that is built when its library is there. OSC goes to the group, and nobody receives it.
tLink OscChanges(int nParams);

enum enPacketSizes : int
{
    enUsualPackets, // of 1,400 bytes
    enLargestPackets
};

tLink EnetUpdates(const std::vector<unsigned char>& update, enPacketSizes enSize);

enum enDdsWays : int
{
    enBestEffort,
    enReliable,
    enBatched // best effort, packed until Flush
};

tLink DdsChanges(int nParams, enDdsWays enWay);
tLink DdsUpdates(const std::vector<unsigned char>& update);
