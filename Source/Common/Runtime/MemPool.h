// The common base of the library's message objects.
#pragma once

#include "Runtime/Export.h"

// For messages that are kept in pools.
namespace MemPool
{

// What a pool of messages needs to know of one: that it can be destroyed, and emptied for its next use. Holds no data and takes
// no lock; a message belongs to one thread at a time.
class LOGICALCONTROLS_EXPORT CMemPoolBase
{
public:
    virtual ~CMemPoolBase();

    virtual void Clear() = 0;
};

} // namespace MemPool
