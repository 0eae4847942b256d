// The library as a client links it: what the public headers name is exported.
#include "LogicalControls.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

namespace
{

// Makes, writes, reads and copies an array of values or of bits.
template <typename T, tagenPPCMessageType N, bool compressed>
int BytesOfAnArray(T value)
{
    CParameterArray<int, N, true> mask;
    const auto pArray = std::make_unique<CParameterArray<T, N, compressed>>();
    CParameterArray<T, N, compressed> other;
    T read = T();
    EXPECT_TRUE(pArray->SetPPC(enGlobals, 0, 0, value));
    EXPECT_TRUE(pArray->SetPPCLite(enGlobals, 0, 0, value));
    other = *pArray;
    EXPECT_TRUE(other.GetPPC(enGlobals, 0, 0, read));
    EXPECT_TRUE(read == value);
    other.Import(*pArray, mask, mask);
    other.Export(*pArray, mask, mask);
    other.SetXorVal(1);
    return other.GetByteAllocation();
}

} // namespace

TEST(Exports, HoldEveryValueArray)
{
    EXPECT_EQ(40963, (BytesOfAnArray<RyGConsoleString, enString, false>("x")));
    EXPECT_EQ(261200, (BytesOfAnArray<float, enRotary, false>(0.5f)));
    EXPECT_EQ(59424, (BytesOfAnArray<int, enInteger, false>(7)));
    EXPECT_EQ(11060, (BytesOfAnArray<float, enFader, false>(0.5f)));
    EXPECT_EQ(2692, (BytesOfAnArray<int, enOther, false>(7)));
    EXPECT_EQ(15898, (BytesOfAnArray<unsigned char, enMeter, false>(7)));
}

TEST(Exports, HoldEveryBitArray)
{
    EXPECT_EQ(394, (BytesOfAnArray<int, enString, true>(1)));
    EXPECT_EQ(8163, (BytesOfAnArray<int, enRotary, true>(1)));
    EXPECT_EQ(17338, (BytesOfAnArray<int, enSwitch, true>(1)));
    EXPECT_EQ(1858, (BytesOfAnArray<int, enInteger, true>(1)));
    EXPECT_EQ(346, (BytesOfAnArray<int, enFader, true>(1)));
    EXPECT_EQ(85, (BytesOfAnArray<int, enOther, true>(1)));
    EXPECT_EQ(1988, (BytesOfAnArray<int, enMeter, true>(1)));
}

TEST(Exports, HoldTheTables)
{
    EXPECT_EQ(144, canMaxPaths[enMicInput]);
    EXPECT_EQ(576, canMaxParams[enMicInput * c_nMessageTypes + enSwitch]);
    EXPECT_EQ(65300, canParameterCounts[enRotary]);
    EXPECT_EQ(0, canCommonParamTypesTable[enCommonFader][enMicInput]);
    EXPECT_EQ(enString, caCommonParamTypeToMessageType[enCommonName]);
    EXPECT_STREQ("Meter", caMessageTypeNames[enMeter]);
    EXPECT_STREQ("Auk", caParameterGroupNames[enAuk]);
    EXPECT_EQ(3, CBMAContainer::m_anScopeMasks[3]);
    EXPECT_EQ(51, CMaxPathParameterArray().GetMaxPathTypes());
}

TEST(Exports, HoldTheMessagesAndTheSender)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    const auto pPacket = std::make_unique<UDP_PACKET>();
    EXPECT_TRUE(BuildMCUpdate(*pImage, enMCUpdateSurface, *pMessage));
    EXPECT_EQ(0x7cu, ApplyMCUpdate(*pMessage, *pImage));
    EXPECT_EQ(2, CountFragments(pMessage->GetTotalSize()));
    EXPECT_EQ(20, MakeFragment(enDatagramPPC, 1, nullptr, 0, 1, *pPacket));
    EXPECT_TRUE(ApplyPPCs(nullptr, 0, *pImage).bComplete);
    EXPECT_TRUE(IsParameterAddress(enFader, enMicInput, 143, 1));

    SimpleUDPPPCSender sender; // sends nothing until it is opened
    sender.SendPPCMessage(enFader, enMicInput, 0, 0, 0.5f, false);
    sender.SendPPCMessage(enSwitch, enMicInput, 0, 0, 1, false);
    sender.SendPPCMessage(enString, enMicInput, 0, 0, RyGConsoleString("x"), false);
    EXPECT_FALSE(sender.LastSendSucceeded());

    const auto pFollower = std::make_unique<CImageFollower>(*pImage);
    EXPECT_EQ(CClientMsgHandler::enUpdateTimeout, pFollower->UpdateBMA());
}

