#include "Faults/AllocationWalk.h"

#include "ClientComms/RawPPCQueue.h"
#include "Faults/FailingAllocator.h"
#include "Messages/MCUpdateMsg.h"
#include "Messages/RawPPCMsg.h"
#include "Support/Bytes.h"
#include "Support/Records.h"

#include <cstring>
#include <memory>
#include <vector>

// Messages, and the queue of those that wait.
namespace
{

using Faults::CPlenty;
using Faults::Expect;
using Faults::tAction;
using Support::tBytes;

constexpr int c_nQueued = 150; // more than a piece of the queue holds

int Code(const CRawPPCMsg& message)
{
    int nCode = 0;
    message.HaveError(&nCode);
    return nCode;
}

// A message that could not take over a value says so; one that could holds it.
bool IsHeld(const CRawPPCMsg& message, const tBytes& value)
{
    if (message.HaveError(nullptr))
    {
        Expect(Code(message) == CRawPPCMsg::enErrorNoMemory, "another code than 3");
        Expect(message.Value() == nullptr, "an error, and a value");
        return false;
    }
    Expect(Code(message) == 0, "a code without an error");
    Expect(message.Value() != nullptr && std::memcmp(message.Value(), value.data(), value.size()) == 0, "another value");
    return true;
}

tAction SetPPC()
{
    return [value = Support::Hex("bf400000")]
    {
        CRawPPCMsg message;
        const bool bSet = message.SetPPC(enRotary, 2, 3, 4, -0.75f);
        Expect(IsHeld(message, value) == bSet, "another result than the message's own");
        return bSet;
    };
}

tAction SetStringPPC()
{
    return [value = Support::Hex("4b69636b20496e000000000000")]
    {
        CRawPPCMsg message;
        const bool bSet = message.SetPPC(enString, 1, 143, 1, RyGConsoleString("Kick In"));
        Expect(IsHeld(message, value) == bSet, "another result than the message's own");
        return bSet;
    };
}

// Into messages that hold a value already.
tAction ParsePPC()
{
    return [record = Support::Hex(Support::c_szFloatRecord), value = Support::Hex("bf400000")]
    {
        CRawPPCMsg message;
        CRawPPCMsg trusting;
        {
            const CPlenty plenty;
            message.SetPPC(enInteger, 1, 2, 3, 4);
            trusting.SetPPC(enInteger, 1, 2, 3, 4);
        }
        const bool bParsed = message.Parse(record.data(), record.size());
        trusting << record.data();
        Expect(IsHeld(message, value) == bParsed, "another result than the message's own");
        return IsHeld(trusting, value) && bParsed;
    };
}

tAction CopyPPC()
{
    const auto pOriginal = std::make_shared<CRawPPCMsg>();
    pOriginal->SetPPC(enRotary, 2, 3, 4, -0.75f);
    return [pOriginal, value = Support::Hex("bf400000")]
    {
        const CRawPPCMsg copy(*pOriginal);
        CRawPPCMsg assigned;
        assigned = *pOriginal;
        CRawPPCMsg taken;
        taken.CopyToMe(copy);
        if (copy.HaveError(nullptr))
        {
            Expect(taken.HaveError(nullptr) && Code(taken) == CRawPPCMsg::enErrorNoValue, "a copy of nothing is something");
            return IsHeld(copy, value);
        }
        const bool bAssigned = IsHeld(assigned, value);
        return IsHeld(taken, value) && bAssigned;
    };
}

tAction SerialisePPC()
{
    const auto pMessage = std::make_shared<CRawPPCMsg>();
    pMessage->SetPPC(enRotary, 2, 3, 4, -0.75f);
    return [pMessage, record = Support::Hex(Support::c_szFloatRecord)]
    {
        unsigned char* pBytes = nullptr;
        *pMessage >> &pBytes;
        const std::unique_ptr<unsigned char[]> pHeld(pBytes);
        Expect(!pMessage->HaveError(nullptr), "the flag is set");
        Expect(pBytes != nullptr || Code(*pMessage) == CRawPPCMsg::enErrorNoOutput, "another code than 1");
        Expect(pBytes == nullptr || std::memcmp(pBytes, record.data(), record.size()) == 0, "other bytes");
        return pBytes != nullptr;
    };
}

tAction AnalyseStream()
{
    return [record = Support::Hex(Support::c_szFloatRecord)]
    {
        unsigned long aunCounts[7];
        Expect(CRawPPCMsg::AnalyseStream(record.data(), record.size(), aunCounts[0], aunCounts[1], aunCounts[2], aunCounts[3],
                                         aunCounts[4], aunCounts[5], aunCounts[6]) &&
                   aunCounts[1] == 1,
               "a stream is not counted");
        return true;
    };
}

tAction ConstructUpdate()
{
    return []
    {
        const std::unique_ptr<CMCUpdateMsg> pUpdate(new CMCUpdateMsg);
        const std::unique_ptr<CMCUpdateMsg> pCopy(new CMCUpdateMsg(*pUpdate));
        return true;
    };
}

tAction UseUpdate()
{
    tBytes update = Support::UpdateHeader(enMCUpdateRotary, 16);
    Support::AppendArray(update, {1, 2, 3});
    Support::AppendArray(update, {4, 5, 6, 7, 8});
    const auto pUpdate = std::make_shared<CMCUpdateMsg>();
    const auto pCopy = std::make_shared<CMCUpdateMsg>();
    const auto pOut = std::make_shared<tBytes>(update.size());
    return [=]
    {
        const unsigned char* pArray = nullptr;
        int nLength = 0;
        pUpdate->SetShallowMode(true);
        Expect(pUpdate->Parse(update.data(), update.size()), "a shallow parse fails");
        pUpdate->SetShallowMode(false);
        Expect(pUpdate->Parse(update.data(), update.size()), "a deep parse fails");
        Expect(pUpdate->SetArray(enString, update.data(), 3), "an array is not set");
        *pCopy = *pUpdate;
        unsigned char* pBytes = pOut->data();
        *pCopy >> &pBytes;
        Expect(pCopy->GetArray(enRotary, pArray, nLength) && nLength == 5 && pOut->back() == 8, "a copy lacks its arrays");
        pCopy->Clear(true);
        Expect(!pCopy->Parse(nullptr, 0) && pCopy->HaveError(nullptr), "no data is an update");
        pCopy->ClearError();
        return true;
    };
}

tAction ConstructQueue()
{
    return []
    {
        const CRawPPCQueue queue;
        return queue.GetQueueSize() == 0;
    };
}

tAction FillQueue()
{
    const auto pQueue = std::make_shared<CRawPPCQueue>();
    return [pQueue]
    {
        bool bAll = true;
        const int nBefore = pQueue->GetQueueSize();
        int nAdded = 0;
        for (int nMessage = 0; nMessage < c_nQueued; ++nMessage)
        {
            CRawPPCMsg* pMessages = nullptr;
            {
                const CPlenty plenty;
                pMessages = new CRawPPCMsg[2];
            }
            const bool bAdded = pQueue->AddMsgToTail(pMessages);
            if (!bAdded)
            {
                delete[] pMessages; // still ours
            }
            nAdded += bAdded ? 1 : 0;
            bAll = bAll && bAdded;
        }
        Expect(pQueue->GetQueueSize() == nBefore + nAdded, "the queue's size is not what was added");
        return bAll;
    };
}

tAction DrainQueue()
{
    const auto pQueue = std::make_shared<CRawPPCQueue>();
    return [pQueue]
    {
        {
            const CPlenty plenty;
            for (int nMessage = 0; nMessage < c_nQueued; ++nMessage)
            {
                pQueue->AddMsgToTail(new CRawPPCMsg[1]);
            }
        }
        CRawPPCMsg* apEntries[3] = {};
        int nMissing = 0;
        Expect(pQueue->Borrow(apEntries, 3) == 3 && pQueue->RemoveFront(), "nothing to borrow");
        const int nOwned = pQueue->GiveBack(2, nMissing);
        Expect(nOwned == 2 && nMissing == 1, "another loan was given back");
        delete[] apEntries[0];
        delete[] apEntries[1];
        delete[] pQueue->GetFrontMsg(true);
        Expect(pQueue->GetFrontMsg(false) != nullptr, "no front");
        pQueue->ClearQueue();
        return pQueue->GetQueueSize() == 0;
    };
}

} // namespace

Faults::tOperations Faults::MessageOperations()
{
    return {
        {"CRawPPCMsg::SetPPC", enRefused, SetPPC},          {"CRawPPCMsg::SetPPC of a string", enRefused, SetStringPPC},
        {"CRawPPCMsg parses", enRefused, ParsePPC},         {"CRawPPCMsg is copied", enRefused, CopyPPC},
        {"CRawPPCMsg serialises", enRefused, SerialisePPC}, {"CRawPPCMsg::AnalyseStream", enDone, AnalyseStream},
        {"CMCUpdateMsg", enBadAlloc, ConstructUpdate},      {"CMCUpdateMsg and all that it does", enDone, UseUpdate},
        {"CRawPPCQueue", enBadAlloc, ConstructQueue},       {"CRawPPCQueue is filled", enRefused, FillQueue},
        {"CRawPPCQueue is drained", enDone, DrainQueue},
    };
}
