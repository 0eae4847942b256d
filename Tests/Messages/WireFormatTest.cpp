// The page WireFormat, held against the library: what its examples say is what comes out of their bytes, and the library writes
// these bytes for what they say.
#include "ClientComms/ImageSync.h"
#include "ClientComms/SimpleUDPPPCSender.h"
#include "Diagnostics/DiagnosticsXMLReader.h"
#include "Diagnostics/VORNXMLWriter.h"
#include "Images/ImageFile.h"
#include "Images/ShowBlocks.h"
#include "LogicalControls/DefaultParameterValues.h"
#include "Runtime/Clock.h"
#include "Support/Bytes.h"
#include "Support/ScratchFile.h"
#include "Support/SystemCalls.h"
#include "Support/WorkedExamples.h"

#include <gtest/gtest.h>

#include <boost/endian/arithmetic.hpp>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace
{

using Support::Append;
using Support::CExampleValues;
using Support::stWorkedExample;
using Support::tBytes;
using Support::tTextLines;

// A field as the library reads it.
struct stPiece
{
    std::size_t unSize;
    std::string strField;
    std::string strValue;
};
typedef std::vector<stPiece> tPieces;

void Add(tPieces& pieces, const tPieces& more)
{
    pieces.insert(pieces.end(), more.begin(), more.end());
}

template <class T>
stPiece Number(const std::string& strField, const T& value)
{
    return {sizeof value, strField, std::to_string(static_cast<long long>(value))};
}

// With the name that the model has for it.
template <class T>
stPiece Named(const std::string& strField, const T& value, const char* const* pszNames, int nNames)
{
    stPiece piece = Number(strField, value);
    const int nValue = value;
    piece.strValue += nValue >= 0 && nValue < nNames ? std::string(" ") + pszNames[nValue] : " ?";
    return piece;
}

std::string FloatText(float fValue)
{
    std::ostringstream text;
    text << fValue;
    return text.str();
}

template <class T>
T At(const tBytes& bytes, std::size_t unOffset)
{
    T value = {};
    if (unOffset + sizeof value <= bytes.size())
    {
        std::memcpy(&value, bytes.data() + unOffset, sizeof value);
    }
    return value;
}

// As much of it as there is.
tBytes Part(const tBytes& bytes, std::size_t unOffset, std::size_t unSize)
{
    const std::size_t unBegin = std::min(unOffset, bytes.size());
    const std::size_t unEnd = std::min(unOffset + unSize, bytes.size());
    return tBytes(bytes.begin() + static_cast<std::ptrdiff_t>(unBegin), bytes.begin() + static_cast<std::ptrdiff_t>(unEnd));
}

// The beginning replaced.
tBytes With(tBytes whole, const tBytes& beginning)
{
    const tBytes part = Part(beginning, 0, whole.size());
    std::copy(part.begin(), part.end(), whole.begin());
    return whole;
}

// ---- Headers ------------------------------------------------------------------------------------------------------------------

tPieces DatagramHeader(const UDP_PACKET_HEADER& header)
{
    return {Number("type", header.nType), Number("message id", header.unMessageId), Number("packet number", header.unPacketNumber),
            Number("total", header.unTotal), Number("payload length", header.unPayloadLength)};
}

tPieces UpdateHeader(const stMCUpdateHeader& header)
{
    return {Number("marker", header.unMarker), Number("flag byte", header.ucFlag), Number("word", header.nWord),
            Number("update type", header.nUpdateType), Number("body length", header.nBodyLength)};
}

tPieces ChangeHeader(const stPPCRecordHeader& header)
{
    return {Number("marker", header.unMarker),
            Number("flag byte", header.ucFlag),
            Named("message type", header.nMessageType, caMessageTypeNames, c_nMessageTypes),
            Named("path type", header.nPathType, caParameterGroupNames, c_nPathTypes),
            Number("path", header.nPath),
            Number("parameter", header.nParameter),
            Number("value length", header.nValueLength)};
}

// ---- Images -------------------------------------------------------------------------------------------------------------------

const CBMAContainer& DefaultImage()
{
    static const std::unique_ptr<const CBMAContainer> pImage = []
    {
        auto pNew = std::make_unique<CBMAContainer>();
        ApplyDefaults(*pNew);
        return pNew;
    }();
    return *pImage;
}

// Of the defaults; nothing when there is no such update.
const tBytes& DefaultUpdate(int nType)
{
    static std::map<int, tBytes> updates;
    tBytes& update = updates[nType];
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    if (update.empty() && BuildMCUpdate(DefaultImage(), static_cast<MCUpdateType>(nType), *pMessage))
    {
        update.resize(static_cast<std::size_t>(pMessage->GetTotalSize()));
        unsigned char* pBytes = update.data();
        *pMessage >> &pBytes;
    }
    return update;
}

tBytes DefaultFragment(int nType, int nUpdateType, int nId, int nNumber)
{
    const tBytes& update = DefaultUpdate(nUpdateType);
    const auto pPacket = std::make_unique<UDP_PACKET>();
    const long lSize = MakeFragment(static_cast<enDatagramType>(nType), static_cast<std::uint32_t>(nId), update.data(),
                                    static_cast<long>(update.size()), nNumber, *pPacket);
    const unsigned char* const pBytes = reinterpret_cast<const unsigned char*>(pPacket.get());
    return tBytes(pBytes, pBytes + lSize);
}

// What an image holds at an address; "?" when there is no such address.
std::string ValueText(const CBMAContainer& image, const stPPCAddress& address)
{
    const auto get = [&](auto value)
    {
        image.GetPPC(address.enType, address.enPathType, address.nPath, address.nParam, value);
        return value;
    };
    if (!IsParameterAddress(address.enType, address.enPathType, address.nPath, address.nParam))
    {
        return "?";
    }
    switch (address.enType)
    {
    case enString:
        return get(RyGConsoleString()).Text();
    case enRotary:
    case enFader:
        return FloatText(get(0.0f));
    case enMeter:
        return std::to_string(get(static_cast<unsigned char>(0)));
    default:
        return std::to_string(get(0));
    }
}

// Eight switches, or flags, as a byte holds them.
template <class Get>
stPiece EightBits(const std::string& strField, Get get)
{
    std::string strValue;
    for (int nBit = 0; nBit < 8; ++nBit)
    {
        strValue += (nBit > 0 ? " " : "") + std::to_string(get(nBit));
    }
    return {1, strField, strValue};
}

// ---- Received -----------------------------------------------------------------------------------------------------------------

// The message that a handler makes of these datagrams, when it is of that type.
tBytes Received(const std::vector<tBytes>& datagrams, int nType)
{
    const auto pHandler = std::make_unique<CMsgHandlerBase>();
    tBytes message(std::size_t(c_nMaxFragments) * c_nMaxPayload);
    int nResult = CMsgHandlerBase::enNoMessage;
    int nSize = 0;
    for (const tBytes& datagram : datagrams)
    {
        unsigned char* pMessage = message.data();
        nSize = static_cast<int>(message.size());
        nResult = pHandler->ValidatePacketSequence(reinterpret_cast<const char*>(datagram.data()),
                                                   static_cast<long>(datagram.size()), &pMessage, nSize);
    }
    message.resize(nResult == nType ? static_cast<std::size_t>(nSize) : 0);
    return message;
}

std::unique_ptr<CBMAContainer> Applied(const tBytes& update)
{
    auto pImage = std::make_unique<CBMAContainer>();
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    pMessage->SetShallowMode(true);
    if (pMessage->Parse(update.data(), update.size()))
    {
        ApplyMCUpdate(*pMessage, *pImage);
    }
    return pImage;
}

// ---- An update's first datagram -----------------------------------------------------------------------------------------------

tPieces ReadFragment(const tBytes& bytes)
{
    const auto header = At<UDP_PACKET_HEADER>(bytes, 0);
    const int nId = static_cast<int>(std::uint32_t(header.unMessageId));
    const tBytes first = With(DefaultFragment(enDatagramMCUpdate, enMCUpdateSurface, nId, 1), bytes);
    const tBytes second = DefaultFragment(enDatagramMCUpdate, enMCUpdateSurface, nId, 2);
    const auto pImage = Applied(Received({first, second}, enDatagramMCUpdate));
    tPieces pieces = DatagramHeader(header);
    Add(pieces, UpdateHeader(At<stMCUpdateHeader>(bytes, sizeof header)));
    pieces.push_back(
        Number("length of array 2 switch", At<boost::endian::big_int32_t>(bytes, sizeof header + sizeof(stMCUpdateHeader))));
    for (int nByte = 0; nByte < 3; ++nByte)
    {
        const std::string strRange = std::to_string(nByte * 8) + " to " + std::to_string(nByte * 8 + 7);
        const auto get = [&](int nBit)
        {
            int nValue = 0;
            pImage->GetPPC(enSwitch, enGlobals, 0, nByte * 8 + nBit, nValue);
            return nValue;
        };
        pieces.push_back(EightBits("Globals/0/Switch/" + strRange, get));
    }
    return pieces;
}

tBytes WriteFragment(CExampleValues values)
{
    const int nType = values.Number("type");
    const int nId = values.Number("message id");
    const int nNumber = values.Number("packet number");
    return DefaultFragment(nType, values.Number("update type"), nId, nNumber);
}

// ---- Changes ------------------------------------------------------------------------------------------------------------------

// The clock stands at a number of seconds: the next message id.
class CStoppedClock
{
public:
    explicit CStoppedClock(int nSeconds)
    {
        s_nNow = std::int64_t(nSeconds) * 1000000;
        CClock::SetSource([] { return s_nNow; });
    }
    ~CStoppedClock() { CClock::SetSource(nullptr); }
    CStoppedClock(const CStoppedClock&) = delete;
    CStoppedClock& operator=(const CStoppedClock&) = delete;

private:
    static std::int64_t s_nNow;
};

std::int64_t CStoppedClock::s_nNow = 0;

// Each record's value is what an image has after it.
tPieces ReadChanges(const tBytes& bytes)
{
    const auto header = At<UDP_PACKET_HEADER>(bytes, 0);
    const tBytes stream = Received({bytes}, header.nType);
    const auto pImage = std::make_unique<CBMAContainer>();
    ApplyPPCs(stream.data(), static_cast<long>(stream.size()), *pImage);
    tPieces pieces = DatagramHeader(header);
    CPPCStreamReader reader(stream.data(), static_cast<long>(stream.size()));
    while (reader.Next())
    {
        Add(pieces, ChangeHeader(reader.Header()));
        const std::size_t unLength = static_cast<std::size_t>(int(reader.Header().nValueLength));
        pieces.push_back({unLength, "value", ValueText(*pImage, reader.Address())});
    }
    return pieces;
}

// Calls send with the next change, its value as what its type travels as.
template <class Send>
void NextChange(CExampleValues& values, Send send)
{
    const auto enType = static_cast<tagenPPCMessageType>(values.Number("message type"));
    const auto enPathType = static_cast<tagenVirtualPathType>(values.Number("path type"));
    const int nPath = values.Number("path");
    const int nParam = values.Number("parameter");
    const std::string strValue = values.Text("value");
    switch (enType)
    {
    case enString:
        return send(enType, enPathType, nPath, nParam, RyGConsoleString(strValue));
    case enRotary:
    case enFader:
        return send(enType, enPathType, nPath, nParam, std::strtof(strValue.c_str(), nullptr));
    default:
        return send(enType, enPathType, nPath, nParam, std::atoi(strValue.c_str()));
    }
}

tBytes OnlyOne(const Support::CSocketRecorder& recorder)
{
    return recorder.sent.size() == 1 ? recorder.sent[0].bytes : tBytes();
}

// As the sender thread does.
tBytes WriteBatch(CExampleValues values)
{
    const CStoppedClock clock(values.Number("message id"));
    const auto pHandler = std::make_unique<CClientMsgHandler>(false);
    EXPECT_TRUE(pHandler->InitialiseClient(0, "127.0.0.1", nullptr, nullptr));
    pHandler->SetRemoteAddress("127.0.0.9", 0, 7050);
    for (int nChange = 0; nChange < 2; ++nChange)
    {
        NextChange(values, [&](auto... change) { pHandler->QueuePPC(change...); });
    }
    Support::CSocketRecorder recorder;
    pHandler->SendAll();
    return OnlyOne(recorder);
}

tBytes WriteOneChange(CExampleValues values)
{
    const bool bFlag = values.Number("type") == enDatagramPPCFlagged;
    const CStoppedClock clock(values.Number("message id"));
    Support::CSocketRecorder recorder;
    SimpleUDPPPCSender sender;
    sender.InitComms();
    NextChange(values, [&](auto... change) { sender.SendPPCMessage(change..., bFlag); });
    return OnlyOne(recorder);
}

// ---- An update with short arrays ----------------------------------------------------------------------------------------------

tPieces ReadUpdate(const tBytes& bytes)
{
    tPieces pieces = UpdateHeader(At<stMCUpdateHeader>(bytes, 0));
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    const unsigned char* pData = nullptr;
    int nLength = 0;
    pMessage->Parse(bytes.data(), bytes.size());
    if (pMessage->GetArray(enSwitch, pData, nLength))
    {
        pieces.push_back(Number("length of array 2 switch", nLength));
        pieces.push_back(EightBits("switches 0 to 7", [&](int nBit) { return pData[0] >> nBit & 1; }));
    }
    if (pMessage->GetArray(enInteger, pData, nLength))
    {
        pieces.push_back(Number("length of array 3 integer", nLength));
        for (int nInteger = 0; nInteger < nLength / 4; ++nInteger)
        {
            const tBytes array(pData, pData + nLength);
            const auto value = At<boost::endian::big_int32_t>(array, static_cast<std::size_t>(nInteger) * 4);
            pieces.push_back(Number("integer " + std::to_string(nInteger), value));
        }
    }
    return pieces;
}

tBytes WriteUpdate(CExampleValues values)
{
    const auto pMessage = std::make_unique<CMCUpdateMsg>();
    pMessage->SetMarker(static_cast<std::uint32_t>(values.Number("marker")));
    pMessage->SetUpdateType(static_cast<MCUpdateType>(values.Number("update type")));
    unsigned char ucSwitches = 0;
    const std::string strSwitches = values.Text("switches 0 to 7"); // a blank between two
    for (std::size_t unBit = 0; unBit < strSwitches.size() / 2 + 1 && unBit < 8; ++unBit)
    {
        ucSwitches = static_cast<unsigned char>(ucSwitches | (strSwitches[unBit * 2] == '1' ? 1u << unBit : 0));
    }
    tBytes integers;
    for (const char* szField : {"integer 0", "integer 1"})
    {
        Support::AppendBig(integers, static_cast<std::uint32_t>(values.Number(szField)));
    }
    pMessage->SetArray(enSwitch, &ucSwitches, 1);
    pMessage->SetArray(enInteger, integers.data(), static_cast<int>(integers.size()));
    tBytes bytes(static_cast<std::size_t>(pMessage->GetTotalSize()));
    unsigned char* pBytes = bytes.data();
    *pMessage >> &pBytes;
    return bytes;
}

// ---- A diagnostics report -----------------------------------------------------------------------------------------------------

constexpr const char* c_szDeclaration = "<?xml version=\"1.0\"?>";
constexpr const char* c_szEnd = "\"/></DEV></VORN>";

std::string Quoted(const char* szText)
{
    return std::string("`") + szText + "`";
}

tPieces ReadReport(const tBytes& bytes)
{
    std::string strReport(bytes.begin(), bytes.end());
    diagnostics_xml_reader reader;
    if (!reader.IsXML(strReport.c_str()) || !reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size())) ||
        !reader.validate(SCHEMA_FILE))
    {
        return {};
    }
    const XMLDiagnostics::XMLElement parameter = reader.GetMap().begin()->second;
    const std::pair<const char*, std::string> aTexts[] = {{"<DEV name=\"", reader.GetDeviceType()},
                                                          {"\" id=\"", std::to_string(reader.GetDeviceID())},
                                                          {"\"><p i=\"", parameter.i},
                                                          {"\" v=\"", parameter.v},
                                                          {"\" e=\"", parameter.e}};
    const char* const aszFields[] = {"kind of device", "its number", "parameter", "value", "second value"};
    tPieces pieces = {{std::strlen(c_szDeclaration), "declaration", Quoted(c_szDeclaration)},
                      {std::strlen("<VORN version=\"1.0\">"), "version of the format", XMLDiagnostics::c_strFormatVersion}};
    for (std::size_t unText = 0; unText < 5; ++unText)
    {
        pieces.push_back(
            {std::strlen(aTexts[unText].first) + aTexts[unText].second.size(), aszFields[unText], aTexts[unText].second});
    }
    pieces.push_back({std::strlen(c_szEnd), "end", Quoted(c_szEnd)});
    return pieces;
}

