#include "render/photon_path.h"

#include <cmath>
#include <limits>

#include "kit/color.h"
#include "kit/message.h"
#include "render/renderer.h"
#include "render/shading.h"
#include "render/vector.h"

namespace stage {

namespace {

constexpr double far_away = std::numeric_limits<double>::infinity();

// The depths of the options bound a path; this bounds shaders that send more than one photon on, and hulls
// without end.
constexpr std::uint32_t most_rays = 10000;

constexpr miUint1 casts = 1, receives = 2;

bool is_finite(const miVector& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// Once for each shader.
void report(std::atomic<bool> ShaderCode::*flag, const char* text) {
    const Element* shader = running_shader();
    ShaderCode* code = shader && shader->shader ? shader->shader->code : nullptr;
    if (code && !(code->*flag).exchange(true, std::memory_order_relaxed))
        send_message(MessageLevel::error, "%s: shader \"%s\" (%s, %s)", text, code->name.c_str(),
                     shader->name.c_str(), shader->place.text().c_str());
}

bool is_usable(const miColor& energy, const miVector& v) {
    if (std::isfinite(energy.r) && std::isfinite(energy.g) && std::isfinite(energy.b) && is_finite(v))
        return true;
    report(&ShaderCode::reported_bad_value,
           "a photon with NaN or infinite energy, point or direction is lost");
    return false;
}

PhotonPath* path_of(const miState* state) {
    return context_of(state).photon;
}

double way_to_point(const miState* state) {
    return length(state->point - state->org);
}

// The instance's mode for the photons of a pass; surfaces that no frame made do everything.
miUint1 mode_of(const PhotonPath& path, const miState* state) {
    const WorldInstance* instance = instance_of(state);
    if (!instance)
        return casts | receives;
    return path.pass == caustic_photons ? instance->caustic : instance->globillum;
}

bool may_go_on(const PhotonPath& path, const miState* state, int level, int depth) {
    return level < depth &&
           state->reflection_level + state->refraction_level < state->options->photon_trace_depth &&
           (mode_of(path, state) & casts);
}

PhotonWay way_after(PhotonWay way, miRay_type type) {
    switch (type) {
    case miPHOTON_REFLECT_SPECULAR:
    case miPHOTON_REFLECT_GLOSSY:
    case miPHOTON_TRANSMIT_SPECULAR:
    case miPHOTON_TRANSMIT_GLOSSY:
        return way == PhotonWay::direct ? PhotonWay::focused : way;
    case miPHOTON_TRANSPARENT:
        return way;
    default:
        return PhotonWay::spread;
    }
}

// Keeps what the path knows of the ray in flight while another one flies.
class NextRay {
public:
    NextRay(PhotonPath& path, PhotonWay way, double length)
        : path_(path), way_(path.way), length_(path.length) {
        path.way = way;
        path.length = length;
        ++path.rays;
    }
    ~NextRay() {
        path_.way = way_;
        path_.length = length_;
    }
    NextRay(const NextRay&) = delete;
    NextRay& operator=(const NextRay&) = delete;

private:
    PhotonPath& path_;
    PhotonWay way_;
    double length_;
};

bool has_rays_left(PhotonPath& path) {
    if (path.rays < most_rays)
        return true;
    path.endless = true;
    report(&ShaderCode::reported_depth, "photons go on without end; given up");
    return false;
}

miBoolean arrive(miColor* energy, RayFrame& frame);

// Casts the frame's ray, whose start and direction are set, and runs what it meets.
miBoolean follow(const miColor& energy, RayFrame& frame, double near) {
    const RayInFlight in_flight(frame);
    cast(frame, near, far_away, RayMask::trace);
    miColor arriving = energy;
    return arrive(&arriving, frame);
}

// A material without shaders only separates volumes.
miBoolean pass_hull(const miColor& energy, RayFrame& hull) {
    miState& state = hull.state;
    PhotonPath& path = *path_of(&state);
    if (!has_rays_left(path))
        return miFALSE;
    const NextRay next(path, path.way, path.length + way_to_point(&state));
    RayFrame& frame = new_ray(&state, state.type);
    frame.state.org = state.point;
    frame.state.volume = volume_behind(&state);
    return follow(energy, frame, start_distance(&state));
}

// The volume decides first: where it returns false, the photon went elsewhere or ended inside. Then the
// photon shader of the surface; a surface without one absorbs.
miBoolean arrive(miColor* energy, RayFrame& frame) {
    miState& state = frame.state;
    if (state.volume && !state.options->no_volume) {
        const miVector point = state.point;
        const double dist = state.dist;
        void *const pri = state.pri, *const cache = state.cache;
        if (!call_shader(energy, miSHADER_PHOTONVOL, &state, state.volume, nullptr))
            return miFALSE;
        state.point = point;
        state.dist = dist;
        state.pri = pri;
        state.cache = cache;
    }
    if (!state.pri)
        return miFALSE;
    const MaterialSlots slots(context_of(&state).world->scene, state.material);
    if (const miTag shader = slots[miSHADER_PHOTON])
        return call_shader(energy, miSHADER_PHOTON, &state, shader, nullptr);
    return slots[miSHADER_MATERIAL] ? miFALSE : pass_hull(*energy, frame);
}

// Rays of a pass that could leave nothing any more are not cast: no caustic comes behind a diffuse surface.
bool is_worth_following(const PhotonPath& path, PhotonWay way) {
    return path.pass != caustic_photons || way != PhotonWay::spread || path.keeps_volume;
}

struct Start {
    miTag volume;
    double near;
    int reflections, refractions;
};

miBoolean send_on(const miColor& energy, miState* state, miRay_type type, const miVector& dir,
                  const Start& start) {
    PhotonPath& path = *path_of(state);
    const miVector along = normalized(dir); // `dir` may be the state's own
    if (!is_usable(energy, along) || !is_usable(energy, state->point) || !has_rays_left(path))
        return miFALSE;
    const PhotonWay way = way_after(path.way, type);
    if (is_black(energy) || !is_worth_following(path, way))
        return miTRUE;
    const NextRay next(path, way, path.length + way_to_point(state));
    RayFrame& frame = new_ray(state, type);
    frame.state.org = state->point;
    frame.state.dir = along;
    frame.state.volume = start.volume;
    frame.state.reflection_level += start.reflections;
    frame.state.refraction_level += start.refractions;
    return follow(energy, frame, start.near);
}

// Power falls off with the square of the distance by itself: the photons part. A light may want another law.
miVector power_at(const PhotonPath& path, const miColor& energy, const miState* state) {
    float factor = 1.0f;
    if (path.exponent != 0.0f)
        factor = static_cast<float>(std::pow(path.length + way_to_point(state), double{path.exponent}));
    return {energy.r * factor, energy.g * factor, energy.b * factor};
}

miBoolean keep(PhotonPath& path, std::vector<KeptPhoton>& photons, const miColor& energy,
               const miState* state, const miVector& normal) {
    const miVector power = power_at(path, energy, state);
    if (!is_usable({power.x, power.y, power.z, 0.0f}, state->point))
        return miFALSE;
    if (!is_black(energy))
        photons.push_back({{state->point, normal, power}, path.emission});
    return miTRUE;
}

} // namespace

miBoolean send_photon_from_light(const miColor& energy, miState* state) {
    PhotonPath* path = path_of(state);
    const miVector along = normalized(state->dir);
    if (!path || !is_usable(energy, along) || !is_usable(energy, state->org) || !has_rays_left(*path))
        return miFALSE;
    const NextRay next(*path, PhotonWay::direct, 0.0);
    RayFrame& frame = new_ray(state, miPHOTON_LIGHT);
    frame.state.org = state->org;
    frame.state.dir = along;
    return follow(energy, frame, 0.0);
}

miBoolean send_photon_reflected(const miColor& energy, miState* state, miRay_type type, const miVector& dir) {
    const PhotonPath* path = path_of(state);
    if (!path || !may_go_on(*path, state, state->reflection_level, state->options->photon_reflection_depth))
        return miFALSE;
    return send_on(energy, state, type, dir, {state->volume, start_distance(state), 1, 0});
}

miBoolean send_photon_transmitted(const miColor& energy, miState* state, miRay_type type,
                                  const miVector& dir) {
    const PhotonPath* path = path_of(state);
    if (!path || !may_go_on(*path, state, state->refraction_level, state->options->photon_refraction_depth))
        return miFALSE;
    return send_on(energy, state, type, dir, {volume_behind(state), start_distance(state), 0, 1});
}

// Counts as a reflection. The surface ahead has no say.
miBoolean send_photon_scattered(const miColor& energy, miState* state, const miVector& dir) {
    const miOptions& options = *state->options;
    if (!path_of(state) || state->reflection_level >= options.photon_reflection_depth ||
        state->reflection_level + state->refraction_level >= options.photon_trace_depth)
        return miFALSE;
    return send_on(energy, state, miPHOTON_SCATTER_VOLUME, dir, {state->volume, 0.0, 1, 0});
}

miBoolean keep_surface_photon(const miColor& energy, const miState* state) {
    PhotonPath* path = path_of(state);
    if (!path || path->way == PhotonWay::direct || !(mode_of(*path, state) & receives))
        return miFALSE;
    const PhotonKinds kind = path->way == PhotonWay::focused ? caustic_photons : global_photons;
    return kind == path->pass ? keep(*path, path->surface, energy, state, state->normal_geom) : miFALSE;
}

miBoolean keep_volume_photon(const miColor& energy, const miState* state) {
    PhotonPath* path = path_of(state);
    return path && path->keeps_volume ? keep(*path, path->volume, energy, state, {}) : miFALSE;
}

} // namespace stage
