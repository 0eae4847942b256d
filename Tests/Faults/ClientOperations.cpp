#include "Faults/AllocationWalk.h"

#include "ClientComms/ImageSync.h"
#include "ClientComms/SimpleUDPPPCSender.h"
#include "Faults/FailingAllocator.h"
#include "Runtime/Locks.h"
#include "RySocketIO/CSocketThread.h"
#include "RySocketIO/CUtility.h"
#include "Support/Bytes.h"
#include "Support/Records.h"

#include <memory>
#include <utility>

// Handlers, sockets, senders and locks.
namespace
{

using Faults::CPlenty;
using Faults::Expect;
using Faults::tAction;
using Support::tBytes;

constexpr int c_nQueued = 40;
constexpr int c_nPeriod = 1;
const char c_szLoopback[] = "127.0.0.1";

// Constructs and destroys.
template <class Object, class... Arguments>
tAction Construct(Arguments... arguments)
{
    return [=]
    {
        const std::unique_ptr<Object> pObject(new Object(arguments...));
        return true;
    };
}

tAction ConstructBase()
{
    return Construct<CMsgHandlerBase>();
}

tAction ConstructHandler()
{
    return Construct<CClientMsgHandler>(false);
}

tAction ConstructFollower()
{
    const auto pImage = std::make_shared<CBMAContainer>();
    return [pImage]
    {
        const std::unique_ptr<CImageFollower> pFollower(new CImageFollower(*pImage));
        return true;
    };
}

tAction ConstructSocket()
{
    return Construct<RySocketIO::CSocket>(2, false, false);
}

tAction ConstructThread()
{
    return Construct<RySocketIO::CSocketThread>();
}

tAction ConstructSender()
{
    return Construct<CPPCSender>(c_nPeriod, nullptr);
}

tAction QueuePPC()
{
    const auto pBase = std::make_shared<CMsgHandlerBase>();
    const auto pMessage = std::make_shared<CRawPPCMsg>();
    pMessage->SetPPC(enString, 1, 143, 1, RyGConsoleString("Kick In"));
    return [pBase, pMessage]
    {
        int nQueued = pBase->GetPPCBufferSize();
        bool bAll = true;
        for (int nRound = 0; nRound < c_nQueued; ++nRound)
        {
            const bool abQueued[] = {
                pBase->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f), pBase->QueuePPC(enSwitch, enMicInput, 3, 1, 1),
                pBase->QueuePPC(enString, enMicInput, 3, 0, RyGConsoleString("Kick In")), pBase->QueuePPC(*pMessage)};
            for (const bool bQueued : abQueued)
            {
                nQueued += bQueued ? 1 : 0;
                bAll = bAll && bQueued;
            }
        }
        Expect(pBase->GetPPCBufferSize() == nQueued, "the queue holds something else than what was queued");
        return bAll;
    };
}

tAction UseBase()
{
    const auto pBase = std::make_shared<CMsgHandlerBase>();
    const auto pBuffer = std::make_shared<tBytes>(100);
    const tBytes first = Support::Datagram(7, 1, 1, 2, {1, 2});
    const tBytes second = Support::Datagram(7, 1, 2, 2, {3});
    return [=]
    {
        unsigned char* pOut = pBuffer->data();
        int nSize = 100;
        pBase->SetRemoteAddress(c_szLoopback, 0, 9);
        pBase->ResetRemoteAddresses();
        pBase->OnReceivedData(nullptr, 0);
        for (const tBytes* pDatagram : {&first, &second})
        {
            pBase->ValidatePacketSequence(reinterpret_cast<const char*>(pDatagram->data()), static_cast<long>(pDatagram->size()),
                                          &pOut, nSize);
        }
        Expect(nSize == 3, "fragments are not joined");
        pBase->ClearPPCBuffer();
        return true;
    };
}

tAction InitialiseClient()
{
    return []
    {
        std::unique_ptr<CClientMsgHandler> pHandler;
        {
            const CPlenty plenty;
            pHandler.reset(new CClientMsgHandler(false));
        }
        const bool bOpened = pHandler->InitialiseClient(0, c_szLoopback, nullptr, nullptr);
        Expect(bOpened == (pHandler->GetLocalPort() != 0), "a port without success, or the other way round");
        const CPlenty plenty; // the same handler opens when there is memory
        Expect(bOpened || pHandler->InitialiseClient(0, c_szLoopback, nullptr, nullptr), "never opens again");
        return bOpened;
    };
}

tAction StartPPCSender()
{
    return []
    {
        std::unique_ptr<CClientMsgHandler> pHandler;
        {
            const CPlenty plenty;
            pHandler.reset(new CClientMsgHandler(false));
        }
        const bool bStarted = pHandler->StartPPCSender(c_nPeriod);
        pHandler->StopPPCSender();
        return bStarted;
    };
}

tAction StartThread()
{
    const auto pThread = std::make_shared<RySocketIO::CSocketThread>();
    return [pThread]
    {
        pThread->SetIterationDelay(0, 100);
        const bool bStarted = pThread->Start(-1);
        Expect(pThread->IsRunning() == bStarted, "runs without having started");
        Expect(pThread->Stop() == bStarted, "stops without having started");
        return bStarted;
    };
}