tBytes WriteReport(CExampleValues values)
{
    const std::string strVersion = values.Text("version of the format");
    const std::string strDevice = values.Text("kind of device");
    const std::string strId = values.Text("its number");
    const std::string strParameter = values.Text("parameter");
    const std::string strValue = values.Text("value");
    VORNXMLWriter writer;
    writer.start_xml(strVersion.c_str(), strDevice.c_str(), strId.c_str());
    writer.add_attribute(strParameter.c_str(), strValue.c_str(), values.Text("second value").c_str(), nullptr);
    return tBytes(writer.m_strDocument.begin(), writer.m_strDocument.end());
}

// ---- Files --------------------------------------------------------------------------------------------------------------------

tPieces ReadImageFile(const tBytes& bytes)
{
    const Support::CScratchFile file;
    file.Write(With(DefaultUpdate(enMCUpdateAll), bytes));
    const auto pImage = std::make_unique<CBMAContainer>();
    LoadImage(file.Name(), *pImage);
    tPieces pieces = UpdateHeader(At<stMCUpdateHeader>(bytes, 0));
    pieces.push_back(Number("length of array 0 string", At<boost::endian::big_int32_t>(bytes, sizeof(stMCUpdateHeader))));
    pieces.push_back(
        {RyGConsoleString::enSize, "Globals/0/String/0", "\"" + ValueText(*pImage, {enString, enGlobals, 0, 0}) + "\""});
    return pieces;
}

