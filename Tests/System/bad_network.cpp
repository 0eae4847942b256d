// 100,000 small updates through twenty bad networks, real sockets and a real receive thread: each is applied as it was sent, or
// its loss is explained, and the accounts of the test, the kernel and the library agree. Then, for each, a follower whose network
// heals. Multicast: run it in a network namespace of its own.    bad_network [UPDATES]
#include "BadNetworkSeed.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

namespace
{

using Support::CFigures;
using Support::CWire;
using Support::CWired;
using Support::Expect;
using Support::tBytes;

constexpr std::uint32_t c_unSeeds = 20;

// A follower of real images behind a bad network that heals.
class CFollowed
{
public:
    CFollowed(std::uint32_t unSeed, RySocketIO::CSocket& sender) : m_unSeed(unSeed), m_Sender(sender), m_Random(unSeed) {}

    void Run(CFigures& figures);

private:
    void ChangeImage();
    void SendUpdate(MCUpdateType enType, CBadNetwork& network);
    void Put(const std::vector<stArrival>& arrivals);
    bool InStep() const;

    const std::uint32_t m_unSeed;
    RySocketIO::CSocket& m_Sender;
    std::mt19937 m_Random;
    CWire m_Wire{c_szGroup, c_unPort};
    std::unique_ptr<CBMAContainer> m_pMC = std::make_unique<CBMAContainer>();
    std::unique_ptr<CBMAContainer> m_pImage = std::make_unique<CBMAContainer>();
    std::unique_ptr<CWired<CImageFollower>> m_pFollower;
    std::unique_ptr<CMCUpdateMsg> m_pMessage = std::make_unique<CMCUpdateMsg>();
    std::unique_ptr<UDP_PACKET> m_pPacket = std::make_unique<UDP_PACKET>();
    std::uint32_t m_unId = c_unFirstId;
};

// A byte here and there, in every block.
void CFollowed::ChangeImage()
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        void* pBlock = nullptr;
        long lBytes = 0;
        m_pMC->GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pBlock, lBytes);
        for (int nChange = 0; nChange < 100; ++nChange)
        {
            // The last byte of a block may reach past the last parameter.
            static_cast<unsigned char*>(pBlock)[m_Random() % static_cast<std::uint32_t>(lBytes - 1)] =
                static_cast<unsigned char>(m_Random() & 0x3f);
        }
    }
}

void CFollowed::SendUpdate(MCUpdateType enType, CBadNetwork& network)
{
    BuildMCUpdate(*m_pMC, enType, *m_pMessage);
    tBytes message(static_cast<std::size_t>(m_pMessage->GetTotalSize()));
    unsigned char* pMessage = message.data();
    *m_pMessage >> &pMessage;
    const long lSize = static_cast<long>(message.size());
    ++m_unId;
    for (int nFragment = 1; nFragment <= CountFragments(lSize); ++nFragment)
    {
        const long lLength = MakeFragment(enDatagramMCUpdate, m_unId, message.data(), lSize, nFragment, *m_pPacket);
        network.Send(0, m_pPacket.get(), static_cast<std::size_t>(lLength));
        Put(network.Receive(0));
    }
    m_Wire.AwaitAll();
    if (m_pFollower->UpdateBMA() == CClientMsgHandler::enUpdateDecodeError)
    {
        m_pFollower->ClearReceiveErrors();
    }
}

void CFollowed::Put(const std::vector<stArrival>& arrivals)
{
    for (const stArrival& arrival : arrivals)
    {
        m_Wire.Put(m_Sender, {arrival.unDatagram, arrival.bDuplicate, arrival.bytes});
    }
}

bool CFollowed::InStep() const
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        void* pMC = nullptr;
        void* pImage = nullptr;
        long lBytes = 0;
        m_pMC->GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pMC, lBytes);
        m_pImage->GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pImage, lBytes);
        if (std::memcmp(pMC, pImage, static_cast<std::size_t>(lBytes)) != 0)
        {
            return false;
        }
    }
    return true;
}

void CFollowed::Run(CFigures& figures)
{
    m_pFollower = std::make_unique<CWired<CImageFollower>>(m_Wire, *m_pImage);
    if (!m_pFollower->InitialiseClient(c_unPort, nullptr, c_szGroup, nullptr) || m_pFollower->GetLocalPort() != c_unPort)
    {
        Expect(false, "no socket for %s:%u", c_szGroup, c_unPort);
        return;
    }
    stFaults faults = FaultsOf(m_unSeed);
    faults.unReorder = m_unSeed % 3;
    faults.unLoss += 100000;
    CBadNetwork bad(faults);
    for (int nRound = 0; nRound < 4; ++nRound)
    {
        ChangeImage();
        SendUpdate(enMCUpdateSurface, bad);
        SendUpdate(enMCUpdateRotary, bad);
    }
    ChangeImage();
    Expect(!InStep(), "seed %u: in step already", m_unSeed);
    if (m_unSeed % 2 == 0)
    {
        // The worst that can be left behind: an error in both caches that the application has not been told of.
        for (int nCache = 0; nCache < 2; ++nCache)
        {
            m_Wire.Put(m_Sender, {c_unNoDatagram, false, Support::Datagram(0, ++m_unId, 1, 1, Support::UpdateHeader(1, 0, 2))});
        }
        m_Wire.AwaitAll();
    }
    Put(bad.Flush()); // what it had held back comes into the good times
    CBadNetwork good{stFaults()};
    int nRounds = 0;
    for (bool bInStep = false; !bInStep && nRounds < 4; ++nRounds)
    {
        SendUpdate(enMCUpdateSurface, good);
        SendUpdate(enMCUpdateRotary, good);
        bInStep = InStep();
    }
    Expect(m_Wire.m_unUnknown == 0 && m_Wire.m_unRefused == 0, "seed %u: %u unknown datagrams, %u refused", m_unSeed,
           m_Wire.m_unUnknown, m_Wire.m_unRefused);
    Expect(nRounds <= 2 && InStep(), "seed %u: not in step after %d updates of each type", m_unSeed, nRounds);
    ++figures["followers in step after the network healed: within " + std::to_string(nRounds) + " update(s) of each type"];
}

} // namespace

int main(int nArguments, char** apszArguments)
{
    const std::uint32_t unUpdates =
        nArguments > 1 ? static_cast<std::uint32_t>(std::strtoul(apszArguments[1], nullptr, 10)) : 100000;
    const auto pSender = std::make_unique<RySocketIO::CSocket>(RySocketIO::enConnectionUDP, false, false);
    if (!pSender->InitialiseLocalSockets(0, nullptr, nullptr, 1))
    {
        std::printf("FAILED: no socket to send from\n");
        return 1;
    }
    CFigures figures;
    for (std::uint32_t unSeed = 1; unSeed <= c_unSeeds; ++unSeed)
    {
        std::make_unique<CSeed>(unSeed, unUpdates / c_unSeeds, figures)->Run(*pSender);
        CFollowed(unSeed, *pSender).Run(figures);
    }
    figures.Print();
    for (const char* szFault : {"+ duplicates made", "- lost by the bad networks", "  (cut short)", "  (corrupted)",
                                "  (held back)", "  (pushed out of the ring)", "+ superseded", "+ undecodable"})
    {
        Expect(figures[szFault] != 0, "nothing was ever %s", szFault);
    }
    std::printf(Support::g_nFailures == 0 ? "passed\n" : "%d failures\n", Support::g_nFailures);
    return Support::g_nFailures == 0 ? 0 : 1;
}
