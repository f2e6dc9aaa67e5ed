#include "engine/VipsRuntime.h"

#include <algorithm>
#include <mutex>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

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
            // Inputs are opened only by the loaders we pick for them (see InputFile). Of the
            // loaders libvips marks untrusted, we need only ImageMagick's (for BMP, which it
            // reaches only after the file's first bytes said BMP); every other one stays blocked.
            // PDF pages are drawn by PdfRenderer, not by libvips.
            vips_block_untrusted_set(TRUE);
            vips_operation_block_set("VipsForeignLoadMagickBuffer", FALSE);
            g_log_set_handler("VIPS", static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE),
                              logLibraryMessage, nullptr);
        }
    });
    return started;
}

void VipsRuntime::preferReturningMemory()
{
#if defined(__GLIBC__)
    // glibc raises this threshold to 32 MB as big blocks come and go, and image buffers below it
    // then stay in the heap for good: after eight batches of 20 large photos the tray process
    // sat at 1.4 times its size after the first. Fixed at 8 MB it stayed flat, for about a tenth
    // more CPU time than the moving threshold (512 KB cost a third more).
    constexpr int kMmapThreshold = 8 * 1024 * 1024;
    mallopt(M_MMAP_THRESHOLD, kMmapThreshold);
#endif
}

void VipsRuntime::releaseMemory()
{
#if defined(__GLIBC__)
    // glibc keeps freed pages of every thread's arena mapped until asked.
    malloc_trim(0);
#endif
}

void VipsRuntime::shareCores(int jobs)
{
    if (ensureStarted())
        vips_concurrency_set(std::max(1, QThread::idealThreadCount() / std::max(1, jobs)));
}
