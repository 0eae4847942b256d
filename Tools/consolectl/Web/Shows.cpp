#include "Web/Shows.h"

#include "Images/Difference.h"
#include "Images/ShowFile.h"
#include "Images/ShowScope.h"

#include <algorithm>
#include <memory>

namespace
{

constexpr std::chrono::milliseconds c_ReadPeriod(1000);
constexpr std::chrono::milliseconds c_ComparisonPeriod(200);
constexpr std::chrono::milliseconds c_LongestTurn(500); // of one who waits: whoever hasn't asked again for so long is gone
constexpr std::chrono::milliseconds c_NoPatience(0);

unsigned char MarkOf(const CBMAContainer& show, const stAddress& address)
{
    return static_cast<unsigned char>((IsStored(show, address) ? enMarkStored : 0) |
                                      (IsRecalled(show, address) ? enMarkRecalled : 0));
}

// What a show says of each parameter, and what its recall would do now.
std::vector<unsigned char> MakeMarks(const CBMAContainer& live, CBMAContainer& show, const std::vector<stPattern>& safe)
{
    std::vector<unsigned char> marks;
    marks.reserve(static_cast<std::size_t>(c_nParameters));
    ForEachParameter(c_EveryParameter, [&](const stAddress& address) { marks.push_back(MarkOf(show, address)); });
    const auto mark = [&](const stAddress& address, enMark enAdded)
    {
        unsigned char& ucMark = marks[ParameterNumber(address)];
        ucMark = static_cast<unsigned char>(ucMark | ((ucMark & enMarkStored) != 0 ? enAdded : 0));
    };
    for (const stAddress& address : FindDifferences(live, show))
    {
        mark(address, enMarkDiffers);
    }
    for (const stAddress& address : FindDifferences(live, *MakeRecalled(live, show, safe)))
    {
        mark(address, enMarkMoves);
    }
    return marks;
}

} // namespace

std::string CShows::Read()
{
    CShowFile file(c_NoPatience);
    std::vector<stShowEntry> entries;
    std::string strError = file.Open(m_strFile, false);
    strError = strError.empty() ? file.List(entries) : strError;
    m_NextRead = tSteadyClock::now() + c_ReadPeriod;
    if (!strError.empty()) // they stay as they were
    {
        return strError;
    }
    m_Names.clear();
    std::transform(entries.begin(), entries.end(), std::back_inserter(m_Names),
                   [](const stShowEntry& entry) { return entry.strName; });
    return strError;
}

const std::vector<std::string>& CShows::GetNames()
{
    if (tSteadyClock::now() >= m_NextRead)
    {
        Read();
    }
    return m_Names;
}

// One after another, in the order in which they first asked.
bool CShows::IsNext(const std::string& strName)
{
    const auto now = tSteadyClock::now();
    const auto own = std::find_if(m_Asked.begin(), m_Asked.end(), [&](const stAsked& asked) { return asked.strName == strName; });
    if (own == m_Asked.end())
    {
        m_Asked.push_back({strName, now});
    }
    else
    {
        own->lastAsked = now;
    }
    const auto isGone = [&](const stAsked& asked) { return now - asked.lastAsked > c_LongestTurn; };
    m_Asked.erase(std::remove_if(m_Asked.begin(), m_Asked.end(), isGone), m_Asked.end());
    if (now < m_NextComparison || m_Asked.front().strName != strName)
    {
        return false;
    }
    m_Asked.erase(m_Asked.begin());
    return true;
}

bool CShows::Compare(const std::string& strName, const CBMAContainer& live, tFrame& pFrame, std::string& strError)
{
    const bool bFresh = strName == m_strCompared && tSteadyClock::now() < m_NextComparison;
    if (!bFresh && !IsNext(strName))
    {
        return false;
    }
    if (!bFresh)
    {
        const auto pShow = std::make_unique<CBMAContainer>();
        m_strCompared = strName;
        m_strError = ReadShow(m_strFile, strName, *pShow, c_NoPatience);
        m_pCompared = m_strError.empty() ? MakeShowFrame(MakeMarks(live, *pShow, m_Safe), *pShow) : nullptr;
        m_NextComparison = tSteadyClock::now() + c_ComparisonPeriod;
    }
    pFrame = m_pCompared;
    strError = m_strError;
    return true;
}
