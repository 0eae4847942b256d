#include "LogicalControls/ScopeMask.h"

#include "LogicalControls/BlockPosition.h"
#include "LogicalControls/MaskedMove.h"

#include <cstdio>
#include <cstring>
#include <iostream>

namespace
{

constexpr int c_nDumpedALine = 20;

// What DumpMasks shows, under which name. The names don't fit the types: that is meant.
struct stDumpSection
{
    const char* szLabel;
    tagenPPCMessageType enType;
};

constexpr stDumpSection caDumpSections[] = {{"  Rotaries", enSwitch}, {"  Integer", enInteger}, {"  Fader", enFader},
                                            {"  String", enString},   {"  Meter", enMeter},     {"  Other", enOther}};

// Text that no setting of the stream changes.
void Print(const char* szText)
{
    std::cout.write(szText, static_cast<std::streamsize>(std::strlen(szText)));
}

// Whole lines, the last one with what lies behind the block: the slack of a parameter array.
void PrintBlock(const unsigned char* pBlock, long lBytes)
{
    for (long lByte = 0; pBlock != nullptr && lByte < lBytes; lByte += c_nDumpedALine)
    {
        Print("\t");
        for (int nColumn = 0; nColumn < c_nDumpedALine; ++nColumn)
        {
            char acByte[8];
            std::snprintf(acByte, sizeof acByte, "%4x ", pBlock[lByte + nColumn]);
            Print(acByte);
        }
        Print("\n");
    }
}

} // namespace

CCBMAContainerScopeMask::CCBMAContainerScopeMask()
{
    BlockAssign(0);
}

CCBMAContainerScopeMask::CCBMAContainerScopeMask(const CCBMAContainerScopeMask& other)
{
    m_Flags = other.m_Flags;
}

CCBMAContainerScopeMask& CCBMAContainerScopeMask::operator=(const CCBMAContainerScopeMask& other) = default;

CCBMAContainerScopeMask::~CCBMAContainerScopeMask() = default;

void CCBMAContainerScopeMask::Reset()
{
    BlockAssign(0);
}

int CCBMAContainerScopeMask::BlockAssign(int nValue)
{
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        void* pMemory = nullptr;
        long lBytes = 0;
        GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pMemory, lBytes);
        if (pMemory != nullptr)
        {
            FillBits(static_cast<unsigned char*>(pMemory), canParameterCounts[nType], nValue != 0);
        }
    }
    return 1;
}

int CCBMAContainerScopeMask::BlockWrite(stPPCWithSI* pRecords, int nCount)
{
    CBMAContainer::stBlockRef cursor;
    WriteFlags(m_Flags, pRecords, nCount, cursor);
    return 1;
}

void CCBMAContainerScopeMask::SetFlag(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                      int nValue)
{
    VisitArray(m_Flags, enType, [&](auto& flags) { flags.SetPPC(enPathType, nPath, nParam, nValue); });
}

void CCBMAContainerScopeMask::GetFlag(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nPath, int nParam,
                                      int& nValue) const
{
    VisitArray(m_Flags, enType, [&](const auto& flags) { flags.GetPPC(enPathType, nPath, nParam, nValue); });
}

void CCBMAContainerScopeMask::GetMessageMemory(tagenPPCMessageType enType, void*& pMemory, long& lBytes)
{
    pMemory = nullptr;
    lBytes = 0;
    VisitArray(m_Flags, enType,
               [&](auto& flags)
               {
                   pMemory = flags.GetMemoryPointer();
                   lBytes = flags.GetByteAllocation();
               });
}

void CCBMAContainerScopeMask::DumpMasks() const
{
    Print("[CCBMAContainerScopeMask::DumpMasks] START\n");
    for (const stDumpSection& section : caDumpSections)
    {
        Print(section.szLabel);
        Print("\n");
        VisitArray(m_Flags, section.enType,
                   [](const auto& flags)
                   { PrintBlock(static_cast<const unsigned char*>(flags.GetMemoryPointer()), flags.GetByteAllocation()); });
        Print("\n\n");
    }
    Print("[CCBMAContainerScopeMask::DumpMasks] END\n");
    std::cout << std::hex << std::flush;
}
