/*
 * The contract between materials and illumination models. A material fills an IllumRecord and runs its model;
 * the model fills in its channels and callbacks and continues with the material's routine; that routine
 * evaluates the maps into the channels and calls the model's shade callback, which walks the lights and
 * combines everything.
 *
 *   material -> model: mi_call_shader_x(miSHADER_TEXTURE, record)   parameters into channels, callbacks
 *   model -> material: record->continuation(...)                    maps into channels, opacity, map rays
 *   material -> model: record->shade(...)                           light loop, transmission,
 *                                                                   reflection, combine
 */
#pragma once

#include "call_argument.h"
#include "declaration.h"
#include "light_samples.h"
#include "orlshaderapi.h"
#include "output_request.h"

#include <array>
#include <atomic>

namespace orl {

/* Standard map slots of a material. */
enum MapSlot {
    slot_ambient,
    slot_diffuse,
    slot_specular,
    slot_glossiness,
    slot_specular_level,
    slot_self_illumination,
    slot_opacity,
    slot_filter,
    slot_bump,
    slot_reflection,
    slot_refraction,
    slot_displacement,
    slot_count = 16, /* 12 to 15 are not assigned */
};

inline constexpr int channel_count = 24;

/* How a channel of a model is mapped. */
enum ChannelKind : miInteger {
    channel_none = 0x01, /* behind the model's own channels */
    channel_color = 0x02,
    channel_scalar = 0x04,
    channel_own_8 = 0x08, /* the model's own business, as are the next two */
    channel_own_16 = 0x10,
    channel_own_32 = 0x20,
    channel_displacement = 0x80, /* evaluated where the renderer displaces, not where it shades */
};
inline constexpr miInteger channels_not_evaluated =
    channel_none | channel_own_8 | channel_own_16 | channel_own_32;

/* Active-map flags, which the material sets. */
enum MapFlags : unsigned {
    map_reflection = 0x02,
    map_refraction = 0x04,
    map_transparent = 0x08,
    map_reflection_present = 0x10,
    map_refraction_present = 0x20,
};

/* What a model allows: bits of its feature mask that others test. */
enum Features : unsigned {
    feature_filter_color = 1u << 9, /* the material puts its filter colour into the model's channel */
    feature_reflection = 1u << 22,
    feature_refraction = 1u << 23,
    feature_traced_transparency = 1u << 24,
};

/* A material's parameters as evaluated for the sample, as far as models read them. */
struct MaterialValues {
    miInteger transparencyType; /* 0 filter, 1 and 2 the two other ways */
    miBoolean selfIlluminationColorOn;
    miBoolean dimReflections;
    miScalar dimLevel;        /* share of the reflection that stays in the dark */
    miScalar reflectionLevel; /* how fast light brings the rest */
};

struct IllumRecord;

using Continuation = miBoolean (*)(miColor* result, miState* state, IllumRecord* record,
                                   const void* model_params);

struct IllumRecord {
    static constexpr miUint magic_number = 0x1115eed;
    miUint magic = magic_number;
    miInteger energyConservation;
    const MaterialValues* values;
    /* Sums of the light loop. Alphas are not used. */
    miColor ambient, diffuse, specular, selfIllumination;
    miColor reflection, refraction, transmission, additiveTransmission;
    miColor extraDiffuse; /* back-lighting */
    miScalar diffuseLightLevel;
    miScalar opacity;       /* of the material */
    miScalar opacityFactor; /* by which the combine multiplies all that is not a highlight or a ray */
    miColor result;
    miColor filter[2]; /* transmitted through the surface: less what the traced ray covers; all of it */
    miColor elementTransparency; /* by which the result holds what lies behind; white where that is added */
    miVector normal;
    miVector view;                  /* direction of the incoming ray, towards the surface */
    miColor channel[channel_count]; /* scalars in the first component */
    miScalar reflectionAmount;
    miScalar refractionAmount;
    unsigned mapFlags;
    /* From here on the model's. */
    unsigned features;
    const miInteger* channelKind; /* channel_count codes */
    miInteger channelCount;       /* of the model's own channels; the four standard extra ones follow */
    const miInteger* slotMap;     /* slot_count channels, -1 for none */
    miInteger faceted;
    miScalar soften;           /* 0 to 1 */
    Continuation continuation; /* the material's */
    void (*shade)(miState* state, IllumRecord* record, const void* model_params);
    void (*tintReflection)(miState* state, const IllumRecord* record, miColor* color);
    void (*combine)(IllumRecord* record);
    void (*transmit)(miState* state, IllumRecord* record);
    void (*reflect)(miState* state, IllumRecord* record);
    void* material; /* the material's own data of this call */
};

/* Own channels of a model that leaves the count alone: what the material presets. */
inline constexpr miInteger preset_channel_count = 9;

/* Channel of a standard slot; -1 when the model has none. Bump, reflection, refraction and displacement lie
   behind the model's own channels unless the model places them. */
int channel_of(const IllumRecord& record, MapSlot slot);

/* Value of a slot's channel; `otherwise` when the model has none. */
const miColor& slot_value(const IllumRecord& record, MapSlot slot, const miColor& otherwise);

// ---- what a model is

using ChannelKinds = std::array<miInteger, channel_count>;
using SlotMap = std::array<miInteger, slot_count>;

/* Kinds of a model's own channels; there are none behind them. */
template <class... Kinds> constexpr ChannelKinds channel_kinds(Kinds... kinds) {
    static_assert(sizeof...(kinds) <= channel_count);
    ChannelKinds table{kinds...};
    for (std::size_t k = sizeof...(kinds); k < channel_count; ++k)
        table[k] = channel_none;
    return table;
}

/* Slot map from the channels of the first slots; the others have none. */
template <class... Channels> constexpr SlotMap slot_map(Channels... channels) {
    static_assert(sizeof...(channels) <= slot_count);
    SlotMap table{channels...};
    for (std::size_t k = sizeof...(channels); k < slot_count; ++k)
        table[k] = -1;
    return table;
}

// Callbacks that models install.
void tint_by_specular(miState* state, const IllumRecord* record, miColor* color);
void tint_by_diffuse(miState* state, const IllumRecord* record, miColor* color);
void reflect_channel(miState* state, IllumRecord* record);
void transmit_light(miState* state, IllumRecord* record);
void leave_alone(miState* state, IllumRecord* record); /* of models that reflect or transmit by themselves */
void combine_simple(IllumRecord* record);
void combine_conserving(IllumRecord* record);

/* What all instances of a model have in common. A model states what it does otherwise than most. */
struct IllumModel {
    const char* unit; /* in whose accounts the instances' memory is */
    unsigned features;
    miInteger channelCount; /* 0: what the material preset */
    ChannelKinds channelKinds;
    SlotMap slotMap;
    bool faceted = false;
    void (*shade)(miState* state, IllumRecord* record, const void* model_params);
    void (*tintReflection)(miState* state, const IllumRecord* record, miColor* color) = tint_by_specular;
    void (*combine)(IllumRecord* record) = combine_simple;
    void (*transmit)(miState* state, IllumRecord* record) = transmit_light;
    void (*reflect)(miState* state, IllumRecord* record) = reflect_channel;
};

/* Whether a model was called by a material, with all that it needs. The first other call of an instance is
   reported; its data, which then exists, starts with the warned flag. */
bool is_callable(miState* state, const IllumModel& model, const IllumRecord* argument);

/* Last act of a model: enters what it is into the record and goes on with the material. */
miBoolean continue_with(const IllumModel& model, miScalar soften, miColor* result, miState* state,
                        IllumRecord* record, const void* model_params);

// Parameters as channels take them: within their range, its lower end for what is not a number.
miScalar limit(miScalar value, miScalar lowest, miScalar highest);
miColor color_channel(miState* state, const miColor& parameter); /* components 0 to 1 */
miColor scalar_channel(miState* state, const miScalar& parameter, miScalar lowest, miScalar highest);
/* The colour or the grey amount, as the material chooses; the other is not evaluated, as nobody would see
   what its shader computes. */
miColor self_illumination_channel(miState* state, const IllumRecord* record, const miColor& color,
                                  const miScalar& amount);

// Highest levels that the host's panels offer.
inline constexpr miScalar highest_specular_level = 9.99f;
inline constexpr miScalar highest_diffuse_level = 4.0f;

/* What the channels of opacity and filter colour hold until the material puts its own values there. */
inline constexpr miColor opaque_channel{1, 0, 0, 0};
inline constexpr miColor clear_filter_channel{1, 1, 1, 1};

/* Exit of a model: frees what the instance holds. */
void exit_model(miState* state, const void* params, MemoryPlace place);

// ---- what models share while shading

/* Sums over the samples of a light. */
struct LightSums {
    miColor ambient, diffuse, specular;
    miScalar diffuseLevel; /* models that gather the diffuse light level by themselves */
};

inline void divide(LightSums& sums, miScalar by) {
    divide(sums.ambient, by);
    divide(sums.diffuse, by);
    divide(sums.specular, by);
    sums.diffuseLevel /= by;
}

inline void multiply(miColor& color, const miColor& by) {
    color.r *= by.r;
    color.g *= by.g;
    color.b *= by.b;
}

/* One sample, with what the light has just told about it in its record. Where it told no cosine, the record
   holds the plain one, for whoever looks there next. A light that bends its cosine below 0 gives none. */
template <class Model>
void add_sample(const Model& model, LightSample& sample, LightShapingRecord& told, LightSums& sums) {
    if (told.ambientOnly) {
        add(sums.ambient, sample.color);
        return;
    }
    if (!(sample.dot_nl > 0.0f))
        return;
    if (!told.valid)
        told.shapedCosine = sample.dot_nl;
    sample.diffuse = told.shapedCosine > 0.0f ? told.shapedCosine : 0.0f;
    if ((told.affectFlags & affects_diffuse) != 0)
        model.diffuse(sample, sums);
    if ((told.affectFlags & affects_specular) != 0)
        model.highlight(sample, sums);
}

/* Walks the lights of the node and gives the mean of each light's samples to take(sums). A model says what it
   has computed for the point, and adds a sample by model.diffuse(sample, sums), model.highlight(sample,
   sums). Affect flags, ambient-only lights and samples from behind are dealt with here. */
template <class Model, class Take> void for_each_light(miState* state, const Model& model, const Take& take) {
    struct Walk {
        const Model& model;
        const Take& take;
    } walk{model, take};
    const orl_LightFunction visit = [](miState* at, miTag light, LightShapingRecord* told, void* context) {
        const Walk& its = *static_cast<const Walk*>(context);
        its.take(mean_of_samples<LightSums>(at, light, [&](LightSample& sample, LightSums& sums) {
            add_sample(its.model, sample, *told, sums);
        }));
    };
    IllumAccumulate(state, visit, &walk);
}

/* The same, added to the record. */
template <class Model> void gather_light(miState* state, IllumRecord* record, const Model& model) {
    for_each_light(state, model, [record](const LightSums& sums) {
        add(record->ambient, sums.ambient);
        add(record->diffuse, sums.diffuse);
        add(record->specular, sums.specular);
        record->diffuseLightLevel += sums.diffuseLevel;
    });
}

/* Adds the self-illumination: its colour, or its share of the diffuse colour, which then takes light away. */
void add_self_illumination(IllumRecord* record);

/* Multiplies the sums by the colours of their channels and keeps the diffuse light level. */
void multiply_by_channels(IllumRecord* record);
/* The same for models whose diffuse sum holds the diffuse colour and that gather the level by themselves. */
void multiply_ambient_and_specular(IllumRecord* record);

/* End of every shade callback: transmission, reflection, combine. */
void finish(miState* state, IllumRecord* record);

/* What transmit_light does for a model of these features, for models that transmit by themselves. */
void transmit_with(unsigned features, miState* state, IllumRecord* record);

/* Traces what lies behind a transparent surface, under the records that environments and compound materials
   read; black, alpha included, where nothing is traced. */
miColor trace_transparency(miState* state);

/* Colour that a surface lets through: three ways, which the transparency types 0, 1 and 2 choose as 2, 0 and
   1. `amount` is the opacity. */
int filter_mode(miInteger transparency_type);
miColor transmission_filter(int mode, miScalar amount, const miColor& filter, const miColor& diffuse);
/* The same with what the record holds; the amount is its opacity factor. */
miColor filter_of(const IllumRecord& record);

} // namespace orl
