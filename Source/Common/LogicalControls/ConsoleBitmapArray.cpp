#include "LogicalControls/ConsoleBitmapArray.h"

#include "ClientComms/SimpleUDPPPCSender.h"
#include "LogicalControls/BlockPosition.h"
#include "LogicalControls/CheckWord.h"
#include "Runtime/FailurePolicy.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

namespace
{

// A broken invariant of the caller's. Part of the function that it is in, so that the stack begins there.
[[noreturn, gnu::always_inline]] inline void AssertionFailed(const char* szCondition, const char* szFunction, unsigned int unLine)
{
    AssertFailStdErrAbort policy;
    policy.ReportWhat("ASSERT", szFunction, "Source/Common/LogicalControls/ConsoleBitmapArray", unLine, szCondition, nullptr, 0);
    policy.DoAction();
    std::abort(); // DoAction did not return
}

constexpr int c_nMicInputs = 144;
constexpr int c_nMicInputPatch = 16; // the integer that holds a mic input's patching

} // namespace

const int CBMAContainer::m_anScopeMasks[4] = {enStoreScope, enRecallScope, enGlobalScope, enSafeScope};

CBMAContainer::CBMAContainer() : m_bWriteEnable(true), m_bUseSimpleSender(false) {}

CBMAContainer::CBMAContainer(const CBMAContainer& other) : CBMAContainer()
{
    *this = other;
}

CBMAContainer& CBMAContainer::operator=(const CBMAContainer& other)
{
    for (int nScope : m_anScopeMasks)
    {
        m_aScopeFlags[nScope] = other.m_aScopeFlags[nScope];
    }
    m_Values = other.m_Values;
    m_bUseSimpleSender = other.m_bUseSimpleSender;
    m_RotarySI = other.m_RotarySI;
    m_FaderSI = other.m_FaderSI;
    if (&other != this)
    {
        std::fill(std::begin(m_aCursors), std::end(m_aCursors), stBlockRef());
    }
    InitSimplePPCSenderComms();
    return *this;
}

CBMAContainer::~CBMAContainer()
{
    DeInitSimplePPCSenderComms();
}

void CBMAContainer::SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float fValue,
                           bool bLite, bool bSendOnly)
{
    if (!m_bWriteEnable || (enType != enRotary && enType != enFader))
    {
        return;
    }
    stParameterFlags& global = m_aScopeFlags[enGlobalScope];
    if (!bSendOnly && enType == enRotary)
    {
        Store(m_Values.rotaries, global.rotaries, enPathType, nPath, nParam, fValue, bLite);
    }
    else if (!bSendOnly)
    {
        Store(m_Values.faders, global.faders, enPathType, nPath, nParam, fValue, bLite);
    }
    Send(enType, enPathType, nPath, nParam, fValue, bSendOnly);
}

void CBMAContainer::SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue,
                           bool bLite, bool bSendOnly)
{
    if (!m_bWriteEnable || (enType != enSwitch && enType != enInteger && enType != enOther))
    {
        return;
    }
    stParameterFlags& global = m_aScopeFlags[enGlobalScope];
    if (!bSendOnly && enType == enSwitch)
    {
        Store(m_Values.switches, global.switches, enPathType, nPath, nParam, nValue, bLite);
    }
    else if (!bSendOnly && enType == enInteger)
    {
        Store(m_Values.integers, global.integers, enPathType, nPath, nParam, nValue, bLite);
    }
    else if (!bSendOnly)
    {
        Store(m_Values.others, global.others, enPathType, nPath, nParam, nValue, bLite);
    }
    // An integer goes out without the flag whatever bSendOnly says: that is meant.
    Send(enType, enPathType, nPath, nParam, nValue, bSendOnly && enType != enInteger);
}

void CBMAContainer::SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                           RyGConsoleString& strValue, bool bLite, bool bSendOnly)
{
    if (!m_bWriteEnable || enType != enString)
    {
        return;
    }
    if (!bSendOnly)
    {
        Store(m_Values.strings, m_aScopeFlags[enGlobalScope].strings, enPathType, nPath, nParam, strValue, bLite);
    }
    Send(enType, enPathType, nPath, nParam, strValue, bSendOnly);
}

