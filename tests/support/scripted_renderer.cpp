// The test's side of the scripted renderer: loads the library, hands the tests' scripts to its hooks and
// answers from the small scene where a test scripted nothing.
#include "scripted_renderer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "kit/color.h"
#include "kit/lock.h"
#include "kit/matrix.h"
#include "library.h"

namespace scripted {

namespace {

// Where a shader's function record keeps what is the renderer's own.
constexpr int user_pointer_slot = 0;
constexpr int name_slot = 1;

constexpr std::size_t thread_count = 256;

template <class T> bool give(void* result, const T& value) {
    std::memcpy(result, &value, sizeof value);
    return true;
}

// Bytes of a sample of a frame buffer.
std::size_t value_size(miImg_type type) {
    constexpr miImg_type scalars[] = {miIMG_TYPE_A,    miIMG_TYPE_A_16,    miIMG_TYPE_A_FP, miIMG_TYPE_S,
                                      miIMG_TYPE_S_16, miIMG_TYPE_S_FP,    miIMG_TYPE_Z,    miIMG_TYPE_TAG,
                                      miIMG_TYPE_BIT,  miIMG_TYPE_COVERAGE};
    if (std::find(std::begin(scalars), std::end(scalars), type) != std::end(scalars))
        return sizeof(miScalar);
    return type == miIMG_TYPE_N || type == miIMG_TYPE_M ? sizeof(miVector) : sizeof(miColor);
}

} // namespace

// ---- life

class Renderer::BufferSet final : public mi::shader_v3::Framebuffer {
public:
    std::vector<std::pair<std::string, miImg_type>> buffers;
    miTag tag = miNULLTAG;

    bool get_index(const char* buffer, std::size_t& index) override {
        for (index = 0; buffer && index < buffers.size(); ++index)
            if (buffers[index].first == buffer)
                return true;
        return false;
    }
    bool get_buffercount(std::size_t& count) override {
        count = buffers.size();
        return true;
    }
    bool get_buffername(std::size_t number, const char*& name) override {
        return number < buffers.size() && (name = buffers[number].first.c_str());
    }
    bool get_datatype(std::size_t number, miImg_type& type) override {
        return number < buffers.size() && (type = buffers[number].second, true);
    }
    bool map_old_index(unsigned, int&) override { return false; }
    bool set(const char*, const char*, bool) override { return false; }
    bool set(const char*, const char*, float) override { return false; }
    bool set(const char*, const char*, int) override { return false; }
    bool set(const char*, const char*, const char*) override { return false; }
    bool get(const char*, const char*, bool&) override { return false; }
    bool get(const char*, const char*, float&) override { return false; }
    bool get(const char*, const char*, int&) override { return false; }
    bool get(const char*, const char*, const char*&) override { return false; }
    bool remove(const char*) override { return false; }
    bool reset() override { return false; }
    void echo(FILE*) override {}
};

class Renderer::ShaderInterface final : public mi::shader_v3::Interface {
public:
    explicit ShaderInterface(Renderer& renderer) : renderer_(renderer) {}

