// Surfaces: one flat colour, a matt surface, a polished one; and the shadow of a coloured pane.
#include "base.h"

using namespace base;

namespace {

// Lets what lies behind the surface through, where it is not opaque. The rasterizer does that by itself.
void blend_with_background(miColor* result, miState* state, const miColor& opacity) {
    if (opacity.r >= 1.0f && opacity.g >= 1.0f && opacity.b >= 1.0f)
        return;
    *result = *result * opacity;
    miColor told = opacity;
    if (mi_opacity_set(state, &told))
        return;
    miColor behind{0, 0, 0, 0};
    mi_trace_transparent(&behind, state);
    const miColor clear{1.0f - opacity.r, 1.0f - opacity.g, 1.0f - opacity.b, 1.0f - opacity.a};
    *result += behind * clear;
}

} // namespace

// ---- base_constant: a colour that no light changes

struct base_constant_params {
    miColor color;
};

BASE_VERSION(base_constant, 1)

BASE_EXPORT miBoolean base_constant(miColor* result, miState* state, base_constant_params* params) {
    *result = *mi_eval_color(&params->color);
    return miTRUE;
}

// ---- base_lambert: a matt surface, possibly transparent

struct base_lambert_params {
    miColor ambient; // added to the light that arrives; the diffuse colour acts on it too
    miColor diffuse;
    miColor opacity; // of each component; 1 lets nothing through
    LightList lights;
};

BASE_VERSION(base_lambert, 1)

BASE_EXPORT miBoolean base_lambert(miColor* result, miState* state, base_lambert_params* params) {
    const miColor diffuse = *mi_eval_color(&params->diffuse);
    const miColor ambient = *mi_eval_color(&params->ambient);
    *result = ambient * diffuse + direct_light(state, &params->lights, [&](const miVector&, miScalar cosine) {
                  return diffuse * cosine;
              });
    result->a = 1.0f;
    blend_with_background(result, state, *mi_eval_color(&params->opacity));
    return miTRUE;
}

// ---- base_glossy: a matt base under a clear coat with highlights and mirror reflections

struct base_glossy_params {
    miColor ambient;
    miColor diffuse;
    miColor specular;  // colour of highlights and reflections
    miScalar exponent; // of the highlights
    miScalar ior;      // of the coat; 1 switches reflections off
    miColor opacity;   // of each component; 1 lets nothing through
    LightList lights;
};

BASE_VERSION(base_glossy, 1)

BASE_EXPORT miBoolean base_glossy(miColor* result, miState* state, base_glossy_params* params) {
    const miColor diffuse = *mi_eval_color(&params->diffuse);
    const miColor ambient = *mi_eval_color(&params->ambient);
    const miColor specular = *mi_eval_color(&params->specular);
    const miScalar exponent = *mi_eval_scalar(&params->exponent);
    const miScalar ior = *mi_eval_scalar(&params->ior);

    *result = ambient * diffuse + direct_light(state, &params->lights, [&](miVector dir, miScalar cosine) {
                  return diffuse * cosine + specular * mi_phong_specular(exponent, state, &dir);
              });
    if (ior > 1.0f) {
        const miScalar mirrored = mi_fresnel_reflection(state, 1.0f, ior);
        miVector dir;
        miColor reflection{0, 0, 0, 0};
        mi_reflection_dir(&dir, state);
        if (!mi_trace_reflection(&reflection, state, &dir))
            mi_trace_environment(&reflection, state, &dir);
        *result = mix(*result, reflection * specular, mirrored);
    }
    result->a = 1.0f;
    blend_with_background(result, state, *mi_eval_color(&params->opacity));
    return miTRUE;
}

// ---- base_shadow: what a tinted surface leaves of the light that passes through it

struct base_shadow_params {
    miColor tint; // 1 lets everything through
};

BASE_VERSION(base_shadow, 1)

BASE_EXPORT miBoolean base_shadow(miColor* result, miState* state, base_shadow_params* params) {
    const miColor tint = *mi_eval_color(&params->tint);
    // With segments the light has yet to come through what lies between this surface and the light.
    const bool segments = state->options->shadow == 's';
    if (segments && !mi_trace_shadow_seg(result, state))
        return miFALSE;
    *result = *result * miColor{tint.r, tint.g, tint.b, 1.0f};
    return !is_black(*result);
}
