// Small scenes for tests of the stage: text in the scene language, shaders that are functions of the test.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kit/message.h"
#include "mi/parser.h"
#include "render/renderer.h"
#include "render/shading.h"
#include "scene/libraries.h"

namespace stage_test {

// Numbers to three places, vectors, colours and words in one line.
class Line {
public:
    template <class... T> explicit Line(const T&... items) { (put(items), ...); }
    std::string text;

private:
    void put(const std::string& word) { text += (text.empty() ? "" : " ") + word; }
    void put(double x) { put((std::ostringstream() << std::round(x * 1000.0) / 1000.0 + 0.0).str()); }
    void put(const miVector& v) { put(v.x), put(v.y), put(v.z); }
    void put(const miColor& c) { put(c.r), put(c.g), put(c.b), put(c.a); }
};
template <class... T> std::string show(const T&... items) {
    return Line(items...).text;
}

// The parameters of every test shader, "color" and "scalar", as its running instance has them.
template <class T> T& eval(miState* state) {
    auto* color = static_cast<miColor*>(static_cast<void*>(state->shader->parameters));
    return *static_cast<T*>(mi_eval(state, std::is_same_v<T, miScalar> ? color + 1 : color));
}

// What is told while it lives, in a line each.
class Told {
public:
    std::string text;
    Told() {
        stage::set_message_sink(
            [this](stage::MessageLevel, std::string_view told) { text.append(told) += '\n'; });
    }
    ~Told() { stage::set_message_sink(nullptr); }
    Told(const Told&) = delete;
};

// Text in the scene language, the world that its render statement makes, and a thread that renders it.
class SceneText {
public:
    stage::Scene scene;
    std::unique_ptr<stage::World> world;
    stage::ThreadContext context;
    stage::RenderCommand command; // the last one

    SceneText() { stage::set_current_scene(&scene); }
    ~SceneText() { stage::set_current_scene(nullptr); }
    SceneText(const SceneText&) = delete;

    void parse(const std::string& text, bool camera_space = false) {
        stage::parse_text(scene, text, "scene.mi",
                          [&](stage::Scene& read, const stage::RenderCommand& given) {
                              command = given;
                              world = std::make_unique<stage::World>(read, given, camera_space);
                              context.world = world.get();
                          });
    }
    // The buffers of the frame that was asked for last.
    std::vector<stage::FrameBuffer> render(int threads = 1) {
        stage::RenderSettings settings;
        settings.progress = false;
        settings.threads = threads;
        stage::Renderer renderer(scene, command, settings);
        EXPECT_TRUE(renderer.render());
        return renderer.buffers();
    }
    void define(const std::string& code, stage::ShaderEntry entry) {
        scene.libraries->define(code, reinterpret_cast<void*>(entry));
    }
    stage::Element& operator[](std::string_view name) { return *scene.database.find(name); }
    miTag tag(std::string_view name) { return (*this)[name].tag; }
    template <class T> T& get(std::string_view name) { return *(*this)[name].as<T>(); }
};

class TestScene : public SceneText {
public:
    // The camera stands at (0, 0, 10) and looks down -z. "square" is 2 by 2, faces +z and has a texture space
    // that runs from 0 to 1 along x and y.
    TestScene() {
        bodies().clear();
        parse("options opt trace depth 4 4 8 end options\n"
              "camera cam focal 1 aperture 1 aspect 1 resolution 16 16 end camera\n"
              "instance cam_inst cam transform 1 0 0 0 0 1 0 0 0 0 1 0 0 0 -10 1 end instance\n"
              "object square visible shadow trace reflection refraction transparency group\n"
              "-1 -1 0 1 -1 0 1 1 0 -1 1 0 0 0 0 1 0 0 1 1 0 0 1 0\n"
              "v 0 t 4 v 1 t 5 v 2 t 6 v 3 t 7 c 0 1 2 c 0 2 3 end group end object\n");
        options = &get<miOptions>("opt");
    }
    miOptions* options;

