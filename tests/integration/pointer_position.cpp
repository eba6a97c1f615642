// Prints where the X pointer is, after moving it there when told: pointer-position [X Y]

#include <cstdio>
#include <cstdlib>

#include <X11/Xlib.h>

int main(int argc, char** argv)
{
    Display* const display = XOpenDisplay(nullptr);
    if (!display)
        return 1;
    const Window root = DefaultRootWindow(display);
    if (argc == 3)
        XWarpPointer(display, 0, root, 0, 0, 0, 0, std::atoi(argv[1]), std::atoi(argv[2]));
    Window window;
    int x;
    int y;
    int unused;
    unsigned int mask;
    XQueryPointer(display, root, &window, &window, &x, &y, &unused, &unused, &mask);
    std::printf("%d %d\n", x, y);
    XCloseDisplay(display);
    return 0;
}
