// Database functions of the interface: elements by tag and by name.
#include <cstddef>
#include <cstring>

#include "api/api.h"
#include "image/texture.h"
#include "kit/memory.h"
#include "kit/message.h"

namespace {

// The most pins that one element takes; a shader that gets there has forgotten its unpins.
constexpr int most_pins = 65535;

stage::Element* find(miTag tag) {
    stage::Scene* scene = stage::current_scene();
    return scene ? scene->database.find(tag) : nullptr;
}

// The record as shaders see it: an image's is that of its pixels.
void* public_record(stage::Element& element) {
    return element.type == miSCENE_IMAGE ? stage::image_of(element).record() : element.record;
}

void stop_frame(const char* reason, miTag tag) {
    mi_error("mi_db_access: tag %u %s; rendering stops", tag, reason);
    if (stage::Renderer* renderer = stage::current_renderer())
        renderer->give_up();
}

// As large as any record that shaders know, cleared for each use.
void* empty_record() {
    alignas(16) thread_local std::byte bytes[4096];
    std::memset(bytes, 0, sizeof bytes);
    return bytes;
}

} // namespace

// Takes the string over: it comes from mi_mem_strdup and is released here.
STAGE_API miTag mi_api_name_lookup(char* name) {
    if (!name)
        return miNULLTAG;
    const stage::Scene* scene = stage::current_scene();
    const stage::Element* element = scene ? scene->database.find(std::string_view(name)) : nullptr;
    stage::release(__FILE__, __LINE__, name);
    return element ? element->tag : miNULLTAG;
}

// Never null, since shaders do not test. A tag that names nothing stops the frame; until the shader that
// asked has returned it reads a record of zeros.
STAGE_API void* mi_db_access(miTag tag) {
    stage::Element* element = find(tag);
    if (!element) {
        stop_frame("names no scene element", tag);
        return empty_record();
    }
    if (element->pins.fetch_add(1, std::memory_order_relaxed) >= most_pins) {
        element->pins.fetch_sub(1, std::memory_order_relaxed);
        stop_frame("was accessed too often without mi_db_unpin", tag);
    }
    return public_record(*element);
}

STAGE_API void* mi_db_access_type(miTag tag, int* type) {
    if (type)
        *type = mi_db_type(tag);
    return mi_db_access(tag);
}

STAGE_API int mi_db_type(miTag tag) {
    const stage::Element* element = find(tag);
    return element ? element->type : 0;
}

STAGE_API int mi_db_size(miTag tag) {
    stage::Element* element = find(tag);
    if (!element)
        return 0;
    return static_cast<int>(element->type == miSCENE_IMAGE ? stage::image_of(*element).size()
                                                           : element->size);
}

STAGE_API void mi_db_unpin(miTag tag) {
    stage::Element* element = find(tag);
    if (element && element->pins.fetch_sub(1, std::memory_order_relaxed) <= 0) {
        element->pins.fetch_add(1, std::memory_order_relaxed);
        stage::send_message(stage::MessageLevel::error,
                            "mi_db_unpin: \"%s\" (tag %u) is unpinned more often than it was accessed",
                            element->name.c_str(), tag);
    }
}

// Every record has one copy, which all threads see: an edit in place is already everywhere.
STAGE_API void mi_db_flush(miTag) {}
