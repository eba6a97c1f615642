#include "tests/support/Server.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

std::ostream& operator<<(std::ostream& out, const ServerLogLine& line)
{
    return out << "{" << line.level << ", " << line.tag << ", \"" << line.text << "\"}";
}

namespace
{

void* load(int flags)
{
    const char* const path = std::getenv("ZUIS_LIBRARY") ? std::getenv("ZUIS_LIBRARY") : ZUIS_LIBRARY_PATH;
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL | flags);
    if (!library)
    {
        fprintf(stderr, "%s\n", dlerror());
        std::abort();
    }
    return library;
}

} // namespace

void Server::stayLoaded()
{
    load(RTLD_NODELETE);
}

Server::Server()
{
    zudevSetLogSink(logSink, this);
    m_library = load(0);
    const auto find = [&]<class Function>(Function& function, const char* name)
    {
        function = reinterpret_cast<Function>(dlsym(m_library, name));
        if (!function)
            std::abort();
    };
    find(createZustStream, "zuisCreateZustStream");
    find(destroyHandle, "zuisDestroyHandle");
    find(allowMouseSettings, "zuisAllowMouseSettings");
    find(blockKeyCombination, "zuisBlockKeyCombination");
    find(unblockKeyCombination, "zuisUnblockKeyCombination");
    find(unblockAllKeyCombinations, "zuisUnblockAllKeyCombinations");
    find(pause, "zuisPause");
    find(reset, "zuisReset");
    find(touchEnable, "zuisTouchEnable");
}

Server::~Server()
{
    close();
    dlclose(m_library);
    zudevSetLogSink(nullptr, nullptr);
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

void Server::logSink(void* data, ZustLogLevel level, uint32_t, const char* tag, const char* text)
{
    auto* const server = static_cast<Server*>(data);
    std::lock_guard lock(server->m_logMutex);
    server->m_log.push_back({level, tag, text});
}

std::vector<ServerLogLine> Server::takeLog()
{
    std::lock_guard lock(m_logMutex);
    std::vector<ServerLogLine> lines;
    lines.swap(m_log);
    return lines;
}

std::vector<ServerLogLine> Server::takeLog(const std::string& tag)
{
    std::lock_guard lock(m_logMutex);
    std::vector<ServerLogLine> lines;
    std::vector<ServerLogLine> others;
    for (ServerLogLine& line : m_log)
        (line.tag == tag ? lines : others).push_back(std::move(line));
    m_log = std::move(others);
    return lines;
}

void selectBackend(const std::string& backend, int instance)
{
    setenv("VirtualEvDevImp", backend == "xtest" ? "2" : backend == "container" ? "1" : "0", 1);
    if (instance >= 0)
        setenv("AcInstanceId", std::to_string(instance).c_str(), 1);
    else
        unsetenv("AcInstanceId");
}
