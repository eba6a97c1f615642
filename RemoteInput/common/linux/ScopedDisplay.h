#ifndef REMOTE_INPUT_SCOPED_DISPLAY_H
#define REMOTE_INPUT_SCOPED_DISPLAY_H

#include <memory>

struct _XDisplay; // Xlib's Display

struct XCloseDisplayDeleter
{
    void operator()(_XDisplay* display) const;
};

/// Owns a connection to the X server. Usable in headers, which must not include Xlib.
using ScopedDisplay = std::unique_ptr<_XDisplay, XCloseDisplayDeleter>;

#endif
