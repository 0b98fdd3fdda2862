// Flattens the instance graph of a frame.
#pragma once

#include <optional>
#include <unordered_set>
#include <vector>

#include "render/affine.h"
#include "render/world.h"

namespace stage {

inline constexpr miUint1 flag_inherits = 4; // of an instance, which leaves it to what it contains

// What an instance hands down to what it contains.
struct Inherited {
    miTag instance = miNULLTAG, above = miNULLTAG; // itself, and that of the group that it is in
    Affine to_local, to_world,
        motion_to_world; // world to local space and back, and back at the end of the shutter
    miTag material = miNULLTAG;
    int material_count = 0; // of an array of materials, 0 for a single one
    bool override_material = false;
    miTag light_list = miNULLTAG;
    int light_count = 0;
    bool exclusive_lights = false;
    miTag shadow_light_list = miNULLTAG;
    int shadow_light_count = 0;
    bool exclusive_shadow_lights = false;
    miUint1 visible = flag_inherits, shadow = flag_inherits, trace = flag_inherits,
            reflection = flag_inherits, refraction = flag_inherits, transparency = flag_inherits,
            finalgather = flag_inherits, caustic = flag_inherits, globillum = flag_inherits;
    miUint1 face = 0;
    bool no_motion = false;
};

// Walks the graph and fills the world's lists. Throws SceneError.
class Flattener {
public:
    Flattener(World& world, const RenderCommand& command) : world_(world), command_(command) {}

    void run();
    void find_light_lists(); // once the world has its lights
    [[nodiscard]] const std::optional<Inherited>& camera() const { return camera_; }
    [[nodiscard]] const std::vector<Inherited>& instance_spaces() const { return instance_spaces_; }
    [[nodiscard]] const std::vector<Inherited>& light_spaces() const { return light_spaces_; }
    [[nodiscard]] bool moves(const Inherited& in) const { return world_.shutter_opens() && in_motion(in); }

private:
    // Whatever the options say.
    static bool in_motion(const Inherited& in) { return !(in.motion_to_world == in.to_world); }
    void note_motion(miTag instance, bool moves);
    void visit(miTag tag, const Inherited& parent, int depth);
    void visit_group(const Element& group, const Inherited& in, int depth);
    void add_object(Element& instance, const Element& object, const Inherited& in);
    void add_light(Element& instance, const Element& light, const Inherited& in);
    void add_light_mesh(const WorldLight& light, const Inherited& in);
    void check_labels(const WorldInstance& w, const Element& instance, const Element& object) const;
    Element& leaf_for_path(Element& instance, const Inherited& in);

    World& world_;
    const RenderCommand& command_;
    std::optional<Inherited> camera_;
    std::vector<Inherited> instance_spaces_, light_spaces_; // beside World::instances and World::lights
    std::unordered_set<miTag> reached_;
};

} // namespace stage
