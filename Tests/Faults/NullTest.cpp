#include "ClientComms/ImageSync.h"

#include "ClientComms/SimpleUDPPPCSender.h"
#include "Diagnostics/DiagnosticsSocketSender.h"
#include "Diagnostics/DiagnosticsXMLReader.h"
#include "Diagnostics/VORNXMLWriter.h"
#include "LogicalControls/DefaultParameterValues.h"
#include "LogicalControls/ScopeMask.h"
#include "Runtime/FailurePolicy.h"
#include "Runtime/Locks.h"
#include "Runtime/Memory.h"
#include "RySocketIO/CUtility.h"
#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <netinet/in.h>

#include <memory>

// Null where a pointer is taken.
namespace
{

using Support::tBytes;

const char c_szLoopback[] = "127.0.0.1";

class CPlainHandler : public CClientMsgHandler
{
public:
    CPlainHandler() : CClientMsgHandler(false) {}
    ~CPlainHandler() override { Shutdown(); }
};

tBytes UpdateDatagram()
{
    tBytes update = Support::UpdateHeader(enMCUpdateRotary, 8);
    Support::AppendArray(update, {1, 2, 3, 4});
    return Support::Datagram(0, 1, 1, 1, update);
}

} // namespace

TEST(MisuseOfNull, AHandlerTakesNone)
{
    const auto pHandler = std::make_unique<CPlainHandler>();
    unsigned char acBuffer[10] = {};
    unsigned char* pBuffer = nullptr;
    int nSize = 10;
    const tBytes datagram = UpdateDatagram();
    const char* pData = reinterpret_cast<const char*>(datagram.data());
    const long lLength = static_cast<long>(datagram.size());
    EXPECT_EQ(-1, pHandler->ValidatePacketSequence(nullptr, lLength, &pBuffer, nSize));
    EXPECT_EQ(-1, pHandler->ValidatePacketSequence(pData, lLength, &pBuffer, nSize));
    EXPECT_EQ(-1, pHandler->ValidatePacketSequence(pData, lLength, nullptr, nSize));
    pBuffer = acBuffer;
    EXPECT_EQ(-1, pHandler->ValidatePacketSequence(nullptr, -1, &pBuffer, nSize));
    EXPECT_FALSE(pHandler->LocatePacketsOfMessage(nullptr, 1, 1));
    EXPECT_FALSE(pHandler->GenerateMultiplePPCPacket(acBuffer, 1, nullptr));
    pHandler->SetRemoteAddress(nullptr, 0, 9);
    pHandler->OnReceivedData(nullptr, 100, c_szLoopback);
    pHandler->OnReceivedData(nullptr, -1, nullptr);
    EXPECT_EQ(6, pHandler->UpdateBMA());
    pHandler->ReceivedMCData(nullptr, 100);
    EXPECT_EQ(5, pHandler->UpdateBMA()) << "no data is a bad update";
    pHandler->ClearReceiveErrors();
    EXPECT_FALSE(pHandler->AcceptSender(nullptr));
    EXPECT_TRUE(pHandler->InitialiseClient(0, nullptr, nullptr, nullptr));
    EXPECT_FALSE(pHandler->AddToGroup(nullptr));
    EXPECT_FALSE(pHandler->Send(nullptr, 9, "x", 1));
    EXPECT_FALSE(pHandler->Send(c_szLoopback, 9, nullptr, 1));
    EXPECT_FALSE(pHandler->QueuePPC(CRawPPCMsg())) << "no value";
    CPPCSender(0, nullptr).Do();
}

TEST(MisuseOfNull, MessagesTakeNone)
{
    testing::internal::CaptureStdout();
    CRawPPCMsg message;
    message >> nullptr;
    message << nullptr;
    EXPECT_TRUE(message.HaveError(nullptr));
    EXPECT_FALSE(message.Parse(nullptr, 100));
    EXPECT_EQ(0u, message.WriteTo(nullptr, 100));
    EXPECT_FALSE(CRawPPCMsg::ValidatePPC(nullptr));
    unsigned long aunCounts[7];
    EXPECT_FALSE(CRawPPCMsg::AnalyseStream(nullptr, 25, aunCounts[0], aunCounts[1], aunCounts[2], aunCounts[3], aunCounts[4],
                                           aunCounts[5], aunCounts[6]));
    CRawPPCQueue queue;
    EXPECT_TRUE(queue.AddMsgToTail(nullptr));
    EXPECT_EQ(0, queue.GetQueueSize());
    EXPECT_TRUE(queue.AddMsgToTail(new CRawPPCMsg[1]));
    EXPECT_EQ(0, queue.Borrow(nullptr, 5));
    const auto pUpdate = std::make_unique<CMCUpdateMsg>();
    EXPECT_FALSE(pUpdate->ValidateUpdate(nullptr));
    EXPECT_FALSE(pUpdate->Parse(nullptr, 100));
    *pUpdate << nullptr;
    int nCode = 0;
    EXPECT_TRUE(pUpdate->HaveError(&nCode));
    EXPECT_EQ(103, nCode);
    pUpdate->ShallowAssign(nullptr);
    unsigned char* pNowhere = nullptr;
    *pUpdate >> nullptr;
    *pUpdate >> &pNowhere;
    EXPECT_FALSE(pUpdate->SetArray(enString, nullptr, 1));
    CPPCStreamReader reader(nullptr, 100);
    EXPECT_FALSE(reader.Next());
    testing::internal::GetCapturedStdout();
}

