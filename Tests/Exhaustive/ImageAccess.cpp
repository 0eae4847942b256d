#include "Exhaustive/ImageAccess.h"

#include "Support/Blocks.h"

#include <algorithm>
#include <cstring>

namespace Exhaustive
{

namespace
{

template <typename T>
T As(const tValue& value)
{
    T typed;
    std::memcpy(&typed, value.data(), sizeof typed);
    return typed;
}

template <typename T>
tValue Bytes(const T& typed)
{
    tValue value = {};
    std::memcpy(value.data(), &typed, sizeof typed);
    return value;
}

// A switch is one byte here and an int in the library.
tValue FromInt(int nType, int nValue)
{
    return nType == enSwitches ? tValue{static_cast<unsigned char>(nValue)} : Bytes(nValue);
}

int ToInt(int nType, const tValue& value)
{
    return nType == enSwitches ? value[0] : As<int>(value);
}

template <typename T>
tValue Get(const CBMAContainer& image, const stAddress& at, T typed)
{
    image.GetPPC(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, typed);
    return Bytes(typed);
}

std::string BlockDifference(const char* szWhat, int nType, const void* pBlock, const tBlock& expected)
{
    const unsigned char* pBytes = static_cast<const unsigned char*>(pBlock);
    if (pBytes == nullptr)
    {
        return std::string("no block of ") + szWhat;
    }
    tBlock whole(expected);
    whole.resize(whole.size() + Support::c_nBehind);
    const auto at = std::mismatch(whole.begin(), whole.end(), pBytes);
    return at.first == whole.end() ? ""
                                   : std::string(szWhat) + " block of type " + std::to_string(nType) + " at byte " +
                                         std::to_string(at.first - whole.begin()) + " of " + std::to_string(expected.size());
}

// Of a type, in flat order from here on.
const stAddress* FirstOf(int nType)
{
    const stAddress* pFirst = EveryAddress().data();
    for (int nBefore = 0; nBefore < nType; ++nBefore)
    {
        pFirst += CountOf(nBefore);
    }
    return pFirst;
}

std::string SIDifference(const CBMAContainer& image, const stConsoleModel& model)
{
    CTally tally;
    for (const int nType : {enRotaries, enFaders})
    {
        const stAddress* pAt = FirstOf(nType);
        for (const float fExpected : model.aSI[nType])
        {
            float fSI = 0;
            image.GetPPCSI(TypeOf(*pAt), PathTypeOf(*pAt), pAt->nPath, pAt->nParam, fSI);
            tally.Check(fSI == fExpected, "SI", *pAt++);
        }
    }
    return tally.Text();
}

} // namespace

void SetPPC(CBMAContainer& image, const stAddress& at, const tValue& value, enWriteModes enMode)
{
    const auto set = [&](auto typed)
    { image.SetPPC(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, typed, enMode == enLight, enMode == enSendOnly); };
    switch (at.nType)
    {
    case enStrings:
        return set(As<RyGConsoleString>(value));
    case enRotaries:
    case enFaders:
        return set(As<float>(value));
    case enMeters:
        return set(As<unsigned char>(value));
    default:
        return set(ToInt(at.nType, value));
    }
}

tValue GetPPC(const CBMAContainer& image, const stAddress& at, const tValue& before)
{
    switch (at.nType)
    {
    case enStrings:
        return Get(image, at, As<RyGConsoleString>(before));
    case enRotaries:
    case enFaders:
        return Get(image, at, As<float>(before));
    case enMeters:
        return Get(image, at, As<unsigned char>(before));
    default:
        int nValue = ToInt(at.nType, before);
        image.GetPPC(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, nValue);
        return FromInt(at.nType, nValue);
    }
}

void SetFlag(CBMAContainer& image, int nScope, const stAddress& at, int nValue)
{
    static constexpr decltype(&CBMAContainer::SetPPCStoreScope) s_apSet[c_nScopes] = {
        &CBMAContainer::SetPPCStoreScope, &CBMAContainer::SetPPCRecallScope, &CBMAContainer::SetPPCGlobalScope,
        &CBMAContainer::SetPPCSafeScope};
    const auto pSet = s_apSet[nScope];
    (image.*pSet)(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, nValue);
}

int GetFlag(const CBMAContainer& image, int nScope, const stAddress& at, int nBefore)
{
    static constexpr decltype(&CBMAContainer::GetPPCStoreScope) s_apGet[c_nScopes] = {
        &CBMAContainer::GetPPCStoreScope, &CBMAContainer::GetPPCRecallScope, &CBMAContainer::GetPPCGlobalScope,
        &CBMAContainer::GetPPCSafeScope};
    const auto pGet = s_apGet[nScope];
    (image.*pGet)(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, nBefore);
    return nBefore;
}

void BlockWriteScope(CBMAContainer& image, int nScope, stPPCWithSI* pRecords, int nCount)
{
    static constexpr decltype(&CBMAContainer::BlockWriteStoreScope) s_apWrite[c_nScopes] = {
        &CBMAContainer::BlockWriteStoreScope, &CBMAContainer::BlockWriteRecallScope, &CBMAContainer::BlockWriteGlobalScope,
        &CBMAContainer::BlockWriteSafeScope};
    const auto pWrite = s_apWrite[nScope];
    (image.*pWrite)(pRecords, nCount);
}

bool SetBlockPosition(CBMAContainer& image, int nTag, const stAddress& at, CBMAContainer::stBlockRef& cursor)
{
    const auto place = [&](auto tag)
    { return image.SetBlockPosition(TypeOf(at), PathTypeOf(at), at.nPath, at.nParam, cursor, tag); };
    switch (nTag)
    {
    case 0:
        return place(Int2Type<0>());
    case 1:
        return place(Int2Type<1>());
    case 2:
        return place(Int2Type<2>());
    case 3:
        return place(Int2Type<3>());
    default:
        return place(Int2Type<4>());
    }
}

const unsigned char* ValueBlock(const CBMAContainer& image, int nType)
{
    const void* pBlock = nullptr;
    long lBytes = 0;
    image.GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pBlock, lBytes);
    return static_cast<const unsigned char*>(pBlock);
}