TEST(Exports, HoldTheSendPath)
{
    CRawPPCMsg message;
    CRawPPCMsg copy;
    unsigned char* pRecord = nullptr;
    unsigned long aunCounts[c_nMessageTypes] = {};
    EXPECT_TRUE(message.SetPPC(enFader, enMicInput, 0, 0, 0.5f));
    copy = message;
    copy >> &pRecord;
    EXPECT_TRUE(CRawPPCMsg::ValidatePPC(pRecord));
    EXPECT_TRUE(CRawPPCMsg::AnalyseStream(pRecord, 29, aunCounts[0], aunCounts[1], aunCounts[2], aunCounts[3], aunCounts[4],
                                          aunCounts[5], aunCounts[6]));
    EXPECT_EQ(1u, aunCounts[enFader]);
    delete[] pRecord;
    CRawPPCQueue queue;
    EXPECT_TRUE(queue.AddMsgToTail(new CRawPPCMsg[1]));
    EXPECT_TRUE(queue.RemoveFront());
    const auto pHandler = std::make_unique<CClientMsgHandler>(false);
    EXPECT_TRUE(pHandler->QueuePPC(enFader, enMicInput, 0, 0, 0.5f));
    EXPECT_TRUE(pHandler->QueuePPC(enSwitch, enMicInput, 0, 0, 1));
    EXPECT_TRUE(pHandler->QueuePPC(enString, enMicInput, 0, 0, RyGConsoleString("x")));
    EXPECT_TRUE(pHandler->QueuePPC(message));
    CPPCSender(1, pHandler.get()).Do(); // to no address
    EXPECT_EQ(0, pHandler->GetPPCBufferSize());
}

TEST(Exports, HoldScopesAndBlocks)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const auto pOther = std::make_unique<CBMAContainer>();
    CCBMAContainerScopeMask mask;
    stPPCWithSI record;
    EXPECT_EQ(1, mask.BlockAssign(1));
    EXPECT_EQ(1, mask.BlockWrite(&record, 1));
    pImage->ExportScopedParameters(*pOther, true, true, &mask);
    pImage->ImportScopedParameters(*pOther, true, true);
    pImage->ExportGlobalParameters(*pOther);
    pImage->ImportGlobalParameters(*pOther);
    pImage->ExportStoreScope(*pOther, &mask);
    pImage->ExportRecallScope(*pOther, &mask);
    pImage->BlockWriteStoreScope(&record, 1);
    EXPECT_TRUE(pImage->SetReadBlocks(enFader, enMicInput, 0, 0));
    EXPECT_EQ(1, pImage->BlockReadPPC(&record, 1, CBMAContainer::m_anScopeMasks[0]));
    EXPECT_EQ(1, pImage->BlockWriteScopelessPPC(&record, 1));
    CBMAContainer::stBlockRef cursor;
    EXPECT_TRUE(pImage->SetBlockPosition(enFader, enMicInput, 0, 0, cursor, Int2Type<4>()));
}

TEST(Exports, HoldTheRuntime)
{
    CCritSec section;
    CMutex mutex(CMutex::enNormal);
    CRWMutex readWrite;
    CSema semaphore("exports");
    EXPECT_TRUE(CLockGuard<CCritSec>(section).IsHeld() && CLockGuard<CMutex>(mutex).IsHeld());
    EXPECT_EQ(readWrite.IsValid(), readWrite.Read().Lock() && readWrite.Read().Unlock());
    EXPECT_EQ(0, semaphore.Post());
    semaphore.Wait();
    void* pBlock = GBMalloc(1);
    EXPECT_NE(nullptr, pBlock);
    GBFree(pBlock);
    EXPECT_GT(CClock::Seconds(), 0u);
}

