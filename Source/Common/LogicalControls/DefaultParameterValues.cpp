#include "LogicalControls/DefaultParameterValues.h"

#include "LogicalControls/ConsoleBitmapArray.h"
#include "Runtime/TextOrEmpty.h"

#include <boost/preprocessor/repetition/enum.hpp>

#include <climits>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>

namespace
{

// Consecutive defaults of a group, from parameter nFirst on: the values in turn, all of them nTimes over.
template <typename T>
struct stRow
{
    tagenVirtualPathType enPathType;
    int nFirst;
    std::initializer_list<T> values;
    int nTimes = 1;

    constexpr int End() const { return nFirst + static_cast<int>(values.size()) * nTimes; }
    constexpr bool Has(int nPathType, int nParam) const { return enPathType == nPathType && nParam >= nFirst && nParam < End(); }
    constexpr T At(int nParam) const { return values.begin()[static_cast<std::size_t>(nParam - nFirst) % values.size()]; }
};

// A parameter that no row names is 0, or the empty string.
constexpr stRow<const char*> caStrings[] = {
    {enGlobals, 74, {"remote1"}},
    {enMicInput, 0, {"IN%ch%", "Mic%ch%"}},
    {enAuxReturn, 0, {"AR%ch%", "AuxR%ch%"}},
    {enSubMix, 0, {"AS%ch%", "AuxS%ch%"}},
    {enMaster, 0, {"M%ch%"}},
    {enMainOut, 0, {"MO%ch%", "Mtx%ch%"}},
    {enMonitors, 0, {"Monitors"}},
    {enInternalFX, 0, {"FX%ch%", "Ifx%ch%", "120.0"}},
    {enInternalFX, 3, {"Ch name"}, 16},
    {enGEQPool, 0, {"GEQ%ch%", "Geq%ch%"}},
    {enVCAGroups, 0, {"VCA%ch%", "VCA%ch%"}},
    {enTalkGroups, 0, {"TG%ch%", "TalkG%ch%"}},
    {enMuteGroups, 0, {"MG%ch%", "Mute%ch%"}},
    {enSystemDevices, 0, {"IO%ch%", "IO%ch%"}},
    {enSystemDevices, 2, {"Out1",  "Out2",  "Out3",  "Out4",  "Out5",  "Out6",  "Out7",  "Out8",
                          "Out9",  "Out10", "Out11", "Out12", "Out13", "Out14", "Out15", "Out16",
                          "Out17", "Out18", "Out19", "Out20", "Out21", "Out22", "Out23", "Out24"}},
    {enSystemDevices, 26, {"In1",  "In2",  "In3",  "In4",  "In5",  "In6",  "In7",  "In8",  "In9",  "In10", "In11", "In12",
                           "In13", "In14", "In15", "In16", "In17", "In18", "In19", "In20", "In21", "In22", "In23", "In24"}},
    {enGenericAES50Device, 0, {"DEV%ch%", "Device %ch%"}},
    {enKestrelDevice, 1, {"Kestrel %ch%"}},
    {enTern, 0, {"Orvik", "GEQ", "Geq"}},
    {enAuk, 0, {"IO%ch%", "IO%ch%"}},
};

constexpr stRow<float> caRotaries[] = {
    {enGlobals, 0, {0.0f, 0.0005f, 0.1801f, 2.0f, 10.0f, 21.0f, 120.0f}},
    {enMicInput, 0, {0.05263158f, 0.05263158f, 0.0f, 0.0f, -100.0f, 0.5f, 0.0f,  0.0f,   0.0f,    0.0f,    1.0f,   -6.0f,
                     10.0f,       20000.0f,    0.0f, 0.0f, 0.0f,    0.0f, 80.0f, 400.0f, 1600.0f, 5000.0f, 0.487f, 0.487f}},
};

constexpr stRow<unsigned char> caSwitches[] = {
    {enGlobals, 1, {1}},
    {enGlobals, 7, {1}, 6},
    {enGlobals, 16, {1}, 8},
};

constexpr int c_nUnset = INT_MIN;
constexpr int c_nUnpatched = -0xff4700; // the bits 0xff00b900

constexpr stRow<int> caIntegers[] = {
    {enMicInput, 0, {c_nUnset}},      {enMicInput, 4, {c_nUnset}, 2}, {enMicInput, 15, {c_nUnpatched, c_nUnset, c_nUnset}},
    {enVCAGroups, 0, {c_nUnpatched}}, {enVCAGroups, 4, {65535}, 24},  {enSystemDevices, 2, {c_nUnset}, 25},
};

constexpr float c_fOff = -100.0f; // dB: a fader that is closed

constexpr stRow<float> caFaders[] = {
    {enMicInput, 0, {c_fOff}},
    {enAuxReturn, 0, {c_fOff}},
    {enSubMix, 0, {c_fOff}},
    {enMaster, 0, {c_fOff}},
    {enMainOut, 0, {c_fOff}},
    {enInputBayStrip, 1, {c_fOff}},
    {enOutputBayStripArea, 0, {c_fOff}},
    {enHeronInputBayStrip, 1, {c_fOff}},
    {enHeronOutputBayStripArea, 0, {c_fOff}},
    {enFinchChannelStrip, 1, {c_fOff}},
    {enWrenChannelStrip, 1, {c_fOff}},
};

template <typename T, std::size_t unRows>
constexpr T Find(const stRow<T> (&rows)[unRows], int nPathType, int nParam, T otherwise)
{
    for (const stRow<T>& row : rows)
    {
        if (row.Has(nPathType, nParam))
        {
            return row.At(nParam);
        }
    }
    return otherwise;
}

constexpr int canLimits[c_nPathTypes][c_nMessageTypes] = {
#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters)                            \
    {strings, rotaries, switches, integers, faders, others, meters},
#include "LogicalControls/ParameterGroups.def"
#undef LC_PARAMETER_GROUP
};

// True when each row lies within its group's limit, behind the row before it.
template <typename T, std::size_t unRows>
constexpr bool AreInOrder(const stRow<T> (&rows)[unRows], tagenPPCMessageType enType)
{
    int nPathType = -1;
    int nEnd = 0;
    for (const stRow<T>& row : rows)
    {
        const bool bBehind = row.enPathType > nPathType || (row.enPathType == nPathType && row.nFirst >= nEnd);
        nPathType = row.enPathType;
        nEnd = row.End();
        if (!bBehind || nEnd > canLimits[nPathType][enType])
        {
            return false;
        }
    }
    return true;
}

static_assert(AreInOrder(caStrings, enString) && AreInOrder(caRotaries, enRotary) && AreInOrder(caSwitches, enSwitch) &&
                  AreInOrder(caIntegers, enInteger) && AreInOrder(caFaders, enFader),
              "rows name parameters of the model, each once");

// One parameter's default.
template <tagenPPCMessageType N>
constexpr auto DefaultOf(int nPathType, int nParam)
{
    static_cast<void>(nPathType); // others and meters have no row
    static_cast<void>(nParam);
    if constexpr (N == enString)
    {
        return Find<const char*>(caStrings, nPathType, nParam, "");
    }
    else if constexpr (N == enRotary)
    {
        return Find(caRotaries, nPathType, nParam, 0.0f);
    }
    else if constexpr (N == enSwitch)
    {
        return Find<unsigned char>(caSwitches, nPathType, nParam, 0);
    }
    else if constexpr (N == enInteger)
    {
        return Find(caIntegers, nPathType, nParam, 0);
    }
    else if constexpr (N == enFader)
    {
        return Find(caFaders, nPathType, nParam, 0.0f);
    }
    else if constexpr (N == enOther)
    {
        return 0;
    }
    else
    {
        return static_cast<unsigned char>(0);
    }
}

template <tagenPPCMessageType N>
using tElement = decltype(DefaultOf<N>(0, 0));

// The array of a pair of path type and message type: as many elements as the model gives it parameters.
template <int nPathType, tagenPPCMessageType N, class = std::make_index_sequence<canLimits[nPathType][N]>>
struct stDefaults;

template <int nPathType, tagenPPCMessageType N, std::size_t... unParams>
struct stDefaults<nPathType, N, std::index_sequence<unParams...>>
{
    static constexpr tElement<N> values[] = {DefaultOf<N>(nPathType, static_cast<int>(unParams))...};
};

// The array of a pair, null when the model has no such parameter.
template <tagenPPCMessageType N>
const tElement<N>* Defaults(tagenVirtualPathType enPathType, int nParam)
{
    return IsParameterAddress(N, enPathType, 0, nParam)
               ? static_cast<const tElement<N>*>(pvDefaultParameterValues[enPathType * c_nMessageTypes + N])
               : nullptr;
}

template <tagenPPCMessageType N, typename T>
bool Read(tagenVirtualPathType enPathType, int nParam, T& value)
{
    const tElement<N>* pDefaults = Defaults<N>(enPathType, nParam);
    if (pDefaults == nullptr)
    {
        return false;
    }
    value = pDefaults[nParam];
    return true;
}

// Writes a message type's defaults of the whole console one after the other: write(flat number, path, element).
template <tagenPPCMessageType N, class Writer>
void WriteDefaults(Writer write)
{
    std::size_t unElement = 0;
    for (int nPathType = 0; nPathType < c_nPathTypes; ++nPathType)
    {
        const tElement<N>* pDefaults = Defaults<N>(static_cast<tagenVirtualPathType>(nPathType), 0);
        for (int nPath = 0; nPath < canMaxPaths[nPathType]; ++nPath)
        {
            for (int nParam = 0; nParam < canLimits[nPathType][N]; ++nParam)
            {
                write(unElement++, nPath, pDefaults[nParam]);
            }
        }
    }
}

unsigned char* Block(CBMAContainer& image, tagenPPCMessageType enType)
{
    void* pBlock = nullptr;
    long lBytes = 0;
    image.GetMessageMemory(enType, pBlock, lBytes);
    return static_cast<unsigned char*>(pBlock);
}

template <tagenPPCMessageType N>
void ApplyValues(CBMAContainer& image)
{
    unsigned char* pBlock = Block(image, N);
    WriteDefaults<N>([pBlock](std::size_t unElement, int, tElement<N> value)
                     { std::memcpy(pBlock + unElement * sizeof value, &value, sizeof value); });
}

const char c_szMarker[] = "%ch%";
constexpr std::size_t c_unMarker = sizeof c_szMarker - 1;

} // namespace