tBytes WriteImageFile(CExampleValues)
{
    const Support::CScratchFile file;
    EXPECT_EQ("", SaveImage(DefaultImage(), file.Name()));
    return file.Read();
}

// Faders by value, and others by recall flag: the beginning of both blocks.
constexpr std::size_t c_unFaders = 3;

tPieces ReadShowBlocks(const tBytes& bytes)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    std::vector<stShowBlock> blocks = MakeShowBlocks(*pImage);
    for (stShowBlock& block : blocks)
    {
        if (block.strKind == "value" && block.enType == enFader)
        {
            block.bytes = With(block.bytes, Part(bytes, 0, c_unFaders * 4));
        }
        if (block.strKind == "recall" && block.enType == enOther)
        {
            block.bytes = With(block.bytes, Part(bytes, c_unFaders * 4, 1));
        }
    }
    EXPECT_EQ("", ApplyShowBlocks(blocks, *pImage));
    const auto flag = [&](int nFlag)
    {
        int nValue = 0;
        const bool bGlobals = nFlag == 0;
        pImage->GetPPCRecallScope(enOther, bGlobals ? enGlobals : enMicInput, bGlobals ? 0 : nFlag - 1, 0, nValue);
        return nValue;
    };
    return {{4, "value, 4 fader: Globals/0/Fader/0", ValueText(*pImage, {enFader, enGlobals, 0, 0})},
            {4, "MicInput/0/Fader/0", ValueText(*pImage, {enFader, enMicInput, 0, 0})},
            {4, "MicInput/0/Fader/1", ValueText(*pImage, {enFader, enMicInput, 0, 1})},
            EightBits("recall, 5 other: Globals/0, MicInput/0 to 6", flag)};
}

