#include "Terminal/Command.h"

#include "Terminal/Common.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <limits>

namespace
{

std::string NumberText(double dNumber)
{
    return Format("%.10g", dNumber);
}

std::string OutOfRange(const std::string& strText, double dLow, double dHigh)
{
    return "Value " + strText + " not in range " + NumberText(dLow) + " to " + NumberText(dHigh);
}

// What ReadNumber can't read is told before it is asked to.
template <class Number>
Number ReadNumber(const std::string& strText)
{
    Number value = 0;
    ParseNumber(strText, value);
    return value;
}

template <class Number>
std::string CheckNumber(const std::string& strText)
{
    Number value = 0;
    if (ParseNumber(strText, value))
    {
        return "";
    }
    typedef std::numeric_limits<Number> tLimits;
    const bool bDigits = !strText.empty() && strText.find_first_not_of("0123456789", strText[0] == '-') == std::string::npos;
    return tLimits::is_integer && bDigits ? OutOfRange(strText, tLimits::min(), tLimits::max())
                                          : "\"" + strText + "\" is no " + (tLimits::is_integer ? "whole " : "") + "number";
}

} // namespace

COption COption::Type(const std::string& strName)
{
    m_pOption->type_name(strName);
    return *this;
}

COption COption::OneOf(const std::vector<std::string>& values)
{
    return Type(Joined(values, "|"))
        .Check(
            [values](const std::string& strText)
            {
                const bool bOne = std::find(values.begin(), values.end(), strText) != values.end();
                return bOne ? "" : "\"" + strText + "\" is none of " + Joined(values, ", ");
            });
}

COption COption::Within(double dLow, double dHigh)
{
    const auto wrong = [=](const std::string& strText)
    {
        const double dValue = ReadNumber<double>(strText);
        return dValue >= dLow && dValue <= dHigh ? "" : OutOfRange(strText, dLow, dHigh);
    };
    m_pOption->check(CLI::Validator(wrong, NumberText(dLow) + " to " + NumberText(dHigh)));
    return *this;
}

COption COption::Check(const std::function<std::string(const std::string&)>& wrong)
{
    m_pOption->check(CLI::Validator(wrong, ""));
    return *this;
}

COption COption::Default(const std::string& strText)
{
    m_pOption->default_str(strText);
    return *this;
}

COption COption::Required()
{
    m_pOption->required();
    return *this;
}

COption COption::Repeated()
{
    m_pOption->take_all()->allow_extra_args(false);
    return *this;
}

COption COption::Excludes(const COption& other)
{
    m_pOption->excludes(other.m_pOption);
    return *this;
}

CCommand CCommand::Add(const char* szName, const std::string& strWhat)
{
    m_pApp->require_subcommand(1);
    return CCommand(*m_pApp->add_subcommand(szName, strWhat), *m_pStatus);
}

COption CCommand::Option(const std::string& strName, std::string& strValue, const std::string& strWhat)
{
    return COption(*m_pApp->add_option(strName, strValue, strWhat)->capture_default_str());
}

COption CCommand::Option(const std::string& strName, std::vector<std::string>& values, const std::string& strWhat)
{
    return COption(*m_pApp->add_option(strName, values, strWhat));
}

template <class Number>
COption CCommand::NumberOption(const std::string& strName, Number& value, const std::string& strWhat)
{
    const auto take = [&value](const std::string& strText) { value = ReadNumber<Number>(strText); };
    return Option(strName, std::function<void(const std::string&)>(take), strWhat)
        .Type("NUMBER")
        .Check(CheckNumber<Number>)
        .Default(NumberText(value));
}

COption CCommand::Option(const std::string& strName, int& nValue, const std::string& strWhat)
{
    return NumberOption(strName, nValue, strWhat);
}

COption CCommand::Option(const std::string& strName, unsigned int& unValue, const std::string& strWhat)
{
    return NumberOption(strName, unValue, strWhat);
}

COption CCommand::Option(const std::string& strName, double& dValue, const std::string& strWhat)
{
    return NumberOption(strName, dValue, strWhat);
}

COption CCommand::Option(const std::string& strName, const std::function<void(const std::string&)>& take,
                         const std::string& strWhat)
{
    return COption(*m_pApp->add_option_function<std::string>(strName, take, strWhat));
}

COption CCommand::Option(const std::string& strName, const std::function<void(double)>& take, const std::string& strWhat)
{
    const auto takeText = [take](const std::string& strText) { take(ReadNumber<double>(strText)); };
    return Option(strName, std::function<void(const std::string&)>(takeText), strWhat).Type("NUMBER").Check(CheckNumber<double>);
}

COption CCommand::Flag(const std::string& strName, bool& bValue, const std::string& strWhat)
{
    return COption(*m_pApp->add_flag(strName, bValue, strWhat));
}

void CCommand::Rest(std::vector<std::string>& words)
{
    m_pApp->allow_extras();
    m_pApp->parse_complete_callback([pApp = m_pApp, &words] { words = pApp->remaining(); });
}

void CCommand::Footer(const std::string& strText)
{
    m_pApp->footer(strText);
}

void CCommand::Hide()
{
    m_pApp->group("");
}

void CCommand::Runs(const std::function<int()>& run)
{
    m_pApp->callback([run, pStatus = m_pStatus] { *pStatus = run(); });
}

void CCommand::RunsUntilStopped(const std::function<int()>& run)
{
    Runs(
        [run]
        {
            CatchStopSignals();
            return run();
        });
}
