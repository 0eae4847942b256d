#include "Exhaustive/ConsoleModel.h"

#include <algorithm>
#include <cstring>

namespace Exhaustive
{

namespace
{

bool IsWord(int nType)
{
    return WidthOf(nType) == 4;
}

void AppendWord(tBlock& bytes, std::uint32_t unWord)
{
    for (int nShift = 24; nShift >= 0; nShift -= 8)
    {
        bytes.push_back(static_cast<unsigned char>(unWord >> nShift));
    }
}

std::uint32_t WordOf(int nType, const tValue& value)
{
    std::uint32_t unWord = value[0];
    if (IsWord(nType))
    {
        std::memcpy(&unWord, value.data(), sizeof unWord);
    }
    return unWord;
}

unsigned int Mixed(unsigned int unNumber)
{
    unNumber = (unNumber ^ unNumber >> 16) * 2246822519u;
    unNumber = (unNumber ^ unNumber >> 13) * 3266489917u;
    return unNumber ^ unNumber >> 16;
}

} // namespace

tValue Numbered(int nType, unsigned int unNumber)
{
    tValue value = {};
    const float fValue = static_cast<float>(static_cast<int>(unNumber)) * 0.5f;
    const std::uint32_t unWord = unNumber * 2654435761u;
    const std::string strText = "N" + std::to_string(unNumber);
    switch (nType)
    {
    case enStrings:
        std::memcpy(value.data(), strText.data(), std::min<std::size_t>(strText.size(), 12));
        break;
    case enRotaries:
    case enFaders:
        std::memcpy(value.data(), &fValue, sizeof fValue);
        break;
    case enSwitches:
        value[0] = static_cast<unsigned char>((Mixed(unNumber / 2) + unNumber) & 1);
        break;
    case enMeters:
        value[0] = static_cast<unsigned char>(unNumber);
        break;
    default:
        std::memcpy(value.data(), &unWord, sizeof unWord);
    }
    return value;
}

tBlock WireRecord(const stAddress& address, const tValue& value)
{
    tBlock bytes = {0, 0, 0, 1, 0};
    for (const int nField : {address.nType, address.nPathType, address.nPath, address.nParam, address.nType == enStrings ? 13 : 4})
    {
        AppendWord(bytes, static_cast<std::uint32_t>(nField));
    }
    if (address.nType == enStrings)
    {
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
    else
    {
        AppendWord(bytes, WordOf(address.nType, value));
    }
    return bytes;
}

bool HasSI(int nType)
{
    return nType == enRotaries || nType == enFaders;
}

stConsoleModel::stConsoleModel()
{
    for (int nType = 0; nType < c_nTypes; ++nType)
    {
        const std::size_t unCount = static_cast<std::size_t>(CountOf(nType));
        aValues[nType].resize(unCount);
        aSI[nType].resize(HasSI(nType) ? unCount : 0);
        for (auto& scope : aFlags)
        {
            scope[nType].resize(unCount);
        }
    }
}

void stConsoleModel::Number(unsigned int unFirst)
{
    for (int nType = 0; nType < c_nTypes; ++nType)
    {
        unsigned int unNumber = unFirst;
        for (tValue& value : aValues[nType])
        {
            value = Numbered(nType, unNumber++);
        }
        unNumber = unFirst;
        for (float& fSI : aSI[nType])
        {
            fSI = -static_cast<float>(++unNumber);
        }
    }
}

void stConsoleModel::Flag(unsigned int unSeed)
{
    for (int nFamily = 0; nFamily < c_nScopes * c_nTypes; ++nFamily)
    {
        unsigned int unNumber = (unSeed * 28 + static_cast<unsigned int>(nFamily)) << 18;
        for (unsigned char& ucFlag : aFlags[nFamily / c_nTypes][nFamily % c_nTypes])
        {
            ucFlag = Mixed(unNumber++) & 1;
        }
    }
}

tBlock stConsoleModel::ValueBlock(int nType) const
{
    const std::size_t unWidth = static_cast<std::size_t>(WidthOf(nType));
    tBlock bytes(aValues[nType].size() * unWidth);
    unsigned char* pTo = bytes.data();
    for (const tValue& value : aValues[nType])
    {
        std::memcpy(pTo, value.data(), unWidth);
        pTo += unWidth;
    }
    return nType == enSwitches ? Packed(bytes) : bytes;
}

tBlock stConsoleModel::FlagBlock(int nScope, int nType) const
{
    return Packed(aFlags[nScope][nType]);
}

tBlock stConsoleModel::WireBlock(int nType) const
{
    if (!IsWord(nType))
    {
        return ValueBlock(nType);
    }
    tBlock bytes;
    for (const tValue& value : aValues[nType])
    {
        AppendWord(bytes, WordOf(nType, value));
    }
    return bytes;
}

tBlock Packed(const tBlock& flags)
{
    tBlock bytes(flags.size() / 8 + 1);
    for (std::size_t unFlag = 0; unFlag < flags.size(); ++unFlag)
    {
        bytes[unFlag / 8] = static_cast<unsigned char>(bytes[unFlag / 8] | (flags[unFlag] & 1u) << unFlag % 8);
    }
    return bytes;
}

} // namespace Exhaustive
