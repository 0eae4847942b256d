// Memory that nobody may look at for now. Private to the library.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define LOGICALCONTROLS_CAN_POISON
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LOGICALCONTROLS_CAN_POISON
#endif
#endif

#ifdef LOGICALCONTROLS_CAN_POISON
#include <sanitizer/asan_interface.h>
#endif

// Where the address sanitizer watches, it reports every access to poisoned memory; elsewhere nothing happens.
inline void Poison(const void* pMemory, std::size_t unBytes)
{
#ifdef LOGICALCONTROLS_CAN_POISON
    __asan_poison_memory_region(pMemory, unBytes);
#else
    static_cast<void>(pMemory);
    static_cast<void>(unBytes);
#endif
}

inline void Unpoison(const void* pMemory, std::size_t unBytes)
{
#ifdef LOGICALCONTROLS_CAN_POISON
    __asan_unpoison_memory_region(pMemory, unBytes);
#else
    static_cast<void>(pMemory);
    static_cast<void>(unBytes);
#endif
}

// Memory is poisoned at the end of a block; at its start it is not.
class CPoisonedAfter
{
public:
    CPoisonedAfter(const void* pMemory, std::size_t unBytes) : m_pMemory(pMemory), m_unBytes(unBytes)
    {
        Unpoison(m_pMemory, m_unBytes);
    }
    ~CPoisonedAfter() { Poison(m_pMemory, m_unBytes); }
    CPoisonedAfter(const CPoisonedAfter&) = delete;
    CPoisonedAfter& operator=(const CPoisonedAfter&) = delete;

private:
    const void* const m_pMemory;
    const std::size_t m_unBytes;
};
