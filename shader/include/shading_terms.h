/*
 * Terms that several illumination models share: highlights, and the diffuse light of rough surfaces. Plain
 * functions of directions and settings. `view` is the direction of the incoming ray, towards the surface, as
 * in the illumination record; all directions have length 1.
 */
#pragma once

#include "illumination.h"

#include <optional>

namespace orl {

/* Mirror direction of a direction that points towards the surface. */
miVector mirrored(const miVector& dir, const miVector& normal);

/* Direction halfway between light and viewer; the null vector when the two are opposite. */
miVector half_vector(const miVector& to_light, const miVector& view);

/* Highlight cosine where the light grazes: below a diffuse factor of `soften` it goes smoothly to 0. `soften`
   0 leaves it unchanged. */
miScalar soften_highlight(miScalar cosine, miScalar diffuse, miScalar soften);

/* Highlights of height 1 (Bui Tuong Phong, "Illumination for Computer Generated Pictures", 1975; James Blinn,
   "Models of Light Reflection for Computer Synthesized Pictures", 1977), times a level. Phong's exponent is 1
   for glossiness 0 and 1024 for 1; Blinn's is four times that, which gives lobes of about the same width. */
class BlinnLobe {
public:
    BlinnLobe(const IllumRecord& record, miScalar glossiness);
    miScalar reflected(const LightSample& sample, miScalar level) const;

private:
    miVector normal_, view_;
    miScalar exponent_, soften_;
};
class PhongLobe {
public:
    PhongLobe(const IllumRecord& record, miScalar glossiness);
    miScalar reflected(const LightSample& sample, miScalar level) const;

private:
    miVector mirrored_view_;
    miScalar exponent_, soften_;
};

/* The highlight of a model, of a lobe whose reflected(sample, level) is the share of the light, by components
   where it has a colour. A level that is not above 0 has none: its lobe is not even made. The level counts
   once, here; after the loop the colour alone is multiplied in. */
template <class Lobe> class Highlight {
public:
    template <class... Settings> Highlight(miScalar level, const Settings&... settings) : level_(level) {
        if (level > 0.0f)
            lobe_.emplace(settings...);
    }
    void highlight(const LightSample& sample, LightSums& sums) const {
        if (lobe_)
            add(sums.specular, sample.color, lobe_->reflected(sample, level_));
    }

private:
    std::optional<Lobe> lobe_;
    miScalar level_;
};

/* Diffuse light of a plain surface. */
struct PlainDiffuse {
    miScalar level = 1.0f;

    void diffuse(const LightSample& sample, LightSums& sums) const {
        add(sums.diffuse, sample.color, level * sample.diffuse);
    }
};

/* A model of these two, for gather_light. */
template <class Diffuse, class Lobe> struct Terms : Diffuse, Highlight<Lobe> {};

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
    miScalar cosine_about_normal(const LightSample& sample) const;

    bool plain_;
    miVector normal_, viewer_; /* viewer_ in the tangent plane, of a viewer on the side of the normal */
    miScalar viewer_length_, theta_r_;
    miScalar c1_, a_, twice_; /* by the roughness alone */
};

/* Diffuse light of a rough surface of that colour. The colour belongs to the term, which takes its square as
   well, so it is not multiplied in again after the loop; the light level is gathered apart. */
struct RoughDiffuse {
    OrenNayar rough;
    miColor color;
    miScalar level;

    void diffuse(const LightSample& sample, LightSums& sums) const;
};

} // namespace orl
