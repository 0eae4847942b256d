// One parameter change as a message: what waits in the outgoing queue.
#pragma once

#include "Messages/PPCPacket.h"
#include "Runtime/Export.h"
#include "Runtime/MemPool.h"

#include <cstddef>
#include <cstring>
#include <memory>

// Holds one serialised record: its 25-byte header as it travels, and its value bytes. The message owns its bytes; it takes no
// lock and belongs to one thread at a time. Nothing throws. Trouble is said on standard output and kept as a code that only a new
// message is free of:
//
//   1  no memory to serialise into; HaveError stays false, which is meant
//   2  a record without a value, or cut short; nothing to copy
//   3  no memory for the value
class LOGICALCONTROLS_EXPORT CRawPPCMsg : public MemPool::CMemPoolBase
{
public:
    enum : int
    {
        enErrorNoOutput = 1,
        enErrorNoValue = 2,
        enErrorNoMemory = 3
    };

    // A zero header and no value.
    CRawPPCMsg();
    CRawPPCMsg(const CRawPPCMsg& other);
    CRawPPCMsg& operator=(const CRawPPCMsg& other);
    ~CRawPPCMsg() override;

    // Frees the value. Header and error stay.
    void Clear() override;

    // Makes a valid record of these: a float for rotaries and faders, a string for strings, an int for switches, integers, others
    // and meters. False, and nothing changed, when value and type don't go together. The address is taken as it is.
    bool SetPPC(tagenPPCMessageType enType, int nPathType, int nPath, int nParam, float fValue);
    bool SetPPC(tagenPPCMessageType enType, int nPathType, int nPath, int nParam, int nValue);
    bool SetPPC(tagenPPCMessageType enType, int nPathType, int nPath, int nParam, const RyGConsoleString& strValue);

    const stPPCRecordHeader& Header() const { return m_Header; }

    // Header().nValueLength bytes, null when there are none.
    const unsigned char* Value() const { return m_pValue.get(); }

    // The header's value length plus 25, whether the value is there or not.
    int GetTotalSize() const;

    // The flag; *pnCode, unless null, receives the code.
    bool HaveError(int* pnCode) const;

    // True for a record that is there and carries the marker.
    static bool ValidatePPC(const unsigned char* pRecord);

    // Serialises into a new buffer of GetTotalSize() bytes, at least 25, that the caller frees with delete[]; null when there is
    // no memory. A value that is not there is zeros.
    void operator>>(unsigned char** ppOut);

    // Serialises to pOut. Returns the number of bytes, or 0, with nothing written, when it is more than unRoom. Inlined for values
    // of 4 bytes, as nearly all are: those are a few moves.
    std::size_t WriteTo(unsigned char* pOut, std::size_t unRoom) const
    {
        constexpr std::size_t c_unValue = 4;
        if (pOut == nullptr || m_pValue == nullptr || m_Header.nValueLength != int(c_unValue) ||
            unRoom < sizeof m_Header + c_unValue)
        {
            return WriteAnyTo(pOut, unRoom);
        }
        std::memcpy(pOut, &m_Header, sizeof m_Header);
        std::memcpy(pOut + sizeof m_Header, m_pValue.get(), c_unValue);
        return sizeof m_Header + c_unValue;
    }

    // Takes over one serialised record, whatever its marker is. No length is known here: only for bytes that the caller vouches
    // for.
    void operator<<(const unsigned char* pRecord);

    // The same for a record somewhere at the start of unSize bytes, whatever they are. False when that failed.
    bool Parse(const unsigned char* pRecord, std::size_t unSize);

    // Takes over the other message's header and value, not its error. A message without a value can't be copied: code 2.
    void CopyToMe(const CRawPPCMsg& other);

    // Counts the records of a stream by message type; a record of any other type is passed over. False when it breaks off at a
    // record that is bad: with a value length of 0 or less, or with less than a header left. A last value may run past the end.
    static bool AnalyseStream(const unsigned char* pStream, unsigned long unLength, unsigned long& unStrings,
                              unsigned long& unRotaries, unsigned long& unSwitches, unsigned long& unIntegers,
                              unsigned long& unFaders, unsigned long& unOthers, unsigned long& unMeters);

private:
    template <typename T>
    bool SetRecord(tagenPPCMessageType enType, int nPathType, int nPath, int nParam, const T& value);
    void TakeOver(const CRawPPCMsg& other);
    void Empty();
    std::size_t WriteAnyTo(unsigned char* pOut, std::size_t unRoom) const;
    std::size_t ValueLength() const;
    bool HoldValue(const unsigned char* pValue);
    bool Fail(int nCode, const char* szText);

    stPPCRecordHeader m_Header;
    std::unique_ptr<unsigned char[]> m_pValue;
    bool m_bError;
    int m_nErrorCode;
};
