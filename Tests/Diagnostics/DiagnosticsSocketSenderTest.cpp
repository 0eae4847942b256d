#include "Diagnostics/DiagnosticsSocketSender.h"

#include "Support/Bytes.h"
#include "Support/InChild.h"
#include "Support/SystemCalls.h"
#include "Support/SystemLibrary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace
{

using Support::CSocketRecorder;
using Support::Hex;
using Support::tBytes;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int c_nFirst = CSocketRecorder::nFirstSocket;
const char* const c_szGroup = "225.0.0.60";
const std::string c_strReport = "<?xml version=\"1.0\"?><VORN version=\"1.0\"><DEV name=\"MC\" id=\"3\"></DEV></VORN>";
const std::string c_strSendFailed = "sendto() sent incorrect number of bytes\n";

tBytes Bytes(const std::string& strText)
{
    return tBytes(strText.begin(), strText.end());
}

tBytes Port(const sockaddr_in& address)
{
    tBytes bytes(sizeof address.sin_port);
    std::memcpy(bytes.data(), &address.sin_port, bytes.size());
    return bytes;
}

tBytes Address(const sockaddr_in& address)
{
    tBytes bytes(sizeof address.sin_addr);
    std::memcpy(bytes.data(), &address.sin_addr, bytes.size());
    return bytes;
}

// What this prints on standard output. Closes no descriptor that a recorder would see.
template <typename F>
std::string Printed(F call)
{
    std::fflush(stdout);
    std::FILE* const pBefore = fdopen(dup(STDOUT_FILENO), "w");
    std::FILE* const pCaught = std::tmpfile();
    dup2(fileno(pCaught), STDOUT_FILENO);
    call();
    std::fflush(stdout);
    dup2(fileno(pBefore), STDOUT_FILENO);
    std::fclose(pBefore);
    std::rewind(pCaught);
    char acText[1000];
    const std::string strPrinted(acText, std::fread(acText, 1, sizeof acText, pCaught));
    std::fclose(pCaught);
    return strPrinted;
}

// The number that the next descriptor to be opened gets.
int NextDescriptor()
{
    const int nNext = open("/dev/null", O_RDONLY);
    close(nNext);
    return nNext;
}

int Option(int nSocket, int nLevel, int nName)
{
    int nValue = -1;
    socklen_t unSize = sizeof nValue;
    EXPECT_EQ(0, getsockopt(nSocket, nLevel, nName, &nValue, &unSize)) << nName;
    return nValue;
}

// A sender whose system calls are caught.
class DiagnosticsSender : public testing::Test
{
protected:
    DiagnosticsSender() : m_pSender(std::make_unique<CDiagnosticsSocketSender>()) {}

    bool Establish(const char* szGroup = c_szGroup, unsigned short unPort = 7060)
    {
        bool bResult = false;
        m_strPrinted = Printed([&] { bResult = m_pSender->EstablishMulticastTransmitter(szGroup, unPort); });
        return bResult;
    }

    void Send(const std::string& strReport)
    {
        m_strPrinted = Printed([&] { m_pSender->Send(strReport.data(), static_cast<unsigned int>(strReport.size())); });
    }

    CSocketRecorder m_Recorder;
    std::unique_ptr<CDiagnosticsSocketSender> m_pSender;
    std::string m_strPrinted;
};

// The same without a recorder: with descriptors of the system.
class DiagnosticsSenderForReal : public testing::Test
{
protected:
    DiagnosticsSenderForReal() : m_nReceiver(socket(AF_INET, SOCK_DGRAM, 0)), m_Address()
    {
        m_Address.sin_family = AF_INET;
        m_Address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t unSize = sizeof m_Address;
        EXPECT_EQ(0, bind(m_nReceiver, reinterpret_cast<sockaddr*>(&m_Address), unSize));
        EXPECT_EQ(0, getsockname(m_nReceiver, reinterpret_cast<sockaddr*>(&m_Address), &unSize));
    }
    ~DiagnosticsSenderForReal() override { close(m_nReceiver); }

    // What has arrived; a local datagram is there when its send returns.
    tBytes Receive()
    {
        tBytes bytes(70000);
        const ssize_t lReceived = recv(m_nReceiver, bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(lReceived < 0 ? 0 : static_cast<std::size_t>(lReceived));
        return bytes;
    }

    int m_nReceiver;
    sockaddr_in m_Address;
};

} // namespace

// ---- Establishing -------------------------------------------------------------------------------------------------------------

TEST_F(DiagnosticsSender, OpensNothingBeforeItIsEstablished)
{
    EXPECT_THAT(m_Recorder.opened, IsEmpty());
    EXPECT_THAT(m_Recorder.options, IsEmpty());
}

TEST_F(DiagnosticsSender, LimitsItsDatagramsToOneHopByOneByte)
{
    EXPECT_TRUE(Establish());
    EXPECT_EQ("", m_strPrinted);
    EXPECT_THAT(m_Recorder.opened, ElementsAre(c_nFirst));
    ASSERT_EQ(1u, m_Recorder.options.size());
    EXPECT_EQ(c_nFirst, m_Recorder.options[0].nSocket);
    EXPECT_EQ(IPPROTO_IP, m_Recorder.options[0].nLevel);
    EXPECT_EQ(IP_MULTICAST_TTL, m_Recorder.options[0].nName);
    EXPECT_EQ(Hex("01"), m_Recorder.options[0].value);
    EXPECT_THAT(m_Recorder.sent, IsEmpty());
}

TEST_F(DiagnosticsSender, SendsOneDatagramToTheGroup)
{
    ASSERT_TRUE(Establish());
    Send(c_strReport);
    EXPECT_EQ("", m_strPrinted);
    ASSERT_EQ(1u, m_Recorder.sent.size());
    EXPECT_EQ(c_nFirst, m_Recorder.sent[0].nSocket);
    EXPECT_EQ(0, m_Recorder.sent[0].nFlags);
    EXPECT_EQ(Bytes(c_strReport), m_Recorder.sent[0].bytes);
    const sockaddr_in& destination = m_Recorder.sent[0].destination;
    EXPECT_EQ(AF_INET, destination.sin_family);
    EXPECT_EQ(Hex("e1 00 00 3c"), Address(destination));
    EXPECT_EQ(Hex("1b 94"), Port(destination));
    EXPECT_EQ(tBytes(8), tBytes(destination.sin_zero, destination.sin_zero + 8));
}

TEST_F(DiagnosticsSender, SendsToAnyPort)
{
    for (const auto& port : {std::pair<unsigned short, const char*>{0, "00 00"}, {1, "00 01"}, {0x8001, "80 01"}, {65535, "ff ff"}})
    {
        ASSERT_TRUE(Establish(c_szGroup, port.first));
        Send("a");
        EXPECT_EQ(Hex(port.second), Port(m_Recorder.sent.back().destination));
    }
}

TEST_F(DiagnosticsSender, TakesTheGroupAsTheSystemReadsIt)
{
    const std::vector<std::pair<const char*, const char*>> groups = {
        {"225.0.0.60", "e1 00 00 3c"},  {"225.60", Support::ReadsShortAddresses() ? "e1 00 00 3c" : "ff ff ff ff"},
        {"10.1.2.3", "0a 01 02 03"},    {"", "ff ff ff ff"},
        {nullptr, "ff ff ff ff"},       {"no group", "ff ff ff ff"},
        {"225.0.0.256", "ff ff ff ff"}, {"225.0.0.60.1", "ff ff ff ff"}};
    for (const auto& group : groups)
    {
        SCOPED_TRACE(group.first == nullptr ? "null" : group.first);
        EXPECT_TRUE(Establish(group.first));
        EXPECT_EQ("", m_strPrinted);
        Send("a");
        EXPECT_EQ(Hex(group.second), Address(m_Recorder.sent.back().destination));
    }
}

TEST_F(DiagnosticsSender, ReadsTheGroupsTextNeverAgain)
{
    std::unique_ptr<std::string> pGroup = std::make_unique<std::string>("225.0.0.60");
    ASSERT_TRUE(Establish(pGroup->c_str()));
    (*pGroup)[0] = '9';
    pGroup.reset();
    Send("a");
    EXPECT_EQ(Hex("e1 00 00 3c"), Address(m_Recorder.sent.back().destination));
}

TEST_F(DiagnosticsSender, TellsThatItGotNoSocket)
{
    m_Recorder.bFailSocket = true;
    EXPECT_FALSE(Establish());
    EXPECT_EQ("socket() failed\n", m_strPrinted);
    EXPECT_THAT(m_Recorder.options, IsEmpty());
    Send("a");
    EXPECT_EQ(-1, m_Recorder.sent.back().nSocket) << "the failed descriptor is kept";
    m_pSender.reset();
    EXPECT_THAT(m_Recorder.closed, Each(-1)) << "nothing of another's is closed";
}

TEST_F(DiagnosticsSender, TellsThatItCouldNotSetTheHops)
{
    m_Recorder.bFailOption = true;
    EXPECT_FALSE(Establish());
    EXPECT_EQ("setsockopt() failed\n", m_strPrinted);
    EXPECT_THAT(m_Recorder.closed, IsEmpty()) << "the socket stays open";
    Send("a");
    EXPECT_EQ(c_nFirst, m_Recorder.sent.back().nSocket);
    m_pSender.reset();
    EXPECT_THAT(m_Recorder.closed, ElementsAre(c_nFirst));
}

TEST_F(DiagnosticsSender, LeavesTheEarlierSocketOpenWhenItIsEstablishedAgain)
{
    ASSERT_TRUE(Establish());
    ASSERT_TRUE(Establish("225.0.0.61", 9));
    EXPECT_THAT(m_Recorder.opened, ElementsAre(c_nFirst, c_nFirst + 1));
    EXPECT_EQ(c_nFirst + 1, m_Recorder.options.back().nSocket);
    Send("a");
    EXPECT_EQ(c_nFirst + 1, m_Recorder.sent.back().nSocket);
    EXPECT_EQ(Hex("e1 00 00 3d"), Address(m_Recorder.sent.back().destination));
    EXPECT_EQ(Hex("00 09"), Port(m_Recorder.sent.back().destination));
    EXPECT_THAT(m_Recorder.closed, IsEmpty());
    m_pSender.reset();
    EXPECT_THAT(m_Recorder.closed, ElementsAre(c_nFirst + 1));
}

TEST_F(DiagnosticsSender, WorksWhenItIsEstablishedAfterAFailure)
{
    m_Recorder.bFailSocket = true;
    EXPECT_FALSE(Establish());
    m_Recorder.bFailSocket = false;
    m_Recorder.bFailOption = true;
    EXPECT_FALSE(Establish());
    m_Recorder.bFailOption = false;
    EXPECT_TRUE(Establish());
    EXPECT_EQ("", m_strPrinted);
    Send(c_strReport);
    EXPECT_EQ(c_nFirst + 1, m_Recorder.sent.back().nSocket);
    EXPECT_EQ(Hex("e1 00 00 3c"), Address(m_Recorder.sent.back().destination));
}

TEST_F(DiagnosticsSender, ClosesDescriptorZeroWhenItWasNeverEstablished)
{
    m_pSender.reset();
    EXPECT_THAT(m_Recorder.closed, ElementsAre(0));
}

// ---- Sending ------------------------------------------------------------------------------------------------------------------

TEST_F(DiagnosticsSender, SendsToDescriptorZeroBeforeItIsEstablished)
{
    Send("a");
    ASSERT_EQ(1u, m_Recorder.sent.size());
    EXPECT_EQ(0, m_Recorder.sent[0].nSocket);
    EXPECT_EQ(Hex("61"), m_Recorder.sent[0].bytes);
}

TEST_F(DiagnosticsSender, SendsAnyBytesAndAnyLength)
{
    ASSERT_TRUE(Establish());
    for (const std::string& strBytes : {std::string(), std::string(1, '\0'), std::string("a\0\xff\n", 4), std::string(65507, 'a')})
    {
        Send(strBytes);
        EXPECT_EQ("", m_strPrinted);
        EXPECT_EQ(Bytes(strBytes), m_Recorder.sent.back().bytes);
    }
    EXPECT_EQ(4u, m_Recorder.sent.size());
}

TEST_F(DiagnosticsSender, TellsThatTheSystemTookTooLittle)
{
    ASSERT_TRUE(Establish());
    for (const long lTaken : {0L, 1L, static_cast<long>(c_strReport.size()) - 1})
    {
        m_Recorder.lSentAtMost = lTaken;
        Send(c_strReport);
        EXPECT_EQ(c_strSendFailed, m_strPrinted);
    }
    EXPECT_EQ(3u, m_Recorder.sent.size()) << "nothing is sent twice";
    m_Recorder.lSentAtMost = static_cast<long>(c_strReport.size());
    Send(c_strReport);
    EXPECT_EQ("", m_strPrinted);
}

TEST_F(DiagnosticsSender, TellsThatTheSystemRefusedItAndGoesOn)
{
    ASSERT_TRUE(Establish());
    m_Recorder.bFailSend = true;
    Send(c_strReport);
    EXPECT_EQ(c_strSendFailed, m_strPrinted);
    Send("");
    EXPECT_EQ(c_strSendFailed, m_strPrinted);
    const std::string strPrinted = Printed([&] { m_pSender->Send("a", 0xffffffff); });
    EXPECT_EQ(c_strSendFailed, strPrinted) << "an error is no length";
    m_Recorder.bFailSend = false;
    Send(c_strReport);
    EXPECT_EQ("", m_strPrinted);
    EXPECT_EQ(1u, m_Recorder.sent.size());
}

// ---- With sockets of the system -----------------------------------------------------------------------------------------------

TEST_F(DiagnosticsSenderForReal, OpensADatagramSocketOfOneHopThatNoChildInherits)
{
    const int nSocket = NextDescriptor();
    CDiagnosticsSocketSender sender;
    ASSERT_TRUE(sender.EstablishMulticastTransmitter(c_szGroup, 7060));
    EXPECT_EQ(SOCK_DGRAM, Option(nSocket, SOL_SOCKET, SO_TYPE));
    EXPECT_EQ(AF_INET, Option(nSocket, SOL_SOCKET, SO_DOMAIN));
    EXPECT_EQ(IPPROTO_UDP, Option(nSocket, SOL_SOCKET, SO_PROTOCOL));
    EXPECT_EQ(1, Option(nSocket, IPPROTO_IP, IP_MULTICAST_TTL));
    EXPECT_EQ(1, Option(nSocket, IPPROTO_IP, IP_MULTICAST_LOOP)) << "as the system has it";
    EXPECT_EQ(FD_CLOEXEC, fcntl(nSocket, F_GETFD));
}

TEST_F(DiagnosticsSenderForReal, ClosesItsSocket)
{
    const int nSocket = NextDescriptor();
    {
        CDiagnosticsSocketSender sender;
        ASSERT_TRUE(sender.EstablishMulticastTransmitter(c_szGroup, 7060));
        EXPECT_NE(-1, fcntl(nSocket, F_GETFD));
    }
    EXPECT_EQ(-1, fcntl(nSocket, F_GETFD));
}

TEST_F(DiagnosticsSenderForReal, SendsEachReportAsOneDatagram)
{
    CDiagnosticsSocketSender sender;
    ASSERT_TRUE(sender.EstablishMulticastTransmitter("127.0.0.1", ntohs(m_Address.sin_port)));
    EXPECT_EQ("", Printed([&] { sender.Send(c_strReport.data(), static_cast<unsigned int>(c_strReport.size())); }));
    EXPECT_EQ("", Printed([&] { sender.Send("second", 6); }));
    EXPECT_EQ(Bytes(c_strReport), Receive());
    EXPECT_EQ(Bytes("second"), Receive());
    EXPECT_EQ(tBytes(), Receive());
}

TEST_F(DiagnosticsSenderForReal, SendsNothingThatIsTooLargeForADatagram)
{
    CDiagnosticsSocketSender sender;
    ASSERT_TRUE(sender.EstablishMulticastTransmitter("127.0.0.1", ntohs(m_Address.sin_port)));
    const std::string strLarge(65508, 'a');
    EXPECT_EQ(c_strSendFailed, Printed([&] { sender.Send(strLarge.data(), 65508); }));
    EXPECT_EQ("", Printed([&] { sender.Send(strLarge.data(), 65507); }));
    EXPECT_EQ(65507u, Receive().size());
}

TEST_F(DiagnosticsSenderForReal, ReturnsWhenDescriptorZeroIsNoSocket)
{
    const int nResult = Support::InChild(
        []
        {
            dup2(open("/dev/null", O_RDWR), 0);
            CDiagnosticsSocketSender sender;
            const std::string strPrinted = Printed([&] { sender.Send("a", 1); });
            return strPrinted == c_strSendFailed ? 0 : 1;
        });
    EXPECT_EQ(0, nResult);
}

TEST_F(DiagnosticsSenderForReal, ClosesDescriptorZeroWhenItWasNeverEstablished)
{
    const int nResult = Support::InChild(
        []
        {
            dup2(open("/dev/null", O_RDWR), 0);
            const bool bOpen = fcntl(0, F_GETFD) != -1;
            {
                const CDiagnosticsSocketSender sender;
            }
            return bOpen && fcntl(0, F_GETFD) == -1 && errno == EBADF ? 0 : 1;
        });
    EXPECT_EQ(0, nResult);
}
