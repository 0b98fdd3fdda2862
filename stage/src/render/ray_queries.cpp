// What rays meet.
#include <algorithm>

#include "render/embree_scene.h"

namespace stage {

namespace {

// The index of the instance that was hit: Embree's numbers of geometries on top, with or without an instance.
unsigned hit_instance(unsigned instance, unsigned geometry) {
    return instance == RTC_INVALID_GEOMETRY_ID ? geometry : instance;
}

// What the side filter of a ray needs beside Embree's own context, which comes first.
struct SideContext {
    RTCIntersectContext embree;
    const World* world;
    int face; // that the ray meets: 'f', 'b', or another for both
};

// Refuses hits on the side of a surface that its instance does not show or the ray does not meet.
void reject_hidden_side(const RTCFilterFunctionNArguments* arguments) {
    const auto* context = reinterpret_cast<const SideContext*>(arguments->context);
    for (unsigned i = 0; i < arguments->N; ++i) {
        if (arguments->valid[i] == 0)
            continue;
        const unsigned instance = hit_instance(RTCHitN_instID(arguments->hit, arguments->N, i, 0),
                                               RTCHitN_geomID(arguments->hit, arguments->N, i));
        // Ray and normal are both in object space here, where the front is the counterclockwise side.
        const float cosine =
            RTCRayN_dir_x(arguments->ray, arguments->N, i) * RTCHitN_Ng_x(arguments->hit, arguments->N, i) +
            RTCRayN_dir_y(arguments->ray, arguments->N, i) * RTCHitN_Ng_y(arguments->hit, arguments->N, i) +
            RTCRayN_dir_z(arguments->ray, arguments->N, i) * RTCHitN_Ng_z(arguments->hit, arguments->N, i);
        const miUint1 face = context->world->instances[instance].face;
        const auto is_hidden = [cosine](int side) {
            return (side == 'f' && cosine > 0.0f) || (side == 'b' && cosine < 0.0f);
        };
        if (is_hidden(face) || is_hidden(context->face))
            arguments->valid[i] = 0;
    }
}

void start_query(SideContext& context, const World& world, bool rejects_sides, int face = 'a') {
    rtcInitIntersectContext(&context.embree);
    context.world = &world;
    context.face = face;
    if (rejects_sides || face == 'f' || face == 'b')
        context.embree.filter = reject_hidden_side;
}

void set_ray(RTCRay& ray, const miVector& org, const miVector& dir, double near, double far, float time,
             std::uint32_t mask) {
    ray.org_x = org.x;
    ray.org_y = org.y;
    ray.org_z = org.z;
    ray.tnear = static_cast<float>(near);
    ray.dir_x = dir.x;
    ray.dir_y = dir.y;
    ray.dir_z = dir.z;
    ray.time = time;
    ray.tfar = static_cast<float>(far);
    ray.mask = mask;
    ray.id = 0;
    ray.flags = 0;
}

} // namespace

// From 0 to 1 at the shutter's closing.
float World::time_in_shutter(float time) const {
    return moving ? std::clamp(time / options->shutter, 0.0f, 1.0f) : 0.0f;
}

bool World::occluded(const miVector& org, const miVector& dir, double near, double far, float time,
                     std::uint32_t mask) const {
    SideContext context;
    start_query(context, *this, embree_->rejects_sides);
    RTCRay ray;
    set_ray(ray, org, dir, near, far, time_in_shutter(time), mask);
    rtcOccluded1(embree_->top, &context.embree, &ray);
    return ray.tfar < 0.0f;
}

bool World::intersect(const miVector& org, const miVector& dir, double near, double far, float time,
                      std::uint32_t mask, miRc_intersection& hit, int face) const {
    SideContext context;
    start_query(context, *this, embree_->rejects_sides, face);
    RTCRayHit ray;
    set_ray(ray.ray, org, dir, near, far, time_in_shutter(time), mask);
    ray.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    ray.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(embree_->top, &context.embree, &ray);
    if (ray.hit.geomID == RTC_INVALID_GEOMETRY_ID) {
        hit = {};
        return false;
    }
    hit.instance = hit_instance(ray.hit.instID[0], ray.hit.geomID);
    hit.triangle = ray.hit.primID;
    hit.u = ray.hit.u;
    hit.v = ray.hit.v;
    hit.distance = ray.ray.tfar;
    return true;
}

} // namespace stage
