#ifndef REMOTE_INPUT_RI_GAMEPAD_H
#define REMOTE_INPUT_RI_GAMEPAD_H

#include "RemoteInput/common/RimBase.h"
#include "RemoteInput/common/linux/VirtualEvDev.h"
#include "StreamSdk/include/TelemetrySender.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

/// Two bytes of a controller's report, as one number or byte by byte.
union gpad_var
{
    uint16_t gpad16;
    struct
    {
        uint8_t msB; // at the lower address
        uint8_t lsB;
    } g;
};

/// The input report of an Xbox 360 controller on USB, little-endian.
struct xbox_usb_data
{
    uint16_t length;
    gpad_var buttons;
    gpad_var z_axis; ///< msB: left trigger, lsB: right trigger; 0..255
    int16_t x_axis;  ///< left stick, right is positive
    int16_t y_axis;  ///< left stick, up is positive
    int16_t x_rot;   ///< right stick
    int16_t y_rot;
    gpad_var mode_vibration;
    uint32_t epilogue;
};

/// What the client sends: one report, the controller it comes from, and which controllers exist.
struct __attribute__((packed)) xbox_usb_data_ex
{
    uint16_t length;
    uint16_t controllerNumber;  ///< 0..3
    uint16_t controllersBitmap; ///< bit i: controller i is connected
    xbox_usb_data xboxUsbData;
    uint64_t captureTime; ///< client clock, us; only in payloads of exactly 34 bytes
};

static_assert(sizeof(xbox_usb_data) == 20);
static_assert(sizeof(xbox_usb_data_ex) == 34);
static_assert(offsetof(xbox_usb_data_ex, xboxUsbData) == 6);
static_assert(offsetof(xbox_usb_data_ex, captureTime) == 26);

/// Keeps up to four virtual gamepads, which come and go with the client's controllers, and turns the differences
/// between consecutive reports into button and axis events. Event thread only.
class RiGamepad : public RimBase
{
public:
    static constexpr int MAX_GAMEPADS = 4;

    /// One controller. Reports the first difference against a controller at rest.
    class Gamepad
    {
    public:
        /// Makes the device. Nothing is thrown: a device that cannot be made is logged, and reports are then dropped.
        Gamepad();

        /// \param eventId receives, or-ed in, what kinds of change the report held
        /// \return whether anything was written
        bool process(const xbox_usb_data& report, uint32_t& eventId);

    private:
        std::unique_ptr<VirtualEvDevUinput> m_device; // null when creation failed
        xbox_usb_data m_lastData{};
    };

    /// \param telemetry borrowed; must outlive the responder
    explicit RiGamepad(const TelemetrySender& telemetry);
    ~RiGamepad() override;

    /// \return whether anything was written
    bool respond(const ZustInputEvent* event, const InputTimeStats& stats) override;

    /// Deliberately nothing: held buttons and deflected sticks outlive a reset. Any thread. \return true
    bool resetState();

private:
    void applyBitmap(uint16_t bitmap);

    std::array<std::unique_ptr<Gamepad>, MAX_GAMEPADS> m_gamepads;
    uint16_t m_gamepadBitmap = 0;
    const TelemetrySender& m_telemetry;
};

#endif
