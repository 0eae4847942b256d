// A test for each row of the table of calls by thread in Documentation/Architecture.md, which names it: what the row allows is done
// at the same time. The thread sanitizer tells whether it may be.
#include "ClientComms/ClientMsgHandler.h"
#include "ClientComms/ImageSync.h"
#include "ClientComms/RawPPCQueue.h"
#include "ClientComms/SimpleUDPPPCSender.h"
#include "Diagnostics/DiagnosticsSocketSender.h"
#include "Diagnostics/DiagnosticsXMLReader.h"
#include "Diagnostics/RouterDiagnostics.h"
#include "Diagnostics/VORNXMLWriter.h"
#include "LogicalControls/DefaultParameterValues.h"
#include "LogicalControls/ScopeMask.h"
#include "Messages/RawPPCMsg.h"
#include "Runtime/Clock.h"
#include "Runtime/FailurePolicy.h"
#include "Runtime/Locks.h"
#include "Runtime/Memory.h"
#include "RySocketIO/CUtility.h"
#include "Support/Bytes.h"
#include "Support/Records.h"
#include "Support/SystemCalls.h"
#include "Support/Updates.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{

using RySocketIO::CIPString;
using Support::tBytes;

typedef std::function<void(int)> tCall;

// Threads that go on when all of them have come.
class CMeeting
{
public:
    explicit CMeeting(std::size_t unThreads) : m_unThreads(unThreads), m_unCame(0) {}

    // The meetings are counted from 1.
    void Await(std::size_t unMeeting)
    {
        for (++m_unCame; m_unCame < unMeeting * m_unThreads;)
        {
            std::this_thread::yield();
        }
    }

private:
    const std::size_t m_unThreads;
    std::atomic<std::size_t> m_unCame;
};

