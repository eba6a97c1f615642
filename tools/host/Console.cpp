#include "tools/host/Console.h"

#include "tools/host/report/LogLevels.h"

#include <algorithm>
#include <fmt/format.h>

#include <unistd.h>

namespace host
{
namespace
{

constexpr std::chrono::milliseconds TERMINAL_PERIOD{100};
constexpr std::chrono::milliseconds PLAIN_PERIOD{2000};

} // namespace

Console::Console(std::FILE* out, ZustLogLevel level)
    : m_out(out)
    , m_terminal(isatty(fileno(out)) == 1)
    , m_level(level)
    , m_thread([this] { run(); })
{
}

Console::~Console()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

void Console::log(ZustLogLevel level, const std::string& tag, const std::string& text)
{
    const auto index = static_cast<size_t>(std::clamp<int32_t>(level, 0, ZUST_LL_SILENCE));
    m_counts[index].fetch_add(1, std::memory_order_relaxed);
    if (level >= m_level && m_level != ZUST_LL_SILENCE)
        line(fmt::format("{:<8} {}: {}", logLevelName(level), tag, text));
}

void Console::line(std::string text)
{
    {
        const std::lock_guard lock(m_mutex);
        m_lines.push_back(std::move(text));
    }
    m_wake.notify_one();
}

void Console::setProgress(std::function<std::string()> progress)
{
    {
        const std::lock_guard lock(m_mutex);
        m_progress = std::move(progress);
    }
    m_wake.notify_one();
}

void Console::flush()
{
    std::unique_lock lock(m_mutex);
    m_written.wait(lock, [this] { return m_lines.empty() && !m_writing; });
}

size_t Console::logged(ZustLogLevel level) const
{
    return m_counts[static_cast<size_t>(level)].load(std::memory_order_relaxed);
}

void Console::eraseProgress()
{
    if (m_progressShown)
        std::fputs("\r\033[K", m_out);
    m_progressShown = false;
}

void Console::writePending(std::unique_lock<std::mutex>& lock)
{
    std::vector<std::string> lines;
    lines.swap(m_lines);
    const std::string progress = m_progress ? m_progress() : std::string();
    m_writing = true;
    lock.unlock();

    const auto now = std::chrono::steady_clock::now();
    if (!lines.empty() || progress.empty())
        eraseProgress();
    for (const std::string& text : lines)
        fmt::print(m_out, "{}\n", text);
    if (!progress.empty() && (m_terminal || now >= m_nextProgress))
    {
        if (m_terminal)
            fmt::print(m_out, "\r\033[K{}", progress);
        else
            fmt::print(m_out, "{}\n", progress);
        m_progressShown = m_terminal;
        m_nextProgress = now + PLAIN_PERIOD;
    }
    std::fflush(m_out);

    lock.lock();
    m_writing = false;
    m_written.notify_all();
}

void Console::run()
{
    std::unique_lock lock(m_mutex);
    while (!m_stop)
    {
        m_wake.wait_for(lock, TERMINAL_PERIOD, [this] { return m_stop || !m_lines.empty(); });
        writePending(lock);
    }
    m_progress = nullptr;
    writePending(lock);
}

} // namespace host
