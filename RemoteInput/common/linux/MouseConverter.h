#ifndef REMOTE_INPUT_MOUSE_CONVERTER_H
#define REMOTE_INPUT_MOUSE_CONVERTER_H

#include "RemoteInput/common/Timeline.h"

#include <cstdint>

struct _XDisplay; // Xlib's Display

/// Rewrites pointer movements before they are injected.
class MouseConverterBase
{
public:
    /// The base rewrites nothing. \return false
    virtual bool convertMovement(long&, long&, long, bool) { return false; }

protected:
    ~MouseConverterBase() = default; // nothing is deleted through it
};

/// Turns absolute client positions into relative steps, because the virtual mouse only moves relatively.
///
/// Remembers the last target and now and then compares it with the real cursor, so that drift cannot grow.
/// Used by the injection thread only. Borrows the display, which must outlive the converter.
class MouseConverter final : public MouseConverterBase
{
public:
    struct Vector
    {
        int32_t x = 0;
        int32_t y = 0;
    };

    explicit MouseConverter(_XDisplay* display);

    /// Replaces an absolute position (0..65535 per axis) by the step to take, in screen pixels.
    /// A relative move passes through and makes the next absolute move start from the real cursor.
    /// \param now steady clock, ns: when the previous report was injected, 0 before the first
    /// \return `absolute`. A failed cursor query is logged; the conversion goes on without correction.
    bool convertMovement(long& dx, long& dy, long now, bool absolute) override;

    /// Forgets the last target.
    void reset();

    /// Whether the cursor has not been looked at for 50 ms.
    bool needsAdjustment(long now) const;

    /// Pixels of a normalised position, on the screen as it was last measured.
    Vector convertToScreen(int x, int y) const;

    /// \return false when the server cannot be asked; `pos` is then left alone
    bool getCursorPos(Vector& pos);

    /// The step that corrects drift; (0, 0) when there is none or the next look is not due. One round trip per 50 ms.
    Vector adjust(long now);

    /// Reads the screen's size, once a second at most.
    void updateScreenDimensions(long now);

    void convertToRelative(long& dx, long& dy, long now);

private:
    _XDisplay* m_display;
    bool m_hasPrevCoord = false;
    Vector m_prevCoord; // last target, screen pixels
    TimeUnit m_lastAdjustment = 0;
    int m_scale = 65536; // 16.16 fixed point
    Vector m_remainder;
    int m_allowedDiff = 0; // pixels per axis
    TimeUnit m_lastScreenDimensionTime = 0;
    int m_screenWidth = 0;
    int m_screenHeight = 0;
};

/// Multiplies `value` by a 16.16 factor and carries the fraction in `remainder` to the next step; truncates toward
/// zero.
void scaleCoordinate(int scale, int& value, int& remainder);

#endif
