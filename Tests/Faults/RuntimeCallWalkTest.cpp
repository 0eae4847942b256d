#include "Faults/EachFault.h"

#include "ClientComms/ClientMsgHandler.h"
#include "ClientComms/SimpleUDPPPCSender.h"
#include "Diagnostics/DiagnosticsSocketSender.h"
#include "Diagnostics/DiagnosticsXMLReader.h"
#include "LogicalControls/ConsoleBitmapArray.h"
#include "Runtime/Clock.h"
#include "Runtime/FailurePolicy.h"
#include "Runtime/Locks.h"
#include "Runtime/Memory.h"
#include "RySocketIO/CUtility.h"
#include "RySocketIO/StopEvent.h"
#include "Support/Bytes.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

// Senders, locks and the rest of the runtime while calls of the system fail.
namespace
{

using namespace Faults;

const tErrors c_CloseErrors = {EBADF, EDQUOT, EINTR, EIO, ENOSPC};

} // namespace

TEST(SenderCallWalk, TheSimpleSenderFailsSilentlyAndSendsWhenItCan)
{
    const auto send = [](bool bOpens, bool bSends)
    {
        SimpleUDPPPCSender sender;
        EXPECT_EQ(bOpens, sender.InitComms());
        sender.SendPPCMessage<int>(enOther, enMicInput, 0, 0, 5, false);
        EXPECT_EQ(bSends, sender.LastSendSucceeded());
    };
    WithEach(enSocket, {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM}, [&](int) { send(true, false); });
    WithEach(enSend, {EACCES, EAGAIN, EBADF, ECONNRESET, EINTR, EINVAL, EMSGSIZE, ENOBUFS, ENOMEM, EPIPE, ENETUNREACH},
             [&](int) { send(true, false); });
    WithEach(enClose, c_CloseErrors, [&](int) { send(true, true); });
    WithEach(enTimeOfDay, {EFAULT, EINVAL}, [&](int) { send(true, true); });
    send(true, true);
}

TEST(SenderCallWalk, AnImageKeepsWhatItCanNotSend)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    pImage->SetUseSimplePPCSender(true);
    WithEach(enSend, {EAGAIN, ENOBUFS, ENETUNREACH},
             [&](int)
             {
                 pImage->InitSimplePPCSenderComms();
                 pImage->SetPPC(enOther, enMicInput, 0, 0, 5, false, false);
                 int nValue = 0;
                 pImage->GetPPC(enOther, enMicInput, 0, 0, nValue);
                 EXPECT_EQ(5, nValue);
                 pImage->DeInitSimplePPCSenderComms();
             });
}

TEST(SenderCallWalk, AHostThatIsNotFoundIsARefusal)
{
    WithEach(enHostByName, {HOST_NOT_FOUND, NO_DATA, NO_RECOVERY, TRY_AGAIN},
             [](int nTimes)
             {
                 SimpleUDPPPCSender sender;
                 sockaddr_in address;
                 EXPECT_FALSE(sender.ConstructDestinationAddr("localhost", 7050, address));
                 EXPECT_EQ(nTimes == 1, sender.ConstructDestinationAddr("localhost", 7050, address));
             });
}

TEST(SenderCallWalk, TheDiagnosticsSenderSaysWhatFailed)
{
    const auto send = [](bool bOpens, const char* szOutput)
    {
        testing::internal::CaptureStdout();
        {
            CDiagnosticsSocketSender sender;
            EXPECT_EQ(bOpens, sender.EstablishMulticastTransmitter("225.0.0.60", 9));
            sender.Send("x", 1);
            EXPECT_EQ(bOpens && *szOutput == '\0', sender.LastSendSucceeded());
        }
        EXPECT_EQ(szOutput, testing::internal::GetCapturedStdout());
    };
    const char* const szNotSent = "sendto() sent incorrect number of bytes\n";
    WithEach(enSocket, {EACCES, EMFILE, ENOMEM},
             [&](int) { send(false, "socket() failed\nsendto() sent incorrect number of bytes\n"); });
    WithEach(enSend, {EAGAIN, EINTR, ENOBUFS}, [&](int) { send(true, szNotSent); });
    WithEach(enClose, c_CloseErrors, [&](int) { send(true, ""); });
    CDiagnosticsSocketSender sender;
    testing::internal::CaptureStdout();
    {
        const CFault fault(enSetOption, ENOPROTOOPT);
        EXPECT_FALSE(sender.EstablishMulticastTransmitter("225.0.0.60", 9));
    }
    EXPECT_EQ("setsockopt() failed\n", testing::internal::GetCapturedStdout());
}

