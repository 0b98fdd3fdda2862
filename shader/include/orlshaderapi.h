/*
 * What all shaders of the library share: reading parameters, instance and thread data, records of the shader
 * state, checks and messages.
 *
 * The entry points of a shader X are X_version, X_init, X and X_exit. X_init is called first with a null
 * block, for the shader, and then with a block for each instance, see `wants_instance`; X_exit in reverse,
 * for the instances first and then with null. Everything an instance keeps is read-only after its init,
 * except for warned flags.
 */
#pragma once

#include "declaration.h"
#include "mi_binding.h"
#include "orlshaders.h"

#include <atomic>
#include <cmath>
#include <new>
#include <type_traits>

namespace orl {

inline constexpr miColor transparent_black{0, 0, 0, 0};

/* Whatever its alpha. */
inline bool is_black(const miColor& color) {
    return color.r == 0.0f && color.g == 0.0f && color.b == 0.0f;
}

// ---- entry protocol

/* First lines of every init: true when the call is for an instance. The call for the shader as a whole, with
   a null block, asks for the calls for instances. */
inline bool wants_instance(const void* params, miBoolean* instance_init_required) {
    if (params == nullptr)
        *instance_init_required = miTRUE;
    return params != nullptr;
}

/* What the state's shader was called as (miSHADER_ codes), or -1 where the renderer does not tell. */
inline int call_type(miState* state) {
    int type = -1;
    return mi_query(miQ_FUNC_CALLTYPE, state, miNULLTAG, &type) ? type : -1;
}

/* The state's name for the running shader instance, for messages; of one without a name, its declaration's.
 */
const char* shader_name(miState* state);

// ---- parameters

/* Value of a parameter: the literal in the block, or what it is connected to, evaluated now. Parameters are
   read at the moment of use, so that connected ones see the current state. The literal also holds where the
   connection gives nothing. */
template <class T> T eval(miState* state, const T& parameter) {
    if (!mi_parameter_is_connected(state->shader, &parameter)) [[likely]]
        return parameter;
    const void* const value = mi_phen_eval(state, const_cast<T*>(&parameter));
    return value ? *static_cast<const T*>(value) : parameter;
}

inline const miScalar* eval(miState* state, const decl::Transform& parameter) {
    const void* const value = mi_eval(state, const_cast<decl::Transform*>(&parameter));
    return static_cast<const miScalar*>(value ? value : &parameter);
}

/* Elements of an array in a parameter block or data record. They are reached from the block's address,
   because they lie beyond the one-element member that stands for them. An array that would begin in front of
   that member is empty. */
template <class Element> class ArrayElements {
public:
    template <class Block, class ArrayRecord>
    ArrayElements(const Block* block, ArrayRecord Block::*member, miInteger first, miInteger count) {
        const char* const base = reinterpret_cast<const char*>(block);
        const auto offset = reinterpret_cast<const char*>(&(block->*member)) - base +
                            static_cast<std::ptrdiff_t>(offsetof(ArrayRecord, elements));
        const bool valid = first >= 0 && count > 0;
        first_ = reinterpret_cast<const Element*>(base + offset) + (valid ? first : 0);
        count_ = valid ? count : 0;
    }

    miInteger size() const { return count_; }
    const Element* begin() const { return first_; }
    const Element* end() const { return first_ + count_; }
    const Element& operator[](miInteger k) const { return first_[k]; }

private:
    const Element* first_;
    miInteger count_;
};

template <class ArrayRecord> using ElementOf = std::remove_all_extents_t<decltype(ArrayRecord::elements)>;

/* An array parameter. Elements are evaluated when they are read. */
template <class Element> class ArraySpan {
public:
    ArraySpan(miState* state, ArrayElements<Element> elements) : state_(state), elements_(elements) {}

    miInteger size() const { return elements_.size(); }
    Element operator[](miInteger k) const { return eval(state_, elements_[k]); }

private:
    miState* state_;
    ArrayElements<Element> elements_;
};

template <class Block, class ArrayRecord>
ArraySpan<ElementOf<ArrayRecord>> span(miState* state, const Block* params, ArrayRecord Block::*member) {
    return {state,
            {params, member, eval(state, (params->*member).first), eval(state, (params->*member).count)}};
}

/* An array in a data record, whose contents are never connected. */
template <class Block, class ArrayRecord>
ArrayElements<ElementOf<ArrayRecord>> elements(const Block* record, ArrayRecord Block::*member) {
    return {record, member, (record->*member).first, (record->*member).count};
}

// ---- instance data

/* A place in the renderer's accounts of memory. */
struct MemoryPlace {
    const char* file;
    int line;
};

// Where instance data stands there, whichever shader it belongs to, unless a unit accounts for its own.
inline constexpr MemoryPlace instance_data_allocation{"orlshaderapi", 265};
inline constexpr MemoryPlace instance_data_release{"orlshaderapi", 286};

/* The slot in which the renderer keeps the running instance's pointer; null where there is none. */
inline void** instance_slot(miState* state) {
    void** slot = nullptr;
    return mi_query(miQ_FUNC_USERPTR, state, miNULLTAG, &slot) ? slot : nullptr;
}

/* Data of the running instance; null when it has none. */
template <class Data> Data* instance_data(miState* state) {
    void** const slot = instance_slot(state);
    return slot ? static_cast<Data*>(*slot) : nullptr;
}

/* Allocates the data of the running instance, to be called from its init; null when it has no slot. A shader
   that runs others starts its data with the warned flag, `miBoolean warned`. */
template <class Data> Data* new_instance_data(miState* state, MemoryPlace place = instance_data_allocation) {
    static_assert(std::is_trivially_destructible_v<Data>);
    void** const slot = instance_slot(state);
    if (slot == nullptr)
        return nullptr;
    void* const memory = mi_mem_int_allocate(place.file, place.line, sizeof(Data));
    return new (*slot = memory) Data{};
}

/* Data of the running instance, made and prepared by the first call, whichever thread's that is; null when
   the instance has no slot. */
template <class Data, class Prepare>
Data* instance_data_once(miState* state, const char* unit, const Prepare& prepare) {
    static_assert(std::is_trivially_destructible_v<Data>);
    void** const slot = instance_slot(state);
    if (slot == nullptr)
        return nullptr;
    const std::atomic_ref<void*> shared(*slot);
    void* known = shared.load(std::memory_order_acquire);
    if (known != nullptr)
        return static_cast<Data*>(known);
    auto* const made = new (mi_mem_int_allocate(unit, __LINE__, sizeof(Data))) Data{};
    prepare(*made);
    if (shared.compare_exchange_strong(known, made, std::memory_order_acq_rel, std::memory_order_acquire))
        return made;
    mi_mem_int_release(unit, __LINE__, made);
    return static_cast<Data*>(known);
}

/* Frees the data of the running instance, to be called from its exit after what it points to. */
inline void delete_instance_data(miState* state, MemoryPlace place = instance_data_release) {
    void** const slot = instance_slot(state);
    if (slot == nullptr || *slot == nullptr)
        return;
    mi_mem_int_release(place.file, place.line, *slot);
    *slot = nullptr;
}

// ---- thread data

/* This thread's data of the running instance, made at the first call; null when the instance has no place to
   keep it, which callers check. Constant time, no lock. `extra` bytes follow the data, not initialised. */
template <class Data> Data* thread_data(miState* state, miUint extra = 0) {
    static_assert(std::is_trivially_destructible_v<Data>);
    void* data = nullptr;
    if (mi_query(miQ_FUNC_TLS_GET, state, miNULLTAG, &data) && data != nullptr)
        return static_cast<Data*>(data);
    data = new (mi_mem_int_allocate("orlshaderapi", __LINE__, sizeof(Data) + extra)) Data{};
    if (mi_query(miQ_FUNC_TLS_SET, state, miNULLTAG, &data))
        return static_cast<Data*>(data);
    mi_mem_int_release("orlshaderapi", __LINE__, data);
    return nullptr;
}

/* Frees all threads' data of the running instance, from the last thread to the first, to be called from its
   exit. */
void delete_thread_data(miState* state);

// ---- records of the shader state

/* A key under which shaders pass data to the shaders that they call. Lifetimes are the renderer's. */
template <class Record> struct StateKey {
    const char* name;
    int lifetime = miSS_LIFETIME_RECT;
};

/* The environment shader is the caller. */
struct EnvironmentCaller {
    miInteger present;
};

/* What the environment gives to a traced ray; without the record both are 1. */
struct EnvironmentSwitches {
    miInteger use_background;
    miInteger use_sky;
};

/* What a raytrace material hands to the environment for the rays that it traces. */
struct TracedEnvironment {
    miColor color;
    miInteger mode;
};

/* Where a sub-material of a compound material reports its transparency. */
struct SubMaterialReport {
    miInteger reported; /* 1 once the material has written the rest */
    miScalar transparency[3];
    miScalar weight;
};

/* Asks a light for its attenuation at a point of a volume. */
struct LightAttenuationProbe {
    miInteger request;
    miScalar attenuation; /* the light's answer */
    miScalar nearStart, nearEnd, farStart, farEnd;
    const miVector* point; /* light space */
    miScalar decayStart;   /* in place of the light's own, where the next field is set */
    miInteger hasDecayStart;
};

/* What a light tells the illumination loop. */
using LightShapingRecord = orl_LightShapingRecord;

/* The ray for which a reflection or refraction map is evaluated. */
struct IncomingRay {
    miVector dir;
    miInteger type; /* miRAY_REFLECT, miRAY_REFRACT or the photon type being sent */
};

/* The active tone operator. */
struct ToneOpHook {
    using Mapping = void (*)(miColor* color, miState* state, void* data);
    miInteger processBackground;
    Mapping forward;
    Mapping inverse;
    void* data;
};

/* What a sky shader tells the tone operator. */
struct SkyHdrRecord {
    miInteger consumed;
    miInteger valid;
    miColor returned; /* the colour that the sky returned */
    miColor unmapped; /* what to show in its place */
};

/* Texture vertices of the current triangle, for each texture space, in place of mi_tri_vectors 't'. */
struct TextureVertexSource {
    using Function = miBoolean (*)(miState* state, void* data, miVector** a, miVector** b, miVector** c);
    Function function[64];
    void* data[64];
};

/* Vertices of the current triangle in place of mi_tri_vectors 'p'. */
struct VertexSource {
    TextureVertexSource::Function function;
    void* data;
};

struct RenderElementList;    // of the handler, with the render elements
struct RenderElementResults; // of a thread

/* The render elements of the sample. */
struct RenderElementState {
    const RenderElementList* list;
    RenderElementResults* results;
    miInteger runNormalPass;
    miInteger runUnshadowedPass;
    miInteger postIllumDone;
};

struct StoredComponents {
    unsigned char bytes[416];
};

struct DisplacementScale {
    miScalar scale;
};

/* How much a light counts, for the renderer's architectural material, which sets the record. */
struct ArchitecturalLightRecord {
    miScalar diffuse;  /* 0 or 1, the light's answer */
    miScalar specular; /* likewise */
    miInteger field_3; /* lights that tell the two apart clear it */
};

/* How far the next texels of a baked object are, internal space. The baking lens sets it while it traces;
   footprints read it, for the camera's pixels mean nothing there. The lens sets no VertexSource: its rays
   meet the object itself, whose vertices the renderer tells. */
struct ProjectionContext {
    miVector right; /* from the texel to its neighbour on the right */
    miVector up;
};

namespace keys {
// clang-format off
inline constexpr StateKey<EnvironmentCaller>        environment_caller   {"KEY_0"};
inline constexpr StateKey<EnvironmentSwitches>      environment_switches {"KEY_1"};
inline constexpr StateKey<TracedEnvironment>        traced_environment   {"KEY_2"};
inline constexpr StateKey<SubMaterialReport>        sub_material_report  {"KEY_3"};
inline constexpr StateKey<LightAttenuationProbe>    attenuation_probe    {"KEY_4"};
inline constexpr StateKey<LightShapingRecord>       light_shaping        {"KEY_5"};
inline constexpr StateKey<IncomingRay>              incoming_ray         {"KEY_6"};
inline constexpr StateKey<ToneOpHook>               tone_operator        {"KEY_7"};
inline constexpr StateKey<SkyHdrRecord>             sky_is_hdr           {"SKY_IS_HDR"};
inline constexpr StateKey<TextureVertexSource>      texture_vertices     {"KEY_8"};
inline constexpr StateKey<VertexSource>             vertices             {"KEY_9"};
inline constexpr StateKey<ProjectionContext>        projection           {"KEY_10"};
inline constexpr StateKey<RenderElementState>       render_elements      {"ORREINT"};
inline constexpr StateKey<StoredComponents>         stored_components    {"miXMST", miSS_LIFETIME_EYERAY};
inline constexpr StateKey<ArchitecturalLightRecord> architectural_light  {"miXMLD"};
inline constexpr StateKey<DisplacementScale>        displacement_scale   {"vdmScale", 0};
// clang-format on
} // namespace keys

// Libraries built apart from this one share these records, so their sizes are fixed.
static_assert(sizeof(EnvironmentCaller) == 4 && sizeof(EnvironmentSwitches) == 8);
static_assert(sizeof(TracedEnvironment) == 20 && sizeof(SubMaterialReport) == 20);
static_assert(sizeof(LightAttenuationProbe) == 40 && sizeof(LightShapingRecord) == 16);
static_assert(sizeof(IncomingRay) == 16 && sizeof(ToneOpHook) == 32 && sizeof(SkyHdrRecord) == 40);
static_assert(sizeof(TextureVertexSource) == 1024 && sizeof(RenderElementState) == 32);
static_assert(sizeof(StoredComponents) == 416 && sizeof(DisplacementScale) == 4);

/* The record under a key, or null when there is none. Writes through it stay. */
template <class Record> Record* find_record(miState* state, const StateKey<Record>& key) {
    int size = 0;
    void* const record = mi_shaderstate_get(state, key.name, &size);
    return record != nullptr && size >= static_cast<int>(sizeof(Record)) ? static_cast<Record*>(record)
                                                                         : nullptr;
}

/* Keeps a record under a key while it lives: made before a shader is called, gone after. Deliberate: a record
   of a shader further out does not come back; who needs one for several calls sets it anew for each. */
template <class Record> class ScopedRecord {
public:
    ScopedRecord(miState* state, const StateKey<Record>& key, Record value) : state_(state), key_(key) {
        mi_shaderstate_set(state_, key_.name, &value, sizeof value, key_.lifetime);
    }
    ~ScopedRecord() { mi_shaderstate_set(state_, key_.name, nullptr, 0, key_.lifetime); }
    ScopedRecord(const ScopedRecord&) = delete;
    ScopedRecord& operator=(const ScopedRecord&) = delete;

    /* The record as the called shaders left it. */
    Record* get() const { return find_record(state_, key_); }

private:
    miState* state_;
    const StateKey<Record>& key_;
};

/* Gives the state a copy of its options to change, while it lives; the renderer's own are never written. */
class ScopedOptions {
public:
    explicit ScopedOptions(miState* state) : state_(state), own_(state->options), copy_(*state->options) {
        state_->options = &copy_;
    }
    ~ScopedOptions() { state_->options = own_; }
    ScopedOptions(const ScopedOptions&) = delete;
    ScopedOptions& operator=(const ScopedOptions&) = delete;

