/*
 * The mathematics of coordinate generators.
 */
#include "uv_placement.h"

#include "noise.h"
#include "numeric.h"
#include "vectors.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace orl {

namespace {

constexpr miScalar pi = 3.14159265f;
constexpr miScalar half_inverse_pi = 0.15915494f;

UvPoint with_width(miScalar u, miScalar v, miScalar width) {
    return {{u, v, 0.0f}, {width, width, width}};
}

miScalar longitude(const miVector& dir) {
    return numeric::atan2(dir.y, -dir.x);
}

// Directions may be a rounding error too long.
miScalar height(const miVector& dir) {
    return std::clamp(dir.z, -1.0f, 1.0f);
}

} // namespace

// ---- environments

UvPoint spherical_uv(const miVector& dir, miScalar spread) {
    const miScalar z = height(dir);
    return with_width(longitude(dir) * half_inverse_pi + 0.5f, numeric::asin(z) * inverse_pi + 0.5f,
                      spread / ((1.0f - z * z) * pi + 0.31415927f));
}

UvPoint cylindrical_uv(const miVector& dir, miScalar spread) {
    const miScalar r = std::sqrt(dir.x * dir.x + dir.y * dir.y);
    miScalar v = 0.5f; // of the null direction
    if (std::fabs(dir.z) > r)
        v = (dir.z > 0.0f ? 1.0f : 0.0f) - 0.25f * r / dir.z;
    else if (r != 0.0f)
        v = 0.25f * dir.z / r + 0.5f;
    return with_width(longitude(dir) * half_inverse_pi + 0.5f, v, spread * inverse_pi);
}

UvPoint shrink_wrap_uv(const miVector& dir, miScalar spread) {
    const miScalar angle = longitude(dir);
    const miScalar s = 0.5f - (numeric::asin(height(dir)) * half_inverse_pi + 0.25f);
    return with_width(numeric::cos(angle) * s + 0.5f, numeric::sin(angle) * s + 0.5f,
                      spread / (1.01f - 4.0f * s * s) * inverse_pi);
}

// ---- turning

namespace {

// Turns what the matrix gives, from one axis towards the other.
void turn_further(UvMatrix& m, miScalar miVector::*from, miScalar miVector::*to, miScalar angle) {
    const miScalar sine = numeric::sin(angle), cosine = numeric::cos(angle);
    for (int k = 0; k < 3; ++k) {
        miVector& image = m.row[k];
        const miScalar a = image.*from, b = image.*to;
        image.*from = a * cosine - b * sine;
        image.*to = a * sine + b * cosine;
    }
}

// Rows are the images of u, v and w, so their order says which of them counts as the first axis. The order
// comes in front of the turn: without one the matrix does what onto_plane does, and a turn about w turns the
// picture in its own plane, whichever that is.
void put_plane_in_front(UvMatrix& m, miInteger axis) {
    if (axis == 1 || axis == 2)
        std::rotate(m.row, m.row + 3 - axis, m.row + 3);
}

// Of a matrix that turns and does not move.
UvMatrix inverse_turn(const UvMatrix& m) {
    const miVector &a = m.row[0], &b = m.row[1], &c = m.row[2];
    return {{{a.x, b.x, c.x}, {a.y, b.y, c.y}, {a.z, b.z, c.z}, {0, 0, 0}}};
}

} // namespace

void update_turn(UvTurn& turn, const miVector& angles, miInteger axis) {
    if (turn.u_angle != angles.x || turn.v_angle != angles.y || turn.w_angle != angles.z)
        turn.valid = miFALSE;
    if (turn.valid)
        return;
    turn.u_angle = angles.x;
    turn.v_angle = angles.y;
    turn.w_angle = angles.z;
    turn.sine = numeric::sin(angles.z);
    turn.cosine = numeric::cos(angles.z);
    turn.rotated = angles.x != 0.0f || angles.y != 0.0f || angles.z != 0.0f;
    turn.matrix = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};
    if (turn.rotated) {
        turn_further(turn.matrix, &miVector::y, &miVector::z, angles.x);
        turn_further(turn.matrix, &miVector::z, &miVector::x, angles.y);
        turn_further(turn.matrix, &miVector::x, &miVector::y, angles.z);
    }
    put_plane_in_front(turn.matrix, axis);
    turn.inverse = inverse_turn(turn.matrix);
    turn.valid = miTRUE;
}

