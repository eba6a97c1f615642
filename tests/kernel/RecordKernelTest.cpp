// Recording on a real kernel: local devices are recorded while somebody uses them, and the session is played.

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include <libevdev/libevdev.h>
#include <poll.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/kernel/KernelTest.h"

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAreArray;
using testing::HasSubstr;

/// A shell command that runs meanwhile. Ends with the object.
class Background
{
public:
    explicit Background(const std::string& command)
        : m_process(fork())
    {
        if (m_process != 0)
            return;
        execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
        _exit(127);
    }
    ~Background() { end(SIGTERM); }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    bool running() { return m_process > 0 && !ended(WNOHANG); }

    /// \return as wait() tells it
    int end(int signal)
    {
        if (running())
        {
            kill(m_process, signal);
            ended(0);
        }
        return m_status;
    }

private:
    bool ended(int options)
    {
        if (waitpid(m_process, &m_status, options) == 0)
            return false;
        m_process = 0;
        return true;
    }

    pid_t m_process;
    int m_status = -1;
};

/// A real device's recording, the part of it that is replayed, and the device of the library that is to do the same.
struct Source
{
    const char* recording;
    double fromSeconds;
    double toSeconds;
    const char* name;
    const char* libraryName;
};

// The mouse's part has the wheel in it and ends in mid-drag.
constexpr Source SOURCES[] = {
    {"mouse-touch-hand.events", 1.0, 3.0, "Ultrathin Touch Mouse", "RiMouse"},
    {"gamepad-xbox360.events", 0.0, 10.0, "Mad Catz Wired Xbox 360 Controller", PAD_NAME},
    {"touchscreen-4-fingers.events", 0.0, 10.0, "EP0430M09", "RiTouch"},
};

/// What the kernel makes of a new value of an axis with fuzz: small changes are swallowed or averaged with the old one.
int defuzzed(int value, int old, int fuzz)
{
    const int change = std::abs(value - old);
    if (fuzz == 0 || change >= 2 * fuzz)
        return value;
    if (change < fuzz / 2)
        return old;
    return change < fuzz ? (old * 3 + value) / 4 : (old + value) / 2;
}

/// The order of events within a frame is the pad driver's own: buttons and axes by their codes here.
std::vector<InputEvent> withSortedFrames(std::vector<InputEvent> events)
{
    for (auto begin = events.begin(); begin != events.end();)
    {
        const auto end = std::find(begin, events.end(), InputEvent{EV_SYN, SYN_REPORT, 0});
        std::sort(begin, end,
                  [](const InputEvent& a, const InputEvent& b)
                  { return std::pair(a.type, a.code) < std::pair(b.type, b.code); });
        begin = end == events.end() ? end : end + 1;
    }
    return events;
}

/// What a reader of the library's pad gets when a recorded pad's events happen to it at rest. To the digit: values have
/// passed the recorded pad's fuzz already, and the rule above is applied once more. Only a stick's lower end may
/// differ, since the report's positive end is 32767.
std::vector<InputEvent> throughPad(const std::vector<InputEvent>& recorded)
{
    std::vector<InputEvent> events;
    std::map<std::pair<int, int>, int> state;
    bool changed = false;
    for (InputEvent event : recorded)
    {
        const bool stick = event.type == EV_ABS && event.code <= ABS_RY && event.code != ABS_Z;
        int& old = state[{event.type, event.code}];
        event.value = stick ? defuzzed(event.value, old, 16) : event.value;
        if (event.type == EV_SYN ? !changed : event.value == old)
            continue;
        changed = event.type != EV_SYN;
        old = event.value;
        events.push_back(event);
    }
    return withSortedFrames(events);
}

/// The calling thread comes first for as long as the object lives: the kernel keeps 64 events for a reader of a pad,
/// and a busy guest may deliver more than that at once. Processes that it starts are not affected.
class AheadOfOthers
{
public:
    AheadOfOthers() { schedule(SCHED_FIFO | SCHED_RESET_ON_FORK, 1); }
    ~AheadOfOthers() { schedule(SCHED_OTHER, 0); }

private:
    static void schedule(int policy, int priority)
    {
        const sched_param parameters{priority};
        EXPECT_EQ(sched_setscheduler(0, policy, &parameters), 0);
    }
};

