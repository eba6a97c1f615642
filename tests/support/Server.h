#ifndef TESTS_SUPPORT_SERVER_H
#define TESTS_SUPPORT_SERVER_H

#include "StreamSdk/include/TelemetrySender.h"
#include "common/util/ThreadSafety.h"
#include "devstack/zudev.h"
#include "tools/host/play/LoadedLibrary.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

struct ServerLogLine
{
    ZustLogLevel level;
    std::string tag;
    std::string text;

    bool operator==(const ServerLogLine&) const = default;
};
std::ostream& operator<<(std::ostream& out, const ServerLogLine& line);

/// Keeps what the library logs from before it is loaded until after it is unloaded. Any thread.
class ServerLog
{
public:
    ServerLog();
    ~ServerLog();
    ServerLog(const ServerLog&) = delete;
    ServerLog& operator=(const ServerLog&) = delete;

    /// All lines since the last call; with a tag only its lines, the others are kept.
    std::vector<ServerLogLine> takeLog();
    std::vector<ServerLogLine> takeLog(const std::string& tag);

private:
    static void logSink(void* data, ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* text);

    Mutex m_logMutex;
    std::vector<ServerLogLine> m_log GUARDED_BY(m_logMutex);
};

/// Plays the streaming server for tests of the finished library: loads it as a server does and feeds it events through
/// the stand-in stack. Settings come from the environment, so set them before. The test's own thread.
class Server : public ServerLog, public host::LoadedLibrary
{
public:
    /// Loads the library. \throws std::runtime_error when that fails
    Server();
    /// Closes the stream, destroys the handle, unloads.
    ~Server();

    /// Keeps the library in this process, and with it what it keeps on purpose: a leak detector sees it then.
    static void stayLoaded();

    ZustResult open(const TelemetrySender* telemetry = nullptr);
    void close(); ///< stops delivery, destroys the handle
    ZuisHandle handle() const { return m_handle; }
    ZustStream stream() const { return m_stream; }

    /// From now on events are handed over on the caller's thread, as the stack's does it, and not on that one.
    void deliverDirectly();

    // Each delivers one event through the stack's event thread and returns at once.
    void key(ZustKeyCode keyCode, bool down, uint16_t flags = 0, uint64_t captureUs = 0);
    void tap(ZustKeyCode keyCode, uint16_t flags = 0);
    void move(int dx, int dy, uint64_t captureUs = 0);
    void moveTo(int x, int y, int width, int height, uint64_t captureUs = 0);
    void button(ZustMouseButton button, bool down, uint64_t captureUs = 0);
    void wheel(int step, uint64_t captureUs = 0);
    void mouseSettings(uint32_t acceleration, uint32_t sensitivity);
    void gamepad(const void* payload, uint16_t size);
    void touch(const std::vector<ZustTouchPointLowLevel>& points);
    void deliver(const ZustInputEvent& event);
    void drain(); ///< waits until the event thread has handed over everything

private:
    void mouse(const ZustMouseEvent& mouse);

    ZuisHandle m_handle = nullptr;
    ZustStream m_stream = nullptr;
    ZuisInputConfig m_config{};
    ZustInputStreamConfig m_direct{};
};

/// Selects a backend by environment: "uinput", "xtest" or "container" (with an instance).
void selectBackend(const std::string& backend, int instance = -1);

#endif