TEST(MisuseOfNull, ImagesTakeNone)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    EXPECT_EQ(0, pImage->BlockReadPPC(nullptr, 10, 0));
    EXPECT_EQ(0, pImage->BlockReadScopelessPPC(nullptr, 10));
    EXPECT_EQ(0, pImage->BlockWritePPC(nullptr, 10, 0));
    EXPECT_EQ(0, pImage->BlockWriteScopelessPPC(nullptr, 10));
    pImage->BlockWriteStoreScope(nullptr, 10);
    pImage->BlockWriteRecallScope(nullptr, 10);
    pImage->BlockWriteGlobalScope(nullptr, 10);
    pImage->BlockWriteSafeScope(nullptr, 10);
    pImage->GetOwnCopyMessageMemory(enRotary, nullptr);
    CCBMAContainerScopeMask mask;
    EXPECT_EQ(1, mask.BlockWrite(nullptr, 10));
    const stPPCResult result = ApplyPPCs(nullptr, 100, *pImage);
    EXPECT_EQ(0, result.nApplied + result.nRefused);
    testing::internal::CaptureStdout();
    pImage->DumpStoreScopeParams(nullptr, 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(RyGConsoleString(), ExpandDefaultName(nullptr, 0));
    EXPECT_EQ(RyGConsoleString(), RyGConsoleString(static_cast<const char*>(nullptr)));
}

TEST(MisuseOfNull, DiagnosticsTakeNone)
{
    testing::internal::CaptureStdout();
    diagnostics_xml_reader reader;
    EXPECT_FALSE(reader.IsXML(nullptr));
    EXPECT_FALSE(reader.parseAndPopulateMap(nullptr, 100));
    EXPECT_FALSE(reader.parseAndCheckForValidMessage(nullptr, 100));
    EXPECT_FALSE(reader.validate(nullptr));
    EXPECT_FALSE(reader.GetMsgDeviceType());
    EXPECT_FALSE(reader.HasSomeChildElements());
    reader.populateMap();
    CDiagnosticsSocketSender sender;
    EXPECT_TRUE(sender.EstablishMulticastTransmitter(nullptr, 0));
    sender.Send(nullptr, 100);
    EXPECT_FALSE(sender.LastSendSucceeded());
    testing::internal::GetCapturedStdout();
    VORNXMLWriter writer;
    writer.start_xml(nullptr, static_cast<const char*>(nullptr), nullptr);
    writer.add_attribute(static_cast<const char*>(nullptr), nullptr, nullptr, nullptr);
    EXPECT_EQ("<?xml version=\"1.0\"?><VORN version=\"\"><DEV name=\"\" id=\"\"><p i=\"\" v=\"\" e=\"\"/></DEV></VORN>",
              writer.m_strDocument);
    EXPECT_EQ(0, XMLDiagnostics::string2Int(static_cast<const char*>(nullptr)));
    EXPECT_EQ(0.0f, XMLDiagnostics::string2Float(static_cast<const char*>(nullptr)));
}

TEST(MisuseOfNull, TheRuntimeTakesNone)
{
    GBFree(nullptr);
    EXPECT_EQ(nullptr, GBMalloc(-1));
    CSema semaphore(nullptr);
    EXPECT_TRUE(semaphore.IsValid());
    RySocketIO::CUtility::SetDebugSink(nullptr);
    RySocketIO::CUtility::Debug("%s", "to nobody");
    testing::internal::CaptureStderr();
    InfoOnFail policy;
    policy.ReportWhat(nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0);
    policy.ReportBackTraceLineInfo(nullptr, nullptr);
    EXPECT_EQ(":  at: \n\t,\n\t:0\n  unexpected null ptr, no information (try -rdynamic)", testing::internal::GetCapturedStderr());
    SimpleUDPPPCSender sender;
    sockaddr_in address;
    EXPECT_TRUE(sender.ConstructDestinationAddr(nullptr, 1, address));
    EXPECT_EQ(INADDR_ANY, address.sin_addr.s_addr);
    EXPECT_STREQ("", RySocketIO::CIPString(nullptr).Text());
}
