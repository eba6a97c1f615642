#include "tools/desktop/DesktopOptions.h"
#include "tools/desktop/DesktopProgram.h"
#include "tools/shared/Drawing.h"

#include <charconv>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/core.h>

using desktop::DesktopOptions;

namespace
{
constexpr int SMALLEST_WIDTH = 320;
constexpr int SMALLEST_HEIGHT = 180;
constexpr int LARGEST_SIDE = 32767;

/// Reads "1280x720" into the options; gives what is wrong with it, or nothing.
std::string parseSize(const std::string& text, DesktopOptions& options)
{
    const char* const end = text.data() + text.size();
    int width = 0;
    int height = 0;
    const auto first = std::from_chars(text.data(), end, width);
    const bool crossed = first.ec == std::errc() && first.ptr != end && *first.ptr == 'x';
    const auto second = crossed ? std::from_chars(first.ptr + 1, end, height) : first;
    if (!crossed || second.ec != std::errc() || second.ptr != end)
        return fmt::format("\"{}\" is not a size such as 1280x720", text);
    if (width < SMALLEST_WIDTH || width > LARGEST_SIDE || height < SMALLEST_HEIGHT || height > LARGEST_SIDE)
        return fmt::format("{} is not between {}x{} and {}x{}", text, SMALLEST_WIDTH, SMALLEST_HEIGHT, LARGEST_SIDE,
                           LARGEST_SIDE);
    options.width = width;
    options.height = height;
    return {};
}
} // namespace

int main(int argc, char** argv)
{
    DesktopOptions options;
    CLI::App app("A window that stands for the desktop of a streaming host: shows what arrives from\n"
                 "keyboard, pointer and touch on $DISPLAY, and keeps a picture and a record of it.",
                 "zuis-desktop");
    app.get_formatter()->column_width(30);

    CLI::Option* const size = app.add_option_function<std::string>(
                                     "--size",
                                     [&options](const std::string& text)
                                     {
                                         if (const std::string wrong = parseSize(text, options); !wrong.empty())
                                             throw CLI::ValidationError("--size", wrong);
                                     },
                                     "Size of the window in pixels [1280x720]")
                                  ->type_name("WxH");
    app.add_flag("--fullscreen", options.fullscreen, "Cover the whole screen, past any window manager")->excludes(size);
    app.add_option("--title", options.title, "Title of the window and of the picture")->type_name("TEXT");
    bool keepFocus = true;
    CLI::Option* const keepFocusFlag =
        app.add_flag("--keep-focus", keepFocus, "Take the keyboard focus back when it is lost (the default)");
    app.add_flag_callback(
           "--no-keep-focus", [&options] { options.keepFocus = false; }, "Take the focus once and let it go")
        ->excludes(keepFocusFlag);
    app.add_flag("--no-autorepeat", options.noAutorepeat,
                 "Switch the X server's auto-repeat off, and on again at the end");

    app.add_option("--png", options.png, "Write the picture at the end, and whenever SIGUSR1 comes")
        ->type_name("FILE")
        ->group("Files");
    app.add_option("--record", options.record, "Write every event as it is seen, one JSON object a line")
        ->type_name("FILE")
        ->group("Files");
    app.add_flag("--raw", options.raw, "Record the devices' raw motion too")->group("Files");
    app.add_option("--ready-file", options.readyFile,
                   "Create this file once the window is up and has the focus, instead of printing \"ready\"")
        ->type_name("FILE")
        ->group("Files");
    app.add_option("--exit-after", options.exitAfter, "End so long after the window is ready")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e9).description(""));
    app.footer("Ends on SIGTERM, SIGINT and SIGHUP.\n"
               "Exit status: 0 done; 1 could not start, or could not write a file; 3 the X server went away (record\n"
               "and picture are kept); above 100 wrong arguments.");
    CLI11_PARSE(app, argc, argv);
    const int code = desktop::runDesktop(options);
    shared::releaseDrawingCaches(); // else they look like leaks to a checker
    return code;
}
