// One parameter change (PPC): as a record in memory, and as the bytes that travel.
#pragma once

#include "LogicalControls/ParameterModel.h"
#include "Runtime/Export.h"
#include "RyGConsoleString.h"

#include <boost/endian/arithmetic.hpp>

#include <cstddef>
#include <cstring>

// ---- In memory ----------------------------------------------------------------------------------------------------------------

// The value of a record. A float (types 1 and 4), an int (2, 3, 5) or a byte (6) takes the first bytes, a string 13; the rest
// stays as it was.
union uPPCValue
{
    uPPCValue() : acBytes() {}

    unsigned char acBytes[16];
    float fValue;
    int nValue;
    unsigned char ucValue;
    RyGConsoleString strValue;
};

// A parameter change as block reads and writes and the scope dumps walk it in arrays, in the machine's own byte order. A plain
// value; fresh, all of it is zero. An array that is walked to its end ends at a record whose message type or path type is -1.
struct LOGICALCONTROLS_EXPORT tPPCPacket
{
    tPPCPacket() : enMessageType(enString), enPathType(enGlobals), nPath(0), nParameter(0), nScope(0), nReserved(0) {}

    // True when both records belong to the same path: path, path type and message type are equal.
    bool IsContiguous(const tPPCPacket& other) const
    {
        return nPath == other.nPath && enPathType == other.enPathType && enMessageType == other.enMessageType;
    }

    tagenPPCMessageType enMessageType;
    tagenVirtualPathType enPathType;
    int nPath;
    int nParameter;
    uPPCValue value;
    int nScope; // 0: flag clear, else set
    int nReserved;
};

// The same with the second float that is kept beside every rotary and fader.
struct stPPCWithSI : tPPCPacket
{
    stPPCWithSI() : fSI(0), nPad(0) {}

    float fSI;
    int nPad;
};

static_assert(sizeof(tPPCPacket) == 40 && offsetof(tPPCPacket, value) == 16 && offsetof(tPPCPacket, nScope) == 32,
              "arrays of records have no gaps");
static_assert(sizeof(stPPCWithSI) == 48, "arrays of records have no gaps");

// ---- On the wire --------------------------------------------------------------------------------------------------------------

// The packed header of a serialised record; nValueLength bytes of value follow it, and the next record follows them. Integers
// and floats are big-endian wherever the record lies: the fields read as numbers and need no alignment.
struct stPPCRecordHeader
{
    boost::endian::big_uint32_t unMarker; // c_unPPCMarker in a record that is marked valid
    unsigned char ucFlag;                 // written 0, never read
    boost::endian::big_int32_t nMessageType;
    boost::endian::big_int32_t nPathType;
    boost::endian::big_int32_t nPath;
    boost::endian::big_int32_t nParameter;
    boost::endian::big_int32_t nValueLength; // above 0
};

static_assert(sizeof(stPPCRecordHeader) == 25 && alignof(stPPCRecordHeader) == 1, "the header is packed");
static_assert(offsetof(stPPCRecordHeader, ucFlag) == 4 && offsetof(stPPCRecordHeader, nMessageType) == 5 &&
                  offsetof(stPPCRecordHeader, nPathType) == 9 && offsetof(stPPCRecordHeader, nPath) == 13 &&
                  offsetof(stPPCRecordHeader, nParameter) == 17 && offsetof(stPPCRecordHeader, nValueLength) == 21,
              "the offsets of the header");

constexpr unsigned int c_unPPCMarker = 1;

// How each value type travels: 4 bytes for a float or an int (a switch and a meter too), the 13 bytes of a string.
template <typename T>
struct stPPCWireValue;

template <>
struct stPPCWireValue<float>
{
    typedef boost::endian::big_float32_t type;
};

template <>
struct stPPCWireValue<int>
{
    typedef boost::endian::big_int32_t type;
};

template <>
struct stPPCWireValue<RyGConsoleString>
{
    typedef RyGConsoleString type;
};

// A whole serialised record: 29 bytes, or 38 with a string.
template <typename T>
struct stPPCRecord
{
    stPPCRecord(tagenPPCMessageType enType, int nPathType, int nPath, int nParameter, const T& data) : header(), value(data)
    {
        header.unMarker = c_unPPCMarker;
        header.nMessageType = enType;
        header.nPathType = nPathType;
        header.nPath = nPath;
        header.nParameter = nParameter;
        header.nValueLength = static_cast<int>(sizeof value);
    }

    stPPCRecordHeader header;
    typename stPPCWireValue<T>::type value;
};

