// The test's side of the scripted renderer: loads the library, hands the tests' scripts to its hooks and
// answers from the small scene where a test scripted nothing.
#include "scripted_renderer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include "kit/matrix.h"

namespace scripted {

namespace {

void* open_library(const char* file) {
#ifdef _WIN32
    return reinterpret_cast<void*>(LoadLibraryA(file));
#else
    return dlopen(file, RTLD_NOW | RTLD_LOCAL);
#endif
}

void* symbol_of(void* library, const char* name) {
#ifdef _WIN32
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
#else
    return dlsym(library, name);
#endif
}

void close_library(void* library) {
#ifdef _WIN32
    FreeLibrary(static_cast<HMODULE>(library));
#else
    dlclose(library);
#endif
}

// Where a shader's function record keeps what is the renderer's own.
constexpr int user_pointer_slot = 0;
constexpr int name_slot = 1;

constexpr std::size_t thread_count = 256;

template <class T> bool give(void* result, const T& value) {
    std::memcpy(result, &value, sizeof value);
    return true;
}

} // namespace

// ---- scene ----

struct Renderer::Element {
    miTag tag;
    miScene_type type;
    void* record;
    std::optional<std::string> name;
    std::vector<double> storage; // of records that are the renderer's own
    ShaderScript script;
    std::function<miBoolean(miColor*, const miVector&)> lookup;

    // A zeroed record in the element's own memory.
    void* make_record(std::size_t size) {
        storage.assign(size / sizeof(double) + 1, 0.0);
        return record = storage.data();
    }
};

class Renderer::BufferSet final : public mi::shader_v3::Framebuffer {
public:
    std::vector<std::pair<std::string, miImg_type>> buffers;
    miTag tag = miNULLTAG;

    bool get_index(const char* buffer, std::size_t& index) override {
        for (std::size_t i = 0; buffer && i < buffers.size(); ++i)
            if (buffers[i].first == buffer) {
                index = i;
                return true;
            }
        return false;
    }
    bool get_buffercount(std::size_t& count) override {
        count = buffers.size();
        return true;
    }
    bool get_buffername(std::size_t number, const char*& name) override {
        if (number >= buffers.size())
            return false;
        name = buffers[number].first.c_str();
        return true;
    }
    bool get_datatype(std::size_t number, miImg_type& type) override {
        if (number >= buffers.size())
            return false;
        type = buffers[number].second;
        return true;
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

    std::size_t value_size(std::size_t number) const {
        switch (buffers[number].second) {
        case miIMG_TYPE_N:
        case miIMG_TYPE_M:
            return sizeof(miVector);
        case miIMG_TYPE_A:
        case miIMG_TYPE_A_16:
        case miIMG_TYPE_A_FP:
        case miIMG_TYPE_S:
        case miIMG_TYPE_S_16:
        case miIMG_TYPE_S_FP:
        case miIMG_TYPE_Z:
        case miIMG_TYPE_TAG:
        case miIMG_TYPE_BIT:
        case miIMG_TYPE_COVERAGE:
            return sizeof(miScalar);
        default:
            return sizeof(miColor);
        }
    }
};

class Renderer::ShaderInterface final : public mi::shader_v3::Interface {
public:
    explicit ShaderInterface(Renderer& renderer) : renderer_(renderer) {}

