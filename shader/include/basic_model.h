/*
 * What the models of eight channels share (Blinn, Phong, constant, metal): parameters, their declaration
 * table, channels, and the Phong shading that the constant model uses as well.
 */
#pragma once

#include "illumination.h"

namespace orl {

struct BasicModelParams {
    miColor ambient;
    miColor diffuse;
    miColor specular;
    miScalar specularLevel;
    miScalar glossiness;
    miColor selfIllumColor;
    miScalar selfIllumAmount;
    miScalar soften;
};

/* Parameters that most models have, by name, so that each is explained once. */
namespace model_field {

template <class P> constexpr auto ambient(miColor P::*member) {
    return decl::color(member, "ambient", {0.588f, 0.588f, 0.588f, 1}, "colour in ambient light");
}
template <class P> constexpr auto diffuse(miColor P::*member) {
    return decl::color(member, "diffuse", {0.588f, 0.588f, 0.588f, 1}, "colour in direct light");
}
template <class P> constexpr auto specular(miColor P::*member, const char* name = "specular") {
    return decl::color(member, name, {0.9f, 0.9f, 0.9f, 1},
                       "colour of highlights and, but for metals, of reflections");
}
template <class P> constexpr auto specular_level(miScalar P::*member, const char* name = "specularLevel") {
    return decl::scalar(member, name, 0, {0, 9.99}, "", "strength of the highlight; 0 for none");
}
template <class P> constexpr auto glossiness(miScalar P::*member, const char* name = "glossiness") {
    return decl::scalar(member, name, 0.1, decl::unit_interval, "",
                        "size of the highlight, 1 for the smallest");
}
template <class P> constexpr auto filter(miColor P::*member) {
    return decl::color(member, "filter", {1, 1, 1, 1},
                       "colour of what shines through, in place of the material's");
}
template <class P> constexpr auto anisotropy(miScalar P::*member, const char* name = "anisotropy") {
    return decl::scalar(member, name, 0.5, decl::unit_interval, "",
                        "0 for round highlights; 1 for the narrowest across the grooves");
}
template <class P> constexpr auto orientation(miScalar P::*member, const char* name = "orientation") {
    return decl::scalar(member, name, 0, {-999.99, 999.99}, "100 degrees",
                        "direction of the grooves, from that of the first texture coordinate");
}
template <class P> constexpr auto self_illum_color(miColor P::*member) {
    return decl::color(member, "selfIllumColor", {0, 0, 0, 1},
                       "light of the surface's own, when the material takes it as a colour");
}
template <class P> constexpr auto self_illum_amount(miScalar P::*member) {
    return decl::scalar(member, "selfIllumAmount", 0, decl::unit_interval, "",
                        "share of the diffuse colour that shines by itself, otherwise");
}
template <class P> constexpr auto soften(miScalar P::*member) {
    return decl::scalar(member, "soften", 0.1, decl::unit_interval, "",
                        "diffuse light below which the highlight fades, against glints of grazing light");
}
template <class P> constexpr auto diffuse_level(miScalar P::*member) {
    return decl::scalar(member, "diffuseLevel", 1, {0, 4}, "", "multiplies the diffuse light");
}
template <class P> constexpr auto roughness(miScalar P::*member) {
    return decl::scalar(member, "roughness", 0.5, decl::unit_interval, "",
                        "0 for a plain diffuse surface; rough ones look flatter");
}

} // namespace model_field

inline constexpr auto basic_model_fields = decl::fields<BasicModelParams>(
    model_field::ambient(&BasicModelParams::ambient), model_field::diffuse(&BasicModelParams::diffuse),
    model_field::specular(&BasicModelParams::specular),
    model_field::specular_level(&BasicModelParams::specularLevel),
    model_field::glossiness(&BasicModelParams::glossiness),
    model_field::self_illum_color(&BasicModelParams::selfIllumColor),
    model_field::self_illum_amount(&BasicModelParams::selfIllumAmount),
    model_field::soften(&BasicModelParams::soften));

/* Places in the channel array. The material puts opacity and filter colour there. */
namespace basic_channel {
enum { ambient, diffuse, specular, specular_level, glossiness, self_illumination, opacity, filter, count };
} // namespace basic_channel

inline constexpr unsigned basic_features = 0x1F20FFE;
inline constexpr ChannelKinds basic_channel_kinds =
    channel_kinds(channel_color, channel_color, channel_color, channel_scalar, channel_scalar, channel_color,
                  channel_scalar, channel_color);
/* The slots have glossiness before the specular level, the channels the other way round. */
inline constexpr SlotMap basic_slot_map = slot_map(0, 1, 2, 4, 3, 5, 6, 7);

/* Enters the parameters into the channels and goes on with the material; miFALSE without a record. */
miBoolean run_basic_model(const IllumModel& model, miColor* result, miState* state,
                          const BasicModelParams* params, IllumRecord* record);

/* Shade callback of the Phong and the constant model. */
void shade_phong(miState* state, IllumRecord* record, const void* params);

} // namespace orl
