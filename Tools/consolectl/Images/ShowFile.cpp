#include "Images/ShowFile.h"

#include "Terminal/Common.h"

#include <boost/crc.hpp>

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>

#include <unistd.h>

namespace
{

constexpr int c_nApplicationId = 0x4c435348; // "LCSH"
constexpr int c_nLayout = 1;
constexpr int c_nLongestValue = 1 << 20;

// The whole layout, to the letter: a file with another one is refused.
constexpr const char* caTables[] = {
    "CREATE TABLE show (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, saved TEXT NOT NULL)",
    "CREATE TABLE block (show_id INTEGER NOT NULL, kind TEXT NOT NULL, message_type INTEGER NOT NULL, crc32 INTEGER NOT NULL, "
    "bytes BLOB NOT NULL, PRIMARY KEY (show_id, kind, message_type)) WITHOUT ROWID"};

std::uint32_t CheckSum(const std::vector<unsigned char>& bytes)
{
    boost::crc_32_type crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

int CountBits(const std::vector<unsigned char>& bytes)
{
    int nBits = 0;
    for (const unsigned char ucByte : bytes)
    {
        nBits += __builtin_popcount(ucByte);
    }
    return nBits;
}

std::string UTCText()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc = {};
    char acText[32];
    gmtime_r(&now, &utc);
    return std::string(acText, std::strftime(acText, sizeof acText, "%Y-%m-%d %H:%M:%S", &utc));
}

// Whether SQLite found what somebody had broken off.
bool g_bRolledBack = false;

void NoteRollback(void*, int nCode, const char*)
{
    g_bRolledBack = g_bRolledBack || nCode == SQLITE_NOTICE_RECOVER_ROLLBACK;
}

} // namespace

// A prepared statement, bound in order. After a failure it does nothing more and keeps the error.
class CShowFile::CStatement
{
public:
    CStatement(sqlite3* pDatabase, const char* szSQL) : m_pStatement(nullptr), m_nNext(1)
    {
        m_nResult = sqlite3_prepare_v2(pDatabase, szSQL, -1, &m_pStatement, nullptr);
    }
    ~CStatement() { sqlite3_finalize(m_pStatement); }
    CStatement(const CStatement&) = delete;
    CStatement& operator=(const CStatement&) = delete;

    CStatement& Bind(const std::string& strText)
    {
        return Bound(sqlite3_bind_text(m_pStatement, m_nNext, strText.data(), static_cast<int>(strText.size()), SQLITE_TRANSIENT));
    }
    CStatement& Bind(std::int64_t nNumber) { return Bound(sqlite3_bind_int64(m_pStatement, m_nNext, nNumber)); }
    CStatement& Bind(const std::vector<unsigned char>& bytes)
    {
        return Bound(sqlite3_bind_blob(m_pStatement, m_nNext, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT));
    }

    // True while there is a row.
    bool Step()
    {
        if (m_nResult == SQLITE_OK || m_nResult == SQLITE_ROW)
        {
            m_nResult = sqlite3_step(m_pStatement);
        }
        return m_nResult == SQLITE_ROW;
    }
    bool Failed() const { return m_nResult != SQLITE_OK && m_nResult != SQLITE_ROW && m_nResult != SQLITE_DONE; }

    std::int64_t Number(int nColumn) const { return sqlite3_column_int64(m_pStatement, nColumn); }
    std::string Text(int nColumn) const
    {
        const unsigned char* pText = sqlite3_column_text(m_pStatement, nColumn);
        return pText != nullptr ? reinterpret_cast<const char*>(pText) : "";
    }
    std::vector<unsigned char> Bytes(int nColumn) const
    {
        const unsigned char* pBytes = static_cast<const unsigned char*>(sqlite3_column_blob(m_pStatement, nColumn));
        return pBytes != nullptr ? std::vector<unsigned char>(pBytes, pBytes + sqlite3_column_bytes(m_pStatement, nColumn))
                                 : std::vector<unsigned char>();
    }

private:
    CStatement& Bound(int nResult)
    {
        ++m_nNext;
        if (m_nResult == SQLITE_OK)
        {
            m_nResult = nResult;
        }
        return *this;
    }