// Meters are stored whatever bSendOnly says, and never sent: that is meant.
void CBMAContainer::SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                           unsigned char ucValue, bool bLite, bool)
{
    if (m_bWriteEnable && enType == enMeter)
    {
        Store(m_Values.meters, m_aScopeFlags[enGlobalScope].meters, enPathType, nPath, nParam, ucValue, bLite);
    }
}

void CBMAContainer::SetPPC(tagenPPCMessageType, tagenVirtualPathType, int, int, double, bool, bool)
{
    AssertionFailed("0", "void CBMAContainer::SetPPC(enPPCMessageType, enVirtualPathType, int, int, double, bool, bool)", __LINE__);
}

void CBMAContainer::GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float& fValue) const
{
    if (enType == enRotary)
    {
        m_Values.rotaries.GetPPC(enPathType, nPath, nParam, fValue);
    }
    else if (enType == enFader)
    {
        m_Values.faders.GetPPC(enPathType, nPath, nParam, fValue);
    }
}

void CBMAContainer::GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int& nValue) const
{
    if (enType == enSwitch)
    {
        m_Values.switches.GetPPC(enPathType, nPath, nParam, nValue);
    }
    else if (enType == enInteger)
    {
        m_Values.integers.GetPPC(enPathType, nPath, nParam, nValue);
    }
    else if (enType == enOther)
    {
        m_Values.others.GetPPC(enPathType, nPath, nParam, nValue);
    }
}

void CBMAContainer::GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                           RyGConsoleString& strValue) const
{
    if (enType == enString)
    {
        m_Values.strings.GetPPC(enPathType, nPath, nParam, strValue);
    }
}

void CBMAContainer::GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                           unsigned char& ucValue) const
{
    if (enType == enMeter)
    {
        m_Values.meters.GetPPC(enPathType, nPath, nParam, ucValue);
    }
}

void CBMAContainer::GetPPC(tagenPPCMessageType, tagenVirtualPathType, int, int, double&) const
{
    AssertionFailed("0", "void CBMAContainer::GetPPC(enPPCMessageType, enVirtualPathType, int, int, double&)", __LINE__);
}

void CBMAContainer::SetPPCSI(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float fValue,
                             bool bLite)
{
    const auto store = [&](auto& values)
    { bLite ? values.SetPPCLite(enPathType, nPath, nParam, fValue) : values.SetPPC(enPathType, nPath, nParam, fValue); };
    if (enType == enFader)
    {
        store(m_FaderSI);
    }
    else if (enType == enRotary)
    {
        store(m_RotarySI);
    }
    else
    {
        AssertionFailed("NASTY", "void CBMAContainer::SetPPCSI(enPPCMessageType, enVirtualPathType, int, int, float, bool)",
                        __LINE__);
    }
}

void CBMAContainer::GetPPCSI(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                             float& fValue) const
{
    if (enType == enFader)
    {
        m_FaderSI.GetPPC(enPathType, nPath, nParam, fValue);
    }
    else if (enType == enRotary)
    {
        m_RotarySI.GetPPC(enPathType, nPath, nParam, fValue);
    }
}

int CBMAContainer::GetCommonParamTypePPC(tagenVirtualPathType enPathType, int nPath, enCommonParamTypes enCommonType) const
{
    int nValue = 0;
    if (enCommonType < 0 || enCommonType >= c_nCommonParamTypes || enPathType < 0 || enPathType >= c_nPathTypes)
    {
        return nValue;
    }
    const int nParam = canCommonParamTypesTable[enCommonType][enPathType];
    if (nParam != -1)
    {
        GetPPC(static_cast<tagenPPCMessageType>(caCommonParamTypeToMessageType[enCommonType]), enPathType, nPath, nParam, nValue);
    }
    return nValue;
}

void CBMAContainer::GetMessageMemory(tagenPPCMessageType enType, void*& pMemory, long& lBytes)
{
    pMemory = nullptr;
    lBytes = 0;
    VisitArray(m_Values, enType,
               [&](auto& values)
               {
                   pMemory = values.GetMemoryPointer();
                   lBytes = values.GetByteAllocation();
               });
}

void CBMAContainer::GetMessageMemory(tagenPPCMessageType enType, const void*& pMemory, long& lBytes) const
{
    pMemory = nullptr;
    lBytes = 0;
    VisitArray(m_Values, enType,
               [&](const auto& values)
               {
                   pMemory = values.GetMemoryPointer();
                   lBytes = values.GetByteAllocation();
               });
}

