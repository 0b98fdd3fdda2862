// Photons: what surfaces and smoke do with them, and the light that they leave in smoke.
#include "base.h"

using namespace base;

namespace {

void multiply(miColor* energy, const miColor& c) {
    *energy = {energy->r * c.r, energy->g * c.g, energy->b * c.b, energy->a};
}

// Refracted, or mirrored where nothing gets through.
miBoolean send_through(miColor* energy, miState* state, miScalar ior) {
    const miScalar outside = state->inv_normal ? ior : 1.0f, inside = state->inv_normal ? 1.0f : ior;
    miVector dir;
    if (mi_transmission_dir_specular(&dir, state, outside, inside))
        return mi_photon_transmission_specular(energy, state, &dir);
    mi_reflection_dir_specular(&dir, state);
    return mi_photon_reflection_specular(energy, state, &dir);
}

} // namespace

// ---- base_photon_surface: keeps photons where it is matt, and sends them on one way, drawn by its colours

struct base_photon_surface_params {
    miColor diffuse;
    miColor specular;
    miScalar shininess;   // of the mirror image; 0: clear
    miColor transmission; // refracted
    miScalar ior;
};

BASE_VERSION(base_photon_surface, 1)

BASE_EXPORT miBoolean base_photon_surface(miColor* energy, miState* state,
                                          base_photon_surface_params* params) {
    miColor diffuse = *mi_eval_color(&params->diffuse);
    miColor specular = *mi_eval_color(&params->specular);
    miColor through = *mi_eval_color(&params->transmission);
    const miScalar shininess = *mi_eval_scalar(&params->shininess);
    if (!is_black(diffuse))
        mi_store_photon(energy, state);
    miColor none{0, 0, 0, 0};
    miVector dir;
    switch (mi_choose_simple_scatter_type(state, &diffuse, &specular, &none, &through)) {
    case miPHOTON_REFLECT_DIFFUSE:
        multiply(energy, diffuse);
        mi_reflection_dir_diffuse(&dir, state);
        return mi_photon_reflection_diffuse(energy, state, &dir);
    case miPHOTON_REFLECT_SPECULAR:
        multiply(energy, specular);
        if (shininess > 0.0f) {
            mi_reflection_dir_glossy(&dir, state, shininess);
            return mi_photon_reflection_glossy(energy, state, &dir);
        }
        mi_reflection_dir_specular(&dir, state);
        return mi_photon_reflection_specular(energy, state, &dir);
    case miPHOTON_TRANSMIT_SPECULAR:
        multiply(energy, through);
        return send_through(energy, state, *mi_eval_scalar(&params->ior));
    default: // absorbed
        return miTRUE;
    }
}

// ---- base_photon_glass: mirrors as much as glass does, and colours what goes through

struct base_photon_glass_params {
    miColor filter; // of what passes the surface, on its way in and on its way out
    miScalar ior;
};

BASE_VERSION(base_photon_glass, 1)

BASE_EXPORT miBoolean base_photon_glass(miColor* energy, miState* state, base_photon_glass_params* params) {
    const miScalar ior = *mi_eval_scalar(&params->ior);
    const miScalar outside = state->inv_normal ? ior : 1.0f, inside = state->inv_normal ? 1.0f : ior;
    const miScalar mirrored = mi_fresnel_reflection(state, outside, inside);
    miColor reflected{mirrored, mirrored, mirrored, 0};
    miColor through = *mi_eval_color(&params->filter) * (1.0f - mirrored);
    miColor none{0, 0, 0, 0}, nothing{0, 0, 0, 0};
    switch (mi_choose_simple_scatter_type(state, &none, &reflected, &nothing, &through)) {
    case miPHOTON_REFLECT_SPECULAR: {
        multiply(energy, reflected);
        miVector dir;
        mi_reflection_dir_specular(&dir, state);
        return mi_photon_reflection_specular(energy, state, &dir);
    }
    case miPHOTON_TRANSMIT_SPECULAR:
        multiply(energy, through);
        return send_through(energy, state, ior);
    default: // absorbed
        return miTRUE;
    }
}

// ---- base_photon_smoke: a medium of constant density, for photons. Keeps those that meet it

struct base_photon_smoke_params {
    miColor color;           // the part that goes on from where a photon meets the smoke
    miScalar density;        // mean number of meetings for each unit of length
    miScalar directionality; // -1 back to 1 forward, 0 everywhere
};

BASE_VERSION(base_photon_smoke, 1)

// Photons that meet nothing arrive at the surface as they are.
BASE_EXPORT miBoolean base_photon_smoke(miColor* energy, miState* state, base_photon_smoke_params* params) {
    const miScalar free_path = mi_scattering_pathlength(state, *mi_eval_scalar(&params->density));
    if (state->dist > 0.0 && static_cast<double>(free_path) >= state->dist)
        return miTRUE;
    state->point = {state->org.x + free_path * state->dir.x, state->org.y + free_path * state->dir.y,
                    state->org.z + free_path * state->dir.z};
    state->dist = free_path;
    mi_store_volume_photon(energy, state);
    miColor color = *mi_eval_color(&params->color), none{0, 0, 0, 0};
    miColor nothing[2] = {none, none};
    if (mi_choose_simple_scatter_type(state, &color, &none, &nothing[0], &nothing[1]) ==
        miPHOTON_REFLECT_DIFFUSE) {
        multiply(energy, color);
        miVector dir;
        mi_scattering_dir_directional(&dir, state, *mi_eval_scalar(&params->directionality));
        mi_photon_volume_scattering(energy, state, &dir);
    }
    return miFALSE;
}

// ---- base_smoke: shows the light that photons leave in smoke, and dims what lies behind

struct base_smoke_params {
    miColor color;
    miScalar density;
    miInteger steps; // along each ray
};

BASE_VERSION(base_smoke, 1)

// Photons that meet the smoke in a unit of volume go on in all directions alike. A surface turns an
// irradiance E into a colour E; light that leaves in 4 pi rather than over a matt surface's pi has a quarter
// of that.
BASE_EXPORT miBoolean base_smoke(miColor* result, miState* state, base_smoke_params* params) {
    const miColor color = *mi_eval_color(&params->color);
    const miScalar density = *mi_eval_scalar(&params->density);
    const int steps = std::max(*mi_eval_integer(&params->steps), 1);
    const auto length = static_cast<miScalar>(state->dist);
    if (!(length > 0.0f)) // a ray that left the scene left the smoke, too
        return miTRUE;
    const miScalar clear = std::exp(-density * length);
    *result = *result * miColor{clear, clear, clear, 1.0f};
    if (state->type == miRAY_LIGHT || state->type == miRAY_SHADOW)
        return miTRUE;
    const miVector end = state->point;
    const miScalar step = length / static_cast<miScalar>(steps), start = mi_par_random(state);
    for (int i = 0; i < steps; ++i) {
        const miScalar at = (static_cast<miScalar>(i) + start) * step;
        state->point = {state->org.x + at * state->dir.x, state->org.y + at * state->dir.y,
                        state->org.z + at * state->dir.z};
        miColor light;
        if (mi_compute_volume_irradiance(&light, state))
            *result += color * light * miColor{1, 1, 1, 0} * (0.25f * step * std::exp(-density * at));
    }
    state->point = end;
    result->a = result->a * clear + 1.0f - clear;
    return miTRUE;
}
