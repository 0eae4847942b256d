#include "ClientComms/ClientMsgHandler.h"

#include "ClientComms/FragmentRing.h"
#include "Runtime/Clock.h"
#include "Runtime/Poison.h"
#include "RySocketIO/CUtility.h"
#include "RySocketIO/ClientCall.h"

#include <arpa/inet.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <thread>
#include <utility>

using RySocketIO::CUtility;

namespace
{

constexpr std::int64_t c_nTimeoutMicroseconds = 60000; // an MC that is silent for longer has timed out

constexpr int c_nTriesAtOnce = 100;

constexpr int c_nBorrowedAtOnce = 64; // messages taken in hand under one hold of the queue's lock
constexpr std::chrono::milliseconds c_FruitlessRest(1);

// A 64-bit time as two numbers that threads can share without a lock.
std::int32_t HighWord(std::int64_t nTime)
{
    return static_cast<std::int32_t>(nTime >> 32);
}

std::uint32_t LowWord(std::int64_t nTime)
{
    return static_cast<std::uint32_t>(nTime);
}

std::int64_t JoinWords(std::int32_t nHigh, std::uint32_t unLow)
{
    return nHigh * (std::int64_t(1) << 32) + unLow;
}

const char* FlagText(unsigned char ucFlag)
{
    return ucFlag != 0 ? "true" : "false";
}

} // namespace

CUpdateTiming::CUpdateTiming()
    : m_unVersion(0), m_fSum(0), m_nCount(0), m_nLastHigh(0), m_unLastLow(0), m_unEpoch(0), m_bAny(false), m_unWantedEpoch(0)
{
}

void CUpdateTiming::Record(std::int64_t nNow, std::int64_t nStart)
{
    std::int64_t nSince = 0;
    if (!GetLast(nSince))
    {
        nSince = nStart != 0 ? nStart : nNow;
    }
    // A clock that was set back adds nothing.
    const float fInterval = static_cast<float>(static_cast<double>(std::max<std::int64_t>(nNow - nSince, 0)) * 0.001);
    const std::uint32_t unEpoch = m_unWantedEpoch;
    const bool bGoOn = unEpoch == m_unEpoch;

    ++m_unVersion;
    m_fSum = bGoOn ? m_fSum + fInterval : fInterval;
    m_nCount = bGoOn ? m_nCount + 1 : 1;
    m_unEpoch = unEpoch;
    m_nLastHigh = HighWord(nNow);
    m_unLastLow = LowWord(nNow);
    m_bAny = true;
    ++m_unVersion;
}

float CUpdateTiming::TakeMeanPeriod()
{
    const stState state = Read();
    if (state.unEpoch != m_unWantedEpoch || state.nCount == 0)
    {
        return -1.0f;
    }
    ++m_unWantedEpoch;
    return state.fSum / static_cast<float>(state.nCount);
}

bool CUpdateTiming::GetLast(std::int64_t& nLast) const
{
    const stState state = Read();
    nLast = JoinWords(state.nLastHigh, state.unLastLow);
    return state.bAny;
}

CUpdateTiming::stState CUpdateTiming::Read() const
{
    for (int nTry = 1;; ++nTry)
    {
        const std::uint32_t unVersion = m_unVersion;
        const stState state = {m_fSum, m_nCount, m_nLastHigh, m_unLastLow, m_unEpoch, m_bAny};
        if (unVersion % 2 == 0 && unVersion == m_unVersion)
        {
            return state;
        }
        if (nTry % c_nTriesAtOnce == 0)
        {
            std::this_thread::sleep_for(std::chrono::microseconds(50)); // a writer of lower priority gets its turn
        }
    }
}

// Who is in ProcessMCUpdate, and what that thread has asked for meanwhile.
class CClientMsgHandler::CProcessing
{
public:
    CProcessing() : bClearLater(false), bShutdownLater(false), m_Thread(std::thread::id()) {}

    bool IsHere() const { return m_Thread.load() == std::this_thread::get_id(); }

    class CHold
    {
    public:
        explicit CHold(CProcessing& processing) : m_Processing(processing) { m_Processing.m_Thread = std::this_thread::get_id(); }
        ~CHold() { m_Processing.m_Thread = std::thread::id(); }
        CHold(const CHold&) = delete;
        CHold& operator=(const CHold&) = delete;

    private:
        CProcessing& m_Processing;
    };

    bool bClearLater; // of that thread, as is the next
    bool bShutdownLater;

private:
    std::atomic<std::thread::id> m_Thread;
};

