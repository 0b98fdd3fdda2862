// Indirect light. Neither photon maps nor gathering exist yet.
#include "api/unsupported.h"

STAGE_API miBoolean mi_compute_irradiance(miColor*, miState*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_compute_irradiance_backside(miColor*, miState*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_compute_avg_radiance(miColor*, miState*, miUchar, void*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_compute_directional_irradiance(miColor*, miVector*, miState*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_compute_volume_irradiance(miColor*, miState*) {
    STAGE_UNSUPPORTED();
}
