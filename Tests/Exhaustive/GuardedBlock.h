// Bytes behind which nothing may be read or written.
#pragma once

#include <cstddef>
#include <cstring>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace Exhaustive
{

// Memory whose end touches a page that may be neither read nor written: one byte too far, and the process is gone.
class CGuardedBlock
{
public:
    explicit CGuardedBlock(std::size_t unRoom)
    {
        const std::size_t unPage = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        m_unRoom = (unRoom + unPage - 1) / unPage * unPage;
        m_unMapped = m_unRoom + unPage;
        void* pMapped = mmap(nullptr, m_unMapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pMapped == MAP_FAILED)
        {
            throw std::runtime_error("no memory for a guarded block");
        }
        m_pMapped = static_cast<unsigned char*>(pMapped);
        if (mprotect(m_pMapped + m_unRoom, unPage, PROT_NONE) != 0)
        {
            munmap(m_pMapped, m_unMapped);
            throw std::runtime_error("no guard for a block");
        }
    }
    ~CGuardedBlock() { munmap(m_pMapped, m_unMapped); }
    CGuardedBlock(const CGuardedBlock&) = delete;
    CGuardedBlock& operator=(const CGuardedBlock&) = delete;

    // The last so many bytes in front of the guard.
    unsigned char* Last(std::size_t unBytes) { return m_pMapped + m_unRoom - unBytes; }

    // The same, with these bytes in it.
    unsigned char* Put(const void* pBytes, std::size_t unBytes)
    {
        if (unBytes > 0)
        {
            std::memcpy(Last(unBytes), pBytes, unBytes);
        }
        return Last(unBytes);
    }

private:
    unsigned char* m_pMapped;
    std::size_t m_unRoom;
    std::size_t m_unMapped;
};

} // namespace Exhaustive