CClientMsgHandler::CClientMsgHandler(bool bFlag)
    : RySocketIO::CSocket(RySocketIO::enConnectionUDP, bFlag, false), m_SenderMutex(CMutex::enNormal), m_bSenderChanged(false),
      m_nCurrentCache(0), m_aucNewUpdate(), m_aucError(), m_nStartHigh(0), m_unStartLow(0), m_nMCTimeouts(0), m_unDefaultPort(0),
      m_pProcessing(new CProcessing), m_pSendPacket(new UDP_PACKET), m_bSending(false), m_bStopSending(false), m_unSequence(0),
      m_unMessageId(0), m_unProcessedSequence(0), m_unProcessedId(0), m_nAcceptedSenders(0)
{
    static_assert(enCaches == int(CFragmentRing::enViews), "a view of the ring for each cache");
    ResetRemoteAddresses();
    for (int nCache = 0; nCache < enCaches; ++nCache)
    {
        m_aCaches[nCache].nIndex = nCache;
        m_aCaches[nCache].update.SetShallowMode(true);
        m_aucNewUpdate[nCache] = 0;
        m_aucError[nCache] = 0;
    }
    SetUseSenderInfo(true);
}

CClientMsgHandler::~CClientMsgHandler()
{
    Shutdown();
}

bool CClientMsgHandler::InitialiseClient(unsigned int unPort, const char* szLocalAddress, const char* szGroup,
                                         const char* szInterfaceAddress)
{
    const std::int64_t nNow = CClock::Microseconds();
    m_nStartHigh = HighWord(nNow);
    m_unStartLow = LowWord(nNow);
    m_unDefaultPort = unPort;
    const bool bOpened = InitialiseLocalSockets(unPort, szLocalAddress, szInterfaceAddress, 1);
    const bool bJoined = AddToGroup(szGroup);
    return bOpened || bJoined;
}

bool CClientMsgHandler::StartPPCSender(int nPeriod)
{
    if (m_pPPCSender != nullptr)
    {
        CUtility::Debug("CClientMsgHandler::StartPPCSender - already have sender");
        return false;
    }
    CUtility::Debug("CClientMsgHandler::StartPPCSender - about to new!");
    try
    {
        m_pPPCSender.reset(new CPPCSender(nPeriod, this));
        CUtility::Debug("CClientMsgHandler::StartPPCSender - created sender");
    }
    catch (const std::exception&)
    {
    }
    const bool bStarted = m_pPPCSender != nullptr && m_pPPCSender->Start(-1);
    CUtility::Debug("CClientMsgHandler::StartPPCSender start %d", bStarted);
    return bStarted;
}

void CClientMsgHandler::StopPPCSender()
{
    if (m_pPPCSender != nullptr)
    {
        m_bStopSending = true;
        m_pPPCSender->Stop();
        m_bStopSending = false;
    }
}

void CClientMsgHandler::Shutdown()
{
    if (m_pProcessing->IsHere())
    {
        m_pProcessing->bShutdownLater = true; // the receive thread may be waiting for the cache
        return;
    }
    StopPPCSender();
    StopReceiving();
}

bool CClientMsgHandler::SendAll()
{
    if (m_bSending.exchange(true))
    {
        return false;
    }
    struct stSending
    {
        ~stSending() { bSending = false; }
        std::atomic<bool>& bSending;
    };
    const stSending sending = {m_bSending};
    return SendQueue();
}

bool CClientMsgHandler::GenerateMultiplePPCPacket(const unsigned char* pData, int nSize, UDP_PACKET* pPacket)
{
    return nSize <= c_nMaxPayload && pPacket != nullptr &&
           MakeFragment(enDatagramPPC, CClock::Seconds(), pData, nSize, 1, *pPacket) > 0;
}

