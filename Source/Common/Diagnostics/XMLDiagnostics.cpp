#include "Diagnostics/XMLDiagnostics.h"

#include "Runtime/TextOrEmpty.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cstring>

namespace XMLDiagnostics
{

namespace
{

bool IsDigit(char cDigit)
{
    return cDigit >= '0' && cDigit <= '9';
}

const char* SkipBlanks(const char* pText, const char* pEnd)
{
    return std::find_if(pText, pEnd, [](char cBlank) { return cBlank == '\0' || std::strchr(" \t\n\v\f\r", cBlank) == nullptr; });
}

const char* SkipDigits(const char* pText, const char* pEnd)
{
    return std::find_if_not(pText, pEnd, IsDigit);
}

// Of digits with a point among them: by how many places the first that is not 0 lies before the point; 0 or less behind it.
long PlacesBeforePoint(const char* pDigits, const char* pEnd)
{
    const char* const pPoint = std::find(pDigits, pEnd, '.');
    const char* const pFirst = std::find_if(pDigits, pEnd, [](char cDigit) { return cDigit != '0' && cDigit != '.'; });
    return pFirst < pPoint ? pPoint - pFirst : pPoint - pFirst + 1;
}

} // namespace

std::string int2String(int nValue)
{
    return std::to_string(nValue);
}

std::string float2String(float fValue, short nPrecision)
{
    constexpr int c_nUsual = 6;     // digits of a stream, also where a precision is none
    constexpr int c_nLongest = 112; // no float has more digits than that
    char acText[c_nLongest + sizeof "-0.0000e+38"];
    const int nDigits = nPrecision < 0 ? c_nUsual : std::min<int>(nPrecision, c_nLongest);
    const std::to_chars_result written =
        std::to_chars(acText, acText + sizeof acText, static_cast<double>(fValue), std::chars_format::general, nDigits);
    return std::string(acText, written.ptr);
}

// Texts are read as a stream of the classic locale reads them: blanks first, then as much as belongs to a number; 0 where there is
// none, and the largest or least number there is for those beyond it.
int string2Int(const char* szText)
{
    return string2Int(std::string(TextOrEmpty(szText)));
}

// By value: clients link it so.
int string2Int(std::string strText) // NOLINT(performance-unnecessary-value-param)
{
    const char* const pEnd = strText.data() + strText.size();
    const char* pNumber = SkipBlanks(strText.data(), pEnd);
    if (pEnd - pNumber >= 2 && pNumber[0] == '+' && IsDigit(pNumber[1]))
    {
        ++pNumber;
    }
    int nValue = 0;
    if (std::from_chars(pNumber, pEnd, nValue).ec == std::errc::result_out_of_range)
    {
        nValue = *pNumber == '-' ? INT_MIN : INT_MAX;
    }
    return nValue;
}

float string2Float(const char* szText)
{
    return string2Float(std::string(TextOrEmpty(szText)));
}

float string2Float(std::string strText) // NOLINT(performance-unnecessary-value-param)
{
    const char* const pEnd = strText.data() + strText.size();
    const char* pNumber = SkipBlanks(strText.data(), pEnd);
    const bool bNegative = pNumber != pEnd && *pNumber == '-';
    if (pNumber != pEnd && (*pNumber == '-' || *pNumber == '+'))
    {
        ++pNumber;
    }
    const char* const pPoint = SkipDigits(pNumber, pEnd);
    const char* const pMantissaEnd = pPoint != pEnd && *pPoint == '.' ? SkipDigits(pPoint + 1, pEnd) : pPoint;
    if (pMantissaEnd - pNumber == (pMantissaEnd != pPoint ? 1 : 0)) // no digit, or the point alone
    {
        return 0;
    }
    const char* pNumberEnd = pMantissaEnd;
    long lExponent = 0;
    if (pMantissaEnd != pEnd && (*pMantissaEnd == 'e' || *pMantissaEnd == 'E'))
    {
        const char* pExponent = pMantissaEnd + 1;
        const bool bNegativeExponent = pExponent != pEnd && *pExponent == '-';
        if (pExponent != pEnd && (*pExponent == '-' || *pExponent == '+'))
        {
            ++pExponent;
        }
        pNumberEnd = SkipDigits(pExponent, pEnd);
        if (pNumberEnd == pExponent)
        {
            return 0;
        }
        if (std::from_chars(pExponent, pNumberEnd, lExponent).ec == std::errc::result_out_of_range)
        {
            lExponent = INT_MAX;
        }
        lExponent = bNegativeExponent ? -lExponent : lExponent;
    }
    float fValue = 0;
    if (std::from_chars(pNumber, pNumberEnd, fValue).ec == std::errc::result_out_of_range)
    {
        fValue = lExponent > -PlacesBeforePoint(pNumber, pMantissaEnd) ? FLT_MAX : 0;
    }
    return bNegative ? -fValue : fValue;
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
