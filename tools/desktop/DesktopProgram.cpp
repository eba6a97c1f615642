#include "tools/desktop/DesktopProgram.h"

#include "tools/desktop/DesktopModel.h"
#include "tools/desktop/DesktopPainter.h"
#include "tools/desktop/DesktopRecorder.h"
#include "tools/desktop/DesktopScreen.h"
#include "tools/desktop/DesktopWindow.h"
#include "tools/shared/FileDescriptor.h"
#include "tools/shared/MonotonicClock.h"
#include "tools/shared/ReadyFile.h"
#include "tools/shared/Signals.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include <fmt/core.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace desktop
{

namespace
{
constexpr int64_t SECOND = 1'000'000'000;
constexpr int64_t START_LIMIT = 10 * SECOND;

shared::FileDescriptor catchSignals()
{
    std::signal(SIGPIPE, SIG_IGN); // whoever reads "ready" may be gone
    return shared::blockSignals({SIGTERM, SIGINT, SIGHUP, SIGUSR1});
}

class Program
{
public:
    explicit Program(const DesktopOptions& options)
        : m_options(options)
        , m_signals(catchSignals())
    {
        if (!m_options.readyFile.empty())
            unlink(m_options.readyFile.c_str()); // one that is left over would deceive who waits for it
        if (!m_options.record.empty())
            m_recorder.emplace(m_options.record);
        m_window.emplace(
            m_options, [this](const SeenEvent& event) { onEvent(event); },
            [this](unsigned keycode) { return m_model.isKeyHeld(keycode); }, [this] { onServerGone(); });
        if (m_recorder)
            m_recorder->start(shared::monotonicNanoseconds(), m_window->geometry(), m_window->screen(),
                              DesktopPainter::canvas(m_window->geometry()));
        m_screen.emplace(m_window->displayName(), static_cast<uint32_t>(m_window->id()), m_options.title,
                         m_options.png);
        m_window->start();
    }

    int run()
    {
        const int64_t started = shared::monotonicNanoseconds();
        std::string reason;
        while (reason.empty())
        {
            waitForWork();
            m_window->readEvents();
            m_window->tendFocus();
            if (m_window->takeExposed())
                m_screen->redraw();
            if (!m_readySince && m_window->isReady())
                tellReady();
            reason = readSignals();
            const int64_t now = shared::monotonicNanoseconds();
            if (m_window->closeAsked())
                reason = "closed";
            else if (m_readySince && m_options.exitAfter
                     && static_cast<double>(now - *m_readySince) >= *m_options.exitAfter * static_cast<double>(SECOND))
                reason = "exit-after";
            else if (!m_readySince && reason.empty() && now - started > START_LIMIT)
                reason = "no-focus";
        }
        m_window->drain(); // what the server has sent by now belongs to the record
        const int code = finish(reason);
        if (reason == "no-focus")
            throw std::runtime_error("the window did not get the focus within 10 s");
        return code;
    }

private:
    [[noreturn]] void onServerGone() noexcept
    {
        // Unless everything is written already, and only the window was still to be closed.
        if (!m_finished)
        {
            fmt::print(stderr, "zuis-desktop: the X server went away\n");
            try
            {
                finish("server-gone");
            }
            catch (const std::exception& error)
            {
                fmt::print(stderr, "zuis-desktop: {}\n", error.what());
            }
        }
        std::_Exit(exit_code::SERVER_GONE);
    }

    void onEvent(const SeenEvent& event)
    {
        if (m_recorder)
            m_recorder->event(event);
        m_model.apply(event);
        m_screen->post(event);
    }

    void waitForWork()
    {
        // Short while the focus is being asked for, or while a time limit runs out.
        int64_t wait = m_window->isReady() ? SECOND : DesktopWindow::FOCUS_INTERVAL;
        if (m_readySince && m_options.exitAfter)
        {
            const double left = *m_options.exitAfter * static_cast<double>(SECOND)
                                - static_cast<double>(shared::monotonicNanoseconds() - *m_readySince);
            wait = std::clamp(static_cast<int64_t>(std::min(left, 1e9)), int64_t{0}, wait);
        }
        std::array<pollfd, 2> sources{{{m_window->connection(), POLLIN, 0}, {m_signals.get(), POLLIN, 0}}};
        const timespec limit{static_cast<time_t>(wait / SECOND), static_cast<long>(wait % SECOND)};
        ppoll(sources.data(), sources.size(), &limit, nullptr);
    }

    /// Why to end, if a signal asked for it; else empty.
    std::string readSignals()
    {
        std::string reason;
        signalfd_siginfo info{};
        while (read(m_signals.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        {
            if (info.ssi_signo != SIGUSR1)
                reason = "signal";
            else if (!m_options.png.empty())
                m_screen->savePng();
        }
        return reason;
    }

    void tellReady()
    {
        m_readySince = shared::monotonicNanoseconds();
        if (m_options.readyFile.empty())
        {
            fmt::print("ready\n");
            std::fflush(stdout);
            return;
        }
        shared::createReadyFile(m_options.readyFile);
    }

    /// Completes the files. Does not use the connection to the server.
    int finish(const std::string& reason)
    {
        m_finished = true;
        m_screen.reset();
        if (m_recorder)
            m_recorder->end(shared::monotonicNanoseconds(), m_model, reason);
        if (!m_options.png.empty() && m_model.geometry().width > 0)
            DesktopPainter::writePng(m_options.png, m_model, m_options.title);
        return m_recorder && !m_recorder->good() ? exit_code::FAILED : exit_code::DONE;
    }

    const DesktopOptions& m_options;
    shared::FileDescriptor m_signals;
    DesktopModel m_model;
    std::optional<DesktopRecorder> m_recorder;
    std::optional<DesktopWindow> m_window;
    std::optional<DesktopScreen> m_screen;
    std::optional<int64_t> m_readySince;
    bool m_finished = false;
};
} // namespace

int runDesktop(const DesktopOptions& options) noexcept
{
    try
    {
        return Program(options).run();
    }
    catch (const std::exception& error)
    {
        fmt::print(stderr, "zuis-desktop: {}\n", error.what());
        return exit_code::FAILED;
    }
}

} // namespace desktop