    mi::shader_v3::Framebuffer* accessFramebuffer(miTag framebuffers) override {
        if (framebuffers == miNULLTAG || framebuffers != renderer_.buffers_->tag)
            return nullptr;
        ++renderer_.pins_;
        return renderer_.buffers_.get();
    }
    void releaseFramebuffer(mi::shader_v3::Framebuffer* framebuffers) override {
        renderer_.pins_ -= framebuffers != nullptr;
    }
    void release() override { --renderer_.pins_; }
    miImg_image* open_output_image(miState*, int index) override {
        miImg_image* const image = index == 0 ? renderer_.output_image : nullptr;
        renderer_.pins_ += image != nullptr;
        return image;
    }
    void close_output_image(miState*, int index) override {
        renderer_.pins_ -= index == 0 && renderer_.output_image != nullptr;
    }
    mi::shader_v3::LightList* createLightList(miState*, miTag*, int) override { return nullptr; }
    mi::shader_v3::LightList* createLightList(miState*, const miVector&, miScalar, miTag*, int) override {
        return nullptr;
    }
    void releaseLightList(mi::shader_v3::LightList*) override {}

private:
    Renderer& renderer_;
};

Renderer& Renderer::get() {
    static Renderer renderer(ORL_FILE_SCRIPTED_RENDERER);
    return renderer;
}

Renderer::Renderer(const char* file) : handle_(open_library(file)) {
    auto* entry = handle_ ? reinterpret_cast<Hooks* (*)()>(symbol_of(handle_, "scripted_renderer")) : nullptr;
    if (!entry) {
        std::fprintf(stderr, "%s is no scripted renderer\n", file);
        std::abort();
    }
    interface_ = std::make_unique<ShaderInterface>(*this);
    Hooks& hooks = *entry();
    const auto attach = [](auto& script, auto& hook, const char* name) {
        script.name_ = name;
        hook = {&script.run, &script};
    };
#define ATTACH(result, name, parameters, arguments) attach(name, hooks.name, #name);
#define ATTACH_MESSAGE(name) attach(name, hooks.name, #name);
    ORL_RENDERER_FUNCTIONS(ATTACH, ATTACH_MESSAGE)
    answer_database_and_queries();
    answer_calls();
    answer_light();
    answer_spaces();
    answer_sample();
    answer_from_the_kit();
    reset();
}

Renderer::~Renderer() = default;

void Renderer::reset() {
    const auto clear = [](auto& script) {
        script.scripted_ = nullptr;
        script.calls_ = 0;
    };
#define CLEAR(result, name, parameters, arguments) clear(name);
#define CLEAR_MESSAGE(name) clear(name);
    ORL_RENDERER_FUNCTIONS(CLEAR, CLEAR_MESSAGE)
    memory_.clear();
    elements_.clear();
    answers_.clear();
    connections_.clear();
    for (int space = 0; space < 4; ++space) {
        stage::matrix_identity(to_space_[space]);
        stage::matrix_identity(from_space_[space]);
    }
    buffers_ = std::make_unique<BufferSet>();
    for (stage::ShaderStateRecords& records : shader_state_)
        records.clear_rect();
    stage::fail_allocations_after(-1);
    lights.clear();
    trace_color.reset();
    triangle = Triangle();
    texture_spaces = 0;
    output_image = nullptr;
    aborted = false;
    clear_logs();
    thread_pointers_.clear();
    pins_ = 0;
}

void Renderer::clear_logs() {
    messages.clear();
    calls.clear();
    framebuffer_writes.clear();
    photons.clear();
    opacities.clear();
    bad_accesses_ = 0;
}

Resources Renderer::resources() {
    return {stage::memory_counts(), stage::live_locks()};
}

// ---- building the scene

void* Renderer::allocate(std::size_t size) {
    memory_.push_back(std::make_unique<double[]>(size / sizeof(double) + 1));
    return memory_.back().get();
}

miTag Renderer::add(miScene_type type, void* record, const char* name) {
    elements_.push_back(std::make_unique<Element>());
    elements_.back()->type = type;
    elements_.back()->record = record;
    elements_.back()->name = name ? name : "";
    return static_cast<miTag>(elements_.size());
}

miTag Renderer::add_string(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    return add(miSCENE_STRING, std::memcpy(allocate(size), text, size));
}

miTag Renderer::add_group(const std::vector<miTag>& kids) {
    auto* group = static_cast<miGroup*>(allocate(sizeof(miGroup) + kids.size() * sizeof(miTag)));
    group->no_kids = group->max_kids = static_cast<int>(kids.size());
    std::copy(kids.begin(), kids.end(), static_cast<miTag*>(group->kids));
    return add(miSCENE_GROUP, group);
}

miTag Renderer::add_userdata(const void* bytes, int size) {
    auto* data = static_cast<miUserdata*>(allocate(sizeof(miUserdata) + static_cast<std::size_t>(size)));
    data->parameter_size = size;
    if (size)
        std::memcpy(static_cast<void*>(data->parameters), bytes, static_cast<std::size_t>(size));
    return add(miSCENE_USERDATA, data);
}

miTag Renderer::add_light(const std::vector<LightSample>& samples, const miLight& light) {
    miInstance instance{};
    instance.item = add_copy(miSCENE_LIGHT, light);
    lights.push_back(add_instance(instance));
    find(lights.back())->samples = samples;
    return lights.back();
}

miTag Renderer::add_shader(ShaderScript script, const char* name, miFunction* function) {
    auto* record = function ? function : static_cast<miFunction*>(allocate(sizeof(miFunction)));
    const miTag tag = add(miSCENE_FUNCTION, record, name);
    find(tag)->script = std::move(script);
    if (!function && name)
        record->reserved[name_slot] = find(tag)->name.data();
    return tag;
}

miTag Renderer::add_color(const miColor& color) {
    return add_shader([color](void* result, miState*, void*) { return give(result, color); });
}

miTag Renderer::add_texture(std::function<miBoolean(miColor* result, const miVector& coord)> lookup) {
    const miTag tag = add_copy(miSCENE_IMAGE, miImg_image{});
    find(tag)->lookup = std::move(lookup);
    return tag;
}

miTag Renderer::add_framebuffers(const std::vector<std::pair<std::string, miImg_type>>& buffers) {
    buffers_->buffers = buffers;
    return buffers_->tag = add(miSCENE_FRAMEBUFFERS, nullptr);
}

int Renderer::add_connection(std::function<void*(miState*)> value) {
    connections_.push_back(std::move(value));
    return static_cast<int>(connections_.size());
}

void Renderer::set_to_space(Space space, const miScalar* internal_to_space) {
    stage::matrix_copy(to_space_[static_cast<int>(space)], internal_to_space);
    if (!stage::matrix_invert(from_space_[static_cast<int>(space)], internal_to_space)) {
        std::fprintf(stderr, "the matrix of a space is singular\n");
        std::abort();
    }
}

// ---- database

Renderer::Element* Renderer::find(miTag tag) {
    return tag >= 1 && tag <= elements_.size() ? elements_[tag - 1].get() : nullptr;
}

template <class Record> Record* Renderer::record(miTag tag, miScene_type type) {
    const Element* element = find(tag);
    return element && element->type == type ? static_cast<Record*>(element->record) : nullptr;
}

void* Renderer::access(miTag tag, int* type) {
    static std::array<double, 1024> nothing; // lets a shader that accesses a wrong tag go on
    const Element* element = find(tag);
    if (type)
        *type = element ? element->type : 0;
    ++pins_;
    bad_accesses_ += !element;
    return element && element->record ? element->record : nothing.data();
}

void Renderer::answer_database_and_queries() {
    mi_db_access.standard_ = [this](miTag tag) { return access(tag, nullptr); };
    mi_db_access_type.standard_ = [this](miTag tag, int* type) { return access(tag, type); };
    mi_db_type.standard_ = [this](miTag tag) { return find(tag) ? int{find(tag)->type} : 0; };
    mi_db_unpin.standard_ = [this](miTag) { --pins_; };
    mi_get_shader_interface.standard_ = [this](int version) -> miShader_interface* {
        if (version != 3)
            return nullptr;
        ++pins_;
        return interface_.get();
    };
    mi_vquery.standard_ = [this](miQ_type code, miState* state, miTag tag, void* result, va_list arguments) {
        auto answer = answers_.find({code, tag});
        if (answer == answers_.end())
            answer = answers_.find({code, miNULLTAG});
        if (answer == answers_.end())
            return static_cast<miBoolean>(query(code, state, tag, result, arguments));
        answer->second.copy(static_cast<char*>(result), answer->second.size());
        return static_cast<miBoolean>(!answer->second.empty());
    };
}

// ---- queries

// A query for a member of a record, or for its address.
struct Renderer::Field {
    miQ_type code;
    miScene_type type;
    std::size_t offset, size; // no size: the address
};

#define MEMBER(code, type, Record, member)                                                                   \
    { code, type, offsetof(Record, member), sizeof(Record::member) }
#define ADDRESS(code, type, Record, member)                                                                  \
    { code, type, offsetof(Record, member), 0 }
const Renderer::Field Renderer::fields[] = {
    ADDRESS(miQ_FUNC_USERPTR, miSCENE_FUNCTION, miFunction, reserved[user_pointer_slot]),
    MEMBER(miQ_FUNC_NEXT, miSCENE_FUNCTION, miFunction, next_function),
    ADDRESS(miQ_FUNC_LOCK, miSCENE_FUNCTION, miFunction, lock),
    MEMBER(miQ_DECL_VERSION, miSCENE_FUNCTION_DECL, miFunction_decl, version),
    MEMBER(miQ_INST_ITEM, miSCENE_INSTANCE, miInstance, item),
    MEMBER(miQ_INST_PARENT, miSCENE_INSTANCE, miInstance, parent),
    ADDRESS(miQ_INST_GLOBAL_TO_LOCAL, miSCENE_INSTANCE, miInstance, tf.global_to_local),
    ADDRESS(miQ_INST_LOCAL_TO_GLOBAL, miSCENE_INSTANCE, miInstance, tf.local_to_global),
    MEMBER(miQ_INST_LABEL, miSCENE_INSTANCE, miInstance, label),
    MEMBER(miQ_INST_DATA, miSCENE_INSTANCE, miInstance, userdata),
    MEMBER(miQ_GROUP_NKIDS, miSCENE_GROUP, miGroup, no_kids),
    MEMBER(miQ_LIGHT_TYPE, miSCENE_LIGHT, miLight, type),
    MEMBER(miQ_LIGHT_ENERGY, miSCENE_LIGHT, miLight, energy),
    MEMBER(miQ_MTL_SHADER, miSCENE_MATERIAL, miMaterial, shader),
    MEMBER(miQ_MTL_DISPLACE, miSCENE_MATERIAL, miMaterial, displace),
    MEMBER(miQ_MTL_SHADOW, miSCENE_MATERIAL, miMaterial, shadow),
    MEMBER(miQ_MTL_VOLUME, miSCENE_MATERIAL, miMaterial, volume),
    MEMBER(miQ_MTL_ENVIRONMENT, miSCENE_MATERIAL, miMaterial, environment),
    MEMBER(miQ_MTL_CONTOUR, miSCENE_MATERIAL, miMaterial, contour),
    MEMBER(miQ_MTL_PHOTON, miSCENE_MATERIAL, miMaterial, photon),
    MEMBER(miQ_MTL_PHOTONVOL, miSCENE_MATERIAL, miMaterial, photonvol),
    MEMBER(miQ_MTL_LIGHTMAP, miSCENE_MATERIAL, miMaterial, lightmap),
    MEMBER(miQ_OBJ_DATA, miSCENE_OBJECT, miObject, userdata),
    MEMBER(miQ_OBJ_TYPE, miSCENE_OBJECT, miObject, type),
    ADDRESS(miQ_DATA_PARAM, miSCENE_USERDATA, miUserdata, parameters),
    MEMBER(miQ_DATA_PARAM_SIZE, miSCENE_USERDATA, miUserdata, parameter_size),
};

// The record that a query is about: functions may be the running one, declarations given by a function,
// lights by their instance, objects be the one that was hit.
void* Renderer::record_of(miScene_type type, miState* state, miTag tag) {
    if (type == miSCENE_FUNCTION && tag == miNULLTAG)
        return state ? state->shader : nullptr;
    if (type == miSCENE_FUNCTION_DECL)
        if (const auto* function = static_cast<miFunction*>(record_of(miSCENE_FUNCTION, state, tag)))
            tag = function->function_decl;
    if (type == miSCENE_OBJECT && tag == miNULLTAG && state)
        tag = state->instance;
    if (type == miSCENE_OBJECT || type == miSCENE_LIGHT)
        if (const auto* instance = record<miInstance>(tag, miSCENE_INSTANCE))
            tag = instance->item;
    return record<void>(tag, type);
}

bool Renderer::query(miQ_type code, miState* state, miTag tag, void* result, va_list arguments) {
    for (const Field& field : fields)
        if (field.code == code) {
            char* const bytes = static_cast<char*>(record_of(field.type, state, tag));
            if (bytes && !field.size)
                return give(result, bytes + field.offset);
            return bytes && std::memcpy(result, bytes + field.offset, field.size);
        }
    return query_special(code, state, tag, result, arguments) || query_scene(code, result);
}

bool Renderer::query_special(miQ_type code, miState* state, miTag tag, void* result, va_list arguments) {
    auto* function = static_cast<miFunction*>(record_of(miSCENE_FUNCTION, state, tag));
    const auto* group = record<miGroup>(tag, miSCENE_GROUP);
    const bool by_thread = function && state;
    const std::lock_guard guard(mutex_);
    auto* const pointers = by_thread ? &thread_pointers_[function] : nullptr;
    if (pointers)
        pointers->resize(thread_count);
    void** own = pointers ? &(*pointers)[static_cast<std::size_t>(state->thread) % thread_count] : nullptr;
    switch (code) {
    case miQ_DECL_NAME:
        if (const Element* decl = find(function ? function->function_decl : tag))
            return !decl->name.empty() && give(result, decl->name.c_str());
        [[fallthrough]];
    case miQ_FUNC_NAME:
        return function && function->reserved[name_slot] && give(result, function->reserved[name_slot]);
    case miQ_FUNC_CALLTYPE:
        return by_thread && give(result, state->call_type);
    case miQ_FUNC_TLS_GET:
        return own && give(result, *own);
    case miQ_FUNC_TLS_SET:
        return own && std::memcpy(own, result, sizeof *own);
    case miQ_FUNC_TLS_GETALL:
        return own && give(va_arg(arguments, int*), int{thread_count}) && give(result, pointers->data());
    case miQ_PRI_DATA:
        if (triangle.slots.empty())
            return false;
        *va_arg(arguments, const int**) = triangle.slots.data();
        *va_arg(arguments, const miUint**) = triangle.words.data();
        return give(result, static_cast<int>(triangle.slots.size()));
    case miQ_GROUP_KID: {
        const int kid = group ? va_arg(arguments, int) : -1;
        return kid >= 0 && kid < group->no_kids && give(result, (&group->kids[0])[kid]);
    }
    default:
        return false;
    }
}

bool Renderer::query_scene(miQ_type code, void* result) {
    if (code == miQ_TRANS_INTERNAL_TO_OBJECT)
        return give(result, &to_space_[static_cast<int>(Space::object)][0]);
    if (code == miQ_NUM_GLOBAL_LIGHTS)
        return give(result, static_cast<int>(lights.size()));
    if (code == miQ_GLOBAL_LIGHTS)
        return give(result, lights.data());
    if (code == miQ_NUM_TEXTURES)
        return give(result, texture_spaces);
    return code == miQ_FINALGATHER_STATE && give(result, 0);
}

// ---- calls

miBoolean Renderer::run_shader(const char* function, void* result, miShader_type type, miState* state,
                               miTag tag, void* arg) {
    calls.add({function, tag});
    Element* element = find(tag);
    if (!element || !element->script)
        return miFALSE;
    miFunction* const caller = std::exchange(state->shader, static_cast<miFunction*>(element->record));
    const miShader_type caller_type = std::exchange(state->call_type, type);
    const miBoolean answer = element->script(result, state, arg ? arg : state->shader->parameters);
    state->shader = caller;
    state->call_type = caller_type;
    return answer;
}

void Renderer::answer_calls() {
    const auto slot = [this](auto& script, miShader_type type, miTag miMaterial::*member) {
        const char* name = script.name_;
        standard(
            [=, this](miColor* result, miState* state) {
                const auto* material = record<miMaterial>(state->material, miSCENE_MATERIAL);
                return run_shader(name, result, type, state, material ? material->*member : state->material,
                                  nullptr);
            },
            script);
    };
    slot(mi_call_material, miSHADER_MATERIAL, &miMaterial::shader);
    slot(mi_call_shadow_material, miSHADER_SHADOW, &miMaterial::shadow);
    slot(mi_call_photon_material, miSHADER_PHOTON, &miMaterial::photon);
    slot(mi_call_photonvol_material, miSHADER_PHOTONVOL, &miMaterial::photonvol);
    slot(mi_call_volume_material, miSHADER_VOLUME, &miMaterial::volume);
    slot(mi_call_environment_material, miSHADER_ENVIRONMENT, &miMaterial::environment);
    mi_call_shader.standard_ = [this](miColor* result, miShader_type type, miState* state, miTag tag) {
        return run_shader("mi_call_shader", result, type, state, tag, nullptr);
    };
    mi_call_shader_x.standard_ = [this](miColor* result, miShader_type type, miState* state, miTag tag,
                                        void* arg) {
        return run_shader("mi_call_shader_x", result, type, state, tag, arg);
    };
    mi_phen_eval.standard_ = [this](miState* state, void* param) -> void* {
        const auto entry = static_cast<std::size_t>(mi_connection_entry(state->shader, param));
        return entry >= 1 && entry <= connections_.size() ? connections_[entry - 1](state) : nullptr;
    };
    mi_lookup_color_texture.standard_ = [this](miColor* result, miState* state, miTag tag, miVector* coord) {
        const Element* element = find(tag);
        if (element && element->lookup)
            return element->lookup(result, *coord);
        state->tex = *coord;
        return run_shader("mi_lookup_color_texture", result, miSHADER_TEXTURE, state, tag, nullptr);
    };
}

// ---- rays and light

void Renderer::answer_light() {
    const auto trace = [this](miColor* result, auto...) -> miBoolean {
        return trace_color && give(result, *trace_color);
    };
    standard(trace, mi_trace_reflection, mi_trace_refraction, mi_trace_environment, mi_trace_transparent,
             mi_trace_continue);
    mi_trace_eye.standard_ = [trace](miColor* result, miState* state, miVector* org, miVector* dir) {
        state->org = *org;
        state->dir = *dir;
        return trace(result);
    };
    standard([](auto...) { return miTRUE; }, mi_trace_shadow, mi_trace_shadow_seg);

    mi_sample_light.standard_ = [this](miColor* result, miVector* dir, miScalar* dot_nl, miState*,
                                       miTag light, miInteger* samples) {
        const Element* found = find(light);
        if (!found || static_cast<std::size_t>(*samples) >= found->samples.size())
            return miFALSE;
        const LightSample& sample = found->samples[static_cast<std::size_t>((*samples)++)];
        *result = sample.color;
        *dir = sample.dir;
        *dot_nl = sample.dot_nl;
        return miTRUE;
    };
    const auto photon = [this](auto&... scripts) {
        (standard(
             [this, name = scripts.name_](miColor* energy, miState* state, auto...) {
                 photons.add({name, *energy, state->point, state->dir});
                 return miTRUE;
             },
             scripts),
         ...);
    };
    photon(mi_photon_light, mi_photon_reflection_diffuse, mi_photon_reflection_specular,
           mi_photon_transmission_diffuse, mi_photon_transparent, mi_store_photon);
    mi_choose_simple_scatter_type.standard_ = [](auto...) { return miPHOTON_ABSORB; };
}

// ---- spaces

void Renderer::answer_spaces() {
    const auto convert = [](auto transform, const miScalar* matrix) {
        return [=](miState*, miVector* r, miVector* v) { *r = transform(*v, matrix); };
    };
    // A normal goes to a space with the transposed matrix that leads back.
#define CONVERSIONS(space, to, from)                                                                         \
    mi_point_to_##space.standard_ = convert(stage::transform_point, to);                                     \
    mi_point_from_##space.standard_ = convert(stage::transform_point, from);                                 \
    mi_vector_to_##space.standard_ = convert(stage::transform_vector, to);                                   \
    mi_vector_from_##space.standard_ = convert(stage::transform_vector, from);                               \
    mi_normal_to_##space.standard_ = convert(stage::transform_vector_transposed, from);
    CONVERSIONS(world, to_space_[0], from_space_[0])
    CONVERSIONS(camera, to_space_[1], from_space_[1])
    CONVERSIONS(object, to_space_[2], from_space_[2])
    CONVERSIONS(light, to_space_[3], from_space_[3])
#undef CONVERSIONS
}

// ---- sample

Triangle::Corners* Renderer::corners(int which, int space) {
    for (const auto& [letter, values] : {std::pair{'p', &triangle.points}, {'n', &triangle.normals}})
        if (which == letter)
            return *values ? &**values : nullptr;
    for (const auto& [letter, values] :
         {std::pair{'t', &triangle.textures}, {'x', &triangle.bump_x}, {'y', &triangle.bump_y}})
        if (which == letter && space >= 0 && static_cast<std::size_t>(space) < values->size())
            return &(*values)[static_cast<std::size_t>(space)];
    return nullptr;
}

void Renderer::answer_sample() {
    mi_opacity_set.standard_ = [this](miState*, miColor* opacity) {
        opacities.add(*opacity);
        return miTRUE;
    };
    mi_fb_put.standard_ = [this](miState*, int index, void* value) {
        if (index < 0 || static_cast<std::size_t>(index) >= buffers_->buffers.size())
            return miTRUE;
        FramebufferWrite write{index, {}};
        std::memcpy(&write.value, value,
                    value_size(buffers_->buffers[static_cast<std::size_t>(index)].second));
        framebuffer_writes.add(write);
        return miTRUE;
    };
    mi_tri_vectors.standard_ = [this](miState*, int which, int ntex, miVector** a, miVector** b,
                                      miVector** c) {
        Triangle::Corners* const found = corners(which, ntex);
        if (!found)
            return miFALSE;
        *a = &(*found)[0];
        *b = &(*found)[1];
        *c = &(*found)[2];
        return miTRUE;
    };
    mi_par_aborted.standard_ = [this] { return miBoolean{aborted}; };
    // Points of Halton's sequence; a single sample is the centre.
    mi_sample.standard_ = [](double* sample, int* instance, miState*, miUshort dim, const miUint* n) {
        constexpr std::array primes = {2, 3, 5, 7, 11, 13, 17, 19};
        if (instance && n && static_cast<miUint>(*instance) >= *n)
            return miFALSE;
        for (std::size_t i = 0; i < dim; ++i) {
            const int base = primes[i % primes.size()];
            double digit = 1.0 / base;
            sample[i] = instance ? 0.0 : 0.5;
            for (int k = instance ? *instance + 1 : 0; k > 0; k /= base, digit /= base)
                sample[i] += digit * (k % base);
        }
        if (instance)
            ++*instance;
        return miTRUE;
    };
    mi_texture_interpolate.standard_ = [](miState* state, miUint space, miScalar* result) -> miBoolean {
        return state->tex_list && give(result, state->tex_list[space]);
    };
    // Direction samplers without randomness: the centre of the lobe.
    const auto mirror = [](miVector* dir, miState* state, auto...) {
        const miScalar twice = 2.0f * mi_vector_dot(&state->dir, &state->normal);
        *dir = {state->dir.x - twice * state->normal.x, state->dir.y - twice * state->normal.y,
                state->dir.z - twice * state->normal.z};
    };
    standard(mirror, mi_reflection_dir, mi_reflection_dir_specular);
    mi_reflection_dir_diffuse.standard_ = [](miVector* dir, miState* state) { *dir = state->normal; };
    // Snell's law.
    mi_refraction_dir.standard_ = [](miVector* dir, miState* state, miScalar ior_in, miScalar ior_out) {
        const double ratio = static_cast<double>(ior_in) / static_cast<double>(ior_out);
        const double cosine = -static_cast<double>(mi_vector_dot(&state->dir, &state->normal));
        const double square = 1.0 - ratio * ratio * (1.0 - cosine * cosine);
        if (!(square >= 0.0))
            return miFALSE;
        const auto along = static_cast<miScalar>(ratio);
        const auto normal = static_cast<miScalar>(ratio * cosine - std::sqrt(square));
        *dir = {along * state->dir.x + normal * state->normal.x,
                along * state->dir.y + normal * state->normal.y,
                along * state->dir.z + normal * state->normal.z};
        return miTRUE;
    };
    const auto keep = [this](Level level) {
        return [this, level](const char* text) { messages.add({level, text}); };
    };
    mi_debug.standard_ = keep(Level::debug);
    mi_info.standard_ = keep(Level::info);
    mi_progress.standard_ = keep(Level::progress);
    mi_warning.standard_ = keep(Level::warning);
    mi_error.standard_ = keep(Level::error);
}

// ---- what holds no scene

void Renderer::answer_from_the_kit() {
    const auto records = [this](const miState* state) -> stage::ShaderStateRecords& {
        return shader_state_[state ? static_cast<std::size_t>(state->thread) % shader_state_.size() : 0];
    };
    mi_shaderstate_set.standard_ = [=](miState* state, const char* key, void* value, int size, int lifetime) {
        return records(state).set(key, value, size, lifetime);
    };
    mi_shaderstate_get.standard_ = [=](miState* state, const char* key, int* size) {
        return records(state).get(key, size);
    };
    mi_mem_int_allocate.standard_ = stage::allocate;
    mi_mem_int_test_allocate.standard_ = stage::test_allocate;
    mi_mem_int_release.standard_ = stage::release;
    mi_init_lock.standard_ = [](miLock* lock) { *lock = stage::create_lock(); };
    mi_delete_lock.standard_ = [](miLock* lock) { stage::destroy_lock(std::exchange(*lock, nullptr)); };
    mi_lock.standard_ = stage::acquire_lock;
    mi_unlock.standard_ = stage::release_lock;
    mi_luminance.standard_ = [](miState* state, miColor* color) {
        return state && state->options ? stage::luminance(*color, state->options->luminance_weight)
                                       : stage::luminance(*color);
    };
    mi_colorprofile_ciexyz_to_render.standard_ = [](miColor* rgb, miColor* xyz) {
        *rgb = stage::color_of_ciexyz(*xyz);
    };
}

} // namespace scripted