/// Reads all nodes for as long as one of the processes runs.
std::vector<std::vector<InputEvent>> readWhile(std::vector<std::unique_ptr<EvdevNode>>& nodes,
                                               std::vector<std::unique_ptr<Background>>& processes)
{
    const AheadOfOthers ahead;
    std::vector<pollfd> waits;
    for (const auto& node : nodes)
        waits.push_back({libevdev_get_fd(node->device()), POLLIN, 0});
    for (const auto& process : processes)
    {
        while (process->running())
        {
            poll(waits.data(), waits.size(), 20);
            for (size_t i = 0; i < nodes.size(); ++i)
            {
                nodes[i]->collect();
                if ((waits[i].revents & (POLLHUP | POLLERR)) != 0)
                    waits[i].fd = -1; // has gone
            }
        }
        EXPECT_EQ(process->end(SIGTERM), 0);
    }
    std::vector<std::vector<InputEvent>> events;
    for (const auto& node : nodes)
        events.push_back(node->take());
    return events;
}

/// Without the ends of frames: the library sends moves, buttons and wheel in frames of their own.
std::vector<InputEvent> throughMouse(const std::vector<InputEvent>& recorded)
{
    std::vector<InputEvent> events;
    std::set<uint16_t> held;
    for (const InputEvent& event : recorded)
    {
        if (event.type == EV_KEY && event.value == 2)
            continue; // auto-repeat
        if (event.type == EV_KEY)
            event.value != 0 ? (void)held.insert(event.code) : (void)held.erase(event.code);
        if (event.type == EV_REL && event.code == REL_WHEEL)
            events.insert(events.end(), static_cast<size_t>(std::abs(event.value)),
                          rel(REL_WHEEL, event.value < 0 ? -1 : 1));
        else if (event.type == EV_REL || event.type == EV_KEY)
            events.push_back(event);
    }
    for (const uint16_t code : held)
        events.push_back(key(code, 0));
    return events;
}

/// By finger: where it is.
using Fingers = std::map<int, std::pair<int, int>>;

/// The fingers after each frame that changed something. \param maxX, maxY ends of the screen, scaled to 65535
/// \param byId fingers are named by their tracking id, else by their slot + 1, which is what the library makes of them
std::vector<Fingers> fingers(const std::vector<InputEvent>& events, double maxX, double maxY, bool byId)
{
    struct Slot
    {
        int id = -1;
        int x = 0;
        int y = 0;
    };
    const auto scaled = [](int value, double max) { return static_cast<int>(std::lround(value / max * 65535)); };
    std::vector<Fingers> frames;
    std::map<int, Slot> slots;
    int current = 0;
    for (const InputEvent& event : events)
    {
        if (event.type == EV_ABS && event.code == ABS_MT_SLOT)
            current = event.value;
        else if (event.type == EV_ABS && event.code == ABS_MT_TRACKING_ID)
            slots[current].id = event.value;
        else if (event.type == EV_ABS && event.code == ABS_MT_POSITION_X)
            slots[current].x = event.value;
        else if (event.type == EV_ABS && event.code == ABS_MT_POSITION_Y)
            slots[current].y = event.value;
        if (event.type != EV_SYN)
            continue;
        Fingers now;
        for (const auto& [number, slot] : slots)
        {
            if (slot.id >= 0)
                now[byId ? slot.id : number + 1] = {scaled(slot.x, maxX), scaled(slot.y, maxY)};
        }
        if (frames.empty() ? !now.empty() : now != frames.back())
            frames.push_back(now);
    }
    return frames;
}

std::string contents(const std::string& file)
{
    return output("cat " + file);
}

} // namespace

