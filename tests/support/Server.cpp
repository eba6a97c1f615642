#include "tests/support/Server.h"

#include <cstdlib>
#include <dlfcn.h>
#include <utility>

std::ostream& operator<<(std::ostream& out, const ServerLogLine& line)
{
    return out << "{" << line.level << ", " << line.tag << ", \"" << line.text << "\"}";
}

namespace
{

const char* libraryPath()
{
    const char* const path = std::getenv("ZUIS_LIBRARY");
    return path ? path : ZUIS_LIBRARY_PATH;
}

constexpr int16_t int16(int value)
{
    return static_cast<int16_t>(value);
}

} // namespace

ServerLog::ServerLog()
{
    zudevSetLogSink(logSink, this);
}

ServerLog::~ServerLog()
{
    zudevSetLogSink(nullptr, nullptr);
}

void ServerLog::logSink(void* data, ZustLogLevel level, uint32_t, const char* tag, const char* text)
{
    auto* const self = static_cast<ServerLog*>(data);
    const LockGuard lock(self->m_logMutex);
    self->m_log.push_back({level, tag, text});
}

std::vector<ServerLogLine> ServerLog::takeLog()
{
    const LockGuard lock(m_logMutex);
    return std::exchange(m_log, {});
}

std::vector<ServerLogLine> ServerLog::takeLog(const std::string& tag)
{
    const LockGuard lock(m_logMutex);
    std::vector<ServerLogLine> lines;
    std::vector<ServerLogLine> others;
    for (ServerLogLine& line : m_log)
        (line.tag == tag ? lines : others).push_back(std::move(line));
    m_log = std::move(others);
    return lines;
}

void Server::stayLoaded()
{
    const LoadedLibrary library(libraryPath(), RTLD_NODELETE);
}

Server::Server()
    : LoadedLibrary(libraryPath())
{
}

Server::~Server()
{
    close();
}

ZustResult Server::open(const TelemetrySender* telemetry)
{
    m_config.telemetrySender = telemetry;
    const ZustResult result = createZustStream(&m_stream, &m_handle, &m_config);
    if (result == ZUST_R_SUCCESS)
        zudevRaiseStreamEvent(m_stream, {ZUST_SC_STREAM_CONNECTED, ZustEventDetail(200)});
    return result;
}

void Server::close()
{
    if (m_stream)
        zudevCloseStream(m_stream);
    m_stream = nullptr;
    if (m_handle)
        destroyHandle(&m_handle);
}

void Server::deliverDirectly()
{
    ZustStreamConfig config{};
    zudevStreamInfo(m_stream, &config, nullptr);
    m_direct = config.config.input;
}

void Server::deliver(const ZustInputEvent& event)
{
    if (m_direct.onInputReceived)
        m_direct.onInputReceived(m_direct.context, nullptr, &event, 1, 1);
    else if (!zudevDeliver(m_stream, &event, 0, 0))
        std::abort();
}

void Server::key(ZustKeyCode keyCode, bool down, uint16_t flags, uint64_t captureUs)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_KEYBOARD;
    event.event.keyboardEvent = {keyCode, 0, flags, down ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP, captureUs};
    deliver(event);
}

void Server::tap(ZustKeyCode keyCode, uint16_t flags)
{
    key(keyCode, true, flags);
    key(keyCode, false, flags);
}

void Server::mouse(const ZustMouseEvent& mouse)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_MOUSE;
    event.event.mouseEvent = mouse;
    deliver(event);
}

void Server::move(int dx, int dy, uint64_t captureUs)
{
    mouse({ZUST_ME_MOUSE_MOVE, 0, int16(dx), int16(dy), 0, 0, 0, 0, 0, captureUs});
}

void Server::moveTo(int x, int y, int width, int height, uint64_t captureUs)
{
    mouse({ZUST_ME_MOUSE_MOVE, ZUST_MF_ABSCOORDS, int16(x), int16(y), int16(width), int16(height), 0, 0, 0, captureUs});
}

void Server::button(ZustMouseButton button, bool down, uint64_t captureUs)
{
    mouse({ZUST_ME_BUTTON, 0, 0, 0, int16(button), int16(down ? 2 : 1), 0, 0, 0, captureUs});
}

void Server::wheel(int step, uint64_t captureUs)
{
    mouse({ZUST_ME_MOUSE_WHEEL, 0, 0, 0, 0, 0, 0, int16(step), 0, captureUs});
}

void Server::mouseSettings(uint32_t acceleration, uint32_t sensitivity)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_MOUSE_SETTINGS;
    event.event.mouseSettingsEvent = {acceleration, sensitivity};
    deliver(event);
}

void Server::gamepad(const void* payload, uint16_t size)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_GAMEPAD_USB_PAYLOAD;
    event.event.gamepadUsbPayloadEvent = {size, payload};
    deliver(event);
}

void Server::touch(const std::vector<ZustTouchPointLowLevel>& points)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
    event.event.touchLowLevelEvent = {static_cast<uint16_t>(points.size()), points.data()};
    deliver(event);
}

void Server::drain()
{
    zudevDrain(m_stream);
}

void selectBackend(const std::string& backend, int instance)
{
    setenv("VirtualEvDevImp", backend == "xtest" ? "2" : backend == "container" ? "1" : "0", 1);
    if (instance >= 0)
        setenv("AcInstanceId", std::to_string(instance).c_str(), 1);
    else
        unsetenv("AcInstanceId");
}
