// What one frame renders: the instance graph flattened to leaf instances in internal space, its lights, its
// camera, and the ray casting structure over it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

#include "render/light_area.h"
#include "render/light_lists.h"
#include "scene/scene.h"

// Identifies a hit primitive completely: what miState::pri points to.
struct miRc_intersection {
    std::uint32_t instance = UINT32_MAX; // index into World::instances, UINT32_MAX for none
    std::uint32_t triangle = 0;          // of the instance's tessellation
    float u = 0.0f, v = 0.0f;            // weights of the second and third corner
    double distance = 0.0;               // along the ray, internal space
};

namespace stage {

struct Matrix {
    miMatrix m;
};

// The cofactors of the 3x3 part act on normals as the matrix acts on points, whatever its scale; times the
// determinant.
void set_cofactors(Matrix& cofactors, const Matrix& matrix);

enum class RayMask : std::uint32_t { // which instances a ray can meet
    primary = 1u << 0,               // visible
    shadow = 1u << 1,                // casts shadows
    trace = 1u << 2,                 // seen by secondary rays at all (probe, continue)
    reflection = 1u << 3,            // seen in reflections
    refraction = 1u << 4,            // seen through refraction
    transparency = 1u << 5,          // seen through transparency
    finalgather = 1u << 6,
};

// One piece of geometry at one place.
struct WorldInstance {
    miTag tag = miNULLTAG; // the leaf instance; instances reached by several paths have elements of their own
    miTag object_tag = miNULLTAG;
    const miObject* object = nullptr;
    const miTriangles* triangles = nullptr;
    Matrix to_internal; // object to internal space
    Matrix from_internal;
    Matrix motion_to_internal; // at time 1 of the shutter; equals to_internal when nothing moves
    Matrix normal_to_internal; // cofactors of to_internal: for normals, which it also scales
    bool mirrored = false;     // to_internal turns orientation around
    bool has_motion = false;
    std::uint32_t mask = 0;             // RayMask bits
    miUint1 face = 'a';                 // which sides are seen
    miUint1 caustic = 3, globillum = 3; // bit 0: sends photons on, bit 1: keeps them
    bool receives_reflection = true, receives_refraction = true, receives_transparency = true;
    bool receives_finalgather = true, receives_shadow = true;
    miTag material = miNULLTAG;       // inherited; or:
    std::span<const miTag> materials; // inherited list, indexed by the labels of a tagged object
    bool override_material = false;
    std::span<const miTag> lights;        // light instances that its shaders are to ask
    bool casts_all_shadows = true;        // or only those of:
    std::span<const miTag> shadow_lights; // light instances
    int light = -1;                       // of the mesh of a visible light: its index in World::lights
    miUint label = 0;
    [[nodiscard]] miTag material_of(std::uint32_t triangle) const;
    [[nodiscard]] bool casts_shadow_of(miTag light_instance) const {
        return casts_all_shadows ||
               std::find(shadow_lights.begin(), shadow_lights.end(), light_instance) != shadow_lights.end();
    }
};

struct WorldLight {
    miTag instance = miNULLTAG; // a leaf, as WorldInstance::tag
    miTag placed = miNULLTAG;   // the instance in the scene
    miTag light_tag = miNULLTAG;
    const miLight* light = nullptr;
    const LightArea* area = nullptr;
    Matrix to_internal; // light to internal space
    Matrix from_internal;
    Matrix motion_to_internal; // at time 1 of the shutter
    bool has_motion = false;
};

// A place that moves, at a time of the shutter: matrices are blended, as the rays see them. `blended` is
// memory for that.
inline const Matrix& blend(const Matrix& start, const Matrix& at_one, float time, Matrix& blended) {
    for (std::size_t i = 0; i < 16; ++i)
        blended.m[i] = start.m[i] + (at_one.m[i] - start.m[i]) * time;
    return blended;
}

// The same for an instance or a light, which may stand still.
template <class Placed> const Matrix& place_at(const Placed& placed, float time, Matrix& blended) {
    if (!(time > 0.0f) || !placed.has_motion)
        return placed.to_internal;
    return blend(placed.to_internal, placed.motion_to_internal, time, blended);
}

struct EmbreeScene; // render/embree_scene.h, the only place that includes Embree

class World {
public:
    // Flattens the graph below `command.root` and builds the ray casting structure. Internal space is the
    // camera's if `camera_space` is set or the options say so. Throws SceneError.
    World(Scene& scene, const RenderCommand& command, bool camera_space);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    Scene& scene;
    miTag camera_instance = miNULLTAG;
    const miCamera* camera = nullptr;
    const miOptions* options = nullptr;
    std::span<const miTag> state_shaders; // of the options, in the order of their calls
    Matrix world_to_internal, internal_to_world;
    Matrix camera_to_internal, internal_to_camera;
    std::vector<WorldInstance> instances;
    std::vector<WorldLight> lights;
    std::vector<miTag> light_tags;    // instances of `lights`, in order
    bool moving = false;              // something moves and the options ask for motion
    miTag first_moving = miNULLTAG;   // instance that the scene sets in motion, whatever the options say
    bool camera_moves = false;        // while the shutter is open:
    Matrix camera_motion_to_internal; // at time 1
    bool all_block = true;            // what casts shadows lets no light through
    [[nodiscard]] bool shutter_opens() const { return options->motion && options->shutter > 0.0f; }

    [[nodiscard]] const WorldInstance* find_instance(miTag tag) const;
    [[nodiscard]] const WorldLight* find_light(miTag instance) const;

    // Nearest hit with near < distance < far, among instances with a bit of `mask`. `time` from 0 to the
    // shutter's closing. With `face` 'f' or 'b' only fronts or backs are met.
    bool intersect(const miVector& org, const miVector& dir, double near, double far, float time,
                   std::uint32_t mask, miRc_intersection& hit, int face = 'a') const;

    // Length of a ray along `dir`, normalised, that starts well before everything in the scene and ends at
    // `point`: the way of light that comes from no place.
    [[nodiscard]] double way_from_afar(const miVector& point, const miVector& dir) const;
    // Whether there is a hit: what `intersect` returns, sooner.
    [[nodiscard]] bool occluded(const miVector& org, const miVector& dir, double near, double far, float time,
                                std::uint32_t mask) const;

    // Bytes that the ray casting structure takes.
    [[nodiscard]] std::size_t memory() const;

private:
    friend class Flattener;
    void measure();
    [[nodiscard]] float time_in_shutter(float time) const;

    std::unique_ptr<EmbreeScene> embree_;
    std::deque<LightArea> light_areas_;
    std::deque<LightMesh> light_meshes_;
    LightLists light_lists_;
    miVector center_{};   // of the scene, internal space
    double radius_ = 1.0; // of a ball about it that holds all things, lights and the camera
    std::vector<std::uint32_t> instance_index_, light_index_; // [tag], UINT32_MAX for none
};

} // namespace stage
