// zuis-pads: reads gamepads from their event nodes, as a game does.

#include "tools/pads/PadsProgram.h"
#include "tools/shared/Drawing.h"

#include <CLI/CLI.hpp>

int main(int argc, char** argv)
{
    pads::PadsOptions options;
    CLI::App app("Reads the gamepads below /dev/input, those that come later included, as a game does.", "zuis-pads");
    app.add_option("--png", options.png, "At the end, draw every pad that was seen")->type_name("FILE");
    app.add_option("--record", options.record, "Write every change as it is read, one JSON object a line")
        ->type_name("FILE");
    app.add_option("--ready-file", options.readyFile, "Create this file once pads are looked for")->type_name("FILE");
    app.add_flag("--quiet", options.quiet, "Do not tell on standard output which pads come and go");
    app.footer("Ends on SIGTERM, SIGINT and SIGHUP. Exit status: 0 done; 1 a file could not be written or /dev/input\n"
               "not be watched; above 100 wrong arguments. A node that may not be read is passed over.");
    CLI11_PARSE(app, argc, argv);
    const int code = pads::runPads(options);
    shared::releaseDrawingCaches(); // else they look like leaks to a checker
    return code;
}
