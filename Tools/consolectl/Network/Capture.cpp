#include "Network/Capture.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace
{

constexpr int c_nSnapLength = 262144;
constexpr int c_nPacketsAtOnce = 10000; // of other kinds, before who asks for a datagram is asked whether to go on
constexpr std::size_t c_unIPHeader = 20;
constexpr std::size_t c_unUDPHeader = 8;
constexpr std::size_t c_unLongestIP = 65535;
constexpr std::size_t c_unMostFragmented = 64;
constexpr unsigned char c_ucUDP = 17;
constexpr std::uint32_t c_unIPv4 = 0x0800;
constexpr std::uint32_t c_aunTags[] = {0x8100, 0x88a8, 0x9100}; // of virtual networks: one's, and those round another one
constexpr std::chrono::milliseconds c_FlushPeriod(100);

const stEndpoint c_End = {0x7f000001, 9};
constexpr char c_szEnd[] = "consolectl: end of recording, datagrams %ld, dropped %u, check words %x %x %x %x %x %x %x";

std::uint32_t Big16(const unsigned char* pBytes)
{
    return static_cast<std::uint32_t>(pBytes[0] << 8 | pBytes[1]);
}

std::uint32_t Big32(const unsigned char* pBytes)
{
    return Big16(pBytes) << 16 | Big16(pBytes + 2);
}

void PutBig16(unsigned char* pBytes, std::size_t unValue)
{
    pBytes[0] = static_cast<unsigned char>(unValue >> 8);
    pBytes[1] = static_cast<unsigned char>(unValue);
}

void PutBig32(unsigned char* pBytes, std::uint32_t unValue)
{
    PutBig16(pBytes, unValue >> 16);
    PutBig16(pBytes + 2, unValue & 0xffff);
}

// The sum that an IP header carries of itself.
std::uint32_t HeaderSum(const unsigned char* pHeader)
{
    std::uint32_t unSum = 0;
    for (std::size_t unPlace = 0; unPlace < c_unIPHeader; unPlace += 2)
    {
        unSum += Big16(pHeader + unPlace);
    }
    unSum = (unSum & 0xffff) + (unSum >> 16);
    return ~(unSum + (unSum >> 16)) & 0xffff;
}

// From 1970 to 9999: what a file says outside is brought to the nearer end.
std::int64_t Microseconds(const timeval& time)
{
    const std::int64_t nSeconds = std::clamp<std::int64_t>(time.tv_sec, 0, 253402300799);
    return nSeconds * 1000000 + std::clamp<std::int64_t>(time.tv_usec, 0, 999999);
}

// Where a frame of each kind says what it carries, and how long its header is.
constexpr struct
{
    int nLinkType;
    std::size_t unProtocolAt;
    std::size_t unHeader;
} caLinkTypes[] = {
    {DLT_EN10MB, 12, 14},
    {DLT_LINUX_SLL, 14, 16},
    {DLT_LINUX_SLL2, 0, 20},
};

// Where IP begins in a packet of this link type; its length when it carries something else.
std::size_t IPStart(int nLinkType, const unsigned char* pPacket, std::size_t unLength)
{
    if (nLinkType == DLT_NULL || nLinkType == DLT_LOOP)
    {
        return std::min<std::size_t>(4, unLength);
    }
    for (const auto& type : caLinkTypes)
    {
        if (type.nLinkType == nLinkType)
        {
            // Tags, four bytes each, stand before the protocol where that is the header's end.
            std::size_t unTags = 0;
            const auto protocol = [&] { return Big16(pPacket + type.unProtocolAt + unTags); };
            while (type.unProtocolAt + 2 == type.unHeader && unLength >= type.unHeader + unTags &&
                   std::find(std::begin(c_aunTags), std::end(c_aunTags), protocol()) != std::end(c_aunTags))
            {
                unTags += 4;
            }
            const bool bIP = unLength >= type.unHeader + unTags && protocol() == c_unIPv4;
            return bIP ? type.unHeader + unTags : unLength;
        }
    }
    return 0;
}

bool IsReadable(int nLinkType)
{
    const auto isIt = [nLinkType](const auto& type) { return type.nLinkType == nLinkType; };
    return nLinkType == DLT_RAW || nLinkType == DLT_IPV4 || nLinkType == DLT_NULL || nLinkType == DLT_LOOP ||
           std::any_of(std::begin(caLinkTypes), std::end(caLinkTypes), isIt);
}

} // namespace

CCaptureWriter::~CCaptureWriter()
{
    if (m_pFile != nullptr)
    {
        pcap_dump_close(m_pFile);
    }
    if (m_pFormat != nullptr)
    {
        pcap_close(m_pFormat);
    }
}

std::string CCaptureWriter::Open(const std::string& strFile)
{
    m_strFile = strFile;
    m_pFormat = pcap_open_dead(DLT_RAW, c_nSnapLength);
    std::FILE* const pFile = m_pFormat == nullptr ? nullptr : std::fopen(strFile.c_str(), "wbx");
    if (pFile == nullptr)
    {
        return strFile + ": " + std::strerror(errno);
    }
    m_pFile = pcap_dump_fopen(m_pFormat, pFile);
    return m_pFile == nullptr ? strFile + ": " + pcap_geterr(m_pFormat) : Flush();
}

