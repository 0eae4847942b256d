// A handler and the model of it, fed alike through bad networks, seed after seed.
#pragma once

#include "ClientComms/ClientMsgHandler.h"

#include "Network/BadNetwork.h"
#include "Support/Bytes.h"
#include "Support/NumberedHandler.h"
#include "Support/ReassemblyModel.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace Support
{

typedef CReassemblyModel CModel;

// What an update, as the model joined it, is made of and came to.
struct stJoined
{
    std::uint32_t unSequence = 0;
    stContents contents;
    std::vector<std::size_t> tags;
    std::size_t unLastTag = 0;
};

enum enFate
{
    enFateApplied,    // newest of its type, and whole
    enFateOlder,      // a newer one of its type was applied before
    enFateDamaged,    // does not prove itself
    enFateUndecoded,  // is no update any more
    enFateRefused,    // came to a cache with an error
    enFateSuperseded, // overwritten before it was looked at
    enFateForeign,    // has become a message of another type
    enFateCount
};

struct stFigures
{
    std::map<enFault, std::uint32_t> faults;
    std::map<enFate, std::uint32_t> fates;
    std::uint32_t unUpdates = 0, unDatagrams = 0, unWhole = 0, unFragmentLost = 0, unFragmentDamaged = 0, unOtherFate = 0;
    std::uint32_t unEvicted = 0, unLate = 0;
};

// A handler and the model of it, run side by side, seed after seed.
class CSideBySide
{
public:
    void RunSeed(std::uint32_t unSeed);

    // Everything that the handler made of the seeds so far, in one number: every update that it handed over and every counter.
    std::uint32_t GetDigest() const { return m_unDigest; }

    stFigures m_Figures;

private:
    struct stCache
    {
        std::optional<stJoined> waiting;
        bool bError = false;
    };

    // An arrival, and what its datagram was.
    struct stTag
    {
        std::uint32_t unDatagram;
        bool bDamaged;
    };

    void Start();
    void Remember(CBadNetwork& network);
    void Deliver(const std::vector<stArrival>& arrivals);
    void Deliver(const tBytes& bytes, const stTag& tag);
    void Complete(const CModel::stResult& result);
    void Settle(const stJoined& joined, enFate enWhat);
    void LookForUpdates();
    void Apply(const stJoined& joined, const stSeen& seen);
    void ExpectStatistics();
    void Digest(std::uint32_t unValue) { m_unDigest = (m_unDigest ^ unValue) * 16777619u; }
    void Explain(const stNumberedUpdate& update, std::uint32_t unFirstDatagram);
    bool Explained(std::uint32_t unDatagram);

    std::unique_ptr<CNumberedHandler> m_pHandler = std::make_unique<CNumberedHandler>();
    const RySocketIO::CIPString m_Sender = RySocketIO::CIPString("10.1.2.3");
    CModel m_Model;
    stCache m_aCaches[2];
    int m_nCache = 0;
    std::uint32_t m_unSequence = 0;
    std::uint32_t m_unDigest = 2166136261u;
    std::map<int, std::uint32_t> m_Counts; // what the statistics have to show

    // Of the seed.
    std::vector<stTag> m_Tags;
    std::map<std::pair<std::uint32_t, bool>, std::vector<stFaultRecord>> m_Faults; // of a datagram or its duplicate
    std::vector<stNumberedUpdate> m_Updates;
    std::vector<std::uint32_t> m_UpdateOfDatagram;
    std::set<std::uint32_t> m_Intact;                  // datagrams of which an undamaged copy arrived
    std::map<std::uint32_t, std::set<enFate>> m_Fates; // of updates that had a part in it, by number
    std::set<std::uint32_t> m_Applied;                 // by number
    COrderCheck m_Order;
};

} // namespace Support