TEST(LockCallWalk, ALockThatCanNotBeTakenSaysSo)
{
    WithEach(enMutexLock, {EAGAIN, EBUSY, EDEADLK, EINVAL, ENOTRECOVERABLE, EOWNERDEAD},
             [](int nTimes)
             {
                 CCritSec section;
                 CMutex mutex(CMutex::enErrorCheck);
                 const int nBadUnlocks = BadUnlocks();
                 {
                     const CLockGuard<CCritSec> guard(section);
                     EXPECT_FALSE(guard.IsHeld());
                 }
                 EXPECT_EQ(nTimes == 1, mutex.Lock());
                 EXPECT_EQ(nTimes == 1, mutex.Lock() || mutex.Unlock());
                 EXPECT_EQ(nBadUnlocks + (nTimes == 1 ? 0 : 1), BadUnlocks());
             });
}

TEST(LockCallWalk, ACMutexThatCouldNotBeSetUpRefusesEverything)
{
    const auto refuses = [](int)
    {
        CMutex mutex(CMutex::enNormal);
        EXPECT_FALSE(mutex.Lock());
        EXPECT_FALSE(mutex.Unlock());
    };
    WithEach(enMutexInit, {EAGAIN, EINVAL, ENOMEM, EPERM}, refuses);
    WithEach(enMutexAttributeInit, {ENOMEM}, refuses);
    WithEach(enMutexAttributeType, {EINVAL}, [](int) { EXPECT_TRUE(CMutex(CMutex::enNormal).Lock()); });
    WithEach(enMutexUnlock, {EINVAL, EPERM},
             [](int)
             {
                 CMutex mutex(CMutex::enNormal);
                 EXPECT_TRUE(mutex.Lock());
                 EXPECT_FALSE(mutex.Unlock()); // and is held no more
             });
}

TEST(LockCallWalk, AHeldCMutexEndsWhateverItsCallsAnswer)
{
    const auto end = [](int)
    {
        CMutex mutex(CMutex::enNormal);
        EXPECT_TRUE(mutex.Lock());
    };
    WithEach(enMutexTryLock, {EBUSY, EINVAL, EDEADLK}, end);
    WithEach(enMutexDestroy, {EBUSY, EINVAL}, end);
}

TEST(LockCallWalk, ASectionThatCouldNotBeSetUpDoesNotHang)
{
    const auto use = []
    {
        alarm(5);
        alignas(CCritSec) static unsigned char s_acMemory[sizeof(CCritSec)];
        std::memset(s_acMemory, 0x01, sizeof s_acMemory); // as from a section that was held here
        const CFault fault(enMutexInit, ENOMEM);
        CCritSec* pSection = new (s_acMemory) CCritSec;
        static_cast<void>(pSection->Lock() == 0 && pSection->Unlock() == 0);
        _exit(0);
    };
    EXPECT_EXIT(use(), testing::ExitedWithCode(0), "");
}

TEST(LockCallWalk, AHandlerThatCanNotLockTakesNothingAndLosesNothing)
{
    std::vector<std::string> lines; // of this thread alone: the log's own locks would fail as well
    const RySocketIO::stDebugSink sink = {
        [](void* pLines, const char* szLine) { static_cast<std::vector<std::string>*>(pLines)->push_back(szLine); }, &lines};
    const auto pHandler = std::make_unique<CClientMsgHandler>(false);
    Support::tBytes update = Support::Datagram(0, 1, 1, 1, Support::UpdateHeader(2, 0));
    const auto receive = [&](const char* szSender)
    {
        pHandler->OnReceivedData(reinterpret_cast<char*>(update.data()), static_cast<long>(update.size()),
                                 RySocketIO::CIPString(szSender));
    };
    const auto count = [&](enReceiveCounter enCounter) { return pHandler->GetStatistics().aunCount[enCounter]; };
    RySocketIO::CIPString sender("as it was");
    receive("10.0.0.1");
    ASSERT_TRUE(pHandler->QueuePPC(enInteger, enMicInput, 1, 2, 3));
    {
        const CFault fault(enMutexLock, EINVAL);
        receive("10.0.0.2");
        EXPECT_EQ(1u, count(enRejectedLock));
        EXPECT_EQ(6, pHandler->UpdateBMA());
        EXPECT_EQ(0u, count(enCountApplied));
        RySocketIO::CUtility::SetDebugSink(&sink);
        EXPECT_FALSE(pHandler->QueuePPC(enInteger, enMicInput, 1, 2, 4));
        RySocketIO::CUtility::SetDebugSink(nullptr);
        EXPECT_EQ(std::vector<std::string>{"CMsgHandlerBase::QueuePPC - no memory"}, lines);
        EXPECT_EQ(0, pHandler->GetPPCBufferSize());
        EXPECT_FALSE(pHandler->SendAll());
        pHandler->ClearPPCBuffer();
        pHandler->ClearReceiveErrors();
        EXPECT_FALSE(pHandler->GetLastSender(sender));
        EXPECT_STREQ("as it was", sender.Text());
    }
    EXPECT_EQ(0, pHandler->UpdateBMA());
    EXPECT_EQ(1u, count(enCountApplied));
    EXPECT_EQ(1, pHandler->GetPPCBufferSize());
    EXPECT_TRUE(pHandler->GetLastSender(sender));
    EXPECT_STREQ("10.0.0.1", sender.Text());
    pHandler->ClearPPCBuffer();
    EXPECT_EQ(0, pHandler->GetPPCBufferSize());
}