    mi::shader_v3::Framebuffer* accessFramebuffer(miTag framebuffers) override {
        if (framebuffers == miNULLTAG || framebuffers != renderer_.buffers_->tag)
            return nullptr;
        count(1);
        return renderer_.buffers_.get();
    }
    void releaseFramebuffer(mi::shader_v3::Framebuffer* framebuffers) override {
        if (framebuffers)
            count(-1);
    }
    void release() override { count(-1); }
    void count(int change) {
        const std::lock_guard guard(renderer_.mutex_);
        renderer_.pins_ += change;
    }

private:
    Renderer& renderer_;
};

// ---- life ----

Renderer& Renderer::get() {
    static Renderer renderer(ORL_FILE_SCRIPTED_RENDERER);
    return renderer;
}

Renderer::Renderer(const char* file) : handle_(open_library(file)) {
    auto* entry =
        handle_ ? reinterpret_cast<Control* (*)()>(symbol_of(handle_, "scripted_renderer")) : nullptr;
    if (!entry) {
        std::fprintf(stderr, "%s is no scripted renderer\n", file);
        std::abort();
    }
    control_ = entry();
    interface_ = std::make_unique<ShaderInterface>(*this);
#define RENDERER_FUNCTION(result, name, parameters, arguments) name.attach(control_->hooks.name);
#define RENDERER_MESSAGE(name) name.attach(control_->hooks.name);
#include "renderer_functions.inc"
    install_database();
    install_calls();
    install_traces();
    install_light();
    install_points();
    install_vectors();
    install_normals();
    install_sample();
    install_messages();
    reset();
}

Renderer::~Renderer() {
    control_->reset();
    close_library(handle_);
}

template <class Visitor> void Renderer::for_each_script(Visitor visitor) {
#define RENDERER_FUNCTION(result, name, parameters, arguments) visitor(name);
#define RENDERER_MESSAGE(name) visitor(name);
#include "renderer_functions.inc"
}

void Renderer::reset() {
    control_->reset();
    for_each_script([](auto& script) { script.remove_script(); });
    elements_.clear();
    answers_.clear();
    connections_.clear();
    light_samples_.clear();
    for (SpaceMatrices& space : spaces_) {
        stage::matrix_identity(space.to);
        stage::matrix_identity(space.from);
    }
    buffers_ = std::make_unique<BufferSet>();
    lights.clear();
    trace_color.reset();
    irradiance.reset();
    ray_falloff.reset();
    triangle = Triangle();
    texture_spaces = 0;
    aborted = false;
    clear_logs();
    const std::lock_guard guard(mutex_);
    thread_pointers_.clear();
    pins_ = 0;
}

// ---- what was asked ----

std::vector<Message> Renderer::messages() const {
    const std::lock_guard guard(mutex_);
    return messages_;
}

int Renderer::message_count(Level level) const {
    const std::lock_guard guard(mutex_);
    return static_cast<int>(
        std::count_if(messages_.begin(), messages_.end(),
                      [level](const Message& message) { return message.level == level; }));
}

bool Renderer::has_message(Level level, const std::string& text) const {
    const std::lock_guard guard(mutex_);
    return std::any_of(messages_.begin(), messages_.end(), [&](const Message& message) {
        return message.level == level && message.text == text;
    });
}

std::vector<Trace> Renderer::traces() const {
    const std::lock_guard guard(mutex_);
    return traces_;
}

std::vector<Call> Renderer::calls() const {
    const std::lock_guard guard(mutex_);
    return calls_;
}

std::vector<FramebufferWrite> Renderer::framebuffer_writes() const {
    const std::lock_guard guard(mutex_);
    return framebuffer_writes_;
}

std::vector<StoredPhoton> Renderer::photons() const {
    const std::lock_guard guard(mutex_);
    return photons_;
}

std::vector<miColor> Renderer::opacities() const {
    const std::lock_guard guard(mutex_);
    return opacities_;
}

int Renderer::calls_of(const std::string& function) const {
#define RENDERER_FUNCTION(result, name, parameters, arguments)                                               \
    if (function == #name)                                                                                   \
        return name.calls();
#define RENDERER_MESSAGE(name) RENDERER_FUNCTION(void, name, , )
#include "renderer_functions.inc"
    return -1;
}

std::vector<std::string> Renderer::functions() const {
    return {
#define RENDERER_FUNCTION(result, name, parameters, arguments) #name,
#define RENDERER_MESSAGE(name) #name,
#include "renderer_functions.inc"
    };
}

std::vector<std::string> Renderer::call_log() const {
    std::vector<std::string> names;
    for (int i = 0; i < control_->logged_calls(); ++i)
        names.emplace_back(control_->logged_call(i));
    return names;
}

int Renderer::pins() const {
    const std::lock_guard guard(mutex_);
    return pins_;
}

int Renderer::bad_accesses() const {
    const std::lock_guard guard(mutex_);
    return bad_accesses_;
}

void Renderer::clear_logs() {
    const std::lock_guard guard(mutex_);
    messages_.clear();
    traces_.clear();
    calls_.clear();
    framebuffer_writes_.clear();
    photons_.clear();
    opacities_.clear();
    bad_accesses_ = 0;
}

void Renderer::store_answer(miQ_type code, miTag tag, const void* bytes, std::size_t size) {
    const auto* first = static_cast<const unsigned char*>(bytes);
    answers_[{code, tag}] = {bytes != nullptr, std::vector<unsigned char>(first, first + size)};
}

// ---- building the scene ----

Renderer::Element& Renderer::create(miScene_type type, void* record, const char* name) {
    elements_.push_back(std::make_unique<Element>());
    Element& element = *elements_.back();
    element.tag = static_cast<miTag>(elements_.size());
    element.type = type;
    element.record = record;
    if (name)
        element.name = name;
    return element;
}

miTag Renderer::add(miScene_type type, void* record, const char* name) {
    return create(type, record, name).tag;
}

miTag Renderer::add_string(const char* text) {
    Element& element = create(miSCENE_STRING, nullptr, nullptr);
    const std::size_t size = std::strlen(text) + 1;
    std::memcpy(element.make_record(size), text, size);
    return element.tag;
}

miTag Renderer::add_tags(const std::vector<miTag>& tags) {
    Element& element = create(miSCENE_TAGS, nullptr, nullptr);
    std::copy(tags.begin(), tags.end(),
              static_cast<miTag*>(element.make_record(tags.size() * sizeof(miTag))));
    return element.tag;
}

miTag Renderer::add_group(const std::vector<miTag>& kids, miTag userdata) {
    Element& element = create(miSCENE_GROUP, nullptr, nullptr);
    auto* bytes = static_cast<char*>(element.make_record(sizeof(miGroup) + kids.size() * sizeof(miTag)));
    auto* group = reinterpret_cast<miGroup*>(bytes);
    group->no_kids = group->max_kids = static_cast<int>(kids.size());
    group->userdata = userdata;
    std::copy(kids.begin(), kids.end(), reinterpret_cast<miTag*>(bytes + offsetof(miGroup, kids)));
    return element.tag;
}

miTag Renderer::add_userdata(const void* bytes, int size, miUint label, miTag next, miTag decl) {
    Element& element = create(miSCENE_USERDATA, nullptr, nullptr);
    const auto count = static_cast<std::size_t>(size);
    auto* memory = static_cast<char*>(element.make_record(sizeof(miUserdata) + count));
    auto* data = reinterpret_cast<miUserdata*>(memory);
    data->data_decl = decl;
    data->next_data = next;
    data->label = label;
    data->parameter_size = size;
    data->one = 1;
    if (count)
        std::memcpy(memory + offsetof(miUserdata, parameters), bytes, count);
    return element.tag;
}

miTag Renderer::add_material(const miMaterial& material, const char* name) {
    Element& element = create(miSCENE_MATERIAL, nullptr, name);
    std::memcpy(element.make_record(sizeof material), &material, sizeof material);
    return element.tag;
}

miTag Renderer::add_instance(const miInstance& instance, const char* name) {
    Element& element = create(miSCENE_INSTANCE, nullptr, name);
    std::memcpy(element.make_record(sizeof instance), &instance, sizeof instance);
    return element.tag;
}

miTag Renderer::add_light(const std::vector<LightSample>& samples, const char* name) {
    Element& light = create(miSCENE_LIGHT, nullptr, nullptr);
    light.make_record(sizeof(miLight));
    miInstance instance{};
    instance.item = light.tag;
    const miTag tag = add_instance(instance, name);
    light_samples_[tag] = samples;
    lights.push_back(tag);
    return tag;
}

miTag Renderer::add_shader(ShaderScript script, const char* name, miFunction* function) {
    Element& element = create(miSCENE_FUNCTION, function, name);
    element.script = std::move(script);
    if (!function) {
        auto* own = static_cast<miFunction*>(element.make_record(sizeof(miFunction)));
        own->reserved[name_slot] = element.name ? element.name->data() : nullptr;
    }
    return element.tag;
}

miTag Renderer::add_color(const miColor& color) {
    return add_shader([color](void* result, miState*, void*) {
        *static_cast<miColor*>(result) = color;
        return miTRUE;
    });
}

miTag Renderer::add_texture(std::function<miBoolean(miColor* result, const miVector& coord)> lookup) {
    Element& element = create(miSCENE_IMAGE, nullptr, nullptr);
    element.make_record(sizeof(miImg_image));
    element.lookup = std::move(lookup);
    return element.tag;
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
    SpaceMatrices& matrices = spaces_[static_cast<std::size_t>(space)];
    stage::matrix_copy(matrices.to, internal_to_space);
    if (!stage::matrix_invert(matrices.from, internal_to_space)) {
        std::fprintf(stderr, "the matrix of a space is singular\n");
        std::abort();
    }
}

// ---- database ----

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
    const std::lock_guard guard(mutex_);
    ++pins_;
    if (!element)
        ++bad_accesses_;
    return element && element->record ? element->record : nothing.data();
}

void Renderer::install_database() {
    mi_api_name_lookup.set_standard([this](char* name) -> miTag {
        miTag tag = miNULLTAG;
        for (const auto& element : elements_)
            if (name && element->name && *element->name == name)
                tag = element->tag;
        control_->hooks.mi_mem_int_release.fallback(__FILE__, __LINE__, name); // the name is given away
        return tag;
    });
    mi_db_access.set_standard([this](miTag tag) { return access(tag, nullptr); });
    mi_db_access_type.set_standard([this](miTag tag, int* type) { return access(tag, type); });
    mi_db_type.set_standard([this](miTag tag) {
        const Element* element = find(tag);
        return element ? element->type : 0;
    });
    mi_db_unpin.set_standard([this](miTag) {
        const std::lock_guard guard(mutex_);
        --pins_;
    });
    mi_get_shader_interface.set_standard([this](int version) -> miShader_interface* {
        if (version != 3)
            return nullptr;
        interface_->count(1);
        return interface_.get();
    });
    mi_vquery.set_standard([this](miQ_type code, miState* state, miTag tag, void* result, va_list arguments) {
        auto answer = answers_.find({code, tag});
        if (answer == answers_.end())
            answer = answers_.find({code, miNULLTAG});
        if (answer == answers_.end())
            return static_cast<miBoolean>(query(code, state, tag, result, arguments));
        if (!answer->second.bytes.empty())
            std::memcpy(result, answer->second.bytes.data(), answer->second.bytes.size());
        return static_cast<miBoolean>(answer->second.known);
    });
}

// ---- queries ----

bool Renderer::query(miQ_type code, miState* state, miTag tag, void* result, va_list arguments) {
    switch (code) {
    case miQ_FUNC_TLS_GET:
    case miQ_FUNC_TLS_SET:
    case miQ_FUNC_TLS_GETALL:
        return query_thread_pointer(code, state, tag, result, arguments);
    case miQ_GROUP_NKIDS:
    case miQ_GROUP_KID:
    case miQ_GROUP_DATA:
        return query_group(code, tag, result, arguments);
    default:
        return query_function(code, state, tag, result) || query_declaration(code, state, tag, result) ||
               query_instance(code, tag, result) || query_light(code, tag, result) ||
               query_material(code, tag, result) || query_data(code, state, tag, result) ||
               query_scene(code, tag, result);
    }
}

miFunction* Renderer::function_of(miState* state, miTag tag) {
    if (tag != miNULLTAG)
        return record<miFunction>(tag, miSCENE_FUNCTION);
    return state ? state->shader : nullptr;
}

bool Renderer::query_function(miQ_type code, miState* state, miTag tag, void* result) {
    miFunction* function = function_of(state, tag);
    if (!function)
        return false;
    switch (code) {
    case miQ_FUNC_USERPTR:
        return give(result, &function->reserved[user_pointer_slot]);
    case miQ_FUNC_TAG:
        for (const auto& element : elements_)
            if (element->record == function)
                return give(result, element->tag);
        return false;
    case miQ_FUNC_DECL:
        return give(result, function->function_decl);
    case miQ_FUNC_INDIRECT:
        return give(result, function->parameter_indirect);
    case miQ_FUNC_NEXT:
        return give(result, function->next_function);
    case miQ_FUNC_LOCK:
        return give(result, &function->lock);
    case miQ_FUNC_NAME:
        return function->reserved[name_slot] && give(result, function->reserved[name_slot]);
    case miQ_FUNC_PARAM:
        return give(result, static_cast<void*>(function->parameters));
    case miQ_FUNC_PARAM_SIZE:
        return give(result, static_cast<int>(function->parameter_size));
    case miQ_FUNC_CALLTYPE:
        return state && give(result, static_cast<int>(state->call_type));
    default:
        return false;
    }
}

bool Renderer::query_thread_pointer(miQ_type code, miState* state, miTag tag, void* result,
                                    va_list arguments) {
    const miFunction* function = function_of(state, tag);
    if (!function || !state)
        return false;
    const std::lock_guard guard(mutex_);
    std::vector<void*>& pointers = thread_pointers_[function];
    pointers.resize(thread_count);
    void*& own = pointers[static_cast<std::size_t>(state->thread) % thread_count];
    if (code == miQ_FUNC_TLS_GET)
        return give(result, own);
    if (code == miQ_FUNC_TLS_SET) {
        std::memcpy(&own, result, sizeof own);
        return true;
    }
    *va_arg(arguments, int*) = static_cast<int>(thread_count);
    return give(result, pointers.data());
}

bool Renderer::query_declaration(miQ_type code, miState* state, miTag tag, void* result) {
    const miFunction* function = function_of(state, tag);
    const miTag decl = function ? function->function_decl : tag;
    const auto* declaration = record<const miFunction_decl>(decl, miSCENE_FUNCTION_DECL);
    if (code == miQ_DECL_NAME) {
        if (declaration)
            return find(decl)->name && give(result, find(decl)->name->c_str());
        return function && function->reserved[name_slot] && give(result, function->reserved[name_slot]);
    }
    if (!declaration)
        return false;
    switch (code) {
    case miQ_DECL_RESULT_SIZE:
        return give(result, declaration->result_size);
    case miQ_DECL_TYPE:
        return give(result, static_cast<int>(declaration->result_type));
    case miQ_DECL_VERSION:
        return give(result, declaration->version);
    default:
        return false;
    }
}

bool Renderer::query_instance(miQ_type code, miTag tag, void* result) {
    auto* instance = record<miInstance>(tag, miSCENE_INSTANCE);
    if (!instance)
        return false;
    switch (code) {
    case miQ_INST_ITEM:
        return give(result, instance->item);
    case miQ_INST_PARENT:
        return give(result, instance->parent);
    case miQ_INST_GLOBAL_TO_LOCAL:
        return give(result, static_cast<miScalar*>(instance->tf.global_to_local));
    case miQ_INST_LOCAL_TO_GLOBAL:
        return give(result, static_cast<miScalar*>(instance->tf.local_to_global));
    case miQ_INST_MATERIAL:
        return give(result, instance->material);
    case miQ_INST_LABEL:
        return give(result, instance->label);
    case miQ_INST_NAME: {
        const Element* element = find(tag);
        return give(result, element->name ? element->name->c_str() : nullptr);
    }
    case miQ_INST_DATA:
        return give(result, instance->userdata);
    default:
        return false;
    }
}

bool Renderer::query_group(miQ_type code, miTag tag, void* result, va_list arguments) {
    const auto* group = record<const miGroup>(tag, miSCENE_GROUP);
    if (!group)
        return false;
    if (code == miQ_GROUP_NKIDS)
        return give(result, group->no_kids);
    if (code == miQ_GROUP_DATA)
        return give(result, group->userdata);
    const int kid = va_arg(arguments, int);
    if (kid < 0 || kid >= group->no_kids)
        return false;
    std::memcpy(result,
                reinterpret_cast<const char*>(group) + offsetof(miGroup, kids) +
                    static_cast<std::size_t>(kid) * sizeof(miTag),
                sizeof(miTag));
    return true;
}

bool Renderer::query_light(miQ_type code, miTag tag, void* result) {
    const auto* instance = record<const miInstance>(tag, miSCENE_INSTANCE);
    const auto* light = record<const miLight>(instance ? instance->item : tag, miSCENE_LIGHT);
    if (!light)
        return false;
    switch (code) {
    case miQ_LIGHT_TYPE:
        return give(result, static_cast<int>(light->type));
    case miQ_LIGHT_AREA:
        return give(result, static_cast<int>(light->area));
    case miQ_LIGHT_EXPONENT:
        return give(result, light->exponent);
    case miQ_LIGHT_ORIGIN:
        return give(result, light->origin);
    case miQ_LIGHT_DIRECTION:
        return give(result, light->direction);
    case miQ_LIGHT_SPREAD:
        return give(result, light->spread);
    case miQ_LIGHT_ENERGY:
        return give(result, light->energy);
    case miQ_LIGHT_SHADER:
        return give(result, light->shader);
    default:
        return false;
    }
}

bool Renderer::query_material(miQ_type code, miTag tag, void* result) {
    const auto* material = record<const miMaterial>(tag, miSCENE_MATERIAL);
    if (!material)
        return false;
    switch (code) {
    case miQ_MTL_OPAQUE:
        return give(result, material->opaque);
    case miQ_MTL_SHADER:
        return give(result, material->shader);
    case miQ_MTL_DISPLACE:
        return give(result, material->displace);
    case miQ_MTL_SHADOW:
        return give(result, material->shadow);
    case miQ_MTL_VOLUME:
        return give(result, material->volume);
    case miQ_MTL_ENVIRONMENT:
        return give(result, material->environment);
    case miQ_MTL_CONTOUR:
        return give(result, material->contour);
    case miQ_MTL_PHOTON:
        return give(result, material->photon);
    case miQ_MTL_PHOTONVOL:
        return give(result, material->photonvol);
    case miQ_MTL_LIGHTMAP:
        return give(result, material->lightmap);
    default:
        return false;
    }
}

bool Renderer::query_data(miQ_type code, miState* state, miTag tag, void* result) {
    if (code == miQ_OBJ_DATA || code == miQ_OBJ_TYPE) {
        const auto* instance =
            record<const miInstance>(state ? state->instance : miNULLTAG, miSCENE_INSTANCE);
        const auto* object = record<const miObject>(tag || !instance ? tag : instance->item, miSCENE_OBJECT);
        return object && (code == miQ_OBJ_DATA ? give(result, object->userdata)
                                               : give(result, static_cast<int>(object->type)));
    }
    auto* data = record<miUserdata>(tag, miSCENE_USERDATA);
    if (!data)
        return false;
    switch (code) {
    case miQ_DATA_NEXT:
        return give(result, data->next_data);
    case miQ_DATA_DECL:
        return give(result, data->data_decl);
    case miQ_DATA_PARAM:
        return give(result, static_cast<void*>(data->parameters));
    case miQ_DATA_LABEL:
        return give(result, data->label);
    case miQ_DATA_NEEDSWAP:
        return give(result, miBoolean{miFALSE});
    case miQ_DATA_PARAM_SIZE:
        return give(result, data->parameter_size);
    default:
        return false;
    }
}

bool Renderer::query_scene(miQ_type code, miTag tag, void* result) {
    const auto matrices = [this](Space space) -> const SpaceMatrices& {
        return spaces_[static_cast<std::size_t>(space)];
    };
    const auto* image = record<const miImg_image>(tag, miSCENE_IMAGE);
    switch (code) {
    case miQ_NUM_GLOBAL_LIGHTS:
        return give(result, static_cast<int>(lights.size()));
    case miQ_GLOBAL_LIGHTS:
        return give(result, lights.data());
    case miQ_NUM_TEXTURES:
        return give(result, texture_spaces);
    case miQ_IMAGE_WIDTH:
        return image && give(result, image->width);
    case miQ_IMAGE_HEIGHT:
        return image && give(result, image->height);
    case miQ_TRANS_INTERNAL_TO_WORLD:
        return give(result, &matrices(Space::world).to[0]);
    case miQ_TRANS_INTERNAL_TO_CAMERA:
        return give(result, &matrices(Space::camera).to[0]);
    case miQ_TRANS_INTERNAL_TO_OBJECT:
        return give(result, &matrices(Space::object).to[0]);
    case miQ_TRANS_WORLD_TO_INTERNAL:
        return give(result, &matrices(Space::world).from[0]);
    case miQ_TRANS_CAMERA_TO_INTERNAL:
        return give(result, &matrices(Space::camera).from[0]);
    case miQ_TRANS_OBJECT_TO_INTERNAL:
        return give(result, &matrices(Space::object).from[0]);
    case miQ_FINALGATHER_STATE:
        return give(result, 0);
    default:
        return false;
    }
}

// ---- calls ----

miBoolean Renderer::run_shader(const char* function, void* result, miShader_type type, miState* state,
                               miTag tag, void* arg) {
    {
        const std::lock_guard guard(mutex_);
        calls_.push_back({function, type, tag});
    }
    Element* element = find(tag);
    if (!element || !element->script)
        return miFALSE;
    miFunction* const caller = state->shader;
    const miShader_type caller_type = state->call_type;
    state->shader = static_cast<miFunction*>(element->record);
    state->call_type = type;
    const miBoolean answer = element->script(result, state, arg ? arg : state->shader->parameters);
    state->shader = caller;
    state->call_type = caller_type;
    return answer;
}

miTag Renderer::material_slot(miTag tag, miShader_type type) {
    const auto* material = record<const miMaterial>(tag, miSCENE_MATERIAL);
    if (!material)
        return tag;
    switch (type) {
    case miSHADER_SHADOW:
        return material->shadow;
    case miSHADER_PHOTON:
        return material->photon;
    case miSHADER_PHOTONVOL:
        return material->photonvol;
    case miSHADER_VOLUME:
        return material->volume;
    case miSHADER_ENVIRONMENT:
        return material->environment;
    case miSHADER_CONTOUR:
        return material->contour;
    default:
        return material->shader;
    }
}

miBoolean Renderer::look_up(miColor* result, miState* state, miTag tag, const miVector& coord) {
    const Element* element = find(tag);
    if (element && element->lookup)
        return element->lookup(result, coord);
    state->tex = coord;
    return run_shader("mi_lookup_color_texture", result, miSHADER_TEXTURE, state, tag, nullptr);
}

void Renderer::install_calls() {
    const auto slot = [this](Script<miBoolean(miColor*, miState*)>& script, const char* name,
                             miShader_type type) {
        script.set_standard([this, name, type](miColor* result, miState* state) {
            return run_shader(name, result, type, state, material_slot(state->material, type), nullptr);
        });
    };
    slot(mi_call_material, "mi_call_material", miSHADER_MATERIAL);
    slot(mi_call_shadow_material, "mi_call_shadow_material", miSHADER_SHADOW);
    slot(mi_call_photon_material, "mi_call_photon_material", miSHADER_PHOTON);
    slot(mi_call_photonvol_material, "mi_call_photonvol_material", miSHADER_PHOTONVOL);
    slot(mi_call_volume_material, "mi_call_volume_material", miSHADER_VOLUME);
    slot(mi_call_environment_material, "mi_call_environment_material", miSHADER_ENVIRONMENT);
    mi_call_contour_material.set_standard([this](void* result, void* near_side, void*, miState* state) {
        return run_shader("mi_call_contour_material", result, miSHADER_CONTOUR, state,
                          material_slot(state->material, miSHADER_CONTOUR), near_side);
    });
    mi_call_shader.set_standard([this](miColor* result, miShader_type type, miState* state, miTag tag) {
        return run_shader("mi_call_shader", result, type, state, tag, nullptr);
    });
    mi_call_shader_x.set_standard(
        [this](miColor* result, miShader_type type, miState* state, miTag tag, void* arg) {
            return run_shader("mi_call_shader_x", result, type, state, tag, arg);
        });
    mi_phen_eval.set_standard([this](miState* state, void* param) -> void* {
        const int entry = mi_connection_entry(state->shader, param);
        const bool known = entry >= 1 && static_cast<std::size_t>(entry) <= connections_.size();
        return known ? connections_[static_cast<std::size_t>(entry) - 1](state) : nullptr;
    });
    mi_lookup_color_texture.set_standard([this](miColor* result, miState* state, miTag tag, miVector* coord) {
        return look_up(result, state, tag, *coord);
    });
}

// ---- rays ----

miBoolean Renderer::trace(const char* function, miColor* result, miState* state, const miVector* dir) {
    {
        const std::lock_guard guard(mutex_);
        traces_.push_back({function, state->type, dir ? *dir : miVector{}});
    }
    if (!trace_color)
        return miFALSE;
    *result = *trace_color;
    return miTRUE;
}

void Renderer::install_traces() {
    mi_trace_eye.set_standard([this](miColor* result, miState* state, miVector* org, miVector* dir) {
        state->org = *org;
        state->dir = *dir;
        return trace("mi_trace_eye", result, state, dir);
    });
    mi_trace_reflection.set_standard([this](miColor* result, miState* state, miVector* dir) {
        return trace("mi_trace_reflection", result, state, dir);
    });
    mi_trace_refraction.set_standard([this](miColor* result, miState* state, miVector* dir) {
        return trace("mi_trace_refraction", result, state, dir);
    });
    mi_trace_environment.set_standard([this](miColor* result, miState* state, miVector* dir) {
        return trace("mi_trace_environment", result, state, dir);
    });
    mi_trace_transparent.set_standard([this](miColor* result, miState* state) {
        return trace("mi_trace_transparent", result, state, nullptr);
    });
    mi_trace_continue.set_standard([this](miColor* result, miState* state) {
        return trace("mi_trace_continue", result, state, nullptr);
    });
    mi_trace_probe.set_standard([this](miState* state, miVector* dir, miVector*) {
        const std::lock_guard guard(mutex_);
        traces_.push_back({"mi_trace_probe", state->type, *dir});
        return miFALSE;
    });
    const auto shadow = [this](Script<miBoolean(miColor*, miState*)>& script, const char* name) {
        script.set_standard([this, name](miColor*, miState* state) {
            const std::lock_guard guard(mutex_);
            traces_.push_back({name, state->type, miVector{}});
            return miTRUE;
        });
    };
    shadow(mi_trace_shadow, "mi_trace_shadow");
    shadow(mi_trace_shadow_seg, "mi_trace_shadow_seg");
}

// ---- light ----

miBoolean Renderer::sample_light(miColor* result, miVector* dir, miScalar* dot_nl, miTag light,
                                 miInteger* samples) {
    const auto found = light_samples_.find(light);
    if (found == light_samples_.end() || *samples < 0 ||
        static_cast<std::size_t>(*samples) >= found->second.size())
        return miFALSE;
    const LightSample& sample = found->second[static_cast<std::size_t>((*samples)++)];
    *result = sample.color;
    *dir = sample.dir;
    *dot_nl = sample.dot_nl;
    return miTRUE;
}

void Renderer::install_light() {
    mi_global_lights_info.set_standard([this](miState*, int* count, miTag** list) {
        *count = static_cast<int>(lights.size());
        *list = lights.data();
        return miTRUE;
    });
    mi_sample_light.set_standard(
        [this](miColor* result, miVector* dir, miScalar* dot_nl, miState*, miTag light, miInteger* samples) {
            return sample_light(result, dir, dot_nl, light, samples);
        });
    const auto gather = [this](miColor* result) {
        if (!irradiance)
            return miFALSE;
        *result = *irradiance;
        return miTRUE;
    };
    mi_compute_irradiance.set_standard([gather](miColor* result, miState*) { return gather(result); });
    mi_compute_irradiance_backside.set_standard(
        [gather](miColor* result, miState*) { return gather(result); });
    mi_compute_volume_irradiance.set_standard([gather](miColor* result, miState*) { return gather(result); });
    mi_compute_avg_radiance.set_standard(
        [gather](miColor* result, miState*, miUchar, void*) { return gather(result); });
    mi_compute_directional_irradiance.set_standard([gather](miColor* result, miVector* dir, miState* state) {
        *dir = state->normal;
        return gather(result);
    });
    mi_ray_falloff.set_standard([this](miState*, double* start, double* stop) {
        if (!ray_falloff)
            return miFALSE;
        *start = ray_falloff->first;
        *stop = ray_falloff->second;
        return miTRUE;
    });
    const auto store = [this](bool volume) {
        return [this, volume](miColor* energy, miState* state) {
            const std::lock_guard guard(mutex_);
            photons_.push_back({volume, *energy, state->point});
            return miTRUE;
        };
    };
    mi_store_photon.set_standard(store(false));
    mi_store_volume_photon.set_standard(store(true));
}

// ---- spaces ----

miVector Renderer::to_raster(const miState* state, const miVector& point) const {
    const miVector p = stage::transform_point(point, spaces_[static_cast<std::size_t>(Space::camera)].to);
    const miCamera& camera = *state->camera;
    const miScalar scale = camera.orthographic ? 1.0f : camera.focal / -p.z;
    const auto width = static_cast<miScalar>(camera.x_resolution);
    const auto height = static_cast<miScalar>(camera.y_resolution);
    return {width * (0.5f + p.x * scale / camera.aperture),
            height * (0.5f + p.y * scale * camera.aspect / camera.aperture), 0.0f};
}

void Renderer::install_points() {
    using PointScript = Script<void(miState*, miVector*, miVector*)>;
    const auto convert = [](PointScript& script, const miScalar* matrix) {
        script.set_standard(
            [matrix](miState*, miVector* r, miVector* v) { *r = stage::transform_point(*v, matrix); });
    };
    auto& [world, camera, object, light] = spaces_;
    convert(mi_point_to_world, world.to);
    convert(mi_point_to_camera, camera.to);
    convert(mi_point_to_object, object.to);
    convert(mi_point_to_light, light.to);
    convert(mi_point_from_world, world.from);
    convert(mi_point_from_camera, camera.from);
    convert(mi_point_from_object, object.from);
    convert(mi_point_from_light, light.from);
    mi_point_to_raster.set_standard(
        [this](miState* state, miVector* r, miVector* v) { *r = to_raster(state, *v); });
}

void Renderer::install_vectors() {
    using VectorScript = Script<void(miState*, miVector*, miVector*)>;
    const auto convert = [](VectorScript& script, const miScalar* matrix) {
        script.set_standard(
            [matrix](miState*, miVector* r, miVector* v) { *r = stage::transform_vector(*v, matrix); });
    };
    auto& [world, camera, object, light] = spaces_;
    convert(mi_vector_to_world, world.to);
    convert(mi_vector_to_camera, camera.to);
    convert(mi_vector_to_object, object.to);
    convert(mi_vector_to_light, light.to);
    convert(mi_vector_from_world, world.from);
    convert(mi_vector_from_camera, camera.from);
    convert(mi_vector_from_object, object.from);
    convert(mi_vector_from_light, light.from);
}

// A normal goes to a space with the transposed matrix that leads back.
void Renderer::install_normals() {
    using NormalScript = Script<void(miState*, miVector*, miVector*)>;
    const auto convert = [](NormalScript& script, const miScalar* back) {
        script.set_standard([back](miState*, miVector* r, miVector* v) {
            *r = stage::transform_vector_transposed(*v, back);
        });
    };
    auto& [world, camera, object, light] = spaces_;
    convert(mi_normal_to_world, world.from);
    convert(mi_normal_to_camera, camera.from);
    convert(mi_normal_to_object, object.from);
    convert(mi_normal_to_light, light.from);
}

// ---- sample ----

bool Renderer::tri_vectors(int which, int ntex, miVector** a, miVector** b, miVector** c) {
    const auto of_space = [ntex](std::vector<Triangle::Corners>& spaces) -> Triangle::Corners* {
        return ntex >= 0 && static_cast<std::size_t>(ntex) < spaces.size()
                   ? &spaces[static_cast<std::size_t>(ntex)]
                   : nullptr;
    };
    const auto of_triangle = [](std::optional<Triangle::Corners>& corners) {
        return corners ? &*corners : nullptr;
    };
    Triangle::Corners* corners = nullptr;
    switch (which) {
    case 'p':
        corners = of_triangle(triangle.points);
        break;
    case 'n':
        corners = of_triangle(triangle.normals);
        break;
    case 'm':
        corners = of_triangle(triangle.motion);
        break;
    case 't':
        corners = of_space(triangle.textures);
        break;
    case 'x':
        corners = of_space(triangle.bump_x);
        break;
    case 'y':
        corners = of_space(triangle.bump_y);
        break;
    default:
        break;
    }
    if (!corners)
        return false;
    *a = &(*corners)[0];
    *b = &(*corners)[1];
    *c = &(*corners)[2];
    return true;
}

void Renderer::put_framebuffer(int index, const void* value) {
    if (index < 0 || static_cast<std::size_t>(index) >= buffers_->buffers.size())
        return;
    FramebufferWrite write{index, {}};
    std::memcpy(&write.value, value, buffers_->value_size(static_cast<std::size_t>(index)));
    const std::lock_guard guard(mutex_);
    framebuffer_writes_.push_back(write);
}

void Renderer::install_sample() {
    mi_opacity_set.set_standard([this](miState*, miColor* opacity) {
        const std::lock_guard guard(mutex_);
        opacities_.push_back(*opacity);
        return miTRUE;
    });
    mi_fb_put.set_standard([this](miState*, int index, void* value) {
        put_framebuffer(index, value);
        return miTRUE;
    });
    mi_tri_vectors.set_standard(
        [this](miState*, int which, int ntex, miVector** a, miVector** b, miVector** c) {
            return static_cast<miBoolean>(tri_vectors(which, ntex, a, b, c));
        });
    mi_par_aborted.set_standard([this] { return static_cast<miBoolean>(aborted); });
}

void Renderer::install_messages() {
    const auto keep = [this](Script<void(const char*)>& script, Level level) {
        script.set_standard([this, level](const char* text) {
            const std::lock_guard guard(mutex_);
            messages_.push_back({level, text});
        });
    };
    keep(mi_debug, Level::debug);
    keep(mi_info, Level::info);
    keep(mi_progress, Level::progress);
    keep(mi_warning, Level::warning);
    keep(mi_error, Level::error);
}

} // namespace scripted