    miOptions* operator->() { return &copy_; }

private:
    miState* state_;
    miOptions* own_;
    miOptions copy_;
};

// ---- checks

inline bool is_photon(miRay_type type) {
    return miRAY_PHOTON(type);
}

/* Replaces a colour that is not a number by opaque black and reports it. Photons carry no alpha, so only the
   colour counts for them. */
void guard_nan(miState* state, miColor& color);

/* Index of a named frame buffer for mi_fb_put, -1 when the camera has none of that name. For instance init.
 */
int frame_buffer_index(miState* state, const char* name);

/* Writes the id of a material on eye rays, unless it is 0 or there is no buffer for it. */
void put_material_id(miState* state, int buffer, const miInteger& parameter);

/* Whether the rasterizer asks for the sample, which composes transparent surfaces by itself. */
bool comes_from_rasterizer(const miState* state);

/* Lets the ray pass the surface as if it were not there. */
miBoolean pass_through(miColor* result, miState* state);

// ---- messages

/* Sets a flag that threads share and returns what it was: true once the message was sent. */
inline bool test_and_set(miBoolean& warned) {
    const std::atomic_ref<miBoolean> flag(warned);
    return flag.load(std::memory_order_relaxed) || flag.exchange(miTRUE, std::memory_order_relaxed);
}

/* What a shader cannot work without. No shader here sends the last three: the host's list has them. */
enum class MissingInput {
    uv_coordinates,
    xyz_coordinates,
    illumination,
    image_file,
    object_data,
    vector_texture
};

/* Format of the message, which takes the shader instance's name. */
const char* missing_input_format(MissingInput input);

/* Reports once for each instance, by a format that takes its name, that a shader called it which it is not
   for. The instance has no data of another kind; this makes it, under the unit's name, and its exit frees it.
 */
void report_wrong_caller(miState* state, const char* unit, const char* format);

/* Reports a missing input once for each instance, whose data holds the warned flag. */
void report_missing(miState* state, MissingInput input, miBoolean& warned);

} // namespace orl
