/*
 * Tone operators of the host's exposure controls, and the two helpers through which other shaders use the
 * operator that is active. The photographic operator has a unit of its own.
 */
#include "orl_toneop.h"
#include "hsv.h"
#include "numeric.h"

#include <limits>

namespace orl {

namespace {

// ---- instance records

struct LogInstance {
    LogMapping mapping;
};

struct PseudoInstance {
    PseudoMapping mapping;
    miScalar scale;
    miBoolean luminance; // rather than illuminance
    miBoolean linear;
    miBoolean enabled;
    miBoolean processBackground;
};

} // namespace

// ---- what all operators share

miScalar exposure_luminance(const miColor& color) {
    return 0.263f * std::fabs(color.r) + 0.655f * std::fabs(color.g) + 0.082f * std::fabs(color.b);
}

namespace {

bool same(const miColor& a, const miColor& b) {
    return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a;
}

/* Puts the sky's own colour in the place of the one that it returned. A colour that anything has changed on
   its way, alpha included, is no longer the sky's. */
bool show_unmapped_sky(const SkyHdrRecord* sky, miColor& color) {
    if (sky == nullptr || !sky->valid || sky->consumed || !same(sky->returned, color))
        return false;
    color = sky->unmapped;
    return true;
}

void apply(ToneOpHook::Mapping mapping, const ToneOpHook& hook, miColor* color, miState* state) {
    if (mapping != nullptr)
        mapping(color, state, hook.data);
}

miBoolean run_as_lens(miColor* result, miState* state, const ToneOpHook& hook) {
    const ScopedRecord sky(state, keys::sky_is_hdr, {});
    miBoolean hit = miFALSE;
    bool shows_sky = false;
    {
        const ScopedRecord active(state, keys::tone_operator, hook);
        hit = mi_trace_eye(result, state, &state->org, &state->dir);
        SkyHdrRecord* const answer = sky.get();
        shows_sky = !hook.processBackground && state->pri == nullptr && show_unmapped_sky(answer, *result);
        if (answer != nullptr)
            answer->consumed = miTRUE;
    }
    if (!shows_sky)
        apply(hook.forward, hook, result, state);
    return hit;
}

} // namespace

miBoolean run_tone_operator(miColor* result, miState* state, bool enabled, const ToneOpHook& hook) {
    const bool as_lens = call_type(state) == miSHADER_LENS;
    if (!enabled)
        return as_lens ? mi_trace_eye(result, state, &state->org, &state->dir) : miTRUE;
    if (as_lens)
        return run_as_lens(result, state, hook);
    if (state->type == miRAY_ENVIRONMENT && !hook.processBackground)
        show_unmapped_sky(find_record(state, keys::sky_is_hdr), *result);
    else
        apply(hook.forward, hook, result, state);
    return miTRUE;
}

// ---- logarithmic exposure

namespace {

// The host's exposure constants. Each step of brightness is a twentieth of a decade.
void set_curve(LogMapping& mapping, const ToneOpLogParams& values) {
    const miScalar brightness = values.brightness >= 0.0f ? values.brightness * 0.7f : 0.0f;
    const miScalar daylight = values.exteriorDaylightA && values.exteriorDaylightB ? 4.0f : 2.0f;
    const miScalar level = numeric::pow(10.0f, brightness * 0.05f - 5.0f - daylight + 2.0f);
    const miScalar contrast = values.contrast * 2.0f * 0.02f;
    mapping.a = (contrast + 1.0f) * level * 5.5f;
    mapping.b = level * 5.5f * 3.1415927f;
    mapping.c = contrast / numeric::pow(2.0f, values.midTones - 1.0f);
    mapping.scale = values.enabled ? values.physicalScale * inverse_pi : 1500.0f;
}

void set_white_balance(LogMapping& mapping, const miColor& white) {
    const miScalar luminance = exposure_luminance(white);
    const miScalar channel[3] = {white.r, white.g, white.b};
    for (int i = 0; i < 3; ++i)
        mapping.white[i] = channel[i] > 0.001f ? luminance / channel[i] : luminance * 999.99994f;
}

miScalar divisor(miScalar factor) {
    return factor != 0.0f ? factor : std::numeric_limits<miScalar>::infinity();
}

// Night vision: below this luminance colours fade to grey, and below a thousandth of it nothing else is left.
miColor desaturate_low_levels(const miColor& x, miScalar luminance) {
    if (!(luminance < 5.62f))
        return x;
    const miScalar grey = 0.062f * x.r + 0.608f * x.g + 0.33f * x.b;
    if (!(luminance > 0.00562f))
        return {grey, grey, grey, x.a};
    const miScalar t = (luminance - 0.00562f) * 0.17811406f;
    const auto fade = [=](miScalar c) { return t * c + (1.0f - t) * grey; };
    return {fade(x.r), fade(x.g), fade(x.b), x.a};
}

} // namespace

LogMapping log_mapping(const ToneOpLogParams& values) {
    LogMapping mapping{};
    set_curve(mapping, values);
    set_white_balance(mapping, values.whiteBalance);
    mapping.desaturateLowLevels = values.desaturateLowLevels;
    mapping.enabled = values.enabled;
    mapping.processBackground = values.processBackground;
    mapping.whiteBalanceOn = values.whiteBalanceOn;
    mapping.perChannel = !values.luminanceBased;
    mapping.scaleDivisor = divisor(mapping.scale);
    for (int i = 0; i < 3; ++i)
        mapping.whiteDivisor[i] = divisor(mapping.white[i]);
    return mapping;
}

miColor map_log(const LogMapping& m, const miColor& color) {
    miColor x = {color.r * m.scale, color.g * m.scale, color.b * m.scale, color.a};
    if (m.whiteBalanceOn) {
        x.r *= m.white[0];
        x.g *= m.white[1];
        x.b *= m.white[2];
    }
    const miScalar luminance = exposure_luminance(x);
    if (m.desaturateLowLevels)
        x = desaturate_low_levels(x, luminance);
    if (m.perChannel) {
        const auto curve = [&m](miScalar v) { return v <= 0.0f ? 0.0f : v * (m.a / (v * m.b + m.c)); };
        return {curve(x.r), curve(x.g), curve(x.b), x.a};
    }
    if (luminance <= 0.0f)
        return {0, 0, 0, x.a};
    const miScalar gain = m.a / (luminance * m.b + m.c);
    return {x.r * gain, x.g * gain, x.b * gain, x.a};
}

miColor unmap_log(const LogMapping& m, const miColor& color) {
    if (color.r <= 0.0f && color.g <= 0.0f && color.b <= 0.0f)
        return {0, 0, 0, color.a};
    constexpr miScalar least = 1e-7f; // colours at the curve's upper end come from infinity
    const auto rest = [&m](miScalar v) {
        const miScalar d = m.a - m.b * v;
        return d > least ? d : least;
    };
    miColor x = color;
    if (m.perChannel) {
        x.r = m.c * color.r / rest(color.r);
        x.g = m.c * color.g / rest(color.g);
        x.b = m.c * color.b / rest(color.b);
    } else {
        const miScalar gain = m.c / rest(exposure_luminance(color));
        x = {color.r * gain, color.g * gain, color.b * gain, color.a};
    }
    if (m.whiteBalanceOn) {
        x.r /= m.whiteDivisor[0];
        x.g /= m.whiteDivisor[1];
        x.b /= m.whiteDivisor[2];
    }
    return {x.r / m.scaleDivisor, x.g / m.scaleDivisor, x.b / m.scaleDivisor, x.a};
}

// ---- pseudo-colour exposure

miColor pseudo_color(miInteger entry, miInteger levels) {
    const miScalar share = static_cast<miScalar>(entry) * 170.0f / (static_cast<miScalar>(levels) * 256.0f);
    return color_of_hsv(0.6640625f - share, 0.99609375f, 0.99609375f);
}

miColor pseudo_grey(miInteger entry, miInteger levels) {
    const miScalar step = static_cast<miScalar>(entry) * 256.0f / static_cast<miScalar>(levels);
    const miScalar grey = std::floor(step + 0.5f) / 256.0f;
    return {grey, grey, grey, 1};
}

miInteger pseudo_levels(miInteger parameter) {
    constexpr miInteger most = 1 << 24; // more are not told apart in single precision
    if (parameter <= 0)
        return 100;
    return parameter < most ? parameter : most;
}

PseudoMapping pseudo_mapping(const ToneOpPseudoParams& values) {
    constexpr miScalar lux_per_foot_candle = 10.76391f;
    PseudoMapping mapping{};
    const miScalar unit = values.footCandles ? lux_per_foot_candle : 1.0f;
    mapping.levels = pseudo_levels(values.levels);
    mapping.lowLimit = values.lowLimit * unit;
    mapping.highLimit = values.highLimit * unit;
    const auto levels = static_cast<miScalar>(mapping.levels);
    const bool rises = mapping.lowLimit < mapping.highLimit;
    mapping.inverseOfLow = 1.0f / (mapping.lowLimit + 1.0f);
    mapping.linearFactor = rises ? levels / (mapping.highLimit - mapping.lowLimit) : levels;
    mapping.logFactor =
        rises ? levels / numeric::log10((mapping.highLimit + 1.0f) / (mapping.lowLimit + 1.0f)) : levels;
    return mapping;
}

miInteger pseudo_level(const PseudoMapping& m, bool linear, miScalar value) {
    // In this order, so that limits that are the wrong way round give the high one.
    const miScalar at_least_low = value > m.lowLimit ? value : m.lowLimit;
    const miScalar v = at_least_low < m.highLimit ? at_least_low : m.highLimit;
    const miScalar place = linear ? (v - m.lowLimit) * m.linearFactor
                                  : numeric::log10((v + 1.0f) * m.inverseOfLow) * m.logFactor;
    if (place >= static_cast<miScalar>(m.levels))
        return m.levels - 1;
    return place > 0.0f ? static_cast<miInteger>(place) : 0;
}

namespace {

void map_with_log(miColor* color, miState*, void* data) {
    *color = map_log(static_cast<const LogInstance*>(data)->mapping, *color);
}

void unmap_with_log(miColor* color, miState*, void* data) {
    *color = unmap_log(static_cast<const LogInstance*>(data)->mapping, *color);
}

void map_with_pseudo(miColor* color, miState*, void* data) {
    const auto& instance = *static_cast<const PseudoInstance*>(data);
    miScalar value = exposure_luminance(*color) * instance.scale;
    // A surface that scatters all light evenly receives pi times its luminance.
    if (instance.luminance)
        value *= inverse_pi;
    *color = instance.mapping.palette[pseudo_level(instance.mapping, instance.linear, value)];
}

ToneOpLogParams values_of(miState* state, const ToneOpLogParams& params) {
    return {
        eval(state, params.enabled),           eval(state, params.physicalScale),
        eval(state, params.whiteBalanceOn),    eval(state, params.desaturateLowLevels),
        eval(state, params.whiteBalance),      eval(state, params.processBackground),
        eval(state, params.brightness),        eval(state, params.contrast),
        eval(state, params.midTones),          eval(state, params.exteriorDaylightA),
        eval(state, params.exteriorDaylightB), eval(state, params.luminanceBased),
    };
}

ToneOpPseudoParams values_of(miState* state, const ToneOpPseudoParams& params) {
    return {
        eval(state, params.lowLimit), eval(state, params.highLimit),
        eval(state, params.quantity), eval(state, params.greyScale),
        eval(state, params.scale),    0,
        eval(state, params.linear),   eval(state, params.footCandles),
        eval(state, params.enabled),  eval(state, params.processBackground),
        eval(state, params.levels),
    };
}

const miColor* make_palette(miInteger levels, bool grey) {
    const auto size = static_cast<std::size_t>(levels) * sizeof(miColor);
    auto* const palette =
        static_cast<miColor*>(mi_mem_int_test_allocate("orl_toneop", __LINE__, static_cast<miUint>(size)));
    for (miInteger i = 0; palette != nullptr && i < levels; ++i)
        palette[i] = grey ? pseudo_grey(i, levels) : pseudo_color(i, levels);
    return palette;
}

} // namespace

} // namespace orl