tBytes WriteShowBlocks(CExampleValues values)
{
    const auto pImage = std::make_unique<CBMAContainer>();
    const stPPCAddress aFaders[c_unFaders] = {{enFader, enGlobals, 0, 0}, {enFader, enMicInput, 0, 0}, {enFader, enMicInput, 0, 1}};
    const char* const aszFields[c_unFaders] = {"value, 4 fader: Globals/0/Fader/0", "MicInput/0/Fader/0", "MicInput/0/Fader/1"};
    for (std::size_t un = 0; un < c_unFaders; ++un)
    {
        const float fValue = std::strtof(values.Text(aszFields[un]).c_str(), nullptr);
        pImage->SetPPC(enFader, aFaders[un].enPathType, aFaders[un].nPath, aFaders[un].nParam, fValue, false, false);
    }
    const std::string strFlags = values.Text("recall, 5 other: Globals/0, MicInput/0 to 6");
    for (std::size_t unFlag = 0; unFlag * 2 < strFlags.size(); ++unFlag)
    {
        const int nMic = static_cast<int>(unFlag) - 1;
        pImage->SetPPCRecallScope(enOther, nMic < 0 ? enGlobals : enMicInput, std::max(nMic, 0), 0, strFlags[unFlag * 2] == '1');
    }
    tBytes bytes;
    for (const stShowBlock& block : MakeShowBlocks(*pImage))
    {
        const bool bFaders = block.strKind == "value" && block.enType == enFader;
        const bool bFlags = block.strKind == "recall" && block.enType == enOther;
        Append(bytes, Part(block.bytes, 0, bFaders ? c_unFaders * 4 : bFlags ? 1 : 0));
    }
    return bytes;
}

