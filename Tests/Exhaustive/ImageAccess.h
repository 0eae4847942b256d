// The library's image for tests that hold it against a model: read and filled block by block, written and read by plain numbers.
#pragma once

#include "LogicalControls/ConsoleBitmapArray.h"

#include "Exhaustive/ConsoleModel.h"
#include "LogicalControls/ScopeMask.h"

#include <string>

namespace Exhaustive
{

inline tagenPPCMessageType TypeOf(const stAddress& at)
{
    return static_cast<tagenPPCMessageType>(at.nType);
}

inline tagenVirtualPathType PathTypeOf(const stAddress& at)
{
    return static_cast<tagenVirtualPathType>(at.nPathType);
}

// Remembers what went wrong first, and how often. Cheap where nothing does.
class CTally
{
public:
    void Check(bool bRight, const char* szWhat, const stAddress& at)
    {
        if (!bRight && m_nWrong++ == 0)
        {
            m_strFirst = szWhat + (" of " + Exhaustive::Text(at));
        }
    }

    // Empty when all was right.
    std::string Text() const { return m_nWrong == 0 ? "" : m_strFirst + ", and of " + std::to_string(m_nWrong - 1) + " more"; }

private:
    int m_nWrong = 0;
    std::string m_strFirst;
};

// The container's calls, with a value as its bytes and the overload that its type wants.
enum enWriteModes : int
{
    enPlain,
    enLight,
    enSendOnly
};

void SetPPC(CBMAContainer& image, const stAddress& at, const tValue& value, enWriteModes enMode = enPlain);
tValue GetPPC(const CBMAContainer& image, const stAddress& at, const tValue& before);
void SetFlag(CBMAContainer& image, int nScope, const stAddress& at, int nValue);
int GetFlag(const CBMAContainer& image, int nScope, const stAddress& at, int nBefore);
void BlockWriteScope(CBMAContainer& image, int nScope, stPPCWithSI* pRecords, int nCount);
bool SetBlockPosition(CBMAContainer& image, int nTag, const stAddress& at, CBMAContainer::stBlockRef& cursor);

// The flags' tags of SetBlockPosition, by scope.
constexpr int c_anTags[c_nScopes] = {2, 1, 3, 4};

const unsigned char* ValueBlock(const CBMAContainer& image, int nType);
unsigned char* FlagBlock(CBMAContainer& image, int nScope, int nType);

// What SetPPC does by the model's word: the value, and the global flag of the same address.
void Write(stConsoleModel& model, const stAddress& at, const tValue& value, enWriteModes enMode = enPlain);

stPPCWithSI Record(const stAddress& at, const tValue& value, float fSI = 0, int nScope = 0);

// Makes the image what the model is, past all that is tested but for the blocks' places.
void Fill(CBMAContainer& image, const stConsoleModel& model);

// Where the image (or mask) is not what the model is, in any value, SI float or flag, or in the zeros behind a block; empty:
// nowhere.
std::string Difference(CBMAContainer& image, const stConsoleModel& model);
std::string Difference(CCBMAContainerScopeMask& mask, const tBlock (&flags)[c_nTypes]);

} // namespace Exhaustive