using namespace orl;

// ---- logarithmic exposure

ORL_VERSION(orl_toneop, orl_ToneOpLog);

ORL_EXPORT void orl_ToneOpLog_init(miState* state, const ToneOpLogParams* params,
                                   miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    if (auto* const data = new_instance_data<LogInstance>(state))
        data->mapping = log_mapping(values_of(state, *params));
}

ORL_EXPORT miBoolean orl_ToneOpLog(miColor* result, miState* state, const ToneOpLogParams*) {
    auto* const data = instance_data<LogInstance>(state);
    if (data == nullptr)
        return run_tone_operator(result, state, false, {});
    const LogMapping& mapping = data->mapping;
    return run_tone_operator(result, state, mapping.enabled,
                             {mapping.processBackground, map_with_log, unmap_with_log, data});
}

ORL_EXPORT void orl_ToneOpLog_exit(miState* state, const ToneOpLogParams* params) {
    if (params != nullptr)
        delete_instance_data(state);
}

// ---- pseudo-colour exposure

ORL_VERSION(orl_toneop, orl_ToneOpPseudo);

ORL_EXPORT void orl_ToneOpPseudo_init(miState* state, const ToneOpPseudoParams* params,
                                      miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    auto* const data = new_instance_data<PseudoInstance>(state);
    if (data == nullptr)
        return;
    const ToneOpPseudoParams values = values_of(state, *params);
    data->mapping = pseudo_mapping(values);
    data->mapping.palette = make_palette(data->mapping.levels, values.greyScale);
    if (data->mapping.palette == nullptr)
        mi_error("\"%s\": no memory for %d levels, colours stay as they are", shader_name(state),
                 data->mapping.levels);
    data->scale = values.scale;
    data->luminance = values.quantity == pseudo_luminance;
    data->linear = values.linear;
    data->enabled = values.enabled;
    data->processBackground = values.processBackground;
}

