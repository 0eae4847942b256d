#include "ClientComms/PPCSender.h"

#include "ClientComms/ClientMsgHandler.h"
#include "Runtime/Clock.h"
#include "Support/Blocks.h"
#include "Support/Bytes.h"
#include "Support/DebugLog.h"
#include "Support/SystemCalls.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{

using Support::Hex;
using Support::tBytes;
typedef std::vector<std::string> tLines;

constexpr int c_nDefaultPort = 4242;
constexpr int c_nFullOfStrings = 1710; // of 38 bytes each: 64,980
const char* const c_szUnsendable = "CMsgHandlerBase::QueuePPC - refused: a message that could never be sent";
const char* const c_szTwo = "CClientMsgHandler::GetPPCBufferSize - error serialising PPC msg: 2";

std::atomic<std::uint32_t> g_unSeconds{0};

std::int64_t Now()
{
    return std::int64_t(g_unSeconds) * 1000000 + 999999;
}

std::int64_t EachTimeASecondLater()
{
    return std::int64_t(++g_unSeconds) * 1000000;
}

std::uint32_t BigAt(const tBytes& bytes, std::size_t unOffset)
{
    std::uint32_t unValue = 0;
    for (std::size_t n = 0; n < 4; ++n)
    {
        unValue = unValue << 8 | bytes.at(unOffset + n);
    }
    return unValue;
}

// A record of this many bytes in all, with a value that depends on the mark.
tBytes RecordOf(std::size_t unTotal, unsigned char ucMark = 0x11)
{
    tBytes bytes = Hex("00000001 00 00000005 00000001 00000002 00000000");
    Support::AppendBig(bytes, static_cast<std::uint32_t>(unTotal - 25));
    bytes.resize(unTotal, ucMark);
    return bytes;
}

std::unique_ptr<CRawPPCMsg[]> MessageOf(const tBytes& record)
{
    std::unique_ptr<CRawPPCMsg[]> pMessage(new CRawPPCMsg[1]);
    pMessage[0].Parse(record.data(), record.size());
    return pMessage;
}

// Without a value, which is error 2.
std::unique_ptr<CRawPPCMsg[]> BadMessage()
{
    testing::internal::CaptureStdout();
    std::unique_ptr<CRawPPCMsg[]> pMessage = MessageOf(RecordOf(25));
    EXPECT_EQ("RAWPPCMSG instream error: failed to copy to local buffer\n", testing::internal::GetCapturedStdout());
    return pMessage;
}

tLines Packet(int nSize, const std::vector<int>& results, int nPPCs)
{
    tLines lines{"CClientMsgHandler::SendAll - sending, size " + std::to_string(nSize)};
    for (const int nResult : results)
    {
        lines.push_back("CClientMsgHandler::SendAll - send packet " + std::to_string(nResult));
    }
    lines.push_back("CClientMsgHandler::SendAll - sent " + std::to_string(nPPCs) + " PPCs in this packet");
    return lines;
}

tLines Total(int nPPCs, int nPackets)
{
    return {"CClientMsgHandler::SendAll - \n\n\t\tsent " + std::to_string(nPPCs) + " PPCs total in " + std::to_string(nPackets) +
            " packets"};
}

tLines operator+(tLines lines, const tLines& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

std::string Destination(const Support::stSentDatagram& sent)
{
    char acText[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &sent.destination.sin_addr, acText, sizeof acText);
    return std::string(acText) + ":" + std::to_string(ntohs(sent.destination.sin_port));
}

// Sends into a record, on whatever thread.
class CRecordingHandler : public CClientMsgHandler
{
public:
    CRecordingHandler() : CClientMsgHandler(false) {}
    ~CRecordingHandler() override { Shutdown(); }

    bool SendAll() override
    {
        ++m_nEntered;
        Support::CSocketRecorder recorder;
        recorder.bFailSend = m_bFailSend;
        const bool bResult = CClientMsgHandler::SendAll();
        const std::lock_guard<std::mutex> guard(m_Mutex);
        for (const Support::stSentDatagram& sent : recorder.sent)
        {
            m_Sent.push_back(sent);
            m_unPayload += sent.bytes.size() - 20;
        }
        ++m_nLeft;
        m_Changed.notify_all();
        return bResult;
    }

    void Add(std::unique_ptr<CRawPPCMsg[]> pMessage)
    {
        const CLockGuard guard(m_PPCBufferLock);
        m_PPCBuffer.AddMsgToTail(pMessage.release());
    }

    int CountAndClear()
    {
        const CLockGuard guard(m_PPCBufferLock);
        const int nSize = m_PPCBuffer.GetQueueSize();
        m_PPCBuffer.ClearQueue();
        return nSize;
    }

    bool QueueStrings(int nCount)
    {
        bool bQueued = true;
        for (int n = 0; n < nCount; ++n)
        {
            bQueued = QueuePPC(enString, enMicInput, 0, 0, RyGConsoleString("Vox")) && bQueued;
        }
        return bQueued;
    }

    // False when it has not happened within the time.
    bool WaitUntil(const std::function<bool()>& happened, std::chrono::milliseconds time = std::chrono::minutes(1))
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Changed.wait_for(lock, time, happened);
    }

    std::vector<std::size_t> Sizes() const
    {
        std::vector<std::size_t> sizes;
        for (const Support::stSentDatagram& sent : m_Sent)
        {
            sizes.push_back(sent.bytes.size());
        }
        return sizes;
    }

    // What the datagrams carry, one payload after another.
    tBytes Stream() const
    {
        tBytes stream;
        for (const Support::stSentDatagram& sent : m_Sent)
        {
            stream.insert(stream.end(), sent.bytes.begin() + 20, sent.bytes.end());
        }
        return stream;
    }

    bool m_bFailSend = false;
    std::atomic<int> m_nEntered{0};
    std::atomic<int> m_nLeft{0};
    std::mutex m_Mutex;
    std::vector<Support::stSentDatagram> m_Sent; // guarded by m_Mutex
    std::size_t m_unPayload = 0;                 // of all of them; guarded by m_Mutex

private:
    std::condition_variable m_Changed;
};

