/* Highlights of brushed surfaces, and how the grooves run. */
#include "anisotropic.h"

#include "numeric.h"
#include "orlshaderapi.h"
#include "shading_terms.h"

#include <algorithm>
#include <cmath>

namespace orl {

// ---- tangents

namespace {

constexpr miInteger groove_channel = 1; // the host's first map channel
constexpr miScalar pi = 3.14159265f;

// Objects that carry no bump basis have the tangents of their triangles; those are not smooth from one to the
// next.
bool groove_direction(miState* state, context::ChannelCache& cache, miVector& object_dir) {
    find_groove_space(state, cache);
    if (cache.space == 0 && GetTangentBasisVectors(state, &object_dir, nullptr))
        return true;
    context::Tangents tangents;
    if (!context::texture_tangents(state, groove_channel, cache, tangents))
        return false;
    object_dir = tangents.along_u;
    return true;
}

// Turns v into a direction of the plane with that normal; false where it has none there.
bool put_into_plane(miVector& v, const miVector& normal) {
    mi_vector_normalize(&v);
    const miScalar above = mi_vector_dot(&v, &normal);
    v = {v.x - above * normal.x, v.y - above * normal.y, v.z - above * normal.z};
    if (!(mi_vector_norm(&v) > 1e-4f))
        return false;
    mi_vector_normalize(&v);
    return true;
}

} // namespace

void find_groove_space(miState* state, context::ChannelCache& cache) {
    if (context::texture_space(state, groove_channel, cache) < 0)
        cache.space = 0;
}

TangentFrame tangent_frame(miState* state, const miVector& normal, context::ChannelCache& cache) {
    const auto from_object = [state](miVector object_dir) {
        miVector dir;
        mi_vector_from_object(state, &dir, &object_dir);
        return dir;
    };
    TangentFrame frame{};
    miVector known;
    if (groove_direction(state, cache, known))
        frame.along = from_object(known);
    if (!put_into_plane(frame.along, normal)) {
        const miVector axis = from_object({0, 0, 1});
        mi_vector_prod(&frame.along, &axis, &normal);
        if (!put_into_plane(frame.along, normal)) {
            frame.along = from_object({1, 0, 0});
            put_into_plane(frame.along, normal);
        }
    }
    mi_vector_prod(&frame.across, &normal, &frame.along);
    return frame;
}

TangentFrame turned(const TangentFrame& frame, miScalar orientation) {
    if (orientation == 0.0f)
        return frame;
    const miScalar c = numeric::cos(orientation * pi), s = numeric::sin(orientation * pi);
    const auto mix = [](const miVector& a, miScalar f, const miVector& b, miScalar g) {
        return miVector{a.x * f + b.x * g, a.y * f + b.y * g, a.z * f + b.z * g};
    };
    return {mix(frame.along, c, frame.across, s), mix(frame.across, c, frame.along, -s)};
}

miColor orientation_channel(miState* state, const miScalar& parameter) {
    return {limit(eval(state, parameter), -999.99f, 999.99f) * 0.5555556f, 0, 0, 0};
}

// ---- highlights

// Maps may have taken the channels out of their range.
miScalar highlight_width(miScalar glossiness, miScalar anisotropy) {
    return 0.485f * (1.0f - limit(glossiness, 0, 1)) * (1.0f - limit(anisotropy, 0, 1)) + 0.015f;
}

AnisotropicLobe::AnisotropicLobe(const IllumRecord& record, const TangentFrame& frame, miScalar width_along,
                                 miScalar width_across, miScalar highest_gain)
    : normal_(record.normal), view_(record.view), frame_(frame), width_along_(width_along),
      width_across_(width_across), n_v_(std::max(-mi_vector_dot(&record.normal, &record.view), 0.001f)),
      highest_gain_(highest_gain) {}

miScalar AnisotropicLobe::height(const LightSample& sample, miScalar share) const {
    const miVector half = half_vector(sample.dir, view_);
    const miScalar n_h = mi_vector_dot(&normal_, &half);
    if (!(n_h > 0.0f))
        return 0.0f;
    const miScalar x = mi_vector_dot(&half, &frame_.along) / width_along_;
    const miScalar y = mi_vector_dot(&half, &frame_.across) / width_across_;
    const miScalar gain = std::min(1.0f / std::sqrt(sample.dot_nl * n_v_), highest_gain_);
    return share * 2.6525824f * gain * numeric::exp(-2.0f * (x * x + y * y) / (n_h + 1.0f));
}

BrushedLobe::BrushedLobe(const IllumRecord& record, const TangentFrame& frame, const miColor* settings)
    : lobe_(record, turned(frame, settings[2].r), highlight_width(settings[0].r),
            highlight_width(settings[0].r, settings[1].r), 3.0f) {}

// Deliberate: half of the height and no cosine of the light, so that brushed highlights stay bright towards
// grazing light. The host's scenes set their levels by that.
miScalar BrushedLobe::reflected(const LightSample& sample, miScalar level) const {
    return lobe_.height(sample, 0.5f) * level;
}

} // namespace orl
