// Image updates to many followers, a process each.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <new>
#include <string>

// Writes the table. Forks, so it comes before any thread is made. Throws a std::string when it can't be measured.
void MeasureFollowers(std::FILE* pTable);

// ---- What the processes share

typedef std::chrono::steady_clock tClock; // the same in every process

constexpr int c_nMostFollowers = 64;
constexpr int c_nMostUpdates = 200; // that are measured, in a turn

enum enFollowerStates : int
{
    enStarting,
    enReady,
    enBegun
};

struct stFollowerState
{
    std::atomic<int> nState;
    std::atomic<std::uint32_t> unApplied;         // warm-up and all
    std::atomic<tClock::rep> nLastAt;             // applied its last
    std::atomic<float> afLatency[c_nMostUpdates]; // seconds, by message id; 0: not applied
    std::atomic<float> fProcessor;                // seconds, of the measured updates; set when it ends
};

struct stShared
{
    std::atomic<tClock::rep> anSentAt[c_nMostUpdates]; // by message id
    stFollowerState aFollowers[c_nMostFollowers];
};

static_assert(std::atomic<tClock::rep>::is_always_lock_free && std::atomic<float>::is_always_lock_free, "works between processes");

class CSharedMemory
{
public:
    CSharedMemory() : m_pMemory(mmap(nullptr, sizeof(stShared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
    {
        if (m_pMemory == MAP_FAILED)
        {
            throw std::string("no shared memory can be had");
        }
        new (m_pMemory) stShared();
    }
    ~CSharedMemory() { munmap(m_pMemory, sizeof(stShared)); }
    CSharedMemory(const CSharedMemory&) = delete;
    CSharedMemory& operator=(const CSharedMemory&) = delete;

    stShared& operator*() const { return *static_cast<stShared*>(m_pMemory); }

private:
    void* m_pMemory;
};

// A gate that one process opens and all others wait at. It opens by itself when that process ends.
class CGate
{
public:
    CGate() : m_anEnds()
    {
        if (pipe2(m_anEnds, O_CLOEXEC) != 0)
        {
            throw std::string("no pipe can be had");
        }
    }
    ~CGate()
    {
        Open();
        close(m_anEnds[0]);
    }
    CGate(const CGate&) = delete;
    CGate& operator=(const CGate&) = delete;

    void Open()
    {
        if (m_anEnds[1] >= 0)
        {
            close(m_anEnds[1]);
        }
        m_anEnds[1] = -1;
    }

    void Pass()
    {
        Open(); // this process's copy
        char cNothing = 0;
        while (read(m_anEnds[0], &cNothing, 1) < 0 && errno == EINTR)
        {
        }
    }

private:
    int m_anEnds[2];
};
