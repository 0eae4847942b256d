// The loops over whole blocks, in the widest form that this processor has. Private to the library.
//
// There is one portable form, in plain C++ that compilers vectorise, and on x86-64 wider ones beside it. All give the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

// How far behind its last byte a mask is read.
constexpr std::size_t c_unMaskReach = 16;

struct stBlockKernels
{
    const char* szName;

    // Joins lWords 32-bit words in the machine's own order by exclusive or.
    std::uint32_t (*JoinWords)(const unsigned char* pWords, long lWords);

    // Copies whole 32-bit words between the machine's order and the wire's, big-endian; the way back is the same.
    void (*SwapWords)(unsigned char* pTo, const unsigned char* pFrom, std::size_t unBytes);

    // Move elements as MaskedMove.h says.
    void (*MoveWords)(unsigned char* pTo, const unsigned char* pFrom, const unsigned char* pMaskA, const unsigned char* pMaskB,
                      int nElements);
    void (*MoveStrings)(unsigned char* pTo, const unsigned char* pFrom, const unsigned char* pMaskA, const unsigned char* pMaskB,
                        int nElements);
};

// The forms that this processor can run, the narrowest (the portable one) first. Returns how many.
constexpr int c_nMaxBlockKernels = 3;
int FindBlockKernels(const stBlockKernels* (&apKernels)[c_nMaxBlockKernels]);

// The widest of them, chosen when the library is loaded; before that, the portable one.
const stBlockKernels& BlockKernels();
