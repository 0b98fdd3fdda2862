// Indirect light. Neither photon maps nor gathering exist yet.
#include "api/unsupported.h"

namespace {

// A scene that asks for no indirect light has none, and that is supported.
bool is_indirectly_lit(const miState* state) {
    const miOptions& options = *state->options;
    return options.caustic || options.globillum || options.finalgather;
}

} // namespace

STAGE_API miBoolean mi_compute_irradiance(miColor*, miState* state) {
    if (!is_indirectly_lit(state))
        return miFALSE;
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_compute_irradiance_backside(miColor*, miState* state) {
    if (!is_indirectly_lit(state))
        return miFALSE;
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
