#include "RemoteInput/common/linux/RiMouseSettings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <thread>

#include <X11/extensions/XInput.h>

#include "RemoteInput/common/linux/XServerLoss.h"
#include "RemoteInput/common/linux/XTimeLimit.h"
#include "common/util/InUse.h"
#include "common/util/Log.h"
#include "common/util/TimeUtils.h"

namespace
{

constexpr char LOG_TAG[] = "RiMouseSettings";

constexpr long ACQUIRE_TIMEOUT_MS = 1000;
constexpr std::chrono::milliseconds ACQUIRE_INTERVAL{10};

constexpr unsigned int MAX_SENSITIVITY = 20;
constexpr int POINTER_THRESHOLD = 5;

// By acceleration (off, on) and sensitivity - 1.
constexpr double TRANSFORMATION_MULTIPLIERS[2][MAX_SENSITIVITY] = {
    {0.03125, 0.0625, 0.125, 0.25, 0.375, 0.5, 0.625, 0.75, 0.875, 1.0,
     1.25,    1.5,    1.75,  2.0,  2.25,  2.5, 2.75,  3.0,  3.25,  3.5},
    {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 1.0, 1.1, 1.2, 1.3, 1.4, 1.5, 1.6, 1.7, 1.8, 1.9, 2.0},
};

struct PointerSpeed
{
    unsigned int upToSensitivity;
    int num;
    int den;
};

constexpr std::array POINTER_SPEEDS{
    PointerSpeed{4, 1, 1},
    PointerSpeed{9, 3, 2},
    PointerSpeed{MAX_SENSITIVITY, 2, 1},
};

// Quoted, so that the shell passes each name as one word.
const std::string& transformationMatrixConfig()
{
    static const KeptInUse<std::string> TRANSFORMATION_MATRIX_CONFIG("\"Coordinate Transformation Matrix\"");
    return *TRANSFORMATION_MATRIX_CONFIG;
}

const std::string& accelerationProfileConfig()
{
    static const KeptInUse<std::string> ACCELERATION_PROFILE_CONFIG("\"libinput Accel Profile Enabled\"");
    return *ACCELERATION_PROFILE_CONFIG;
}

std::string setPropertyCommand(RiMouseSettings::DeviceId device, const std::string& property, const std::string& value)
{
    return "xinput set-prop " + std::to_string(device) + " " + property + " " + value;
}

// As "%f", but deliberately with a point also where the host's locale has a comma: xinput expects one.
std::string withSixDecimals(double value)
{
    std::array<char, 32> text;
    const auto end = std::to_chars(text.begin(), text.end(), value, std::chars_format::fixed, 6).ptr;
    return std::string(text.begin(), end);
}

// Deliberate: a command that fails is not detected: xinput and a shell are the host's business.
void run(const std::string& command)
{
    [[maybe_unused]] const int status = std::system(command.c_str());
}

} // namespace

RiMouseSettings::RiMouseSettings(const RiMouse& mouse)
    : m_display(XOpenDisplayCheckInitialized(nullptr))
    , m_riMouse(mouse)
{
    if (!m_display)
    {
        LOG_ERROR(0x03050001, LOG_TAG, "XOpenDisplay returned failure, streaming will not be successful");
        return;
    }
    acquireXid();
}

void RiMouseSettings::acquireXid()
{
    const long start = GetMillisecondsSinceEpoch();
    // A server that does not answer takes no longer than one that does not know the name.
    const XTimeLimit limit(std::chrono::milliseconds(ACQUIRE_TIMEOUT_MS), {XTimeLimit::thisThread()});
    while (true)
    {
        const std::string name = m_riMouse.GetDeviceName();
        m_XID = findDevice(name);
        const long elapsed = GetMillisecondsSince(start);
        if (m_XID != INVALID_XID)
        {
            // Deliberate: the spelling is kept.
            LOG_INFO(0x03050002, LOG_TAG, "Succesfully acquired XID[%lu]; timeTaken:%ld ms.", m_XID, elapsed);
            return;
        }
        if (elapsed > ACQUIRE_TIMEOUT_MS)
        {
            // Deliberate: no warning, and no other search later.
            LOG_INFO(0x03050003, LOG_TAG, "Unable to acquire device XID for %s. Timed out after %ld ms.", name.c_str(),
                     elapsed);
            return;
        }
        std::this_thread::sleep_for(ACQUIRE_INTERVAL);
    }
}

