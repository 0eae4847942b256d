// Golden messages, and the checks of what the library makes of them, whole or damaged: bytes as they came from a network go into a
// guarded block, and what comes out is held against a second reading of the same bytes.
#pragma once

#include "Messages/MCUpdateMsg.h"

#include "Exhaustive/ConsoleModel.h"
#include "Exhaustive/GuardedBlock.h"
#include "LogicalControls/ConsoleBitmapArray.h"
#include "Support/Bytes.h"
#include "Support/CarriedTypes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Exhaustive
{

using Support::tBytes;

std::uint32_t Big(const unsigned char* pBytes);

// ---- Updates -------------------------------------------------------------------------------------------------------------------

// An update of a type with a small array, of its own length and bytes, for each message type that it carries.
tBytes SmallUpdate(std::uint32_t unUpdateType);

class CUpdateCheck
{
public:
    // Parses the first unSize of the bytes, shallowly and deeply. Empty when all is as the bytes say.
    std::string Of(const tBytes& bytes, std::size_t unSize);

    // The message of the shallow parse, and whether that took the bytes.
    const CMCUpdateMsg& Shallow() const { return *m_pShallow; }
    bool IsTaken() const { return m_bTaken; }

private:
    CGuardedBlock m_Block{100000};
    std::unique_ptr<CMCUpdateMsg> m_pShallow = std::make_unique<CMCUpdateMsg>();
    std::unique_ptr<CMCUpdateMsg> m_pDeep = std::make_unique<CMCUpdateMsg>();
    bool m_bTaken = false;
};

// ---- Records -------------------------------------------------------------------------------------------------------------------

// A rotary, a string, a switch, a meter and an integer of parameters that exist.
tBytes RecordStream();

class CRecordCheck
{
public:
    // Reads the first unSize of the bytes in every way that there is, and applies them to an image.
    std::string Of(const tBytes& bytes, std::size_t unSize);

    // The image against what all streams so far should have made of it.
    std::string OfImage();

private:
    std::string OfMessage(const unsigned char* pBytes, std::size_t unSize);
    std::string OfCounts(const unsigned char* pBytes, std::size_t unSize);
    std::string OfReader(const unsigned char* pBytes, std::size_t unSize);
    std::string OfApplied(const unsigned char* pBytes, std::size_t unSize);

    CGuardedBlock m_Block{4096};
    std::unique_ptr<CBMAContainer> m_pImage = std::make_unique<CBMAContainer>();
    stConsoleModel m_Model;
};

} // namespace Exhaustive
