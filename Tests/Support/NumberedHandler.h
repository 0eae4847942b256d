// An application that is sent numbered updates.
#pragma once

#include "ClientComms/ImageSync.h"
#include "Support/NumberedUpdates.h"

#include <cstdint>
#include <map>
#include <vector>

namespace Support
{

struct stSeen
{
    std::uint32_t unSequence;
    bool bNewest; // of its type, of those that prove themselves
    stContents contents;
};

// Remembers what UpdateBMA hands to it, and which of it is told to be the newest.
class CNumberedHandler : public CClientMsgHandler
{
public:
    explicit CNumberedHandler(bool bFlag = false) : CClientMsgHandler(bFlag) {}
    ~CNumberedHandler() override { Shutdown(); }

    int ProcessMCUpdate(const CMCUpdateMsg& update) override
    {
        stSeen seen = {GetUpdateSequence(), false, ContentsOf(update)};
        CUpdateOrder& order = m_Orders[seen.contents.unUpdateType];
        const CUpdateOrder::tTime now; // one moment for all: how long the test takes is no matter
        seen.bNewest = ProvesItself(seen.contents) && order.IsNewer(GetUpdateSequence(), GetUpdateId(), now);
        if (seen.bNewest)
        {
            order.SetNewest(GetUpdateSequence(), GetUpdateId(), now);
        }
        m_Seen.push_back(seen);
        return 0;
    }

    std::map<std::uint32_t, CUpdateOrder> m_Orders; // by update type
    std::vector<stSeen> m_Seen;
};

// By update type: whether what was applied and what was left alone is right. Nothing goes over what was sent later, unless the
// message id of one of the two was damaged.
class COrderCheck
{
public:
    void Clear() { m_Newest.clear(); }

    // An update that proves itself. False when it should not have been the newest, or should have been; bLate then and else tells
    // that one was before it that was sent later.
    bool Take(const stSeen& seen, std::uint32_t unNumber, bool bDamaged, bool& bLate)
    {
        const auto pNewest = m_Newest.find(seen.contents.unUpdateType);
        const bool bAny = pNewest != m_Newest.end();
        bLate = bAny && unNumber < pNewest->second.unNumber;
        const bool bOvertaken = bAny && seen.unSequence < pNewest->second.unSequence;
        const bool bRight = seen.bNewest == !(bLate || bOvertaken) || bDamaged || (bAny && pNewest->second.bDamaged);
        if (seen.bNewest)
        {
            m_Newest[seen.contents.unUpdateType] = {seen.unSequence, unNumber, bDamaged};
        }
        return bRight;
    }

private:
    struct stNewest
    {
        std::uint32_t unSequence;
        std::uint32_t unNumber;
        bool bDamaged;
    };

    std::map<std::uint32_t, stNewest> m_Newest;
};

} // namespace Support
