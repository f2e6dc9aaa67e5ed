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
    /// Sizes libvips' worker pool (per process) so that `jobs` images processed at once keep
    /// about one thread per core between them, instead of each taking a thread per core.
    static void shareCores(int jobs);
};
