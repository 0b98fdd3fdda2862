// The renderer functions that image filters use, over one image: the kit's, as the stage has them.
#include "geoshader.h"
#include "kit/image.h"
#include "kit/lock.h"
#include "kit/memory.h"

#include <atomic>

namespace {
miImg_image* current = nullptr;
std::atomic<int> pins;
} // namespace

extern "C" {

// ---- for the benchmark

DLLEXPORT void set_image(miImg_image* image) {
    current = image;
}
DLLEXPORT long long live_bytes() {
    return stage::memory_counts().live_bytes;
}

// ---- of the interface; every tag is the image's

DLLEXPORT int mi_db_type(miTag) {
    return miSCENE_IMAGE;
}
DLLEXPORT void* mi_db_access(miTag) {
    ++pins;
    return current;
}
DLLEXPORT void mi_db_unpin(miTag) {
    --pins;
}
DLLEXPORT void mi_img_get_color(miImg_image* image, miColor* color, int x, int y) {
    *color = stage::image_color(image, x, y);
}
DLLEXPORT int mi_img_get_width(miImg_image* image) {
    return image->width;
}
DLLEXPORT int mi_img_get_height(miImg_image* image) {
    return image->height;
}
DLLEXPORT void* mi_mem_int_test_allocate(const char* file, int line, const miUint size) {
    return stage::test_allocate(file, line, size);
}
DLLEXPORT void mi_mem_int_release(const char* file, int line, void* memory) {
    stage::release(file, line, memory);
}
DLLEXPORT void mi_init_lock(miLock* lock) {
    *lock = stage::create_lock();
}
DLLEXPORT void mi_delete_lock(miLock* lock) {
    stage::destroy_lock(*lock);
    *lock = nullptr;
}
DLLEXPORT void mi_lock(miLock lock) {
    stage::acquire_lock(lock);
}
DLLEXPORT void mi_unlock(miLock lock) {
    stage::release_lock(lock);
}
}
