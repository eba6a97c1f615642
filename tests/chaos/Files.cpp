#include "tests/chaos/Files.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char PLAIN_TEXT[] = "# settings\n[mouseeventsaggregation]\n1\n[speedup_1ms]\n1 2 3 4 5 6\n"
                              "VirtualEvDevImp=0\nCobaltBenchmarkInput=0\n";
constexpr off_t HUGE_BYTES = 4 << 20;

void writeText(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string garbage()
{
    std::string text;
    for (unsigned int i = 0; i < 20000; ++i)
        text += static_cast<char>((i * 2654435761U) >> 24);
    return text + std::string(5000, '=') + "\n[\n]\n[]\n=\nAcInstanceId=99999999999999999999";
}

} // namespace

Files::~Files()
{
    for (const auto& [path, writer] : m_writers)
        close(writer);
}

void Files::release(const std::string& path)
{
    const auto found = m_writers.find(path);
    if (found == m_writers.end())
        return;
    close(found->second);
    m_writers.erase(found);
}

void Files::put(const std::string& path, FileForm form)
{
    release(path);
    std::filesystem::remove_all(path);
    switch (form)
    {
    case FileForm::ABSENT:
        return;
    case FileForm::PLAIN:
        return writeText(path, PLAIN_TEXT);
    case FileForm::GARBAGE:
        return writeText(path, garbage());
    case FileForm::HUGE_SIZE:
        writeText(path, PLAIN_TEXT);
        return std::filesystem::resize_file(path, HUGE_BYTES);
    case FileForm::FIFO:
    case FileForm::FIFO_WITH_MUTE_WRITER:
        if (mkfifo(path.c_str(), 0600) != 0)
            throw std::runtime_error("no FIFO at " + path);
        if (form == FileForm::FIFO_WITH_MUTE_WRITER)
            m_writers[path] = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        return;
    case FileForm::FOLDER:
        std::filesystem::create_directory(path);
        return;
    case FileForm::DANGLING_LINK:
        return std::filesystem::create_symlink("/nonexistent/file", path);
    case FileForm::LINK_TO_ITSELF:
        return std::filesystem::create_symlink(path, path);
    }
}

void makeQuietXinput(const std::string& folder)
{
    std::filesystem::create_directories(folder);
    const std::string path = folder + "/xinput";
    writeText(path, "#!/bin/sh\nPATH=${PATH#*:} exec xinput \"$@\" 2>/dev/null\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}