void CClientMsgHandler::OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender)
{
    CUtility::Debug("CClientMsgHandler::OnReceivedData length %d", static_cast<int>(lLength));
    m_Counters.CountSender(sender, static_cast<std::uint32_t>(std::max(lLength, 0L)));
    if (!IsAccepted(sender))
    {
        RejectUnread(lLength, enRejectedSender);
        CUtility::Debug("CClientMsgHandler::OnReceivedData - sender %s is not accepted, ignoring", sender.Text());
        return;
    }
    if (m_pProcessing->IsHere())
    {
        RejectUnread(lLength, enRejectedLock);
        CUtility::Debug("CClientMsgHandler::OnReceivedData - called within ProcessMCUpdate, ignoring");
        return;
    }
    const int nCache = m_nCurrentCache;
    int nResult = enNoMessage;
    bool bNewUpdate = false;
    const char* szRefusal = nullptr;
    {
        // One hold over joining and decoding: what the application finds is one update, whole.
        const CLockGuard<CMutex> guard(m_aCaches[nCache].mutex);
        if (!guard.IsHeld())
        {
            RejectUnread(lLength, enRejectedLock);
            return;
        }
        unsigned char* const pBuffer = m_aCaches[nCache].pBuffer.get();
        Unpoison(pBuffer, enReceiveBufferSize);
        stJoining joining = {pBuffer, enReceiveBufferSize, enDatagramMCUpdate, nCache, nullptr, 0};
        nResult = Reassemble(pData, lLength, joining, sender);
        if (nResult == enDatagramMCUpdate)
        {
            m_unMessageId = joining.unMessageId;
            szRefusal = DecodeUpdate(nCache, joining.pMessage, joining.nSize);
            bNewUpdate = m_aucNewUpdate[nCache] != 0;
        }
        Poison(pBuffer, enReceiveBufferSize);
    }
    CMCUpdateMsg::PrintRefusal(szRefusal);
    if (nResult == enDatagramMCUpdate)
    {
        if (bNewUpdate)
        {
            RememberSender(sender);
        }
        m_nCurrentCache = 1 - nCache;
    }
    else if (nResult == enNoMessage)
    {
        CUtility::Debug("CClientMsgHandler::OnReceivedData - received partial packet");
    }
    else
    {
        m_Counters.Count(enCountForeign);
        CUtility::Debug("CClientMsgHandler::OnReceivedData - received incorrect packet type (should be bma update), ignoring");
    }
}

#ifdef RYSOCKETIO_RECEIVE_ROOM
char* CClientMsgHandler::ReceiveRoom(long& lSize)
{
    lSize = c_nMaxDatagram;
    return DatagramRoom();
}
#endif

void CClientMsgHandler::RejectUnread(long lLength, enReceiveCounter enReason)
{
    CountDatagram(lLength);
    Reject(enReason);
}

int CClientMsgHandler::ProcessMCUpdate(const CMCUpdateMsg&)
{
    CUtility::Debug("CClientMsgHandler::ProcessMCUpdate - called");
    return 0;
}

int CClientMsgHandler::UpdateBMA()
{
    if (m_pProcessing->IsHere())
    {
        CUtility::Debug("CClientMsgHandler::UpdateBMA - called within ProcessMCUpdate, ignoring");
        return enUpdateNone;
    }
    int nResult = enUpdateInitial;
    bool bApplied = false;
    for (int nCache = 0; nCache < enCaches; ++nCache)
    {
        nResult = ApplyCache(nCache, nResult, bApplied);
        DoWhatWasPutOff();
    }
    if (bApplied || nResult == enUpdateDecodeError)
    {
        return nResult;
    }
    std::int64_t nLast = 0;
    if (m_SurfaceTiming.GetLast(nLast) && CClock::Microseconds() - nLast <= c_nTimeoutMicroseconds)
    {
        return enUpdateNone;
    }
    ++m_nMCTimeouts;
    return enUpdateTimeout;
}

// What ProcessMCUpdate asked for and its cache's mutex was in the way of.
void CClientMsgHandler::DoWhatWasPutOff()
{
    if (std::exchange(m_pProcessing->bClearLater, false))
    {
        ClearReceiveErrors();
    }
    if (std::exchange(m_pProcessing->bShutdownLater, false))
    {
        Shutdown();
    }
}

void CClientMsgHandler::ReceivedMCData(unsigned char* pData, long lLength)
{
    if (m_pProcessing->IsHere())
    {
        CountUnlocked();
        CUtility::Debug("CClientMsgHandler::ReceivedMCData - called within ProcessMCUpdate, ignoring");
        return;
    }
    const int nCache = m_nCurrentCache;
    const char* szRefusal = nullptr;
    {
        const CLockGuard<CMutex> guard(m_aCaches[nCache].mutex);
        if (!guard.IsHeld())
        {
            CountUnlocked();
            return;
        }
        // A decoded update points into the cache's own buffer, whoever's bytes these are.
        unsigned char* const pBuffer = m_aCaches[nCache].pBuffer.get();
        Unpoison(pBuffer, enReceiveBufferSize);
        if (pData != nullptr && lLength > 0 && lLength <= enReceiveBufferSize)
        {
            std::memmove(pBuffer, pData, static_cast<std::size_t>(lLength));
            pData = pBuffer;
        }
        else if (pData != nullptr)
        {
            lLength = 0;
        }
        szRefusal = DecodeUpdate(nCache, pData, lLength);
        ReleaseView(nCache);
        Poison(pBuffer, enReceiveBufferSize);
    }
    CMCUpdateMsg::PrintRefusal(szRefusal);
}