// Each of the calls so many times, with the number of the round, on a thread of its own. They keep in step, so that none is through
// before another one has begun; within a few rounds nothing but the library puts them in order.
void AtOnce(int nRounds, const std::vector<tCall>& calls)
{
    constexpr int c_nTogether = 4;
    CMeeting meeting(calls.size());
    std::vector<std::thread> threads;
    for (const tCall& call : calls)
    {
        threads.emplace_back(
            [&meeting, &call, nRounds]
            {
                for (int nRound = 0; nRound < nRounds; ++nRound)
                {
                    if (nRound % c_nTogether == 0)
                    {
                        meeting.Await(static_cast<std::size_t>(nRound / c_nTogether) + 1);
                    }
                    call(nRound);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

// The same call on each of two threads, which have nothing in common.
void EachOnAThread(int nRounds, const tCall& call)
{
    AtOnce(nRounds, {call, call});
}

// An update of switches, one byte long.
tBytes SmallUpdate(int nType)
{
    tBytes update = Support::UpdateHeader(static_cast<std::uint32_t>(nType), 9);
    Support::AppendArray(update, tBytes(5, static_cast<unsigned char>(nType)));
    return update;
}

tBytes SmallDatagram(int nRound)
{
    return Support::Datagram(0, static_cast<std::uint32_t>(nRound), 1, 1,
                             SmallUpdate(nRound % 2 == 0 ? enMCUpdateSurface : enMCUpdateRotary));
}

std::uint32_t SumOf(const CMCUpdateMsg& update)
{
    std::uint32_t unSum = 0;
    for (const tagenPPCMessageType enType : {enString, enSwitch})
    {
        const unsigned char* pData = nullptr;
        int nLength = 0;
        update.GetArray(enType, pData, nLength);
        unSum = std::accumulate(pData, pData + nLength, unSum);
    }
    return unSum;
}

// Looks at each update twice: what came in between must have stayed out.
template <class Handler>
class CLooking : public Handler
{
public:
    template <typename Argument>
    explicit CLooking(Argument&& argument) : Handler(std::forward<Argument>(argument))
    {
    }
    ~CLooking() override { this->Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        const std::uint32_t unSum = SumOf(update);
        const int nResult = Handler::ProcessMCUpdate(update);
        std::this_thread::yield();
        EXPECT_EQ(unSum, SumOf(update));
        m_unSeen += this->GetUpdateSequence() + this->GetUpdateId();
        return nResult;
    }

    std::uint32_t m_unSeen = 0;
};

class CLookingHandler : public CLooking<CClientMsgHandler>
{
public:
    CLookingHandler() : CLooking<CClientMsgHandler>(false) {}
    ~CLookingHandler() override { Shutdown(); }

    // On the loopback interface, sending to itself.
    void Open()
    {
        EXPECT_TRUE(InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
        SetRemoteAddress("127.0.0.1", 0, static_cast<int>(GetLocalPort()));
    }

    void Receive(tBytes datagram, const char* szSender)
    {
        OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()), CIPString(szSender));
    }

    // As a socket does that asks where to.
    void ReceiveIntoRoom(const tBytes& datagram)
    {
        long lSize = 0;
        char* const pRoom = ReceiveRoom(lSize);
        std::memcpy(pRoom, datagram.data(), datagram.size());
        OnReceivedData(pRoom, static_cast<long>(datagram.size()), CIPString("10.0.0.1"));
    }
};

std::unique_ptr<CLookingHandler> OpenHandler()
{
    auto pHandler = std::make_unique<CLookingHandler>();
    pHandler->Open();
    return pHandler;
}

bool QueueNumber(CMsgHandlerBase& handler, int nNumber)
{
    return handler.QueuePPC(enInteger, enMicInput, 0, 0, nNumber);
}

// False when a handler's counter stays at 0 for ten seconds.
bool Comes(const CMsgHandlerBase& handler, enReceiveCounter enCounter)
{
    for (int nTry = 0; nTry < 10000 && handler.GetStatistics().aunCount[enCounter] == 0; ++nTry)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return handler.GetStatistics().aunCount[enCounter] > 0;
}

std::string Report(int nParameter)
{
    VORNXMLWriter writer;
    writer.start_xml(XMLDiagnostics::c_strFormatVersion.c_str(), XMLDiagnostics::XNT_SURFACE, nParameter);
    writer.add_attribute(nParameter, nParameter, 0, nullptr);
    return writer.m_strDocument;
}

bool Parse(diagnostics_xml_reader& reader, std::string strReport)
{
    return reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size()));
}

} // namespace

// ---- The handler --------------------------------------------------------------------------------------------------------------

TEST(ThreadTable, AnyThreadQueues)
{
    const auto pHandler = OpenHandler();
    ASSERT_TRUE(pHandler->StartPPCSender(0));
    CRawPPCMsg message;
    ASSERT_TRUE(message.SetPPC(enSwitch, enMicInput, 0, 0, 1));
    AtOnce(1000, {[&](int n) { EXPECT_TRUE(QueueNumber(*pHandler, n)); },
                  [&](int) { EXPECT_TRUE(pHandler->QueuePPC(enString, enMicInput, 0, 1, RyGConsoleString("Vox"))); },
                  [&](int) { EXPECT_TRUE(pHandler->QueuePPC(enFader, enMicInput, 0, 0, 0.5f)); },
                  [&](int) { EXPECT_TRUE(pHandler->QueuePPC(message)); }, [&](int) { EXPECT_GE(pHandler->GetPPCBufferSize(), 0); },
                  [&](int n) { n % 8 == 0 ? pHandler->ClearPPCBuffer() : void(); }});
    pHandler->Shutdown();
    pHandler->ClearPPCBuffer();
    EXPECT_EQ(0, pHandler->GetPPCBufferSize());
}

TEST(ThreadTable, OneThreadSends)
{
    const auto pHandler = OpenHandler();
    AtOnce(1000, {[&](int) { pHandler->SendAll(); }, [&](int) { pHandler->SendAll(); },
                  [&](int n) { EXPECT_TRUE(QueueNumber(*pHandler, n)); }, [&](int) { pHandler->UpdateBMA(); }});
    pHandler->SendAll();
    EXPECT_EQ(0, pHandler->GetPPCBufferSize());
}

TEST(ThreadTable, OneThreadReceives)
{
    const auto pHandler = std::make_unique<CLookingHandler>();
    AtOnce(2000, {[&](int n)
                  {
                      tBytes update = SmallUpdate(enMCUpdateSurface);
                      pHandler->Receive(SmallDatagram(n), "10.0.0.1");
                      pHandler->ReceiveIntoRoom(SmallDatagram(n));
                      pHandler->ReceivedMCData(update.data(), static_cast<long>(update.size()));
                  },
                  [&](int) { pHandler->UpdateBMA(); },
                  [&](int n)
                  {
                      QueueNumber(*pHandler, n);
                      pHandler->SendAll();
                  }});
    EXPECT_EQ(6000u, pHandler->GetStatistics().aunCount[enCountUpdates]);
}

TEST(ThreadTable, TheApplicationApplies)
{
    const auto pHandler = OpenHandler();
    ASSERT_TRUE(pHandler->StartPPCSender(1));
    RySocketIO::CSocket mc(RySocketIO::enConnectionUDP, false, false);
    ASSERT_TRUE(mc.InitialiseLocalSockets(0, "127.0.0.1", nullptr, 1));
    AtOnce(2000, {[&](int n)
                  {
                      const tBytes datagram = SmallDatagram(n);
                      mc.Send("127.0.0.1", pHandler->GetLocalPort(), reinterpret_cast<const char*>(datagram.data()),
                              static_cast<long>(datagram.size()));
                  },
                  [&](int n)
                  {
                      pHandler->UpdateBMA();
                      n % 16 == 0 ? pHandler->ClearReceiveErrors() : void();
                  },
                  [&](int n) { QueueNumber(*pHandler, n); }});
    EXPECT_TRUE(Comes(*pHandler, enCountUpdates));
    pHandler->UpdateBMA();
    EXPECT_GT(pHandler->GetStatistics().aunCount[enCountApplied], 0u);
}

TEST(ThreadTable, TheApplicationAsksForTimes)
{
    const auto pHandler = std::make_unique<CLookingHandler>();
    AtOnce(2000, {[&](int n) { pHandler->Receive(SmallDatagram(n), "10.0.0.1"); },
                  [&](int)
                  {
                      pHandler->UpdateBMA();
                      EXPECT_GE(pHandler->GetSurfUpdatePeriod(), -1.0f);
                      EXPECT_GE(pHandler->GetRotsUpdatePeriod(), -1.0f);
                      EXPECT_GE(pHandler->GetMCTimeouts(), 0);
                  }});
}

TEST(ThreadTable, TheApplicationAsksForTheSender)
{
    const auto pHandler = std::make_unique<CLookingHandler>();
    CIPString sender;
    AtOnce(2000, {[&](int n) { pHandler->Receive(SmallDatagram(n), n % 2 == 0 ? "10.0.0.1" : "10.0.0.2"); },
                  [&](int)
                  {
                      pHandler->UpdateBMA();
                      pHandler->GetLastSender(sender);
                  }});
    pHandler->GetLastSender(sender);
    EXPECT_STREQ("10.0.0.2", sender.Text());
}

TEST(ThreadTable, AnyThreadReadsStatistics)
{
    const auto pHandler = OpenHandler();
    ASSERT_TRUE(pHandler->StartPPCSender(0)); // what it sends it receives
    const auto read = [&](int)
    {
        const stReceiveStatistics statistics = pHandler->GetStatistics();
        EXPECT_GE(statistics.aunCount[enCountDatagrams], statistics.aunCount[enCountUpdates]);
        EXPECT_EQ(0u, pHandler->GetSocketStatistics().unTruncated);
    };
    AtOnce(2000, {read, read, [&](int n) { QueueNumber(*pHandler, n); }, [&](int) { pHandler->UpdateBMA(); }});
}

TEST(ThreadTable, AnyThreadAsksTheSocket)
{
    const auto pHandler = OpenHandler();
    ASSERT_TRUE(pHandler->StartPPCSender(0));
    const unsigned int unPort = pHandler->GetLocalPort();
    const auto ask = [&](int)
    {
        EXPECT_EQ(unPort, pHandler->GetLocalPort());
        EXPECT_LT(0, pHandler->GetReceiveBufferSize());
    };
    AtOnce(1000, {ask, ask, [&](int n) { QueueNumber(*pHandler, n); }, [&](int) { pHandler->UpdateBMA(); }});
}

TEST(ThreadTable, AnyThreadSendsByTheSocket)
{
    const auto pHandler = OpenHandler();
    const tBytes datagram = SmallDatagram(0);
    const auto send = [&](int)
    {
        EXPECT_TRUE(pHandler->Send("127.0.0.1", pHandler->GetLocalPort(), reinterpret_cast<const char*>(datagram.data()),
                                   static_cast<long>(datagram.size())));
    };
    AtOnce(1000, {send, send, [&](int) { pHandler->UpdateBMA(); }});
}

TEST(ThreadTable, AnyThreadStops)
{
    for (int nHandler = 0; nHandler < 20; ++nHandler)
    {
        const auto pHandler = OpenHandler();
        ASSERT_TRUE(pHandler->StartPPCSender(0));
        QueueNumber(*pHandler, nHandler);
        AtOnce(3, {[&](int) { pHandler->Shutdown(); }, [&](int) { pHandler->StopPPCSender(); },
                   [&](int) { pHandler->StopReceiving(); }, [&](int) { pHandler->Shutdown(); },
                   [&](int n) { QueueNumber(*pHandler, n); }, [&](int) { pHandler->UpdateBMA(); },
                   [&](int) { pHandler->GetStatistics(); }});
    }
}

TEST(ThreadTable, SetUpBeforeTheThreads)
{
    for (int nHandler = 0; nHandler < 20; ++nHandler)
    {
        const auto pHandler = std::make_unique<CLookingHandler>();
        AtOnce(1, {[&](int)
                   {
                       EXPECT_TRUE(pHandler->AcceptSender("127.0.0.1"));
                       pHandler->SetStrictMatching(true);
                       pHandler->Open();
                       pHandler->ResetRemoteAddresses();
                       pHandler->SetRemoteAddress("127.0.0.1", 0, static_cast<int>(pHandler->GetLocalPort()));
                       EXPECT_TRUE(pHandler->StartPPCSender(0)); // both threads look at what was set
                   },
                   [&](int n) { EXPECT_TRUE(QueueNumber(*pHandler, n)); }});
        EXPECT_TRUE(Comes(*pHandler, enCountForeign));
        EXPECT_EQ(0u, pHandler->GetStatistics().aunCount[enRejectedSender]);
    }
}

TEST(ThreadTable, ReassemblyIsOfOneThread)
{
    const auto pHandler = std::make_unique<CMsgHandlerBase>();
    tBytes buffer(1000);
    AtOnce(500, {[&](int n)
                 {
                     const std::uint32_t unId = static_cast<std::uint32_t>(n);
                     for (const std::uint32_t unNumber : {1u, 2u})
                     {
                         const tBytes datagram = Support::Datagram(0, unId, unNumber, 2, tBytes(100));
                         const UDP_PACKET* apTable[2] = {};
                         unsigned char* pBuffer = buffer.data();
                         int nSize = static_cast<int>(buffer.size());
                         pHandler->ValidatePacketSequence(reinterpret_cast<const char*>(datagram.data()),
                                                          static_cast<long>(datagram.size()), &pBuffer, nSize);
                         EXPECT_FALSE(pHandler->LocatePacketsOfMessage(apTable, n, 2)); // the last one is not stored
                     }
                 },
                 [&](int n) { QueueNumber(*pHandler, n); }, [&](int) { pHandler->GetStatistics(); }});
    EXPECT_EQ(500u, pHandler->GetStatistics().aunCount[enCountCompleting]);
}

TEST(ThreadTable, TheFollowersImageIsTheApplications)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pFollower = std::make_unique<CLooking<CImageFollower>>(*pImage);
    std::vector<tBytes> datagrams = Support::Datagrams(1, Support::Update(*pImage, enMCUpdateSurface));
    AtOnce(100, {[&](int)
                 {
                     for (tBytes& datagram : datagrams)
                     {
                         pFollower->OnReceivedData(reinterpret_cast<char*>(datagram.data()), static_cast<long>(datagram.size()),
                                                   CIPString("10.0.0.1"));
                     }
                 },
                 [&](int)
                 {
                     int nValue = -1;
                     pFollower->UpdateBMA();
                     pImage->GetPPC(enInteger, enMicInput, 0, 0, nValue);
                     EXPECT_EQ(0, nValue);
                     EXPECT_GE(pFollower->GetUpdatesApplied() + pFollower->GetUpdatesOvertaken(),
                               pFollower->GetTypesReceived() != 0);
                 },
                 [&](int n)
                 {
                     QueueNumber(*pFollower, n);
                     pFollower->SendAll();
                 }});
}

