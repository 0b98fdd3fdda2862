// Texture lookups: images, and shaders that stand in for them.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "api/api.h"
#include "image/texture.h"
#include "kit/matrix.h"
#include "render/shading.h"
#include "render/vector.h"

namespace {

using namespace stage;

// Twice the area of the triangle.
float area(const miVector& a, const miVector& b, const miVector& c) {
    return length(cross(b - a, c - a));
}

// Width of what one pixel sees at the state's point, across the ray, in internal space.
float pixel_width(const miState* state) {
    const miCamera* camera = state->camera;
    if (!camera || camera->x_resolution <= 0)
        return 0.0f;
    const float on_image_plane = camera->aperture / static_cast<float>(camera->x_resolution);
    if (camera->orthographic)
        return on_image_plane;
    double path = 0.0;
    for (const miState* ray = state; ray; ray = ray->type == miRAY_EYE ? nullptr : ray->parent)
        path += ray->dist;
    return camera->focal > 0.0f ? on_image_plane / camera->focal * static_cast<float>(path) : 0.0f;
}

// Sides of a pixel's picture on the image, in pixels of the image: by the areas that the current triangle has
// in space and in its first texture space, as a lookup mostly follows that space.
float footprint(miState* state, const miImg_image& image) {
    const WorldInstance* instance = instance_of(state);
    miVector *p[3], *t[3];
    if (!instance || mi_tri_vectors(state, 'p', 0, &p[0], &p[1], &p[2]) == miFALSE ||
        mi_tri_vectors(state, 't', 0, &t[0], &t[1], &t[2]) == miFALSE)
        return 0.0f;
    std::array<miVector, 3> in_space, on_image;
    for (std::size_t i = 0; i < 3; ++i) {
        in_space[i] = transform_point(*p[i], instance->to_internal.m);
        on_image[i] = {t[i]->x * static_cast<float>(image.width), t[i]->y * static_cast<float>(image.height),
                       0.0f};
    }
    const float surface = area(in_space[0], in_space[1], in_space[2]);
    const float covered = area(on_image[0], on_image[1], on_image[2]);
    if (!(surface > 0.0f))
        return 0.0f;
    // A slanted surface shows more of itself in one direction: the mean of both is a square root.
    const float slant = std::sqrt(std::max(std::fabs(state->dot_nd), 0.05f));
    return pixel_width(state) / slant * std::sqrt(covered / surface);
}

float pyramid_level(miState* state, const Image& image, float filter) {
    if (image.levels() <= 1)
        return 0.0f;
    const float width = footprint(state, *image.record()) * filter;
    return width > 1.0f ? std::log2(width) : 0.0f;
}

Element* texture(const miState* state, miTag tag) {
    const Scene* scene = scene_of(state);
    return scene && tag != miNULLTAG ? scene->database.find(tag) : nullptr;
}

// Black when the image is missing; the scale of the filter is the element's own times the caller's.
miBoolean image_lookup(miColor& result, miState* state, Element& element, const miVector& coord,
                       float filter) {
    const Image& image = image_of(element);
    if (!image.valid()) {
        result = {0, 0, 0, 1};
        return miFALSE;
    }
    result = image.lookup(coord.x, coord.y, pyramid_level(state, image, filter * element.texture_filter));
    return miTRUE;
}

// Runs a shader at a texture coordinate; `result` has room for what the shader gives.
miBoolean run_shader(void* result, miState* state, miTag tag, const miVector& coord) {
    const miVector outer = state->tex;
    state->tex = coord;
    const miBoolean valid = call_shader(result, miSHADER_TEXTURE, state, tag, nullptr);
    state->tex = outer;
    return valid;
}

// A lookup's result as numbers: of a scalar one, of a vector three, of a colour four.
struct Components {
    std::array<float, 4> values{};
    int count = 0;
};

Components components_of(const miColor& c) {
    return {{c.r, c.g, c.b, c.a}, 4};
}

Components shader_components(const void* result, miParam_type type) {
    Components components;
    components.count = type == miTYPE_COLOR ? 4 : type == miTYPE_VECTOR ? 3 : 1;
    if (type == miTYPE_INTEGER || type == miTYPE_BOOLEAN) {
        int value;
        std::memcpy(&value, result, sizeof value);
        components.values[0] = static_cast<float>(value);
    } else {
        std::memcpy(components.values.data(), result,
                    sizeof(float) * static_cast<std::size_t>(components.count));
    }
    return components;
}

// The shader writes its own type of result, so it gets room for that, and at least for a colour.
miBoolean shader_lookup(Components& components, miState* state, const Element& element,
                        const miVector& coord) {
    const ShaderInstance* shader = element.shader.get();
    const bool declared = shader && shader->declaration;
    Arena& arena = context_of(state).arena;
    const ArenaScope scope(arena);
    const std::size_t size =
        std::max(sizeof(miColor), declared ? std::size_t{shader->declaration->result.size} : 0);
    void* result = std::memset(arena.allocate(size), 0, size);
    const miBoolean valid = run_shader(result, state, element.tag, coord);
    components = shader_components(result, declared ? shader->declaration->result.type : miTYPE_COLOR);
    return valid;
}

miBoolean lookup(Components& components, miState* state, miTag tag, const miVector& coord) {
    Element* element = texture(state, tag);
    if (!element)
        return miFALSE;
    if (element->type == miSCENE_FUNCTION)
        return shader_lookup(components, state, *element, coord);
    if (element->type != miSCENE_IMAGE)
        return miFALSE;
    miColor color;
    const miBoolean valid = image_lookup(color, state, *element, coord, 1.0f);
    components = components_of(color);
    return valid;
}

} // namespace

STAGE_API miBoolean mi_lookup_color_texture(miColor* result, miState* state, miTag tag, miVector* coord) {
    return mi_lookup_color_texture_x(result, state, tag, coord, 1.0f);
}

// `filter` scales the width of the region that the lookup covers. A shader's result is handed on as it is.
STAGE_API miBoolean mi_lookup_color_texture_x(miColor* result, miState* state, miTag tag, miVector* coord,
                                              miScalar filter) {
    Element* element = texture(state, tag);
    if (element && element->type == miSCENE_FUNCTION)
        return run_shader(result, state, tag, *coord);
    if (element && element->type == miSCENE_IMAGE)
        return image_lookup(*result, state, *element, *coord, filter);
    return miFALSE;
}

// The mean of a colour's or vector's components without alpha.
STAGE_API miBoolean mi_lookup_scalar_texture(miScalar* result, miState* state, miTag tag, miVector* coord) {
    Components found;
    const miBoolean valid = lookup(found, state, tag, *coord);
    *result =
        found.count <= 1 ? found.values[0] : (found.values[0] + found.values[1] + found.values[2]) / 3.0f;
    return valid;
}

// A scalar counts for all three components.
STAGE_API miBoolean mi_lookup_vector_texture(miVector* result, miState* state, miTag tag, miVector* coord) {
    Components found;
    const miBoolean valid = lookup(found, state, tag, *coord);
    if (found.count <= 1)
        *result = {found.values[0], found.values[0], found.values[0]};
    else
        *result = {found.values[0], found.values[1], found.values[2]};
    return valid;
}
