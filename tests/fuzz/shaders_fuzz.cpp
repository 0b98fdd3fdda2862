// Whatever a scene gives a shader of the built module, it survives: any parameters, not-a-number and infinity
// among them, any kind of ray and call, null and strange tags, points without a surface. It writes nothing
// outside its result, and gives back what it took.
#include <dlfcn.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "exports.h"
#include "scripted_renderer.h"
#include "state_builder.h"

namespace {

using orl::decl::Field;
using orl::decl::Shader;
using scripted::Renderer;

using Init = void(miState*, void*, miBoolean*);
using Exit = void(miState*, void*);
using Call = miBoolean(void*, miState*, void*, void*);

void require(bool condition, const char* shader, const char* what) {
    if (condition)
        return;
    std::fprintf(stderr, "%s: %s\n", shader, what);
    std::abort();
}

template <class Function> Function* function(const std::string& name) {
    static void* const module = [] {
        void* const loaded = dlopen(ORL_FILE_ORLSHADERS, RTLD_NOW | RTLD_LOCAL);
        const auto set_handle =
            reinterpret_cast<void (*)(void*)>(loaded ? dlsym(loaded, "miSetModuleHandle") : nullptr);
        require(set_handle != nullptr, ORL_FILE_ORLSHADERS, "cannot be loaded");
        set_handle(Renderer::get().handle());
        return loaded;
    }();
    return reinterpret_cast<Function*>(dlsym(module, name.c_str()));
}

// What the fuzzer gives, taken piece by piece; zeros when it is used up.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    std::uint8_t byte() {
        if (left_ == 0)
            return 0;
        --left_;
        return *data_++;
    }
    std::uint32_t word() {
        std::uint32_t bits = 0;
        for (int i = 0; i < 4; ++i)
            bits = bits << 8 | byte();
        return bits;
    }
    int below(int count) { return byte() % count; }
    float real() {
        using Limits = std::numeric_limits<float>;
        constexpr float special[] = {0.0f,
                                     1.0f,
                                     -1.0f,
                                     0.5f,
                                     Limits::quiet_NaN(),
                                     Limits::infinity(),
                                     -Limits::infinity(),
                                     1e30f,
                                     -1e30f,
                                     1e-30f,
                                     Limits::denorm_min(),
                                     Limits::max(),
                                     255.0f,
                                     -0.0f};
        const std::uint8_t choice = byte();
        if (choice < std::size(special))
            return special[choice];
        if (choice >= 250) {
            const std::uint32_t bits = word();
            float value;
            std::memcpy(&value, &bits, sizeof value);
            return value;
        }
        return (static_cast<float>(choice) - 100.0f) * static_cast<float>(byte()) / 256.0f;
    }
    std::int32_t integer() {
        constexpr std::int32_t special[] = {10000, INT32_MIN, -1, 1000}; // the largest would only take time
        const std::uint8_t choice = byte();
        return choice < std::size(special) ? special[choice] : choice - 4;
    }
    miVector vector() {
        const float x = real(), y = real(), z = real();
        return {x, y, z};
    }

private:
    const std::uint8_t* data_;
    std::size_t left_;
};

// A parameter block with room for arrays behind it.
struct alignas(16) Block {
    unsigned char bytes[8192];
};
constexpr std::size_t array_room = 4096, most_elements = 8;

struct Scene {
    std::vector<miTag> tags;
    std::vector<float> node = std::vector<float>(32, 1.0f);

    explicit Scene(Input& input) {
        Renderer& renderer = Renderer::get();
        const auto shader = [&](miBoolean answer, miColor color) {
            tags.push_back(renderer.add_shader([=](void* result, miState*, void*) {
                std::memcpy(result, &color, sizeof color);
                return answer;
            }));
        };
        tags = {miNULLTAG};
        shader(miTRUE, {0.25f, 0.5f, 0.75f, 1.0f});
        shader(miFALSE, {});
        shader(miTRUE, {input.real(), input.real(), input.real(), input.real()});
        tags.push_back(renderer.add_texture([](miColor* result, const miVector&) {
            *result = {1, 1, 1, 1};
            return miTRUE;
        }));
        miMaterial material{};
        material.shader = tags[1];
        material.shadow = tags[2];
        tags.push_back(renderer.add_material(material));
        tags.push_back(
            renderer.add_light({{{1, 1, 1, 1}, {0, 0, 1}, 0.5f}, {{}, input.vector(), input.real()}}));
        tags.push_back(renderer.add_string("text"));
        const miTag data = renderer.add_userdata(node.data(), static_cast<int>(node.size() * sizeof(float)));
        tags.push_back(data);
        miInstance instance{};
        instance.userdata = data;
        instance.item = tags[5];
        tags.push_back(renderer.add_instance(instance));
        tags.push_back(renderer.add_group({tags.back(), tags[6]}));
        if (input.byte() % 2)
            renderer.trace_color = miColor{input.real(), input.real(), input.real(), input.real()};
    }
    miTag any(Input& input) const { return tags[static_cast<std::size_t>(input.byte()) % tags.size()]; }
};

void fill(unsigned char* place, const Field& field, Input& input, const Scene& scene) {
    if (field.type == miTYPE_STRUCT) {
        for (const Field& member : field.members)
            fill(place + member.offset, member, input, scene);
        return;
    }
    for (std::size_t at = 0; at < field.size; at += 4) {
        const float real = input.real();
        const std::int32_t integer = input.integer();
        const miTag tag = scene.any(input);
        const bool is_integer = field.type == miTYPE_INTEGER || field.type == miTYPE_BOOLEAN;
        const bool is_real = field.type == miTYPE_SCALAR || field.type == miTYPE_COLOR ||
                             field.type == miTYPE_VECTOR || field.type == miTYPE_TRANSFORM;
        std::memcpy(place + at,
                    is_integer ? static_cast<const void*>(&integer)
                    : is_real  ? static_cast<const void*>(&real)
                               : &tag,
                    4);
    }
}

