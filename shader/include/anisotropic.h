/*
 * Highlights of brushed surfaces, which have a width along their grooves and another across (Gregory Ward,
 * "Measuring and Modeling Anisotropic Reflection", 1992), and the tangents that tell how the grooves run.
 */
#pragma once

#include "illumination.h"
#include "orl_context.h"

namespace orl {

// ---- tangents

/* Finds the texture space that the grooves follow: that of the host's first map channel, or the object's
   first one where the host does not tell. Only this fills the cache. */
void find_groove_space(miState* state, context::ChannelCache& cache);

/* Direction of the grooves and the one across, in the plane of the surface: of length 1, at right angles to
   each other and to the normal, internal space. Surfaces without texture coordinates have their grooves run
   round the object's z axis. */
struct TangentFrame {
    miVector along, across;
};
TangentFrame tangent_frame(miState* state, const miVector& normal, context::ChannelCache& cache);

/* The frame from which the grooves stray by `orientation` half turns about the normal. */
TangentFrame turned(const TangentFrame& frame, miScalar orientation);

// ---- highlights

/* Width of a highlight, as a slope: 0.5 for glossiness 0, 0.015 for 1; the narrower the anisotropy makes it.
 */
miScalar highlight_width(miScalar glossiness, miScalar anisotropy = 0);

/* A highlight for one point and viewer. */
class AnisotropicLobe {
public:
    /* `highest_gain` bounds the gain of grazing light and viewers, which has no end by itself. Viewers below
       the surface, which bent normals make, count as grazing. */
    AnisotropicLobe(const IllumRecord& record, const TangentFrame& frame, miScalar width_along,
                    miScalar width_across, miScalar highest_gain);

    /* Not negative; 2.6525824 is 1 / (4 pi) for a product of the widths of 0.03. The actual widths are not in
       it, so glossy highlights are narrow rather than high. `share` multiplies it. */
    miScalar height(const LightSample& sample, miScalar share) const;

private:
    miVector normal_, view_;
    TangentFrame frame_;
    miScalar width_along_, width_across_, n_v_, highest_gain_;
};

/* Highlight of a brushed layer. `settings` are its channels of glossiness, anisotropy and orientation. */
class BrushedLobe {
public:
    BrushedLobe(const IllumRecord& record, const TangentFrame& frame, const miColor* settings);
    miScalar reflected(const LightSample& sample, miScalar level) const;

private:
    AnisotropicLobe lobe_;
};

/* The parameter counts hundreds of degrees, the channel half turns. */
miColor orientation_channel(miState* state, const miScalar& parameter);

} // namespace orl
