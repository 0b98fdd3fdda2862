// Photon functions. There are no photon maps yet.
#include "api/unsupported.h"

STAGE_API miBoolean mi_photon_light(miColor*, miState*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_photon_reflection_diffuse(miColor*, miState*, miVector*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_photon_reflection_glossy(miColor*, miState*, miVector*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_photon_reflection_specular(miColor*, miState*, miVector*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_photon_transmission_diffuse(miColor*, miState*, miVector*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_photon_transmission_glossy(miColor*, miState*, miVector*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_photon_transmission_specular(miColor*, miState*, miVector*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_photon_transparent(miColor*, miState*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_photon_volume_scattering(miColor*, miState*, miVector*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_store_photon(miColor*, miState*) {
    STAGE_UNSUPPORTED();
}

STAGE_API miBoolean mi_store_volume_photon(miColor*, miState*) {
    STAGE_UNSUPPORTED();
}