std::string CCaptureWriter::Write(const stDatagram& datagram)
{
    ++m_lDatagrams;
    return Put(datagram);
}

std::string CCaptureWriter::Finish(const std::uint32_t (&aunCheckWords)[c_nMessageTypes], unsigned int unDropped)
{
    const std::uint32_t(&check)[c_nMessageTypes] = aunCheckWords;
    const std::string strText =
        Format(c_szEnd, m_lDatagrams, unDropped, check[0], check[1], check[2], check[3], check[4], check[5], check[6]);
    const std::string strError = Put({TimeNow(), {c_End.unAddress, 0}, c_End, {strText.begin(), strText.end()}});
    return strError.empty() ? Flush() : strError;
}

// As one IP packet without a frame around it: the longest datagram fits.
std::string CCaptureWriter::Put(const stDatagram& datagram)
{
    const std::size_t unLength = c_unIPHeader + c_unUDPHeader + datagram.bytes.size();
    if (unLength > c_unLongestIP)
    {
        return "a datagram is too long to be recorded";
    }
    std::vector<unsigned char> packet(unLength);
    unsigned char* const pIP = packet.data();
    pIP[0] = 0x45; // version 4, five words of header
    PutBig16(pIP + 2, unLength);
    pIP[8] = 1; // hop
    pIP[9] = c_ucUDP;
    PutBig32(pIP + 12, datagram.source.unAddress);
    PutBig32(pIP + 16, datagram.destination.unAddress);
    PutBig16(pIP + 10, HeaderSum(pIP));
    unsigned char* const pUDP = pIP + c_unIPHeader;
    PutBig16(pUDP, datagram.source.usPort);
    PutBig16(pUDP + 2, datagram.destination.usPort);
    PutBig16(pUDP + 4, unLength - c_unIPHeader); // and no check sum
    std::copy(datagram.bytes.begin(), datagram.bytes.end(), pUDP + c_unUDPHeader);

    pcap_pkthdr header = {};
    header.ts.tv_sec = static_cast<decltype(header.ts.tv_sec)>(datagram.nTime / 1000000);
    header.ts.tv_usec = static_cast<decltype(header.ts.tv_usec)>(datagram.nTime % 1000000);
    header.caplen = header.len = static_cast<bpf_u_int32>(unLength);
    errno = 0;
    pcap_dump(reinterpret_cast<unsigned char*>(m_pFile), &header, packet.data());
    if (std::ferror(pcap_dump_file(m_pFile)) != 0)
    {
        return WriteError();
    }
    return tSteadyClock::now() < m_NextFlush ? std::string() : Flush();
}

std::string CCaptureWriter::WriteError() const
{
    return m_strFile + ": " + (errno != 0 ? std::strerror(errno) : "it can't be written");
}

std::string CCaptureWriter::Flush()
{
    m_NextFlush = tSteadyClock::now() + c_FlushPeriod;
    errno = 0;
    return pcap_dump_flush(m_pFile) == 0 ? std::string() : WriteError();
}

CCaptureFile::CCaptureFile() = default;

CCaptureFile::~CCaptureFile()
{
    if (m_pCapture != nullptr)
    {
        pcap_close(m_pCapture);
    }
}

std::string CCaptureFile::Open(const std::string& strFile)
{
    std::string strWhyNot = WhyNoFile(strFile);
    if (!strWhyNot.empty())
    {
        return strWhyNot;
    }
    std::error_code error;
    m_lSize = static_cast<long>(std::filesystem::file_size(strFile, error));
    char acError[PCAP_ERRBUF_SIZE] = "";
    m_pCapture = pcap_open_offline(strFile.c_str(), acError);
    if (m_pCapture == nullptr)
    {
        return strFile + ": no capture file (" + acError + ")";
    }
    m_nLinkType = pcap_datalink(m_pCapture);
    return IsReadable(m_nLinkType) ? std::string()
                                   : Format("%s: captured on a link of type %d, which isn't read", strFile.c_str(), m_nLinkType);
}

long CCaptureFile::GetPosition() const
{
    return m_pCapture == nullptr ? 0 : std::ftell(pcap_file(m_pCapture));
}

bool CCaptureFile::Next(stDatagram& datagram, double)
{
    for (int nPacket = 0; nPacket < c_nPacketsAtOnce && !IsOver(); ++nPacket)
    {
        pcap_pkthdr* pHeader = nullptr;
        const unsigned char* pPacket = nullptr;
        const int nResult = pcap_next_ex(m_pCapture, &pHeader, &pPacket);
        if (nResult != 1)
        {
            m_bOver = true;
            m_strError = nResult == PCAP_ERROR ? pcap_geterr(m_pCapture) : "";
            return false;
        }
        datagram.nTime = Microseconds(pHeader->ts);
        datagram.lNumber = ++m_lPackets;
        m_Loss.unSize += pHeader->caplen < pHeader->len ? 1 : 0;
        if (ReadPacket(pPacket, pHeader->caplen, datagram) && !TakeEnd(datagram))
        {
            return true;
        }
    }
    return false;
}

