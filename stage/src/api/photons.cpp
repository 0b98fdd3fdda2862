// Photon functions: sending photons on, keeping them, and what they leave in volumes.
#include "api/api.h"
#include "render/photon_path.h"

STAGE_API miBoolean mi_photon_light(miColor* energy, miState* state) {
    return stage::send_photon_from_light(*energy, state);
}

STAGE_API miBoolean mi_photon_reflection_diffuse(miColor* energy, miState* state, miVector* dir) {
    return stage::send_photon_reflected(*energy, state, miPHOTON_REFLECT_DIFFUSE, *dir);
}

STAGE_API miBoolean mi_photon_reflection_glossy(miColor* energy, miState* state, miVector* dir) {
    return stage::send_photon_reflected(*energy, state, miPHOTON_REFLECT_GLOSSY, *dir);
}

STAGE_API miBoolean mi_photon_reflection_specular(miColor* energy, miState* state, miVector* dir) {
    return stage::send_photon_reflected(*energy, state, miPHOTON_REFLECT_SPECULAR, *dir);
}

STAGE_API miBoolean mi_photon_transmission_diffuse(miColor* energy, miState* state, miVector* dir) {
    return stage::send_photon_transmitted(*energy, state, miPHOTON_TRANSMIT_DIFFUSE, *dir);
}

STAGE_API miBoolean mi_photon_transmission_glossy(miColor* energy, miState* state, miVector* dir) {
    return stage::send_photon_transmitted(*energy, state, miPHOTON_TRANSMIT_GLOSSY, *dir);
}

STAGE_API miBoolean mi_photon_transmission_specular(miColor* energy, miState* state, miVector* dir) {
    return stage::send_photon_transmitted(*energy, state, miPHOTON_TRANSMIT_SPECULAR, *dir);
}

STAGE_API miBoolean mi_photon_transparent(miColor* energy, miState* state) {
    return stage::send_photon_transmitted(*energy, state, miPHOTON_TRANSPARENT, state->dir);
}

STAGE_API miBoolean mi_photon_volume_scattering(miColor* energy, miState* state, miVector* dir) {
    return stage::send_photon_scattered(*energy, state, *dir);
}

STAGE_API miBoolean mi_store_photon(miColor* energy, miState* state) {
    return stage::keep_surface_photon(*energy, state);
}

STAGE_API miBoolean mi_store_volume_photon(miColor* energy, miState* state) {
    return stage::keep_volume_photon(*energy, state);
}

STAGE_API miBoolean mi_compute_volume_irradiance(miColor* result, miState* state) {
    return stage::photon_volume_irradiance(result, state);
}
