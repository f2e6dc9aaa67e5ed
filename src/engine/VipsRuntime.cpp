#include "engine/VipsRuntime.h"

#include <mutex>

#include <vips/vips8>

bool VipsRuntime::ensureStarted()
{
    static std::once_flag once;
    static bool started = false;
    std::call_once(once, [] {
        started = VIPS_INIT("brevona") == 0;
        if (started) {
            // A cached load keeps its file descriptor; we never read the same file twice anyway.
            vips_cache_set_max(0);
            vips_cache_set_max_files(0);
        }
    });
    return started;
}