unsigned char* FlagBlock(CBMAContainer& image, int nScope, int nType)
{
    CBMAContainer::stBlockRef cursor;
    SetBlockPosition(image, c_anTags[nScope], {nType, 0, 0, 0}, cursor);
    return static_cast<unsigned char*>(cursor.pMemory);
}

void Write(stConsoleModel& model, const stAddress& at, const tValue& value, enWriteModes enMode)
{
    const bool bBit = at.nType == enSwitches; // neither held against limits nor spared by the light set
    const char* const szOperation = enMode == enLight ? "SetPPCLite" : "SetPPC";
    const bool bRefused =
        !IsType(at.nType) || (enMode == enSendOnly && at.nType != enMeters) || (!bBit && !RefusalText(szOperation, at).empty());
    if (bRefused || FlatIndex(at) < 0)
    {
        return;
    }
    const std::size_t unAt = static_cast<std::size_t>(FlatIndex(at));
    model.aFlags[enGlobal][at.nType][unAt] = 0;
    if (enMode != enLight || bBit)
    {
        model.aValues[at.nType][unAt] = value;
    }
}

stPPCWithSI Record(const stAddress& at, const tValue& value, float fSI, int nScope)
{
    stPPCWithSI record;
    record.enMessageType = TypeOf(at);
    record.enPathType = PathTypeOf(at);
    record.nPath = at.nPath;
    record.nParameter = at.nParam;
    record.fSI = fSI;
    record.nScope = nScope;
    std::memcpy(record.value.acBytes, value.data(), value.size());
    if (at.nType == enSwitches)
    {
        record.value.nValue = value[0];
    }
    return record;
}

void Fill(CBMAContainer& image, const stConsoleModel& model)
{
    for (int nType = 0; nType < c_nTypes; ++nType)
    {
        const tBlock values = model.ValueBlock(nType);
        std::memcpy(const_cast<unsigned char*>(ValueBlock(image, nType)), values.data(), values.size());
        for (int nScope = 0; nScope < c_nScopes; ++nScope)
        {
            const tBlock flags = model.FlagBlock(nScope, nType);
            std::memcpy(FlagBlock(image, nScope, nType), flags.data(), flags.size());
        }
    }
    for (const int nType : {enRotaries, enFaders})
    {
        const stAddress* pAt = FirstOf(nType);
        for (const float fSI : model.aSI[nType])
        {
            image.SetPPCSI(TypeOf(*pAt), PathTypeOf(*pAt), pAt->nPath, pAt->nParam, fSI, false);
            ++pAt;
        }
    }
}

std::string Difference(CBMAContainer& image, const stConsoleModel& model)
{
    static const char* const s_aszScopes[c_nScopes] = {"store", "recall", "global", "safe"};
    std::string strDifference = SIDifference(image, model);
    for (int nType = 0; nType < c_nTypes && strDifference.empty(); ++nType)
    {
        strDifference = BlockDifference("value", nType, ValueBlock(image, nType), model.ValueBlock(nType));
        for (int nScope = 0; nScope < c_nScopes && strDifference.empty(); ++nScope)
        {
            const tBlock flags = model.FlagBlock(nScope, nType);
            strDifference = BlockDifference(s_aszScopes[nScope], nType, FlagBlock(image, nScope, nType), flags);
        }
    }
    return strDifference;
}

std::string Difference(CCBMAContainerScopeMask& mask, const tBlock (&flags)[c_nTypes])
{
    std::string strDifference;
    for (int nType = 0; nType < c_nTypes && strDifference.empty(); ++nType)
    {
        void* pBlock = nullptr;
        long lBytes = 0;
        mask.GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pBlock, lBytes);
        const tBlock expected = Packed(flags[nType]);
        const bool bAsLong = lBytes == static_cast<long>(expected.size());
        strDifference = bAsLong ? BlockDifference("mask", nType, pBlock, expected) : "length of a mask's block";
    }
    return strDifference;
}

} // namespace Exhaustive
