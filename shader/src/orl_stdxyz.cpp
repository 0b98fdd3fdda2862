/*
 * Coordinates for maps over three dimensions: the host's marble, wood or noise lies in a space that it moves,
 * turns and scales at will. Each thread keeps the transform of the last call, since sines cost more than the
 * rest and placements are rarely animated by shaders. Relies on the shading context for points and
 * footprints.
 */
#include "orl_stdxyz.h"
#include "numeric.h"
#include "orlshaderapi.h"
#include "vectors.h"

namespace orl {

// ---- mathematics

namespace xyz {

namespace {

bool same(const miVector& a, const miVector& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

// A rotation in the plane from a towards b.
struct Turn {
    explicit Turn(miScalar angle) : sine(numeric::sin(angle)), cosine(numeric::cos(angle)) {}
    void operator()(miScalar& a, miScalar& b) const {
        const miScalar first = a;
        a = first * cosine - b * sine;
        b = first * sine + b * cosine;
    }
    miScalar sine, cosine;
};

} // namespace

bool operator==(const Placement& a, const Placement& b) {
    return same(a.offset, b.offset) && same(a.angle, b.angle) && same(a.tiling, b.tiling);
}

Transform transform_of(const Placement& placement) {
    Transform result{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, placement.offset};
    const Turn about_x(placement.angle.x), about_y(placement.angle.y), about_z(placement.angle.z);
    for (miVector* const v : {&result.axis[0], &result.axis[1], &result.axis[2], &result.origin}) {
        about_x(v->y, v->z);
        about_y(v->z, v->x);
        about_z(v->x, v->y);
        *v = {v->x * placement.tiling.x, v->y * placement.tiling.y, v->z * placement.tiling.z};
    }
    return result;
}

miVector transformed_vector(const Transform& transform, const miVector& v) {
    const miVector(&axis)[3] = transform.axis;
    return {v.x * axis[0].x + v.y * axis[1].x + v.z * axis[2].x,
            v.x * axis[0].y + v.y * axis[1].y + v.z * axis[2].y,
            v.x * axis[0].z + v.y * axis[1].z + v.z * axis[2].z};
}

miVector transformed_point(const Transform& transform, const miVector& point) {
    return sum(transformed_vector(transform, point), transform.origin);
}

} // namespace xyz

namespace {

using context::Selector;

// ---- thread data

struct XyzGenCache {
    miBoolean valid;
    xyz::Placement placement; // what the rest was made from
    xyz::Transform transform;
    miVector axis[3]; // of the transform, of length 1
    miInteger space;  // texture space of the last look-up
    context::ChannelCache channel;
    miInteger reserved[6];
};
static_assert(offsetof(XyzGenCache, space) == 124 && sizeof(XyzGenCache) == 168);

void place(miState* state, const XyzParams* params, XyzGenCache& cache) {
    const xyz::Placement wanted{eval(state, params->offset), eval(state, params->angle),
                                eval(state, params->tiling)};
    if (cache.valid && cache.placement == wanted)
        return;
    cache.placement = wanted;
    cache.transform = xyz::transform_of(wanted);
    for (int k = 0; k < 3; ++k) {
        cache.axis[k] = cache.transform.axis[k];
        mi_vector_normalize(&cache.axis[k]); // leaves a null vector alone
    }
    cache.valid = miTRUE;
}

// ---- sources

// World coordinates are used as they are: a pattern stands still while the object moves through it. Taking
// them on into the object would give the object's own coordinates once more.
miVector source_point(miState* state, const XyzParams* params, Selector selector, XyzGenCache& cache) {
    miVector point{0, 0, 0};
    switch (eval(state, params->coordSource)) {
    case xyz_object:
        return context::object_point(state, selector);
    case xyz_map_channel:
    case xyz_vertex_color:
        context::texture_vertex(state, eval(state, params->mapChannel), cache.channel, point);
        cache.space = cache.channel.space;
        return point;
    case xyz_world:
        return context::world_point(state, selector);
    default:
        return point;
    }
}

miVector source_width(miState* state, const XyzParams* params, Selector selector, XyzGenCache& cache) {
    switch (eval(state, params->coordSource)) {
    case xyz_object:
        return context::object_width(state, selector);
    case xyz_map_channel:
    case xyz_vertex_color:
        return context::texture_width(state, eval(state, params->mapChannel), cache.channel);
    case xyz_world:
        return context::world_width(state, selector);
    default:
        return {0, 0, 0};
    }
}

// Deliberate: a width turns as any vector does, so that it may come out negative; the maps take its size.
miVector filter_width(miState* state, const XyzParams* params, Selector selector, XyzGenCache& cache) {
    const miVector w = xyz::transformed_vector(cache.transform, source_width(state, params, selector, cache));
    const miScalar blur = eval(state, params->blur), offset = eval(state, params->blurOffset);
    return {w.x * blur + offset, w.y * blur + offset, w.z * blur + offset};
}

// What a call works with: the thread's cache, or one for this call where the renderer keeps none.
class Cache {
public:
    explicit Cache(miState* state) : kept_(thread_data<XyzGenCache>(state)) {}
    XyzGenCache& operator*() { return kept_ ? *kept_ : passing_; }

private:
    XyzGenCache* kept_;
    XyzGenCache passing_{};
};

miVector generate(miState* state, const XyzParams* params, Selector selector, XyzGenCache& cache) {
    place(state, params, cache);
    return xyz::transformed_point(cache.transform, source_point(state, params, selector, cache));
}

void end_instance(miState* state, const XyzParams* params) {
    if (params != nullptr)
        delete_thread_data(state);
}

} // namespace

// ---- generator

ORL_VERSION(orl_stdxyz, orl_base_XYZGenerator);

ORL_EXPORT miBoolean orl_base_XYZGenerator(XyzGeneratorResult* result, miState* state,
                                           const XyzParams* params, const GeneratorRequest* request) {
    const Selector selector = request ? request->selector : context::selector_of(state);
    Cache own(state);
    XyzGenCache& cache = *own;
    *result = {generate(state, params, selector, cache), 1.0f};
    XyzDerivRecord* const record = requested<XyzDerivRecord>(state);
    if (record == nullptr)
        return miTRUE;
    if (record->flags & XyzDerivRecord::widths)
        record->width = filter_width(state, params, selector, cache);
    if (record->flags & XyzDerivRecord::axes)
        for (int k = 0; k < 3; ++k)
            record->axis[k] = cache.axis[k];
    return miTRUE;
}

ORL_EXPORT void orl_base_XYZGenerator_exit(miState* state, const XyzParams* params) {
    end_instance(state, params);
}

// ---- coordinates to connect to

ORL_VERSION(orl_stdxyz, orl_XYZCoordinate);

ORL_EXPORT miBoolean orl_XYZCoordinate(XyzCoordinateResult* result, miState* state, const XyzParams* params) {
    const Selector selector = context::selector_of(state);
    Cache own(state);
    result->point = generate(state, params, selector, *own);
    result->width = filter_width(state, params, selector, *own);
    return miTRUE;
}

ORL_EXPORT void orl_XYZCoordinate_exit(miState* state, const XyzParams* params) {
    end_instance(state, params);
}

} // namespace orl
