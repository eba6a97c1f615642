#ifndef REMOTE_INPUT_VIRTUAL_EV_DEV_XTEST_H
#define REMOTE_INPUT_VIRTUAL_EV_DEV_XTEST_H

#include "RemoteInput/common/linux/VirtualEvDev.h"

#include <bitset>
#include <cstdint>
#include <memory>
#include <vector>

/// Describes a device that is no device: its input is replayed into the X server of the session by the XTest extension.
class VirtualEvDevXtest : public VirtualEvDev
{
public:
    VirtualEvDevXtest()
        : VirtualEvDev(vevdev::Implementation::XTEST)
    {
    }

    /// Asks the X server for the extension. Without the extension's library the question is skipped.
    /// \return true
    /// \throws std::runtime_error without a display or without the extension
    bool create() override;

    /// \param fd ignored
    /// \return 0
    /// \throws std::runtime_error when the extension's library lacks a function, or the device type is not set
    int createFromDevice(int fd, std::unique_ptr<VirtualEvDevUinput>& device) override;
};

/// Collects a report and replays it at its end, on a connection to the X server of its own.
class VirtualEvDevUinputXtest : public VirtualEvDevUinput
{
public:
    VirtualEvDevUinputXtest();

    /// Lifts the keys and buttons that the device still holds down.
    ~VirtualEvDevUinputXtest() override;

    /// See VirtualEvDevXtest::createFromDevice.
    int create(const VirtualEvDevXtest& builder, int fd);

    /// Keeps the event, or replays what was kept when it is EV_SYN/SYN_REPORT. A touch screen's ABS_X and ABS_Y are
    /// screen pixels. What the X server thinks of it is not told.
    /// \return 0
    int writeEvent(unsigned int type, unsigned int code, int value) override;

private:
    struct Event
    {
        uint32_t code;
        int32_t value;
        uint64_t time; // milliseconds of the steady clock; deliberately kept although nobody reads it
    };

    struct State;

    using SendFunction = void (VirtualEvDevUinputXtest::*)();

    void fakeKey(unsigned int keyCode, bool press);
    void fakeButton(unsigned int button, bool press);
    void liftHeld();
    void sendKeyboardEvents();
    void sendMouseEvents();
    void sendTouchEvents();
    void sendGamepadEvents();

    int32_t m_mouseX = 0; // the last touch position, in pixels
    int32_t m_mouseY = 0;
    SendFunction m_sendFunc = nullptr;
    std::unique_ptr<State> m_state;
    std::vector<Event> m_events;
    std::bitset<256> m_heldKeys; // by X key code; X's codes of keys and buttons are bytes
    std::bitset<256> m_heldButtons;
};

#endif
