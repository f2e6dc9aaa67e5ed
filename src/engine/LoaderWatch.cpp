#include "engine/LoaderWatch.h"

#include <atomic>

namespace {

// An area rather than a blob: decoding strips every blob so that no loader's metadata reaches
// an output, and this record must stay.
constexpr const char* kField = "brevona-loader-watch";

struct Record
{
    std::atomic<bool> failed{false};
};

int freeRecord(void* record, void*)
{
    delete static_cast<Record*>(record);
    return 0;
}

int generate(VipsRegion* out, void* sequence, void*, void* record, gboolean*)
{
    auto* in = static_cast<VipsRegion*>(sequence);
    if (vips_region_prepare(in, &out->valid) != 0) {
        static_cast<Record*>(record)->failed = true;
        return -1;
    }
    return vips_region_region(out, in, &out->valid, out->valid.left, out->valid.top);
}

} // namespace

vips::VImage LoaderWatch::watched(const vips::VImage& loaded)
{
    VipsImage* in = loaded.get_image();
    vips::VImage out(vips_image_new());
    if (vips_image_pipelinev(out.get_image(), VIPS_DEMAND_STYLE_ANY, in, nullptr) != 0)
        throw vips::VError();
    // The area owns the record, and every image built from this one holds the area, so the
    // record lives as long as anything can still read through the watch.
    auto* record = new Record;
    vips_image_set_area(out.get_image(), kField, freeRecord, record);
    g_object_ref(in);
    vips_object_local(out.get_image(), in); // released when the watch is
    if (vips_image_generate(out.get_image(), vips_start_one, generate, vips_stop_one, in, record) != 0)
        throw vips::VError();
    return out;
}

bool LoaderWatch::failed(const vips::VImage& image)
{
    if (image.get_typeof(kField) != VIPS_TYPE_AREA)
        return false;
    const void* record = nullptr;
    if (vips_image_get_area(image.get_image(), kField, &record) != 0 || !record)
        return false;
    return static_cast<const Record*>(record)->failed;
}