// ---- The page -----------------------------------------------------------------------------------------------------------------

struct stMessage
{
    const char* szName;
    tPieces (*pRead)(const tBytes& bytes);
    tBytes (*pWrite)(CExampleValues values);
    bool bBeginning; // the example has no more than that
};

const stMessage caMessages[] = {
    {"first datagram of an update", ReadFragment, WriteFragment, true},
    {"two changes", ReadChanges, WriteBatch, false},
    {"one change", ReadChanges, WriteOneChange, false},
    {"one change, flagged", ReadChanges, WriteOneChange, false},
    {"update", ReadUpdate, WriteUpdate, false},
    {"report", ReadReport, WriteReport, false},
    {"image file", ReadImageFile, WriteImageFile, true},
    {"show blocks", ReadShowBlocks, WriteShowBlocks, false},
};

// What comes of the same bytes is the same: read once.
const tPieces& ReadOnce(const stMessage& message, const tBytes& bytes)
{
    static std::map<std::pair<std::string, tBytes>, tPieces> known;
    const auto key = std::make_pair(std::string(message.szName), bytes);
    const auto pKnown = known.find(key);
    return pKnown != known.end() ? pKnown->second : known[key] = message.pRead(bytes);
}

std::string Text(const tPieces& pieces)
{
    std::string strText;
    for (const stPiece& piece : pieces)
    {
        strText += std::to_string(piece.unSize) + " | " + piece.strField + " | " + piece.strValue + "\n";
    }
    return strText;
}

