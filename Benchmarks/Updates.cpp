// Whole updates: joined in memory, decoded, applied, and over the loopback interface.
#include "Bench.h"
#include "Datagrams.h"
#include "Handlers.h"
#include "Images.h"
#include "Limits.h"
#include "Masks.h"

#include "LogicalControls.h"

#include <benchmark/benchmark.h>

#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

namespace
{

typedef std::chrono::steady_clock tClock;

constexpr std::size_t c_unStringBytes = 3151 * 13;
constexpr std::size_t c_unRotaryBytes = 65300 * 4 + c_unStringBytes; // of an image, in a rotary update

constexpr std::chrono::microseconds c_Wakeup(100); // that a sleep may last longer

double SecondsSince(tClock::time_point start)
{
    return std::chrono::duration<double>(tClock::now() - start).count();
}

tBytes RotaryUpdate()
{
    return SerialisedUpdate(*RandomImage(3), enMCUpdateRotary);
}

std::function<void()> CopyOf(std::size_t unBytes)
{
    const auto pFrom = std::make_shared<tBytes>(unBytes, static_cast<unsigned char>(1));
    const auto pTo = std::make_shared<tBytes>(unBytes, static_cast<unsigned char>(2));
    return [=]
    {
        std::memcpy(pTo->data(), pFrom->data(), unBytes);
        benchmark::ClobberMemory();
    };
}

// What a rotary update carries of an image, in blocks that lie as an image's do.
std::function<void()> SwappedCopy()
{
    const auto pFrom = std::make_shared<CBlocks>(std::vector<std::size_t>{c_unRotaryBytes - c_unStringBytes, c_unStringBytes});
    const auto pTo = std::make_shared<CBlocks>(std::vector<std::size_t>{c_unRotaryBytes - c_unStringBytes, c_unStringBytes});
    return [=]
    {
        CopySwapped(pTo->At(0), pFrom->At(0), pFrom->Size(0));
        std::memcpy(pTo->At(1), pFrom->At(1), pFrom->Size(1));
        benchmark::ClobberMemory();
    };
}

// An update is sent and received; the system's part is not counted.
stCounted UpdateReceived()
{
    const auto pUpdate = std::make_shared<tBytes>(RotaryUpdate());
    const auto pFragments = std::make_shared<CFragments>(pUpdate->data(), static_cast<long>(pUpdate->size()));
    const auto pHandler = std::make_shared<CFedHandler>();
    const auto pSocket = std::make_shared<CPlainSocket>();
    const auto pId = std::make_shared<std::uint32_t>(0);
    const auto work = [=]
    {
        pFragments->SetId(++*pId);
        pFragments->SendTo(pSocket->Descriptor(), LoopbackAddress(pSocket->Port()));
        pHandler->TakeFrom(pSocket->Descriptor(), pFragments->Count());
    };
    return {work, pFragments->Count()};
}

// From a datagram that has come to a decoded update. What the system has put into the room needs no further copy.
void AddJoinCase(const stCase& entry, bool bInRoom)
{
    AddMeasuredCase(entry,
                    [=]
                    {
                        const auto pUpdate = std::make_shared<tBytes>(RotaryUpdate());
                        const auto pFragments = std::make_shared<CFragments>(pUpdate->data(), static_cast<long>(pUpdate->size()));
                        const auto pHandler = std::make_shared<CFedHandler>();
                        const auto pId = std::make_shared<std::uint32_t>(0);
                        const std::function<void()> copy = CopyOf(pUpdate->size());
                        return [=](double dShare)
                        {
                            const int nUpdates = static_cast<int>(2000 * dShare);
                            const auto join = [=]
                            {
                                double dSeconds = 0;
                                for (int nUpdate = 0; nUpdate < nUpdates; ++nUpdate)
                                {
                                    pFragments->SetId(++*pId);
                                    dSeconds += pHandler->Take(*pFragments, bInRoom);
                                }
                                return dSeconds / nUpdates;
                            };
                            const auto copyAll = [=]
                            {
                                const tClock::time_point start = tClock::now();
                                for (int nUpdate = 0; nUpdate < nUpdates; ++nUpdate)
                                {
                                    copy();
                                }
                                return SecondsSince(start) / nUpdates;
                            };
                            return InEitherOrder(join, copyAll);
                        };
                    });
}

// ---- Over the network

enum enPlainWays : int
{
    enTwoCopies, // into a buffer, into the fragment's slot, into the message
    enNoCopy,    // the payload where it belongs
    enKept,      // the same, by who can be told to end meanwhile, and keeps the last 50 datagrams
    enToImage    // and from there to memory that stands for an image
};

constexpr std::size_t c_unKept = 13; // messages: ten, two that are looked at, and the one that is coming

// A thread that receives updates of five fragments as plainly as can be.
class CPlainReceiver
{
public:
    explicit CPlainReceiver(enPlainWays enWay)
        : m_bStop(false), m_enWay(enWay), m_Message(c_unKept * 325000), m_Slots(5 * 65000), m_Buffer(65536),
          m_Image(c_unRotaryBytes), m_Thread([this] { Run(); })
    {
    }
    ~CPlainReceiver()
    {
        m_bStop = true;
        const sockaddr_in own = LoopbackAddress(m_Socket.Port());
        sendto(m_Socket.Descriptor(), "", 1, 0, reinterpret_cast<const sockaddr*>(&own), sizeof own);
        m_Thread.join();
    }

