// Files for tests: a directory that is removed with its object, and whole files at once.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

// Also makes the directories of the path.
inline void writeFile(const std::string& path, const std::string& content)
{
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::ofstream(path, std::ios::binary) << content;
}

inline void writeFile(const std::string& path, const std::vector<std::uint8_t>& bytes)
{
    writeFile(path, std::string(bytes.begin(), bytes.end()));
}

inline std::string readFile(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

class TemporaryDirectory
{
public:
    TemporaryDirectory() : m_path((std::filesystem::temp_directory_path() / "vx_test_XXXXXX").string())
    {
        if (!mkdtemp(m_path.data()))
            throw std::runtime_error("no temporary directory");
    }
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return m_path; }
    std::string path(const std::string& name) const { return m_path + '/' + name; }
    std::string operator/(const std::string& name) const { return path(name); }
    bool isEmpty() const { return std::filesystem::is_empty(m_path); }

    // As if a file was last written long ago.
    void setAge(const std::string& name, std::chrono::minutes age) const
    {
        std::filesystem::last_write_time(path(name), std::filesystem::file_time_type::clock::now() - age);
    }
    // Makes a file and returns its path.
    std::string file(const std::string& name, const std::string& content) const
    {
        writeFile(path(name), content);
        return path(name);
    }

private:
    std::string m_path;
};

} // namespace Quillmoran::Testing
