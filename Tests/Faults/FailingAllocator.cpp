#include "Faults/FailingAllocator.h"

#include <atomic>
#include <climits>
#include <cstring>
#include <new>

extern "C"
{
    void* __real_malloc(std::size_t);
    void* __real_calloc(std::size_t, std::size_t);
    void* __real_realloc(void*, std::size_t);
    void __real_free(void*);
}

namespace
{

thread_local long g_lAllowed = LONG_MAX;
thread_local bool g_bForGood = false;
thread_local bool g_bStruck = false;
std::atomic<long> g_lLive{0};

void* New(std::size_t unSize)
{
    void* pBlock = Faults::Allocate(unSize);
    if (pBlock == nullptr)
    {
        throw std::bad_alloc();
    }
    return pBlock;
}

} // namespace

namespace Faults
{

CShortage::CShortage(long lAllowed, bool bForGood)
{
    g_bForGood = bForGood;
    g_bStruck = false;
    g_lAllowed = lAllowed;
}

CShortage::~CShortage()
{
    g_lAllowed = LONG_MAX;
}

bool CShortage::HasStruck()
{
    return g_bStruck;
}

CPlenty::CPlenty() : m_lAllowed(g_lAllowed)
{
    g_lAllowed = LONG_MAX;
}

CPlenty::~CPlenty()
{
    g_lAllowed = m_lAllowed;
}

long LiveBlocks()
{
    return g_lLive;
}

void* Allocate(std::size_t unSize)
{
    return MayAllocate() ? Adopt(__real_malloc(unSize == 0 ? 1 : unSize)) : nullptr;
}

void* Reallocate(void* pBlock, std::size_t unSize)
{
    if (pBlock == nullptr)
    {
        return Allocate(unSize);
    }
    return MayAllocate() ? __real_realloc(pBlock, unSize) : nullptr;
}

char* Duplicate(const char* szText)
{
    const std::size_t unSize = std::strlen(szText) + 1;
    void* pCopy = Allocate(unSize);
    return pCopy == nullptr ? nullptr : static_cast<char*>(std::memcpy(pCopy, szText, unSize));
}

void Free(void* pBlock)
{
    g_lLive -= pBlock == nullptr ? 0 : 1;
    __real_free(pBlock);
}

void* Adopt(void* pBlock)
{
    g_lLive += pBlock == nullptr ? 0 : 1;
    return pBlock;
}

bool MayAllocate()
{
    if (g_lAllowed == LONG_MAX || --g_lAllowed >= 0)
    {
        return true;
    }
    const bool bFail = g_bForGood || !g_bStruck;
    g_bStruck = true;
    return !bFail;
}

} // namespace Faults

// The linker sends the program's calls here and keeps the real ones as __real_...
extern "C"
{

    void* __wrap_malloc(std::size_t unSize)
    {
        return Faults::Allocate(unSize);
    }

    void* __wrap_calloc(std::size_t unCount, std::size_t unSize)
    {
        return Faults::MayAllocate() ? Faults::Adopt(__real_calloc(unCount, unSize)) : nullptr;
    }

    void* __wrap_realloc(void* pBlock, std::size_t unSize)
    {
        return Faults::Reallocate(pBlock, unSize);
    }

    void __wrap_free(void* pBlock)
    {
        Faults::Free(pBlock);
    }

} // extern "C"

// clang-format off
void* operator new(std::size_t unSize) { return New(unSize); }
void* operator new[](std::size_t unSize) { return New(unSize); }
void* operator new(std::size_t unSize, const std::nothrow_t&) noexcept { return Faults::Allocate(unSize); }
void* operator new[](std::size_t unSize, const std::nothrow_t&) noexcept { return Faults::Allocate(unSize); }
void operator delete(void* pBlock) noexcept { Faults::Free(pBlock); }
void operator delete[](void* pBlock) noexcept { Faults::Free(pBlock); }
void operator delete(void* pBlock, std::size_t) noexcept { Faults::Free(pBlock); }
void operator delete[](void* pBlock, std::size_t) noexcept { Faults::Free(pBlock); }
void operator delete(void* pBlock, const std::nothrow_t&) noexcept { Faults::Free(pBlock); }
void operator delete[](void* pBlock, const std::nothrow_t&) noexcept { Faults::Free(pBlock); }
// clang-format on
