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

// Calls visit with the arrays of a message type, one of each family, when its values are of type T.
template <class T, class Visitor, class... Families>
void VisitArraysOf(tagenPPCMessageType enType, Visitor visit, Families&... families)
{
    if constexpr (std::is_same_v<T, float>)
    {
        enType == enRotary ? visit(families.rotaries...) : enType == enFader ? visit(families.faders...) : void();
    }
    else if constexpr (std::is_same_v<T, int>)
    {
        enType == enSwitch    ? visit(families.switches...)
        : enType == enInteger ? visit(families.integers...)
        : enType == enOther   ? visit(families.others...)
                              : void();
    }
    else if constexpr (std::is_same_v<T, RyGConsoleString>)
    {
        enType == enString ? visit(families.strings...) : void();
    }
    else
    {
        enType == enMeter ? visit(families.meters...) : void();
    }
}

} // namespace

const int CBMAContainer::m_anScopeMasks[4] = {enStoreScope, enRecallScope, enGlobalScope, enSafeScope};

// What most calls are, and then nothing else is called: a value for a parameter of the console, and no sender.
template <class T>
inline bool CBMAContainer::SetAtOnce(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                     const T& value, bool bLite, bool bSendOnly)
{
    bool bSet = false;
    const auto set = [&](auto& values, auto& flags)
    {
        const int nIndex = IndexIn(values, enPathType, nPath, nParam);
        if (nIndex >= 0 && values.Block() != nullptr)
        {
            StoreElement(values.Block(), nIndex, value, CompressionOf(values));
            WriteBit(flags.Block(), nIndex, false);
            bSet = true;
        }
    };
    if (m_bWriteEnable && !m_bUseSimpleSender && !bLite && !bSendOnly)
    {
        VisitArraysOf<T>(enType, set, m_Values, m_aScopeFlags[enGlobalScope]);
    }
    return bSet;
}

template <class T>
[[gnu::noinline]] void CBMAContainer::SetAndSend(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                                 T value, bool bLite, bool bSendOnly)
{
    // A write that the value array refuses must not touch the flag either.
    const auto set = [&](auto& values, auto& flags)
    {
        if (bLite ? values.SetPPCLite(enPathType, nPath, nParam, value) : values.SetPPC(enPathType, nPath, nParam, value))
        {
            flags.SetPPC(enPathType, nPath, nParam, 0);
        }
    };
    // Meters are stored whatever bSendOnly says, and never sent: that is meant.
    constexpr bool c_bMeter = std::is_same_v<T, unsigned char>;
    if (m_bWriteEnable && (!bSendOnly || c_bMeter))
    {
        VisitArraysOf<T>(enType, set, m_Values, m_aScopeFlags[enGlobalScope]);
    }
    if constexpr (!c_bMeter)
    {
        const auto send = [&](auto&)
        {
            // An integer goes out without the flag whatever bSendOnly says: that is meant.
            m_pSimpleSender->SendPPCMessage<T>(enType, enPathType, nPath, nParam, value, bSendOnly && enType != enInteger);
        };
        if (m_bWriteEnable && m_bUseSimpleSender && m_pSimpleSender != nullptr)
        {
            VisitArraysOf<T>(enType, send, m_Values);
        }
    }
}

template <class Values, class T>
inline void CBMAContainer::Load(const Values& values, tagenVirtualPathType enPathType, int nPath, int nParam, T& value)
{
    const int nIndex = IndexIn(values, enPathType, nPath, nParam);
    if (nIndex >= 0 && values.Block() != nullptr)
    {
        LoadElement(values.Block(), nIndex, value, CompressionOf(values));
    }
    else
    {
        values.GetPPC(enPathType, nPath, nParam, value);
    }
}

template <class T>
inline void CBMAContainer::Get(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, T& value) const
{
    const auto get = [&](const auto& values) { Load(values, enPathType, nPath, nParam, value); };
    VisitArraysOf<T>(enType, get, m_Values);
}

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
    if (!SetAtOnce(enType, enPathType, nPath, nParam, fValue, bLite, bSendOnly))
    {
        SetAndSend(enType, enPathType, nPath, nParam, fValue, bLite, bSendOnly);
    }
}

void CBMAContainer::SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue,
                           bool bLite, bool bSendOnly)
{
    if (!SetAtOnce(enType, enPathType, nPath, nParam, nValue, bLite, bSendOnly))
    {
        SetAndSend(enType, enPathType, nPath, nParam, nValue, bLite, bSendOnly);
    }
}

void CBMAContainer::SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                           RyGConsoleString& strValue, bool bLite, bool bSendOnly)
{
    if (!SetAtOnce(enType, enPathType, nPath, nParam, strValue, bLite, bSendOnly))
    {
        SetAndSend(enType, enPathType, nPath, nParam, strValue, bLite, bSendOnly);
    }
}

void CBMAContainer::SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                           unsigned char ucValue, bool bLite, bool bSendOnly)
{
    if (!SetAtOnce(enType, enPathType, nPath, nParam, ucValue, bLite, bSendOnly))
    {
        SetAndSend(enType, enPathType, nPath, nParam, ucValue, bLite, bSendOnly);
    }
}

void CBMAContainer::SetPPC(tagenPPCMessageType, tagenVirtualPathType, int, int, double, bool, bool)
{
    AssertionFailed("0", "void CBMAContainer::SetPPC(enPPCMessageType, enVirtualPathType, int, int, double, bool, bool)", __LINE__);
}

void CBMAContainer::GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float& fValue) const
{
    Get(enType, enPathType, nPath, nParam, fValue);
}

void CBMAContainer::GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int& nValue) const
{
    Get(enType, enPathType, nPath, nParam, nValue);
}

void CBMAContainer::GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                           RyGConsoleString& strValue) const
{
    Get(enType, enPathType, nPath, nParam, strValue);
}

void CBMAContainer::GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                           unsigned char& ucValue) const
{
    Get(enType, enPathType, nPath, nParam, ucValue);
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
        Load(m_FaderSI, enPathType, nPath, nParam, fValue);
    }
    else if (enType == enRotary)
    {
        Load(m_RotarySI, enPathType, nPath, nParam, fValue);
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
