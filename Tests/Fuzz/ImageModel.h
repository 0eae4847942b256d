// A console image as the models see it: blocks of bytes in flat order. Only the console's limits are the library's own.
#pragma once

#include "LogicalControls/ConsoleBitmapArray.h"

#include "Input.h"

#include <array>
#include <cstring>
#include <memory>

namespace Fuzz
{

constexpr int c_nScopes = 4; // store, recall, global, safe
constexpr int c_nGlobalScope = 2;

struct stPlace
{
    int nType;
    int nGroup;
    int nPath;
    int nParam;
};

inline bool IsType(int nType)
{
    return nType >= 0 && nType <= 6;
}

inline bool IsGroup(int nGroup)
{
    return nGroup >= 0 && nGroup <= 50;
}

inline std::int64_t Paths(int nGroup)
{
    return canMaxPaths[nGroup];
}

inline std::int64_t Params(int nType, int nGroup)
{
    return canMaxParams[nGroup * 7 + nType];
}

inline bool Exists(const stPlace& place)
{
    return IsType(place.nType) && IsGroup(place.nGroup) && place.nPath >= 0 && place.nPath < Paths(place.nGroup) &&
           place.nParam >= 0 && place.nParam < Params(place.nType, place.nGroup);
}

// How many parameters of a type stand before a group's: those of the whole console before group 51.
inline std::int64_t Offset(int nType, int nGroup)
{
    static const auto offsets = []
    {
        std::array<std::array<std::int64_t, 52>, 7> sums = {};
        for (int nOfType = 0; nOfType < 7; ++nOfType)
        {
            std::int64_t nSum = 0;
            for (int nOfGroup = 0; nOfGroup <= 50; ++nOfGroup)
            {
                sums[std::size_t(nOfType)][std::size_t(nOfGroup)] = nSum;
                nSum += Paths(nOfGroup) * Params(nOfType, nOfGroup);
            }
            sums[std::size_t(nOfType)][51] = nSum;
        }
        return sums;
    }();
    return offsets[std::size_t(nType)][std::size_t(nGroup)];
}

inline std::int64_t Count(int nType)
{
    return Offset(nType, 51);
}

// Bytes of a value in its block, 0 for the switches, which are bits.
inline std::size_t Width(int nType)
{
    static const std::size_t caWidths[] = {13, 4, 0, 4, 4, 4, 1};
    return caWidths[nType];
}

// The flat number, whatever path and parameter are; -1 outside the block.
inline std::int64_t Flat(const stPlace& place)
{
    if (!IsType(place.nType) || !IsGroup(place.nGroup))
    {
        return -1;
    }
    const std::int64_t nFlat = Offset(place.nType, place.nGroup) + Params(place.nType, place.nGroup) * place.nPath + place.nParam;
    return nFlat >= 0 && nFlat < Count(place.nType) ? nFlat : -1;
}

inline bool GetBit(const tBytes& bits, std::int64_t nBit)
{
    return (bits[std::size_t(nBit / 8)] >> (nBit % 8) & 1) != 0;
}

inline void SetBit(tBytes& bits, std::int64_t nBit, bool bSet)
{
    unsigned char& ucByte = bits[std::size_t(nBit / 8)];
    ucByte = static_cast<unsigned char>(bSet ? ucByte | 1 << nBit % 8 : ucByte & ~(1 << nBit % 8));
}

struct stImageModel
{
    stImageModel()
    {
        for (int nType = 0; nType < 7; ++nType)
        {
            const std::size_t unCount = static_cast<std::size_t>(Count(nType));
            const std::size_t unType = static_cast<std::size_t>(nType);
            values[unType].resize(nType == 2 ? unCount / 8 + 1 : unCount * Width(nType));
            for (auto& scope : flags)
            {
                scope[unType].resize(unCount / 8 + 1);
            }
            if (nType == 1 || nType == 4)
            {
                si[unType].resize(unCount * 4);
            }
        }
    }

    std::array<tBytes, 7> values; // in the machine's own order
    std::array<std::array<tBytes, 7>, c_nScopes> flags;
    std::array<tBytes, 7> si; // of rotaries and faders

