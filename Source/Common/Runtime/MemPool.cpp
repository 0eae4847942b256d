#include "Runtime/MemPool.h"

namespace MemPool
{

CMemPoolBase::~CMemPoolBase() = default;

} // namespace MemPool