#define LC_DEFAULT_STRING(z, param, group) DefaultOf<enString>(en##group, param)
#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters)                            \
    const char* const group##Parameters::enPPCStringMessage::caDefaults[strings] = {                                               \
        BOOST_PP_ENUM(strings, LC_DEFAULT_STRING, group)};
#include "LogicalControls/ParameterGroups.def"
#undef LC_PARAMETER_GROUP
#undef LC_DEFAULT_STRING

const void* const pvDefaultParameterValues[c_nPathTypes * c_nMessageTypes] = {
#define LC_PARAMETER_GROUP(group, paths, strings, rotaries, switches, integers, faders, others, meters)                            \
    group##Parameters::enPPCStringMessage::caDefaults, stDefaults<en##group, enRotary>::values,                                    \
        stDefaults<en##group, enSwitch>::values, stDefaults<en##group, enInteger>::values, stDefaults<en##group, enFader>::values, \
        stDefaults<en##group, enOther>::values, stDefaults<en##group, enMeter>::values,
#include "LogicalControls/ParameterGroups.def"
#undef LC_PARAMETER_GROUP
};

bool GetDefaultPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nParam, float& fValue)
{
    return (enType == enRotary && Read<enRotary>(enPathType, nParam, fValue)) ||
           (enType == enFader && Read<enFader>(enPathType, nParam, fValue));
}