TEST(LockCallWalk, AReadersLockKnowsWhetherItIsValid)
{
    const auto isInvalid = [](int)
    {
        CRWMutex lock;
        EXPECT_FALSE(lock.IsValid());
        EXPECT_FALSE(lock.Read().Lock() || lock.Read().Unlock() || lock.Write().Lock() || lock.Write().Unlock());
    };
    CRWMutex lock;
    if (!lock.IsValid())
    {
        GTEST_SKIP() << "this C library has no such lock";
    }
    WithEach(enReadersInit, {EAGAIN, ENOMEM, EPERM, EINVAL, EBUSY}, isInvalid);
    WithEach(enReadersAttributeInit, {ENOMEM}, isInvalid);
    WithEach(enReadersRead, {EAGAIN, EDEADLK, EINVAL}, [&](int) { EXPECT_FALSE(lock.Read().Lock()); });
    WithEach(enReadersWrite, {EDEADLK, EINVAL}, [&](int) { EXPECT_FALSE(lock.Write().Lock()); });
    ASSERT_TRUE(lock.Read().Lock());
    WithEach(enReadersUnlock, {EPERM, EINVAL}, [&](int) { EXPECT_FALSE(lock.Read().Unlock()); });
    EXPECT_TRUE(lock.Read().Unlock());
    EXPECT_TRUE(lock.Write().Lock() && lock.Write().Unlock());
}

TEST(LockCallWalk, ASemaphoreWaitsOnceAndSaysWhyItDidNot)
{
    WithEach(enSemaphoreWait, {EINTR, EINVAL, EAGAIN},
             [](int)
             {
                 CSema semaphore("s");
                 testing::internal::CaptureStdout();
                 const int nBefore = CallsOf(enSemaphoreWait);
                 semaphore.Wait();
                 EXPECT_EQ(1, CallsOf(enSemaphoreWait) - nBefore);
                 EXPECT_EQ(0u, testing::internal::GetCapturedStdout().find("sem_wait returned: "));
             });
    WithEach(enSemaphorePost, {EINVAL, EOVERFLOW}, [](int) { EXPECT_NE(0, CSema("s").Post()); });
    WithEach(enSemaphoreInit, {EINVAL, ENOSYS}, [](int) { EXPECT_TRUE(CSema("s").IsValid()); });
}

TEST(LockCallWalk, AReaderOfReportsThatCanNotLockStillReads)
{
    std::string strReport = "<VORN version=\"1.0\"><DEV name=\"x\" id=\"3\"><p i=\"7\" v=\"v\" e=\"e\"/></DEV></VORN>";
    const auto read = [&](diagnostics_xml_reader& reader)
    { EXPECT_TRUE(reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size()))); };
    testing::internal::CaptureStdout();
    {
        const CFault fault(enMutexInit, ENOMEM);
        diagnostics_xml_reader reader;
        read(reader);
    }
    EXPECT_EQ("Error m_xml_mutex init failed\n", testing::internal::GetCapturedStdout());
    diagnostics_xml_reader reader;
    const int nBadUnlocks = BadUnlocks();
    {
        const CFault fault(enMutexLock, EINVAL, 1);
        reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size()));
        EXPECT_EQ(1, CFault::Struck());
    }
    EXPECT_EQ(nBadUnlocks, BadUnlocks()) << "what was not locked is unlocked";
    read(reader);
}

TEST(RuntimeCallWalk, AFileThatIsNoSchemaIsARefusalWithItsName)
{
    std::string strReport = "<VORN version=\"1.0\"><DEV name=\"x\" id=\"3\"><p i=\"7\" v=\"v\" e=\"e\"/></DEV></VORN>";
    diagnostics_xml_reader reader;
    ASSERT_TRUE(reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size())));
    const int nDescriptors = OpenDescriptors();
    for (const char* szFile : {"/no/such/file", "/", "/dev/null"})
    {
        EXPECT_FALSE(reader.validate(szFile));
        EXPECT_EQ(std::string(szFile) + " can't be read as XML", reader.GetError());
    }
    EXPECT_FALSE(reader.validate(nullptr));
    EXPECT_EQ(nDescriptors, OpenDescriptors());
}

