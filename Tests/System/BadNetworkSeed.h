// One seed of updates through a bad network, over real sockets.
#pragma once

#include "LogicalControls.h"
#include "Network/BadNetwork.h"
#include "Support/Figures.h"
#include "Support/NumberedHandler.h"
#include "Support/ReassemblyModel.h"
#include "Support/Wire.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

constexpr char c_szGroup[] = "225.0.0.46";
constexpr unsigned int c_unPort = 7060;
constexpr std::uint32_t c_unFirstId = 0x7fffff00; // the messages lie on both sides of 2^31
constexpr std::uint32_t c_unNoDatagram = 0xffffffff;

stFaults FaultsOf(std::uint32_t unSeed);

// The updates of one seed, from the sender's numbers to the explanation of each that was not applied.
class CSeed
{
public:
    CSeed(std::uint32_t unSeed, std::uint32_t unUpdates, Support::CFigures& figures)
        : m_unSeed(unSeed), m_unUpdates(unUpdates), m_Figures(figures), m_Network(FaultsOf(unSeed)), m_Wire(c_szGroup, c_unPort)
    {
    }

    void Run(RySocketIO::CSocket& sender);

private:
    struct stCompletion
    {
        Support::stContents contents;
        std::vector<const Support::stWired*> fragments;
        const Support::stWired* pLast;
        bool bDecodes;
        bool bApplied;
    };

    void Send(RySocketIO::CSocket& sender);
    void Put(RySocketIO::CSocket& sender, const std::vector<stArrival>& arrivals);
    void Receive(Support::CNumberedHandler& handler, const std::atomic<bool>& bSent);
    void Replay(const stReceiveStatistics& statistics);
    void MatchApplied(std::vector<Support::stSeen> applied);
    void CheckApplied(const stCompletion& completion, const Support::stSeen& applied);
    void Balance(const stReceiveStatistics& statistics, const RySocketIO::stSocketStatistics& socket);
    void Explain();
    std::string ReasonOf(std::uint32_t unDatagram, const std::set<std::uint32_t>& lostInKernel) const;
    std::string ReasonAfterArrival(std::uint32_t unUpdate) const;
    bool Has(const Support::stWired& wired, enFault enWhat) const;
    bool IsDamaged(const Support::stWired& wired) const { return Has(wired, enFaultTruncated) || Has(wired, enFaultCorrupted); }

    const std::uint32_t m_unSeed;
    const std::uint32_t m_unUpdates;
    Support::CFigures& m_Figures;
    CBadNetwork m_Network;
    Support::CWire m_Wire;
    std::vector<Support::stNumberedUpdate> m_Updates;
    std::vector<std::uint32_t> m_UpdateOfDatagram; // its place in m_Updates
    std::map<std::pair<std::uint32_t, bool>, std::set<enFault>> m_Faults;
    Support::CReassemblyModel m_Model;
    std::vector<stCompletion> m_Completions;
    Support::COrderCheck m_Order;
    std::set<std::uint32_t> m_Intact;    // datagrams of which an undamaged copy arrived
    std::set<std::uint32_t> m_Whole;     // numbers applied
    std::set<std::uint32_t> m_LeftAlone; // numbers handed over after a newer one
};