class PPCSender : public ::testing::Test
{
protected:
    void SetUp() override
    {
        g_unSeconds = 1700000000;
        CClock::SetSource(&Now);
        ASSERT_TRUE(m_pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
        // Too late for another port, but not for another default port.
        ASSERT_FALSE(m_pHandler->InitialiseClient(c_nDefaultPort, "127.0.0.1", nullptr, nullptr));
        m_pHandler->SetRemoteAddress("127.0.0.9", 0, -1);
        m_Log.Take();
    }
    void TearDown() override
    {
        m_pHandler.reset();
        CClock::SetSource(nullptr);
    }

    // One SendAll, and what it logged. Forgets what was sent before.
    tLines Send(bool bResult)
    {
        m_pHandler->m_Sent.clear();
        m_Log.Take();
        EXPECT_EQ(bResult, m_pHandler->SendAll());
        return m_Log.Take();
    }

    Support::CDebugLog m_Log;
    const Support::CDirtyMemory m_Dirty; // a byte of old memory in a datagram would show
    std::unique_ptr<CRecordingHandler> m_pHandler = std::make_unique<CRecordingHandler>();
};

TEST_F(PPCSender, AnEmptyQueueSendsAndLogsNothing)
{
    EXPECT_EQ(tLines(), Send(false));
    EXPECT_TRUE(m_pHandler->m_Sent.empty());
}

TEST_F(PPCSender, OneOfEachTypeLeavesInOneDatagramByteForByte)
{
    EXPECT_TRUE(m_pHandler->QueuePPC(enString, enMicInput, 3, 1, RyGConsoleString("Vox")));
    EXPECT_TRUE(m_pHandler->QueuePPC(enRotary, enMicInput, 2, 279, -2.5f));
    EXPECT_TRUE(m_pHandler->QueuePPC(enSwitch, enMicInput, 143, 575, 1));
    EXPECT_TRUE(m_pHandler->QueuePPC(enInteger, enMicInput, 0, 22, -2));
    EXPECT_TRUE(m_pHandler->QueuePPC(enFader, enAuxReturn, 1, 1, 1.0f));
    EXPECT_TRUE(m_pHandler->QueuePPC(enOther, enGlobals, 0, 0, INT_MAX));
    EXPECT_TRUE(m_pHandler->QueuePPC(enMeter, enMicInput, 6, 8, 255));
    EXPECT_EQ(tLines(), m_Log.Take());
    EXPECT_EQ(7, m_pHandler->GetPPCBufferSize());
    EXPECT_EQ((tLines{"CClientMsgHandler::SendAll - sending, size 232", "CClientMsgHandler::SendAll - send packet 1",
                      "CClientMsgHandler::SendAll - sent 7 PPCs in this packet",
                      "CClientMsgHandler::SendAll - \n\n\t\tsent 7 PPCs total in 1 packets"}),
              Send(true));
    ASSERT_EQ(1u, m_pHandler->m_Sent.size());
    EXPECT_EQ(Hex("00000001 6553f100 00000001 00000001 000000d4"
                  "00000001 00 00000000 00000001 00000003 00000001 0000000d 566f7800000000000000000000"
                  "00000001 00 00000001 00000001 00000002 00000117 00000004 c0200000"
                  "00000001 00 00000002 00000001 0000008f 0000023f 00000004 00000001"
                  "00000001 00 00000003 00000001 00000000 00000016 00000004 fffffffe"
                  "00000001 00 00000004 00000002 00000001 00000001 00000004 3f800000"
                  "00000001 00 00000005 00000000 00000000 00000000 00000004 7fffffff"
                  "00000001 00 00000006 00000001 00000006 00000008 00000004 000000ff"),
              m_pHandler->m_Sent[0].bytes);
    EXPECT_EQ(0, m_pHandler->GetPPCBufferSize());
    EXPECT_EQ(tLines(), Send(false));
}

TEST_F(PPCSender, TenThousandFloatsLeaveInFiveDatagramsInOrderAndWhole)
{
    tBytes expected;
    for (int n = 0; n < 10000; ++n)
    {
        const float fValue = static_cast<float>(n);
        std::uint32_t unBits = 0;
        std::memcpy(&unBits, &fValue, 4);
        Support::Append(expected, Hex("00000001 00 00000001 00000001 00000007 00000003 00000004"));
        Support::AppendBig(expected, unBits);
        ASSERT_TRUE(m_pHandler->QueuePPC(enRotary, enMicInput, 7, 3, fValue));
    }
    const tLines full = Packet(64980, {1}, 2240);
    EXPECT_EQ(full + full + full + full + Packet(30180, {1}, 1040) + Total(10000, 5), Send(true));
    EXPECT_EQ((std::vector<std::size_t>{64980, 64980, 64980, 64980, 30180}), m_pHandler->Sizes());
    EXPECT_TRUE(expected == m_pHandler->Stream());
}

TEST_F(PPCSender, EachDatagramIsNumberedByTheTimeItIsMade)
{
    CClock::SetSource(&EachTimeASecondLater);
    g_unSeconds = 0xfffffff0;
    ASSERT_TRUE(m_pHandler->QueueStrings(2 * c_nFullOfStrings + 1));
    Send(true);
    ASSERT_EQ(3u, m_pHandler->m_Sent.size());
    std::uint32_t unBefore = 0xfffffff0;
    for (const Support::stSentDatagram& sent : m_pHandler->m_Sent)
    {
        EXPECT_LT(unBefore, BigAt(sent.bytes, 4));
        unBefore = BigAt(sent.bytes, 4);
    }
}

TEST_F(PPCSender, RecordsAreNeverSplitAndFillADatagramToTheLastByte)
{
    const struct
    {
        std::vector<std::size_t> records;
        std::vector<std::size_t> datagrams;
    } aCases[] = {{std::vector<std::size_t>(1710, 38), {65000}},
                  {std::vector<std::size_t>(1711, 38), {65000, 58}},
                  {std::vector<std::size_t>(2240, 29), {64980}},
                  {{64980}, {65000}},
                  {{64951, 29}, {65000}},
                  {{64952, 29}, {64972, 49}},
                  {{29, 64952}, {49, 64972}},
                  {{29, 64980, 29}, {49, 65000, 49}},
                  {{64954, 26, 26}, {65000, 46}},
                  {{32490, 32490, 32490}, {65000, 32510}}};
    for (const auto& row : aCases)
    {
        tBytes expected;
        for (const std::size_t unSize : row.records)
        {
            const tBytes record = RecordOf(unSize, static_cast<unsigned char>(expected.size()));
            Support::Append(expected, record);
            m_pHandler->Add(MessageOf(record));
        }
        Send(true);
        EXPECT_EQ(row.datagrams, m_pHandler->Sizes());
        EXPECT_TRUE(expected == m_pHandler->Stream());
    }
}

TEST_F(PPCSender, EveryAddressGetsEveryDatagramInTableOrder)
{
    m_pHandler->ResetRemoteAddresses();
    m_pHandler->SetRemoteAddress("127.0.0.5", 0, 1);
    m_pHandler->SetRemoteAddress("127.0.0.1", 9, 0);
    m_pHandler->SetRemoteAddress("127.0.0.3", 0, -1);
    m_pHandler->SetRemoteAddress("127.0.0.5", 0, 65535);
    m_pHandler->SetRemoteAddress("127.0.0.5", 0, 1);
    const tLines expected{"127.0.0.5:1", "127.0.0.1:4242", "127.0.0.3:4242", "127.0.0.5:65535", "127.0.0.5:1"};
    ASSERT_TRUE(m_pHandler->QueueStrings(c_nFullOfStrings + 1));
    EXPECT_EQ(Packet(65000, {1, 1, 1, 1, 1}, 1710) + Packet(58, {1, 1, 1, 1, 1}, 1) + Total(1711, 10), Send(true));
    tLines destinations;
    for (const Support::stSentDatagram& sent : m_pHandler->m_Sent)
    {
        destinations.push_back(Destination(sent));
        EXPECT_EQ(m_pHandler->m_Sent[destinations.size() <= 5 ? 0 : 5].bytes, sent.bytes);
    }
    EXPECT_EQ(expected + expected, destinations);
}

TEST_F(PPCSender, WithoutAnAddressMessagesAreCountedAndGone)
{
    m_pHandler->ResetRemoteAddresses();
    ASSERT_TRUE(m_pHandler->QueueStrings(c_nFullOfStrings + 1));
    EXPECT_EQ(Packet(65000, {}, 1710) + Packet(58, {}, 1), Send(false));
    EXPECT_TRUE(m_pHandler->m_Sent.empty());
    EXPECT_EQ(0, m_pHandler->GetPPCBufferSize());
}

TEST_F(PPCSender, AFailingSendIsLoggedAndItsMessagesAreGone)
{
    m_pHandler->m_bFailSend = true;
    ASSERT_TRUE(m_pHandler->QueueStrings(2));
    EXPECT_EQ(Packet(96, {0}, 2), Send(false));
    EXPECT_EQ(0, m_pHandler->GetPPCBufferSize());
    m_pHandler->m_bFailSend = false;
    ASSERT_TRUE(m_pHandler->QueueStrings(1));
    EXPECT_EQ(Packet(58, {1}, 1) + Total(1, 1), Send(true));
}

TEST_F(PPCSender, TheResultIsTheLastSendsAndOnlyGoodSendsCount)
{
    m_pHandler->SetRemoteAddress("nowhere", 0, 1);
    ASSERT_TRUE(m_pHandler->QueueStrings(c_nFullOfStrings + 1));
    EXPECT_EQ(Packet(65000, {1, 0}, 1710) + Packet(58, {1, 0}, 1) + Total(1711, 2), Send(false));
    m_pHandler->SetRemoteAddress("127.0.0.2", 0, 1);
    ASSERT_TRUE(m_pHandler->QueueStrings(1));
    EXPECT_EQ(Packet(58, {1, 0, 1}, 1) + Total(1, 2), Send(true));
}

TEST_F(PPCSender, ABadMessageInFrontBlocksThoseBehindItUntilCleared)
{
    m_pHandler->Add(BadMessage());
    ASSERT_TRUE(m_pHandler->QueueStrings(2));
    for (int n = 0; n < 3; ++n)
    {
        EXPECT_EQ(tLines{c_szTwo}, Send(false));
        EXPECT_EQ(3, m_pHandler->GetPPCBufferSize());
        EXPECT_TRUE(m_pHandler->m_Sent.empty());
    }
    m_pHandler->ClearPPCBuffer();
    EXPECT_EQ(tLines(), Send(false));
    ASSERT_TRUE(m_pHandler->QueueStrings(1));
    EXPECT_EQ(Packet(58, {1}, 1) + Total(1, 1), Send(true));
}

TEST_F(PPCSender, GoodMessagesInFrontOfABadOneLeaveAndItStays)
{
    for (const int nGood : {1, 2, c_nFullOfStrings, c_nFullOfStrings + 3})
    {
        ASSERT_TRUE(m_pHandler->QueueStrings(nGood));
        m_pHandler->Add(BadMessage());
        ASSERT_TRUE(m_pHandler->QueueStrings(1));
        const int nLast = nGood > c_nFullOfStrings ? 3 : nGood;
        const tLines before = nGood > c_nFullOfStrings ? Packet(65000, {1}, 1710) : tLines();
        EXPECT_EQ(before + tLines{c_szTwo} + Packet(nLast * 38 + 20, {1}, nLast) + Total(nGood, nGood == nLast ? 1 : 2),
                  Send(true));
        EXPECT_EQ(tLines{c_szTwo}, Send(false));
        EXPECT_EQ(2, m_pHandler->GetPPCBufferSize());
        m_pHandler->ClearPPCBuffer();
    }
}

TEST_F(PPCSender, AnEmptyMessageLeavesAsZerosAndTheFirstOfEachArrayAlone)
{
    m_pHandler->Add(MessageOf(RecordOf(100, 0xff)));
    Send(true);
    m_pHandler->Add(std::unique_ptr<CRawPPCMsg[]>(new CRawPPCMsg[1]));
    std::unique_ptr<CRawPPCMsg[]> pThree(new CRawPPCMsg[3]);
    pThree[0].SetPPC(enInteger, 1, 2, 3, 4);
    pThree[0].Clear();
    pThree[1].SetPPC(enInteger, 1, 2, 3, 5);
    m_pHandler->Add(std::move(pThree));
    EXPECT_EQ(2, m_pHandler->GetPPCBufferSize());
    EXPECT_EQ(Packet(74, {1}, 2) + Total(2, 1), Send(true));
    tBytes expected(25, 0);
    Support::Append(expected, Hex("00000001 00 00000003 00000001 00000002 00000003 00000004 00000000"));
    EXPECT_EQ(expected, m_pHandler->Stream());
}

TEST_F(PPCSender, AHandlerThatWasNeverOpenedCantSend)
{
    m_pHandler = std::make_unique<CRecordingHandler>();
    m_pHandler->SetRemoteAddress("127.0.0.1", 0, 4000);
    ASSERT_TRUE(m_pHandler->QueueStrings(1));
    EXPECT_EQ(Packet(58, {0}, 1), Send(false));
}

TEST_F(PPCSender, APacketIsWrappedWithItsHeaderUpToItsLimit)
{
    const auto pPacket = std::make_unique<UDP_PACKET>();
    const tBytes data(64981, 0x5a);
    for (const int nSize : {0, 1, 64979, 64980})
    {
        std::memset(static_cast<void*>(pPacket.get()), 0x77, sizeof(UDP_PACKET));
        ASSERT_TRUE(m_pHandler->GenerateMultiplePPCPacket(data.data(), nSize, pPacket.get()));
        const unsigned char* pBytes = reinterpret_cast<const unsigned char*>(pPacket.get());
        tBytes expected = Hex("00000001 6553f100 00000001 00000001");
        Support::AppendBig(expected, static_cast<std::uint32_t>(nSize));
        expected.insert(expected.end(), data.begin(), data.begin() + nSize);
        EXPECT_TRUE(expected == tBytes(pBytes, pBytes + 20 + nSize)) << nSize;
    }
    for (const int nSize : {64981, INT_MAX, -1, INT_MIN})
    {
        EXPECT_FALSE(m_pHandler->GenerateMultiplePPCPacket(data.data(), nSize, pPacket.get())) << nSize;
    }
    EXPECT_FALSE(m_pHandler->GenerateMultiplePPCPacket(nullptr, 29, pPacket.get()));
    EXPECT_FALSE(m_pHandler->GenerateMultiplePPCPacket(data.data(), 29, nullptr));
    EXPECT_EQ(tLines(), m_Log.Take());
}

// ---- Queueing ------------------------------------------------------------------------------------------------------------------

// What became of the call: queued in silence, the one line of a refusal, or something wrong.
template <typename... Args>
std::string Queueing(CRecordingHandler& handler, Support::CDebugLog& log, const Args&... args)
{
    log.Take();
    const bool bQueued = handler.QueuePPC(args...);
    const tLines lines = log.Take();
    const int nSize = handler.CountAndClear();
    if (bQueued && nSize == 1 && lines.empty())
    {
        return "queued";
    }
    const bool bRefused = !bQueued && nSize == 0 && lines.size() == 1;
    return bRefused ? lines[0] : "wrong: " + std::to_string(nSize) + testing::PrintToString(lines);
}

std::string RefusalOf(int nType, int nPathType, int nPath, int nParam)
{
    return "CMsgHandlerBase::QueuePPC - refused: msg type (" + std::to_string(nType) + "), path type (" +
           std::to_string(nPathType) + "), path (" + std::to_string(nPath) + "), parameter (" + std::to_string(nParam) + ")";
}

TEST_F(PPCSender, OnlyTheValueOfItsTypeIsQueued)
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
        const bool bString = nType == 0, bFloat = nType == 1 || nType == 4;
        const auto outcome = [nType](bool bTaken) { return bTaken ? "queued" : RefusalOf(nType, 1, 0, 0); };
        EXPECT_EQ(outcome(bString), Queueing(*m_pHandler, m_Log, enType, enMicInput, 0, 0, RyGConsoleString("Vox")));
        EXPECT_EQ(outcome(bFloat), Queueing(*m_pHandler, m_Log, enType, enMicInput, 0, 0, 1.0f));
        EXPECT_EQ(outcome(!bString && !bFloat), Queueing(*m_pHandler, m_Log, enType, enMicInput, 0, 0, 1));
    }
}

