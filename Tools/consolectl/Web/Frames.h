// What a browser is told of an image, frame by frame.
#pragma once

#include "Network/Shadow.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// A message to a browser, the same bytes for all that get it.
typedef std::shared_ptr<const std::string> tFrame;

// The first byte of a binary message. All numbers behind it are big-endian.
enum enFrame : unsigned char
{
    // An update message of type 0: the whole image.
    enFrameImage = 1,

    // A count, and so often: a parameter's number as uint32, and its value as 4 bytes (float or int32), or 13 of a string. Numbers
    // go through all strings, then all rotaries, and so on, each in flat order.
    enFrameChanges = 2,

    // A show beside the console: for each parameter a byte of enMark, in the order of their numbers; and then, as above, the show's
    // values of those that differ.
    enFrameShow = 3
};

enum enMark : unsigned char
{
    enMarkStored = 1, // the show holds a value
    enMarkRecalled = 2,
    enMarkDiffers = 4, // which is another than the MC's
    enMarkMoves = 8    // a recall would change it
};

// A parameter's number in these.
std::uint32_t ParameterNumber(const stAddress& address);

tFrame MakeShowFrame(const std::vector<unsigned char>& marks, const CBMAContainer& show);

// Remembers which parameters changed in which frame. The values that are told are those that the image has when a frame is made:
// however often one changed, the newest alone. Belongs to one thread.
class CFrames
{
public:
    explicit CFrames(CShadow& shadow);

    // Takes over what the last datagram changed.
    void Take();

    // Begins the next frame.
    void Next();
    std::uint32_t GetNumber() const { return m_unNumber; } // of frames that have ended

    // What brings somebody who has seen frame unSeen, of all the ended ones, up to the last; nothing when nothing changed. 0: he
    // has seen none. The usual case, that only the last is lacking, is made once for all.
    tFrame Since(std::uint32_t unSeen);

private:
    tFrame MakeImage();
    tFrame MakeChanges(const std::vector<std::uint32_t>& parameters);

    CShadow& m_Shadow;
    std::uint32_t m_unNumber = 0;
    std::uint32_t m_unWholeSince = 0;       // before that frame there were parameters that nobody could be told of
    unsigned int m_unTypes = 0;             // that have come
    std::vector<std::uint32_t> m_ChangedIn; // by parameter: the last frame
    std::vector<std::uint32_t> m_Changed;   // in the frame that has begun
    tFrame m_pLast;                         // what the last frame brought
    tFrame m_pImage;                        // as it was at the end of that frame; made when somebody needs it
    std::uint32_t m_unImageOf = 0;
};
