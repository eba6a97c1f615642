#ifndef TOOLS_DESKTOP_DESKTOP_SCREEN_H
#define TOOLS_DESKTOP_DESKTOP_SCREEN_H

#include "common/util/ThreadSafety.h"
#include "tools/desktop/DesktopModel.h"
#include "tools/desktop/SeenEvent.h"

#include <condition_variable>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace desktop
{

/// Shows the picture in the window, on a thread and a server connection of its own, so that drawing never delays the
/// reading of events. Draws 30 times a second at most, less often where drawing is slow, and not at all while nothing
/// happens.
class DesktopScreen
{
public:
    /// `window`: an X window on `display`, made by another connection with the screen's default visual. `png`: where
    /// `savePng` writes.
    DesktopScreen(std::string display, uint32_t window, std::string title, std::string png);
    /// Ends the thread; what was posted and not drawn yet is dropped.
    ~DesktopScreen();
    DesktopScreen(const DesktopScreen&) = delete;
    DesktopScreen& operator=(const DesktopScreen&) = delete;

    /// Takes an event for the next frame. Any thread; never waits for drawing.
    void post(const SeenEvent& event);
    /// Asks for a frame. Any thread.
    void redraw();
    /// Asks for a picture file of what was posted so far; failure is told on stderr. Any thread.
    void savePng();

private:
    void run();
    void wake();

    std::string m_displayName;
    uint32_t m_window;
    std::string m_title;
    std::string m_png;

    Mutex m_mutex;
    std::condition_variable m_work;
    std::condition_variable m_end;
    std::vector<SeenEvent> m_posted GUARDED_BY(m_mutex);
    bool m_wanted GUARDED_BY(m_mutex) = false;
    bool m_pngWanted GUARDED_BY(m_mutex) = false;
    bool m_stop GUARDED_BY(m_mutex) = false;

    std::thread m_thread;
};

} // namespace desktop

#endif
