/*
 * The output stage that the host offers with every map, and the map that adds a second one to any other. A
 * stage is called on the value in place, so that its result is also what it reads. Relies on orl_base_Curve
 * for grading by a curve.
 */
#include "orl_output.h"
#include "map_frame.h"
#include "orlshaderapi.h"
#include "utl_curve.h"

#include <cstdio>

namespace orl {

// ---- mathematics

namespace {

void scale(miColor& c, miScalar factor) {
    c.r *= factor;
    c.g *= factor;
    c.b *= factor;
}

// What is not a number becomes 0.
miScalar clamped(miScalar x) {
    return !(x > 0.0f) ? 0.0f : x < 1.0f ? x : 1.0f;
}

} // namespace

void grade(miColor& value, const Grading& grading, bool mono) {
    if (grading.amount != 1.0f)
        scale(value, grading.amount);
    if (grading.offset != 0.0f) {
        const miScalar offset = mono ? grading.offset : grading.offset * value.a;
        value = {value.r + offset, value.g + offset, value.b + offset, value.a};
    }
    if (grading.level != 1.0f) {
        scale(value, grading.level);
        value.a = mono ? value.a : value.a * grading.level;
    }
    if (grading.invert)
        value = {1.0f - value.r, 1.0f - value.g, 1.0f - value.b, value.a};
    if (grading.clamp)
        value = {clamped(value.r), clamped(value.g), clamped(value.b), mono ? value.a : clamped(value.a)};
    if (grading.alpha_from_rgb && !mono)
        value.a = intensity(value);
}

namespace {

// ---- output stage

// The value itself where the curve fails. Curves are drawn for 0 to 1 and go on straight beyond.
miScalar curve_at(miState* state, miTag curve, miInteger channel, miScalar x) {
    CurveRequest request{channel, 0, x, 0, 1, 0, 1, miTRUE};
    miColor value{x, x, x, x}; // a curve writes the first
    return call_in_slot(&value, state, miSHADER_TEXTURE, curve, &request) ? value.r : x;
}

void map_by_rgb_curve(miColor& value, miState* state, miTag curve, bool mono) {
    if (curve == miNULLTAG)
        return;
    value.r = curve_at(state, curve, 0, value.r);
    value.g = curve_at(state, curve, 1, value.g);
    value.b = curve_at(state, curve, 2, value.b);
    if (mono)
        value.r = value.g = value.b = intensity(value);
}

void map_by_mono_curve(miColor& value, miState* state, miTag curve, bool mono) {
    if (curve == miNULLTAG)
        return;
    value.r = curve_at(state, curve, 0, value.r);
    if (mono) // deliberate: who asks for an intensity reads the first component
        return;
    value.g = curve_at(state, curve, 0, value.g);
    value.b = curve_at(state, curve, 0, value.b);
}

void stage_color(miColor& value, miState* state, const OutputStageParams* params, bool mono) {
    if (eval(state, params->useColorMap)) {
        if (eval(state, params->colorMapRGB))
            map_by_rgb_curve(value, state, eval(state, params->rgbCurve), mono);
        else
            map_by_mono_curve(value, state, eval(state, params->monoCurve), mono);
    }
    const Grading grading{
        eval(state, params->outputAmount),     eval(state, params->rgbOffset),
        eval(state, params->rgbLevel),         eval(state, params->invert) != miFALSE,
        eval(state, params->clamp) != miFALSE, eval(state, params->alphaFromRGB) != miFALSE,
    };
    grade(value, grading, mono);
}

// A vector has three numbers, and its caller may have no more room: the fourth is left alone.
void stage_vector(miColor& value, miState* state, const OutputStageParams* params) {
    const miScalar amount = eval(state, params->bumpAmount);
    if (amount != 1.0f)
        scale(value, amount);
    if (eval(state, params->invert))
        scale(value, -1.0f);
}

// ---- output map

struct OutputMapInstance {
    int frameBuffer;
};

} // namespace

ORL_VERSION(orl_output, orl_base_Output);

ORL_EXPORT miBoolean orl_base_Output(miColor* result, miState* state, const OutputStageParams* params,
                                     const OutputRequest* request) {
    switch (request ? *request : OutputRequest::color) {
    case OutputRequest::color:
        stage_color(*result, state, params, false);
        break;
    case OutputRequest::mono:
        stage_color(*result, state, params, true);
        break;
    case OutputRequest::vector:
        stage_vector(*result, state, params);
        break;
    } // what else may be asked for in time passes unchanged
    return miTRUE;
}

ORL_VERSION(orl_output, orl_Output);

ORL_EXPORT void orl_Output_init(miState* state, const OutputMapParams* params,
                                miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    auto* const instance = new_instance_data<OutputMapInstance>(state);
    if (instance == nullptr)
        return;
    instance->frameBuffer = -1;
    if (const miInteger number = eval(state, params->frameBuffer); number != 0) {
        char name[32];
        std::snprintf(name, sizeof name, "fb_output%d", number);
        instance->frameBuffer = frame_buffer_index(state, name);
    }
}

ORL_EXPORT miBoolean orl_Output(miColor* result, miState* state, const OutputMapParams* params,
                                OutputRequest* callers_request) {
    const CallerRequest request(callers_request);
    const OutputRequest wanted = *request;
    const miTag map = eval(state, params->mapEnabled) ? eval(state, params->map) : miNULLTAG;
    if (map != miNULLTAG)
        call_map(result, state, map, request);
    else
        *result = wanted < OutputRequest::vector ? miColor{1, 1, 1, 1} : miColor{0, 0, 0, 1};
    run_output(result, state, eval(state, params->output), request);
    if (state->type == miRAY_EYE && eval(state, params->frameBuffer) != 0)
        if (const auto* const instance = instance_data<OutputMapInstance>(state))
            mi_fb_put(state, instance->frameBuffer, result); // deliberate: -1 is the renderer's to refuse
    return miTRUE;
}

ORL_EXPORT void orl_Output_exit(miState* state, const OutputMapParams* params) {
    if (params != nullptr)
        delete_instance_data(state);
}

} // namespace orl
