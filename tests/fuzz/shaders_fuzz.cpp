// Whatever a scene gives a shader of the built module, it survives: any parameters, not-a-number and infinity
// among them, any kind of ray and call, null and strange tags, points without a surface, memory that runs
// out. It writes nothing outside its result, and gives back what it took.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "built_module.h"
#include "exports.h"
#include "orl_attenuv.h"
#include "orlshaderapi.h"
#include "output_request.h"
#include "utl_curve.h"

namespace {

using orl::decl::Field;
using orl::decl::Shader;
using scripted::Renderer;
using scripted::World;

void require(bool condition, const char* shader, const char* what) {
    if (condition)
        return;
    std::fprintf(stderr, "%s: %s\n", shader, what);
    std::abort();
}

// What the fuzzer gives, taken piece by piece. When it is used up, it goes on with a sequence that the first
// bytes choose: even short inputs give whole scenes, and small ones differ.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {
        for (std::size_t i = 0; i < std::min<std::size_t>(size, 4); ++i)
            rest_ = rest_ << 8 | data[i];
    }

    std::uint8_t byte() {
        if (left_ == 0) {
            rest_ = rest_ * 6364136223846793005u + 1442695040888963407u; // Knuth's MMIX
            return static_cast<std::uint8_t>(rest_ >> 56);
        }
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
    std::uint64_t rest_ = 0;
};

// Parameters as the input has them: mostly within their ranges, so that shaders do their work, sometimes
// anything.
class FuzzValues : public scripted::Values {
public:
    explicit FuzzValues(Input& input) : input_(input), tame_(input.byte() % 2 == 0) {}

    int below(int count) override { return input_.below(count); }
    float real(const Field& field, int element, int component) override {
        if (!tame_)
            return input_.real();
        const std::uint8_t byte = input_.byte();
        const bool told = component < field.value.count;
        if (byte == 0)
            return told ? static_cast<float>(field.value.number[component]) : 0.0f;
        if (byte == 255)
            return input_.real();
        const float part = static_cast<float>(byte) / 128.0f;
        if (field.type == miTYPE_TRANSFORM)
            return component % 5 == 0 ? part : 0.0f;
        return std::clamp(part + static_cast<float>(element), lowest(field), highest(field));
    }
    std::int32_t integer(const Field& field) override {
        const std::uint8_t byte = input_.byte();
        if (!tame_ && field.type != miTYPE_BOOLEAN && byte % 2 != 0)
            return input_.integer();
        if (byte == 0)
            return field.value.count > 0 ? static_cast<std::int32_t>(field.value.number[0]) : 0;
        if (byte == 255)
            return input_.integer();
        const bool is_switch = field.type == miTYPE_BOOLEAN;
        return byte % (is_switch ? 2 : 1 + static_cast<int>(std::clamp(field.range.highest, 7.0, 63.0)));
    }
    int elements(const Field&) override {
        const int many = input_.below(8) == 0 ? World::most_elements : 3;
        return input_.below(many + 1);
    }
    bool wild() override { return !tame_ && input_.byte() % 4 == 0; }
    bool absent() override { return input_.byte() % 8 == 0; }
    stage::ImageMemory image() override {
        const int width = 1 + input_.below(8), height = 1 + input_.below(8);
        const auto type = static_cast<miImg_type>(input_.below(miIMG_TYPE_RGB_FP + 1));
        return {width, height, type, 1 + input_.below(4)};
    }

private:
    static float lowest(const Field& field) {
        return static_cast<float>(std::max(field.range.lowest, -100.0));
    }
    static float highest(const Field& field) {
        return static_cast<float>(std::min(field.range.highest, 100.0));
    }

    Input& input_;
    bool tame_;
};

// What shaders further out have left for those that they call: of the right size, or of another.
void leave_records(scripted::State& state, Input& input) {
    static constexpr std::pair<const char*, int> records[] = {
        {"KEY_0", 4},  {"KEY_1", 8},   {"KEY_2", 20},      {"KEY_3", 20},  {"KEY_5", 16},
        {"KEY_6", 16}, {"KEY_10", 24}, {"SKY_IS_HDR", 40}, {"miXMLD", 12}, {"vdmScale", 4}};
    for (int count = input.below(4); count > 0; --count) {
        const auto& [key, size] = records[input.below(static_cast<int>(std::size(records)))];
        float values[10];
        std::generate(std::begin(values), std::end(values), [&] { return input.real(); });
        Renderer::get().mi_shaderstate_set.unscripted(state, key, values,
                                                      input.below(8) ? size : input.below(size), 0);
    }
    const auto doubled = [](miColor* color, miState*, void*) { color->r *= 2.0f; };
    orl::ToneOpHook hook{input.below(2), doubled, input.below(2) ? doubled : nullptr, nullptr};
    if (input.below(4) == 0)
        Renderer::get().mi_shaderstate_set.unscripted(state, orl::keys::tone_operator.name, &hook,
                                                      sizeof hook, 0);
}

