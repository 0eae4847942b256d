// Parameter changes: sent one by one, queued and packed, read back.
#include "Bench.h"
#include "Datagrams.h"
#include "Images.h"

#include "LogicalControls.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace
{

typedef std::chrono::steady_clock tClock;

constexpr int c_nAtOnce = 64;
constexpr int c_nRecordsInDatagram = 2240;
constexpr int c_nPathParams = 280; // rotaries of a mic input
constexpr int c_nRecordBytes = 29;

sockaddr_in ChangesGroup()
{
    if (std::getenv("LOGICALCONTROLS_OWN_NETWORK") == nullptr)
    {
        throw std::string("not in a network namespace of its own");
    }
    sockaddr_in group = LoopbackAddress(7050);
    inet_pton(AF_INET, "225.0.0.45", &group.sin_addr);
    return group;
}

// A change and its datagram each, to where nobody listens.
stSides SentOneByOne()
{
    const sockaddr_in group = ChangesGroup();
    const auto pImage = std::make_shared<CBMAContainer>();
    pImage->SetUseSimplePPCSender(true);
    pImage->InitSimplePPCSenderComms();
    const auto pSocket = std::make_shared<CPlainSocket>(CPlainSocket::enUnbound); // as the image's is
    const auto set = [pImage]
    {
        for (int nParam = 0; nParam < c_nAtOnce; ++nParam)
        {
            pImage->SetPPC(enRotary, enMicInput, 3, nParam, 0.5f, false, false);
        }
    };
    const auto send = [=]
    {
        unsigned char acDatagram[49] = {};
        for (int nTime = 0; nTime < c_nAtOnce; ++nTime)
        {
            sendto(pSocket->Descriptor(), acDatagram, sizeof acDatagram, 0, reinterpret_cast<const sockaddr*>(&group),
                   sizeof group);
        }
    };
    return {set, send, c_nAtOnce};
}

class CQueueingHandler : public CClientMsgHandler
{
public:
    CQueueingHandler() : CClientMsgHandler(false) {}
    ~CQueueingHandler() override { Shutdown(); }

    void Fill(int nRecords)
    {
        for (int nRecord = 0; nRecord < nRecords; ++nRecord)
        {
            QueuePPC(enRotary, enMicInput, nRecord / c_nPathParams % 144, nRecord % c_nPathParams, 0.5f);
        }
    }
};

// Reads what comes, and forgets it.
class CReader
{
public:
    CReader() : m_bStop(false), m_Thread([this] { Run(); }) {}
    ~CReader()
    {
        m_bStop = true;
        const sockaddr_in own = LoopbackAddress(Port());
        sendto(m_Socket.Descriptor(), "", 1, 0, reinterpret_cast<const sockaddr*>(&own), sizeof own);
        m_Thread.join();
    }

    unsigned int Port() const { return m_Socket.Port(); }

private:
    void Run()
    {
        tBytes buffer(65536);
        while (!m_bStop)
        {
            recv(m_Socket.Descriptor(), buffer.data(), buffer.size(), 0);
        }
    }

    CPlainSocket m_Socket;
    std::atomic<bool> m_bStop;
    std::thread m_Thread;
};

// A full datagram made of messages and sent, beside one that was made before.
stSides PackedAndSent()
{
    const auto pReader = std::make_shared<CReader>();
    const auto pSocket = std::make_shared<CPlainSocket>();
    const auto pPacket = std::make_shared<UDP_PACKET>();
    const std::shared_ptr<CRawPPCMsg[]> pMessages(new CRawPPCMsg[c_nRecordsInDatagram]);
    for (int nRecord = 0; nRecord < c_nRecordsInDatagram; ++nRecord)
    {
        pMessages[nRecord].SetPPC(enRotary, enMicInput, nRecord / c_nPathParams, nRecord % c_nPathParams, 0.5f);
    }
    const auto pack = [=]
    {
        std::size_t unPacked = 0;
        for (int nRecord = 0; nRecord < c_nRecordsInDatagram; ++nRecord)
        {
            unPacked += pMessages[nRecord].WriteTo(pPacket->acPayload + unPacked, sizeof pPacket->acPayload - unPacked);
        }
        return MakeFragment(enDatagramPPC, 1, pPacket->acPayload, static_cast<long>(unPacked), 1, *pPacket);
    };
    const long lSize = pack();
    const auto send = [=](long lBytes)
    {
        const sockaddr_in destination = LoopbackAddress(pReader->Port());
        sendto(pSocket->Descriptor(), pPacket.get(), static_cast<std::size_t>(lBytes), 0,
               reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
    };
    return {[=] { send(pack()); }, [=] { send(lSize); }, 1};
}

// The time of sends of 64 datagrams of one record each in one call, an operation being one of them.
double SecondsToSendSingly(int nSocket, const sockaddr_in& destination)
{
    unsigned char acDatagram[49] = {};
    iovec vector = {acDatagram, sizeof acDatagram};
    mmsghdr aMessages[c_nAtOnce] = {};
    sockaddr_in to = destination;
    for (mmsghdr& message : aMessages)
    {
        message.msg_hdr.msg_name = &to;
        message.msg_hdr.msg_namelen = sizeof to;
        message.msg_hdr.msg_iov = &vector;
        message.msg_hdr.msg_iovlen = 1;
    }
    constexpr int c_nCalls = 40;
    const tClock::time_point start = tClock::now();
    for (int nCall = 0; nCall < c_nCalls; ++nCall)
    {
        sendmmsg(nSocket, aMessages, c_nAtOnce, 0);
    }
    return std::chrono::duration<double>(tClock::now() - start).count() / (c_nCalls * c_nAtOnce);
}

// The plainest way from a queue to a datagram: two locks, a message on the heap and a buffer grown for each record.
double SecondsToDrainPlainly(int nRecords, int nSocket, const sockaddr_in& destination)
{
    CRawPPCQueue queue;
    for (int nRecord = 0; nRecord < nRecords; ++nRecord)
    {
        CRawPPCMsg* const pMessage = new CRawPPCMsg[1];
        pMessage[0].SetPPC(enRotary, enMicInput, nRecord / c_nPathParams % 144, nRecord % c_nPathParams, 0.5f);
        queue.AddMsgToTail(pMessage);
    }
    std::mutex mutex;
    const tClock::time_point start = tClock::now();
    while (queue.GetQueueSize() > 0)
    {
        std::unique_ptr<unsigned char[]> pPacked;
        std::size_t unPacked = 0;
        for (;;)
        {
            CRawPPCMsg* pFront = nullptr;
            {
                const std::lock_guard<std::mutex> guard(mutex);
                pFront = queue.GetFrontMsg(false);
            }
            if (pFront == nullptr || unPacked + c_nRecordBytes > 64980)
            {
                break;
            }
            unsigned char* pRecord = nullptr;
            *pFront >> &pRecord;
            std::unique_ptr<unsigned char[]> pGrown(new unsigned char[unPacked + c_nRecordBytes]);
            if (unPacked > 0)
            {
                std::memcpy(pGrown.get(), pPacked.get(), unPacked);
            }
            std::memcpy(pGrown.get() + unPacked, pRecord, c_nRecordBytes);
            delete[] pRecord;
            pPacked = std::move(pGrown);
            unPacked += c_nRecordBytes;
            const std::lock_guard<std::mutex> guard(mutex);
            queue.RemoveFront();
        }
        const auto pPacket = std::make_unique<UDP_PACKET>();
        const long lSize = MakeFragment(enDatagramPPC, 1, pPacked.get(), static_cast<long>(unPacked), 1, *pPacket);
        sendto(nSocket, pPacket.get(), static_cast<std::size_t>(lSize), 0, reinterpret_cast<const sockaddr*>(&destination),
               sizeof destination);
    }
    return std::chrono::duration<double>(tClock::now() - start).count() / nRecords;
}

constexpr int c_nDrained = 4 * c_nRecordsInDatagram;

// What SendAll takes a record, beside another way.
void AddDrainCase(const stCase& entry, double (*limit)(int, int, const sockaddr_in&))
{
    AddMeasuredCase(entry,
                    [=]
                    {
                        const auto pHandler = std::make_shared<CQueueingHandler>();
                        const auto pSocket = std::make_shared<CPlainSocket>();
                        const auto pFull = std::make_shared<CPlainSocket>(); // nobody reads from it: what comes is dropped
                        const sockaddr_in destination = LoopbackAddress(pFull->Port());
                        if (!pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr))
                        {
                            throw std::string("no socket can be had");
                        }
                        pHandler->SetRemoteAddress("127.0.0.1", 0, static_cast<int>(pFull->Port()));
                        const auto ours = [=]
                        {
                            constexpr int c_nTimes = 4;
                            double dSeconds = 0;
                            for (int nTime = 0; nTime < c_nTimes; ++nTime)
                            {
                                pHandler->Fill(c_nDrained);
                                const tClock::time_point start = tClock::now();
                                pHandler->SendAll();
                                dSeconds += std::chrono::duration<double>(tClock::now() - start).count();
                            }
                            return dSeconds / (c_nTimes * c_nDrained);
                        };
                        return [=, pFull = pFull](double)
                        { return InEitherOrder(ours, [&] { return limit(c_nDrained, pSocket->Descriptor(), destination); }); };
                    });
}

tBytes Stream(int nRecords)
{
    tBytes stream;
    for (int nRecord = 0; nRecord < nRecords; ++nRecord)
    {
        const stPPCRecord<float> record(enRotary, enMicInput, nRecord / c_nPathParams, nRecord % c_nPathParams, 0.5f);
        const unsigned char* const pRecord = reinterpret_cast<const unsigned char*>(&record);
        stream.insert(stream.end(), pRecord, pRecord + sizeof record);
    }
    return stream;
}

constexpr int c_nStreamRecords = 2000;

void CountTypes(const tBytes& stream)
{
    unsigned long aunCounts[7];
    CRawPPCMsg::AnalyseStream(stream.data(), stream.size(), aunCounts[0], aunCounts[1], aunCounts[2], aunCounts[3], aunCounts[4],
                              aunCounts[5], aunCounts[6]);
    benchmark::DoNotOptimize(aunCounts);
}

void Store(float* pValues, unsigned int unPath, unsigned int unParam, float fValue)
{
    if (unPath < 144 && unParam < static_cast<unsigned int>(c_nPathParams))
    {
        pValues[unPath * c_nPathParams + unParam] = fValue;
    }
}

// Reads each record's address and value, and stores the value where the address says, if there is such a place.
void ReadRecords(const tBytes& stream, float* pValues)
{
    CPPCStreamReader reader(stream.data(), static_cast<long>(stream.size()));
    while (reader.Next())
    {
        float fValue = 0;
        if (reader.GetValue(fValue))
        {
            const stPPCAddress address = reader.Address();
            Store(pValues, static_cast<unsigned int>(address.nPath), static_cast<unsigned int>(address.nParam), fValue);
        }
    }
    benchmark::ClobberMemory();
}

// The same of records that are known to be whole and of one size.
void ReadPacked(const tBytes& stream, float* pValues)
{
    const unsigned char* pRecord = stream.data();
    for (int nRecord = 0; nRecord < c_nStreamRecords; ++nRecord, pRecord += c_nRecordBytes)
    {
        stPPCRecordHeader header;
        boost::endian::big_float32_t value;
        std::memcpy(&header, pRecord, sizeof header);
        std::memcpy(&value, pRecord + sizeof header, sizeof value);
        Store(pValues, static_cast<unsigned int>(int(header.nPath)), static_cast<unsigned int>(int(header.nParameter)), value);
    }
    benchmark::ClobberMemory();
}

stSides ReadBack(bool bCount, bool bRead)
{
    const auto pStream = std::make_shared<tBytes>(Stream(c_nStreamRecords));
    const auto pOurs = std::make_shared<std::vector<float>>(144 * c_nPathParams);
    const auto pLimit = std::make_shared<std::vector<float>>(144 * c_nPathParams);
    const auto ours = [=]
    {
        if (bCount)
        {
            CountTypes(*pStream);
        }
        if (bRead)
        {
            ReadRecords(*pStream, pOurs->data());
        }
    };
    return {ours, [=] { ReadPacked(*pStream, pLimit->data()); }, c_nStreamRecords};
}

} // namespace

