#pragma once

/**
 * One-time start-up of libvips for the whole process.
 *
 * Safe to call from any thread any number of times; the first call initialises the library and
 * turns the operation cache off, so that no decoded file stays open after a job.
 */
class VipsRuntime final
{
public:
    /// True when libvips is usable.
    static bool ensureStarted();

    /**
     * For a process that stays resident between batches: large buffers (decoded images, tiles)
     * are mapped on their own and unmapped when freed, instead of fragmenting the heap that the
     * allocator then keeps. Call once, before the first batch.
     */
    static void preferReturningMemory();

    /// Gives back the allocator's free pages that finished jobs left behind (libvips' operation
    /// cache is off, so it holds nothing). For long-running processes, between batches.
    static void releaseMemory();

    /// Sizes libvips' worker pool (per process) so that `jobs` images processed at once keep
    /// about one thread per core between them, instead of each taking a thread per core.
    static void shareCores(int jobs);
};
