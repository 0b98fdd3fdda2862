// Indirect light: photons. Gathering does not exist yet.
#include "api/unsupported.h"
#include "render/photons.h"

STAGE_API miBoolean mi_compute_irradiance(miColor* result, miState* state) {
    return stage::photon_irradiance(result, state, false, stage::caustic_photons | stage::global_photons);
}

STAGE_API miBoolean mi_compute_irradiance_backside(miColor* result, miState* state) {
    return stage::photon_irradiance(result, state, true, stage::caustic_photons | stage::global_photons);
}

STAGE_API miBoolean mi_compute_avg_radiance(miColor*, miState*, miUchar, void*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_compute_directional_irradiance(miColor*, miVector*, miState*) {
    STAGE_UNSUPPORTED();
}