// An array: the index of its first element, the count, and the elements behind the fixed part of the block.
std::size_t element_size(const Field& field) {
    switch (field.type) {
    case miTYPE_COLOR:
        return sizeof(miColor);
    case miTYPE_VECTOR:
        return sizeof(miVector);
    case miTYPE_STRUCT: {
        std::size_t end = 0;
        for (const Field& member : field.members)
            end = std::max(end, member.offset + member.size);
        return end;
    }
    default:
        return 4;
    }
}

void fill_array(Block& block, const Field& field, std::size_t& used, Input& input, const Scene& scene) {
    const std::size_t size = element_size(field);
    const std::size_t start = field.offset + 2 * sizeof(miInteger);
    const auto first = static_cast<miInteger>((used - start + size - 1) / size);
    const auto count = static_cast<miInteger>(input.below(static_cast<int>(most_elements) + 1));
    std::memcpy(block.bytes + field.offset, &first, sizeof first);
    std::memcpy(block.bytes + field.offset + sizeof first, &count, sizeof count);
    Field element = field;
    element.size = size;
    for (miInteger k = 0; k < count; ++k)
        fill(block.bytes + start + static_cast<std::size_t>(first + k) * size, element, input, scene);
    used = start + static_cast<std::size_t>(first + count) * size;
}

void spoil(scripted::State& state, Input& input, const Scene& scene) {
    state->type = static_cast<miRay_type>(input.below(miNRAYTYPES));
    state->call_type = static_cast<miShader_type>(input.below(miNSHADERTYPES));
    const std::uint8_t faults = input.byte();
    if (faults & 1)
        state.set_miss(input.vector(), input.vector());
    if (faults & 2)
        state->tex_list = state->bump_x_list = state->bump_y_list = nullptr;
    if (faults & 4) {
        state->point = input.vector();
        state->normal = input.vector();
        state->dir = input.vector();
        state->dist = static_cast<double>(input.real());
        state->dot_nd = input.real();
    }
    if (faults & 8)
        state.camera.x_resolution = state.camera.y_resolution = 0;
    if (faults & 16)
        state->instance = scene.any(input);
    if (faults & 32)
        state->tex = state.textures[0] = input.vector();
    if (faults & 64)
        state->material = scene.any(input);
}

const Shader& chosen(Input& input) {
    static const std::vector<const Shader*> all = [] {
        std::vector<const Shader*> shaders;
        for (const orl::Unit& unit : orl::units)
            for (const Shader& shader : unit.shaders)
                shaders.push_back(&shader);
        return shaders;
    }();
    return *all[input.byte() % all.size()];
}

// The size of what a shader gives; everybody has room for a colour.
std::size_t result_size(const Shader& shader) {
    std::size_t size = sizeof(miColor);
    for (const Field& member : shader.result_members)
        size = std::max(size, member.offset + member.size);
    return size;
}

// What belongs to threads, the renderer gives back when they end.
void release_thread_data(miState* state) {
    const auto pointers = [&](void*** all, int* count, ...) {
        va_list arguments;
        va_start(arguments, count);
        Renderer::get().mi_vquery.unscripted(miQ_FUNC_TLS_GETALL, state, miNULLTAG, all, arguments);
        va_end(arguments);
    };
    void** all = nullptr;
    int count = 0;
    pointers(&all, &count, &count);
    std::for_each(all, all + count, [](void* block) { stage::release(nullptr, 0, block); });
}

void live(const Shader& shader, Input& input) {
    Renderer& renderer = Renderer::get();
    const Scene scene(input);
    scripted::ShaderInstance<Block> instance(shader.name);
    std::size_t used = array_room;
    for (const Field& field : shader.fields)
        if (field.array)
            fill_array(instance.params(), field, used, input, scene);
        else
            fill(instance.params().bytes + field.offset, field, input, scene);
    scripted::State state;
    state.run(instance);
    spoil(state, input, scene);

    const std::string name = shader.name;
    const long long blocks = Renderer::resources().live_blocks, locks = Renderer::resources().live_locks;
    auto* const init = shader.has_init ? function<Init>(name + "_init") : nullptr;
    miBoolean wanted = miFALSE;
    if (init) {
        init(state, nullptr, &wanted);
        init(state, &instance.params(), &wanted);
    }
    // A block of its own: the sanitizer sees who writes beside it.
    const std::unique_ptr<unsigned char[]> result(new unsigned char[result_size(shader)]());
    for (int call = 0; call < 2; ++call) {
        const miBoolean answer = function<Call>(name)(result.get(), state, &instance.params(), nullptr);
        require(answer == miTRUE || answer == miFALSE, shader.name, "answers neither TRUE nor FALSE");
    }
    if (auto* exit = shader.has_exit ? function<Exit>(name + "_exit") : nullptr) {
        exit(state, &instance.params());
        exit(state, nullptr);
    }
    require(Renderer::resources().live_locks == locks, shader.name, "locks are left");
    require(renderer.pins() == 0, shader.name, "records are left pinned");
    require(renderer.bad_accesses() == 0, shader.name, "accesses a tag that names nothing");
    release_thread_data(state);
    require(Renderer::resources().live_blocks == blocks, shader.name, "memory is left");
}

} // namespace

// Before the fuzzer looks for what it can see of the code.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    function<Init>("");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Renderer::get().reset();
    live(chosen(input), input);
    return 0;
}
