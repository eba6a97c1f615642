#ifndef TESTS_SUPPORT_FAKE_XTST_H
#define TESTS_SUPPORT_FAKE_XTST_H

#include <string>
#include <vector>

/// A recording double of libXtst, handed out by the fake stack's loader. It also records the display locks and the
/// syncs of the code that is linked with it; those go on to Xlib. Used by one thread.
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

/// The calls since the last call, oldest first: "lock", "sync", "unlock", "move DX DY", "position SCREEN X Y",
/// "button N press", "key N release". A delay other than 0 is added at the end.
std::vector<std::string> takeCalls();

} // namespace fakextst

#endif
