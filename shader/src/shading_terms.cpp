/* Highlights and rough diffuse surfaces. */
#include "shading_terms.h"

#include "numeric.h"

#include <algorithm>
#include <cmath>

namespace orl {

miVector mirrored(const miVector& dir, const miVector& normal) {
    const miScalar twice = 2.0f * mi_vector_dot(&normal, &dir);
    return {dir.x - twice * normal.x, dir.y - twice * normal.y, dir.z - twice * normal.z};
}

miVector half_vector(const miVector& to_light, const miVector& view) {
    miVector half;
    mi_vector_sub(&half, &to_light, &view);
    mi_vector_normalize(&half);
    return half;
}

// ---- highlights

double glossy_exponent(miScalar glossiness) {
    return numeric::pow(2.0, 10.0 * static_cast<double>(glossiness));
}

miScalar soften_highlight(miScalar cosine, miScalar diffuse, miScalar soften) {
    if (soften == 0.0f || !(diffuse < soften))
        return cosine;
    const miScalar t = diffuse / soften;
    return cosine * (2.0f - t) * t;
}

namespace {

miScalar lobe_height(miScalar cosine, const LightSample& sample, const Lobe& lobe) {
    if (!(cosine > 0.0f))
        return 0.0f;
    const miScalar base = soften_highlight(cosine, sample.diffuse, lobe.soften);
    return static_cast<miScalar>(numeric::pow(static_cast<double>(base), lobe.exponent));
}

} // namespace

miScalar blinn_highlight(const LightSample& sample, const miVector& normal, const miVector& view,
                         const Lobe& lobe) {
    const miVector half = half_vector(sample.dir, view);
    return lobe_height(mi_vector_dot(&normal, &half), sample, lobe);
}

miScalar phong_highlight(const LightSample& sample, const miVector& mirrored_view, const Lobe& lobe) {
    return lobe_height(mi_vector_dot(&mirrored_view, &sample.dir), sample, lobe);
}

// ---- rough diffuse surfaces

namespace {

constexpr miScalar pi = 3.14159265f;
constexpr miScalar grazing = 1.5393804f; // where the angle of incidence stops: 88.2 degrees

miScalar angle(miScalar cosine) {
    return cosine >= 0.9999f ? 0.0f : numeric::acos(cosine);
}

miScalar bounded_tan(miScalar x) {
    return std::clamp(numeric::tan(x), -100.0f, 100.0f);
}

// What of a direction lies in the tangent plane.
miVector projected(const miVector& dir, const miVector& normal, miScalar cosine) {
    return {dir.x - cosine * normal.x, dir.y - cosine * normal.y, dir.z - cosine * normal.z};
}

// Cosine of the angle between two vectors; 1 where one of them (almost) vanishes.
miScalar cosine_between(const miVector& x, const miVector& y) {
    const miScalar lengths = mi_vector_norm(&x) * mi_vector_norm(&y);
    return lengths < 0.0001f ? 1.0f : std::clamp(mi_vector_dot(&x, &y) / lengths, -1.0f, 1.0f);
}

} // namespace

OrenNayar::OrenNayar(miScalar roughness, const miVector& normal, const miVector& view)
    : normal_(normal), viewer_(view), n_v_(mi_vector_dot(&normal, &view)) {
    if (n_v_ < 0.0f)
        mi_vector_neg(&viewer_);
    n_v_ = std::fabs(n_v_);
    theta_r_ = angle(n_v_);
    const miScalar sigma = roughness * pi * 0.5f;
    const miScalar variance = sigma * sigma;
    c1_ = 1.0f - 0.5f * variance / (variance + 0.33f);
    a_ = variance / (variance + 0.09f);
    twice_ = 0.17f * variance / (variance + 0.13f);
}

OrenNayar::Share OrenNayar::share(const LightSample& sample) const {
    const miScalar theta_i = std::clamp(angle(sample.dot_nl), -grazing, grazing);
    const miScalar alpha = std::max(theta_i, theta_r_), beta = std::min(theta_i, theta_r_);
    const miScalar cos_phi =
        cosine_between(projected(sample.dir, normal_, sample.dot_nl), projected(viewer_, normal_, n_v_));
    // Deliberate: the cubed term is added on the side of the viewer and taken away on the other, so that
    // rough surfaces shine back more strongly than measured ones do. The host's pictures rely on it.
    const miScalar b = 2.0f * beta / pi;
    const miScalar k = cos_phi >= 0.0f ? -b * b * b : b * b * b;
    const miScalar c2 = 0.45f * a_ * (numeric::sin(alpha) - k);
    const miScalar ab = 4.0f * alpha * beta / (pi * pi);
    const miScalar c3 = 0.125f * a_ * ab * ab * (1.0f - std::fabs(cos_phi));
    return {c1_ + cos_phi * c2 * bounded_tan(beta) + c3 * bounded_tan((alpha + beta) * 0.5f),
            twice_ * (1.0f - cos_phi * b * b)};
}

// Far from the light at grazing angles the approximation falls below 0; light does not.
miColor OrenNayar::Share::of(const miColor& color) const {
    const auto component = [this](miScalar c) { return limit(c * c * twice + c * once, 0, 1); };
    return {component(color.r), component(color.g), component(color.b), 0};
}

miScalar OrenNayar::Share::grey() const {
    return std::max(once + twice, 0.0f);
}

void RoughDiffuse::add_to(LightSums& sums, const LightSample& sample) const {
    const OrenNayar::Share share = rough.share(sample);
    miColor reflected = share.of(color);
    multiply(reflected, sample.color);
    add(sums.diffuse, reflected, level * sample.diffuse);
    sums.diffuseLevel += share.grey() * sample.diffuse * average(sample.color);
}

} // namespace orl
