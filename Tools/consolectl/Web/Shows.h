// The shows of a file, held against the MC.
#pragma once

#include "Web/LiveView.h"

#include <map>
#include <string>
#include <vector>

// The file is read whenever somebody asks, so that shows that are saved meanwhile are there; but not more often than a few times a
// second, whoever asks, and nobody waits for a file that somebody else has locked. Who asks for the same show gets the same, and
// those who ask for different ones have their turns.
class CShows : public IShows
{
public:
    CShows(std::string strFile, std::vector<stPattern> safe) : m_strFile(std::move(strFile)), m_Safe(std::move(safe)) {}

    // Empty, or what is wrong with the file.
    std::string Read();

    const std::vector<std::string>& GetNames() override;
    bool Compare(const std::string& strName, const CBMAContainer& live, tFrame& pFrame, std::string& strError) override;

private:
    const std::string m_strFile;
    const std::vector<stPattern> m_Safe;
    struct stAsked
    {
        std::string strName;
        tSteadyClock::time_point lastAsked;
    };

    bool IsNext(const std::string& strName);

    std::vector<std::string> m_Names;
    std::vector<stAsked> m_Asked; // who waits longest first
    tSteadyClock::time_point m_NextRead = {};
    tSteadyClock::time_point m_NextComparison = {};
    std::string m_strCompared; // the last one, and what came of it
    tFrame m_pCompared;
    std::string m_strError;
};