// ---- Objects of one thread ----------------------------------------------------------------------------------------------------

TEST(ThreadTable, EachImageOnAThread)
{
    EachOnAThread(2,
                  [](int)
                  {
                      const auto pImage = std::make_unique<CBMAContainer>();
                      const auto pShow = std::make_unique<CBMAContainer>(*pImage);
                      CCBMAContainerScopeMask mask;
                      std::vector<stPPCWithSI> records(100);
                      ApplyDefaults(*pImage);
                      pImage->SetPPC(enFader, enMicInput, 0, 0, -6.5f, false, false);
                      pImage->SetPPCSI(enFader, enMicInput, 0, 0, 1.0f, false);
                      pImage->SetPPCSafeScope(enFader, enMicInput, 0, 0, 1);
                      pImage->SetPPCRecallScope(enFader, enMicInput, 0, 0, 1);
                      mask.BlockAssign(1);
                      pImage->ExportScopedParameters(*pShow, true, true, &mask);
                      pImage->SetReadBlock(enFader, enMicInput, 0, 0);
                      EXPECT_EQ(100, pImage->BlockReadPPC(records.data(), 100, CBMAContainer::m_anScopeMasks[0]));
                      EXPECT_EQ(100, pShow->BlockWritePPC(records.data(), 100, CBMAContainer::m_anScopeMasks[0]));
                      float fLevel = 0;
                      pShow->GetPPC(enFader, enMicInput, 0, 0, fLevel);
                      EXPECT_EQ(-6.5f, fLevel);
                      pShow->UpdateXors();
                      EXPECT_NE(0u, pShow->GetXorVal(enFader));
                  });
}

