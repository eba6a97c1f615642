#include "StreamSdk/helpers/input/ZuInputStream.h"

#include <exception>
#include <memory>

#include "RemoteInput/common/RemoteInputInjector.h"
#include "StreamSdk/include/TelemetrySender.h"
#include "StreamSdk/include/ZuStream.h"
#include "common/util/InUse.h"
#include "common/util/Log.h"

#define ZUIS_EXPORT __attribute__((visibility("default")))

namespace
{

constexpr char LOG_TAG[] = "ZuInputStream";

constexpr ZustLogLevel LOGGER_LEVEL = ZUST_LL_DEBUG;
constexpr uint32_t LOGGER_NO_TARGETS = 0;
constexpr uint32_t LOGGER_ALL_PREFIXES = 0xFFFFFFFF;
constexpr uint32_t LOGGER_PLAIN = 0;
constexpr uint32_t LOGGER_MAX_FILE_SIZE = 4'000'000;

// The default sink. Lives as long as the library, since its address ends up in callers' records.
const KeptInUse<TelemetrySenderNull> g_telemetrySenderNull;

// Runs what a C caller asked for: no exception gets past it.
template <class Result, class Function>
Result guarded(const char* name, Result onException, Function function) noexcept
{
    try
    {
        return function();
    }
    catch (const std::exception& exception)
    {
        LOG_ERROR(0x01010001, LOG_TAG, "%s(): %s", name, exception.what());
    }
    catch (...)
    {
        LOG_ERROR(0x01010002, LOG_TAG, "%s(): %s", name, "unknown exception");
    }
    return onException;
}

template <class Function>
void guarded(const char* name, Function function) noexcept
{
    guarded(name, 0,
            [&]
            {
                function();
                return 0;
            });
}

RemoteInputInjector* toInjector(ZuisHandle handle)
{
    return static_cast<RemoteInputInjector*>(handle);
}

// For the functions that report a null handle at info level and forward silently, which is all but one of them.
template <class Function>
void forward(const char* name, ZuisHandle handle, Function function) noexcept
{
    if (!handle)
    {
        LOG_INFO(0x01010003, LOG_TAG, "%s(): Input stream is not initialized", name);
        return;
    }
    guarded(name, [&] { function(*toInjector(handle)); });
}

ZuResult toZuResult(ZustResult result)
{
    switch (result)
    {
    case ZUST_R_SUCCESS:
        return RESULT_SUCCESS;
    case ZUST_R_INVALID_OPERATION:
        return RESULT_LOGGER_ALREADY_INITIALIZED;
    case ZUST_R_CREATION_FAILED:
        return RESULT_ERROR_FILE_WRITE;
    }
    return RESULT_ERROR;
}

// Whatever happens here, creation goes on: a logger that failed never stops input.
void initializeStack()
{
    if (ZuPlatformInitialize() != 0)
        return;
    const ZuResult result = toZuResult(zustInitializeLogger(LOGGER_LEVEL, LOGGER_NO_TARGETS, LOGGER_ALL_PREFIXES, "",
                                                            nullptr, nullptr, LOGGER_PLAIN, LOGGER_MAX_FILE_SIZE));
    if (result != RESULT_SUCCESS && result != RESULT_LOGGER_ALREADY_INITIALIZED)
        ZuPlatformUninitialize();
}

// Leaves the handle null when the injector cannot be made.
void zuisCreateHandle(ZuisHandle* inputStreamHandle, ZuisInputConfig* config)
{
    initializeStack();

    if (!inputStreamHandle)
    {
        LOG_ERROR(0x01010004, LOG_TAG, "Input media handle is nullptr");
        return;
    }
    if (*inputStreamHandle)
    {
        LOG_INFO(0x01010005, LOG_TAG, "Input stream is already initialized");
        return;
    }
    if (config && !config->telemetrySender)
        config->telemetrySender = &*g_telemetrySenderNull;
    const TelemetrySender& telemetry = config ? *config->telemetrySender : *g_telemetrySenderNull;

    LOG_INFO(0x01010006, LOG_TAG, "Creating RemoteInputInjector for Input stream");
    try
    {
        *inputStreamHandle = new RemoteInputInjector(telemetry, nullptr, nullptr);
    }
    catch (const std::exception& exception)
    {
        LOG_ERROR(0x01010007, LOG_TAG, "Failed to create RemoteInputInjector: %s", exception.what());
    }
    catch (...)
    {
        LOG_ERROR(0x01010008, LOG_TAG, "Failed to create RemoteInputInjector: %s", "unknown exception");
    }
}

// gnu::hot, here and along an event's whole way: the linker lays these functions side by side (section .text.hot), so
// that an event touches few pages of code.
[[gnu::hot]] void onInputReceived(ZuisHandle inputStreamHandle, ZustStreamConnection, const ZustInputEvent* event,
                                  uint64_t receivedTime, uint64_t sentTime)
{
    // The stream exists even when the injector could not be made, and the stack delivers all the same.
    if (!inputStreamHandle) [[unlikely]]
        return;
    guarded("onInputReceived", [&] { toInjector(inputStreamHandle)->OnEvent(event, receivedTime, sentTime); });
}

void inputStreamEventRaised(ZuisHandle, ZustConnection, ZustStreamConnection, ZustStream, ZustStreamConfig*,
                            ZustStreamEvent event)
{
    guarded("inputStreamEventRaised",
            [&]
            {
                LOG_INFO(0x01010009, LOG_TAG, "InputStreamEventRaised");
                if (event.eventType == ZUST_SC_STREAM_CONNECTED)
                    LOG_INFO(0x0101000A, LOG_TAG, "Start Input stream.");
                else if (event.eventType == ZUST_SC_STREAM_DISCONNECTED)
                    LOG_INFO(0x0101000B, LOG_TAG, "Stop Input stream.");
                else if (event.eventType == ZUST_SC_LAST) // deliberate: no other value counts as unexpected
                    LOG_ERROR(0x0101000C, LOG_TAG, "Unexpected event type '%d' in StreamEventRaised", event.eventType);
            });
}

ZustResult streamConfigUpdateRequested(ZuisHandle, ZustStreamConnection, const ZustStreamConfig*)
{
    return ZUST_R_SUCCESS;
}

[[maybe_unused]] void setStreamConnection(ZustStreamConnection) {}

ZustResult createZustStream(ZustStream* stream, ZuisHandle* inputStreamHandle, ZuisInputConfig* config)
{
    LOG_INFO(0x0101000D, LOG_TAG, "Creating Input Stream");
    zuisCreateHandle(inputStreamHandle, config);
    const ZuisHandle handle = inputStreamHandle ? *inputStreamHandle : nullptr;

    const auto streamConfig = std::make_unique<ZustStreamConfig>(); // all zero
    streamConfig->mediaType = ZUST_MT_INPUT;
    streamConfig->config.input.encryptionEnabled = false;
    streamConfig->config.input.onInputReceived = onInputReceived;
    streamConfig->config.input.context = handle;

    ZustStreamCallbacks callbacks{};
    callbacks.context = handle;
    callbacks.streamEventRaised = inputStreamEventRaised;
    callbacks.streamConfigUpdateRequested = streamConfigUpdateRequested;
    callbacks.onStreamConnecting = nullptr;

    const ZustResult result = zustCreateStream("input_1", "Input Stream", 1, streamConfig.get(), &callbacks, stream);
    if (result != ZUST_R_SUCCESS)
        LOG_ERROR(0x0101000E, LOG_TAG, "Failed to create input stream, result: 0x%08x",
                  static_cast<unsigned int>(result));
    return result;
}

} // namespace