    unsigned int Port() const { return m_Socket.Port(); }

    stArrivals m_Arrivals;

private:
    void Run()
    {
        int nFragments = 0;
        while (!m_bStop)
        {
            unsigned char acHeader[20];
            const std::size_t unMessage = m_enWay == enKept ? m_Arrivals.unCount % c_unKept : 0;
            unsigned char* const pPlace = m_Message.data() + unMessage * 325000 + nFragments * 64980;
            iovec aVectors[] = {{acHeader, sizeof acHeader}, {pPlace, 64980}};
            iovec buffer = {m_Buffer.data(), m_Buffer.size()};
            msghdr message = {};
            message.msg_iov = m_enWay == enTwoCopies ? &buffer : aVectors;
            message.msg_iovlen = m_enWay == enTwoCopies ? 1 : 2;
            const ssize_t nBytes = m_enWay == enKept ? ReceivePolled(message) : recvmsg(m_Socket.Descriptor(), &message, 0);
            if (nBytes <= 20)
            {
                continue;
            }
            const std::size_t unPayload = static_cast<std::size_t>(nBytes) - 20;
            m_aunPayloads[nFragments] = unPayload;
            if (m_enWay == enTwoCopies)
            {
                std::memcpy(m_Slots.data() + nFragments * 65000, m_Buffer.data(), unPayload + 20);
            }
            if (++nFragments == 5)
            {
                std::size_t unAt = 0;
                for (int nFragment = 0; m_enWay == enTwoCopies && nFragment < 5; ++nFragment)
                {
                    std::memcpy(m_Message.data() + unAt, m_Slots.data() + nFragment * 65000 + 20, m_aunPayloads[nFragment]);
                    unAt += m_aunPayloads[nFragment];
                }
                nFragments = 0;
                if (m_enWay == enToImage)
                {
                    std::memcpy(m_Image.data(), m_Message.data(), m_Image.size());
                }
                m_Arrivals.Count();
            }
        }
    }

    // What waits is taken without asking first.
    ssize_t ReceivePolled(msghdr& message)
    {
        const ssize_t nBytes = recvmsg(m_Socket.Descriptor(), &message, MSG_DONTWAIT);
        if (nBytes >= 0)
        {
            return nBytes;
        }
        pollfd aWaiting[] = {{m_Socket.Descriptor(), POLLIN, 0}, {m_Other.Descriptor(), POLLIN, 0}};
        poll(aWaiting, 2, 1000);
        return recvmsg(m_Socket.Descriptor(), &message, MSG_DONTWAIT);
    }

    CPlainSocket m_Socket;
    CPlainSocket m_Other; // through which nothing comes
    std::atomic<bool> m_bStop;
    const enPlainWays m_enWay;
    tBytes m_Message;
    tBytes m_Slots;
    tBytes m_Buffer;
    tBytes m_Image;
    std::size_t m_aunPayloads[5];
    std::thread m_Thread;
};

// One receiver, and how it is sent another update.
struct stSide
{
    const stArrivals& arrivals;
    std::function<void()> send;
};

// A sender of rotary updates, followed by some zeros if they are to be longer, and two receivers: ours and the plain one.
class CTraffic
{
public:
    CTraffic(enPlainWays enWay, tImage pImage, std::size_t unBytes = 0)
        : m_Update(RotaryUpdate()), m_Handler(std::move(pImage)), m_Plain(enWay), m_unId(0)
    {
        m_Update.resize(std::max(unBytes, m_Update.size()));
        m_pFragments = std::make_unique<CFragments>(m_Update.data(), static_cast<long>(m_Update.size()));
    }

