#include "tests/chaos/Places.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

namespace
{

namespace fs = std::filesystem;

constexpr char PLAIN_TEXT[] = "# settings\n[mouseeventsaggregation]\n1\n[speedup_1ms]\n1 2 3 4 5 6\n"
                              "VirtualEvDevImp=0\nCobaltBenchmarkInput=0\n";
constexpr off_t HUGE_BYTES = 4 << 20;
constexpr int PIPE_BYTES = 1 << 20; // so that a reader that is late for a moment has missed nothing

std::string garbage()
{
    std::string text;
    for (unsigned int i = 0; i < 20000; ++i)
        text += static_cast<char>((i * 2654435761U) >> 24);
    return text + std::string(5000, '=') + "\n[\n]\n[]\n=\nAcInstanceId=99999999999999999999";
}

} // namespace

std::string complaintOf(const Account& account, const std::string& device)
{
    if (account.down.empty())
        return {};
    return fmt::format("expected every press on {} to have its release, found down: {}", device,
                       fmt::join(account.down, " "));
}

Places::Places(const std::string& folder, int instance)
    : m_folder(folder)
    , m_container("/tmp/zudroid" + std::to_string(instance))
{
    fs::create_directories(m_container + "/input");
}

Places::~Places()
{
    for (const auto& [name, place] : m_places)
        close(place.reader);
    fs::remove_all(m_container);
}

void Places::put(const std::string& name, const std::string& how)
{
    Place& place = m_places[name];
    ++place.changes;
    place.path = (name.starts_with("zuinput_") ? m_container + "/input/" : m_folder + "/") + name;
    if (how == "reader stops")
        place.reads = false;
    else if (how == "no permissions")
        chmod(place.path.c_str(), 0);
    else
        close(std::exchange(place.reader, -1));
    if (how.starts_with("reader") || how == "no permissions")
        return;

    fs::remove_all(place.path);
    if (how == "file" || how == "empty" || how == "garbage" || how == "huge")
        std::ofstream(place.path, std::ios::binary) << (how == "empty"     ? ""
                                                        : how == "garbage" ? garbage()
                                                                           : PLAIN_TEXT);
    if (how == "huge")
        fs::resize_file(place.path, HUGE_BYTES);
    if (how.ends_with("fifo") && mkfifo(place.path.c_str(), 0600) != 0)
        throw std::runtime_error("no FIFO at " + place.path);
    if (how == "read fifo")
    {
        place.reader = open(place.path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC); // never at the end of the file
        fcntl(place.reader, F_SETPIPE_SZ, PIPE_BYTES);
    }
    if (how == "folder")
        fs::create_directory(place.path);
    if (how.find("link") != std::string::npos)
        fs::create_symlink(how == "dangling link" ? "/nonexistent/file" : place.path, place.path);
}

void Places::addTo(std::vector<pollfd>& polled) const
{
    for (const auto& [name, place] : m_places)
        if (place.reads)
            polled.push_back({place.reader, POLLIN, 0});
}

void Places::readFifos()
{
    for (auto& [name, place] : m_places)
        if (place.reads)
            place.account.take(readEvents(place.reader));
}

uint64_t Places::presses() const
{
    uint64_t presses = 0;
    for (const auto& [name, place] : m_places)
        presses += place.account.presses;
    return presses;
}

// A file is read only here: until now its last event may have been half written.
std::string Places::complaint()
{
    // A touch screen ends with what is down on it, as one of uinput does.
    for (const char* const name : {"zuinput_key", "zuinput_mouse"})
    {
        const auto found = m_places.find(name);
        if (found == m_places.end() || found->second.changes > 1)
            continue;
        Place& place = found->second;
        if (place.reader < 0)
            place.reader = open(place.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        place.account.take(readEvents(place.reader));
        if (std::string complaint = complaintOf(place.account, place.path); !complaint.empty())
            return complaint;
    }
    return {};
}
