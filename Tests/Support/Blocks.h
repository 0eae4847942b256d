// Blocks of parameter arrays, with what lies behind them.
#pragma once

#include "Support/Bytes.h"

#include <malloc.h>

namespace Support
{

// New memory is full of rubbish while one lives.
class CDirtyMemory
{
public:
    CDirtyMemory() { mallopt(M_PERTURB, 0x5a); }
    ~CDirtyMemory() { mallopt(M_PERTURB, 0); }
};

// A dump reads up to this many bytes behind a block; no array writes there after construction.
constexpr int c_nBehind = 19;

// The block and, behind it, what others read or might touch of its slack.
template <typename A>
tBytes Whole(const A& array)
{
    const unsigned char* pBlock = static_cast<const unsigned char*>(array.GetMemoryPointer());
    return tBytes(pBlock, pBlock + array.GetByteAllocation() + c_nBehind);
}

} // namespace Support
