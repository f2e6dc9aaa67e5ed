#pragma once

#include <vips/vips8>

/**
 * Remembers whether a loader failed to decode any part of its image.
 *
 * libvips computes a pipeline on several worker threads. When a loader fails halfway (a PNG
 * whose data fails its checksum, a JPEG cut short), the thread that hit the failure gets an
 * error, but threads waiting for the same lines are handed black pixels, and the whole copy or
 * encode can then report success. The watch sits between the loader and everything that reads
 * it, and records the failure on whichever thread it happens; the reader asks afterwards.
 * The record travels with every image built from the watched one, memory copies included.
 * @code
 * const vips::VImage pixels = LoaderWatch::watched(loaded).copy_memory();
 * if (LoaderWatch::failed(pixels))
 *     return std::nullopt; // part of it is black, not the picture
 * @endcode
 */
class LoaderWatch final
{
public:
    /// `loaded`, unchanged, read through the watch.
    static vips::VImage watched(const vips::VImage& loaded);
    /// Whether reading the watched image behind `image` has failed so far; false for an image
    /// that no watch stands behind.
    static bool failed(const vips::VImage& image);
};