std::string Text(const tTextLines& lines)
{
    std::string strText;
    for (const std::string& strLine : lines)
    {
        strText += strLine + "\n";
    }
    return strText;
}

// What is wrong with an example; empty when nothing is.
std::string Complaint(const stMessage& message, const tTextLines& lines)
{
    const stWorkedExample example(lines);
    const tBytes bytes = example.Bytes();
    if (!example.IsCovered())
    {
        return "the dump of the bytes in the table is\n" + Text(Support::HexDump(bytes));
    }
    tPieces said;
    for (const Support::stExampleField& field : example.fields)
    {
        said.push_back({field.bytes.size(), field.strField, field.strValue});
    }
    const tPieces& read = ReadOnce(message, bytes);
    if (Text(read) != Text(said))
    {
        return "the library reads\n" + Text(read);
    }
    tBytes written = message.pWrite(CExampleValues(example.fields));
    written.resize(message.bBeginning ? std::min(written.size(), bytes.size()) : written.size());
    return written == bytes ? std::string() : "the library writes\n" + Text(Support::HexDump(written));
}

const tTextLines& Page()
{
    static const tTextLines lines = Support::ReadLines(WIRE_FORMAT_FILE);
    return lines;
}

// Another character of the same kind.
char Another(char c)
{
    return c == '9' ? '0' : c == 'f' ? 'e' : c == 'z' ? 'y' : c == 'Z' ? 'Y' : static_cast<char>(c + 1);
}