TEST_F(PPCSender, AnAddressThatNamesNoParameterIsRefused)
{
    std::vector<std::vector<int>> addresses{{1, 0, 1, 0},     {1, 0, 0, 7},  {1, 1, 144, 0},
                                            {1, 1, 143, 280}, {1, 51, 0, 0}, {7, 1, 0, 0}};
    for (std::size_t unPlace = 0; unPlace < 4; ++unPlace)
    {
        for (const int nWrong : {-1, INT_MIN, INT_MAX})
        {
            addresses.push_back({1, 1, 0, 0});
            addresses.back()[unPlace] = nWrong;
        }
    }
    for (const std::vector<int>& address : addresses)
    {
        EXPECT_EQ(RefusalOf(address[0], address[1], address[2], address[3]),
                  Queueing(*m_pHandler, m_Log, static_cast<tagenPPCMessageType>(address[0]),
                           static_cast<tagenVirtualPathType>(address[1]), address[2], address[3], 1.0f));
    }
    EXPECT_EQ("queued", Queueing(*m_pHandler, m_Log, enRotary, enMicInput, 143, 279, 1.0f));
}

TEST_F(PPCSender, AMessageThatCouldNeverBeSentIsRefused)
{
    const std::unique_ptr<CRawPPCMsg[]> pErring = BadMessage();
    ASSERT_TRUE(pErring[0].SetPPC(enInteger, 1, 0, 0, 5));
    const std::unique_ptr<CRawPPCMsg[]> pCleared = MessageOf(RecordOf(29));
    pCleared[0].Clear();
    EXPECT_EQ(c_szUnsendable, Queueing(*m_pHandler, m_Log, CRawPPCMsg()));
    EXPECT_EQ(c_szUnsendable, Queueing(*m_pHandler, m_Log, BadMessage()[0]));
    EXPECT_EQ(c_szUnsendable, Queueing(*m_pHandler, m_Log, pErring[0]));
    EXPECT_EQ(c_szUnsendable, Queueing(*m_pHandler, m_Log, pCleared[0]));
    EXPECT_EQ(c_szUnsendable, Queueing(*m_pHandler, m_Log, MessageOf(RecordOf(64981))[0]));
}