tAction OpenSocket()
{
    const auto pSocket = std::make_shared<std::unique_ptr<RySocketIO::CSocket>>();
    return [pSocket]
    {
        {
            const CPlenty plenty;
            pSocket->reset(new RySocketIO::CSocket(RySocketIO::enConnectionUDP, false, false));
        }
        RySocketIO::CSocket& socket = **pSocket;
        const bool bOpened = socket.InitialiseLocalSockets(0, c_szLoopback, nullptr, 1);
        socket.SetUseSenderInfo(true);
        Expect(socket.Send(c_szLoopback, 9, "x", 1) == bOpened, "a send that should have gone another way");
        Expect(!socket.AddToGroup("no address"), "joins nothing");
        Expect((socket.GetLocalPort() != 0) == bOpened, "half open");
        socket.StopReceiving();
        return bOpened;
    };
}

struct stFollowing
{
    CBMAContainer image;
    CImageFollower follower{image};
};

// A follower's whole day, once it is there.
tAction Follow()
{
    const auto pFollowing = std::make_shared<stFollowing>();
    Expect(pFollowing->follower.InitialiseClient(0, c_szLoopback, nullptr, nullptr), "no port");
    pFollowing->follower.SetRemoteAddress(c_szLoopback, 0, -1);
    pFollowing->follower.SetRemoteAddress(c_szLoopback, 0, 9);
    tBytes datagram = Support::UpdateHeader(enMCUpdateRotary, 12);
    Support::AppendArray(datagram, {1, 2, 3, 4, 5, 6, 7, 8});
    datagram = Support::Datagram(0, 1, 1, 1, datagram);
    return [pFollowing, bytes = datagram]() mutable
    {
        CImageFollower* const pFollower = &pFollowing->follower;
        {
            const CPlenty plenty;
            Expect(pFollower->QueuePPC(enRotary, enMicInput, 3, 1, 0.5f), "not queued");
        }
        pFollower->OnReceivedData(reinterpret_cast<char*>(bytes.data()), static_cast<long>(bytes.size()), c_szLoopback);
        Expect(pFollower->UpdateBMA() == CImageFollower::enBlockLeftOut, "an update is not applied");
        pFollower->ReceivedMCData(bytes.data(), 3);
        Expect(pFollower->UpdateBMA() == CClientMsgHandler::enUpdateDecodeError, "a bad update is taken");
        pFollower->ClearReceiveErrors();
        pFollower->GetRotsUpdatePeriod();
        pFollower->GetSurfUpdatePeriod();
        pFollower->GetMCTimeouts();
        pFollower->GetStatistics();
        RySocketIO::CIPString sender;
        pFollower->GetLastSender(sender);
        Expect(pFollower->GetPPCBufferSize() == 1 && pFollower->SendAll(), "a change is not sent");
        return pFollower->GetPPCBufferSize() == 0;
    };
}

tAction SendSimply()
{
    const auto pSender = std::make_shared<SimpleUDPPPCSender>();
    return [pSender]
    {
        Expect(pSender->InitComms(), "not open");
        pSender->SendPPCMessage<float>(enRotary, 2, 3, 4, 0.5f, true);
        const bool bSent = pSender->LastSendSucceeded();
        pSender->SendPPCMessage<int>(enInteger, 2, 3, 4, 5, true);
        pSender->SendPPCMessage<RyGConsoleString>(enString, 2, 3, 4, RyGConsoleString("Kick In"), false);
        Expect(bSent && pSender->LastSendSucceeded(), "not sent");
        pSender->DeInitComms();
        return true;
    };
}

tAction UseLocks()
{
    return []
    {
        CCritSec section;
        CMutex mutex(CMutex::enErrorCheck);
        CRWMutex readers;
        CSema semaphore("name");
        Expect(section.Lock() == 0 && section.Unlock() == 0, "a section");
        Expect(mutex.Lock() && !mutex.Lock() && mutex.Unlock(), "a mutex");
        Expect(readers.Read().Lock() && readers.Read().Unlock() && readers.Write().Lock() && readers.Write().Unlock(), "readers");
        semaphore.Post();
        semaphore.Wait();
        return semaphore.IsValid();
    };
}

tAction Log()
{
    return []
    {
        int nLines = 0;
        const RySocketIO::stDebugSink sink = {[](void* pLines, const char*) { ++*static_cast<int*>(pLines); }, &nLines};
        RySocketIO::CUtility::SetDebugSink(&sink);
        RySocketIO::CUtility::Debug("%s %d", "a line", 12);
        RySocketIO::CUtility::SetDebugSink(nullptr);
        return nLines == 1;
    };
}

} // namespace

Faults::tOperations Faults::ClientOperations()
{
    return {
        {"CMsgHandlerBase", enBadAlloc, ConstructBase},
        {"CMsgHandlerBase::QueuePPC", enRefused, QueuePPC},
        {"CMsgHandlerBase and all else that it does", enDone, UseBase},
        {"CClientMsgHandler", enBadAlloc, ConstructHandler},
        {"CImageFollower", enBadAlloc, ConstructFollower},
        {"CImageFollower and all that it does", enDone, Follow},
        {"InitialiseClient", enRefused, InitialiseClient},
        {"StartPPCSender", enRefused, StartPPCSender},
        {"CSocket", enBadAlloc, ConstructSocket},
        {"CSocket is opened and used", enRefused, OpenSocket},
        {"CSocketThread", enBadAlloc, ConstructThread},
        {"CSocketThread is started", enRefused, StartThread},
        {"CPPCSender", enBadAlloc, ConstructSender},
        {"SimpleUDPPPCSender", enDone, SendSimply},
        {"the locks", enDone, UseLocks},
        {"the debug log", enDone, Log},
    };
}
