// Eye rays: lens shaders, clipping planes, and what a lens shader learns of the hit.
#include <algorithm>
#include <limits>

#include "kit/message.h"
#include "render/shading.h"

namespace stage {

namespace {

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
    if ((same(state->org, org) && same(state->dir, dir)) || !is_first(lens->shader->code->reported_bent_ray))
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
    if (shader && is_first(shader->shader->code->reported_stray_eye_ray))
        send_message(MessageLevel::error,
                     "%s: shader \"%s\" traces eye rays, which only a lens shader of the camera can: it is "
                     "used in another place",
                     shader->place.text().c_str(), shader->name.c_str());
}

} // namespace

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
