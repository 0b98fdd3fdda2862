// Patterns for connected parameters.
#include "base.h"

using namespace base;

// ---- base_checker: squares of two colours in texture space 0

struct base_checker_params {
    miColor odd;
    miColor even;
    miVector repeat; // squares for each unit of the texture coordinate
};

BASE_VERSION(base_checker, 1)

BASE_EXPORT miBoolean base_checker(miColor* result, miState* state, base_checker_params* params) {
    const miVector repeat = *mi_eval_vector(&params->repeat);
    miScalar uvw[3] = {0, 0, 0};
    if (!mi_texture_interpolate(state, 0, uvw))
        return miFALSE;
    const miScalar cell =
        std::floor(uvw[0] * repeat.x) + std::floor(uvw[1] * repeat.y) + std::floor(uvw[2] * repeat.z);
    *result = *mi_eval_color(std::fmod(cell, 2.0f) != 0.0f ? &params->odd : &params->even);
    return miTRUE;
}

// ---- base_image: an image where the caller puts the state's texture coordinate, once in every unit: what a
// light projects.

struct base_image_params {
    miTag texture;
};

BASE_VERSION(base_image, 1)

BASE_EXPORT miBoolean base_image(miColor* result, miState* state, base_image_params* params) {
    return mi_lookup_color_texture(result, state, *mi_eval_tag(&params->texture), &state->tex);
}

// ---- base_letter: the letter F, upright in the unit square and once in every unit beyond, which tells how a
// picture lies that a light projects. It is looked up where the caller puts the state's texture coordinate.

struct base_letter_params {
    miColor letter;
    miColor ground;
    miVector repeat; // letters for each unit of the texture coordinate
};

BASE_VERSION(base_letter, 1)

BASE_EXPORT miBoolean base_letter(miColor* result, miState* state, base_letter_params* params) {
    const miVector repeat = *mi_eval_vector(&params->repeat);
    miScalar u = state->tex.x * repeat.x, v = state->tex.y * repeat.y;
    u -= std::floor(u);
    v -= std::floor(v);
    const auto within = [&](miScalar left, miScalar right, miScalar bottom, miScalar top) {
        return u >= left && u < right && v >= bottom && v < top;
    };
    const bool letter = within(0.26f, 0.42f, 0.14f, 0.86f) || within(0.26f, 0.78f, 0.71f, 0.86f) ||
                        within(0.26f, 0.66f, 0.44f, 0.58f);
    *result = *mi_eval_color(letter ? &params->letter : &params->ground);
    return miTRUE;
}
