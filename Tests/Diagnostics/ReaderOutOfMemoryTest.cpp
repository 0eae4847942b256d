#include "Diagnostics/DiagnosticsXMLReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlmemory.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// Memory that runs out: of the XML library and of operator new. Both are counted together, and only while it is asked for.
namespace
{

long g_lAllowed = LONG_MAX; // allocations that still succeed
bool g_bForGood = false;    // none succeeds after the one that fails
bool g_bFailed = false;
bool g_bXMLCounts = true; // the XML library's allocations fail as well
long g_lLive = 0;         // blocks that the XML library holds

bool MayAllocate()
{
    if (g_lAllowed == LONG_MAX || --g_lAllowed >= 0)
    {
        return true;
    }
    const bool bFail = g_bForGood || !g_bFailed;
    g_bFailed = true;
    return !bFail;
}

void* Count(void* pBlock)
{
    g_lLive += pBlock == nullptr ? 0 : 1;
    return pBlock;
}

void* Allocate(std::size_t unSize)
{
    return !g_bXMLCounts || MayAllocate() ? Count(std::malloc(unSize)) : nullptr;
}

void Free(void* pBlock)
{
    g_lLive -= pBlock == nullptr ? 0 : 1;
    std::free(pBlock);
}

void* Reallocate(void* pBlock, std::size_t unSize)
{
    if (pBlock == nullptr)
    {
        return Allocate(unSize);
    }
    return !g_bXMLCounts || MayAllocate() ? std::realloc(pBlock, unSize) : nullptr;
}

char* Duplicate(const char* szText)
{
    const std::size_t unSize = std::strlen(szText) + 1;
    void* pCopy = Allocate(unSize);
    return pCopy == nullptr ? nullptr : static_cast<char*>(std::memcpy(pCopy, szText, unSize));
}

void* New(std::size_t unSize)
{
    void* pBlock = MayAllocate() ? std::malloc(unSize == 0 ? 1 : unSize) : nullptr;
    if (pBlock == nullptr)
    {
        throw std::bad_alloc();
    }
    return pBlock;
}

void* NewOrNull(std::size_t unSize) noexcept
{
    return MayAllocate() ? std::malloc(unSize == 0 ? 1 : unSize) : nullptr;
}

} // namespace

// clang-format off
void* operator new(std::size_t unSize) { return New(unSize); }
void* operator new[](std::size_t unSize) { return New(unSize); }
void* operator new(std::size_t unSize, const std::nothrow_t&) noexcept { return NewOrNull(unSize); }
void* operator new[](std::size_t unSize, const std::nothrow_t&) noexcept { return NewOrNull(unSize); }
void operator delete(void* pBlock) noexcept { std::free(pBlock); }
void operator delete[](void* pBlock) noexcept { std::free(pBlock); }
void operator delete(void* pBlock, std::size_t) noexcept { std::free(pBlock); }
void operator delete[](void* pBlock, std::size_t) noexcept { std::free(pBlock); }
void operator delete(void* pBlock, const std::nothrow_t&) noexcept { std::free(pBlock); }
void operator delete[](void* pBlock, const std::nothrow_t&) noexcept { std::free(pBlock); }
// clang-format on

namespace
{

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
    g_bForGood = bForGood;
    g_bFailed = false;
    g_lAllowed = lAllowed;
    try
    {
        run.bParsed = Parse(reader, strBuffer);
        reader.parseAndCheckForValidMessage(&strBuffer[0], static_cast<int>(strBuffer.size()));
        g_bXMLCounts = false; // its compiler of schemas doesn't survive that
        run.bValid = reader.validate(SCHEMA_FILE);
    }
    catch (...)
    {
        run.bThrown = true;
    }
    g_lAllowed = LONG_MAX;
    g_bXMLCounts = true;
    run.bFailed = g_bFailed;
    for (const auto& entry : reader.GetMap())
    {
        run.values.push_back(std::to_string(entry.first) + entry.second.i + entry.second.v + entry.second.e);
    }
    run.bGoodAfter = Parse(reader, strGood) && reader.get_at(8).e == "another one that is longer than that" &&
                     std::strcmp(reader.GetDeviceType(), "Condor Router AES50 Port") == 0 && reader.GetDeviceID() == 3 &&
                     reader.validate(SCHEMA_FILE) && reader.GetError().empty();
    return run;
}

// Which report, and whether memory stays away.
class ReaderOutOfMemory : public testing::TestWithParam<std::tuple<std::string, bool>>
{
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(0, xmlMemSetup(&Free, &Allocate, &Reallocate, &Duplicate));
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
    const long lLive = g_lLive;
    std::vector<std::string> wrong;
    long lAllowed = 0;
    for (bool bFailed = true; bFailed; ++lAllowed)
    {
        const stRun run = ParseWith(strReport, lAllowed, std::get<1>(GetParam()));
        xmlResetLastError();
        bFailed = run.bFailed;
        const std::pair<const char*, bool> checks[] = {{"something is thrown", run.bThrown},
                                                       {"the next report fails", !run.bGoodAfter},
                                                       {"a bad report is taken", run.bParsed && !enough.bParsed},
                                                       {"parameters are lost", run.bParsed && run.values != enough.values},
                                                       {"an invalid report is valid", run.bValid && !enough.bValid},
                                                       {"memory is lost", g_lLive != lLive}};
        for (const auto& check : checks)
        {
            if (check.second)
            {
                wrong.push_back(std::to_string(lAllowed) + ": " + check.first);
            }
        }
        g_lLive = lLive;
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
