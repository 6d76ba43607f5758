// LeakSanitizer suppressions for allocations that Qt and the libraries under
// it make once per process and never free (platform plugin, screens, font
// caches). Leaks from the project's own code are still reported. Linked into
// every test program and, in sanitizer builds, into the reference programs.
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_suppressions()
{
    return "leak:libQt5Core.so\n"
           "leak:libQt5Gui.so\n"
           "leak:libQt5Widgets.so\n"
           "leak:libQt5Network.so\n"
           "leak:libQt5XcbQpa.so\n"
           "leak:libqoffscreen.so\n"
           "leak:libqxcb.so\n"
           "leak:libfontconfig.so\n"
           "leak:libdbus-1.so\n"
           "leak:libglib-2.0.so\n";
}
