// One whole console in memory.
#pragma once

#include "LogicalControls/ParameterArray.h"
#include "LogicalControls/ParameterModel.h"
#include "Runtime/Export.h"
#include "RyGConsoleString.h"

#include <cstdint>
#include <memory>

class SimpleUDPPPCSender;

// An image of every parameter of the console: one value array a message type, a store, recall, global and safe flag for each
// parameter, and an SI float beside each rotary and fader. A fresh image is all zero. Parameters are named by message type,
// path type, path and parameter, the last two 0-based; the overload is picked by the value's type:
//
//     float              rotaries, faders
//     int                switches (0 or 1), integers, others
//     RyGConsoleString   strings
//     unsigned char      meters
//
// A message type that an overload does not take is ignored, and a read leaves its result as it was. An address outside the
// limits is reported on standard error by the value array and changes nothing. Switches and scope flags are not held against the
// limits: outside their block they are ignored silently, inside it they are a neighbour's (IsParameterAddress tells beforehand).
// A double is a mistake that aborts: say 0.5f, not 0.5.
//
// Every value that is written through SetPPC clears the parameter's global flag, and with the simple sender in use goes out at
// once as a datagram, on the calling thread. Memory moved as whole blocks does neither.
//
// The container owns its arrays and its sender. It takes no lock: a client that shares one between threads serialises access.
// About 100 KB large beside its blocks: make it with new, or as a member of something that is.
class LOGICALCONTROLS_EXPORT CBMAContainer
{
public:
    // Where a block operation stands: a parameter, and the memory of its path.
    struct stBlockRef
    {
        stBlockRef() : nMessageType(-1), nPathType(-1), nPath(0), nParameter(0), pMemory(nullptr), lCount(0), lBaseIndex(0) {}

        int nMessageType;
        int nPathType;
        int nPath;
        int nParameter;
        void* pMemory;   // bits or elements
        long lCount;     // parameters of the path
        long lBaseIndex; // of its parameter 0
    };

    // The scopes by index: store, recall, global, safe.
    static const int m_anScopeMasks[4];

    CBMAContainer();

    // A copy has all values and flags, and its own sender when the original uses one; its cursors are fresh.
    CBMAContainer(const CBMAContainer& other);
    CBMAContainer& operator=(const CBMAContainer& other);
    virtual ~CBMAContainer();

    // Writes a value. bLite asks the array for its light set, which stores no value (but does store a switch, and the cleared
    // global flag). bSendOnly stores nothing and only sends; meters ignore it, and are never sent.
    void SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float fValue, bool bLite,
                bool bSendOnly);
    void SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue, bool bLite,
                bool bSendOnly);
    void SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, RyGConsoleString& strValue,
                bool bLite, bool bSendOnly);
    void SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, unsigned char ucValue,
                bool bLite, bool bSendOnly);
    [[noreturn]] void SetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, double, bool,
                             bool);

    void GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float& fValue) const;
    void GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int& nValue) const;
    void GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                RyGConsoleString& strValue) const;
    void GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, unsigned char& ucValue) const;
    [[noreturn]] void GetPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, double&) const;

    // The SI float of a rotary or fader; writing that of another type aborts.
    void SetPPCSI(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float fValue, bool bLite);
    void GetPPCSI(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, float& fValue) const;

    // One parameter's scope flags, 0 or 1.
    void SetPPCStoreScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue);
    void SetPPCRecallScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue);
    void SetPPCGlobalScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue);
    void SetPPCSafeScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int nValue);
    void GetPPCStoreScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int& nValue) const;
    void GetPPCRecallScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int& nValue) const;
    void GetPPCGlobalScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int& nValue) const;
    void GetPPCSafeScope(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, int& nValue) const;

    // The value of the parameter that plays a role on a path; 0 where the path type has none, and for a role whose values are
    // neither switches nor ints.
    int GetCommonParamTypePPC(tagenVirtualPathType enPathType, int nPath, enCommonParamTypes enCommonType) const;

    // A whole message type's block and its size in bytes, null and 0 for a type that does not exist. The block is the
    // container's: valid for as long as it lives.
    void GetMessageMemory(tagenPPCMessageType enType, void*& pMemory, long& lBytes);
    void GetMessageMemory(tagenPPCMessageType enType, const void*& pMemory, long& lBytes) const;
    void GetMeterMemory(void*& pMemory, long& lBytes);
    void GetStringMemory(void*& pMemory, long& lBytes);
    void GetIntegerMemory(void*& pMemory, long& lBytes);
    void GetRotaryMemory(void*& pMemory, long& lBytes);
    void GetSwitchMemory(void*& pMemory, long& lBytes);
    void GetFaderMemory(void*& pMemory, long& lBytes);

    // Copies a block to pDestination, which has room for it.
    void GetOwnCopyMessageMemory(tagenPPCMessageType enType, void* pDestination) const;

    // The value array of a message type, to be cast to what it is; null for a type that does not exist.
    void* GetCParamArray(tagenPPCMessageType enType);

    // Computes a check word over each value array; nothing else does. Equal blocks have equal check words.
    void UpdateXors();

    // The check word that UpdateXors last computed, 0 for a type that does not exist.
    std::uint32_t GetXorVal(tagenPPCMessageType enType) const;

    // Takes over which socket each mic input is patched to, value by value through SetPPC.
    void CopyMicInputPatching(CBMAContainer& source);

    // The simple sender: say that it is to be used, then start it. Clearing the flag stops its use and keeps it.
    void SetUseSimplePPCSender(bool bUse);
    void InitSimplePPCSenderComms();
    void DeInitSimplePPCSenderComms();

private:
    enum enScopes : int
    {
        enStoreScope,
        enRecallScope,
        enGlobalScope,
        enSafeScope,
        enScopeCount
    };

    template <class Values, class Flags, class Value>
    void Store(Values& values, Flags& flags, tagenVirtualPathType enPathType, int nPath, int nParam, const Value& value,
               bool bLite);
    template <class Value>
    void Send(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, const Value& value, bool bFlag);
    void SetScopeFlag(enScopes enScope, tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                      int nValue);
    void GetScopeFlag(enScopes enScope, tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                      int& nValue) const;

    bool m_bWriteEnable;
    bool m_bUseSimpleSender;
    std::unique_ptr<SimpleUDPPPCSender> m_pSimpleSender;
    stParameterValues m_Values;
    stParameterFlags m_aScopeFlags[enScopeCount];
    stBlockRef m_aCursors[6];
    CParameterArray<float, enRotary, false> m_RotarySI;
    CParameterArray<float, enFader, false> m_FaderSI;
};