    sqlite3_stmt* m_pStatement;
    int m_nNext;
    int m_nResult;
};

void CShowFile::stCloser::operator()(sqlite3* pDatabase) const
{
    sqlite3_close(pDatabase);
}

CShowFile::CShowFile(std::chrono::milliseconds patience) : m_Patience(patience) {}

CShowFile::~CShowFile() = default;

std::string CShowFile::Open(const std::string& strFile, bool bCreate)
{
    m_strFile = strFile;
    std::error_code error;
    if (strFile.empty())
    {
        return "a show file needs a name";
    }
    std::string strWhyNot = WhyNoFile(strFile);
    if (strWhyNot.empty())
    {
        return OpenDatabase(bCreate);
    }
    if (!bCreate || std::filesystem::status(strFile, error).type() != std::filesystem::file_type::not_found)
    {
        return strWhyNot;
    }
    const std::filesystem::path folder = std::filesystem::path(strFile).parent_path();
    const bool bWritable = access(folder.empty() ? "." : folder.c_str(), W_OK) == 0;
    return bWritable ? std::string() : strFile + ": " + std::strerror(errno);
}

std::string CShowFile::OpenDatabase(bool bCreate)
{
    static const int s_nLog = sqlite3_config(SQLITE_CONFIG_LOG, NoteRollback, nullptr); // once, before all else
    (void)s_nLog;
    sqlite3* pDatabase = nullptr;
    const int nFlags = SQLITE_OPEN_READWRITE | (bCreate ? SQLITE_OPEN_CREATE : 0);
    // A whole path is a file's name and nothing else to SQLite.
    const int nResult = sqlite3_open_v2(std::filesystem::absolute(m_strFile).c_str(), &pDatabase, nFlags, nullptr);
    m_pDatabase.reset(pDatabase);
    if (nResult != SQLITE_OK)
    {
        return Error();
    }
    // What a foreign file brings along is not run.
    sqlite3_db_config(pDatabase, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(pDatabase, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(pDatabase, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(pDatabase, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_limit(pDatabase, SQLITE_LIMIT_LENGTH, c_nLongestValue);
    sqlite3_busy_timeout(pDatabase, static_cast<int>(m_Patience.count()));
    g_bRolledBack = false;
    const std::string strError = Check(bCreate);
    if (g_bRolledBack)
    {
        Line("%s: a change of it was broken off, and is undone", Printable(m_strFile).c_str());
    }
    // One file is all that a show is: another program may have set it to keep a log beside it.
    return strError.empty() ? Run("PRAGMA journal_mode = DELETE") : strError;
}

std::string CShowFile::Save(const std::string& strName, const std::vector<stShowBlock>& blocks, bool bReplace)
{
    std::error_code noError;
    const bool bMade = !std::filesystem::exists(std::filesystem::status(m_strFile, noError));
    std::string strError = m_pDatabase == nullptr ? OpenDatabase(true) : std::string();
    if (strError.empty())
    {
        strError = Transact("BEGIN IMMEDIATE",
                            [&]
                            {
                                std::int64_t nShow = 0;
                                std::string strProblem = Check(true); // once more: others may have written since it was opened
                                if (strProblem.empty() && m_bNew)
                                {
                                    strProblem = CreateLayout();
                                }
                                if (strProblem.empty() && FindShow(strName, nShow).empty())
                                {
                                    strProblem =
                                        bReplace ? Remove(nShow) : m_strFile + ": there is a show \"" + strName + "\" already";
                                }
                                return strProblem.empty() ? Insert(strName, blocks) : strProblem;
                            });
    }
    std::error_code error;
    const bool bOthers = sqlite3_errcode(m_pDatabase.get()) == SQLITE_BUSY;
    if (!strError.empty() && bMade && !bOthers && std::filesystem::file_size(m_strFile, error) == 0)
    {
        std::filesystem::remove(std::filesystem::canonical(m_strFile, error), error); // made for it, and empty; a link stays
    }
    return strError;
}

std::string CShowFile::Load(const std::string& strName, std::vector<stShowBlock>& blocks)
{
    return Transact("BEGIN",
                    [&]
                    {
                        std::int64_t nShow = 0;
                        const std::string strError = FindShow(strName, nShow);
                        return strError.empty() ? Read(nShow, strName, blocks) : strError;
                    });
}

std::string CShowFile::Read(std::int64_t nShow, const std::string& strName, std::vector<stShowBlock>& blocks)
{
    CStatement select(m_pDatabase.get(), "SELECT kind, message_type, crc32, bytes FROM block WHERE show_id = ?");
    for (select.Bind(nShow); select.Step();)
    {
        const std::int64_t nType = select.Number(1);
        const bool bType = nType >= 0 && nType < c_nMessageTypes;
        stShowBlock block = {select.Text(0), static_cast<tagenPPCMessageType>(bType ? nType : -1), select.Bytes(3)};
        if (CheckSum(block.bytes) != select.Number(2))
        {
            return m_strFile + ": show \"" + strName + "\" is damaged: the check sum of a block is wrong";
        }
        blocks.push_back(std::move(block));
    }
    return select.Failed() ? Error() : std::string();
}

std::string CShowFile::Change(const std::string& strName,
                              const std::function<std::string(std::vector<stShowBlock>& blocks)>& change)
{
    return Transact("BEGIN IMMEDIATE",
                    [&]
                    {
                        std::int64_t nShow = 0;
                        std::vector<stShowBlock> blocks;
                        std::string strError = FindShow(strName, nShow);
                        strError = strError.empty() ? Read(nShow, strName, blocks) : strError;
                        strError = strError.empty() ? change(blocks) : strError;
                        strError = strError.empty() ? RemoveBlocks(nShow) : strError;
                        return strError.empty() ? InsertBlocks(nShow, blocks) : strError;
                    });
}

std::string CShowFile::Delete(const std::string& strName)
{
    return Transact("BEGIN IMMEDIATE",
                    [&]
                    {
                        std::int64_t nShow = 0;
                        std::string strError = FindShow(strName, nShow);
                        return strError.empty() ? Remove(nShow) : strError;
                    });
}

std::string CShowFile::List(std::vector<stShowEntry>& entries)
{
    return Transact("BEGIN",
                    [&]
                    {
                        CStatement shows(m_pDatabase.get(), "SELECT id, name, saved FROM show ORDER BY saved, id");
                        while (shows.Step())
                        {
                            entries.push_back({shows.Text(1), shows.Text(2), 0});
                            CStatement flags(m_pDatabase.get(), "SELECT bytes FROM block WHERE show_id = ? AND kind = 'store'");
                            for (flags.Bind(shows.Number(0)); flags.Step();)
                            {
                                entries.back().nStored += CountBits(flags.Bytes(0));
                            }
                            if (flags.Failed())
                            {
                                return Error();
                            }
                        }
                        return shows.Failed() ? Error() : std::string();
                    });
}

// Is this a show file of the layout that we know, and whole? The layout comes first: a foreign one may make any look at the
// contents take for ever.
std::string CShowFile::Check(bool bMayBeNew)
{
    CStatement header(m_pDatabase.get(), "SELECT application_id, user_version FROM pragma_application_id, pragma_user_version");
    if (!header.Step())
    {
        return Error();
    }
    CStatement layout(m_pDatabase.get(), "SELECT sql FROM sqlite_schema WHERE sql IS NOT NULL ORDER BY rowid");
    std::vector<std::string> tables;
    while (layout.Step())
    {
        tables.push_back(layout.Text(0));
    }
    if (layout.Failed())
    {
        return Error();
    }
    m_bNew = bMayBeNew && tables.empty() && header.Number(0) == 0 && header.Number(1) == 0;
    const bool bOurs = header.Number(0) == c_nApplicationId && header.Number(1) == c_nLayout &&
                       std::equal(tables.begin(), tables.end(), std::begin(caTables), std::end(caTables));
    std::error_code error;
    const bool bEmpty = tables.empty() && std::filesystem::file_size(m_strFile, error) == 0;
    return m_bNew || bOurs ? CheckIntegrity()
           : bEmpty        ? m_strFile + ": there is no show in it: it is empty, as when a first save is broken off"
                           : m_strFile + ": not a show file";
}

std::string CShowFile::CheckIntegrity()
{
    CStatement integrity(m_pDatabase.get(), "PRAGMA quick_check(1)");
    if (!integrity.Step())
    {
        return Error();
    }
    const std::string strFinding = integrity.Text(0); // its first line may only name the database
    return strFinding == "ok" ? std::string() : m_strFile + ": damaged: " + strFinding.substr(strFinding.rfind('\n') + 1);
}

std::string CShowFile::CreateLayout()
{
    for (const std::string& strSQL :
         {std::string(caTables[0]), std::string(caTables[1]), "PRAGMA application_id = " + std::to_string(c_nApplicationId),
          "PRAGMA user_version = " + std::to_string(c_nLayout)})
    {
        std::string strError = Run(strSQL.c_str());
        if (!strError.empty())
        {
            return strError;
        }
    }
    return std::string();
}

std::string CShowFile::FindShow(const std::string& strName, std::int64_t& nShow)
{
    CStatement select(m_pDatabase.get(), "SELECT id FROM show WHERE name = ?");
    if (select.Bind(strName).Step())
    {
        nShow = select.Number(0);
        return std::string();
    }
    return select.Failed() ? Error() : m_strFile + ": there is no show \"" + strName + "\"";
}

std::string CShowFile::Insert(const std::string& strName, const std::vector<stShowBlock>& blocks)
{
    CStatement show(m_pDatabase.get(), "INSERT INTO show (name, saved) VALUES (?, ?)");
    show.Bind(strName).Bind(UTCText()).Step();
    if (show.Failed())
    {
        return Error();
    }
    return InsertBlocks(sqlite3_last_insert_rowid(m_pDatabase.get()), blocks);
}

std::string CShowFile::InsertBlocks(std::int64_t nShow, const std::vector<stShowBlock>& blocks)
{
    for (const stShowBlock& block : blocks)
    {
        CStatement insert(m_pDatabase.get(), "INSERT INTO block VALUES (?, ?, ?, ?, ?)");
        insert.Bind(nShow).Bind(block.strKind).Bind(int(block.enType)).Bind(CheckSum(block.bytes)).Bind(block.bytes).Step();
        if (insert.Failed())
        {
            return Error();
        }
    }
    return std::string();
}

std::string CShowFile::Remove(std::int64_t nShow)
{
    CStatement statement(m_pDatabase.get(), "DELETE FROM show WHERE id = ?");
    statement.Bind(nShow).Step();
    return statement.Failed() ? Error() : RemoveBlocks(nShow);
}

std::string CShowFile::RemoveBlocks(std::int64_t nShow)
{
    CStatement statement(m_pDatabase.get(), "DELETE FROM block WHERE show_id = ?");
    statement.Bind(nShow).Step();
    return statement.Failed() ? Error() : std::string();
}

// All of work, or, when it returns an error, nothing of it.
template <class Work>
std::string CShowFile::Transact(const char* szBegin, Work work)
{
    std::string strError = Run(szBegin);
    if (!strError.empty())
    {
        return strError;
    }
    strError = work();
    if (strError.empty())
    {
        strError = Run("COMMIT");
    }
    if (!strError.empty())
    {
        Run("ROLLBACK");
    }
    return strError;
}

std::string CShowFile::Run(const char* szSQL)
{
    return sqlite3_exec(m_pDatabase.get(), szSQL, nullptr, nullptr, nullptr) == SQLITE_OK ? std::string() : Error();
}

std::string CShowFile::Error() const
{
    // A damaged file may put anything into the words for what is wrong with it.
    std::string strWords = sqlite3_errmsg(m_pDatabase.get());
    std::replace_if(
        strWords.begin(), strWords.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return m_strFile + ": " + strWords;
}

std::string ReadShow(const std::string& strFile, const std::string& strName, CBMAContainer& image,
                     std::chrono::milliseconds patience)
{
    CShowFile file(patience);
    std::vector<stShowBlock> blocks;
    std::string strError = file.Open(strFile, false);
    strError = strError.empty() ? file.Load(strName, blocks) : strError;
    if (!strError.empty())
    {
        return strError;
    }
    strError = ApplyShowBlocks(blocks, image);
    return strError.empty() ? strError : strFile + ": show \"" + strName + "\": " + strError;
}