// Three devices at once, made and used by evemu. What is compared with is what a second reader of them got.
TEST(RecordKernelTest, RecordedDevicesAreReplayedAsTheyWereUsed)
{
    const char* const folder = std::getenv("ZUIS_RECORDINGS");
    if (!folder)
    {
        const char* const ci = std::getenv("CI");
        ASSERT_STRNE(ci ? ci : "", "true") << "ZUIS_RECORDINGS must name the directory of the recordings";
        puts("ZUIS_RECORDINGS is not set: recording is left out");
        return;
    }
    const std::string host = "'" ZUIS_HOST "' ";
    const std::string session = testing::TempDir() + "recorded.jsonl";
    const std::string log = testing::TempDir() + "record.log";
    std::vector<std::unique_ptr<Background>> devices;
    std::vector<std::unique_ptr<EvdevNode>> nodes;
    std::string command = host + "record -o " + session;
    for (const Source& source : SOURCES)
    {
        const std::string recording = testing::TempDir() + source.recording;
        output("awk '!/^E:/ || ($2 >= " + std::to_string(source.fromSeconds) + " && $2 < "
               + std::to_string(source.toSeconds) + ")' " + folder + "/" + source.recording + " > " + recording);
        devices.push_back(std::make_unique<Background>("evemu-device " + recording + " > /dev/null"));
        nodes.push_back(std::make_unique<EvdevNode>(source.name));
        command += " " + nodes.back()->path();
    }

    Background recorder(command + " 2> " + log);
    for (int i = 0; i < 1000 && contents(log).find(SOURCES[2].name) == std::string::npos; ++i)
        std::this_thread::sleep_for(20ms);
    std::vector<std::unique_ptr<Background>> players;
    for (size_t i = 0; i < nodes.size(); ++i)
        players.push_back(std::make_unique<Background>("evemu-play " + nodes[i]->path() + " < " + testing::TempDir()
                                                       + SOURCES[i].recording));
    const std::vector<std::vector<InputEvent>> used = readWhile(nodes, players);
    std::this_thread::sleep_for(200ms); // the recorder is another reader
    devices[1].reset();
    for (int i = 0; i < 500 && contents(log).find("has gone") == std::string::npos; ++i)
        std::this_thread::sleep_for(20ms);
    EXPECT_EQ(recorder.end(SIGINT), 0);
    EXPECT_THAT(contents(log), HasSubstr(nodes[1]->path() + ": the device has gone"));
    EXPECT_THAT(contents(log), testing::Not(HasSubstr("lost")));
    nodes.clear();
    devices.clear();

    // The wait gives the reader time for the last events: devices take unread ones along.
    std::ofstream(session, std::ios::app) << "{\"type\": \"wait\", \"ms\": 1000}\n";
    std::vector<std::unique_ptr<Background>> play;
    play.push_back(std::make_unique<Background>(host + "play --backend uinput " + session + " > " + log + " 2>&1"));
    for (const Source& source : SOURCES)
        nodes.push_back(std::make_unique<EvdevNode>(source.libraryName));
    const std::vector<std::vector<InputEvent>> emitted = readWhile(nodes, play);
    if (HasFailure())
        puts(contents(log).c_str());

    std::vector<InputEvent> mouse;
    std::copy_if(emitted[0].begin(), emitted[0].end(), std::back_inserter(mouse),
                 [](const InputEvent& event) { return event.type != EV_SYN; });
    const std::vector<InputEvent> pad = throughPad(used[1]);
    const std::vector<Fingers> touch = fingers(used[2], 1279, 767, false);
    EXPECT_GT(mouse.size(), 100U);
    EXPECT_GT(pad.size(), 400U);
    EXPECT_GT(touch.size(), 50U);
    EXPECT_THAT(mouse, ElementsAreArray(throughMouse(used[0])));
    EXPECT_THAT(withSortedFrames(emitted[1]), ElementsAreArray(pad));
    EXPECT_THAT(fingers(emitted[2], 65535, 65535, true), ElementsAreArray(touch));
}