UvPoint turned(const UvMatrix& matrix, const UvPoint& p) {
    UvPoint result{matrix.row[3], {0, 0, 0}};
    const auto add = [&result](const miVector& image, miScalar x, miScalar width) {
        result.uvw = sum(result.uvw, {x * image.x, x * image.y, x * image.z});
        result.width = sum(result.width, {width * std::fabs(image.x), width * std::fabs(image.y),
                                          width * std::fabs(image.z)});
    };
    add(matrix.row[0], p.uvw.x, p.width.x);
    add(matrix.row[1], p.uvw.y, p.width.y);
    add(matrix.row[2], p.uvw.z, p.width.z);
    return result;
}

UvPoint onto_plane(miInteger axis, const UvPoint& p) {
    if (axis != 1 && axis != 2)
        return p;
    // Deliberate: both planes have the widths of the first, which is how the host filters them.
    return {axis == 1 ? miVector{p.uvw.y, p.uvw.z, p.uvw.x} : miVector{p.uvw.z, p.uvw.x, p.uvw.y},
            {p.width.y, p.width.z, p.width.x}};
}

// Deliberate: to the other side than the turn of a surface's coordinates. The host looks at an environment
// from within.
UvPoint turned_in_plane(miScalar sine, miScalar cosine, const UvPoint& p) {
    const auto [u, v, w] = p.uvw;
    const auto [du, dv, dw] = p.width;
    return {
        {sine * v + cosine * u, cosine * v - sine * u, w},
        {std::fabs(du * cosine) + std::fabs(dv * sine), std::fabs(du * sine) + std::fabs(dv * cosine), dw}};
}

// ---- moving and tiling

namespace {

void tile(miScalar tiling, miScalar& x, miScalar& width) {
    if (tiling == 1.0f)
        return;
    x *= tiling;
    width = std::fabs(width * tiling);
}

} // namespace

UvPoint moved_to_pivot(const UvPlacement& place, UvPoint p) {
    p.uvw.x -= place.pivot + place.u_offset;
    p.uvw.y -= place.pivot + place.v_offset;
    p.uvw.z -= place.pivot;
    return p;
}

UvPoint tiled_from_pivot(const UvPlacement& place, UvPoint p) {
    tile(place.u_tiling, p.uvw.x, p.width.x);
    tile(place.v_tiling, p.uvw.y, p.width.y);
    p.uvw = sum(p.uvw, {place.pivot, place.pivot, place.pivot});
    return p;
}

namespace {

// Noise at a coordinate in units of its size. Of size 0 there is none.
miScalar noise_at(const UvNoise& noise, miScalar x) {
    if (!std::isfinite(x))
        return 0.0f;
    return noise.phase ? fractalAbsNoise2(x, *noise.phase, noise.levels) : fractalAbsNoise1(x, noise.levels);
}

} // namespace

void displace(const UvNoise& noise, miVector& uvw) {
    const miScalar height = noise.amount * 0.1f;
    const miScalar frequency = 1.0f / noise.size;
    uvw.x += noise_at(noise, frequency * uvw.y) * height;
    // Deliberate: along u as it is now. The host's materials were made with this order.
    uvw.y += noise_at(noise, frequency * uvw.x) * height;
}

// ---- wrapping

miScalar uv_fraction(miScalar x) {
    const miScalar f = x - std::trunc(x);
    return x < 0.0f ? f + 1.0f : f; // deliberate: 1, not 0, where a negative x is whole
}

bool wrap(UvEdge edge, bool plain, miScalar& x) {
    if (!edge.tile && !edge.mirror)
        return x >= 0.0f && x <= 1.0f;
    const miScalar f = uv_fraction(x);
    if (!std::isfinite(f))
        return false;
    const miScalar there = edge.tile ? f : f < 0.5f ? 2.0f * f : 1.0f - 2.0f * (f - 0.5f);
    // Deliberate: mirrored maps run from 0 to 1.5 and from 1.5 down to -1 rather than up and down once. The
    // host's bump has them so unless it asks for plain wrapping.
    x = plain ? there : 2.0f * there - f;
    return true;
}

} // namespace orl
