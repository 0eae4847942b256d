// One message type's parameters of the whole console in one block: as values, or one bit each.
#pragma once

#include "LogicalControls/ParameterModel.h"
#include "Runtime/Export.h"
#include "RyGConsoleString.h"

#include <cstdint>

// An empty type that carries an int, to pick an overload at compile time.
template <int N>
struct Int2Type
{
    enum : int
    {
        value = N
    };
};

// Every parameter of message type N, for all path types, in one zeroed block. Elements are numbered flat: path type ascending,
// within it path, within it parameter; the value array and the flag array of one message type number their elements alike.
//
//   compressed = false   a value of type T an element, packed (strings 13 bytes, floats and ints 4 in the machine's own order,
//                        meters 1)
//   compressed = true    one bit an element: bit (i mod 8), least significant first, of byte (i div 8), across path types. The
//                        switches' value store, and the scope flags of every message type
//
// The array owns its block for life: allocated and zeroed at construction (a value array throws int 0 when there is no memory),
// never resized. It takes no lock; whoever owns it serialises access.
//
// Nothing here touches memory outside the block, whatever the address. A value array holds an address against the limits (see
// RangeCheck), reports one that it refuses on standard error, and ignores the call. A bit array knows only its block: silently it
// ignores what lies outside, and an address beyond the limits that falls inside is a neighbour's bit. IsParameterAddress tells
// beforehand. A read that is refused leaves its result as it was. SetPPC, SetPPCLite and GetPPC return false when they refused.
//
// The library holds the instantiations that exist (below); clients don't compile the template.
template <typename T, tagenPPCMessageType N, bool compressed>
class LOGICALCONTROLS_EXPORT CParameterArray
{
public:
    typedef CParameterArray<int, N, true> tMask;

    CParameterArray();
    virtual ~CParameterArray();
    CParameterArray(const CParameterArray&) = delete;
    CParameterArray& operator=(const CParameterArray& other);

    // Takes over the other array's elements, and nothing else; so does assignment.
    void Copy(const CParameterArray& other);

    // Called by the constructor: lays the elements out and allocates the block.
    void Initialise();
    void InitialiseCompressedMemory();

    bool SetPPC(tagenVirtualPathType enPathType, int nPath, int nParam, T value);

    // The light set. A bit array stores as SetPPC does; a value array does its RangeCheck and stores nothing, on purpose.
    bool SetPPCLite(tagenVirtualPathType enPathType, int nPath, int nParam, T value);

    bool GetPPC(tagenVirtualPathType enPathType, int nPath, int nParam, T& value) const;

    // Where parameter 0 of a path lies in a value array, and how many parameters the path has. The path is not checked: the
    // address of one that does not exist must not be used. Null and 0 for a path type that does not exist.
    void GetPPCBase(tagenVirtualPathType enPathType, int nPath, void*& pBase, long& lCount) const;

    // The same for a bit array: the number of the first bit, counted from pBits.
    void GetPPCBitBase(tagenVirtualPathType enPathType, int nPath, long& lBitIndex, long& lCount, unsigned char*& pBits) const;

    // The block, and its size in bytes.
    void* GetMemoryPointer();
    const void* GetMemoryPointer() const;
    int GetByteAllocation() const;

    // Remembers a check word over the block. The array itself never reads it.
    void SetXorVal(unsigned long unXorVal);

    // Import takes from source, and Export gives to destination, every element whose bit is set in both masks.
    void Import(const CParameterArray& source, const tMask& maskA, const tMask& maskB);
    void Export(CParameterArray& destination, const tMask& maskA, const tMask& maskB) const;

    // False, with a line on standard error, for an address outside the limits. The last of its checks is loose on purpose: some
    // negative paths and parameters pass. SetPPC and GetPPC refuse those of them that lie outside the block; the others are a
    // neighbour's element.
    bool RangeCheck(tagenVirtualPathType enPathType, int nPath, int nParam) const;

private:
    friend class CBMAContainer; // publishes the check word, and reaches elements by their numbers

    LOGICALCONTROLS_INTERNAL std::int64_t FlatIndex(tagenVirtualPathType enPathType, int nPath, int nParam) const;
    LOGICALCONTROLS_INTERNAL bool Accept(const char* szOperation, tagenVirtualPathType enPathType, int nPath, int nParam,
                                         bool bInside) const;
    LOGICALCONTROLS_INTERNAL std::int64_t LooseIndex(const char* szOperation, tagenVirtualPathType enPathType, int nPath,
                                                     int nParam) const;

    // The block, however it is held.
    LOGICALCONTROLS_INTERNAL unsigned char* Block() const { return compressed ? m_pBits : m_pValues; }

    CMaxPathParameterArray m_Limits;
    int m_anMaxParams[c_nPathTypes]; // of message type N
    int m_nElements;
    int m_nByteAllocation;    // value arrays: the block's size; bit arrays: elements x 4, which their size is derived from
    unsigned char* m_pValues; // null in a bit array
    unsigned char* m_pBits;   // null in a value array
    T* m_pTyped;              // m_pValues as what it holds
    unsigned char* m_apPathTypeBase[c_nPathTypes]; // element 0 of each path type; null in a bit array
    int m_anPathTypeOffset[c_nPathTypes];          // its flat number
    std::uint32_t m_unXorVal;
};

extern template class CParameterArray<RyGConsoleString, enString, false>;
extern template class CParameterArray<float, enRotary, false>;
extern template class CParameterArray<int, enInteger, false>;
extern template class CParameterArray<float, enFader, false>;
extern template class CParameterArray<int, enOther, false>;
extern template class CParameterArray<unsigned char, enMeter, false>;
extern template void CParameterArray<int, enSwitch, false>::SetXorVal(unsigned long);

extern template class CParameterArray<int, enString, true>;
extern template class CParameterArray<int, enRotary, true>;
extern template class CParameterArray<int, enSwitch, true>;
extern template class CParameterArray<int, enInteger, true>;
extern template class CParameterArray<int, enFader, true>;
extern template class CParameterArray<int, enOther, true>;
extern template class CParameterArray<int, enMeter, true>;

// The values of a whole console. Copied array by array in this order.
struct stParameterValues
{
    CParameterArray<float, enRotary, false> rotaries;
    CParameterArray<int, enSwitch, true> switches;
    CParameterArray<int, enInteger, false> integers;
    CParameterArray<float, enFader, false> faders;
    CParameterArray<RyGConsoleString, enString, false> strings;
    CParameterArray<unsigned char, enMeter, false> meters;
    CParameterArray<int, enOther, false> others;
};

// One flag for each parameter of a whole console: one scope. Copied array by array in this order.
struct stParameterFlags
{
    CParameterArray<int, enRotary, true> rotaries;
    CParameterArray<int, enSwitch, true> switches;
    CParameterArray<int, enInteger, true> integers;
    CParameterArray<int, enFader, true> faders;
    CParameterArray<int, enString, true> strings;
    CParameterArray<int, enMeter, true> meters;
    CParameterArray<int, enOther, true> others;
};
