#include "tools/host/play/StreamingServer.h"

#include "devstack/zudev.h"
#include "tools/host/play/InjectionWatch.h"

#include <cstdlib>
#include <fmt/format.h>
#include <stdexcept>

namespace host
{

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
{
    m_library.emplace(library);
    m_config.telemetrySender = &telemetry;

    const ControlCall call;
    const ZustResult result = m_library->createZustStream(&m_stream, &m_handle, &m_config);
    if (result != ZUST_R_SUCCESS)
    {
        m_library->destroyHandle(&m_handle);
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
        {
            (change.block ? m_library->blockKeyCombination : m_library->unblockKeyCombination)(m_handle, change.flags,
                                                                                               change.key);
        },
        [&](const UnblockAll&) { m_library->unblockAllKeyCombinations(m_handle); },
        [&](const Pause& pause) { m_library->pause(m_handle, pause.paused); },
        [&](const Reset&) { m_library->reset(m_handle); },
        [&](const TouchEnable& touch) { m_library->touchEnable(m_handle, touch.enable); },
        [&](const AllowMouseSettings& allow) { m_library->allowMouseSettings(m_handle, allow.allow); },
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
    m_library->destroyHandle(&m_handle);
    m_library.reset();
}

} // namespace host
