// consolectl web: the console as a picture, in a browser.
#include "Network/SentChanges.h"
#include "Network/TrafficOptions.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Output.h"
#include "Web/Listening.h"
#include "Web/LiveView.h"
#include "Web/Model.h"
#include "Web/Page.h"
#ifdef CONSOLECTL_HAVE_SHOWS
#include "Web/Shows.h"
#endif

#include <algorithm>
#include <fstream>
#include <memory>

namespace
{

constexpr double c_dFramePeriod = 1.0 / 30;
constexpr double c_dLongestWait = 0.005;
constexpr int c_nMostDatagrams = 2000; // taken before browsers are looked after

struct stOptions
{
    stTrafficOptions traffic;
    std::string strListen = "127.0.0.1";
    int nPort = 8060;
    int nSocket = -1; // that listens already
    double dTimeout = 0;
    std::string strShows;
    std::vector<std::string> safe;
};

#ifdef CONSOLECTL_HAVE_SHOWS
void AddShowOptions(CCommand& command, stOptions& options)
{
    command.Option("--shows", options.strShows, "A file of shows that can be laid over the picture").File();
    command.Option("--safe", options.safe, "What a recall would leave as it is, such as \"MicInput/0-7/*/*\"")
        .Type("ADDRESS")
        .Repeated();
}

// Null and no error where none are wanted.
std::unique_ptr<IShows> OpenShows(const stOptions& options, std::string& strError)
{
    const std::vector<stPattern> safe = ParsePatterns(options.safe);
    if (!safe.empty() && options.strShows.empty())
    {
        throw stWrongUse("--safe", "it goes with --shows");
    }
    auto pShows = std::make_unique<CShows>(options.strShows, safe);
    strError = options.strShows.empty() ? std::string() : pShows->Read();
    return options.strShows.empty() ? nullptr : std::move(pShows);
}
#else
void AddShowOptions(CCommand&, stOptions&) {}

std::unique_ptr<IShows> OpenShows(const stOptions&, std::string&)
{
    return nullptr;
}
#endif

// 128 bits of the system's, in hexadecimal digits; empty when it has none.
std::string MakeToken()
{
    std::ifstream random("/dev/urandom", std::ios::binary);
    std::string strToken;
    for (int nByte = 0; nByte < 16; ++nByte)
    {
        strToken += Format("%02x", static_cast<unsigned int>(random.get()) & 0xffU);
    }
    return random.good() ? strToken : std::string();
}

std::vector<stWebFile> MakeFiles()
{
    std::vector<stWebFile> files = PageFiles();
    files.push_back({"/model.json", "application/json", ModelJson()});
    return files;
}

class CWeb
{
public:
    CWeb(const stOptions& options, IShows* pShows)
        : m_Options(options), m_strToken(IsLoopback(options.strListen) ? "" : MakeToken()),
          m_View({options.traffic.link, LinkText(options.traffic.link), m_strToken, pShows},
                 [this](const stChange& change) { Queue(change); }),
          m_Server(MakeFiles(), [this] { return m_View.MakeBrowser(); }), m_Handler(false)
    {
    }
    ~CWeb() { m_Handler.Shutdown(); }

    int Run();

private:
    void Queue(const stChange& change)
    {
        QueueChange(m_Handler, change);
        ++m_lChanges;
    }
    // As a browser has it; of an address that stands for all of this machine's, the one that it has towards the console.
    std::string PageAddress() const
    {
        const std::string strOwn = IsAnyAddress(m_Options.strListen) ? OwnAddress(m_Options.traffic.link) : m_Options.strListen;
        const bool bSix = strOwn.find(':') != std::string::npos;
        return Format("http://%s%s%s:%u/%s%s", bSix ? "[" : "", strOwn.c_str(), bSix ? "]" : "", m_Server.GetPort(),
                      m_strToken.empty() ? "" : "#", m_strToken.c_str());
    }
    bool IsOver() const
    {
        return StopRequested() || OutputFailed() || (m_Options.dTimeout > 0 && SecondsSince(m_Start) >= m_Options.dTimeout);
    }