TEST_F(PPCSender, AMessageIsCopiedWhateverItAddresses)
{
    const tBytes record = Hex("00000007 01 00000063 ffffffff 80000000 7fffffff 00000003 aabbcc");
    std::unique_ptr<CRawPPCMsg[]> pMessage = MessageOf(record);
    ASSERT_TRUE(m_pHandler->QueuePPC(pMessage[0]));
    ASSERT_TRUE(m_pHandler->QueuePPC(MessageOf(RecordOf(64980))[0]));
    pMessage.reset();
    EXPECT_EQ(Packet(48, {1}, 1) + Packet(65000, {1}, 1) + Total(2, 2), Send(true));
    ASSERT_EQ(2u, m_pHandler->m_Sent.size());
    EXPECT_EQ(record, tBytes(m_pHandler->m_Sent[0].bytes.begin() + 20, m_pHandler->m_Sent[0].bytes.end()));
}

// ---- While a datagram is being sent --------------------------------------------------------------------------------------------

// Collects lines, and does something, on another thread, while the first of them is logged.
class CSendHook
{
public:
    explicit CSendHook(const std::function<void()>& action) : m_Action(action), m_Sink{&CSendHook::Write, this}
    {
        RySocketIO::CUtility::SetDebugSink(&m_Sink);
    }
    ~CSendHook() { RySocketIO::CUtility::SetDebugSink(nullptr); }

