#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Diagnostics/CaughtReader.h"

#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace
{

using namespace Support;

const std::string c_strFull =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- all -->\n<VORN version=\"1.0\">\n<DEV name=\"IO &amp; BOX\" id='-15'>\n"
    "<p i=\"0\" v=\"1.23e+03\" e=\"0\"/>\n<p i='137' v='&lt;&#x20ac;&gt;' e=''></p>text<![CDATA[<p/>]]><?a b?>\n"
    "<p xmlns:x=\"urn:x\" x:i=\"4\" i=\"5\" v=\"a\tb\" e=\"\xc3\xa9\"/></DEV>\n</VORN>\n";

// What an operation makes of a report, and what the reader then holds.
struct stOutcome
{
    bool bGood;
    std::string strPrinted;
    std::map<int, std::string> map;
};

std::string Attribute(xmlNodePtr pNode, const std::string& strName, bool& bPresent)
{
    xmlChar* pText = xmlGetProp(pNode, reinterpret_cast<const xmlChar*>(strName.c_str()));
    bPresent = bPresent && pText != nullptr;
    const std::string strText = pText == nullptr ? "" : reinterpret_cast<const char*>(pText);
    xmlFree(pText);
    return strText;
}

// What a reader without parameters has to make of a document, which may be none.
stOutcome Judge(xmlDocPtr pDocument)
{
    if (pDocument == nullptr || xmlGetIntSubset(pDocument) != nullptr)
    {
        return {false, c_strNull, {}};
    }
    const xmlNodePtr pRoot = xmlDocGetRootElement(pDocument);
    if (std::string(reinterpret_cast<const char*>(pRoot->name)) != "VORN")
    {
        return {false, c_strWrongRoot, {}};
    }
    xmlNodePtr pDevice = pRoot->children;
    if (pDevice != nullptr && pDevice->type != XML_ELEMENT_NODE)
    {
        pDevice = pDevice->next;
    }
    bool bPresent = true;
    const std::string strName = Attribute(pDevice, "name", bPresent);
    Attribute(pDevice, "id", bPresent);
    if (!bPresent)
    {
        return {false, c_strBadDevice, {}};
    }
    stOutcome outcome = {true, "", {}};
    for (xmlNodePtr pNode = xmlFirstElementChild(pDevice); pNode != nullptr; pNode = xmlNextElementSibling(pNode))
    {
        const XMLDiagnostics::XMLElement element = {Attribute(pNode, "i", bPresent), Attribute(pNode, "v", bPresent),
                                                    Attribute(pNode, "e", bPresent)};
        if (!bPresent)
        {
            return {false, c_strIncomplete + NoElementsInMap(strName), {}};
        }
        outcome.map[XMLDiagnostics::string2Int(element.i)] = All(element);
    }
    return outcome.map.empty() ? stOutcome{false, NoElementsInMap(strName), {}} : outcome;
}

void Forget(void*, const char*, ...) {}

// What the XML library makes of a report by its own defaults. What it has to say to that goes nowhere.
stOutcome Judge(const std::string& strReport)
{
    xmlSetGenericErrorFunc(nullptr, &Forget);
    const xmlDocPtr pDocument = xmlReadMemory(strReport.data(), static_cast<int>(strReport.size()), nullptr, nullptr,
                                              XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_IGNORE_ENC);
    const stOutcome outcome = Judge(pDocument);
    xmlFreeDoc(pDocument);
    xmlSetGenericErrorFunc(nullptr, nullptr);
    return outcome;
}

class DamagedReports : public CCaughtReader
{
protected:
    // Parses each of them, and a good report after it.
    void TryAll(const std::vector<std::string>& reports)
    {
        std::vector<stOutcome> expected;
        std::string strExpected;
        for (const std::string& strReport : reports)
        {
            expected.push_back(Judge(strReport));
            strExpected += expected.back().strPrinted;
        }
        Catch(
            [&]
            {
                for (std::size_t unReport = 0; unReport < reports.size(); ++unReport)
                {
                    Try(reports[unReport], expected[unReport]);
                }
                return true;
            });
        EXPECT_EQ(strExpected, m_strPrinted);
    }

    // In a buffer of just its size, so that a byte too far is seen.
    bool ParseBytes(const std::string& strReport)
    {
        std::vector<char> buffer(strReport.begin(), strReport.end());
        return m_Reader.parseAndPopulateMap(buffer.data(), static_cast<int>(buffer.size()));
    }

    void Try(const std::string& strReport, const stOutcome& expected)
    {
        m_Reader.ClearMap();
        EXPECT_EQ(expected.bGood, ParseBytes(strReport)) << strReport.substr(0, 200);
        std::map<int, std::string> map;
        for (const auto& entry : m_Reader.GetMap())
        {
            map[entry.first] = All(entry.second);
        }
        EXPECT_EQ(expected.map, map) << strReport.substr(0, 200);
        EXPECT_TRUE(ParseBytes(c_strGood)) << strReport.substr(0, 200);
        EXPECT_EQ("7|1|2", All(m_Reader.get_at(7)));
    }
};

std::string Mutation(std::mt19937& random)
{
    static const std::string s_astrPieces[] = {"<",
                                               ">",
                                               "/>",
                                               "\"",
                                               "'",
                                               "&",
                                               "&lt;",
                                               "&#0;",
                                               "&#x10ffff;",
                                               "]]>",
                                               "<![CDATA[",
                                               "<!--",
                                               "-->",
                                               "<?",
                                               "<?xml",
                                               "<!DOCTYPE VORN>",
                                               "<!DOCTYPE VORN [<!ENTITY a \"b\">]>",
                                               "&a;",
                                               "xmlns=\"urn:y\"",
                                               "x:",
                                               "<p/>",
                                               "<p i=\"1\" v=\"2\" e=\"3\"/>",
                                               "</DEV>",
                                               "<DEV>",
                                               "</VORN>",
                                               "\xff",
                                               "\xc3",
                                               std::string(1, '\0'),
                                               "\r\n",
                                               " "};
    std::string strReport = c_strFull;
    for (unsigned long ulChanges = 1 + random() % 4; ulChanges > 0; --ulChanges)
    {
        const std::size_t unAt = random() % (strReport.size() + 1);
        const std::size_t unFrom = random() % (strReport.size() + 1);
        const std::size_t unLength = random() % 24;
        switch (random() % 4)
        {
        case 0:
            strReport.insert(unAt, s_astrPieces[random() % (sizeof s_astrPieces / sizeof s_astrPieces[0])]);
            break;
        case 1:
            strReport.erase(unAt, unLength);
            break;
        case 2:
            strReport.insert(unAt, strReport.substr(unFrom, unLength));
            break;
        default:
            strReport.replace(unAt, 1, 1, static_cast<char>(static_cast<unsigned char>(random() % 256)));
            break;
        }
    }
    return strReport;
}

} // namespace

