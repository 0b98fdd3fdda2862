#include "render/photons.h"

namespace stage {

bool trace_photons(Renderer&) {
    return true;
}

miBoolean photon_irradiance(miColor* result, miState*, bool, PhotonKinds) {
    *result = {};
    return miFALSE;
}

} // namespace stage
