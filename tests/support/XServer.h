#ifndef TESTS_SUPPORT_X_SERVER_H
#define TESTS_SUPPORT_X_SERVER_H

#include <chrono>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

struct _XDisplay;

/// A private Xvfb on a free display, and the DISPLAY variable that names it. Killed with the object.
class XServer
{
public:
    /// \param arguments for Xvfb, e.g. {"-extension", "XTEST"} \param screen e.g. "1280x720x24"
    explicit XServer(const std::vector<std::string>& arguments = {}, const std::string& screen = "1280x720x24");
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    void kill();
    void stop(); ///< it hears and says nothing until it goes on
    void goOn();
    bool isAlive() const { return m_pid > 0; }
    const std::string& display() const { return m_display; }

private:
    pid_t m_pid = -1;
    std::string m_display;
};

/// A folder for Xvfb's -xkbdir: a keymap whose key codes end at 60.
void makeFewKeys(const std::string& folder);

/// A client that keeps the server to itself: it answers nobody else meanwhile.
class XGrab
{
public:
    XGrab();
    ~XGrab();
    XGrab(const XGrab&) = delete;
    XGrab& operator=(const XGrab&) = delete;

private:
    _XDisplay* m_display;
};

/// What an X client saw.
struct XSeen
{
    enum Type
    {
        KEY_PRESS,
        KEY_RELEASE,
        BUTTON_PRESS,
        BUTTON_RELEASE,
        MOTION
    };

    Type type;
    unsigned int detail; ///< key code or button; 0 for motion
    int x = 0;           ///< on the screen; motion only
    int y = 0;

    bool operator==(const XSeen&) const = default;
};
std::ostream& operator<<(std::ostream& out, const XSeen& seen);

/// An X client with a window over the whole screen and the focus. Auto-repeat is switched off.
class XWatcher
{
public:
    XWatcher();
    ~XWatcher();
    XWatcher(const XWatcher&) = delete;
    XWatcher& operator=(const XWatcher&) = delete;

    /// Everything up to now, waiting until at least `count` events are there or the time is over.
    std::vector<XSeen> take(size_t count = 0, std::chrono::milliseconds patience = std::chrono::seconds(10));

    std::pair<int, int> pointer() const;
    void warpPointer(int x, int y);
    bool anyKeyOrButtonDown() const;

private:
    unsigned int queryPointer(int& x, int& y) const; ///< returns the buttons that are down

    _XDisplay* m_display;
};

#endif
