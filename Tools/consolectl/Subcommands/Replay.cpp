// consolectl replay: a capture file on the network again, and what image it leads to.
#include "Images/ImageFile.h"
#include "Network/Capture.h"
#include "Network/Shadow.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Output.h"

#include <cstring>
#include <memory>

namespace
{

constexpr double c_dLongestSleep = 0.05;
constexpr double c_dLongestWait = 1e8;

struct stOptions
{
    stMulticastLink link;
    std::string strFile;
    std::string strSave;
    double dSpeed = 1; // 0: as fast as it goes
    double dAt = -1;   // seconds; below 0: the end
    stLimits limits;   // of datagrams that are sent or looked at
    bool bLoop = false;
    bool bChanges = false;
    bool bSilent = false;
};

class CReplay
{
public:
    explicit CReplay(const stOptions& options)
        : m_Options(options), m_Updates(MakeEndpoint(options.link.strGroup, options.link.unPort)),
          m_Changes(MakeEndpoint(c_szPPCGroup, c_unPPCPort)), m_Socket(RySocketIO::enConnectionUDP, false, false)
    {
    }

    int Run();

private:
    bool PlayOnce(CCaptureFile& capture);
    bool WaitFor(std::int64_t nTime);
    bool Send(stDatagram& datagram);
    std::string Save();
    int Judge(const CCaptureFile& capture);

