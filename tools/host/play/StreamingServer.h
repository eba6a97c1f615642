/// The part that a streaming server plays: loads the library, opens its input stream, feeds it, closes it.
#ifndef TOOLS_HOST_PLAY_STREAMING_SERVER_H
#define TOOLS_HOST_PLAY_STREAMING_SERVER_H

#include "StreamSdk/include/TelemetrySender.h"
#include "tools/host/play/Backend.h"
#include "tools/host/play/LoadedLibrary.h"
#include "tools/host/play/Player.h"

#include <optional>
#include <string>

namespace host
{

/// Sets the environment that makes the library choose a backend. Before the library is loaded.
/// \param instance number of the Android container, for that backend
void chooseBackend(Backend backend, std::optional<int> instance);

/// Everything happens on the thread that made it, the server's control thread.
class StreamingServer : public PlayTarget
{
public:
    /// Loads the library and opens the stream. \param telemetry borrowed
    /// \throws std::runtime_error with the reason when either fails
    StreamingServer(const std::string& library, const TelemetrySender& telemetry);
    ~StreamingServer() override;

    StreamingServer(const StreamingServer&) = delete;
    StreamingServer& operator=(const StreamingServer&) = delete;

    bool deliver(const ZustInputEvent& event, uint64_t receivedNs, uint64_t sentUs) override;
    void drain() override;
    void control(const Action& action) override;

    /// Closes the stream, destroys the handle and unloads the library. Nothing is injected afterwards.
    void close();

    /// False when the library could not prepare its devices; it says why in the log.
    bool hasHandle() const { return m_handle != nullptr; }

private:
    std::optional<LoadedLibrary> m_library;
    ZuisInputConfig m_config{};
    ZustStream m_stream = nullptr;
    ZuisHandle m_handle = nullptr;
};

} // namespace host

#endif
