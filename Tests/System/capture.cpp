// Writes every datagram of the updates' group to standard output, behind its length in four bytes, until there was none for half a
// second, or none at all for ten. Multicast: run it in a network namespace of its own.
#include "LogicalControls.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

namespace
{

class CCapture : public RySocketIO::CSocket
{
public:
    CCapture() : CSocket(RySocketIO::enConnectionUDP, false, false) {}
    ~CCapture() override { StopReceiving(); }

    void OnReceivedData(char* pData, long lLength) override
    {
        const unsigned long unLength = static_cast<unsigned long>(lLength);
        for (const int nShift : {24, 16, 8, 0})
        {
            std::putchar(static_cast<int>(unLength >> nShift & 0xff));
        }
        std::fwrite(pData, 1, unLength, stdout);
        ++m_nTaken;
    }

    std::atomic<int> m_nTaken{0};
};

} // namespace

int main()
{
    const auto pCapture = std::make_unique<CCapture>();
    if (!pCapture->InitialiseLocalSockets(7060, nullptr, nullptr, 1) || !pCapture->AddToGroup("225.0.0.46"))
    {
        std::fprintf(stderr, "no socket for 225.0.0.46:7060\n");
        return 1;
    }
    std::fprintf(stderr, "ready\n");
    int nQuiet = 0; // tenths of a second
    for (int nLast = 0; nQuiet < (nLast == 0 ? 100 : 5);)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        nQuiet = pCapture->m_nTaken == nLast ? nQuiet + 1 : 0;
        nLast = pCapture->m_nTaken;
    }
    pCapture->StopReceiving();
    const unsigned int unDropped = pCapture->GetSocketStatistics().unKernelDrops;
    std::fprintf(stderr, "%d datagrams, %u dropped by the kernel\n", pCapture->m_nTaken.load(), unDropped);
    return unDropped == 0 && std::fflush(stdout) == 0 ? 0 : 1;
}
