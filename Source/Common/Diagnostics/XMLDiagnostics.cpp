#include "Diagnostics/XMLDiagnostics.h"

#include "Runtime/TextOrEmpty.h"

#include <charconv>
#include <iomanip>
#include <locale>
#include <sstream>

namespace XMLDiagnostics
{

namespace
{

template <typename T>
T Extract(const std::string& strText)
{
    std::istringstream stream(strText);
    stream.imbue(std::locale::classic());
    stream.exceptions(std::ios_base::badbit); // no memory: thrown, not swallowed
    T value = 0;
    stream >> value;
    return value;
}

} // namespace

std::string int2String(int nValue)
{
    return std::to_string(nValue);
}

std::string float2String(float fValue, short nPrecision)
{
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    stream.exceptions(std::ios_base::badbit);
    stream << std::setprecision(nPrecision) << fValue;
    return stream.str();
}

int string2Int(const char* szText)
{
    return string2Int(std::string(TextOrEmpty(szText)));
}

// By value: clients link it so. Nearly all texts are a number and nothing else.
int string2Int(std::string strText) // NOLINT(performance-unnecessary-value-param)
{
    int nValue = 0;
    const char* const pEnd = strText.data() + strText.size();
    const std::from_chars_result read = std::from_chars(strText.data(), pEnd, nValue);
    return read.ec == std::errc() && read.ptr == pEnd ? nValue : Extract<int>(strText);
}

float string2Float(const char* szText)
{
    return Extract<float>(TextOrEmpty(szText));
}

float string2Float(std::string strText) // NOLINT(performance-unnecessary-value-param)
{
    return Extract<float>(strText);
}

} // namespace XMLDiagnostics

// One effects DSP, and one main DSP. The text of the very first name goes on: that is meant.
#define LC_EFFECTS_DSP(n, more)                                                                                                    \
    "en_fx_error_id_" #n more, "en_fx_process_exception_counter_" #n, "en_fx_crunch_exception_counter_" #n,                        \
        "en_fx_link_port_rx_overrun_counter_" #n, "en_fx_brick_overflow_counter_" #n, "en_fx_dsp_local_temperature_" #n
#define LC_MAIN_DSP(n)                                                                                                             \
    "en_main_error_id_" #n, "en_main_muted_" #n, "en_main_crunch_fp_exception_counter_" #n,                                        \
        "en_main_process_fp_exception_counter_" #n, "en_main_link_port_rx_overrun_counter_" #n,                                    \
        "en_main_brick_overflow_counter_" #n, "en_main_dsp_local_temperature_" #n

const char* const XMLDiagnosticsParametersDSP::strName[c_nNames] = {
    "enUpTime",
    "enGeneralMute",
    LC_EFFECTS_DSP(1, " = en_fx_dsp_param_start"),
    LC_EFFECTS_DSP(2, ""),
    LC_EFFECTS_DSP(3, ""),
    LC_EFFECTS_DSP(4, ""),
    LC_EFFECTS_DSP(5, ""),
    LC_EFFECTS_DSP(6, ""),
    LC_EFFECTS_DSP(7, ""),
    LC_EFFECTS_DSP(8, ""),
    LC_EFFECTS_DSP(9, ""),
    LC_EFFECTS_DSP(10, ""),
    LC_MAIN_DSP(1),
    LC_MAIN_DSP(2),
    LC_MAIN_DSP(3),
    LC_MAIN_DSP(4),
    LC_MAIN_DSP(5),
    LC_MAIN_DSP(6),
    LC_MAIN_DSP(7),
    LC_MAIN_DSP(8),
    LC_MAIN_DSP(9),
    LC_MAIN_DSP(10),
    "enRoleNumber",
    "enRoleName",
    "enUDPState",
    "enUDPTimeouts",
    "enStartTime",
    "enMuteStatusenRail3v3", // one name, not two
    "enRail5v",
    "enRail5v_STBY",
    "enRail_PlusVA",
    "enRail_Plus12V",
    "enRail_MinusVA",
    "enRail48V",
    "enRailVCC_1V0",
    "enRailVCC_1V1",
    "enRailVCC_1V2",
    "enRailVCC_1V8",
    "enRailVCC_2V5",
    nullptr,
};

#undef LC_EFFECTS_DSP
#undef LC_MAIN_DSP

const char* XMLDiagnosticsParametersDSP::GetName(int nParameter)
{
    return nParameter >= 0 && nParameter < c_nNames ? strName[nParameter] : nullptr;
}
