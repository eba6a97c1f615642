#include "tools/desktop/DesktopScreen.h"

#include "tools/desktop/DesktopPainter.h"
#include "tools/shared/Drawing.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include <cairo-xcb.h>
#include <fmt/core.h>
#include <xcb/xcb.h>

namespace desktop
{

namespace
{
using Clock = std::chrono::steady_clock;

constexpr auto FRAME_INTERVAL = std::chrono::milliseconds(33);
// Drawing may take a quarter of the time at most, its share of the server included.
constexpr int REST_PER_WORK = 4;

struct Disconnect
{
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
using ConnectionOwner = std::unique_ptr<xcb_connection_t, Disconnect>;

/// The window's contents. XCB, unlike Xlib, outlives its server: requests on a dead connection go nowhere.
class Frame
{
public:
    Frame(const std::string& display, uint32_t window)
        : m_window(window)
    {
        int number = 0;
        m_connection.reset(xcb_connect(display.c_str(), &number));
        xcb_screen_iterator_t screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection.get()));
        if (xcb_connection_has_error(m_connection.get()))
            return;
        for (; number > 0 && screen.rem > 1; --number)
            xcb_screen_next(&screen);
        for (auto depth = xcb_screen_allowed_depths_iterator(screen.data); depth.rem; xcb_depth_next(&depth))
        {
            for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem; xcb_visualtype_next(&visual))
            {
                if (visual.data->visual_id == screen.data->root_visual)
                    m_visual = visual.data;
            }
        }
    }

    ~Frame()
    {
        m_painter.reset();
        m_back.reset();
        if (m_front)
            cairo_device_finish(cairo_surface_get_device(m_front.get()));
        m_front.reset();
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    void show(const DesktopModel& model, const std::string& title)
    {
        if (!m_visual || xcb_connection_has_error(m_connection.get()))
            return;
        adopt(model.geometry(), title);
        const shared::ContextOwner back(cairo_create(m_back.get()));
        m_painter->paint(back.get(), model);
        const shared::ContextOwner front(cairo_create(m_front.get()));
        cairo_set_source_surface(front.get(), m_back.get(), 0, 0);
        cairo_paint(front.get());
        cairo_surface_flush(m_front.get());
        // Wait until the server has drawn too: frames must not queue up before it.
        std::free(xcb_get_input_focus_reply(m_connection.get(), xcb_get_input_focus(m_connection.get()), nullptr));
    }

private:
    void adopt(const SeenGeometry& window, const std::string& title)
    {
        if (m_painter && m_painter->window().x == window.x && m_painter->window().y == window.y
            && m_painter->window().width == window.width && m_painter->window().height == window.height)
            return;
        if (m_front)
            cairo_xcb_surface_set_size(m_front.get(), window.width, window.height);
        else
            m_front.reset(
                cairo_xcb_surface_create(m_connection.get(), m_window, m_visual, window.width, window.height));
        m_back.reset(cairo_surface_create_similar(m_front.get(), CAIRO_CONTENT_COLOR, window.width, window.height));
        m_painter.emplace(m_back.get(), window, title);
    }

    uint32_t m_window;
    ConnectionOwner m_connection;
    xcb_visualtype_t* m_visual = nullptr;
    shared::SurfaceOwner m_front;
    shared::SurfaceOwner m_back;
    std::optional<DesktopPainter> m_painter;
};
} // namespace

DesktopScreen::DesktopScreen(std::string display, uint32_t window, std::string title, std::string png)
    : m_displayName(std::move(display))
    , m_window(window)
    , m_title(std::move(title))
    , m_png(std::move(png))
    , m_thread(&DesktopScreen::run, this)
{
}

DesktopScreen::~DesktopScreen()
{
    {
        const LockGuard lock(m_mutex);
        m_stop = true;
    }
    m_work.notify_all();
    m_end.notify_all();
    m_thread.join();
}

void DesktopScreen::post(const SeenEvent& event)
{
    {
        const LockGuard lock(m_mutex);
        m_posted.push_back(event);
    }
    wake();
}

void DesktopScreen::redraw()
{
    wake();
}

void DesktopScreen::savePng()
{
    {
        const LockGuard lock(m_mutex);
        m_pngWanted = true;
    }
    wake();
}

void DesktopScreen::wake()
{
    bool first = false;
    {
        const LockGuard lock(m_mutex);
        first = !std::exchange(m_wanted, true);
    }
    if (first)
        m_work.notify_one();
}

void DesktopScreen::run()
{
    Frame frame(m_displayName, m_window);
    DesktopModel model;
    std::vector<SeenEvent> events;
    while (true)
    {
        bool pngWanted = false;
        {
            UniqueLock lock(m_mutex);
            m_work.wait(lock.native(), [this]() REQUIRES(m_mutex) { return m_wanted || m_stop; });
            if (m_stop)
                return;
            m_wanted = false;
            pngWanted = std::exchange(m_pngWanted, false);
            events.swap(m_posted);
        }
        for (const SeenEvent& event : events)
            model.apply(event);
        events.clear();

        const auto begin = Clock::now();
        if (pngWanted)
        {
            try
            {
                DesktopPainter::writePng(m_png, model, m_title);
            }
            catch (const std::runtime_error& error)
            {
                fmt::print(stderr, "zuis-desktop: {}\n", error.what());
            }
        }
        if (model.geometry().width > 0)
            frame.show(model, m_title);
        const auto rest = std::max<Clock::duration>(FRAME_INTERVAL, REST_PER_WORK * (Clock::now() - begin));
        UniqueLock lock(m_mutex);
        m_end.wait_until(lock.native(), begin + rest, [this]() REQUIRES(m_mutex) { return m_stop; });
    }
}

} // namespace desktop
