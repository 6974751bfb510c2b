// Sanitizer builds only (Linux). Mesa's driver is unloaded at exit before LeakSanitizer looks;
// the driver's globals then vanish and the memory they held reads as leaked, allocated from
// "<unknown module>" and so impossible to suppress by name. Keeping the driver loaded lets
// LeakSanitizer see that memory as reachable; leaks of the project's own code still show.
#include <dlfcn.h>

#include <cstdlib>
#include <string>

namespace
{
const bool driverKeptLoaded = [] {
    const char* configured = std::getenv("LIBGL_DRIVERS_PATH");
    const std::string directory = configured ? configured : "/usr/lib/x86_64-linux-gnu/dri";
    bool loaded = false;
    for (const char* driver : {"swrast_dri.so", "kms_swrast_dri.so"})
        loaded |= dlopen((directory + "/" + driver).c_str(), RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE) != nullptr;
    return loaded;
}();
} // namespace
