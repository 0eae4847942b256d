#include "Messages/PPCPacket.h"

const stPPCRecordHeader CPPCStreamReader::c_NoRecord = {};

int CPPCStreamReader::LengthAt(const unsigned char* pNext, const unsigned char* pEnd)
{
    if (pNext == pEnd)
    {
        return 0;
    }
    const std::ptrdiff_t nLeft = pEnd - pNext - static_cast<std::ptrdiff_t>(sizeof(stPPCRecordHeader));
    const int nLength = nLeft >= 0 ? int(HeaderAt(pNext)->nValueLength) : -1;
    return nLength > 0 && nLength <= nLeft ? nLength : -1;
}
