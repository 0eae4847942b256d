// The message in which the MC sends the contents of its image.
#pragma once

#include "LogicalControls/ParameterModel.h"
#include "Runtime/Export.h"
#include "Runtime/MemPool.h"

#include <boost/endian/arithmetic.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

// Which arrays an update carries. Any other value up to 30 stands for all seven. A whole image is larger than what one
// message's fragments hold, so an MC sends surface and rotary updates in turn.
enum LOGICALCONTROLS_EXPORT MCUpdateType : int
{
    enMCUpdateAll = 0,
    enMCUpdateSurface = 1,           // switches, integers, faders, others, meters
    enMCUpdateRotary = 2,            // strings and rotaries
    enMCUpdateSwitchesIntegers4 = 4, // switches and integers
    enMCUpdateSwitchesIntegers8 = 8
};

// The arrays that an update of a type carries: message types nFirst to nLast.
struct stCarriedArrays
{
    int nFirst;
    int nLast;
};

// Those of an update type; all seven for a number that MCUpdateType does not name.
LOGICALCONTROLS_EXPORT stCarriedArrays CarriedArrays(int nUpdateType);

constexpr unsigned int c_unMCUpdateMarker = 1;

// The packed header of an update. For each carried array, in increasing message type, a big-endian int32 length follows, then
// that many bytes of the image's block.
struct stMCUpdateHeader
{
    boost::endian::big_uint32_t unMarker; // c_unMCUpdateMarker in a valid update
    unsigned char ucFlag;                 // carried through
    boost::endian::big_int32_t nWord;     // carried through
    boost::endian::big_int32_t nUpdateType;
    boost::endian::big_int32_t nBodyLength; // bytes behind the header
};

static_assert(sizeof(stMCUpdateHeader) == 17 && alignof(stMCUpdateHeader) == 1, "the header is packed");
static_assert(offsetof(stMCUpdateHeader, ucFlag) == 4 && offsetof(stMCUpdateHeader, nWord) == 5 &&
                  offsetof(stMCUpdateHeader, nUpdateType) == 9 && offsetof(stMCUpdateHeader, nBodyLength) == 13,
              "the offsets of the header");

// An update as a message: parsed deeply (arrays copied into the message's own buffers) or shallowly (the message only points
// into the parsed bytes, which must stay in place for as long as its arrays or update type are looked at), and serialised again.
//
// The buffers are 1.8 MB of zeros that the system provides page by page as they are written: a message that is only parsed
// shallowly takes next to nothing. Takes no lock: whoever owns it serialises access. Nothing throws but construction without
// memory; a parse that failed sets a sticky error and says why on standard output:
//
//   102  an array is larger than the message's buffers hold (deep parse; the other arrays are still taken)
//   103  null data
//   104  not a valid update: marker, update type, or an array that runs past the end
//
// A length of 0 is not consumed when parsing, on purpose: the first carried array that is empty ends the parse. So an empty
// array must not stand ahead of one that matters.
//
// A whole rotary block fills a buffer to its last byte, which the deep parse refuses and a copy leaves behind: images travel by
// shallow parses. Copying a message that was parsed shallowly copies no array.
class LOGICALCONTROLS_EXPORT CMCUpdateMsg : public MemPool::CMemPoolBase
{
public:
    enum : int
    {
        enMaxArrayLength = 261200,
        enErrorArrayTooLarge = 102,
        enErrorNullData = 103,
        enErrorInvalidUpdate = 104
    };

    CMCUpdateMsg();
    CMCUpdateMsg(const CMCUpdateMsg& other);
    CMCUpdateMsg& operator=(const CMCUpdateMsg& other);
    ~CMCUpdateMsg() override;

    // Empties the message: header and lengths, and with bDeep the array bytes as well. Errors and the mode stay.
    void Clear() override;
    void Clear(bool bDeep);

    void SetShallowMode(bool bShallow);
    void SetUpdateType(MCUpdateType enType);

    // Of the update that was last parsed, or of the one being made.
    MCUpdateType GetUpdateType() const;

    // A message is made valid by marker 1; a fresh one has 0.
    void SetMarker(std::uint32_t unMarker);

    bool HaveError(int* pnCode) const;
    void ClearError();

    // 17 plus, for each carried array, 4 plus its deep length.
    int GetTotalSize() const;

    bool ValidateUpdate(const unsigned char* pData) const;

    // Serialises into *ppOut, which holds at least GetTotalSize() bytes. Of an array, no more is written than the message holds.
    void operator>>(unsigned char** ppOut);

    // Parses, deeply or shallowly by mode. No length is known here: only for bytes that the caller vouches for. The walk ends 4 MiB
    // in, which no update reaches.
    void operator<<(unsigned char* pData);

    // The same for the unSize bytes at pData, whatever they are. False when this parse failed; then nothing was taken over, but for
    // the arrays beside one that is too large.
    bool Parse(const unsigned char* pData, std::size_t unSize);

    // The same, but a refusal of the whole is not printed: szRefusal is its line, null when there is none.
    bool Parse(const unsigned char* pData, std::size_t unSize, const char*& szRefusal);

    // Prints such a line; null is none.
    static void PrintRefusal(const char* szRefusal);

    // The shallow parse, for bytes that the caller vouches for.
    void ShallowAssign(unsigned char* pData);

    // Takes over header and deep arrays. Array bytes move only when there are between 1 and 261,199 of them.
    void CopyToMe(const CMCUpdateMsg& other);

    // Shows an array: in shallow mode what the last parse pointed to; in deep mode what the message holds, which may be older than
    // the last parse. False, with null and 0, when there is none, or its bytes were refused or not copied.
    bool GetArray(tagenPPCMessageType enType, const unsigned char*& pData, int& nLength) const;

    // Fills a deep array; with length 0, empties it. False, and nothing changed, when the type or the length is outside its limits
    // or there is no data.
    bool SetArray(tagenPPCMessageType enType, const unsigned char* pData, int nLength);

    // Gives a deep array its length and shows the bytes, for the caller to fill. Null, and nothing changed, when the type or the
    // length is outside its limits.
    unsigned char* PrepareArray(tagenPPCMessageType enType, int nLength);

private:
    struct stFree
    {
        void operator()(unsigned char* pBytes) const { std::free(pBytes); }
    };

    struct stShallowArray
    {
        std::int32_t nLength;
        const unsigned char* pData;
    };

    unsigned char* Deep(int nType) const { return m_pDeep.get() + nType * enMaxArrayLength; }
    template <class Visitor>
    static bool WalkArrays(const unsigned char* pData, std::size_t unSize, Visitor visit);
    bool ParseChecked(const unsigned char* pData, std::size_t unSize, bool bBounded, const char*& szRefusal);
    bool AssignDeep(const unsigned char* pData, std::size_t unSize);
    void AssignShallow(const unsigned char* pData, std::size_t unSize);
    void ReportError(int nCode);

    stMCUpdateHeader m_Header;
    std::unique_ptr<unsigned char[], stFree> m_pDeep; // enMaxArrayLength bytes for each message type
    std::int32_t m_anDeepLengths[c_nMessageTypes];
    const unsigned char* m_pShallowSource; // not owned
    stShallowArray m_aShallow[c_nMessageTypes];
    bool m_bError;
    bool m_bShallowMode;
    std::int32_t m_nErrorCode;
    unsigned int m_unShallowSet; // bit t: the last shallow parse set array t
    unsigned int m_unDeepHeld;   // bit t: the bytes that deep array t's length speaks of are there
};
