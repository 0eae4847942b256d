// consolectl web: the console as a picture, in a browser.
#include "Network/SentChanges.h"
#include "Network/TrafficOptions.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Output.h"
#include "Web/LiveView.h"
#include "Web/Model.h"
#include "Web/Page.h"

#include <algorithm>
#include <memory>
#include <random>

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
    double dTimeout = 0;
};

// 128 bits of the system's, in hexadecimal digits.
std::string MakeToken()
{
    std::random_device random;
    return Format("%08x%08x%08x%08x", random(), random(), random(), random());
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
    explicit CWeb(const stOptions& options)
        : m_Options(options), m_strToken(IsLoopback(options.strListen) ? "" : MakeToken()),
          m_View(options.traffic.link, m_strToken, [this](const stChange& change) { Queue(change); }),
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
    const std::unique_ptr<CTraffic> pTraffic = OpenTraffic(m_Options.traffic);
    if (pTraffic == nullptr)
    {
        return enExitFailed;
    }
    const std::string strError = m_Server.Open(m_Options.strListen, static_cast<unsigned int>(m_Options.nPort));
    if (!strError.empty())
    {
        return Fail(strError);
    }
    m_Handler.SetRemoteAddress(c_szPPCGroup, 0, int(c_unPPCPort));
    if (!m_Handler.InitialiseClient(0, nullptr, nullptr, m_Options.traffic.link.strInterface.c_str()))
    {
        return Fail("nothing can be sent: " + LinkText(m_Options.traffic.link));
    }
    Line("the page: http://%s:%u/%s", m_Options.strListen.c_str(), m_Server.GetPort(),
         m_strToken.empty() ? "" : ("#" + m_strToken).c_str());
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
            dNextFrame = std::max(dNextFrame + c_dFramePeriod, SecondsSince(m_Start));
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
        .Type("ADDRESS");
    command.Option("--web-port", pOptions->nPort, "Port that browsers come to; 0: any that is free").Within(0, 65535);
    command.Option("--timeout", pOptions->dTimeout, "Stop after so many seconds; 0: at Ctrl-C").Within(0, 86400);
    command.Footer(
        "consolectl web\n"
        "consolectl web --listen 192.168.1.20\n"
        "\n"
        "Beyond this machine a page may look, and change only what the address with the token, which is printed, lets it.");
    command.RunsUntilStopped([pOptions] { return std::make_unique<CWeb>(*pOptions)->Run(); });
}
