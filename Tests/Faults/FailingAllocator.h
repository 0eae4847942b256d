// Memory that runs out when a test says so: of operator new, and of the malloc that the library's objects call. The program is
// linked with FailingAllocator.cpp and -Wl,--wrap=malloc,--wrap=calloc,--wrap=realloc,--wrap=free.
#pragma once

#include <cstddef>

namespace Faults
{

// While one lives, the allocation after lAllowed others fails on this thread, or with bForGood every one from there on.
class CShortage
{
public:
    CShortage(long lAllowed, bool bForGood);
    ~CShortage();
    CShortage(const CShortage&) = delete;
    CShortage& operator=(const CShortage&) = delete;

    // Of this thread, until the next one: whether an allocation failed.
    static bool HasStruck();
};

// While one lives within a shortage, there is memory again, on this thread.
class CPlenty
{
public:
    CPlenty();
    ~CPlenty();
    CPlenty(const CPlenty&) = delete;
    CPlenty& operator=(const CPlenty&) = delete;

private:
    const long m_lAllowed;
};

// How many blocks the program holds: what any of its threads got from operator new, the library from malloc, and others from the
// functions below.
long LiveBlocks();

// As an allocation of the library's. For those who can be told where their memory comes from.
void* Allocate(std::size_t unSize);
void* Reallocate(void* pBlock, std::size_t unSize);
char* Duplicate(const char* szText);
void Free(void* pBlock);

// Counts a block that comes from elsewhere, and will be freed by the library's free.
void* Adopt(void* pBlock);

// Counts an allocation that is made elsewhere; false when it has to fail.
bool MayAllocate();

} // namespace Faults