    tLines m_Lines;
    bool m_bDone = false;

private:
    static void Write(void* pContext, const char* szLine)
    {
        CSendHook& hook = *static_cast<CSendHook*>(pContext);
        hook.m_Lines.push_back(szLine);
        if (!hook.m_bDone)
        {
            hook.m_bDone = true;
            std::thread(hook.m_Action).join();
        }
    }

    const std::function<void()> m_Action;
    const RySocketIO::stDebugSink m_Sink;
};

TEST_F(PPCSender, WhatIsQueuedDuringASendLeavesInTheSameCall)
{
    ASSERT_TRUE(m_pHandler->QueueStrings(c_nFullOfStrings + 1));
    CSendHook hook(
        [this]
        {
            EXPECT_EQ(1, m_pHandler->GetPPCBufferSize());
            EXPECT_TRUE(m_pHandler->QueueStrings(1));
        });
    EXPECT_TRUE(m_pHandler->SendAll());
    EXPECT_EQ(Packet(65000, {1}, 1710) + Packet(96, {1}, 2) + Total(1712, 2), hook.m_Lines);
}

TEST_F(PPCSender, WhatIsClearedDuringASendNeverLeaves)
{
    ASSERT_TRUE(m_pHandler->QueueStrings(2 * c_nFullOfStrings));
    CSendHook hook([this] { m_pHandler->ClearPPCBuffer(); });
    EXPECT_TRUE(m_pHandler->SendAll());
    EXPECT_EQ(Packet(65000, {1}, 1710) + Total(1710, 1), hook.m_Lines);
}

