#ifndef TESTS_CHAOS_PLAN_H
#define TESTS_CHAOS_PLAN_H

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

/// What the neighbour does, and what can be left out.
enum class Deed
{
    STOP_X,        ///< the X server does not run for a while
    GRAB_X,        ///< another client has the X server for itself for a while
    KILL_X,        ///< at any moment
    MUTE_X_AT_END, ///< stopped or grabbed from before the handle is destroyed until after it
    FEW_KEYS,      ///< a keymap that ends far below the key codes in use
    PARAMS_FILE,   ///< rxparams.txt
    SETTINGS_FILE, ///< regkeys.txt
    NODE,          ///< the container's nodes
    RUDE_EVENTS,   ///< events that no client in its senses sends
};

enum class Backend
{
    XTEST,
    UINPUT,
    CONTAINER,
};

/// What stands in the place of a settings file.
enum class FileForm
{
    ABSENT,
    PLAIN,
    GARBAGE,
    HUGE_SIZE,
    FIFO,
    FIFO_WITH_MUTE_WRITER,
    FOLDER,
    DANGLING_LINK,
    LINK_TO_ITSELF,
};

/// What stands in the place of a node when the stream is opened.
enum class NodeForm
{
    PLAIN_FILE,
    FIFO,
    ABSENT,
    FIFO_WITHOUT_READER,
    FOLDER,
};

/// What happens to a node.
enum class NodeHarm
{
    REMOVED,
    FILE_INSTEAD,
    FIFO_INSTEAD,
    READER_GOES,
    READER_STOPS,
    NO_PERMISSIONS,
};

/// How the X server is while the handle is destroyed.
enum class End
{
    CALM,
    STOPPED_SHORTLY,
    STOPPED,
    GRABBED,
    KILLED,
};

using Milliseconds = std::chrono::milliseconds;

struct Act
{
    Deed deed;
    Milliseconds at;       ///< since the stream began to be opened
    Milliseconds length{}; ///< of STOP_X and GRAB_X; of KILL_X: stopped so long before
    int node = 0;          ///< of NODE
    int how = 0;           ///< FileForm or NodeHarm
};

/// All that one round does, from the seed and the number of the round alone.
struct Plan
{
    Plan(uint64_t seed, uint64_t round, const std::set<Deed>& without);

    uint32_t inputSeed;
    Backend backend;
    bool x = true; ///< there is an X server
    bool fewKeys = false;
    bool rudeEvents = false;
    int batches;
    FileForm params = FileForm::ABSENT;
    FileForm settings = FileForm::ABSENT;
    std::vector<NodeForm> nodes; ///< of NODE_NAMES
    std::vector<Act> acts;       ///< in order of time
    End end = End::CALM;
    std::chrono::microseconds endDelay{}; ///< 0 = has happened when the destruction begins
    Milliseconds endLength{};

    std::string text() const;
};

inline constexpr const char* NODE_NAMES[]{"key", "mouse", "touch"};

const char* nameOf(Deed deed);
const char* nameOf(Backend backend);
const char* nameOf(NodeForm form);
/// Names and deeds, for the command line.
std::vector<std::pair<std::string, Deed>> deedsByName();

#endif