bool CCaptureFile::ReadPacket(const unsigned char* pPacket, std::size_t unLength, stDatagram& datagram)
{
    const std::size_t unStart = IPStart(m_nLinkType, pPacket, unLength);
    const unsigned char* const pIP = pPacket + unStart;
    const std::size_t unLeft = unLength - unStart;
    if (unLeft < c_unIPHeader || pIP[0] >> 4 != 4 || pIP[9] != c_ucUDP)
    {
        return false;
    }
    const std::size_t unHeader = static_cast<std::size_t>(pIP[0] & 0x0f) * 4;
    const std::size_t unTotal = Big16(pIP + 2);
    if (unHeader < c_unIPHeader || unTotal < unHeader || unTotal > unLeft)
    {
        return false;
    }
    datagram.source.unAddress = Big32(pIP + 12);
    datagram.destination.unAddress = Big32(pIP + 16);
    const bool bFragment = (Big16(pIP + 6) & 0x3fff) != 0; // more of them, or not the first
    return bFragment ? ReadFragment(pIP, pIP + unHeader, unTotal - unHeader, datagram)
                     : ReadUDP(pIP + unHeader, unTotal - unHeader, datagram);
}

// The network's fragments of one datagram, not ours of a message. Of too many that are never complete the oldest goes.
bool CCaptureFile::ReadFragment(const unsigned char* pHeader, const unsigned char* pData, std::size_t unLength,
                                stDatagram& datagram)
{
    const std::string strKey = std::string(pHeader + 12, pHeader + 20) + std::string(pHeader + 4, pHeader + 6);
    const std::size_t unOffset = (Big16(pHeader + 6) & 0x1fff) * 8;
    if (unOffset + unLength > c_unLongestIP)
    {
        return false;
    }
    const auto found = m_Fragmented.emplace(strKey, stFragmented()).first;
    stFragmented& whole = found->second;
    whole.unBegun = whole.parts.empty() ? m_unFragmented++ : whole.unBegun;
    whole.bytes.resize(std::max(whole.bytes.size(), unOffset + unLength));
    std::copy(pData, pData + unLength, whole.bytes.begin() + static_cast<std::ptrdiff_t>(unOffset));
    whole.parts[unOffset] = unLength;
    const bool bLast = (Big16(pHeader + 6) & 0x2000) == 0;
    whole.unAll = bLast ? unOffset + unLength : whole.unAll;
    if (whole.IsComplete())
    {
        const std::vector<unsigned char> bytes = std::move(whole.bytes);
        const std::size_t unAll = whole.unAll;
        m_Fragmented.erase(found);
        return ReadUDP(bytes.data(), unAll, datagram);
    }
    if (m_Fragmented.size() > c_unMostFragmented)
    {
        const auto isOlder = [](const auto& a, const auto& b) { return a.second.unBegun < b.second.unBegun; };
        m_Fragmented.erase(std::min_element(m_Fragmented.begin(), m_Fragmented.end(), isOlder));
        ++m_Loss.unSize;
    }
    return false;
}

// Each part begins where the one before ended.
bool CCaptureFile::stFragmented::IsComplete() const
{
    std::size_t unEnd = 0;
    for (const auto& part : parts)
    {
        if (part.first > unEnd)
        {
            return false;
        }
        unEnd = std::max(unEnd, part.first + part.second);
    }
    return unAll != 0 && unEnd >= unAll && bytes.size() >= unAll;
}

bool CCaptureFile::ReadUDP(const unsigned char* pData, std::size_t unLength, stDatagram& datagram)
{
    if (unLength < c_unUDPHeader)
    {
        return false;
    }
    const std::size_t unUDP = Big16(pData + 4);
    if (unUDP < c_unUDPHeader || unUDP > unLength || unUDP > c_unLongestIP - c_unIPHeader)
    {
        ++m_Loss.unSize;
        return false;
    }
    datagram.source.usPort = static_cast<unsigned short>(Big16(pData));
    datagram.destination.usPort = static_cast<unsigned short>(Big16(pData + 2));
    datagram.bytes.assign(pData + c_unUDPHeader, pData + unUDP);
    return true;
}

bool CCaptureFile::TakeEnd(const stDatagram& datagram)
{
    const std::string strText(datagram.bytes.begin(), datagram.bytes.end());
    stCaptureEnd end;
    std::uint32_t(&check)[c_nMessageTypes] = end.aunCheckWords;
    if (!(datagram.destination == c_End) ||
        std::sscanf(strText.c_str(), c_szEnd, &end.lDatagrams, &end.unDropped, &check[0], &check[1], &check[2], &check[3],
                    &check[4], &check[5], &check[6]) != 2 + c_nMessageTypes)
    {
        return false;
    }
    m_pEnd = std::make_unique<stCaptureEnd>(end);
    m_Loss.unKernel = end.unDropped;
    return true;
}