void CClientMsgHandler::CountUnlocked()
{
    m_Counters.Count(enCountUpdates);
    m_Counters.Count(enDecodeErrorLock);
}

bool CClientMsgHandler::AcceptSender(const char* szAddress)
{
    // As senders' addresses are written: some C libraries read others, too, that nobody would ever have.
    in_addr address;
    char acAddress[INET_ADDRSTRLEN];
    if (szAddress == nullptr || inet_pton(AF_INET, szAddress, &address) != 1 ||
        inet_ntop(AF_INET, &address, acAddress, sizeof acAddress) == nullptr || std::strcmp(acAddress, szAddress) != 0 ||
        m_nAcceptedSenders >= enMaxAcceptedSenders)
    {
        return false;
    }
    m_aAcceptedSenders[m_nAcceptedSenders++] = szAddress;
    return true;
}

void CClientMsgHandler::ClearReceiveErrors()
{
    if (m_pProcessing->IsHere())
    {
        m_pProcessing->bClearLater = true;
        return;
    }
    for (int nCache = 0; nCache < enCaches; ++nCache)
    {
        const CLockGuard<CMutex> guard(m_aCaches[nCache].mutex);
        if (guard.IsHeld())
        {
            m_aCaches[nCache].update.ClearError();
            m_aucNewUpdate[nCache] = m_aCaches[nCache].bWaits ? 1 : 0;
            m_aucError[nCache] = 0;
        }
    }
}

float CClientMsgHandler::GetSurfUpdatePeriod()
{
    return m_SurfaceTiming.TakeMeanPeriod();
}

float CClientMsgHandler::GetRotsUpdatePeriod()
{
    return m_RotaryTiming.TakeMeanPeriod();
}

int CClientMsgHandler::GetMCTimeouts()
{
    const int nTimeouts = m_nMCTimeouts;
    m_nMCTimeouts = 0;
    return nTimeouts;
}

bool CClientMsgHandler::GetLastSender(RySocketIO::CIPString& sender)
{
    const CLockGuard<CMutex> guard(m_SenderMutex);
    if (!guard.IsHeld())
    {
        return false;
    }
    sender = m_Sender;
    return m_bSenderChanged.exchange(false);
}

bool CClientMsgHandler::IsAccepted(const RySocketIO::CIPString& sender) const
{
    const RySocketIO::CIPString* const pEnd = m_aAcceptedSenders + m_nAcceptedSenders;
    return m_nAcceptedSenders == 0 || std::find(m_aAcceptedSenders, pEnd, sender) != pEnd;
}

// Returns the line to be printed when nobody waits for the cache: standard output may take its time.
const char* CClientMsgHandler::DecodeUpdate(int nCache, const unsigned char* pData, long lLength)
{
    CUtility::Debug("CClientMsgHandler::ReceivedMCData - called");
    CMCUpdateMsg& update = m_aCaches[nCache].update;
    m_aCaches[nCache].pMessage = pData;
    m_aCaches[nCache].unMessage = pData != nullptr ? static_cast<std::size_t>(std::max(lLength, 0L)) : 0;
    const CPoisonedAfter readable(m_aCaches[nCache].pMessage, m_aCaches[nCache].unMessage);
    m_Counters.Count(enCountUpdates);
    m_Counters.Count(enCountSuperseded, m_aCaches[nCache].bWaits ? 1 : 0);
    m_aCaches[nCache].bWaits = false; // overwritten, whatever comes of this one
    const char* szRefusal = nullptr;
    if (!DecodeMessage(update, pData, lLength, szRefusal))
    {
        int nCode = 0;
        update.HaveError(&nCode);
        m_aucError[nCache] = 1;
        CUtility::Debug("CClientMsgHandler::ReceivedMCData - error with update msg parsing: %d, cache %d", nCode, nCache);
        return szRefusal;
    }
    const std::int64_t nNow = CClock::Microseconds();
    const std::int64_t nStart = JoinWords(m_nStartHigh, m_unStartLow);
    if (update.GetUpdateType() == enMCUpdateSurface)
    {
        m_SurfaceTiming.Record(nNow, nStart);
    }
    else if (update.GetUpdateType() == enMCUpdateRotary)
    {
        m_RotaryTiming.Record(nNow, nStart);
    }
    m_aCaches[nCache].bWaits = true;
    m_aCaches[nCache].unSequence = ++m_unSequence;
    m_aCaches[nCache].unMessageId = m_unMessageId;
    m_aucNewUpdate[nCache] = 1;
    return nullptr;
}

