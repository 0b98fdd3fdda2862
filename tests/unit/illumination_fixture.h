// A point with lights and a material that a model shades: the models by name, their parameters by name.
#pragma once

#include "exports.h"
#include "illumination.h"
#include "shader_fixture.h"

#include <cstring>
#include <optional>
#include <string_view>

// Every model stands here, with its parameters; the contract follows.
#define ALL_MODELS(MODEL)                                                                                    \
    MODEL(orl_base_BlinnIllumination, BasicModelParams)                                                      \
    MODEL(orl_base_PhongIllumination, BasicModelParams)                                                      \
    MODEL(orl_base_ConstantIllumination, BasicModelParams)                                                   \
    MODEL(orl_base_MetalIllumination, BasicModelParams)                                                      \
    MODEL(orl_base_OrenNayarBlinnIllumination, OrenNayarBlinnParams)

#define DECLARE_MODEL(name, Params)                                                                          \
    extern "C" miBoolean name(miColor*, miState*, const orl::Params*, orl::IllumRecord*);                    \
    extern "C" void name##_exit(miState*, const orl::Params*);
ALL_MODELS(DECLARE_MODEL)
#undef DECLARE_MODEL

struct Model {
    const char* name;
    miBoolean (*call)(miColor*, miState*, const void*, orl::IllumRecord*);
    void (*exit)(miState*, const void*);
};
inline constexpr Model models[] = {
#define MODEL_ENTRY(name, Params)                                                                            \
    {#name,                                                                                                  \
     [](miColor* c, miState* s, const void* p, orl::IllumRecord* r) {                                        \
         return name(c, s, static_cast<const orl::Params*>(p), r);                                           \
     },                                                                                                      \
     [](miState* s, const void* p) { name##_exit(s, static_cast<const orl::Params*>(p)); }},
    ALL_MODELS(MODEL_ENTRY)
#undef MODEL_ENTRY
};

inline void PrintTo(const Model& model, std::ostream* out) {
    *out << model.name;
}

inline const orl::decl::Shader& declaration(const char* name) {
    for (const orl::Unit& unit : orl::units)
        for (const orl::decl::Shader& shader : unit.shaders)
            if (std::string_view(shader.name) == name)
                return shader;
    ADD_FAILURE() << "no shader " << name;
    return orl::units[0].shaders[0];
}

constexpr miColor grey(float c) {
    return {c, c, c, 0};
}

inline void expect_near(const miColor& x, const miColor& y, float tolerance = 1e-5f) {
    const auto off = [tolerance](float a, float b) { return std::fabs(a - b) > tolerance * (1 + std::fabs(b)); };
    EXPECT_FALSE(off(x.r, y.r) || off(x.g, y.g) || off(x.b, y.b))
        << testing::PrintToString(x) << " instead of " << testing::PrintToString(y);
}

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
    const Model* model = &models[0];
    scripted::ShaderInstance<Block> instance;

    ModelTest() {
        state->instance = add_instance_with(miNULLTAG);
        renderer.mi_sample_light = [this](miColor* color, miVector* dir, miScalar* dot_nl, miState* s,
                                          miTag light, miInteger* count) {
            const Lamp& lamp = lamps_[light - renderer.lights[0]];
            const auto k = static_cast<std::size_t>(*count);
            if (k >= lamp.dirs.size())
                return miFALSE;
            if (lamp.told)
                *find_record(s, orl::keys::light_shaping) = *lamp.told;
            *count += 1, *color = lamp.color, *dir = lamp.dirs[k];
            *dot_nl = mi_vector_dot(&s->normal, dir);
            return miTRUE;
        };
    }

    void use(const Model& m) {
        model = &m;
        for (const orl::decl::Field& field : declaration(m.name).fields)
            for (int i = 0; i < field.value.count; ++i)
                put(field, i, static_cast<float>(field.value.number[i]));
    }
    // Components of the parameters of that name, or of all that begin so: "glossiness*". Returns how many.
    int set(std::string_view name, std::initializer_list<float> value) {
        int found = 0;
        const bool all = name.back() == '*';
        for (const orl::decl::Field& field : declaration(model->name).fields)
            if (all ? std::string_view(field.name).starts_with(name.substr(0, name.size() - 1)) : field.name == name) {
                int i = 0;
                for (const float v : value)
                    put(field, i++, v);
                ++found;
            }
        return found;
    }
    void put(const orl::decl::Field& field, int i, float value) {
        unsigned char* const place = instance->bytes + field.offset + 4 * static_cast<std::size_t>(i);
        const auto whole = static_cast<miInteger>(value);
        const bool real = field.type == miTYPE_SCALAR || field.type == miTYPE_COLOR;
        std::memcpy(place, real ? static_cast<const void*>(&value) : &whole, 4);
    }

    const orl::IllumRecord& shade(std::vector<Lamp> lamps) {
        lamps_ = std::move(lamps);
        while (renderer.lights.size() < lamps_.size())
            renderer.lights.push_back(renderer.lights.empty() ? 1000 : renderer.lights.back() + 1);
        renderer.lights.resize(lamps_.size());
        record = {};
        record.values = &values;
        record.normal = state->normal, record.view = state->dir;
        record.opacity = record.opacityFactor = 1;
        record.channelCount = orl::preset_channel_count;
        record.continuation = [](miColor* result, miState* s, orl::IllumRecord* r, const void* params) {
            r->shade(s, r, params);
            *result = r->result;
            return miTRUE;
        };
        miColor result{};
        state.run(instance, miSHADER_TEXTURE);
        EXPECT_TRUE(model->call(&result, state, &instance.params(), &record));
        EXPECT_EQ(result, record.result);
        return record;
    }

    // Direction from the point at that angle from the normal (degrees), towards +x or elsewhere.
    static miVector from(float theta, float phi = 0) {
        const float degree = 0.01745329f, sine = std::sin(theta * degree);
        return {sine * std::cos(phi * degree), sine * std::sin(phi * degree), std::cos(theta * degree)};
    }
    // The viewer at that angle.
    void look_from(float theta, float phi = 0) {
        const miVector d = from(theta, phi);
        state.set_hit({5 * d.x, 5 * d.y, 5 * d.z}, {0, 0, 0}, {0, 0, 1});
    }

private:
    std::vector<Lamp> lamps_;
};