// ---- Size and shape -----------------------------------------------------------------------------------------------------------

TEST_F(DamagedReports, MayBeDeep)
{
    std::vector<std::string> reports;
    for (const int nDepth : {1, 100, 250, 253, 254, 255, 256, 257, 5000, 100000})
    {
        reports.push_back(Device(Repeat("<p i=\"1\" v=\"1\" e=\"1\">", nDepth) + Repeat("</p>", nDepth)));
        reports.push_back(Device(Repeat("<p>", nDepth)));
    }
    TryAll(reports);
}

TEST_F(DamagedReports, MayBeLong)
{
    std::vector<std::string> reports;
    for (const int nLength : {1000, 60000, 1000000, 9999990, 10000001})
    {
        const std::string strText(static_cast<std::size_t>(nLength), 'a');
        reports.push_back(Device(P(1, strText)));
        reports.push_back(Device(P(1) + strText));
        reports.push_back(Device("<" + strText.substr(0, 256) + " i=\"1\" v=\"1\" e=\"1\"/>"));
    }
    TryAll(reports);
    ASSERT_TRUE(Populate(reports[6]));
    EXPECT_EQ(std::string(1000000, 'a'), m_Reader.get_at(1).v);
    EXPECT_FALSE(Populate(reports[12])) << "beyond the XML library's limit";
    EXPECT_EQ(c_strNull, m_strPrinted);
}

