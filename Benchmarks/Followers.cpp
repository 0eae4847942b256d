#include "Followers.h"

#include "Bench.h"
#include "Datagrams.h"
#include "Handlers.h"
#include "Images.h"

#include "LogicalControls.h"

#include <arpa/inet.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace
{

typedef std::chrono::duration<double> tSeconds;

constexpr int c_anFollowers[] = {1, 4, 16, 64};
constexpr int c_nRounds = 6;
constexpr int c_nPaced = 40; // updates of a paced turn; one as fast as can be has c_nMostUpdates
constexpr tSeconds c_Period(0.1);
constexpr int c_nWarmUp = 20; // every place in the rings has been used
constexpr tSeconds c_WarmUpPeriod(0.03);
constexpr std::uint32_t c_unFirstWarmUp = 1000; // ids from here on are not measured
constexpr unsigned int c_unLongestLife = 40;    // seconds of a follower
constexpr tSeconds c_LongestStart(15);
constexpr tSeconds c_LongestDrain(5);
constexpr tSeconds c_Quiet(0.3); // when nobody has applied anything for so long, nothing will come
constexpr char c_szGroup[] = "225.0.0.46";
constexpr unsigned int c_unPort = 7060;

// ---- A follower

// Applies each update where it is received, at once: what is measured does not depend on how often a program looks.
class CFollower : public CPromptHandler
{
public:
    CFollower(stShared& shared, stFollowerState& state) : m_Shared(shared), m_State(state) {}
    ~CFollower() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        ApplyMCUpdate(update, m_Image);
        const tClock::rep nNow = tClock::now().time_since_epoch().count();
        const std::uint32_t unId = GetUpdateId();
        if (unId < c_nMostUpdates)
        {
            m_State.afLatency[unId] = static_cast<float>(tSeconds(tClock::duration(nNow - m_Shared.anSentAt[unId])).count());
        }
        m_State.nLastAt = nNow;
        ++m_State.unApplied;
        return 0;
    }

private:
    stShared& m_Shared;
    stFollowerState& m_State;
    CBMAContainer m_Image;
};

double ProcessorSeconds()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time)
    { return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// The follower's process. It ends with the one that measures, and after a while whatever happens.
[[noreturn]] void Follow(pid_t parent, stShared& shared, stFollowerState& state, CGate& begin, CGate& end)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    alarm(c_unLongestLife);
    end.Open();
    begin.Open();
    if (getppid() != parent)
    {
        _exit(1);
    }
    const auto pFollower = std::make_unique<CFollower>(shared, state);
    if (!pFollower->InitialiseClient(c_unPort, nullptr, c_szGroup, nullptr) || pFollower->GetLocalPort() != c_unPort)
    {
        _exit(1);
    }
    state.nState = enReady;
    begin.Pass();
    const double dBefore = ProcessorSeconds();
    state.nState = enBegun;
    end.Pass();
    state.fProcessor = static_cast<float>(ProcessorSeconds() - dBefore);
    _exit(0);
}

// ---- The sender

// From an image to the group, as an MC does it.
class CSender
{
public:
    CSender()
        : m_pImage(RandomImage(3)), m_pMessage(new CMCUpdateMsg), m_pPacket(new UDP_PACKET), m_Group(LoopbackAddress(c_unPort))
    {
        inet_pton(AF_INET, c_szGroup, &m_Group.sin_addr);
    }

    // Seconds. The time right before the first datagram goes to pSentAt, if given.
    double Send(std::uint32_t unId, std::atomic<tClock::rep>* pSentAt)
    {
        const tClock::time_point start = tClock::now();
        BuildMCUpdate(*m_pImage, enMCUpdateRotary, *m_pMessage);
        m_Bytes.resize(static_cast<std::size_t>(m_pMessage->GetTotalSize()));
        unsigned char* pOut = m_Bytes.data();
        *m_pMessage >> &pOut;
        const long lBytes = static_cast<long>(m_Bytes.size());
        if (pSentAt != nullptr)
        {
            *pSentAt = tClock::now().time_since_epoch().count();
        }
        for (int nFragment = 1; nFragment <= CountFragments(lBytes); ++nFragment)
        {
            const long lSize = MakeFragment(enDatagramMCUpdate, unId, m_Bytes.data(), lBytes, nFragment, *m_pPacket);
            if (sendto(m_Socket.Descriptor(), m_pPacket.get(), static_cast<std::size_t>(lSize), 0,
                       reinterpret_cast<const sockaddr*>(&m_Group), sizeof m_Group) != lSize)
            {
                throw std::string("an update can't be sent");
            }
        }
        return tSeconds(tClock::now() - start).count();
    }

private:
    const tImage m_pImage;
    const std::unique_ptr<CMCUpdateMsg> m_pMessage;
    const std::unique_ptr<UDP_PACKET> m_pPacket;
    tBytes m_Bytes;
    CPlainSocket m_Socket;
    sockaddr_in m_Group;
};