// False, too, for a good message after a bad one: the error stays until it is cleared.
bool CClientMsgHandler::DecodeMessage(CMCUpdateMsg& update, const unsigned char* pData, long lLength, const char*& szRefusal)
{
    const bool bParsed = update.Parse(pData, static_cast<std::size_t>(std::max(lLength, 0L)), szRefusal);
    if (!bParsed)
    {
        m_Counters.Count(pData == nullptr ? enDecodeErrorNull : enDecodeErrorInvalid);
        return false;
    }
    stMCUpdateHeader header;
    std::memcpy(&header, pData, sizeof header);
    m_Counters.Count(enCountLengthMismatch, header.nBodyLength == lLength - long(sizeof header) ? 0 : 1);
    const bool bError = update.HaveError(nullptr);
    m_Counters.Count(enCountRefused, bError ? 1 : 0);
    return !bError;
}

void CClientMsgHandler::RememberSender(const RySocketIO::CIPString& sender)
{
    const CLockGuard<CMutex> guard(m_SenderMutex);
    if (guard.IsHeld() && sender != m_Sender)
    {
        m_Sender = sender;
        m_bSenderChanged = true;
    }
}

// Messages from the front of the queue, in hand for as long as this lives. Those that are done go with it.
class CClientMsgHandler::CLoan
{
public:
    explicit CLoan(CClientMsgHandler& handler) : apEntries(), nEntries(0), nDone(0), m_Handler(handler)
    {
        const CLockGuard<CCritSec> guard(m_Handler.m_PPCBufferLock);
        nEntries = guard.IsHeld() ? m_Handler.m_PPCBuffer.Borrow(apEntries, c_nBorrowedAtOnce) : 0;
    }
    ~CLoan()
    {
        int nOwned = 0;
        int nMissing = 0;
        {
            const CLockGuard<CCritSec> guard(m_Handler.m_PPCBufferLock);
            if (guard.IsHeld())
            {
                nOwned = m_Handler.m_PPCBuffer.GiveBack(nDone, nMissing);
            }
        }
        for (int nEntry = 0; nEntry < nOwned; ++nEntry)
        {
            delete[] apEntries[nEntry];
        }
        for (; nMissing > 0; --nMissing)
        {
            CUtility::Debug("CClientMsgHandler::GetPPCBufferSize - remove from queue failed");
        }
    }
    CLoan(const CLoan&) = delete;
    CLoan& operator=(const CLoan&) = delete;

    CRawPPCMsg* apEntries[c_nBorrowedAtOnce];
    int nEntries;
    int nDone;

private:
    CClientMsgHandler& m_Handler;
};

// One datagram a pass, until the queue is drained. A message that can't be packed, however often it is met, leaves the passes
// without a result; so that they don't take the processor, each then rests.
bool CClientMsgHandler::SendQueue()
{
    bool bLastSend = false;
    int nPPCs = 0;
    int nSent = 0;
    for (bool bDrained = false; !bDrained;)
    {
        int nSize = 0;
        const int nPacked = PackRecords(nSize, bDrained);
        if (nPacked > 0)
        {
            SendPacket(nSize, bLastSend, nSent);
            CUtility::Debug("CClientMsgHandler::SendAll - sent %d PPCs in this packet", nPacked);
            nPPCs += nPacked;
        }
        if (bDrained && nSent > 0)
        {
            CUtility::Debug("CClientMsgHandler::SendAll - \n\n\t\tsent %d PPCs total in %d packets", nPPCs, nSent);
        }
        if (m_bStopSending)
        {
            break;
        }
        if (!bDrained && nPacked == 0)
        {
            std::this_thread::sleep_for(c_FruitlessRest);
        }
    }
    return bLastSend;
}

