#include "tools/host/play/StreamingServer.h"

#include "StreamSdk/helpers/input/ZuInputStream.h"
#include "devstack/zudev.h"
#include "tools/host/play/InjectionWatch.h"

#include <cstdlib>
#include <dlfcn.h>
#include <fmt/format.h>
#include <stdexcept>

namespace host
{

/// The exported functions, found by name as a server finds them.
struct StreamingServer::Functions
{
    decltype(&zuisCreateZustStream) create = nullptr;
    decltype(&zuisDestroyHandle) destroy = nullptr;
    decltype(&zuisAllowMouseSettings) allowMouseSettings = nullptr;
    decltype(&zuisBlockKeyCombination) block = nullptr;
    decltype(&zuisUnblockKeyCombination) unblock = nullptr;
    decltype(&zuisUnblockAllKeyCombinations) unblockAll = nullptr;
    decltype(&zuisPause) pause = nullptr;
    decltype(&zuisReset) reset = nullptr;
    decltype(&zuisTouchEnable) touchEnable = nullptr;

    explicit Functions(void* library)
    {
        find(library, "zuisCreateZustStream", create);
        find(library, "zuisDestroyHandle", destroy);
        find(library, "zuisAllowMouseSettings", allowMouseSettings);
        find(library, "zuisBlockKeyCombination", block);
        find(library, "zuisUnblockKeyCombination", unblock);
        find(library, "zuisUnblockAllKeyCombinations", unblockAll);
        find(library, "zuisPause", pause);
        find(library, "zuisReset", reset);
        find(library, "zuisTouchEnable", touchEnable);
    }

    template <typename Function>
    static void find(void* library, const char* name, Function& function)
    {
        function = reinterpret_cast<Function>(dlsym(library, name));
        if (!function)
            throw std::runtime_error(fmt::format("the library does not export {}", name));
    }
};

namespace
{

/// Marks what is injected meanwhile as caused by the control thread.
class ControlCall
{
public:
    ControlCall() { InjectionWatch::setControlCall(true); }
    ~ControlCall() { InjectionWatch::setControlCall(false); }
    ControlCall(const ControlCall&) = delete;
    ControlCall& operator=(const ControlCall&) = delete;
};

} // namespace

void chooseBackend(Backend backend, std::optional<int> instance)
{
    // The numbers of the library's setting.
    const char* number = nullptr;
    if (backend == Backend::UINPUT)
        number = "0";
    else if (backend == Backend::CONTAINER)
        number = "1";
    else if (backend == Backend::XTEST)
        number = "2";
    if (number)
        setenv("VirtualEvDevImp", number, 1);
    if (instance)
        setenv("AcInstanceId", fmt::format("{}", *instance).c_str(), 1);
}

StreamingServer::StreamingServer(const std::string& library, const TelemetrySender& telemetry)
    : m_library(dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (!m_library)
        throw std::runtime_error(fmt::format("cannot load the library: {}", dlerror()));
    m_functions = std::make_unique<Functions>(m_library);
    m_config.telemetrySender = &telemetry;

    const ControlCall call;
    const ZustResult result = m_functions->create(&m_stream, &m_handle, &m_config);
    if (result != ZUST_R_SUCCESS)
    {
        m_functions->destroy(&m_handle);
        throw std::runtime_error(
            fmt::format("the input stream could not be opened: result {:#010x}", static_cast<uint32_t>(result)));
    }
    zudevRaiseStreamEvent(m_stream, {ZUST_SC_STREAM_CONNECTED, ZustEventDetail(200)});
}

StreamingServer::~StreamingServer()
{
    close();
}

bool StreamingServer::deliver(const ZustInputEvent& event, uint64_t receivedNs, uint64_t sentUs)
{
    return zudevDeliver(m_stream, &event, receivedNs, sentUs);
}

void StreamingServer::drain()
{
    zudevDrain(m_stream);
}

void StreamingServer::control(const Action& action)
{
    const ControlCall call;
    const Overloaded perform{
        [&](const BlockKey& change)
        { (change.block ? m_functions->block : m_functions->unblock)(m_handle, change.flags, change.key); },
        [&](const UnblockAll&) { m_functions->unblockAll(m_handle); },
        [&](const Pause& pause) { m_functions->pause(m_handle, pause.paused); },
        [&](const Reset&) { m_functions->reset(m_handle); },
        [&](const TouchEnable& touch) { m_functions->touchEnable(m_handle, touch.enable); },
        [&](const AllowMouseSettings& allow) { m_functions->allowMouseSettings(m_handle, allow.allow); },
        [](const auto&) {},
    };
    std::visit(perform, action);
}

void StreamingServer::close()
{
    if (!m_library)
        return;
    const ControlCall call;
    // In this order: no event may be delivered while the handle is destroyed.
    zudevCloseStream(m_stream);
    m_functions->destroy(&m_handle);
    m_functions.reset();
    dlclose(m_library);
    m_library = nullptr;
}

} // namespace host
