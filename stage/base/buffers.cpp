// What shaders put into frame buffers of their own, and what state shaders see of a sample.
#include <cstddef>
#include <cstdint>

#include "base.h"

using namespace base;

namespace {

// The camera's frame buffers, given back at the end.
class Buffers {
public:
    explicit Buffers(const miState* state) : interface_(mi_get_shader_interface(3)) {
        if (interface_)
            buffers_ = interface_->accessFramebuffer(state->camera->framebuffers);
    }
    ~Buffers() {
        if (buffers_)
            interface_->releaseFramebuffer(buffers_);
        if (interface_)
            interface_->release();
    }
    Buffers(const Buffers&) = delete;
    Buffers& operator=(const Buffers&) = delete;

    // The index for mi_fb_put, -1 when there is none.
    [[nodiscard]] int index(const char* name) const {
        size_t found = 0;
        return buffers_ && buffers_->get_index(name, found) ? static_cast<int>(found) : -1;
    }
    [[nodiscard]] miImg_type type(int index) const {
        miImg_type found = miIMG_TYPE_UNDEF;
        if (buffers_ && index >= 0)
            buffers_->get_datatype(static_cast<size_t>(index), found);
        return found;
    }

private:
    mi::shader_v3::Interface* interface_;
    mi::shader_v3::Framebuffer* buffers_ = nullptr;
};

int buffer_index(const Buffers& buffers, miTag name) {
    if (name == miNULLTAG)
        return -1;
    const int index = buffers.index(static_cast<const char*>(mi_db_access(name)));
    mi_db_unpin(name);
    return index;
}

// How a buffer's value is handed over.
enum class Kind { color, vector, scalar, integer };

Kind kind_of(miImg_type type) {
    switch (type) {
    case miIMG_TYPE_TAG:
    case miIMG_TYPE_BIT:
        return Kind::integer;
    case miIMG_TYPE_N:
    case miIMG_TYPE_M:
    case miIMG_TYPE_VTA:
    case miIMG_TYPE_VTS:
        return Kind::vector;
    default:
        return type <= miIMG_TYPE_RGB_FP ? Kind::color : Kind::scalar;
    }
}

union Value {
    miColor color;
    miVector vector;
    miScalar scalar;
    miUint integer;
};

// Where an instance keeps what it has found out about its buffers.
struct Found {
    int to, from;
    Kind kind;
};

void** user_pointer(miState* state, miTag instance) {
    void** slot = nullptr;
    return mi_query(miQ_FUNC_USERPTR, state, instance, &slot) ? slot : nullptr;
}

} // namespace

// ---- base_put_buffer: puts a value of the buffer's own kind into a frame buffer, or copies another buffer's
// value of this sample. Behind a material's shader in a list, it leaves the colour alone.

struct base_put_buffer_params {
    miTag buffer; // string: name of the buffer
    miColor value;
    miInteger label; // for buffers of integers
    miTag from;      // string: name of a buffer of the same type, whose value is taken instead
};

BASE_VERSION(base_put_buffer, 1)

BASE_EXPORT void base_put_buffer_init(miState* state, base_put_buffer_params* params,
                                      miBoolean* wants_instances) {
    if (!params) {
        *wants_instances = miTRUE;
        return;
    }
    const Buffers buffers(state);
    auto* found = static_cast<Found*>(mi_mem_allocate(sizeof(Found)));
    found->to = buffer_index(buffers, params->buffer);
    found->from = buffer_index(buffers, params->from);
    found->kind = kind_of(buffers.type(found->to));
    if (void** slot = user_pointer(state, miNULLTAG))
        *slot = found;
}

BASE_EXPORT void base_put_buffer_exit(miState* state, base_put_buffer_params* params) {
    void** slot = params ? user_pointer(state, miNULLTAG) : nullptr;
    if (!slot)
        return;
    mi_mem_release(*slot);
    *slot = nullptr;
}

BASE_EXPORT miBoolean base_put_buffer(miColor*, miState* state, base_put_buffer_params* params) {
    void** slot = user_pointer(state, miNULLTAG);
    if (!slot || !*slot)
        return miFALSE;
    const Found& found = *static_cast<const Found*>(*slot);
    Value value;
    value.color = *mi_eval_color(&params->value);
    const miColor& c = value.color;
    if (found.from >= 0)
        mi_fb_get(state, found.from, &value);
    else if (found.kind == Kind::integer)
        value.integer = static_cast<miUint>(*mi_eval_integer(&params->label));
    else if (found.kind == Kind::vector)
        value.vector = {c.r, c.g, c.b};
    else if (found.kind == Kind::scalar)
        value.scalar = c.r;
    return mi_fb_put(state, found.to, &value);
}

// ---- base_count_calls: a state shader that counts the shaders which a sample's rays call, into a frame
// buffer: red materials, green surroundings, blue volumes, alpha lens shaders. Shows where a picture is dear.

struct base_count_calls_params {
    miTag buffer; // string: name of a colour buffer
};

namespace {

constexpr char counts_key[] = "base_count_calls";

} // namespace

BASE_VERSION(base_count_calls, 1)

BASE_EXPORT void base_count_calls_init(miState* state, base_count_calls_params* params,
                                       miBoolean* wants_instances) {
    if (!params) {
        *wants_instances = miTRUE;
        return;
    }
    // The slot holds the index itself, counted from 1: no buffer is 0.
    if (void** slot = user_pointer(state, miNULLTAG))
        *slot = reinterpret_cast<void*>(
            static_cast<std::uintptr_t>(buffer_index(Buffers(state), params->buffer) + 1));
}

BASE_EXPORT miBoolean base_count_calls(void*, miState* state, base_count_calls_params*,
                                       const miState_event* event) {
    if (event->call == miSTATE_CALL_INIT) {
        miColor none{0, 0, 0, 0};
        return mi_shaderstate_set(state, counts_key, &none, sizeof none, miSS_LIFETIME_EYERAY);
    }
    auto* counts = static_cast<miColor*>(mi_shaderstate_get(state, counts_key, nullptr));
    void** slot = user_pointer(state, miNULLTAG);
    if (!counts || !slot)
        return miFALSE;
    if (event->call == miSTATE_CALL_EXIT)
        return mi_fb_put(state, static_cast<int>(reinterpret_cast<std::uintptr_t>(*slot)) - 1, counts);
    if (event->call != miSTATE_CALL_SAMPLE_EXIT)
        return miTRUE;
    switch (event->shader) {
    case miSHADER_MATERIAL:
        counts->r += 1.0f;
        break;
    case miSHADER_ENVIRONMENT:
        counts->g += 1.0f;
        break;
    case miSHADER_VOLUME:
        counts->b += 1.0f;
        break;
    default:
        counts->a += 1.0f;
    }
    return miTRUE;
}
