#include "engine/VipsRuntime.h"

#include <algorithm>
#include <mutex>

#include <vips/vips8>

#include <QThread>

#include "platform/Logging.h"

namespace {

// libvips reports recoverable trouble in damaged files through GLib warnings on stderr; the
// job's result already says what happened, so they belong in the engine's debug log.
void logLibraryMessage(const gchar* domain, GLogLevelFlags, const gchar* message, gpointer)
{
    qCDebug(lcCompression).noquote() << domain << message;
}

} // namespace

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
            g_log_set_handler("VIPS", static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE),
                              logLibraryMessage, nullptr);
        }
    });
    return started;
}

void VipsRuntime::shareCores(int jobs)
{
    if (ensureStarted())
        vips_concurrency_set(std::max(1, QThread::idealThreadCount() / std::max(1, jobs)));
}
