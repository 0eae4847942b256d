#include "Images/ShowFile.h"

#include "Support/InChild.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include <sqlite3.h>

namespace
{

std::vector<stShowBlock> Blocks(unsigned char ucFill)
{
    return {{"value", enRotary, std::vector<unsigned char>(1000, ucFill)},
            {"store", enRotary, std::vector<unsigned char>(20, 0x11)},
            {"value", enString, {0x00, 0xff, 0x0a}}};
}

class ShowFile : public ::testing::Test
{
protected:
    ShowFile()
        : m_Folder(std::filesystem::temp_directory_path() / ("shows-" + std::to_string(getpid()))), m_strFile(m_Folder / "shows")
    {
        std::filesystem::create_directory(m_Folder);
    }
    ~ShowFile() override { std::filesystem::remove_all(m_Folder); }

    std::string Save(const std::string& strName, unsigned char ucFill, bool bReplace = false)
    {
        CShowFile file;
        const std::string strError = file.Open(m_strFile, true);
        return strError.empty() ? file.Save(strName, Blocks(ucFill), bReplace) : strError;
    }

    std::string Load(const std::string& strName, std::vector<stShowBlock>& blocks)
    {
        CShowFile file;
        const std::string strError = file.Open(m_strFile, false);
        return strError.empty() ? file.Load(strName, blocks) : strError;
    }

    // The first byte of what a show's value block is filled with; -1 when the show can't be had.
    int Fill(const std::string& strName)
    {
        std::vector<stShowBlock> blocks;
        if (!Load(strName, blocks).empty())
        {
            return -1;
        }
        for (const stShowBlock& block : blocks)
        {
            if (block.strKind == "value" && block.enType == enRotary)
            {
                return block.bytes.at(0);
            }
        }
        return -1;
    }

    void Run(const char* szSQL)
    {
        sqlite3* pDatabase = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &pDatabase));
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(pDatabase, szSQL, nullptr, nullptr, nullptr)) << sqlite3_errmsg(pDatabase);
        sqlite3_close(pDatabase);
    }

    std::string ReadFile() const
    {
        std::ifstream file(m_strFile, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    void WriteFile(const std::string& strBytes) const
    {
        std::ofstream file(m_strFile, std::ios::binary | std::ios::trunc);
        file.write(strBytes.data(), static_cast<std::streamsize>(strBytes.size()));
    }

    const std::filesystem::path m_Folder;
    const std::string m_strFile;
};

TEST_F(ShowFile, GivesBackWhatWasSaved)
{
    ASSERT_EQ("", Save("Monday", 1));
    std::vector<stShowBlock> blocks;
    ASSERT_EQ("", Load("Monday", blocks));
    ASSERT_EQ(3u, blocks.size());
    for (const stShowBlock& saved : Blocks(1))
    {
        const auto same = [&](const stShowBlock& block)
        { return block.strKind == saved.strKind && block.enType == saved.enType && block.bytes == saved.bytes; };
        EXPECT_EQ(1, std::count_if(blocks.begin(), blocks.end(), same)) << saved.strKind;
    }
}

// As numbers that are the same on every machine, whatever a long holds there.
TEST_F(ShowFile, KeepsCheckSumsAsUnsignedNumbers)
{
    ASSERT_EQ("", Save("Monday", 1));
    sqlite3* pDatabase = nullptr;
    sqlite3_stmt* pStatement = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &pDatabase));
    ASSERT_EQ(SQLITE_OK,
              sqlite3_prepare_v2(pDatabase, "SELECT crc32 FROM block ORDER BY kind, message_type", -1, &pStatement, nullptr));
    for (const std::int64_t nExpected : {std::int64_t(2610984054u), std::int64_t(2360397182u), std::int64_t(501268548u)})
    {
        EXPECT_EQ(SQLITE_ROW, sqlite3_step(pStatement));
        EXPECT_EQ(nExpected, sqlite3_column_int64(pStatement, 0));
    }
    sqlite3_finalize(pStatement);
    sqlite3_close(pDatabase);
}

TEST_F(ShowFile, TwoThatStartItTogetherBothKeepTheirShow)
{
    CShowFile one;
    CShowFile other;
    ASSERT_EQ("", one.Open(m_strFile, true));
    ASSERT_EQ("", other.Open(m_strFile, true));
    EXPECT_EQ("", one.Save("Monday", Blocks(1), false));
    EXPECT_EQ("", other.Save("Tuesday", Blocks(2), false));
    EXPECT_EQ(1, Fill("Monday"));
    EXPECT_EQ(2, Fill("Tuesday"));
}