    const stOptions& m_Options;
    const stEndpoint m_Updates;
    const stEndpoint m_Changes;
    RySocketIO::CSocket m_Socket;
    std::unique_ptr<CShadow> m_pShadow;
    tSteadyClock::time_point m_Start;
    std::int64_t m_nFirst = 0;     // time of the first datagram
    std::uint32_t m_unIdShift = 0; // a loop goes on where the numbers of the one before ended
    std::uint32_t m_unLastId = 0;
    std::uint32_t m_unFirstId = 0;
    bool m_bAnyId = false;
    long m_lRead = 0;
    long m_lAll = 0; // of all rounds
    const tSteadyClock::time_point m_Began = tSteadyClock::now();
    bool m_bLimited = false; // it ended before the recording did
    long m_lUpdates = 0;     // datagrams
    long m_lSent = 0;
};

// False when a stop was asked for meanwhile.
bool CReplay::WaitFor(std::int64_t nTime)
{
    if (m_Options.bSilent || m_Options.dSpeed <= 0)
    {
        return !StopRequested();
    }
    const tSteadyClock::time_point due =
        m_Start + Duration(std::min(static_cast<double>(nTime - m_nFirst) / 1e6 / m_Options.dSpeed, c_dLongestWait));
    while (tSteadyClock::now() < due && !StopRequested())
    {
        SleepUntil(std::min(due, tSteadyClock::now() + Duration(c_dLongestSleep)));
    }
    return !StopRequested();
}

bool CReplay::Send(stDatagram& datagram)
{
    const bool bUpdate = datagram.destination == m_Updates;
    if (m_Options.bSilent || (!bUpdate && !(m_Options.bChanges && datagram.destination == m_Changes)))
    {
        return true;
    }
    UDP_PACKET_HEADER header;
    if (bUpdate && datagram.bytes.size() >= sizeof header)
    {
        std::memcpy(&header, datagram.bytes.data(), sizeof header);
        m_unFirstId = m_bAnyId ? m_unFirstId : std::uint32_t(header.unMessageId);
        m_bAnyId = true;
        header.unMessageId += m_unIdShift;
        m_unLastId = header.unMessageId;
        std::memcpy(datagram.bytes.data(), &header, sizeof header);
    }
    ++m_lSent;
    return m_Socket.Send(datagram.destination.AddressText().c_str(), datagram.destination.usPort,
                         reinterpret_cast<const char*>(datagram.bytes.data()), static_cast<long>(datagram.bytes.size()));
}

// The shadow sees what is sent, as it is in the file. False when it was stopped, or nothing can be sent.
bool CReplay::PlayOnce(CCaptureFile& capture)
{
    m_pShadow = std::make_unique<CShadow>(m_Options.link);
    m_Start = tSteadyClock::now();
    m_lRead = 0;
    CProgress progress("replay", capture.GetSize());
    for (stDatagram datagram; !capture.IsOver();)
    {
        const bool bDatagram = capture.Next(datagram, 0);
        m_bLimited = (bDatagram || !capture.IsOver()) && m_Options.limits.Reached(m_lAll, m_Began);
        if (m_bLimited)
        {
            return true;
        }
        if (!bDatagram)
        {
            continue;
        }
        m_nFirst = m_lRead == 0 ? datagram.nTime : m_nFirst;
        if (m_Options.dAt >= 0 && static_cast<double>(datagram.nTime - m_nFirst) / 1e6 > m_Options.dAt)
        {
            return true;
        }
        ++m_lAll;
        ++m_lRead;
        m_lUpdates += datagram.destination == m_Updates ? 1 : 0;
        m_pShadow->Take(datagram);
        progress.Show(capture.GetPosition());
        if (!WaitFor(datagram.nTime) || !Send(datagram))
        {
            return false;
        }
    }
    if (m_Options.dAt >= 0)
    {
        Line("the recording ends before: this is how it was at its end");
    }
    return true;
}

// What isn't whole takes no file's place.
std::string CReplay::Save()
{
    return m_Options.strSave.empty() ? ""
           : !m_pShadow->IsWhole()   ? "the image is not whole: nothing is saved"
                                     : SaveImage(m_pShadow->Image(), m_Options.strSave);
}

// Whether it got where the recording did.
int CReplay::Judge(const CCaptureFile& capture)
{
    CBMAContainer& image = m_pShadow->Image();
    const char* const szImage = m_pShadow->IsWhole() ? "whole" : "not whole";
    const std::string strCheckWord = CheckWordText(image);
    const stCaptureEnd* const pEnd = capture.GetEnd();
    const bool bToTheEnd = !m_bLimited && !StopRequested() && m_Options.dAt < 0;
    std::uint32_t aunCheckWords[c_nMessageTypes];
    ReadCheckWords(image, aunCheckWords);
    const bool bThere = pEnd != nullptr && pEnd->lDatagrams == m_lRead &&
                        std::memcmp(aunCheckWords, pEnd->aunCheckWords, sizeof aunCheckWords) == 0;
    PrintResult(Format("%s: %s, %s sent; the image they lead to is %s, check word %s", Printable(m_Options.strFile).c_str(),
                       Counted(m_lRead, "datagrams").c_str(), Grouped(m_lSent).c_str(), szImage, strCheckWord.c_str()),
                {{"time", CCell::Time(TimeNow())},
                 {"sender", m_pShadow->SenderText()},
                 {"file", m_Options.strFile},
                 {"datagrams", m_lRead},
                 {"sent", m_lSent},
                 {"image", szImage},
                 {"check_word", strCheckWord},
                 {"proved", !bToTheEnd || pEnd == nullptr ? CCell() : CCell(bThere ? "yes" : "no")}});
    if (m_lUpdates == 0)
    {
        return Fail(capture.GetError().empty() ? "none of its datagrams went to " + m_Updates.Text() +
                                                     ": --group and --port say where the recorded updates went"
                                               : m_Options.strFile + " was broken off: " + capture.GetError());
    }
    const std::string strError = Save();
    if (!strError.empty())
    {
        return Fail(strError);
    }
    if (!bToTheEnd)
    {
        m_Options.dAt < 0 ? Line("ended before the recording: nothing is proved") : void();
        return m_bLimited ? m_Options.limits.Status(m_lAll, "datagrams") : int(enExitDone);
    }
    if (pEnd == nullptr)
    {
        return Fail(m_Options.strFile + (capture.GetError().empty()
                                             ? " has no end of a recording: broken off, or made by another tool"
                                             : " was broken off: " + capture.GetError()));
    }
    if (!bThere)
    {
        return Fail(Format("the recording led elsewhere: it ended after %s with other check words",
                           Counted(pEnd->lDatagrams, "datagrams").c_str()));
    }
    Line("%s: the same check words as at the end of the recording", Styled(enGood, "it got there").c_str());
    return enExitDone;
}

int CReplay::Run()
{
    const std::string strWhyNot = WhyNotSaved(m_Options.strSave);
    if (!strWhyNot.empty())
    {
        return Fail(strWhyNot);
    }
    if (!m_Options.bSilent)
    {
        if (!m_Socket.InitialiseLocalSockets(0, nullptr, m_Options.link.strInterface.c_str(), 1))
        {
            return Fail("the network can't be had: " + LinkText(m_Options.link));
        }
        Line("replay to %s", LinkText(m_Options.link).c_str());
    }
    for (;;)
    {
        CCaptureFile capture;
        const std::string strError = capture.Open(m_Options.strFile);
        if (!strError.empty())
        {
            return Fail(strError);
        }
        if (!PlayOnce(capture) && !StopRequested())
        {
            return Fail("nothing can be sent: " + LinkText(m_Options.link));
        }
        if (!m_Options.bLoop || StopRequested() || m_bLimited || m_lRead == 0 || m_lUpdates == 0)
        {
            return Judge(capture);
        }
        m_unIdShift = m_unLastId + 1 - m_unFirstId;
    }
}

} // namespace

void AddReplay(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command =
        console.Add("replay", "Send a recording's updates again, and prove that they lead to the image that the recording led to");
    AddLinkOptions(command, pOptions->link);
    command.Option("FILE", pOptions->strFile, "The capture file").File().Required();
    command.Option("--speed", pOptions->dSpeed, "So many times as fast; 0: as fast as it goes").Within(0, 1000);
    AddLimitOptions(command, pOptions->limits, "datagrams");
    const COption loop = command.Flag("--loop", pOptions->bLoop, "Again and again, until Ctrl-C");
    command.Option("--at", pOptions->dAt, "Stop at so many seconds after the first datagram: the image as it was then")
        .Within(0, 1e9)
        .Default("")
        .Excludes(loop);
    command.Option("--save", pOptions->strSave, "Write the image to this file at the end").File();
    command.Flag("--changes", pOptions->bChanges, "Send the clients' changes, too: an MC will take them");
    command.Flag("--silent", pOptions->bSilent, "Send nothing: only see what image it leads to").Excludes(loop);
    AddFormatOption(command);
    command.Footer("consolectl replay FILE.pcap --speed 2\n"
                   "consolectl replay FILE.pcap --silent --at 3.5 --save IMAGE");
    command.RunsUntilStopped([pOptions] { return std::make_unique<CReplay>(*pOptions)->Run(); });
}
