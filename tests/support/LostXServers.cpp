// What the sanitizers are told in programs whose X servers are lost.

extern "C"
{

    // On its way out of a dead connection Xlib releases a mutex that it has already released.
    __attribute__((visibility("default"))) const char* __tsan_default_suppressions()
    {
        return "mutex:libX11.so";
    }

    // Calls that are left in the middle keep what they had, on purpose.
    __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
    {
        return "leak:libX11.so\nleak:libxcb.so\nleak:libXext.so\nleak:libXi.so";
    }
}
