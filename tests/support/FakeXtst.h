#ifndef TESTS_SUPPORT_FAKE_XTST_H
#define TESTS_SUPPORT_FAKE_XTST_H

#include "tests/support/Calls.h"

#include <string>
#include <vector>

/// A recording double of libXtst, handed out by the fake stack's loader. It also records what the code that is linked
/// with it asks of Xlib, which gets it all the same. Used by one thread.
namespace fakextst
{

struct Options
{
    bool libraryMissing = false;
    std::vector<std::string> missing = {}; ///< functions that the library lacks
    int extensionPresent = 1;              ///< what XTestQueryExtension returns; the version is 2.2
};

/// Makes the fake stack's loader hand out the double in place of "libXtst.so.6", and nothing else.
void install(Options options = {});

/// Every call: "find FUNCTION", "query", "move DX DY", "position SCREEN X Y", "button N press", "key N release"; a
/// delay other than 0 is added at the end. Of Xlib: "init threads", "open", "close", "lock", "unlock", "sync".
Calls& calls();

} // namespace fakextst

#endif
