#ifndef TOOLS_DESKTOP_MARKS_H
#define TOOLS_DESKTOP_MARKS_H

#include "tools/shared/Drawing.h"

namespace desktop
{

/// What stands at places of the screen: where a button was pressed, where a finger is, where the pointer is. All are
/// drawn around (x, y), in the units of `cr`.

/// A ring with the button's number, as it stands where a button was pressed.
void drawPressMark(cairo_t* cr, double x, double y, int button);
/// A small hollow square, as it stands where a button was released.
void drawReleaseMark(cairo_t* cr, double x, double y);
/// A touch that is down: a disc with its number.
void drawTouchDisc(cairo_t* cr, double x, double y, unsigned id);
/// The place where a touch ended: a ring with its number.
void drawTouchRing(cairo_t* cr, double x, double y, unsigned id);
/// Where the pointer is now.
void drawPointer(cairo_t* cr, double x, double y);
/// The colour that stands for a touch in discs and paths.
shared::Colour touchColour(unsigned id);

} // namespace desktop

#endif
