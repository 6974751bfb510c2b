// Sanitizer builds only (Linux). Mesa's driver is unloaded at exit before LeakSanitizer looks, and
// the memory its globals held then reads as leaked from "<unknown module>", which no suppression
// can name. Keeping the driver loaded keeps that memory reachable.
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