RiMouseSettings::DeviceId RiMouseSettings::findDevice(const std::string& name) const
{
    const ScopedXLock lock(m_display.get());
    if (!lock)
        return INVALID_XID;
    int count = 0;
    XDeviceInfo* devices = nullptr;
    untilServerIsLost([&] { devices = XListInputDevices(m_display.get(), &count); });
    if (!devices)
        return INVALID_XID;

    DeviceId found = INVALID_XID;
    for (int i = 0; i < count && found == INVALID_XID; ++i)
        if (devices[i].name && name == devices[i].name)
            found = devices[i].id;
    XFreeDeviceList(devices);
    return found;
}

bool RiMouseSettings::respond(const ZustInputEvent* event, const InputTimeStats&)
{
    const ZustMouseSettingsEvent& settings = event->event.mouseSettingsEvent;
    return SetMouseAcceleration(settings.acceleration) && SetMouseSpeed(settings.sensitivity)
           && UpdateTransformationMatrix(settings.sensitivity, settings.acceleration);
}

bool RiMouseSettings::SetMouseAcceleration(unsigned int acceleration)
{
    if (m_XID == INVALID_XID)
    {
        LOG_WARNING(0x03050004, LOG_TAG, "Failed to turn %s acceleration as XID is not available",
                    acceleration != 0 ? "ON" : "OFF");
        return false;
    }

    const std::string command =
        setPropertyCommand(m_XID, accelerationProfileConfig(), acceleration != 0 ? "1, 0" : "0, 1");
    run(command);
    LOG_INFO(0x03050005, LOG_TAG, "Executed command to update mouse acceleration: [%s]", command.c_str());
    return true;
}

// Deliberate, here and below: 0 succeeds even without a device.
bool RiMouseSettings::SetMouseSpeed(unsigned int sensitivity)
{
    if (sensitivity == 0)
        return true;
    if (m_XID == INVALID_XID)
    {
        LOG_WARNING(0x03050006, LOG_TAG, "Failed to set mouse sensitivity to %u as XID is not available", sensitivity);
        return false;
    }

    const unsigned int clamped = std::min(sensitivity, MAX_SENSITIVITY);
    const PointerSpeed& speed = *std::find_if(POINTER_SPEEDS.begin(), POINTER_SPEEDS.end(),
                                              [&](const PointerSpeed& row) { return clamped <= row.upToSensitivity; });
    const std::string command = "xinput set-ptr-feedback " + std::to_string(m_XID) + " "
                                + std::to_string(POINTER_THRESHOLD) + " " + std::to_string(speed.num) + " "
                                + std::to_string(speed.den);
    run(command);
    LOG_INFO(0x03050007, LOG_TAG, "Executed command to update feedback: [%s]", command.c_str());
    LOG_INFO(0x03050008, LOG_TAG, "Mouse speed new:[threshold:%d num:%d den:%d]", POINTER_THRESHOLD, speed.num,
             speed.den);
    return true;
}

bool RiMouseSettings::UpdateTransformationMatrix(unsigned int sensitivity, unsigned int acceleration)
{
    if (sensitivity == 0)
        return true;
    if (m_XID == INVALID_XID)
    {
        // Deliberately an error here, against the warnings above.
        LOG_ERROR(0x03050009, LOG_TAG,
                  "Failed to update transformation matrix as XID is not available [sensitivity:%u, acceleration:%u]",
                  sensitivity, acceleration);
        return false;
    }

    const double multiplier =
        TRANSFORMATION_MULTIPLIERS[acceleration != 0 ? 1 : 0][std::min(sensitivity, MAX_SENSITIVITY) - 1];
    const std::string m = withSixDecimals(multiplier);
    const std::string command =
        setPropertyCommand(m_XID, transformationMatrixConfig(), m + " 0 0" + " 0 " + m + " 0" + " 0 0 1");
    run(command);
    LOG_INFO(0x0305000A, LOG_TAG, "Executed command to update transformation matrix: [%s]", command.c_str());
    return true;
}
