// What tests of entry points share: a fresh renderer for each test, shaders with their life cycle, and the
// host's records attached to a scene.
#pragma once

#include "orlshaderapi.h"
#include "state_builder.h"

#include <gtest/gtest.h>

#include <barrier>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

// An entry point by name; the headers of the library declare none.
#define ENTRY_POINT(name, Result, Params) extern "C" miBoolean name(Result*, miState*, const Params*)
#define INIT_AND_EXIT(name, Params)                                                                          \
    extern "C" void name##_init(miState*, const Params*, miBoolean*);                                        \
    extern "C" void name##_exit(miState*, const Params*)

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

inline bool operator==(const miColor& x, const miColor& y) {
    return x.r == y.r && x.g == y.g && x.b == y.b && x.a == y.a;
}

inline void PrintTo(const miColor& c, std::ostream* out) {
    *out << "(" << c.r << ", " << c.g << ", " << c.b << ", " << c.a << ")";
}

constexpr miColor grey(float c, float alpha = 0) {
    return {c, c, c, alpha};
}

// Colours no further apart than that, as points are. Alphas, which shaders mostly hand on, are the same.
inline void expect_near(const miColor& got, const miColor& expected, float tolerance = 1e-6f) {
    EXPECT_LE(std::hypot(got.r - expected.r, got.g - expected.g, got.b - expected.b), tolerance)
        << testing::PrintToString(got) << " instead of " << testing::PrintToString(expected);
    EXPECT_EQ(got.a, expected.a);
}
inline void expect_near(const miVector& got, const miVector& expected, float tolerance = 1e-6f) {
    expect_near(miColor{got.x, got.y, got.z, 0}, miColor{expected.x, expected.y, expected.z, 0}, tolerance);
}

class ShaderTest : public testing::Test {
protected:
    scripted::Renderer& renderer = scripted::Renderer::get();
    scripted::State state;

    ShaderTest() {
        renderer.reset();
        miSetModuleHandle(renderer.handle());
    }

    template <class Record> miTag add_record(const Record& record) {
        return renderer.add_userdata(&record, sizeof record);
    }

    // Instances and their records stay in place for the test's lifetime.
    miTag add_instance_with(miTag userdata, miTag item = miNULLTAG) {
        miInstance instance{};
        instance.userdata = userdata;
        instance.item = item;
        return renderer.add_instance(instance);
    }

    void set_scene(const orl_SceneData& scene) { state.options.userdata = add_record(scene); }

    // The hit instance with that node record.
    template <class Record> void set_node(const Record& node) {
        state->instance = add_instance_with(add_record(node));
    }

    // The hit lies on the plane z = 0 of an object with texture coordinates equal to positions, in that
    // channel.
    void set_textured_plane(miInteger channel = 0) {
        renderer.triangle.points = {{{{-9, -9, 0}, {9, -9, 0}, {0, 18, 0}}}};
        renderer.triangle.textures = {*renderer.triangle.points};
        renderer.texture_spaces = 1;
        orl_ObjectData data{};
        data.uv_channels = {0, 1, {channel}};
        miObject object{};
        object.userdata = add_record(data);
        state->instance = add_instance_with(miNULLTAG, renderer.add_copy(miSCENE_OBJECT, object));
    }

    std::vector<std::string> errors() const {
        std::vector<std::string> texts;
        for (const scripted::Message& message : renderer.messages())
            if (message.level == scripted::Level::error)
                texts.push_back(message.text);
        return texts;
    }
};

// Runs `work(state)` in so many threads at once.
template <class Work> void in_threads(short count, Work work) {
    std::barrier all_at_once(count);
    std::vector<std::thread> threads;
    for (short k = 0; k < count; ++k)
        threads.emplace_back([&, k] {
            scripted::State own;
            own->thread = k;
            all_at_once.arrive_and_wait();
            work(own);
        });
    for (std::thread& thread : threads)
        thread.join();
}

// One instance of a shader with init and exit, which must leave nothing behind.
template <class Params> class LiveShader : public scripted::ShaderInstance<Params> {
public:
    using Init = void(miState*, const Params*, miBoolean*);
    using Exit = void(miState*, const Params*);

    LiveShader(scripted::State& state, Init* init, Exit* exit) : state_(state), init_(init), exit_(exit) {}
    ~LiveShader() {
        if (!started_)
            return;
        state_.run(*this);
        exit_(state_, &this->params());
        exit_(state_, nullptr);
        EXPECT_EQ(this->user_pointer(), nullptr);
        const scripted::Resources after = scripted::Renderer::get().resources();
        EXPECT_EQ(after.live_blocks, before_.live_blocks);
        EXPECT_EQ(after.bad_releases, before_.bad_releases);
    }

    // To be called once the parameters are set.
    void start() {
        started_ = true;
        state_.run(*this);
        miBoolean wants_instances = miFALSE;
        init_(state_, nullptr, &wants_instances);
        EXPECT_TRUE(wants_instances);
        EXPECT_EQ(scripted::Renderer::get().resources().live_blocks, before_.live_blocks);
        init_(state_, &this->params(), &wants_instances);
    }

private:
    scripted::State& state_;
    Init* init_;
    Exit* exit_;
    bool started_ = false;
    const scripted::Resources before_ = scripted::Renderer::get().resources();
};
