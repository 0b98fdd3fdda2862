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

miScalar soften_highlight(miScalar cosine, miScalar diffuse, miScalar soften) {
    if (soften == 0.0f || !(diffuse < soften))
        return cosine;
    const miScalar t = diffuse / soften;
    return cosine * (2.0f - t) * t;
}

namespace {

// In double precision, rounded once: 2^(10 g) times `factor`.
miScalar glossy_exponent(miScalar glossiness, double factor) {
    return static_cast<miScalar>(factor * numeric::pow(2.0, 10.0 * static_cast<double>(glossiness)));
}

miScalar lobe_height(miScalar cosine, miScalar diffuse, miScalar soften, miScalar exponent) {
    return cosine > 0.0f ? numeric::pow(soften_highlight(cosine, diffuse, soften), exponent) : 0.0f;
}

} // namespace

BlinnLobe::BlinnLobe(const IllumRecord& record, miScalar glossiness)
    : normal_(record.normal), view_(record.view), exponent_(glossy_exponent(glossiness, 4.0)),
      soften_(record.soften) {}

miScalar BlinnLobe::reflected(const LightSample& sample, miScalar level) const {
    const miVector half = half_vector(sample.dir, view_);
    return lobe_height(mi_vector_dot(&normal_, &half), sample.diffuse, soften_, exponent_) * level;
}

PhongLobe::PhongLobe(const IllumRecord& record, miScalar glossiness)
    : mirrored_view_(mirrored(record.view, record.normal)), exponent_(glossy_exponent(glossiness, 1.0)),
      soften_(record.soften) {}

miScalar PhongLobe::reflected(const LightSample& sample, miScalar level) const {
    const miScalar cosine = mi_vector_dot(&mirrored_view_, &sample.dir);
    return lobe_height(cosine, sample.diffuse, soften_, exponent_) * level;
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

} // namespace

OrenNayar::OrenNayar(miScalar roughness, const miVector& normal, const miVector& view)
    : plain_(roughness == 0.0f), normal_(normal), viewer_(view) {
    miScalar n_v = mi_vector_dot(&normal, &view);
    if (n_v < 0.0f)
        mi_vector_neg(&viewer_);
    n_v = std::fabs(n_v);
    viewer_ = projected(viewer_, normal, n_v);
    viewer_length_ = mi_vector_norm(&viewer_);
    theta_r_ = angle(n_v);
    const miScalar sigma = roughness * pi * 0.5f;
    const miScalar variance = sigma * sigma;
    c1_ = 1.0f - 0.5f * variance / (variance + 0.33f);
    a_ = variance / (variance + 0.09f);
    twice_ = 0.17f * variance / (variance + 0.13f);
}

// Cosine of the angle between light and viewer about the normal; 1 where one of them is (almost) above.
miScalar OrenNayar::cosine_about_normal(const LightSample& sample) const {
    const miVector light = projected(sample.dir, normal_, sample.dot_nl);
    const miScalar lengths = mi_vector_norm(&light) * viewer_length_;
    return lengths < 0.0001f ? 1.0f : std::clamp(mi_vector_dot(&light, &viewer_) / lengths, -1.0f, 1.0f);
}

OrenNayar::Share OrenNayar::share(const LightSample& sample) const {
    if (plain_)
        return {1.0f, 0.0f};
    const miScalar theta_i = std::clamp(angle(sample.dot_nl), -grazing, grazing);
    const miScalar alpha = std::max(theta_i, theta_r_), beta = std::min(theta_i, theta_r_);
    const miScalar cos_phi = cosine_about_normal(sample);
    // Deliberate: the cubed term is added on the side of the viewer and taken away on the other, so that
    // rough surfaces shine back more strongly than measured ones do. The host's pictures rely on it.
    const miScalar b = 2.0f * beta / pi;
    const miScalar k = cos_phi >= 0.0f ? -b * b * b : b * b * b;
    const miScalar c2 = 0.45f * a_ * (numeric::sin(alpha) - k);
    const miScalar ab = 4.0f * alpha * beta / (pi * pi);
    const miScalar c3 = 0.125f * a_ * (ab * ab) * (1.0f - std::fabs(cos_phi));
    return {c1_ + cos_phi * c2 * bounded_tan(beta) + c3 * bounded_tan((alpha + beta) * 0.5f),
            twice_ * (1.0f - cos_phi * (b * b))};
}

// Far from the light at grazing angles the approximation falls below 0; light does not.
miColor OrenNayar::Share::of(const miColor& color) const {
    const auto component = [this](miScalar c) { return limit(c * c * twice + c * once, 0, 1); };
    return {component(color.r), component(color.g), component(color.b), 0};
}

miScalar OrenNayar::Share::grey() const {
    return std::max(once + twice, 0.0f);
}

void RoughDiffuse::diffuse(const LightSample& sample, LightSums& sums) const {
    const OrenNayar::Share share = rough.share(sample);
    const miColor reflected = share.of(color);
    const auto scaled = [&](miScalar c) { return c * level * sample.diffuse; };
    add(sums.diffuse, sample.color,
        miColor{scaled(reflected.r), scaled(reflected.g), scaled(reflected.b), 0});
    sums.diffuseLevel += share.grey() * sample.diffuse * intensity(sample.color);
}

} // namespace orl