ORL_EXPORT miBoolean orl_ToneOpPseudo(miColor* result, miState* state, const ToneOpPseudoParams*) {
    auto* const data = instance_data<PseudoInstance>(state);
    if (data == nullptr)
        return run_tone_operator(result, state, false, {});
    return run_tone_operator(
        result, state, data->enabled,
        {data->processBackground, data->mapping.palette ? map_with_pseudo : nullptr, nullptr, data});
}

ORL_EXPORT void orl_ToneOpPseudo_exit(miState* state, const ToneOpPseudoParams* params) {
    if (params == nullptr)
        return;
    const auto* const data = instance_data<PseudoInstance>(state);
    if (data != nullptr && data->mapping.palette != nullptr)
        mi_mem_int_release("orl_toneop", __LINE__, const_cast<miColor*>(data->mapping.palette));
    delete_instance_data(state);
}

// ---- helpers for other shaders

ORL_EXPORT miBoolean ToneOpScaledToRGB(miState* state, miColor* color, miBoolean final_phase) {
    const ToneOpHook* const hook = state != nullptr ? find_record(state, keys::tone_operator) : nullptr;
    if (color == nullptr || hook == nullptr || hook->forward == nullptr)
        return 0;
    if (final_phase && !hook->processBackground)
        return 0;
    hook->forward(color, state, hook->data);
    return 1;
}

ORL_EXPORT miBoolean ApplyInverseToneOperator(miState* state, miColor* color) {
    const ToneOpHook* const hook = state != nullptr ? find_record(state, keys::tone_operator) : nullptr;
    if (color == nullptr || hook == nullptr || hook->inverse == nullptr)
        return 0;
    hook->inverse(color, state, hook->data);
    return 1;
}
