// Which parameters a show holds, brings back, and leaves alone.
#pragma once

#include "Images/Address.h"

#include <memory>
#include <vector>

typedef void (CBMAContainer::*tSetFlag)(tagenPPCMessageType, tagenVirtualPathType, int, int, int);

void SetFlags(CBMAContainer& image, tSetFlag pSetFlag, const stPattern& pattern, int nFlag);

// A set safe flag lets a parameter move: everything does, but for the safe ones.
void SetSafeFlags(CBMAContainer& image, const std::vector<stPattern>& safe);

// What a show holds, and what of it a recall brings back; meters are no part of a show.
bool IsStored(const CBMAContainer& image, const stAddress& address);
bool IsRecalled(const CBMAContainer& image, const stAddress& address);
bool IsSafe(const CBMAContainer& image, const stAddress& address);

// The MC's image as it would be after a recall, with the flags that decide.
std::unique_ptr<CBMAContainer> MakeRecalled(const CBMAContainer& live, CBMAContainer& show, const std::vector<stPattern>& safe);

// What is done with the parameters of a type, or of all.
struct stShowCount
{
    int nInShow = 0;
    int nMoved = 0; // or different
    int nSafe = 0;
};
struct stShowCounts
{
    stShowCount& Of(const stAddress& address) { return aTypes[address.enType]; }
    stShowCount Sum() const;

    stShowCount aTypes[c_nMessageTypes];
};

// A line for each type, and one for all. Without the safe ones that column is empty.
void PrintShowCounts(const stShowCounts& counts, const char* szMoved, const char* szSame, bool bSafe);
