// Keeps an image in step: the four calls between images and messages.
#pragma once

#include "ClientComms/ClientMsgHandler.h"
#include "LogicalControls/ConsoleBitmapArray.h"
#include "Messages/MCUpdateMsg.h"
#include "Runtime/Export.h"

#include <chrono>
#include <cstdint>

// Every message type, bit t for type t.
constexpr unsigned int c_unWholeImage = (1u << c_nMessageTypes) - 1;

// The MC's side: fills message with the blocks of image that an update of this type carries, ready to be serialised. The message
// is emptied first and has to be in deep mode. False when the type is above 30.
LOGICALCONTROLS_EXPORT bool BuildMCUpdate(const CBMAContainer& image, MCUpdateType enUpdateType, CMCUpdateMsg& message);

// The client's side: writes the blocks that message carries into image, past SetPPC: no global flag is cleared and nothing is
// sent. A block that is not exactly as long as the image's is left out, and so are the message types that unTypes (bit t for type
// t) does not name. Returns the message types written in the same form.
LOGICALCONTROLS_EXPORT unsigned int ApplyMCUpdate(const CMCUpdateMsg& message, CBMAContainer& image,
                                                  unsigned int unTypes = c_unWholeImage);

// What came of a stream of parameter changes.
struct stPPCResult
{
    int nApplied;
    int nRefused;   // the address names no parameter, or the value is too short
    bool bComplete; // false when the stream broke off at a bad record
};

// The MC's side: writes each of the serialised parameter changes in the lLength bytes at pStream into image, through SetPPC. A
// refused record is logged and passed over. The records' markers are not looked at: not every sender writes them. An image that
// uses its simple sender sends each change on.
LOGICALCONTROLS_EXPORT stPPCResult ApplyPPCs(const unsigned char* pStream, long lLength, CBMAContainer& image);

// Tells an update that was overtaken by a newer one. One caught in the other cache has a lower number; one whose last fragment came
// late has a lower message id. Ids can be trusted for c_IdsCount only: an MC that starts anew, or whose clock is set back, begins
// lower, and is heard again that long after its last update.
class LOGICALCONTROLS_EXPORT CUpdateOrder
{
public:
    typedef std::chrono::steady_clock::time_point tTime;

    static constexpr std::chrono::seconds c_IdsCount = std::chrono::seconds(1);

    CUpdateOrder();

    // Whether an update is newer than the newest: its number and its message id, modulo 2^32 each.
    bool IsNewer(std::uint32_t unSequence, std::uint32_t unId, tTime now) const;

    // From now on it is the newest.
    void SetNewest(std::uint32_t unSequence, std::uint32_t unId, tTime now);

private:
    bool m_bAny;
    std::uint32_t m_unSequence;
    std::uint32_t m_unId;
    tTime m_Came;
};

// The client that most programs need: a message handler that applies every update to one image, on the thread that calls
// UpdateBMA. The image is the application's and must outlive the follower; only that thread may use it meanwhile.
class LOGICALCONTROLS_EXPORT CImageFollower : public CClientMsgHandler
{
public:
    explicit CImageFollower(CBMAContainer& image);
    ~CImageFollower() override;

    // Applies the update, but for blocks of which a newer one was applied before, as CUpdateOrder tells. Returns 0, or 2 when a
    // block of it does not fit the image and was left out.
    int ProcessMCUpdate(const CMCUpdateMsg& update) override;

    // What ProcessMCUpdate returns.
    enum enFollowResults : int
    {
        enApplied = 0,
        enBlockLeftOut = 2
    };

    // The message types that any update has written so far, bit t for type t; c_unWholeImage when all have come.
    unsigned int GetTypesReceived() const { return m_unTypesReceived; }

    // How many updates have been applied, modulo 2^32, and how many were left alone because newer ones of all their blocks had been
    // applied before. The handler's statistics count both as applied: it has handed them over.
    std::uint32_t GetUpdatesApplied() const { return m_unUpdatesApplied; }
    std::uint32_t GetUpdatesOvertaken() const { return m_unUpdatesOvertaken; }

private:
    CBMAContainer& m_Image;
    unsigned int m_unTypesReceived;
    std::uint32_t m_unUpdatesApplied;
    std::uint32_t m_unUpdatesOvertaken;
    CUpdateOrder m_aOrder[c_nMessageTypes]; // of the updates that each block came with
};
