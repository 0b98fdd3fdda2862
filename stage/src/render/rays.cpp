// Rays: their states, casting, and what is called when they end.
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "kit/message.h"
#include "render/shading.h"
#include "render/vector.h"

namespace stage {

static_assert(offsetof(RayFrame, state) == 0);

namespace {

RayFrame* frame_of_child(const miState* parent) {
    return reinterpret_cast<RayFrame*>(parent->child);
}

// Where the camera's clipping planes cut the ray, as distances from its start.
miRange clip_range(const ThreadContext& context, const miState& state) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const miRange clip = context.world->camera->clip;
    if (clip.max <= clip.min)
        return {0.0f, infinity};
    const miScalar* m = internal_to_camera(context).m;
    // The camera looks along -z.
    const float depth = -(state.org.x * m[2] + state.org.y * m[6] + state.org.z * m[10] + m[14]);
    const float slope = -(state.dir.x * m[2] + state.dir.y * m[6] + state.dir.z * m[10]);
    if (slope <= 0.0f)
        return {0.0f, infinity};
    return {std::max(0.0f, (clip.min - depth) / slope), (clip.max - depth) / slope};
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

namespace {

// The normals of shadow rays are not turned.
bool enters(const miState& state) {
    return state.type == miRAY_SHADOW ? dot(state.normal_geom, state.dir) < 0.0f : !state.inv_normal;
}

} // namespace

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

// ---- eye rays ----

namespace {

// Lens shaders of a list; phenomena are taken apart, so that each lens shader finds its next one.
void collect_lenses(const Database& database, miTag tag, std::vector<miTag>& lenses) {
    constexpr std::size_t most = 64; // a longer list contains itself
    while (tag && lenses.size() < most) {
        const Element* element = database.find(tag);
        if (!element || element->type != miSCENE_FUNCTION || !element->shader)
            return;
        if (element->shader->code)
            lenses.push_back(tag);
        else
            collect_lenses(database, element->shader->lens ? element->shader->lens : element->shader->root,
                           lenses);
        tag = element->as<miFunction>()->next_function;
    }
}

// Leaves in `state` what its eye ray met.
void hand_back_hit(miState* state, const miState& child) {
    hand_back(state, child);
    state->normal_geom = child.normal_geom;
    state->inv_normal = child.inv_normal;
    state->dot_nd = child.dot_nd;
    state->pri = child.pri;
    state->cache = child.cache;
    state->instance = child.instance;
    state->material = child.material;
    std::copy(std::begin(child.bary), std::end(child.bary), state->bary);
    state->tex_list = child.tex_list;
    state->bump_x_list = child.bump_x_list;
    state->bump_y_list = child.bump_y_list;
    std::copy(std::begin(child.derivs), std::end(child.derivs), state->derivs);
}

bool same(const miVector& a, const miVector& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

// Scanline algorithms find what the camera itself sees; a ray that a lens shader has bent is traced.
miBoolean trace_eye_ray(miColor* result, RayFrame& frame) {
    miState& state = frame.state;
    ThreadContext& context = context_of(&state);
    ++context.statistics.eye_rays;
    *result = {};
    state.scanline = state.options->scanline != 0 && same(state.org, context.camera_org) &&
                     same(state.dir, context.camera_dir);
    const miRange range = clip_range(context, state);
    cast(frame, range.min, range.max, RayMask::primary);
    return from_rasterizer(&state) ? shade_layers(result, frame, range.max) : shade(result, frame);
}

// Once for each lens shader; `state` is the one that it was called with.
void report_bent_ray(const miState* state, const ThreadContext& context) {
    const miVector& org = state->parent ? state->parent->org : context.camera_org;
    const miVector& dir = state->parent ? state->parent->dir : context.camera_dir;
    const Element* lens = running_shader();
    if ((same(state->org, org) && same(state->dir, dir)) ||
        lens->shader->code->reported_bent_ray.exchange(true, std::memory_order_relaxed))
        return;
    send_message(
        MessageLevel::error,
        "%s: lens shader \"%s\" changes the rays, which the rasterizer cannot follow: they are traced; "
        "its declaration should say \"scanline off\"",
        lens->place.text().c_str(), lens->name.c_str());
}

// Once for each shader.
[[gnu::noinline]] void report_stray_eye_ray() {
    const Element* shader = running_shader();
    if (shader && !shader->shader->code->reported_stray_eye_ray.exchange(true, std::memory_order_relaxed))
        send_message(MessageLevel::error,
                     "%s: shader \"%s\" traces eye rays, which only a lens shader of the camera can: it is "
                     "used in another place",
                     shader->place.text().c_str(), shader->name.c_str());
}

} // namespace

void hand_back(miState* state, const miState& child) {
    state->label = child.label;
    state->point = child.point;
    state->normal = child.normal;
    state->dist = child.dist;
    state->motion = child.motion;
}

// Shaders at the end of an eye ray cannot start others: a lens shader that is used as a map would meet itself
// there without end.
miBoolean continue_eye_ray(miColor* result, miState* state) {
    ThreadContext& context = context_of(state);
    if (!context.in_lens) {
        report_stray_eye_ray();
        *result = {};
        return miFALSE;
    }
    if (state->options->scanline == rasterizer)
        report_bent_ray(state, context);
    const std::size_t position = context.lens_position;
    RayFrame& frame = new_ray(state, miRAY_EYE);
    const RayInFlight in_flight(frame);
    miBoolean lit;
    if (position < context.lenses.size()) {
        context.lens_position = position + 1;
        lit = call_ray_shader(result, miSHADER_LENS, &frame.state, context.lenses[position]);
        context.lens_position = position;
    } else {
        context.in_lens = false;
        lit = trace_eye_ray(result, frame);
        context.in_lens = true;
    }
    hand_back_hit(state, frame.state);
    return lit;
}

miBoolean shade_eye_sample(miColor* result, RayFrame& frame) {
    miState& state = frame.state;
    ThreadContext& context = context_of(&state);
    context.bad_shader = nullptr;
    context.camera_org = state.org;
    context.camera_dir = state.dir;
    context.lenses.clear();
    if (!state.options->no_lens)
        collect_lenses(context.world->scene.database, state.camera->lens, context.lenses);
    state.child = nullptr;
    context.lens_position = context.lenses.empty() ? 0 : 1;
    context.in_lens = !context.lenses.empty();
    call_state_shaders(result, &state, miSTATE_CALL_INIT);
    const miBoolean lit = context.in_lens ? call_ray_shader(result, miSHADER_LENS, &state, context.lenses[0])
                                          : trace_eye_ray(result, frame);
    call_state_shaders(result, &state, miSTATE_CALL_EXIT);
    return lit;
}

} // namespace stage
