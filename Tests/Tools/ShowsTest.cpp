#include "Web/Shows.h"

#include "Images/ShowFile.h"
#include "Support/SystemCalls.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include <unistd.h>

namespace
{

class Shows : public ::testing::Test
{
protected:
    Shows()
        : m_Folder(std::filesystem::temp_directory_path() / ("web-shows-" + std::to_string(getpid()))),
          m_strFile((m_Folder / "shows").string()), m_Shows(m_strFile, {})
    {
        std::filesystem::create_directory(m_Folder);
        for (const char* szName : {"Monday", "Tuesday"})
        {
            const auto pImage = std::make_unique<CBMAContainer>();
            pImage->SetPPCStoreScope(enFader, enMicInput, 3, 0, 1);
            CShowFile file;
            EXPECT_EQ("", file.Open(m_strFile, true));
            EXPECT_EQ("", file.Save(szName, MakeShowBlocks(*pImage), false));
        }
    }
    ~Shows() override { std::filesystem::remove_all(m_Folder); }

    // What one who asks for a show gets now: "later", why not, or the first byte.
    std::string Ask(const std::string& strName)
    {
        tFrame pFrame;
        std::string strError;
        return !m_Shows.Compare(strName, m_Live, pFrame, strError) ? "later"
               : !strError.empty()                                 ? strError
                                                                   : std::to_string(pFrame->front());
    }

    // Those who have their turn when all ask, a frame after another.
    std::vector<std::string> Turns(const std::vector<std::string>& names, int nFrames)
    {
        std::vector<std::string> turns;
        for (int nFrame = 0; nFrame < nFrames; ++nFrame)
        {
            m_Time.Pass(std::chrono::milliseconds(33));
            for (const std::string& strName : names)
            {
                Ask(strName) == "later" ? void() : turns.push_back(strName);
            }
        }
        return turns;
    }

    Support::CSteadyTime m_Time;
    const std::filesystem::path m_Folder;
    const std::string m_strFile;
    CBMAContainer m_Live;
    CShows m_Shows;
};

} // namespace

TEST_F(Shows, AreReadAnewAfterAWhile)
{
    m_Time.Pass(std::chrono::seconds(10));
    EXPECT_EQ(std::vector<std::string>({"Monday", "Tuesday"}), m_Shows.GetNames());
    CShowFile file;
    ASSERT_EQ("", file.Open(m_strFile, false));
    ASSERT_EQ("", file.Delete("Monday"));
    EXPECT_EQ(2u, m_Shows.GetNames().size());
    m_Time.Pass(std::chrono::seconds(2));
    EXPECT_EQ(std::vector<std::string>({"Tuesday"}), m_Shows.GetNames());
}

TEST_F(Shows, WhoAsksForTheSameGetsTheSame)
{
    m_Time.Pass(std::chrono::seconds(10));
    EXPECT_EQ("3", Ask("Monday"));
    EXPECT_EQ("3", Ask("Monday"));
    EXPECT_EQ("later", Ask("Tuesday"));
    m_Time.Pass(std::chrono::milliseconds(250));
    EXPECT_EQ("3", Ask("Tuesday"));
}

TEST_F(Shows, WhoAskForOthersHaveTheirTurns)
{
    m_Time.Pass(std::chrono::seconds(10));
    const std::vector<std::string> turns = Turns({"Monday", "Tuesday", "Wednesday"}, 36);
    for (const char* szName : {"Monday", "Tuesday", "Wednesday"})
    {
        EXPECT_GE(std::count(turns.begin(), turns.end(), szName), 2) << szName;
    }
}

TEST_F(Shows, WhoHasLeftHoldsNobodyUp)
{
    m_Time.Pass(std::chrono::seconds(10));
    EXPECT_EQ("3", Ask("Monday"));
    EXPECT_EQ("later", Ask("Tuesday")); // and never again
    m_Time.Pass(std::chrono::milliseconds(250));
    EXPECT_EQ("later", Ask("Monday"));
    m_Time.Pass(std::chrono::milliseconds(400));
    EXPECT_EQ("3", Ask("Monday"));
}

// A server has no time to wait for somebody else's work.
TEST_F(Shows, AFileInUseIsSaidToBe)
{
    ASSERT_EQ("", m_Shows.Read());
    sqlite3* pOther = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &pOther));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(pOther, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr));
    const auto before = std::chrono::system_clock::now();
    m_Time.Pass(std::chrono::seconds(10));
    EXPECT_EQ(m_strFile + ": database is locked", Ask("Monday"));
    EXPECT_EQ(std::vector<std::string>({"Monday", "Tuesday"}), m_Shows.GetNames());
    EXPECT_LT(std::chrono::system_clock::now() - before, std::chrono::seconds(5)); // others wait for ten
    sqlite3_close(pOther);
    m_Time.Pass(std::chrono::milliseconds(250));
    EXPECT_EQ("3", Ask("Monday"));
    EXPECT_EQ("later", Ask("Sunday"));
    m_Time.Pass(std::chrono::milliseconds(250));
    EXPECT_EQ(m_strFile + ": there is no show \"Sunday\"", Ask("Sunday"));
}
