#include "tests/support/Server.h"

#include <cstdlib>
#include <dlfcn.h>

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
    std::vector<ServerLogLine> lines;
    lines.swap(m_log);
    return lines;
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

void Server::deliver(const ZustInputEvent& event)
{
    if (!zudevDeliver(m_stream, &event, 0, 0))
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

namespace
{

ZustInputEvent mouseEvent(ZustMouseEventType type, uint64_t captureUs)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_MOUSE;
    event.event.mouseEvent.type = type;
    event.event.mouseEvent.captureTimestampUs = captureUs;
    return event;
}

} // namespace

void Server::move(int dx, int dy, uint64_t captureUs)
{
    ZustInputEvent event = mouseEvent(ZUST_ME_MOUSE_MOVE, captureUs);
    event.event.mouseEvent.xPos = static_cast<int16_t>(dx);
    event.event.mouseEvent.yPos = static_cast<int16_t>(dy);
    deliver(event);
}

void Server::moveTo(int x, int y, int width, int height, uint64_t captureUs)
{
    ZustInputEvent event = mouseEvent(ZUST_ME_MOUSE_MOVE, captureUs);
    event.event.mouseEvent.flags = ZUST_MF_ABSCOORDS;
    event.event.mouseEvent.xPos = static_cast<int16_t>(x);
    event.event.mouseEvent.yPos = static_cast<int16_t>(y);
    event.event.mouseEvent.data1 = static_cast<int16_t>(width);
    event.event.mouseEvent.data2 = static_cast<int16_t>(height);
    deliver(event);
}

void Server::button(ZustMouseButton button, bool down, uint64_t captureUs)
{
    ZustInputEvent event = mouseEvent(ZUST_ME_BUTTON, captureUs);
    event.event.mouseEvent.data1 = static_cast<int16_t>(button);
    event.event.mouseEvent.data2 = down ? 2 : 1;
    deliver(event);
}

void Server::wheel(int step, uint64_t captureUs)
{
    ZustInputEvent event = mouseEvent(ZUST_ME_MOUSE_WHEEL, captureUs);
    event.event.mouseEvent.vWheel = static_cast<int16_t>(step);
    deliver(event);
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