    stSide Ours()
    {
        return {m_Handler.m_Arrivals, [this, address = LoopbackAddress(m_Handler.GetLocalPort())] { SendTo(address); }};
    }
    stSide Plain()
    {
        return {m_Plain.m_Arrivals, [this, address = LoopbackAddress(m_Plain.Port())] { SendTo(address); }};
    }

private:
    void SendTo(const sockaddr_in& address)
    {
        m_pFragments->SetId(++m_unId);
        m_pFragments->SendTo(m_Sender.Descriptor(), address);
    }

    tBytes m_Update;
    std::unique_ptr<CFragments> m_pFragments;
    CReadyHandler m_Handler;
    CPlainReceiver m_Plain;
    CPlainSocket m_Sender;
    std::uint32_t m_unId;
};

// One way: from before the first send until it is ready, the receiver asleep.
double Latency(const stSide& side)
{
    std::this_thread::sleep_for(std::chrono::microseconds(300));
    const std::uint32_t unBefore = side.arrivals.unCount;
    const tClock::time_point start = tClock::now();
    side.send();
    while (side.arrivals.unCount == unBefore)
    {
        if (SecondsSince(start) > 1)
        {
            throw std::string("an update did not come");
        }
        std::this_thread::yield();
    }
    return std::chrono::duration<double>(side.arrivals.at - start).count();
}

void AddLatencyCase(const stCase& entry, enPlainWays enWay, double dQuantile)
{
    AddMeasuredCase(entry,
                    [=]
                    {
                        const auto pTraffic = std::make_shared<CTraffic>(enWay, nullptr);
                        return [=](double dShare)
                        {
                            std::vector<double> ours;
                            std::vector<double> limits;
                            for (int nProbe = 0; nProbe < 200 * dShare; ++nProbe)
                            {
                                ours.push_back(Latency(pTraffic->Ours()));
                                limits.push_back(Latency(pTraffic->Plain()));
                            }
                            return stRound{Quantile(ours, dQuantile), Quantile(limits, dQuantile)};
                        };
                    });
}

// The seconds an update takes when as many follow each other as can, at most three of them under way.
double SecondsInARow(const stSide& side, int nUpdates)
{
    const std::uint32_t unBefore = side.arrivals.unCount;
    const tClock::time_point start = tClock::now();
    const auto wait = [&](int nAtMost, int nSent)
    {
        while (static_cast<std::uint32_t>(nSent) - (side.arrivals.unCount - unBefore) > static_cast<std::uint32_t>(nAtMost))
        {
            if (SecondsSince(start) > 5)
            {
                throw std::string("an update was lost");
            }
            std::this_thread::yield();
        }
    };
    for (int nUpdate = 0; nUpdate < nUpdates; ++nUpdate)
    {
        wait(2, nUpdate);
        side.send();
    }
    wait(0, nUpdates);
    return SecondsSince(start) / nUpdates;
}

// How many of some updates were lost that were sent so long apart, to a receiver that sleeps in between or has no time to.
double CountLost(const stSide& side, int nUpdates, std::chrono::microseconds apart)
{
    const std::uint32_t unBefore = side.arrivals.unCount;
    const tClock::time_point start = tClock::now();
    for (int nUpdate = 0; nUpdate < nUpdates; ++nUpdate)
    {
        while (tClock::now() < start + nUpdate * apart)
        {
            std::this_thread::sleep_for(std::max(apart - c_Wakeup, std::chrono::microseconds(0)));
        }
        side.send();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return nUpdates - static_cast<double>(side.arrivals.unCount - unBefore);
}

// Both receivers apply what comes to an image, one after the other; measure is told how many updates.
void AddTrafficCase(const stCase& entry, std::size_t unBytes, int nUpdates, std::function<double(const stSide&, int)> measure)
{
    AddMeasuredCase(entry,
                    [=]
                    {
                        const auto pTraffic = std::make_shared<CTraffic>(enToImage, std::make_shared<CBMAContainer>(), unBytes);
                        return [=](double dShare)
                        {
                            const int nSent = static_cast<int>(nUpdates * dShare);
                            return InEitherOrder([&] { return measure(pTraffic->Ours(), nSent); },
                                                 [&] { return measure(pTraffic->Plain(), nSent); });
                        };
                    });
}

// How many were lost of updates that fill five datagrams to the last byte, beside how many a plain socket lost.
void AddLossCase(const stCase& entry, std::chrono::microseconds apart, int nUpdates)
{
    AddTrafficCase(entry, std::size_t(5) * c_nMaxPayload, nUpdates,
                   [=](const stSide& side, int nSent) { return CountLost(side, nSent, apart); });
}

} // namespace

void AddUpdateCases()
{
    AddJoinCase({"fragments to a decoded update, in the room", "one memcpy of it", enCost, 2.5, 1.1}, true);
    AddCount("a fragment received, joined and decoded", UpdateReceived);
    AddJoinCase({"fragments to a decoded update, elsewhere", "one memcpy of it", enCost, 0, 0}, false);
    AddCase({"BuildMCUpdate, rotary", "its blocks copied, words swapped", enCost, 0, 1.15},
            []
            {
                const auto pImage = RandomImage(3);
                const auto pMessage = std::make_shared<CMCUpdateMsg>();
                return stSides{[=] { BuildMCUpdate(*pImage, enMCUpdateRotary, *pMessage); }, SwappedCopy(), 1};
            });
    AddCase({"ApplyMCUpdate, rotary", "its blocks copied, words swapped", enCost, 0, 1.15},
            []
            {
                const auto pUpdate = std::make_shared<tBytes>(RotaryUpdate());
                const auto pMessage = std::make_shared<CMCUpdateMsg>();
                const auto pImage = RandomImage(3);
                pMessage->SetShallowMode(true);
                pMessage->Parse(pUpdate->data(), pUpdate->size());
                return stSides{[=]
                               {
                                   benchmark::DoNotOptimize(pUpdate->data());
                                   ApplyMCUpdate(*pMessage, *pImage);
                               },
                               SwappedCopy(), 1};
            });
    AddMeasuredCase({"shallow decode, the slowest type of update", "100 ns", enCost, 0, 1.0},
                    []
                    {
                        const auto pUpdates = std::make_shared<std::vector<tBytes>>();
                        for (const MCUpdateType enType : {enMCUpdateAll, enMCUpdateSurface, enMCUpdateRotary,
                                                          enMCUpdateSwitchesIntegers4, enMCUpdateSwitchesIntegers8})
                        {
                            pUpdates->push_back(SerialisedUpdate(*RandomImage(3), enType));
                        }
                        const auto pMessage = std::make_shared<CMCUpdateMsg>();
                        pMessage->SetShallowMode(true);
                        return [=](double)
                        {
                            double dSlowest = 0;
                            for (const tBytes& update : *pUpdates)
                            {
                                constexpr int c_nTimes = 20000;
                                const tClock::time_point start = tClock::now();
                                for (int nTime = 0; nTime < c_nTimes; ++nTime)
                                {
                                    pMessage->Parse(update.data(), update.size());
                                    benchmark::ClobberMemory();
                                }
                                dSlowest = std::max(dSlowest, SecondsSince(start) / c_nTimes);
                            }
                            return stRound{dSlowest, 100e-9};
                        };
                    });
    AddTrafficCase({"updates in a row to the image, 302,188 bytes", "plain UDP, in place, copied", enGain, 0.65, 0.85}, 0, 500,
                   SecondsInARow);
    AddLossCase({"lost, 5 x 65,000 bytes, 5 ms apart", "lost by plain UDP", enLoss, 0, 0}, std::chrono::milliseconds(5), 164);
    AddLossCase({"lost, 5 x 65,000 bytes, at 20,000/s", "lost by plain UDP", enLoss, 0, 0}, std::chrono::microseconds(50), 1000);
    AddLatencyCase({"one way, 302,188 bytes, p50", "plain UDP, two copies", enCost, 1.15, 1.0}, enTwoCopies, 0.5);
    AddLatencyCase({"one way, 302,188 bytes, p50, no copy", "plain UDP, no copy", enCost, 0, 1.1}, enNoCopy, 0.5);
    AddLatencyCase({"one way, 302,188 bytes, p50, like for like", "plain UDP, polled, the last 50 kept", enCost, 0, 0}, enKept,
                   0.5);
}
