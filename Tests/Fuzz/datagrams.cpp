// Datagrams one after another: framing, the ring of 50 and reassembly, through the base handler and through a client's.
#include "ClientComms/ClientMsgHandler.h"
#include "Runtime/Clock.h"

#include "DatagramModel.h"
#include "Input.h"

#include <climits>
#include <cstring>
#include <memory>

using namespace Fuzz;

namespace
{

constexpr int c_nClientCapacity = 1048576;
constexpr int c_nMostOperations = 160;
constexpr int c_nMostLarge = 12;
constexpr unsigned char c_ucUntouched = 0xa5;
constexpr int c_nNobody = -1; // the base handler is not told who sent a datagram
const char* const caSenders[] = {"10.0.0.1", "10.0.0.2", "192.168.100.200"};

// Both handlers and their models. They outlive an input: three megabytes are not cleared for each. What an input could leave
// behind is overwritten before the next, so that every finding is one input's own.
class CBench
{
public:
    CBench()
        : m_pBase(std::make_unique<CMsgHandlerBase>()), m_pClient(std::make_unique<CClient>()),
          m_Buffer(c_nClientCapacity + 512, c_ucUntouched), m_Untouched(512, c_ucUntouched)
    {
        CClock::SetSource([] { return g_nNow; });
    }