TEST_F(DamagedReports, MayHaveManyOfEverything)
{
    std::string strAttributes;
    std::string strNamespaces;
    std::string strParameters;
    for (int nTime = 0; nTime < 3000; ++nTime)
    {
        strAttributes += nTime < 252 ? " a" + std::to_string(nTime) + "=\"b\"" : "";
        strNamespaces += nTime < 64 ? " xmlns:a" + std::to_string(nTime) + "=\"urn:" + std::to_string(nTime) + "\"" : "";
        strParameters += P(nTime * 7 - 9000);
    }
    TryAll({Device("<p i=\"1\" v=\"2\" e=\"3\"" + strAttributes + "/>"),
            Device("<p i=\"1\" v=\"2\" e=\"3\"" + strNamespaces + "/>"),
            Device("<p i=\"1\" v=\"2\" e=\"3\"" + strAttributes + " a0=\"b\"/>"), Device(strParameters),
            Device(Repeat("<!---->", 3000)), Device(Repeat("<?a?>", 3000) + P(1)), Repeat("<", 3000), Repeat("&", 3000),
            std::string(3000, '\0')});
}

TEST_F(DamagedReports, MayClaimAnyEncoding)
{
    std::vector<std::string> reports;
    for (const char* szEncoding : {"UTF-8", "utf-8", "UTF-16", "UTF-16LE", "UTF-16BE", "UTF-32", "UCS-4", "UTF-7", "ISO-8859-1",
                                   "ASCII", "EBCDIC-US", "IBM037", "Shift_JIS", "none", "", "-", "../../file"})
    {
        for (const char* szValue : {"a", "\xe9", "\xc3\xa9", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xff\xfe", "\x01"})
        {
            reports.push_back("<?xml version=\"1.0\" encoding=\"" + std::string(szEncoding) + "\"?>" + Device(P(1, szValue)));
        }
    }
    for (const char* szMark : {"\xef\xbb\xbf", "\xff\xfe", "\xfe\xff", "<", "\xef\xbb"})
    {
        reports.push_back(szMark + c_strGood);
    }
    for (const bool bBig : {false, true})
    {
        const std::string strWide = Wide(c_strGood, bBig);
        reports.push_back(strWide);
        reports.push_back(strWide.substr(2));
        reports.push_back(strWide.substr(0, strWide.size() - 1));
        reports.push_back(Wide("<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + c_strGood, bBig));
    }
    TryAll(reports);
}

// ---- Damage -------------------------------------------------------------------------------------------------------------------

TEST_F(DamagedReports, AreRefusedWhenTheyAreCut)
{
    ASSERT_TRUE(Populate(c_strFull));
    std::vector<std::string> reports;
    for (std::size_t unLength = 0; unLength <= c_strFull.size(); ++unLength)
    {
        reports.push_back(c_strFull.substr(0, unLength));
    }
    TryAll(reports);
}

TEST_F(DamagedReports, MayBeWrongInAnyByte)
{
    for (std::size_t unByte = 0; unByte < c_strGood.size(); ++unByte)
    {
        SCOPED_TRACE(unByte);
        std::vector<std::string> reports(255, c_strGood);
        for (unsigned int unChange = 1; unChange < 256; ++unChange)
        {
            char& c = reports[unChange - 1][unByte];
            c = static_cast<char>(static_cast<unsigned char>(c) ^ unChange);
        }
        TryAll(reports);
    }
}

TEST_F(DamagedReports, MayBeWrongInManyPlaces)
{
    std::mt19937 random(20101);
    for (int nRound = 0; nRound < 40; ++nRound)
    {
        SCOPED_TRACE(nRound);
        std::vector<std::string> reports;
        for (int nTime = 0; nTime < 100; ++nTime)
        {
            reports.push_back(Mutation(random));
        }
        TryAll(reports);
    }
}
