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
    CShowFile file;
    std::vector<stShowEntry> entries;
    std::string strError = file.Open(m_strFile, false);
    strError = strError.empty() ? file.List(entries) : strError;
    m_Names.clear();
    std::transform(entries.begin(), entries.end(), std::back_inserter(m_Names),
                   [](const stShowEntry& entry) { return entry.strName; });
    m_NextRead = tSteadyClock::now() + c_ReadPeriod;
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

bool CShows::Compare(const std::string& strName, const CBMAContainer& live, tFrame& pFrame, std::string& strError)
{
    if (tSteadyClock::now() < m_NextComparison)
    {
        return false;
    }
    const auto pShow = std::make_unique<CBMAContainer>();
    strError = ReadShow(m_strFile, strName, *pShow);
    if (strError.empty())
    {
        pFrame = MakeShowFrame(MakeMarks(live, *pShow, m_Safe), *pShow);
    }
    m_NextComparison = tSteadyClock::now() + c_ComparisonPeriod;
    return true;
}