TEST_F(ShowFile, WhereNothingCanBeWrittenIsRefusedAtOnce)
{
    CShowFile file;
    EXPECT_EQ(m_strFile + "/no/shows: No such file or directory", file.Open(m_strFile + "/no/shows", true));
    EXPECT_EQ(m_Folder.string() + ": not a file", file.Open(m_Folder, true));
}

// A full disk: the file that was to be made is not there.
TEST_F(ShowFile, ThatCouldNotBeFilledIsNotLeftBehind)
{
    const auto run = [this]
    {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_FSIZE, &none);
        return Save("Tuesday", 2).empty() ? 1 : 0;
    };
    EXPECT_EQ(0, Support::InChild(run));
    EXPECT_FALSE(std::filesystem::exists(m_strFile));
    ASSERT_EQ("", Save("Monday", 1));
    const std::uintmax_t unSize = std::filesystem::file_size(m_strFile);
    EXPECT_EQ(0, Support::InChild(run));
    EXPECT_EQ(unSize, std::filesystem::file_size(m_strFile)) << "a file with shows stays as it was";
    EXPECT_EQ(1, Fill("Monday"));
}

// Another program may have told the database to keep a log beside it.
TEST_F(ShowFile, IsOneFileWhateverItWasSetTo)
{
    ASSERT_EQ("", Save("Monday", 1));
    Run("PRAGMA journal_mode = WAL");
    CShowFile file;
    ASSERT_EQ("", file.Open(m_strFile, true));
    std::filesystem::remove(m_strFile);
    EXPECT_NE("", file.Save("Tuesday", Blocks(2), false));
}

TEST_F(ShowFile, ReplacesAShowOnlyWhenTold)
{
    ASSERT_EQ("", Save("Monday", 1));
    EXPECT_EQ(m_strFile + ": there is a show \"Monday\" already", Save("Monday", 2));
    EXPECT_EQ(1, Fill("Monday"));
    EXPECT_EQ("", Save("Monday", 2, true));
    EXPECT_EQ(2, Fill("Monday"));
}

TEST_F(ShowFile, KeepsShowsApart)
{
    ASSERT_EQ("", Save("Monday", 1));
    ASSERT_EQ("", Save("Tuesday'; DROP TABLE show; --", 2));
    EXPECT_EQ(1, Fill("Monday"));
    EXPECT_EQ(2, Fill("Tuesday'; DROP TABLE show; --"));
    CShowFile file;
    ASSERT_EQ("", file.Open(m_strFile, false));
    EXPECT_EQ("", file.Delete("Monday"));
    EXPECT_EQ(m_strFile + ": there is no show \"Monday\"", file.Delete("Monday"));
    EXPECT_EQ(2, Fill("Tuesday'; DROP TABLE show; --"));
    std::vector<stShowEntry> entries;
    ASSERT_EQ("", file.List(entries));
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ(40, entries[0].nStored);
    EXPECT_EQ(19u, entries[0].strSaved.size());
}

TEST_F(ShowFile, IsNotMadeByLooking)
{
    CShowFile file;
    EXPECT_EQ(m_strFile + ": there is no such file", file.Open(m_strFile, false));
    EXPECT_FALSE(std::filesystem::exists(m_strFile));
    {
        CShowFile fresh;
        EXPECT_EQ("", fresh.Open(m_strFile, true));
    }
    EXPECT_FALSE(std::filesystem::exists(m_strFile)) << "no show was saved";
}

TEST_F(ShowFile, OfAnotherLayoutIsRefusedAndLeftAlone)
{
    for (const char* szSQL :
         {"PRAGMA user_version = 2", "PRAGMA application_id = 1", "CREATE TABLE more (x)", "DROP TABLE block",
          "CREATE TRIGGER evil AFTER INSERT ON show BEGIN DELETE FROM show; END", "CREATE VIEW evil AS SELECT * FROM show",
          "CREATE INDEX evil ON show (saved)", "ALTER TABLE show ADD COLUMN more"})
    {
        std::filesystem::remove(m_strFile);
        ASSERT_EQ("", Save("Monday", 1));
        Run(szSQL);
        const std::string strBefore = ReadFile();
        std::vector<stShowBlock> blocks;
        EXPECT_EQ(m_strFile + ": not a show file", Load("Monday", blocks)) << szSQL;
        EXPECT_EQ(m_strFile + ": not a show file", Save("Tuesday", 2)) << szSQL;
        EXPECT_TRUE(blocks.empty());
        EXPECT_EQ(strBefore, ReadFile()) << szSQL;
    }
}

// Checks of a foreign table are not evaluated, whatever they cost.
TEST_F(ShowFile, WithEndlessChecksIsRefusedAtOnce)
{
    ASSERT_EQ("", Save("Monday", 1));
    Run("CREATE TABLE slow (a, CHECK (instr(hex(zeroblob(250000 + a)), hex(zeroblob(125000)) || '1') = 0));"
        "PRAGMA ignore_check_constraints = 1;"
        "WITH RECURSIVE rows(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM rows WHERE n < 2000) INSERT INTO slow SELECT n FROM rows");
    std::vector<stShowBlock> blocks;
    EXPECT_EQ(m_strFile + ": not a show file", Load("Monday", blocks));
}

