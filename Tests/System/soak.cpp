// How the receiving side holds out: full load, a flood of junk, and a bad network for as long as one likes. What must hold is
// checked; how fast it went is told. Multicast: run it in a network namespace of its own.    soak [SECONDS]
#include "LogicalControls.h"
#include "Network/BadNetwork.h"
#include "Support/Figures.h"

#include <dirent.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace
{

using Support::Expect;
typedef std::chrono::steady_clock tClock;
typedef std::chrono::duration<double> tSeconds;

constexpr char c_szGroup[] = "225.0.0.46";
constexpr unsigned int c_unPort = 7060;
constexpr double c_dRounds = 1000;       // calls of UpdateBMA a second
constexpr int c_nJunkAtOnce = 100;       // so many of a flood leave without a pause
constexpr long c_lTolerance = 256 << 10; // bytes by which resident memory may end above where it began

tClock::duration Clock(double dSeconds)
{
    return std::chrono::duration_cast<tClock::duration>(tSeconds(dSeconds));
}

// Times, counted in steps of 1/16 of an octave.
class CTimes
{
public:
    void Add(double dSeconds)
    {
        std::size_t un = 0;
        for (double dStep = 1e-7; dStep < dSeconds && un + 1 < m_Counts.size(); dStep *= c_dStep)
        {
            ++un;
        }
        ++m_Counts[un];
        ++m_unCount;
        m_dWorst = std::max(m_dWorst, dSeconds);
    }
    void Print(const char* szWhat) const
    {
        std::printf("    %-40s half in %7.1f us, 99.9 %% in %8.1f us, worst %8.1f us\n", szWhat, At(0.5), At(0.999),
                    m_dWorst * 1e6);
    }

private:
    double At(double dShare) const
    {
        std::uint32_t unBelow = 0;
        double dStep = 0.1;
        for (std::size_t un = 0; un < m_Counts.size(); ++un, dStep *= c_dStep)
        {
            unBelow += m_Counts[un];
            if (unBelow >= dShare * m_unCount)
            {
                return dStep;
            }
        }
        return dStep;
    }

    static constexpr double c_dStep = 1.0443; // 2 to the power of 1/16
    std::vector<std::uint32_t> m_Counts = std::vector<std::uint32_t>(400);
    std::uint32_t m_unCount = 0;
    double m_dWorst = 0;
};

double ProcessorTimeOfThread()
{
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Follows an image whose every block is, in each update, one byte repeated: another byte for each update.
class CFollower : public CImageFollower
{
public:
    explicit CFollower(CBMAContainer& image) : CImageFollower(image) {}
    ~CFollower() override { Shutdown(); }

    void OnReceivedData(char* pData, long lLength, const RySocketIO::CIPString& sender) override
    {
        const double dStart = ProcessorTimeOfThread();
        CImageFollower::OnReceivedData(pData, lLength, sender);
        m_Datagrams.Add(ProcessorTimeOfThread() - dStart);
    }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        int nFirst = -1;
        for (int nType = 0; nType < c_nMessageTypes; ++nType)
        {
            const unsigned char* pArray = nullptr;
            int nLength = 0;
            if (!update.GetArray(static_cast<tagenPPCMessageType>(nType), pArray, nLength) || nLength == 0)
            {
                continue;
            }
            nFirst = nFirst < 0 ? pArray[0] : nFirst;
            const std::size_t unRest = static_cast<std::size_t>(nLength) - 1;
            m_unTorn += pArray[0] != nFirst || std::memcmp(pArray, pArray + 1, unRest) != 0 ? 1 : 0;
        }
        return CImageFollower::ProcessMCUpdate(update);
    }

    CTimes m_Datagrams;         // of the receive thread
    std::uint32_t m_unTorn = 0; // blocks that are not one byte repeated, or not the byte of their update
};

struct stLoad
{
    const char* szName;
    MCUpdateType aenUpdates[2]; // sent in turn
    double dUpdates;            // a second
    double dJunk;               // datagrams a second that are none
    std::uint32_t unFaults;     // each kind, in millionths
};

const stLoad c_aLoads[] = {
    {"2,000 full rotary updates a second", {enMCUpdateRotary, enMCUpdateRotary}, 2000, 0, 0},
    {"50 images a second in 100,000 datagrams of junk", {enMCUpdateSurface, enMCUpdateRotary}, 100, 100000, 0},
    {"50 images a second, 1 % of every fault", {enMCUpdateSurface, enMCUpdateRotary}, 100, 0, 10000},
};

// Sends, at a given rate, until its time is over.
class CSender
{
public:
    CSender(const stLoad& load, RySocketIO::CSocket& socket) : m_Load(load), m_Socket(socket), m_Network(FaultsOf(load))
    {
        const auto pImage = std::make_unique<CBMAContainer>();
        const auto pMessage = std::make_unique<CMCUpdateMsg>();
        for (std::vector<unsigned char>& message : m_aMessages)
        {
            BuildMCUpdate(*pImage, load.aenUpdates[&message - m_aMessages], *pMessage);
            message.resize(static_cast<std::size_t>(pMessage->GetTotalSize()));
            unsigned char* pOut = message.data();
            *pMessage >> &pOut;
            NoteBlocks(message);
        }
    }

    void Run(double dSeconds)
    {
        const tClock::time_point start = tClock::now();
        double dJunkSent = 0;
        for (double dNow = 0; dNow < dSeconds; dNow = tSeconds(tClock::now() - start).count())
        {
            const double dUpdateDue = m_unUpdates / m_Load.dUpdates;
            const double dJunkDue = m_Load.dJunk > 0 ? dJunkSent / m_Load.dJunk : dSeconds;
            if (dNow < std::min(dUpdateDue, dJunkDue))
            {
                std::this_thread::sleep_until(start + Clock(std::min(dUpdateDue, dJunkDue)));
            }
            else if (dUpdateDue <= dJunkDue)
            {
                SendUpdate();
            }
            else
            {
                for (int n = 0; n < c_nJunkAtOnce; ++n)
                {
                    Put("junk", 4);
                }
                dJunkSent += c_nJunkAtOnce;
            }
        }
        for (const stArrival& arrival : m_Network.Flush())
        {
            Put(arrival.bytes.data(), arrival.bytes.size());
        }
    }

    void Put(const void* pData, std::size_t unLength)
    {
        m_unSent += m_Socket.Send(c_szGroup, c_unPort, static_cast<const char*>(pData), static_cast<long>(unLength)) ? 1 : 0;
    }

    std::uint32_t m_unUpdates = 0;
    std::atomic<std::uint32_t> m_unSent{0}; // datagrams
    std::uint32_t GetCorrupted() const { return m_Network.GetCount(enFaultCorrupted); }

private:
    static stFaults FaultsOf(const stLoad& load)
    {
        stFaults faults;
        faults.unLoss = faults.unDuplicate = faults.unCorrupt = faults.unTruncate = load.unFaults;
        faults.unReorder = load.unFaults > 0 ? 4 : 0;
        return faults;
    }

    // Where the blocks lie within a message: behind the 17 bytes of the header, each behind its length.
    void NoteBlocks(const std::vector<unsigned char>& message)
    {
        std::vector<std::pair<std::size_t, std::size_t>> blocks;
        for (std::size_t unAt = 17; unAt < message.size();)
        {
            const std::size_t unLength = std::size_t(message[unAt]) << 24 | std::size_t(message[unAt + 1]) << 16 |
                                         std::size_t(message[unAt + 2]) << 8 | message[unAt + 3];
            blocks.emplace_back(unAt + 4, unLength);
            unAt += 4 + unLength;
        }
        m_aBlocks[&message - m_aMessages] = blocks;
    }

    void SendUpdate()
    {
        const std::size_t unWhich = m_unUpdates % 2;
        std::vector<unsigned char>& message = m_aMessages[unWhich];
        for (const auto& [unAt, unLength] : m_aBlocks[unWhich])
        {
            std::memset(&message[unAt], static_cast<int>(m_unUpdates % 61 + 1), unLength);
        }
        ++m_unUpdates;
        const long lSize = static_cast<long>(message.size());
        for (int nFragment = 1; nFragment <= CountFragments(lSize); ++nFragment)
        {
            const long lLength = MakeFragment(enDatagramMCUpdate, m_unUpdates, message.data(), lSize, nFragment, *m_pPacket);
            if (m_Load.unFaults == 0)
            {
                Put(m_pPacket.get(), static_cast<std::size_t>(lLength));
                continue;
            }
            m_Network.Send(0, m_pPacket.get(), static_cast<std::size_t>(lLength));
            m_Network.TakeRecords();
            for (const stArrival& arrival : m_Network.Receive(0))
            {
                Put(arrival.bytes.data(), arrival.bytes.size());
            }
        }
    }

    const stLoad& m_Load;
    RySocketIO::CSocket& m_Socket;
    CBadNetwork m_Network;
    std::vector<unsigned char> m_aMessages[2];
    std::vector<std::pair<std::size_t, std::size_t>> m_aBlocks[2];
    std::unique_ptr<UDP_PACKET> m_pPacket = std::make_unique<UDP_PACKET>();
};

// What the process holds.
struct stHeld
{
    long lResident; // bytes
    int nDescriptors;
    int nThreads;
};

int CountEntries(const char* szFolder)
{
    int nEntries = 0;
    if (DIR* pFolder = opendir(szFolder))
    {
        while (readdir(pFolder) != nullptr)
        {
            ++nEntries;
        }
        closedir(pFolder);
    }
    return nEntries;
}

stHeld Held()
{
    long lPages = 0;
    if (std::FILE* pFile = std::fopen("/proc/self/statm", "r"))
    {
        if (std::fscanf(pFile, "%*d %ld", &lPages) != 1)
        {
            lPages = 0;
        }
        std::fclose(pFile);
    }
    return {lPages * sysconf(_SC_PAGESIZE), CountEntries("/proc/self/fd"), CountEntries("/proc/self/task")};
}

class CRun
{
public:
    CRun(const stLoad& load, RySocketIO::CSocket& socket) : m_Load(load), m_Sender(load, socket) {}

    void Run(double dSeconds);

private:
    void Apply(const std::atomic<bool>& bSent, double dSeconds);
    void AwaitLast();
    void Print(double dSeconds) const;

    const stLoad& m_Load;
    CSender m_Sender;
    std::unique_ptr<CBMAContainer> m_pImage = std::make_unique<CBMAContainer>();
    std::unique_ptr<CFollower> m_pFollower = std::make_unique<CFollower>(*m_pImage);
    CTimes m_Rounds;
    stHeld m_First = {};
    stHeld m_Last = {};
    double m_dStop = 0;
};

// The application's loop.
void CRun::Apply(const std::atomic<bool>& bSent, double dSeconds)
{
    tClock::time_point next = tClock::now();
    tClock::time_point look = next + Clock(std::min(60.0, dSeconds / 2)); // when what is used now and then has been used
    while (!bSent)
    {
        next += Clock(1 / c_dRounds);
        std::this_thread::sleep_until(next);
        const tClock::time_point before = tClock::now();
        const int nResult = m_pFollower->UpdateBMA();
        m_Rounds.Add(tSeconds(tClock::now() - before).count());
        if (nResult == CClientMsgHandler::enUpdateDecodeError)
        {
            m_pFollower->ClearReceiveErrors();
        }
        if (before >= look)
        {
            const stHeld held = Held();
            m_Last = bSent ? m_Last : held; // without the sender's thread it holds less
            m_First = m_First.nThreads == 0 ? m_Last : m_First;
            look += Clock(0.2);
        }
    }
}

// What the kernel's own table has as lost at this port. An emulator doesn't hand on what the kernel tells a socket.
std::uint32_t DropsInTable()
{
    std::uint32_t unDrops = 0;
    char acLine[256];
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pTable(std::fopen("/proc/net/udp", "r"), std::fclose);
    while (pTable != nullptr && std::fgets(acLine, sizeof acLine, pTable.get()) != nullptr)
    {
        unsigned int unPort = 0;
        unsigned int unLost = 0;
        const int nFields =
            std::sscanf(acLine, " %*d: %*x:%x %*x:%*x %*x %*x:%*x %*x:%*x %*x %*u %*u %*u %*u %*s %u", &unPort, &unLost);
        unDrops += nFields == 2 && unPort == c_unPort ? unLost : 0;
    }
    return unDrops;
}

// The kernel tells what it lost with the next datagram that it hands out.
void CRun::AwaitLast()
{
    const auto count = [this] { return m_pFollower->GetSocketStatistics(); };
    const auto isAccounted = [&](std::uint32_t unLost) { return m_Sender.m_unSent == count().unDatagrams + unLost; };
    const auto isNeverTold = [&] { return count().unKernelDrops == 0 && isAccounted(DropsInTable()); };
    // A datagram is counted before it is handled: when one behind the last is, the last has been.
    bool bAccounted = false;
    for (int nTry = 0; nTry < 200 && !bAccounted; ++nTry)
    {
        m_Sender.Put("end", 3);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        bAccounted = isAccounted(count().unKernelDrops) || isNeverTold();
    }
    Expect(bAccounted, "%u datagrams sent, %u received, %u lost in the kernel, whose table has %u", m_Sender.m_unSent.load(),
           count().unDatagrams, count().unKernelDrops, DropsInTable());
    m_pFollower->UpdateBMA();
}

void CRun::Print(double dSeconds) const
{
    const stReceiveStatistics statistics = m_pFollower->GetStatistics();
    const auto count = [&](enReceiveCounter enCounter) { return statistics.aunCount[enCounter]; };
    const RySocketIO::stSocketStatistics socket = m_pFollower->GetSocketStatistics();
    std::printf("%s, for %.0f s\n", m_Load.szName, dSeconds);
    std::printf("    %.0f updates and %.0f datagrams a second sent; %u datagrams lost in the kernel, whose buffer has %d bytes\n",
                m_Sender.m_unUpdates / dSeconds, m_Sender.m_unSent / dSeconds, socket.unKernelDrops, socket.nReceiveBuffer);
    std::printf("    %u updates: %u came whole, %u applied, %u superseded, %u undecodable; %u blocks not as sent\n",
                m_Sender.m_unUpdates, count(enCountUpdates), count(enCountApplied), count(enCountSuperseded),
                count(enDecodeErrorInvalid), m_pFollower->m_unTorn);
    m_Rounds.Print("UpdateBMA, by the clock");
    m_pFollower->m_Datagrams.Print("a datagram, by processor time");
    std::printf("    stopped in %.1f ms; memory %+ld KiB, descriptors %+d, threads %+d\n", m_dStop * 1e3,
                (m_Last.lResident - m_First.lResident) / 1024, m_Last.nDescriptors - m_First.nDescriptors,
                m_Last.nThreads - m_First.nThreads);

    // What the network corrupted may complete a message three times at most: with its own last fragment, and with duplicates.
    Expect(m_pFollower->m_unTorn <= 3 * m_Sender.GetCorrupted(), "%u blocks not as sent, %u datagrams corrupted",
           m_pFollower->m_unTorn, m_Sender.GetCorrupted());
    Expect(count(enCountApplied) > 0, "nothing was applied");
    Expect(m_Load.dJunk == 0 || count(enRejectedTooShort) > 0, "no junk came");
    Expect(m_Load.unFaults == 0 || m_Sender.GetCorrupted() > 0, "no fault happened");
    Expect(count(enCountDatagrams) == statistics.Rejected() + count(enCountStored) + count(enCountCompleting),
           "datagrams are not accounted for");
    Expect(count(enCountUpdates) == count(enCountApplied) + count(enCountSuperseded) + count(enDecodeErrorInvalid) +
                                        count(enDecodeErrorNull) + count(enCountRefused) + count(enCountThrown),
           "updates are not accounted for");
    Expect(m_First.nThreads > 0 && m_Last.lResident - m_First.lResident <= c_lTolerance &&
               m_Last.nDescriptors == m_First.nDescriptors && m_Last.nThreads == m_First.nThreads,
           "more is held than at first: memory %+ld KiB, descriptors %+d, threads %+d", m_Last.lResident - m_First.lResident,
           m_Last.nDescriptors - m_First.nDescriptors, m_Last.nThreads - m_First.nThreads);
}

void CRun::Run(double dSeconds)
{
    if (!m_pFollower->InitialiseClient(c_unPort, nullptr, c_szGroup, nullptr) || m_pFollower->GetLocalPort() != c_unPort)
    {
        Expect(false, "no socket for %s:%u", c_szGroup, c_unPort);
        return;
    }
    std::atomic<bool> bSent(false);
    std::thread thread(
        [&]
        {
            m_Sender.Run(dSeconds);
            bSent = true;
        });
    Apply(bSent, dSeconds);
    thread.join();
    AwaitLast();
    const tClock::time_point before = tClock::now();
    m_pFollower->Shutdown();
    m_dStop = tSeconds(tClock::now() - before).count();
    Print(dSeconds);
}

} // namespace

int main(int nArguments, char** apszArguments)
{
    const double dSeconds = nArguments > 1 ? std::atof(apszArguments[1]) : 30;
    const auto pSender = std::make_unique<RySocketIO::CSocket>(RySocketIO::enConnectionUDP, false, false);
    if (!pSender->InitialiseLocalSockets(0, nullptr, nullptr, 1))
    {
        std::printf("FAILED: no socket to send from\n");
        return 1;
    }
    for (const stLoad& load : c_aLoads)
    {
        CRun(load, *pSender).Run(dSeconds / static_cast<double>(std::size(c_aLoads)));
        std::fflush(stdout);
    }
    std::printf(Support::g_nFailures == 0 ? "passed\n" : "%d failures\n", Support::g_nFailures);
    return Support::g_nFailures == 0 ? 0 : 1;
}