// Moves records from the front of the queue into the send packet. Returns how many, nSize their bytes.
int CClientMsgHandler::PackRecords(int& nSize, bool& bDrained)
{
    int nPacked = 0;
    for (bool bFull = false; !bFull && !bDrained;)
    {
        CLoan loan(*this);
        bDrained = loan.nEntries == 0;
        while (loan.nDone < loan.nEntries && !bFull && !bDrained)
        {
            const CRawPPCMsg& message = *loan.apEntries[loan.nDone];
            int nCode = 0;
            if (message.HaveError(&nCode))
            {
                CUtility::Debug("CClientMsgHandler::GetPPCBufferSize - error serialising PPC msg: %d", nCode);
                bDrained = true;
                break;
            }
            unsigned char* pFree = m_pSendPacket->acPayload + nSize;
            const std::size_t unRecord = message.WriteTo(pFree, static_cast<std::size_t>(c_nMaxPayload - nSize));
            bFull = unRecord == 0;
            loan.nDone += bFull ? 0 : 1;
            nSize += static_cast<int>(unRecord);
        }
        nPacked += loan.nDone;
    }
    return nPacked;
}

// To every remote address; nSent counts the sends that succeeded.
void CClientMsgHandler::SendPacket(int nSize, bool& bLastSend, int& nSent)
{
    if (!GenerateMultiplePPCPacket(m_pSendPacket->acPayload, nSize, m_pSendPacket.get()))
    {
        CUtility::Debug("CClientMsgHandler::SendAll - data too large for packet");
        return;
    }
    const int nDatagram = c_nDatagramHeader + nSize;
    CUtility::Debug("CClientMsgHandler::SendAll - sending, size %d", nDatagram);
    for (int nAddress = 0; nAddress < m_nRemoteAddresses; ++nAddress)
    {
        const stRemoteAddress& address = m_aRemoteAddresses[nAddress];
        const unsigned int unPort = address.nPort != 0 ? static_cast<unsigned int>(address.nPort) : m_unDefaultPort;
        bLastSend = Send(address.acAddress, unPort, reinterpret_cast<const char*>(m_pSendPacket.get()), nDatagram);
        CUtility::Debug("CClientMsgHandler::SendAll - send packet %d", bLastSend);
        nSent += bLastSend ? 1 : 0;
        if (m_bStopSending && !bLastSend)
        {
            break; // who waits for the end does not wait for each address in turn
        }
    }
}

// Counts at the end of a block, however that is left.
class CClientMsgHandler::CCount
{
public:
    CCount(CReceiveCounters& counters, enReceiveCounter enFirst) : enCounter(enFirst), m_Counters(counters) {}
    ~CCount() { m_Counters.Count(enCounter); }
    CCount(const CCount&) = delete;
    CCount& operator=(const CCount&) = delete;

    enReceiveCounter enCounter;

private:
    CReceiveCounters& m_Counters;
};

// One cache's turn in UpdateBMA: the result so far goes in, the result with this cache comes out.
int CClientMsgHandler::ApplyCache(int nCache, int nResult, bool& bApplied)
{
    CUtility::Debug("CClientMsgHandler::UpdateBMA - cache %d, Error: %s, New Update: %s", nCache, FlagText(m_aucError[nCache]),
                    FlagText(m_aucNewUpdate[nCache]));
    if (m_aucError[nCache] != 0)
    {
        return enUpdateDecodeError;
    }
    if (m_aucNewUpdate[nCache] == 0)
    {
        return nResult;
    }
    const CLockGuard<CMutex> guard(m_aCaches[nCache].mutex);
    if (!guard.IsHeld() || !m_aCaches[nCache].bWaits)
    {
        return m_aucError[nCache] != 0 ? int(enUpdateDecodeError) : nResult; // went bad just now
    }
    const CPoisonedAfter readable(m_aCaches[nCache].pMessage, m_aCaches[nCache].unMessage);
    bApplied = true;
    m_aCaches[nCache].bWaits = false;
    m_aucNewUpdate[nCache] = 0;
    m_unProcessedSequence = m_aCaches[nCache].unSequence;
    m_unProcessedId = m_aCaches[nCache].unMessageId;
    const CMCUpdateMsg* const pUpdate = &m_aCaches[nCache].update;
    const CProcessing::CHold hold(*m_pProcessing);
    CCount count(m_Counters, enCountThrown);
    int nProcessed = nResult;
    const bool bDone = RySocketIO::Completes([&] { nProcessed = ProcessMCUpdate(*pUpdate); });
    count.enCounter = bDone ? enCountApplied : enCountThrown;
    if (!bDone)
    {
        CUtility::Debug("CClientMsgHandler::UpdateBMA - ProcessMCUpdate threw, cache %d", nCache);
    }
    return nProcessed;
}
