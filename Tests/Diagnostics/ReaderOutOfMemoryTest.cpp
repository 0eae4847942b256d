#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Faults/FailingAllocator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlmemory.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

using Faults::CShortage;

// The XML library's memory, which fails as operator new does; but not while schemas are compiled, which it doesn't survive.
bool g_bXMLFails = true;

template <class Result, class... Arguments>
Result Allocated(Result (*pAllocate)(Arguments...), Arguments... arguments)
{
    if (g_bXMLFails)
    {
        return pAllocate(arguments...);
    }
    const Faults::CPlenty plenty;
    return pAllocate(arguments...);
}

void* Allocate(std::size_t unSize)
{
    return Allocated(Faults::Allocate, unSize);
}

void* Reallocate(void* pBlock, std::size_t unSize)
{
    return Allocated(Faults::Reallocate, pBlock, unSize);
}

char* Duplicate(const char* szText)
{
    return Allocated(Faults::Duplicate, szText);
}

// Long enough that no text fits into a string object.
const std::string c_strReport =
    "<?xml version=\"1.0\"?><VORN version=\"1.0\"><DEV name=\"Condor Router AES50 Port\" id=\"3\">"
    "<p i=\"7\" v=\"a value that &amp; is longer than a small string\" e=\"another one that is longer than that\"/>"
    "<p i=\"8\" v=\"a value that is longer than a small string\" e=\"another one that is longer than that\"/></DEV></VORN>";
const std::string c_strIncomplete =
    "<VORN version=\"1.0\"><DEV name=\"Condor Router AES50 Port\" id=\"3\"><p i=\"7\"/></DEV></VORN>";
const std::string c_strBroken = "<VORN version=\"1.0\">\n<DEV name=\"Condor Router AES50 Port\" id=\"3\"><p></DEV></VORN>";
const std::string c_strNotValid =
    "<VORN version=\"1.0\"><DEV name=\"Condor Router AES50 Port\" id=\"x\"><p i=\"1\" v=\"\" e=\"\"/></DEV></VORN>";

// What becomes of one report in a reader of its own.
struct stRun
{
    bool bFailed; // an allocation did
    bool bThrown;
    bool bParsed;
    bool bValid;
    bool bGoodAfter;
    std::vector<std::string> values; // that were filed
};

bool Parse(diagnostics_xml_reader& reader, std::string& strReport)
{
    return reader.parseAndPopulateMap(&strReport[0], static_cast<int>(strReport.size()));
}

// Lets the allocation after this many fail, or all of them from there on. A kept lock would hang the good report after it.
stRun ParseWith(const std::string& strReport, long lAllowed, bool bForGood)
{
    stRun run = {};
    std::string strBuffer = strReport;
    std::string strGood = c_strReport;
    diagnostics_xml_reader reader;
    {
        const CShortage shortage(lAllowed, bForGood);
        try
        {
            run.bParsed = Parse(reader, strBuffer);
            reader.parseAndCheckForValidMessage(&strBuffer[0], static_cast<int>(strBuffer.size()));
            g_bXMLFails = false;
            run.bValid = reader.validate(SCHEMA_FILE);
        }
        catch (...)
        {
            run.bThrown = true;
        }
    }
    g_bXMLFails = true;
    run.bFailed = CShortage::HasStruck();
    for (const auto& entry : reader.GetMap())
    {
        run.values.push_back(std::to_string(entry.first) + entry.second.i + entry.second.v + entry.second.e);
    }
    run.bGoodAfter = Parse(reader, strGood) && reader.get_at(8).e == "another one that is longer than that" &&
                     std::strcmp(reader.GetDeviceType(), "Condor Router AES50 Port") == 0 && reader.GetDeviceID() == 3 &&
                     reader.validate(SCHEMA_FILE) && reader.GetError().empty();
    return run;
}

// Whether an allocation failed; and what is wrong with what came of it.
bool Judge(const stRun& run, const stRun& enough, long lAllowed, std::vector<std::string>& wrong)
{
    const std::pair<const char*, bool> checks[] = {{"something is thrown", run.bThrown},
                                                   {"the next report fails", !run.bGoodAfter},
                                                   {"a bad report is taken", run.bParsed && !enough.bParsed},
                                                   {"parameters are lost", run.bParsed && run.values != enough.values},
                                                   {"an invalid report is valid", run.bValid && !enough.bValid}};
    for (const auto& check : checks)
    {
        if (check.second)
        {
            wrong.push_back(std::to_string(lAllowed) + ": " + check.first);
        }
    }
    return run.bFailed;
}

// Which report, and whether memory stays away.
class ReaderOutOfMemory : public testing::TestWithParam<std::tuple<std::string, bool>>
{
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(0, xmlMemSetup(&Faults::Free, &Allocate, &Reallocate, &Duplicate));
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        for (const std::string& strReport : {c_strReport, c_strIncomplete, c_strBroken, c_strNotValid})
        {
            ParseWith(strReport, LONG_MAX, false); // whatever is made once and for all is made now
        }
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
    }
};

} // namespace

TEST_P(ReaderOutOfMemory, FailsAndWorksAgain)
{
    const std::string& strReport = std::get<0>(GetParam());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr(); // the XML library says there that memory is out
    const stRun enough = ParseWith(strReport, LONG_MAX, false);
    xmlResetLastError();
    std::vector<std::string> wrong;
    long lAllowed = 0;
    for (bool bFailed = true; bFailed; ++lAllowed)
    {
        const long lLive = Faults::LiveBlocks();
        bFailed = Judge(ParseWith(strReport, lAllowed, std::get<1>(GetParam())), enough, lAllowed, wrong);
        xmlResetLastError();
        if (wrong.empty() && Faults::LiveBlocks() != lLive)
        {
            wrong.push_back(std::to_string(lAllowed) + ": memory is lost");
        }
    }
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    EXPECT_THAT(wrong, testing::IsEmpty());
    EXPECT_LT(50, lAllowed) << "as many allocations there are at least";
}

INSTANTIATE_TEST_SUITE_P(Reports, ReaderOutOfMemory,
                         testing::Combine(testing::Values(c_strReport, c_strIncomplete, c_strBroken, c_strNotValid),
                                          testing::Bool()),
                         [](const auto& test) { return "Case" + std::to_string(test.index); });
