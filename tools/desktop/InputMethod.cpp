#include "tools/desktop/InputMethod.h"

#include <algorithm>
#include <stdexcept>

#include <X11/Xutil.h>

namespace desktop
{

namespace
{
bool isControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}
} // namespace

InputMethod::InputMethod(Display* display, Window window)
{
    // The built-in method only: it composes dead keys at once and in order, where a server would answer when it likes.
    XSetLocaleModifiers("@im=none");
    m_method.reset(XOpenIM(display, nullptr, nullptr, nullptr));
    if (m_method)
        m_context.reset(XCreateIC(m_method.get(), XNInputStyle, XIMPreeditNothing | XIMStatusNothing, XNClientWindow,
                                  window, XNFocusWindow, window, nullptr));
    if (!m_context)
        throw std::runtime_error("X's built-in input method cannot be opened (is the package libx11-data installed?)");
    XSetICFocus(m_context.get());
}

std::string InputMethod::textOf(XKeyEvent& event)
{
    std::string text(64, '\0');
    Status status = 0;
    KeySym keysym = NoSymbol;
    int length =
        Xutf8LookupString(m_context.get(), &event, text.data(), static_cast<int>(text.size()), &keysym, &status);
    if (status == XBufferOverflow)
    {
        text.resize(static_cast<size_t>(length));
        length = Xutf8LookupString(m_context.get(), &event, text.data(), length, &keysym, &status);
    }
    text.resize(status == XLookupChars || status == XLookupBoth ? static_cast<size_t>(length) : 0);
    if (text == "\r")
        return "\n";
    const bool typeable = text == "\n" || text == "\t" || std::none_of(text.begin(), text.end(), isControl);
    return typeable ? text : std::string();
}

} // namespace desktop
