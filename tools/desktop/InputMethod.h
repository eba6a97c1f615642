#ifndef TOOLS_DESKTOP_INPUT_METHOD_H
#define TOOLS_DESKTOP_INPUT_METHOD_H

#include <memory>
#include <string>
#include <type_traits>

#include <X11/Xlib.h>

namespace desktop
{

/// The text that key presses make, dead keys and Compose included: X's built-in input method, in the locale's encoding.
/// Belongs to the thread of its display, which must outlive it.
class InputMethod
{
public:
    /// Throws std::runtime_error when the method cannot be had. `window`: where the keys arrive.
    InputMethod(Display* display, Window window);

    /// What a text field would put in for a press, UTF-8; empty for control characters other than new line and tab.
    std::string textOf(XKeyEvent& event);

private:
    struct CloseMethod
    {
        void operator()(XIM method) const { XCloseIM(method); }
    };
    struct DestroyContext
    {
        void operator()(XIC context) const { XDestroyIC(context); }
    };

    std::unique_ptr<std::remove_pointer_t<XIM>, CloseMethod> m_method;
    std::unique_ptr<std::remove_pointer_t<XIC>, DestroyContext> m_context;
};

} // namespace desktop

#endif
