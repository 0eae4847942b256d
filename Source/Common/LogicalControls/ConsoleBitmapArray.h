// One whole console in memory.
#pragma once

#include "LogicalControls/ParameterArray.h"
#include "LogicalControls/ParameterModel.h"
#include "Messages/PPCPacket.h"
#include "Runtime/Export.h"
#include "RyGConsoleString.h"

#include <cstdint>
#include <memory>

class CCBMAContainerScopeMask;
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
    // A block cursor: where a block operation stands. Fresh, it stands before the first parameter.
    struct stBlockRef
    {
        stBlockRef() : nMessageType(-1), nPathType(-1), nPath(0), nParameter(0), pMemory(nullptr), lCount(0), nBaseIndex(0) {}

        int nMessageType;
        int nPathType;
        int nPath;
        int nParameter;
        void* pMemory;           // the block: elements, or bits
        long lCount;             // parameters of the path
        std::int64_t nBaseIndex; // the flat number in the block of its parameter 0
    };

    // The scopes by index: store, recall, global, safe. A block operation's nScope is one of these.
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

    // Set or clear one scope's flag of each record, by its value as an int. Records of one path that follow each other cost one
    // look-up. A record whose path type is 51 or more counts as of the path that was looked up last in this call.
    void BlockWriteStoreScope(stPPCWithSI* pRecords, int nCount);
    void BlockWriteRecallScope(stPPCWithSI* pRecords, int nCount);
    void BlockWriteGlobalScope(stPPCWithSI* pRecords, int nCount);
    void BlockWriteSafeScope(stPPCWithSI* pRecords, int nCount);

    // Print one scope's flags of the parameters in the list to standard output: of path nPath, whatever path the records name. The
    // list ends at a record whose message type or path type is -1. All four close with the Store line: that is meant.
    void DumpStoreScopeParams(const tPPCPacket* pList, int nPath) const;
    void DumpRecallScopeParams(const tPPCPacket* pList, int nPath) const;
    void DumpGlobalScopeParams(const tPPCPacket* pList, int nPath) const;
    void DumpSafeScopeParams(const tPPCPacket* pList, int nPath) const;

    // Values and scope flags between two images, for shows. A value moves, with its SI float, where two of the flags below are
    // both set; a clear safe flag therefore protects a parameter. Meters never move. Nothing is sent, and no global flag is
    // cleared: values that were written one by one since their global flag was set stay out of the global exchange.
    //
    //   ImportGlobalParameters    from source, where global and safe are set here
    //   ExportGlobalParameters    to destination, where global and safe are set here
    //   ImportScopedParameters    from source, where recall and safe are set here
    //   ExportScopedParameters    to destination, where store and safe are set here; with a mask, where the mask and safe are; with
    //                             the safe-override switch (switch 230 of the globals) on and no mask, where store alone is
    //
    // With bStore or bRecall the source's store or recall flags are copied to the other image first, those of meters left out.
    void ImportGlobalParameters(const CBMAContainer& source);
    void ExportGlobalParameters(CBMAContainer& destination) const;
    void ImportScopedParameters(const CBMAContainer& source, bool bStore, bool bRecall);
    void ExportScopedParameters(CBMAContainer& destination, bool bStore, bool bRecall, const CCBMAContainerScopeMask* pMask) const;

    // Copies the store, or recall, flags of everything but meters: all, or those that the mask names.
    void ExportStoreScope(CBMAContainer& destination, const CCBMAContainerScopeMask* pMask) const;
    void ExportRecallScope(CBMAContainer& destination, const CCBMAContainerScopeMask* pMask) const;

    // Fills records with address, value, SI float (rotaries and faders) and, but for the scopeless form, one scope's flag. Returns
    // how many: 0 at the end of the image, and for a scope that does not exist.
    //
    // Block transfer is an image as records. Reading goes on from the read cursor in flat order (message type, path type, path,
    // parameter), writing goes by the records' addresses, in any order; records of one path that follow each other cost one
    // look-up. Both leave what a record's type has no use for as it was.
    //
    //     image.SetReadBlock(enString, enGlobals, 0, 0);
    //     while ((n = image.BlockReadPPC(records, 1000, CBMAContainer::m_anScopeMasks[0])) > 0)
    //         other.BlockWritePPC(records, n, CBMAContainer::m_anScopeMasks[0]);
    int BlockReadPPC(stPPCWithSI* pRecords, int nCount, int nScope);
    int BlockReadScopelessPPC(stPPCWithSI* pRecords, int nCount);

    // Writes value and SI float and, but for the scopeless form, the scope's flag of each record. Returns how many: a record whose
    // address names no parameter is passed over. Clears no global flag, and sends nothing.
    int BlockWritePPC(stPPCWithSI* pRecords, int nCount, int nScope);
    int BlockWriteScopelessPPC(stPPCWithSI* pRecords, int nCount);

    // Places the read cursor; false, and the cursor unmoved, when there is no such parameter. At the end of the image its message
    // type is 7. SetReadBlocks places two more beside it, on the recall and the store flags; GetReadBlocks shows these three, in
    // the order value, recall, store.
    bool SetReadBlock(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam);
    bool SetReadBlocks(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam);
    const stBlockRef& GetReadBlock() const;
    const stBlockRef* GetReadBlocks() const;

    // Places a cursor on a parameter's value (tag 0) or on its recall (1), store (2), global (3) or safe flag (4). True when there
    // is such a parameter. A path type of 51 or more leaves the cursor as it was; without a block it has null memory.
    bool SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, stBlockRef& cursor,
                          Int2Type<0>);
    bool SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, stBlockRef& cursor,
                          Int2Type<1>);
    bool SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, stBlockRef& cursor,
                          Int2Type<2>);
    bool SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, stBlockRef& cursor,
                          Int2Type<3>);
    bool SetBlockPosition(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, stBlockRef& cursor,
                          Int2Type<4>);

    // Where a cursor stands.
    static void GetBlockPosition(const stBlockRef& cursor, tagenPPCMessageType& enType, tagenVirtualPathType& enPathType,
                                 int& nPath, int& nParam);

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

    enum enCursors : int
    {
        enReadCursor,
        enReadRecallCursor,
        enReadStoreCursor,
        enScopeWriteCursor,
        enWriteCursor,
        enSpareCursor,
        enCursorCount
    };

    template <class T>
    bool SetAtOnce(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, const T& value, bool bLite,
                   bool bSendOnly);
    template <class T>
    LOGICALCONTROLS_INTERNAL void SetAndSend(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                             T value, bool bLite, bool bSendOnly);
    template <class T>
    void Get(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam, T& value) const;
    template <class Values, class T>
    static void Load(const Values& values, tagenVirtualPathType enPathType, int nPath, int nParam, T& value);
    void SetScopeFlag(enScopes enScope, tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                      int nValue);
    void GetScopeFlag(enScopes enScope, tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                      int& nValue) const;
    void BlockWriteScope(enScopes enScope, stPPCWithSI* pRecords, int nCount);
    void DumpScopeParams(enScopes enScope, const char* szStart, const tPPCPacket* pList, int nPath) const;
    static void MoveValues(const CBMAContainer& from, CBMAContainer& to, const stParameterFlags& maskA,
                           const stParameterFlags& maskB);
    void CopyScopes(CBMAContainer& destination, bool bStore, bool bRecall) const;
    void ExportScope(enScopes enScope, CBMAContainer& destination, const CCBMAContainerScopeMask* pMask) const;
    stParameterFlags* ScopeFlags(int nScope);
    int BlockRead(stPPCWithSI* pRecords, int nCount, const stParameterFlags* pFlags);
    void ReadRun(stPPCWithSI* pRecords, int nCount, const stParameterFlags* pFlags);
    bool GoToNextPath();
    int BlockWrite(stPPCWithSI* pRecords, int nCount, stParameterFlags* pFlags);
    int WriteRun(const stPPCWithSI* pRecords, int nCount, stParameterFlags* pFlags);

    bool m_bWriteEnable;
    bool m_bUseSimpleSender;
    std::unique_ptr<SimpleUDPPPCSender> m_pSimpleSender;
    stParameterValues m_Values;
    stParameterFlags m_aScopeFlags[enScopeCount];
    stBlockRef m_aCursors[enCursorCount];
    CParameterArray<float, enRotary, false> m_RotarySI;
    CParameterArray<float, enFader, false> m_FaderSI;
};