    const stOptions& m_Options;
    const std::string m_strToken;
    CLiveView m_View;
    CWebServer m_Server;
    CClientMsgHandler m_Handler;
    long m_lChanges = 0;
    const tSteadyClock::time_point m_Start = tSteadyClock::now();
};

int CWeb::Run()
{
    if (m_strToken.empty() && !IsLoopback(m_Options.strListen))
    {
        return Fail("/dev/urandom gives no token, without which no page beyond this machine may be let in");
    }
    const std::unique_ptr<CTraffic> pTraffic = OpenTraffic(m_Options.traffic);
    if (pTraffic == nullptr)
    {
        return enExitFailed;
    }
    const std::string strError = m_Server.Open(m_Options.strListen, static_cast<unsigned int>(m_Options.nPort), m_Options.nSocket);
    if (!strError.empty())
    {
        return Fail(strError);
    }
    m_Handler.SetRemoteAddress(c_szPPCGroup, 0, int(c_unPPCPort));
    if (!m_Handler.InitialiseClient(0, nullptr, nullptr, m_Options.traffic.link.strInterface.c_str()))
    {
        return Fail("nothing can be sent: " + LinkText(m_Options.traffic.link));
    }
    const std::string strPage = PageAddress();
    PrintResult("the page: " + strPage, {{"page", strPage}});
    double dNextFrame = 0;
    stDatagram datagram;
    while (!IsOver())
    {
        const double dWait = std::clamp(dNextFrame - SecondsSince(m_Start), 0.0, c_dLongestWait);
        for (int nTaken = 0; nTaken < c_nMostDatagrams && pTraffic->Next(datagram, nTaken == 0 ? dWait : 0); ++nTaken)
        {
            m_View.Take(datagram);
        }
        m_Server.Poll();
        if (SecondsSince(m_Start) >= dNextFrame)
        {
            dNextFrame = std::max(dNextFrame + c_dFramePeriod, SecondsSince(m_Start)); // frames that are missed are left out
            m_View.Next(pTraffic->GetLoss(), m_Server.CountBrowsers());
            m_Handler.SendAll();
            m_Server.Send();
        }
    }
    Line("%s, %s lost; %s sent", Counted(m_View.Activity().Shadow().Follower().GetUpdatesApplied(), "updates").c_str(),
         Counted(m_View.Activity().GetLost(), "messages").c_str(), Counted(m_lChanges, "changes").c_str());
    return enExitDone;
}

} // namespace

void AddWeb(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command = console.Add(
        "web",
        "The console as a picture, live in a browser: every parameter, the channels, the link's health; faders can be dragged");
    AddLinkOptions(command, pOptions->traffic.link);
    command
        .Option("--listen", pOptions->strListen,
                "Address of this machine that browsers come to; other machines reach the page only when it is one of theirs")
        .Type("ADDRESS")
        .Check(CheckAddress);
    command.Option("--web-port", pOptions->nPort, "Port that browsers come to; 0: any that is free").Within(0, 65535);
    AddShowOptions(command, *pOptions);
    AddFormatOption(command);
    command.Option("--timeout", pOptions->dTimeout, "Stop after so many seconds; 0: at Ctrl-C").Within(0, 86400);
    command.Footer(
        "consolectl web\n"
        "consolectl web --listen 192.168.1.20\n"
        "consolectl web --shows SHOWS\n"
        "\n"
        "Beyond this machine a page may look, and change only what the address with the token, which is printed, lets it.");
    command.RunsUntilStopped(
        [pOptions]
        {
            const stHandedOver handedOver = TakeHandedOver();
            pOptions->nSocket = handedOver.nSocket;
            pOptions->strListen = handedOver.nSocket >= 0 ? handedOver.strAddress : pOptions->strListen;
            std::string strError = handedOver.strError;
            const std::unique_ptr<IShows> pShows = strError.empty() ? OpenShows(*pOptions, strError) : nullptr;
            return strError.empty() ? std::make_unique<CWeb>(*pOptions, pShows.get())->Run() : Fail(strError);
        });
}
