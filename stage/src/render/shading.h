// Running shaders and casting rays: what the interface's call and trace functions are made of.
#pragma once

#include "render/context.h"

namespace stage {

inline constexpr int rasterizer = 'r'; // miOptions::scanline

// Runs the shader instance `tag` on the state: init on first call, version of the call's type in the state,
// user pointer and running shader restored after. Lists (next_function) are run in order for every type but
// lens shaders, whose next one runs when the first traces its eye ray. False for a null tag.
// Phenomena run the root that belongs to the type, materials the shader in the type's slot.
miBoolean call_shader(void* result, miShader_type type, miState* state, miTag tag, void* arg);

// Runs the shader that a ray calls for, a lens, material, environment or volume shader, between the state
// shaders' calls for it.
miBoolean call_ray_shader(miColor* result, miShader_type type, miState* state, miTag tag);

// Runs the state shaders of the options.
void call_state_shaders(miColor* result, miState* state, miState_call call,
                        miShader_type shader = miSHADER_STATE);

// The shader instance that this thread runs, its init included; null for none.
const Element* running_shader();

inline miTag slot_of(const miMaterial& material, miShader_type type) {
    switch (type) {
    case miSHADER_SHADOW:
        return material.shadow;
    case miSHADER_ENVIRONMENT:
        return material.environment;
    case miSHADER_VOLUME:
        return material.volume;
    case miSHADER_PHOTON:
        return material.photon;
    case miSHADER_PHOTONVOL:
        return material.photonvol;
    case miSHADER_DISPLACE:
        return material.displace;
    case miSHADER_LIGHTMAP:
        return material.lightmap;
    case miSHADER_CONTOUR:
        return material.contour;
    default:
        return material.shader;
    }
}

// The slots of a material, found once. Inline: every hit asks for several.
class MaterialSlots {
public:
    MaterialSlots(const Scene& scene, miTag material)
        : tag_(material), element_(scene.database.find(material)) {
        if (!element_)
            return;
        is_material_ = element_->type == miSCENE_MATERIAL;
        const Element* holder = element_;
        if (element_->type == miSCENE_FUNCTION && element_->shader && !element_->shader->code)
            holder = scene.database.find(element_->shader->root);
        if (holder && holder->type == miSCENE_MATERIAL)
            record_ = holder->as<miMaterial>();
    }

    // The shader for a type of call, or null.
    miTag operator[](miShader_type type) const {
        return record_ ? slot_of(*record_, type) : element_ ? own_slot(type) : miNULLTAG;
    }
    // Not a shader or a phenomenon that stands for a material.
    [[nodiscard]] bool is_material() const { return is_material_; }
    // Lets nothing through, whatever its shaders say.
    [[nodiscard]] bool is_opaque() const { return record_ && record_->opaque; }

private:
    [[nodiscard]] miTag own_slot(miShader_type type) const;

    miTag tag_;
    const Element* element_;
    const miMaterial* record_ = nullptr;
    bool is_material_ = false;
};

// The shader that a material has for a type of call, or null. `material` may also be a shader or a phenomenon
// that stands for a material: then it is itself the material shader, and acts in other slots only if its
// declaration says so.
inline miTag material_slot(const Scene& scene, miTag material, miShader_type type) {
    return MaterialSlots(scene, material)[type];
}

// The value of a connected parameter of the running shader; valid until that shader returns.
void* evaluate_parameter(miState* state, void* param);

// A frame for a ray cast from `parent`: a copy of its state with parent and child links set, no intersection.
// The frame of the parent's last ray is used again, so that a loop of rays needs no more memory than one; it
// stays valid until the parent casts again or its shader returns.
RayFrame& new_ray(miState* parent, miRay_type type);

// Marks a ray as being in flight, so that shaders below it that cast from its parent's state leave it alone.
class RayInFlight {
public:
    explicit RayInFlight(RayFrame& frame) : frame_(frame) { frame.in_flight = true; }
    ~RayInFlight();
    RayInFlight(const RayInFlight&) = delete;
    RayInFlight& operator=(const RayInFlight&) = delete;

private:
    RayFrame& frame_;
};

// Which instances a ray of this type can meet.
RayMask mask_of(miRay_type type);

// The material lets nothing through, whatever its shaders say.
inline bool is_opaque(const Scene& scene, miTag material) {
    return MaterialSlots(scene, material).is_opaque();
}

// The volume that a ray straight through the state's surface comes into: that of the material where it
// enters, where it leaves that which the ray that entered the object came from.
miTag volume_behind(const miState* state);

// What the state that cast a ray takes over from it: label, point, normal, distance and motion. Deliberate:
// only from eye rays and continued ones, which stand for the state's own ray. Shaders that send several
// reflected or refracted rays in a loop find the point and normal that they start from unchanged.
void hand_back(miState* state, const miState& child);

// The time of the state's ray, from 0 to the shutter's closing; 0 when nothing moves. Motion vectors and
// motion transforms tell where things are at time 1.
float shutter_time(const miState* state);

// Finds the nearest hit of the frame's ray (org, dir) and sets its intersection. Distances count from org.
bool cast(RayFrame& frame, double near, double far, RayMask mask);

// Fills everything of the frame's state that belongs to an intersection from its `hit` (point, normals,
// sides, textures, motion, derivatives, material, instance, label); without a hit the state of a ray that met
// nothing.
void set_intersection(RayFrame& frame, bool was_hit);

// Runs material or environment, then the volume of the ray, on a frame whose intersection is set.
miBoolean shade(miColor* result, RayFrame& frame);
// Only material or environment.
miBoolean shade_surface(miColor* result, RayFrame& frame);
// Only the volume of the ray, if it has one; `lit` is what the shader before it returned.
miBoolean apply_volume(miColor* result, miState* state, miBoolean lit);

// The same for a hit of the rasterizer, with everything that is seen through its surface before `far`.
miBoolean shade_layers(miColor* result, RayFrame& frame, double far);

// The state stands on a hit of the rasterizer, which itself puts behind the surface what is seen through it.
inline bool from_rasterizer(const miState* state) {
    return state->scanline && state->type == miRAY_EYE && state->options->scanline == rasterizer;
}

// Casts the eye ray (org, dir of the state) or calls the next lens shader, and leaves the hit in the state.
miBoolean continue_eye_ray(miColor* result, miState* state);

// Runs the whole eye ray of a sample: lens shaders first. The frame has the camera state of the sample;
// afterwards it tells of the primary hit. The caller's arena scope ends the memory of the sample's rays.
miBoolean shade_eye_sample(miColor* result, RayFrame& frame);

// Distance from which a ray that starts on the state's surface looks for hits, so that it does not meet its
// own start.
double start_distance(const miState* state);

} // namespace stage
