// consolectl diagnostics: reports of devices' health, sent, listened to, validated and shown.
#include "Network/Options.h"
#include "Network/Report.h"
#include "Network/ReportListener.h"
#include "Subcommands/Subcommands.h"
#include "Terminal/Arguments.h"
#include "Terminal/Output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::size_t c_unMaxDatagram = 65507;

struct stSendOptions
{
    stMulticastLink link;
    std::string strDevice = "SURFACE";
    int nId = 1;
    int nCount = 1;
    double dPeriod = 1;
    bool bPrint = false;
    std::vector<std::string> values;
};

struct stFileOptions
{
    std::string strSchema = XMLDiagnostics::c_strSchemaFile;
    std::string strFile;
};

// What reports go out through: the library's sender, which goes where the system routes the group, or an interface's socket.
class CReportLink
{
public:
    explicit CReportLink(const stMulticastLink& link) : m_Link(link) {}

    bool Open()
    {
        return m_Link.strInterface.empty()
                   ? m_Sender.EstablishMulticastTransmitter(m_Link.strGroup.c_str(), static_cast<unsigned short>(m_Link.unPort))
                   : m_Socket.InitialiseLocalSockets(0, nullptr, m_Link.strInterface.c_str(), 1);
    }

    bool Send(const std::string& strReport)
    {
        if (!m_Link.strInterface.empty())
        {
            return m_Socket.Send(m_Link.strGroup.c_str(), m_Link.unPort, strReport.data(), static_cast<long>(strReport.size()));
        }
        m_Sender.Send(strReport.data(), static_cast<unsigned int>(strReport.size()));
        return m_Sender.LastSendSucceeded();
    }

private:
    const stMulticastLink& m_Link;
    CDiagnosticsSocketSender m_Sender;
    RySocketIO::CSocket m_Socket{RySocketIO::enConnectionUDP, false, false};
};

int Send(const stSendOptions& options)
{
    std::vector<stReportedValue> values;
    for (const std::string& strValue : options.values)
    {
        values.push_back(ParseReportedValue(strValue));
    }
    const std::string strReport = MakeReport(options.strDevice, options.nId, values.empty() ? SampleValues() : values);
    if (options.bPrint)
    {
        Line("%s", strReport.c_str());
        return enExitDone;
    }
    if (strReport.size() > c_unMaxDatagram)
    {
        return Fail(Format("the report has %zu bytes, and a datagram holds %zu", strReport.size(), c_unMaxDatagram));
    }
    CReportLink link(options.link);
    if (!link.Open())
    {
        return Fail("the network can't be had: " + LinkText(options.link));
    }
    Line("reports to %s", LinkText(options.link).c_str());
    const tSteadyClock::time_point start = tSteadyClock::now();
    for (int nSent = 0; nSent < options.nCount; ++nSent)
    {
        SleepSeconds(nSent * options.dPeriod - SecondsSince(start));
        if (StopRequested())
        {
            break;
        }
        if (!link.Send(strReport))
        {
            return Fail(Format("nothing could be sent to %s: is there an interface with a multicast route?",
                               options.link.strGroup.c_str()));
        }
        PrintResult(Format("report of %s %d sent to %s:%u, %s bytes", options.strDevice.c_str(), options.nId,
                           options.link.strGroup.c_str(), options.link.unPort,
                           Grouped(static_cast<long>(strReport.size())).c_str()),
                    {{"time", CCell::Time(TimeNow())},
                     {"sender", OwnAddress(options.link)},
                     {"device", options.strDevice},
                     {"id", options.nId},
                     {"bytes", static_cast<long>(strReport.size())}});
    }
    return enExitDone;
}

// A whole file, and how many seconds old it is. False when that failed, which it says.
bool ReadFile(const std::string& strFile, std::vector<char>& bytes, long& lAge)
{
    struct stat status = {};
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pFile(std::fopen(strFile.c_str(), "rb"), std::fclose);
    if (pFile == nullptr || fstat(fileno(pFile.get()), &status) != 0)
    {
        Fail(strFile + ": " + std::strerror(errno));
        return false;
    }
    lAge = static_cast<long>(std::difftime(std::time(nullptr), status.st_mtime));
    char acBlock[65536];
    for (std::size_t unRead = 1; unRead > 0 && bytes.size() <= c_unMaxDatagram;)
    {
        unRead = std::fread(acBlock, 1, sizeof acBlock, pFile.get());
        bytes.insert(bytes.end(), acBlock, acBlock + unRead);
    }
    if (std::ferror(pFile.get()) != 0)
    {
        Fail(strFile + ": " + std::strerror(errno));
        return false;
    }
    if (bytes.size() > c_unMaxDatagram)
    {
        Fail(strFile + " is too long for a report, which is one datagram");
        return false;
    }
    return true;
}

// False when there is no schema to validate against, which it says. The file is looked at, not read: it may be a pipe.
bool HaveSchema(const std::string& strSchema)
{
    struct stat status = {};
    if (access(strSchema.c_str(), R_OK) != 0 || stat(strSchema.c_str(), &status) != 0 || S_ISDIR(status.st_mode))
    {
        Fail("no schema to validate against can be read at " + strSchema + "; --schema names another");
        return false;
    }
    return true;
}