    unsigned char* Value(int nType, std::int64_t nFlat) { return &values[std::size_t(nType)][std::size_t(nFlat) * Width(nType)]; }
    unsigned char* SI(int nType, std::int64_t nFlat) { return &si[std::size_t(nType)][std::size_t(nFlat) * 4]; }
    tBytes& Flags(int nScope, int nType) { return flags[std::size_t(nScope)][std::size_t(nType)]; }
};

// An image's flags of a scope and type, as they lie.
inline unsigned char* FlagMemory(CBMAContainer& image, int nScope, int nType)
{
    const tagenPPCMessageType enType = static_cast<tagenPPCMessageType>(nType);
    CBMAContainer::stBlockRef cursor;
    switch (nScope)
    {
    case 0:
        image.SetBlockPosition(enType, enGlobals, 0, 0, cursor, Int2Type<2>());
        break;
    case 1:
        image.SetBlockPosition(enType, enGlobals, 0, 0, cursor, Int2Type<1>());
        break;
    case 2:
        image.SetBlockPosition(enType, enGlobals, 0, 0, cursor, Int2Type<3>());
        break;
    default:
        image.SetBlockPosition(enType, enGlobals, 0, 0, cursor, Int2Type<4>());
        break;
    }
    return static_cast<unsigned char*>(cursor.pMemory);
}

inline unsigned char* ValueMemory(CBMAContainer& image, int nType, long& lBytes)
{
    void* pMemory = nullptr;
    image.GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pMemory, lBytes);
    return static_cast<unsigned char*>(pMemory);
}

// Every value and flag of the image is the model's.
inline void CheckImage(CBMAContainer& image, const stImageModel& model)
{
    for (int nType = 0; nType < 7; ++nType)
    {
        long lBytes = 0;
        const tBytes& values = model.values[std::size_t(nType)];
        const unsigned char* pValues = ValueMemory(image, nType, lBytes);
        Check(lBytes == static_cast<long>(values.size()), "the block of type %d has %ld bytes", nType, lBytes);
        Check(std::memcmp(pValues, values.data(), values.size()) == 0, "the values of type %d are not what was written", nType);
        for (int nScope = 0; nScope < c_nScopes; ++nScope)
        {
            const tBytes& flags = model.flags[std::size_t(nScope)][std::size_t(nType)];
            Check(std::memcmp(FlagMemory(image, nScope, nType), flags.data(), flags.size()) == 0,
                  "the flags of scope %d, type %d are not what was written", nScope, nType);
        }
    }
}

// Makes the image what the model says, past every write of its own.
inline void FillImage(CBMAContainer& image, const stImageModel& model)
{
    for (int nType = 0; nType < 7; ++nType)
    {
        long lBytes = 0;
        const tBytes& values = model.values[std::size_t(nType)];
        std::memcpy(ValueMemory(image, nType, lBytes), values.data(), values.size());
        for (int nScope = 0; nScope < c_nScopes; ++nScope)
        {
            const tBytes& flags = model.flags[std::size_t(nScope)][std::size_t(nType)];
            std::memcpy(FlagMemory(image, nScope, nType), flags.data(), flags.size());
        }
    }
}

// Around 0, or around a limit.
inline int TakeEdge(CInput& input, std::int64_t nLimit)
{
    const int nByte = static_cast<int>(input.Byte());
    return nByte < 128 ? nByte - 64 : static_cast<int>(nLimit) + nByte - 192;
}

// An address: mostly one that exists, now and then of any numbers.
inline stPlace TakePlace(CInput& input)
{
    const unsigned int unShape = input.Byte();
    stPlace place;
    place.nType = static_cast<int>(unShape % 7);
    place.nGroup = static_cast<int>(input.Below(51));
    if (unShape < 168)
    {
        place.nPath = static_cast<int>(input.Big16() % static_cast<unsigned int>(Paths(place.nGroup)));
        place.nParam = static_cast<int>(input.Big16() % static_cast<unsigned int>(Params(place.nType, place.nGroup)));
        return place;
    }
    if (unShape < 189)
    {
        place.nPath = TakeEdge(input, Paths(place.nGroup));
        place.nParam = TakeEdge(input, Params(place.nType, place.nGroup));
        return place;
    }
    if (unShape >= 210)
    {
        place.nType = unShape < 231 ? place.nType : input.Number();
        place.nGroup = input.Number();
    }
    place.nPath = input.Number();
    place.nParam = input.Number();
    return place;
}

} // namespace Fuzz