// Each character of an example but for blanks.
template <class Visit>
void ForEachCharacter(const tTextLines& example, Visit visit)
{
    for (std::size_t unLine = 0; unLine < example.size(); ++unLine)
    {
        for (std::size_t unAt = 0; unAt < example[unLine].size(); ++unAt)
        {
            if (example[unLine][unAt] != ' ')
            {
                visit(unLine, unAt);
            }
        }
    }
}

// The lines of an example with one bit of one byte changed, in the dump and in the table.
tTextLines WithAnotherByte(const tTextLines& lines, std::size_t unByte)
{
    const stWorkedExample example(lines);
    tBytes bytes = example.Bytes();
    bytes[unByte] ^= 1;
    tTextLines changed;
    for (const std::string& strLine : Support::HexDump(bytes))
    {
        changed.push_back("    " + strLine);
    }
    changed.insert(changed.end(), {"", "| bytes | field | value |", "| --- | --- | --- |"});
    std::size_t unAt = 0;
    for (const Support::stExampleField& field : example.fields)
    {
        std::string strHex = Support::HexDump(Part(bytes, unAt, 1))[0].substr(10, 2);
        for (std::size_t un = 1; un < field.bytes.size(); ++un)
        {
            strHex += " " + Support::HexDump(Part(bytes, unAt + un, 1))[0].substr(10, 2);
        }
        unAt += field.bytes.size();
        changed.push_back("| `" + strHex + "` | " + field.strField + " | " + field.strValue + " |");
    }
    return changed;
}

} // namespace

TEST(WireFormat, EachExampleIsWhatTheLibraryReadsAndWrites)
{
    auto examples = Support::MarkedLines(Page(), "example");
    for (const stMessage& message : caMessages)
    {
        EXPECT_EQ("", Complaint(message, examples[message.szName])) << message.szName;
        EXPECT_FALSE(examples[message.szName].empty()) << message.szName;
    }
    EXPECT_EQ(std::size(caMessages), examples.size()) << "an example that nobody looks at";
}

TEST(WireFormat, EachByteMapIsTheStructures)
{
    const std::pair<const char*, tPieces> aHeaders[] = {
        {"datagram", DatagramHeader({})}, {"change", ChangeHeader({})}, {"update", UpdateHeader({})}};
    auto maps = Support::MarkedLines(Page(), "map");
    for (const auto& header : aHeaders)
    {
        std::string strExpected;
        std::size_t unOffset = 0;
        for (const stPiece& piece : header.second)
        {
            strExpected += std::to_string(unOffset) + " | " + std::to_string(piece.unSize) + " | " + piece.strField + "\n";
            unOffset += piece.unSize;
        }
        std::string strSaid;
        for (const std::string& strLine : maps[header.first])
        {
            const tTextLines cells = Support::Cells(strLine);
            if (cells.size() == 3 && std::isdigit(static_cast<unsigned char>(cells[0][0])) != 0)
            {
                strSaid += cells[0] + " | " + cells[1] + " | " + cells[2].substr(0, cells[2].find_first_of(",:")) + "\n";
            }
            else if (cells.size() == 2) // what follows the header has no size
            {
                EXPECT_EQ(std::to_string(unOffset), cells[0]) << strLine;
            }
        }
        EXPECT_EQ(strExpected, strSaid) << header.first;
    }
    EXPECT_EQ(std::size(aHeaders), maps.size());
}