TEST(ThreadTable, EachMessageOnAThread)
{
    EachOnAThread(5,
                  [](int n)
                  {
                      const auto pImage = std::make_unique<CBMAContainer>();
                      const auto pOther = std::make_unique<CBMAContainer>();
                      CMCUpdateMsg message;
                      EXPECT_TRUE(BuildMCUpdate(*pImage, enMCUpdateSurface, message));
                      EXPECT_EQ(0x7cu, ApplyMCUpdate(message, *pOther));
                      const tBytes records = Support::Hex(Support::c_szStringRecord);
                      EXPECT_EQ(1, ApplyPPCs(records.data(), static_cast<long>(records.size()), *pImage).nApplied);
                      CPPCStreamReader reader(records.data(), static_cast<long>(records.size()));
                      EXPECT_TRUE(reader.Next());
                      std::unique_ptr<CRawPPCMsg[]> pChange(new CRawPPCMsg[1]);
                      EXPECT_TRUE(pChange[0].SetPPC(enInteger, enMicInput, 0, 0, n));
                      CRawPPCQueue queue;
                      EXPECT_TRUE(queue.AddMsgToTail(pChange.release()) && queue.RemoveFront());
                      CUpdateOrder order;
                      order.SetNewest(1, 1, CUpdateOrder::tTime());
                      EXPECT_FALSE(order.IsNewer(0, 1, CUpdateOrder::tTime()));
                  });
}