void CBMAContainer::GetMeterMemory(void*& pMemory, long& lBytes)
{
    GetMessageMemory(enMeter, pMemory, lBytes);
}

void CBMAContainer::GetStringMemory(void*& pMemory, long& lBytes)
{
    GetMessageMemory(enString, pMemory, lBytes);
}

void CBMAContainer::GetIntegerMemory(void*& pMemory, long& lBytes)
{
    GetMessageMemory(enInteger, pMemory, lBytes);
}

void CBMAContainer::GetRotaryMemory(void*& pMemory, long& lBytes)
{
    GetMessageMemory(enRotary, pMemory, lBytes);
}

void CBMAContainer::GetSwitchMemory(void*& pMemory, long& lBytes)
{
    GetMessageMemory(enSwitch, pMemory, lBytes);
}

void CBMAContainer::GetFaderMemory(void*& pMemory, long& lBytes)
{
    GetMessageMemory(enFader, pMemory, lBytes);
}

void CBMAContainer::GetOwnCopyMessageMemory(tagenPPCMessageType enType, void* pDestination) const
{
    const void* pMemory = nullptr;
    long lBytes = 0;
    GetMessageMemory(enType, pMemory, lBytes);
    if (pMemory != nullptr && pDestination != nullptr)
    {
        std::memcpy(pDestination, pMemory, static_cast<std::size_t>(lBytes));
    }
}

void* CBMAContainer::GetCParamArray(tagenPPCMessageType enType)
{
    void* pArray = nullptr;
    VisitArray(m_Values, enType, [&](auto& values) { pArray = &values; });
    return pArray;
}

void CBMAContainer::UpdateXors()
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        VisitArray(m_Values, static_cast<tagenPPCMessageType>(nType),
                   [](auto& values)
                   {
                       const void* pMemory = values.GetMemoryPointer();
                       values.SetXorVal(pMemory != nullptr ? CheckWord(pMemory, values.GetByteAllocation()) : 0);
                   });
    }
}

std::uint32_t CBMAContainer::GetXorVal(tagenPPCMessageType enType) const
{
    std::uint32_t unCheck = 0;
    VisitArray(m_Values, enType, [&](const auto& values) { unCheck = values.m_unXorVal; });
    return unCheck;
}

void CBMAContainer::CopyMicInputPatching(CBMAContainer& source)
{
    for (int nPath = 0; nPath < c_nMicInputs; ++nPath)
    {
        int nPatch = 0;
        source.GetPPC(enInteger, enMicInput, nPath, c_nMicInputPatch, nPatch);
        SetPPC(enInteger, enMicInput, nPath, c_nMicInputPatch, nPatch, false, false);
    }
}

void CBMAContainer::SetUseSimplePPCSender(bool bUse)
{
    m_bUseSimpleSender = bUse;
}

void CBMAContainer::InitSimplePPCSenderComms()
{
    if (!m_bUseSimpleSender)
    {
        return;
    }
    DeInitSimplePPCSenderComms();
    m_pSimpleSender.reset(new (std::nothrow) SimpleUDPPPCSender);
    if (m_pSimpleSender != nullptr)
    {
        m_pSimpleSender->InitComms();
    }
}

void CBMAContainer::DeInitSimplePPCSenderComms()
{
    if (m_pSimpleSender != nullptr)
    {
        m_pSimpleSender->DeInitComms();
        m_pSimpleSender.reset();
    }
}

// A write that the value array refuses must not touch the flag either.
template <class Values, class Flags, class Value>
void CBMAContainer::Store(Values& values, Flags& flags, tagenVirtualPathType enPathType, int nPath, int nParam, const Value& value,
                          bool bLite)
{
    if (bLite)
    {
        if (values.SetPPCLite(enPathType, nPath, nParam, value))
        {
            flags.SetPPCLite(enPathType, nPath, nParam, 0);
        }
    }
    else if (values.SetPPC(enPathType, nPath, nParam, value))
    {
        flags.SetPPC(enPathType, nPath, nParam, 0);
    }
}

template <class Value>
void CBMAContainer::Send(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, const Value& value,
                         bool bFlag)
{
    if (m_bUseSimpleSender && m_pSimpleSender != nullptr)
    {
        m_pSimpleSender->SendPPCMessage<Value>(enType, enPathType, nPath, nParam, value, bFlag);
    }
}