TEST(WireFormat, TheNumbersInItsSentencesAreTheLibrarys)
{
    const auto number = [](std::size_t unNumber)
    {
        std::string strText = std::to_string(unNumber);
        return strText.size() > 3 ? strText.insert(strText.size() - 3, ",") : strText;
    };
    stMCUpdateHeader header = {};
    header.unMarker = c_unMCUpdateMarker;
    const CMCUpdateMsg message;
    while (message.ValidateUpdate(reinterpret_cast<const unsigned char*>(&header)))
    {
        header.nUpdateType = header.nUpdateType + 1;
    }
    const std::size_t unChange = sizeof(stPPCRecordHeader) + 4;
    const std::size_t unString = sizeof(stPPCRecordHeader) + RyGConsoleString::enSize;
    const std::size_t unShowBlocks = MakeShowBlocks(*std::make_unique<CBMAContainer>()).size();
    const std::string strPage = Text(Page());
    for (const std::string& strSentence :
         {"starts with " + number(sizeof(UDP_PACKET_HEADER)) + " bytes, and is at most " + number(c_nMaxDatagram) + " bytes long",
          "type, signed, 0 to " + number(c_nDatagramTypeLimit - 1), "fragments of the message, 1 to " + number(c_nMaxFragments),
          "| " + number(enDatagramMCUpdate) + " | an update message, in fragments of " + number(c_nMaxPayload) + " payload bytes",
          "| " + number(enDatagramPPC) + " | serialised parameter changes",
          "| " + number(enDatagramPPCFlagged) + " | one serialised", "outside 0 to " + number(c_nDatagramTypeLimit - 1),
          "its total is above " + number(c_nMaxFragments),
          "A " + number(sizeof(stPPCRecordHeader)) + "-byte header, then the value",
          "datagrams are " + number(sizeof(UDP_PACKET_HEADER) + unChange) + " bytes long, or " +
              number(sizeof(UDP_PACKET_HEADER) + unString) + " with a string",
          "up to " + number(c_nMaxPayload / unChange) + " records of\nnumbers, or " + number(c_nMaxPayload / unString) +
              " of strings",
          "A " + number(sizeof(stMCUpdateHeader)) + "-byte header, then for each",
          "update type, signed, at most " + number(static_cast<std::size_t>(int(header.nUpdateType) - 1)),
          "A show has " + number(unShowBlocks) + " blocks"})
    {
        EXPECT_NE(std::string::npos, strPage.find(strSentence)) << strSentence;
    }
}

TEST(WireFormat, NoChangeOfAnExampleGoesUnnoticed)
{
    auto examples = Support::MarkedLines(Page(), "example");
    testing::internal::CaptureStdout(); // what the library says of bytes that are none of its
    int nChanges = 0;
    for (const stMessage& message : caMessages)
    {
        const tTextLines& example = examples[message.szName];
        ForEachCharacter(example,
                         [&](std::size_t unLine, std::size_t unAt)
                         {
                             tTextLines changed = example;
                             changed[unLine][unAt] = Another(changed[unLine][unAt]);
                             EXPECT_NE("", Complaint(message, changed)) << message.szName << ": " << changed[unLine];
                             ++nChanges;
                         });
        for (std::size_t unByte = 0; unByte < stWorkedExample(example).Bytes().size(); ++unByte, ++nChanges)
        {
            EXPECT_NE("", Complaint(message, WithAnotherByte(example, unByte))) << message.szName << ": byte " << unByte;
        }
    }
    testing::internal::GetCapturedStdout();
    std::printf("%d changes, each of them noticed\n", nChanges);
    EXPECT_GT(nChanges, 4500);
}
