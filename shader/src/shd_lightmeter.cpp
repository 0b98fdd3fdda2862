/*
 * Light meters: a light map that measures the light at the vertices of the host's meters and writes it into
 * a texture, from where the host reads it. It relies on the meter's texture coordinates, which count pixels,
 * and on the light loop.
 */
#include "shd_lightmeter.h"
#include "illumination.h"
#include "orlshaderapi.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace orl {

namespace {

struct LightMeterInstance {
    miBoolean warned;
    miInteger measured; // pixels that hold a measurement
    miImg_image* image; // null once the edit is closed
    void* edit;
};

// Ends the edit once, whichever thread comes first.
void close_edit(LightMeterInstance& meter) {
    if (std::atomic_ref<miImg_image*>(meter.image).exchange(nullptr, std::memory_order_acq_rel) != nullptr)
        mi_lightmap_edit_end(meter.edit);
}

// ---- measuring

struct Reading {
    miScalar direct, indirect;
};

// All lights count, ambient ones included: the meter shows what a surface in its place would get.
Reading measure(miState* state, miInteger samples) {
    miColor direct{}, indirect{};
    const miScalar share = 1.0f / static_cast<miScalar>(samples);
    for (miInteger k = 0; k < samples; ++k) {
        orl_Illuminance light{{}, miTRUE, miTRUE};
        ComputeIlluminance(state, &light);
        add(direct, light.color, share);
        miColor radiance{};
        if (mi_compute_avg_radiance(&radiance, state, 'f', nullptr))
            add(indirect, radiance, share);
    }
    return {mi_luminance(state, &direct), mi_luminance(state, &indirect)};
}

// ---- the pixel of a vertex

struct Pixel {
    int x, y;
};

// False for coordinates outside the image, or none.
bool find_pixel(const miState* state, miImg_image* image, Pixel& at) {
    if (state->tex_list == nullptr)
        return false;
    const miVector& coordinate = state->tex_list[0];
    const miScalar x = std::floor(coordinate.x + 0.5f), y = std::floor(coordinate.y + 0.5f);
    if (!(x >= 0.0f && x < static_cast<miScalar>(mi_img_get_width(image)) && y >= 0.0f &&
          y < static_cast<miScalar>(mi_img_get_height(image))))
        return false;
    at = {static_cast<int>(x), static_cast<int>(y)};
    return true;
}

// Triangles share their vertices, so most pixels are asked for several times.
bool is_filled(miImg_image* image, const Pixel& at) {
    miColor color{};
    mi_img_get_color(image, &color, at.x, at.y);
    return color.r > 0.0f || color.g > 0.0f || color.b > 0.0f;
}

// Every twentieth of the image is reported once, by the thread that completes it.
void report_progress(LightMeterInstance& meter, miImg_image* image, miInteger pass) {
    const long long pixels = static_cast<long long>(mi_img_get_width(image)) * mi_img_get_height(image);
    const long long measured =
        std::atomic_ref<miInteger>(meter.measured).fetch_add(1, std::memory_order_relaxed) + 1LL;
    const long long twentieths = measured * 20 / pixels;
    if (measured <= pixels && twentieths > (measured - 1) * 20 / pixels)
        mi_progress("Light Meter Calculating, %d, %d", static_cast<int>(twentieths * 5), pass);
}

void measure_vertex(miState* state, const LightMeterParams* params, LightMeterInstance& meter) {
    miImg_image* const image = std::atomic_ref<miImg_image*>(meter.image).load(std::memory_order_acquire);
    Pixel at;
    if (image == nullptr || !find_pixel(state, image, at) || is_filled(image, at))
        return;
    const Reading light = measure(state, std::max(eval(state, params->samples), 1));
    const miScalar factor = eval(state, params->factor);
    miColor color{light.direct * factor, light.indirect * factor, (light.direct + light.indirect) * factor,
                  1.0f};
    mi_img_put_color(image, &color, at.x, at.y);
    report_progress(meter, image, eval(state, params->pass));
}

} // namespace

// ---- light map

ORL_VERSION(shd_lightmeter, orl_LightMeterLightMap);

ORL_EXPORT void orl_LightMeterLightMap_init(miState* state, const LightMeterParams* params,
                                            miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    auto* const meter = new_instance_data<LightMeterInstance>(state, {"shd_lightmeter", __LINE__});
    if (meter == nullptr)
        return;
    const miTag texture = eval(state, params->texture);
    if (texture != miNULLTAG)
        meter->image = mi_lightmap_edit(&meter->edit, texture);
    if (meter->image == nullptr)
        report_missing(state, MissingInput::image_file, meter->warned);
    mi_progress("Light Meter Calculating, -1, %d", eval(state, params->pass));
}

ORL_EXPORT miBoolean orl_LightMeterLightMap(miColor*, miState* state, const LightMeterParams* params) {
    LightMeterInstance* const meter = instance_data<LightMeterInstance>(state);
    if (meter == nullptr)
        return miFALSE;
    if (state->type == miRAY_LM_VERTEX)
        measure_vertex(state, params, *meter);
    else if (state->type == miRAY_LM_MESH)
        close_edit(*meter);
    return miTRUE;
}

// A light map that was never finished is closed here.
ORL_EXPORT void orl_LightMeterLightMap_exit(miState* state, const LightMeterParams* params) {
    if (params == nullptr)
        return;
    if (LightMeterInstance* const meter = instance_data<LightMeterInstance>(state))
        close_edit(*meter);
    delete_instance_data(state, {"shd_lightmeter", __LINE__});
}

// ---- material

ORL_VERSION(shd_lightmeter, orl_LightMeterMaterial);

ORL_EXPORT miBoolean orl_LightMeterMaterial(miColor*, miState*, const void*) {
    return miTRUE;
}

} // namespace orl
