/*
 * The photographic tone operator. The mapping is that of the renderer's own architectural library, which is
 * loaded by name; where it is missing, colours pass as they are.
 */
#include "orl_toneopphoto.h"
#include "numeric.h"
#include "orl_toneop.h"
#include "system.h"

#include <atomic>

namespace orl {

namespace {

// ---- the renderer's library

/* Set by the shader's init and cleared by its exit, with no sample in between. */
struct TonemapLibrary {
    std::atomic<void*> handle;
    std::atomic<mia_tonemap_api_init_function*> init;
    std::atomic<mia_tonemap_api_exit_function*> exit;
    std::atomic<mia_tonemap_api_map_function*> transform_color;
    std::atomic<mia_tonemap_api_map_function*> untransform_color;
};
constinit TonemapLibrary library{};

template <class Function> Function* find_in(void* handle, const char* name) {
    return handle != nullptr ? reinterpret_cast<Function*>(system::find_symbol(handle, name)) : nullptr;
}

void load_tonemap_library() {
    void* const handle = system::load_library("architectural");
    system::unload_library(library.handle.exchange(handle));
    library.init = find_in<mia_tonemap_api_init_function>(handle, "mia_tonemap_api_init");
    library.exit = find_in<mia_tonemap_api_exit_function>(handle, "mia_tonemap_api_exit");
    library.transform_color =
        find_in<mia_tonemap_api_map_function>(handle, "mia_tonemap_api_transform_color");
    library.untransform_color =
        find_in<mia_tonemap_api_map_function>(handle, "mia_tonemap_api_untransform_color");
}

void unload_tonemap_library() {
    library.init = nullptr;
    library.exit = nullptr;
    library.transform_color = nullptr;
    library.untransform_color = nullptr;
    system::unload_library(library.handle.exchange(nullptr));
}

// ---- instance record

struct PhotoInstance {
    miBoolean enabled;
    miBoolean processBackground;
    mia_tonemap_parameters block;
    miBoolean initialised; // the block, by the library
    // Of the library as it was when the block was set up; null: colours pass.
    mia_tonemap_api_map_function* transform;
    mia_tonemap_api_map_function* untransform;
};

void fill(mia_tonemap_parameters& block, miState* state, const ToneOpPhotoParams& params) {
    // A light of that intensity over an even surface: the colour is its luminance times pi.
    block.cm2_factor = eval(state, params.physicalScale) * inverse_pi;
    block.whitepoint = eval(state, params.whitePoint);
    block.film_iso = eval(state, params.filmSpeed);
    block.camera_shutter = eval(state, params.shutterSpeed);
    block.f_number = eval(state, params.fNumber);
    block.vignetting = eval(state, params.vignetting);
    block.burn_highlights = eval(state, params.burnHighlights);
    block.gamma = eval(state, params.gamma);
    if (state->camera != nullptr) {
        block.x_resolution = static_cast<miScalar>(state->camera->x_resolution);
        block.y_resolution = static_cast<miScalar>(state->camera->y_resolution);
    }
}

void map_with_photo(miColor* color, miState* state, void* data) {
    const auto* const instance = static_cast<const PhotoInstance*>(data);
    instance->transform(&instance->block, color, state->raster_x, state->raster_y);
}

void unmap_with_photo(miColor* color, miState* state, void* data) {
    const auto* const instance = static_cast<const PhotoInstance*>(data);
    instance->untransform(&instance->block, color, state->raster_x, state->raster_y);
}

} // namespace

} // namespace orl

using namespace orl;

ORL_VERSION(orl_toneopphoto, orl_ToneOpPhoto);

ORL_EXPORT void orl_ToneOpPhoto_init(miState* state, const ToneOpPhotoParams* params,
                                     miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required)) {
        load_tonemap_library();
        return;
    }
    auto* const data = new_instance_data<PhotoInstance>(state);
    if (data == nullptr)
        return;
    data->enabled = eval(state, params->enabled);
    data->processBackground = eval(state, params->processBackground);
    fill(data->block, state, *params);
    if (mia_tonemap_api_init_function* const init = library.init) {
        init(&data->block);
        data->initialised = miTRUE;
        data->transform = library.transform_color;
        data->untransform = library.untransform_color;
    }
    if (data->enabled && data->transform == nullptr)
        mi_warning("\"%s\" maps no colours: the library \"architectural\" or its tone mapping is missing",
                   shader_name(state));
}

ORL_EXPORT miBoolean orl_ToneOpPhoto(miColor* result, miState* state, const ToneOpPhotoParams*) {
    auto* const data = instance_data<PhotoInstance>(state);
    if (data == nullptr)
        return run_tone_operator(result, state, false, {});
    return run_tone_operator(result, state, data->enabled,
                             {data->processBackground, data->transform ? map_with_photo : nullptr,
                              data->untransform ? unmap_with_photo : nullptr, data});
}

ORL_EXPORT void orl_ToneOpPhoto_exit(miState* state, const ToneOpPhotoParams* params) {
    if (params == nullptr) {
        unload_tonemap_library();
        return;
    }
    auto* const data = instance_data<PhotoInstance>(state);
    mia_tonemap_api_exit_function* const exit = library.exit;
    if (data != nullptr && data->initialised && exit != nullptr)
        exit(&data->block);
    delete_instance_data(state);
}
