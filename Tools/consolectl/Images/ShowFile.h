// Shows in a file: an SQLite database that reads the same on every machine.
#pragma once

#include "Images/ShowBlocks.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;

constexpr std::chrono::milliseconds c_ShowFilePatience(10000);

struct stShowEntry
{
    std::string strName;
    std::string strSaved; // UTC, "2025-06-01 19:30:00"
    std::int64_t nStored; // parameters with the store flag
};

// A file of shows by name. Every operation returns an empty text, or one line that says what went wrong; then the file is as it
// was. A file that is no regular file, no show file, damaged, or of another layout is refused. Each block carries a check sum.
class CShowFile
{
public:
    // A file that somebody else has locked is waited for so long.
    explicit CShowFile(std::chrono::milliseconds patience = c_ShowFilePatience);
    ~CShowFile();

    // With bCreate a file that is not there will be made by Save.
    std::string Open(const std::string& strFile, bool bCreate);

    // One transaction: the show is there whole, or not at all. An existing one is replaced only when bReplace says so.
    std::string Save(const std::string& strName, const std::vector<stShowBlock>& blocks, bool bReplace);
    std::string Load(const std::string& strName, std::vector<stShowBlock>& blocks);
    std::string Delete(const std::string& strName);

    // What change makes of a show's blocks takes their place, with nobody's change in between; when it was saved stays. What change
    // returns is an error.
    std::string Change(const std::string& strName, const std::function<std::string(std::vector<stShowBlock>& blocks)>& change);
    std::string List(std::vector<stShowEntry>& entries);

private:
    struct stCloser
    {
        void operator()(sqlite3* pDatabase) const;
    };

    class CStatement;

    std::string OpenDatabase(bool bCreate);
    std::string Check(bool bMayBeNew);
    std::string CheckIntegrity();
    std::string Run(const char* szSQL);
    std::string Error() const;
    template <class Work>
    std::string Transact(const char* szBegin, Work work);
    std::string CreateLayout();
    std::string FindShow(const std::string& strName, std::int64_t& nShow);
    std::string Read(std::int64_t nShow, const std::string& strName, std::vector<stShowBlock>& blocks);
    std::string Insert(const std::string& strName, const std::vector<stShowBlock>& blocks);
    std::string InsertBlocks(std::int64_t nShow, const std::vector<stShowBlock>& blocks);
    std::string Remove(std::int64_t nShow);
    std::string RemoveBlocks(std::int64_t nShow);

    const std::chrono::milliseconds m_Patience;
    std::string m_strFile;
    std::unique_ptr<sqlite3, stCloser> m_pDatabase;
    bool m_bNew = false; // nothing in it yet, the layout neither
};

// A show's image and flags. Empty, or what went wrong; then image is half-written.
std::string ReadShow(const std::string& strFile, const std::string& strName, CBMAContainer& image,
                     std::chrono::milliseconds patience = c_ShowFilePatience);
