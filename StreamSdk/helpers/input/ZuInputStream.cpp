#include "StreamSdk/helpers/input/ZuInputStream.h"

#include <cxxabi.h>
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

// Runs what a C caller asked for: no exception gets past it but the one that ends a cancelled thread, which has to.
template <class Result, class Function>
Result guarded(const char* name, Result onException, Function function)
{
    try
    {
        return function();
    }
    catch (const abi::__forced_unwind&)
    {
        throw;
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
void guarded(const char* name, Function function)
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

// Deliberate: at every call, also when the handle is missing or there already; whatever happens here, creation goes on,
// since a logger that failed never stops input; and nothing undoes it when the handle is destroyed.
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
                else if (event.eventType == ZUST_SC_LAST) // deliberate: no other value is reported as unexpected
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

    // Deliberate: also without a handle. A stream that fails leaves the handle to the caller.
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

    // Deliberate: the functions below report a null handle at info level and forward silently; but for
    // zuisAllowMouseSettings, to which it is an error, and which logs success as well.

    ZUIS_EXPORT ZustResult zuisDestroyHandle(ZuisHandle* inputStreamHandle)
    {
        if (!inputStreamHandle || !*inputStreamHandle)
        {
            LOG_INFO(0x01010003, LOG_TAG, "zuisDestroyHandle(): Input stream is not initialized");
            return ZUST_R_SUCCESS;
        }
        guarded("zuisDestroyHandle",
                [&]
                {
                    delete toInjector(*inputStreamHandle);
                    *inputStreamHandle = nullptr;
                });
        return ZUST_R_SUCCESS;
    }

    ZUIS_EXPORT void zuisAllowMouseSettings(ZuisHandle handle, bool allow)
    {
        if (!handle)
            return LOG_ERROR(0x0101000F, LOG_TAG, "zuisAllowMouseSettings(): Input stream is null!");
        LOG_INFO(0x01010010, LOG_TAG, "Allow mouse setting");
        guarded("zuisAllowMouseSettings", [&] { toInjector(handle)->AllowMouseSettings(allow); });
    }

    ZUIS_EXPORT void zuisBlockKeyCombination(ZuisHandle handle, uint32_t keyFlags, ZustKeyCode keyCode)
    {
        if (!handle)
            return LOG_INFO(0x01010011, LOG_TAG, "zuisBlockKeyCombination(): Input stream is not initialized");
        guarded("zuisBlockKeyCombination", [&] { toInjector(handle)->BlockKeyCombination(keyFlags, keyCode); });
    }

    ZUIS_EXPORT void zuisUnblockKeyCombination(ZuisHandle handle, uint32_t keyFlags, ZustKeyCode keyCode)
    {
        if (!handle)
            return LOG_INFO(0x01010012, LOG_TAG, "zuisUnblockKeyCombination(): Input stream is not initialized");
        guarded("zuisUnblockKeyCombination", [&] { toInjector(handle)->UnblockKeyCombination(keyFlags, keyCode); });
    }

    ZUIS_EXPORT void zuisUnblockAllKeyCombinations(ZuisHandle handle)
    {
        if (!handle)
            return LOG_INFO(0x01010013, LOG_TAG, "zuisUnblockAllKeyCombinations(): Input stream is not initialized");
        guarded("zuisUnblockAllKeyCombinations", [&] { toInjector(handle)->UnblockAllKeyCombinations(); });
    }

    ZUIS_EXPORT void zuisPause(ZuisHandle handle, bool pause)
    {
        if (!handle)
            return LOG_INFO(0x01010014, LOG_TAG, "zuisPause(): Input stream is not initialized");
        guarded("zuisPause", [&] { toInjector(handle)->Pause(pause); });
    }

    ZUIS_EXPORT void zuisReset(ZuisHandle handle)
    {
        if (!handle)
            return LOG_INFO(0x01010015, LOG_TAG, "zuisReset(): Input stream is not initialized");
        guarded("zuisReset", [&] { toInjector(handle)->Reset(); });
    }

    ZUIS_EXPORT void zuisTouchEnable(ZuisHandle handle, bool enable)
    {
        if (!handle)
            return LOG_INFO(0x01010016, LOG_TAG, "zuisTouchEnable(): Input stream is not initialized");
        guarded("zuisTouchEnable", [&] { toInjector(handle)->EnableTouch(enable); });
    }
}
