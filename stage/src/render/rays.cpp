// Rays: their states, casting, and what is called when they end.
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "render/shading.h"
#include "render/vector.h"

namespace stage {

static_assert(offsetof(RayFrame, state) == 0);

namespace {

RayFrame* frame_of_child(const miState* parent) {
    return reinterpret_cast<RayFrame*>(parent->child);
}

// A material without a shader only separates volumes: the ray goes on, in the volume behind the surface.
miBoolean pass_hull(miColor* result, RayFrame& hull) {
    RayFrame& frame = new_ray(&hull.state, hull.state.type);
    const RayInFlight in_flight(frame);
    frame.state.org = hull.state.point;
    frame.state.volume = volume_behind(&hull.state);
    cast(frame, start_distance(&hull.state), std::numeric_limits<double>::infinity(),
         mask_of(hull.state.type));
    return shade(result, frame);
}

// The light's own shader gives its colour: the type of the ray tells it that it is looked at, not asked to
// light. A light that does not answer is not there.
miBoolean shade_light(miColor* result, RayFrame& frame, const WorldLight& light) {
    miState& state = frame.state;
    const miTag outer = std::exchange(state.light_instance, light.instance);
    state.refraction_volume = state.volume;
    const miBoolean lit = call_shader(result, miSHADER_LIGHT, &state, light.light->shader, nullptr);
    state.light_instance = outer;
    if (!lit)
        return pass_hull(result, frame);
    result->a = 1.0f;
    return miTRUE;
}

miBoolean shade_hit(miColor* result, RayFrame& frame) {
    miState& state = frame.state;
    const World& world = *context_of(&state).world;
    if (const int light = world.instances[frame.hit.instance].light; light >= 0)
        return shade_light(result, frame, world.lights[static_cast<std::size_t>(light)]);
    const Scene& scene = world.scene;
    const MaterialSlots slots(scene, state.material);
    const miTag shader = slots[miSHADER_MATERIAL];
    if (!shader)
        return pass_hull(result, frame);
    // Not the shader of a phenomenon: others may follow it in a list.
    const miBoolean lit =
        call_ray_shader(result, miSHADER_MATERIAL, &state, slots.is_material() ? shader : state.material);
    if (is_opaque(scene, state.material))
        result->a = 1.0f;
    return lit;
}

// The normals of shadow rays are not turned.
bool enters(const miState& state) {
    return state.type == miRAY_SHADOW ? dot(state.normal_geom, state.dir) < 0.0f : !state.inv_normal;
}

} // namespace

RayMask mask_of(miRay_type type) {
    switch (type) {
    case miRAY_EYE:
        return RayMask::primary;
    case miRAY_SHADOW:
        return RayMask::shadow;
    case miRAY_REFLECT:
        return RayMask::reflection;
    case miRAY_REFRACT:
        return RayMask::refraction;
    case miRAY_TRANSPARENT:
        return RayMask::transparency;
    case miRAY_FINALGATHER:
        return RayMask::finalgather;
    default:
        return RayMask::trace;
    }
}

miTag volume_behind(const miState* state) {
    if (enters(*state))
        return state->refraction_volume;
    for (const miState* s = state->parent; s; s = s->parent)
        if (s->instance == state->instance && enters(*s))
            return s->volume;
    return miRAY_PHOTON(state->type) ? miNULLTAG : context_of(state).world->camera->volume;
}

RayFrame& new_ray(miState* parent, miRay_type type) {
    RayFrame* frame = frame_of_child(parent);
    miState* displaced = nullptr;
    if (!frame || frame->in_flight) {
        displaced = parent->child;
        frame =
            static_cast<RayFrame*>(context_of(parent).arena.allocate(sizeof(RayFrame), alignof(RayFrame)));
    }
    copy_state(frame->state, *parent);
    frame->state.parent = parent;
    frame->state.child = nullptr;
    frame->state.type = type;
    if (type != miRAY_EYE)
        frame->state.scanline = 0;
    frame->hit = {};
    frame->in_flight = false;
    frame->displaced = displaced;
    frame->caster = parent;
    parent->child = &frame->state;
    return *frame;
}

// Also puts right what shaders below have left as the caster's child, which ended with them.
RayInFlight::~RayInFlight() {
    frame_.in_flight = false;
    frame_.caster->child = frame_.displaced ? frame_.displaced : &frame_.state;
}

bool cast(RayFrame& frame, double near, double far, RayMask mask) {
    ThreadContext& context = context_of(&frame.state);
    const FamilyScope scope(context.statistics, Family::ray_casting);
    const World& world = *context.world;
    const bool was_hit =
        world.intersect(frame.state.org, frame.state.dir, near, far, shutter_time(&frame.state),
                        static_cast<std::uint32_t>(mask), frame.hit,
                        frame.state.type == miRAY_SHADOW ? 'a' : frame.state.face);
    set_intersection(frame, was_hit);
    return was_hit;
}

// Single precision places a point some units of the last digit beside its surface; the distance grows with
// the coordinates. A state that stands on no surface, or whose shader has cleared the cache, can meet
// anything.
double start_distance(const miState* state) {
    if (!state->cache || !hit_of(state))
        return 0.0;
    const double largest = std::max({std::fabs(static_cast<double>(state->point.x)),
                                     std::fabs(static_cast<double>(state->point.y)),
                                     std::fabs(static_cast<double>(state->point.z)), 1e-3});
    return largest * 1e-5;
}

miBoolean shade_surface(miColor* result, RayFrame& frame) {
    miState& state = frame.state;
    if (state.pri)
        return shade_hit(result, frame);
    const miTag environment = state.environment ? state.environment : state.camera->environment;
    return call_ray_shader(result, miSHADER_ENVIRONMENT, &state, environment);
}

miBoolean apply_volume(miColor* result, miState* state, miBoolean lit) {
    if (!state->volume || state->options->no_volume)
        return lit;
    // Volume shaders need not put back what they clear before they ask lights: the hit is still the ray's.
    void *const pri = state->pri, *const cache = state->cache;
    lit = call_ray_shader(result, miSHADER_VOLUME, state, state->volume) || lit;
    state->pri = pri;
    state->cache = cache;
    return lit;
}

miBoolean shade(miColor* result, RayFrame& frame) {
    const miBoolean lit = shade_surface(result, frame);
    return apply_volume(result, &frame.state, lit);
}

void hand_back(miState* state, const miState& child) {
    state->label = child.label;
    state->point = child.point;
    state->normal = child.normal;
    state->dist = child.dist;
    state->motion = child.motion;
}

} // namespace stage
