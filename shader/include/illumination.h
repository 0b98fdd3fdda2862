/*
 * The contract between materials and illumination models. A material fills an IllumRecord and runs its model;
 * the model fills in its channels and callbacks and continues with the material's routine; that routine
 * evaluates the maps into the channels and calls the model's shade callback, which walks the lights and
 * combines everything.
 *
 *   material -> model: mi_call_shader_x(miSHADER_TEXTURE, record)   parameters into channels, callbacks
 *   model -> material: record->continuation(...)                    maps into channels, opacity, map rays
 *   material -> model: record->shade(...)                           light loop, transmission, reflection,
 * combine
 */
#pragma once

#include "declaration.h"
#include "orlshaders.h"

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

/* How a channel of a model is mapped. Other codes keep the material from evaluating the channel's map. */
enum ChannelKind : miInteger {
    channel_none = 0x01, /* behind the model's own channels */
    channel_color = 0x02,
    channel_scalar = 0x04,
    channel_own_8 = 0x08, /* the model's own business, as are the next two */
    channel_own_16 = 0x10,
    channel_own_32 = 0x20,
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

// ---- what models share

/* One sample of a light as the light loop gives it to a model. */
struct LightSample {
    miColor color;
    miVector dir;     /* from the surface to the light, unit length */
    miScalar dot_nl;  /* cosine of the angle of incidence */
    miScalar diffuse; /* diffuse factor: dot_nl, or what the light bent it to */
    bool affectsDiffuse, affectsSpecular;
};

/* Sums of one light, before they are divided by the number of its samples. */
struct LightSums {
    miColor ambient, diffuse, specular;
    miScalar diffuseLevel; /* models that gather the diffuse light level by themselves */
};

/* Adds one sample to the diffuse and specular sums of its light. `context` is the model's own. */
using ShadeSample = void (*)(miState* state, IllumRecord* record, const LightSample& sample, LightSums& sums,
                             void* context);

/* Walks the lights of the node and adds the mean of each light's samples to the record. Ambient-only lights
   and samples from behind are dealt with here. */
void gather_light(miState* state, IllumRecord* record, ShadeSample shade_sample, void* context);

/* Highlight cosine where the light grazes: `soften` 0 leaves it unchanged. */
miScalar soften_highlight(miScalar cosine, miScalar diffuse, miScalar soften);

/* Adds the self-illumination: its colour, or its share of the diffuse colour, which then takes light away. */
void add_self_illumination(IllumRecord* record);

/* Multiplies the sums by the colours of their channels and keeps the diffuse light level. */
void multiply_by_channels(IllumRecord* record);

// Callbacks that models install.
void tint_by_specular(miState* state, const IllumRecord* record, miColor* color);
void tint_by_diffuse(miState* state, const IllumRecord* record, miColor* color);
void reflect_channel(miState* state, IllumRecord* record);
void transmit_light(miState* state, IllumRecord* record);
void combine_simple(IllumRecord* record);
void combine_conserving(IllumRecord* record);

/* Traces what lies behind a transparent surface, under the records that environments and compound materials
   read; black, alpha included, where nothing is traced. */
miColor trace_transparency(miState* state);

/* Colour that a surface lets through: three ways, which the transparency types 0, 1 and 2 choose as 2, 0 and
   1. `amount` is the opacity. */
int filter_mode(miInteger transparency_type);
miColor transmission_filter(int mode, miScalar amount, const miColor& filter, const miColor& diffuse);

} // namespace orl
