// Small things that the shaders of this library share: colour arithmetic, array parameters, the light loop.
#pragma once

#include <algorithm>
#include <cmath>

#include "shader.h"

// Makes a function visible to the renderer, under its plain name.
#define BASE_EXPORT extern "C" DLLEXPORT

// The version of a shader, which its declaration in base.mi has to state.
#define BASE_VERSION(shader, number)                                                                         \
    BASE_EXPORT int shader##_version() {                                                                     \
        return number;                                                                                       \
    }

namespace base {

inline miColor operator+(const miColor& a, const miColor& b) {
    return {a.r + b.r, a.g + b.g, a.b + b.b, a.a + b.a};
}
inline miColor operator*(const miColor& a, const miColor& b) {
    return {a.r * b.r, a.g * b.g, a.b * b.b, a.a * b.a};
}
inline miColor operator*(const miColor& a, miScalar f) {
    return {a.r * f, a.g * f, a.b * f, a.a * f};
}
inline miColor& operator+=(miColor& a, const miColor& b) {
    return a = a + b;
}

inline miColor mix(const miColor& a, const miColor& b, miScalar t) {
    return a * (1.0f - t) + b * t;
}
inline bool is_black(const miColor& c) {
    return c.r == 0.0f && c.g == 0.0f && c.b == 0.0f;
}

// 0 below a, 1 above b, smooth between; a step when both are the same.
inline miScalar smooth_step(miScalar a, miScalar b, miScalar x) {
    if (a >= b)
        return x < a ? 0.0f : 1.0f;
    const miScalar t = std::clamp((x - a) / (b - a), 0.0f, 1.0f);
    return t * t * (3.0f - 2.0f * t);
}

// An array of lights in a parameter block: the place of its first element, their number, the elements.
struct LightList {
    int i_lights;
    int n_lights;
    miTag lights[1];
};

struct Lights {
    const miTag* first;
    int count;
};

// The lights that the parameter names; without any, those that act on the instance. Valid until the shader
// returns.
inline Lights lights_of(miState* state, LightList* list) {
    const int count = *mi_eval_integer(&list->n_lights);
    if (count > 0) {
        const miTag* elements = mi_eval_tag(list->lights);
        return {elements + *mi_eval_integer(&list->i_lights), count};
    }
    mi::shader_v3::Interface* const renderer = mi_get_shader_interface(3);
    mi::shader_v3::LightList* const all = renderer->createLightList(state);
    const Lights lights = all ? Lights{all->get_lights(), all->get_count()} : Lights{nullptr, 0};
    renderer->releaseLightList(all);
    renderer->release();
    return lights;
}

// The light that all lights send towards the eye from a surface that turns the part response(direction,
// cosine) of what arrives from a direction. A light with an area is asked several times; its samples are
// averaged.
template <class Response> miColor direct_light(miState* state, LightList* list, const Response& response) {
    const Lights lights = lights_of(state, list);
    miColor total{0, 0, 0, 0};
    for (int i = 0; i < lights.count; ++i) {
        miColor sum{0, 0, 0, 0};
        miColor color;
        miVector dir;
        miScalar dot_nl;
        miInteger samples = 0;
        while (mi_sample_light(&color, &dir, &dot_nl, state, lights.first[i], &samples)) {
            if (dot_nl > 0.0f)
                sum += color * response(dir, dot_nl);
        }
        if (samples > 0)
            total += sum * (1.0f / static_cast<miScalar>(samples));
    }
    return total;
}

} // namespace base
