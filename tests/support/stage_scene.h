// Small scenes built by hand for tests of the stage: shaders are functions of the test, surfaces are squares.
#pragma once

#include <cstddef>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "render/context.h"
#include "render/shading.h"
#include "render/world.h"
#include "scene/scene.h"

namespace stage_test {

using Body = std::function<miBoolean(void* result, miState* state, void* params, void* arg)>;

// The parameters of every test shader. Connections address them by their offsets.
struct Block {
    Body* body;
    miColor color;
    miScalar scalar;
    miTag tag;
};

inline miBoolean run_body(void* result, miState* state, void* params, void* arg) {
    return (*static_cast<Block*>(params)->body)(result, state, params, arg);
}

class TestScene {
public:
    stage::Scene scene;
    miOptions* options;
    miCamera* camera;
    std::unique_ptr<stage::World> world;
    stage::ThreadContext context;

    // The camera stands at (0, 0, 10) and looks down -z; ray tracing is on, depths are 4, 4 and 8.
    TestScene() {
        command_.options = add(miSCENE_OPTIONS, sizeof(miOptions)).tag;
        options = record<miOptions>(command_.options);
        options->trace = miTRUE;
        options->reflection_depth = options->refraction_depth = 4;
        options->trace_depth = 8;
        options->shadow = 1;
        options->face = 'a';
        const miTag camera_tag = add(miSCENE_CAMERA, sizeof(miCamera)).tag;
        camera = record<miCamera>(camera_tag);
        camera->focal = camera->aperture = camera->aspect = 1.0f;
        camera->x_resolution = camera->y_resolution = 16;
        command_.camera_instance = add_instance(camera_tag, {0.0f, 0.0f, 10.0f});
    }

    stage::Element& add(int type, std::size_t size, const char* name = "") {
        return scene.database.add(type, name, {}, size);
    }
    template <class T> T* record(miTag tag) { return scene.database.find(tag)->as<T>(); }
    Block& block(miTag shader) {
        void* parameters = record<miFunction>(shader)->parameters;
        return *static_cast<Block*>(parameters);
    }

    // A shader instance with code of its own.
    miTag add_shader(Body body, miParam_type result = miTYPE_COLOR,
                     std::uint32_t result_size = sizeof(miColor)) {
        stage::Element& element = add_function(result, result_size);
        bodies_.push_back(std::move(body));
        codes_.emplace_back().entry = run_body;
        codes_.back().name = "test shader";
        element.shader->code = &codes_.back();
        block(element.tag).body = &bodies_.back();
        return element.tag;
    }

    // An instance of a phenomenon; its interface is a Block as well.
    miTag add_phenomenon(miTag root, std::uint32_t result_size = sizeof(miColor)) {
        stage::Element& element = add_function(miTYPE_COLOR, result_size);
        element.as<miFunction>()->type = miFUNCTION_PHEN;
        element.shader->root = root;
        return element.tag;
    }

    void connect(miTag shader, const stage::Connection& connection) {
        stage::Element& element = *scene.database.find(shader);
        element.shader->connections.push_back(connection);
        auto* function = element.as<miFunction>();
        function->connection_offset = sizeof(Block);
        const int entry = static_cast<int>(element.shader->connections.size());
        std::memcpy(reinterpret_cast<char*>(function->parameters) + sizeof(Block) + connection.offset, &entry,
                    sizeof entry);
    }

    miTag add_material(miTag shader, miTag shadow = miNULLTAG, miTag volume = miNULLTAG) {
        const miTag tag = add(miSCENE_MATERIAL, sizeof(miMaterial)).tag;
        auto* material = record<miMaterial>(tag);
        material->shader = shader;
        material->shadow = shadow;
        material->volume = volume;
        return tag;
    }

    // An instance of an element, moved to a place of the world. It is a member of the root group.
    miTag add_instance(miTag item, const miVector& place, bool in_root = true) {
        stage::Element& element = add(miSCENE_INSTANCE, sizeof(miInstance));
        auto* instance = element.as<miInstance>();
        instance->item = item;
        for (int k = 0; k < 16; k += 5)
            instance->tf.global_to_local[k] = instance->tf.local_to_global[k] = 1.0f;
        const float t[3] = {place.x, place.y, place.z};
        for (int k = 0; k < 3; ++k) {
            instance->tf.global_to_local[12 + k] = -t[k];
            instance->tf.local_to_global[12 + k] = t[k];
        }
        instance->visible = instance->shadow = instance->trace = instance->reflection = instance->refraction =
            instance->transparency = instance->finalgather = 2;
        if (in_root)
            members_.push_back(element.tag);
        return element.tag;
    }

