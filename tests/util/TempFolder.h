#ifndef TESTS_UTIL_TEMP_FOLDER_H
#define TESTS_UTIL_TEMP_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

/// A folder of the test's own, removed with all that is in it.
class TempFolder
{
public:
    TempFolder()
    {
        if (!mkdtemp(m_path.data()))
            throw std::runtime_error("no temporary folder");
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder() { std::filesystem::remove_all(m_path); }

    const std::string& path() const { return m_path; }

    /// Writes the file beside the folder's others. \return its path
    std::string write(const std::string& name, const std::string& content) const
    {
        std::string file = m_path + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    std::string m_path = std::filesystem::temp_directory_path() / "zuis-test-XXXXXX";
};

#endif
