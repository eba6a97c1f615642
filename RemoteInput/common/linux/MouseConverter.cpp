#include "RemoteInput/common/linux/MouseConverter.h"

#include <cstdlib>

#include "RemoteInput/common/linux/XServerLoss.h"
#include "common/util/InUse.h"
#include "rxdiag/rxdiagcontrol.h"

namespace
{

LoggerX g_logger("MouseConverter");
KeptInUse<RxDiagEx> rxDiag("MouseConverter", nullptr, &g_logger, LEGACY, nullptr);

constexpr long ADJUSTMENT_INTERVAL = 50'000'000;        // ns
constexpr long SCREEN_DIMENSION_INTERVAL = 999'999'999; // ns

// Deliberately one less than the 65536 by which positions are normalised.
constexpr int NORMALIZED_MAX = 65535;

} // namespace

MouseConverter::MouseConverter(_XDisplay* display)
    : m_display(display)
{
}

bool MouseConverter::convertMovement(long& dx, long& dy, long now, bool absolute)
{
    if (absolute)
        convertToRelative(dx, dy, now);
    else
        reset();
    return absolute;
}

void MouseConverter::reset()
{
    m_hasPrevCoord = false;
    m_remainder = {};
}

void MouseConverter::convertToRelative(long& dx, long& dy, long now)
{
    Vector step;
    if (!m_hasPrevCoord)
    {
        m_hasPrevCoord = true;
        if (!getCursorPos(m_prevCoord))
            rxDiag->warning << "getCursorPos failed"; // deliberate: from the last target then
        m_lastAdjustment = 0;                         // deliberate, not now: the next move looks again
    }
    else
        step = adjust(now);

    updateScreenDimensions(now);
    const Vector target = convertToScreen(static_cast<int>(dx), static_cast<int>(dy));
    step.x += target.x - m_prevCoord.x;
    step.y += target.y - m_prevCoord.y;
    m_prevCoord = target;

    scaleCoordinate(m_scale, step.x, m_remainder.x);
    scaleCoordinate(m_scale, step.y, m_remainder.y);
    dx = step.x;
    dy = step.y;
}

MouseConverter::Vector MouseConverter::convertToScreen(int x, int y) const
{
    return {(x * m_screenWidth) / NORMALIZED_MAX, (y * m_screenHeight) / NORMALIZED_MAX};
}

bool MouseConverter::needsAdjustment(long now) const
{
    return now - m_lastAdjustment > ADJUSTMENT_INTERVAL;
}

MouseConverter::Vector MouseConverter::adjust(long now)
{
    if (!needsAdjustment(now))
        return {};
    // Deliberate: before the look, so that one that fails counts as well.
    m_lastAdjustment = now;

    Vector cursor;
    if (!getCursorPos(cursor))
    {
        rxDiag->warning << "getCursorPos failed in adjust";
        return {};
    }

    const Vector drift{m_prevCoord.x - cursor.x, m_prevCoord.y - cursor.y};
    if (std::abs(drift.x) <= m_allowedDiff && std::abs(drift.y) <= m_allowedDiff)
        return {};

    rxDiag->verbose << "Adjusting cursor with an extra relative offset: " << m_prevCoord.x << " - " << cursor.x << " = "
                    << drift.x << ", " << m_prevCoord.y << " - " << cursor.y << " = " << drift.y;
    return drift;
}

void MouseConverter::updateScreenDimensions(long now)
{
    if (now - m_lastScreenDimensionTime <= SCREEN_DIMENSION_INTERVAL)
        return;
    // Deliberate: a failed reading counts as well, and with the 0 of a first move none is due: the target is (0, 0).
    m_lastScreenDimensionTime = now;

    const ScopedXCalls calls(m_display);
    XWindowAttributes attributes;
    if (!calls || XGetWindowAttributes(m_display, DefaultRootWindow(m_display), &attributes) == 0)
        return;
    m_screenWidth = attributes.width;
    m_screenHeight = attributes.height;
}

bool MouseConverter::getCursorPos(Vector& pos)
{
    const ScopedXCalls calls(m_display);
    Window root;
    Window child;
    int rootX;
    int rootY;
    int windowX;
    int windowY;
    unsigned int mask;
    if (!calls
        || !XQueryPointer(m_display, DefaultRootWindow(m_display), &root, &child, &rootX, &rootY, &windowX, &windowY,
                          &mask))
        return false;
    pos = {rootX, rootY};
    return true;
}

void scaleCoordinate(int scale, int& value, int& remainder)
{
    const int64_t scaled = int64_t{scale} * value + remainder;
    value = static_cast<int>(scaled / 65536);
    remainder = static_cast<int>(scaled % 65536);
}