// What a shader of another library asks of the module where it is called.
void ask(miState* state) {
#define ASK(name) reinterpret_cast<decltype(&name)>(scripted::symbol_of(scripted::built_module(), #name))
    miColor color{1, 2, 3, 4};
    orl_Illuminance light{{}, miTRUE, miTRUE};
    ASK(ToneOpScaledToRGB)(state, &color, miTRUE);
    ASK(ApplyInverseToneOperator)(state, &color);
    ASK(ComputeIlluminance)(state, &light);
    ASK(IllumShadow)(state);
    ASK(GetMaterialID)(state);
    ASK(GetFaceSmoothingGroup)(state);
    ASK(GetObjectDataFromInstance)(state->instance);
    ASK(orl_GetRenderElementResults)(state, nullptr);
#undef ASK
}

// What lies around the scene.
void surround(scripted::State& state, Input& input) {
    Renderer& renderer = Renderer::get();
    renderer.aborted = input.below(4) == 0;
    stage::put_image_color(renderer.output_image, {0.5f, 0.25f, 0.125f, 0.5f}, 1, 1);
    if (input.below(2) == 0)
        state.camera.volume = state.camera.environment = renderer.add_color({0.5f, 0.25f, 0.5f, 0.5f});
    const miColor found{input.below(2) ? 1.0f : input.real(), input.real(), input.real(), input.real()};
    const auto foreign = [found](miColor* result, miState* asking, auto...) {
        ask(asking);
        *result = found;
        return miTRUE;
    };
    if (input.below(2) == 0)
        renderer.mi_lookup_color_texture = foreign;
    renderer.mi_trace_reflection = foreign;
    renderer.mi_trace_transparent = foreign;
}

void spoil(scripted::State& state, Input& input, const World& world) {
    world.place(state, input.byte());
    leave_records(state, input);
    constexpr int shadows[] = {0, miTRUE, 'l', 's'};
    state.options.shadow = shadows[input.below(4)];
    state.camera.orthographic = input.below(4) == 0;
    state->type = static_cast<miRay_type>(input.below(miNRAYTYPES));
    state->call_type = static_cast<miShader_type>(input.below(miNSHADERTYPES));
    // Half of the states are fit for work.
    if (input.byte() % 2 == 0) {
        constexpr std::pair<miRay_type, miShader_type> fit[] = {
            {miRAY_EYE, miSHADER_MATERIAL},      {miRAY_SHADOW, miSHADER_SHADOW},
            {miRAY_LIGHT, miSHADER_LIGHT},       {miPHOTON_LIGHT, miSHADER_PHOTON},
            {miRAY_EYE, miSHADER_VOLUME},        {miRAY_ENVIRONMENT, miSHADER_ENVIRONMENT},
            {miRAY_DISPLACE, miSHADER_DISPLACE}, {miRAY_REFLECT, miSHADER_MATERIAL},
            {miRAY_LM_MESH, miSHADER_LIGHTMAP},  {miRAY_LM_VERTEX, miSHADER_LIGHTMAP},
            {miRAY_EYE, miSHADER_LENS},          {miRAY_TRANSPARENT, miSHADER_MATERIAL}};
        const auto& [ray, call] = fit[input.below(static_cast<int>(std::size(fit)))];
        state->type = ray;
        state->call_type = call;
        return;
    }
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
        state.camera.x_resolution = state.camera.y_resolution = input.below(2);
    if (faults & 8)
        state->raster_x = input.real();
    if (faults & 16)
        state->instance = input.byte() % 32;
    if (faults & 32)
        state->tex = state.textures[0] = input.vector();
    if (faults & 64)
        state->material = input.byte() % 32;
    if (faults & 128)
        state.options.caustic = state.options.globillum = state.options.finalgather = miTRUE;
}