TEST(ThreadTable, EachSimpleSenderOnAThread)
{
    EachOnAThread(20,
                  [](int n)
                  {
                      Support::CSocketRecorder recorder;
                      const auto pImage = std::make_unique<CBMAContainer>();
                      SimpleUDPPPCSender sender;
                      EXPECT_TRUE(sender.InitComms());
                      sender.SendPPCMessage(enInteger, enMicInput, 0, 15, n, false);
                      EXPECT_TRUE(sender.LastSendSucceeded());
                      pImage->SetUseSimplePPCSender(true);
                      pImage->InitSimplePPCSenderComms();
                      pImage->SetPPC(enInteger, enMicInput, 0, 15, n, false, false);
                      EXPECT_EQ(2u, recorder.sent.size());
                  });
}

TEST(ThreadTable, EachReportOnAThread)
{
    EachOnAThread(500,
                  [](int n)
                  {
                      Support::CSocketRecorder recorder;
                      CDiagnosticsSocketSender sender;
                      EXPECT_TRUE(sender.EstablishMulticastTransmitter(XMLDiagnostics::c_strMulticastGroup.c_str(), 7070));
                      const std::string strReport = Report(n);
                      sender.Send(strReport.data(), static_cast<unsigned int>(strReport.size()));
                      EXPECT_EQ(1u, recorder.sent.size());
                  });
}