// ---- A turn: so many followers from their start to their end

struct stTurn
{
    std::vector<double> sends;
    std::vector<double> latencies;
    std::vector<double> processor; // of a follower, an update that it applied
    double dSeconds;               // from the first send until the last was applied
    long lLost;
    long lApplied;
};

class CTurn
{
public:
    CTurn(CSender& sender, int nFollowers) : m_Sender(sender), m_nFollowers(nFollowers)
    {
        const pid_t parent = getpid();
        for (int nFollower = 0; nFollower < nFollowers; ++nFollower)
        {
            const pid_t child = fork();
            if (child == 0)
            {
                Follow(parent, *m_Shared, (*m_Shared).aFollowers[nFollower], m_Begin, m_End);
            }
            if (child > 0)
            {
                m_Children.push_back(child);
            }
        }
    }
    ~CTurn() { End(); }
    CTurn(const CTurn&) = delete;
    CTurn& operator=(const CTurn&) = delete;

    stTurn Run(int nUpdates, tSeconds period)
    {
        AwaitState(enReady);
        SendAll(c_unFirstWarmUp, c_nWarmUp, c_WarmUpPeriod);
        Drain(c_nWarmUp);
        const long lBefore = Applied();
        m_Begin.Open();
        AwaitState(enBegun);
        stTurn turn = {};
        turn.sends = SendAll(0, nUpdates, period);
        Drain(c_nWarmUp + nUpdates);
        turn.lApplied = Applied() - lBefore;
        turn.lLost = long(m_nFollowers) * nUpdates - turn.lApplied;
        End();
        Collect(nUpdates, turn);
        return turn;
    }

private:
    // Paced when there is a period.
    std::vector<double> SendAll(std::uint32_t unFirstId, int nUpdates, tSeconds period)
    {
        std::vector<double> seconds;
        const tClock::time_point start = tClock::now() + std::chrono::milliseconds(20);
        for (int nUpdate = 0; nUpdate < nUpdates; ++nUpdate)
        {
            std::this_thread::sleep_until(start + std::chrono::duration_cast<tClock::duration>(period * nUpdate));
            const std::uint32_t unId = unFirstId + static_cast<std::uint32_t>(nUpdate);
            seconds.push_back(m_Sender.Send(unId, unId < c_nMostUpdates ? &(*m_Shared).anSentAt[unId] : nullptr));
        }
        return seconds;
    }

    long Applied() const
    {
        return std::accumulate((*m_Shared).aFollowers, (*m_Shared).aFollowers + m_nFollowers, 0L,
                               [](long lSum, const stFollowerState& follower) { return lSum + long(follower.unApplied); });
    }

