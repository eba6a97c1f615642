#ifndef TESTS_TOOLS_FILES_H
#define TESTS_TOOLS_FILES_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string contents(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A directory of its own, gone with the object.
struct TemporaryDirectory
{
    TemporaryDirectory()
    {
        std::string name = std::filesystem::temp_directory_path() / "zuis-test-XXXXXX";
        path = mkdtemp(name.data());
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(path); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::filesystem::path path;
};

#endif
