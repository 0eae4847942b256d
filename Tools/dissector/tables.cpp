// Prints what the dissector has to know of the console, from the library's own tables, as the Lua table "library".
#include "Images/Address.h"

#include "LogicalControls.h"

#include <cstddef>
#include <cstdio>
#include <string>

namespace
{

// A row a message type: what its values are, and their bytes in an array (0: bits) and in a change.
constexpr struct
{
    const char* szKind;
    std::size_t unInArray;
    std::size_t unInChange;
} caValues[c_nMessageTypes] = {
    {"string", RyGConsoleString::enSize, sizeof(stPPCWireValue<RyGConsoleString>::type)},
    {"float", sizeof(float), sizeof(stPPCWireValue<float>::type)},
    {"switch", 0, sizeof(stPPCWireValue<int>::type)},
    {"int", sizeof(int), sizeof(stPPCWireValue<int>::type)},
    {"float", sizeof(float), sizeof(stPPCWireValue<float>::type)},
    {"int", sizeof(int), sizeof(stPPCWireValue<int>::type)},
    {"int", sizeof(unsigned char), sizeof(stPPCWireValue<int>::type)},
};

constexpr struct
{
    int nType;
    const char* szName;
} caDatagramTypes[] = {
    {enDatagramMCUpdate, "Update"},
    {enDatagramPPC, "Changes"},
    {enDatagramPPCFlagged, "Change, with its sender's flag"},
};

constexpr struct
{
    int nType;
    const char* szName;
} caUpdateTypes[] = {
    {enMCUpdateAll, "All"},
    {enMCUpdateSurface, "Surface"},
    {enMCUpdateRotary, "Rotary"},
    {enMCUpdateSwitchesIntegers4, "Switches and integers"},
    {enMCUpdateSwitchesIntegers8, "Switches and integers"},
};

constexpr struct
{
    const char* szName;
    enReceiveCounter enCounter;
} caTexts[] = {
    {"too_short", enRejectedTooShort},        {"header", enRejectedHeader},
    {"payload", enRejectedPayload},           {"too_large", enRejectedTooLarge},
    {"invalid_update", enDecodeErrorInvalid}, {"body_length", enCountLengthMismatch},
};

std::string Quoted(const char* szText)
{
    std::string strQuoted = "\"";
    for (; *szText != '\0'; ++szText)
    {
        strQuoted += *szText == '"' || *szText == '\\' ? "\\" : "";
        strQuoted += *szText;
    }
    return strQuoted + "\"";
}

// The first update type above 0 that is none.
int UpdateTypeLimit()
{
    const CMCUpdateMsg message;
    stMCUpdateHeader header = {};
    header.unMarker = c_unMCUpdateMarker;
    const unsigned char* const pHeader = reinterpret_cast<const unsigned char*>(&header);
    while (message.ValidateUpdate(pHeader))
    {
        header.nUpdateType = header.nUpdateType + 1;
    }
    return header.nUpdateType;
}

void PrintLimits()
{
    std::printf("    datagram_type_limit = %d, max_fragments = %d, max_datagram = %d,\n", c_nDatagramTypeLimit, c_nMaxFragments,
                c_nMaxDatagram);
    std::printf("    max_message = %d, max_array = %d,\n", c_nMaxPayload * c_nMaxFragments, int(CMCUpdateMsg::enMaxArrayLength));
    std::printf("    datagram_header = %zu, change_header = %zu, update_header = %zu,\n", sizeof(UDP_PACKET_HEADER),
                sizeof(stPPCRecordHeader), sizeof(stMCUpdateHeader));
    std::printf("    update_marker = %u, update_type_limit = %d,\n", c_unMCUpdateMarker, UpdateTypeLimit());
    std::printf("    update_datagram = %d, changes_datagrams = {[%d] = true, [%d] = true},\n", int(enDatagramMCUpdate),
                int(enDatagramPPC), int(enDatagramPPCFlagged));
}

void PrintTypes()
{
    std::puts("    types = {");
    const CBMAContainer image;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        const void* pBlock = nullptr;
        long lBytes = 0;
        image.GetMessageMemory(static_cast<tagenPPCMessageType>(nType), pBlock, lBytes);
        std::printf("        [%d] = {name = %s, kind = \"%s\", in_array = %zu, in_change = %zu, count = %d, bytes = %ld},\n", nType,
                    Quoted(caMessageTypeNames[nType]).c_str(), caValues[nType].szKind, caValues[nType].unInArray,
                    caValues[nType].unInChange, canParameterCounts[nType], lBytes);
    }
    std::puts("    },");
}