    // A square of 2 by 2 that faces +z, centred at `place`. Its texture space 0 runs from 0 to 1 along x and
    // y.
    miTag add_square(const miVector& place, miTag material) {
        stage::Element& element = add(miSCENE_OBJECT, sizeof(miObject));
        element.geometry = std::make_unique<stage::Geometry>();
        stage::Geometry& g = *element.geometry;
        g.vertices = {-1, -1, 0, 0, 0, 0, 1, -1, 0, 1, 0, 0, 1, 1, 0, 1, 1, 0, -1, 1, 0, 0, 1, 0};
        g.indices = {0, 1, 2, 0, 2, 3};
        g.view = {};
        g.view.triangle_count = 2;
        g.view.vertex_count = 4;
        g.view.vertex_stride = 6;
        g.view.normal_offset = g.view.motion_offset = g.view.bump_offset = -1;
        g.view.texture_count = 1;
        g.view.texture_offset = 3;
        g.view.vertices = g.vertices.data();
        g.view.indices = g.indices.data();
        g.view.material = material;
        auto* object = element.as<miObject>();
        object->visible = object->shadow = object->trace = 1;
        object->reflection = object->refraction = object->transparency = object->finalgather = 3;
        object->triangles = &g.view;
        return add_instance(element.tag, place);
    }

    // A light and its instance; `fill` completes the record.
    miTag add_light(miTag shader, const miVector& place, const std::function<void(miLight&)>& fill = {}) {
        const miTag tag = add(miSCENE_LIGHT, sizeof(miLight)).tag;
        record<miLight>(tag)->shader = shader;
        if (fill)
            fill(*record<miLight>(tag));
        return add_instance(tag, place);
    }

    // Ends the scene; nothing may be added afterwards.
    void build() {
        const std::size_t size = sizeof(miGroup) + members_.size() * sizeof(miTag);
        command_.root = add(miSCENE_GROUP, size).tag;
        auto* group = record<miGroup>(command_.root);
        group->no_kids = static_cast<int>(members_.size());
        std::copy(members_.begin(), members_.end(), group->kids);
        world = std::make_unique<stage::World>(scene, command_, false);
        context.world = world.get();
    }

    // The state of an eye sample that looks down from (x, y, 10).
    miState eye(float x = 0.0f, float y = 0.0f) {
        miState state{};
        state.version = 2;
        state.camera = camera;
        state.camera_inst = command_.camera_instance;
        state.options = options;
        state.renderer = &context;
        state.org = {x, y, 10.0f};
        state.dir = {0.0f, 0.0f, -1.0f};
        state.volume = camera->volume;
        state.environment = camera->environment;
        state.importance = 1.0f;
        return state;
    }

    // Shades the sample at (x, y).
    miColor shade(float x = 0.0f, float y = 0.0f, miBoolean* lit = nullptr) {
        const stage::ArenaScope scope(context.arena);
        miState state = eye(x, y);
        miColor result{};
        const miBoolean answer = stage::shade_eye_sample(&result, &state);
        if (lit)
            *lit = answer;
        return result;
    }

private:
    stage::Element& add_function(miParam_type result, std::uint32_t result_size) {
        constexpr std::size_t room = 2 * sizeof(Block); // the parameters and, behind them, their connections
        stage::Element& element = add(miSCENE_FUNCTION, sizeof(miFunction) + room);
        stage::Declaration& declaration = declarations_.emplace_back();
        declaration.result.type = result;
        element.shader = std::make_unique<stage::ShaderInstance>();
        element.shader->declaration = &declaration;
        element.shader->result_size = result_size;
        element.as<miFunction>()->parameter_size = sizeof(Block);
        return element;
    }

    stage::RenderCommand command_;
    std::vector<miTag> members_;
    std::deque<Body> bodies_;
    std::deque<stage::ShaderCode> codes_;
    std::deque<stage::Declaration> declarations_;
};

inline miColor& color(void* result) {
    return *static_cast<miColor*>(result);
}

} // namespace stage_test
