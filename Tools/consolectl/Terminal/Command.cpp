#include "Terminal/Command.h"

#include "Terminal/Common.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

constexpr char c_cShield = '\x01';

std::string NumberText(double dNumber)
{
    return Format("%.10g", dNumber);
}

std::string OutOfRange(const std::string& strText, double dLow, double dHigh)
{
    return "Value " + strText + " not in range " + NumberText(dLow) + " to " + NumberText(dHigh);
}

// What is no number has been told before. One that the type can't take is outside its range, whatever the option's own.
template <class Number>
Number ReadNumber(const std::string& strName, const std::string& strText)
{
    typedef std::numeric_limits<Number> tLimits;
    Number value = 0;
    if (!ParseNumber(strText, value))
    {
        throw CLI::ValidationError(
            strName, OutOfRange(strText, static_cast<double>(tLimits::lowest()), static_cast<double>(tLimits::max())));
    }
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
    constexpr bool c_bWhole = std::numeric_limits<Number>::is_integer;
    return c_bWhole && IsWholeNumber(strText) ? "" : "\"" + strText + "\" is no " + (c_bWhole ? "whole " : "") + "number";
}

} // namespace

COption COption::Type(const std::string& strName)
{
    m_pOption->type_name(strName);
    return *this;
}

COption COption::File()
{
    return Type("FILE").Check([](const std::string& strFile) { return std::string(strFile.empty() ? "no file is named" : ""); });
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
        double dValue = std::nan(""); // of what no number can hold
        ParseNumber(strText, dValue);
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

std::vector<std::string> CCommand::Shielded(int nArguments, char** ppArguments)
{
    std::vector<std::string> words;
    bool bOptions = true;
    for (int nArgument = 1; nArgument < nArguments; ++nArgument)
    {
        const std::string strWord = ppArguments[nArgument];
        const bool bShield = !bOptions || strWord[0] == '[' || strWord[0] == c_cShield;
        const bool bLast = bOptions && strWord == "--";
        bOptions = bOptions && !bLast;
        if (!bLast)
        {
            words.push_back(bShield ? c_cShield + strWord : strWord);
        }
    }
    std::reverse(words.begin(), words.end()); // as the parser has them
    return words;
}

std::string CCommand::Unshielded(const std::string& strWord)
{
    return strWord[0] == c_cShield ? strWord.substr(1) : strWord;
}

COption CCommand::Made(CLI::Option* pOption)
{
    const auto unshield = [](std::string& strText)
    {
        strText = Unshielded(strText);
        return std::string();
    };
    pOption->transform(CLI::Validator(unshield, ""));
    return COption(*pOption);
}

CCommand CCommand::Add(const char* szName, const std::string& strWhat)
{
    m_pApp->require_subcommand(1);
    return CCommand(*m_pApp->add_subcommand(szName, strWhat), *m_pStatus);
}

COption CCommand::Option(const std::string& strName, std::string& strValue, const std::string& strWhat)
{
    return Made(m_pApp->add_option(strName, strValue, strWhat)->capture_default_str());
}

COption CCommand::Option(const std::string& strName, std::vector<std::string>& values, const std::string& strWhat)
{
    return Made(m_pApp->add_option(strName, values, strWhat));
}

template <class Number>
COption CCommand::NumberOption(const std::string& strName, Number& value, const std::string& strWhat)
{
    const auto take = [strName, &value](const std::string& strText) { value = ReadNumber<Number>(strName, strText); };
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
    return Made(m_pApp->add_option_function<std::string>(strName, take, strWhat));
}

COption CCommand::Option(const std::string& strName, const std::function<void(double)>& take, const std::string& strWhat)
{
    const auto takeText = [strName, take](const std::string& strText) { take(ReadNumber<double>(strName, strText)); };
    return Option(strName, std::function<void(const std::string&)>(takeText), strWhat).Type("NUMBER").Check(CheckNumber<double>);
}

COption CCommand::Flag(const std::string& strName, bool& bValue, const std::string& strWhat)
{
    return COption(*m_pApp->add_flag(strName, bValue, strWhat)->disable_flag_override());
}

void CCommand::Rest(std::vector<std::string>& words)
{
    m_pApp->allow_extras();
    m_pApp->parse_complete_callback(
        [pApp = m_pApp, &words]
        {
            words = pApp->remaining();
            std::transform(words.begin(), words.end(), words.begin(), Unshielded);
        });
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