// ---- Report readers -----------------------------------------------------------------------------------------------------------

TEST(ThreadTable, AnyThreadParses)
{
    diagnostics_xml_reader reader;
    AtOnce(500,
           {[&](int n) { EXPECT_TRUE(Parse(reader, Report(n))); }, [&](int n) { EXPECT_TRUE(Parse(reader, Report(1000 + n))); },
            [&](int n)
            {
                std::string strReport = Report(n);
                EXPECT_TRUE(reader.parseAndCheckForValidMessage(&strReport[0], static_cast<int>(strReport.size())));
            }});
    EXPECT_EQ(1000u, reader.GetMap().size());
}

TEST(ThreadTable, EachReaderOnAThread)
{
    EachOnAThread(50,
                  [](int n)
                  {
                      diagnostics_xml_reader reader;
                      reader.SetMapLimit(1);
                      EXPECT_TRUE(Parse(reader, Report(n)));
                      EXPECT_TRUE(reader.validate(SCHEMA_FILE));
                      EXPECT_TRUE(reader.find_parameter(n));
                      EXPECT_EQ(std::to_string(n), reader.get_at(n).v);
                      EXPECT_EQ(n, reader.GetDeviceID());
                      EXPECT_STREQ("SURFACE", reader.GetDeviceType());
                      EXPECT_EQ("", reader.GetError());
                      reader.ClearMap();
                  });
}

// ---- What everybody shares ----------------------------------------------------------------------------------------------------

TEST(ThreadTable, AnyThreadReadsTables)
{
    EachOnAThread(500,
                  [](int n)
                  {
                      const int nPath = n % canMaxPaths[enMicInput];
                      EXPECT_TRUE(IsParameterAddress(enFader, enMicInput, nPath, 0));
                      float fDefault = 0;
                      EXPECT_TRUE(
                          GetDefaultPPC(enFader, enMicInput, canCommonParamTypesTable[enCommonFader][enMicInput], fDefault));
                      EXPECT_EQ("Mic" + std::to_string(nPath + 1), ExpandDefaultName("Mic%ch%", nPath).Text());
                      EXPECT_EQ(144, CMaxPathParameterArray().GetMaxPathOfType(enMicInput));
                      EXPECT_EQ(6, CarriedArrays(enMCUpdateSurface).nLast);
                      EXPECT_EQ(5, CountFragments(302188));
                      UDP_PACKET packet;
                      EXPECT_EQ(21, MakeFragment(enDatagramPPC, 0, reinterpret_cast<const unsigned char*>("x"), 1, 1, packet));
                      EXPECT_STRNE("", ReceiveCounterText(enRejectedHeader));
                      EXPECT_EQ("1.23e+03", XMLDiagnostics::float2String(1234.5f, 3));
                      EXPECT_EQ(n, XMLDiagnostics::string2Int(XMLDiagnostics::int2String(n)));
                      EXPECT_NE(nullptr, XMLDiagnosticsParametersDSP::GetName(0));
                      std::ostringstream text;
                      text << RouterDiagnostics::NT_SURFACE << RouterDiagnostics::PORT_LOCAL_ROUTER;
                      EXPECT_NE("", text.str());
                  });
}

