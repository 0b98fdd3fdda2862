/*
 * What the illumination models share: how a model enters itself into the record, the walk over the lights,
 * and the callbacks that turn the sums, the material's rays and the opacity into the colour of the point.
 */
#include "illumination.h"

#include "orlshaderapi.h"

#include <algorithm>

namespace orl {

// ---- channels

int channel_of(const IllumRecord& record, MapSlot slot) {
    if (slot < 0 || slot >= slot_count)
        return -1;
    const miInteger own = record.slotMap[slot];
    if (own >= 0)
        return own < channel_count ? own : -1;
    const bool behind = slot >= slot_bump && slot <= slot_displacement;
    const miInteger channel = record.channelCount + slot - slot_bump;
    return behind && channel >= 0 && channel < channel_count ? channel : -1;
}

const miColor& slot_value(const IllumRecord& record, MapSlot slot, const miColor& otherwise) {
    const int channel = channel_of(record, slot);
    return channel < 0 ? otherwise : record.channel[channel];
}

namespace {

constexpr miColor black{0, 0, 0, 0};
constexpr miColor white{1, 1, 1, 1};

} // namespace

miScalar limit(miScalar value, miScalar lowest, miScalar highest) {
    return value > lowest ? std::min(value, highest) : lowest;
}

miColor color_channel(miState* state, const miColor& parameter) {
    const miColor c = eval(state, parameter);
    return {limit(c.r, 0, 1), limit(c.g, 0, 1), limit(c.b, 0, 1), limit(c.a, 0, 1)};
}

miColor scalar_channel(miState* state, const miScalar& parameter, miScalar lowest, miScalar highest) {
    return {limit(eval(state, parameter), lowest, highest), 0, 0, 0};
}

miColor self_illumination_channel(miState* state, const IllumRecord* record, const miColor& color,
                                  const miScalar& amount) {
    if (record->values->selfIlluminationColorOn)
        return color_channel(state, color);
    const miScalar grey = limit(eval(state, amount), 0, 1);
    return {grey, grey, grey, 0};
}

// ---- model and record

miBoolean continue_with(const IllumModel& model, miScalar soften, miColor* result, miState* state,
                        IllumRecord* record, const void* model_params) {
    record->features = model.features;
    record->channelKind = model.channelKinds.data();
    if (model.channelCount != 0)
        record->channelCount = model.channelCount;
    record->slotMap = model.slotMap.data();
    record->faceted = model.faceted ? 1 : 0;
    record->soften = limit(soften, 0, 1);
    record->shade = model.shade;
    record->tintReflection = model.tintReflection;
    record->combine = model.combine;
    record->transmit = model.transmit;
    record->reflect = model.reflect;
    return record->continuation(result, state, record, model_params);
}

bool is_callable(miState* state, const IllumModel& model, const IllumRecord* argument) {
    const IllumRecord* const record = checked(argument);
    if (record != nullptr && record->values != nullptr && record->continuation != nullptr)
        return true;
    report_wrong_caller(state, model.unit, "\"%s\" is an illumination model: only materials can call it");
    return false;
}

void exit_model(miState* state, const void* params, MemoryPlace place) {
    if (params != nullptr)
        delete_instance_data(state, place);
}

// ---- after the lights

void add_self_illumination(IllumRecord* record) {
    const miColor& channel = slot_value(*record, slot_self_illumination, black);
    if (record->values->selfIlluminationColorOn) {
        add(record->selfIllumination, channel);
        return;
    }
    if (!(intensity(channel) > 0.0f))
        return;
    const miScalar amount = std::min(intensity(channel), 1.0f);
    const miColor& diffuse = slot_value(*record, slot_diffuse, white);
    record->selfIllumination = {diffuse.r * amount, diffuse.g * amount, diffuse.b * amount, 0};
    const miColor rest{1.0f - amount, 1.0f - amount, 1.0f - amount, 0};
    multiply(record->ambient, rest);
    multiply(record->diffuse, rest);
}

void multiply_ambient_and_specular(IllumRecord* record) {
    multiply(record->ambient, slot_value(*record, slot_ambient, white));
    multiply(record->specular, slot_value(*record, slot_specular, white));
}

void multiply_by_channels(IllumRecord* record) {
    multiply_ambient_and_specular(record);
    record->diffuseLightLevel = intensity(record->diffuse);
    multiply(record->diffuse, slot_value(*record, slot_diffuse, white));
}

void finish(miState* state, IllumRecord* record) {
    record->transmit(state, record);
    record->reflect(state, record);
    record->combine(record);
}

// ---- reflection

void tint_by_specular(miState*, const IllumRecord* record, miColor* color) {
    multiply(*color, slot_value(*record, slot_specular, white));
}

void tint_by_diffuse(miState*, const IllumRecord* record, miColor* color) {
    multiply(*color, slot_value(*record, slot_diffuse, white));
}

void reflect_channel(miState* state, IllumRecord* record) {
    const int channel = channel_of(*record, slot_reflection);
    if ((record->mapFlags & map_reflection) == 0 || (record->features & feature_reflection) == 0 ||
        channel < 0)
        return;
    miColor& color = record->channel[channel];
    record->tintReflection(state, record, &color);
    miScalar amount = record->reflectionAmount;
    const MaterialValues& values = *record->values;
    if (values.dimReflections)
        amount *=
            (1.0f - values.dimLevel) * record->diffuseLightLevel * values.reflectionLevel + values.dimLevel;
    record->reflection = {color.r * amount, color.g * amount, color.b * amount, 0};
}

// ---- transmission

int filter_mode(miInteger transparency_type) {
    return transparency_type == 1 ? 0 : transparency_type == 2 ? 1 : 2;
}

miColor transmission_filter(int mode, miScalar amount, const miColor& filter, const miColor& diffuse) {
    const miScalar rest = 1.0f - amount;
    if (mode == 1)
        return {rest, rest, rest, 0};
    if (mode == 0)
        return {rest * (1.0f - diffuse.r), rest * (1.0f - diffuse.g), rest * (1.0f - diffuse.b), 0};
    // Half opaque shows the filter colour; from there on it fades to white and to black.
    if (amount > 0.5f) {
        const miScalar less = (amount - 0.5f) * 2.0f * std::max({filter.r, filter.g, filter.b});
        return {std::max(filter.r - less, 0.0f), std::max(filter.g - less, 0.0f),
                std::max(filter.b - less, 0.0f), 0};
    }
    const miScalar more = (1.0f - 2.0f * amount) * (1.0f - std::min({filter.r, filter.g, filter.b}));
    return {std::min(filter.r + more, 1.0f), std::min(filter.g + more, 1.0f), std::min(filter.b + more, 1.0f),
            0};
}

miColor filter_of(const IllumRecord& record) {
    return transmission_filter(filter_mode(record.values->transparencyType), record.opacityFactor,
                               slot_value(record, slot_filter, white),
                               slot_value(record, slot_diffuse, white));
}

miColor trace_transparency(miState* state) {
    // A compound material asks for this one's transparency and goes on by itself.
    if (find_record(state, keys::sub_material_report) != nullptr)
        return black;
    // Behind a mirror or a lens the environment is the traced ray's own. All other rays go straight, those
    // numbered below these two, eye rays among them, as well as those above.
    const bool straight = state->type != miRAY_REFLECT && state->type != miRAY_REFRACT;
    const ScopedRecord switches(state, keys::environment_switches, {1, straight ? 1 : 0});
    miColor color = black;
    // Deliberate: one reflection less while the ray is traced, whichever counter the renderer raises for it.
    // Hosts expect a stack of transparent sheets to leave the depth of the reflections behind it alone.
    --state->reflection_level;
    if (!mi_trace_transparent(&color, state))
        color = black;
    ++state->reflection_level;
    return color;
}

namespace {

void set_filters(IllumRecord* record, const miColor& color) {
    record->filter[0] = record->filter[1] = record->elementTransparency = color;
}

void transmit_refraction(IllumRecord* record) {
    record->opacityFactor = (1.0f - record->refractionAmount) * record->opacity;
    record->refraction = filter_of(*record);
    multiply(record->refraction, slot_value(*record, slot_refraction, black));
    set_filters(record, black);
}

void transmit_straight(miState* state, IllumRecord* record) {
    record->opacityFactor = record->opacity;
    set_filters(record, filter_of(*record));
    const miColor traced = trace_transparency(state);
    if (filter_mode(record->values->transparencyType) == 1) {
        record->additiveTransmission = traced;
        record->elementTransparency = white;
    } else {
        record->transmission = record->filter[0];
        multiply(record->transmission, traced);
    }
    const miScalar open = 1.0f - traced.a;
    multiply(record->filter[0], {open, open, open, 0});
}

} // namespace

void transmit_light(miState* state, IllumRecord* record) {
    transmit_with(record->features, state, record);
}

void leave_alone(miState*, IllumRecord*) {}

void transmit_with(unsigned features, miState* state, IllumRecord* record) {
    if ((record->mapFlags & map_refraction) != 0 && (features & feature_refraction) != 0) {
        transmit_refraction(record);
        return;
    }
    if ((features & feature_traced_transparency) == 0)
        return;
    if ((record->mapFlags & map_transparent) != 0) {
        transmit_straight(state, record);
        return;
    }
    record->opacityFactor = 1.0f;
    set_filters(record, black);
}

// ---- combine

namespace {

// What opacity and refraction leave of the surface's own light.
miColor surface(const IllumRecord& record) {
    miColor sum = record.ambient;
    add(sum, record.diffuse);
    add(sum, record.selfIllumination);
    add(sum, record.extraDiffuse);
    const miScalar f = record.opacityFactor;
    return {sum.r * f, sum.g * f, sum.b * f, 0};
}

} // namespace

void combine_simple(IllumRecord* record) {
    miColor sum = surface(*record);
    add(sum, record->specular);
    add(sum, record->reflection);
    add(sum, record->refraction);
    add(sum, record->transmission);
    add(sum, record->additiveTransmission);
    record->result = sum;
}

void combine_conserving(IllumRecord* record) {
    if (!record->energyConservation) {
        combine_simple(record);
        return;
    }
    miColor mirrored = record->specular;
    add(mirrored, record->reflection);
    miColor sum = surface(*record);
    add(sum, record->refraction);
    add(sum, record->transmission);
    multiply(sum, {limit(1.0f - mirrored.r, 0, 1), limit(1.0f - mirrored.g, 0, 1),
                   limit(1.0f - mirrored.b, 0, 1), 0});
    add(sum, record->specular);
    add(sum, record->reflection);
    add(sum, record->additiveTransmission);
    record->result = sum;
}

} // namespace orl
