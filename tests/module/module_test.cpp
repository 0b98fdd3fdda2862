// The built module, loaded as the renderer loads it: the life of its instances, and what it does with input
// that nobody should give it.
#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <string>

#include <gtest/gtest.h>

#include "built_module.h"
#include "exports.h"
#include "illumination.h"
#include "orl_attenuv.h"
#include "output_request.h"

namespace {

using orl::decl::Field;
using orl::decl::Shader;
using scripted::is_integral;
using scripted::is_real;
using scripted::Renderer;
using scripted::State;

// The renderer's part in front of the module, as after loading.
class Module : public testing::Test {
protected:
    Renderer& renderer = Renderer::get();

    Module() { renderer.reset(); }

    // At most 2380 calls that take microseconds each; a loop that runs to INT_MAX takes far longer.
    template <class Visitor> static void for_each_shader(Visitor visit) {
        for (const orl::Unit& unit : orl::units)
            for (const Shader& shader : unit.shaders) {
                SCOPED_TRACE(shader.name);
                const auto start = std::chrono::steady_clock::now();
                visit(shader);
                EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
            }
    }
};

// ---- instances

struct alignas(8) Block {
    unsigned char bytes[2048];
};

struct Fill {
    float scalar;
    int integer;
    bool declared = false; // where a default is declared, that
};
constexpr Fill defaults{0, 0, true};

// Writes one parameter's four-byte words; tags stay null, arrays empty.
void fill_field(Block& block, const Field& field, const Fill& fill) {
    for (std::size_t i = 0; !field.array && i < field.size / 4; ++i) {
        Fill value = fill;
        if (fill.declared && static_cast<int>(i) < field.value.count)
            value = {static_cast<float>(field.value.number[i]), static_cast<int>(field.value.number[i])};
        unsigned char* place = block.bytes + field.offset + 4 * i;
        if (is_integral(field))
            std::memcpy(place, &value.integer, 4);
        else if (is_real(field))
            std::memcpy(place, &value.scalar, 4);
    }
}

// One instance from its shader's init to its shader's exit.
class Life {
public:
    explicit Life(const Shader& shader, const Fill& fill = defaults)
        : shader_(shader), entries_(scripted::entries_of(shader)), instance_(shader.name),
          blocks_(Renderer::get().resources().live_blocks), locks_(Renderer::get().resources().live_locks) {
        for (const Field& field : shader.fields)
            fill_field(instance_.params(), field, fill);
        state.run(instance_);
    }

    State state;

    // Every tag becomes `tag`, every array of tags holds it three times.
    void set_tags(miTag tag) {
        for (const Field& field : shader_.fields) {
            if (is_integral(field) || is_real(field) || field.type == miTYPE_STRUCT)
                continue;
            unsigned char* const place = instance_.params().bytes + field.offset;
            if (!field.array) {
                std::memcpy(place, &tag, sizeof tag);
                continue;
            }
            // Index and count, and the elements from the middle of the block on.
            const miInteger head[2] = {256, 3};
            std::memcpy(place, head, sizeof head);
            for (int k = 0; k < 3; ++k)
                std::memcpy(place + 8 + (256 + k) * 4, &tag, sizeof tag);
        }
    }

    void begin() {
        if (!entries_.init)
            return;
        miBoolean wanted = miFALSE;
        entries_.init(state, nullptr, &wanted);
        EXPECT_EQ(wanted, miTRUE);
        EXPECT_EQ(held(), 0) << "allocated before there was an instance";
        entries_.init(state, &instance_.params(), &wanted);
    }

    alignas(16) std::array<unsigned char, 1024> result; // of the last call

    miBoolean call(void* argument = nullptr) {
        result = {};
        const miBoolean answer = entries_.run(result.data(), state, &instance_.params(), argument);
        EXPECT_TRUE(answer == miTRUE || answer == miFALSE) << answer;
        return answer;
    }

    void end() {
        Renderer& renderer = Renderer::get();
        if (entries_.exit) {
            entries_.exit(state, &instance_.params());
            entries_.exit(state, nullptr);
        }
        EXPECT_EQ(instance_.user_pointer(), nullptr);
        const auto& of_threads = renderer.thread_data(instance_.function()); // freed when threads end
        const auto empty = std::ranges::count(of_threads, nullptr);
        EXPECT_EQ(held(), std::ssize(of_threads) - empty) << "memory is left";
        EXPECT_EQ(renderer.resources().live_locks, locks_) << "locks are left";
        EXPECT_EQ(renderer.pins(), 0) << "records are left pinned";
        EXPECT_EQ(renderer.bad_accesses(), 0) << "accessed a tag that names nothing";
    }

private:
    long long held() const { return Renderer::get().resources().live_blocks - blocks_; }

