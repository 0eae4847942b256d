// Plain UDP on the loopback interface, as little around it as can be: what the network cases are measured against.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

// Throws a std::string when the system refuses. A socket with port 0 has one of the system's.
class CPlainSocket
{
public:
    enum enBindings : int
    {
        enBound,  // to the loopback address
        enUnbound // which sends in less time
    };

    explicit CPlainSocket(enBindings enBinding = enBound);
    ~CPlainSocket();
    CPlainSocket(const CPlainSocket&) = delete;
    CPlainSocket& operator=(const CPlainSocket&) = delete;

    int Descriptor() const { return m_nSocket; }
    unsigned int Port() const;

private:
    int m_nSocket;
};

sockaddr_in LoopbackAddress(unsigned int unPort);

// A message of nBytes as the fragments that it travels in, in one block, each c_nMaxDatagram apart.
class CFragments
{
public:
    CFragments(const unsigned char* pMessage, long lBytes);
    ~CFragments();
    CFragments(const CFragments&) = delete;
    CFragments& operator=(const CFragments&) = delete;

    int Count() const { return m_nCount; }
    const unsigned char* At(int nFragment) const;
    std::size_t Size(int nFragment) const { return m_aunSizes[nFragment]; }

    // Gives all of them a message id.
    void SetId(std::uint32_t unId);
    void SendTo(int nSocket, const sockaddr_in& destination) const;

private:
    unsigned char* m_pBytes;
    int m_nCount;
    std::size_t m_aunSizes[5];
};
