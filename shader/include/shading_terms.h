/*
 * Terms that several illumination models share: highlights, and the diffuse light of rough surfaces. Plain
 * functions of directions and settings. `view` is the direction of the incoming ray, towards the surface, as
 * in the illumination record; all directions have length 1.
 */
#pragma once

#include "illumination.h"

namespace orl {

/* Mirror direction of a direction that points towards the surface. */
miVector mirrored(const miVector& dir, const miVector& normal);

/* Direction halfway between light and viewer; the null vector when the two are opposite. */
miVector half_vector(const miVector& to_light, const miVector& view);

/* Exponent of a Phong lobe: 1 for glossiness 0, 1024 for glossiness 1. Blinn's is four times that, which
   gives lobes of about the same width. */
double glossy_exponent(miScalar glossiness);

/* Highlight cosine where the light grazes: below a diffuse factor of `soften` it goes smoothly to 0. `soften`
   0 leaves it unchanged. */
miScalar soften_highlight(miScalar cosine, miScalar diffuse, miScalar soften);

/* Highlights of height 1 (Bui Tuong Phong, "Illumination for Computer Generated Pictures", 1975; James Blinn,
   "Models of Light Reflection for Computer Synthesized Pictures", 1977). 0 to 1. */
struct Lobe {
    double exponent;
    miScalar soften;
};
miScalar blinn_highlight(const LightSample& sample, const miVector& normal, const miVector& view,
                         const Lobe& lobe);
miScalar phong_highlight(const LightSample& sample, const miVector& mirrored_view, const Lobe& lobe);

/*
 * Diffuse light of a surface of small V-shaped grooves (Michael Oren and Shree Nayar, "Generalization of
 * Lambert's Reflectance Model", 1994), for one point and viewer. Roughness 0 is a plain diffuse surface.
 */
class OrenNayar {
public:
    /* `roughness` 0 to 1 for slopes that vary by 0 to 90 degrees. */
    OrenNayar(miScalar roughness, const miVector& normal, const miVector& view);

    /* What one light gives: in proportion to the surface's colour, and by light that two grooves exchange in
       proportion to its square. A plain surface has 1 and 0. */
    struct Share {
        miScalar once, twice;

        /* Of a colour; 0 to 1 in each component. */
        miColor of(const miColor& color) const;
        /* Of white, for the diffuse light level; not negative. */
        miScalar grey() const;
    };
    Share share(const LightSample& sample) const;

private:
    miVector normal_, viewer_; /* viewer_ on the side of the normal */
    miScalar n_v_, theta_r_;
    miScalar c1_, a_, twice_; /* by the roughness alone */
};

/* Diffuse light of a rough surface of that colour. The colour belongs to the term, which takes its square as
   well, so it is not multiplied in again after the loop; the light level is gathered apart. */
struct RoughDiffuse {
    OrenNayar rough;
    miColor color;
    miScalar level;

    void add_to(LightSums& sums, const LightSample& sample) const;
};

} // namespace orl