// What parameters are on their path, by number.
std::string RolesText(tagenPPCMessageType enType, tagenVirtualPathType enGroup)
{
    std::string strRoles;
    for (int nParam = 0; nParam < canMaxParams[enGroup * c_nMessageTypes + enType]; ++nParam)
    {
        const std::string strRole = CommonNameText({enType, enGroup, 0, nParam});
        if (!strRole.empty())
        {
            strRoles += "[" + std::to_string(nParam) + "] = " + Quoted(strRole.c_str()) + ", ";
        }
    }
    return strRoles;
}

// Of each message type: how many parameters a path has, and their roles.
void PrintGroups()
{
    std::puts("    groups = {");
    for (int nGroup = 0; nGroup < c_nPathTypes; ++nGroup)
    {
        std::printf("        [%d] = {name = %s, paths = %d, params = {", nGroup, Quoted(caParameterGroupNames[nGroup]).c_str(),
                    canMaxPaths[nGroup]);
        for (int nType = 0; nType < c_nMessageTypes; ++nType)
        {
            std::printf("[%d] = %d, ", nType, canMaxParams[nGroup * c_nMessageTypes + nType]);
        }
        std::printf("}, roles = {");
        for (int nType = 0; nType < c_nMessageTypes; ++nType)
        {
            const std::string strRoles =
                RolesText(static_cast<tagenPPCMessageType>(nType), static_cast<tagenVirtualPathType>(nGroup));
            if (!strRoles.empty())
            {
                std::printf("[%d] = {%s}, ", nType, strRoles.c_str());
            }
        }
        std::puts("}},");
    }
    std::puts("    },");
}

void PrintDatagramTypes()
{
    std::puts("    datagram_types = {");
    for (const auto& type : caDatagramTypes)
    {
        std::printf("        [%d] = %s,\n", type.nType, Quoted(type.szName).c_str());
    }
    std::puts("    },");
}

// The arrays of a type that isn't named are those of "All".
void PrintUpdateTypes()
{
    std::puts("    update_types = {");
    for (const auto& type : caUpdateTypes)
    {
        const stCarriedArrays carried = CarriedArrays(type.nType);
        std::printf("        [%d] = {name = %s, first = %d, last = %d},\n", type.nType, Quoted(type.szName).c_str(), carried.nFirst,
                    carried.nLast);
    }
    std::puts("    },");
}

void PrintTexts()
{
    std::puts("    texts = {");
    for (const auto& text : caTexts)
    {
        std::printf("        %s = %s,\n", text.szName, Quoted(ReceiveCounterText(text.enCounter)).c_str());
    }
    std::puts("    },");
}

void PrintReportedParameters()
{
    std::puts("    reported = {");
    for (int nNumber = 0; nNumber < XMLDiagnosticsParametersDSP::c_nNames; ++nNumber)
    {
        const char* szName = XMLDiagnosticsParametersDSP::GetName(nNumber);
        if (szName != nullptr)
        {
            std::printf("        [%d] = %s,\n", nNumber, Quoted(szName).c_str());
        }
    }
    std::puts("    },");
}

} // namespace

int main()
{
    std::puts("-- Made from the library's tables; what uses them follows.\nlocal library = {");
    PrintLimits();
    PrintTypes();
    PrintGroups();
    PrintDatagramTypes();
    PrintUpdateTypes();
    PrintTexts();
    PrintReportedParameters();
    std::puts("}\n");
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : 1;
}