int Names(int nCount)
{
    CShortTable table(nCount, {{"number", -6}, {"name", 1}});
    for (int nNumber = 0; nNumber < XMLDiagnosticsParametersDSP::c_nNames; ++nNumber)
    {
        const char* szName = XMLDiagnosticsParametersDSP::GetName(nNumber);
        if (szName != nullptr)
        {
            table.Print({nNumber, szName});
        }
    }
    return enExitDone;
}

int ListenAndValidate(const stListenOptions& options)
{
    return options.bValidate && !HaveSchema(options.strSchema) ? int(enExitFailed) : Listen(options);
}

int Validate(const stFileOptions& options)
{
    std::vector<char> bytes;
    long lAge = 0;
    if (!HaveSchema(options.strSchema) || !ReadFile(options.strFile, bytes, lAge))
    {
        return enExitFailed;
    }
    diagnostics_xml_reader reader;
    const bool bReport = reader.getXmlFromBuffer(bytes.data(), static_cast<int>(bytes.size()));
    const std::string strParseError = reader.GetError();
    if (!reader.validate(options.strSchema.c_str()))
    {
        return Fail(options.strFile + " is not valid: " + (strParseError.empty() ? reader.GetError() : strParseError));
    }
    if (!bReport)
    {
        return Fail(options.strFile + " is valid, but the reader finds no device in it");
    }
    reader.populateMap();
    const int nParameters = static_cast<int>(reader.GetMap().size());
    PrintResult(Format("%s is %s: %s, %s", Printable(options.strFile).c_str(), Styled(enGood, "valid").c_str(),
                       DeviceText(reader).c_str(), Counted(nParameters, "parameters").c_str()),
                {{"file", options.strFile}, {"valid", "valid"}, {"device", DeviceText(reader)}, {"parameters", nParameters}});
    return enExitDone;
}

int Show(const stFileOptions& options)
{
    std::vector<char> bytes;
    long lAge = 0;
    if (!ReadFile(options.strFile, bytes, lAge))
    {
        return enExitFailed;
    }
    diagnostics_xml_reader reader;
    if (!ReadReport(reader, bytes.data(), static_cast<int>(bytes.size())))
    {
        return Fail(options.strFile + " is no report" + (reader.GetError().empty() ? "" : ": " + reader.GetError()));
    }
    PrintReport(Format("%s: %s, written %s s ago", Styled(enStrong, DeviceText(reader)).c_str(),
                       Counted(static_cast<long>(reader.GetMap().size()), "parameters").c_str(), Grouped(lAge).c_str()),
                reader);
    return enExitDone;
}

void AddReportGroup(CCommand& command, stMulticastLink& link)
{
    link.strGroup = XMLDiagnostics::c_strMulticastGroup;
    link.unPort = c_unReportPort;
    AddGroupOptions(command, link, "reports");
}

void AddSchemaOption(CCommand& command, std::string& strSchema)
{
    command.Option("--schema", strSchema, "Schema file to validate against").File();
}

} // namespace

void AddDiagnostics(CCommand& console)
{
    CCommand diagnostics = console.Add("diagnostics", "Reports of devices' health");

    const auto pSend = std::make_shared<stSendOptions>();
    CCommand send = diagnostics.Add("send", "Multicast a report, as a device does");
    AddReportGroup(send, pSend->link);
    AddInterfaceOption(send, pSend->link);
    send.Option("--device", pSend->strDevice, "Kind of device").Check(CheckReportText);
    send.Option("--id", pSend->nId, "Number of the device");
    send.Option("--count", pSend->nCount, "How many reports").Within(1, 1000000);
    send.Option("--period", pSend->dPeriod, "Seconds from one to the next").Within(0, 86400);
    AddFormatOption(send);
    send.Flag("--print", pSend->bPrint, "Print the report and send nothing");
    send.Option("PARAMETER=VALUE", pSend->values, "Such as enUpTime=3600 or 0=3600; 0=3600,7 gives a second value. None: a sample");
    send.RunsUntilStopped([pSend] { return Send(*pSend); });

    const auto pListen = std::make_shared<stListenOptions>();
    CCommand listen = diagnostics.Add("listen", "Show each report as it comes, as a table: number, name, value, second value");
    AddReportGroup(listen, pListen->link);
    AddInterfaceOption(listen, pListen->link);
    AddLimitOptions(listen, pListen->limits, "reports");
    AddFormatOption(listen);
    listen.Flag("--validate", pListen->bValidate, "Validate each report");
    AddSchemaOption(listen, pListen->strSchema);
    listen.RunsUntilStopped([pListen] { return ListenAndValidate(*pListen); });

    const auto pFile = std::make_shared<stFileOptions>();
    CCommand validate = diagnostics.Add("validate", "Hold a report in a file against the schema, and say where it fails");
    validate.Option("FILE", pFile->strFile, "The report").File().Required();
    AddSchemaOption(validate, pFile->strSchema);
    AddFormatOption(validate);
    validate.Runs([pFile] { return Validate(*pFile); });

    CCommand show = diagnostics.Add("show", "Show a report in a file as a table");
    show.Option("FILE", pFile->strFile, "The report").File().Required();
    AddFormatOption(show);
    show.Runs([pFile] { return Show(*pFile); });

    CCommand names = diagnostics.Add("names", "List the parameters that have a name");
    AddFormatOption(names);
    const auto pRows = std::make_shared<int>(0);
    AddRowsOption(names, *pRows, "parameters");
    names.Runs([pRows] { return Names(*pRows); });
}