// A block is refused by the file in the middle of a save, as a full disk would: all of the save is undone.
TEST_F(ShowFile, StopsAtTheFirstBlockThatCantBeWritten)
{
    ASSERT_EQ("", Save("Monday", 1));
    std::vector<stShowBlock> blocks = Blocks(2);
    blocks.insert(blocks.begin() + 1, {"value", enOther, std::vector<unsigned char>(2 << 20)}); // longer than any value may be
    CShowFile file;
    ASSERT_EQ("", file.Open(m_strFile, true));
    EXPECT_EQ(m_strFile + ": string or blob too big", file.Save("Tuesday", blocks, false));
    EXPECT_EQ("", file.Save("Tuesday", Blocks(3), false));
    EXPECT_EQ(1, Fill("Monday"));
    EXPECT_EQ(3, Fill("Tuesday"));
}

TEST_F(ShowFile, IsAFileWhateverItsNameMeansElsewhere)
{
    EXPECT_EQ("a show file needs a name", CShowFile().Open("", true));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_Folder);
    for (const char* szName : {":memory:", "file:shows?mode=memory"})
    {
        CShowFile file;
        EXPECT_EQ("", file.Open(szName, true));
        EXPECT_EQ("", file.Save("Monday", Blocks(1), false));
        EXPECT_TRUE(std::filesystem::is_regular_file(m_Folder / szName));
    }
    std::filesystem::current_path(before);
}

TEST_F(ShowFile, WithAChangedBlockIsNotLoaded)
{
    ASSERT_EQ("", Save("Monday", 1));
    Run("UPDATE block SET bytes = zeroblob(1000) WHERE kind = 'value' AND message_type = 1");
    std::vector<stShowBlock> blocks;
    EXPECT_EQ(m_strFile + ": show \"Monday\" is damaged: the check sum of a block is wrong", Load("Monday", blocks));
}

// Wherever a file was cut, or a byte of it changed, the show is what was saved, or an error.
TEST_F(ShowFile, DamagedAnywhereGivesTheShowOrAnError)
{
    ASSERT_EQ("", Save("Monday", 7));
    const std::string strGood = ReadFile();
    int nErrors = 0;
    for (std::size_t unPlace = 0; unPlace < strGood.size(); unPlace += 37)
    {
        std::string strBad = strGood;
        strBad[unPlace] = static_cast<char>(strBad[unPlace] ^ 0x55);
        for (const std::string& strBytes : {strBad, strGood.substr(0, unPlace)})
        {
            WriteFile(strBytes);
            std::vector<stShowBlock> blocks;
            const std::string strError = Load("Monday", blocks);
            nErrors += strError.empty() ? 0 : 1;
            EXPECT_EQ(std::string::npos, strError.find('\n')) << strError;
            for (const stShowBlock& block : blocks)
            {
                const std::vector<stShowBlock> saved = Blocks(7);
                EXPECT_TRUE(!strError.empty() || std::any_of(saved.begin(), saved.end(),
                                                             [&](const stShowBlock& known) { return known.bytes == block.bytes; }))
                    << unPlace;
            }
        }
    }
    EXPECT_GT(nErrors, 100);
}

TEST_F(ShowFile, InUseByAnotherIsNotWrittenTo)
{
    ASSERT_EQ("", Save("Monday", 1));
    sqlite3* pOther = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &pOther));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(pOther, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr));
    EXPECT_EQ(m_strFile + ": database is locked", Save("Tuesday", 2));
    sqlite3_close(pOther);
    EXPECT_EQ(1, Fill("Monday"));
}

TEST_F(ShowFile, LeftInTheMiddleOfASaveHoldsWhatItHeldBefore)
{
    ASSERT_EQ("", Save("Monday", 1));
    // What a save that was cut off leaves: a journal, and pages half written.
    sqlite3* pOther = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &pOther));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(pOther,
                                      "PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN; DELETE FROM block; "
                                      "INSERT INTO block VALUES (9, 'value', 1, 0, randomblob(500000))",
                                      nullptr, nullptr, nullptr));
    const std::string strHalf = ReadFile();
    std::filesystem::copy_file(m_strFile + "-journal", m_strFile + "-kept");
    sqlite3_close(pOther);
    WriteFile(strHalf);
    std::filesystem::rename(m_strFile + "-kept", m_strFile + "-journal");
    EXPECT_EQ(1, Fill("Monday"));
}

} // namespace
