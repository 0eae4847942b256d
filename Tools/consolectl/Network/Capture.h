// Datagrams in capture files, which the usual packet tools read and write as well.
#pragma once

#include "Network/Traffic.h"
#include "Terminal/Common.h"

#include "LogicalControls.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

struct pcap;
struct pcap_dumper;

// What a recording ends with: the check words of the image that it leads to, and how many datagrams came before and
// were dropped. It travels as the
// text of one more datagram, from this machine to its own discard port: replay doesn't send it.
struct stCaptureEnd
{
    long lDatagrams = 0;
    unsigned int unDropped = 0; // by the kernel of the machine that recorded
    std::uint32_t aunCheckWords[c_nMessageTypes] = {};
};

// Writes a recording: what it was given is in the file at the latest a tenth of a second later. Without Finish the file is one that
// was broken off, and can be told to be.
class CCaptureWriter
{
public:
    ~CCaptureWriter();

    // These return empty, or what went wrong. A file that is there already is not touched.
    std::string Open(const std::string& strFile);
    std::string Write(const stDatagram& datagram);
    std::string Flush();
    std::string Finish(const std::uint32_t (&aunCheckWords)[c_nMessageTypes], unsigned int unDropped);

    long GetDatagrams() const { return m_lDatagrams; }

private:
    std::string Put(const stDatagram& datagram);
    std::string WriteError() const;

    std::string m_strFile;
    pcap* m_pFormat = nullptr;
    pcap_dumper* m_pFile = nullptr;
    tSteadyClock::time_point m_NextFlush = {};
    long m_lDatagrams = 0;
};

// Reads a capture: Ethernet, Linux's cooked frames, loopback or plain IP; datagrams that the network cut into fragments are joined.
// What is no UDP over IPv4 is passed over.
class CCaptureFile : public CTraffic
{
public:
    CCaptureFile();
    ~CCaptureFile() override;

    // Empty, or why it is no capture.
    std::string Open(const std::string& strFile);

    bool Next(stDatagram& datagram, double dSeconds) override;
    bool IsOver() const override { return m_bOver || StopRequested(); }
    std::string GetError() const override { return m_strError; }
    stTrafficLoss GetLoss() const override { return m_Loss; }

    // What a recording ended with; null when it was broken off, or made by another tool.
    const stCaptureEnd* GetEnd() const { return m_pEnd.get(); }

    // How much of the file has been read, and all of it.
    long GetPosition() const;
    long GetSize() const { return m_lSize; }

private:
    struct stFragmented
    {
        bool IsComplete() const;

        std::vector<unsigned char> bytes;
        std::map<std::size_t, std::size_t> parts; // their lengths by their places
        std::size_t unAll = 0;                    // not known before the last fragment came
        std::size_t unBegun = 0;                  // its place in the order of the first fragments
    };

    bool ReadPacket(const unsigned char* pPacket, std::size_t unLength, stDatagram& datagram);
    bool ReadFragment(const unsigned char* pHeader, const unsigned char* pData, std::size_t unLength, stDatagram& datagram);
    bool ReadUDP(const unsigned char* pData, std::size_t unLength, stDatagram& datagram);
    bool TakeEnd(const stDatagram& datagram);

    pcap* m_pCapture = nullptr;
    int m_nLinkType = 0;
    long m_lSize = 0;
    long m_lPackets = 0; // read
    bool m_bOver = false;
    std::string m_strError;
    stTrafficLoss m_Loss;
    std::unique_ptr<stCaptureEnd> m_pEnd;
    std::size_t m_unFragmented = 0;
    std::map<std::string, stFragmented> m_Fragmented; // by the addresses and the id of their IP header
};