// The good ones may count as queued until the bad one is met: then a line for each says that it was gone already.
TEST_F(PPCSender, ClearingWhileRecordsArePackedTakesNothingThatComesLater)
{
    ASSERT_TRUE(m_pHandler->QueueStrings(3));
    m_pHandler->Add(BadMessage());
    CSendHook hook(
        [this]
        {
            m_pHandler->ClearPPCBuffer();
            EXPECT_TRUE(m_pHandler->QueuePPC(enInteger, enMicInput, 0, 0, 7) && m_pHandler->QueueStrings(1));
        });
    EXPECT_TRUE(m_pHandler->SendAll());
    EXPECT_EQ((std::vector<std::size_t>{134}), m_pHandler->Sizes());
    EXPECT_EQ(2, m_pHandler->GetPPCBufferSize());
    EXPECT_EQ(c_szTwo, hook.m_Lines.front());
    hook.m_Lines.clear();
    EXPECT_TRUE(m_pHandler->SendAll());
    EXPECT_EQ(Packet(87, {1}, 2) + Total(2, 1), hook.m_Lines);
}

TEST_F(PPCSender, ASecondSendAllMeanwhileIsRefused)
{
    ASSERT_TRUE(m_pHandler->QueueStrings(c_nFullOfStrings + 1));
    bool bSecond = true;
    CSendHook hook([&] { bSecond = m_pHandler->CClientMsgHandler::SendAll(); });
    EXPECT_TRUE(m_pHandler->SendAll());
    EXPECT_FALSE(bSecond);
    EXPECT_EQ(Packet(65000, {1}, 1710) + Packet(58, {1}, 1) + Total(1711, 2), hook.m_Lines);
}

// ---- The sender thread ---------------------------------------------------------------------------------------------------------

const tLines c_Created{"CClientMsgHandler::StartPPCSender - about to new!", "CClientMsgHandler::StartPPCSender - created sender"};
const tLines c_Refused{"CClientMsgHandler::StartPPCSender - already have sender"};

TEST_F(PPCSender, IsStartedOnceForGood)
{
    m_pHandler->StopPPCSender();
    EXPECT_EQ(tLines(), m_Log.Take());
    EXPECT_TRUE(m_pHandler->StartPPCSender(1));
    EXPECT_EQ(c_Created + tLines{"CClientMsgHandler::StartPPCSender start 1"}, m_Log.Take());
    EXPECT_FALSE(m_pHandler->StartPPCSender(1));
    EXPECT_EQ(c_Refused, m_Log.Take());
    m_pHandler->StopPPCSender();
    m_pHandler->StopPPCSender();
    EXPECT_EQ(tLines(), m_Log.Take());
    EXPECT_FALSE(m_pHandler->StartPPCSender(1));
    EXPECT_EQ(c_Refused, m_Log.Take());
}

TEST_F(PPCSender, AThreadThatCantBeHadIsLoggedAndStaysRefused)
{
    rlimit before = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const bool bStarted = m_pHandler->StartPPCSender(1);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_FALSE(bStarted);
    EXPECT_EQ(c_Created + tLines{"CClientMsgHandler::StartPPCSender start 0"}, m_Log.Take());
    EXPECT_FALSE(m_pHandler->StartPPCSender(1));
    EXPECT_EQ(c_Refused, m_Log.Take());
    ASSERT_TRUE(m_pHandler->QueueStrings(1));
    EXPECT_EQ(Packet(58, {1}, 1) + Total(1, 1), Send(true));
}

TEST_F(PPCSender, SendsWhatIsQueuedUntilItIsStopped)
{
    ASSERT_TRUE(m_pHandler->StartPPCSender(1));
    for (const std::size_t unSent : {1u, 2u, 3u})
    {
        ASSERT_TRUE(m_pHandler->QueueStrings(1));
        ASSERT_TRUE(m_pHandler->WaitUntil([&] { return m_pHandler->m_Sent.size() == unSent; }));
    }
    m_pHandler->StopPPCSender();
    const int nEntered = m_pHandler->m_nEntered;
    ASSERT_TRUE(m_pHandler->QueueStrings(c_nFullOfStrings + 1));
    EXPECT_EQ(c_nFullOfStrings + 1, m_pHandler->GetPPCBufferSize());
    EXPECT_EQ(nEntered, m_pHandler->m_nEntered);
    EXPECT_EQ(Packet(65000, {1}, 1710) + Packet(58, {1}, 1) + Total(1711, 2), Send(true));
}

TEST_F(PPCSender, CallsSendAllOncePerRoundAndNothingWithoutAHandler)
{
    CPPCSender nobodys(1, nullptr);
    nobodys.Do();
    CPPCSender sender(1, m_pHandler.get());
    EXPECT_EQ(0, m_pHandler->m_nEntered);
    sender.Do();
    EXPECT_EQ(1, m_pHandler->m_nEntered);
    ASSERT_TRUE(sender.Start(3));
    EXPECT_TRUE(m_pHandler->WaitUntil([this] { return m_pHandler->m_nLeft == 4; }));
    sender.Stop();
    EXPECT_EQ(4, m_pHandler->m_nEntered);
}

