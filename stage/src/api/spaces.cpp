// Conversions of points, vectors and normals between internal space and the other spaces.
//
// Points take the whole matrix, vectors its 3x3 part, normals the transposed 3x3 part of the matrix that
// leads back: a normal stays perpendicular to the surface under any scaling. Nothing is normalised.
#include "api/spaces.h"

#include "api/api.h"
#include "kit/matrix.h"
#include "kit/message.h"
#include "render/camera.h"
#include "render/shading.h"

namespace stage {

namespace {

constexpr Matrix unit = {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};
constexpr Space internal_space = {unit.m, unit.m};

const WorldLight* current_light(const miState* state) {
    const World* world = world_of(state);
    return world ? world->find_light(state->light_instance) : nullptr;
}

// Of an instance or a light. Ray casting blends the elements of the matrices, so this does too.
template <class Placed> Space space_of(const Placed& placed, const miState* state, MovingSpace& storage) {
    const float time = placed.has_motion ? shutter_time(state) : 0.0f;
    if (time > 0.0f) {
        blend(placed.to_internal, placed.motion_to_internal, time, storage.from);
        if (matrix_invert(storage.to.m, storage.from.m))
            return {storage.to.m, storage.from.m};
    }
    return {placed.from_internal.m, placed.to_internal.m};
}

} // namespace

Space world_space(const miState* state) {
    const World* world = world_of(state);
    return world ? Space{world->internal_to_world.m, world->world_to_internal.m} : internal_space;
}

Space camera_space(const miState* state) {
    if (!world_of(state))
        return internal_space;
    const ThreadContext& context = context_of(state);
    return {internal_to_camera(context).m, camera_to_internal(context).m};
}

Space light_space(const miState* state, MovingSpace& storage) {
    const WorldLight* light = current_light(state);
    return light ? space_of(*light, state, storage) : internal_space;
}

Space object_space(const miState* state, MovingSpace& storage) {
    const WorldInstance* instance = current_instance(state);
    return instance ? space_of(*instance, state, storage) : internal_space;
}

namespace {

void tell_once(std::atomic<bool>& told, const Element& light, const char* what) {
    if (is_first(told))
        send_message(MessageLevel::warning, "%s: light \"%s\": its shader measures %s",
                     light.place.text().c_str(), light.name.c_str(), what);
}

// The instance alone places and turns a light's space. A shader that measures points in it misses an
// `origin`, though the rays start there, and a spot's `direction`: told once for each light.
Space light_space_of_points(const miState* state, MovingSpace& storage) {
    const WorldLight* light = current_light(state);
    if (!light)
        return internal_space;
    Element& element = *world_of(state)->scene.database.find(light->light_tag);
    const miVector &origin = light->light->origin, &direction = light->light->direction;
    if (origin.x != 0.0f || origin.y != 0.0f || origin.z != 0.0f)
        tell_once(element.origin_missed, element,
                  "from where the instance stands and does not see the origin, which is not 0: place the "
                  "instance there instead");
    if (light->light->type == miLIGHT_SPOT && direction.z > -0.9999f)
        tell_once(element.direction_missed, element,
                  "along -z of the instance and does not see the direction, which is another: turn the "
                  "instance instead");
    return space_of(*light, state, storage);
}

miVector normal_to(const miVector& v, const Space& space) {
    return transform_vector_transposed(v, space.from);
}

miVector normal_from(const miVector& v, const Space& space) {
    return transform_vector_transposed(v, space.to);
}

} // namespace

} // namespace stage

using namespace stage;

STAGE_API void mi_point_to_world(miState* state, miVector* r, miVector* v) {
    *r = transform_point(*v, world_space(state).to);
}

STAGE_API void mi_point_to_camera(miState* state, miVector* r, miVector* v) {
    *r = transform_point(*v, camera_space(state).to);
}

STAGE_API void mi_point_to_object(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = transform_point(*v, object_space(state, moving).to);
}

STAGE_API void mi_point_to_light(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = transform_point(*v, light_space_of_points(state, moving).to);
}

// Pixels from the lower left corner, z 0. A point in the eye's own plane has no picture and gives 0.
STAGE_API void mi_point_to_raster(miState* state, miVector* r, miVector* v) {
    const miVector point = transform_point(*v, camera_space(state).to);
    if (!Projection(*state->camera).raster(point, *r))
        *r = {0.0f, 0.0f, 0.0f};
}

STAGE_API void mi_point_from_world(miState* state, miVector* r, miVector* v) {
    *r = transform_point(*v, world_space(state).from);
}

STAGE_API void mi_point_from_camera(miState* state, miVector* r, miVector* v) {
    *r = transform_point(*v, camera_space(state).from);
}

STAGE_API void mi_point_from_object(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = transform_point(*v, object_space(state, moving).from);
}

STAGE_API void mi_point_from_light(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = transform_point(*v, light_space_of_points(state, moving).from);
}

STAGE_API void mi_vector_to_world(miState* state, miVector* r, miVector* v) {
    *r = transform_vector(*v, world_space(state).to);
}

STAGE_API void mi_vector_to_camera(miState* state, miVector* r, miVector* v) {
    *r = transform_vector(*v, camera_space(state).to);
}

STAGE_API void mi_vector_to_object(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = transform_vector(*v, object_space(state, moving).to);
}

STAGE_API void mi_vector_to_light(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = transform_vector(*v, light_space(state, moving).to);
}

STAGE_API void mi_vector_from_world(miState* state, miVector* r, miVector* v) {
    *r = transform_vector(*v, world_space(state).from);
}

STAGE_API void mi_vector_from_camera(miState* state, miVector* r, miVector* v) {
    *r = transform_vector(*v, camera_space(state).from);
}

STAGE_API void mi_vector_from_object(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = transform_vector(*v, object_space(state, moving).from);
}

STAGE_API void mi_vector_from_light(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = transform_vector(*v, light_space(state, moving).from);
}

STAGE_API void mi_normal_to_world(miState* state, miVector* r, miVector* v) {
    *r = normal_to(*v, world_space(state));
}

STAGE_API void mi_normal_to_camera(miState* state, miVector* r, miVector* v) {
    *r = normal_to(*v, camera_space(state));
}

STAGE_API void mi_normal_to_object(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = normal_to(*v, object_space(state, moving));
}

STAGE_API void mi_normal_to_light(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = normal_to(*v, light_space(state, moving));
}

STAGE_API void mi_normal_from_world(miState* state, miVector* r, miVector* v) {
    *r = normal_from(*v, world_space(state));
}

STAGE_API void mi_normal_from_camera(miState* state, miVector* r, miVector* v) {
    *r = normal_from(*v, camera_space(state));
}

STAGE_API void mi_normal_from_object(miState* state, miVector* r, miVector* v) {
    MovingSpace moving;
    *r = normal_from(*v, object_space(state, moving));
}