// The fourth argument: none, or a record, in memory of its own.
class Argument {
public:
    Argument(Input& input, const World& world) : points_{input.vector(), input.vector()} {
        switch (input.below(5)) {
        case 0:
        case 1:
            break;
        case 2:
            hold(orl::CurveRequest{input.below(4), 0, 0, 0, 0, 0, 0, 0}); // a short one with room behind it
            break;
        case 3:
            hold(orl::VolumeLightRequest{orl::VolumeLightRequest::magic_number, world.light(), input.real(),
                                         input.real(), 2, points_.data(), colors_.data(),
                                         attenuations_.data()});
            break;
        default:
            hold(orl::CurveRequest{input.below(4), 0, input.real(), 0, 1, 0, 1, input.byte() % 2});
            is_request_ = true;
        }
    }
    void* get() { return bytes_.get(); }
    bool is_request() const { return is_request_; } // which come with texture calls

private:
    template <class Record> void hold(const Record& record) {
        bytes_.reset(new unsigned char[sizeof record]);
        std::memcpy(bytes_.get(), &record, sizeof record);
    }

    std::unique_ptr<unsigned char[]> bytes_;
    bool is_request_ = false;
    std::array<miVector, 2> points_;
    std::array<miColor, 2> colors_{};
    std::array<miScalar, 2> attenuations_{};
};

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

// A list has the result of what is in it, whatever that is: coordinates write two vectors.
std::size_t result_room(const Shader& shader) {
    const std::size_t size = World::result_size(shader);
    return shader.name == std::string_view("orl_ShaderList") ? 2 * sizeof(miVector) : size;
}

void live(const Shader& shader, Input& input) {
    Renderer& renderer = Renderer::get();
    const long long blocks = Renderer::resources().live_blocks, locks = Renderer::resources().live_locks;
    FuzzValues values(input);
    scripted::World world(scripted::entries_of, values);
    // Some do their work only in another's slot.
    const bool hosted = input.byte() % 2 != 0;
    scripted::Actor* const host = hosted ? world.add_host(shader) : nullptr;
    scripted::Actor& actor = host ? *host : world.add(shader);
    scripted::State state, caster;
    spoil(state, input, world);
    const std::uint8_t number = input.byte();
    world.place(caster, number);
    if (number >= 192) // whatever the state is fit for, its coordinates are none
        state->tex = state.textures[0] = {number % 2 ? 1e30f : std::numeric_limits<float>::quiet_NaN(), 1, 0};
    if (input.below(2) == 0)
        state->parent = caster;
    // An output shader finishes what a lens began.
    const bool finishes = (shader.apply & orl::decl::apply(miSHADER_OUTPUT)) != 0;
    state.camera.lens = finishes ? world.add(*World::find_shader("orl_rtt_lens")).tag : actor.tag;
    surround(state, input);
    state.run(actor.instance, state->call_type);
    const std::uint8_t failing = input.byte(); // allocations fail from some time on
    if (failing >= 192)
        stage::fail_allocations_after((failing - 192) / 8);
    world.begin();
    const std::string block(reinterpret_cast<const char*>(&actor.instance.params()), actor.size);
    for (int call = 0; call < 2; ++call) {
        Argument argument(input, world);
        if (argument.is_request())
            state->call_type = miSHADER_TEXTURE;
        // A block of its own: the sanitizer sees who writes beside it.
        const std::size_t size = result_room(*actor.shader);
        const std::unique_ptr<unsigned char[]> result(new unsigned char[size]());
        const miBoolean answer = world.call(actor, result.get(), state, argument.get());
        require(answer == miTRUE || answer == miFALSE, actor.shader->name, "answers neither TRUE nor FALSE");
    }
    const bool same = std::memcmp(block.data(), &actor.instance.params(), actor.size) == 0;
    require(same, actor.shader->name, "writes to its parameters");
    require(renderer.mi_lock.calls() == renderer.mi_unlock.calls(), actor.shader->name, "keeps a lock");
    stage::fail_allocations_after(-1);
    world.end();
    require(Renderer::resources().live_locks == locks, actor.shader->name, "locks are left");
    require(renderer.pins() == 0, actor.shader->name, "records are left pinned");
    require(Renderer::resources().live_blocks == blocks, actor.shader->name, "memory is left");
}

} // namespace

// Half of the inputs are new scenes of four bytes: mutations alone would stay with the few shaders that
// branch most.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t*, std::size_t, std::size_t);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room,
                                               unsigned seed) {
    if (seed % 2 == 0 || room < 4)
        return LLVMFuzzerMutate(data, size, room);
    const std::uint32_t fresh = (seed >> 1) * 2654435769u; // Fibonacci hashing spreads the seed's bits
    std::memcpy(data, &fresh, sizeof fresh);
    return sizeof fresh;
}

// Before the fuzzer looks for what it can see of the code.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    scripted::built_module();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Renderer::get().reset();
    live(chosen(input), input);
    return 0;
}
