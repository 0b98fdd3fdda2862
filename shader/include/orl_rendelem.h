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

} // namespace orl