    void AwaitState(int nState)
    {
        const tClock::time_point start = tClock::now();
        for (int nFollower = 0; nFollower < m_nFollowers; ++nFollower)
        {
            while ((*m_Shared).aFollowers[nFollower].nState < nState)
            {
                if (tClock::now() - start > c_LongestStart)
                {
                    throw std::string("the followers don't start");
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        }
    }

    // Until everything was applied, or nothing more comes.
    void Drain(int nUpdates)
    {
        const tClock::time_point start = tClock::now();
        tClock::time_point changed = start;
        for (long lBefore = -1; lBefore < long(m_nFollowers) * nUpdates;)
        {
            const long lApplied = Applied();
            const tClock::time_point now = tClock::now();
            changed = lApplied != lBefore ? now : changed;
            lBefore = lApplied;
            if (now - changed > c_Quiet || now - start > c_LongestDrain)
            {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    // The followers end by themselves at the latest when their time is up, so this does, too.
    void End()
    {
        m_Begin.Open();
        m_End.Open();
        for (const pid_t child : m_Children)
        {
            waitpid(child, nullptr, 0);
        }
        m_Children.clear();
    }

    void Collect(int nUpdates, stTurn& turn) const
    {
        tClock::rep nLastAt = 0;
        for (int nFollower = 0; nFollower < m_nFollowers; ++nFollower)
        {
            const stFollowerState& follower = (*m_Shared).aFollowers[nFollower];
            const std::size_t unBefore = turn.latencies.size();
            std::copy_if(follower.afLatency, follower.afLatency + nUpdates, std::back_inserter(turn.latencies),
                         [](float fLatency) { return fLatency > 0; });
            const std::size_t unApplied = turn.latencies.size() - unBefore;
            if (unApplied == 0 || follower.fProcessor <= 0)
            {
                throw std::string("a follower has applied nothing");
            }
            turn.processor.push_back(double(follower.fProcessor) / static_cast<double>(unApplied));
            nLastAt = std::max<tClock::rep>(nLastAt, follower.nLastAt);
        }
        turn.dSeconds = tSeconds(tClock::duration(nLastAt - (*m_Shared).anSentAt[0])).count();
    }

    CSharedMemory m_Shared;
    CSender& m_Sender;
    const int m_nFollowers;
    CGate m_Begin;
    CGate m_End;
    std::vector<pid_t> m_Children;
};

// All turns of one kind: times and latencies of all rounds together, what is one number a round in a list.
struct stTurns
{
    void Add(const stTurn& turn)
    {
        sends.insert(sends.end(), turn.sends.begin(), turn.sends.end());
        latencies.insert(latencies.end(), turn.latencies.begin(), turn.latencies.end());
        processor.push_back(Median(turn.processor));
        rates.push_back(static_cast<double>(turn.lApplied) / turn.dSeconds);
        lLost += turn.lLost;
        lApplied += turn.lApplied;
    }

    std::vector<double> sends;
    std::vector<double> latencies;
    std::vector<double> processor;
    std::vector<double> rates; // applied a second, of all followers together
    long lLost = 0;
    long lApplied = 0;
};

} // namespace

void MeasureFollowers(std::FILE* pTable)
{
    if (std::getenv("LOGICALCONTROLS_OWN_NETWORK") == nullptr)
    {
        throw std::string("not in a network namespace of its own");
    }
    CSender sender;
    stTurns aPaced[std::size(c_anFollowers)];
    stTurns aFlatOut[std::size(c_anFollowers)];
    for (int nRound = 0; nRound < c_nRounds; ++nRound)
    {
        for (std::size_t unKind = 0; unKind < std::size(c_anFollowers); ++unKind)
        {
            aPaced[unKind].Add(CTurn(sender, c_anFollowers[unKind]).Run(c_nPaced, c_Period));
            aFlatOut[unKind].Add(CTurn(sender, c_anFollowers[unKind]).Run(c_nMostUpdates, tSeconds(0)));
        }
    }
    std::fprintf(pTable, "followers\tcores\tsend_us\tp50_us\tp99_us\tcpu_us\tlost\tof\tflat_send_us\tflat_cpu_us\tflat_applied_s\t"
                         "flat_lost_percent\n");
    for (std::size_t unKind = 0; unKind < std::size(c_anFollowers); ++unKind)
    {
        const stTurns& paced = aPaced[unKind];
        const stTurns& flat = aFlatOut[unKind];
        std::fprintf(pTable, "%d\t%ld\t%.1f\t%.1f\t%.1f\t%.1f\t%ld\t%ld\t%.1f\t%.1f\t%.0f\t%.2f\n", c_anFollowers[unKind],
                     sysconf(_SC_NPROCESSORS_ONLN), 1e6 * Median(paced.sends), 1e6 * Median(paced.latencies),
                     1e6 * Quantile(paced.latencies, 0.99), 1e6 * Median(paced.processor), paced.lLost,
                     paced.lLost + paced.lApplied, 1e6 * Median(flat.sends), 1e6 * Median(flat.processor), Median(flat.rates),
                     100 * static_cast<double>(flat.lLost) / static_cast<double>(flat.lLost + flat.lApplied));
    }
}
