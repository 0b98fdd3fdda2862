// Indirect light at a point: what gathering rays find and photons bring.
#include <algorithm>

#include "api/api.h"
#include "render/gather.h"
#include "render/photons.h"
#include "render/vector.h"

namespace {

using namespace stage;

void add_light(miColor& sum, const miColor& light, float factor) {
    sum.r += factor * light.r;
    sum.g += factor * light.g;
    sum.b += factor * light.b;
    sum.a = std::max(sum.a, light.a);
}

// Where rays gather the light, photons of the global map are seen by them, in the places that they meet; only
// caustics are too sharp for them. Elsewhere, which includes these places, all photons are looked up.
// `towards`, unless null, receives the sum of the directions from which the light comes, weighted by its
// luminance; photons count as coming along the normal.
miBoolean indirect_light(miColor* result, miState* state, bool backside, miVector* towards = nullptr) {
    const PhotonKinds kinds = gathers_at(state) ? caustic_photons : caustic_photons | global_photons;
    const bool gathered = gather_irradiance(result, state, backside, towards) != miFALSE;
    miColor photons{};
    const bool found = photon_irradiance(&photons, state, backside, kinds) != miFALSE;
    if (found) {
        add_light(*result, photons, 1.0f);
        if (towards)
            *towards = *towards + state->normal * mi_luminance(state, &photons);
    }
    return gathered || found ? miTRUE : miFALSE;
}

} // namespace

STAGE_API miBoolean mi_compute_irradiance(miColor* result, miState* state) {
    return indirect_light(result, state, false);
}

STAGE_API miBoolean mi_compute_irradiance_backside(miColor* result, miState* state) {
    return indirect_light(result, state, true);
}

// In the unit of light colours the mean radiance, weighted by the cosine, is the irradiance itself. Faces:
// 'f' front, 'b' back, anything else the mean of both. No element of a scene makes options of the irradiance.
STAGE_API miBoolean mi_compute_avg_radiance(miColor* result, miState* state, miUchar face, void*) {
    if (face == 'f' || face == 'b')
        return indirect_light(result, state, face == 'b');
    *result = {};
    miBoolean lit = miFALSE;
    for (const bool backside : {false, true}) {
        miColor one;
        if (!indirect_light(&one, state, backside))
            continue;
        add_light(*result, one, 0.5f);
        lit = miTRUE;
    }
    return lit;
}

// `dir` leads from the point to where most of the light comes from; without light it is the normal.
STAGE_API miBoolean mi_compute_directional_irradiance(miColor* result, miVector* dir, miState* state) {
    miVector towards{};
    const miBoolean lit = indirect_light(result, state, false, &towards);
    *dir = length(towards) > 0.0f ? normalized(towards) : state->normal;
    return lit;
}