    const Shader& shader_;
    const scripted::Entries entries_;
    scripted::ShaderInstance<Block> instance_;
    long long blocks_, locks_;
};

// Calls the shader in a state that `spoil` has changed, from init to exit.
using Spoil = std::function<void(Life&)>;
void live(
    const Shader& shader, const Spoil& spoil = [](Life&) {}) {
    Life life(shader);
    spoil(life);
    life.begin();
    life.call();
    life.call();
    life.end();
}

TEST_F(Module, WhatAnInstanceTakesItGivesBack) {
    for_each_shader([&](const Shader& shader) {
        EXPECT_EQ(scripted::entries_of(shader).version(), shader.version);
        for (int round = 0; round < 2; ++round)
            live(shader);
        Life unused(shader); // exit of an instance that never ran
        unused.begin();
        unused.end();
        Life never_begun(shader);
        never_begun.end();
    });
}

TEST_F(Module, BadParametersAreSurvivedInTime) {
    using Limits = std::numeric_limits<float>;
    const Fill fills[] = {{0, 0},
                          {Limits::quiet_NaN(), 0},
                          {Limits::infinity(), 0},
                          {Limits::max(), INT_MAX},
                          {-1e30f, INT_MIN}};
    for_each_shader([&](const Shader& shader) {
        for (const Fill& fill : fills) {
            SCOPED_TRACE(fill.scalar);
            Life life(shader, fill);
            life.begin();
            for (int type = 0; type < miNRAYTYPES; ++type)
                for (int call = 0; call < miNSHADERTYPES; ++call) {
                    life.state->type = static_cast<miRay_type>(type);
                    life.state->call_type = static_cast<miShader_type>(call);
                    life.call();
                }
            life.end();
        }
    });
}

TEST_F(Module, BadStatesAndTagsAreSurvivedInTime) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Spoil faults[] = {
        [](Life& life) {
            life.state.set_miss({0, 0, 0}, {0, 0, 1});
        },
        [](Life& life) {
            miState* s = life.state;
            s->tex_list = s->bump_x_list = s->bump_y_list = nullptr;
        },
        [nan](Life& life) {
            miState* s = life.state;
            s->point = s->normal = s->normal_geom = s->dir = s->org = {nan, nan, nan};
            s->dist = static_cast<double>(nan);
            s->dot_nd = nan;
            life.state.textures[0] = s->tex = {nan, nan, nan};
        },
        [](Life& life) {
            life.state->normal = life.state->normal_geom = life.state->dir = {0, 0, 0};
        },
        [](Life& life) {
            life.state.camera.x_resolution = life.state.camera.y_resolution = 0;
            life.state.camera.focal = life.state.camera.aperture = 0;
        },
        [](Life& life) { life.set_tags(miNULLTAG); },
        [](Life& life) { life.set_tags(9999); }, // which names nothing
    };
    for_each_shader([&](const Shader& shader) {
        for (std::size_t k = 0; k < std::size(faults); ++k) {
            SCOPED_TRACE(k);
            live(shader, faults[k]);
        }
    });
}

// ---- a shader in a slot for others

// What a slot hands to its shader, in a block of its own: the sanitizer sees who reads on behind it.
struct Slot {
    miShader_type call;
    std::function<std::shared_ptr<void>()> argument;
};
template <class Record> Slot slot(miShader_type call, Record record) {
    return {call, [record] { return std::make_shared<Record>(record); }};
}

enum Family : std::size_t { model, light, element, others };

Family family_of(const orl::Unit& unit, const Shader& shader) {
    const std::string name = shader.name;
    const std::string from = unit.name;
    if (name.ends_with("Illumination"))
        return model;
    return from == "orl_light" ? light : from == "orl_stdelem" ? element : others;
}

// The others are survived. Models, lights and elements give what they give without a record; a model and an
// element tell why, once.
TEST_F(Module, RecordsForOthersAreLeftAlone) {
    const Slot maps[] = {slot(miSHADER_TEXTURE, orl::OutputRequest::color),
                         slot(miSHADER_TEXTURE, orl::OutputRequest::mono),
                         slot(miSHADER_TEXTURE, orl::OutputRequest::vector)};
    const Slot illumination[] = {slot(miSHADER_TEXTURE, orl::IllumRecord{})};
    orl::VolumeLightRequest request{};
    request.magic = orl::VolumeLightRequest::magic_number;
    const Slot volume_light[] = {slot(miSHADER_LIGHT, request)};
    const Slot elements[] = {slot(miSHADER_DEFAULT, orl_RenderElementCall{0, nullptr}),
                             slot(miSHADER_DEFAULT, orl_RenderElementCall{1, nullptr})};
    const std::pair<Family, std::span<const Slot>> slots[] = {
        {model, illumination}, {light, volume_light}, {element, elements}, {others, maps}};
    const auto run = [&](const Shader& shader, miShader_type call, const std::shared_ptr<void>& argument) {
        Life life(shader);
        life.begin();
        life.state->call_type = call;
        life.call(argument.get());
        const miBoolean answer = life.call(argument.get());
        life.end();
        return std::pair(answer, life.result);
    };
    for (const orl::Unit& unit : orl::units)
        for (const Shader& shader : unit.shaders)
            for (const auto& [owner, its_slots] : slots)
                for (const Slot& slot : its_slots) {
                    const Family family = family_of(unit, shader);
                    if (family == owner)
                        continue;
                    SCOPED_TRACE(std::string(shader.name) + " in slot of family " + std::to_string(owner));
                    const auto without = run(shader, slot.call, nullptr);
                    const std::size_t before = renderer.messages().size();
                    const auto with = run(shader, slot.call, slot.argument());
                    if (family == others)
                        continue;
                    EXPECT_EQ(with, without);
                    const bool tells =
                        family == model || (family == element && slot.call == miSHADER_TEXTURE);
                    EXPECT_EQ(renderer.messages().size() - before, tells ? 1u : 0u);
                }
}

} // namespace
