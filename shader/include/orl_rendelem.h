/*
 * Render elements: pictures of parts of the shading, written beside the beauty picture. The handler lens,
 * what it shares with the helpers for materials, and its parameters. The helpers themselves are in
 * orlshaders.h.
 */
#pragma once

#include "declaration.h"
#include "orlshaderapi.h"

namespace orl {

/* The active elements, in their order. Arrays of `count` entries. */
struct RenderElementList {
    miInteger needs_normal_pass;     /* an element with shadows, or the beauty picture */
    miInteger needs_unshadowed_pass; /* an element without shadows */
    miInteger count;
    miInteger* without_shadows;
    miInteger* apply_atmosphere;
    miTag* shader;
    miInteger* buffer; /* index of "fb_re#k", k being the place among all elements; -1 for none */
    miInteger* aux;
    miInteger* beauty_fallback;
};

/* Colours of one thread, reset for each sample. */
struct RenderElementResults {
    miColor* color; /* `count` of the list */
    miInteger busy; /* an element is being computed */
};

struct RenderElementHandlerParams {
    decl::Array<miTag> elementShaders;
    decl::Array<miBoolean> elementEnabled;
    decl::Array<miBoolean> elementWithoutShadows;
    decl::Array<miBoolean> elementApplyAtmosphere;
    decl::Array<miInteger> elementAux;
    decl::Array<miBoolean> elementBeautyFallback;
    miBoolean renderBeauty;
    miBoolean selectRenderRecord;
};

namespace orl_rendelem_table {

inline constexpr auto handler = decl::fields<RenderElementHandlerParams>(
    decl::array(&RenderElementHandlerParams::elementShaders, miTYPE_SHADER, "elementShaders",
                "one shader for each element; element k is written to the frame buffer named fb_re#k, or to "
                "none where the camera has no buffer of that name"),
    decl::array(&RenderElementHandlerParams::elementEnabled, miTYPE_BOOLEAN, "elementEnabled",
                "for each element whether it takes part; elements behind the end of the list do not, so that "
                "without the list there are none"),
    decl::array(&RenderElementHandlerParams::elementWithoutShadows, miTYPE_BOOLEAN, "elementWithoutShadows",
                "for each element: made by an eye ray of its own, with shadows off"),
    decl::array(&RenderElementHandlerParams::elementApplyAtmosphere, miTYPE_BOOLEAN, "elementApplyAtmosphere",
                "for each element: the camera's volume shader acts on it"),
    decl::array(&RenderElementHandlerParams::elementAux, miTYPE_INTEGER, "elementAux", "the host's own"),
    decl::array(&RenderElementHandlerParams::elementBeautyFallback, miTYPE_BOOLEAN, "elementBeautyFallback",
                "for each element: where no material feeds elements, it shows the beauty picture"),
    decl::boolean(&RenderElementHandlerParams::renderBeauty, "renderBeauty", true,
                  "off: the first active element takes the place of the beauty picture"),
    decl::boolean(&RenderElementHandlerParams::selectRenderRecord, "selectRenderRecord", false,
                  "the host's own; changes nothing"));

} // namespace orl_rendelem_table

// clang-format off
inline constexpr decl::Shader orl_rendelem[] = {
    {"orl_RenderElementHandler", miTYPE_COLOR, 3, true, true, decl::apply(miSHADER_LENS),
     orl_rendelem_table::handler,
     "Writes pictures of parts of the shading beside the beauty picture. Tone operators stand before it in the list of lens shaders."},
};
// clang-format on

} // namespace orl
