/*
 * The utility and pass-through shaders: their parameters with the declaration tables, and the mathematics
 * behind the gamma-corrected look-up, the editor background and the node shaders.
 */
#pragma once

#include "declaration.h"

#include <cstdint>

namespace orl {

// ---- mathematics

/* Powers of the gamma exponent for components from 0 to 1, in equal steps. */
class GammaTable {
public:
    static constexpr int size = 8192;

    /* Fills the table: entry i is (i / 8191)^gamma. */
    static void fill(float (&entries)[size], float gamma);

    /* component^gamma: from the table (nearest entry) up to 1, computed above. Negative components give entry
       0; what is not a number stays so, to be found and reported by the renderer. */
    static float apply(const float (&entries)[size], float gamma, float component);
};

struct TextureCoordinate {
    float u, v;
};

/* Position on the face of a cube that a direction meets, 0 to 1 on each axis, upright and unmirrored as seen
   from the middle with y up. A direction that is null or not finite meets the middle of a face. */
TextureCoordinate cube_face_coordinate(const miVector& dir);

/* Entry (0 to 4) of the background's five colours: diagonal bands of 8 cells for each unit. */
int background_band(TextureCoordinate at);
inline constexpr int background_bands = 5;
extern const miColor background_colors[background_bands];

/* Colour of a node with that visibility (0 to 1): either all components fade with it, or their complements
 * do. */
miColor apply_visibility(const miColor& color, float visibility, bool as_opacity);

/* Mix of two colours by one weight for each component; alpha is that of `a`. */
miColor mix_by_wire_color(const miColor& a, const miColor& b, const float (&weight)[3]);

/* The host's 64-bit handle from its halves. */
std::uint64_t join_handle(miInteger low, miInteger high);

// ---- parameters

struct NoParams {};

/* The value is copied as it stands, whatever its type. */
struct PassthruParams {
    miScalar first;
    miScalar second;
};

struct MaterialToShaderParams {
    miTag material;
};

struct ShaderListParams {
    decl::Array<miTag> shaders;
};

struct ShadowWrapperParams {
    miTag shadow;
};

struct GBufferLensParams {
    miInteger unused_1;
    miBoolean node_id;
    miBoolean node_render_id;
    miInteger unused_2;
    miBoolean texture_coordinates;
    miBoolean velocity;
    miInteger hold_handle_low;
    miInteger hold_handle_high;
};

struct MeditBackgroundParams {
    miBoolean on;
    miColor color;
    miTag background;
};

struct ImageGammaCorrectParams {
    miTag texture;
};

struct NodeVisibilityParams {
    miColor color;
    miBoolean as_opacity;
};

struct WireColorParams {
    miInteger channel;
    miColor a;
    miColor b;
};

// ---- declaration tables

namespace utilshaders_table {

inline constexpr auto passthru = decl::fields<PassthruParams>(
    decl::scalar(&PassthruParams::first, "first", 0, decl::any, "", "first four bytes of the value"),
    decl::scalar(&PassthruParams::second, "second", 0, decl::any, "", "last four bytes of the value"));

inline constexpr auto material_to_shader = decl::fields<MaterialToShaderParams>(
    decl::element(&MaterialToShaderParams::material, miTYPE_MATERIAL, "material", "material to run"));

inline constexpr auto shader_list = decl::fields<ShaderListParams>(
    decl::array(&ShaderListParams::shaders, miTYPE_SHADER, "shaders", "shaders to run, in order"));

inline constexpr auto shadow_wrapper = decl::fields<ShadowWrapperParams>(
    decl::element(&ShadowWrapperParams::shadow, miTYPE_SHADER, "shadow", "shadow shader to run"));

inline constexpr auto gbuffer_lens = decl::fields<GBufferLensParams>(
    decl::integer(&GBufferLensParams::unused_1, "unused_1", 0, decl::any, "not read"),
    decl::boolean(&GBufferLensParams::node_id, "node_id", false, "write fb_node_id and fb_node_render_id"),
    decl::boolean(&GBufferLensParams::node_render_id, "node_render_id", false,
                  "write fb_node_id and fb_node_render_id"),
    decl::integer(&GBufferLensParams::unused_2, "unused_2", 0, decl::any, "not read"),
    decl::boolean(&GBufferLensParams::texture_coordinates, "texture_coordinates", false,
                  "write fb_ucoord and fb_vcoord from texture space 0"),
    decl::boolean(&GBufferLensParams::velocity, "velocity", false,
                  "write fb_velocity, pixels for each shutter interval"),
    decl::integer(&GBufferLensParams::hold_handle_low, "hold_handle_low", 0, decl::any,
                  "low half of a handle that the render waits for (Windows)"),
    decl::integer(&GBufferLensParams::hold_handle_high, "hold_handle_high", 0, decl::any,
                  "high half of that handle"));

inline constexpr auto medit_background = decl::fields<MeditBackgroundParams>(
    decl::boolean(&MeditBackgroundParams::on, "on", false, "show the background instead of the colour"),
    decl::color(&MeditBackgroundParams::color, "color", {0, 0, 0, 1}, "what is shown while off"),
    decl::element(&MeditBackgroundParams::background, miTYPE_COLOR_TEX, "background",
                  "image of the background; without one, bands of five colours"));

inline constexpr auto image_gamma_correct = decl::fields<ImageGammaCorrectParams>(
    decl::element(&ImageGammaCorrectParams::texture, miTYPE_COLOR_TEX, "texture",
                  "image, looked up at the first texture coordinate"));

inline constexpr auto node_visibility = decl::fields<NodeVisibilityParams>(
    decl::color(&NodeVisibilityParams::color, "color", {1, 1, 1, 1}, "colour to fade"),
    decl::boolean(&NodeVisibilityParams::as_opacity, "as_opacity", false,
                  "off: colour times visibility; on: 1 - (1 - colour) times visibility"));

inline constexpr auto wire_color = decl::fields<WireColorParams>(
    decl::integer(&WireColorParams::channel, "channel", 0, {0, 3},
                  "weight: 1, 2, 3 one component of the wire colour for all; otherwise each its own"),
    decl::color(&WireColorParams::a, "a", {1, 1, 1, 1}, "colour at weight 1"),
    decl::color(&WireColorParams::b, "b", {0, 0, 0, 1}, "colour at weight 0"));

} // namespace utilshaders_table

// clang-format off
inline constexpr decl::Shader utilshaders[] = {
    {"orl_empty", miTYPE_COLOR, 1, false, false,
     decl::apply(miSHADER_MATERIAL, miSHADER_TEXTURE, miSHADER_SHADOW, miSHADER_ENVIRONMENT, miSHADER_VOLUME), {},
     "Opaque black."},
    {"orl_unknown", miTYPE_COLOR, 1, false, false,
     decl::apply(miSHADER_MATERIAL, miSHADER_TEXTURE, miSHADER_SHADOW, miSHADER_ENVIRONMENT, miSHADER_VOLUME), {},
     "White with alpha 0: marks what could not be translated."},
    {"orl_procedural_dummy", miTYPE_COLOR, 1, false, false, decl::apply(miSHADER_MATERIAL, miSHADER_TEXTURE), {},
     "Light grey, stands for a procedural object."},
    {"orl_passthru", miTYPE_COLOR, 1, false, false, decl::apply(miSHADER_TEXTURE), utilshaders_table::passthru,
     "Hands eight bytes on, as red and green of a colour; blue and alpha stay as they were."},
    {"LumeTools", miTYPE_COLOR, 1, false, false, decl::apply(miSHADER_MATERIAL, miSHADER_TEXTURE), {},
     "Opaque black; for scenes that name it."},
    {"orl_is_material_editor", miTYPE_INTEGER, 1, false, false, decl::apply(miSHADER_TEXTURE), {},
     "1 while the scene is a sample of the material editor, otherwise 0."},
    {"orl_MaterialToShader", miTYPE_COLOR, 1, true, true,
     decl::apply(miSHADER_MATERIAL, miSHADER_TEXTURE, miSHADER_SHADOW, miSHADER_ENVIRONMENT, miSHADER_VOLUME,
                 miSHADER_PHOTON, miSHADER_DISPLACE, miSHADER_LIGHTMAP),
     utilshaders_table::material_to_shader, "Runs a material where a shader is expected."},
    {"orl_ShaderList", miTYPE_COLOR, 1, false, false,
     decl::apply(miSHADER_MATERIAL, miSHADER_TEXTURE, miSHADER_SHADOW, miSHADER_ENVIRONMENT, miSHADER_VOLUME,
                 miSHADER_LIGHT, miSHADER_PHOTON),
     utilshaders_table::shader_list, "Runs shaders one after the other on the same result."},
    {"orl_ShadowWrapper", miTYPE_COLOR, 1, false, false, decl::apply(miSHADER_SHADOW),
     utilshaders_table::shadow_wrapper, "Runs a shadow shader for those lights for which the node casts shadows."},
    {"orl_base_GBuffer_lens", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_LENS),
     utilshaders_table::gbuffer_lens,
     "Lens that writes the host's buffers: node ids, texture coordinates and velocity."},
    {"orl_base_MeditBackground", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_ENVIRONMENT, miSHADER_TEXTURE),
     utilshaders_table::medit_background, "Background of the material editor."},
    {"orl_base_ImageGammaCorrect", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_TEXTURE),
     utilshaders_table::image_gamma_correct, "Image look-up with the scene's display gamma taken off."},
    {"orl_NodeVisibility", miTYPE_COLOR, 1, false, false, decl::apply(miSHADER_TEXTURE),
     utilshaders_table::node_visibility, "Fades a colour with the node's visibility."},
    {"orl_WireColor", miTYPE_COLOR, 1, false, false, decl::apply(miSHADER_TEXTURE),
     utilshaders_table::wire_color, "Mixes two colours by the node's wire colour."},
};
// clang-format on

} // namespace orl
