// A point with lights and a material that a model shades; the models in one list, their parameters by name.
#pragma once

#include "exports.h"
#include "shader_fixture.h"

#include <cstring>
#include <optional>
#include <string_view>

// Every model stands here, with its unit and parameters; the contract follows.
#define ALL_MODELS(MODEL)                                                                                    \
    MODEL(shd_blinn2, orl_base_BlinnIllumination, BasicModelParams)                                          \
    MODEL(shd_phong2, orl_base_PhongIllumination, BasicModelParams)                                          \
    MODEL(shd_cnstant2, orl_base_ConstantIllumination, BasicModelParams)                                     \
    MODEL(shd_metal2, orl_base_MetalIllumination, BasicModelParams)                                          \
    MODEL(shd_onb, orl_base_OrenNayarBlinnIllumination, OrenNayarBlinnParams)                                \
    MODEL(shd_aniso, orl_base_AnisotropicIllumination, AnisotropicParams)                                    \
    MODEL(shd_mlayer, orl_base_MultiLayerIllumination, MultiLayerParams)                                     \
    MODEL(shd_ward, orl_base_WardIllumination, WardParams)                                                   \
    MODEL(shd_strauss, orl_base_StraussIllumination, StraussParams)                                          \
    MODEL(shd_trnslcnt, orl_base_TranslucentIllumination, TranslucentParams)

struct Model {
    const char* unit;
    const orl::decl::Shader* shader;
    miBoolean (*call)(miColor*, miState*, const void*, orl::IllumRecord*);
    void (*exit)(miState*, const void*);
};
inline void PrintTo(const Model& model, std::ostream* out) {
    *out << model.shader->name;
}

#define DECLARE_MODEL(unit, name, Params)                                                                    \
    extern "C" miBoolean name(miColor*, miState*, const orl::Params*, orl::IllumRecord*);                    \
    extern "C" void name##_exit(miState*, const orl::Params*);
#define MODEL_ENTRY(unit, name, Params)                                                                      \
    {#unit, &orl::unit[0],                                                                                   \
     [](miColor* result, miState* state, const void* params, orl::IllumRecord* record) {                     \
         return name(result, state, static_cast<const orl::Params*>(params), record);                        \
     },                                                                                                      \
     [](miState* state, const void* params) {                                                                \
         name##_exit(state, static_cast<const orl::Params*>(params));                                        \
     }},
ALL_MODELS(DECLARE_MODEL)
inline constexpr Model models[] = {ALL_MODELS(MODEL_ENTRY)};

// The state looks down on the plane z = 0, where the lamps' samples arrive from any side.
class ModelTest : public ShaderTest {
protected:
    struct Lamp {
        miColor color;
        std::vector<miVector> dirs; // a sample from each
        std::optional<orl::LightShapingRecord> told{};
    };
    struct alignas(16) Block {
        unsigned char bytes[256];
    };

    orl::MaterialValues values{};
    orl::IllumRecord record{};
    Model model = models[0];
    std::vector<Lamp> lamps;
    orl::LightShapingRecord left{};              // what the last sample has left in the record
    std::function<void(orl::IllumRecord&)> maps; // what the material enters before shading
    scripted::ShaderInstance<Block> instance;

    ModelTest() {
        state->instance = add_instance_with(miNULLTAG);
        renderer.mi_sample_light = [this](miColor* color, miVector* dir, miScalar* dot_nl, miState* s,
                                          miTag light, miInteger* count) {
            const Lamp& lamp = lamps[light - 1000];
            const auto k = static_cast<std::size_t>(*count);
            if (k >= lamp.dirs.size()) {
                left = *find_record(s, orl::keys::light_shaping);
                return miFALSE;
            }
            if (lamp.told)
                *find_record(s, orl::keys::light_shaping) = *lamp.told;
            *count += 1, *color = lamp.color, *dir = lamp.dirs[k];
            *dot_nl = mi_vector_dot(&s->normal, dir);
            return miTRUE;
        };
    }

    ~ModelTest() override { exit(); }
    void exit() {
        state.run(instance);
        model.exit(state, &instance.params());
        EXPECT_EQ(instance.user_pointer(), nullptr);
        EXPECT_EQ(renderer.resources().live_blocks, blocks_);
    }

    // A model by its name in the middle of the shader's, with its default parameters.
    void use(std::string_view name) {
        for (const Model& m : models)
            if (std::string_view(m.shader->name).substr(9) == std::string(name) + "Illumination")
                model = m;
        for (const orl::decl::Field& field : model.shader->fields)
            for (int i = 0; i < field.value.count; ++i)
                put(field, i, static_cast<float>(field.value.number[i]));
    }
    void put(const orl::decl::Field& field, int i, float value) {
        const bool real = field.type == miTYPE_SCALAR || field.type == miTYPE_COLOR;
        const miInteger whole = real ? 0 : static_cast<miInteger>(value);
        std::memcpy(instance->bytes + field.offset + 4 * i, real ? static_cast<const void*>(&value) : &whole,
                    4);
    }
    // The parameters of that name, with "*" all that begin so. Returns how many.
    int set(std::string_view name, float value) { return set(name, {value, value, value, value}); }
    int set(std::string_view name, const miColor& value) {
        const float components[] = {value.r, value.g, value.b, value.a};
        int found = 0;
        for (const orl::decl::Field& field : model.shader->fields) {
            const bool named = name.back() == '*'
                                   ? std::string_view(field.name).starts_with(name.substr(0, name.size() - 1))
                                   : name == field.name;
            for (int i = 0; named && i < field.value.count; ++i)
                put(field, i, components[i]);
            found += named;
        }
        return found;
    }

    const orl::IllumRecord& shade(std::vector<Lamp> by) {
        lamps = std::move(by);
        renderer.lights.clear();
        for (std::size_t k = 0; k < lamps.size(); ++k)
            renderer.lights.push_back(static_cast<miTag>(1000 + k));
        record = {};
        record.values = &values;
        record.normal = state->normal, record.view = state->dir;
        record.opacity = record.opacityFactor = 1;
        record.channelCount = orl::preset_channel_count;
        record.material = this;
        record.continuation = [](miColor* result, miState* s, orl::IllumRecord* r, const void* params) {
            if (const auto& enter = static_cast<ModelTest*>(r->material)->maps)
                enter(*r);
            r->shade(s, r, params);
            *result = r->result;
            return miTRUE;
        };
        miColor result{};
        state.run(instance, miSHADER_TEXTURE);
        EXPECT_TRUE(model.call(&result, state, &instance.params(), &record));
        return record;
    }

    // Direction from the point at those angles from the normal and about it, in degrees.
    static miVector from(float theta, float phi = 0) {
        const float degree = 0.01745329f, sine = std::sin(theta * degree);
        return {sine * std::cos(phi * degree), sine * std::sin(phi * degree), std::cos(theta * degree)};
    }
    void look_from(float theta, float phi = 0) { state.set_hit(from(theta, phi), {0, 0, 0}, {0, 0, 1}); }

private:
    const long long blocks_ = renderer.resources().live_blocks;
};