static_assert(sizeof(stPPCRecord<float>) == 29 && sizeof(stPPCRecord<int>) == 29 && sizeof(stPPCRecord<RyGConsoleString>) == 38,
              "header and value follow each other");

// The four coordinates of a record, as numbers; they need not name a parameter that exists.
struct stPPCAddress
{
    tagenPPCMessageType enType;
    tagenVirtualPathType enPathType;
    int nPath;
    int nParam;
};

// Walks a stream of serialised records without copying or allocating. It reads nothing outside the lLength bytes at pStream,
// which must live, unchanged, as long as the reader is used; the marker is not looked at, as not every sender writes it. It is
// inlined where it is used, as records come by the thousand.
//
//     CPPCStreamReader reader(payload, length);
//     while (reader.Next()) { use reader.Header(), reader.Value() }
//     if (!reader.IsGood()) { the stream broke off at a bad record }
class LOGICALCONTROLS_EXPORT CPPCStreamReader
{
public:
    CPPCStreamReader(const unsigned char* pStream, long lLength)
        : m_pNext(pStream), m_pEnd(pStream != nullptr && lLength > 0 ? pStream + lLength : pStream),
          m_pUsualEnd(m_pEnd - m_pNext >= enUsualSize ? m_pEnd - (enUsualSize - 1) : m_pNext), m_pHeader(&c_NoRecord), m_nLength(0),
          m_bGood(true)
    {
    }

    // Goes to the next record. False at the end of the stream, and at a record that is bad: cut off, or with a value length of 0
    // or less. Nearly all values have 4 bytes: where the next record begins is foreseen, not waited for.
    bool Next()
    {
        const stPPCRecordHeader* const pHeader = HeaderAt(m_pNext);
        const bool bUsual = m_pNext < m_pUsualEnd && pHeader->nValueLength == enUsualLength;
        int nLength = enUsualLength;
        if (__builtin_expect(!bUsual, false))
        {
            nLength = LengthAt(m_pNext, m_pEnd);
            if (nLength <= 0)
            {
                m_bGood = nLength == 0;
                m_nLength = 0;
                return false;
            }
        }
        m_pHeader = pHeader;
        m_nLength = nLength;
        m_pNext = ValueAt(pHeader) + nLength;
        return true;
    }

    bool IsGood() const { return m_bGood; }

    // Of the current record; of the last one, or of zeros, when there is none. The value is Header().nValueLength bytes long, and
    // null without a record.
    const stPPCRecordHeader& Header() const { return *m_pHeader; }
    const unsigned char* Value() const { return m_nLength > 0 ? ValueAt(m_pHeader) : nullptr; }
    stPPCAddress Address() const
    {
        return {static_cast<tagenPPCMessageType>(int(m_pHeader->nMessageType)),
                static_cast<tagenVirtualPathType>(int(m_pHeader->nPathType)), m_pHeader->nPath, m_pHeader->nParameter};
    }

    // The current record's value, read as the argument's type whatever its message type. False when it is too short for that.
    bool GetValue(float& fValue) const { return ReadValue(fValue); }
    bool GetValue(int& nValue) const { return ReadValue(nValue); }
    bool GetValue(RyGConsoleString& strValue) const { return ReadValue(strValue); }

private:
    enum : int
    {
        enUsualLength = 4,
        enUsualSize = static_cast<int>(sizeof(stPPCRecordHeader)) + enUsualLength
    };

    static const stPPCRecordHeader c_NoRecord;

    // Of the value of the record at pNext: 0 at the end, and -1 at a bad one.
    static int LengthAt(const unsigned char* pNext, const unsigned char* pEnd);

    // The header is made of bytes: it may lie anywhere.
    static const stPPCRecordHeader* HeaderAt(const unsigned char* pRecord)
    {
        return reinterpret_cast<const stPPCRecordHeader*>(pRecord);
    }
    static const unsigned char* ValueAt(const stPPCRecordHeader* pHeader)
    {
        return reinterpret_cast<const unsigned char*>(pHeader + 1);
    }

    template <typename T>
    bool ReadValue(T& value) const
    {
        typename stPPCWireValue<T>::type wire;
        if (m_nLength < static_cast<int>(sizeof wire))
        {
            return false;
        }
        std::memcpy(&wire, ValueAt(m_pHeader), sizeof wire);
        value = wire;
        return true;
    }

    const unsigned char* m_pNext;
    const unsigned char* m_pEnd;
    const unsigned char* m_pUsualEnd; // a record of the usual size that begins before it is whole
    const stPPCRecordHeader* m_pHeader;
    int m_nLength; // of the current value; 0 without a record
    bool m_bGood;
};
