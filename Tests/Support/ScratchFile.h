// A file for a test to write and read.
#pragma once

#include "Support/Bytes.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

namespace Support
{

// A name that nothing has, of the process's own; what is there when it ends is removed. One at a time.
class CScratchFile
{
public:
    CScratchFile() : m_strName((std::filesystem::temp_directory_path() / ("scratch." + std::to_string(getpid()))).string())
    {
        std::remove(m_strName.c_str());
    }
    ~CScratchFile() { std::remove(m_strName.c_str()); }

    const std::string& Name() const { return m_strName; }

    void Write(const tBytes& bytes) const
    {
        std::ofstream(m_strName, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<long>(bytes.size()));
    }

    tBytes Read() const
    {
        std::ifstream file(m_strName, std::ios::binary);
        return tBytes(std::istreambuf_iterator<char>(file), {});
    }

private:
    const std::string m_strName;
};

} // namespace Support
