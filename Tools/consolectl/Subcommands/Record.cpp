// consolectl record: the network's datagrams in a capture file.
#include "Network/Capture.h"
#include "Network/Shadow.h"
#include "Network/TrafficOptions.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Output.h"

#include <memory>

namespace
{

constexpr double c_dLongestWait = 0.05;

struct stOptions
{
    stTrafficOptions traffic;
    stLimits limits;
    std::string strFile;
};

std::string Finish(CCaptureWriter& writer, CShadow& shadow, const stTrafficLoss& loss)
{
    std::uint32_t aunCheckWords[c_nMessageTypes];
    ReadCheckWords(shadow.Image(), aunCheckWords);
    return writer.Finish(aunCheckWords, loss.unKernel + loss.unSize);
}

int Record(const stOptions& options)
{
    const std::unique_ptr<CTraffic> pTraffic = OpenTraffic(options.traffic);
    CCaptureWriter writer;
    std::string strError = pTraffic == nullptr ? std::string() : writer.Open(options.strFile);
    if (pTraffic == nullptr || !strError.empty())
    {
        return strError.empty() ? int(enExitFailed) : Fail(strError);
    }
    const auto pShadow = std::make_unique<CShadow>(options.traffic.link);
    const tSteadyClock::time_point start = tSteadyClock::now();
    for (stDatagram datagram; strError.empty() && !options.limits.Reached(writer.GetDatagrams(), start) && !pTraffic->IsOver();)
    {
        if (pTraffic->Next(datagram, options.limits.TimeLeft(start, c_dLongestWait)))
        {
            strError = writer.Write(datagram);
            pShadow->Take(datagram);
        }
        else if (strError.empty())
        {
            strError = writer.Flush();
        }
    }
    const stTrafficLoss loss = pTraffic->GetLoss();
    strError = strError.empty() ? Finish(writer, *pShadow, loss) : strError;
    if (!strError.empty())
    {
        return Fail(strError);
    }
    const char* const szImage = pShadow->IsWhole() ? "whole" : "not whole";
    const std::string strCheckWord = CheckWordText(pShadow->Image());
    PrintResult(Format("%s: %s in %.2f s, %u dropped by the kernel; the image they lead to is %s, check word %s",
                       Printable(options.strFile).c_str(), Counted(writer.GetDatagrams(), "datagrams").c_str(), SecondsSince(start),
                       loss.unKernel + loss.unSize, szImage, strCheckWord.c_str()),
                {{"time", CCell::Time(TimeNow())},
                 {"sender", pShadow->SenderText()},
                 {"file", options.strFile},
                 {"datagrams", writer.GetDatagrams()},
                 {"dropped", loss.unKernel + loss.unSize},
                 {"image", szImage},
                 {"check_word", strCheckWord}});
    return options.limits.Status(writer.GetDatagrams(), "datagrams");
}

} // namespace

void AddRecord(CCommand& console)
{
    const auto pOptions = std::make_shared<stOptions>();
    CCommand command =
        console.Add("record", "Write the MC's updates and the clients' changes to a capture file, which packet tools can open");
    AddLinkOptions(command, pOptions->traffic.link);
    AddLimitOptions(command, pOptions->limits, "datagrams");
    AddFormatOption(command);
    command.Option("FILE", pOptions->strFile, "The capture file, which must not be there yet").File().Required();
    command.Footer("consolectl record --timeout 10 FILE.pcap\n"
                   "A recording ends with the check words of the image that it leads to. One that was broken off lacks them.");
    command.RunsUntilStopped([pOptions] { return Record(*pOptions); });
}