extern "C"
{

    ZUIS_EXPORT ZustResult zuisCreateZustStream(ZustStream* stream, ZuisHandle* inputStreamHandle,
                                                ZuisInputConfig* config)
    {
        return guarded("zuisCreateZustStream", ZUST_R_CREATION_FAILED,
                       [&] { return createZustStream(stream, inputStreamHandle, config); });
    }

    ZUIS_EXPORT ZustResult zuisDestroyHandle(ZuisHandle* inputStreamHandle)
    {
        forward("zuisDestroyHandle", inputStreamHandle ? *inputStreamHandle : nullptr,
                [&](RemoteInputInjector& injector)
                {
                    delete &injector;
                    *inputStreamHandle = nullptr;
                });
        return ZUST_R_SUCCESS;
    }

    // Deliberately unlike the others: a null handle is an error here, and success is logged.
    ZUIS_EXPORT void zuisAllowMouseSettings(ZuisHandle handle, bool allow)
    {
        if (!handle)
        {
            LOG_ERROR(0x0101000F, LOG_TAG, "zuisAllowMouseSettings(): Input stream is null!");
            return;
        }
        LOG_INFO(0x01010010, LOG_TAG, "Allow mouse setting");
        guarded("zuisAllowMouseSettings", [&] { toInjector(handle)->AllowMouseSettings(allow); });
    }

    ZUIS_EXPORT void zuisBlockKeyCombination(ZuisHandle handle, uint32_t keyFlags, ZustKeyCode keyCode)
    {
        forward("zuisBlockKeyCombination", handle,
                [&](RemoteInputInjector& injector) { injector.BlockKeyCombination(keyFlags, keyCode); });
    }

    ZUIS_EXPORT void zuisUnblockKeyCombination(ZuisHandle handle, uint32_t keyFlags, ZustKeyCode keyCode)
    {
        forward("zuisUnblockKeyCombination", handle,
                [&](RemoteInputInjector& injector) { injector.UnblockKeyCombination(keyFlags, keyCode); });
    }

    ZUIS_EXPORT void zuisUnblockAllKeyCombinations(ZuisHandle handle)
    {
        forward("zuisUnblockAllKeyCombinations", handle,
                [](RemoteInputInjector& injector) { injector.UnblockAllKeyCombinations(); });
    }

    ZUIS_EXPORT void zuisPause(ZuisHandle handle, bool pause)
    {
        forward("zuisPause", handle, [&](RemoteInputInjector& injector) { injector.Pause(pause); });
    }

    ZUIS_EXPORT void zuisReset(ZuisHandle handle)
    {
        forward("zuisReset", handle, [](RemoteInputInjector& injector) { injector.Reset(); });
    }

    ZUIS_EXPORT void zuisTouchEnable(ZuisHandle handle, bool enable)
    {
        forward("zuisTouchEnable", handle, [&](RemoteInputInjector& injector) { injector.EnableTouch(enable); });
    }
}