TEST_F(PPCSender, ThePeriodIsInMilliseconds)
{
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(m_pHandler->StartPPCSender(20));
    ASSERT_TRUE(m_pHandler->WaitUntil([this] { return m_pHandler->m_nLeft >= 4; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(59)); // three periods
}

TEST_F(PPCSender, TheLongestPeriodIsLongAndNoneIsNone)
{
    const auto pSlow = std::make_unique<CRecordingHandler>();
    ASSERT_TRUE(pSlow->StartPPCSender(INT_MAX));
    ASSERT_TRUE(pSlow->WaitUntil([&] { return pSlow->m_nLeft == 1; }));
    for (const int nPeriod : {0, -1, INT_MIN})
    {
        CPPCSender sender(nPeriod, m_pHandler.get());
        const int nBefore = m_pHandler->m_nLeft;
        ASSERT_TRUE(sender.Start(-1));
        EXPECT_TRUE(m_pHandler->WaitUntil([&] { return m_pHandler->m_nLeft >= nBefore + 100; })) << nPeriod;
    }
    EXPECT_EQ(1, pSlow->m_nEntered);
}

TEST_F(PPCSender, AnOversizedMessageHoldsSendAllUntilItIsCleared)
{
    ASSERT_TRUE(m_pHandler->QueueStrings(1));
    m_pHandler->Add(MessageOf(RecordOf(64981)));
    ASSERT_TRUE(m_pHandler->QueueStrings(1));
    CPPCSender sender(1, m_pHandler.get());
    ASSERT_TRUE(sender.Start(-1));
    EXPECT_FALSE(m_pHandler->WaitUntil([this] { return m_pHandler->m_nLeft > 0; }, std::chrono::milliseconds(50)));
    while (m_pHandler->GetPPCBufferSize() > 2)
    {
        std::this_thread::yield();
    }
    m_pHandler->ClearPPCBuffer();
    EXPECT_TRUE(m_pHandler->WaitUntil([this] { return m_pHandler->m_nLeft > 0; }));
    EXPECT_EQ(1u, m_pHandler->m_Sent.size());
    ASSERT_TRUE(m_pHandler->QueueStrings(1));
    EXPECT_TRUE(m_pHandler->WaitUntil([this] { return m_pHandler->m_Sent.size() == 2; }));
    const tLines one = Packet(58, {1}, 1) + Total(1, 1);
    EXPECT_EQ(one + one, m_Log.Take());
}

TEST_F(PPCSender, AnOversizedMessageLeavesTheProcessorToOthers)
{
    m_pHandler->Add(MessageOf(RecordOf(64981)));
    ASSERT_TRUE(m_pHandler->StartPPCSender(1));
    const std::clock_t before = std::clock();
    EXPECT_FALSE(m_pHandler->WaitUntil([this] { return m_pHandler->m_nLeft > 0; }, std::chrono::milliseconds(300)));
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC * 3 / 20); // half of the time
    m_pHandler->StopPPCSender();
}

TEST_F(PPCSender, StoppingEndsASendAllThatAnOversizedMessageHolds)
{
    for (const auto stop : {&CClientMsgHandler::StopPPCSender, &CClientMsgHandler::Shutdown})
    {
        const auto pHandler = std::make_unique<CRecordingHandler>();
        pHandler->Add(MessageOf(RecordOf(64981)));
        ASSERT_TRUE(pHandler->StartPPCSender(1));
        EXPECT_FALSE(pHandler->WaitUntil([&] { return pHandler->m_nLeft > 0; }, std::chrono::milliseconds(20)));
        while (pHandler->m_nEntered == 0)
        {
            std::this_thread::yield();
        }
        const auto start = std::chrono::steady_clock::now();
        (*pHandler.*stop)();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
        EXPECT_EQ(1, pHandler->m_nLeft);
        EXPECT_EQ(1, pHandler->GetPPCBufferSize());
    }
}

TEST_F(PPCSender, ItsHandlerMayGoAtAnyMoment)
{
    for (int n = 0; n < 60; ++n)
    {
        const auto pHandler = std::make_unique<CClientMsgHandler>(false);
        ASSERT_TRUE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
        pHandler->SetRemoteAddress("127.0.0.1", 0, static_cast<int>(pHandler->GetLocalPort()));
        ASSERT_TRUE(pHandler->StartPPCSender(0));
        for (int nPPC = 0; nPPC < 20; ++nPPC)
        {
            ASSERT_TRUE(pHandler->QueuePPC(enInteger, enMicInput, 0, 0, nPPC));
        }
        while (n % 2 == 0 && pHandler->GetPPCBufferSize() > 0)
        {
            std::this_thread::yield();
        }
    }
}

// ---- Many threads --------------------------------------------------------------------------------------------------------------

class PPCSenderThreads : public PPCSender
{
protected:
    enum : int
    {
        enProducers = 4,
        enEach = 2500
    };

    // Each producer queues 0, 1, 2 and so on under its own path.
    void StartProducers()
    {
        for (int nPath = 0; nPath < enProducers; ++nPath)
        {
            m_Producers.emplace_back(
                [this, nPath]
                {
                    for (int n = 0; n < enEach; ++n)
                    {
                        m_nRefused += m_pHandler->QueuePPC(enInteger, enMicInput, nPath, nPath, n) ? 0 : 1;
                    }
                });
        }
    }

    void JoinProducers()
    {
        for (std::thread& producer : m_Producers)
        {
            producer.join();
        }
        EXPECT_EQ(0, m_nRefused);
    }

    // The values that were sent, by producer.
    std::vector<std::vector<int>> Sent() const
    {
        std::vector<std::vector<int>> values(enProducers);
        const tBytes stream = m_pHandler->Stream();
        EXPECT_EQ(0u, stream.size() % 29);
        for (std::size_t unRecord = 0; unRecord < stream.size(); unRecord += 29)
        {
            values.at(BigAt(stream, unRecord + 13)).push_back(static_cast<int>(BigAt(stream, unRecord + 25)));
        }
        return values;
    }

    void ExpectSentInOrder() const
    {
        for (const std::vector<int>& values : Sent())
        {
            EXPECT_EQ(values.end(), std::adjacent_find(values.begin(), values.end(), std::greater_equal<int>()));
        }
    }

    // The last that was sent so far, -1 when nothing was.
    int LastValue() const
    {
        const auto& sent = m_pHandler->m_Sent;
        return sent.empty() ? -1 : static_cast<int>(BigAt(sent.back().bytes, sent.back().bytes.size() - 4));
    }

    std::vector<std::thread> m_Producers;
    std::atomic<int> m_nRefused{0};
};

TEST_F(PPCSenderThreads, NothingIsLostOrRepeatedAndEachProducersOrderStays)
{
    ASSERT_TRUE(m_pHandler->StartPPCSender(0));
    StartProducers();
    JoinProducers();
    EXPECT_TRUE(m_pHandler->WaitUntil([this] { return m_pHandler->m_unPayload >= enProducers * enEach * 29; }));
    m_pHandler->StopPPCSender();
    std::vector<int> expected(enEach);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_TRUE(std::vector<std::vector<int>>(enProducers, expected) == Sent());
}

TEST_F(PPCSenderThreads, StoppingLeavesQueuedWhatWasNotSent)
{
    ASSERT_TRUE(m_pHandler->StartPPCSender(0));
    StartProducers();
    m_pHandler->WaitUntil([this] { return !m_pHandler->m_Sent.empty(); });
    m_pHandler->StopPPCSender();
    JoinProducers();
    EXPECT_EQ(enProducers * enEach - m_pHandler->GetPPCBufferSize(), static_cast<int>(m_pHandler->m_unPayload / 29));
    m_pHandler->SendAll();
    EXPECT_EQ(std::size_t(enProducers * enEach * 29), m_pHandler->m_unPayload);
    ExpectSentInOrder();
}

TEST_F(PPCSenderThreads, WhateverIsClearedMeanwhileNothingElseIsLostAndNothingRepeated)
{
    ASSERT_TRUE(m_pHandler->StartPPCSender(0));
    std::atomic<bool> bProduced{false};
    int nCleared = 0;
    std::thread clearer(
        [&]
        {
            while (!bProduced)
            {
                nCleared += m_pHandler->CountAndClear();
            }
        });
    StartProducers();
    JoinProducers();
    bProduced = true;
    clearer.join();
    EXPECT_TRUE(m_pHandler->QueuePPC(enInteger, enMicInput, 0, 0, enEach));
    EXPECT_TRUE(m_pHandler->WaitUntil([this] { return LastValue() == enEach; }));
    m_pHandler->StopPPCSender();
    EXPECT_GE(static_cast<int>(m_pHandler->m_unPayload / 29) + nCleared, enProducers * enEach + 1);
    ExpectSentInOrder();
}

TEST_F(PPCSenderThreads, TheBufferMayBeClearedAgainAndAgainMeanwhile)
{
    ASSERT_TRUE(m_pHandler->StartPPCSender(0));
    StartProducers();
    for (int n = 0; n < 20000; ++n)
    {
        m_pHandler->ClearPPCBuffer();
    }
    JoinProducers();
    EXPECT_TRUE(m_pHandler->QueuePPC(enInteger, enMicInput, 0, 0, enEach));
    EXPECT_TRUE(m_pHandler->WaitUntil([this] { return LastValue() == enEach; }));
    m_pHandler->StopPPCSender();
    EXPECT_EQ(0, m_pHandler->GetPPCBufferSize());
    ExpectSentInOrder();
}

TEST_F(PPCSenderThreads, TwoInSendAllAtOnceSendEachMessageOnce)
{
    std::atomic<bool> bProduced{false};
    const auto send = [&]
    {
        while (!bProduced || m_pHandler->GetPPCBufferSize() > 0)
        {
            m_pHandler->SendAll();
        }
    };
    std::thread first(send), second(send);
    StartProducers();
    JoinProducers();
    bProduced = true;
    first.join();
    second.join();
    for (std::vector<int>& values : Sent())
    {
        std::sort(values.begin(), values.end());
        ASSERT_EQ(static_cast<std::size_t>(enEach), values.size());
        EXPECT_EQ(values.end(), std::adjacent_find(values.begin(), values.end()));
    }
}

TEST_F(PPCSender, EachRecordThatIsClearedWhilePackedIsLoggedAsGone)
{
    ASSERT_TRUE(m_pHandler->QueueStrings(3));
    m_pHandler->Add(BadMessage());
    CSendHook hook([this] { m_pHandler->ClearPPCBuffer(); });
    m_pHandler->SendAll();
    EXPECT_EQ(
        3, std::count(hook.m_Lines.begin(), hook.m_Lines.end(), "CClientMsgHandler::GetPPCBufferSize - remove from queue failed"));
}

} // namespace