bool GetDefaultPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nParam, int& nValue)
{
    return (enType == enSwitch && Read<enSwitch>(enPathType, nParam, nValue)) ||
           (enType == enInteger && Read<enInteger>(enPathType, nParam, nValue)) ||
           (enType == enOther && Read<enOther>(enPathType, nParam, nValue));
}

bool GetDefaultPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nParam, unsigned char& ucValue)
{
    return enType == enMeter && Read<enMeter>(enPathType, nParam, ucValue);
}

bool GetDefaultPPC(tagenPPCMessageType enType, tagenVirtualPathType enPathType, int nParam, const char*& szPattern)
{
    return enType == enString && Read<enString>(enPathType, nParam, szPattern);
}

RyGConsoleString ExpandDefaultName(const char* szPattern, int nPath)
{
    const std::string strNumber = std::to_string(nPath + 1LL);
    std::string strName;
    for (const char* pNext = TextOrEmpty(szPattern); *pNext != '\0' && strName.size() < RyGConsoleString::enMaxLength;)
    {
        const bool bMarker = std::strncmp(pNext, c_szMarker, c_unMarker) == 0;
        bMarker ? strName.append(strNumber) : strName.append(1, *pNext);
        pNext += bMarker ? c_unMarker : 1;
    }
    return RyGConsoleString(strName);
}

void ApplyDefaults(CBMAContainer& image)
{
    static_assert(sizeof(RyGConsoleString) == RyGConsoleString::enSize, "strings lie packed in their block");
    ApplyValues<enRotary>(image);
    ApplyValues<enInteger>(image);
    ApplyValues<enFader>(image);
    ApplyValues<enOther>(image);
    ApplyValues<enMeter>(image);
    unsigned char* pStrings = Block(image, enString);
    WriteDefaults<enString>(
        [pStrings](std::size_t unElement, int nPath, const char* szPattern)
        {
            const RyGConsoleString strName = ExpandDefaultName(szPattern, nPath);
            std::memcpy(pStrings + unElement * sizeof strName, strName.Data(), sizeof strName);
        });
    unsigned char* pBits = Block(image, enSwitch);
    if (pBits == nullptr)
    {
        return; // there was no memory for the switches: a bit array does without
    }
    WriteDefaults<enSwitch>(
        [pBits](std::size_t unElement, int, unsigned char ucValue)
        {
            const unsigned int unBit = 1u << unElement % 8;
            unsigned char& ucBits = pBits[unElement / 8];
            ucBits = static_cast<unsigned char>(ucValue != 0 ? ucBits | unBit : ucBits & ~unBit);
        });
}