    // Quotes may be single ones.
    void parse(std::string text) {
        std::replace(text.begin(), text.end(), '\'', '"');
        SceneText::parse(text);
    }

    // Declares `NAME_code` and makes the shader instance NAME. `body(state, result)` may return nothing for
    // TRUE.
    template <class F> void shader(const std::string& name, F body, const std::string& result = "color") {
        const std::string code = name + "_code";
        bodies()[code] = [body](miState* state, miColor& r) mutable -> miBoolean {
            if constexpr (std::is_void_v<decltype(body(state, r))>)
                return body(state, r), miTRUE;
            else
                return body(state, r);
        };
        define(code, &run);
        parse("declare shader " + result + " '" + code +
              "' (color color, scalar scalar) end declare shader '" + name + "' '" + code + "' ()\n");
    }
    void red(const std::string& name, float value) {
        shader(name, [value](miState*, miColor& c) { c.r = value; });
    }

    // Members of the world: "NAME.m" is the square's material.
    void square(const std::string& name, const miVector& place, const std::string& material,
                const std::string& flags = "") {
        parse("material '" + name + ".m' " + material + " end material\n");
        instance(name, "square", place, "material '" + name + ".m' " + flags);
    }
    void light(const std::string& name, const miVector& place, const std::string& text) {
        parse("light '" + name + ".l' " + text + " end light\n");
        instance(name, "'" + name + ".l'", place, "");
    }
    void instance(const std::string& name, const std::string& item, const miVector& p,
                  const std::string& rest) {
        parse("instance '" + name + "' " + item + " transform 1 0 0 0 0 1 0 0 0 0 1 0 " +
              show(-p.x, -p.y, -p.z) + " 1 " + rest + " end instance\n");
        members_ += " '" + name + "'";
    }

    // What shaders do: the ray of a state, point, normal, length and cosine; and rays of their own.
    static std::string ray(const miState* s) {
        return show(s->org, ">", s->dir, ":", s->point, ",", s->normal, ",", s->dist, s->dot_nd);
    }
    static miBoolean probe(miState* state, miVector org, miVector dir = {0.0f, 0.0f, -1.0f}) {
        return mi_trace_probe(state, &dir, &org);
    }

    // Ends the scene.
    void build(const std::string& camera = "") {
        parse("incremental camera cam " + camera + " end camera instgroup root 'cam_inst'" + members_ +
              " end instgroup render root cam_inst opt\n");
    }

    // The state of an eye sample that looks down from (x, y, 10).
    miState eye(float x = 0.0f, float y = 0.0f) {
        miState state{};
        state.camera = &get<miCamera>("cam");
        state.camera_inst = tag("cam_inst");
        state.options = options;
        state.renderer = &context;
        state.org = {x, y, 10.0f};
        state.dir = {0.0f, 0.0f, -1.0f};
        state.volume = state.camera->volume;
        return state;
    }
    // Shades that sample, or calls a shader with its state.
    miColor shade(float x = 0.0f, float y = 0.0f) {
        const stage::ArenaScope scope(context.arena);
        context.eye.state = eye(x, y);
        miColor result{};
        lit = stage::shade_eye_sample(&result, context.eye);
        return result;
    }
    miColor call(miTag shader, miShader_type type = miSHADER_MATERIAL) {
        miState state = eye();
        miColor result{};
        lit = stage::call_shader(&result, type, &state, shader, nullptr);
        return result;
    }
    miBoolean lit = miFALSE; // the answer to the last one

private:
    using Body = std::function<miBoolean(miState*, miColor&)>;
    static std::map<std::string, Body>& bodies() {
        static std::map<std::string, Body> map;
        return map;
    }
    static miBoolean run(void* result, miState* state, void*, void*) {
        const std::string& code = stage::element_of(state->shader)->shader->declaration->name;
        return bodies().at(code)(state, *static_cast<miColor*>(result));
    }

    std::string members_;
};

} // namespace stage_test