    void Reset()
    {
        g_nNow = c_nStart;
        m_nCapacity = c_nClientCapacity;
        SetStrict(false);
        Flush(std::max(m_BaseRing.Foreign(), m_ClientRing.Foreign()), 0);
        ClearErrors();
        tBytes surface = {0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
        for (int nUpdate = m_ClientModel.Current() == 0 ? 2 : 1; nUpdate > 0; --nUpdate)
        {
            Feed(MakeDatagram(0, c_unFlushId, 1, 1, 17, surface), 0);
        }
        m_ClientModel.Update(*m_pClient);
        m_ClientModel.Sender(*m_pClient, caSenders);
        m_History = std::vector<tBytes>();
        m_nLarge = 0;
    }

    void Feed(const tBytes& datagram, int nSender)
    {
        const CExact exact(datagram);
        const long lLength = static_cast<long>(datagram.size());
        FeedBase(exact, lLength, m_BaseRing.Take(datagram, m_nCapacity, c_nNobody));
        m_pClient->OnReceivedData(exact.Text(), lLength, caSenders[nSender]);
        m_ClientModel.Take(m_ClientRing.Take(datagram, c_nClientCapacity, nSender), nSender);
    }

    bool Operate(CInput& input);
    void Finish() { m_ClientModel.Count(*m_pClient); }

private:
    void Flush(std::size_t unCount, int nSender)
    {
        for (; unCount > 0; --unCount)
        {
            Feed(CRingModel::Stranger(), nSender);
        }
    }

    void FeedBase(const CExact& exact, long lLength, const stOutcome& expected)
    {
        unsigned char* pBuffer = m_Buffer.data();
        int nSize = m_nCapacity;
        const int nResult = m_pBase->ValidatePacketSequence(exact.Text(), lLength, &pBuffer, nSize);
        Check(nResult == expected.nResult, "a datagram of %ld bytes answered %d and not %d", lLength, nResult, expected.nResult);
        Check(pBuffer == m_Buffer.data(), "the caller's buffer was exchanged");
        const std::size_t unSize = expected.message.size();
        Check(nSize == (nResult < 0 ? m_nCapacity : static_cast<int>(unSize)), "the size became %d", nSize);
        Check(unSize == 0 || std::memcmp(expected.message.data(), m_Buffer.data(), unSize) == 0, "a message was joined wrongly");
        // What lies behind the message is not to be touched; far behind it nobody looks each time.
        Check(std::memcmp(&m_Buffer[unSize], m_Untouched.data(), m_Untouched.size()) == 0,
              "a byte behind a message of %zu was written", unSize);
        std::memset(m_Buffer.data(), c_ucUntouched, unSize);
    }

    void SetStrict(bool bStrict)
    {
        m_pBase->SetStrictMatching(bStrict);
        m_pClient->SetStrictMatching(bStrict);
        m_BaseRing.SetStrict(bStrict);
        m_ClientRing.SetStrict(bStrict);
    }

    // An update that came by another way.
    void Decode(tBytes message)
    {
        m_pClient->ReceivedMCData(message.empty() ? nullptr : message.data(), static_cast<long>(message.size()));
        m_ClientModel.Decode(message);
    }

    void ClearErrors()
    {
        m_pClient->ClearReceiveErrors();
        m_ClientModel.ClearErrors();
    }

    tBytes Payload(CInput& input);
    tBytes Update(CInput& input);
    void Fragment(CInput& input, int nSender);
    void Again(CInput& input, int nSender);
    void Message(CInput& input, int nSender);
    void Send(const tBytes& datagram, int nSender)
    {
        m_History.push_back(datagram);
        Feed(datagram, nSender);
    }

    std::unique_ptr<CMsgHandlerBase> m_pBase;
    std::unique_ptr<CClient> m_pClient;
    tBytes m_Buffer;
    tBytes m_Untouched;
    CRingModel m_BaseRing;
    CRingModel m_ClientRing;
    CClientModel m_ClientModel;
    int m_nCapacity = c_nClientCapacity;
    std::vector<tBytes> m_History;
    int m_nLarge = 0;
};

std::uint32_t Id(CInput& input)
{
    static const std::uint32_t caIds[] = {0, 1, 2, 0x7fffffff, 0x80000000, 0xffffffff, c_unFlushId, 0x01000000};
    const unsigned int unByte = input.Byte();
    return unByte < 248 ? unByte % 4 : caIds[unByte - 248];
}

// Short ones as they stand in the input, or as long as it takes to meet a limit.
tBytes CBench::Payload(CInput& input)
{
    static const std::size_t caLarge[] = {64979, 64980, 64981, 65487, 32000, 1400, 9000, 64000};
    const unsigned int unByte = input.Byte();
    if (unByte < 64)
    {
        return input.Bytes(unByte);
    }
    if (unByte < 240 || ++m_nLarge > c_nMostLarge)
    {
        return Pattern(unByte, input.Byte());
    }
    return Pattern(caLarge[unByte % 8], unByte);
}

void CBench::Fragment(CInput& input, int nSender)
{
    const unsigned int unShape = input.Byte();
    const std::uint32_t unType = (unShape & 3) != 3 ? 0 : static_cast<std::uint32_t>(input.Number());
    const std::uint32_t unId = Id(input);
    const bool bWild = (unShape & 0x0c) == 0x0c;
    const std::uint32_t unNumber = bWild ? static_cast<std::uint32_t>(input.Number()) : 1 + (unShape >> 4) % 5;
    const std::uint32_t unTotal = bWild ? static_cast<std::uint32_t>(input.Number()) : 1 + input.Below(5);
    const tBytes payload = Payload(input);
    const int nOff = (unShape & 0x0c) == 0x08 ? input.Number() : 0; // claims more, or less, than is there
    Send(MakeDatagram(unType, unId, unNumber, unTotal,
                      static_cast<std::uint32_t>(payload.size()) + static_cast<std::uint32_t>(nOff), payload),
         nSender);
}

// One that came before, with a byte of its header changed or its end cut.
void CBench::Again(CInput& input, int nSender)
{
    if (m_History.empty())
    {
        return;
    }
    tBytes datagram = m_History[m_History.size() - 1 - input.Byte() % m_History.size()];
    const unsigned int unChange = input.Byte();
    if (unChange < c_unHeader && unChange < datagram.size())
    {
        datagram[unChange] = static_cast<unsigned char>(input.Byte());
    }
    else if (unChange < 40)
    {
        datagram.resize(datagram.size() - std::min(datagram.size(), std::size_t(unChange - c_unHeader)));
    }
    Send(datagram, nSender);
}

tBytes CBench::Update(CInput& input)
{
    tBytes message;
    AppendBig(message, input.Byte() % 16 == 15 ? 2 : 1);
    message.push_back(0);
    AppendBig(message, 0);
    const unsigned int unUpdateType = input.Below(33);
    AppendBig(message, unUpdateType);
    AppendBig(message, 0);
    for (unsigned int unArray = 1 + input.Below(7); unArray > 0; --unArray)
    {
        const tBytes array = Payload(input);
        AppendBig(message, static_cast<std::uint32_t>(array.size()) + (input.Byte() == 255 ? 1 : 0));
        Append(message, array);
    }
    return message;
}

// An update, cut into fragments that arrive in any order.
void CBench::Message(CInput& input, int nSender)
{
    const tBytes message = Update(input);
    const std::uint32_t unId = Id(input);
    const std::size_t unTotal = 1 + input.Below(5);
    const std::size_t unStep = (message.size() + unTotal - 1) / unTotal;
    const unsigned int unOrder = input.Byte();
    for (std::size_t unCount = 0; unCount < unTotal && unStep <= 65000; ++unCount)
    {
        const std::size_t unPart = (unCount * (unOrder % 2 == 0 ? 1 : unTotal - 1) + unOrder / 2) % unTotal;
        const std::size_t unFirst = std::min(message.size(), unPart * unStep);
        const std::size_t unLast = std::min(message.size(), unFirst + unStep);
        const tBytes part(message.begin() + static_cast<std::ptrdiff_t>(unFirst),
                          message.begin() + static_cast<std::ptrdiff_t>(unLast));
        Send(MakeDatagram(0, unId, static_cast<std::uint32_t>(unPart + 1), static_cast<std::uint32_t>(unTotal),
                          static_cast<std::uint32_t>(part.size()), part),
             nSender);
    }
}

bool CBench::Operate(CInput& input)
{
    static const int caCapacities[] = {c_nClientCapacity, 0, 1, 10, 40, 100, 1000, 64980, 200000, -1, INT_MIN};
    if (input.Empty())
    {
        return false;
    }
    const unsigned int unOperation = input.Byte();
    const int nSender = static_cast<int>(unOperation >> 4) % 3;
    switch (unOperation % 16)
    {
    case 0:
        Send(input.Bytes(input.Byte()), nSender);
        break;
    case 1:
        m_nCapacity = caCapacities[input.Below(sizeof caCapacities / sizeof caCapacities[0])];
        break;
    case 2:
        g_nNow += static_cast<std::int64_t>(input.Byte()) * 10000;
        m_ClientModel.Update(*m_pClient);
        break;
    case 3:
        ClearErrors();
        break;
    case 4:
        m_ClientModel.Sender(*m_pClient, caSenders);
        m_ClientModel.Count(*m_pClient);
        break;
    case 5:
    case 6:
        Again(input, nSender);
        break;
    case 7: // strangers that push others out of the ring
        Flush(input.Below(52), nSender);
        break;
    case 8:
    case 9:
    case 10:
        Message(input, nSender);
        break;
    case 14:
        Decode(nSender == 2 ? input.Bytes(input.Byte()) : Update(input));
        break;
    case 15:
        SetStrict(nSender != 0);
        break;
    default:
        Fragment(input, nSender);
        break;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t unSize)
{
    static CBench& bench = *new CBench;
    CInput input(pData, unSize);
    bench.Reset();
    for (int nOperation = 0; nOperation < c_nMostOperations && bench.Operate(input); ++nOperation)
    {
    }
    bench.Finish();
    return 0;
}