TEST(Exports, HoldTheDefaults)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    float fValue = 0;
    int nValue = 0;
    unsigned char ucValue = 1;
    const char* szPattern = nullptr;
    EXPECT_TRUE(GetDefaultPPC(enFader, enMicInput, 0, fValue));
    EXPECT_TRUE(GetDefaultPPC(enInteger, enVCAGroups, 4, nValue));
    EXPECT_TRUE(GetDefaultPPC(enMeter, enMicInput, 0, ucValue));
    EXPECT_TRUE(GetDefaultPPC(enString, enMicInput, 1, szPattern));
    EXPECT_EQ(-100.0f, fValue);
    EXPECT_EQ(65535, nValue);
    EXPECT_EQ(0, ucValue);
    EXPECT_EQ("Mic3", ExpandDefaultName(szPattern, 2).Text());
    EXPECT_EQ(szPattern, MicInputParameters::enPPCStringMessage::caDefaults[1]);
    EXPECT_EQ(AukParameters::enPPCStringMessage::caDefaults, pvDefaultParameterValues[enAuk * c_nMessageTypes + enString]);
    ApplyDefaults(*pImage);
    pImage->GetPPC(enInteger, enVCAGroups, 0, 4, nValue);
    EXPECT_EQ(65535, nValue);
}

TEST(Exports, HoldTheDiagnostics)
{
    VORNXMLWriter writer;
    writer.start_xml("1.0", XMLDiagnostics::XNT_GUI, XMLDiagnostics::string2Int("2"));
    writer.add_attribute(XMLDiagnostics::string2Int(std::string("7")), XMLDiagnostics::float2String(0.5f, 3).c_str(),
                         XMLDiagnostics::int2String(1).c_str(), nullptr);
    writer.add_attribute(8, 2, 3, nullptr);
    std::string strReport = writer.m_strDocument;
    diagnostics_xml_reader reader;
    EXPECT_TRUE(reader.IsXML(strReport.c_str()));
    EXPECT_TRUE(reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size())));
    EXPECT_TRUE(reader.parseAndCheckForValidMessage(&strReport[0], static_cast<int>(strReport.size())));
    EXPECT_TRUE(reader.find_parameter(7));
    EXPECT_EQ(0.5f, XMLDiagnostics::string2Float(reader.get_at(7).v));
    EXPECT_EQ(1.0f, XMLDiagnostics::string2Float(reader.get_at(7).e.c_str()));
    EXPECT_FALSE(reader.validate("no file"));
    EXPECT_STREQ("enUpTime", XMLDiagnosticsParametersDSP::strName[0]);
    EXPECT_STREQ("enGeneralMute", XMLDiagnosticsParametersDSP::GetName(1));

    CDiagnosticsSocketSender sender; // one that is destroyed unestablished would close descriptor 0
    EXPECT_TRUE(sender.EstablishMulticastTransmitter(XMLDiagnostics::c_strMulticastGroup.c_str(), 7070));
    EXPECT_FALSE(sender.LastSendSucceeded());

    using namespace RouterDiagnostics;
    std::ostringstream stream;
    stream << NT_MC << PORT_C << ETHERNET << SPLITTER_PORT_NA;
    EXPECT_EQ("3 NT_MC MC2(PORT_C0(ETHERNET)3(SPLITTER_PORT_NA)", stream.str());
}

TEST(Exports, HoldTheFailurePolicies)
{
    testing::internal::CaptureStderr();
    AssertDoNothing goOn;
    AssertFailStdErrAbort end;
    goOn.ReportWhat("ASSERT", "f", "a", 12, "x > 0", "", 0);
    goOn.ReportBackTraceLineInfo("object", nullptr);
    EXPECT_EQ(0, InfoOnFail().DoAction());
    EXPECT_EQ(0, goOn.DoAction());
    GetBackTrace(goOn, 20);
    GetBackTrace(end, 20);
    EXPECT_EQ(nullptr, static_cast<const char*>(DemangledSynNameResourceGuard(nullptr)));
    EXPECT_NE(nullptr, static_cast<AssertFailStdErrBase*>(std::make_unique<AssertFailStdErrHalt>().get()));
    EXPECT_EQ(0u, testing::internal::GetCapturedStderr().find(
                      "ASSERT: x > 0 at: \n\tf,\n\ta:12\n  object, no information (try -rdynamic)\n\n stack frame:"));
}