std::atomic<int> g_nLines{0};

void CountLine(void*, const char*)
{
    ++g_nLines;
}

TEST(ThreadTable, AnyThreadLogs)
{
    static const RySocketIO::stDebugSink aSinks[2] = {{CountLine, nullptr}, {CountLine, nullptr}};
    const auto log = [](int n) { RySocketIO::CUtility::Debug("%d", n); };
    AtOnce(2000, {log, log, [](int n) { RySocketIO::CUtility::SetDebugSink(&aSinks[n % 2]); }});
    RySocketIO::CUtility::Debug("one more");
    RySocketIO::CUtility::SetDebugSink(nullptr);
    EXPECT_GT(g_nLines, 0);
}

TEST(ThreadTable, AnyThreadReadsTheClock)
{
    CClock::SetSource([] { return std::int64_t(5000000); });
    EachOnAThread(2000,
                  [](int)
                  {
                      EXPECT_EQ(5000000, CClock::Microseconds());
                      EXPECT_EQ(5u, CClock::Seconds());
                  });
    CClock::SetSource(nullptr);
}

TEST(ThreadTable, AnyThreadLocks)
{
    CMutex mutex(CMutex::enErrorCheck);
    CCritSec section;
    CRWMutex shared;
    CSema wakes("wakes");
    int nByMutex = 0, nBySection = 0, nShared = 0;
    const auto count = [&](int n)
    {
        const CLockGuard<CMutex> guard(mutex);
        n % 2 == 0 ? ++nByMutex : --nByMutex;
    };
    const auto countBySection = [&](int)
    {
        const CLockGuard<CCritSec> guard(section);
        ++nBySection;
    };
    const auto write = [&](int)
    {
        if (shared.Write().Lock())
        {
            ++nShared;
            shared.Write().Unlock();
        }
        wakes.Post();
    };
    const auto read = [&](int)
    {
        wakes.Wait();
        if (shared.Read().Lock())
        {
            const int nSeen = nShared;
            shared.Read().Unlock();
            EXPECT_GT(nSeen, 0);
        }
    };
    AtOnce(500, {count, count, countBySection, countBySection, write, write, read, read});
    EXPECT_EQ(0, nByMutex);
    EXPECT_EQ(1000, nBySection);
}

TEST(ThreadTable, AnyThreadReports)
{
    testing::internal::CaptureStderr();
    EachOnAThread(20,
                  [](int)
                  {
                      AssertDoNothing policy;
                      InfoOnFail info;
                      policy.ReportWhat("CHECK", "f", "file", 1, "x > 0", "message", 0);
                      policy.DoAction();
                      GetBackTrace(policy, 0);
                      info.ReportWhat("INFO", "f", "file", 2, "x > 0", nullptr, 0);
                      info.DoAction();
                  });
    EXPECT_NE("", testing::internal::GetCapturedStderr());
}

TEST(ThreadTable, AnyThreadAllocates)
{
    EachOnAThread(500,
                  [](int n)
                  {
                      char* const pMemory = static_cast<char*>(GBMalloc(100));
                      std::memset(pMemory, n, 100);
                      void* const pPage = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
                      EXPECT_EQ(0, LogMprotect(pPage, 4096, PROT_READ | PROT_WRITE));
                      munmap(pPage, 4096);
                      GBFree(pMemory);
                  });
}