void AddRecordCases()
{
    AddCase({"SetPPC with the simple sender", "sendto of 49 bytes", enCost, 1.10, 1.03}, SentOneByOne);
    AddCase({"a datagram of 2,240 changes packed and sent", "sendto of one made before", enGain, 0.6, 0.75}, PackedAndSent);
    AddCount("a change queued, packed and sent",
             []
             {
                 const auto pHandler = std::make_shared<CQueueingHandler>();
                 const auto pSocket = std::make_shared<CPlainSocket>();
                 if (!pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr))
                 {
                     throw std::string("no socket can be had");
                 }
                 pHandler->SetRemoteAddress("127.0.0.1", 0, static_cast<int>(pSocket->Port()));
                 const auto work = [=]
                 {
                     pHandler->Fill(c_nRecordsInDatagram);
                     pHandler->SendAll();
                 };
                 return stCounted{work, c_nRecordsInDatagram};
             });
    AddDrainCase({"SendAll, a record", "a datagram each, sendmmsg", enGain, 15, 30},
                 [](int, int nSocket, const sockaddr_in& destination) { return SecondsToSendSingly(nSocket, destination); });
    AddDrainCase({"SendAll against the plainest way", "heap messages, grown buffer", enGain, 8, 13}, SecondsToDrainPlainly);
    AddCase({"AnalyseStream", "reading packed records", enCost, 1.6, 1.0}, [] { return ReadBack(true, false); });
    AddCase({"reading records", "reading packed records", enCost, 1.6, 1.0}, [] { return ReadBack(false, true); });
    AddCase({"AnalyseStream, then reading records", "reading packed records", enCost, 1.6, 1.0},
            [] { return ReadBack(true, true); });
}