TEST(RuntimeCallWalk, ASchemaThatCanNotBeOpenedIsARefusalAndTheNextValidationWorks)
{
    std::string strReport = "<VORN version=\"1.0\"><DEV name=\"x\" id=\"3\"><p i=\"7\" v=\"v\" e=\"e\"/></DEV></VORN>";
    diagnostics_xml_reader reader;
    ASSERT_TRUE(reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size())));
    WithEach(enOpen,
             {EACCES, EBUSY, EFAULT, EINTR, EINVAL, EISDIR, ELOOP, EMFILE, ENAMETOOLONG, ENFILE, ENODEV, ENOENT, ENOMEM, ENOTDIR,
              ENXIO, EOVERFLOW, EPERM, ETXTBSY, EWOULDBLOCK},
             [&](int nTimes)
             {
                 EXPECT_FALSE(reader.validate(SCHEMA_FILE));
                 EXPECT_EQ(std::string(SCHEMA_FILE) + " can't be read as XML", reader.GetError());
                 EXPECT_EQ(nTimes == 1, reader.validate(SCHEMA_FILE));
             });
    WithEach(enDescriptorControl, {EBADF, EINVAL, EPERM}, [&](int) { EXPECT_TRUE(reader.validate(SCHEMA_FILE)); });
    WithEach(enClose, c_CloseErrors, [&](int) { EXPECT_TRUE(reader.validate(SCHEMA_FILE)); });
}

TEST(RuntimeCallWalk, ASocketThatCanNotBeKeptOffTheStandardStreamsIsNotOpened)
{
    const int nKept = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    const auto pHandler = std::make_unique<CClientMsgHandler>(false);
    for (const int nError : {EBADF, EINVAL, EMFILE})
    {
        {
            const CFault fault(enDescriptorControl, nError);
            EXPECT_FALSE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
            EXPECT_EQ(1, CFault::Struck());
        }
        EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD)) << "what could not be moved is closed";
    }
    EXPECT_TRUE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
    EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
    dup2(nKept, STDIN_FILENO);
    close(nKept);
}

TEST(RuntimeCallWalk, AWaitEndsWhateverThePauseAfterItsErrorAnswers)
{
    RySocketIO::CStopEvent stop;
    ASSERT_TRUE(stop.Reset());
    WithEach(enSleep, {EFAULT, EINTR, EINVAL}, [&](int) { EXPECT_FALSE(stop.Wait({0, -1})); }); // no time that ppoll takes
    stop.Set();
    EXPECT_TRUE(stop.Wait({0, 0}));
}

TEST(RuntimeCallWalk, AProtectionThatFailsIsOneLine)
{
    const struct
    {
        int nError;
        const char* szText;
    } rows[] = {{EACCES, "not enough privileges"},
                {EFAULT, "memory not allocated"},
                {EINVAL, "invalid argument to mprotect"},
                {ENOMEM, "kernel out of memory"},
                {EPERM, "unknown"}};
    for (const auto& row : rows)
    {
        testing::internal::CaptureStdout();
        int nResult = 0;
        {
            const CFault fault(enProtect, row.nError);
            nResult = LogMprotect(nullptr, 0x1A, 3);
        }
        const std::string strExpected = std::string("mprotect failed : ") + row.szText + " addr(0x0) len(0x1A) prot(0x3)\n";
        EXPECT_EQ(strExpected, testing::internal::GetCapturedStdout());
        EXPECT_EQ(static_cast<int>(strExpected.size()), nResult);
    }
}

TEST(RuntimeCallWalk, APageSizeThatIsNotKnownGivesNoBlockThatIsTooSmall)
{
    WithEach(enSystemValue, {EINVAL},
             [](int)
             {
                 void* pBlock = GBMalloc(100);
                 EXPECT_EQ(nullptr, pBlock);
                 GBFree(pBlock);
             });
}

TEST(RuntimeCallWalk, AClockThatFailsIsAtTheBeginning)
{
    WithEach(enTimeOfDay, {EFAULT, EINVAL}, [](int) { EXPECT_EQ(0, CClock::Microseconds()); });
    EXPECT_LT(0, CClock::Microseconds());
}

TEST(RuntimeCallWalk, AProcessThatCanNotBeStoppedGoesOn)
{
    WithEach(enKill, {EINVAL, EPERM, ESRCH},
             [](int)
             {
                 testing::internal::CaptureStderr();
                 EXPECT_EQ(-1, AssertFailStdErrHalt().DoAction());
                 EXPECT_EQ(0u, testing::internal::GetCapturedStderr().find("Halting process: "));
             });
}
