// A small scene in which every shader of the built module finds its work: lights of the module's own, models
// for materials, coordinates for maps, an image, a tessellated object, the host's records. What the
// parameters hold comes from `Values`, so a fuzzer and a fixed sequence of cases share the scene.
//
//     scripted::World world(entries_of, values);      // the renderer was reset before
//     scripted::Actor& actor = world.add(shader);     // with everything that its parameters name
//     world.begin();                                  // all inits; end() is all exits
//     world.call(actor, result, state, argument);
#pragma once

#include "declaration.h"
#include "kit/image.h"
#include "orlshaders.h"
#include "state_builder.h"

#include <memory>
#include <string>
#include <vector>

namespace scripted {

// Where parameters get their values from.
class Values {
public:
    virtual ~Values() = default;
    virtual int below(int count) = 0; // 0 to count - 1
    virtual float real(const orl::decl::Field& field, int element, int component) = 0;
    virtual int integer(const orl::decl::Field& field) = 0;
    virtual int elements(const orl::decl::Field& array) = 0; // at most World::most_elements
    virtual bool wild() = 0;                                 // a parameter names anything of the scene
    virtual bool absent() { return false; }                  // a parameter names nothing
    virtual stage::ImageMemory image() { return {8, 8, miIMG_TYPE_RGBA, 4}; }
};

struct alignas(16) ActorBlock { // parameters, and arrays behind them
    unsigned char bytes[6144];
};

// What a module exports for a shader.
struct Entries {
    int (*version)();
    miBoolean (*run)(void* result, miState* state, void* params, void* argument);
    void (*init)(miState* state, void* params, miBoolean* wants_instances); // null without one
    void (*exit)(miState* state, void* params);                             // null without one
};

inline bool is_integral(const orl::decl::Field& field) {
    return field.type == miTYPE_BOOLEAN || field.type == miTYPE_INTEGER;
}
inline bool is_real(const orl::decl::Field& field) {
    return field.type == miTYPE_SCALAR || field.type == miTYPE_COLOR || field.type == miTYPE_VECTOR ||
           field.type == miTYPE_TRANSFORM;
}

struct Actor {
    const orl::decl::Shader* shader;
    Entries entries;
    ShaderInstance<ActorBlock> instance;
    miTag tag = miNULLTAG;
    std::size_t size = 0; // of the parameters

    Actor(const orl::decl::Shader& its, const Entries& its_entries)
        : shader(&its), entries(its_entries), instance(its.name, 0) {}
};

class World {
public:
    static constexpr int most_elements = 16;

    using Find = Entries (*)(const orl::decl::Shader& shader);

    World(Find find, Values& values);

    // An instance, with instances for what its parameters name.
    Actor& add(const orl::decl::Shader& shader);
    // An instance of the shader that runs such ones as this, with one of this in its slot: a material for a
    // model. Null when there is no special one.
    Actor* add_host(const orl::decl::Shader& shader);

    void begin();
    void end(); // also ends what the renderer ends: data of threads

    static miBoolean call(Actor& actor, void* result, miState* state, void* argument);

    // A state in the scene; the number varies point and directions.
    void place(State& state, int number) const;

    miTag light() const { return lamps_.front().tag; }
    Actor& lamp() { return *lamps_.front().actor; }

    static const orl::decl::Shader* find_shader(std::string_view name);
    static std::size_t result_size(const orl::decl::Shader& shader);

private:
    struct Lamp {
        miTag tag;
        Actor* actor;
    };

    Actor& add_at(const orl::decl::Shader& shader, int depth);
    miTag fill_with(const orl::decl::FieldList& fields, int depth); // a data block
    std::size_t fill(unsigned char* block, std::size_t room, const orl::decl::FieldList& fields, int depth);
    void fill_value(unsigned char* place, const orl::decl::Field& field, int element, int depth);
    void fill_array(unsigned char* block, std::size_t& used, const orl::decl::Field& field, int depth);
    miTag element_for(const orl::decl::Field& field, int depth);
    miTag shader_for(std::string_view slot, int depth);
    miTag material_around(miTag shader);
    void make_scene();
    void make_lights();
    void script_light();
    void script_rays();
    void script_images();
    void run_init(Actor& actor);
    void run_exit(Actor& actor);
    miBoolean sample(const Lamp& lamp, miColor* result, miVector* dir, miScalar* dot_nl, miState* state,
                     int sample) const;

    Find find_;
    Values& values_;
    const orl::decl::Shader* wanted_ = nullptr; // for its slot, whatever the values say
    std::vector<std::unique_ptr<Actor>> actors_;
    std::vector<Lamp> lamps_;
    std::vector<miTag> tags_; // everything that parameters may name
    std::vector<miTag> maps_;
    stage::ImageMemory image_, output_;
    std::vector<float> vertices_;
    std::vector<miUint> indices_{0, 1, 2, 0, 2, 3};
    miTriangles triangles_{};
    miTag image_tag_ = miNULLTAG, instance_ = miNULLTAG, gizmo_ = miNULLTAG, group_ = miNULLTAG,
          surface_ = miNULLTAG, scene_data_ = miNULLTAG, camera_data_ = miNULLTAG, framebuffers_ = miNULLTAG,
          text_ = miNULLTAG;
    int choice_ = 0; // of the ways of a photon
};

} // namespace scripted
