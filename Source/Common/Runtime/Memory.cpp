#include "Runtime/Memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace
{

struct stErrnoText
{
    int nErrno;
    const char* szText;
};

const stErrnoText caMprotectErrors[] = {
    {ENOMEM, "kernel out of memory"},
    {EACCES, "not enough privileges"},
    {EFAULT, "memory not allocated"},
    {EINVAL, "invalid argument to mprotect"},
};

const char* MprotectErrorText(int nErrno)
{
    for (const stErrnoText& row : caMprotectErrors)
    {
        if (row.nErrno == nErrno)
        {
            return row.szText;
        }
    }
    return "unknown";
}

} // namespace

void* GBMalloc(long lSize)
{
    const long lPage = sysconf(_SC_PAGESIZE);
    const std::size_t unSlack = 3 * static_cast<std::size_t>(lPage) - 1;
    if (lPage <= 0 || lSize < 0 || static_cast<std::size_t>(lSize) > static_cast<std::size_t>(PTRDIFF_MAX) - unSlack)
    {
        return nullptr;
    }
    return std::malloc(static_cast<std::size_t>(lSize) + unSlack);
}

void GBFree(void* pMemory)
{
    std::free(pMemory);
}

int LogMprotect(void* pAddress, unsigned int unLength, int nProtection)
{
    if (mprotect(pAddress, unLength, nProtection) == 0)
    {
        return 0;
    }
    return std::printf("mprotect failed : %s addr(0x%lX) len(0x%X) prot(0x%X)\n", MprotectErrorText(errno),
                       reinterpret_cast<unsigned long>(pAddress), unLength, static_cast<unsigned int>(nProtection));
}
